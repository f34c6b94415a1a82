#include <sys/resource.h>

#include <algorithm>
#include <memory>

#include "KwNetTestHost.h"

namespace {

TEST_F(KwNetTest, TwoThousandConnections) {
    constexpr std::size_t kCount = 2000;
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit before = limit;
    limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, 3 * kCount);
    setrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_cur < 2 * kCount + 100) GTEST_SKIP() << "the system gives too few descriptors";
    host.echo = true;
    Listen();
    std::vector<std::unique_ptr<TestClient>> peers;
    for (std::size_t i = 0; i < kCount; ++i) {
        peers.push_back(std::make_unique<TestClient>());
        Begin(*peers.back());
        manager.Pump(0);
    }
    ASSERT_TRUE(Pump([&] { return host.connects == static_cast<int>(kCount); }, 60000));
    for (int round = 0; round < 3; ++round) {
        for (const auto& peer : peers) SendText(peer->client, Packet("hello"));
        ASSERT_TRUE(Pump([&] { return host.packets.size() == kCount * static_cast<std::size_t>(round + 1); }, 60000));
    }
    for (const auto& peer : peers) EXPECT_TRUE(Pump([&] { return peer->packets.size() == 3; }));
    EXPECT_EQ(server->GetCounters().connections, kCount);
    for (const auto& peer : peers) peer->client->Close();
    EXPECT_TRUE(Pump([&] { return host.closes.size() == kCount; }, 60000));
    peers.clear();
    // Out of descriptors the server goes on when there are some again.
    limit.rlim_cur = 64;
    setrlimit(RLIMIT_NOFILE, &limit);
    for (int i = 0; i < 40; ++i) {
        peers.push_back(std::make_unique<TestClient>());
        Begin(*peers.back());
    }
    EXPECT_TRUE(Pump([&] { return !host.errors.empty(); }));
    setrlimit(RLIMIT_NOFILE, &before);
    TestClient last;
    Begin(last);
    EXPECT_TRUE(Pump([&] { return last.connects == 1; }));
}

}  // namespace
