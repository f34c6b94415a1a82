#include "KwNetTestHost.h"

namespace {

class KwNetClientTest : public KwNetTest {
protected:
    void SetUp() override {
        KwNetTest::SetUp();
        clientSettings.reconnect = true;
        clientSettings.firstPauseMs = 20;
        clientSettings.longestPauseMs = 80;
    }
    void Restart() {
        server->Stop(1000);
        ASSERT_TRUE(Pump([&] { return server->IsStopped(); }));
        serverSettings.port = server->GetPort();
        server->Release();
        server = nullptr;
    }
};

TEST_F(KwNetClientTest, ConnectsAgainWithPausesThatGrow) {
    host.echo = true;
    Listen();
    TestClient peer;
    Connect(peer);
    Restart();
    // While nobody listens the attempts fail, each 10 to 80 ms behind the one before.
    EXPECT_FALSE(Pump([] { return false; }, 1000));
    EXPECT_EQ(peer.closes, std::vector<KwNetClose>{KwNetClose::kPeer});
    EXPECT_GE(peer.errors.size(), 5u);
    EXPECT_LE(peer.errors.size(), 40u);
    EXPECT_FALSE(SendText(peer.client, Packet("nobody")));
    Listen();
    ASSERT_TRUE(Pump([&] { return peer.connects == 2; }));
    SendText(peer.client, Packet("again"));
    EXPECT_TRUE(Pump([&] { return peer.packets == std::vector<std::string>{"again"}; }));
    EXPECT_GE(peer.client->GetCounters().reconnects, 6u);
    EXPECT_EQ(peer.client->GetCounters().connectErrors, peer.errors.size());
    peer.client->Close();
    EXPECT_TRUE(Pump([&] { return peer.client->IsDone(); }));
    EXPECT_EQ(peer.connects, 2);
}

TEST_F(KwNetClientTest, CloseEndsThePauseToo) {
    Listen();
    Restart();
    TestClient peer;
    Begin(peer);
    EXPECT_TRUE(Pump([&] { return !peer.errors.empty(); }));
    peer.client->Close();
    EXPECT_TRUE(Pump([&] { return peer.client->IsDone(); }, 1000));
    EXPECT_TRUE(peer.closes.empty());
}

TEST_F(KwNetClientTest, AnAttemptWithoutReconnectingEndsOnce) {
    clientSettings.reconnect = false;
    Listen();
    Restart();
    TestClient peer, named;
    Begin(peer);
    EXPECT_TRUE(Pump([&] { return peer.client->IsDone(); }));
    EXPECT_EQ(peer.closes, std::vector<KwNetClose>{KwNetClose::kConnect});
    EXPECT_EQ(peer.errors.size(), 1u);
    Listen();
    clientSettings.address = "localhost";
    Connect(named);
}

}  // namespace
