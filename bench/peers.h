// The peers of the helper's transport: a raw Unix stream, and sd-bus, each with a server in a process of its own.
//
// All carry the same: a request of six entries that is answered with one boolean, and one that is not answered and
// changes nothing. The raw stream carries as many bytes as our frames have, and looks at none but the length.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "bench/support.h"

struct sd_bus;
struct sd_bus_message;

constexpr size_t kQuestionBytes = 312;  // of our frames on the wire: six entries
constexpr size_t kAnswerBytes = 80;     // one boolean
constexpr size_t kNoticeBytes = 56;     // one moment

/// A stream whose other end is served by an epoll loop.
class RawPeer {
  public:
    RawPeer();
    void Ask();
    void Tell();

  private:
    StreamPair pair_;
    Child server_;
};

/// sd-bus, from peer to peer over a stream, or through a daemon of its own.
class BusPeer {
  public:
    enum class Way { Direct, Daemon };
    explicit BusPeer(Way way);
    ~BusPeer();
    BusPeer(const BusPeer&) = delete;
    BusPeer& operator=(const BusPeer&) = delete;
    void Ask();
    void Tell();

  private:
    sd_bus_message* NewCall(const char* member);
    StreamPair pair_;
    std::unique_ptr<Child> daemon_;
    std::unique_ptr<Child> server_;
    sd_bus* bus_ = nullptr;
};

/// The six entries as a dictionary of variants.
void AppendQuestion(sd_bus_message* message);
/// Compares every entry's key with the thirteen; returns a sum of what was read.
uint64_t ReadQuestion(sd_bus_message* message);

/// The servers' side, in the child: "raw", "bus", or "bus:ADDRESS". Ends with the other side.
int ServePeer(const std::string& role);
