// SPDX-License-Identifier: LicenseRef-Tarnix
/// @file
/// The trace log: writes lines to one text file and, on request, to standard output.
///
/// @code
/// #include "cmnsmartptr.h"
/// #include "cmntracelog.h"
///
/// using namespace tarnix_cmn_4_4;
/// CCmnSmartPtr<CCmnTraceLog, CCmnDefaultAllocator<CCmnTraceLog>> log(true);
/// log.get()->initialize(L"worker", L"", L"", 1, true); // Logs/worker.log and standard output
/// log.get()->trace(1, "started %d threads", 4);        // prints worker:TIME started 4 threads
/// log.get()->trace(5, "not written: the active level is 1");
/// @endcode
#ifndef TARNIX_CMNTRACELOG_H
#define TARNIX_CMNTRACELOG_H

#include "cmnconfiguration.h"
#include "cmnexport.h"
#include "cmnrefcount.h"
#include "cmntypes.h"

#include <array>
#include <cstdarg>
#include <cstdint>
#include <string>

namespace tarnix_cmn_4_4
{

/// What CCmnTraceLog::refresh has found: which settings it has changed in memory, and what has
/// failed.
struct SCmnTraceRefresh {
    /// Why the settings in the file do not apply.
    enum class Failure {
        none,               ///< they do
        notInitialized,     ///< initialize has not been called
        noSettings,         ///< the settings file cannot be found, for the reason in `error`
        unreadableSettings, ///< an import fails: the file may be incomplete or no regular file, or
                            ///< cannot be opened, for the reason in `error`
        unusableFile,       ///< the trace file that it names cannot be opened, for the reason in
                            ///< `error`; lines still go to the one before. The rest applies
    };

    Failure failure = Failure::none; ///< why settings do not apply
    int error = 0;                   ///< number of the system's error, as in errno; otherwise 0
    bool level = false;              ///< the active level has changed
    bool place = false;              ///< lines go to another trace file
    bool toStdout = false;           ///< lines are copied to standard output now

    /// Whether any setting has changed.
    bool changed() const { return level || place || toStdout; }

    /// Whether anything has failed.
    bool failed() const { return failure != Failure::none; }
};

/// A line is written when its level is less than or equal to the active level: the smaller the
/// number, the more important the line. The settings are in the section DEBUG_TRACE_INFO of the
/// file NAME.conf in the configuration directory of CCmnPathTool, where NAME is the name of the
/// log:
///
/// | Setting | Type | Meaning |
/// |---|---|---|
/// | TRACEDIR | text | directory of the trace file |
/// | TRACEFILE | text | file name of the trace file |
/// | TRACELEVEL | integer | active level, from the first call of trace on |
/// | TRACESTDOUT | integer | 1 turns the copy to standard output on; a setting cannot turn it off |
///
/// Create a log with CCmnSmartPtr<CCmnTraceLog, CCmnDefaultAllocator<CCmnTraceLog>>; the last such
/// pointer destroys it. A log takes no lock: only one thread at a time may use it. Several objects
/// and several processes may write to one file.
class TARNIX_CMN_API CCmnTraceLog : public virtual CCmnRefCount
{
public:
    /// @{
    /// Writes nothing until initialize is called. Until then the active level is 12345.
    CCmnTraceLog();
    CCmnTraceLog(const CCmnTraceLog&) = delete;
    CCmnTraceLog& operator=(const CCmnTraceLog&) = delete;
    /// @}

    /// Loads the settings, creates the configuration file if it is missing, and tests whether the
    /// trace file can be opened. If both `dir` and `file` are given, they and `level` replace the
    /// settings in the configuration file, and TRACESTDOUT becomes 0. If one of them is empty, the
    /// configured or the default file is used; the default is below `dir` if the install directory
    /// is not known. With `toStdout`, lines are copied to standard output. Failures are reported on
    /// standard output. May be called again in any state; an initialised log stays initialised.
    ///
    /// The settings in memory stay. So after a call with another name, lines still go to the file
    /// of the first name, unless both `dir` and `file` are given or the settings file of the new
    /// name has TRACEDIR and TRACEFILE. Use a new log for another name.
    void initialize(const tstr& name, tstr dir, tstr file, int level, bool toStdout);

    /// True once initialize or refresh has been able to open the trace file.
    bool isInitialized() const { return m_Initialized; }

    /// The path of the trace file; empty before initialize. The reference is valid as long as the
    /// log, and the text until the next initialize or refresh.
    const tstr& getTracePath() const { return m_TracePath; }

    /// Sets `level` to the active level as the last call of trace or UpdateTraceLevelFromConfigFile
    /// found it: lines of this level and below were written. Between initialize and the first such
    /// call it is at most 1, or the level of the sibling product.
    void GetTraceLevels(int& level) const { level = m_Settings.level(); }

    /// Appends a line with the time and the text to the trace file. If the copy is on, writes the
    /// same line after the name of the log to standard output. The line is in the file when this
    /// returns. The format is that of printf; the text can have any length. If it cannot be
    /// formatted in the current locale, the format itself is written. Lines that cannot be written
    /// are lost; getLostLines counts them.
    void trace(int level, const char* format, ...) __attribute__((format(printf, 3, 4)));

    /// The same for a function that has such arguments itself. `args` is used up, as by vprintf.
    void vtrace(int level, const char* format, std::va_list args)
        __attribute__((format(printf, 3, 0)));

    /// How many lines of this log were not written whole since its construction: the file could not
    /// be opened, the disk was full, or an allocation failed. What was written of such a line is a
    /// line of its own. Lines before isInitialized are not counted.
    std::uint64_t getLostLines() const { return m_LostLines; }

    /// Why the last such line was lost: the number of the system's error, as in errno. 0 if none
    /// was lost.
    int getLastWriteError() const { return m_LastWriteError; }

    /// Reads the settings file again if it has changed since the last call, so that a process can
    /// follow edits by hand, for example once a second: without a change this only asks the system
    /// for the file's times and size. The first call after initialize always reads the file.
    ///
    /// TRACELEVEL, and TRACEDIR with TRACEFILE, then apply at once. TRACESTDOUT 1 turns the copy
    /// on. A value that is missing from the file stays as it is in memory, and the level of the
    /// sibling product plays no part. If initialize could not open the trace file, this tries
    /// again. After a failure the settings in memory stay. Writes no settings, and reports nothing
    /// on standard output. Throws std::bad_alloc if an allocation fails.
    SCmnTraceRefresh refresh();

    /// One line about the problems of the settings file, as by CCmnConfiguration::takeImportReport:
    /// those that initialize or another call here found since the last call of this, and those of
    /// the file that refresh read last, unless they were returned before. "" if there are none. The
    /// log traces no line of its own about them: a program that wants one calls this after
    /// initialize and refresh, and passes the text to trace as an argument of "%s". Throws
    /// std::bad_alloc if an allocation fails.
    std::string takeSettingsReport();

    /// Sets the active level to TRACELEVEL of the settings in memory, or to 1 if there is none.
    void UpdateTraceLevelFromConfigFile();

    /// Writes the three settings, and 0 for TRACESTDOUT, to the configuration file. Returns 0, or
    /// the non-zero code of the failed export; the settings in memory are changed in both cases.
    int updateConfigFile(const tstr& dir, const tstr& file, const int& level);

    /// Reads the settings, and adds the missing ones to the configuration file; a missing
    /// TRACELEVEL with the value of `level`. The arguments are then set, whatever was passed:
    /// - `dir` and `file` to the configured or the default trace file; the default is below the
    ///   `dir` that was passed if the install directory is not known
    /// - `level` to 0 if TRACELEVEL was 0 or missing, otherwise to 1; to the level of the sibling
    ///   product if that is greater
    void loadFromConfigFile(tstr& dir, tstr& file, int& level);

    /// Calls updateConfigFile if both `dir` and `file` are given, then loadFromConfigFile.
    void initTraceSettings(tstr& dir, tstr& file, int& level);

protected:
    ~CCmnTraceLog() override;

private:
    /// The store in memory, and the active level, which trace takes from it. As long as nobody
    /// could have changed the store or the level, trace need not look the level up again.
    class Settings
    {
    public:
        /// Call this for each use and never keep the reference: a change through a kept reference
        /// would not be noticed.
        CCmnConfiguration& store()
        {
            m_IsLevelOfStore = false;
            return m_Config;
        }
        void setLevel(int level)
        {
            m_IsLevelOfStore = false;
            m_TraceLevel = level;
        }
        void takeLevelFromStore();

        int level() const { return m_TraceLevel; }
        bool isLevelOfStore() const { return m_IsLevelOfStore; }

    private:
        CCmnConfiguration m_Config;
        int m_TraceLevel = 12345;
        bool m_IsLevelOfStore = false;
    };

    unsigned int readSettings(tstr& dir, tstr& file, int level);
    void readOrStore(const wchar_t* key, tstr& value);
    void traceLine(int level, const char* format, std::va_list args);
    void traceText(int level, const char* format, std::va_list args);
    void countLostLine(int error);
    void setPlace(tstr& dir, tstr& file, tstr& path);

    void noteReport(std::string report);
    void takeSettings(CCmnConfiguration& file, SCmnTraceRefresh& result);
    bool takeLevel(unsigned int level);
    void takePlace(tstr& dir, tstr& file, SCmnTraceRefresh& result);

    Settings m_Settings;
    tstr m_Name;
    tstr m_TraceFile;
    tstr m_TraceDir;
    tstr m_TracePath;
    bool m_Initialized = false;
    bool m_ToStdout{};
    bool m_IsLineCut{}; ///< the trace file ended within a line after the last write
    bool m_IsSettingsVersionKnown{};
    int m_LastWriteError = 0;
    std::uint64_t m_LostLines = 0;
    tstr m_SettingsDir;
    tstr m_SettingsFile;
    std::array<std::int64_t, 5> m_SettingsVersion{}; ///< of the file that refresh has read
    std::string m_RefreshReport;                     ///< of that file
    bool m_IsReportNew = false;                      ///< nobody has taken it
};

} // namespace tarnix_cmn_4_4

#endif
