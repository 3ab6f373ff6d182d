#include "inventory/drives/questions.h"

#include "inventory/reading/device.h"

#include <torvane.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <memory>

namespace inventory {
namespace {

struct Free {
    void operator()(char *text) const { std::free(text); }
};
using Text = std::unique_ptr<char, Free>;

// One drive, open, and what is found out about it.
struct Asked {
    int fd;
    const std::string path;
    const Thing &drive;
    Thing &found;
};

// The result of one call of the library, with what it said meanwhile: the text of a category is its last failure's.
struct Answer {
    int result;
    std::string words;
};

// A text that a call of the library hands out, from the moment that it does.
template <class Call> int take_text(Text &place, Call call) {
    char *text = nullptr;
    const int result = call(&text);
    place.reset(text);
    return result;
}

template <class Call> Answer call_library(std::uint32_t category, Call call) {
    set_error_str(category, "%s", "");
    const int result = call();
    const char *words = get_error_str(category);
    return {result, words == nullptr ? "" : words};
}

void miss(Asked &asked, std::string_view key, const char *what, std::string words) {
    if (words.empty()) words = "the drive does not tell it";
    asked.found.lacks(key, words);
    asked.found.troubles.push_back({asked.path, what, std::move(words), {}, false});
}

bool is_told(const Thing &thing, std::string_view key) {
    const Fact *fact = thing.fact(key);
    return fact != nullptr && !fact->words.empty();
}

bool is_told_by_identity(const Thing &thing, std::string_view key) {
    const Fact *fact = thing.fact(key);
    if (fact == nullptr) return false;
    return std::any_of(fact->words.begin(), fact->words.end(),
                       [](const Word &word) { return word.source == Source::kIdentity; });
}

bool is_on_usb(const Thing &drive) {
    const std::string transport = drive.text("tran");
    return transport == "usb" || transport == "uas";
}

std::string text_of(const Thing &thing, std::string_view key, Source source) {
    const Fact *fact = thing.fact(key);
    if (fact == nullptr) return "";
    const auto said = std::find_if(fact->words.begin(), fact->words.end(),
                                   [source](const Word &word) { return word.source == source; });
    const auto *text = said == fact->words.end() ? nullptr : std::get_if<std::string>(&said->value);
    return text == nullptr ? "" : *text;
}

// The kernel's vendor and product, which is what the library reads before it asks the drive; "" without them.
std::string model_of_kernel(const Thing &drive) {
    const std::string vendor = text_of(drive, "vendor", Source::kKernel);
    const std::string product = text_of(drive, "model", Source::kKernel);
    return vendor.empty() || product.empty() ? "" : vendor + " " + product;
}

bool can_have_model(const Thing &drive, const DriveRequest & /*request*/) { return model_of_kernel(drive).empty(); }

std::string model_of(const Asked &asked) {
    std::string model = model_of_kernel(asked.drive);
    return model.empty() ? asked.found.text("model") : model;
}

bool can_have_size(const Thing &drive, const DriveRequest & /*request*/) { return drive.kind() == ThingKind::kDrive; }

bool is_always_asked(const Thing & /*drive*/, const DriveRequest & /*request*/) { return true; }

// The page that the kernel keeps is the drive's own answer to the same question. Sticks and card readers do not
// rotate, and some fail for good at a page that they do not know.
bool can_have_rotation(const Thing &drive, const DriveRequest & /*request*/) {
    if (drive.kind() != ThingKind::kDrive || is_told_by_identity(drive, "rpm")) return false;
    return !(is_on_usb(drive) && drive.flag("removable"));
}

// The lists are SCSI's: ATA has none that could be translated (SAT-5, table of commands), and USB sticks and bridges
// speak for ATA drives or flash.
bool can_have_defects(const Thing &drive, const DriveRequest &request) {
    if (!request.defects || drive.kind() != ThingKind::kDrive || is_on_usb(drive)) return false;
    const std::string transport = drive.text("tran");
    return transport != "sata" && transport != "ide";
}

bool can_have_permission(const Thing &drive, const DriveRequest &request) {
    return request.state && drive.kind() == ThingKind::kDrive;
}

void ask_size(Asked &asked) {
    std::uint64_t bytes = 0;
    std::uint64_t blocks = 0;
    Answer answer = call_library(TORVANE_ERROR_GEOMETRY, [&] { return get_block_size(asked.fd, &bytes); });
    if (answer.result != 0) {
        for (const char *key : {"blocks", "size"}) asked.found.lacks(key, "the drive does not tell its block size");
        return miss(asked, "sector", "block size", answer.words);
    }
    asked.found.tell("sector", bytes, Source::kDrive);
    answer = call_library(TORVANE_ERROR_GEOMETRY, [&] { return get_number_of_blocks(asked.fd, bytes, &blocks); });
    if (answer.result != 0) {
        miss(asked, "size", "number of blocks", answer.words);
        return asked.found.lacks("blocks", asked.found.fact("size")->reason);
    }
    asked.found.tell("blocks", blocks, Source::kDrive);
    asked.found.tell("size", blocks * bytes, Source::kDrive);
}

void ask_model(Asked &asked) {
    DeviceSpecification numbers{};
    Text model;
    const Answer answer = call_library(TORVANE_ERROR_IDENTITY, [&] {
        get_device_stat(asked.fd, asked.path.c_str(), &numbers);
        return take_text(
            model, [&](char **text) { return get_drive_model(asked.fd, numbers.type, asked.path.c_str(), text); });
    });
    if (answer.result != 0) return miss(asked, "model", "model", answer.words);
    asked.found.tell("model", std::string(model.get()), Source::kDrive);
}

// The library shortens some makers' serial numbers and wants the model for that: it comes after the model.
void ask_serial(Asked &asked) {
    const std::string model = model_of(asked);
    Text serial;
    const Answer answer = call_library(TORVANE_ERROR_IDENTITY, [&] {
        const char *known = model.empty() ? nullptr : model.c_str();
        return take_text(serial,
                         [&](char **text) { return get_drive_serial(asked.fd, asked.path.c_str(), known, text); });
    });
    if (answer.result != 0) return miss(asked, "serial", "serial number", answer.words);
    asked.found.tell("serial", std::string(serial.get()), Source::kDrive);
    if (!is_told(asked.found, "serial")) asked.found.lacks("serial", "the drive's serial number is empty");
}

void ask_rotation(Asked &asked) {
    std::int32_t rate = -1;
    const Answer answer =
        call_library(TORVANE_ERROR_GEOMETRY, [&] { return get_device_rotation(asked.fd, asked.path.c_str(), &rate); });
    if (answer.result != 0) return miss(asked, "rpm", "rotation speed", answer.words);
    if (rate < 0) return miss(asked, "rpm", "rotation speed", "the drive tells a rate that no disk has");
    asked.found.tell("rpm", static_cast<std::uint64_t>(rate), Source::kDrive);
}

struct DefectKeys {
    int bit;
    const char *list; // as the library's words name it
    const char *what;
    const char *entries;
    const char *bytes;
};
constexpr std::array kDefectKeys = {
    DefectKeys{1, "primary", "primary defect list", "manufacturer_defects", "manufacturer_defect_bytes"},
    DefectKeys{2, "grown", "grown defect list", "grown_defects", "grown_defect_bytes"},
};

void ask_defects(Asked &asked) {
    DefectCounts counts{};
    const Answer answer =
        call_library(TORVANE_ERROR_DEFECTS, [&] { return get_device_defects(asked.fd, asked.path.c_str(), &counts); });
    for (const DefectKeys &keys : kDefectKeys) {
        if ((-answer.result & keys.bit) != 0) {
            const bool is_about_this = answer.words.find(keys.list) != std::string::npos;
            miss(asked, keys.entries, keys.what, is_about_this ? answer.words : "the drive does not tell its list");
            asked.found.lacks(keys.bytes, asked.found.fact(keys.entries)->reason);
            continue;
        }
        const bool is_primary = keys.bit == 1;
        const std::int32_t entries = is_primary ? counts.manufacturer_defects : counts.grown_defects;
        const std::uint32_t bytes = is_primary ? counts.manufacturer_defect_bytes : counts.grown_defect_bytes;
        asked.found.tell(keys.entries, static_cast<std::uint64_t>(std::max(entries, 0)), Source::kDrive);
        asked.found.tell(keys.bytes, std::uint64_t{bytes}, Source::kDrive);
    }
}

void ask_permission(Asked &asked) {
    if (model_of(asked).empty()) ask_model(asked);
    const std::string model = model_of(asked);
    if (device_supports_innodisk(model.c_str()) != 1 && device_supports_memkor(model.c_str()) != 1) {
        return asked.found.lacks("permission", "no commands of this maker are known");
    }
    int level = -1;
    const Answer answer = call_library(TORVANE_ERROR_STATE, [&] {
        return select_vendor_probe(model.c_str())->get_permission(asked.fd, asked.path.c_str(), &level);
    });
    if (answer.result != 0) return miss(asked, "permission", "permission", answer.words);
    asked.found.tell("permission", std::int64_t{level}, Source::kDrive);
}

// In this order the drive gets its commands; each is sent once.
struct Question {
    std::vector<std::string_view> keys;
    bool (*can_have)(const Thing &drive, const DriveRequest &request);
    void (*ask)(Asked &asked);
    std::vector<std::string_view> premises = {}; // facts of the kernel that it goes by
    bool does_kernel = false;                    // the kernel measures the same: asked only where it did not tell
};

bool is_asked(const Question &question, const Thing &drive, const DriveRequest &request) {
    const auto is_wanted = [&](std::string_view key) {
        const bool is_shown =
            request.keys.empty() || std::find(request.keys.begin(), request.keys.end(), key) != request.keys.end();
        return is_shown && !(question.does_kernel && is_told(drive, key));
    };
    return question.can_have(drive, request) && std::any_of(question.keys.begin(), question.keys.end(), is_wanted);
}

const std::vector<Question> &questions() {
    static const std::vector<Question> all = {
        {{"sector", "blocks", "size"}, can_have_size, ask_size, {}, true},
        {{"model"}, can_have_model, ask_model, {"vendor", "model"}},
        {{"serial"}, is_always_asked, ask_serial, {"vendor", "model"}},
        {{"rpm"}, can_have_rotation, ask_rotation, {"tran", "removable", "rpm"}},
        {{"manufacturer_defects", "manufacturer_defect_bytes", "grown_defects", "grown_defect_bytes"},
         can_have_defects,
         ask_defects,
         {"tran"}},
        {{"permission"}, can_have_permission, ask_permission, {"vendor", "model"}},
    };
    return all;
}

std::string remedy_for(int error) {
    switch (error) {
    case EACCES:
    case EPERM:
        return geteuid() == 0 ? "not even root may open the device here: is this a container without it?"
                              : "reading devices needs root: try again with sudo";
    case ENXIO: return "the kernel may have set it offline, or its node in /dev may be stale: see the log (dmesg)";
    case ENOENT:
    case ENODEV: return "the device may have been unplugged";
    case ENOMEDIUM: return "put a medium in";
    default: return {};
    }
}

void tell_not_open(const OpenDevice &device, const DriveRequest &request, const Thing &drive, Thing &found) {
    for (const std::string_view key : asked_facts(drive, request)) found.lacks(key, device.words);
    const bool is_essential = device.error != ENOMEDIUM;
    found.troubles.push_back(
        {drive.text("path"), "device", "failed to open: " + device.words, remedy_for(device.error), is_essential});
}

} // namespace

bool can_be_asked(const Thing &thing) {
    const bool is_drive = thing.kind() == ThingKind::kDrive || thing.kind() == ThingKind::kOptical;
    const bool takes_commands = is_told(thing, "hctl") || thing.text("kind") == "ide";
    return is_drive && takes_commands && is_told(thing, "path") && is_told(thing, "maj_min");
}

std::vector<std::string> keys_for_asking(const std::vector<std::string> &keys) {
    std::vector<std::string> needed{"path", "maj_min", "diskseq", "kind", "hctl"};
    const auto is_wanted = [&keys](std::string_view key) {
        return keys.empty() || std::find(keys.begin(), keys.end(), key) != keys.end();
    };
    for (const Question &question : questions()) {
        if (std::none_of(question.keys.begin(), question.keys.end(), is_wanted)) continue;
        needed.insert(needed.end(), question.premises.begin(), question.premises.end());
    }
    return needed;
}

std::vector<std::string_view> asked_facts(const Thing &drive, const DriveRequest &request) {
    std::vector<std::string_view> keys;
    for (const Question &question : questions()) {
        if (is_asked(question, drive, request)) keys.insert(keys.end(), question.keys.begin(), question.keys.end());
    }
    return keys;
}

Thing ask(const Thing &drive, const DriveRequest &request) {
    Thing found(drive.kind(), drive.id());
    if (asked_facts(drive, request).empty()) return found;
    // A tray that has moved since the first look is no other drive, but another medium.
    const bool has_tray = drive.kind() == ThingKind::kOptical;
    const OpenDevice device =
        open_device(drive.text("path"), drive.text("maj_min"), has_tray ? std::nullopt : drive.number("diskseq"));
    if (!device.descriptor) {
        tell_not_open(device, request, drive, found);
        return found;
    }
    Asked asked{device.descriptor.get(), drive.text("path"), drive, found};
    for (const Question &question : questions()) {
        if (is_asked(question, drive, request)) question.ask(asked);
    }
    return found;
}

} // namespace inventory
