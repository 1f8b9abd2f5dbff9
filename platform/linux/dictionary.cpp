#include <Foundation/Foundation.h>

#include <algorithm>

NSDictionary NSDictionary::dictionaryWithCapacity(size_t count) {
    NSDictionary dictionary;
    dictionary.entries_.reserve(count);
    return dictionary;
}

void NSDictionary::setObject(Value value, std::string_view key) {
    for (Entry& entry : entries_) {
        if (entry.first == key) {
            entry.second = std::move(value);
            return;
        }
    }
    entries_.emplace_back(NSString(key), std::move(value));
}

const NSDictionary::Value* NSDictionary::objectForKey(std::string_view key) const {
    const auto found =
        std::find_if(entries_.begin(), entries_.end(), [key](const Entry& entry) { return entry.first == key; });
    return found == entries_.end() ? nullptr : &found->second;
}

const NSString* NSDictionary::stringForKey(std::string_view key) const {
    const Value* value = objectForKey(key);
    return value == nullptr ? nullptr : std::get_if<NSString>(value);
}

std::optional<NSNumber> NSDictionary::numberForKey(std::string_view key) const {
    const Value* value = objectForKey(key);
    const NSNumber* number = value == nullptr ? nullptr : std::get_if<NSNumber>(value);
    return number == nullptr ? std::nullopt : std::optional<NSNumber>(*number);
}
