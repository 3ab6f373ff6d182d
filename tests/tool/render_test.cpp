#include "output/new_file.h"
#include "output/table.h"
#include "output/text.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>

// As a file system that cannot refuse to replace.
extern "C" int renameat2(int, const char *, int, const char *, unsigned flags) noexcept {
    errno = flags == RENAME_NOREPLACE ? EINVAL : ENOTSUP;
    return -1;
}

namespace {

using namespace tool;

using inventory::Cost;
constexpr Column kName{"name", "NAME", Kind::kDevice, "", "", 3, Cost::kKernel, ""};
constexpr Column kModel{"model", "MODEL", Kind::kText, "", "", 1, Cost::kKernel, ""};
constexpr Column kSize{"size", "SIZE", Kind::kBytes, "", "", 3, Cost::kKernel, ""};

Table one_disk(const std::string &model) {
    Row part{2, {{std::string("/dev/sda1"), {}}, {}, {std::uint64_t{1} << 20, {}}}, {}, false};
    Row disk{1,
             {{std::string("/dev/sda"), {}}, {model, {}}, {std::uint64_t{500107862016}, {}}},
             {{"partitions", {part}}},
             false};
    return {{&kName, &kModel, &kSize}, {"drives", {disk}}};
}

std::string print(const Table &table, Style style) {
    char *text = nullptr;
    std::size_t size = 0;
    std::FILE *memory = open_memstream(&text, &size);
    print_table(table, style, memory);
    std::fclose(memory);
    const std::unique_ptr<char, decltype(&std::free)> owned(text, &std::free);
    return {text, size};
}

Style style_of(Format format) { return {.format = format}; }

// A drive can say anything about itself: blanks, quotes, control characters, half a character.
const std::string kHostile = "A \"B\" $(reboot) `x`\n\x1b[31m\x7f\xff\xc3";

TEST(Render, SizesAreShortForPeopleAndExactForPrograms) {
    EXPECT_EQ(human_size(0), "0B");
    EXPECT_EQ(human_size(1023), "1023B");
    EXPECT_EQ(human_size(1024), "1K");
    EXPECT_EQ(human_size(1536), "1.5K");
    EXPECT_EQ(human_size(1048575), "1M");
    EXPECT_EQ(human_size(500107862016), "465.8G");
    EXPECT_EQ(human_size(UINT64_MAX), "16E");
    EXPECT_NE(print(one_disk("M"), style_of(Format::kTable)).find("465.8G"), std::string::npos);
    for (const Style &style :
         {style_of(Format::kRaw), style_of(Format::kPairs), style_of(Format::kJson), {.bytes = true}})
        EXPECT_NE(print(one_disk("M"), style).find("500107862016"), std::string::npos);
}

TEST(Render, HostileTextStaysOnItsLineAndInItsField) {
    const std::string raw = print(one_disk(kHostile), style_of(Format::kRaw));
    EXPECT_EQ(std::count(raw.begin(), raw.end(), '\n'), 3) << raw;
    const std::string disk = raw.substr(raw.find('\n') + 1, raw.find('\n', raw.find('\n') + 1) - raw.find('\n') - 1);
    EXPECT_EQ(std::count(disk.begin(), disk.end(), ' '), 2) << disk;
    const std::string pairs = print(one_disk(kHostile), style_of(Format::kPairs));
    EXPECT_EQ(std::count(pairs.begin(), pairs.end(), '\n'), 2) << pairs;
    EXPECT_EQ(std::count(pairs.begin(), pairs.end(), '"'), 12) << pairs;
    // What a shell would run or a terminal obey never comes out bare.
    for (const char dangerous : {'$', '`'}) EXPECT_EQ(pairs.find(dangerous), std::string::npos) << pairs;
    for (const Format format : {Format::kTable, Format::kRaw, Format::kPairs}) {
        const std::string text = print(one_disk(kHostile), style_of(format));
        for (const char control : {'\x1b', '\x7f', '\xff'}) EXPECT_EQ(text.find(control), std::string::npos) << text;
    }
}

// A backslash is for the library, everything else in these tables is not: the same table comes out.
TEST(Render, PlainTablesAreThoseOfTheLibrary) {
    for (const bool headings : {true, false}) {
        for (const bool is_last : {true, false}) {
            std::string printed[2];
            for (const char slash : {'/', '\\'}) {
                Table table = one_disk(std::string("A") + slash + "B");
                table.root.rows.push_back({1, {{std::string("/dev/sdb"), {}}, {}, {}}, {}, false});
                if (!is_last) {
                    std::swap(table.columns.front(), table.columns.back());
                    for (Row &row : table.root.rows) std::swap(row.cells.front(), row.cells.back());
                }
                std::string &text = printed[slash == '/' ? 0 : 1];
                text = print(table, {.headings = headings, .tree = false});
                std::replace(text.begin(), text.end(), '\\', '/');
            }
            EXPECT_EQ(printed[0], printed[1]);
        }
    }
}

TEST(Render, JsonIsValidWhateverTheDriveSays) {
    const Json document = Json::parse(print(one_disk(kHostile), style_of(Format::kJson)));
    const Json &disk = document.at("drives").at(0);
    EXPECT_EQ(disk.at("model"), "A \"B\" $(reboot) `x`\n\x1b[31m\x7f\xef\xbf\xbd\xef\xbf\xbd");
    EXPECT_EQ(disk.at("name"), "sda");
    EXPECT_TRUE(disk.at("size").is_number_unsigned());
    const Json &part = disk.at("partitions").at(0);
    EXPECT_EQ(part.at("name"), "sda1");
    EXPECT_FALSE(part.contains("model")); // a partition has none
    const Table empty{{&kName}, {"drives", {}}};
    EXPECT_EQ(Json::parse(print(empty, style_of(Format::kJson))).at("drives"), Json::array());
}

TEST(Text, OnlyCompleteUtf8WithoutControlsIsPrintable) {
    EXPECT_EQ(printable("Größe ✓ 😀"), "Größe ✓ 😀");
    EXPECT_EQ(printable("a\tb\r\n"), "a\\x09b\\x0d\\x0a");
    EXPECT_EQ(printable("\xc2\x9b"), "\\xc2\\x9b"); // the 8-bit escape introducer
    EXPECT_EQ(escaped_controls("\"\xc2\x9b\x7f\""), "\"\\u009b\\u007f\"");
    EXPECT_EQ(printable("\xc0\xaf"), "\\xc0\\xaf");          // overlong
    EXPECT_EQ(printable("\xed\xa0\x80"), "\\xed\\xa0\\x80"); // surrogate
    EXPECT_EQ(printable("\xf4\x90\x80\x80"), "\\xf4\\x90\\x80\\x80");
    EXPECT_EQ(printable("x\xe2\x82"), "x\\xe2\\x82");
}

TEST(NewFiles, ReplaceNothingUnasked) {
    const std::filesystem::path folder = testing::TempDir() + "torvane_new_file";
    std::filesystem::create_directory(folder);
    const auto keeps = [place = folder / "image"](const std::string &text, bool replace) {
        const bool kept = NewFile(place).keep(text.data(), text.size(), replace);
        std::string content;
        std::getline(std::ifstream(place), content);
        return content + (kept ? "" : " stays");
    };
    EXPECT_EQ(keeps("first", false), "first");
    EXPECT_EQ(keeps("second", false), "first stays");
    EXPECT_EQ(keeps("third", true), "third");
    const std::filesystem::directory_iterator files(folder);
    EXPECT_EQ(std::distance(begin(files), end(files)), 1);
    std::filesystem::remove_all(folder);
}

} // namespace
