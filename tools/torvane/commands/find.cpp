// torvane find: which thing a text names, where it is, and all its other names.
#include "commands/commands.h"
#include "commands/devices.h"
#include "commands/looks.h"
#include "output/text.h"

#include <memory>

namespace tool {
namespace {

using inventory::Thing;

struct FindOptions {
    ListingOptions output;
    double timeout = kDefaultSeconds;
    std::string text;
};

constexpr unsigned kAnything = ~0U;

std::string joined(const Thing &thing, std::initializer_list<const char *> keys) {
    std::string text;
    Style whole;
    whole.paths = true;
    for (const char *key : keys) {
        const std::string part = to_text(*inventory::find_fact(key), thing.value(key), whole);
        if (!part.empty()) text += (text.empty() ? "" : "  ") + part;
    }
    return text;
}

std::string with_words(const char *label, const std::string &text) {
    return text.empty() ? "" : std::string(label) + " " + text;
}

std::string place_of(const Thing &thing) {
    std::string place;
    for (const std::string &part :
         {with_words("enclosure", thing.text("enclosure")), with_words("bay", thing.text("bay")),
          thing.text("location"), with_words("port", thing.text("port")), with_words("PCI", thing.text("pci")),
          with_words("SCSI", thing.text("hctl"))}) {
        if (!part.empty()) place += (place.empty() ? "" : ", ") + part;
    }
    return place;
}

void print_line(const char *label, const std::string &text) {
    if (!text.empty()) std::printf("  %-8s %s\n", label, printable(text).c_str());
}

void print_thing(const Thing &thing) {
    const std::string name = thing.text("name");
    std::printf("%s  %s\n", printable(short_name(name.empty() ? thing.id() : name)).c_str(),
                printable(joined(thing, {"type", "model", "size"})).c_str());
    print_line("serial", thing.text("serial"));
    print_line("WWN", thing.text("wwn"));
    print_line("where", place_of(thing));
    print_line("state", joined(thing, {"state", "device_state"}));
    print_line("names", joined(thing, {"path", "generic", "dm_name"}));
    for (const char *links : {"by_id", "by_path"}) {
        const auto *words = std::get_if<std::vector<std::string>>(&thing.value(links));
        if (words == nullptr) continue;
        for (const std::string &link : *words) print_line("", link);
    }
    print_line("used by", joined(thing, {"used_by"}));
    print_line("paths", joined(thing, {"paths"}));
    print_line("verdict", thing.text("verdict"));
}

int run(const FindOptions &options) {
    if (options.output.list_columns) {
        print_columns(options.output, kAnything, stdout);
        return kDone;
    }
    if (options.text.empty()) throw WrongUsage("TEXT is missing");
    const Listing listing(options.output, {"things",
                                           kAnything,
                                           {"NAME", "TYPE", "MODEL", "SERIAL", "WWN", "SIZE", "ENCLOSURE", "BAY",
                                            "PORT", "BY-ID", "BY-PATH", "USED-BY", "VERDICT"}});
    const Found found = look_up(options.text, to_limit(options.timeout));
    if (found.things.empty() && !options.output.is_json()) {
        only_one(found, options.text);
        return kFailed;
    }
    const bool is_plain = options.output.style().format == Format::kTable && options.output.columns.empty() &&
                          !options.output.all_columns;
    std::vector<Node> nodes;
    for (const Thing *thing : found.things) nodes.push_back({thing, kAnything, false, {}});
    if (is_plain) {
        for (const Thing *thing : found.things) print_thing(*thing);
    } else {
        listing.print(nodes, stdout);
    }
    tell_duplicates(found.machine);
    return found.things.empty() ? kFailed : kDone;
}

} // namespace

void add_find_command(const Command &tool) {
    const auto options = std::make_shared<FindOptions>();
    tool.add("find", "Tell which drive a serial number, WWN, label, bay ... names.",
             [options] { return run(*options); })
        .argument("TEXT", options->text, "serial, WWN, model, label, UUID, link, bay, path", false)
        .listing(options->output)
        .timeout(options->timeout);
}

} // namespace tool
