// storcli, perccli and their second generation: the tools of the MegaRAID family that print JSON.
#include "inventory/raid/json.h"
#include "inventory/raid/scan.h"
#include "inventory/raid/storcli_reply.h"
#include "inventory/raid/tools.h"

#include <algorithm>
#include <array>
#include <deque>
#include <memory>

namespace inventory::raid {
namespace {

using Arguments = std::vector<std::string>;

// What the tool says when there is nothing to tell about: an answer, although some versions call it a failure.
constexpr std::array<std::string_view, 9> kNothingThere{
    "No VD",         "No Virtual Drive", "No drive", "No Enclosure", "Un-supported command", "Unsupported command",
    "No Controller", "No JBOD",          "not found"};

bool is_nothing_there(std::string_view words) {
    return std::any_of(kNothingThere.begin(), kNothingThere.end(),
                       [words](std::string_view known) { return holds(words, known); });
}

class Reading {
  public:
    Reading(const Runner &run, std::string binary) : run_(run), binary_(std::move(binary)) {}

    Survey survey() {
        ask({"show", "J", "nolog"}, Need::kNever);
        if (!stopped_) ask({"/call", "show", "all", "J", "nolog"}, Need::kAlways);
        if (!stopped_) ask({"/call/vall", "show", "all", "J", "nolog"}, Need::kAlways);
        if (!stopped_) ask({"/call/eall/sall", "show", "all", "J", "nolog"}, Need::kAlways);
        // Drives without an enclosure answer to this alone.
        if (!stopped_) ask({"/call/sall", "show", "all", "J", "nolog"}, Need::kNever);
        if (entries_.empty() && !survey_.doubts.empty()) survey_.trouble = survey_.doubts.front().words;
        for (auto &[number, entry] : entries_) survey_.controllers.push_back(finished(*entry));
        return std::move(survey_);
    }

  private:
    // Whether the answer is missed when there is none: where another command tells the same, it is not.
    enum class Need : unsigned char { kNever, kAlways };

    struct Entry {
        explicit Entry(const std::string &number) : replies(number) {}
        StorcliController replies;
    };

    Controller finished(Entry &entry) {
        Controller controller = entry.replies.finish(survey_, binary_);
        controller.tool = binary_;
        controller.maker = "LSI";
        return controller;
    }

    void note(const std::string &command, std::size_t line, const std::string &where, const std::string &words) {
        doubt(survey_, command, line, where, words);
    }

    void ask(const Arguments &arguments, Need need) {
        std::string command = binary_;
        for (const std::string &argument : arguments) command += " " + argument;
        const Reply reply = run_(arguments);
        if (!reply.trouble.empty()) {
            // What does not answer once will not answer the next command.
            note(command, 0, "", reply.trouble);
            stopped_ = true;
        }
        const ParsedJson parsed = parse_json(reply.text);
        const Json *controllers = parsed.root.at("Controllers");
        const bool anything = controllers != nullptr && !controllers->items.empty();
        const bool missed = need == Need::kAlways || anything;
        if (!parsed.fault.empty() && reply.trouble.empty() && missed && !says_nothing_there(reply)) {
            note(command, parsed.line, "", parsed.fault + said_instead(reply));
        }
        if (!anything) return;
        for (std::size_t i = 0; i < controllers->items.size(); ++i) read_reply(command, controllers->items[i], i);
    }

    static bool says_nothing_there(const Reply &reply) {
        return reply.text.size() < 4096 && is_nothing_there(reply.text);
    }

    // Words in place of JSON: "Description = syntax error, ..."
    static std::string said_instead(const Reply &reply) {
        if (reply.text.find('{') != std::string::npos || trimmed(reply.text).empty()) return {};
        std::string_view line;
        for (Lines lines(reply.text); lines.next(line) && trimmed(line).empty();) {
        }
        return ": " + told(line.substr(0, 200));
    }

    void read_reply(const std::string &command, const Json &reply, std::size_t place) {
        const Json *status = reply.at("Command Status");
        const Json *response = reply.at("Response Data");
        const std::string number = number_of(status, response, place);
        if (status != nullptr) read_status(command, *status, number, response != nullptr);
        if (response == nullptr || response->kind != Json::Kind::kObject) return;
        if (read_overviews(*response)) return;
        if (Entry *entry = entry_of(number)) entry->replies.read(*response);
    }

    static std::string number_of(const Json *status, const Json *response, std::size_t place) {
        std::string number = status == nullptr ? std::string() : status->told("Controller");
        const Json *basics = response == nullptr ? nullptr : response->at("Basics");
        if (number.empty() && basics != nullptr) number = basics->told("Controller");
        if (number.empty() && response != nullptr) number = number_in_names(*response);
        return number.empty() ? std::to_string(place) : number;
    }

    // "/c0/v239", "Drive /c0/e252/s2"
    static std::string number_in_names(const Json &response) {
        for (const std::string &name : response.keys) {
            const std::size_t begin = name.find("/c");
            const auto number = begin == std::string::npos ? std::nullopt : leading_number(name.substr(begin + 2));
            if (number) return std::to_string(*number);
        }
        return {};
    }

    bool read_overviews(const Json &response) {
        if (response.at("Number of Controllers") == nullptr) return false;
        for (const char *name : {"System Overview", "IT System Overview"}) {
            const Json *rows = response.at(name);
            if (rows == nullptr) continue;
            for (const Json &row : rows->items) {
                Entry *entry = entry_of(row.told({"Ctl", "Ctrl"}));
                if (entry != nullptr) entry->replies.read_overview(row);
            }
        }
        return true;
    }

    // Failures name the drives that did not answer; all else is there.
    void read_status(const std::string &command, const Json &status, const std::string &number, bool has_data) {
        if (!same_word(status.told("Status"), "Failure")) return;
        const std::string description = status.told("Description");
        const Json *details = status.at("Detailed Status");
        bool named = false;
        for (const Json &row : details == nullptr ? std::vector<Json>() : details->items) {
            const std::string words = row.told({"ErrMsg", "Status"});
            if (!same_word(row.told("Status"), "Failure") || is_nothing_there(words)) continue;
            const std::string path = row.told({"Drive", "VD"});
            const std::string error = row.told("ErrCd");
            named = true;
            note(command, 0, path.starts_with('/') ? path.substr(1) : "c" + number,
                 (words.empty() ? description : words) + (error.empty() ? "" : " (error " + error + ")"));
        }
        if (!named && !is_nothing_there(description) && details == nullptr) {
            note(command, 0, has_data ? "c" + number : "", description.empty() ? "it failed" : description);
        }
    }

    Entry *entry_of(const std::string &number) {
        std::unique_ptr<Entry> *known = nullptr;
        for (auto &[other, entry] : entries_) {
            if (other == number) known = &entry;
        }
        if (known != nullptr) return known->get();
        if (number.empty() || entries_.size() >= kMostControllers) return nullptr;
        return entries_.emplace_back(number, std::make_unique<Entry>(number)).second.get();
    }

    const Runner &run_;
    std::string binary_;
    Survey survey_;
    std::deque<std::pair<std::string, std::unique_ptr<Entry>>> entries_;
    bool stopped_ = false;
};

Survey survey_with(const Runner &run, const std::string &binary) { return Reading(run, binary).survey(); }

} // namespace

const Tool kStorcli2{"storcli2", "LSI", {"storcli2"}, {"/opt/MegaRAID/storcli2"}, {"mpi3mr"}, true, survey_with};
const Tool kPerccli2{"perccli2", "LSI", {"perccli2"}, {"/opt/MegaRAID/perccli2"}, {"mpi3mr"}, true, survey_with};
const Tool kStorcli{"storcli",
                    "LSI",
                    {"storcli64", "storcli"},
                    {"/opt/MegaRAID/storcli", "/opt/lsi/storcli", "/usr/sbin", "/usr/local/sbin"},
                    {"megaraid_sas", "mpt3sas"},
                    true,
                    survey_with};
const Tool kPerccli{
    "perccli", "LSI",      {"perccli64", "perccli"}, {"/opt/MegaRAID/perccli"}, {"megaraid_sas", "mpt3sas"},
    true,      survey_with};

} // namespace inventory::raid
