#include "scheduler/LScheduleKeys.h"

#include <utility>

const std::string* LScheduleKeys::Append(std::string key) {
    const auto [place, isNew] = sorted_.insert(std::move(key));
    if (!isNew) return nullptr;
    try {
        array_->addObject(*place);
    } catch (...) {
        sorted_.erase(place);
        throw;
    }
    return &*place;
}

void LScheduleKeys::Remove(std::string_view key) noexcept {
    const auto place = sorted_.find(key);
    if (place == sorted_.end()) return;
    array_->removeObject(key);
    if (unlisted_ == &*place) unlisted_ = nullptr;
    sorted_.erase(place);
}

void LScheduleKeys::MoveToEnd(const std::string& key) {
    array_->removeObject(key);
    unlisted_ = &*sorted_.find(key);
    Repair();
}

void LScheduleKeys::Repair() {
    if (unlisted_ == nullptr) return;
    array_->addObject(*unlisted_);
    unlisted_ = nullptr;
}

const std::string* LScheduleKeys::FirstWithPrefix(std::string_view prefix) const {
    const auto place = sorted_.lower_bound(prefix);
    return place != sorted_.end() && place->starts_with(prefix) ? &*place : nullptr;
}

void LScheduleKeys::Swap(LScheduleKeys& other) noexcept {
    array_.swap(other.array_);
    sorted_.swap(other.sorted_);
    std::swap(unlisted_, other.unlisted_);
}
