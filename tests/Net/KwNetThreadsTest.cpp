#include <atomic>
#include <cstdlib>
#include <mutex>
#include <random>

#include "KwNetTestHost.h"

namespace {

// KW_NET_STRESS_SECONDS sets how long the random tests run.
std::chrono::steady_clock::time_point StressEnd() {
    const char* const text = std::getenv("KW_NET_STRESS_SECONDS");
    return std::chrono::steady_clock::now() +
           std::chrono::milliseconds(text == nullptr ? 1500 : std::atoi(text) * 1000);
}

// Echoes, and lets another thread send to the connections that it has.
class Crowd final : public ICBNetServer {
public:
    void OnConnect(CNetConnect* connect) override {
        connect->AddRef();
        const std::lock_guard<std::mutex> guard(mutex_);
        connects_.push_back(connect);
        ++opened;
    }
    void OnPacket(CNetConnect* connect, const unsigned char* data, unsigned int size) override {
        connect->Send(data, size);
    }
    void OnClose(CNetConnect* connect, KwNetClose) override {
        {
            const std::lock_guard<std::mutex> guard(mutex_);
            std::erase(connects_, connect);
            ++closed;
        }
        connect->Release();
    }
    void OnError(CNetConnect*, const char*) override {}
    void TellAll(const std::string& packet, bool abort) {
        const std::lock_guard<std::mutex> guard(mutex_);
        for (CNetConnect* connect : connects_) SendText(connect, packet);
        if (abort && !connects_.empty()) connects_.front()->Abort();
    }
    std::atomic<int> opened{0}, closed{0};

private:
    std::mutex mutex_;
    std::vector<CNetConnect*> connects_;
};

// A thread whose clients come, send, also what is no packet, and go.
void Visit(unsigned short port, unsigned int seed, std::chrono::steady_clock::time_point until) {
    CNetWorkManager manager;
    ASSERT_TRUE(manager.Init());
    std::mt19937 random(seed);
    SNetClientSettings settings;
    settings.port = port;
    while (std::chrono::steady_clock::now() < until) {
        TestClient clients[4];
        for (TestClient& each : clients) {
            each.manager = &manager;
            each.client = manager.Connect(settings, &each);
        }
        for (unsigned int i = static_cast<unsigned int>(random()) % 30; i > 0; --i) {
            TestClient& each = clients[random() % 4];
            const std::string text(random() % 3000, 't');
            if (each.client->IsOpen()) SendText(each.client, random() % 20 == 0 ? text : Packet(text));
            if (random() % 10 == 0) each.client->Close();
            if (random() % 20 == 0) each.client->Abort();
            manager.Pump(i % 2);
        }
        for (TestClient& each : clients) each.errors.clear();
    }
    EXPECT_TRUE(manager.Close(1000));
    EXPECT_EQ(manager.GetCounters().connections, 0u);
}

class KwNetThreadsTest : public testing::TestWithParam<KwNetCalls> {};

TEST_P(KwNetThreadsTest, ConnectionsComeAndGoWhileServersStopAndStart) {
    const auto until = StressEnd();
    Crowd host;
    CNetWorkManager manager;
    ASSERT_TRUE(manager.Init(2, GetParam()));
    SNetServerSettings settings;
    CNetServer* server = manager.Listen(settings, &host);
    ASSERT_NE(server, nullptr);
    settings.port = server->GetPort();
    std::vector<std::thread> threads;
    for (unsigned int i = 1; i <= 3; ++i) threads.emplace_back(Visit, settings.port, i, until);
    threads.emplace_back([&] {
        for (int i = 0; std::chrono::steady_clock::now() < until; ++i) {
            host.TellAll(Packet("all"), i % 50 == 0);
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    });
    for (int round = 1; std::chrono::steady_clock::now() < until; ++round) {
        manager.Pump(1);
        if (round % 200 != 0) {
            if (GetParam() == KwNetCalls::kThreads) std::this_thread::sleep_for(std::chrono::milliseconds(1));
            continue;
        }
        server->Stop(static_cast<unsigned int>(round / 200 % 2) * 100);
        while (!server->IsStopped()) manager.Pump(1);
        server->Release();
        server = manager.Listen(settings, &host);
        ASSERT_NE(server, nullptr);
    }
    while (threads.size() > 0) {
        std::atomic<bool> joined{false};
        std::thread joiner([&] {
            threads.back().join();
            joined = true;
        });
        while (!joined) manager.Pump(1);
        joiner.join();
        threads.pop_back();
    }
    EXPECT_TRUE(manager.Close(1000));
    server->Release();
    EXPECT_GT(host.opened, 0);
    EXPECT_EQ(host.opened, host.closed);
    EXPECT_EQ(manager.GetCounters().connections, 0u);
    EXPECT_GT(manager.GetCounters().packetsIn, 0u);
}

INSTANTIATE_TEST_SUITE_P(Calls, KwNetThreadsTest, testing::Values(KwNetCalls::kPump, KwNetCalls::kThreads),
                         [](const auto& each) { return each.param == KwNetCalls::kPump ? "Pump" : "Threads"; });

TEST(KwNetWakeTest, AnotherThreadEndsTheWait) {
    for (unsigned int threads : {0u, 1u}) {
        CNetWorkManager manager;
        ASSERT_TRUE(manager.Init(threads));
        std::thread other([&] { manager.Wake(); });
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_EQ(manager.Pump(20000), 0u);
        EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(15));
        other.join();
    }
}

}  // namespace
