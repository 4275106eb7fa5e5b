// The bounded text functions: every combination of small sizes against a plain model, printing and
// number reading against the standard functions.
#include "TX_strings.h"

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <functional>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

// The sanitizers let memory run out, as the system does.
extern "C" [[gnu::visibility("default")]] const char* __asan_default_options() noexcept
{
    return "allocator_may_return_null=1";
}
extern "C" [[gnu::visibility("default"), gnu::alias("__asan_default_options")]] const char*
__tsan_default_options() noexcept;

namespace
{

// `result` is the length of what is written: padded it may be more than what is taken.
template <typename Unit, typename Call>
void check(Call call, const std::vector<std::size_t>& counts, bool appends, bool pads)
{
    using Text = std::basic_string<Unit>;
    for (std::size_t i = 0; i < counts.size() * 7 * 7 * 9; ++i) {
        const std::size_t used = i % 7, length = i / 7 % 7, size = i / 49 % 9;
        const std::size_t count = counts[i / 441], kept = appends ? used : 0;
        const std::size_t room = kept < size ? size - kept - 1 : 0;
        const std::size_t taken = std::min({length, room, count});
        const std::size_t result = pads ? std::min(count, room) : taken;
        Text target = Text(used, Unit('A')) + Unit() + Text(9 - used, Unit('#')), model = target;
        if (kept < size)
            model.replace(kept, result + 1, Text(taken, Unit('a')) + Text(result + 1 - taken, 0));
        // Without a terminator where no more may be read.
        const bool ends = length == 0 || length < std::min(room, count);
        std::vector<Unit> source(length + ends, Unit('a'));
        source.back() = ends ? Unit() : Unit('a');
        EXPECT_EQ(call(target.data(), source.data(), count, size), result);
        EXPECT_EQ(call(nullptr, source.data(), 1, 3) + call(target.data(), nullptr, 1, 3), 0u);
        EXPECT_EQ(target, model) << count << " of " << length << " to " << used << "/" << size;
    }
}

TEST(TxString, CopiesAndAppends)
{
    using namespace std::placeholders;
    const std::vector<std::size_t> counts = {SIZE_MAX, 0, 2, 5};
    check<char>(std::bind(TX_strcpy, _1, _2, _4), {SIZE_MAX}, false, false);
    check<char>(std::bind(TX_strcat, _1, _2, _4), {SIZE_MAX}, true, false);
    check<char>(TX_strncpy, counts, false, true);
    check<char>(TX_strncat, counts, true, false);
    check<wchar_t>(std::bind(TX_wcscpy, _1, _2, _4), {SIZE_MAX}, false, false);
    check<wchar_t>(std::bind(TX_wcscat, _1, _2, _4), {SIZE_MAX}, true, false);
    check<wchar_t>(TX_wcsncpy, counts, false, true);
    check<wchar_t>(TX_wcsncat, counts, true, false);
    for (const std::size_t limit : {0u, 3u, 4u, 9u}) {
        std::size_t narrow = 99, wide = 99;
        EXPECT_EQ(TX_strnlen("abc", limit, &narrow), limit > 3 ? 0 : -1);
        EXPECT_EQ(TX_wcsnlen(L"abc", limit, &wide), limit > 3 ? 0 : -1);
        EXPECT_TRUE(narrow == wide && narrow == (limit > 3 ? 3 : 0)) << narrow << wide;
    }
    EXPECT_EQ(TX_strnlen(nullptr, 5, nullptr), -1);
    wchar_t units[] = L"abcb";
    EXPECT_TRUE(TX_wmemchr(units, L'b', 4) == units + 1 && TX_wmemchr(units, L'b', 1) == nullptr);
    EXPECT_STREQ(TX_wmemset(units, L'\x1F600', 2), L"\x1F600\x1F600\x63\x62");
}

TEST(TxString, PrintsAsTheStandardAndCuts)
{
    for (std::size_t i = 0; i < 12 * 12; ++i) {
        const std::size_t size = 1 + i / 12;
        const int length = static_cast<int>(1 + i % 12), most = static_cast<int>(size);
        const std::string text = std::string("123456789012", i % 12) + "7";
        const std::string cut = text.substr(0, size - 1);
        const std::string expected = cut + '\0' + std::string(12 - cut.size(), '#');
        std::string target(13, '#');
        std::wstring wide(13, L'#');
        EXPECT_EQ(TX_snprintf(target.data(), size, "%.*s%d", length - 1, text.c_str(), 7),
                  static_cast<int>(cut.size()));
        EXPECT_EQ(TX_snwprintf(wide.data(), size, L"%.*s%d", length - 1, text.c_str(), 7),
                  length > most ? -1 : length);
        EXPECT_EQ(target, expected);
        EXPECT_EQ(wide, std::wstring(expected.begin(), expected.end()));
    }
    const wchar_t unprintable[] = {wchar_t(0x7fffffff), 0};
    char text[] = "####";
    wchar_t wide[] = L"####";
    EXPECT_TRUE(TX_snprintf(nullptr, 5, "x") == -1 && TX_snwprintf(nullptr, 5, L"x") == -1);
    EXPECT_TRUE(TX_snprintf(text, 0, "x") == -1 && text[0] == '#');
    EXPECT_TRUE(TX_snprintf(text, 5, "%ls", unprintable) == 4 && text[0] == '\0');
    EXPECT_TRUE(TX_snwprintf(wide, 0, L"x") == -1 && wide[0] == L'#');
    EXPECT_TRUE(TX_snwprintf(wide, SIZE_MAX, L"x") == -1 && wide[0] == L'\0'); // no such buffer
}

TEST(TxString, ReallocNeverLeavesABlockBehind)
{
    volatile std::size_t tooMuch = SIZE_MAX / 2 - 64; // out of the compiler's sight
    void* block = nullptr;
    for (const std::size_t none : {std::size_t{0}, std::size_t{tooMuch}}) {
        EXPECT_EQ(TX_realloc(&block, 4), block);
        TX_strcpy(static_cast<char*>(block), "abc", 4);
        EXPECT_STREQ(static_cast<char*>(TX_realloc(&block, 100000)), "abc");
        EXPECT_TRUE(TX_realloc(&block, none) == nullptr && block == nullptr);
    }
    EXPECT_EQ(TX_realloc(nullptr, 8), nullptr);
}

// What a reader makes of a text: value, characters used and errno.
const auto outcome = [](auto read, const std::string& text, int base) {
    char* end = nullptr;
    errno = 0;
    const std::string value = std::to_string(read(text.c_str(), &end, base));
    const std::string error = std::to_string(errno);
    return value + " " + std::to_string(end - text.data()) + " " + error;
};

TEST(TxString, ReadsNumbersAsTheStandardButForPrefixesAndBases)
{
    EXPECT_EQ(TX_strtoimax(nullptr, nullptr, 10), 0);
    for (const auto& [text, base, result] :
         {std::tuple("0xg", 0, "0 0 0"), std::tuple(" -0x", 16, "0 0 0"),
          std::tuple("0001", 1, "0 3 0"), std::tuple("12", -5, "0 0 0"),
          std::tuple("-z9", 300, "-10509 3 0"),
          std::tuple("zzzzzzz", 999999, "9223372036854775807 7 34")})
        EXPECT_EQ(outcome(TX_strtoimax, text, base), result) << text;

    const std::string signs[] = {"", "-", "+", " \t-", "--"}, digits = "0123456789abcfgzAFZ89 -";
    const std::string heads[] = {"",
                                 "0",
                                 "0x1",
                                 "0X",
                                 "922337203685477580",
                                 "1844674407370955161",
                                 "7ffffffffffffff",
                                 std::string(15, 'f')};
    std::mt19937 random(11);
    for (int i = 0; i < 60000; ++i) {
        const int base = random() % 3 == 0 ? 10 : static_cast<int>(random() % 37);
        std::string text = signs[random() % 5] + heads[random() % 8];
        for (std::size_t count = random() % 8; count > 0; --count)
            text += digits[random() % (i % 2 == 0 ? 10 : digits.size())];
        const std::size_t x = text.find_first_of("xX");
        if (base == 1 || (x < text.size() && text.find_first_of("0123456789abcfAF", x) != x + 1))
            continue; // read otherwise, see above
        ASSERT_EQ(outcome(TX_strtoimax, text, base), outcome(strtoimax, text, base)) << text;
        ASSERT_EQ(outcome(TX_strtoumax, text, base), outcome(strtoumax, text, base)) << text;
    }
}

} // namespace
