// torvane show: everything known about one thing, who says so, and what could not be read of it.
#include "commands/commands.h"
#include "commands/devices.h"
#include "commands/looks.h"
#include "commands/trees.h"
#include "inventory/bays/bays.h"
#include "output/text.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <memory>

namespace tool {
namespace {

using inventory::Fact;
using inventory::Thing;
using inventory::ThingKind;
using inventory::Word;

struct ShowOptions {
    ListingOptions output;
    double timeout = kDefaultSeconds;
    std::string target;
};

constexpr int kLabelWidth = 25; // of the longest label, "Manufacturer defect bytes"

void print_line(std::string_view label, std::string_view text) {
    std::printf("  %-*s %s\n", kLabelWidth, std::string(label).c_str(), printable(text).c_str());
}

// "Physical sector" of physical_sector; what people know by its letters keeps them.
std::string label_of(const Column &column) {
    constexpr std::array<std::string_view, 17> kLetters{
        "wwn",     "rpm",      "hctl",    "uuid",      "pci",        "pt_uuid", "part_uuid", "maj_min", "tran",
        "fs_type", "fs_label", "pt_type", "part_type", "part_label", "by_id",   "by_path",   "diskseq"};
    std::string label = column.key;
    if (std::find(kLetters.begin(), kLetters.end(), label) != kLetters.end()) return column.heading;
    std::replace(label.begin(), label.end(), '_', ' ');
    label.front() = static_cast<char>(std::toupper(static_cast<unsigned char>(label.front())));
    return label;
}

std::string with_unit(const Column &column, const Value &value) {
    Style whole;
    whole.paths = true;
    whole.bytes = true;
    std::string text = to_text(column, value, whole);
    const auto *bytes = std::get_if<std::uint64_t>(&value);
    const std::string unit = *column.unit == '\0' ? "" : std::string(" ") + column.unit;
    const bool is_large = column.kind == Kind::kBytes && bytes != nullptr && *bytes >= 1024;
    return is_large ? human_size(*bytes) + " (" + text + unit + ")" : text + unit;
}

std::string source_of(const Word &word) {
    const std::string name = inventory::name_of(word.source);
    return word.detail.empty() ? name : name + ", " + word.detail;
}

void print_fact(const Column &column, const Fact &fact) {
    // Of a whole disk the start, and of most drives the twin, is no news.
    const bool is_news = column.key != std::string_view("start") || fact.value() != Value(std::uint64_t{0});
    if (fact.words.empty() || !is_news || fact.value() == Value(false)) return;
    print_line(label_of(column), with_unit(column, fact.value()));
    if (!fact.disputed) return;
    for (const Word &word : fact.words) print_line("", "  " + with_unit(column, word.value) + ": " + source_of(word));
}

// Of a device that failed as a whole, each fact would give the same reason.
bool is_told_of_the_whole(const Thing &thing, const std::string &reason) {
    return std::any_of(thing.troubles.begin(), thing.troubles.end(), [&reason](const inventory::Trouble &trouble) {
        return trouble.essential && trouble.words.ends_with(reason);
    });
}

void print_reasons(const Thing &thing, const Columns &columns) {
    bool any = false;
    for (const Column *column : columns) {
        const Fact *fact = thing.fact(column->key);
        if (fact == nullptr || !inventory::is_missing(fact->value()) || fact->reason.empty()) continue;
        if (is_told_of_the_whole(thing, fact->reason)) continue;
        if (!std::exchange(any, true)) std::printf("\nNot told:\n");
        print_line(label_of(*column), fact->reason);
    }
    for (const inventory::Trouble &trouble : thing.troubles) {
        if (!trouble.essential) continue;
        if (!std::exchange(any, true)) std::printf("\nNot told:\n");
        const bool is_whole = trouble.what.empty() || trouble.what == "device";
        print_line(is_whole ? "The drive itself" : trouble.what, trouble.words);
    }
}

void print_below(const char *title, const Thing &thing, inventory::RelationKind kind) {
    bool any = false;
    for (const Thing *other : thing.related_to(kind)) {
        if (!std::exchange(any, true)) std::printf("\n%s:\n", title);
        const auto size = other->number("size");
        std::string text = size ? human_size(*size) : "";
        for (const char *key : {"fs_type", "fs_label", "state"}) {
            const std::string word = other->text(key);
            if (!word.empty()) text += (text.empty() ? "" : "  ") + word;
        }
        print_line(short_name(other->text("name")), text);
    }
}

void print_thing(const Thing &thing, const Columns &columns) {
    const std::string name = thing.text("name");
    std::printf("%s\n", printable(name.empty() ? thing.id() : name).c_str());
    for (const Column *column : columns) {
        const std::string_view key = column->key;
        const Fact *fact = thing.fact(key);
        if (fact != nullptr && key != "name" && key != "path" && key != "failed") print_fact(*column, *fact);
    }
    print_below("Partitions", thing, inventory::RelationKind::kPartOf);
    print_below("Built on it", thing, inventory::RelationKind::kBuiltOn);
    print_below("Members", thing, inventory::RelationKind::kMemberOf);
    print_reasons(thing, columns);
}

Json sources_of(const Thing &thing, const Columns &columns, const Style &style) {
    Json sources = Json::object();
    for (const Column *column : columns) {
        const Fact *fact = thing.fact(column->key);
        if (fact == nullptr || fact->words.empty()) continue;
        Json words = Json::array();
        for (const Word &word : fact->words) {
            Json said = {{"value", to_json(*column, word.value, style)}, {"source", inventory::name_of(word.source)}};
            if (!word.detail.empty()) said["detail"] = word.detail;
            words.push_back(std::move(said));
        }
        sources[column->key] = {{"disputed", fact->disputed}, {"words", std::move(words)}};
    }
    return sources;
}

Json document_of(const Thing &thing, const Columns &columns, const Style &style) {
    Node node = list_node(thing, true, false);
    node.of = kAnything & ~inventory::bit(ThingKind::kPartition);
    ListingOptions options;
    options.json = true;
    Json drive = Listing(options, {"drives", kAnything, {}}, columns).document({node}, style).at("drives").at(0);
    drive["sources"] = sources_of(thing, columns, style);
    Json failures = Json::array();
    for (const inventory::Trouble &trouble : thing.troubles) {
        failures.push_back({{"reader", trouble.what.empty() ? "device" : trouble.what}, {"message", trouble.words}});
    }
    drive["failures"] = std::move(failures);
    Json document = {{"schema_version", kSchemaVersion}};
    document["drive"] = std::move(drive);
    return document;
}

// The drive is asked once it is known which one it is: nobody else's drive is opened for it.
Found asked(Found found, const ShowOptions &options) {
    Thing &thing = *found.things.front();
    inventory::Request request;
    request.all = true;
    request.ask_drives = true;
    request.defects = true;
    request.state = true;
    request.only = {thing.id()};
    request.limit = to_limit(options.timeout);
    const bool is_of_kernel = !thing.text("path").empty() && thing.kind() != ThingKind::kMember;
    if (thing.kind() == ThingKind::kBay) inventory::read_light(thing);
    if (!is_of_kernel) return found;
    const std::string id = thing.id();
    found.machine = inventory::survey(request);
    found.things.clear();
    if (Thing *again = found.machine.find(id)) found.things.push_back(again);
    return found;
}

void print(const Thing &thing, const ListingOptions &options, const Listing &listing) {
    if (options.json) {
        const bool has_columns = !options.columns.empty();
        print_json(document_of(thing, has_columns ? listing.columns() : columns_of(kAnything), options.style()),
                   stdout);
    } else if (options.asks_for_rows()) {
        listing.print({options.wants_tree() ? list_node(thing, true, true) : Node{&thing, kAnything, false, {}}},
                      stdout);
    } else {
        print_thing(thing, columns_of(inventory::bit(thing.kind())));
    }
}

int run(const ShowOptions &options) {
    if (options.output.list_columns) {
        print_columns(options.output, kAnything, stdout);
        return kDone;
    }
    if (options.target.empty()) throw WrongUsage("DEVICE|SERIAL is missing");
    const Listing listing(options.output,
                          {"drives", kAnything, {"NAME", "TYPE", "MODEL", "SERIAL", "SIZE", "TRAN", "USED-BY"}});
    Found found = look_up(options.target, to_limit(options.timeout));
    if (only_one(found, options.target) == nullptr) return kFailed;
    found = asked(std::move(found), options);
    if (found.things.empty()) {
        complain("'" + options.target + "' went away");
        return kFailed;
    }
    const Thing &thing = *found.things.front();
    if (!listing.keeps(thing)) {
        complain("'" + options.target + "' is " + thing.id() + ", which the filter does not fit");
        return kFailed;
    }
    print(thing, options.output, listing);
    const Troubles troubles = told_troubles(found.machine, {thing.id()});
    tell(troubles);
    tell_duplicates(found.machine, {thing.id()});
    return exit_code(troubles, true);
}

} // namespace

void add_show_command(const Command &tool) {
    const auto options = std::make_shared<ShowOptions>();
    tool.add("show", "Show everything known about one drive, and who says so.", [options] { return run(*options); })
        .argument("DEVICE|SERIAL", options->target, "a device, serial number, WWN, label, bay ...", false)
        .listing(options->output)
        .timeout(options->timeout);
}

} // namespace tool
