#include "tools/schedulectl/Service.h"

#include <algorithm>

#include "app/LRequestKeys.h"
#include "base/LList.h"
#include "tools/schedulectl/Failure.h"

namespace schedulectl {

namespace {
constexpr unsigned long connectionId = 1;
}

Request& Request::Text(const char* key, const std::string& value) {
    items_.push_back({key, LXPCDataTypeString, 0, value});
    return *this;
}

Request& Request::Flag(const char* key, bool value) {
    items_.push_back({key, LXPCDataTypeBool, value ? 1 : 0, {}});
    return *this;
}

Request& Request::Date(const char* key, Moment value) {
    items_.push_back({key, LXPCDataTypeDate, static_cast<long>(value), {}});
    return *this;
}

Request& Request::Number(const char* key, unsigned value) {
    items_.push_back({key, LXPCDataTypeUInt64, static_cast<long>(value), {}});
    return *this;
}

std::vector<LXPCData> Request::Items() const {
    std::vector<LXPCData> items;
    for (const Item& item : items_)
        items.emplace_back(item.key, item.type,
                           item.type == LXPCDataTypeString ? LXPCAddress(item.text.c_str()) : item.number);
    return items;
}

Service::Service() : client_(this) {
    for (const char* key : kReplyKeys) client_.AddKey(key, LXPCDataTypeBool);
    if (!client_.Connect(kServiceName, connectionId, true)) gone_ = true;
}

Service::~Service() {
    client_.Disconnect(kServiceName, connectionId);
}

void Service::SendItems(const Request& request, bool wantReply) {
    const std::vector<LXPCData> items = request.Items();
    client_.SendMessage(kServiceName, connectionId, items.data(), items.size(), wantReply);
}

void Service::Send(const Request& request) {
    SendItems(request, false);
}

Service::Answer Service::Ask(const Request& request, const char* replyKey) {
    SendItems(request, true);
    return Await(replyKey, answerTime);
}

Service::Answer Service::Test(std::chrono::milliseconds patience) {
    SendItems(Request().Flag(kKeyTestConnection), true);
    return Await(kReplyTestConnection, patience);
}

Service::Answer Service::AskOrSilence(const Request& request, const char* replyKey) {
    SendItems(request, true);
    const Request test = Request().Flag(kKeyTestConnection);
    SendItems(test, true);
    const Answer tested = Await(kReplyTestConnection, answerTime);
    if (tested != Answer::yes) return tested;
    // One connection's requests are answered in order, and its replies come in order too.
    const std::lock_guard lock(mutex_);
    const bool said = std::any_of(replies_.begin(), replies_.end(),
                                  [&](const auto& reply) { return reply.first == replyKey && reply.second; });
    return said ? Answer::yes : Answer::no;
}

bool Service::WaitUntilGone() {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, answerTime, [this] { return gone_; });
}

Service::Answer Service::Await(const char* replyKey, std::chrono::milliseconds patience) {
    std::unique_lock lock(mutex_);
    const auto find = [&] {
        return std::find_if(replies_.begin(), replies_.end(),
                            [&](const auto& reply) { return reply.first == replyKey; });
    };
    const bool something = changed_.wait_for(lock, patience, [&] { return gone_ || find() != replies_.end(); });
    const auto reply = find();
    if (reply != replies_.end()) {
        const bool value = reply->second;
        replies_.erase(reply);
        return value ? Answer::yes : Answer::no;
    }
    return something ? Answer::gone : Answer::silence;
}

void Service::EvConnectionError(long, LXPCErrorType) {
    const std::lock_guard lock(mutex_);
    gone_ = true;
    changed_.notify_all();
}

void Service::EvMessageReceived(long, long, const LList<LXPCDataListable>&) {}

void Service::EvReplyReceived(long, const LList<LXPCDataListable>& items) {
    const std::lock_guard lock(mutex_);
    for (const LXPCDataListable* item = items.head; item != nullptr; item = item->next)
        replies_.emplace_back(item->name, item->value != 0);
    changed_.notify_all();
}

void Service::EvMessageSent(long) {}

}  // namespace schedulectl
