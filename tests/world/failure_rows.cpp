#include "failure_rows.h"

#include <fcntl.h>
#include <scsi/sg.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <cstring>

namespace torvane::world {
namespace {

const char *const kSda[] = {"/dev/sda"};
const char *const kSdb[] = {"/dev/sdb"};
constexpr DriveOptions kAll = DRIVE_OPTION_SYSTEM | DRIVE_OPTION_GEOMETRY | DRIVE_OPTION_IDENTITY |
                              DRIVE_OPTION_DEFECTS | DRIVE_OPTION_STATE | DRIVE_OPTION_OPTICAL;
constexpr const char *kLeftOut = "what cannot be read is left out";
constexpr const char *kNotThere = "a list of the kernel's that cannot be opened is not there";
constexpr const char *kTool = "a maker's tool that fails costs its controllers";

int made(const void *thing) { return thing == nullptr ? -1 : 0; }

template <const char *path> void stream_of(Places &p) { p.streams[0] = fopen(path, "r"); }
constexpr char kDisk[] = "/dev/sda";
constexpr char kIdeDisk[] = "/dev/hda";
constexpr char kPartitions[] = "/proc/partitions";
constexpr char kCdrom[] = "/proc/sys/dev/cdrom/info";
constexpr char kLogical[] = "/run/outputs/logical";
constexpr char kPhysical[] = "/run/outputs/physical";

void sizes(Places &p) { p.geometry.partition_sizes = p.partition_sizes; }
void ide_disk(Places &p) {
    stream_of<kIdeDisk>(p);
    get_device_stat(-1, std::strcpy(p.specification.device_name, kIdeDisk), &p.specification);
}
void named_drive(Places &p) { p.new_drive = init_drive("/dev/sda"); }
void whole_drive(Places &p) {
    named_drive(p);
    p.new_drive->model = strdup("ATA Innodisk 3ME");
    p.new_drive->serial = strdup("S");
    add_partition("sda1", 1, &p.new_drive->partitions, &p.new_drive->partitions.entries);
}
void listed_stick(Places &p) { create_drive(&p.list, "/dev/sdb", 0); }
void controllers(Places &p) { get_ldinfo(&p.raids, &p.raid_count); }
void drives_of_controllers(Places &p) { get_raids(&p.raids, &p.raid_count); }
void media(Places &p) {
    p.media = get_usb_mass_storage_device("USB");
    if (p.media != nullptr) update_device_information(p.media);
}
void addressed_media(Places &p) {
    media(p);
    ScsiDeviceInfo &device = p.media->devices.devices[0];
    for (char **text : {&device.name, &device.model, &device.serial}) {
        std::free(*text);
        *text = nullptr;
    }
}
void monitor(Places &p) { p.monitor = monitor_directory("/tmp/tree"); }
void event(Places &p) {
    monitor(p);
    p.descriptor = eventfd(0, EFD_CLOEXEC); // nothing cancels
    close(open("/tmp/tree/event", O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
}
void node(Places &) { create_node_in("sdb", "/tmp/nodes"); }
void nodes(Places &p) {
    media(p);
    p.media->devices.devices[0].state = STATE_BOUND;
    add_scsi_device_nodes_at(p.media->devices.devices, "/tmp/nodes");
}
void mounted(Places &p) { create_and_mount_in_temp_dir("USB", &p.text); }
ScsiDeviceInfo *device(Places &p) { return p.media->devices.devices; }
template <uint32_t state> void media_in(Places &p) {
    media(p);
    device(p)->state = state;
}
RaidDrive member() {
    static RaidDriveGroup group = {};
    const auto text = [](const char *words) { return const_cast<char *>(words); };
    group.device = text("/dev/sdx");
    return {0, text("/dev/sg9"), text("S"), text("M"), text("(0, 1)"), 4096, &group, nullptr};
}

const Row kRows[] = {
    // Strings, files, commands
    {"dupnprintf", [](Places &p) { return dupnprintf(&p.text, 9, "%s/%s", "/dev", "sda"); }},
    {"duplicate_str", [](Places &p) { return made(p.text = duplicate_str("sda")); }},
    {"duplicate_nstr", [](Places &p) { return made(p.text = duplicate_nstr("sda1", 3)); }},
    {"trim_new", [](Places &p) { return made(p.text = trim_new(" sda ")); }},
    {"truncate_numbers_new", [](Places &p) { return made(p.text = truncate_numbers_new("sda1")); }},
    {"allocate_last_token", [](Places &p) { return allocate_last_token("/dev/sda", "/", &p.text); }},
    {"get_last_token", [](Places &p) { return get_last_token("/dev/sda", "/", p.buffer.size(), p.buffer.data()); }},
    {"get_line", [](Places &p) { return get_line(&p.text, p.streams[0]); }, 1, -1, nullptr, stream_of<kPartitions>},
    {"add_to_string_list release_string_list", [](Places &p) { return add_to_string_list(&p.strings, "one"); }},
    {"validate_fd", [](Places &p) { return (p.descriptor = validate_fd(-1, "/dev/sda")) > 0 ? 0 : -1; }},
    // What cannot be wrapped in a stream stays open, by contract.
    {"close_valid_fd", [](Places &p) { return close_valid_fd(-1, p.descriptor); }, 1, -1, nullptr,
     [](Places &p) { p.descriptor = validate_fd(-1, "/dev/sda"); }},
    {"write_to_file", [](Places &) { return write_to_file("/sys/bind", "1"); }},
    {"file_exists", [](Places &) { return file_exists("/dev/sda"); }, 1, 0},
    {"device_exists", [](Places &) { return device_exists("sda"); }, 1, 0},
    {"execute",
     [](Places &p) {
         p.child = execute("exit 0", &p.streams[0], &p.streams[1], &p.streams[2]);
         return p.child > 0 ? 0 : -1;
     },
     1, -1, "a stream that cannot be made is no stream"},

    // Sysfs and names
    {"read_value_from_sys_file", [](Places &p) { return read_value_from_sys_file("/sys/block/sda/size", "%lu", &p.number); }},
    {"allocate_value_from_sys_file", [](Places &p) { return allocate_value_from_sys_file("/sys/block/sda/size", "%s", &p.text); }},
    {"get_value_from_sys", [](Places &p) { return get_value_from_sys("/dev/sda", "model", "%[^\n]", 0, 0, p.buffer.data()); }},
    {"_get_value_from_sys", [](Places &p) { return _get_value_from_sys("/dev/sda1", "model", "%[^\n]", 0, 0, &p.text); }},
    {"read_device_id", [](Places &p) { return read_device_id("/sys/block/sda/dev", &p.numbers[0], &p.numbers[1]); }},
    {"has_same_device_id", [](Places &) { return has_same_device_id("sda", 8, 0); }, 1, 0},
    {"get_name_from_device_id", [](Places &p) { return made(p.text = get_name_from_device_id(8, 0)); }},
    {"get_scsi_generic_name", [](Places &p) { return get_scsi_generic_name("/dev/sda", 60, p.buffer.data()); }, 1, 0},
    {"allocate_scsi_generic_name", [](Places &p) { return allocate_scsi_generic_name("/dev/sda", &p.text); }},
    {"get_name_from_generic", [](Places &p) { return get_name_from_generic("/dev/sg7", 60, p.buffer.data()); }, 1, 0},
    {"get_name_from_fd", [](Places &p) { return get_name_from_fd(STDOUT_FILENO, p.buffer.data(), 60) > 0 ? 0 : -1; }},
    {"get_file_system_id", [](Places &p) { return get_file_system_id("sdb1", &p.text); }, 1, 0, "the device manager's library knows less without memory",
     nullptr, true},
    {"check_bad_filesystem", [](Places &) { return check_bad_filesystem("sdb1", nullptr, 1); }, 1, 0},
    {"get_partition_names release_partition_names", [](Places &p) { return get_partition_names(&p.names, &p.name_count, "sda"); }},
    {"is_partition", [](Places &) { return is_partition("sda1"); }, 1, 0},
    {"get_device_name_from_partition", [](Places &p) { return get_device_name_from_partition(p.buffer.data()); }, 1, -1, nullptr, [](Places &p) { std::strcpy(p.buffer.data(), "sda1"); }},
    {"get_device_name_from_partition_new", [](Places &p) { return made(p.text = get_device_name_from_partition_new("sda1")); }},

    // Identity
    {"send_scsi_cmd setup_scsi_cmd",
     [](Places &p) {
         ScsiCommand command = {};
         setup_scsi_cmd(&command, 0x12, 1, 0x80, 0, 96, 0, 6, SG_DXFER_FROM_DEV, 96, p.buffer.data());
         return send_scsi_cmd(static_cast<int>(p.number), &command);
     },
     1, 1, nullptr, [](Places &p) { p.number = static_cast<uint64_t>(fileno(p.streams[0] = fopen("/dev/sda", "r"))); }},
    {"get_device_specification", [](Places &p) { return get_device_specification(-1, "/dev/sda", &p.specification); }, 1 | 2 | 4 | 16},
    {"get_device_stat", [](Places &p) { return get_device_stat(-1, "/dev/sda", &p.specification); }, 16, -1, "a failed stat is recorded, not returned"},
    {"get_generic_name", [](Places &p) { return get_generic_name(0, "/dev/sda", &p.specification); }, 1 | 8, 0},
    {"get_device_serial_number get_device_model",
     [](Places &p) {
         const int fd = fileno(p.streams[0]);
         return get_device_serial_number(fd, &p.specification) + get_device_model(fd, &p.specification);
     },
     2 | 4, -1, nullptr, ide_disk},
    {"verify_device_name", [](Places &p) { return verify_device_name("/dev/sda", &p.specification); }, 1, -1, nullptr, [](Places &p) { p.specification.major = 8; }},
    {"get_device_name_from_generic", [](Places &p) { return get_device_name_from_generic("/dev/sg7", p.buffer.data()); }},
    {"get_sg_name", [](Places &p) { return get_sg_name("/dev/sda", &p.text); }, 1, -1, "a SCSI disk without a generic name is one"},
    {"get_drive_specification", [](Places &p) { return get_drive_specification("/dev/sda", &p.drive); }, 1 | 4 | 16, 1},
    {"get_drive_serial_number", [](Places &p) { return get_drive_serial_number(-1, "/dev/sdb", &p.text); }, 2},
    {"get_drive_model", [](Places &p) { return get_drive_model(-1, DEVICE_KIND_SCSI, "/dev/sda", &p.text); }, 4},
    {"get_drive_serial", [](Places &p) { return get_drive_serial(fileno(p.streams[0]), "/dev/sda", nullptr, &p.text); }, 1, -1, nullptr, stream_of<kDisk>},

    // Geometry, defects, state
    {"get_block_size get_number_of_blocks get_device_start get_device_rotation",
     [](Places &p) {
         return get_block_size(static_cast<int>(p.number), &p.geometry.block_size) +
                get_number_of_blocks(static_cast<int>(p.number), 0, &p.geometry.block_count) +
                get_device_start(static_cast<int>(p.number), "/dev/sda", &p.geometry.device_start) +
                get_device_rotation(static_cast<int>(p.number), "/dev/sda", &p.geometry.rotation_speed);
     },
     1 | 2 | 4 | 8, -1, nullptr, [](Places &p) { p.number = static_cast<uint64_t>(fileno(p.streams[0] = fopen("/dev/sda", "r"))); }},
    {"get_partitions", [](Places &p) { return get_partitions("/dev/sda", &p.partitions); }, 16},
    {"get_partition", [](Places &p) { return get_partition("sda", &p.partitions); }},
    {"parse_partition", [](Places &p) { return parse_partition(p.streams[0], "sda", &p.partitions); }, 1, -1, nullptr, stream_of<kPartitions>},
    {"add_partition", [](Places &p) { return add_partition("sda1", 1, &p.partitions, &p.partitions.entries); }},
    {"get_partition_information", [](Places &p) { return get_partition_information("/dev/sda", &p.geometry); }, 16, -1, nullptr, sizes},
    {"get_drive_geometry", [](Places &p) { return get_drive_geometry("/dev/sda", &p.drive); }, 1 | 2 | 4 | 8 | 16, 1},
    {"get_device_geometry", [](Places &p) { return get_device_geometry(-1, "/dev/sda", &p.geometry); }, 1 | 2 | 4 | 8 | 16 | 32 | 64, -1, nullptr, sizes},
    {"get_drive_defects", [](Places &p) { return get_drive_defects("/dev/sda", &p.drive); }, 1 | 2, 1},
    {"get_device_defects", [](Places &p) { return get_device_defects(-1, "/dev/sda", &p.defects); }, 1 | 2},
    {"get_drive_state", [](Places &p) { return get_drive_state("/dev/sdi", p.new_drive); }, 1, 1, nullptr, whole_drive},
    {"get_device_state", [](Places &p) { return get_device_state(-1, "/dev/sdi", &p.state); }},
    {"get_device_state_full", [](Places &p) { return get_device_state_full(-1, "/dev/sdi", &p.state); }, 1 | 2},
    {"get_device_state_full", [](Places &p) { return get_device_state_full(-1, "/dev/sdm", &p.state); }, 1 | 2},

    // Records and discovery
    {"init_drive release_drive", [](Places &p) { return made(p.new_drive = init_drive("/dev/sda")); }},
    {"create_drive", [](Places &p) { return create_drive(&p.list, "/dev/sda", kAll); }},
    {"create_removable_drive", [](Places &p) { return create_removable_drive(&p.new_drive, p.media); }, 1, -1, nullptr, media},
    {"create_raid_drive add_raid_drive_to_list",
     [](Places &p) {
         const RaidDrive drive = member();
         return add_raid_drive_to_list(&p.list, &drive);
     }},
    {"move_drive move_drive_to_list", [](Places &p) { return move_drive_to_list(&p.list, p.new_drive); }, 1, -1, nullptr, whole_drive},
    {"resize_list release_drives", [](Places &p) { return resize_list(&p.list, 3); }},
    {"add_drive_to_list",
     [](Places &p) {
         const int result = add_drive_to_list(&p.list, p.new_drive);
         if (result == 1) p.new_drive = nullptr;
         return result;
     },
     1, -1, nullptr, named_drive},
    {"add_removable_drive_to_list", [](Places &p) { return add_removable_drive_to_list(p.media, &p.list); }, 1, -1, nullptr, media},
    {"matches_drive", [](Places &p) { return matches_drive(device(p), &p.list, 0); }, 1, -1, "a text without memory for its copy is none", [](Places &p) { media(p); listed_stick(p); }},
    {"get_drive_by_serial", [](Places &p) { return get_drive_by_serial(&p.list, DRIVE_OPTION_SYSTEM | DRIVE_OPTION_IDENTITY, "S-"); }, 1, -1, "a drive whose serial number cannot be read is none with that serial number"},
    {"get_drive", [](Places &p) { return get_drive(&p.list, kAll & ~DRIVE_OPTION_SYSTEM, "/dev/sda"); }, 1, -1, kNotThere},
    {"get_drive_by_id", [](Places &p) { return get_drive_by_id(&p.list, DRIVE_OPTION_GEOMETRY, 8, 1); }},
    {"get_drives", [](Places &p) { return get_drives(&p.list, kAll, nullptr, 0); }, 1, -1, kLeftOut},
    {"get_drives", [](Places &p) { return get_drives(&p.list, DRIVE_OPTION_USB, kSdb, 1); }, 1, -1, kLeftOut},
    {"get_drives_from_names", [](Places &p) { return get_drives_from_names(&p.list, DRIVE_OPTION_GEOMETRY, kSda, 1); }},
    {"read_drive_names_on_system release_drive_names", [](Places &p) { return read_drive_names_on_system(&p.names, &p.name_count); }, 1, -1, kLeftOut},
    {"read_names_from_file", [](Places &p) { return read_names_from_file(p.streams[0], &p.names, &p.name_count); }, 1, -1, kLeftOut, stream_of<kPartitions>},
    {"is_drive", [](Places &) { return is_drive("/dev/sda"); }, 1, 0},
    {"add_drive_name_to_list",
     [](Places &p) {
         const int result = add_drive_name_to_list(p.text, &p.names, &p.name_count);
         if (result == 0) p.text = nullptr;
         return result;
     },
     1, -1, nullptr, [](Places &p) { p.text = strdup("/dev/sda"); }},
    {"add_names_to_list", [](Places &p) { return add_names_to_list(&p.names, &p.name_count, kSda, 1); }},
    {"resolve_to_raid", [](Places &p) { return resolve_to_raid(p.raids[0].groups[0].device, &p.list, p.raids, p.raid_count); }, 1, -1, nullptr, drives_of_controllers},
    {"add_group_to_list", [](Places &p) { return add_group_to_list(&p.list, &p.raids[0].groups[0]); }, 1, -1, nullptr, drives_of_controllers},
    {"add_all_raid_drives", [](Places &p) { return add_all_raid_drives(&p.list, p.raids, p.raid_count); }, 1, -1, nullptr, drives_of_controllers},
    {"add_removable_media", [](Places &p) { return add_removable_media(&p.list, 0); }, 1, -1, kLeftOut, listed_stick},
    {"add_all_optical_drives", [](Places &p) { return add_all_optical_drives(&p.list, 0); }, 1, -1, kNotThere},
    {"get_optical_drives_from_file", [](Places &p) { return get_optical_drives_from_file(p.streams[0], &p.list, 0); }, 1, -1, nullptr, stream_of<kCdrom>},
    {"add_optical_drive_to_list", [](Places &p) { return add_optical_drive_to_list("/dev/sr0", &p.list, 0); }},

    // RAID
    {"get_sw_raid_names", [](Places &p) { return get_sw_raid_names(&p.names, &p.name_count); }, 1, -1, kNotThere},
    {"get_raids relate_drives_to_names", [](Places &p) { return get_raids(&p.raids, &p.raid_count); }, 1, -1, kTool, nullptr, false, false, true},
    {"get_raids_from_card supports_lsi", [](Places &p) { return get_raids_from_card(&p.raids, &p.raid_count, &lsiOperations); }, 1, -1, kTool},
    {"get_raids_adaptec supports_adaptec", [](Places &p) { return supports_adaptec() == 1 ? get_raids_adaptec(&p.raids, &p.raid_count) : -1; }},
    {"get_raids_lsi", [](Places &p) { return get_raids_lsi(&p.raids, &p.raid_count); }},
    {"get_ldinfo", [](Places &p) { return get_ldinfo(&p.raids, &p.raid_count); }},
    {"parse_ldinfo_output", [](Places &p) { return parse_ldinfo_output(p.streams[0], &p.raids, &p.raid_count); }, 1,  -1, nullptr, stream_of<kLogical>},
    {"get_pdlist", [](Places &p) { return get_pdlist(p.raids); }, 1, -1, nullptr, controllers},
    {"parse_pdlist_output", [](Places &p) { return parse_pdlist_output(p.streams[0], p.raids); }, 1, -1, nullptr, [](Places &p) { controllers(p); stream_of<kPhysical>(p); }},
    {"create_new_controller create_new_drive_group",
     [](Places &p) {
         RaidController *controller = create_new_controller("Adapter 0 -- Virtual", &p.raids, &p.raid_count);
         return controller == nullptr ? -1 : made(create_new_drive_group("Virtual Drive: 0 (Target Id: 0)", controller));
     }},
    {"set_group_name set_group_size set_group_drives",
     [](Places &p) {
         RaidDriveGroup &group = p.raids[0].groups[0];
         const int named = set_group_name("Name                :NEW", &p.text);
         return named + set_group_size("Size                : 1 GB", &group) + set_group_drives("Number Of Drives    : 3", &group);
     },
     1 | 2, -3, nullptr, controllers},
    {"assign_names_to_raids relate_group_to_name relate_drive_to_name", [](Places &p) { return assign_names_to_raids(p.raids, static_cast<int>(p.raid_count), nullptr, 0, p.map, p.map_count, nullptr, 0); },
     1, -1, nullptr, [](Places &p) { get_raids_lsi(&p.raids, &p.raid_count); relate_serial_to_drives(&p.map, &p.map_count); }},
    {"relate_serial_to_drives", [](Places &p) { return relate_serial_to_drives(&p.map, &p.map_count); }, 1, -1, kLeftOut},
    {"relate_model_to_drives", [](Places &p) { return relate_model_to_drives(&p.map, &p.map_count); }, 1, -1, kLeftOut},
    {"read_serial_from_drive", [](Places &p) { return read_serial_from_drive("sg1", &p.entry); }, 1},
    {"read_model_from_drive", [](Places &p) { return read_model_from_drive("sda", &p.entry); }},
    {"lookup_pci_info", [](Places &p) { return lookup_pci_info(&p.adapters, &p.adapter_count); }, 1, -1, "an unreadable /sys tells of no adapter"},

    // Watching files
    {"monitor_directory add_watches", [](Places &p) { return made(p.monitor = monitor_directory("/tmp/tree")); }},
    {"add_watch add_watch_fd", [](Places &p) { return add_watch(p.monitor, "/tmp"); }, 1, -1, nullptr, monitor},
    {"remove_watch get_watch release_monitor", [](Places &p) { return remove_watch(p.monitor, &p.monitor->watches[1]); }, 1, -1, nullptr, monitor},
    {"read_event release_event wait_for_event",
     [](Places &p) {
         inotify_event *seen = wait_for_event(p.monitor, p.descriptor);
         release_event(seen);
         return made(seen);
     },
     1, -1, nullptr, event},
    {"wait_for_file_event", [](Places &p) { return wait_for_file_event(p.monitor->fd, "event", 0); }, 1, 1, nullptr, event},
    {"wait_for_file_event_type", [](Places &) { return wait_for_file_event_type("/tmp/tree", "x", 0, IN_CREATE); }},
    {"wait_till_file_is_deleted", [](Places &) { return wait_till_file_is_deleted("/tmp/tree", "none", 0); }},
    {"wait_till_file_is_created", [](Places &) { return wait_till_file_is_created("/tmp/tree", "a", 0); }},

    // USB devices
    {"add_entry_to_info_list release_media_list", [](Places &p) { return made(add_entry_to_info_list("1-1:1.0", &p.media_list)); }},
    {"add_scsi_device_to_list release_scsi_list", [](Places &p) { return add_scsi_device_to_list(&p.media->devices, "9:0:0:0"); }, 1, -1, nullptr, media},
    {"copy_scsi_device_info", [](Places &p) { return copy_scsi_device_info(device(p), device(p) + 1); }, 1, -1, nullptr, [](Places &p) { media(p); add_scsi_device_to_list(&p.media->devices, "9:0:0:0"); }},
    {"copy_media_info release_media",
     [](Places &p) {
         MediaRecord *copy = copy_media_info(p.media);
         release_media(copy);
         return made(copy);
     },
     1, -1, nullptr, media},
    {"update_device_information", [](Places &p) { return update_device_information(p.media); }, 1, -1, kLeftOut, media},
    {"get_scsi_addresses get_usb_information get_driver_information check_ses_enclosure get_device_status",
     [](Places &p) {
         const bool read = get_scsi_addresses(p.media) == 0 && get_usb_information(p.media) == 0 &&
                           get_driver_information(p.media) == 0 && check_ses_enclosure(p.media) == 0;
         return read ? get_device_status(p.media) : -1;
     },
     1, -1, kLeftOut, media},
    {"get_info_type", [](Places &p) { return get_info_type(&p.text, "1-1", "serial"); }, 1, -1, "empty when it cannot be read"},
    {"get_device_name", [](Places &p) { return get_device_name(device(p)); }, 1, 0, nullptr, addressed_media},
    {"has_device_node", [](Places &p) { return has_device_node(device(p)); }, 1, 0, nullptr, addressed_media},
    {"is_bound_to_driver", [](Places &p) { return is_bound_to_driver(device(p)); }, 1, 0, nullptr, media},
    {"get_device_size", [](Places &p) { return get_device_size(device(p)); }, 1, -1, nullptr, media},
    {"get_drive_information", [](Places &p) { return get_drive_information(device(p), 0); }, 1, -1, "what cannot be read is null", media},
    {"device_matches_id", [](Places &p) { return device_matches_id(p.media, 8, 17); }, 1, 0, nullptr, media},
    {"create_node create_node_in", [](Places &) { return create_node_in("sdb", "/tmp/nodes"); }},
    {"create_partition_node create_partition_node_in", [](Places &) { return create_partition_node_in("sdb1", "sdb", "/tmp/nodes"); }},
    {"delete_node_in", [](Places &) { return delete_node_in("sdb", "/tmp/nodes"); }, 1, -1, "a node that cannot be removed leaves a text", node},
    {"add_scsi_device_nodes_at", [](Places &p) { return add_scsi_device_nodes_at(device(p), "/tmp/nodes"); }, 1, -1, nullptr, media, false, true},
    {"delete_scsi_device_nodes_at", [](Places &p) { return delete_scsi_device_nodes_at(device(p), "/tmp/nodes"); }, 1, -1, "a node that cannot be removed leaves a text", nodes, false, true},
    {"add_device_nodes_at", [](Places &p) { return add_device_nodes_at(p.media, "USB", "/tmp/nodes"); }, 1, -1, nullptr, media},
    {"delete_device_nodes_at", [](Places &p) { return delete_device_nodes_at(p.media, "USB", "/tmp/nodes"); }, 1, -1, "a node that cannot be removed leaves a text", nodes, false, true},
    {"unbind_scsi_device_from_driver", [](Places &p) { return unbind_scsi_device_from_driver(device(p)); }, 1, -1, nullptr, media},
    {"bind_scsi_device_to_driver", [](Places &p) { return bind_scsi_device_to_driver(device(p)); }, 1, -1, nullptr, media_in<STATE_UNBOUND>},
    {"change_scsi_device_state", [](Places &p) { return change_scsi_device_state(device(p), STATE_BOUND); }, 1, -1, nullptr, media_in<STATE_UNBOUND>},
    {"unbind_usb_device_from_driver", [](Places &p) { return unbind_usb_device_from_driver(p.media); }, 1, -1, nullptr, media},
    {"bind_usb_device_to_driver", [](Places &p) { return bind_usb_device_to_driver(p.media); }, 1, -1, nullptr, media_in<STATE_UNBOUND>},
    {"unbind_device_from_driver", [](Places &p) { return unbind_device_from_driver(p.media, "USB"); }, 1, -1, nullptr, media},
    {"bind_device_to_driver", [](Places &p) { return bind_device_to_driver(p.media, "USB"); }, 1, -1, nullptr, media_in<STATE_UNBOUND>},
    {"change_device_state", [](Places &p) { return change_device_state(p.media, "USB", STATE_UNBOUND); }, 1, -1, nullptr, media},
    {"change_state", [](Places &) { return change_state("USB", STATE_UNBOUND); }},
    {"bind_to_driver", [](Places &) { return bind_to_driver("IDLE"); }},
    {"unbind_from_driver", [](Places &) { return unbind_from_driver("USB"); }},
    {"remove_device_nodes", [](Places &) { return remove_device_nodes("USB"); }, 1, -1, "a node that cannot be removed leaves a text", nullptr, false, true},
    {"bind_to_driver_with_wait bind_to_driver_with_wait_for_devices", [](Places &) { return bind_to_driver_with_wait_for_devices("USB"); }},
    {"bind_to_driver_with_wait_for_driver", [](Places &) { return bind_to_driver_with_wait_for_driver("BARE"); }},
    {"get_usb_mass_storage_names", [](Places &p) { return get_usb_mass_storage_names(&p.media_list); }, 1, -1, kLeftOut},
    {"get_usb_mass_storage_devices", [](Places &p) { return get_usb_mass_storage_devices(&p.media_list); }, 1, -1, kLeftOut},
    {"get_usb_mass_storage_device", [](Places &p) { return made(p.media = get_usb_mass_storage_device("USB")); }, 1, -1, kLeftOut},
    {"get_usb_mass_storage_device_by_id", [](Places &p) { return made(p.media = get_usb_mass_storage_device_by_id(8, 16)); }, 1, -1, kLeftOut},
    // Errs to the safe side: the entry that cannot be read may be that of the file system.
    {"check_single_node_for_bad_filesystem", [](Places &p) { return check_single_node_for_bad_filesystem(device(p), nullptr, 1); }, 1, 1, nullptr, media},
    {"check_entire_device_for_bad_filesystem", [](Places &p) { return check_entire_device_for_bad_filesystem(p.media, "USB"); }, 1, 1, nullptr, media},
    {"get_optical_drive_status lock_optical_drive",
     [](Places &p) {
         uint32_t states[2] = {9, 9};
         const int result = get_optical_drive_status("/dev/sr0", &states[0], &states[1]);
         p.numbers[0] = static_cast<int32_t>(states[0]);
         p.numbers[1] = static_cast<int32_t>(states[1]);
         return result;
     }},

    // Mounting
    {"create_and_mount_in_temp_dir mount_device mount_device_to_temp_dir mount_all_devices", [](Places &p) { return create_and_mount_in_temp_dir("USB", &p.text); }, 1, -1, "a directory that cannot be listed has nothing to mount", nullptr, false, true},
    {"remove_and_umount_in_temp_dir umount_directory umount_all remove_all_from", [](Places &p) { return remove_and_umount_in_temp_dir(p.text); }, 1, -1, nullptr, mounted, false, true},
    {"is_mounted", [](Places &) { return is_mounted("/mounted"); }, 1, 0},
};

} // namespace

std::span<const Row> failure_rows() { return kRows; }

const char *const kPlainNames =
    "set_error_str get_error_str has_error get_error intlen is_blank ends_with trim trim_in_place truncate_numbers "
    "truncate_numbers_in_place truncate_seagate_serial get_bytes_from_str decode_sense print_specification "
    "adaptecOperations "
    "lsiOperations check_raids destroy_drive destroy_drive_group destroy_controller destroy_raids release_info_map "
    "print_drive print_group print_controller print_name_map release_pci_info drive_in_list resolve_to_special "
    "resolve_to_sw_raid is_iscsi convert_to_drive_type set_removable_drive_attributes set_adapter_status "
    "set_removable_drive_status print_geometry print_defects device_supports_innodisk device_supports_memkor "
    "innodisk_funcs memkor_funcs print_state select_vendor_probe empty_media_list get_driver_name_from_type "
    "get_driver_from_type is_valid_state get_usb_status get_media_status block_device_filter";

} // namespace torvane::world
