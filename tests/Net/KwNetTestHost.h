// What the tests of the sockets share: a server and clients whose packets are texts, all pumped by one thread.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "Kw/Net/KwNetClient.h"
#include "Kw/Net/KwNetConnect.h"
#include "Kw/Net/KwNetServer.h"
#include "Kw/Net/KwNetWorkManager.h"

// A length-prefixed packet of type 7.
inline std::string Packet(const std::string& text) {
    const std::size_t size = text.size() + 3;
    return std::string{'\7', static_cast<char>(size), static_cast<char>(size >> 8)} + text;
}

template <class Target>
bool SendText(Target* to, const std::string& bytes) {
    return to->Send(bytes.data(), static_cast<unsigned int>(bytes.size()));
}

class TestServer final : public ICBNetServer {
public:
    void OnConnect(CNetConnect* connect) override {
        ++connects;
        last = connect;
    }
    void OnPacket(CNetConnect* connect, const unsigned char* data, unsigned int size) override {
        packets.emplace_back(reinterpret_cast<const char*>(data) + 3, size - 3);
        if (packets.back() == "throw") throw 1;
        if (echo) connect->Send(data, size);
    }
    void OnClose(CNetConnect*, KwNetClose reason) override { closes.push_back(reason); }
    void OnError(CNetConnect*, const char* text) override { errors.emplace_back(text); }
    void OnDrained(CNetConnect*) override { ++drained; }
    void OnPassEnd() override { ++passes; }

    bool echo = false;
    int connects = 0, drained = 0, passes = 0;
    CNetConnect* last = nullptr;
    std::vector<std::string> packets, errors;
    std::vector<KwNetClose> closes;
};

class TestClient final : public ICBNetClient {
public:
    ~TestClient() {
        if (client == nullptr) return;
        client->Abort();
        while (!client->IsDone()) manager->Pump(1);
        client->Release();
    }
    void OnConnect(CNetClient*) override { ++connects; }
    void OnPacket(CNetClient*, const unsigned char* data, unsigned int size) override {
        packets.emplace_back(reinterpret_cast<const char*>(data) + 3, size - 3);
    }
    void OnClose(CNetClient*, KwNetClose reason) override { closes.push_back(reason); }
    void OnError(CNetClient*, const char* text) override { errors.emplace_back(text); }

    CNetWorkManager* manager = nullptr;
    CNetClient* client = nullptr;
    int connects = 0;
    std::vector<std::string> packets, errors;
    std::vector<KwNetClose> closes;
};

class KwNetTest : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(manager.Init()); }
    void TearDown() override {
        EXPECT_TRUE(manager.Close(2000));
        if (server != nullptr) server->Release();
    }

    // With the settings as they stand now.
    void Listen() {
        server = manager.Listen(serverSettings, &host);
        ASSERT_NE(server, nullptr);
        clientSettings.port = server->GetPort();
    }
    // Begins to connect; Connect also waits for it.
    void Begin(TestClient& to) {
        to.manager = &manager;
        to.client = manager.Connect(clientSettings, &to);
    }
    void Connect(TestClient& to) {
        Begin(to);
        const int connects = host.connects;
        EXPECT_TRUE(Pump([&] { return to.connects == 1 && host.connects == connects + 1; }));
    }
    // False when it does not come to that in time.
    template <class Done>
    bool Pump(Done done, int ms = 10000) {
        const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
        while (!done() && std::chrono::steady_clock::now() < until) manager.Pump(1);
        return done();
    }
    // Waits for the end of a connection of the server; why it ended.
    KwNetClose NextClose() {
        const std::size_t before = closesSeen;
        EXPECT_TRUE(Pump([&] { return host.closes.size() > before; }));
        ++closesSeen;
        return host.closes.size() > before ? host.closes[before] : KwNetClose::kConnect;
    }

    SNetServerSettings serverSettings;
    SNetClientSettings clientSettings;
    TestServer host;
    CNetWorkManager manager;
    CNetServer* server = nullptr;
    std::size_t closesSeen = 0;
};
