#include "changes/history.h"

#include <algorithm>
#include <chrono>
#include <regex>

namespace changes {
namespace {

bool may_be_there(const Stay &stay, const Answer &answer) {
    return stay.plugged_from <= answer.end && stay.pulled_by >= answer.begin;
}

bool is_there_throughout(const Stay &stay, const Answer &answer) {
    return stay.plugged_by <= answer.begin && stay.pulled_from >= answer.end;
}

bool fits(const Answer::Row &row, const Disk &disk, const Stay &stay) {
    return (row.serial.empty() || disk.serial.empty() || row.serial == disk.serial) &&
           (row.bytes == 0 || disk.bytes == 0 || row.bytes == disk.bytes) &&
           (row.name.empty() || row.name == stay.name || !disk.is_steady) && row.partitions <= disk.partitions;
}

template <class Test> bool any_stay(const std::vector<Disk> &disks, Test test) {
    return std::any_of(disks.begin(), disks.end(), [&](const Disk &disk) {
        return std::any_of(disk.stays.begin(), disk.stays.end(), [&](const Stay &stay) { return test(disk, stay); });
    });
}

std::string missing_in(const Answer &answer, const std::vector<Disk> &disks) {
    std::string missing;
    any_stay(disks, [&](const Disk &disk, const Stay &stay) {
        const bool is_listed = std::any_of(answer.rows.begin(), answer.rows.end(),
                                           [&](const Answer::Row &row) { return row.name == stay.name; });
        if (disk.is_steady && is_there_throughout(stay, answer) && !is_listed) missing = disk.id + " " + stay.name;
        return !missing.empty();
    });
    return missing;
}

bool was_gone(const std::string &serial, const Answer &answer, const std::vector<Disk> &disks) {
    return !any_stay(disks, [&](const Disk &disk, const Stay &stay) {
        return disk.serial == serial && is_there_throughout(stay, answer);
    });
}

bool was_there(const std::string &serial, const Answer &answer, const std::vector<Disk> &disks) {
    return any_stay(
        disks, [&](const Disk &disk, const Stay &stay) { return disk.serial == serial && may_be_there(stay, answer); });
}

} // namespace

Time now() {
    const auto time = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(time).count();
}

std::string fault_of(const Answer &answer, const std::vector<Disk> &disks) {
    if (!answer.fault.empty()) return answer.fault;
    for (const Answer::Row &row : answer.rows) {
        const bool is_right = any_stay(disks, [&](const Disk &disk, const Stay &stay) {
            return may_be_there(stay, answer) && fits(row, disk, stay);
        });
        if (!is_right) return "was never so: " + nlohmann::json(row).dump();
    }
    if (answer.is_list) {
        const std::string missing = missing_in(answer, disks);
        if (!missing.empty()) return "was there throughout and is not listed: " + missing;
    }
    if (!answer.there.empty() && !was_there(answer.there, answer, disks)) return "was never there: " + answer.there;
    if (!answer.gone.empty() && !was_gone(answer.gone, answer, disks)) return "was never gone: " + answer.gone;
    return {};
}

std::string kind_of(std::string words) {
    static const std::pair<std::regex, const char *> kVarying[] = {
        {std::regex("torvane\\.\\w{6}"), "torvane.XXXXXX"},
        {std::regex("\\bsd[a-z]+\\d*"), "sdX"},
        {std::regex("(USB|MOUNT|SCSI|HALF|STAY)\\w+"), "SERIAL"},
        {std::regex("\\d+"), "N"},
        {std::regex("\\s*\\n\\s*"), "; "},
    };
    for (const auto &[pattern, text] : kVarying) words = std::regex_replace(words, pattern, text);
    return words.substr(0, 200);
}

} // namespace changes
