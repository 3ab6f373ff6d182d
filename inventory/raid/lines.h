// Replies that are printed for people: headings, keys with values, bare words. Keys are found by name, whatever their
// column, case or place; what no table knows is passed over.
#pragma once

#include "inventory/raid/scan.h"

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace inventory::raid {

struct Line {
    std::size_t number = 0; // from 1
    std::size_t indent = 0; // blanks before it
    std::string_view text;  // trimmed
    std::string_view key;   // before the first colon that a blank or the line's end follows; "" without such a colon
    std::string_view value;
    bool whole = true;        // false for a last line without line end: the reply may be cut off in its middle
    bool under_rule = false;  // the line before it is a rule
    bool above_rule = false;  // the line after it is a rule
    bool under_blank = false; // an empty line stands before it

    [[nodiscard]] bool is_bare() const { return key.empty(); }
};

// "-----", "=====": five or more of them.
bool is_rule(std::string_view text);

// One reply while it is read: gives its lines that are neither empty nor rules, and takes down what is wrong with
// them under the name of the command.
class Page {
  public:
    Page(Survey &survey, std::string command, const Reply &reply);
    bool next(Line &line);
    void doubt(const Line &line, std::string words) { note(line.number, std::move(words)); }
    void note(std::size_t line, std::string words); // 0: the reply as a whole

    std::string where; // the thing that is being read, in the tool's words; part of each doubt

  private:
    bool fetch(Line &line); // the next line that is not empty

    Survey &survey_;
    std::string command_;
    std::string_view text_;
    Lines lines_;
    std::optional<Line> ahead_;
    bool after_rule_ = false;
};

// "arcconf GETCONFIG 1 AL": the tool's own name and its arguments.
std::string command_of(const std::string &binary, const std::vector<std::string> &arguments);
std::string name_of_binary(const std::string &path);

// "c0/e252/s3", as people are shown it; a drive without slot goes by its channel or the tool's number of it.
std::string drive_name(const Controller &controller, const PhysicalDrive &drive);

// What to do with the value of a key. A key that ends with '*' stands for all keys with that beginning.
template <class Into> struct KeyRule {
    std::string_view key;
    void (*read)(Into &into, const Line &line, Page &page);
};

bool key_fits(std::string_view rule, std::string_view key); // case and the number of blanks do not matter

// "Key:value" without a blank counts where a table has exactly that key.
Line with_loose_key(const Line &line);

template <class Into> const KeyRule<Into> *find_rule(std::span<const KeyRule<Into>> rules, std::string_view key) {
    for (const KeyRule<Into> &rule : rules) {
        if (key_fits(rule.key, key)) return &rule;
    }
    return nullptr;
}

// Reads the line by the first rule that fits its key. A value that may be cut off is a doubt, never a value.
template <class Into> bool read_by(std::span<const KeyRule<Into>> rules, Into &into, const Line &line, Page &page) {
    Line found = line;
    const KeyRule<Into> *rule = line.is_bare() ? nullptr : find_rule(rules, line.key);
    if (!rule) {
        found = with_loose_key(line);
        rule = found.is_bare() ? nullptr : find_rule(rules, found.key);
    }
    if (!rule) return false;
    if (line.whole) {
        rule->read(into, found, page);
    } else {
        page.doubt(line, "the output ends in the middle of a line");
    }
    return true;
}

// Readers for the tables. The first value that says something stays.
template <auto Member, class Into> void read_text(Into &into, const Line &line, Page &) {
    if ((into.*Member).empty()) into.*Member = told(line.value);
}

template <auto Member, class Into> void read_wwn(Into &into, const Line &line, Page &page) {
    if (!(into.*Member).empty() || is_nothing(line.value)) return;
    into.*Member = world_wide_name(line.value);
    const bool zeros = line.value.find_first_not_of("0xX") == std::string_view::npos;
    if ((into.*Member).empty() && !zeros) page.doubt(line, "\"" + told(line.value) + "\" is no world-wide name");
}

std::optional<std::uint64_t> size_of(const Line &line, Page &page, std::uint64_t thousand);

// Nothing has 0 bytes: that is how a size is spelt that is not known.
template <auto Member, std::uint64_t Thousand, class Into> void read_size(Into &into, const Line &line, Page &page) {
    if (!(into.*Member)) into.*Member = size_of(line, page, Thousand);
}

std::optional<std::uint64_t> count_of(const Line &line, Page &page);

template <auto Member, class Into> void read_count(Into &into, const Line &line, Page &page) {
    if (!(into.*Member)) into.*Member = count_of(line, page);
}

std::optional<std::int64_t> celsius_of(const Line &line, Page &page);

template <auto Member, class Into> void read_celsius(Into &into, const Line &line, Page &page) {
    if (!(into.*Member)) into.*Member = celsius_of(line, page);
}

// "/dev/sda" of "/dev/sda (Disk0) ..."; "" where no device is named.
std::string device_path(std::string_view value);

template <auto Member, class Into> void read_device(Into &into, const Line &line, Page &) {
    if ((into.*Member).empty()) into.*Member = device_path(line.value);
}

// "RAID 6 (ADG)", "1+0", "RAID1E", "6 Reed-Solomon", "Spanned_volume": as LogicalDrive::level spells it.
std::string level_of(std::string_view words);

template <auto Member, class Into> void read_level(Into &into, const Line &line, Page &) {
    if ((into.*Member).empty()) into.*Member = level_of(line.value);
}

// sas, sata, nvme; hdd, ssd: whichever the words hold, else "".
std::string interface_of(std::string_view words);
std::string media_of(std::string_view words);

// "Number 12" after "Number": the number alone; nothing where the text is another.
std::optional<std::string> number_after(std::string_view text, std::string_view beginning);

} // namespace inventory::raid
