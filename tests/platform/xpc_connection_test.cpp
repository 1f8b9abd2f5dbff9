// Clients and listeners in one process, over real sockets, and raw sockets in the place of either.
#include <poll.h>
#include <sys/resource.h>

#include <array>
#include <atomic>
#include <memory>
#include <semaphore>
#include <thread>

#include "platform/linux/service_name.h"
#include "tests/platform/xpc_support.h"

namespace {

constexpr char serviceName[] = "com.example.service";

/// A listener whose peers get `handler`; it keeps them until it goes. Events of the peers are logged.
class Service {
  public:
    using Handler = std::function<void(xpc_connection_t, xpc_object_t)>;

    explicit Service(Handler handler) : listener_(listen()), handler_(std::move(handler)) {
        xpc_connection_set_event_handler(listener_.connection(), [this](xpc_object_t event) { accept(event); });
        xpc_connection_resume(listener_.connection());
    }
    /// Ends every link and the listener, and returns when the last event has been handled.
    ~Service() {
        xpc_connection_cancel(listener_.connection());
        stopped.wait(1);
        const size_t count = peers.size();
        for (size_t i = 0; i < count; ++i) xpc_connection_cancel(kept_[i].connection());
        ended.wait(count);
    }
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    xpc_connection_t peer(size_t index) {
        peers.wait(index + 1);
        return kept_[index].connection();
    }

    Log log;      // messages of peers, and their errors
    Log peers;    // one entry for each
    Log ended;    // one for each peer's invalid event
    Log stopped;  // one for the listener's

  private:
    static xpc_object_t listen() {
        return xpc_connection_create_mach_service(serviceName, nullptr, XPC_CONNECTION_MACH_SERVICE_LISTENER);
    }

    void accept(xpc_object_t event) {
        if (xpc_get_type(event) != XPC_TYPE_CONNECTION) return stopped.add(describe(event));
        auto* peer = static_cast<xpc_connection_t>(event);
        kept_.at(count_++) = Held(xpc_retain(peer));
        xpc_connection_set_event_handler(peer, [this, peer](xpc_object_t received) {
            EXPECT_EQ(xpc_dictionary_get_remote_connection(received), peer);
            log.add(describe(received));
            if (handler_) handler_(peer, received);
            if (received == XPC_ERROR_CONNECTION_INVALID) ended.add("");
        });
        xpc_connection_resume(peer);
        peers.add(describe(event));
    }

    Held listener_;
    Handler handler_;
    std::array<Held, 64> kept_;
    size_t count_ = 0;
};

/// A client connection that logs its events; cancelled at the end, after which its last event is awaited.
class Client {
  public:
    explicit Client(bool resumed = true) : held_(xpc_connection_create(serviceName, nullptr)) {
        xpc_connection_set_event_handler(get(), [this](xpc_object_t event) {
            EXPECT_EQ(xpc_dictionary_get_remote_connection(event), get());
            EXPECT_FALSE(inHandler_.exchange(true)) << "two handlers at once";
            log.add(describe(event));
            inHandler_ = false;
            if (event == XPC_ERROR_CONNECTION_INVALID) ended.add("");
        });
        if (resumed) xpc_connection_resume(get());
    }
    ~Client() {
        xpc_connection_cancel(get());
        ended.wait(1);
    }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    xpc_connection_t get() const { return held_.connection(); }
    void send(int64_t number) { xpc_connection_send_message(get(), message(number)); }
    void ask(int64_t number) {
        xpc_connection_send_message_with_reply(get(), message(number), nullptr, [this](xpc_object_t reply) {
            EXPECT_EQ(xpc_dictionary_get_remote_connection(reply), get());
            replies.add(describe(reply));
        });
    }
    void barrier() {
        xpc_connection_send_barrier(get(), [this] { barriers.add(""); });
    }

    Log log, replies, barriers, ended;

  private:
    Held held_;
    std::atomic<bool> inHandler_{false};
};

void answer(xpc_connection_t peer, xpc_object_t request) {
    if (xpc_get_type(request) != XPC_TYPE_DICTIONARY) return;
    const Held reply(xpc_dictionary_create_reply(request));
    if (reply == nullptr) return;
    xpc_dictionary_set_int64(reply, "n", xpc_dictionary_get_int64(request, "n") + 100);
    xpc_connection_send_message(peer, reply);
}

void writeAll(int fd, const Bytes& bytes) {
    for (size_t at = 0; at < bytes.size();) {
        const ssize_t count = send(fd, bytes.data() + at, bytes.size() - at, MSG_NOSIGNAL);
        if (count <= 0) return;
        at += static_cast<size_t>(count);
    }
}

void waitForEnd(int fd) {
    char byte = 0;
    while (recv(fd, &byte, 1, 0) > 0) continue;
}

/// Writes with `count` copies of a descriptor.
void writeWithDescriptors(int fd, const Bytes& bytes, int count) {
    std::vector<int> fds(static_cast<size_t>(count), STDERR_FILENO);
    std::vector<char> control(CMSG_SPACE(sizeof(int) * fds.size()));
    iovec piece{const_cast<char*>(bytes.data()), bytes.size()};
    msghdr message{};
    message.msg_iov = &piece;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    cmsghdr* header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof(int) * fds.size());
    std::memcpy(CMSG_DATA(header), fds.data(), sizeof(int) * fds.size());
    ASSERT_EQ(sendmsg(fd, &message, MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
}

Bytes numbered(int64_t number) {
    return frame(entry(text("n"), wire::Type::Int64, raw(number)), 1);
}

std::vector<std::string> numbers(int64_t count, std::vector<std::string> after = {}) {
    std::vector<std::string> expected;
    for (int64_t i = 0; i < count; ++i) expected.push_back("n=" + std::to_string(i));
    expected.insert(expected.end(), after.begin(), after.end());
    return expected;
}

class Connections : public testing::Test {
  protected:
    [[nodiscard]] UniqueFd connectRaw() const { return rawClient(directory.services() + "/" + serviceName); }

    RuntimeDirectory directory;
};

TEST_F(Connections, MessagesRepliesAndBarriersBothWays) {
    Service service(answer);
    Client client;
    for (int i = 0; i < 3; ++i) client.send(i), client.barrier();
    EXPECT_EQ(service.log.wait(3), numbers(3));
    client.barriers.wait(3);
    client.ask(7);
    EXPECT_EQ(client.replies.wait(1), std::vector<std::string>{"n=107"});
    EXPECT_EQ(xpc_connection_get_pid(client.get()), std::min(getpid(), 99999));
    EXPECT_EQ(xpc_connection_get_pid(service.peer(0)), std::min(getpid(), 99999));
    EXPECT_EQ(xpc_connection_get_euid(service.peer(0)), geteuid());

    Log asked;  // the server may ask too, and a client answers
    xpc_connection_set_event_handler(client.get(), [&](xpc_object_t event) { answer(client.get(), event); });
    xpc_connection_send_message_with_reply(service.peer(0), message(1), nullptr,
                                           [&](xpc_object_t reply) { asked.add(describe(reply)); });
    EXPECT_EQ(asked.wait(1), std::vector<std::string>{"n=101"});
    xpc_connection_set_event_handler(client.get(), [&](xpc_object_t) { client.ended.add(""); });
}

TEST_F(Connections, DescriptorsArriveWithTheirMessage) {
    xpc_release(xpc_connection_create("nobody", nullptr));  // with it the runtime's own
    const size_t before = openDescriptors();
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    {
        Service service([](auto, xpc_object_t event) {
            const UniqueFd fd(xpc_dictionary_dup_fd(event, "fd"));
            const Bytes written = std::to_string(xpc_dictionary_get_int64(event, "n"));
            if (fd) (void)!write(fd.get(), written.data(), written.size());
        });
        Client client(false);
        for (int i = 0; i < 9; ++i) {  // queued first, so that some leave in one write
            const Held each = message(i);
            if (i % 3 != 1) xpc_dictionary_set_fd(each, "fd", ends[1]);
            if (i % 3 == 2) xpc_dictionary_set_fd(each, "nobody asks for it", ends[1]);
            xpc_connection_send_message(client.get(), each);
        }
        close(ends[1]);
        xpc_connection_resume(client.get());
        service.log.wait(9);
    }
    char got[16] = {};
    size_t count = 0;
    for (ssize_t step = 1; step > 0; count += static_cast<size_t>(step)) {
        step = read(ends[0], got + count, sizeof got - count);  // ends when every copy is closed
    }
    EXPECT_STREQ(got, "023568");
    close(ends[0]);
    EXPECT_EQ(openDescriptors(), before);
}

/// While suspended nothing is sent and nothing handled; resuming sends in order.
TEST_F(Connections, SuspensionHoldsBothDirections) {
    Service service(answer);
    Client client(false);
    client.send(0);
    client.barrier();
    xpc_connection_suspend(client.get());
    client.send(1);
    xpc_connection_resume(client.get());
    Client other;
    other.ask(50);
    other.replies.wait(1);
    EXPECT_EQ(service.log.wait(1), std::vector<std::string>{"n=50"});
    EXPECT_EQ(client.barriers.size(), 0U);
    xpc_connection_resume(client.get());
    EXPECT_EQ(service.log.wait(3), (std::vector<std::string>{"n=50", "n=0", "n=1"}));
    client.barriers.wait(1);

    client.ask(2);
    client.replies.wait(1);
    xpc_connection_suspend(client.get());
    Log left;
    xpc_connection_send_message(service.peer(1), message(3));
    xpc_connection_send_message(service.peer(0), message(3));
    other.log.wait(1);
    EXPECT_EQ(client.log.size(), 0U);
    xpc_connection_resume(client.get());
    EXPECT_EQ(client.log.wait(1), std::vector<std::string>{"n=3"});
}

/// The service ends: interrupted, then the next send connects to the next one. No service: invalid, once.
TEST_F(Connections, InterruptedThenConnectedAgain) {
    Client client(false);
    {
        Service service([](auto, auto) {});
        xpc_connection_resume(client.get());
        client.send(1);
        service.log.wait(1);
        for (int i = 0; i < 3; ++i) client.ask(i);
        service.log.wait(4);
    }
    EXPECT_EQ(client.replies.wait(3), std::vector<std::string>(3, "interrupted"));
    EXPECT_EQ(client.log.wait(1), std::vector<std::string>{"interrupted"});
    {
        Service service(answer);
        client.ask(5);
        EXPECT_EQ(client.replies.wait(4).back(), "n=105");
    }
    EXPECT_EQ(client.log.wait(2).back(), "interrupted");
    client.ask(6);
    client.barrier();
    EXPECT_EQ(client.replies.wait(5).back(), "invalid");
    EXPECT_EQ(client.log.wait(3).back(), "invalid");
    client.barriers.wait(1);
    client.ask(7);
    client.barrier();
    client.send(8);
    EXPECT_EQ(client.replies.wait(6).back(), "invalid");
    client.barriers.wait(2);
    xpc_connection_cancel(client.get());
    EXPECT_EQ(client.log.size(), 3U);
}

/// A reply to a service that has gone neither looks for the next one nor goes to it.
TEST_F(Connections, ReplyToAServiceThatHasGone) {
    const Held connection(xpc_connection_create(serviceName, nullptr));
    Log log, barriers;
    Held question;
    xpc_connection_set_event_handler(connection.connection(), [&](xpc_object_t event) {
        if (xpc_get_type(event) == XPC_TYPE_DICTIONARY) question = Held(xpc_retain(event));
        log.add(describe(event));
    });
    {
        Service service([](auto, auto) {});
        xpc_connection_resume(connection.connection());
        xpc_connection_send_message_with_reply(service.peer(0), message(1), nullptr, [](xpc_object_t) {});
        log.wait(1);
    }
    EXPECT_EQ(log.wait(2).back(), "interrupted");
    answer(connection.connection(), question);
    xpc_connection_send_barrier(connection.connection(), [&] { barriers.add(""); });
    barriers.wait(1);
    EXPECT_EQ(log.size(), 2U);
    Service service([](auto, auto) {});
    xpc_connection_send_message(connection.connection(), message(2));
    EXPECT_EQ(service.log.wait(1).front(), "n=2");
    xpc_connection_cancel(connection.connection());
    EXPECT_EQ(log.wait(3).back(), "invalid");
}

TEST_F(Connections, CancelEndsEverythingOnce) {
    Service service([](auto, auto) {});
    for (const bool resumed : {true, false}) {
        Client client(resumed);
        client.send(1);
        for (int i = 0; i < 4; ++i) client.ask(i), client.barrier();
        for (int i = 0; i < 3; ++i) xpc_connection_cancel(client.get());
        if (!resumed) xpc_connection_resume(client.get());
        client.barrier();
        client.ask(9);
        EXPECT_EQ(client.replies.wait(5), std::vector<std::string>(5, "invalid"));
        EXPECT_EQ(client.log.wait(1), std::vector<std::string>{"invalid"});
        client.barriers.wait(5);
    }
}

/// Cancelling and releasing in its own handler, with messages still queued behind: none of them is delivered.
TEST_F(Connections, CancelInsideTheHandler) {
    Service service([](xpc_connection_t peer, xpc_object_t event) {
        if (xpc_get_type(event) == XPC_TYPE_DICTIONARY) xpc_connection_cancel(peer);
    });
    const UniqueFd fd = connectRaw();
    writeAll(fd.get(), numbered(0) + numbered(1) + numbered(2));
    EXPECT_EQ(service.log.wait(2), numbers(1, {"invalid"}));
    waitForEnd(fd.get());
}

/// What the other side sent before it ended is delivered before the end, however it ended.
TEST_F(Connections, WriteAndCloseLosesNothing) {
    for (const bool unreadInput : {false, true}) {
        Service service([&](xpc_connection_t peer, xpc_object_t event) {
            if (unreadInput && xpc_get_type(event) == XPC_TYPE_DICTIONARY) xpc_connection_send_message(peer, event);
        });
        UniqueFd fd = connectRaw();
        Bytes all;
        for (int i = 0; i < 700; ++i) all += numbered(i);
        writeAll(fd.get(), all + numbered(700).substr(0, 20));
        fd.reset();
        EXPECT_EQ(service.log.wait(701), numbers(700, {"invalid"}));
    }
}

/// Bytes that are no frame cost their sender the connection, after the frames before them, and nobody else.
TEST_F(Connections, MalformedBytesEndTheirConnectionOnly) {
    const Bytes huge = raw<uint32_t>(5 << 20);
    const Bytes unasked = frame(entry(text("f"), wire::Type::Descriptor, raw<int32_t>(0)), 1, {0, 1, 1, 1, 0, 0, 0});
    const std::vector<std::string> refused = {"n=5", "invalid"};
    const struct {
        const char* what;
        Bytes bytes;
        int descriptors;
        std::vector<std::string> events;  // a message 5 goes before the bytes, a 6 and the end after them
    } rows[] = {
        {"oversized length", huge, 0, refused},
        {"bad entry", frame("12345678", 1), 0, refused},
        {"descriptor missing", unasked, 0, refused},
        {"descriptor not claimed", numbered(1), 1, {"n=5", "n=1", "invalid"}},
        {"too many descriptors", unasked, 17, refused},
        {"answer nobody asked for", frame("", 0, {0, 1, 3, 0, 77, 0, 0}), 0, {"n=5", "n=6", "invalid"}},
    };
    Service service(answer);
    Client bystander;
    bystander.ask(0);
    bystander.replies.wait(1);
    const size_t before = openDescriptors();
    std::vector<std::string> expected = {"n=0"};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        const UniqueFd fd = connectRaw();
        writeAll(fd.get(), numbered(5));
        if (row.descriptors > 0) writeWithDescriptors(fd.get(), row.bytes, row.descriptors);
        if (row.descriptors == 0) writeAll(fd.get(), row.bytes);
        if (row.descriptors == 1) waitForEnd(fd.get());  // one read may not take more than the stray one
        writeAll(fd.get(), numbered(6));
        shutdown(fd.get(), SHUT_WR);
        expected.insert(expected.end(), row.events.begin(), row.events.end());
        EXPECT_EQ(service.log.wait(expected.size()), expected);
    }
    bystander.ask(1);
    EXPECT_EQ(bystander.replies.wait(2).back(), "n=101");
    EXPECT_EQ(openDescriptors(), before);
}

/// Descriptors that do not fit into the process are lost by the system: the message cannot be whole.
TEST_F(Connections, LostDescriptorsEndTheConnection) {
    Service service(nullptr);
    const UniqueFd fd = connectRaw();
    service.peers.wait(1);
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    rlimit tight = limit;
    tight.rlim_cur = openDescriptors() + 1;
    setrlimit(RLIMIT_NOFILE, &tight);
    Bytes entries;
    for (char key = 'a'; key < 'k'; ++key) entries += entry({key, '\0'}, wire::Type::Descriptor, raw<int32_t>(0));
    writeWithDescriptors(fd.get(), frame(entries, 10, {0, 1, 1, 10, 0, 0, 0}), 10);
    EXPECT_EQ(service.log.wait(1), std::vector<std::string>{"invalid"});
    setrlimit(RLIMIT_NOFILE, &limit);
}

/// A dictionary that fits no frame is the end of the connection over which it is sent.
TEST_F(Connections, OverfullDictionaryEndsItsConnection) {
    Service service(answer);
    Client client;
    const Held large = message(1);
    for (int i = 0; i < 256; ++i) xpc_dictionary_set_bool(large, std::to_string(i).c_str(), true);
    xpc_connection_send_message(client.get(), large);
    client.barrier();
    EXPECT_EQ(client.log.wait(1), std::vector<std::string>{"invalid"});
    client.barriers.wait(1);
}

TEST_F(Connections, LargeMessagesCrossInPieces) {
    Service service([](xpc_connection_t peer, xpc_object_t event) {
        if (xpc_get_type(event) == XPC_TYPE_DICTIONARY) xpc_connection_send_message(peer, event);
    });
    Client client;
    Log echoed;
    const std::string large(4000000, 'x');
    xpc_connection_set_event_handler(client.get(), [&](xpc_object_t event) {
        size_t length = 0;
        const void* data = xpc_dictionary_get_data(event, "data", &length);
        if (data != nullptr)
            echoed.add(large == std::string(static_cast<const char*>(data), length) ? "same" : "other");
        if (event == XPC_ERROR_CONNECTION_INVALID) client.ended.add("");
    });
    const Held sent = message(1);
    xpc_dictionary_set_data(sent, "data", large.data(), large.size());
    for (int i = 0; i < 4; ++i) xpc_connection_send_message(client.get(), sent);
    EXPECT_EQ(echoed.wait(4), std::vector<std::string>(4, "same"));
}

/// A handler that is behind stops the reading, and nothing is lost or reordered when it goes on.
TEST_F(Connections, BacklogHoldsTheSenderBack) {
    std::mutex gate;
    gate.lock();
    Service service([&](auto, xpc_object_t event) {
        const std::lock_guard pass(gate);
        xpc_dictionary_set_fd(event, "more", STDERR_FILENO);  // a changed message weighs what it weighed when it came
    });
    const UniqueFd fd = connectRaw();
    std::thread writer([&] {
        const Bytes padding = entry(text("data"), wire::Type::Data, Bytes(3000, 'x'));
        for (int64_t i = 0; i < 2000; ++i) {
            writeAll(fd.get(), frame(entry(text("n"), wire::Type::Int64, raw(i)) + padding, 2));
        }
    });
    service.log.wait(1);
    Client neighbour;  // waits for its own handler, but its connection is accepted and read
    service.peers.wait(2);
    gate.unlock();
    writer.join();
    EXPECT_EQ(service.log.wait(2000), numbers(2000));
}

TEST_F(Connections, NeverResumedRunsNothing) {
    const Held neverResumed(platform_testing::make_connection_with_pid(5));
    xpc_connection_send_barrier(neverResumed.connection(), [] { ADD_FAILURE(); });
    xpc_connection_send_message_with_reply(neverResumed.connection(), message(1), nullptr, [](auto) { ADD_FAILURE(); });
    xpc_connection_cancel(neverResumed.connection());
}

/// More callers than the system lets wait: the client comes again until there is room, and its message with it.
TEST_F(Connections, AFullServiceIsTriedAgain) {
    transport::ServiceOffer full;
    ASSERT_TRUE(full.open(directory.path, serviceName));
    ASSERT_EQ(listen(full.socket(), 0), 0);
    std::vector<transport::ServiceLink> waiting(4);
    for (auto& link : waiting) (void)transport::connectToService(directory.path, serviceName, &link);
    Client client;
    client.send(0);
    Log nobody;
    const Held other(xpc_connection_create("com.example.nobody", nullptr));
    xpc_connection_set_event_handler(other.connection(), [&](xpc_object_t event) { nobody.add(describe(event)); });
    xpc_connection_resume(other.connection());
    nobody.wait(1);  // the io thread has tried one after the other, so the client has been turned away
    waiting.clear();
    Bytes got;
    while (got.empty()) {
        pollfd caller{full.socket(), POLLIN, 0};
        ASSERT_EQ(poll(&caller, 1, -1), 1);
        const UniqueFd peer(accept(full.socket(), nullptr, nullptr));
        char bytes[100];
        got.assign(bytes, static_cast<size_t>(recv(peer.get(), bytes, sizeof bytes, 0)));
    }
    EXPECT_EQ(got, numbered(0));
}

TEST_F(Connections, AListenerHasNobodyToTalkTo) {
    const Held listener(xpc_connection_create_mach_service(serviceName, nullptr, XPC_CONNECTION_MACH_SERVICE_LISTENER));
    Log log;
    xpc_connection_set_event_handler(listener.connection(), [&](xpc_object_t event) { log.add(describe(event)); });
    xpc_connection_resume(listener.connection());
    xpc_connection_send_message(listener.connection(), message(1));
    xpc_connection_send_message_with_reply(listener.connection(), message(1), nullptr,
                                           [&](xpc_object_t reply) { log.add("reply " + describe(reply)); });
    EXPECT_EQ(log.wait(1), std::vector<std::string>{"reply invalid"});
    xpc_connection_send_barrier(listener.connection(), [&] { log.add("barrier"); });
    EXPECT_EQ(log.wait(2).back(), "barrier");
    EXPECT_EQ(xpc_connection_get_pid(listener.connection()), 0);
    EXPECT_EQ(xpc_connection_get_euid(listener.connection()), geteuid());
    xpc_connection_cancel(listener.connection());
    EXPECT_EQ(log.wait(3).back(), "invalid");
}

/// A refused peer is left as it came: it closes with the listener's event.
TEST_F(Connections, PeerThatNobodyResumesIsClosed) {
    const Held listener(xpc_connection_create_mach_service(serviceName, nullptr, XPC_CONNECTION_MACH_SERVICE_LISTENER));
    Log log;
    xpc_connection_set_event_handler(listener.connection(), [&](xpc_object_t event) { log.add(describe(event)); });
    xpc_connection_resume(listener.connection());
    Client client(false);
    client.ask(1);  // before it connects, so that it cannot be interrupted first and connect twice
    xpc_connection_resume(client.get());
    EXPECT_EQ(client.replies.wait(1), std::vector<std::string>{"interrupted"});
    xpc_connection_cancel(listener.connection());
    EXPECT_EQ(log.wait(2), (std::vector<std::string>{"peer", "invalid"}));
}

/// Whoever watched over the sockets may be held up in a handler: the others are served all the same.
TEST_F(Connections, AHandlerThatBlocksHoldsUpNobodyElse) {
    std::counting_semaphore<> released{0};
    Service service([&](auto, xpc_object_t event) {
        if (xpc_get_type(event) != XPC_TYPE_DICTIONARY) return;
        xpc_dictionary_get_int64(event, "n") == 1 ? released.acquire() : released.release();
    });
    Client blocked, other;
    for (size_t round = 1; round <= 20; ++round) {
        blocked.send(1);
        other.send(2);
        service.log.wait(2 * round);
    }
}

/// Everything at once from several threads: each barrier and each answer comes exactly once.
TEST_F(Connections, ManyThreadsOnOneConnection) {
    constexpr int threads = 4;
    constexpr int rounds = 300;
    for (const bool cancelled : {false, true}) {
        Service service(answer);
        Client client;
        client.ask(1);
        client.replies.wait(1);
        std::vector<std::thread> senders;
        for (int t = 0; t < threads; ++t) {
            senders.emplace_back([&, t] {
                for (int i = 0; i < rounds; ++i) {
                    const Held own(xpc_retain(client.get()));
                    if (t == 0) xpc_connection_suspend(client.get());
                    client.ask(i);
                    client.send(i);
                    client.barrier();
                    if (t == 0) xpc_connection_resume(client.get());
                    if (cancelled && t == 1 && i == rounds / 2) xpc_connection_cancel(client.get());
                    if (cancelled && t == 2 && i == rounds / 2) xpc_connection_cancel(service.peer(0));
                }
            });
        }
        for (std::thread& sender : senders) sender.join();
        EXPECT_EQ(client.replies.wait(threads * rounds + 1).size(), size_t{threads * rounds + 1});
        EXPECT_EQ(client.barriers.wait(threads * rounds).size(), size_t{threads * rounds});
        if (!cancelled) service.log.wait(2 * threads * rounds + 1);
    }
}

}  // namespace
