// Where a service's socket stands, who may offer a name, and what callers find there.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>

#include "platform/linux/service_name.h"
#include "platform/linux/xpc_listener.h"
#include "tests/platform/xpc_support.h"

namespace {

namespace fs = std::filesystem;
using transport::ConnectOutcome;
using transport::ServiceLink;
using transport::ServiceOffer;

ConnectOutcome tryConnect(const RuntimeDirectory& directory, const std::string& name = "name") {
    ServiceLink link;
    const ConnectOutcome outcome = transport::connectToService(directory.path, name.c_str(), &link);
    EXPECT_EQ(link.uid, outcome == ConnectOutcome::Connected ? geteuid() : 0);
    return outcome;
}

TEST(ServiceName, GoodAndRefused) {
    const struct {
        Bytes name;
        bool good;
    } rows[] = {
        {"com.example.service", true},
        {"a", true},
        {Bytes(200, 'n'), true},
        {Bytes(201, 'n'), false},
        {"", false},
        {".hidden", false},
        {"..", false},
        {"a/b", false},
    };
    const RuntimeDirectory directory;
    for (const auto& row : rows) {
        const Held client(xpc_connection_create(row.name.c_str(), nullptr));
        EXPECT_EQ(client != nullptr, row.good) << row.name;
        const Held listener(
            xpc_connection_create_mach_service(row.name.c_str(), nullptr, XPC_CONNECTION_MACH_SERVICE_LISTENER));
        EXPECT_EQ(listener != nullptr, row.good) << row.name;
        EXPECT_EQ(tryConnect(directory, row.name) == ConnectOutcome::Connected, row.good) << row.name;
    }
    EXPECT_EQ(xpc_connection_create(nullptr, nullptr), nullptr);
    EXPECT_FALSE(ServiceOffer().open(directory.path, "a.lock")) << "it would stand where the lock of `a` does";
}

TEST(ServiceName, OneOwnerAtATime) {
    const RuntimeDirectory directory;
    EXPECT_EQ(tryConnect(directory), ConnectOutcome::Failed);
    ServiceOffer first;
    ASSERT_TRUE(first.open(directory.path, "name"));
    EXPECT_FALSE(ServiceOffer().open(directory.path, "name"));
    EXPECT_TRUE(ServiceOffer().open(directory.path, "other"));
    EXPECT_EQ(tryConnect(directory), ConnectOutcome::Connected);
    EXPECT_EQ(fcntl(first.socket(), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    first.withdraw();
    EXPECT_FALSE(fs::exists(directory.services() + "/name"));
}

/// An owner that ended without a word leaves a socket that refuses; the next owner replaces it, and what stands under
/// the name by other hands is not removed at the end.
TEST(ServiceName, StaleAndForeignSockets) {
    const RuntimeDirectory directory;
    const std::string path = directory.services() + "/name";
    { EXPECT_TRUE(ServiceOffer().open(directory.path, "name")); }
    EXPECT_TRUE(fs::exists(path));
    EXPECT_EQ(tryConnect(directory), ConnectOutcome::Failed);
    ServiceOffer next;
    ASSERT_TRUE(next.open(directory.path, "name"));
    EXPECT_EQ(tryConnect(directory), ConnectOutcome::Connected);
    fs::rename(path, path + ".away");
    close(open(path.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
    EXPECT_EQ(tryConnect(directory), ConnectOutcome::Failed);
    next.withdraw();
    EXPECT_TRUE(fs::exists(path));
    fs::remove(path);
    fs::create_symlink("name.away", path);
    EXPECT_EQ(tryConnect(directory), ConnectOutcome::Failed);
}

/// A lock file that was removed while somebody waited for it must not count.
TEST(ServiceName, RemovedLockFile) {
    const RuntimeDirectory directory;
    ServiceOffer first;
    ASSERT_TRUE(first.open(directory.path, "name"));
    fs::remove(directory.services() + "/name.lock");
    ServiceOffer second;
    EXPECT_TRUE(second.open(directory.path, "name"));
    first.withdraw();
    EXPECT_EQ(tryConnect(directory), ConnectOutcome::Connected) << "the second one's socket stays";
}

TEST(ServiceName, UnsafeDirectories) {
    using Prepare = void (*)(const RuntimeDirectory&);
    const struct {
        const char* what;
        Prepare prepare;
    } rows[] = {
        {"open to the group",
         [](const auto& d) { fs::create_directory(d.services()), chmod(d.services().c_str(), 0710); }},
        {"a link",
         [](const auto& d) {
             fs::create_directory(d.path + "/real"), chmod((d.path + "/real").c_str(), 0700),
                 fs::create_symlink("real", d.services());
         }},
        {"a file", [](const auto& d) { close(open(d.services().c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600)); }},
    };
    for (const auto& row : rows) {
        const RuntimeDirectory directory;
        row.prepare(directory);
        EXPECT_FALSE(ServiceOffer().open(directory.path, "name")) << row.what;
        EXPECT_EQ(tryConnect(directory), ConnectOutcome::Failed) << row.what;
    }
}

/// A runtime directory that others can enter is passed over: nothing is put there.
TEST(ServiceName, UnsafeRuntimeDirectoryIsNotUsed) {
    const RuntimeDirectory directory;
    chmod(directory.path.c_str(), 0755);
    ServiceOffer elsewhere;
    const std::string name = "test." + fs::path(directory.path).filename().string();  // in the shared place now
    if (elsewhere.open(directory.path, name.c_str())) {
        EXPECT_EQ(tryConnect(directory, name), ConnectOutcome::Connected);
        EXPECT_EQ(tryConnect(RuntimeDirectory(), name), ConnectOutcome::Failed);
        elsewhere.withdraw();
    }
    EXPECT_FALSE(fs::exists(directory.services()));
}

TEST(ServiceName, LongPath) {
    const RuntimeDirectory directory("/" + std::string(120, 'd') + "/" + std::string(120, 'e'));
    ServiceOffer offer;
    EXPECT_TRUE(offer.open(directory.path, "name"));
    EXPECT_EQ(tryConnect(directory), ConnectOutcome::Connected);
}

/// More callers than the system lets wait: told to come again, not that there is nobody.
TEST(ServiceName, FullBacklogIsBusy) {
    const RuntimeDirectory directory;
    ServiceOffer offer;
    ASSERT_TRUE(offer.open(directory.path, "name"));
    ASSERT_EQ(listen(offer.socket(), 1), 0);
    std::vector<ServiceLink> waiting(4);
    ConnectOutcome last = ConnectOutcome::Connected;
    for (ServiceLink& link : waiting) last = transport::connectToService(directory.path, "name", &link);
    EXPECT_EQ(last, ConnectOutcome::Busy);
}

/// Holes among the open numbers count, and so does the limit.
TEST(FreeDescriptors, AreCountedExactly) {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    rlimit tight = limit;
    tight.rlim_cur = 300;
    setrlimit(RLIMIT_NOFILE, &tight);
    std::vector<UniqueFd> all;
    while (all.empty() || all.back()) all.emplace_back(dup(STDERR_FILENO));
    all.pop_back();
    EXPECT_FALSE(transport::hasFreeDescriptors(1));
    for (const size_t freed : {size_t{3}, all.size() / 2, all.size() - 1}) all[freed].reset();
    EXPECT_TRUE(transport::hasFreeDescriptors(3));
    EXPECT_FALSE(transport::hasFreeDescriptors(4));
    setrlimit(RLIMIT_NOFILE, &limit);
}

/// At the limit no peer is accepted; it waits, and is served once there is room.
TEST(FreeDescriptors, PeersWaitForRoom) {
    const RuntimeDirectory directory;
    const Held listener(xpc_connection_create_mach_service("name", nullptr, XPC_CONNECTION_MACH_SERVICE_LISTENER));
    Log log;
    std::vector<Held> peers;
    xpc_connection_set_event_handler(listener.connection(), [&](xpc_object_t event) {
        if (xpc_get_type(event) == XPC_TYPE_CONNECTION) peers.emplace_back(xpc_retain(event));
        log.add(describe(event));
    });
    std::vector<ServiceLink> callers(6);
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    for (ServiceLink& caller : callers) {
        ASSERT_EQ(transport::connectToService(directory.path, "name", &caller), ConnectOutcome::Connected);
    }
    rlimit tight = limit;
    tight.rlim_cur = openDescriptors() + transport::Listener::spareDescriptors + 2;
    setrlimit(RLIMIT_NOFILE, &tight);
    xpc_connection_resume(listener.connection());
    log.wait(2);
    EXPECT_TRUE(transport::hasFreeDescriptors(transport::Listener::spareDescriptors));
    setrlimit(RLIMIT_NOFILE, &limit);
    EXPECT_EQ(log.wait(callers.size()), std::vector<std::string>(callers.size(), "peer"));
    xpc_connection_cancel(listener.connection());
    log.wait(callers.size() + 1);
}

}  // namespace
