// A sink of the transport's events that threads write and tests wait on.
#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "xpc/LXPCBase.h"

/// Writes down what it is told, one line per event: "message A=1 C=3", "reply R=1", "sent", "error 2", "refused".
class Sink : public LXPCServerEventNotify {
  public:
    void EvConnectionError(long connection, LXPCErrorType error) override {
        if (onError) onError(connection);
        Note("error " + std::to_string(error));
    }
    void EvMessageReceived(long connection, long message, const LList<LXPCDataListable>& items) override {
        if (onMessage) onMessage(connection, message);
        Note("message" + Text(items));
    }
    void EvReplyReceived(long /*connection*/, const LList<LXPCDataListable>& items) override {
        if (onReply) onReply();
        Note("reply" + Text(items));
    }
    void EvMessageSent(long /*connection*/) override { Note("sent"); }
    void EvInvalidConnectionAttempt() override { Note("refused"); }

    std::vector<std::string> Events() {
        const std::lock_guard lock(mutex_);
        return events_;
    }
    /// True once there are `count` events equal to `event`.
    bool Await(const std::string& event, long count = 1) {
        std::unique_lock lock(mutex_);
        return arrived_.wait_for(lock, kPatience, [&] { return std::ranges::count(events_, event) >= count; });
    }
    /// What came before `last` came, which is forgotten with it; "silence" when it does not come.
    std::string Until(const std::string& last) {
        if (!Await(last)) return "silence";
        const std::lock_guard lock(mutex_);
        const auto end = std::ranges::find(events_, last);
        std::string text;
        for (auto event = events_.begin(); event != end; ++event) text += *event;
        events_.erase(events_.begin(), end + 1);
        return text;
    }

    std::function<void(long connection)> onError;
    std::function<void(long connection, long message)> onMessage;
    std::function<void()> onReply;

  private:
    static constexpr std::chrono::seconds kPatience{20};

    static std::string Text(const LList<LXPCDataListable>& items) {
        std::string text;
        for (const LXPCDataListable& item : items)
            text += std::string(" ") + item.name + "=" + std::to_string(item.value);
        return text;
    }
    void Note(std::string event) {
        const std::lock_guard lock(mutex_);
        events_.push_back(std::move(event));
        arrived_.notify_all();
    }

    std::mutex mutex_;
    std::condition_variable arrived_;
    std::vector<std::string> events_;
};
