// The barest programs that do the outer work of the helper: what cannot be done with less.
//
//     bench_bare start STORE FOLDER   opens the store, reads every row, looks for each path, then answers on the socket
//                                     "bare" in FOLDER
//     bench_bare                      as a main application: writes the nanosecond in which its main began, and its
//                                     pid, to the pipe that BENCH_HELLO names
#include <sqlite3.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

namespace {

int64_t Now() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

int SayHello(int64_t began) {
    std::FILE* const pipe = std::fopen(std::getenv("BENCH_HELLO"), "w");
    if (pipe == nullptr) return 1;
    std::fprintf(pipe, "%lld %ld\n", static_cast<long long>(began), static_cast<long>(getpid()));
    return std::fclose(pipe);
}

/// Every column of every row that `query` gives; texts that name the path entry are looked for on the disk.
size_t ReadRows(sqlite3* database, const char* query) {
    sqlite3_stmt* rows = nullptr;
    size_t bytes = 0;
    if (sqlite3_prepare_v2(database, query, -1, &rows, nullptr) != SQLITE_OK) return 0;
    while (sqlite3_step(rows) == SQLITE_ROW) {
        for (int column = 0; column < sqlite3_column_count(rows); ++column) {
            const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(rows, column));
            bytes += text != nullptr ? std::strlen(text) : 0;
        }
        const auto* name = reinterpret_cast<const char*>(sqlite3_column_text(rows, 1));
        if (name == nullptr || std::strcmp(name, "APP_PATH") != 0) continue;
        struct stat status {};
        bytes += stat(reinterpret_cast<const char*>(sqlite3_column_text(rows, 3)), &status) == 0 ? 1 : 0;
    }
    sqlite3_finalize(rows);
    return bytes;
}

int Start(const char* store, const char* folder) {
    sqlite3* database = nullptr;
    size_t bytes = 0;
    if (access(store, F_OK) == 0 && sqlite3_open_v2(store, &database, SQLITE_OPEN_READWRITE, nullptr) == SQLITE_OK) {
        bytes += ReadRows(database, "SELECT key, name, type, value FROM entries ORDER BY key, position");
        bytes += ReadRows(database, "SELECT position, value FROM members ORDER BY key, position");
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, "bare");  // a whole path may be too long for it
    if (chdir(folder) != 0) return 1;
    const int listener = socket(AF_UNIX, SOCK_STREAM, 0);
    if (bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 || listen(listener, 8) != 0) {
        return 1;
    }
    const int peer = accept(listener, nullptr, nullptr);
    char question[256];
    if (read(peer, question, sizeof question) <= 0) return 1;
    if (write(peer, &bytes, sizeof bytes) != sizeof bytes) return 1;
    pause();  // the helper stays too; its end is not part of the work
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const int64_t began = Now();
    if (argc == 4 && std::strcmp(argv[1], "start") == 0) return Start(argv[2], argv[3]);
    return SayHello(began);
}
