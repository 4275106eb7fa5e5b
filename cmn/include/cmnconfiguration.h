/// @file
/// A store of sections and values in memory that is tied to one text file.
#ifndef TARNIX_CMNCONFIGURATION_H
#define TARNIX_CMNCONFIGURATION_H

#include "cmnerror.h"
#include "cmnexport.h"
#include "cmntypes.h"

#include <ace/Configuration.h>

#include <string>
#include <vector>

namespace tarnix_cmn_4_4
{

/// The file is UTF-8 in every locale and has the format of ACE_Registry_ImpExp: a section is a line
/// with its whole path in square brackets, parts separated by backslashes; its values follow, one a
/// line, as "name"="text" or "name"=dword: and eight hexadecimal digits. Lines that begin with a
/// semicolon or a number sign are comments, which an export does not keep.
///
/// What the format cannot carry: a line end in any text, a '"' in the name of a value, and values
/// of the root section; the store takes them, but they do not come back from the file, and a '/' in
/// the name of a section comes back as a backslash. A last line without its line end is not read.
/// Names are refused when they are longer than 255 bytes of UTF-8 or hold '[' or ']', those of
/// values also with a backslash; so is the empty name of a section, also as a part of a path.
///
/// An import refuses what would harm the process: a file with more than 8 zero bytes or a line of
/// more than 16 MiB, a section more than 128 levels deep, more than 50000 levels of sections in
/// all, and what is no plain file. An export that would make such a file fails; the old file stays.
///
/// Keep to one spelling of each section: a second one in other letters ("network" and "Network") is
/// mostly refused, so that opening it fails and an import ends there; where the store takes it, all
/// exports can fail. Value names that differ only in case are one value.
///
/// Operations that give an int give 0 for success and otherwise the non-zero code of what failed;
/// nothing throws but exhausted memory. A null text counts as an empty one. The short get and set
/// operations act on the current section, which every successful openSection moves. One object
/// belongs to one thread at a time: reading moves or uses the current section too.
class TARNIX_CMN_API CCmnConfiguration
{
public:
    /// An empty store without a file.
    CCmnConfiguration();

    /// Tied to the file, as after importConfig, whose result is dropped. With `import` false the
    /// file is not looked at and only an export touches it.
    CCmnConfiguration(const wchar_t* path, const wchar_t* file, bool import);

    CCmnConfiguration(const CCmnConfiguration&) = delete;
    CCmnConfiguration& operator=(const CCmnConfiguration&) = delete;

    /// What has not been exported is lost.
    ~CCmnConfiguration() = default;

    /// Ties the object to the file, even when it then fails, and adds what the file holds to the
    /// store: values of the same name are replaced, others stay, and so does what a failed import
    /// has brought in. `path` carries its trailing separator.
    int importConfig(const wchar_t* path, const wchar_t* file);

    /// The whole store replaces the whole file, which is made if it is missing. The new file is
    /// written beside the old one under a name that begins with ".tarnix-", and then renamed: when
    /// the process is stopped at any point, the disk is full or the export fails otherwise, the old
    /// file is untouched; only a killed process leaves its unfinished file behind. A link to the
    /// file stays a link. Permissions are kept, and the owner and the group where the process may
    /// give the file away; further hard links stay with the old file.
    ///
    /// Where no file can be made there or renamed - a directory that may not be written, a file
    /// that is mounted by itself - for a file with an access list, and for what is no plain file,
    /// the export writes in place, and one that is interrupted leaves a part. Nothing is forced to
    /// the disk: what a crash of the machine leaves is up to the file system.
    int exportConfig();

    /// @{
    /// Names of the sub-sections, in the store's order; none for a key that opens nothing. The form
    /// without a key is that of the current section.
    std::vector<tstr> enumerateSections(const ACE_Configuration_Section_Key& section);
    std::vector<tstr> enumerateSections();
    /// @}

    /// @{
    /// Opens the section `name`, which may be a path with backslashes, under `base` or under the
    /// root, and makes it the current section. `create` is 1 to make a missing section, 0 to fail
    /// on it. After a failure `result` and the current section are what they were. The key may be
    /// copied and stays valid as long as the store.
    int openSection(const ACE_Configuration_Section_Key& base, const wchar_t* name,
                    ACE_Configuration_Section_Key& result, int create);
    int openSection(const wchar_t* name, ACE_Configuration_Section_Key& result, int create);
    /// @}

    /// The store itself. Its names and texts are UTF-8. Not usable when the constructor could not
    /// open it; all operations here fail then.
    ACE_Configuration_Heap& configHeap();

    /// @{
    /// A get that fails leaves `value` as it was.
    int setIntegerValue(const wchar_t* name, unsigned int value);
    int getIntegerValue(const wchar_t* name, unsigned int& value);
    int setStringValue(const wchar_t* name, const tstr& value);
    int getStringValue(const wchar_t* name, tstr& value);
    /// @}

    /// @{
    /// These open the section from the root first, and make it when it is missing.
    int getStringValue(const wchar_t* section, const wchar_t* name, tstr& value);
    int getIntegerValue(const wchar_t* section, const wchar_t* name, unsigned int& value);
    /// @}

    /// The last failure of a constructor or of importConfig; success does not clear it.
    const CCmnError& getLastError() const { return m_LastError.getError(); }

private:
    void openHeap();
    void setFile(const wchar_t* path, const wchar_t* file);
    int verifyFile();

    /// A name or a value as the store takes it. False when there is none: no store is open, or the
    /// text has no UTF-8.
    bool storeText(const wchar_t* text, std::string& utf8) const;

    CCmnErrorHolder m_LastError;
    ACE_Configuration_Heap m_Heap;
    tstr m_Path;
    tstr m_File;
    tstr m_FullPath;
    ACE_Configuration_Section_Key m_Section;
    bool m_Opened = false; ///< a heap that is not open crashes when it is asked anything
};

} // namespace tarnix_cmn_4_4

#endif
