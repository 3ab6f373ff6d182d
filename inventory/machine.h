// What a machine has: things, their facts with who says so, and how they relate.
#pragma once

#include "inventory/facts.h"

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <variant>
#include <vector>

namespace inventory {

// Nothing, a text, a number or size, yes or no, several texts.
using Value = std::variant<std::monostate, std::string, std::uint64_t, std::int64_t, bool, std::vector<std::string>>;

inline bool is_missing(const Value &value) { return std::holds_alternative<std::monostate>(value); }

// One source's word about a fact.
struct Word {
    Value value;
    Source source = Source::kKernel;
    std::string detail; // the attribute, file, page or tool that says it: "vpd_pg80", "storcli64"
};

struct Fact {
    std::vector<Word> words; // best source first once settled
    std::string reason;      // why there is no value, when somebody knows
    bool disputed = false;   // the sources disagree

    // The best source's value; missing when nobody said any.
    [[nodiscard]] const Value &value() const;
};

// Facts by their place in the table and in its order: a list, as a thing has a dozen.
class Facts {
  public:
    using Entry = std::pair<std::size_t, Fact>;

    [[nodiscard]] const Fact *find(std::size_t index) const; // null when there is none
    Fact &operator[](std::size_t index); // made when there is none; where the others lie has changed then
    template <class Fits> void erase_if(Fits fits) { std::erase_if(entries_, fits); }

    [[nodiscard]] std::size_t size() const { return entries_.size(); }
    [[nodiscard]] auto begin() { return entries_.begin(); }
    [[nodiscard]] auto end() { return entries_.end(); }
    [[nodiscard]] auto begin() const { return entries_.begin(); }
    [[nodiscard]] auto end() const { return entries_.end(); }

  private:
    std::vector<Entry> entries_;
};

enum class RelationKind : std::uint8_t {
    kPartOf,   // partition -> the drive, array or mapped device that it is a part of
    kBuiltOn,  // array or mapped device -> what it is made of
    kPathOf,   // one path to a drive -> the drive, told by its first path
    kBehind,   // logical drive, member, -> its controller
    kMemberOf, // member -> a logical drive
    kSpareFor, // member -> a logical drive that it stands by for
    kKnownAs,  // logical drive or member -> the kernel's device of it
    kInBay,    // drive -> bay
    kOnUsb,    // drive -> USB interface
};

class Thing;

struct Relation {
    RelationKind kind;
    Thing *to;
};

// What could not be read, and what to do about it.
struct Trouble {
    std::string source;    // device path, tool, file
    std::string what;      // which piece of it; "" for all of it
    std::string words;     // why, in the library's or system's words where there are any
    std::string remedy;    // "" when nothing comes to mind
    bool essential = true; // whether the answer is incomplete without it: a stick has no defect lists, and all is well
};

class Thing {
  public:
    Thing(ThingKind kind, std::string id) : kind_(kind), id_(std::move(id)) {}

    [[nodiscard]] ThingKind kind() const { return kind_; }
    // Unique in the machine: the kernel's name ("sda"), "c0/e252/s3", a USB address ("1-2:1.0"), ...
    [[nodiscard]] const std::string &id() const { return id_; }

    // A source's word. Missing values and empty texts are no word. Texts are cleaned: padding cut off, never shortened.
    void tell(std::string_view key, Value value, Source source, std::string detail = {}) {
        tell(index_of(key), std::move(value), source, std::move(detail));
    }
    void tell(std::size_t index, Value value, Source source, std::string detail); // by place in the table
    // Why nobody can tell this fact. The last reason stays: who is asked later knows more.
    void lacks(std::string_view key, std::string reason);
    // Takes all words of a fact back.
    void forget(std::string_view key);

    [[nodiscard]] const Fact *fact(std::string_view key) const; // null when nobody said a word or gave a reason
    [[nodiscard]] const Value &value(std::string_view key) const;
    [[nodiscard]] std::string text(std::string_view key) const; // "" when missing or no text
    [[nodiscard]] std::optional<std::uint64_t> number(std::string_view key) const;
    [[nodiscard]] bool flag(std::string_view key) const; // false when missing
    [[nodiscard]] const Facts &facts() const { return facts_; }
    [[nodiscard]] Facts &facts() { return facts_; }

    std::vector<Relation> relations; // from this thing
    std::vector<Relation> reverse;   // from others to this thing; `to` is the other
    std::vector<Trouble> troubles;

    [[nodiscard]] std::vector<Thing *> related(RelationKind kind) const;    // this -> those
    [[nodiscard]] std::vector<Thing *> related_to(RelationKind kind) const; // those -> this

  private:
    ThingKind kind_;
    std::string id_;
    Facts facts_;
};

class Machine {
  public:
    // The thing with this id, made when there is none. Things stay where they are.
    Thing &add(ThingKind kind, const std::string &id);
    [[nodiscard]] Thing *find(std::string_view id) const;
    [[nodiscard]] std::deque<Thing> &things() { return things_; }
    [[nodiscard]] const std::deque<Thing> &things() const { return things_; }

    static void relate(Thing &from, RelationKind kind, Thing &to); // once, however often it is said

    std::vector<Trouble> troubles; // of whole sources

  private:
    std::deque<Thing> things_;
    std::unordered_map<std::string, Thing *> by_id_;
};

// Orders each fact's words by its sources' order and marks those that disagree. The one place where sources merge.
void settle(Machine &machine);
void settle(Thing &thing);

// sda, sdb, ..., sdz, sdaa; nvme2n1 before nvme10n1.
bool natural_less(std::string_view left, std::string_view right);

} // namespace inventory
