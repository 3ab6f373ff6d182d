// VPD pages as drives may send them, right and wrong.
#include "inventory/kernel/pages.h"

#include <gtest/gtest.h>

namespace inventory {
namespace {

std::string bytes(std::string_view digits) {
    std::string made;
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
        made += static_cast<char>(std::stoi(std::string(digits.substr(i, 2)), nullptr, 16));
    }
    return made;
}

TEST(Pages, NameTheUnitByItsBestDesignator) {
    struct Case {
        const char *what;
        const char *page;
        const char *wwn;
    };
    constexpr Case kCases[] = {
        {"NAA 5", "0083000c 01030008 5000c500a1b2c3d4", "0x5000c500a1b2c3d4"},
        {"NAA 6 before NAA 5", "00830020 01030008 5000c500a1b2c3d4 01030010 600508b1001c0000aabbccddeeff0011",
         "0x600508b1001c0000aabbccddeeff0011"},
        {"a port's name is not the unit's", "0083000c 01130008 5000c500a1b2c3d4", ""},
        {"EUI-64", "0083000c 01020008 0025385b71b00001", "eui.0025385b71b00001"},
        {"UUID", "00830016 010a0012 1000 00112233445566778899aabbccddeeff",
         "uuid.00112233-4455-6677-8899-aabbccddeeff"},
        {"a name longer than the page", "0083000c 010300ff 5000c500a1b2c3d4", ""},
        {"a page longer than what came", "0083ffff 01030008 5000c500a1b2c3d4", "0x5000c500a1b2c3d4"},
        {"an empty name", "00830004 01030000", ""},
        {"a NAA of a wrong size", "00830007 01030003 500000", ""},
        {"another page", "0080000c 01030008 5000c500a1b2c3d4", ""},
        {"nothing", "", ""},
        {"half a header", "0083", ""},
    };
    for (const Case &one : kCases) {
        std::string digits = one.page;
        std::erase(digits, ' ');
        EXPECT_EQ(wwn_of_page(bytes(digits)), one.wwn) << one.what;
    }
}

TEST(Pages, TellRotationOnlyWhereItIsTold) {
    EXPECT_EQ(rotation_of_page(bytes("00b1003c1c20")), 7200);
    EXPECT_EQ(rotation_of_page(bytes("00b1003c0001")), 0);
    for (const char *silent :
         {"00b1003c0000", "00b1003c0400", "00b1003cffff", "00b100001c20", "00b1003c1c", "", "00b0003c1c20"}) {
        EXPECT_EQ(rotation_of_page(bytes(silent)), std::nullopt) << silent;
    }
}

TEST(Pages, HoldAnAtaIdentityOrNone) {
    std::string page = bytes("00890238") + std::string(568, '\0');
    EXPECT_FALSE(ata_identity_of_page(page)) << "zeros";
    page.replace(60 + 20, 4, "1S2 "); // word 10: "S1 2"
    page[60 + 87 * 2 + 1] = '\x41';
    page.replace(60 + 108 * 2, 8, bytes("005000c5b2a1d4c3"));
    const auto identity = ata_identity_of_page(page);
    ASSERT_TRUE(identity);
    EXPECT_EQ(identity->serial.substr(0, 4), "S1 2");
    EXPECT_EQ(identity->wwn, "0x5000c500a1b2c3d4");
    EXPECT_EQ(identity->rotation, std::nullopt);
    EXPECT_FALSE(ata_identity_of_page(page.substr(0, 571))) << "cut short";
    EXPECT_EQ(serial_of_page(bytes("0080ffff4142")), "AB") << "a page longer than what came";
}

} // namespace
} // namespace inventory
