// torvane.hpp and the Python module, both over the shipped library on the fixture machine.
#include "raid_tools.h"
#include "torvane.hpp"
#include "usb.h"

#include <dlfcn.h>

#include <cstdlib>
#include <string>

using namespace torvane::world;

namespace {

void lay_out_disks(const World &world) {
    world.disk({.name = "sda", .serial = "S-0001", .partitions = {{.size = 1 << 20}, {.size = 2 << 20}}});
    world.disk({.name = "sdb", .minor = 16, .serial = "X-0002", .address = "1:0:0:0"});
}

using Wrappers = WorldTest;
using RaidWrappers = RaidTest;
using UsbWrappers = UsbTest;

TEST_F(Wrappers, DrivesAsARange) {
    lay_out_disks(world);
    auto drives = torvane::drives();
    ASSERT_TRUE(drives) << drives.error().text;
    std::string told;
    for (const DriveRecord &drive : *drives) {
        told += std::string(torvane::text(drive.name)) + "=" + std::string(torvane::text(drive.serial));
        for (const PartitionRecord &partition : torvane::partitions(drive))
            told += " " + std::to_string(partition.size);
        told += "\n";
        EXPECT_FALSE(torvane::failed(drive.geometry_result, TORVANE_GEOMETRY_START));
    }
    EXPECT_EQ(told, "/dev/sda=S-0001 1048576 2097152\n/dev/sdb=X-0002\n");

    resize_list(drives->list(), 1); // an empty slot
    EXPECT_EQ(drives->size(), 2U);
    const torvane::Drives moved = std::move(*drives);
    EXPECT_TRUE(drives->empty());
    EXPECT_EQ(moved.size(), 2U);
    EXPECT_EQ(torvane::drives_by_serial("X-")->size(), 1U);
    EXPECT_TRUE(torvane::drives_by_serial("none")->empty());

    const auto absent = torvane::drives(DRIVE_OPTION_GEOMETRY, {"/dev/gone"});
    EXPECT_TRUE(torvane::failed(absent->begin()->geometry_result, TORVANE_GEOMETRY_ROTATION)) << "nothing was read";
    const auto none = torvane::drives(DRIVE_OPTION_GEOMETRY);
    ASSERT_FALSE(none);
    EXPECT_EQ(none.error().category, torvane::Category::drive_list);
    EXPECT_EQ(none.error().text, "no drive names specified");
}

TEST_F(RaidWrappers, ControllersAsRanges) {
    megacli(kSmallLogical, kSmallPhysical);
    lspci("");
    const auto raids = torvane::raids();
    ASSERT_TRUE(raids) << raids.error().text;
    std::string told;
    for (const RaidController &controller : *raids)
        for (const RaidDriveGroup &group : torvane::groups(controller))
            for (const RaidDrive &drive : torvane::drives(group)) told += torvane::text(drive.serial);
    EXPECT_EQ(told, "LS0");
}

TEST_F(UsbWrappers, AMountEndsWithItsOwner) {
    plug_in({});
    const auto interfaces = torvane::usb_storage();
    ASSERT_TRUE(interfaces && interfaces->size() == 1);
    EXPECT_EQ(torvane::devices(*interfaces->begin()).size(), 1U);
    {
        const auto mounted = torvane::mount("USB");
        ASSERT_TRUE(mounted) << mounted.error().text;
        EXPECT_EQ(names_in(std::string(mounted->directory())), (std::vector<std::string>{"sdb", "sdb_mount"}));
    }
    EXPECT_EQ(world.leftovers(), std::vector<std::string>());
    EXPECT_EQ(torvane::mount("none").error().category, torvane::Category::mount);
}

#ifdef TORVANE_PYTHON_MODULE
// The interpreter in this very process: the device commands of the module's calls are answered by the fixture, too.
int run_python(const char *script) {
    setenv("PYTHONHOME", "/usr", 1);
    setenv("PYTHONPATH", TORVANE_PYTHON_MODULE, 1);
    setenv("PYTHONDONTWRITEBYTECODE", "1", 1);
    void *const python = dlopen(TORVANE_PYTHON_LIBRARY, RTLD_NOW | RTLD_GLOBAL);
    if (python == nullptr) {
        ADD_FAILURE() << dlerror();
        return -1;
    }
    reinterpret_cast<void (*)(int)>(dlsym(python, "Py_InitializeEx"))(0);
    const int result =
        reinterpret_cast<int (*)(const char *, void *)>(dlsym(python, "PyRun_SimpleStringFlags"))(script, nullptr);
    reinterpret_cast<int (*)()>(dlsym(python, "Py_FinalizeEx"))();
    return result;
}

TEST_F(RaidWrappers, PythonReadsWhatTheMachineHas) {
    lay_out_disks(world);
    megacli(kSmallLogical, kSmallPhysical);
    lspci("");
    const char *const script = R"(
import torvane

def equal(found, wanted):
    assert found == wanted, f"{found!r}, not {wanted!r}"

with torvane.drives() as drives:
    equal([(d.name, d.serial, d.block_count * d.block_size) for d in drives],
          [("/dev/sda", "S-0001", 1 << 30), ("/dev/sdb", "X-0002", 1 << 30)])
    equal([(p.name, p.number, p.size) for p in drives[0].partitions.entries],
          [("/dev/sda1", 1, 1 << 20), ("/dev/sda2", 2, 2 << 20)])
    equal(drives[0].drive_type, torvane.DriveType.DISK)
with torvane.drives_by_serial("X-") as drives:
    equal([d.name for d in drives], ["/dev/sdb"])
with torvane.raids() as controllers:
    equal([d.serial for c in controllers for g in c.groups for d in g.drives], ["LS0"])
with torvane.usb_storage() as interfaces:
    equal(interfaces, [])
with open("/dev/sda", "rb", buffering=0) as disk, torvane.String() as serial:
    equal(torvane.get_drive_serial_number(disk.fileno(), "/dev/sda", serial), 0)
    equal(str(serial), "S-0001")
try:
    with torvane.drives(torvane.DriveOptions.GEOMETRY):
        raise AssertionError("no error")
except torvane.Error as error:
    equal((error.category, error.text), (torvane.TORVANE_ERROR_DRIVE_LIST, "no drive names specified"))
equal(torvane.trim_new("  a\udcff  "), "a\udcff")
strings = torvane.StringList()
equal([torvane.add_to_string_list(strings, word) for word in ("a", "b")], [0, 0])
equal(strings.strings, ["a", "b"])
torvane.release_string_list(strings)
)";
    EXPECT_EQ(run_python(script), 0) << "the exception is above";
}
#endif

} // namespace
