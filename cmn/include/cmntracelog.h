/// @file
/// The trace log: lines in one text file and, on request, on standard output.
#ifndef TARNIX_CMNTRACELOG_H
#define TARNIX_CMNTRACELOG_H

#include "cmnconfiguration.h"
#include "cmnexport.h"
#include "cmnrefcount.h"
#include "cmntypes.h"

#include <cstdarg>

namespace tarnix_cmn_4_4
{

/// A line passes when its level is less than or equal to the active level: the smaller the number,
/// the more important the line. The settings stand in the section DEBUG_TRACE_INFO of a file that
/// bears the log's name and the ending ".conf", in the configuration directory of CCmnPathTool:
///
///   TRACEDIR     text      directory of the trace file
///   TRACEFILE    text      its name
///   TRACELEVEL   integer   active level from the first call of trace on
///   TRACESTDOUT  integer   1 switches the copy to standard output on; nothing else switches it off
///
/// Made with CCmnSmartPtr<CCmnTraceLog, CCmnDefaultAllocator<CCmnTraceLog>>, and destroyed by the
/// last such pointer. Takes no lock: one object belongs to one thread at a time. Several objects
/// and several processes may write to one file.
class TARNIX_CMN_API CCmnTraceLog : public virtual CCmnRefCount
{
public:
    /// @{
    /// Writes nothing until it is initialised. The active level is 12345 until then.
    CCmnTraceLog();
    CCmnTraceLog(const CCmnTraceLog&) = delete;
    CCmnTraceLog& operator=(const CCmnTraceLog&) = delete;
    /// @}

    /// Loads the settings, creates the configuration file if it is missing, and tests that the
    /// trace file can be opened. When both `dir` and `file` are given, they and the level replace
    /// what the configuration file holds, and TRACESTDOUT becomes 0; when one of them is empty, the
    /// configured or the default place is used, which lies below `dir` where the install directory
    /// cannot be read. Failures are told on standard output. May be called again in any state; an
    /// initialised log stays initialised.
    void initialize(const tstr& name, tstr dir, tstr file, int level, bool toStdout);

    /// The trace file could be opened at least once.
    bool isInitialized() const { return m_Initialized; }

    /// The active level as the last trace or UpdateTraceLevelFromConfigFile found it: lines of this
    /// level and below were written. Between initialize and the first of these: at most 1, or the
    /// sibling's level.
    void GetTraceLevels(int& level) const { level = m_Settings.level(); }

    /// Appends one line, the time and the text, and the same with the log's name in front to
    /// standard output if that is on. The line is in the file when this returns. The format follows
    /// printf; the text has no limit. A text that cannot be formatted in the current locale is
    /// replaced by its format. Lines that cannot be written are lost without a word.
    void trace(int level, const char* format, ...) __attribute__((format(printf, 3, 4)));

    /// The active level becomes the TRACELEVEL of the store in memory, 1 if there is none.
    void UpdateTraceLevelFromConfigFile();

    /// Puts the three settings, and TRACESTDOUT 0, into the configuration file. Returns 0, or the
    /// non-zero code of the export; the store in memory holds the settings all the same.
    int updateConfigFile(const tstr& dir, const tstr& file, const int& level);

    /// Reads the settings, and completes the configuration file with what it lacks. Whatever the
    /// arguments hold, `dir` and `file` become the configured or the default place, and `level` 0
    /// or 1 or the sibling product's level, if that is greater.
    void loadFromConfigFile(tstr& dir, tstr& file, int& level);

    /// updateConfigFile when both `dir` and `file` are given, then loadFromConfigFile.
    void initTraceSettings(tstr& dir, tstr& file, int& level);

protected:
    ~CCmnTraceLog() override;

private:
    /// The store in memory, and the active level, which trace takes from it. What is handed out to
    /// be changed is marked: as long as that did not happen, trace need not look the level up
    /// again.
    class Settings
    {
    public:
        /// To be asked for anew for each use, and never kept: a change through a kept reference
        /// would not be seen.
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
    void traceText(int level, const char* format, std::va_list args);

    Settings m_Settings;
    tstr m_Name;
    tstr m_TraceFile;
    tstr m_TraceDir;
    tstr m_TracePath;
    bool m_Initialized = false;
    bool m_ToStdout = false;
};

} // namespace tarnix_cmn_4_4

#endif
