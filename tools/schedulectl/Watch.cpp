// The list, redrawn every second on a screen of its own, which is left as it was found.
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <ctime>

#include "tools/schedulectl/Tool.h"

namespace schedulectl {
namespace {

volatile std::sig_atomic_t interrupted = 0;

void Interrupt(int) {
    interrupted = 1;
}

void Redraw(int) {}  // arrives during the pause and ends it

void Catch(int signal, void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    (void)sigaction(signal, &action, nullptr);
}

void PauseUntilNextSecond() {
    timespec now{};
    (void)clock_gettime(CLOCK_REALTIME, &now);
    const timespec pause{0, 999999999 - now.tv_nsec};
    (void)nanosleep(&pause, nullptr);
}

bool Write(const std::string& text) {
    return fwrite(text.data(), 1, text.size(), stdout) == text.size() && fflush(stdout) == 0;
}

/// Each line ends by erasing what stood behind it, so that nothing flickers.
std::string Frame(const std::string& text) {
    std::string frame = "\033[H";
    for (const char c : text) frame += c == '\n' ? std::string("\033[K\r\n") : std::string(1, c);
    return frame + "\033[J";
}

}  // namespace

ExitCode Watch(const Options& options) {
    const bool terminal = isatty(STDOUT_FILENO) == 1;
    if (!terminal && !options.json)
        throw Failure{ExitCode::usage, "There is no terminal to draw on", "Standard output goes to a file or a pipe.",
                      "schedulectl list, or schedulectl watch --json for one document a line."};
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) Catch(signal, Interrupt);
    Catch(SIGWINCH, Redraw);
    Catch(SIGPIPE, SIG_IGN);
    if (!options.json) Write("\033[?1049h\033[?25l");
    std::optional<Failure> failure;
    bool open = true;
    while (open && interrupted == 0) {
        const World world = Observe();
        failure = world.store.problem;
        if (failure) break;
        const Report report = ListReport(world, Screen::Of(STDOUT_FILENO, options.color), "watch");
        open = Write(options.json ? Dump(report.json) : Frame(report.text));
        PauseUntilNextSecond();
    }
    if (!options.json) Write("\033[?25h\033[?1049l");
    if (failure) throw Failure(*failure);
    return ExitCode::done;
}

}  // namespace schedulectl
