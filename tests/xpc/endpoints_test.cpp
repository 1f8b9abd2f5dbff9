// Servers and clients in one process, over real sockets. The first thread serves the main queue.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <memory>
#include <string>
#include <vector>

#include <platform_testing.h>

#include "tests/support/EventSink.h"
#include "xpc/LXPCClient.h"
#include "xpc/LXPCServer.h"

namespace {

using Events = std::vector<std::string>;

/// A server that drops who goes away and answers every message with R=1, and a client of it.
class Endpoints : public testing::Test {
  protected:
    void SetUp() override {
        service_ = std::string("test.") + testing::UnitTest::GetInstance()->current_test_info()->name();
        server_ = std::make_unique<LXPCMachServer>(&atServer_);
        for (const char* key : {"A", "B", "C"}) server_->AddKey(key, LXPCDataTypeInt64);
        atServer_.onError = [this](long connection) {
            if (LXPCServerBase* const server = LXPCServerBase::pServer) server->Disconnect(connection);
        };
        atServer_.onMessage = [this](long connection, long message) { Answer(connection, message); };
        ASSERT_TRUE(server_->Listen(service_.c_str()));
        client_ = std::make_unique<LXPCClient>(&atClient_);
        client_->AddKey("R", LXPCDataTypeInt64);
        ASSERT_TRUE(client_->Connect(service_.c_str(), 7, true));
    }
    void Answer(long connection, long message) {
        LList<LXPCDataListable> reply;
        reply.Insert(new LXPCDataListable("R", LXPCDataTypeInt64, 1));
        LXPCServerBase::pServer.load()->SendReply(connection, message, reply);
    }
    void Send(const std::vector<LXPCData>& items, bool wantReply, unsigned long id = 7) {
        client_->SendMessage(service_.c_str(), id, items.data(), items.size(), wantReply);
    }
    static LXPCData Number(const char* name, long value) { return {name, LXPCDataTypeInt64, value}; }
    std::string Upper() const {
        std::string name = service_;
        for (char& c : name) c = static_cast<char>(std::toupper(c));
        return name;
    }

    std::string service_;
    Sink atServer_;
    Sink atClient_;
    std::unique_ptr<LXPCMachServer> server_;
    std::unique_ptr<LXPCClient> client_;
};

TEST_F(Endpoints, ARequestIsReadInTheOrderOfRegistrationAndAnsweredOnce) {
    Send({Number("unknown", 5)}, false);  // holds nothing that is registered: no event at the server
    ASSERT_TRUE(atClient_.Await("sent"));
    Send({Number("C", 3), Number("other", 1), Number("A", 1), Number("A", 9)}, true);
    ASSERT_TRUE(atClient_.Await("reply R=1"));
    ASSERT_TRUE(atServer_.Await("sent"));
    Send({Number("B", 2)}, true);
    ASSERT_TRUE(atClient_.Await("reply R=1", 2));
    ASSERT_TRUE(atServer_.Await("sent", 2));
    EXPECT_EQ(atServer_.Events(), (Events{"message A=1 C=3", "sent", "message B=2", "sent"}));
    EXPECT_EQ(atClient_.Events(), (Events{"sent", "reply R=1", "reply R=1"}));
}

TEST_F(Endpoints, OnlyTheFirstAnswerToAMessageThatExpectsOneIsSent) {
    atServer_.onMessage = [this](long connection, long message) {
        Answer(connection, message);
        Answer(connection, message);
    };
    Send({Number("A", 1)}, false);
    Send({}, false);  // an empty message is one all the same
    ASSERT_TRUE(atClient_.Await("sent", 2));
    Send({Number("B", 1)}, true);
    ASSERT_TRUE(atClient_.Await("reply R=1"));
    ASSERT_TRUE(atServer_.Await("sent"));
    EXPECT_EQ(atServer_.Events(), (Events{"message A=1", "message B=1", "sent"}));
}

TEST_F(Endpoints, ConnectionsAreFoundByNameWhateverItsCaseAndIdentifier) {
    ASSERT_TRUE(client_->Connect(service_.c_str(), 7, true));
    ASSERT_TRUE(client_->Connect(service_.c_str(), 8, true));
    const auto listed = [this] {
        std::vector<unsigned long> ids;
        for (const LXPCConnection& each : client_->connections) {
            ids.push_back(static_cast<const LXPCConnectionClient&>(each).id);
        }
        return ids;
    };
    const LXPCConnection* const oldest = client_->connections.head->next->next;
    client_->Disconnect(Upper().c_str(), 7);  // the newer of the two
    EXPECT_EQ(listed(), (std::vector<unsigned long>{8, 7}));
    EXPECT_EQ(client_->connections.head->next, oldest);
    client_->Disconnect(service_.c_str(), 9);
    client_->Disconnect("no such service", 7);
    client_->Disconnect(nullptr, 7);
    EXPECT_EQ(listed().size(), 2U);
    const LXPCData item = Number("A", 1);
    client_->SendMessage(service_.c_str(), 9, &item, 1, true);  // nobody
    client_->SendMessage(Upper().c_str(), 8, &item, 1, true);
    ASSERT_TRUE(atServer_.Await("sent"));
    EXPECT_EQ(std::ranges::count(atServer_.Events(), "message A=1"), 1);
}

TEST_F(Endpoints, NamesThatCannotBeOfferedAreRefused) {
    for (const bool machService : {true, false}) EXPECT_FALSE(client_->Connect("a/b", 1, machService));
    EXPECT_FALSE(client_->Connect(nullptr, 1, true));
    EXPECT_FALSE(server_->Start("a/b"));
}

TEST_F(Endpoints, AServiceThatNobodyOffersIsAnErrorForConnectionAndMessage) {
    ASSERT_TRUE(client_->Connect("test.nobody", 1, true));
    const LXPCData item = Number("A", 1);
    client_->SendMessage("test.nobody", 1, &item, 1, true);
    ASSERT_TRUE(atClient_.Await("error 1", 2));
    EXPECT_EQ(atClient_.Events(), (Events{"error 1", "error 1"}));
}

TEST_F(Endpoints, ASuspendedConnectionSendsNothingUntilItIsResumed) {
    ASSERT_TRUE(client_->Connect(service_.c_str(), 8, true));
    client_->Suspend(service_.c_str(), 7);
    client_->Suspend(service_.c_str(), 7);
    Send({Number("A", 1)}, true);
    Send({Number("B", 1)}, true, 8);
    ASSERT_TRUE(atServer_.Await("sent"));
    EXPECT_EQ(atServer_.Events(), (Events{"message B=1", "sent"}));
    client_->Resume(service_.c_str(), 7);
    client_->Resume(service_.c_str(), 7);
    ASSERT_TRUE(atClient_.Await("reply R=1", 2));
}

TEST_F(Endpoints, AClientThatGoesIsDropped) {
    Send({Number("A", 1)}, false);
    ASSERT_TRUE(atClient_.Await("sent"));
    client_.reset();  // what has left it still arrives
    ASSERT_TRUE(atServer_.Await("error 1"));
    EXPECT_EQ(atServer_.Events(), (Events{"message A=1", "error 1"}));
    EXPECT_EQ(server_->connections.head, nullptr);
}

TEST_F(Endpoints, AnEndpointMayGoFromInsideItsOwnEvents) {
    atServer_.onMessage = [this](long, long) { server_.reset(); };
    atClient_.onReply = [this] { client_.reset(); };
    Send({Number("A", 1)}, true);
    ASSERT_TRUE(atServer_.Await("message A=1"));
    ASSERT_TRUE(atClient_.Await("error 2"));
    EXPECT_EQ(server_, nullptr);

    Sink other;
    LXPCMachServer second(&other);
    second.AddKey("A", LXPCDataTypeInt64);
    other.onMessage = [this](long connection, long message) { Answer(connection, message); };
    ASSERT_TRUE(second.Listen("test.second"));
    ASSERT_TRUE(client_->Connect("test.second", 1, true));
    const LXPCData item = Number("A", 1);
    client_->SendMessage("test.second", 1, &item, 1, true);
    ASSERT_TRUE(atClient_.Await("reply R=1"));
    EXPECT_EQ(client_, nullptr);
}

// ---- Connection objects that are connected to nothing

class Accepting : public testing::Test {
  protected:
    /// Offers a connection whose peer has `pid`; its handle.
    static xpc_connection_t Offer(LXPCServerBase& server, pid_t pid) {
        const xpc_connection_t handle = platform_testing::make_connection_with_pid(pid);
        server.NewConnectionHandler(handle);
        xpc_release(handle);
        return handle;
    }
    static std::vector<xpc_connection_t> Listed(const LXPCServerBase& server) {
        std::vector<xpc_connection_t> handles;
        for (const LXPCConnection& each : server.connections) handles.push_back(each.connection);
        return handles;
    }
    Sink sink_;
};

TEST_F(Accepting, PeersWithoutAnIdentifierAreRefusedByTheNamedServiceOnly) {
    const std::pair<pid_t, bool> rows[] = {{1, true}, {99999, true}, {0, false}, {100000, false}, {-1, false}};
    for (const auto& [pid, accepted] : rows) {
        Sink sink;
        LXPCMachServer named(&sink);
        Offer(named, pid);
        EXPECT_EQ(Listed(named).size(), accepted ? 1U : 0U) << pid;
        EXPECT_EQ(std::ranges::count(sink.Events(), "refused"), accepted ? 0 : 1) << pid;
        LXPCServer unchecked(&sink);
        LXPCServer::StaticNewConnectionHandler(nullptr);
        Offer(unchecked, pid);
        EXPECT_EQ(Listed(unchecked).size(), 1U) << pid;
    }
    LXPCMachServer silent(nullptr);
    Offer(silent, 0);  // nobody to tell
}

TEST_F(Accepting, TheNewestStandsFirstAndAnyCanBeDisconnected) {
    LXPCMachServer server(&sink_);
    const xpc_connection_t a = Offer(server, 1);
    const xpc_connection_t b = Offer(server, 2);
    const xpc_connection_t c = Offer(server, 3);
    EXPECT_EQ(Listed(server), (std::vector<xpc_connection_t>{c, b, a}));
    EXPECT_FALSE(server.connections.head->suspended);
    EXPECT_EQ(server.connections.head->retainCount, 1);
    server.Disconnect(LXPCAddress(b));
    server.Disconnect(LXPCAddress(&server));
    EXPECT_EQ(Listed(server), (std::vector<xpc_connection_t>{c, a}));
}

TEST_F(Accepting, TheServerMadeLastIsTheProcesss) {
    auto first = std::make_unique<LXPCMachServer>(&sink_);
    {
        LXPCServer second(&sink_);
        EXPECT_EQ(LXPCServerBase::pServer, &second);
    }
    EXPECT_EQ(LXPCServerBase::pServer, nullptr);
    const xpc_connection_t dropped = platform_testing::make_connection_with_pid(1);
    LXPCServer::StaticNewConnectionHandler(dropped);
    xpc_release(dropped);
}

TEST_F(Accepting, EveryErrorIsTold) {
    int other = 0;
    ErrorHandler(XPC_ERROR_CONNECTION_INVALID, 1, &sink_);
    ErrorHandler(XPC_ERROR_CONNECTION_INTERRUPTED, 1, &sink_);
    ErrorHandler(XPC_ERROR_TERMINATION_IMMINENT, 1, &sink_);
    ErrorHandler(&other, 1, &sink_);
    ErrorHandler(&other, 1, nullptr);
    EXPECT_EQ(sink_.Events(), (Events{"error 1", "error 2", "error 3", "error 0"}));
}

TEST_F(Accepting, AConnectionGivesBackOnlyWhatItHolds) {
    LXPCConnection none;
    EXPECT_FALSE(none.IsValid());
    none.Cancel();
    none.Release();
    const xpc_connection_t handle = platform_testing::make_connection_with_pid(1);
    {
        LXPCConnection connection(handle);
        connection.Release();
        EXPECT_EQ(connection.retainCount, 0);
        connection.Retain();
        connection.Resume();
        connection.Resume();
        connection.Suspend();  // and goes suspended: resumed before it is cancelled
    }
    EXPECT_EQ(xpc_connection_get_pid(handle), 1);
    xpc_release(handle);
}

}  // namespace
