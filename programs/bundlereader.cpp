// SPDX-License-Identifier: LicenseRef-Tarnix
#include "bundlereader.h"

#include "catalogfiles.h"
#include "cmncommand.h"

#include <unicode/ures.h>

#include <sys/resource.h>

#include <chrono>
#include <cstdint>
#include <cstring>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string_view>

namespace fs = std::filesystem;
using tarnix_cmn_4_4::CCmnCommand;
using tarnix_cmn_4_4::SCmnCommandOutcome;

namespace catalogcheck
{
namespace
{

// Between the processes each entry is a record: its kind, its key with the terminator, the count of
// code units and these. The last record is an end or an error, whose key is the text to report.
enum class Kind : char { text = 't', other = 'o', error = 'e', end = '.' };

void write(Kind kind, const char* key, const char16_t* units = nullptr, std::int32_t count = 0)
{
    std::cout.put(static_cast<char>(kind))
        .write(key, static_cast<std::streamsize>(std::strlen(key)) + 1);
    std::cout.write(reinterpret_cast<const char*>(&count), sizeof count);
    std::cout.write(reinterpret_cast<const char*>(units),
                    static_cast<std::streamsize>(count) *
                        static_cast<std::streamsize>(sizeof *units));
}

// What the process has written. Nothing follows a record that is not whole.
class Records
{
public:
    explicit Records(std::string_view bytes) : m_Rest(bytes) {}

    bool next()
    {
        const std::size_t keyEnd = m_Rest.find('\0', 1);
        std::int32_t count = 0;
        if (keyEnd == std::string_view::npos || m_Rest.size() - keyEnd - 1 < sizeof count) {
            return false;
        }
        kind = static_cast<Kind>(m_Rest.front());
        key = m_Rest.substr(1, keyEnd - 1);
        m_Rest.remove_prefix(keyEnd + 1);
        std::memcpy(&count, m_Rest.data(), sizeof count);
        m_Rest.remove_prefix(sizeof count);
        const std::size_t bytes = static_cast<std::size_t>(count) * sizeof(char16_t);
        if (count < 0 || bytes > m_Rest.size()) {
            return false;
        }
        std::memcpy(text.getBuffer(count), m_Rest.data(), bytes);
        text.releaseBuffer(count);
        m_Rest.remove_prefix(bytes);
        return true;
    }

    Kind kind = Kind::error;
    std::string_view key;
    icu::UnicodeString text;

private:
    std::string_view m_Rest;
};

struct BundleClose {
    void operator()(UResourceBundle* bundle) const { ures_close(bundle); }
};
using Bundle = std::unique_ptr<UResourceBundle, BundleClose>;

// False at the end of the bundle, which is then written.
bool writeEntry(UResourceBundle* bundle)
{
    if (ures_hasNext(bundle) == 0) {
        write(Kind::end, "");
        return false;
    }
    UErrorCode status = U_ZERO_ERROR;
    const Bundle entry(ures_getNextResource(bundle, nullptr, &status));
    const char* key = U_SUCCESS(status) ? ures_getKey(entry.get()) : nullptr;
    if (key == nullptr) {
        write(Kind::error, U_FAILURE(status) ? u_errorName(status) : "an entry has no key");
        return false;
    }
    if (ures_getType(entry.get()) != URES_STRING) {
        write(Kind::other, key);
        return true;
    }
    std::int32_t length = 0;
    const char16_t* text = ures_getString(entry.get(), &length, &status);
    if (U_FAILURE(status)) {
        write(Kind::error, u_errorName(status));
        return false;
    }
    write(Kind::text, key, text, length);
    return true;
}

// Entries that begin with "%%" are for ICU: they are no messages.
bool isForIcu(std::string_view key)
{
    return key.substr(0, 2) == "%%";
}

void damaged(const std::string& file, const std::string& how, Findings& findings)
{
    findings.add(file, "", "is damaged: " + how + ": compile it again");
}

} // namespace

int readBundleProcess(const char* directory)
{
    const rlimit none{0, 0};
    ::setrlimit(RLIMIT_CORE, &none);
    UErrorCode status = U_ZERO_ERROR;
    const Bundle bundle(ures_openDirect(directory, kRoot, &status));
    if (U_FAILURE(status)) {
        write(Kind::error, u_errorName(status));
    } else {
        while (writeEntry(bundle.get())) {
        }
    }
    return std::cout.flush() ? 0 : 1;
}

bool readBundle(const fs::path& bundle, Language& language, Findings& findings)
{
    constexpr std::chrono::seconds timeLimit(20);
    constexpr std::uint64_t byteLimit = 1ULL << 30U;
    // As a root, which has no parents: before ICU returns it looks for them, and may do so for
    // ever.
    const TemporaryDirectory alone;
    fs::create_symlink(fs::absolute(bundle), alone.path() / (std::string(kRoot) + ".res"));
    const SCmnCommandOutcome outcome =
        CCmnCommand({"/proc/self/exe", kReadBundleOption, alone.path().string()})
            .setStreams(CCmnCommand::Streams::outputOnly)
            .setKeepBytes(true)
            .setTimeLimit(timeLimit)
            .setByteLimit(byteLimit)
            .run();
    if (outcome.end == SCmnCommandOutcome::End::notStarted) {
        throw std::runtime_error("cannot read bundles: " + outcome.errorText);
    }
    if (!outcome.ok()) {
        damaged(language.file, "reading it " + outcome.describe(), findings);
        return false;
    }
    Records records(outcome.bytes);
    while (records.next() && (records.kind == Kind::text || records.kind == Kind::other)) {
        const std::string key(records.key);
        if (isForIcu(key)) {
            language.parent = key == "%%Parent" ? records.text : language.parent;
        } else if (records.kind == Kind::text) {
            language.texts.emplace(key, records.text);
        } else {
            findings.add(language.file, key, "is not a string: write one text for each id");
        }
    }
    if (records.kind != Kind::end) {
        damaged(language.file, "ICU cannot read it, " + std::string(records.key), findings);
        return false;
    }
    return true;
}

} // namespace catalogcheck
