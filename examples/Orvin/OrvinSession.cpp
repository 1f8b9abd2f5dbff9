#include "examples/Orvin/OrvinSession.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <utility>

#include <dispatch/dispatch.h>
#include <platform_ending.h>

#include "app/LRequestKeys.h"

namespace {

constexpr double kPatience = 10;  // seconds that the helper has for an answer

LXPCData Text(const char* key, const std::string& text) {
    return {key, LXPCDataTypeString, LXPCAddress(text.c_str())};
}

LXPCData Flag(const char* key) {
    return {key, LXPCDataTypeBool, 1};
}

void Say(const std::string& line) {
    std::printf("Orvin: %s\n", line.c_str());
    std::fflush(stdout);
}

}  // namespace

void AfterSeconds(double seconds, std::function<void()> work) {
    const dispatch_source_t timer = dispatch_source_create(DISPATCH_SOURCE_TYPE_TIMER, 0, 0, dispatch_get_main_queue());
    const auto start = dispatch_time(DISPATCH_TIME_NOW, static_cast<int64_t>(seconds * 1e9));
    dispatch_source_set_timer(timer, start, DISPATCH_TIME_FOREVER, 0);
    dispatch_source_set_event_handler(timer, [timer, work = std::move(work)] {
        dispatch_source_cancel(timer);
        work();
        dispatch_release(timer);
    });
    dispatch_resume(timer);
}

OrvinSession::OrvinSession(std::string bundlePath, std::deque<std::string> words)
    : client_(this), bundlePath_(std::move(bundlePath)), words_(std::move(words)) {}

void OrvinSession::Start() {
    for (const char* key : kReplyKeys) client_.AddKey(key, LXPCDataTypeBool);
    dispatch_async(dispatch_get_main_queue(), [this] { Next(); });
}

// ---- The commands

void OrvinSession::Next() {
    ++step_;
    expected_ = Expected::Nothing;
    finding_ = false;
    if (words_.empty()) platform_exit(0);
    Perform(Word());
}

void OrvinSession::Perform(const std::string& command) {
    const std::string identifier = kMainAppBundleId;
    const LXPCData id = Text(kKeyBundleId, identifier);
    const LXPCData path = Text(kKeyBundlePath, bundlePath_);
    if (command == "test" || command == "find") {
        finding_ = command == "find";
        Send({Flag(kKeyTestConnection)}, true);
        Await(Expected::Reply, 1, kPatience, "no answer to the test");
    } else if (command == "introduce") {
        Send({id, path, Flag(kKeyNewConnection)}, true);
        Await(Expected::Reply, 1, kPatience, "the helper does not know this application");
    } else if (command == "add") {
        Add();
    } else if (command == "add-many") {
        AddMany();
    } else if (command == "delete") {
        const std::string name = Word();
        Send({id, path, Text(kKeyDeleteName, name)}, false);
        Await(Expected::Sent, 1, kPatience, "the request was not sent");
    } else if (command == "delete-all") {
        Send({id, path, Flag(kKeyDeleteAll)}, false);
        Await(Expected::Sent, 1, kPatience, "the request was not sent");
    } else if (command == "ask") {
        Send({Flag(kKeyShutdownQuestion)}, true);
        Await(Expected::Reply, 1, kPatience, "no answer to the question");
    } else if (command == "shutdown") {
        Send({Flag(kKeyShutdown)}, false);
        Await(Expected::End, 1, kPatience, "the helper did not end");
    } else if (command == "wait") {
        AfterSeconds(static_cast<double>(Number()), [this] { Next(); });
    } else {
        Fail("what is '" + command + "'?");
    }
}

void OrvinSession::Add() {
    const std::string name = Word();
    const long when = Moment();
    std::vector<LXPCData> repetition;
    if (!words_.empty() && words_.front() == "daily") {
        Word();
        repetition.push_back(Flag(kKeyNewDaily));
    }
    if (!words_.empty() && words_.front() == "weekly") {
        Word();
        repetition.push_back(Flag(kKeyNewWeekly));
        repetition.emplace_back(kKeyNewWeekdayMask, LXPCDataTypeUInt64, Number());
    }
    AddOne(name, when, repetition);
    Say("schedule '" + name + "' sent");
    Await(Expected::Sent, 1, kPatience, "the request was not sent");
}

void OrvinSession::AddMany() {
    const auto count = static_cast<unsigned>(Number());
    const std::string prefix = Word();
    const long when = Moment();
    if (count == 0) Fail("add-many needs a number above 0");
    for (unsigned i = 1; i <= count; ++i) AddOne(prefix + std::to_string(i), when, {});
    Await(Expected::Sent, count, 60, "the requests were not sent");
}

void OrvinSession::AddOne(const std::string& name, long when, const std::vector<LXPCData>& repetition) {
    const std::string identifier = kMainAppBundleId;
    std::vector<LXPCData> items = repetition;
    items.push_back(Text(kKeyBundleId, identifier));
    items.push_back(Text(kKeyBundlePath, bundlePath_));
    items.push_back(Text(kKeyNewName, name));
    items.emplace_back(kKeyNewTime, LXPCDataTypeDate, when);
    Send(std::move(items), false);
}

void OrvinSession::Send(std::vector<LXPCData> items, bool wantReply) {
    if (!connected_ && !client_.Connect(kServiceName, ++connection_, true)) Fail("no connection can be made");
    connected_ = true;
    client_.SendMessage(kServiceName, connection_, items.data(), items.size(), wantReply);
}

// ---- Waiting. Only the main queue touches what these use.

void OrvinSession::Await(Expected expected, unsigned count, double seconds, const char* otherwise) {
    expected_ = expected;
    outstanding_ = count;
    AfterSeconds(seconds, [this, step = step_, otherwise] {
        if (step == step_) Fail(otherwise);
    });
}

void OrvinSession::Happened(Expected event) {
    dispatch_async(dispatch_get_main_queue(), [this, event] {
        if (event == expected_) {
            if (--outstanding_ == 0) Next();
        } else if (event == Expected::End && finding_) {
            TryAgain();
        } else if (event == Expected::End && expected_ != Expected::Nothing) {
            Fail("the helper has gone");
        }
    });
}

/// One lost connection is reported twice, by the connection and by the message that waits for a reply.
void OrvinSession::TryAgain() {
    if (trying_) return;
    trying_ = true;
    AfterSeconds(0.1, [this] {
        trying_ = false;
        if (finding_) Send({Flag(kKeyTestConnection)}, true);
    });
}

void OrvinSession::EvConnectionError(long /*connection*/, LXPCErrorType error) {
    if (error == LXPCErrorConnectionInvalid) {
        dispatch_async(dispatch_get_main_queue(), [this] { connected_ = false; });  // the next message makes another
    }
    if (error == LXPCErrorConnectionInvalid || error == LXPCErrorConnectionInterrupted) Happened(Expected::End);
}

void OrvinSession::EvMessageReceived(long /*connection*/, long /*message*/, const LList<LXPCDataListable>& /*items*/) {}

void OrvinSession::EvReplyReceived(long /*connection*/, const LList<LXPCDataListable>& items) {
    for (const LXPCDataListable& item : items) {
        const std::string key = item.name;
        if (key == kReplyTestConnection) Say("the helper answers");
        if (key == kReplyNewConnection) Say("the helper knows this application");
        if (key == kReplyShutdownQuestion) {
            Say(item.value != 0 ? "the helper holds no schedule" : "the helper holds schedules");
        }
    }
    Happened(Expected::Reply);
}

void OrvinSession::EvMessageSent(long /*connection*/) {
    Happened(Expected::Sent);
}

// ---- Words

std::string OrvinSession::Word() {
    if (words_.empty()) Fail("a word is missing at the end");
    std::string word = words_.front();
    words_.pop_front();
    return word;
}

long OrvinSession::Number() {
    return std::strtol(Word().c_str(), nullptr, 10);
}

long OrvinSession::Moment() {
    const bool fromNow = !words_.empty() && words_.front().starts_with('+');
    const long number = Number();
    return fromNow ? static_cast<long>(std::time(nullptr)) + number : number;
}

void OrvinSession::Fail(const std::string& why) {
    std::fprintf(stderr, "Orvin: %s\n", why.c_str());
    platform_exit(1);
}
