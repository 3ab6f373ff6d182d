#include "raid_machine.h"

#include <algorithm>
#include <fstream>
#include <iterator>

namespace torvane::tests {
namespace {

using namespace inventory::raid;

std::string contents(const std::filesystem::path &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string role(Role role) {
    const char *const names[] = {"unknown", "member", "spare", "unassigned", "foreign", "jbod", "failed", "missing"};
    return names[static_cast<int>(role)];
}

std::string label(const PhysicalDrive &drive) {
    if (!drive.serial.empty()) return drive.serial;
    return (drive.enclosure.empty() ? "" : "e" + drive.enclosure) + "/s" + drive.slot;
}

template <class Value> void put(Json &json, const char *key, const Value &value) {
    if (value) json[key] = *value;
}
void put(Json &json, const char *key, const std::string &value) {
    if (!value.empty()) json[key] = value;
}

Json as_json(const PhysicalDrive &drive) {
    Json json{{"role", role(drive.role)}};
    for (const auto &[key, value] :
         std::map<const char *, const std::string &>{{"enclosure", drive.enclosure},
                                                     {"slot", drive.slot},
                                                     {"device_id", drive.device_id},
                                                     {"channel", drive.channel},
                                                     {"serial", drive.serial},
                                                     {"vendor", drive.vendor},
                                                     {"model", drive.model},
                                                     {"firmware", drive.firmware},
                                                     {"wwn", drive.wwn},
                                                     {"state", drive.state},
                                                     {"media", drive.media},
                                                     {"interface", drive.interface},
                                                     {"kernel_device", drive.kernel_device}}) {
        put(json, key, value);
    }
    put(json, "bytes", drive.bytes);
    put(json, "sector_bytes", drive.sector_bytes);
    put(json, "media_errors", drive.media_errors);
    put(json, "other_errors", drive.other_errors);
    put(json, "predictive_failures", drive.predictive_failures);
    put(json, "celsius", drive.celsius);
    if (drive.predictive_failure) json["predictive_failure"] = true;
    return json;
}

Json labels(const std::vector<std::size_t> &places, const Controller &controller) {
    Json list = Json::array();
    for (const std::size_t place : places) list.push_back(label(controller.drives.at(place)));
    return list;
}

Json as_json(const LogicalDrive &logical, const Controller &controller) {
    Json json{{"number", logical.number}, {"members", labels(logical.members, controller)}};
    put(json, "label", logical.label);
    put(json, "level", logical.level);
    put(json, "state", logical.state);
    put(json, "naa", logical.naa);
    put(json, "lu_serial", logical.serial);
    put(json, "kernel_device", logical.kernel_device);
    put(json, "bytes", logical.bytes);
    if (logical.scsi_channel && logical.scsi_target) {
        json["scsi"] = std::to_string(*logical.scsi_channel) + ":" + std::to_string(*logical.scsi_target);
    }
    if (!logical.spares.empty()) json["spares"] = labels(logical.spares, controller);
    if (!logical.members_known) json["members_known"] = false;
    if (logical.hidden) json["hidden"] = true;
    return json;
}

Json as_json(const Controller &controller) {
    Json json{{"number", controller.number}, {"logical", Json::array()}, {"drives", Json::array()}};
    put(json, "model", controller.model);
    put(json, "serial", controller.serial);
    put(json, "firmware", controller.firmware);
    put(json, "driver", controller.driver);
    put(json, "pci", controller.pci);
    put(json, "state", controller.state);
    put(json, "celsius", controller.celsius);
    if (!controller.drives_told) json["drives_told"] = false;
    for (const LogicalDrive &logical : controller.logical) json["logical"].push_back(as_json(logical, controller));
    for (const PhysicalDrive &drive : controller.drives) json["drives"].push_back(as_json(drive));
    return json;
}

} // namespace

std::vector<RaidMachine> raid_machines(const std::filesystem::path &folder) {
    std::vector<RaidMachine> machines;
    for (const auto &entry : std::filesystem::directory_iterator(folder)) {
        RaidMachine machine{entry.path().filename().string(), Json::parse(contents(entry.path() / "truth.json")), {}};
        for (const auto &file : std::filesystem::directory_iterator(entry.path())) {
            if (file.path().filename() == "truth.json") continue;
            machine.outputs[file.path().filename().string()] = contents(file.path());
        }
        machines.push_back(std::move(machine));
    }
    return machines;
}

Survey survey(const Tool &tool, const RaidMachine &machine, const Change &change) {
    const Runner run = [&](const std::vector<std::string> &arguments) {
        std::string name;
        for (const std::string &argument : arguments) name += (name.empty() ? "" : "_") + argument;
        std::replace(name.begin(), name.end(), '/', '-');
        const auto output = machine.outputs.find(name);
        if (output == machine.outputs.end()) return Reply{"", 3, ""};
        return Reply{change ? change(output->second) : output->second, 0, ""};
    };
    return tool.survey(run, std::string("/usr/sbin/") + tool.binaries.front());
}

Json as_truth(const Survey &survey) {
    Json json{{"controllers", Json::array()}, {"doubts", survey.doubts.size()}};
    put(json, "trouble", survey.trouble);
    for (const Controller &controller : survey.controllers) json["controllers"].push_back(as_json(controller));
    return json;
}

} // namespace torvane::tests
