// The receiving half of a stream: from the socket to the connection's queue.
//
// Each function of the io thread's that can meet the end of the connection returns false when it did, and then nothing
// of the link is left.
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <new>

#include "platform/linux/wire_reader.h"
#include "platform/linux/xpc_stream.h"

namespace transport {

namespace {

constexpr size_t readBytes = 64 * 1024;

/// What counts as many messages at once, and how many reads without go by until that is over.
constexpr int manyFrames = 4;
constexpr int quietReads = 16;

/// One for each thread that may be reading, not for each connection: what is read is used up, or kept with its
/// connection, before the next read. They need neither memory at the first read nor a destructor, which those threads
/// would outlive.
using ReadBuffer = unsigned char[readBytes];
alignas(64) ReadBuffer ioBuffer;
alignas(64) ReadBuffer workersBuffer;
alignas(64) ReadBuffer mainQueueBuffer;

}  // namespace

/// One read on the lookout's thread. Where it might leave the socket readable, or the next step is not to read on, the
/// io thread goes on from here.
void Stream::glance() noexcept {
    const Input input = takeInput(accepted_ ? workersBuffer : mainQueueBuffer);
    if (input == Input::Used && !framesLeft_ && !streaming_ && !isOverfull()) return forgetUsed();
    unwatch();
    if (input != Input::Broken) return poke();
    const std::lock_guard lock(mutex_);
    condemn();
}

/// One read. A socket that has more shows up again in the next turn, after the others.
bool Stream::readOnce() noexcept {
    if (takeInput(ioBuffer) != Input::Broken) return finishReading();
    end(End::Invalid);
    return false;
}

/// Reads once and uses up what comes. Broken when the link cannot go on after it; MoreToDo at the end of the data, and
/// when there may be more to read: the buffer was full, or descriptors came, at which a read ends.
Stream::Input Stream::takeInput(unsigned char* buffer) noexcept {
    alignas(cmsghdr) unsigned char control[CMSG_SPACE(sizeof(int) * wire::maxDescriptors)];
    iovec into{buffer, readBytes};
    msghdr message{};
    message.msg_iov = &into;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    ssize_t count = 0;
    do {
        count = recvmsg(socket_.get(), &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
    } while (count < 0 && errno == EINTR);
    if (count < 0 && errno == EAGAIN) return Input::Used;
    if (count <= 0) {
        // A reset is how a peer that left unread data behind ends; what it sent was read before.
        endOfData_ = true;
        return Input::MoreToDo;
    }
    const bool whole = takeDescriptors(message);
    if (!whole) closeDescriptors();  // frames that want none are still good, the first that wants one is not
    if (!consume(buffer, static_cast<size_t>(count)) || !whole) return Input::Broken;
    return count == readBytes || message.msg_controllen > 0 ? Input::MoreToDo : Input::Used;
}

/// Takes every descriptor that came, so that each has an owner, before it judges them. False when some were lost for
/// want of room, here or in the process, or when there are more than frames can claim.
bool Stream::takeDescriptors(const msghdr& message) noexcept {
    bool fits = (message.msg_flags & MSG_CTRUNC) == 0;
    for (cmsghdr* header = CMSG_FIRSTHDR(&message); header != nullptr;
         header = CMSG_NXTHDR(const_cast<msghdr*>(&message), header)) {
        if (header->cmsg_level != SOL_SOCKET || header->cmsg_type != SCM_RIGHTS) continue;
        const size_t count = (header->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        for (size_t i = 0; i < count; ++i) {
            int received = -1;
            std::memcpy(&received, CMSG_DATA(header) + i * sizeof(int), sizeof received);
            if (descriptorCount_ < descriptors_.size()) {
                descriptors_[descriptorCount_++] = received;
            } else {
                ::close(received);
                fits = false;
            }
        }
    }
    return fits;
}

/// Uses up what was read: whole frames are posted, the rest is kept.
bool Stream::consume(const unsigned char* bytes, size_t count) noexcept {
    size_t used = 0;
    if (kept_.empty()) {
        return cutFrames(bytes, count, &used) && keep(bytes + used, count - used);
    }
    if (!keep(bytes, count) || !cutFrames(kept_.data(), kept_.size(), &used)) return false;
    keptUsed_ = used;
    return true;
}

/// Goes on with what an earlier turn, or a glance, left: frames, as far as the handler's backlog allows, or the end.
bool Stream::consumeKept() noexcept {
    if (!framesLeft_) return finishReading();
    size_t used = 0;
    if (!cutFrames(kept_.data() + keptUsed_, kept_.size() - keptUsed_, &used)) {
        end(End::Invalid);
        return false;
    }
    keptUsed_ += used;
    return finishReading();
}

bool Stream::keep(const unsigned char* bytes, size_t count) noexcept {
    if (count == 0) return true;
    try {
        kept_.insert(kept_.end(), bytes, bytes + count);
        return true;
    } catch (const std::bad_alloc&) {
        return false;  // a lost connection is noticed, a lost request is not
    }
}

/// Posts the whole frames at the front of `bytes`, up to the limits of a turn and of the backlog. False when one is
/// malformed.
bool Stream::cutFrames(const unsigned char* bytes, size_t count, size_t* used) noexcept {
    size_t at = 0;
    framesLeft_ = false;
    int frames = 0;
    for (;; ++frames) {
        size_t length = 0;
        const wire::Verdict verdict = wire::measure(bytes + at, count - at, &length);
        if (verdict == wire::Verdict::Malformed) return false;
        if (verdict == wire::Verdict::Incomplete) break;
        framesLeft_ = frames == framesPerTurn || isOverfull();
        if (framesLeft_) break;
        if (!takeFrame(bytes + at, length)) return false;
        at += length;
    }
    *used = at;
    noteFlow(frames);
    // Descriptors come with the first byte of their frame: none may be left when no frame has begun.
    return framesLeft_ || descriptorCount_ <= (at == count ? 0 : wire::maxDescriptors);
}

/// Requests that wait for their answers come one by one. Where they do not, reading is better done beside the handling,
/// by the io thread.
void Stream::noteFlow(int frames) noexcept {
    if (frames >= manyFrames) {
        streaming_ = true;
        quietReads_ = 0;
    } else if (streaming_ && ++quietReads_ == quietReads) {
        streaming_ = false;
    }
}

bool Stream::takeFrame(const unsigned char* frame, size_t length) noexcept {
    if (!wire::check(frame, length)) return false;
    const auto header = wire::load<wire::FrameHeader>(frame);
    if (header.descriptors > descriptorCount_) return false;
    Dictionary* message =
        Dictionary::receive(frame, length, descriptors_.data(), Ref<_xpc_connection_s>::share(this), session_);
    if (message == nullptr) return false;
    descriptorCount_ -= header.descriptors;
    std::memmove(descriptors_.data(), descriptors_.data() + header.descriptors, descriptorCount_ * sizeof(int));
    deliver(message);
    return true;
}

/// An answer that nobody waits for is dropped: its asker may have been told of an interruption meanwhile.
void Stream::deliver(Dictionary* message) noexcept {
    undelivered_ += message->receivedWeight();
    undeliveredBytes_ += message->receivedBytes();
    if (message->kind() != wire::Kind::Reply) {
        message->Job::run = runMessage;
        queue_.post(message);
        return;
    }
    PendingReply* reply = nullptr;
    {
        const std::lock_guard lock(mutex_);
        reply = pending_.take(message->id());
    }
    if (reply != nullptr) {
        reply->finish(static_cast<Object*>(message));
        return;
    }
    delivered(*message);
    message->release();
}

/// After each look at the data: forgets what is used up, and ends the link when there is nothing more to come.
bool Stream::finishReading() noexcept {
    forgetUsed();
    if (framesLeft_ || !endOfData_) return true;
    end(End::PeerGone);
    return false;
}

void Stream::forgetUsed() noexcept {
    if (keptUsed_ == 0) return;
    if (!framesLeft_) kept_.erase(kept_.begin(), kept_.begin() + static_cast<std::ptrdiff_t>(keptUsed_));
    if (!framesLeft_) keptUsed_ = 0;
    if (kept_.empty()) std::vector<unsigned char>().swap(kept_);
}

bool Stream::isOverfull() const {
    return undelivered_ > maxUndeliveredEvents || undeliveredBytes_ > maxUndeliveredBytes;
}

void Stream::closeDescriptors() noexcept {
    while (descriptorCount_ > 0) ::close(descriptors_[--descriptorCount_]);
}

void Stream::dropInput() noexcept {
    closeDescriptors();
    std::vector<unsigned char>().swap(kept_);
    keptUsed_ = 0;
    framesLeft_ = false;
    endOfData_ = false;
}

}  // namespace transport
