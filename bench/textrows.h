// SPDX-License-Identifier: LicenseRef-Tarnix
// The rows of the text benchmarks, and the texts that they work on.
#ifndef TARNIX_TEXTROWS_H
#define TARNIX_TEXTROWS_H

#include "support/testlocale.h"

#include <benchmark/benchmark.h>
#include <unicode/utf8.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

inline constexpr const char* kUtf8Locale = "C.UTF-8";

using Sizes = std::vector<std::int64_t>;

inline const Sizes kNone = {};
inline const Sizes kShortAndLong = {20, 64 * 1024};
inline const Sizes kGrowth = {10, 100, 1000, 10000, 100000};

// One row: the calls of the library and of its peers. Each is a function of the same input, and its
// result must equal that of the base peer.
template <class MakeInput, class Base>
class Row
{
public:
    Row(std::string name, const Sizes& sizes, MakeInput makeInput, const char* peer, Base base,
        const char* locale = "C")
        : m_Name(std::move(name)),
          m_Sizes(sizes),
          m_MakeInput(makeInput),
          m_Base(base),
          m_Locale(locale)
    {
        add(peer, base);
    }

    template <class Call>
    Row& add(const char* peer, Call call)
    {
        const auto run = [makeInput = m_MakeInput, base = m_Base, locale = m_Locale,
                          sized = !m_Sizes.empty(), call](benchmark::State& state) {
            const TestLocale scope(locale); // the rows of all locales run in one process
            const std::int64_t size = sized ? state.range(0) : 1;
            const auto input = makeInput(static_cast<std::size_t>(size));
            if (!scope.isKnown() || !(call(input) == base(input))) {
                state.SkipWithError("the results differ");
            }
            for (auto _ : state) {
                benchmark::DoNotOptimize(call(input));
            }
            state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * size);
        };
        auto* const benchmark = benchmark::RegisterBenchmark((m_Name + ":" + peer).c_str(), run);
        for (const std::int64_t size : m_Sizes) {
            benchmark->Arg(size);
        }
        return *this;
    }

private:
    std::string m_Name;
    Sizes m_Sizes;
    MakeInput m_MakeInput;
    Base m_Base;
    const char* m_Locale;
};

// The same text whatever the size.
inline auto always(const char* text)
{
    return [text](std::size_t) { return std::string(text); };
}

// The sample repeated up to `size` bytes, without cutting a character.
inline std::string repeated(std::string_view sample, std::size_t size)
{
    std::string text;
    while (text.size() < size) {
        text += sample;
    }
    while (U8_IS_TRAIL(text[size])) {
        --size;
    }
    text.resize(size);
    return text;
}

inline std::string asciiText(std::size_t size)
{
    return repeated("The command make all failed with status 2. ", size);
}

inline std::string mixedText(std::size_t size)
{
    return repeated("Gr\u00F6\u00DFe \u041F\u0440\u0438\u0432\u0435\u0442, status 2, "
                    "\u65E5\u672C\u8A9E \U0001F600: the command failed. ",
                    size);
}

#endif
