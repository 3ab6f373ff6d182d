#include "changes/callers.h"

#include "changes/command.h"

#include <torvane.h>

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace changes {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using Answers = std::vector<Answer>;

std::string text(const char *string) { return string == nullptr ? std::string() : string; }

std::size_t open_descriptors() {
    return static_cast<std::size_t>(std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()));
}

std::string choose(std::mt19937 &random, std::initializer_list<const char *> words) {
    return *(words.begin() + random() % words.size());
}

// ---- The library ----

Answer::Row row_of(const DriveRecord &drive) {
    const fs::path path = text(drive.name);
    return {path.filename(), text(drive.serial), drive.block_count * drive.block_size, drive.partitions.count};
}

Answers ask_library(std::mt19937 &random) {
    constexpr DriveOptions kAll = DRIVE_OPTION_SYSTEM | DRIVE_OPTION_GEOMETRY | DRIVE_OPTION_IDENTITY |
                                  DRIVE_OPTION_DEFECTS | DRIVE_OPTION_STATE | DRIVE_OPTION_RAID | DRIVE_OPTION_USB |
                                  DRIVE_OPTION_OPTICAL;
    const DriveOptions options = random() % 2 == 0 ? kAll : kAll & static_cast<DriveOptions>(random());
    Answer answer;
    const std::size_t open_before = open_descriptors();
    DriveList list{};
    answer.call = "get_drives";
    answer.begin = now();
    const int result = get_drives(&list, options, nullptr, 0);
    answer.end = now();
    if (result != 0) answer.failure = text(get_error_str(TORVANE_ERROR_DRIVE_LIST));
    if (result != 0 && (list.count > 0 || answer.failure.empty())) answer.fault = "failed without words, or halfway";
    answer.is_list = result == 0 && (options & DRIVE_OPTION_SYSTEM) != 0;
    for (std::uint32_t i = 0; i < list.count; ++i) answer.rows.push_back(row_of(*list.drives[i]));
    release_drives(&list);
    if (open_descriptors() != open_before) answer.fault = "descriptors stay open";
    if (waitpid(-1, nullptr, WNOHANG) != -1 || errno != ECHILD) answer.fault = "a child is left";
    return {answer};
}

// ---- The tool ----

class Tool {
  public:
    explicit Tool(std::string path) : path_(std::move(path)) {}

    Answers list(std::mt19937 & /*random*/) const {
        Answer answer = call({"list", "--json", "--raid", "--usb", "--timeout=10"});
        answer.is_list = add_rows(said_, answer);
        return {answer};
    }

    Answers ask(std::mt19937 &random) const {
        const std::string serial = choose(random, {"USB1", "USB2", "SCSI1", "AGAIN", "HALF2", "STAYUSB"});
        const unsigned dice = random() % 4;
        if (dice == 0) return {find(serial)};
        if (dice == 1) return {watch(random)};
        Answer answer = call({"wait", dice == 2 ? "created" : "deleted", serial, "--timeout=2"});
        const bool is_so = answer.failure.empty();
        (is_so == (dice == 2) ? answer.there : answer.gone) = serial;
        return {answer};
    }

    Answers use_stick(std::mt19937 &random) const {
        const std::string serial = choose(random, {"MOUNT1", "MOUNT2"});
        if (random() % 3 == 0) return mount(serial);
        const unsigned dice = random() % 4;
        if (dice == 0) return {call({"usb", "unbind", serial, "--timeout=10"})};
        if (dice == 1) return {call({"usb", "bind", serial, "--timeout=10"})};
        if (dice == 2) return {call({"usb", "bind", serial, "--wait", "--timeout=10"})};
        return {call({"usb", "state", serial, choose(random, {"unbound", "bound", "node"}), "--timeout=10"})};
    }

  private:
    Answer find(const std::string &serial) const {
        Answer answer = call({"find", "--json", serial, "--timeout=10"});
        add_rows(said_, answer);
        if (answer.rows.empty()) {
            answer.gone = serial;
        } else {
            answer.there = serial;
        }
        return answer;
    }

    Answer watch(std::mt19937 &random) const {
        Answer answer = call({"watch", "--json", "--initial"}, std::chrono::seconds(2 + random() % 5));
        for (std::size_t at = 0, end = 0; (end = said_.find('\n', at)) != std::string::npos; at = end + 1) {
            add_rows(said_.substr(at, end - at), answer);
        }
        return answer;
    }

    Answers mount(const std::string &serial) const {
        Answers answers{call({"mount", serial, "--timeout=10"})};
        if (!answers.front().failure.empty()) return answers;
        const std::string directory = said_.substr(0, said_.find('\n'));
        answers.front().there = serial;
        answers.push_back(call({"umount", directory, "--timeout=10"}));
        if (fs::exists(directory)) answers.back().fault = directory + " is left: " + answers.back().failure;
        return answers;
    }

    Answer call(std::vector<std::string> arguments, std::chrono::milliseconds patience = {}) const {
        const bool has_verb = arguments[0] == "usb" || arguments[0] == "wait";
        const std::string name = "torvane " + arguments[0] + (has_verb ? " " + arguments[1] : "");
        arguments.insert(arguments.begin(), path_);
        const Ran ran = run(arguments, patience);
        said_ = ran.output;
        Answer answer;
        answer.call = name;
        answer.begin = ran.begin;
        answer.end = ran.end;
        const bool is_failure = ran.status == 1 || ran.status == 64;
        if (is_failure) answer.failure = ran.errors.empty() ? "(json says it)" : ran.errors;
        if (is_failure && ran.errors.empty() && said_.empty()) answer.fault = "failed without words";
        if (ran.status == -1) answer.fault = "hung";
        // Told to end before it had begun.
        constexpr int kTerminated = 128 + 15;
        const bool is_early = ran.status == kTerminated && patience.count() > 0 && said_.empty();
        if (ran.status != 0 && !is_failure && !is_early)
            answer.fault = "status " + std::to_string(ran.status) + ": " + ran.errors;
        return answer;
    }

    // The drives of a document; false when it is none.
    static bool add_rows(const std::string &document, Answer &answer) {
        const json parsed = json::parse(document, nullptr, false);
        if (parsed.is_discarded()) answer.fault = "no JSON: " + document;
        add_rows(parsed, answer);
        return !parsed.is_discarded();
    }

    static void add_rows(const json &part, Answer &answer) {
        for (const json &below : part) {
            if (below.is_structured()) add_rows(below, answer);
        }
        if (!part.is_object() || !part.contains("name") || part.value("type", json()) == "part") return;
        const auto of = [&part](const char *key) {
            const json value = part.value(key, json());
            return value.is_string() ? value.get<std::string>() : "";
        };
        const std::string name = of("name");
        const json size = part.value("size", json());
        const std::size_t partitions = part.value("partitions", json::array()).size();
        answer.rows.push_back({name.find(':') == std::string::npos ? name : "", of("serial"),
                               size.is_number() ? size.get<std::uint64_t>() : 0, static_cast<unsigned>(partitions)});
    }

    std::string path_;
    mutable std::string said_;
};

} // namespace

std::vector<Loop> all_loops(const std::string &torvane) {
    const Tool tool(torvane);
    return {{"library", ask_library},
            {"list", [tool](std::mt19937 &random) { return tool.list(random); }},
            {"ask", [tool](std::mt19937 &random) { return tool.ask(random); }},
            {"stick", [tool](std::mt19937 &random) { return tool.use_stick(random); }}};
}

std::set<std::string> leavings(const std::string &torvane) {
    std::set<std::string> left;
    std::error_code gone;
    for (const fs::directory_entry &entry : fs::directory_iterator("/proc")) {
        if (fs::read_symlink(entry.path() / "exe", gone) == torvane) left.insert("process " + entry.path().string());
    }
    for (const char *folder : {"/run/torvane", "/tmp"}) {
        for (const fs::directory_entry &entry : fs::directory_iterator(folder, gone)) left.insert(entry.path());
    }
    std::ifstream mounts("/proc/mounts");
    for (std::string line; std::getline(mounts, line);) {
        left.insert("mount " + line);
    }
    for (const fs::directory_entry &entry : fs::directory_iterator("/dev")) {
        const std::string name = entry.path().filename();
        if (name.starts_with("sd") && !fs::exists("/sys/class/block/" + name)) left.insert(entry.path());
    }
    return left;
}

} // namespace changes
