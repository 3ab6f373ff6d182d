// VPD pages as drives may send them, right and wrong.
#include "inventory/kernel/pages.h"

#include "tree.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

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
    for (const auto &one : nlohmann::json::parse(tests::content_of(TORVANE_TEST_MACHINES "/../designators.json"))) {
        std::string digits = one.at("page");
        std::erase(digits, ' ');
        EXPECT_EQ(wwn_of_page(bytes(digits)), one.at("wwn")) << one.at("what");
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
