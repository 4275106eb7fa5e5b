// SPDX-License-Identifier: LicenseRef-Tarnix
// What the sources of the trace log share: the names of its settings, and the paths of its files.
#ifndef TARNIX_CMNTRACESETTINGS_H
#define TARNIX_CMNTRACESETTINGS_H

#include "cmnconfiguration.h"
#include "cmnstringtool.h"
#include "cmntypes.h"
#include "cmnutf8.h"

#include <string>

namespace tarnix_cmn_4_4
{

constexpr const wchar_t* kTraceSection = L"DEBUG_TRACE_INFO";
constexpr const wchar_t* kTraceDir = L"TRACEDIR";
constexpr const wchar_t* kTraceFile = L"TRACEFILE";
constexpr const wchar_t* kTraceLevel = L"TRACELEVEL";
constexpr const wchar_t* kTraceStdout = L"TRACESTDOUT";

// Makes the section the current one of the store. False if that fails.
inline bool createTraceSection(CCmnConfiguration& store)
{
    ACE_Configuration_Section_Key section;
    return store.openSection(kTraceSection, section, true) == 0;
}

// In the encoding of the current locale. Most paths are ASCII.
inline std::string pathBytes(const tstr& path)
{
    std::string bytes;
    if (!asciiToBytes(path.c_str(), bytes)) {
        bytes = CCmnStringTool::tstr2str(path);
    }
    return bytes;
}

} // namespace tarnix_cmn_4_4

#endif
