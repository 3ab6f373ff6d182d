#include "torvane.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

// A heap string of the library as a std::string; null shows as "(null)".
std::string taken(char *text) {
    const std::unique_ptr<char, decltype(&free)> owner(text, &free);
    return text == nullptr ? "(null)" : text;
}

} // namespace

TEST(Strings, ExactSizesOnlyAreFormatted) {
    const auto path = [](size_t size) {
        char *out = nullptr;
        const int result = dupnprintf(&out, size, "%s/%s", "/dev", "sda");
        return std::to_string(result) + taken(out);
    };
    EXPECT_EQ(path(sizeof "/dev/sda"), "0/dev/sda");
    for (const size_t wrong : {size_t{0}, sizeof "/dev/sda" - 1, sizeof "/dev/sda" + 1}) {
        EXPECT_EQ(path(wrong), "-1(null)") << wrong;
    }
    EXPECT_EQ(dupnprintf(nullptr, 3, "%s", "ab"), -1);
}

TEST(Strings, Copies) {
    EXPECT_EQ(taken(duplicate_str("sda")), "sda");
    EXPECT_EQ(duplicate_str(nullptr), nullptr);
    EXPECT_EQ(taken(duplicate_nstr("sda1", 3)), "sda");
    char *padded = duplicate_nstr("ab", 5);
    EXPECT_EQ(std::string(padded, 6), std::string("ab\0\0\0\0", 6));
    free(padded);
    EXPECT_EQ(duplicate_nstr(nullptr, 3), nullptr);
    EXPECT_EQ(duplicate_nstr("sda", SIZE_MAX), nullptr);
}

TEST(Strings, EveryTrimmingFormKeepsALoneBlank) {
    const std::vector<std::pair<std::string, std::string>> cases = {{"", ""},
                                                                    {"a", "a"},
                                                                    {"  a  ", "a"},
                                                                    {"a ", "a"},
                                                                    {" a", "a"},
                                                                    {" ", " "},
                                                                    {"\n", "\n"},
                                                                    {"   ", ""},
                                                                    {"  ", ""},
                                                                    {"a  b", "a  b"},
                                                                    {"\t\v\f\r\na b\r\n", "a b"},
                                                                    {"\xA0 x", "\xA0 x"}};
    for (const auto &[source, kept] : cases) {
        std::string buffer(source.size() + 1, '#');
        EXPECT_EQ(trim(source.c_str(), buffer.data()), 0);
        EXPECT_EQ(buffer.c_str(), kept) << source;
        EXPECT_EQ(taken(trim_new(source.c_str())), kept) << source;
        std::string in_place = source;
        EXPECT_EQ(trim_in_place(in_place.data()), 0);
        EXPECT_EQ(in_place.c_str(), kept) << source;
    }
    EXPECT_EQ(trim("a", nullptr), -1);
    EXPECT_EQ(trim_new(nullptr), nullptr);
}

TEST(Strings, TrailingDigitsAreCut) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"sda12", "sda"}, {"123", ""}, {"", ""}, {"sda", "sda"}, {"nvme0n1p1", "nvme0n1p"}, {"1a", "1a"}};
    for (const auto &[source, kept] : cases) {
        EXPECT_EQ(taken(truncate_numbers_new(source.c_str())), kept) << source;
        std::string in_place = source;
        EXPECT_EQ(truncate_numbers_in_place(in_place.data()), 0);
        EXPECT_EQ(in_place, kept + std::string(source.size() - kept.size(), '\0')) << source;
        // The terminator stands one past the text, the byte between is the caller's own.
        std::string buffer(kept.size() + 3, '#');
        EXPECT_EQ(truncate_numbers(source.c_str(), buffer.data()), 0);
        EXPECT_EQ(buffer, kept + '#' + '\0' + '#') << source;
    }
    EXPECT_EQ(truncate_numbers_new(nullptr), nullptr);
    EXPECT_EQ(truncate_numbers_in_place(nullptr), -1);
    EXPECT_EQ(truncate_numbers(nullptr, nullptr), -1);
}

TEST(Strings, LastTokensInABuffer) {
    std::array<char, 6> buffer{};
    const auto last = [&](const char *text, const char *delimiters) {
        const int length = get_last_token(text, delimiters, buffer.size(), buffer.data());
        return std::to_string(length) + buffer.data();
    };
    EXPECT_EQ(last("/dev/sda", "/"), "3sda");
    EXPECT_EQ(last("/dev/mapper-long", "/"), "5mappe");
    EXPECT_EQ(last("a b/c d", " "), "3c d") << "later tokens end at a slash only";
    buffer = {'o', 'l', 'd', '\0', 'x', 'x'};
    EXPECT_EQ(last("///", "/"), "3old") << "no token leaves the buffer as it was";
    EXPECT_EQ(buffer[5], '\0');
    EXPECT_EQ(get_last_token("a", "/", 0, buffer.data()), -1);
    EXPECT_EQ(get_last_token("a", "/", 6, nullptr), -1);
}

TEST(Strings, SizesWithUnits) {
    constexpr double kMega = 1024.0 * 1024.0;
    const std::vector<std::pair<const char *, double>> cases = {
        {"512", 512},
        {"1.5 KB", 1536},
        {"2m", 2 * kMega},
        {"3 GB", 3 * 1024 * kMega},
        {"1P", kMega * kMega},
        {"1 exa", kMega * kMega * 1024},
        {"7 TB", 7}, // T is not in the table
        {"9 Blocks", 9},
        {"KB", 0},
        {"", 0},
        {"-5 GB", 0},
        {"nan", 0},
        {"1e30 E", 0},
        {"16777217", 16777216}, // single precision
    };
    for (const auto &[text, bytes] : cases) EXPECT_EQ(get_bytes_from_str(text), static_cast<uint64_t>(bytes)) << text;
    EXPECT_EQ(get_bytes_from_str(nullptr), 0U);
    EXPECT_EQ(get_bytes_from_str(("1 K" + std::string(5000, 'K')).c_str()), 1024U);
}

TEST(Strings, OnlyLongSeagateSerialsAreShortened) {
    const auto shortened = [](std::string serial, const char *model) {
        truncate_seagate_serial(serial.data(), model);
        return std::string(serial.c_str());
    };
    const std::string full = "3KR1ABCD0000W1234567";
    EXPECT_EQ(shortened(full, "SEAGATE ST3146807LC"), "3KR1ABCD");
    EXPECT_EQ(shortened(full, "Seagate ST3146807LC"), full);
    EXPECT_EQ(shortened(full, "ATA SEAGATE"), full);
    EXPECT_EQ(shortened("3KR1ABCD000W12345678", "SEAGATE"), "3KR1ABCD000W12345678");
    EXPECT_EQ(shortened(full.substr(1), "SEAGATE"), full.substr(1));
    EXPECT_EQ(shortened(full, nullptr), full);
    truncate_seagate_serial(nullptr, "SEAGATE");
}

TEST(Strings, ListsGrowAndAreEmptyAfterRelease) {
    StringList list = {};
    std::string text = "one";
    EXPECT_EQ(add_to_string_list(&list, text.c_str()), 0);
    text[0] = '#';
    EXPECT_EQ(add_to_string_list(&list, "two"), 0);
    ASSERT_EQ(list.count, 2U);
    EXPECT_STREQ(list.strings[0], "one");
    EXPECT_STREQ(list.strings[1], "two");
    EXPECT_EQ(add_to_string_list(&list, nullptr), -1);
    EXPECT_EQ(add_to_string_list(nullptr, "x"), -1);
    EXPECT_EQ(list.count, 2U);
    release_string_list(&list);
    EXPECT_EQ(list.count, 0U);
    EXPECT_EQ(list.strings, nullptr);
    release_string_list(&list);
    release_string_list(nullptr);
}
