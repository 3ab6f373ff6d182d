#include "torvane.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

namespace {

const std::string kAdapter = "Adapter 0 -- Virtual Drive Information:\n";
const std::string kDrive = "Virtual Drive: 0 (Target Id: 0)\nName                :DATA\nSize                : 10 GB\n";

std::string with_crlf(const std::string &text) {
    std::string result;
    for (const char c : text) result += c == '\n' ? std::string("\r\n") : std::string(1, c);
    return result;
}

// The megacli parsers on texts; prints what they leave.
class Lsi : public testing::Test {
  protected:
    int read_logical(const std::string &text) { return on_stream(text, parse_ldinfo_output, &list, &count); }
    int read_physical(const std::string &text) { return on_stream(text, parse_pdlist_output, list); }

    std::string printed() const {
        testing::internal::CaptureStdout();
        for (uint32_t i = 0; i < count; ++i) print_controller(&list[i]);
        fflush(stdout);
        return testing::internal::GetCapturedStdout();
    }

    void TearDown() override { destroy_raids(list, static_cast<int>(count)); }

    RaidController *list = nullptr;
    uint32_t count = 0;

  private:
    template <class Parser, class... Places>
    static int on_stream(const std::string &text, Parser parser, Places... places) {
        FILE *stream = fmemopen(const_cast<char *>(text.data()), text.size(), "r");
        const int result = parser(stream, places...);
        fclose(stream);
        return result;
    }
};

TEST_F(Lsi, AdaptersGroupsAndDrivesWithEitherLineEnd) {
    const auto output = [](const std::string &name) {
        std::ifstream file(TORVANE_TEST_OUTPUTS "/lsi/" + name);
        return std::string(std::istreambuf_iterator<char>(file), {});
    };
    for (const auto &copied : {+[](const std::string &text) { return text; }, &with_crlf}) {
        EXPECT_EQ(read_logical(copied(output("logical"))), 0);
        EXPECT_EQ(read_physical(copied(output("physical"))), 0);
        EXPECT_EQ(printed(), output("truth"));
        destroy_raids(list, static_cast<int>(count));
        list = nullptr;
        count = 0;
    }
}

TEST_F(Lsi, LogicalOutputThatCannotBeRight) {
    for (const std::string &text : {
             kDrive,
             "Name                :X\n" + kAdapter,
             kAdapter + "Size                : 1 GB\n",
             kAdapter + "CacheCade " + kDrive,
             "Adapter x -- Virtual Drive Information:\n" + kDrive,
             kAdapter + "Virtual Drive: 0 (Target Id: 0)\nSize                : -\n" + kAdapter,
         }) {
        const uint32_t before = count;
        EXPECT_EQ(read_logical(text), -1) << text;
        EXPECT_LE(count, before + 1) << "lines after the error count: " << text;
    }
    EXPECT_EQ(read_logical("no adapters here\n"), 0);
    EXPECT_EQ(parse_ldinfo_output(nullptr, &list, &count), -1);
}

TEST_F(Lsi, PhysicalOutputThatCannotBeRight) {
    ASSERT_EQ(read_logical(kAdapter + kDrive), 0);
    const std::string start = "Adapter #0\nEnclosure Device ID: 1\n";
    for (const std::string &text : {
             std::string("Adapter #\n"),
             std::string("Adapter #-1\n"),
             std::string("x: DiskGroup: 0, Span: 0, Arm: 0\n"),
             start + "x: DiskGroup: 1, Span: 0, Arm: 0\n",
             start + "x: DiskGroup: -1, Span: 0, Arm: 0\n",
             start + "Slot Number: none\n",
             std::string("Enclosure position: 0\n"),
             start + "Coerced Size: 1 GB [0x1 Sectors]\n",
             start + "Inquiry Data: A B C\n",
             start + "Enclosure position: 0\nInquiry Data: A B\n",
             start + "Enclosure position: 0\nCoerced Size: [0x1 Sectors]\n",
         }) {
        EXPECT_EQ(read_physical(text), -1) << text;
    }
    EXPECT_EQ(read_physical(start + "DiskGroup: 0\nFirmware state: Online\n"), 0);
    EXPECT_EQ(parse_pdlist_output(nullptr, list), -1);
    EXPECT_EQ(get_pdlist(nullptr), -1);
}

TEST_F(Lsi, NumberOfDrivesReplacesTheDrives) {
    ASSERT_EQ(read_logical(kAdapter + kDrive), 0);
    RaidDriveGroup &group = list[0].groups[0];
    EXPECT_EQ(set_group_drives("Number Of Drives    : 3", &group), 0);
    ASSERT_EQ(group.drive_count, 3U);
    group.drives[2].serial = duplicate_str("S");
    EXPECT_EQ(set_group_drives("Number Of Drives    : none", &group), -1);
    EXPECT_EQ(group.drive_count, 3U);
    EXPECT_EQ(set_group_drives("Number Of Drives    : 0", &group), 0);
    EXPECT_EQ(group.drive_count, 0U);
    EXPECT_EQ(group.drives, nullptr);
}

} // namespace
