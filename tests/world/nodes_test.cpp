#include "usb.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <cerrno>

using namespace torvane::world;

namespace {

class Nodes : public UsbTest {
  protected:
    Nodes() {
        world.directory("/tmp/nodes");
        plug_in({.units = {{.partitions = {{.size = 1 << 20}, {.size = 1 << 20}}}}});
    }

    ScsiDeviceInfo *device() { return &media->devices.devices[0]; }

    static void rename_serial(char *&serial, const char *text) {
        free(serial);
        serial = duplicate_str(text);
    }

    Media media;
};

TEST_F(Nodes, CarryTheNumbersOfSysfsAndNoPermissions) {
    EXPECT_EQ(create_node_in("sdb", "/tmp/nodes"), 0);
    EXPECT_EQ(create_partition_node_in("sdb2", "sdb", "/tmp/nodes"), 0);
    world.file("/sys/block/nvme9n1/dev", "259:70000\n");
    EXPECT_EQ(create_node("nvme9n1", "/tmp/nodes/big"), 0);
    EXPECT_EQ(nodes, (std::vector<std::string>{"/tmp/nodes/sdb 8:16 60000", "/tmp/nodes/sdb2 8:18 60000",
                                               "/tmp/nodes/big 259:70000 60000"}));
    EXPECT_EQ(said(create_node_in("sdb", "/tmp/nodes")), "-1 failed to mknod /tmp/nodes/sdb (8:16)");
    EXPECT_EQ(create_node_in("sdx", "/tmp/nodes"), -1);
    EXPECT_EQ(text_of(TORVANE_ERROR_SYSFS), "failed to read contents of /sys/block/sdx/dev");
    EXPECT_EQ(said(create_node(nullptr, "/tmp/nodes/x")), "-1 failed to allocate device path");
    EXPECT_EQ(said(create_node_in("sdb", nullptr)), "-1 failed to read node or dir (NULL)");
    EXPECT_EQ(create_partition_node_in("sdb1", nullptr, "/tmp/nodes"), -1);
    EXPECT_EQ(error(), "failed to read partition, device, or location (NULL)");

    EXPECT_EQ(delete_node_in("sdb", "/tmp/nodes"), 0);
    EXPECT_EQ(delete_node_in("sdb", "/tmp/nodes"), 0) << "a node that is gone already";
    EXPECT_EQ(error(), "failed to remove '/tmp/nodes/sdb' (No such file or directory)");
    EXPECT_EQ(names_in("/tmp/nodes"), (std::vector<std::string>{"big", "sdb2"}));
}

TEST_F(Nodes, OfADeviceAndItsPartitionsComeAndGoTogether) {
    media = read();
    ASSERT_TRUE(media);
    nodes.clear();
    EXPECT_EQ(add_scsi_device_nodes_at(device(), "/dev"), 0);
    EXPECT_EQ(nodes, std::vector<std::string>()) << "they are there already";
    EXPECT_EQ(add_scsi_device_nodes_at(device(), "/tmp/nodes"), 0);
    EXPECT_EQ(names_in("/tmp/nodes"), (std::vector<std::string>{"sdb", "sdb1", "sdb2"}));
    EXPECT_EQ(add_scsi_device_nodes_at(device(), "/tmp/nodes"), -1) << "nodes are not made over others";

    EXPECT_EQ(delete_scsi_device_nodes_at(device(), "/tmp/nodes"), 0);
    EXPECT_EQ(device()->state, static_cast<uint32_t>(STATE_BOUND));
    EXPECT_EQ(names_in("/tmp/nodes"), std::vector<std::string>());
    EXPECT_EQ(add_scsi_device_nodes_at(device(), "/tmp/nodes/"), 0);
    EXPECT_EQ(device()->state, static_cast<uint32_t>(STATE_NODE));
    world.remove("/sys/block/sdb");
    EXPECT_EQ(delete_scsi_device_nodes_at(device(), "/tmp/nodes"), -1);
    EXPECT_EQ(error(), "failed to read partition names for device 'sdb'");
    EXPECT_EQ(device()->state, static_cast<uint32_t>(STATE_BOUND)) << "also when nothing could be removed";

    device()->state = STATE_UNBOUND;
    EXPECT_EQ(delete_scsi_device_nodes_at(device(), "/tmp/nodes"), 0);
    EXPECT_EQ(names_in("/tmp/nodes").size(), 3U);
    EXPECT_EQ(add_scsi_device_nodes_at(device(), "/tmp/nodes"), -1);
    EXPECT_EQ(error(), "failed to read device, location, status, or name (NULL)");
    EXPECT_EQ(said(delete_scsi_device_nodes_at(nullptr, "/tmp/nodes")), "-1 unable to read device or location (NULL)");
}

TEST_F(Nodes, AreMadeForMoreDevicesThanTheyAreDeletedFor) {
    media = read();
    ASSERT_TRUE(media);
    struct Case {
        const char *usb;
        const char *own;
        const char *wanted;
        int made; // result
        bool deleted;
    };
    const Case cases[] = {
        {"USB-1", "USB-1", "USB", 0, true}, {"USB-1", "OWN", "USB", 0, false},     {"USB-1", nullptr, "USB", 0, false},
        {"USB-1", "OWN", "OWN", 0, false},  {"USB-1", "OWN", "USB-12", -1, false}, {nullptr, "OWN", "OW", 0, false},
        {nullptr, nullptr, "", -1, false},
    };
    for (const Case &each : cases) {
        SCOPED_TRACE(std::string(each.usb == nullptr ? "-" : each.usb) + " " + (each.own == nullptr ? "-" : each.own) +
                     " " + each.wanted);
        rename_serial(media->serial, each.usb);
        rename_serial(device()->serial, each.own);
        device()->state = STATE_BOUND;
        world.remove("/tmp/nodes");
        world.directory("/tmp/nodes");
        EXPECT_EQ(add_device_nodes_at(media.get(), each.wanted, "/tmp/nodes"), each.made);
        EXPECT_EQ(names_in("/tmp/nodes").size(), each.made == 0 ? 3U : 0U);
        EXPECT_EQ(delete_device_nodes_at(media.get(), each.wanted, "/tmp/nodes"), 0);
        EXPECT_EQ(names_in("/tmp/nodes").size(), each.made == 0 && !each.deleted ? 3U : 0U);
    }
    EXPECT_EQ(error(), "no devices mounted");
    EXPECT_EQ(add_device_nodes_at(media.get(), nullptr, "/tmp/nodes"), -1);
    EXPECT_EQ(error(), "failed to read info, serial, or location (NULL)");
    EXPECT_EQ(delete_device_nodes_at(media.get(), nullptr, "/tmp/nodes"), -1);
    EXPECT_EQ(error(), "unable to read info, serial, or location (NULL)");
    plug_in({.port = 2, .units = {{.name = "sdc", .minor = 32}, {.name = "sdd", .minor = 48}}});
    const Media pair = read("1-2");
    EXPECT_EQ(add_device_nodes_at(pair.get(), "USB", "/tmp/nodes"), 0);
    EXPECT_EQ(names_in("/tmp/nodes"), (std::vector<std::string>{"sdc", "sdd"}));
    EXPECT_EQ(add_device_nodes_at(pair.get(), "USB", "/tmp/nodes"), -1);
    EXPECT_EQ(names_in("/tmp/nodes"), std::vector<std::string>()) << "a half-made set is undone";
    release_scsi_list(&media->devices);
    EXPECT_EQ(said(add_device_nodes_at(media.get(), "", "/tmp/nodes")), "-1 no devices to create");
}

} // namespace
