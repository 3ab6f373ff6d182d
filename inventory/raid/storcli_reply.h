// What the replies of the storcli family say about one controller, gathered reply by reply. Every list and object is
// taken by what its rows hold, so versions that move or rename a section are read too.
#pragma once

#include "inventory/raid/json.h"
#include "inventory/raid/model.h"

#include <map>
#include <set>
#include <string>
#include <vector>

namespace inventory::raid {

class StorcliController {
  public:
    explicit StorcliController(std::string number) { told_.number = std::move(number); }

    // One "Response Data" object.
    void read(const Json &response);
    // A row of the overview that `show` prints.
    void read_overview(const Json &row);
    // Roles, membership and what else needs all replies; what is odd goes to the doubts. Once, at the end.
    Controller finish(Survey &survey, const std::string &tool);

  private:
    struct Drive {
        PhysicalDrive told;
        std::string group; // of drives: "0", "-", "F" (foreign)
        std::string type;  // "JBOD" with newer firmware
        std::string jbod_id;
        std::string raw_size;
        bool has_details = false;
    };
    struct Logical {
        LogicalDrive told;
        std::string group;
        std::string size; // as printed
        std::uint64_t blocks = 0;
        std::uint64_t block_size = 0; // 0: not told
        std::vector<std::string> places;
        bool has_places = false;
    };

    void read_section(const std::string &name, const Json &value);
    void read_row(const Json &row);
    void read_controller(const Json &section);
    void read_counts(const std::string &name, const Json &value);
    Drive *read_drive_row(const Json &row);
    void read_drive_details(const std::string &place, const Json &details);
    Logical *read_logical_row(const Json &row);
    void read_properties(Logical &logical, const Json &properties);
    void read_members(const std::string &number, const Json &rows);
    void read_topology_row(const Json &row);
    Drive *drive_at(const std::string &place);
    Logical *logical_at(const std::string &number);
    [[nodiscard]] bool is_hba() const;
    [[nodiscard]] bool is_megaraid() const;
    void finish_drive(Drive &drive) const;
    void finish_logical(Logical &logical);
    void check(Survey &survey, const std::string &tool) const;
    [[nodiscard]] std::string id_of(const PhysicalDrive &drive) const;

    Controller told_;
    std::vector<Drive> drives_;
    std::vector<Logical> logical_;
    std::map<std::string, std::size_t> drive_places_; // "252:2", ":4" without enclosure
    std::map<std::string, std::size_t> logical_places_;
    std::map<std::string, std::set<std::string>> dedicated_; // spare's place -> groups
    std::optional<std::uint64_t> drive_count_;
    std::optional<std::uint64_t> logical_count_;
};

// "/c0/e252/s2" in a text is "252:2", "/c0/s4" is ":4"; "" when there is no drive in it.
std::string place_in_path(std::string_view text);

} // namespace inventory::raid
