#include "defaults_values.h"

#include <algorithm>
#include <cstring>

namespace defaults {

namespace {

/// Puts `value` at `place`; returns the place behind it.
template <typename Number>
char* putRaw(char* place, Number value) {
    std::memcpy(place, &value, sizeof(value));
    return place + sizeof(value);
}

char* putText(char* place, std::string_view text) {
    place = putRaw(place, static_cast<uint32_t>(text.size()));
    return std::copy(text.begin(), text.end(), place);
}

template <typename Number>
Number takeRaw(std::string_view& from) {
    Number value{};
    std::memcpy(&value, from.data(), sizeof(value));
    from.remove_prefix(sizeof(value));
    return value;
}

std::string_view takeText(std::string_view& from) {
    const auto length = takeRaw<uint32_t>(from);
    const std::string_view text = from.substr(0, length);
    from.remove_prefix(length);
    return text;
}

/// Appends the head of an entry and room for `valueBytes`; returns where they begin.
char* appendHead(std::string& packed, Kind kind, std::string_view name, size_t valueBytes) {
    const size_t begin = packed.size();
    packed.resize(begin + 1 + sizeof(uint32_t) + name.size() + valueBytes);
    return putText(putRaw(packed.data() + begin, kind), name);
}

NSNumber numberOf(Kind kind, int64_t value) {
    return kind == Kind::boolean ? NSNumber::numberWithBool(value != 0) : NSNumber::numberWithLongLong(value);
}

Kind kindOf(NSNumber number) {
    return number.isBool() ? Kind::boolean : Kind::integer;
}

}  // namespace

void packEntry(std::string& packed, std::string_view name, std::string_view text) {
    putText(appendHead(packed, Kind::text, name, sizeof(uint32_t) + text.size()), text);
}

void packEntry(std::string& packed, std::string_view name, NSNumber number) {
    putRaw(appendHead(packed, kindOf(number), name, sizeof(int64_t)), number.longLongValue());
}

bool takeEntry(std::string_view& packed, PackedEntry& entry) {
    if (packed.empty()) return false;
    const Kind kind = static_cast<Kind>(packed.front());
    packed.remove_prefix(1);
    entry.name = takeText(packed);
    entry.isNumber = kind != Kind::text;
    if (entry.isNumber) {
        entry.number = numberOf(kind, takeRaw<int64_t>(packed));
    } else {
        entry.text = takeText(packed);
    }
    return true;
}

std::string pack(const NSDictionary& dictionary) {
    std::string packed;
    for (const auto& [name, value] : dictionary.entries()) {
        if (const NSString* text = std::get_if<NSString>(&value)) {
            packEntry(packed, name, *text);
        } else {
            packEntry(packed, name, std::get<NSNumber>(value));
        }
    }
    packed.shrink_to_fit();
    return packed;
}

NSDictionary unpack(std::string_view packed) {
    constexpr size_t kUsualEntries = 7;  // a schedule's
    NSDictionary dictionary = NSDictionary::dictionaryWithCapacity(kUsualEntries);
    PackedEntry entry;
    while (takeEntry(packed, entry)) {
        if (entry.isNumber) {
            dictionary.setObject(entry.number, entry.name);
        } else {
            dictionary.setObject(NSString(entry.text), entry.name);
        }
    }
    return dictionary;
}

const Slot* Values::find(std::string_view key) const {
    const auto found = slots_.find(key);
    return found == slots_.end() ? nullptr : &found->second;
}

Slot& Values::slot(std::string_view key) {
    if (Slot* known = find(key)) return *known;
    return newSlot(key);
}

Slot& Values::newSlot(std::string_view key) {
    const auto [place, isNew] = slots_.try_emplace(std::string(key));
    place->second.key = &place->first;
    return place->second;
}

NSUserDefaults::Value Values::get(std::string_view key) const {
    const Slot* slot = find(key);
    if (slot == nullptr) return std::monostate{};
    switch (slot->kind) {
        case Kind::text:
            return slot->bytes;
        case Kind::integer:
        case Kind::boolean:
            return numberOf(slot->kind, slot->number);
        case Kind::dictionary:
            return unpack(slot->bytes);
        case Kind::array:
            return slot->array->texts();
        default:
            return std::monostate{};
    }
}

std::vector<NSString> Values::keys() const {
    std::vector<NSString> keys;
    for (const auto& [key, slot] : slots_) {
        if (slot.kind != Kind::none) keys.push_back(key);
    }
    return keys;
}

void Values::markDirty(Slot& slot, bool rewrite) noexcept {
    slot.rewrite = slot.rewrite || rewrite;
    if (slot.dirty) return;
    slot.dirty = true;
    slot.nextDirty = dirty_;
    dirty_ = &slot;
}

void Values::replace(Slot& slot, Kind kind, std::string bytes, int64_t number) noexcept {
    slot.kind = kind;
    slot.bytes = std::move(bytes);
    slot.number = number;
    slot.array.reset();
    markDirty(slot, true);
}

void Values::setText(std::string_view key, NSString text) {
    replace(slot(key), Kind::text, std::move(text), 0);
}

void Values::setNumber(std::string_view key, NSNumber number) {
    replace(slot(key), kindOf(number), {}, number.longLongValue());
}

void Values::setDictionary(std::string_view key, const NSDictionary& dictionary) {
    std::string packed = pack(dictionary);
    replace(slot(key), Kind::dictionary, std::move(packed), 0);
}

void Values::setArray(std::string_view key, NSMutableArrayBody& array) {
    Slot& target = slot(key);
    if (target.kind == Kind::array) {
        target.array->assign(array);
        markDirty(target, false);
        return;
    }
    auto fresh = std::make_unique<StoredArray>();
    fresh->assign(array);
    replace(target, Kind::array, {}, 0);
    target.array = std::move(fresh);
}

void Values::removeUnseen(std::string_view key) {
    replace(slot(key), Kind::none, {}, 0);
}

void Values::remove(std::string_view key) noexcept {
    Slot* known = find(key);
    if (known != nullptr && known->kind != Kind::none) replace(*known, Kind::none, {}, 0);
}

uint8_t tablesOf(const Slot& slot) {
    const bool isEmpty = slot.kind == Kind::array ? slot.array->members().head == nullptr : slot.bytes.empty();
    switch (slot.kind) {
        case Kind::none:
            return 0;
        case Kind::dictionary:
            return isEmpty ? kScalars : kEntries;
        case Kind::array:
            return isEmpty ? kScalars : kMembers;
        default:
            return kScalars;
    }
}

void Values::forgetDirty() noexcept {
    while (Slot* slot = dirty_) {
        dirty_ = slot->nextDirty;
        slot->nextDirty = nullptr;
        slot->dirty = slot->rewrite = false;
        slot->tables = tablesOf(*slot);
        if (slot->array != nullptr) slot->array->forgetPending();
        if (slot->kind == Kind::none) slots_.erase(slots_.find(*slot->key));
    }
}

void Values::forgetStore() noexcept {
    for (auto& [key, slot] : slots_) {
        slot.tables = 0;
        if (slot.array != nullptr) slot.array->forgetRows();
        markDirty(slot, true);
    }
}

void Values::merge(Values&& found) {
    if (slots_.empty()) {  // keys and slots stay where they are, so what points to them stays right
        slots_ = std::move(found.slots_);
        return;
    }
    slots_.reserve(slots_.size() + found.slots_.size());
    for (auto place = found.slots_.begin(); place != found.slots_.end();) {
        const auto here = place++;
        Slot* known = find(here->first);
        if (known == nullptr) {
            const auto inserted = slots_.insert(found.slots_.extract(here));
            inserted.position->second.key = &inserted.position->first;
            continue;
        }
        known->tables = static_cast<uint8_t>(known->tables | here->second.tables);
        if (known->kind == Kind::array && here->second.kind == Kind::array) {
            known->array->mergeOlder(*here->second.array);
        }
        markDirty(*known, true);
    }
}

}  // namespace defaults
