// mvcli: Marvell 88SE92xx controllers. It has a list for controllers, logical drives, drives and blocks each; blocks
// tie drives to logical drives.
#include "inventory/raid/lines.h"
#include "inventory/raid/tools.h"

#include <algorithm>
#include <array>
#include <map>
#include <set>

namespace inventory::raid {
namespace {

using Arguments = std::vector<std::string>;
using Words = std::vector<std::string>;

struct Adapter : Controller {
    std::size_t line = 0;
};

struct Volume : LogicalDrive {
    std::size_t line = 0;
    std::string adapter;
    Words blocks;
    Words setup; // ids of its drives
};

struct Drive : PhysicalDrive {
    std::size_t line = 0;
    std::string adapter;
    Words blocks;
    Words volumes;
    bool cut = false; // the reply may end within its record
};

struct Block {
    std::size_t line = 0;
    std::string id;
    std::string adapter;
    std::string drive;
    std::string volume;
    std::string status;
};

// The controllers have eight ports at most.
constexpr std::size_t kMostRecords = 256;
constexpr std::size_t kMostWords = 64;

// "0 4 ": ids, separated by blanks or commas.
template <auto Member, class Into> void read_words(Into &into, const Line &line, Page &) {
    if (!(into.*Member).empty() || is_nothing(line.value)) return;
    std::string_view rest = line.value;
    while (!rest.empty() && (into.*Member).size() < kMostWords) {
        const std::size_t end = std::min(rest.find_first_of(", \t"), rest.size());
        if (end > 0) (into.*Member).emplace_back(told(rest.substr(0, end)));
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
}

void read_type(Drive &drive, const Line &line, Page &) { drive.interface = interface_of(line.value); }
void read_media(Drive &drive, const Line &line, Page &) { drive.media = media_of(line.value); }

constexpr std::array<KeyRule<Adapter>, 5> kAdapterRules{{
    {"controller id", read_text<&Adapter::number>},
    {"adapter id", read_text<&Adapter::number>},
    {"product", read_text<&Adapter::model>},
    {"firmware version", read_text<&Adapter::firmware>},
    {"serial no*", read_text<&Adapter::serial>},
}};
constexpr std::array<KeyRule<Volume>, 8> kVolumeRules{{
    {"id", read_text<&Volume::number>},
    {"adapter", read_text<&Volume::adapter>},
    {"name", read_text<&Volume::label>},
    {"status", read_text<&Volume::state>},
    {"raid mode", read_level<&Volume::level>},
    {"size", read_size<&Volume::bytes, 1024>},
    {"block ids", read_words<&Volume::blocks>},
    {"pd raid setup", read_words<&Volume::setup>},
}};
constexpr std::array<KeyRule<Drive>, 11> kDriveRules{{
    {"pd id", read_text<&Drive::device_id>},
    {"adapter", read_text<&Drive::adapter>},
    {"type", read_type},
    {"linked at", read_text<&Drive::channel>},
    {"size", read_size<&Drive::bytes, 1024>},
    {"model", read_text<&Drive::model>},
    {"serial", read_text<&Drive::serial>},
    {"firmware version", read_text<&Drive::firmware>},
    {"ssd type", read_media},
    {"block ids", read_words<&Drive::blocks>},
    {"associated vds", read_words<&Drive::volumes>},
}};
constexpr std::array<KeyRule<Block>, 5> kBlockRules{{
    {"block id", read_text<&Block::id>},
    {"adapter", read_text<&Block::adapter>},
    {"pd id", read_text<&Block::drive>},
    {"vd id", read_text<&Block::volume>},
    {"block status", read_text<&Block::status>},
}};

// --- records

// A record begins where a key of the leading ones follows others, or where a key comes again: blank lines between
// records do not survive every copy.
template <class Record> class Records {
  public:
    Records(std::span<const KeyRule<Record>> rules, std::span<const std::string_view> leading)
        : rules_(rules), leading_(leading) {}

    void read(Page &page, std::vector<Record> &records) {
        Line line;
        while (page.next(line)) {
            const KeyRule<Record> *rule = rule_of(line);
            if (!rule) continue;
            if (begins(rule)) {
                if (records.size() >= kMostRecords) return page.doubt(line, "too many of them");
                records.emplace_back();
                records.back().line = line.number;
                seen_.clear();
            }
            seen_.insert(rule);
            page.where = "record " + std::to_string(records.size());
            read_by<Record>(rules_, records.back(), line, page);
        }
    }

  private:
    const KeyRule<Record> *rule_of(const Line &line) const {
        if (const KeyRule<Record> *rule = line.is_bare() ? nullptr : find_rule(rules_, line.key)) return rule;
        return find_rule(rules_, with_loose_key(line).key);
    }
    bool is_leading(const KeyRule<Record> *rule) const {
        return std::find(leading_.begin(), leading_.end(), rule->key) != leading_.end();
    }
    bool begins(const KeyRule<Record> *rule) const {
        const bool has_others =
            std::any_of(seen_.begin(), seen_.end(), [this](auto seen) { return !is_leading(seen); });
        return seen_.empty() || seen_.contains(rule) || (is_leading(rule) && has_others);
    }

    std::span<const KeyRule<Record>> rules_;
    std::span<const std::string_view> leading_;
    std::set<const KeyRule<Record> *> seen_; // keys of the record that is open
};

struct Answers {
    std::vector<Adapter> adapters;
    std::vector<Volume> volumes;
    std::vector<Drive> drives;
    std::vector<Block> blocks;
    bool drives_told = false;
    bool blocks_told = false;
    std::string trouble;
};

// True when the reply has such records, or says that there are none.
template <class Record>
bool ask(const Runner &run, const std::string &binary, Survey &survey, const char *what,
         std::span<const KeyRule<Record>> rules, std::span<const std::string_view> leading, Answers &answers,
         std::vector<Record> &records) {
    const Arguments arguments{"info", "-o", what};
    const Reply reply = run(arguments);
    Page page(survey, command_of(binary, arguments), reply);
    Records<Record>(rules, leading).read(page, records);
    const bool has_end = holds(reply.text, "total #");
    if constexpr (requires { records.back().cut; }) {
        if (!records.empty()) records.back().cut = !has_end;
    }
    if (!reply.trouble.empty() && answers.trouble.empty()) answers.trouble = reply.trouble;
    return reply.trouble.empty() && (!records.empty() || has_end);
}

Answers ask_all(const Runner &run, const std::string &binary, Survey &survey) {
    constexpr std::array<std::string_view, 2> kAdapterKeys{"controller id", "adapter id"};
    constexpr std::array<std::string_view, 2> kVolumeKeys{"id", "adapter"};
    constexpr std::array<std::string_view, 2> kDriveKeys{"adapter", "pd id"};
    constexpr std::array<std::string_view, 2> kBlockKeys{"adapter", "block id"};
    Answers answers;
    ask<Adapter>(run, binary, survey, "hba", kAdapterRules, kAdapterKeys, answers, answers.adapters);
    ask<Volume>(run, binary, survey, "vd", kVolumeRules, kVolumeKeys, answers, answers.volumes);
    answers.drives_told = ask<Drive>(run, binary, survey, "pd", kDriveRules, kDriveKeys, answers, answers.drives);
    answers.blocks_told = ask<Block>(run, binary, survey, "blk", kBlockRules, kBlockKeys, answers, answers.blocks);
    return answers;
}

// --- members

bool shares(const Words &left, const Words &right) {
    return std::find_first_of(left.begin(), left.end(), right.begin(), right.end()) != left.end();
}

bool has(const Words &words, const std::string &word) {
    return !word.empty() && std::find(words.begin(), words.end(), word) != words.end();
}

// Adapters number their drives each from 0.
bool same_adapter(const std::string &left, const std::string &right) {
    return left.empty() || right.empty() || left == right;
}

class Ties {
  public:
    explicit Ties(Answers &answers) : answers_(answers) {
        for (const Block &block : answers.blocks) {
            if (!block.volume.empty() && !block.drive.empty()) owners_[block.drive].push_back(&block);
        }
    }
    // The block list is the sure link; the drives' and logical drives' own words serve where it says nothing.
    [[nodiscard]] bool belongs(const Drive &drive, const Volume &volume) const {
        if (!same_adapter(drive.adapter, volume.adapter)) return false;
        if (const auto blocks = owners_.find(drive.device_id); blocks != owners_.end()) {
            return std::any_of(blocks->second.begin(), blocks->second.end(), [&](const Block *block) {
                return block->volume == volume.number && same_adapter(block->adapter, drive.adapter);
            });
        }
        if (!drive.volumes.empty()) return has(drive.volumes, volume.number);
        if (!drive.blocks.empty() && !volume.blocks.empty()) return shares(drive.blocks, volume.blocks);
        return has(volume.setup, drive.device_id);
    }
    // A block without logical drive belongs to none; without blocks, a drive that names no logical drive has none.
    [[nodiscard]] Role role_of(const Drive &drive) const {
        if (!answers_.blocks_told || drive.cut || drive.device_id.empty()) return Role::kUnknown;
        const bool has_blocks = !drive.blocks.empty() || owners_.contains(drive.device_id);
        if (!has_blocks && drive.volumes.empty()) return Role::kUnassigned;
        const bool all_free = std::all_of(drive.blocks.begin(), drive.blocks.end(), [&](const std::string &id) {
            return std::any_of(answers_.blocks.begin(), answers_.blocks.end(), [&](const Block &block) {
                return block.id == id && block.volume.empty() && !same_word(block.status, "assigned");
            });
        });
        return all_free && !owners_.contains(drive.device_id) && drive.volumes.empty() ? Role::kUnassigned
                                                                                       : Role::kUnknown;
    }

  private:
    const Answers &answers_;
    std::map<std::string, std::vector<const Block *>> owners_; // by PD id
};

Adapter &adapter_of(std::vector<Adapter> &adapters, const std::string &number) {
    const auto found = std::find_if(adapters.begin(), adapters.end(),
                                    [&](const Adapter &adapter) { return adapter.number == number; });
    return found == adapters.end() ? adapters.front() : *found;
}

// Controllers that only drives name.
void complete_adapters(Answers &answers) {
    for (const Drive &drive : answers.drives) {
        const bool known = std::any_of(answers.adapters.begin(), answers.adapters.end(),
                                       [&](const Adapter &adapter) { return adapter.number == drive.adapter; });
        if (known || drive.adapter.empty() || answers.adapters.size() >= kMostControllers) continue;
        answers.adapters.emplace_back().number = drive.adapter;
    }
    const bool has_things = !answers.drives.empty() || !answers.volumes.empty();
    if (answers.adapters.empty() && has_things) answers.adapters.emplace_back().number = "0";
}

void finish_drive(Survey &survey, const std::string &binary, const Controller &controller, Drive &drive) {
    drive.slot = drive.device_id;
    if (!drive.serial.empty()) return;
    doubt(survey, command_of(binary, {"info", "-o", "pd"}), drive.line, drive_name(controller, drive),
          "no serial number");
}

void place_drives(Survey &survey, const std::string &binary, Answers &answers, const Ties &ties) {
    for (Drive &drive : answers.drives) {
        Adapter &adapter = adapter_of(answers.adapters, drive.adapter);
        finish_drive(survey, binary, adapter, drive);
        drive.role = ties.role_of(drive);
        for (const Volume &volume : answers.volumes) {
            if (ties.belongs(drive, volume)) drive.role = Role::kMember;
        }
        adapter.drives.push_back(drive);
    }
}

// A logical drive does not name its controller: its drives do.
void place_volume(Survey &survey, const std::string &binary, Answers &answers, const Ties &ties,
                  std::map<std::string, Words> &numbers, Volume &volume) {
    const auto member = std::find_if(answers.drives.begin(), answers.drives.end(), [&](const Drive &drive) {
        const Words &taken = numbers[drive.adapter]; // the next controller counts from 0 again
        return ties.belongs(drive, volume) && !has(taken, volume.number);
    });
    if (volume.adapter.empty() && member != answers.drives.end()) volume.adapter = member->adapter;
    numbers[volume.adapter].push_back(volume.number);
    Adapter &adapter = adapter_of(answers.adapters, volume.adapter);
    std::size_t place = 0;
    for (const Drive &drive : answers.drives) {
        if (&adapter_of(answers.adapters, drive.adapter) != &adapter) continue;
        if (ties.belongs(drive, volume)) volume.members.push_back(place);
        ++place;
    }
    volume.members_known = !volume.members.empty();
    if (!volume.members_known) {
        doubt(survey, command_of(binary, {"info", "-o", "vd"}), volume.line,
              "c" + adapter.number + "/v" + volume.number, "which drives belong to it is not told");
    }
    adapter.logical.push_back(volume);
}

Survey survey_mvcli(const Runner &run, const std::string &binary) {
    Survey survey;
    Answers answers = ask_all(run, binary, survey);
    complete_adapters(answers);
    const Ties ties(answers);
    if (answers.adapters.empty()) survey.trouble = answers.trouble;
    if (answers.adapters.empty()) return survey;
    place_drives(survey, binary, answers, ties);
    std::map<std::string, Words> numbers; // of the logical drives that each controller has
    for (Volume &volume : answers.volumes) place_volume(survey, binary, answers, ties, numbers, volume);
    for (Adapter &adapter : answers.adapters) {
        adapter.tool = name_of_binary(binary);
        adapter.maker = "Marvell";
        adapter.drives_told = answers.drives_told;
        survey.controllers.push_back(std::move(adapter));
    }
    return survey;
}

} // namespace

const Tool kMvcli{
    "mvcli", "Marvell", {"mvcli"}, {"/opt/marvell/storage/cli"}, {"ahci"}, false, survey_mvcli,
};

} // namespace inventory::raid
