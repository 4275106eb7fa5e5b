// SPDX-License-Identifier: LicenseRef-Tarnix
// The bounded text functions: all combinations of small sizes against a simple model, and where
// they differ from the standard functions. The fuzzers compare the two where they agree.
#include "TX_strings.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

// Makes the sanitizers return null when an allocation fails, as the system does.
extern "C" [[gnu::visibility("default")]] const char* __asan_default_options() noexcept
{
    return "allocator_may_return_null=1";
}
extern "C" [[gnu::visibility("default"), gnu::alias("__asan_default_options")]] const char*
__tsan_default_options() noexcept;

namespace
{

// `result` is the number of characters written: with padding it can exceed the number copied.
template <typename Text, typename Call>
void check(Call call, const std::vector<std::size_t>& counts, bool appends, bool pads)
{
    for (std::size_t i = 0; i < counts.size() * 7 * 7 * 9; ++i) {
        const std::size_t used = i % 7, length = i / 7 % 7, size = i / 49 % 9;
        const std::size_t count = counts[i / 441], kept = appends ? used : 0;
        const std::size_t room = kept < size ? size - kept - 1 : 0;
        const std::size_t taken = std::min({length, room, count});
        const std::size_t result = pads ? std::min(count, room) : taken;
        Text target = Text(used, 'A') + Text(1, '\0') + Text(9 - used, '#'), model = target;
        if (kept < size)
            model.replace(kept, result + 1, Text(taken, 'a') + Text(result + 1 - taken, '\0'));
        // No terminator where the function must not read one.
        const bool ends = length == 0 || length < std::min(room, count);
        std::vector<typename Text::value_type> source(length + ends);
        std::fill_n(source.begin(), length, 'a');
        EXPECT_EQ(call(target.data(), source.data(), count, size), result);
        EXPECT_EQ(call(nullptr, source.data(), 1, 3), 0u);
        EXPECT_EQ(call(target.data(), nullptr, 1, 3), 0u);
        EXPECT_EQ(target, model) << count << " of " << length << " to " << used << "/" << size;
    }
}

TEST(TxString, CopiesAndAppends)
{
    using namespace std::placeholders;
    const std::vector<std::size_t> counts = {SIZE_MAX, 0, 2, 5};
    check<std::string>(std::bind(TX_strcpy, _1, _2, _4), {SIZE_MAX}, false, false);
    check<std::string>(std::bind(TX_strcat, _1, _2, _4), {SIZE_MAX}, true, false);
    check<std::string>(TX_strncpy, counts, false, true);
    check<std::string>(TX_strncat, counts, true, false);
    check<std::wstring>(std::bind(TX_wcscpy, _1, _2, _4), {SIZE_MAX}, false, false);
    check<std::wstring>(std::bind(TX_wcscat, _1, _2, _4), {SIZE_MAX}, true, false);
    check<std::wstring>(TX_wcsncpy, counts, false, true);
    check<std::wstring>(TX_wcsncat, counts, true, false);
}

TEST(TxString, MeasuresAndFills)
{
    std::size_t length = 99;
    EXPECT_EQ(TX_strnlen(nullptr, 5, nullptr), -1);
    EXPECT_EQ(TX_strnlen("abc", 3, &length), -1);
    EXPECT_EQ(length, 0u);
    EXPECT_EQ(TX_wcsnlen(L"abc", 4, &length), 0);
    EXPECT_EQ(length, 3u);
    wchar_t wide[] = L"abcb";
    EXPECT_EQ(TX_wmemchr(wide, L'b', 4), wide + 1);
    EXPECT_EQ(TX_wmemchr(wide, L'b', 1), nullptr);
    EXPECT_STREQ(TX_wmemset(wide, L'\x1F600', 2), L"\x1F600\x1F600\x63\x62");
}

TEST(TxString, PrintsWithinTheTarget)
{
    const char* const noFormat = nullptr;
    char text[] = "######";
    EXPECT_EQ(TX_snprintf(nullptr, 5, "x"), -1);
    EXPECT_EQ(TX_snprintf(text, 0, "x"), -1);
    EXPECT_STREQ(text, "######");
    EXPECT_EQ(TX_snprintf(text, 4, "%d%s", 56, "78"), 3);
    EXPECT_EQ(std::string(text, 6), std::string("567\0##", 6));
    EXPECT_EQ(TX_snprintf(text, 5, "a%ls", L"\x7FFFFFFF"), 4); // the formatter fails
    EXPECT_EQ(std::string(text, 6), std::string("a\0\0\0\0#", 6));
    EXPECT_EQ(TX_snprintf(text, 5, "%d%s", 12, "3"), 3);
    EXPECT_EQ(TX_snprintf(text, 5, noFormat), -1);
    EXPECT_STREQ(text, "");

    wchar_t wide[5] = L"%c";
    EXPECT_EQ(TX_snwprintf(nullptr, 5, L"x"), -1);
    EXPECT_EQ(TX_snwprintf(wide, 0, L""), -1);
    EXPECT_STREQ(wide, L"%c");
    EXPECT_EQ(TX_snwprintf(wide, 5, wide, L'7'), 1);
    EXPECT_EQ(TX_snwprintf(wide, 5, L"%ls%ls", wide, wide), 2);
    EXPECT_STREQ(wide, L"77");
    EXPECT_EQ(TX_snwprintf(wide, 1, L"xy"), -1);
    EXPECT_EQ(TX_snwprintf(wide, 1, L"x"), 1);
    EXPECT_STREQ(wide, L"");
    for (const std::size_t impossible : {SIZE_MAX, SIZE_MAX / 8}) {
        TX_wcscpy(wide, L"##", 3);
        EXPECT_EQ(TX_snwprintf(wide, impossible, L"x"), -1);
        EXPECT_STREQ(wide, L"");
    }
    EXPECT_EQ(TX_snwprintf(TX_wmemset(wide, L'#', 2), 5, nullptr), -1);
    EXPECT_STREQ(wide, L"");
}

TEST(TxString, ReallocatesAndFrees)
{
    void* block = nullptr; // a failure frees it
    for (const std::size_t none : {std::size_t{0}, SIZE_MAX / 2 - 64}) {
        TX_strcpy(static_cast<char*>(TX_realloc(&block, 4)), "abc", 4);
        EXPECT_STREQ(static_cast<char*>(TX_realloc(&block, 100000)), "abc");
        EXPECT_EQ(TX_realloc(&block, none), nullptr);
        EXPECT_EQ(block, nullptr);
    }
    EXPECT_EQ(TX_realloc(nullptr, 8), nullptr);
}

TEST(TxString, ReadsSomeNumbersUnlikeTheStandard)
{
    const struct {
        const char* text;
        int base;
        std::intmax_t value;
        long used;
    } cases[] = {{"0xg", 0, 0, 0}, {" -0x", 16, 0, 0},       {"0001", 1, 0, 3},
                 {"12", -5, 0, 0}, {"-z9{", 300, -10509, 3}, {"zzzzzzz:", 999999, INTMAX_MAX, 7}};
    for (const auto& c : cases) {
        char* end = nullptr;
        EXPECT_EQ(TX_strtoimax(c.text, &end, c.base), c.value) << c.text;
        EXPECT_EQ(end - c.text, c.used) << c.text;
    }
    EXPECT_EQ(TX_strtoimax(nullptr, nullptr, 10), 0);
    EXPECT_EQ(TX_strtoimax("7", nullptr, 10), 7);
}

} // namespace
