// SPDX-License-Identifier: LicenseRef-Tarnix
/// @file
/// Settings: a store of sections and values in memory that belongs to one text file.
///
/// @code
/// #include "cmnconfiguration.h"
/// #include <iostream>
///
/// using namespace tarnix_cmn_4_4;
/// CCmnConfiguration settings(L"./", L"server.conf", true); // reads the file if there is one
/// unsigned int port = 8080;                                // the default
/// settings.getIntegerValue(L"network", L"port", port);     // from the section "network"
/// settings.setIntegerValue(L"port", port);                 // in the section of the call before
/// std::cout << "port " << port << '\n';                    // prints port 8080
/// return settings.exportConfig();                          // writes the file
/// @endcode
#ifndef TARNIX_CMNCONFIGURATION_H
#define TARNIX_CMNCONFIGURATION_H

#include "cmnerror.h"
#include "cmnexport.h"
#include "cmntypes.h"

#include <ace/Configuration.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace tarnix_cmn_4_4
{

/// A line that an import skips, or does not read as it is written.
struct SCmnImportProblem {
    std::size_t line;   ///< from 1; 0 for the file as a whole
    const char* reason; ///< an English text, valid as long as the library is loaded
};

/// The file is UTF-8 in every locale and has the format of ACE_Registry_ImpExp. A section is a line
/// with its full path in square brackets; backslashes separate the parts of the path. The values of
/// the section follow, one on each line, as "name"="text" or as "name"=dword: and eight hexadecimal
/// digits. Lines that begin with ';' or '#' are comments; an export does not keep them. A byte
/// order mark is skipped, and the last line may lack its newline. Any other line is reported by
/// getImportProblems.
///
/// Limits of the format:
/// - The store accepts a newline in any text, a '"' in the name of a value and values of the root
///   section, but they are not read back from the file: the next import reports them.
/// - A '/' in the name of a section is read back as a backslash, and counts as one for the levels.
/// - Not accepted are names of more than 255 bytes of UTF-8, names with '[' or ']', names of values
///   with a backslash, an empty section name, also as a part of a path, and a section more than 128
///   levels deep.
/// - Names of sections and values that differ only in case ("network" and "Network") are the same
///   section or value, and keep the first spelling.
///
/// An import rejects what would harm the process: a file with more than 8 zero bytes or of more
/// than 64 MiB, a line of more than 16 MiB, a section more than 128 levels deep, more than 50000
/// levels of sections in total, and anything but a regular file. The time grows with the square of
/// the number of values in one section, and of sections; rejected is what would take longer than
/// 100,000 values in one section, for which the store needs minutes. An export that would write
/// such a file fails, and the old file stays.
///
/// Functions that return an int return 0 for success and otherwise the non-zero code of the
/// failure. They throw only when an allocation fails. A null text counts as an empty one. The get
/// and set functions without a section use the current section, which every successful openSection
/// changes. Only one thread at a time may use an object, because reading uses or changes the
/// current section too.
class TARNIX_CMN_API CCmnConfiguration
{
public:
    /// An empty store without a file.
    CCmnConfiguration();

    /// A store for the file. With `import` true it is filled by importConfig; getLastError has the
    /// failure, if any. With `import` false the file is not read; only an export accesses it.
    CCmnConfiguration(const wchar_t* path, const wchar_t* file, bool import);

    CCmnConfiguration(const CCmnConfiguration&) = delete;
    CCmnConfiguration& operator=(const CCmnConfiguration&) = delete;

    /// Changes that have not been exported are lost.
    ~CCmnConfiguration();

    /// Makes this the file of the object, even if the import fails, and adds the contents of the
    /// file to the store. Values of the same name are replaced, others stay. What a failed import
    /// has read before the failure stays too. `path` must end with a separator.
    int importConfig(const wchar_t* path, const wchar_t* file);

    /// What the last importConfig could not read: in the order of the lines, the first 1000, of
    /// which the last one is that of a refused file. Empty if all was read, and before an import.
    /// Valid until the next import.
    const std::vector<SCmnImportProblem>& getImportProblems() const;

    /// The number of all problems of the last importConfig.
    std::size_t getImportProblemCount() const;

    /// The path of the last copy that exportConfig has kept of a file, in the encoding of the file
    /// system; "" if it has kept none.
    std::string getKeptCopy() const;

    /// One line for a log: the file of the last import with problems, how many there were, the
    /// first one, and the copy if an export has kept one. In the encoding of the file system; "" if
    /// there was no such import since the last call.
    std::string takeImportReport();

    /// Replaces the whole file with the whole store, and first keeps a copy of a file whose last
    /// import had problems: NAME.bad in the same directory, or NAME.bad.1 to NAME.bad.9 if others
    /// exist. If all ten do, NAME.bad.9 is replaced: the first nine and the latest are kept. An
    /// export that then fails leaves the copy.
    ///
    /// If no copy can be made, the export fails and the file is unchanged, even if the file itself
    /// could be written: the directory is not writable, the file is not readable, its name with
    /// the ending is too long for the file system, or the disk is full.
    ///
    /// The export creates the file if it is missing. It writes a temporary file in the same
    /// directory, whose name begins with ".tarnix-", and renames it. If the process is stopped, the
    /// disk is full or the export fails for another reason, the old file is unchanged. Only if the
    /// process is killed does the temporary file stay. A symbolic link to the file stays a link.
    /// Permissions are kept, and also owner and group if the process may set them. Other hard links
    /// still lead to the old file.
    ///
    /// The export writes to the file itself if no file can be created or renamed in the directory,
    /// for example because it is not writable, or if the file is a mount point, has an ACL or is
    /// not a regular file. If it is then interrupted, an incomplete file stays. The data is not
    /// flushed to the disk: what a crash of the machine leaves depends on the file system.
    int exportConfig();

    /// @{
    /// The names of the sub-sections, in the order of the store; none for a key that names no
    /// section. Without a key: those of the current section.
    std::vector<tstr> enumerateSections(const ACE_Configuration_Section_Key& section);
    std::vector<tstr> enumerateSections();
    /// @}

    /// @{
    /// Opens the section `name`, which may be a path with backslashes, below `base` or below the
    /// root, and makes it the current section. With `create` 1 a missing section is created; with 0
    /// the call fails. After a failure `result` and the current section are unchanged. The key may
    /// be copied and is valid as long as the store.
    int openSection(const ACE_Configuration_Section_Key& base, const wchar_t* name,
                    ACE_Configuration_Section_Key& result, int create);
    int openSection(const wchar_t* name, ACE_Configuration_Section_Key& result, int create);
    /// @}

    /// The names of the values of the current section, in the order of the store.
    std::vector<tstr> enumerateValues();

    /// Removes a value of the current section. Fails if there is none of that name.
    int removeValue(const wchar_t* name);

    /// Removes the section `name`, a path from the root, with its values. With `recursive` false it
    /// fails if the section has sub-sections; with true they are removed too. Keys of removed
    /// sections, also the current section if it is one, open nothing from then on.
    int removeSection(const wchar_t* name, bool recursive);

    /// The store itself; its names and texts are UTF-8. If the constructor could not open it, it
    /// must not be used, and all other functions fail.
    ACE_Configuration_Heap& configHeap();

    /// @{
    /// A get that fails does not change `value`.
    int setIntegerValue(const wchar_t* name, unsigned int value);
    int getIntegerValue(const wchar_t* name, unsigned int& value);
    int setStringValue(const wchar_t* name, const tstr& value);
    int getStringValue(const wchar_t* name, tstr& value);
    /// @}

    /// @{
    /// These first open the section, below the root. Note: the get creates a missing section.
    int getStringValue(const wchar_t* section, const wchar_t* name, tstr& value);
    int getIntegerValue(const wchar_t* section, const wchar_t* name, unsigned int& value);
    /// @}

    /// The last failure of a constructor or of importConfig; a later success does not clear it.
    const CCmnError& getLastError() const { return m_LastError.getError(); }

private:
    struct State;

    void openHeap();
    void setFile(const wchar_t* path, const wchar_t* file);
    int verifyFile();
    int importFile();

    /// Converts a name or a value to the form of the store. False if no store is open or the text
    /// is not representable in UTF-8.
    bool storeText(const wchar_t* text, std::string& utf8) const;

    CCmnErrorHolder m_LastError;
    ACE_Configuration_Heap m_Heap;
    tstr m_Path;
    tstr m_Unused; ///< keeps the layout of 4.4.x
    tstr m_FullPath;
    ACE_Configuration_Section_Key m_Section;
    bool m_Opened{}; ///< any call on a heap that is not open crashes
    const std::unique_ptr<State> m_State;
};

} // namespace tarnix_cmn_4_4

#endif
