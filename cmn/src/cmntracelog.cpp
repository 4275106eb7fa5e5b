// SPDX-License-Identifier: LicenseRef-Tarnix
// CCmnTraceLog: the settings, and the lines of the log.
#include "cmntracelog.h"

#include "TX_strings.h"
#include "cmnpathtool.h"
#include "cmnstringtool.h"
#include "cmntracesettings.h"
#include "cmntstr.h"
#include "cmnutf8.h"
#include "platform_file.h"

#include <ace/ACE.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>

namespace tarnix_cmn_4_4
{
namespace
{

constexpr std::size_t kFrameSize = sizeof "\n2000-01-01 00:00:00.000000 \n"; // around the text
constexpr std::size_t kTextSize = 1024;

// A copy of the arguments for a second pass. The destructor calls va_end even if an allocation
// throws.
struct ArgsCopy {
    explicit ArgsCopy(std::va_list from) { va_copy(args, from); }
    ~ArgsCopy() { va_end(args); }
    ArgsCopy(const ArgsCopy&) = delete;
    ArgsCopy& operator=(const ArgsCopy&) = delete;

    std::va_list args;
};

// One line of the log: time, blank, text and newline. It is contiguous, so that one write can
// append it. A text of usual length is formatted on the stack. There is a newline before the line
// too, for a file that ends within another line.
class TraceLine
{
public:
    TraceLine(const char* format, std::va_list args)
    {
        ArgsCopy again(args);
        const int length = std::vsnprintf(m_Stack + m_TextAt, kTextSize, format, args);
        if (length < 0) {
            // For example, a wide argument is not representable in the encoding of the locale. The
            // format itself is then the text, so that the line is not lost.
            const std::string_view text = format;
            text.copy(grow(text.size()), text.size());
        } else if (static_cast<std::size_t>(length) >= kTextSize) {
            const auto size = static_cast<std::size_t>(length);
            TX_vsnprintf(grow(size), size + 1, format, again.args);
        }
        // The text ends at its first NUL.
        m_End = m_TextAt + std::strlen(m_Line + m_TextAt);
        m_Line[m_End++] = '\n';
        m_Line[m_End] = '\0';
    }

    const char* text() const { return m_Line + kNewline; }

    TxAppended appendTo(const tstr& path, bool isAfterCut) const
    {
        const std::size_t start = isAfterCut ? 0 : kNewline;
        return TxAppendToFile(pathBytes(path).c_str(), m_Line + start, m_End - start);
    }

private:
    // Returns the place of the text.
    std::size_t startLine()
    {
        m_Stack[0] = '\n';
        char* const time = m_Stack + kNewline;
        ACE::timestamp(time, kFrameSize); // fails only if there is no room
        std::size_t end = std::strlen(m_Stack);
        m_Stack[end++] = ' ';
        return end;
    }

    // Makes room for a text of `length` bytes, and returns the start of the text. The bytes are
    // zeros.
    char* grow(std::size_t length)
    {
        m_Heap = std::make_unique<char[]>(m_TextAt + length + sizeof "\n");
        std::memcpy(m_Heap.get(), m_Stack, m_TextAt);
        m_Line = m_Heap.get();
        return m_Line + m_TextAt;
    }

    static constexpr std::size_t kNewline = 1;

    char m_Stack[kFrameSize + kTextSize];
    std::unique_ptr<char[]> m_Heap;
    char* m_Line = m_Stack;
    std::size_t m_TextAt = startLine();
    std::size_t m_End = m_TextAt;
};

// False also if there is no such file.
bool endsWithinLine(const tstr& path)
{
    const TxFile file = TxOpenFile(pathBytes(path).c_str());
    return file && std::fseek(file.get(), -1, SEEK_END) == 0 && std::fgetc(file.get()) != '\n';
}

// For standard output: in the encoding of the locale, or in UTF-8 if it is not representable there.
std::string printable(const tstr& text)
{
    std::string narrow = CCmnStringTool::tstr2str(text);
    if (narrow.empty()) {
        wideToUtf8(text.c_str(), narrow);
    }
    return narrow;
}

} // namespace

CCmnTraceLog::CCmnTraceLog() = default;
CCmnTraceLog::~CCmnTraceLog() = default;

void CCmnTraceLog::initialize(const tstr& name, tstr dir, tstr file, int level, bool toStdout)
{
    assign(m_Name, name);
    m_ToStdout = toStdout;
    try {
        initTraceSettings(dir, file, level);
    } catch (...) {
        std::printf("ERROR: CCmnTraceLog: Failed to initialize log settings\n");
    }
    m_IsSettingsVersionKnown = false;
    m_Settings.setLevel(level);
    tstr path;
    assign(path, dir, L"/", file);
    setPlace(dir, file, path);
    if (TxAppendToFile(pathBytes(m_TracePath).c_str(), nullptr, 0) == TxAppended::whole) {
        m_Initialized = true;
    } else {
        std::printf("[CCmnTraceLog] Error: Tracefile [%s] initialization failed.[%s][%s]\n",
                    printable(m_TracePath).c_str(), printable(m_TraceFile).c_str(),
                    printable(m_TraceDir).c_str());
    }
}

void CCmnTraceLog::setPlace(tstr& dir, tstr& file, tstr& path)
{
    m_TraceDir.swap(dir);
    m_TraceFile.swap(file);
    m_TracePath.swap(path);
    m_IsLineCut = false;
}

void CCmnTraceLog::initTraceSettings(tstr& dir, tstr& file, int& level)
{
    if (!dir.is_empty() && !file.is_empty()) {
        updateConfigFile(dir, file, level);
    }
    try {
        loadFromConfigFile(dir, file, level);
    } catch (const CCmnError&) {
        // What was loaded before the failure stays in effect.
    }
}

int CCmnTraceLog::updateConfigFile(const tstr& dir, const tstr& file, const int& level)
{
    tstr configDir;
    tstr configFile;
    CCmnPathTool::getConfigFileInfo(m_Name, configDir, configFile);
    m_Settings.store().importConfig(configDir.c_str(), configFile.c_str());
    if (createTraceSection(m_Settings.store())) {
        m_Settings.store().setStringValue(kTraceDir, dir);
        m_Settings.store().setStringValue(kTraceFile, file);
        m_Settings.store().setIntegerValue(kTraceLevel, static_cast<unsigned int>(level));
        m_Settings.store().setIntegerValue(kTraceStdout, 0);
    }
    return m_Settings.store().exportConfig();
}

void CCmnTraceLog::loadFromConfigFile(tstr& dir, tstr& file, int& level)
{
    tstr configDir;
    tstr configFile;
    CCmnPathTool::getConfigFileInfo(m_Name, configDir, configFile);
    CCmnPathTool::getTraceFileInfo(m_Name, dir, file);
    m_Settings.store().importConfig(configDir.c_str(), configFile.c_str());
    m_SettingsDir.swap(configDir);
    m_SettingsFile.swap(configFile);

    unsigned int configured = 0;
    ACE_Configuration_Section_Key section;
    if (m_Settings.store().openSection(kTraceSection, section, 0) == 0) {
        configured = readSettings(dir, file, level);
    } else {
        updateConfigFile(dir, file, level);
    }
    level = static_cast<int>(std::min(configured, 1U));

    tstr siblingDir;
    tstr siblingFile;
    int siblingLevel = level;
    CCmnSGDConfiguration::getTraceConfigFileInfo(siblingDir, siblingFile);
    CCmnSGDConfiguration::getTraceLevel(siblingDir, siblingFile, siblingLevel);
    level = std::max(level, siblingLevel);
}

unsigned int CCmnTraceLog::readSettings(tstr& dir, tstr& file, int level)
{
    readOrStore(kTraceDir, dir);
    readOrStore(kTraceFile, file);
    unsigned int configured = 0;
    if (m_Settings.store().getIntegerValue(kTraceLevel, configured) != 0) {
        m_Settings.store().setIntegerValue(kTraceLevel, static_cast<unsigned int>(level));
        m_Settings.store().exportConfig();
    }
    unsigned int toStdout = m_ToStdout;
    if (m_Settings.store().getIntegerValue(kTraceStdout, toStdout) != 0) {
        m_Settings.store().setIntegerValue(kTraceStdout, toStdout);
        m_Settings.store().exportConfig();
    }
    if (toStdout == 1) {
        m_ToStdout = true;
    }
    return configured;
}

void CCmnTraceLog::readOrStore(const wchar_t* key, tstr& value)
{
    if (m_Settings.store().getStringValue(key, value) != 0) {
        m_Settings.store().setStringValue(key, value);
        m_Settings.store().exportConfig();
    }
}

void CCmnTraceLog::Settings::takeLevelFromStore()
{
    unsigned int configured = 1; // if the store has none
    const bool isOpen = createTraceSection(m_Config);
    if (isOpen) {
        m_Config.getIntegerValue(kTraceLevel, configured);
    }
    m_TraceLevel = static_cast<int>(configured);
    // If not, perhaps only an allocation failed: the next call tries again.
    m_IsLevelOfStore = isOpen;
}

void CCmnTraceLog::UpdateTraceLevelFromConfigFile()
{
    m_Settings.takeLevelFromStore();
}

void CCmnTraceLog::trace(int level, const char* format, ...)
{
    // The fast path: the level of most lines is too high.
    if (m_Settings.isLevelOfStore() && level > m_Settings.level()) {
        return;
    }
    std::va_list args;
    va_start(args, format);
    traceLine(level, format, args);
    va_end(args);
}

void CCmnTraceLog::vtrace(int level, const char* format, std::va_list args)
{
    if (m_Settings.isLevelOfStore() && level > m_Settings.level()) {
        return;
    }
    traceLine(level, format, args);
}

// Not inlined: the fast path would save registers for it.
[[gnu::noinline]] void CCmnTraceLog::traceLine(int level, const char* format, std::va_list args)
{
    try {
        traceText(level, format, args);
    } catch (const std::bad_alloc&) {
        // The caller may be tracing a failure and must not get another one, so the line is dropped.
        countLostLine(ENOMEM);
    }
}

void CCmnTraceLog::traceText(int level, const char* format, std::va_list args)
{
    if (!m_Settings.isLevelOfStore()) {
        UpdateTraceLevelFromConfigFile();
    }
    if (format == nullptr || !*format || !m_Initialized || level > m_Settings.level()) {
        return;
    }
    // Converted first: when the line is in the file, nothing can fail any more.
    const std::string name = m_ToStdout ? printable(m_Name) : std::string();
    const TraceLine line(format, args);
    // A rotation may have replaced the file that ends within a line.
    const bool isAfterCut = m_IsLineCut && endsWithinLine(m_TracePath);
    const TxAppended result = line.appendTo(m_TracePath, isAfterCut);
    if (result != TxAppended::whole) {
        countLostLine(errno);
    }
    m_IsLineCut = result == TxAppended::cut || (m_IsLineCut && result == TxAppended::lost);
    if (m_ToStdout) {
        std::printf("%s:%s", name.c_str(), line.text());
    }
}

void CCmnTraceLog::countLostLine(int error)
{
    ++m_LostLines;
    m_LastWriteError = error;
}

} // namespace tarnix_cmn_4_4
