#include "KwNetTestHost.h"

namespace {

using Texts = std::vector<std::string>;

TEST_F(KwNetTest, PacketsAreWholeHoweverTheStreamIsCut) {
    host.echo = true;
    Listen();
    TestClient peer;
    Connect(peer);
    const Texts texts{"", "a", std::string(300, 'x'), std::string(65532, 'y')};
    std::string stream;
    for (const std::string& text : texts) stream += Packet(text);
    // Every byte of the small ones in a segment of its own, then all of them glued together.
    const std::size_t small = 3 + 4 + 303;
    for (std::size_t i = 0; i < small; ++i) {
        SendText(peer.client, stream.substr(i, 1));
        manager.Pump(0);
    }
    SendText(peer.client, stream.substr(small));
    SendText(peer.client, stream);
    ASSERT_TRUE(Pump([&] { return peer.packets.size() == 2 * texts.size(); }));
    for (std::size_t i = 0; i < 2 * texts.size(); ++i) EXPECT_EQ(peer.packets[i], texts[i % texts.size()]);
    const SNetCounters counters = server->GetCounters();
    EXPECT_EQ(counters.packetsIn, 2 * texts.size());
    EXPECT_EQ(counters.packetsOut, 2 * texts.size());
    EXPECT_EQ(counters.bytesIn, 2 * stream.size());
    EXPECT_EQ(counters.bytesOut, 2 * stream.size());
}

TEST_F(KwNetTest, AnswersOfAPassGoOutWithOneWriteBehindItsEnd) {
    host.echo = true;
    Listen();
    TestClient peer;
    Connect(peer);
    std::string many;
    for (int i = 0; i < 100; ++i) many += Packet(std::to_string(i));
    SendText(peer.client, many);
    ASSERT_TRUE(Pump([&] { return peer.packets.size() == 100; }));
    EXPECT_EQ(peer.packets.back(), "99");
    EXPECT_EQ(host.passes, 1);
    EXPECT_EQ(server->GetCounters().writes, 1u);
}

TEST_F(KwNetTest, APassHandsOverNoMoreThanItsLimit) {
    manager.SetPacketsAPass(10);
    Listen();
    TestClient peer;
    Connect(peer);
    std::string many;
    for (int i = 0; i < 95; ++i) many += Packet("x");
    SendText(peer.client, many);
    std::size_t before = 0;
    for (int i = 0; i < 1000 && host.packets.size() < 95; ++i) {
        manager.Pump(10);
        EXPECT_LE(host.packets.size() - before, 10u);
        before = host.packets.size();
    }
    EXPECT_EQ(before, 95u);
}

TEST_F(KwNetTest, LengthsThatNoPacketHasEndTheConnection) {
    serverSettings.limits.maxPacket = 100;
    host.echo = true;
    Listen();
    for (const std::string& bad : {std::string("\7\2\0", 3), std::string("\7\0\0", 3), std::string("\7\x65\0", 3)}) {
        TestClient peer;
        Connect(peer);
        SendText(peer.client, Packet("before") + bad + Packet("behind"));
        EXPECT_EQ(NextClose(), KwNetClose::kFrame);
        EXPECT_TRUE(Pump([&] { return !peer.closes.empty(); }));
        EXPECT_EQ(peer.packets, Texts{"before"});
    }
    EXPECT_EQ(host.packets.size(), 3u);
    EXPECT_EQ(server->GetCounters().frameErrors, 3u);
    EXPECT_EQ(server->GetCounters().connections, 0u);
}

TEST_F(KwNetTest, WhatStallsOrIdlesIsClosed) {
    serverSettings.limits.stalledMs = 150;
    serverSettings.limits.idleMs = 600;
    Listen();
    TestClient stalled, dripping, idle;
    Connect(stalled);
    Connect(dripping);
    Connect(idle);
    SendText(stalled.client, std::string("\7", 1));
    // A byte now and then is no progress.
    const std::string drip = Packet(std::string(1000, 'x'));
    std::size_t sent = 0;
    ASSERT_TRUE(Pump([&] {
        SendText(dripping.client, drip.substr(sent++ % 500, 1));
        return host.closes.size() == 2;
    }));
    EXPECT_EQ(NextClose(), KwNetClose::kStalled);
    EXPECT_EQ(NextClose(), KwNetClose::kStalled);
    EXPECT_TRUE(idle.closes.empty());
    EXPECT_EQ(NextClose(), KwNetClose::kIdle);
    EXPECT_EQ(server->GetCounters().timeouts, 3u);
}

TEST_F(KwNetTest, AHostThatDoesNotPumpMakesNobodyLate) {
    serverSettings.limits.idleMs = serverSettings.limits.stalledMs = 300;
    Listen();
    TestClient peer;
    Connect(peer);
    SendText(peer.client, Packet("abc").substr(0, 4));
    manager.Pump(1);
    std::this_thread::sleep_for(std::chrono::milliseconds(600));
    SendText(peer.client, Packet("abc").substr(4));
    EXPECT_TRUE(Pump([&] { return host.packets == Texts{"abc"}; }));
    EXPECT_TRUE(host.closes.empty());
}

TEST_F(KwNetTest, ResetsAndHalfClosedPeers) {
    host.echo = true;
    Listen();
    {
        TestClient peer;
        Connect(peer);
        SendText(peer.client, Packet("x").substr(0, 3));
        manager.Pump(10);
        peer.client->Abort();
        EXPECT_EQ(NextClose(), KwNetClose::kLost);
        EXPECT_EQ(peer.closes, std::vector<KwNetClose>{KwNetClose::kLocal});
        EXPECT_FALSE(SendText(peer.client, Packet("late")));
    }
    // One that sends its end behind a request is answered.
    TestClient peer;
    Connect(peer);
    SendText(peer.client, Packet("last"));
    peer.client->Close();
    EXPECT_EQ(NextClose(), KwNetClose::kPeer);
    EXPECT_EQ(host.packets, Texts{"last"});
    EXPECT_EQ(server->GetCounters().lost, 1u);
}

TEST_F(KwNetTest, AKeptConnectionRefusesBehindItsEnd) {
    Listen();
    TestClient peer;
    Connect(peer);
    CNetConnect* const kept = host.last;
    kept->AddRef();
    EXPECT_EQ(kept->GetPeerAddress(), "127.0.0.1");
    EXPECT_EQ(kept->GetPeerPort(), peer.client->GetLocalPort());
    EXPECT_TRUE(SendText(kept, Packet("bye")));
    kept->Close();
    EXPECT_EQ(NextClose(), KwNetClose::kLocal);
    EXPECT_TRUE(Pump([&] { return !peer.closes.empty(); }));
    EXPECT_EQ(peer.packets, Texts{"bye"});
    EXPECT_TRUE(manager.Close(1000));
    EXPECT_FALSE(SendText(kept, Packet("x")));
    EXPECT_FALSE(kept->IsOpen());
    kept->Close();
    kept->Release();
}

TEST_F(KwNetTest, ConnectionsAboveTheLimitAreRefused) {
    serverSettings.maxConnections = 2;
    Listen();
    TestClient first, second, third, fourth;
    Connect(first);
    Connect(second);
    Begin(third);
    EXPECT_TRUE(Pump([&] { return !third.closes.empty(); }));
    EXPECT_EQ(server->GetCounters().connectionsRefused, 1u);
    EXPECT_EQ(server->GetCounters().connections, 2u);
    first.client->Close();
    EXPECT_TRUE(Pump([&] { return first.client->IsDone() && !host.closes.empty(); }));
    manager.Pump(0);
    Connect(fourth);
}

TEST_F(KwNetTest, ExceptionsOfTheHostEndNothing) {
    host.echo = true;
    Listen();
    TestClient peer;
    Connect(peer);
    SendText(peer.client, Packet("throw") + Packet("on"));
    EXPECT_TRUE(Pump([&] { return peer.packets == Texts{"on"}; }));
    EXPECT_EQ(server->GetCounters().exceptions, 1u);
}

TEST_F(KwNetTest, AStopSendsWhatIsQueuedAndFreesThePort) {
    Listen();
    TestClient peer, late;
    Connect(peer);
    const std::string large(60000, 'z');
    for (int i = 0; i < 20; ++i) EXPECT_TRUE(SendText(host.last, Packet(large)));
    server->Stop(5000);
    EXPECT_TRUE(Pump([&] { return server->IsStopped(); }));
    EXPECT_TRUE(Pump([&] { return peer.packets.size() == 20 && !peer.closes.empty(); }));
    EXPECT_EQ(host.closes, std::vector<KwNetClose>{KwNetClose::kLocal});
    Begin(late);
    EXPECT_TRUE(Pump([&] { return !late.closes.empty(); }));
    EXPECT_EQ(late.errors.size(), 1u);
    serverSettings.port = server->GetPort();
    server->Release();
    Listen();
    TestClient again;
    Connect(again);
}

TEST_F(KwNetTest, ListeningFailsAloud) {
    Listen();
    SNetServerSettings taken = serverSettings;
    taken.port = server->GetPort();
    EXPECT_EQ(manager.Listen(taken, &host), nullptr);
    taken.address = "no such address";
    EXPECT_EQ(manager.Listen(taken, &host), nullptr);
}

TEST_F(KwNetTest, BothFamiliesOfAddresses) {
    serverSettings.address = clientSettings.address = "::1";
    server = manager.Listen(serverSettings, &host);
    if (server == nullptr) GTEST_SKIP() << "this system has no IPv6";
    clientSettings.port = server->GetPort();
    TestClient peer;
    Connect(peer);
    EXPECT_EQ(host.last->GetPeerAddress(), "::1");
    serverSettings.address = "::";
    server->Release();
    Listen();
    clientSettings.address = "127.0.0.1";
    TestClient other;
    Connect(other);
}

}  // namespace
