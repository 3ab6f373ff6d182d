#include "torvane.h"

#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <string>

TEST(Errors, UnknownCategoriesAreIgnored) {
    set_error_str(0, "none");
    set_error_str(10, "none");
    EXPECT_EQ(get_error_str(0), nullptr);
    EXPECT_EQ(get_error_str(10), nullptr);
    EXPECT_EQ(get_error_str(UINT32_MAX), nullptr);
}

TEST(Errors, LongMessagesAreCutAt253Characters) {
    const std::string text(300, 'x');
    set_error_str(TORVANE_ERROR_GEOMETRY, "%s", text.c_str());
    EXPECT_EQ(get_error_str(TORVANE_ERROR_GEOMETRY), text.substr(0, 253));
    EXPECT_STREQ(get_error_str(TORVANE_ERROR_IDENTITY), "No error") << "each category keeps its own";
    set_error_str(TORVANE_ERROR_GEOMETRY, "again: %s", get_error_str(TORVANE_ERROR_GEOMETRY));
    EXPECT_EQ(get_error_str(TORVANE_ERROR_GEOMETRY), "again: " + text.substr(0, 246));
}

TEST(Errors, HasErrorComparesTheBitsOfTheMagnitudes) {
    EXPECT_EQ(has_error(-1, -1), 1);
    EXPECT_EQ(has_error(2, -1), 0);
    EXPECT_EQ(has_error(-3, 2), 1);
    EXPECT_EQ(has_error(0, -1), 0);
    EXPECT_EQ(has_error(INT_MIN, INT_MIN), 1);
    EXPECT_EQ(has_error(INT_MIN, INT_MAX), 0);
}

TEST(Errors, FourCountersFoldIntoOneCode) {
    const auto fold = [](std::array<int32_t, 4> counters) { return get_error(counters.data()); };
    EXPECT_EQ(fold({1, 1, 5, 5}), 1);
    EXPECT_EQ(fold({0, 1, 1, 1}), 20608);
    EXPECT_EQ(fold({2, 0, 0, 0}), 2);
    EXPECT_EQ(fold({0, -1, 0, 0}), -128);
    EXPECT_EQ(fold({0, INT_MAX, INT_MAX, INT_MAX}), -128 - 4096 - 16384);
    EXPECT_EQ(get_error(nullptr), -1);
}
