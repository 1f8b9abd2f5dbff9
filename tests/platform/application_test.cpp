// The application object: one instance, its delegate's two calls, and the flush at the end.
#include <platform_instance.h>
#include <platform_store_reader.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include "foundation_support.h"

namespace {

// Its standard input and output are our one socket.
struct Instance {
    Instance() {
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        for (const int standard : {0, 1}) posix_spawn_file_actions_adddup2(&actions, ends[1], standard);
        char name[] = APPLICATION_PROBE;
        char* arguments[] = {name, nullptr};
        EXPECT_EQ(posix_spawn(&pid, name, &actions, nullptr, arguments, environ), 0);
        posix_spawn_file_actions_destroy(&actions);
        close(ends[1]);
        socket = ends[0];
    }
    std::string line() const {  // "" at the end
        std::string text;
        char letter = 0;
        while (read(socket, &letter, 1) == 1 && letter != '\n') text += letter;
        return text;
    }
    int end() const {
        shutdown(socket, SHUT_WR);
        int status = -1;
        EXPECT_EQ(waitpid(pid, &status, 0), pid);
        return status;
    }
    pid_t pid = 0;
    int socket = -1;
};

}  // namespace

TEST(ApplicationObject, OneInstanceThatEndsInOrder) {
    const TemporaryFolder home;
    setenv("XDG_DATA_HOME", home.path().c_str(), 1);
    Instance first;
    ASSERT_EQ(first.line(), "launched");
    EXPECT_EQ(platform_instance::query().pid, first.pid);
    Instance second;
    EXPECT_EQ(second.line(), "") << "a second instance launched beside the first";
    EXPECT_EQ(second.end(), 0);
    EXPECT_EQ(platform_store::StoreReader().result(), platform_store::ReadResult::missing);

    EXPECT_EQ(first.end(), 0);
    EXPECT_EQ(first.line(), "terminating");
    EXPECT_FALSE(platform_instance::query().running);
    EXPECT_EQ(platform_store::StoreReader().objectForKey("pending"), NSUserDefaults::Value(NSString("not flushed")));

    Instance third;
    EXPECT_EQ(third.line(), "launched");
    EXPECT_EQ(third.end(), 0);
    unsetenv("XDG_DATA_HOME");
}
