// torvane schema: the JSON Schemas of what this tool prints, made from the table of facts. Hidden: docs/schema has them.
#include "commands/commands.h"
#include "commands/trees.h"
#include "output/messages.h"

#include <nlohmann/json.hpp>

#include <array>
#include <memory>

namespace tool {
namespace {

using inventory::bit;
using inventory::ThingKind;

constexpr const char *kBase = "urn:torvane:schema:";
constexpr unsigned kPartitions = bit(ThingKind::kPartition);
constexpr unsigned kControllers = bit(ThingKind::kController);
constexpr unsigned kLogicals = bit(ThingKind::kLogical);
constexpr unsigned kMembers = bit(ThingKind::kMember);
constexpr unsigned kArrays = bit(ThingKind::kArray);
constexpr unsigned kInterfaces = bit(ThingKind::kUsbInterface);
constexpr unsigned kDrives = bit(ThingKind::kDrive);
constexpr unsigned kBays = bit(ThingKind::kBay);

Json text_schema() { return {{"type", "string"}}; }
Json list_of(Json items) { return {{"type", "array"}, {"items", std::move(items)}}; }
Json reference(const char *name) { return {{"$ref", std::string("#/$defs/") + name}}; }

Json closed(Json properties, Json required) {
    return {{"type", "object"},
            {"properties", std::move(properties)},
            {"required", std::move(required)},
            {"additionalProperties", false}};
}

Json words_schema(std::string_view words) {
    Json values = Json::array();
    while (!words.empty()) {
        const std::size_t end = std::min(words.find(' '), words.size());
        values.push_back(std::string(words.substr(0, end)));
        words.remove_prefix(std::min(end + 1, words.size()));
    }
    values.push_back(nullptr);
    return {{"enum", std::move(values)}};
}

Json value_schema(const Column &column, unsigned kinds) {
    const std::string_view key = column.key;
    // Most tools count from 0; some name slots such as "0b".
    if (key == "number") return {{"type", Json::array({"integer", "string", "null"})}};
    // Of a USB interface: whether it has one of its own.
    if (key == "enclosure" && kinds == kInterfaces) return {{"type", "boolean"}};
    if (*column.words != '\0') return words_schema(column.words);
    switch (column.kind) {
    case Kind::kCount: return {{"type", Json::array({"integer", "null"})}};
    case Kind::kBytes: return {{"type", Json::array({"integer", "null"})}, {"minimum", 0}};
    case Kind::kFlag: return {{"type", Json::array({"boolean", "null"})}};
    case Kind::kWords: return list_of(text_schema());
    default: return {{"type", Json::array({"string", "null"})}};
    }
}

// A row has the keys of the columns that were asked for, and why one of them has no value.
Json row_schema(unsigned kinds, const Json &branches) {
    Json properties = Json::object();
    for (const Column *column : columns_of(kinds)) {
        properties[column->key] = value_schema(*column, kinds);
        properties[column->key]["description"] = column->meaning;
    }
    properties["reasons"] = {{"type", "object"}, {"additionalProperties", text_schema()}};
    for (const auto &[key, items] : branches.items()) properties[key] = list_of(items);
    return closed(std::move(properties), Json::array());
}

Json document(const char *name, const char *title, Json properties, Json required, Json definitions) {
    Json schema = {{"$schema", "https://json-schema.org/draft/2020-12/schema"},
                   {"$id", kBase + std::string(name) + ":" + std::to_string(kSchemaVersion)},
                   {"title", title}};
    properties["schema_version"] = {{"const", kSchemaVersion}};
    required.push_back("schema_version");
    schema.update(closed(std::move(properties), std::move(required)));
    schema["$defs"] = std::move(definitions);
    return schema;
}

Json list_schema() {
    return document("list",
                    "What 'torvane list --json' prints. A drive has the keys of the columns that were asked for.",
                    {{"drives", list_of(reference("drive"))}}, {"drives"},
                    {{"drive", row_schema(kWholes, {{"partitions", reference("partition")}})},
                     {"partition", row_schema(kPartitions, Json::object())}});
}

Json show_schema() {
    Json drive = row_schema(kAnything & ~kPartitions, {{"partitions", reference("partition")}});
    const Json word =
        closed({{"value", Json::object()}, {"source", text_schema()}, {"detail", text_schema()}}, {"value", "source"});
    drive["properties"]["sources"] = {
        {"type", "object"},
        {"additionalProperties",
         closed({{"disputed", {{"type", "boolean"}}}, {"words", list_of(word)}}, {"disputed", "words"})}};
    drive["properties"]["failures"] =
        list_of(closed({{"reader", text_schema()}, {"message", text_schema()}}, {"reader", "message"}));
    drive["required"] = {"sources", "failures"};
    return document("show", "What 'torvane show --json' prints.", {{"drive", reference("drive")}}, {"drive"},
                    {{"drive", std::move(drive)}, {"partition", row_schema(kPartitions, Json::object())}});
}

Json raid_schema() {
    return document("raid", "What 'torvane raid --json' prints.",
                    {{"controllers", list_of(reference("controller"))}, {"arrays", list_of(reference("array"))}},
                    {"controllers", "arrays"},
                    {{"controller", row_schema(kControllers, {{"logical_drives", reference("logical_drive")},
                                                              {"drives", reference("drive")}})},
                     {"logical_drive", row_schema(kLogicals, {{"drives", reference("drive")}})},
                     {"drive", row_schema(kMembers, Json::object())},
                     {"array", row_schema(kArrays, {{"drives", reference("part")}})},
                     {"part", row_schema(kAnything, Json::object())}});
}

Json usb_schema() {
    return document("usb", "What 'torvane usb --json' prints.", {{"interfaces", list_of(reference("interface"))}},
                    {"interfaces"},
                    {{"interface", row_schema(kInterfaces, {{"devices", reference("device")}})},
                     {"device", row_schema(kDrives, Json::object())}});
}

Json find_schema() {
    return document("find", "What 'torvane find --json' prints.", {{"things", list_of(reference("thing"))}}, {"things"},
                    {{"thing", row_schema(kAnything, Json::object())}});
}

Json bays_schema() {
    return document(
        "bays", "What 'torvane bays --json' prints.", {{"bays", list_of(reference("bay"))}}, {"bays"},
        {{"bay", row_schema(kBays, {{"drives", reference("drive")}})}, {"drive", row_schema(kWholes, Json::object())}});
}

Json health_schema() {
    return document(
        "health", "What 'torvane health --json' prints.", {{"problems", list_of(reference("problem"))}}, {"problems"},
        {{"problem", closed({{"name", text_schema()}, {"problem", text_schema()}, {"message", text_schema()}},
                            {"name", "problem", "message"})}});
}

Json columns_schema() {
    Json properties = Json::object();
    for (const char *key : {"column", "key", "holds", "unit", "sources", "words"}) {
        properties[key] = {{"type", Json::array({"string", "null"})}};
    }
    return document(
        "columns", "What '--list-columns --json' of every listing prints.", {{"columns", list_of(reference("column"))}},
        {"columns"},
        {{"column", closed(std::move(properties), {"column", "key", "holds", "unit", "sources", "words"})}});
}

Json diff_schema() {
    Json properties = Json::object();
    for (const char *key : {"name", "serial", "wwn", "fact", "before", "after"}) properties[key] = text_schema();
    properties["difference"] = {{"enum", {"missing", "new", "moved", "changed"}}};
    return document("diff", "What 'torvane diff --json' and 'torvane check --json' print.",
                    {{"differences", list_of(reference("difference"))}}, {"differences"},
                    {{"difference", closed(std::move(properties), {"difference", "name", "serial", "wwn"})}});
}

// A line each, so it is the schema of one.
Json watch_schema() {
    Json event = {{"$schema", "https://json-schema.org/draft/2020-12/schema"},
                  {"$id", kBase + std::string("watch:") + std::to_string(kSchemaVersion)},
                  {"title", "A line of 'torvane watch --json'."}};
    Json properties = {{"event", {{"enum", {"present", "added", "removed", "changed"}}}}, {"name", text_schema()}};
    for (const char *key : {"type", "model", "serial", "wwn", "size"}) {
        properties[key] = value_schema(*inventory::find_fact(key), kAnything);
    }
    Json files = {{"event", {{"enum", {"created", "written", "deleted", "renamed"}}}},
                  {"path", text_schema()},
                  {"directory", {{"type", "boolean"}}},
                  {"to", text_schema()}};
    event["oneOf"] = {closed(std::move(properties), {"event", "name"}),
                      closed(std::move(files), {"event", "path", "directory"})};
    return event;
}

Json mount_schema() {
    return document("mount", "What 'torvane mount --json' prints.", {{"directory", text_schema()}}, {"directory"},
                    Json::object());
}

Json tray_schema() {
    const Json flag = {{"type", "boolean"}};
    return document("tray", "What 'torvane tray --json' prints.",
                    {{"device", text_schema()}, {"tray_open", flag}, {"has_disc", flag}},
                    {"device", "tray_open", "has_disc"}, Json::object());
}

struct Named {
    const char *name;
    Json (*make)();
};
constexpr std::array<Named, 12> kSchemas{{{"list", list_schema},
                                          {"show", show_schema},
                                          {"raid", raid_schema},
                                          {"usb", usb_schema},
                                          {"find", find_schema},
                                          {"bays", bays_schema},
                                          {"health", health_schema},
                                          {"columns", columns_schema},
                                          {"diff", diff_schema},
                                          {"watch", watch_schema},
                                          {"mount", mount_schema},
                                          {"tray", tray_schema}}};

int run(const std::string &name) {
    for (const Named &schema : kSchemas) {
        if (name == schema.name) {
            print_json(schema.make(), stdout);
            return kDone;
        }
    }
    if (!name.empty()) throw WrongUsage("no schema '" + name + "'");
    for (const Named &schema : kSchemas) std::printf("%s\n", schema.name);
    return kDone;
}

} // namespace

void add_schema_command(const Command &tool) {
    const auto name = std::make_shared<std::string>();
    tool.add("schema", "", [name] { return run(*name); }).argument("NAME", *name, "", false);
}

} // namespace tool
