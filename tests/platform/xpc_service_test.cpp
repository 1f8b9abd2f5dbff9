// Where a service's socket stands, who may offer a name, and what callers find there.
#include <fcntl.h>
#include <sys/resource.h>

#include "platform/linux/descriptors.h"
#include "platform/linux/service_name.h"
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
    EXPECT_FALSE(runtime::hasFreeDescriptors(1));
    for (const size_t freed : {size_t{3}, all.size() / 2, all.size() - 1}) all[freed].reset();
    EXPECT_TRUE(runtime::hasFreeDescriptors(3));
    EXPECT_FALSE(runtime::hasFreeDescriptors(4));
    setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace
