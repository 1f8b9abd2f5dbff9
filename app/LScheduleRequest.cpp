#include "app/LScheduleRequest.h"

#include <climits>
#include <cstring>

#include "app/LRequestKeys.h"
#include "base/LFile.h"

namespace {

const char* TextIn(const LXPCData& item) {
    return reinterpret_cast<const char*>(item.value);
}

}  // namespace

LScheduleRequest::End LScheduleRequest::Collect(const LList<LXPCDataListable>& items) {
    for (const LXPCDataListable& item : items) {
        const std::optional<LRequestKey> key = LFindRequestKey(item.name);
        if (!key) continue;
        switch (*key) {
            case LRequestKey::TestConnection:
                return End::Test;
            case LRequestKey::Shutdown:
                return End::Shutdown;
            case LRequestKey::BundleId:
                bundleId = TextIn(item);
                break;
            case LRequestKey::BundlePath:
                bundlePath = TextIn(item);
                break;
            case LRequestKey::NewConnection:
                introduce = true;
                break;
            case LRequestKey::NewName:
                name = TextIn(item);
                add = true;
                break;
            case LRequestKey::NewTime:
                start = item.value;
                break;
            case LRequestKey::NewDaily:
                daily = item.value != 0;
                break;
            case LRequestKey::NewWeekly:
                weekly = item.value != 0;
                break;
            case LRequestKey::NewWeekdayMask:
                weekdays = static_cast<unsigned long>(item.value);
                break;
            case LRequestKey::DeleteName:
                name = TextIn(item);
                remove = true;
                break;
            case LRequestKey::DeleteAll:
                removeAll = true;
                break;
            case LRequestKey::ShutdownQuestion:
                askShutdown = true;
                break;
        }
    }
    return End::AllRead;
}

LScheduleRequest::Action LScheduleRequest::ChosenAction() const {
    if (add) return Action::Add;
    if (remove) return Action::Delete;
    if (removeAll) return Action::DeleteAll;
    if (introduce) return Action::Introduce;
    if (askShutdown) return Action::AskShutdown;
    return Action::None;
}

long LScheduleRequest::EarlyStart() const {
    constexpr long kEarly = 10;
    return start < LONG_MIN + kEarly ? LONG_MIN : start - kEarly;
}

bool LScheduleRequest::IsFromMainApp() const {
    if (bundleId == nullptr || bundlePath == nullptr) return false;
    char application[260];
    LFile::_GetFileNameFromPath(application, bundlePath);
    return std::strcmp(application, kMainAppName) == 0 && std::strcmp(bundleId, kMainAppBundleId) == 0;
}
