#include "torvane.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
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
    const std::string logical = "\n" + kAdapter + "Virtual Drive: 0 (Target Id: 0)\n" +
                                "Name                :two words\nSize                : 931.5 KB\n" +
                                "Number Of Drives    : 2\nVirtual Drive: 3 (Target Id: 7)\n" +
                                "Name                :\nSize                : 1 TB\n" +
                                "Adapter 4 -- Virtual Drive Information:\n" + kDrive;
    const std::string physical =
        "Adapter #0\nEnclosure Device ID: 252\nSlot Number: 5\n"
        "Drive's position: DiskGroup: 1, Span: 0, Arm: 1\nEnclosure position: 1\n"
        "Raw Size: 9 GB [0x9 Sectors]\nNon Coerced Size: 8 GB [0x8 Sectors]\nCoerced Size: 2 KB [0x4 Sectors]\n"
        "Inquiry Data: SEAGATE ST3600057SS     00086SL0AAAA  \n"
        "Enclosure Device ID: 252\nEnclosure position: 1\nCoerced Size: 3 KB [0x6 Sectors]\n"
        "Drive's position: DiskGroup: none\n"
        "Inquiry Data:      WD-W0001WDC WD10EZEX-00BN5A0                    01.01A01\n"
        "Adapter #1\nEnclosure Device ID: N/A\nSlot Number: 1\nDrive's position: DiskGroup: 0, Span: 0, Arm: 0\n"
        "Coerced Size: 4 KB [0x8 Sectors]\nInquiry Data: A B C\n"
        "Enclosure Device ID: 1\nSlot Number: 2\nDrive's position: DiskGroup: 0, Span: 0, Arm: 1\n"
        "Enclosure position: 1\nCoerced Size: 5 KB [0x8 Sectors]\nInquiry Data: A B D\n";
    const std::string expected =
        "Raid Controller 0 (type 2): drives(1), groups(2)\n"
        "  Drive Group two (device (null)): controller(0), logical(0), size(953856), drives(0)\n"
        "  End of Drive Group two\n"
        "  Drive Group  (device (null)): controller(0), logical(3), size(1), drives(1)\n"
        "    Drive (null) (number 5): serial(00086SL0AAAA), model(SEAGATE ST3600057SS), location((0, 5)), size(2048)\n"
        "  End of Drive Group \n"
        "  Drives without a group: drives(1)\n"
        "    Drive (null) (number 0): serial(01.01A01), model(WD-W0001WDC WD10EZEX-00BN5A0), location((0, 0)), "
        "size(3072)\n"
        "  End of drives without a group\n"
        "End of Raid Controller 0\n"
        "Raid Controller 4 (type 2): drives(0), groups(1)\n"
        "  Drive Group DATA (device (null)): controller(4), logical(0), size(10737418240), drives(2)\n"
        "    Drive (null) (number 1): serial(C), model(A B), location((null)), size(4096)\n"
        "    Drive (null) (number 2): serial(D), model(A B), location((4, 2)), size(5120)\n"
        "  End of Drive Group DATA\n"
        "  Drives without a group: drives(0)\n"
        "  End of drives without a group\n"
        "End of Raid Controller 4\n";
    EXPECT_EQ(read_logical(logical), 0);
    EXPECT_EQ(read_physical(physical), 0);
    EXPECT_EQ(printed(), expected);
    destroy_raids(list, static_cast<int>(count));
    list = nullptr;
    count = 0;
    EXPECT_EQ(read_logical(with_crlf(logical)), 0);
    EXPECT_EQ(read_physical(with_crlf(physical)), 0);
    EXPECT_EQ(printed(), expected);
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
