// The program inside the tests' bundles. It writes what it was born with into the file that PROBE_REPORT names: one
// line of whether it, or the script that runs it, leads its session, of blocked and ignored signals, working directory
// and open descriptors; then it waits until PROBE_HOLD, a FIFO, has no writer left.
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

int main() {
    const char* report = std::getenv("PROBE_REPORT");
    const char* hold = std::getenv("PROBE_HOLD");
    if (report == nullptr || hold == nullptr) return 1;
    std::string text = getsid(0) == getpid() ? "leader" : getsid(0) == getppid() ? "script" : "member";
    {
        std::ifstream status("/proc/self/status");
        for (std::string line; std::getline(status, line);) {
            if (line.rfind("SigBlk:", 0) != 0 && line.rfind("SigIgn:", 0) != 0) continue;
            // The C library sets 32 and 33 to be ignored in every child that it spawns; they are its own.
            text += ' ' + std::to_string(std::stoull(line.substr(8), nullptr, 16) & ~0x180000000ULL);
        }
    }
    text += ' ' + std::filesystem::current_path().string();
    for (int fd = 0; fd < 256; ++fd) {
        char target[256] = {};
        const std::string link = "/proc/self/fd/" + std::to_string(fd);
        if (readlink(link.c_str(), target, sizeof(target) - 1) > 0) text += ' ' + std::string(target);
    }
    { std::ofstream(report + std::string(".") + std::to_string(getpid())) << text; }
    std::filesystem::rename(report + std::string(".") + std::to_string(getpid()),
                            report + std::string("-") + std::to_string(getpid()));
    // Opened without waiting for a writer: the test may have let go already.
    pollfd fifo{open(hold, O_RDONLY | O_NONBLOCK), POLLIN, 0};
    char byte = 0;
    while (read(fifo.fd, &byte, 1) < 0 && errno == EAGAIN) (void)poll(&fifo, 1, -1);
}
