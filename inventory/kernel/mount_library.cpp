#include "inventory/kernel/mount_library.h"

#include <dlfcn.h>

#include <optional>

namespace inventory {
namespace {

constexpr const char *kFile = "libmount.so.1";

template <class Function> bool find(void *library, const char *name, Function &function) {
    function = reinterpret_cast<Function>(dlsym(library, name));
    return function != nullptr;
}

std::optional<MountLibrary> load() {
    void *file = dlopen(kFile, RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (file == nullptr) return std::nullopt;
    MountLibrary library{};
    const bool is_whole =
        find(file, "mnt_new_table", library.new_table) && find(file, "mnt_unref_table", library.unref_table) &&
        find(file, "mnt_table_set_userdata", library.set_userdata) &&
        find(file, "mnt_table_get_userdata", library.get_userdata) &&
        find(file, "mnt_table_set_parser_errcb", library.set_parser_errcb) &&
        find(file, "mnt_table_parse_file", library.parse_file) &&
        find(file, "mnt_table_parse_swaps", library.parse_swaps) && find(file, "mnt_new_iter", library.new_iter) &&
        find(file, "mnt_free_iter", library.free_iter) && find(file, "mnt_table_next_fs", library.next_fs) &&
        find(file, "mnt_fs_get_devno", library.devno) && find(file, "mnt_fs_get_source", library.source) &&
        find(file, "mnt_fs_get_srcpath", library.source_path) && find(file, "mnt_fs_get_target", library.target);
    return is_whole ? std::optional<MountLibrary>(library) : std::nullopt;
}

} // namespace

const MountLibrary *mount_library() {
    static std::optional<MountLibrary> library;
    if (!library) library = load(); // again where memory was short
    return library ? &*library : nullptr;
}

} // namespace inventory
