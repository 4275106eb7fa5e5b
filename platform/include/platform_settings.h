// SPDX-License-Identifier: LicenseRef-Tarnix
/// @file
/// Settings files in the format of ACE_Registry_ImpExp: checked before ACE reads them, and complete
/// when they are replaced. Paths are in the encoding of the file system.
#ifndef TARNIX_PLATFORM_SETTINGS_H
#define TARNIX_PLATFORM_SETTINGS_H

#include <ace/Configuration.h>

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace tarnix_platform
{

/// A line that ACE_Registry_ImpExp skips or does not read as it is written.
struct TxImportProblem {
    std::size_t line;   ///< from 1; 0 for the file as a whole
    const char* reason; ///< never null, a static text
};

/// The problems of one file.
struct TxImportReport {
    static constexpr std::size_t kMaxProblems = 1000;

    std::vector<TxImportProblem> problems; ///< the first ones and the last, in order
    std::size_t count = 0;                 ///< of all problems
    bool endsEarly = false; ///< one of them is a line at which the import fails, and ends

    void add(std::size_t line, const char* reason);
};

/// Sections of a store by their spelling. The store finds a section that is asked for in another
/// case only by chance, and then creates a sub-section below it that no export can reach. So all
/// sections are opened by the spelling under which they were created, whatever case is asked for.
class TxSectionNames
{
public:
    static constexpr std::ptrdiff_t kMaxLevels = 128; ///< deeper sections are not imported either

    /// Whether a part ends there for an import. For the store it ends at a backslash only.
    static constexpr bool isSeparator(char c) noexcept { return c == '\\' || c == '/'; }

    /// The heap must be open before any other call, and outlive this object.
    explicit TxSectionNames(ACE_Configuration_Heap& heap) : m_Heap(heap) {}

    /// Gives each part of a path from the root the spelling of the store, and remembers parts that
    /// the store does not have as sections to come: until forget. The parts are separated by
    /// backslashes, and none is empty. The length stays the same.
    void respell(std::string& path);

    /// Forgets all spellings: before an import and after it, as it may have added fewer sections
    /// than its file has. The store is asked again.
    void forget() noexcept { m_Names.clear(); }

    /// Opens the section below `base`, step by step: ACE refuses a path of more than 255 bytes,
    /// although it has such sections. `path` has no empty part. Returns 0; or non-zero with
    /// `result` unchanged, also if the section is more than kMaxLevels deep.
    int open(const ACE_Configuration_Section_Key& base, const std::string& path, bool create,
             ACE_Configuration_Section_Key& result);

    /// Removes the section of that path from the root, whatever its case; with `recursive` false
    /// only if it has no sub-sections. Returns 0, or non-zero on failure.
    int remove(const std::string& path, bool recursive);

private:
    struct IgnoreCase {
        bool operator()(const std::string& left, const std::string& right) const;
    };
    using Names = std::map<std::string, bool, IgnoreCase>;

    int take(const ACE_Configuration_Section_Key& opened, const std::string& path,
             ACE_Configuration_Section_Key& result);
    bool step(ACE_Configuration_Section_Key& at, std::string& path, const std::string& part,
              bool create);
    bool openKnown(ACE_Configuration_Section_Key& at, std::string& path, const std::string& child,
                   std::size_t partAt);
    void list(const ACE_Configuration_Section_Key& section, const std::string& path);
    void listOnce(const std::string& path);

    ACE_Configuration_Heap& m_Heap;
    Names m_Names; ///< the paths, and whether their sub-sections have been entered; "" is the root
};

/// A file that ACE_Registry_ImpExp can import without harm: a checked copy in memory. A missing
/// newline of the last line and missing closing quotes are added and a byte order mark left out,
/// lines that ACE would misread become comments, and sections get the spelling of the store. No
/// child of the process can read the copy once this object is gone. Where there is no /proc, it is
/// the file itself.
///
/// Refused are files that would harm the process, see CCmnConfiguration.
class TxSettingsImport
{
public:
    /// Reads and checks the file. `names` must outlive this object, which forgets them.
    TxSettingsImport(const char* path, TxSectionNames& names);
    ~TxSettingsImport();
    TxSettingsImport(const TxSettingsImport&) = delete;
    TxSettingsImport& operator=(const TxSettingsImport&) = delete;

    /// False if the file is refused, or cannot be opened; the problem is then the system's reason.
    explicit operator bool() const;

    /// What ACE is to import, as long as this object exists.
    const char* path() const;

    /// The problems of the file; if it is refused, the last one says why.
    TxImportReport& report();

private:
    struct State;
    const std::unique_ptr<State> m_State;
};

/// Takes what ACE_Registry_ImpExp exports, and replaces the file by it. As long as it exists, the
/// thread, which must be that of the constructor, gets no SIGXFSZ: a write beyond the limit of the
/// file size fails.
class TxSettingsExport
{
public:
    explicit TxSettingsExport(const char* path);
    ~TxSettingsExport();
    TxSettingsExport(const TxSettingsExport&) = delete;
    TxSettingsExport& operator=(const TxSettingsExport&) = delete;

    /// The file that ACE is to write, as long as this object exists.
    const char* path() const;

    /// Replaces the file by what ACE has written, or writes it in place where TxReplacement says
    /// so. False on failure, also if an import would refuse it; the old file is then unchanged,
    /// unless writing in place has failed.
    bool commit();

private:
    struct State;
    const std::unique_ptr<State> m_State;
};

/// Keeps a copy of the file in its directory: under its name with ".bad", or, if that exists with
/// other content, with ".bad.1" to ".bad.9"; if all exist, it replaces the last one. An equal copy
/// that exists is enough. The copy is never readable by more users than the file, and a link of
/// that name is not followed. True with an empty `copy` if there is no such file, or if it is not a
/// regular file. False, without a copy, if the process may not write the file.
bool TxKeepCopy(const char* path, std::string& copy);

} // namespace tarnix_platform

namespace tarnix_cmn_4_4
{

using tarnix_platform::TxImportReport;
using tarnix_platform::TxKeepCopy;
using tarnix_platform::TxSectionNames;
using tarnix_platform::TxSettingsExport;
using tarnix_platform::TxSettingsImport;

} // namespace tarnix_cmn_4_4

#endif
