#include "Kw/Net/KwNetDatagram.h"

#include <functional>

#include "Kw/Net/KwNetPacket.h"
#include "KwNetTestHost.h"

namespace {

class Ears final : public ICBNetDatagram {
public:
    void OnPacket(CNetDatagram* socket, const SNetAddress& from, const unsigned char* data,
                  unsigned int size) override {
        packets.emplace_back(reinterpret_cast<const char*>(data), size);
        last = from;
        if (echo) socket->SendTo(from, data, size);
        if (packets.back() == "throw") throw 1;
    }
    bool echo = false;
    SNetAddress last;
    std::vector<std::string> packets;
};

class KwNetDatagramTest : public testing::TestWithParam<unsigned int> {
protected:
    void RoundTrip(const std::string& address) {
        SNetDatagramSettings settings;
        settings.address = address;
        Ears there, here;
        there.echo = true;
        CNetDatagram* const server = manager.OpenDatagram(settings, &there);
        if (server == nullptr) GTEST_SKIP() << "this system has no " << address;
        settings.peerAddress = address;
        settings.peerPort = server->GetPort();
        CNetDatagram* const client = manager.OpenDatagram(settings, &here);
        ASSERT_NE(client, nullptr);
        KwNetPacket packet(64);
        packet.Create(9, false);
        packet.AddByte('x');
        EXPECT_TRUE(packet.Send(client));
        const std::string largest(60000, 'l');
        EXPECT_TRUE(SendText(client, ""));
        EXPECT_TRUE(SendText(client, "throw"));
        EXPECT_TRUE(SendText(client, largest));
        EXPECT_FALSE(SendText(client, std::string(65508, 'l')));
        EXPECT_FALSE(SendText(server, "to nobody"));
        const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (here.packets.size() < 4 && std::chrono::steady_clock::now() < until) manager.Pump(10);
        EXPECT_EQ(here.packets, (std::vector<std::string>{"\tx", "", "throw", largest}));
        EXPECT_EQ(there.last.GetText(), address);
        EXPECT_EQ(there.last.port, client->GetPort());
        EXPECT_EQ(server->GetCounters().exceptions, 1u);
        EXPECT_EQ(manager.GetCounters().packetsIn, 8u);
        client->Close();
        while (!client->IsClosed()) manager.Pump(1);
        EXPECT_FALSE(SendText(client, "late"));
        EXPECT_TRUE(manager.Close(100));
        client->Release();
        server->Release();
    }
    CNetWorkManager manager;
};

TEST_P(KwNetDatagramTest, RawPacketsThereAndBack) {
    for (const char* address : {"127.0.0.1", "::1"}) {
        ASSERT_TRUE(manager.Init(GetParam()));
        RoundTrip(address);
        manager.Close(0);
    }
}

INSTANTIATE_TEST_SUITE_P(Threads, KwNetDatagramTest, testing::Values(0u, 2u));

TEST(SNetAddressTest, ReadsNumericAddressesOnly) {
    SNetAddress address;
    EXPECT_TRUE(address.Set("10.1.2.3", 4));
    EXPECT_EQ(address.GetText(), "10.1.2.3");
    EXPECT_TRUE(address.Set("fe80::1", 4));
    EXPECT_TRUE(address.isV6);
    EXPECT_FALSE(address.Set("localhost", 4));
    EXPECT_FALSE(address.Set("", 4));
}

}  // namespace
