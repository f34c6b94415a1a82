// StoreSource: where a command came from and its answer goes.
//
// A source that has ended stays as long as commands of it are under way.
// Thread-safety: none; the main thread owns it.
#pragma once

#include <string_view>

enum class StoreStatus : unsigned char {
    kDone = 0,
    kError = 1,
    kRefused = 2,  // unknown, or not allowed here
};

class StoreSource {
public:
    // Takes the next answer, in the order of the commands; `text` is the caller's.
    virtual void Answer(StoreStatus status, std::string_view text) = 0;
    // What was taken leaves.
    virtual void Send() = 0;

    void Hold() { ++held_; }
    void Release() {
        if (--held_ == 0) OnFree();
    }

protected:
    StoreSource() = default;
    StoreSource(const StoreSource&) = delete;
    StoreSource& operator=(const StoreSource&) = delete;
    virtual ~StoreSource() = default;
    // Nobody holds it any more.
    virtual void OnFree() {}
    // Whether commands of it have no answer yet.
    bool IsWaiting() const { return waiting_ != 0; }

private:
    friend class StoreAnswers;
    unsigned int held_ = 1;
    unsigned int waiting_ = 0;  // answers
    bool answered_ = false;     // and to be sent
};

// The console: standard output.
class StoreConsoleSource final : public StoreSource {
public:
    void Answer(StoreStatus status, std::string_view text) override;
    void Send() override;
};
