// The bounded text functions: every combination of small sizes against a plain model, printing and
// number reading against the standard functions.
#include "TX_strings.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <functional>
#include <random>
#include <string>
#include <vector>

// The sanitizers let memory run out, as the system does.
extern "C" [[gnu::visibility("default")]] const char* __asan_default_options()
{
    return "allocator_may_return_null=1";
}
extern "C" [[gnu::visibility("default")]] const char* __tsan_default_options()
{
    return "allocator_may_return_null=1";
}

namespace
{

template <typename Unit>
struct Function {
    std::function<std::size_t(Unit*, const Unit*, std::size_t count, std::size_t size)> call;
    bool appends;
    bool pads;
};

template <typename Unit>
void checkSizes(const Function<Unit>& function, std::size_t used, std::size_t length,
                std::size_t count, std::size_t size)
{
    SCOPED_TRACE(testing::Message() << count << " of " << length << " to " << used << "/" << size);
    const std::basic_string<Unit> source(length, Unit('a'));
    std::basic_string<Unit> target(10, Unit('#'));
    target.replace(0, used + 1, used, Unit('A')).insert(used, 1, Unit());
    const std::size_t kept = function.appends ? used : 0;
    const std::size_t room = kept < size ? size - kept - 1 : 0;
    const std::size_t taken = std::min({length, room, count});
    const std::size_t result = function.pads ? std::min(count, room) : taken;
    std::basic_string<Unit> expected = target;
    expected.replace(kept, result + 1, source.substr(0, taken));
    expected.insert(kept + taken, result + 1 - taken, Unit());
    EXPECT_EQ(function.call(target.data(), source.data(), count, size), result);
    EXPECT_EQ(target, expected);
}

template <typename Unit>
void checkFunctions(const std::vector<Function<Unit>>& functions)
{
    const std::size_t counts[] = {SIZE_MAX, 0, 2, 5};
    Unit target[] = {Unit('x'), Unit(), Unit()};
    const Unit source[] = {Unit('a'), Unit('b')}; // not terminated: no more may be read
    for (const Function<Unit>& function : functions) {
        const bool counted = &function >= &functions[2];
        for (std::size_t i = 0; i < 4 * 7 * 7 * 8; ++i) {
            const std::size_t count = counted ? counts[i % 4] : SIZE_MAX;
            checkSizes(function, i / 4 % 7, i / 28 % 7, count, 1 + i / 196);
        }
        EXPECT_EQ(function.call(nullptr, source, 1, 3), 0u);
        EXPECT_EQ(function.call(target, nullptr, 1, 3), 0u);
        EXPECT_EQ(function.call(target, source, 1, 0), 0u);
        EXPECT_EQ(target[0], Unit('x'));
        target[0] = Unit();
        EXPECT_EQ(function.call(target, source, 2, 3), 2u);
        target[0] = Unit('x');
        target[1] = Unit();
    }
}

TEST(TxString, CopiesAndAppends)
{
    const auto uncounted = [](auto call) {
        return [call](auto* to, auto* from, std::size_t, std::size_t size) {
            return call(to, from, size);
        };
    };
    checkFunctions<char>({{uncounted(TX_strcpy), false, false},
                          {uncounted(TX_strcat), true, false},
                          {TX_strncpy, false, true},
                          {TX_strncat, true, false}});
    checkFunctions<wchar_t>({{uncounted(TX_wcscpy), false, false},
                             {uncounted(TX_wcscat), true, false},
                             {TX_wcsncpy, false, true},
                             {TX_wcsncat, true, false}});
}

TEST(TxString, Measures)
{
    for (const std::size_t limit : {0u, 3u, 4u, 9u}) {
        std::size_t narrow = 99;
        std::size_t wide = 99;
        EXPECT_EQ(TX_strnlen("abc", limit, &narrow), limit > 3 ? 0 : -1);
        EXPECT_EQ(TX_wcsnlen(L"abc", limit, &wide), limit > 3 ? 0 : -1);
        EXPECT_EQ(narrow, limit > 3 ? 3u : 0u);
        EXPECT_EQ(wide, narrow);
    }
    EXPECT_EQ(TX_strnlen(nullptr, 5, nullptr), -1);
}

TEST(TxString, PrintsAsSnprintfAndCuts)
{
    std::mt19937 random(7);
    for (int i = 0; i < 20000; ++i) {
        const int number = static_cast<int>(random()) >> (random() % 32);
        const std::string word(random() % 12, 'w');
        char whole[128];
        std::snprintf(whole, sizeof whole, "%d|%s|%.3f", number, word.c_str(), number / 8.0);
        const std::size_t size = 1 + random() % 60;
        std::string target(61, '#');
        const int result =
            TX_snprintf(target.data(), size, "%d|%s|%.3f", number, word.c_str(), number / 8.0);
        const std::string text = std::string(whole).substr(0, size - 1);
        ASSERT_EQ(static_cast<std::size_t>(result), text.size()) << whole;
        ASSERT_EQ(target.c_str(), text) << whole;
        ASSERT_EQ(target.substr(size), std::string(61 - size, '#')) << whole;
    }
}

TEST(TxString, PrintingThatFailsLeavesATerminatedTarget)
{
    char target[6] = "#####";
    EXPECT_EQ(TX_snprintf(nullptr, 6, "x"), -1);
    EXPECT_EQ(TX_snprintf(target, 0, "x"), -1);
    EXPECT_STREQ(target, "#####");
    const wchar_t unprintable[] = {wchar_t(0x7fffffff), 0};
    EXPECT_EQ(TX_snprintf(target, sizeof target, "%ls", unprintable), 5);
    EXPECT_STREQ(target, "");

    wchar_t units[] = L"####";
    EXPECT_EQ(TX_snwprintf(nullptr, 4, L"x"), -1);
    EXPECT_EQ(TX_snwprintf(units, 0, L"x"), -1);
    EXPECT_STREQ(units, L"####");
    for (const std::wstring text : {L"", L"abc", L"abcd", L"abcde"}) {
        const int length = static_cast<int>(text.size());
        EXPECT_EQ(TX_snwprintf(units, 4, L"%ls", text.c_str()), length > 4 ? -1 : length);
        EXPECT_EQ(units, text.substr(0, 3));
    }
    EXPECT_EQ(TX_snwprintf(units, SIZE_MAX, L"x"), -1); // no such work buffer
    EXPECT_STREQ(units, L"");
}

TEST(TxString, ReallocNeverLeavesABlockBehind)
{
    EXPECT_EQ(TX_realloc(nullptr, 8), nullptr);
    void* block = nullptr;
    EXPECT_EQ(TX_realloc(&block, 4), block);
    TX_strcpy(static_cast<char*>(block), "abc", 4);
    TX_realloc(&block, 100000);
    EXPECT_STREQ(static_cast<char*>(block), "abc");
    EXPECT_EQ(TX_realloc(&block, 0), nullptr);
    EXPECT_EQ(block, nullptr);
    TX_realloc(&block, 4);
    volatile std::size_t tooMuch = SIZE_MAX / 2 - 64; // out of the compiler's sight
    EXPECT_EQ(TX_realloc(&block, tooMuch), nullptr);
    EXPECT_EQ(block, nullptr);
}

TEST(TxString, WideMemory)
{
    wchar_t units[] = L"abcb";
    EXPECT_EQ(TX_wmemchr(units, L'b', 4), units + 1);
    EXPECT_EQ(TX_wmemchr(units, L'b', 1), nullptr);
    EXPECT_EQ(TX_wmemset(units, L'\x1F600', 2), units);
    EXPECT_EQ(std::wstring(units), std::wstring(2, L'\x1F600') + L"cb");
}

// What a reader makes of a text: value, characters used and errno.
template <typename Read>
std::string outcome(Read read, const std::string& text, int base)
{
    char* end = nullptr;
    errno = 0;
    const auto value = read(text.c_str(), &end, base);
    const int error = errno;
    return std::to_string(value) + " " + std::to_string(end - text.data()) + " " +
           std::to_string(error);
}

TEST(TxString, NumbersThatTheStandardReadsOtherwise)
{
    const struct {
        const char* text;
        int base;
        const char* asSigned;
        const char* asUnsigned;
    } cases[] = {
        {"0xg", 0, "0 0 0", "0 0 0"},
        {" -0x", 16, "0 0 0", "0 0 0"},
        {"0001", 1, "0 3 0", "0 3 0"},
        {"12", -5, "0 0 0", "0 0 0"},
        {"-z9", 300, "-10509 3 0", "18446744073709541107 3 0"},
        {"zzzzzzz", 1000000, "9223372036854775807 7 34", "18446744073709551615 7 34"},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(outcome(TX_strtoimax, row.text, row.base), row.asSigned) << row.text;
        EXPECT_EQ(outcome(TX_strtoumax, row.text, row.base), row.asUnsigned) << row.text;
    }
    EXPECT_EQ(TX_strtoimax(nullptr, nullptr, 10), 0);
}

TEST(TxString, NumbersAsTheStandardReadsThem)
{
    const std::string signs[] = {"", "-", "+", " \t-", "--", " + "};
    const std::string heads[] = {"",
                                 "0",
                                 "0x1",
                                 "0X",
                                 "922337203685477580",
                                 "1844674407370955161",
                                 "7fffffffffffffff",
                                 "8000000000000000",
                                 "ffffffffffffffff"};
    const std::string alphabet = "0123456789abcdefgzAFZ8901 -";
    std::mt19937 random(11);
    for (int i = 0; i < 60000; ++i) {
        std::string text = signs[random() % std::size(signs)];
        text += heads[random() % std::size(heads)];
        for (std::size_t count = random() % 8; count > 0; --count) {
            text += alphabet[random() % (i % 2 == 0 ? 10 : alphabet.size())];
        }
        const int base = random() % 3 == 0 ? 10 : static_cast<int>(random() % 37);
        const std::size_t x = text.find_first_of("xX");
        const bool barePrefix = x != std::string::npos && std::isxdigit(text[x + 1]) == 0;
        if (base == 1 || barePrefix) {
            continue; // read otherwise, see above
        }
        ASSERT_EQ(outcome(TX_strtoimax, text, base), outcome(strtoimax, text, base)) << text;
        ASSERT_EQ(outcome(TX_strtoumax, text, base), outcome(strtoumax, text, base)) << text;
    }
}

} // namespace
