#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <random>

#include <Kw/Kw.h>
#include <nlohmann/json.hpp>

#include "common/ToolError.h"
#include "kwcall/Commands.h"
#include "kwcall/Request.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned int kDigits = 12;  // of the keys: key:000000000017

// A request of which only the key's digits change.
class Template {
public:
    explicit Template(const std::vector<std::string>& words)
        : bytes_(MakeRequest(words)), at_(bytes_.find("key:") + 4) {}
    const std::string& For(unsigned int key) {
        for (std::size_t i = kDigits; i-- > 0; key /= 10) bytes_[at_ + i] = static_cast<char>('0' + key % 10);
        return bytes_;
    }

private:
    std::string bytes_;
    std::size_t at_;
};

class Driver final : public ICBNetClient {
public:
    Driver(const Target& target, const LoadPlan& plan) : target_(target), plan_(plan) {}

    void Run();
    void Print(bool json);
    bool HasErrors() const { return errors_ != 0; }

    void OnConnect(CNetClient* client) override {
        ++connected_;
        if (!target_.token.empty()) {
            const std::string packet = MakeRequest({"auth", target_.token});
            client->Send(packet.data(), static_cast<unsigned int>(packet.size()));
        }
    }
    void OnPacket(CNetClient* client, const unsigned char* data, unsigned int size) override;
    void OnClose(CNetClient*, KwNetClose reason) override {
        if (!ending_ && why_.empty()) why_ = Kw_NetCloseText(reason);
    }
    void OnError(CNetClient*, const char* text) override {
        if (why_.empty()) why_ = text;
    }

private:
    struct One {
        CNetClient* client = nullptr;
        unsigned int waiting = 0;  // answers of the batch that is under way
        bool isAllowed = false;    // the token was taken, or none is needed
        Clock::time_point sent;
    };

    void Wait(const char* what);
    void Phase(unsigned int requests, bool fill);
    void SendBatch(One& one);

    const Target& target_;
    const LoadPlan& plan_;
    CNetWorkManager manager_;
    std::vector<One> ones_;
    unsigned int connected_ = 0, allowed_ = 0;
    std::string why_;
    bool ending_ = false, filling_ = false, running_ = false;
    unsigned int toSend_ = 0, toCome_ = 0, nextKey_ = 0;
    unsigned int errors_ = 0;
    Template set_{{"set", "key:" + std::string(kDigits, '0'), "value=" + std::string(plan_.size, 'x')}};
    Template get_{{"get", "key:" + std::string(kDigits, '0')}};
    std::mt19937 random_{7};
    std::vector<std::uint32_t> latencies_;  // in 100 ns
    double seconds_ = 0;
};

void Driver::SendBatch(One& one) {
    const unsigned int count = std::min(plan_.pipeline, toSend_);
    one.sent = Clock::now();
    one.waiting = count;
    toSend_ -= count;
    for (unsigned int i = 0; i < count; ++i) {
        const bool isSet = filling_ || random_() % 100 < plan_.setShare;
        const std::string& packet =
            (isSet ? set_ : get_).For(filling_ ? nextKey_++ : static_cast<unsigned int>(random_() % plan_.keys));
        one.client->Send(packet.data(), static_cast<unsigned int>(packet.size()));
    }
}

void Driver::OnPacket(CNetClient* client, const unsigned char* data, unsigned int size) {
    auto& one = *static_cast<One*>(client->GetUserData());
    if (size < kAnswerHeader || (data[0] != kLast && data[0] != kMore)) {
        if (why_.empty()) why_ = "the answer is none of kwstore's";
        return;
    }
    if (data[0] == kMore) return;
    if (!one.isAllowed) {
        one.isAllowed = data[3] == 0;
        allowed_ += one.isAllowed ? 1 : 0;
        if (!one.isAllowed) why_ = "the token is refused";
        return;
    }
    if (!running_ || one.waiting == 0) return;
    const auto passed = std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now() - one.sent).count() / 100;
    if (!filling_) latencies_.push_back(static_cast<std::uint32_t>(std::min<std::int64_t>(passed, 0xFFFFFFFF)));
    if (data[3] != 0) ++errors_;
    --toCome_;
    if (--one.waiting == 0 && toSend_ != 0) SendBatch(one);
}

// One round of the loop; what ended it is thrown.
void Driver::Wait(const char* what) {
    if (!why_.empty()) throw ToolError(std::string(what) + ": " + why_);
    manager_.Pump(100);
}

void Driver::Phase(unsigned int requests, bool fill) {
    filling_ = fill;
    running_ = true;
    toSend_ = toCome_ = requests;
    nextKey_ = 0;
    const Clock::time_point start = Clock::now();
    for (One& one : ones_) {
        if (toSend_ != 0) SendBatch(one);
    }
    while (toCome_ != 0) Wait("a connection ended");
    seconds_ = std::chrono::duration<double>(Clock::now() - start).count();
    running_ = false;
}

void Driver::Run() {
    if (!target_.token.empty()) MakeRequest({"auth", target_.token});
    latencies_.reserve(plan_.requests);
    if (!manager_.Init()) throw ToolError("there is no network");
    manager_.SetPacketsAPass(100000);
    ones_.resize(plan_.connections);
    for (One& one : ones_) {
        one.client = manager_.Connect(target_.net, this);
        if (one.client == nullptr) throw ToolError("cannot connect");
        one.isAllowed = target_.token.empty();
        one.client->SetUserData(&one);
    }
    while (connected_ < plan_.connections) Wait("cannot connect");
    while (!target_.token.empty() && allowed_ < plan_.connections) Wait("not allowed");
    if (plan_.fill) Phase(plan_.keys, true);
    Phase(plan_.requests, false);
    ending_ = true;
    manager_.Close(1000);
    for (One& one : ones_) one.client->Release();
}

void Driver::Print(bool json) {
    std::sort(latencies_.begin(), latencies_.end());
    const auto at = [&](double share) {
        const auto index = static_cast<std::size_t>(share * static_cast<double>(latencies_.size()));
        return latencies_[std::min(index, latencies_.size() - 1)] / 1e4;
    };
    const double rate = plan_.requests / seconds_;
    if (json) {
        const nlohmann::ordered_json out = {{"connections", plan_.connections},
                                            {"pipeline", plan_.pipeline},
                                            {"keys", plan_.keys},
                                            {"size", plan_.size},
                                            {"set", plan_.setShare},
                                            {"requests", plan_.requests},
                                            {"errors", errors_},
                                            {"seconds", seconds_},
                                            {"rate", rate},
                                            {"p50", at(0.5)},
                                            {"p90", at(0.9)},
                                            {"p99", at(0.99)},
                                            {"p99.9", at(0.999)},
                                            {"max", at(1)}};
        std::printf("%s\n", out.dump().c_str());
        return;
    }
    std::printf("%u connections, pipeline %u, %u keys, values of %u bytes, %u %% set\n", plan_.connections,
                plan_.pipeline, plan_.keys, plan_.size, plan_.setShare);
    std::printf("%u requests in %.2f s: %.0f /s, %u errors\n", plan_.requests, seconds_, rate, errors_);
    std::printf("latency ms: p50 %.2f, p90 %.2f, p99 %.2f, p99.9 %.2f, max %.2f\n", at(0.5), at(0.9), at(0.99),
                at(0.999), at(1));
}

}  // namespace

int Load(const Target& target, const LoadPlan& plan, bool json) {
    Driver driver(target, plan);
    driver.Run();
    driver.Print(json);
    return driver.HasErrors() ? kSomeFailed : kAllDone;
}
