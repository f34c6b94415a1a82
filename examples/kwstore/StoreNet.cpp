#include "StoreNet.h"

#include <algorithm>
#include <cstdio>

namespace {

constexpr unsigned int kStop = 2000;  // ms for answers that are on their way

bool IsLoopback(const std::string& address) {
    return address.starts_with("127.") || address == "::1";
}

unsigned int GetCount(KwDS* settings, const char* name, int usual) {
    return static_cast<unsigned int>(std::max(settings->GetInt(name, usual), 0));
}

SNetServerSettings Read(KwDS* settings) {
    SNetServerSettings net;
    net.address = settings->GetString("address", nullptr, net.address.c_str());
    net.port = static_cast<unsigned short>(settings->GetInt("port", 0));
    net.maxConnections = GetCount(settings, "connections", 10000);
    net.limits.idleMs = GetCount(settings, "idle", 600000);
    net.limits.queueBytes = GetCount(settings, "queue", 64 << 20);
    net.limits.maxPacket = std::clamp(GetCount(settings, "packet", 65535), 64u, 65535u);
    net.tls.certificateFile = settings->GetString("certificate", nullptr, "");
    net.tls.keyFile = settings->GetString("key", nullptr, "");
    net.tls.authorityFile = settings->GetString("authority", nullptr, "");
    net.tls.on = !net.tls.certificateFile.empty() || !net.tls.keyFile.empty();
    net.tls.verifyClients = !net.tls.authorityFile.empty();
    return net;
}

std::string GetPeer(const CNetConnect& connect) {
    return connect.GetPeerAddress() + " port " + std::to_string(connect.GetPeerPort());
}

}  // namespace

// A connection, which commands under way may outlive.
class StoreNet::Connection final : public StoreSession {
public:
    explicit Connection(CNetConnect* connect) : connect_(connect) {}

    void Send() override {
        if (isEnding_ && !IsWaiting() && connect_ != nullptr) connect_->Close();
    }
    // No more is taken; it closes when all is answered.
    void End() { isEnding_ = true; }
    bool IsEnding() const { return isEnding_; }
    void OnClosed() {
        connect_ = nullptr;
        Release();
    }

protected:
    std::string GetPeer() const override { return connect_ == nullptr ? "" : ::GetPeer(*connect_); }
    void SendPacket(const unsigned char* packet, unsigned int size) override {
        if (connect_ != nullptr) connect_->Send(packet, size);
    }
    void OnFree() override { delete this; }

private:
    CNetConnect* connect_;  // null once it is gone
    bool isEnding_ = false;
};

// The port ------------------------------------------------------------------------------------------------------

bool StoreNet::Start(KwDS* settings, KwCommand* console, std::string& why) {
    begun_ = manager_.Init();
    const int port = settings == nullptr ? 0 : settings->GetInt("port", 0);
    if (port == 0) return true;
    const SNetServerSettings net = Read(settings);
    const std::string token = settings->GetString("token", nullptr, "");
    if (port < 0 || port > 65535) {
        why = "Net has the port " + std::to_string(port);
    } else if (token.size() > 255) {
        why = "the token of Net is longer than 255 bytes";
    } else if (!IsLoopback(net.address) && token.empty() && !net.tls.on) {
        why = "it does not listen at " + net.address + " for everyone: Net needs a token, or a certificate and a key";
    } else if (!begun_) {
        why = "there is no network; see the log";
    }
    if (!why.empty()) return false;
    manager_.SetPacketsAPass(std::max(GetCount(settings, "pass", 10000), 1u));
    requests_.SetToken(token);
    requests_.SetConsole(console);
    server_ = manager_.Listen(net, this);
    if (server_ == nullptr) {
        why = "it cannot listen at " + net.address + " port " + std::to_string(port) + "; see the log";
        return false;
    }
    console->Add("net.stat", this, &StoreNet::OnStat, "the network's counters");
    KwLogSystem::Push("listens at %s port %d%s%s", net.address.c_str(), port, net.tls.on ? ", TLS" : "",
                      token.empty() ? "" : ", with a token");
    return true;
}

void StoreNet::Wait(unsigned int ms, unsigned int tick) {
    tick_ = tick;
    manager_.Pump(ms);
}

void StoreNet::Stop() {
    manager_.Close(kStop);
    begun_ = false;
    if (server_ != nullptr) server_->Release();
    server_ = nullptr;
}

// Connections ---------------------------------------------------------------------------------------------------

void StoreNet::OnConnect(CNetConnect* connect) {
    connect->SetUserData(new Connection(connect));
}

void StoreNet::OnPacket(CNetConnect* connect, const unsigned char* data, unsigned int size) {
    auto* const connection = static_cast<Connection*>(connect->GetUserData());
    if (connection == nullptr || connection->IsEnding()) return;
    const StoreRequests::Next next = requests_.Take(*connection, data, size);
    if (next == StoreRequests::Next::kGoOn) return;
    connection->End();
    if (next == StoreRequests::Next::kCut) connect->Abort();
}

void StoreNet::OnClose(CNetConnect* connect, KwNetClose reason) {
    if (reason == KwNetClose::kFrame || reason == KwNetClose::kQueueFull || reason == KwNetClose::kTls) {
        KwLogSystem::Push("connection of %s ended: %s", GetPeer(*connect).c_str(), Kw_NetCloseText(reason));
    }
    auto* const connection = static_cast<Connection*>(connect->GetUserData());
    connect->SetUserData(nullptr);
    if (connection != nullptr) connection->OnClosed();
}

void StoreNet::OnPassEnd() {
    commands_.Pass(tick_);
}

// Counters ------------------------------------------------------------------------------------------------------

void StoreNet::LogStatistics() const {
    if (!IsOn()) return;
    const SNetCounters net = manager_.GetCounters();
    KwLogSystem::Push("network: %llu connections, %llu requests, %llu packets of answers, %llu refused, %llu faults",
                      static_cast<unsigned long long>(net.connections), static_cast<unsigned long long>(net.packetsIn),
                      static_cast<unsigned long long>(net.packetsOut),
                      static_cast<unsigned long long>(net.connectionsRefused),
                      static_cast<unsigned long long>(net.frameErrors + net.timeouts + net.lost + net.queueDrops));
}

void StoreNet::OnStat(const std::string&, KwCmd*) {
    commands_.Settle();
    const SNetCounters net = manager_.GetCounters();
    const auto print = [](std::uint64_t value, const char* what) {
        std::printf("%llu %s\n", static_cast<unsigned long long>(value), what);
    };
    print(net.connections, "connections");
    print(net.connectionsTotal, "connections since the start");
    print(net.connectionsRefused, "refused, above the limit");
    print(net.packetsIn, "requests");
    print(net.packetsOut, "packets of answers");
    print(net.bytesIn, "bytes received");
    print(net.bytesOut, "bytes sent");
    print(net.frameErrors, "ended for a length that no packet has");
    print(net.timeouts, "ended because nothing came, or went, for too long");
    print(net.queueDrops, "answers dropped, the queue being full");
    print(net.lost, "lost");
    print(net.tlsFailures, "without TLS, or with damaged TLS");
    std::fflush(stdout);
}
