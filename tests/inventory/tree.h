// A machine made of files: trees of our own over /sys, /proc and /run, in a private mount namespace.
#ifndef TORVANE_TESTS_INVENTORY_TREE_H
#define TORVANE_TESTS_INVENTORY_TREE_H

#include <fstream>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace inventory::tests {

// Lays a description out while it lives. Its lines, PATH may hold blanks in neither:
//   PATH = TEXT            a file; \n, \xNN and \\ in TEXT are what they are in C
//   PATH -> TARGET         a symbolic link
//   PATH + TEXT            a line more for a file
//   block PATH M:N SECTORS a block device: its folder in /sys with dev, size and uevent, its links and its list entry
//   pages PATH KEY=TEXT... VPD pages below a SCSI device's folder: 80=SERIAL, naa=DIGITS, rotation=CODE, ata=MODEL,
//                          ata-serial=, ata-firmware=; an underscore stands for a blank
// "@NAME" anywhere in a line is replaced by what "set NAME TEXT" set before.
class Tree {
  public:
    // Throws with the reason when no private mount namespace can be had here, or a line cannot be read.
    explicit Tree(const std::string &description);
    ~Tree();
    Tree(const Tree &) = delete;
    Tree &operator=(const Tree &) = delete;

  private:
    void lay_out(std::string line);
    void block(const std::string &path, const std::string &numbers, const std::string &sectors) const;

    std::vector<std::string> mounts_;
    std::map<std::string, std::string> names_;
};

std::string content_of(const std::string &path);

// What other fixtures lay out with, too. Each throws with its reason; folders above a path are made.
[[noreturn]] void give_up(const std::string &what);
void write_file(const std::string &path, std::string_view text, std::ios::openmode mode = std::ios::trunc);
void make_link(const std::string &path, const std::string &target);
void mount_at(const std::string &path, const char *source = nullptr); // a tree of its own, or another place's
std::string says(std::string text);                                   // a shell's command
void enter_namespace(); // once per process; from there on no mount of ours is seen outside

// What storcli64 prints of a controller of one drive.
inline constexpr const char *kController =
    R"({"Controllers":[{"Command Status":{"Controller":0,"Status":"Success"},"Response Data":{
"Basics":{"Controller":0,"Model":"ACME","Serial Number":"SV1","PCI Address":"00:65:00:00"},
"VD LIST":[{"DG/VD":"0/1","TYPE":"RAID0","State":"Optl","Size":"64 MB","Name":"one"}],
"PD LIST":[{"EID:Slt":"252:0","DID":2,"State":"Onln","DG":0,"Size":"64 MB"}],
"Drive /c0/e252/s0 - Detailed Information":{"SN":"S1"}}}]})";

} // namespace inventory::tests

#endif
