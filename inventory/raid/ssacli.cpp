// ssacli and its forerunners hpssacli and hpacucli: hpsa, smartpqi and cciss controllers.
#include "inventory/raid/ssacli.h"
#include "inventory/raid/tools.h"

#include <algorithm>
#include <array>

namespace inventory::raid {
namespace {

using ssacli::Box;
using ssacli::Drive;
using ssacli::Logical;
using ssacli::Reading;

struct TypeRole {
    std::string_view word;
    Role role;
};
constexpr std::array<TypeRole, 4> kTypeRoles{{
    {"spare", Role::kSpare},
    {"unassigned", Role::kUnassigned},
    {"hba", Role::kJbod},
    {"data", Role::kMember},
}};

Role role_of(const Drive &drive) {
    for (const TypeRole &known : kTypeRoles) {
        if (!holds(drive.type, known.word)) continue;
        const bool proved = known.role != Role::kMember || drive.nesting == Drive::Nesting::kArray;
        return proved ? known.role : Role::kUnknown;
    }
    if (drive.spare_in_lists) return Role::kSpare;
    switch (drive.nesting) {
    case Drive::Nesting::kArray: return Role::kMember;
    case Drive::Nesting::kUnassigned: return Role::kUnassigned;
    case Drive::Nesting::kHba: return Role::kJbod;
    case Drive::Nesting::kNone: break;
    }
    return Role::kUnknown;
}

void finish_drive(Page &page, const Controller &controller, Drive &drive) {
    drive.role = role_of(drive);
    if (drive.state.empty()) drive.state = drive.listed_state;
    if (!drive.bytes) drive.bytes = drive.listed_bytes;
    drive.predictive_failure = holds(drive.state, "predictive");
    page.where = drive_name(controller, drive);
    if (drive.serial.empty()) {
        page.note(drive.line, drive.detailed ? "no serial number" : "only listed: no details, no serial number");
    }
}

// All logical drives of an array use all of its drives.
void finish_box(Page &page, Box &box) {
    Controller &controller = box.controller;
    std::map<std::size_t, LogicalDrive> arrays;
    for (std::size_t i = 0; i < box.drives.size(); ++i) {
        Drive &drive = box.drives[i];
        finish_drive(page, controller, drive);
        for (const std::size_t array : drive.arrays) {
            if (drive.role == Role::kSpare) arrays[array].spares.push_back(i);
            if (drive.role == Role::kMember || drive.active_spare) arrays[array].members.push_back(i);
        }
        controller.drives.push_back(drive);
    }
    for (Logical &logical : box.logical) {
        if (logical.array != 0) {
            logical.members = arrays[logical.array].members;
            logical.spares = arrays[logical.array].spares;
        }
        logical.members_known = !logical.members.empty();
        page.where = "c" + controller.number + "/v" + logical.number;
        if (!logical.members_known) page.note(logical.line, "which drives belong to it is not told");
        controller.logical.push_back(logical);
    }
}

using Arguments = std::vector<std::string>;

// Controllers that only the short list has.
void add_listed(Page &page, const std::vector<Box> &listed, std::vector<Box> &boxes) {
    for (const Box &box : listed) {
        const auto known = std::find_if(boxes.begin(), boxes.end(), [&](const Box &seen) {
            return seen.controller.number == box.controller.number;
        });
        if (known != boxes.end()) {
            if (known->controller.serial.empty()) known->controller.serial = box.controller.serial;
        } else {
            page.where = "c" + box.controller.number;
            page.note(0, "the configuration does not tell about this controller");
            boxes.push_back(box);
            boxes.back().drives_told = false;
        }
    }
}

// Why there is no controller in the answer; "" when there is none in the machine.
std::string trouble_of(const Reading &reading, const Reply &reply) {
    if (holds(reading.trouble, "no controllers")) return {};
    if (!reading.trouble.empty()) return reading.trouble;
    return reply.trouble.empty() ? "its answer names no controller" : reply.trouble;
}

Survey survey_ssacli(const Runner &run, const std::string &binary) {
    const Arguments list{"ctrl", "all", "show"};
    const Arguments detail{"ctrl", "all", "show", "config", "detail"};
    Survey survey;
    const Reply list_reply = run(list);
    Page list_page(survey, command_of(binary, list), list_reply);
    Reading listed{list_page};
    ssacli::read_reply(listed, list_reply);
    if (listed.boxes.empty() && holds(listed.trouble, "no controllers")) return survey;
    const Reply detail_reply = run(detail);
    Page page(survey, command_of(binary, detail), detail_reply);
    Reading reading{page};
    ssacli::read_reply(reading, detail_reply);
    add_listed(page, listed.boxes, reading.boxes);
    if (reading.boxes.empty()) survey.trouble = trouble_of(reading, detail_reply);
    for (Box &box : reading.boxes) {
        box.controller.tool = name_of_binary(binary);
        box.controller.maker = "HP";
        box.controller.drives_told = box.drives_told;
        finish_box(page, box);
        survey.controllers.push_back(std::move(box.controller));
    }
    return survey;
}

} // namespace

const Tool kSsacli{
    "ssacli",
    "HP",
    {"ssacli", "hpssacli", "hpacucli"},
    {"/usr/sbin", "/sbin", "/opt/smartstorageadmin/ssacli/bin", "/opt/hp/hpssacli/bld", "/opt/hp/hpssacli/bin"},
    {"hpsa", "smartpqi", "cciss", "hpvsa"},
    false,
    survey_ssacli,
};

} // namespace inventory::raid
