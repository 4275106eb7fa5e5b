// SPDX-License-Identifier: LicenseRef-Tarnix
// Settings files that ACE_Registry_ImpExp reads and writes.
#include "descriptors.h"
#include "importcheck.h"
#include "memoryfile.h"
#include "platform_file.h"
#include "platform_settings.h"
#include "retry.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string_view>

namespace tarnix_platform
{

namespace
{

constexpr std::size_t kMaxSize = std::size_t{64} * 1024 * 1024;
constexpr mode_t kDefaultMode = DEFFILEMODE; // that the process's umask restricts

constexpr const char* kNoFile = "file refused: not a regular file";
constexpr const char* kUnreadable = "file refused: cannot be read, or is larger than 64 MiB";
constexpr const char* kNotPrepared =
    "file refused: byte order mark, zero byte or section in other case, and no copy in memory";
constexpr const char* kNoMemory = "file refused: no memory for a copy";
constexpr const char* kNoNewline = "last line without a newline";

// Reads from the start; false on failure, and for a file that is too large.
bool readWhole(int fd, std::string& text)
{
    char piece[BUFSIZ];
    ::lseek(fd, 0, SEEK_SET);
    while (text.size() <= kMaxSize) {
        const ssize_t got = readSome(fd, piece, sizeof piece);
        if (got <= 0) {
            return got == 0;
        }
        text.append(piece, static_cast<std::size_t>(got));
    }
    return false;
}

void dropByteOrderMark(std::string& text)
{
    constexpr std::string_view mark = "\xEF\xBB\xBF";
    if (text.substr(0, mark.size()) == mark) {
        text.erase(0, mark.size());
    }
}

// Keeps SIGXFSZ from this thread. ACE does not ask for the limit of the file size: a write beyond
// it would end the process, and is an error with this.
class NoFileSizeSignal
{
public:
    NoFileSizeSignal()
    {
        sigset_t pending;
        ::sigemptyset(&m_Signal);
        ::sigaddset(&m_Signal, SIGXFSZ);
        ::sigpending(&pending);
        m_WasPending = ::sigismember(&pending, SIGXFSZ) == 1;
        ::pthread_sigmask(SIG_BLOCK, &m_Signal, &m_Former);
    }
    ~NoFileSizeSignal()
    {
        if (!m_WasPending) {
            const timespec none{};
            retryInterrupted([&] { return ::sigtimedwait(&m_Signal, nullptr, &none); });
        }
        ::pthread_sigmask(SIG_SETMASK, &m_Former, nullptr);
    }
    NoFileSizeSignal(const NoFileSizeSignal&) = delete;
    NoFileSizeSignal& operator=(const NoFileSizeSignal&) = delete;

private:
    sigset_t m_Signal;
    sigset_t m_Former;
    bool m_WasPending;
};

} // namespace

struct TxSettingsImport::State {
    State(const char* path, TxSectionNames& names) : m_Path(path), m_Names(names)
    {
        m_Names.forget();
        // Without O_NONBLOCK the open of a named pipe would wait for a writer.
        const UniqueFd file = openFile(path, O_RDONLY | O_NONBLOCK);
        const char* const reason = ::strerrordesc_np(errno); // null for a number it does not know
        m_IsAllowed = file ? prepare(file.get()) : refuse(reason != nullptr ? reason : kUnreadable);
    }

    ~State() { m_Names.forget(); }
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    bool prepare(int file)
    {
        struct stat info {
        };
        ::fstat(file, &info);
        if (!S_ISREG(info.st_mode)) {
            return refuse(kNoFile);
        }
        std::string text;
        if (!readWhole(file, text)) {
            return refuse(kUnreadable);
        }
        dropByteOrderMark(text);
        // A write beyond the limit would end the process. A missing quote can be on each line.
        const bool hasMemory = m_Memory && isWithinFileSizeLimit(2 * text.size());
        ImportCheck check(text, &m_Names, hasMemory, m_Report);
        if (!check.accepts()) {
            return false;
        }
        if (!hasMemory) {
            return isAsPrepared(file, text);
        }
        check.complete();
        m_Path = m_Memory.path();
        return writeAll(m_Memory.fd(), text.data(), text.size()) || refuse(kNoMemory);
    }

    // Whether ACE may read the file itself.
    bool isAsPrepared(int file, const std::string& text)
    {
        std::string original;
        readWhole(file, original);
        if (original != text) {
            return refuse(kNotPrepared);
        }
        if (!text.empty() && text.back() != '\n') {
            const auto newlines = std::count(text.begin(), text.end(), '\n');
            m_Report.add(static_cast<std::size_t>(newlines) + 1, kNoNewline);
        }
        return true;
    }

    bool refuse(const char* reason)
    {
        m_Report.add(0, reason);
        return false;
    }

    std::string m_Path; // that ACE imports
    TxSectionNames& m_Names;
    TxImportReport m_Report;
    MemoryFile m_Memory;
    bool m_IsAllowed;
};

TxSettingsImport::TxSettingsImport(const char* path, TxSectionNames& names)
    : m_State(std::make_unique<State>(path, names))
{
}

TxSettingsImport::~TxSettingsImport() = default;

TxSettingsImport::operator bool() const
{
    return m_State->m_IsAllowed;
}

const char* TxSettingsImport::path() const
{
    return m_State->m_Path.c_str();
}

TxImportReport& TxSettingsImport::report()
{
    return m_State->m_Report;
}

struct TxSettingsExport::State {
    explicit State(const char* path) : m_Target(path)
    {
        if (!m_Memory) {
            m_Replacement.emplace(path);
        }
    }

    // Where there is neither, the target itself.
    const char* path() const
    {
        if (m_Memory) {
            return m_Memory.path();
        }
        if (*m_Replacement) {
            return m_Replacement->path().c_str();
        }
        return m_Replacement->mustKeepOld() ? "" : m_Target.c_str();
    }

    bool commit()
    {
        if (!m_Memory && !*m_Replacement) {
            return true;
        }
        std::string text;
        TxImportReport ignored;
        if (!read(text) || !ImportCheck(text, nullptr, false, ignored).accepts()) {
            return false;
        }
        return replace(text) || (!m_Replacement->mustKeepOld() && writeInPlace(text));
    }

    bool read(std::string& text) const
    {
        const UniqueFd written = openFile(path(), O_RDONLY);
        return readWhole(written.get(), text);
    }

    bool replace(const std::string& text)
    {
        if (m_Memory) {
            m_Replacement.emplace(m_Target.c_str());
            if (!*m_Replacement || !m_Replacement->write(text.data(), text.size())) {
                return false;
            }
        }
        return m_Replacement->commit();
    }

    bool writeInPlace(const std::string& text) const
    {
        const UniqueFd file =
            openFile(m_Target.c_str(), O_WRONLY | O_CREAT | O_TRUNC, kDefaultMode);
        return file && writeAll(file.get(), text.data(), text.size());
    }

    const NoFileSizeSignal m_NoSignal;
    const std::string m_Target;
    MemoryFile m_Memory;
    std::optional<TxReplacement> m_Replacement;
};

TxSettingsExport::TxSettingsExport(const char* path) : m_State(std::make_unique<State>(path)) {}

TxSettingsExport::~TxSettingsExport() = default;

const char* TxSettingsExport::path() const
{
    return m_State->path();
}

bool TxSettingsExport::commit()
{
    return m_State->commit();
}

} // namespace tarnix_platform
