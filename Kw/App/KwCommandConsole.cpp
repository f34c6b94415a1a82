// KwCommand's side towards the console: keys and lines.
#include "Kw/App/KwCommand.h"
#include "Kw/Helper/KwLogSystem.h"
#include "Kw/Platform/KwPlatformClock.h"
#include "Kw/Platform/KwPlatformConsole.h"
#include "Kw/Platform/KwPlatformInput.h"
#include "Kw/Platform/KwPlatformSignal.h"

namespace {

constexpr int kKeyEnter = 13;
constexpr int kKeyBackspace = 8;
constexpr int kKeysPerCall = 65536;
constexpr unsigned int kEndedPauseMs = 100;
constexpr unsigned int kPasswordPauseMs = 10;

bool IsPrefix(int key) {
    return key == 0 || key == 224;
}

// As they follow the prefix 224.
bool IsArrowOrDelete(int key) {
    return key == 75 || key == 77 || key == 72 || key == 80 || key == 83;
}

// Bytes of the UTF-8 character that ends at `text + length`; 1 when no whole one does.
int LastCharacter(const char* text, int length) {
    int trail = 0;
    while (trail < 3 && trail + 1 < length && (static_cast<unsigned char>(text[length - 1 - trail]) & 0xC0) == 0x80) {
        ++trail;
    }
    const auto lead = static_cast<unsigned char>(text[length - 1 - trail]);
    const int expected = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : lead >= 0xC0 ? 1 : 0;
    return trail == expected ? trail + 1 : 1;
}

}  // namespace

void KwCommand::Listen() {
    stopLines_.store(false, std::memory_order_relaxed);
    for (int i = 0; i < kKeysPerCall && !stopLines_.load(std::memory_order_relaxed); ++i) {
        if (!KwPlatform::KeyWaiting()) return;
        const int key = KwPlatform::KeyRead();
        if (key < 0) return;
        OnKey(key);
    }
}

void KwCommand::OnKey(int key) {
    if (IsPrefix(previousKey_)) {
        // The prefix itself stands in the line like any character, and the key behind it removes it again, so
        // these keys do nothing. Behind 224 that holds for the arrows and Delete alone; others leave it there.
        if ((previousKey_ == 0 || IsArrowOrDelete(key)) && lineLength_ > 0) --lineLength_;
        previousKey_ = -1;
        return;
    }
    previousKey_ = key;
    if (key == kKeyBackspace) {
        DropLast();
        previousKey_ = -1;
        return;
    }
    if (key != kKeyEnter && lineLength_ < kLineCapacity - 1) {
        const char c = static_cast<char>(key);
        lineBuffer_[lineLength_++] = c;
        // A tab would move the cursor by a distance that cannot be wiped again.
        if (!IsPrefix(key)) KwPlatform::ConsoleEcho(c == '\t' ? " " : &c, 1);
        return;
    }
    KwPlatform::ConsoleEcho("\n", 1);
    lineBuffer_[lineLength_] = '\0';
    // Empty before the line runs: its handler may listen itself.
    const int length = lineLength_;
    lineLength_ = 0;
    Do(lineBuffer_, length);
}

void KwCommand::DropLast() {
    if (lineLength_ <= 0) return;
    const int length = LastCharacter(lineBuffer_, lineLength_);
    lineLength_ -= length;
    KwPlatform::ConsoleErase(lineBuffer_ + lineLength_, length);
}

bool KwCommand::ReadLine(char (&line)[kLineCapacity]) {
    for (;;) {
        KwPlatform::InputFlushTyped();
        switch (KwPlatform::LineRead(line, kLineCapacity, stop_)) {
            case KwPlatform::LineStatus::Line: return true;
            case KwPlatform::LineStatus::TooLong:
                KwLogSystem::Push("command line of more than %d characters refused", kLineCapacity - 1);
                break;
            case KwPlatform::LineStatus::End:
            case KwPlatform::LineStatus::Stopped: return false;
        }
    }
}

void KwCommand::WaitEvent() {
    char line[kLineCapacity];
    if (ReadLine(line)) {
        PushLine(line);
    } else if (IsInputEnded()) {
        // A host calls this in a loop, which must not spin.
        KwPlatform::SleepMs(kEndedPauseMs);
    }
}

void KwCommand::StopWait() {
    KwPlatform::LineStopSignal(stop_);
}

void KwCommand::RearmWait() {
    KwPlatform::LineStopRearm(stop_);
}

bool KwCommand::IsInputEnded() {
    return KwPlatform::InputEnded();
}

std::string KwCommand::InputPassword() {
    std::string password;
    KwPlatform::KeysClaim(true);
    while (!KwPlatform::InputEnded() && !KwPlatform::SignalStopRequested()) {
        if (!KwPlatform::KeyWaiting()) {
            KwPlatform::SleepMs(kPasswordPauseMs);
            continue;
        }
        const int key = KwPlatform::KeyRead();
        if (key == kKeyEnter || key < 0) break;
        password += static_cast<char>(key);
        KwPlatform::ConsoleEcho("*", 1);
    }
    KwPlatform::ConsoleEcho("\n", 1);
    KwPlatform::KeysClaim(false);
    return password;
}
