// The list, redrawn every second on a screen of its own, which is left as it was found.
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <ctime>

#include "tools/schedulectl/Text.h"
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

size_t TerminalRows() {
    winsize size{};
    return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 1 ? size.ws_row : 24;
}

/// As much of `text` as `rows` hold, the last of them telling how much is missing: a screen that scrolls shows its end
/// only. Each line ends by erasing what stood behind it, so that nothing flickers.
std::string Frame(const std::string& text, size_t rows) {
    const auto lines = static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
    const size_t shown = lines < rows ? lines : rows - 1;
    std::string frame = "\033[H";
    size_t begin = 0;
    for (size_t line = 0; line < shown; ++line) {
        const size_t end = text.find('\n', begin);
        frame += text.substr(begin, end - begin) + "\033[K\r\n";
        begin = end + 1;
    }
    if (shown < lines) frame += Count(lines - shown, "more line") + ", see \"schedulectl list\"\033[K";
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
        open = Write(options.json ? Dump(report.json) : Frame(report.text, TerminalRows()));
        PauseUntilNextSecond();
    }
    if (!options.json) Write("\033[?25h\033[?1049l");
    if (failure) throw Failure(*failure);
    return ExitCode::done;
}

}  // namespace schedulectl
