// The conversation with the helper: requests go out, and the caller waits for what comes back.
//
// Replies arrive on the main queue, so the main thread has to serve it (dispatch_main) while another thread uses this.
#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include "tools/schedulectl/World.h"
#include "xpc/LXPCClient.h"

namespace schedulectl {

/// One request, built item by item in the vocabulary of app/LRequestKeys.h. Owns its texts.
class Request {
  public:
    Request& Text(const char* key, const std::string& value);
    Request& Flag(const char* key, bool value = true);
    Request& Date(const char* key, Moment value);
    Request& Number(const char* key, unsigned value);
    /// The items as the transport takes them; their texts are this object's.
    [[nodiscard]] std::vector<LXPCData> Items() const;

  private:
    struct Item {
        const char* key;
        LXPCDataType type;
        long number;
        std::string text;
    };
    std::vector<Item> items_;
};

/// How long to wait for an answer; a helper that is alive answers in well under a millisecond.
constexpr std::chrono::milliseconds answerTime{5000};
/// How long to wait for the answer behind a write: thousands of schedules may have to reach a slow disk.
constexpr std::chrono::milliseconds writeTime{60000};

/// One connection to the helper's service.
class Service : private LXPCEventNotify {
  public:
    Service();
    ~Service();
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    enum class Answer { yes, no, silence, gone };

    /// Sends without waiting.
    void Send(const Request& request);
    /// Sends and waits for `replyKey`: its boolean, silence after `answerTime`, or gone when the connection ended.
    Answer Ask(const Request& request, const char* replyKey);
    /// The connection test. Whatever was sent before it on this connection has been acted upon when it is answered.
    Answer Test(std::chrono::milliseconds patience = answerTime);
    /// As Ask, for a question to which the helper's no is silence: asks the test after it and takes its answer for no.
    Answer AskOrSilence(const Request& request, const char* replyKey);
    /// Waits until the other side has gone; false after `answerTime`.
    bool WaitUntilGone();

  private:
    void EvConnectionError(long connection, LXPCErrorType error) override;
    void EvMessageReceived(long connection, long message, const LList<LXPCDataListable>& items) override;
    void EvReplyReceived(long connection, const LList<LXPCDataListable>& items) override;
    void EvMessageSent(long connection) override;
    void SendItems(const Request& request, bool wantReply);
    Answer Await(const char* replyKey, std::chrono::milliseconds patience);

    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::pair<std::string, bool>> replies_;
    bool gone_ = false;
    LXPCClient client_;
};

/// What is the matter when the service does not answer: down, without service, or not for this user. Throws Failure.
[[noreturn]] void ThrowNoService(const World& world);

}  // namespace schedulectl
