#include "inventory/reading/packing.h"

#include <cstring>
#include <type_traits>

namespace inventory {
namespace {

using Size = std::uint32_t;

class Writer {
  public:
    template <class T> void number(T value) {
        static_assert(std::is_trivially_copyable_v<T>);
        const std::size_t end = bytes_.size();
        bytes_.resize(end + sizeof value);
        std::memcpy(bytes_.data() + end, &value, sizeof value);
    }
    void text(const std::string &value) {
        number(static_cast<Size>(value.size()));
        bytes_ += value;
    }
    void put(std::monostate /*nothing*/) {}
    void put(const std::string &value) { text(value); }
    template <class T> void put(const T &value) { number(value); }
    void put(const std::vector<std::string> &values) {
        number(static_cast<Size>(values.size()));
        for (const std::string &value : values) text(value);
    }
    void value(const Value &value) {
        number(static_cast<std::uint8_t>(value.index()));
        std::visit([this](const auto &kept) { put(kept); }, value);
    }
    std::string take() { return std::move(bytes_); }

  private:
    std::string bytes_;
};

// After the first fault everything read is zero or empty.
class Reader {
  public:
    explicit Reader(std::string_view bytes) : bytes_(bytes) {}

    [[nodiscard]] bool is_good() const { return is_good_; }
    [[nodiscard]] bool is_at_end() const { return bytes_.empty(); }

    template <class T> T number() {
        T value{};
        if (const std::string_view raw = take(sizeof value); raw.size() == sizeof value) {
            std::memcpy(&value, raw.data(), sizeof value);
        }
        return value;
    }
    std::string text() { return std::string(take(number<Size>())); }
    std::vector<std::string> texts() {
        std::vector<std::string> values;
        for (Size left = number<Size>(); left > 0 && is_good_; --left) values.push_back(text());
        return values;
    }
    Value value() {
        switch (number<std::uint8_t>()) {
        case 0: return {};
        case 1: return text();
        case 2: return number<std::uint64_t>();
        case 3: return number<std::int64_t>();
        case 4: return number<std::uint8_t>() != 0;
        case 5: return texts();
        default: is_good_ = false; return {};
        }
    }

  private:
    std::string_view take(std::size_t size) {
        is_good_ = is_good_ && size <= bytes_.size();
        if (!is_good_) return {};
        const std::string_view taken = bytes_.substr(0, size);
        bytes_.remove_prefix(size);
        return taken;
    }

    std::string_view bytes_;
    bool is_good_ = true;
};

void pack_fact(std::size_t index, const Fact &fact, Writer &writer) {
    writer.number(static_cast<Size>(index));
    writer.text(fact.reason);
    writer.number(static_cast<Size>(fact.words.size()));
    for (const Word &word : fact.words) {
        writer.value(word.value);
        writer.number(word.source);
        writer.text(word.detail);
    }
}

bool unpack_fact(Reader &reader, Thing &thing) {
    const auto index = reader.number<Size>();
    if (!reader.is_good() || index >= all_facts().size()) return false;
    if (std::string reason = reader.text(); !reason.empty()) thing.facts()[index].reason = std::move(reason);
    for (Size left = reader.number<Size>(); left > 0; --left) {
        Value value = reader.value();
        const auto source = reader.number<Source>();
        std::string detail = reader.text();
        if (!reader.is_good() || static_cast<unsigned>(source) >= kSources) return false;
        thing.tell(index, std::move(value), source, std::move(detail));
    }
    return reader.is_good();
}

void pack_trouble(const Trouble &trouble, Writer &writer) {
    for (const std::string *text : {&trouble.source, &trouble.what, &trouble.words, &trouble.remedy}) {
        writer.text(*text);
    }
    writer.number(trouble.essential);
}

bool unpack_trouble(Reader &reader, Thing &thing) {
    Trouble trouble;
    for (std::string *text : {&trouble.source, &trouble.what, &trouble.words, &trouble.remedy}) *text = reader.text();
    trouble.essential = reader.number<std::uint8_t>() != 0;
    if (reader.is_good()) thing.troubles.push_back(std::move(trouble));
    return reader.is_good();
}

} // namespace

std::string pack(const Thing &found) {
    Writer writer;
    writer.number(static_cast<Size>(found.facts().size()));
    for (const auto &[index, fact] : found.facts()) pack_fact(index, fact, writer);
    writer.number(static_cast<Size>(found.troubles.size()));
    for (const Trouble &trouble : found.troubles) pack_trouble(trouble, writer);
    return writer.take();
}

bool unpack(std::string_view bytes, Thing &thing) {
    Reader reader(bytes);
    for (Size left = reader.number<Size>(); left > 0; --left) {
        if (!unpack_fact(reader, thing)) return false;
    }
    for (Size left = reader.number<Size>(); left > 0; --left) {
        if (!unpack_trouble(reader, thing)) return false;
    }
    return reader.is_good() && reader.is_at_end();
}

} // namespace inventory
