// The library that reads mount tables. It brings three more, so that loading them all takes longer than many a command:
// they are loaded when somebody asks for mounts.
#pragma once

#include <libmount.h>

namespace inventory {

// Functions of <libmount.h>, without what their names begin with.
struct MountLibrary {
    decltype(&mnt_new_table) new_table;
    decltype(&mnt_unref_table) unref_table;
    decltype(&mnt_table_set_userdata) set_userdata;
    decltype(&mnt_table_get_userdata) get_userdata;
    decltype(&mnt_table_set_parser_errcb) set_parser_errcb;
    decltype(&mnt_table_parse_file) parse_file;
    decltype(&mnt_table_parse_swaps) parse_swaps;
    decltype(&mnt_new_iter) new_iter;
    decltype(&mnt_free_iter) free_iter;
    decltype(&mnt_table_next_fs) next_fs;
    decltype(&mnt_fs_get_devno) devno;
    decltype(&mnt_fs_get_source) source;
    decltype(&mnt_fs_get_srcpath) source_path;
    decltype(&mnt_fs_get_target) target;
};

// Null where it cannot be loaded: dlerror() tells why. It stays loaded.
const MountLibrary *mount_library();

} // namespace inventory
