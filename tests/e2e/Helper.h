// Real processes for the end-to-end tests: the helper, the main application, and a client that waits for its answers.
#pragma once

#include <sys/types.h>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "xpc/LXPCClient.h"

/// A process that is ended and awaited at the latest with this object.
class Process {
  public:
    explicit Process(const std::vector<std::string>& words);
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    void Send(int signal) const;
    /// Its exit status; minus the signal that ended it; 1000 when it did not end within `seconds`.
    int Status(double seconds = 30);
    /// True while no thread of it runs or is about to.
    [[nodiscard]] bool Sleeps() const;
    [[nodiscard]] pid_t pid() const { return pid_; }

  private:
    pid_t pid_ = 0;
    bool ended_ = false;
};

/// A main application's side of the service, one request at a time.
class Client : public LXPCEventNotify {
  public:
    Client();

    /// Sends `items` and waits: "KEY=1" for the reply, "gone" when the connection ends instead, "silence".
    std::string Ask(const std::vector<LXPCData>& items);
    /// Sends without waiting.
    void Tell(const std::vector<LXPCData>& items);
    /// Connects anew until the helper gives a sign of life. Before anything else.
    bool Find();

    void EvConnectionError(long connection, LXPCErrorType error) override;
    void EvMessageReceived(long, long, const LList<LXPCDataListable>&) override {}
    void EvReplyReceived(long connection, const LList<LXPCDataListable>& items) override;
    void EvMessageSent(long) override {}

  private:
    void Heard(const std::string& answer);

    std::mutex mutex_;
    std::condition_variable heard_;
    std::string answer_;
    std::unique_ptr<LXPCClient> client_;
};

/// Waits until `condition` holds, a minute at most; whether it does.
template <typename Condition>
bool Eventually(Condition condition);

// ---- Vocabulary

LXPCData Text(const char* key, const std::string& text);
LXPCData Flag(const char* key);
/// `request` with the two texts that name the main application at `bundle`.
std::vector<LXPCData> Of(const std::string& bundle, std::vector<LXPCData> request);

/// The schedules on disk, "name" for each in the order of the index; those without a record as "-".
std::string Stored();

void PauseBriefly();

template <typename Condition>
bool Eventually(Condition condition) {
    for (int i = 0; i < 6000; ++i) {
        if (condition()) return true;
        PauseBriefly();
    }
    return false;
}
