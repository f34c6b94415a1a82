#include <cstring>

#include "KwNetTestHost.h"

namespace {

// The peers have a manager of their own, which nobody pumps: they do not read.
class KwNetSlowReaderTest : public KwNetTest {
protected:
    void Start() {
        ASSERT_TRUE(peers.Init());
        Listen();
        peer.manager = &peers;
        peer.client = peers.Connect(clientSettings, &peer);
        ASSERT_TRUE(Pump([&] {
            peers.Pump(0);
            return host.connects == 1 && peer.connects == 1;
        }));
    }
    void TearDown() override {
        KwNetTest::TearDown();
        EXPECT_TRUE(peers.Close(0));
    }
    // Sends until that fails; the packets that were taken.
    int Fill() {
        const std::string large = Packet(std::string(60000, 'q'));
        int taken = 0;
        for (; taken < 10000 && SendText(host.last, large); ++taken) {
            EXPECT_LE(host.last->GetQueuedBytes(), serverSettings.limits.queueBytes);
            manager.Pump(0);
        }
        return taken;
    }
    CNetWorkManager peers;
    TestClient peer;
};

TEST_F(KwNetSlowReaderTest, IsClosedAtTheLimit) {
    serverSettings.limits.queueBytes = 1 << 20;
    Start();
    EXPECT_LT(Fill(), 10000);
    EXPECT_EQ(NextClose(), KwNetClose::kQueueFull);
    EXPECT_EQ(server->GetCounters().queueDrops, 1u);
}

TEST_F(KwNetSlowReaderTest, OrTheHostIsToldAndHearsWhenThereIsRoom) {
    serverSettings.limits.queueBytes = 1 << 20;
    serverSettings.limits.tellQueueFull = true;
    Start();
    const int taken = Fill();
    EXPECT_FALSE(SendText(host.last, Packet(std::string(60000, 'q'))));
    EXPECT_TRUE(Pump([&] { return !host.errors.empty(); }));
    EXPECT_EQ(host.drained, 0);
    EXPECT_TRUE(Pump([&] {
        peers.Pump(0);
        return host.drained == 1 && peer.packets.size() == static_cast<std::size_t>(taken);
    }));
    EXPECT_EQ(host.errors.size(), 1u);
    EXPECT_TRUE(host.closes.empty());
    EXPECT_TRUE(SendText(host.last, Packet("again")));
}

TEST_F(KwNetSlowReaderTest, IsClosedWhenNothingGoesOut) {
    serverSettings.limits.sendStalledMs = 200;
    serverSettings.limits.tellQueueFull = true;
    Start();
    Fill();
    EXPECT_EQ(NextClose(), KwNetClose::kStalled);
}

// Whoever asks without end and reads no answer is not read, either: no memory for the answers is needed.
TEST_F(KwNetSlowReaderTest, IsNotReadWhileHalfOfTheLimitWaits) {
    host.echo = true;
    serverSettings.limits.queueBytes = 1 << 20;
    clientSettings.limits.queueBytes = 64 << 20;
    Start();
    const std::string question = Packet(std::string(60000, 'q'));
    constexpr std::size_t kCount = 400;
    for (std::size_t i = 0; i < kCount; ++i) ASSERT_TRUE(SendText(peer.client, question));
    for (int i = 0; i < 100; ++i) {
        manager.Pump(1);
        EXPECT_LE(host.last->GetQueuedBytes(), 1u << 20);
    }
    EXPECT_TRUE(Pump([&] {
        peers.Pump(0);
        return peer.packets.size() == kCount;
    }));
    EXPECT_TRUE(host.closes.empty());
}

}  // namespace
