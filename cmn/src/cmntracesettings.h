// What the sources of the trace log share: the names of its settings, and the paths of its files.
#ifndef TARNIX_CMNTRACESETTINGS_H
#define TARNIX_CMNTRACESETTINGS_H

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
