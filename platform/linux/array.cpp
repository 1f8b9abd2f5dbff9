#include <cstring>
#include <functional>
#include <new>

#include "array_members.h"

namespace {

uint32_t hashOf(std::string_view text) {
    return static_cast<uint32_t>(std::hash<std::string_view>{}(text));
}

}  // namespace

ArrayMember* ArrayMember::create(std::string_view text) {
    void* block = ::operator new(sizeof(ArrayMember) + text.size());
    auto* member = new (block) ArrayMember;
    member->length = static_cast<uint32_t>(text.size());
    member->hash = hashOf(text);
    if (!text.empty()) std::memcpy(static_cast<void*>(member + 1), text.data(), text.size());
    return member;
}

void ArrayMember::release() {
    if (references.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    this->~ArrayMember();
    ::operator delete(static_cast<void*>(this));
}

NSMutableArrayBody::~NSMutableArrayBody() {
    removeAll();
    forgetChanges();
}

// Grows the index ahead of need, so that linking a member cannot fail.
void NSMutableArrayBody::reserveOneMore() {
    if (count < buckets_.size()) return;
    std::vector<ArrayMember*> larger(buckets_.empty() ? 16 : buckets_.size() * 2);
    buckets_.swap(larger);
    for (ArrayMember* member = order.head; member != nullptr; member = member->next) {
        ArrayMember*& bucket = bucketOf(member->hash);
        member->nextInBucket = bucket;
        bucket = member;
    }
}

void NSMutableArrayBody::log(ArrayMember* member, ArrayMember::Change change) noexcept {
    member->change = change;
    member->retain();
    changes.append(member);
}

void NSMutableArrayBody::add(std::string_view text) {
    reserveOneMore();
    ArrayMember* member = ArrayMember::create(text);
    ArrayMember*& bucket = bucketOf(member->hash);
    member->nextInBucket = bucket;
    bucket = member;
    order.append(member);
    ++count;
    if (binding != 0) log(member, ArrayMember::Change::added);
}

void NSMutableArrayBody::remove(ArrayMember* member) noexcept {
    ArrayMember** link = &bucketOf(member->hash);
    while (*link != member) link = &(*link)->nextInBucket;
    *link = member->nextInBucket;
    order.unlink(member);
    --count;
    if (member->change == ArrayMember::Change::added) {  // the store has never seen it
        member->change = ArrayMember::Change::none;
        changes.unlink(member);
        member->release();
    } else if (binding != 0) {
        log(member, ArrayMember::Change::removed);
    }
    member->release();
}

void NSMutableArrayBody::removeAll() noexcept {
    while (order.head != nullptr) remove(order.head);
}

ArrayMember* NSMutableArrayBody::find(std::string_view text) const {
    if (buckets_.empty()) return nullptr;
    const uint32_t hash = hashOf(text);
    ArrayMember* member = buckets_[hash & (buckets_.size() - 1)];
    while (member != nullptr && (member->hash != hash || member->text() != text)) member = member->nextInBucket;
    return member;
}

void NSMutableArrayBody::forgetChanges() noexcept {
    while (ArrayMember* member = changes.head) {
        changes.unlink(member);
        member->change = ArrayMember::Change::none;
        member->release();
    }
}

NSMutableArray::NSMutableArray() : body_(std::make_unique<NSMutableArrayBody>()) {}
NSMutableArray::~NSMutableArray() = default;

size_t NSMutableArray::count() const {
    return body_->count;
}

bool NSMutableArray::containsObject(std::string_view text) const {
    return body_->find(text) != nullptr;
}

void NSMutableArray::addObject(std::string_view text) {
    body_->add(text);
}

void NSMutableArray::removeObject(std::string_view text) {
    while (ArrayMember* member = body_->find(text)) body_->remove(member);
}

void NSMutableArray::removeAllObjects() {
    body_->removeAll();
}

std::vector<NSString> NSMutableArray::allObjects() const {
    std::vector<NSString> texts;
    texts.reserve(body_->count);
    for (const ArrayMember* member = body_->order.head; member != nullptr; member = member->next) {
        texts.emplace_back(member->text());
    }
    return texts;
}
