#include "bench/peers.h"

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <thread>

#include "app/LRequestKeys.h"

namespace {

constexpr int kServed = 3;  // the descriptor of a child's stream
constexpr char kName[] = "com.example.Bench";
constexpr char kPath[] = "/bench";

void Check(int result, const char* what) {
    if (result >= 0) return;
    errno = -result;
    throw std::runtime_error(std::string(what) + ": " + std::strerror(errno));
}

/// Waits until `condition` holds; throws after 10 s.
template <typename Condition>
void Await(Condition condition) {
    for (int attempt = 0; attempt < 1000; ++attempt) {
        if (condition()) return;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    throw std::runtime_error("the daemon or the server is not there");
}

// ---- Raw

struct RawHeader {
    uint32_t length;
    uint32_t wantsAnswer;
};

void WriteAll(int fd, const void* bytes, size_t count) {
    const auto* at = static_cast<const char*>(bytes);
    while (count > 0) {
        const ssize_t written = send(fd, at, count, MSG_NOSIGNAL);
        if (written <= 0) throw std::runtime_error("the stream has ended");
        at += written;
        count -= static_cast<size_t>(written);
    }
}

/// Cuts frames out of what has come and answers those that want it; returns what is left over.
size_t ServeFrames(int fd, std::array<char, 65536>& buffer, size_t filled) {
    static const std::array<char, kAnswerBytes> answer{};
    size_t at = 0;
    RawHeader header{};
    while (filled - at >= sizeof header) {
        std::memcpy(&header, buffer.data() + at, sizeof header);
        if (filled - at < header.length) break;
        if (header.wantsAnswer != 0) WriteAll(fd, answer.data(), answer.size());
        at += header.length;
    }
    std::memmove(buffer.data(), buffer.data() + at, filled - at);
    return filled - at;
}

int ServeRaw() {
    static std::array<char, 65536> buffer;
    const int poll = epoll_create1(EPOLL_CLOEXEC);
    epoll_event interest{};
    interest.events = EPOLLIN;
    epoll_ctl(poll, EPOLL_CTL_ADD, kServed, &interest);
    size_t filled = 0;
    for (;;) {
        epoll_event event{};
        if (epoll_wait(poll, &event, 1, -1) < 1) continue;
        const ssize_t got = read(kServed, buffer.data() + filled, buffer.size() - filled);
        if (got <= 0) return 0;
        filled = ServeFrames(kServed, buffer, filled + static_cast<size_t>(got));
    }
}

// ---- sd-bus

uint64_t Mixed(sd_bus_message* message, const char* contents) {
    switch (contents[0]) {
        case 's': {
            const char* text = nullptr;
            Check(sd_bus_message_read_basic(message, 's', &text), "text");
            return static_cast<unsigned char>(text[0]);
        }
        case 'b': {
            int flag = 0;
            Check(sd_bus_message_read_basic(message, 'b', &flag), "flag");
            return static_cast<uint64_t>(flag);
        }
        default: {
            uint64_t number = 0;
            Check(sd_bus_message_read_basic(message, contents[0], &number), "number");
            return number;
        }
    }
}

int HandleQuestion(sd_bus_message* message, void*, sd_bus_error*) {
    ReadQuestion(message);
    sd_bus_message* reply = nullptr;
    Check(sd_bus_message_new_method_return(message, &reply), "reply");
    Check(sd_bus_message_append(reply, "a{sv}", 1, kReplyShutdownQuestion, "b", 1), "reply");
    const int result = sd_bus_send(nullptr, reply, nullptr);
    sd_bus_message_unref(reply);
    return result < 0 ? result : 1;
}

int HandleNotice(sd_bus_message* message, void*, sd_bus_error*) {
    ReadQuestion(message);
    return 1;
}

const sd_bus_vtable kVtable[] = {
    SD_BUS_VTABLE_START(0), SD_BUS_METHOD("Ask", "a{sv}", "a{sv}", HandleQuestion, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Tell", "a{sv}", "", HandleNotice, SD_BUS_VTABLE_UNPRIVILEGED | SD_BUS_VTABLE_METHOD_NO_REPLY),
    SD_BUS_VTABLE_END};

sd_bus* OpenDaemon(const std::string& address) {
    sd_bus* bus = nullptr;
    Check(sd_bus_new(&bus), "new");
    Check(sd_bus_set_address(bus, address.c_str()), "address");
    Check(sd_bus_set_bus_client(bus, 1), "client");
    Check(sd_bus_start(bus), "start");
    return bus;
}

int ServeBus(const std::string& address) {
    sd_bus* bus = nullptr;
    if (address.empty()) {
        sd_id128_t id{};
        id.bytes[0] = 1;
        Check(sd_bus_new(&bus), "new");
        Check(sd_bus_set_fd(bus, kServed, kServed), "descriptor");
        Check(sd_bus_set_server(bus, 1, id), "server");
        Check(sd_bus_set_anonymous(bus, 1), "anonymous");
        Check(sd_bus_start(bus), "start");
    } else {
        bus = OpenDaemon(address);
    }
    Check(sd_bus_add_object_vtable(bus, nullptr, kPath, kName, kVtable, nullptr), "vtable");
    if (!address.empty()) Check(sd_bus_request_name(bus, kName, 0), "name");
    for (;;) {
        const int done = sd_bus_process(bus, nullptr);
        if (done < 0) return 0;
        if (done == 0 && sd_bus_wait(bus, UINT64_MAX) < 0) return 0;
    }
}

/// A daemon with a configuration in this process's home and a socket in its runtime folder; returns its address.
std::string StartDaemon(std::unique_ptr<Child>& daemon) {
    const std::string folder = std::getenv("HOME");
    std::ofstream(folder + "/bus.conf")
        << "<busconfig><type>session</type><listen>unix:runtime=yes</listen><auth>EXTERNAL</auth>"
           "<policy context=\"default\">"
           "<allow send_destination=\"*\" eavesdrop=\"true\"/><allow eavesdrop=\"true\"/>"
           "<allow own=\"*\"/>"
           "</policy></busconfig>";
    StreamPair ready;
    daemon = std::make_unique<Child>(std::vector<std::string>{"/usr/bin/dbus-daemon", "--nofork", "--print-address=3",
                                                              "--config-file=" + folder + "/bus.conf"},
                                     ready.theirs);
    ready.CloseTheirs();
    char said[512]{};  // the address, as others are to write it
    if (read(ready.ours, said, sizeof said - 1) <= 0) throw std::runtime_error("the daemon does not start");
    return {said, std::strcspn(said, "\n")};
}

}  // namespace

// ---- What both sides of sd-bus write and read

void AppendQuestion(sd_bus_message* message) {
    Check(sd_bus_message_append(message, "a{sv}", 6, kKeyBundleId, "s", kMainAppBundleId, kKeyBundlePath, "s",
                                "/srv/home/Applications/Orvin.app", kKeyNewTime, "x", int64_t{1'798'131'590},
                                kKeyNewWeekly, "b", 1, kKeyNewWeekdayMask, "t", uint64_t{62}, kKeyShutdownQuestion, "b",
                                1),
          "append");
}

uint64_t ReadQuestion(sd_bus_message* message) {
    uint64_t sum = 0;
    Check(sd_bus_message_enter_container(message, 'a', "{sv}"), "array");
    while (sd_bus_message_enter_container(message, 'e', "sv") > 0) {
        const char* key = nullptr;
        const char* contents = nullptr;
        char type = 0;
        Check(sd_bus_message_read_basic(message, 's', &key), "key");
        if (LFindRequestKey(key)) ++sum;
        Check(sd_bus_message_peek_type(message, &type, &contents), "type");
        Check(sd_bus_message_enter_container(message, 'v', contents), "variant");
        sum += Mixed(message, contents);
        Check(sd_bus_message_exit_container(message), "variant");
        Check(sd_bus_message_exit_container(message), "entry");
    }
    Check(sd_bus_message_exit_container(message), "array");
    return sum;
}

int ServePeer(const std::string& role) {
    if (role == "raw") return ServeRaw();
    const size_t colon = role.find(':');
    return ServeBus(colon == std::string::npos ? "" : role.substr(colon + 1));
}

// ---- The clients

RawPeer::RawPeer() : server_({OwnProgram(), "--serve=raw"}, pair_.theirs) {
    pair_.CloseTheirs();
}

void RawPeer::Ask() {
    std::array<char, kQuestionBytes> question{};
    const RawHeader header{kQuestionBytes, 1};
    std::memcpy(question.data(), &header, sizeof header);
    WriteAll(pair_.ours, question.data(), question.size());
    std::array<char, kAnswerBytes> answer;
    for (size_t filled = 0; filled < answer.size();) {
        const ssize_t got = read(pair_.ours, answer.data() + filled, answer.size() - filled);
        if (got <= 0) throw std::runtime_error("no answer");
        filled += static_cast<size_t>(got);
    }
}

void RawPeer::Tell() {
    std::array<char, kNoticeBytes> notice{};
    const RawHeader header{kNoticeBytes, 0};
    std::memcpy(notice.data(), &header, sizeof header);
    WriteAll(pair_.ours, notice.data(), notice.size());
}

BusPeer::BusPeer(Way way) {
    if (way == Way::Daemon) {
        const std::string address = StartDaemon(daemon_);
        server_ = std::make_unique<Child>(std::vector<std::string>{OwnProgram(), "--serve=bus:" + address});
        bus_ = OpenDaemon(address);
        Await([this] { return sd_bus_get_name_creds(bus_, kName, 0, nullptr) >= 0; });
        return;
    }
    server_ = std::make_unique<Child>(std::vector<std::string>{OwnProgram(), "--serve=bus"}, pair_.theirs);
    pair_.CloseTheirs();
    const int own = fcntl(pair_.ours, F_DUPFD_CLOEXEC, 0);  // the bus closes it
    Check(sd_bus_new(&bus_), "new");
    Check(sd_bus_set_fd(bus_, own, own), "descriptor");
    Check(sd_bus_set_anonymous(bus_, 1), "anonymous");
    Check(sd_bus_start(bus_), "start");
    Ask();
}

BusPeer::~BusPeer() {
    sd_bus_flush_close_unref(bus_);
}

sd_bus_message* BusPeer::NewCall(const char* member) {
    sd_bus_message* call = nullptr;
    Check(sd_bus_message_new_method_call(bus_, &call, daemon_ ? kName : nullptr, kPath, kName, member), "call");
    return call;
}

void BusPeer::Ask() {
    sd_bus_message* call = NewCall("Ask");
    AppendQuestion(call);
    sd_bus_message* reply = nullptr;
    Check(sd_bus_call(bus_, call, 0, nullptr, &reply), "ask");
    sd_bus_message_unref(call);
    ReadQuestion(reply);
    sd_bus_message_unref(reply);
}

void BusPeer::Tell() {
    sd_bus_message* call = NewCall("Tell");
    Check(sd_bus_message_append(call, "a{sv}", 1, kKeyNewTime, "x", int64_t{1'798'131'590}), "append");
    Check(sd_bus_send(bus_, call, nullptr), "send");
    sd_bus_message_unref(call);
}
