#include "inventory/raid/lines.h"

#include <algorithm>
#include <array>

namespace inventory::raid {
namespace {

bool is_blank(char c) { return c == ' ' || c == '\t'; }

std::size_t indent_of(std::string_view line) {
    const auto first = std::find_if_not(line.begin(), line.end(), is_blank);
    return static_cast<std::size_t>(first - line.begin());
}

// One character of a key after the other, runs of blanks as one.
class KeyLetters {
  public:
    explicit KeyLetters(std::string_view key) : rest_(key) {}
    char next() {
        if (rest_.empty()) return '\0';
        const char letter = is_blank(rest_.front()) ? ' ' : rest_.front();
        rest_.remove_prefix(letter == ' ' ? indent_of(rest_) : 1);
        return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
    }

  private:
    std::string_view rest_;
};

struct Spelling {
    std::string_view words;
    std::string_view meaning;
};

std::string first_held(std::span<const Spelling> spellings, std::string_view words) {
    for (const Spelling &spelling : spellings) {
        if (holds(words, spelling.words)) return std::string(spelling.meaning);
    }
    return {};
}

constexpr std::array<Spelling, 4> kLevels{{{"volume", "jbod"}, {"concat", "jbod"}, {"jbod", "jbod"}, {"span", "jbod"}}};
// "Serial Attached SCSI" and "Serial ATA" hold neither short word.
constexpr std::array<Spelling, 6> kInterfaces{{{"nvme", "nvme"},
                                               {"pcie", "nvme"},
                                               {"sata", "sata"},
                                               {"serial ata", "sata"},
                                               {"sas", "sas"},
                                               {"serial attached scsi", "sas"}}};
constexpr std::array<Spelling, 4> kMedia{
    {{"ssd", "ssd"}, {"solid state", "ssd"}, {"hdd", "hdd"}, {"hard disk", "hdd"}}};

} // namespace

bool is_rule(std::string_view text) {
    if (text.size() < 5 || (text.front() != '-' && text.front() != '=')) return false;
    return text.find_first_not_of(text.front()) == std::string_view::npos;
}

Page::Page(Survey &survey, std::string command, const Reply &reply)
    : survey_(survey), command_(std::move(command)), text_(reply.text), lines_(reply.text) {
    if (!reply.trouble.empty()) note(0, reply.trouble);
}

void Page::note(std::size_t line, std::string words) { raid::doubt(survey_, command_, line, where, std::move(words)); }

bool Page::fetch(Line &line) {
    std::string_view raw;
    bool blank = false;
    while (lines_.next(raw)) {
        const std::string_view text = trimmed(raw);
        if (!text.empty()) {
            const auto [key, value] = split_at_colon_blank(text);
            line = {lines_.number(), indent_of(raw), text, key, value, true, false, false, blank};
            const bool last = text_.data() + text_.size() <= raw.data() + raw.size();
            line.whole = !last;
            return true;
        }
        blank = true;
    }
    return false;
}

bool Page::next(Line &line) {
    Line found;
    while (ahead_ || fetch(found)) {
        if (ahead_) found = *ahead_;
        ahead_.reset();
        if (is_rule(found.text)) {
            after_rule_ = true;
            continue;
        }
        Line following;
        if (fetch(following)) ahead_ = following;
        found.under_rule = after_rule_;
        found.above_rule = ahead_ && is_rule(ahead_->text);
        after_rule_ = false;
        line = found;
        return true;
    }
    return false;
}

std::string name_of_binary(const std::string &path) { return path.substr(path.rfind('/') + 1); }

std::string command_of(const std::string &binary, const std::vector<std::string> &arguments) {
    std::string command = name_of_binary(binary);
    for (const std::string &argument : arguments) command += " " + argument;
    return command;
}

std::string drive_name(const Controller &controller, const PhysicalDrive &drive) {
    std::string name = "c" + controller.number;
    if (!drive.enclosure.empty()) name += "/e" + drive.enclosure;
    if (!drive.slot.empty()) return name + "/s" + drive.slot;
    const std::string &other = drive.channel.empty() ? drive.device_id : drive.channel;
    return other.empty() ? name : name + "/" + other;
}

bool key_fits(std::string_view rule, std::string_view key) {
    const bool beginning = rule.ends_with('*');
    if (beginning) rule.remove_suffix(1);
    KeyLetters wanted(rule);
    KeyLetters letters(key);
    while (true) {
        const char want = wanted.next();
        if (want == '\0' && beginning) return true;
        if (want != letters.next()) return false;
        if (want == '\0') return true;
    }
}

Line with_loose_key(const Line &line) {
    Line loose = line;
    const auto [key, value] = split_at_colon(line.text);
    loose.key = key;
    loose.value = value;
    return loose;
}

std::optional<std::uint64_t> size_of(const Line &line, Page &page, std::uint64_t thousand) {
    if (is_nothing(line.value)) return std::nullopt;
    const std::optional<std::uint64_t> bytes = bytes_of(line.value, thousand);
    if (!bytes) page.doubt(line, "\"" + told(line.value) + "\" is no size");
    return bytes.value_or(0) == 0 ? std::nullopt : bytes;
}

std::optional<std::uint64_t> count_of(const Line &line, Page &page) {
    if (is_nothing(line.value)) return std::nullopt;
    const std::optional<std::uint64_t> count = leading_number(line.value);
    if (!count) page.doubt(line, "\"" + told(line.value) + "\" is no number");
    return count;
}

std::optional<std::int64_t> celsius_of(const Line &line, Page &page) {
    if (is_nothing(line.value)) return std::nullopt;
    const std::optional<std::int64_t> degrees = leading_integer(line.value);
    if (!degrees) page.doubt(line, "\"" + told(line.value) + "\" is no temperature");
    return degrees;
}

std::string device_path(std::string_view value) {
    value = trimmed(value);
    if (!value.starts_with("/dev/")) return {};
    return told(value.substr(0, value.find_first_of(" \t,;(")));
}

std::string level_of(std::string_view words) {
    if (is_nothing(words)) return {};
    if (std::string concatenated = first_held(kLevels, words); !concatenated.empty()) return concatenated;
    words = trimmed(words);
    if (begins_with(words, "raid")) words.remove_prefix(4);
    words.remove_prefix(std::min(words.find_first_not_of("- \t"), words.size()));
    std::string level = lower(told(words.substr(0, words.find_first_of(" \t(,"))));
    // "1+0" nests stripes over mirrors: RAID 10.
    std::erase(level, '+');
    return level;
}

std::string interface_of(std::string_view words) { return first_held(kInterfaces, words); }
std::string media_of(std::string_view words) { return first_held(kMedia, words); }

std::optional<std::string> number_after(std::string_view text, std::string_view beginning) {
    if (!begins_with(text, beginning)) return std::nullopt;
    text = trimmed(text.substr(beginning.size()));
    if (text.ends_with(':')) text = trimmed(text.substr(0, text.size() - 1));
    if (text.empty() || text.size() > 9 || !whole_number(text)) return std::nullopt;
    return std::string(text);
}

} // namespace inventory::raid
