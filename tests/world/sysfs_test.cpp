#include "places.h"
#include "world.h"

#include "torvane.h"

#include <nlohmann/json.hpp>

#include <array>

using namespace torvane::world;

namespace {

using Sysfs = WorldTest;

constexpr const char *kLine = "%[^\n]";

// Where the readers look for attributes; the newer one never has the last character of a partition's.
const auto kAttributes = nlohmann::json::parse(read_file(TORVANE_SOURCE_DIRECTORY "/tests/world/attributes.json"));

// Both readers, the newer one by newer rules.
std::string value_of(bool is_newer, const char *path, const char *attribute, int generic, int partition) {
    set_error_str(TORVANE_ERROR_SYSFS, "untouched");
    char buffer[168] = "";
    char *value = nullptr;
    const int result = is_newer ? _get_value_from_sys(path, attribute, kLine, generic, partition, &value)
                                : get_value_from_sys(path, attribute, kLine, generic, partition, buffer);
    EXPECT_EQ(result, -1);
    return text_of(TORVANE_ERROR_SYSFS);
}

TEST_F(Sysfs, AttributesAreSoughtInTheirDirectory) {
    for (const auto &call : kAttributes) {
        const std::string path = call["path"], attribute = call["attribute"], file = call["file"];
        EXPECT_EQ(value_of(call["newer"], path.c_str(), attribute.c_str(), call["generic"], call["partition"]),
                  "failed to open '" + file + "'");
    }
    const std::string endless = "/dev/" + std::string(5000, 'x');
    EXPECT_EQ(value_of(false, endless.c_str(), "model", 0, 0),
              "failed to open '/sys/block/" + std::string(138, 'x') + "'");
    for (const char *path : {"", "///", endless.c_str(), static_cast<const char *>(nullptr)}) {
        value_of(true, path, "model", 0, 0);
    }
    value_of(false, nullptr, "model", 0, 0);
    char value[168] = "";
    EXPECT_EQ(get_value_from_sys("/dev/sda", "model", nullptr, 0, 0, value), -1);
}

TEST_F(Sysfs, ValuesOfEveryShape) {
    const auto read = [&](const std::string &text) {
        world.file("/sys/value", text);
        char *value = nullptr;
        const int result = allocate_value_from_sys_file("/sys/value", kLine, &value);
        return std::to_string(result) + taken(value);
    };
    EXPECT_EQ(read("Example Disk   \nsecond\n"), "0Example Disk   ");
    EXPECT_EQ(read("cut"), "0cut");
    EXPECT_EQ(read(""), "-1-");
    EXPECT_EQ(read("\nsecond"), "-1-");
    EXPECT_EQ(read(std::string("a\0b", 3)), "0a");
    EXPECT_EQ(read("\xFF\xFE"), "0\xFF\xFE");
    EXPECT_EQ(read(std::string(167, 'x') + "\n"), "0" + std::string(167, 'x'));
    EXPECT_EQ(read(std::string(1 << 20, 'x')), "0" + std::string(167, 'x'));

    set_error_str(TORVANE_ERROR_SYSFS, "untouched");
    char *value = nullptr;
    EXPECT_EQ(allocate_value_from_sys_file("/sys", kLine, &value), -1);
    uint64_t number = 7;
    world.file("/sys/value", "none");
    EXPECT_EQ(read_value_from_sys_file("/sys/value", "%lu", &number), -1);
    EXPECT_EQ(number, 7U);
    EXPECT_EQ(text_of(TORVANE_ERROR_SYSFS), "untouched");
    world.file("/sys/value", "2048\n");
    EXPECT_EQ(read_value_from_sys_file("/sys/value", "%lu", &number), 0);
    EXPECT_EQ(number, 2048U);
    EXPECT_EQ(read_value_from_sys_file(nullptr, "%lu", &number), -1);
    EXPECT_EQ(value, nullptr);
}

TEST_F(Sysfs, DeviceNumbers) {
    const auto read = [&](const std::string &text) {
        world.file("/sys/class/block/sda/dev", text);
        std::array<int32_t, 2> numbers = {5, 5};
        const int result = read_device_id("/sys/class/block/sda/dev", &numbers[0], &numbers[1]);
        return std::to_string(result) + " " + std::to_string(numbers[0]) + ":" + std::to_string(numbers[1]);
    };
    EXPECT_EQ(read("8:16\n"), "0 8:16");
    EXPECT_EQ(has_same_device_id("sda", 8, 16), 1);
    EXPECT_EQ(has_same_device_id("sda", 8, 17), 0);
    EXPECT_EQ(has_same_device_id("sda", 9, 16), 0);
    for (const std::string garbage : {"garbage", "8", "8:", ":16", "8 16"}) {
        EXPECT_EQ(read(garbage + "\n"), "-1 -1:-1");
        EXPECT_EQ(text_of(TORVANE_ERROR_SYSFS), "failed to read device id from '" + garbage + "'");
    }
    EXPECT_EQ(read(""), "-1 -1:-1");
    EXPECT_EQ(text_of(TORVANE_ERROR_SYSFS), "failed to read contents of /sys/class/block/sda/dev");
    EXPECT_EQ(said(has_same_device_id("sdb", 8, 16), TORVANE_ERROR_SYSFS),
              "0 failed to read contents of /sys/class/block/sdb/dev");
    EXPECT_EQ(has_same_device_id(nullptr, 8, 16), 0);
    EXPECT_EQ(has_same_device_id("sdb", UINT32_MAX, UINT32_MAX), 0) << "the failure's -1 is no number";
}

} // namespace
