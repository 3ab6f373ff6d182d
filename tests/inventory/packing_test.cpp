#include "inventory/reading/packing.h"

#include <gtest/gtest.h>

namespace {

using namespace inventory;

Thing example() {
    Thing thing(ThingKind::kDrive, "sda");
    thing.tell("serial", std::string("S\xff\n1"), Source::kDrive, "vpd_pg80");
    thing.tell("size", std::uint64_t{UINT64_MAX}, Source::kKernel);
    thing.tell("size", std::uint64_t{7}, Source::kDrive);
    thing.tell("permission", std::int64_t{-1}, Source::kDrive);
    thing.tell("read_only", true, Source::kKernel);
    thing.tell("used_by", std::vector<std::string>{"/", ""}, Source::kMounts);
    thing.lacks("rpm", "the drive does not tell it");
    thing.troubles = {{"/dev/sda", "rotation speed", "failed", "wait", false}, {"/dev/sda", "", "hung", "", true}};
    return thing;
}

TEST(Packing, EverythingArrives) {
    const Thing before = example();
    Thing after(ThingKind::kDrive, "sda");
    ASSERT_TRUE(unpack(pack(before), after));
    ASSERT_EQ(after.facts().size(), before.facts().size());
    for (const auto &[index, fact] : before.facts()) {
        const Fact *const found = after.facts().find(index);
        ASSERT_NE(found, nullptr) << all_facts()[index].key;
        const Fact &arrived = *found;
        EXPECT_EQ(arrived.reason, fact.reason);
        ASSERT_EQ(arrived.words.size(), fact.words.size());
        for (std::size_t i = 0; i < fact.words.size(); ++i) {
            EXPECT_EQ(arrived.words[i].value, fact.words[i].value) << all_facts()[index].key;
            EXPECT_EQ(arrived.words[i].source, fact.words[i].source);
            EXPECT_EQ(arrived.words[i].detail, fact.words[i].detail);
        }
    }
    ASSERT_EQ(after.troubles.size(), 2U);
    EXPECT_EQ(after.troubles[0].words + after.troubles[0].remedy + after.troubles[0].what, "failedwaitrotation speed");
    EXPECT_FALSE(after.troubles[0].essential);
    EXPECT_TRUE(after.troubles[1].essential);
}

TEST(Packing, IsTakenWholeOrNotAtAll) {
    const std::string good = pack(example());
    for (std::size_t size = 0; size < good.size(); ++size) {
        Thing thing(ThingKind::kDrive, "sda");
        EXPECT_FALSE(unpack(good.substr(0, size), thing)) << size;
    }
    Thing longer(ThingKind::kDrive, "sda");
    EXPECT_FALSE(unpack(good + "x", longer));
}

} // namespace
