#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <iostream>
#include <memory>
#include <mutex>
#include <thread>

#include <Kw/Kw.h>
#include <nlohmann/json.hpp>

#include "common/ToolError.h"
#include "kwcall/Commands.h"
#include "kwcall/Request.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kWindow = 1000;  // requests that wait for their answer, and lines that wait for them

// The lines of standard input, which come while answers are printed. It may wait for one that never comes, so it stays
// when kwcall ends.
class Lines {
public:
    void Read(CNetWorkManager& manager) {
        for (std::string line; std::getline(std::cin, line);) {
            std::unique_lock<std::mutex> lock(mutex_);
            room_.wait(lock, [this] { return lines_.size() < kWindow; });
            lines_.push_back(std::move(line));
            manager.Wake();
        }
        const std::lock_guard<std::mutex> lock(mutex_);
        ended_ = true;
        manager.Wake();
    }
    bool Take(std::string& line) {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (lines_.empty()) return false;
        line = std::move(lines_.front());
        lines_.pop_front();
        room_.notify_one();
        return true;
    }
    bool IsEnded() {
        const std::lock_guard<std::mutex> lock(mutex_);
        return ended_ && lines_.empty();
    }

private:
    std::mutex mutex_;
    std::condition_variable room_;
    std::deque<std::string> lines_;
    bool ended_ = false;
};

class Caller final : public ICBNetClient {
public:
    Caller(const Target& target, bool json) : target_(target), json_(json) {}

    int Run(const std::vector<std::string>& words);

    void OnConnect(CNetClient* client) override {
        client_ = client;
        if (!target_.token.empty()) Send({"auth", target_.token}, true);
    }
    void OnPacket(CNetClient* client, const unsigned char* data, unsigned int size) override;
    void OnClose(CNetClient*, KwNetClose reason) override {
        client_ = nullptr;
        closed_ = true;
        why_ = error_.empty() ? Kw_NetCloseText(reason) : error_;
    }
    void OnError(CNetClient*, const char* text) override { error_ = text; }

private:
    struct Asked {
        std::vector<std::string> words;
        bool isAuth;
    };

    void Send(std::vector<std::string> words, bool isAuth = false);
    void SendLines();
    void Print(const Asked& asked, unsigned char status, const std::string& text);

    const Target& target_;
    const bool json_;
    CNetWorkManager manager_;
    CNetClient* client_ = nullptr;  // while it is connected
    bool closed_ = false;
    bool denied_ = false;  // the token was refused
    std::string why_, error_;
    std::shared_ptr<Lines> lines_;
    std::deque<Asked> asked_;
    std::string text_;  // of an answer in several packets
    int result_ = kAllDone;
    Clock::time_point heard_ = Clock::now();
};

void Caller::Send(std::vector<std::string> words, bool isAuth) {
    const std::string packet = MakeRequest(words);
    if (asked_.empty()) heard_ = Clock::now();
    asked_.push_back({std::move(words), isAuth});
    client_->Send(packet.data(), static_cast<unsigned int>(packet.size()));
}

void Caller::SendLines() {
    for (std::string line; asked_.size() < kWindow && lines_->Take(line);) {
        // A line that is none leaves the others.
        try {
            std::vector<std::string> words = SplitLine(line);
            if (!words.empty() && !words[0].starts_with('#')) Send(std::move(words));
        } catch (const ToolError& error) {
            std::fprintf(stderr, "kwcall: %s\n", error.what());
            result_ = kSomeFailed;
        }
    }
}

void Caller::OnPacket(CNetClient* client, const unsigned char* data, unsigned int size) {
    if (asked_.empty() || size < kAnswerHeader || (data[0] != kLast && data[0] != kMore)) {
        error_ = "the answer is none of kwstore's";
        return client->Abort();
    }
    heard_ = Clock::now();
    text_.append(reinterpret_cast<const char*>(data) + kAnswerHeader, size - kAnswerHeader);
    if (data[0] == kMore) return;
    Print(asked_.front(), data[3], text_);
    asked_.pop_front();
    text_.clear();
}

void Caller::Print(const Asked& asked, unsigned char status, const std::string& text) {
    if (status != 0) result_ = kSomeFailed;
    if (asked.isAuth && status == 0) return;
    // The connection ends behind it.
    if (asked.isAuth) denied_ = true;
    if (json_) {
        nlohmann::ordered_json json;
        json["command"] = asked.isAuth ? std::vector<std::string>{"auth"} : asked.words;
        json["status"] = status == 0 ? "done" : status == 1 ? "error" : "refused";
        json["answer"] = text;
        std::printf("%s\n", json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace).c_str());
    } else {
        std::fprintf(status == 0 ? stdout : stderr, "%s\n", text.c_str());
    }
    std::fflush(stdout);
}

int Caller::Run(const std::vector<std::string>& words) {
    if (!words.empty()) MakeRequest(words);
    if (!target_.token.empty()) MakeRequest({"auth", target_.token});
    if (!manager_.Init()) throw ToolError("there is no network");
    CNetClient* const client = manager_.Connect(target_.net, this);
    if (client == nullptr) throw ToolError("cannot connect");
    while (client_ == nullptr && !closed_) manager_.Pump(100);
    if (words.empty()) {
        lines_ = std::make_shared<Lines>();
        std::thread([this, lines = lines_] { lines->Read(manager_); }).detach();
    } else if (!closed_) {
        Send(words);
    }
    bool late = false;
    while (!closed_ && !late && (!asked_.empty() || (lines_ != nullptr && !lines_->IsEnded()))) {
        if (lines_ != nullptr) SendLines();
        manager_.Pump(100);
        const std::chrono::duration<double> waited = Clock::now() - heard_;
        late = target_.timeout > 0 && !asked_.empty() && waited.count() > target_.timeout;
    }
    if (late || closed_) {
        std::fflush(stdout);
        if (!denied_) {
            const std::string where = target_.net.address + " port " + std::to_string(target_.net.port);
            std::fprintf(stderr, "kwcall: %s: %s\n", where.c_str(), late ? "no answer in time" : why_.c_str());
            result_ = kNotReached;
        }
        if (lines_ != nullptr) std::_Exit(result_);
    }
    manager_.Close(1000);
    client->Release();
    return result_;
}

}  // namespace

int Call(const Target& target, const std::vector<std::string>& words, bool json) {
    return Caller(target, json).Run(words);
}
