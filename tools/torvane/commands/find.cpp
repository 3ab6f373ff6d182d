// torvane find: which thing a text names, where it is, and all its other names.
#include "commands/commands.h"
#include "commands/devices.h"
#include "commands/looks.h"
#include "commands/trees.h"
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

std::string joined(const Thing &thing, const Style &style, std::initializer_list<const char *> keys) {
    std::string text;
    for (const char *key : keys) {
        const std::string part = to_text(*inventory::find_fact(key), thing.value(key), style);
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

void print_thing(const Thing &thing, Style style) {
    const std::string name = thing.text("name").empty() ? thing.id() : thing.text("name");
    std::printf("%s  %s\n", printable(style.paths ? name : short_name(name)).c_str(),
                printable(joined(thing, style, {"type", "model", "size"})).c_str());
    style.paths = true;
    print_line("serial", thing.text("serial"));
    print_line("WWN", thing.text("wwn"));
    print_line("where", place_of(thing));
    print_line("state", joined(thing, style, {"state", "device_state"}));
    print_line("names", joined(thing, style, {"path", "generic", "dm_name"}));
    for (const char *links : {"by_id", "by_path"}) {
        const auto *words = std::get_if<std::vector<std::string>>(&thing.value(links));
        if (words == nullptr) continue;
        for (const std::string &link : *words) print_line("", link);
    }
    print_line("used by", joined(thing, style, {"used_by"}));
    print_line("paths", joined(thing, style, {"paths"}));
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
    std::vector<Node> nodes;
    std::vector<std::string> ids;
    for (const Thing *thing : found.things) {
        ids.push_back(thing->id());
        const bool has_tree = options.output.wants_tree();
        nodes.push_back(has_tree ? list_node(*thing, true, true) : Node{thing, kAnything, false, {}});
    }
    if (options.output.json || options.output.asks_for_rows()) {
        listing.print(nodes, stdout);
    } else {
        for (const Thing *thing : found.things) print_thing(*thing, options.output.style());
    }
    if (!ids.empty()) tell_duplicates(found.machine, ids);
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
