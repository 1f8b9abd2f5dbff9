// The vocabulary of the helper's service, in one table that the server, its clients, the tools and the tests share.
//
// A request is a message with some of thirteen keys. The server registers them in the order of kRequestKeys, and a
// received message lists its items in that order, whatever order the sender used. Of the actions that a message asks
// for one is performed, the first in this order:
//   1. the connection test answers at once and is all that happens;
//   2. shutting down ends the helper, and is all that happens;
//   3. add, delete, delete all, introduction, shutdown question.
//
// Keys of which "presence" is said count by being there, also with the value false.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>

#include "xpc/LXPCData.h"

/// The service on which the helper listens.
inline constexpr char kServiceName[] = "Q4ZT82MX5P.com.brindlewick.schedulehelper.orvinfree213";

/// The main application that the helper serves: its bundle identifier, its name, and the one version that is launched
/// (major and minor number of CFBundleVersion).
inline constexpr char kMainAppBundleId[] = "com.brindlewick.orvinfree";
inline constexpr char kMainAppName[] = "Orvin";
inline constexpr char kMainAppVersion[] = "2.13";

// ---- Requests

inline constexpr char kKeyBundleId[] = "MAIN_APP_BUNDLEID";
inline constexpr char kKeyBundlePath[] = "MAIN_APP_BUNDLE_PATH";
inline constexpr char kKeyTestConnection[] = "XPC_TEST_CONNECTION";
inline constexpr char kKeyNewConnection[] = "XPC_NEW_CONNECTION";
inline constexpr char kKeyNewName[] = "NEW_SKED_NAME";
inline constexpr char kKeyNewTime[] = "NEW_SKED_TIME";
inline constexpr char kKeyNewDaily[] = "NEW_SKED_DAILY";
inline constexpr char kKeyNewWeekly[] = "NEW_SKED_WEEKLY";
inline constexpr char kKeyNewWeekdayMask[] = "NEW_SKED_WEEKDAYMASK";
inline constexpr char kKeyDeleteName[] = "DELETE_SKED_NAME";
inline constexpr char kKeyDeleteAll[] = "DELETE_ALL_SKED";
inline constexpr char kKeyShutdown[] = "XPC_SHUTDOWN_HELPER";
inline constexpr char kKeyShutdownQuestion[] = "XPC_SHUTDOWN_HELPER_REQUEST";

/// The keys in the order of registration; an enumerator is the place of its key in kRequestKeys.
enum class LRequestKey : size_t {
    BundleId,          // text: bundle identifier of the application that the request concerns
    BundlePath,        // text: full path of that application's bundle
    TestConnection,    // presence: answer kReplyTestConnection
    NewConnection,     // presence: the sender introduces itself; answer kReplyNewConnection when it is the main
                       // application
    NewName,           // text: add, or replace, the schedule of this name
    NewTime,           // start of the new schedule, seconds since 1970 UTC; it is kept and fires 10 s earlier
    NewDaily,          // repeats every day; wins over weekly
    NewWeekly,         // repeats every week on the days of the mask
    NewWeekdayMask,    // bit 0 Sunday to bit 6 Saturday; higher bits are dropped
    DeleteName,        // text: delete the schedule of this name
    DeleteAll,         // presence: delete every schedule of the application
    Shutdown,          // presence: end the helper now
    ShutdownQuestion,  // presence: answer kReplyShutdownQuestion, true when the helper holds no schedule
};

struct LRequestKeyType {
    const char* name;
    LXPCDataType type;
};

inline constexpr std::array<LRequestKeyType, 13> kRequestKeys{{
    {kKeyBundleId, LXPCDataTypeString},
    {kKeyBundlePath, LXPCDataTypeString},
    {kKeyTestConnection, LXPCDataTypeBool},
    {kKeyNewConnection, LXPCDataTypeBool},
    {kKeyNewName, LXPCDataTypeString},
    {kKeyNewTime, LXPCDataTypeDate},
    {kKeyNewDaily, LXPCDataTypeBool},
    {kKeyNewWeekly, LXPCDataTypeBool},
    {kKeyNewWeekdayMask, LXPCDataTypeUInt64},
    {kKeyDeleteName, LXPCDataTypeString},
    {kKeyDeleteAll, LXPCDataTypeBool},
    {kKeyShutdown, LXPCDataTypeBool},
    {kKeyShutdownQuestion, LXPCDataTypeBool},
}};

/// Which key `name` is, compared whole and with its case; nothing when it is none.
constexpr std::optional<LRequestKey> LFindRequestKey(std::string_view name) {
    for (size_t place = 0; place < kRequestKeys.size(); ++place) {
        if (name == kRequestKeys[place].name) return static_cast<LRequestKey>(place);
    }
    return std::nullopt;
}
static_assert(LFindRequestKey(kKeyShutdownQuestion) == LRequestKey::ShutdownQuestion);
static_assert(LFindRequestKey(kKeyNewWeekdayMask) == LRequestKey::NewWeekdayMask);

// ---- Replies: one boolean item each. A client registers those that it wants to hear.

inline constexpr char kReplyTestConnection[] = "XPC_TEST_CONNECTION_REPLY";            // true
inline constexpr char kReplyNewConnection[] = "XPC_NEW_CONNECTION_REPLY";              // true; otherwise silence
inline constexpr char kReplyShutdownQuestion[] = "XPC_SHUTDOWN_HELPER_REQUEST_REPLY";  // true: no schedule is held

inline constexpr std::array<const char*, 3> kReplyKeys{kReplyTestConnection, kReplyNewConnection,
                                                       kReplyShutdownQuestion};
