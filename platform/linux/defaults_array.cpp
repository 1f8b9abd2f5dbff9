#include <algorithm>
#include <atomic>

#include "defaults_values.h"

namespace defaults {

namespace {

uint64_t nextIdentity() {
    static std::atomic<uint64_t> last{0};
    return last.fetch_add(1) + 1;
}

// Copies of an array's members, linked by nextInBucket; for an array whose own members serve another value.
class Copies {
  public:
    Copies() = default;
    void take(const NSMutableArrayBody& array) {
        ArrayMember** link = &head_;
        for (const ArrayMember* member = array.order.head; member != nullptr; member = member->next) {
            *link = ArrayMember::create(member->text());
            link = &(*link)->nextInBucket;
        }
    }
    ~Copies() {
        while (ArrayMember* member = head_) {
            head_ = member->nextInBucket;
            member->release();
        }
    }
    Copies(const Copies&) = delete;
    Copies& operator=(const Copies&) = delete;
    [[nodiscard]] ArrayMember* head() const { return head_; }

  private:
    ArrayMember* head_ = nullptr;
};

bool servesAnotherValue(const NSMutableArrayBody& array) {
    for (const ArrayMember* member = array.order.head; member != nullptr; member = member->next) {
        if (member->inStore || member->pending) return true;
    }
    return false;
}

}  // namespace

StoredArray::StoredArray() : identity_(nextIdentity()) {}

StoredArray::~StoredArray() {
    forgetPending();
    while (ArrayMember* member = members_.head) {
        members_.unlink(member);
        member->inStore = member->mayHaveRow = false;
        member->position = 0;
        member->release();
    }
}

void StoredArray::owe(ArrayMember* member) {
    if (member->pending) return;
    member->pending = true;
    member->retain();
    member->nextPending = pending_;
    pending_ = member;
}

void StoredArray::append(ArrayMember* member) {
    if (member->position == 0) {
        member->position = lastPosition_ + 1;
        owe(member);
    }
    if (member->position > lastPosition_) lastPosition_ = member->position;
    member->inStore = true;
    members_.append(member);
}

void StoredArray::remove(ArrayMember* member) {
    members_.unlink(member);
    member->inStore = false;
    if (member->mayHaveRow) owe(member);
    member->release();
}

void StoredArray::assign(NSMutableArrayBody& array) {
    if (array.binding == identity_) {
        applyLog(array);
    } else if (servesAnotherValue(array)) {
        Copies copies;
        copies.take(array);
        takeOver(copies.head(), &ArrayMember::nextInBucket);
    } else {
        array.forgetChanges();
        takeOver(array.order.head, &ArrayMember::next);
        array.binding = identity_;
    }
}

void StoredArray::applyLog(NSMutableArrayBody& array) {
    for (ArrayMember* member = array.changes.head; member != nullptr; member = member->nextChanged) {
        if (member->change == ArrayMember::Change::added) {
            member->retain();
            append(member);
        } else if (member->inStore) {
            remove(member);
        }
    }
    array.forgetChanges();
}

// Walks both sequences side by side. A stored member that the new sequence does not have next is dropped; one that it
// has is replaced by the new member, which takes over its row; what is left of the new sequence is appended.
void StoredArray::takeOver(ArrayMember* first, ArrayMember* ArrayMember::*next) {
    identity_ = nextIdentity();  // whichever array was the last one here no longer is
    ArrayMember* stored = members_.head;
    members_ = {};
    const auto dropUntil = [this, &stored](const ArrayMember* wanted) {
        while (stored != nullptr && (wanted == nullptr || stored->text() != wanted->text())) {
            ArrayMember* dropped = stored;
            stored = stored->nextInStore;
            dropped->inStore = false;
            if (dropped->mayHaveRow) owe(dropped);
            dropped->release();
        }
    };
    for (ArrayMember* member = first; member != nullptr; member = member->*next) {
        member->retain();
        dropUntil(member);
        if (stored != nullptr) {
            ArrayMember* replaced = stored;
            stored = stored->nextInStore;
            member->position = replaced->position;
            member->mayHaveRow = replaced->mayHaveRow;
            if (replaced->pending) owe(member);
            replaced->inStore = replaced->mayHaveRow = false;
            if (!replaced->pending) replaced->position = 0;
            replaced->release();
        }
        append(member);
    }
    dropUntil(nullptr);
}

void StoredArray::mergeOlder(StoredArray& older) {
    NSMutableArrayBody known;
    for (const ArrayMember* member = members_.head; member != nullptr; member = member->nextInStore) {
        known.add(member->text());
    }
    Members newer = members_;
    members_ = {};
    lastPosition_ = 0;
    while (ArrayMember* member = older.members_.head) {
        older.members_.unlink(member);
        member->inStore = false;
        if (known.find(member->text()) != nullptr) {
            if (member->mayHaveRow) owe(member);
            lastPosition_ = std::max(lastPosition_, member->position);
            member->release();
        } else {
            append(member);
        }
    }
    for (ArrayMember* member = newer.head; member != nullptr;) {
        ArrayMember* following = member->nextInStore;
        member->position = 0;
        append(member);
        member = following;
    }
}

NSUserDefaults::Array StoredArray::texts() const {
    size_t count = 0;
    for (const ArrayMember* member = members_.head; member != nullptr; member = member->nextInStore) ++count;
    NSUserDefaults::Array texts;
    texts.reserve(count);
    for (const ArrayMember* member = members_.head; member != nullptr; member = member->nextInStore) {
        texts.emplace_back(member->text());
    }
    return texts;
}

void StoredArray::forgetPending() {
    while (ArrayMember* member = pending_) {
        pending_ = member->nextPending;
        member->nextPending = nullptr;
        member->pending = false;
        if (!member->inStore) {
            member->mayHaveRow = false;
            member->position = 0;
        }
        member->release();
    }
}

void StoredArray::forgetRows() {
    forgetPending();
    for (ArrayMember* member = members_.head; member != nullptr; member = member->nextInStore) {
        member->mayHaveRow = false;
        owe(member);
    }
}

}  // namespace defaults
