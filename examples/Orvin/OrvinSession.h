// A main application's talk with the helper: a list of commands, done one after the other, each told on standard
// output.
//
//     find                                   wait until the helper is there, at most 10 s
//     test                                   is the helper there?
//     introduce                              does it know this application?
//     add NAME WHEN [daily] [weekly MASK]    WHEN is +SECONDS from now or seconds since 1970; MASK has Sunday in bit 0
//     add-many COUNT PREFIX WHEN             PREFIX1, PREFIX2, ... without waiting in between
//     delete NAME
//     delete-all
//     ask                                    does the helper hold any schedule?
//     shutdown                               end the helper
//     wait SECONDS
//
// Everything after the start happens on the main queue, where replies arrive; the transport's other events are passed
// on to it. The process ends by platform_exit, with 0 when every command did what it should, 1 otherwise.
#pragma once

#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "xpc/LXPCClient.h"

class OrvinSession : public LXPCEventNotify {
  public:
    /// `bundlePath` is this application's own bundle.
    OrvinSession(std::string bundlePath, std::deque<std::string> words);

    /// Has the commands run on the main queue, which the caller then serves. The first that has something to say to the
    /// helper connects to it.
    void Start();

    void EvConnectionError(long connection, LXPCErrorType error) override;
    void EvMessageReceived(long connection, long message, const LList<LXPCDataListable>& items) override;
    void EvReplyReceived(long connection, const LList<LXPCDataListable>& items) override;
    void EvMessageSent(long connection) override;

  private:
    /// What the current command waits for.
    enum class Expected { Nothing, Reply, Sent, End };

    void Next();
    void Perform(const std::string& command);
    void Add();
    void AddMany();
    void AddOne(const std::string& name, long when, const std::vector<LXPCData>& repetition);
    void Await(Expected expected, unsigned count, double seconds, const char* otherwise);
    void Happened(Expected event);
    void TryAgain();
    void Send(std::vector<LXPCData> items, bool wantReply);
    std::string Word();
    long Number();
    long Moment();
    [[noreturn]] void Fail(const std::string& why);

    LXPCClient client_;
    std::string bundlePath_;
    std::deque<std::string> words_;
    bool connected_ = false;
    unsigned long connection_ = 0;  // identifier of the connection in use; a lost one is not used again
    Expected expected_ = Expected::Nothing;
    unsigned outstanding_ = 0;  // events that the current command still waits for
    unsigned step_ = 0;         // of which command a time limit is
    bool finding_ = false;      // the current command tries again when nobody is there
    bool trying_ = false;       // and is about to
};

/// Runs `work` on the main queue once `seconds` have passed.
void AfterSeconds(double seconds, std::function<void()> work);
