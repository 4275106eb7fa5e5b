// SPDX-License-Identifier: LicenseRef-Tarnix
// CCmnTraceLog: follows changes of the settings file, and reports its problems. Nothing here writes
// that file: whoever edits it may not be finished.
#include "cmnpathtool.h"
#include "cmntracelog.h"
#include "cmntracesettings.h"
#include "cmntstr.h"
#include "platform_file.h"

#include <cerrno>

namespace tarnix_cmn_4_4
{

SCmnTraceRefresh CCmnTraceLog::refresh()
{
    SCmnTraceRefresh result;
    if (m_SettingsFile.is_empty()) {
        result.failure = SCmnTraceRefresh::Failure::notInitialized;
        return result;
    }
    tstr path;
    assign(path, m_SettingsDir, m_SettingsFile);
    TxFileVersion version{};
    bool isSettled = false;
    if (!TxGetFileVersion(pathBytes(path).c_str(), version, isSettled)) {
        result.failure = SCmnTraceRefresh::Failure::noSettings;
        result.error = errno;
        return result;
    }
    if (m_Initialized && m_IsSettingsVersionKnown && version == m_SettingsVersion) {
        return {};
    }
    // Not into the store: an import that fails would leave a part of the file there.
    CCmnConfiguration file;
    const int code = file.importConfig(m_SettingsDir.c_str(), m_SettingsFile.c_str());
    noteReport(file.takeImportReport());
    if (code != 0) {
        result.failure = SCmnTraceRefresh::Failure::unreadableSettings;
        result.error = TxOpenFile(pathBytes(path).c_str()) ? 0 : errno;
        return result;
    }
    takeSettings(file, result);
    m_SettingsVersion = version;
    // After a failure the same file is read again: a missing directory may exist then.
    m_IsSettingsVersionKnown = isSettled && !result.failed();
    return result;
}

// A file that is read again and again is reported once.
void CCmnTraceLog::noteReport(std::string report)
{
    m_IsReportNew = !report.empty() && (m_IsReportNew || report != m_RefreshReport);
    m_RefreshReport.swap(report);
}

std::string CCmnTraceLog::takeSettingsReport()
{
    std::string report = m_Settings.store().takeImportReport();
    if (m_IsReportNew && report != m_RefreshReport) {
        report += (report.empty() ? "" : "; ") + m_RefreshReport;
    } else if (!report.empty()) {
        m_RefreshReport = report; // the next refresh may read the same file
    }
    m_IsReportNew = false;
    return report;
}

void CCmnTraceLog::takeSettings(CCmnConfiguration& file, SCmnTraceRefresh& result)
{
    tstr dir;
    tstr name;
    assign(dir, m_TraceDir);
    assign(name, m_TraceFile);
    file.getStringValue(kTraceSection, kTraceDir, dir);
    file.getStringValue(kTraceSection, kTraceFile, name);
    unsigned int level = 0;
    if (file.getIntegerValue(kTraceSection, kTraceLevel, level) == 0) {
        result.level = takeLevel(level);
    }
    unsigned int toStdout = 0; // if the file has none
    file.getIntegerValue(kTraceSection, kTraceStdout, toStdout);
    if (!m_ToStdout && toStdout == 1) {
        result.toStdout = m_ToStdout = true;
    }
    takePlace(dir, name, result);
}

bool CCmnTraceLog::takeLevel(unsigned int level)
{
    unsigned int known = 0;
    if (m_Settings.store().getIntegerValue(kTraceSection, kTraceLevel, known) == 0 &&
        known == level) {
        return false;
    }
    m_Settings.store().setIntegerValue(kTraceLevel, level);
    UpdateTraceLevelFromConfigFile();
    return true;
}

void CCmnTraceLog::takePlace(tstr& dir, tstr& file, SCmnTraceRefresh& result)
{
    const bool isNew = dir != m_TraceDir || file != m_TraceFile;
    if (!isNew && m_Initialized) {
        return;
    }
    tstr path;
    assign(path, dir, L"/", file);
    if (TxAppendToFile(pathBytes(path).c_str(), nullptr, 0) != TxAppended::whole) {
        result.failure = SCmnTraceRefresh::Failure::unusableFile;
        result.error = errno;
        return;
    }
    m_Initialized = true;
    if (isNew) {
        if (createTraceSection(m_Settings.store())) {
            m_Settings.store().setStringValue(kTraceDir, dir);
            m_Settings.store().setStringValue(kTraceFile, file);
        }
        setPlace(dir, file, path);
        result.place = true;
    }
}

} // namespace tarnix_cmn_4_4
