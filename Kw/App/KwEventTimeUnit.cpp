#include "Kw/App/KwEventTimeUnit.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "Kw/KwGuardedCall.h"

namespace {

// Numbers that are looked at together: the compiler takes several at a time.
constexpr std::size_t kBlock = 64;

// Whether one of a block reaches 0 when it is counted down.
bool AnyEnds(const unsigned int* left) {
    unsigned int ends = 0;
    for (std::size_t i = 0; i < kBlock; ++i) ends |= left[i] == 1 ? 1u : 0u;
    return ends != 0;
}

void CountDown(unsigned int* left) {
    for (std::size_t i = 0; i < kBlock; ++i) --left[i];
}

}  // namespace

// Counts nested walks; with the last one goes what was removed meanwhile.
class KwEventTimeUnit::Walking {
public:
    explicit Walking(KwEventTimeUnit& unit) : unit_(unit) { ++unit_.walks_; }
    ~Walking() {
        if (--unit_.walks_ != 0) return;
        while (KwNode* event = unit_.removed_.RemoveHead()) delete event;
    }
    Walking(const Walking&) = delete;
    Walking& operator=(const Walking&) = delete;

private:
    KwEventTimeUnit& unit_;
};

std::size_t KwEventTimeUnit::Hash::operator()(const SEventTime* event) const {
    // Equal member pointers have equal bytes.
    std::uintptr_t words[sizeof(KwInfEventTime) / sizeof(std::uintptr_t)];
    std::memcpy(words, &event->handler, sizeof(words));
    std::uint64_t hash = reinterpret_cast<std::uintptr_t>(event->target);
    for (const std::uintptr_t word : words) hash = (hash ^ word) * 0x9E3779B97F4A7C15u;
    hash = (hash ^ event->param) * 0x9E3779B97F4A7C15u;
    return static_cast<std::size_t>(hash ^ hash >> 32);
}

bool KwEventTimeUnit::Same::operator()(const SEventTime* a, const SEventTime* b) const {
    return a->target == b->target && a->handler == b->handler && a->param == b->param;
}

SEventTime* KwEventTimeUnit::Find(SEventTime& like) const {
    const auto found = index_.find(&like);
    return found == index_.end() ? nullptr : *found;
}

void KwEventTimeUnit::Add(SEventTime* event) {
    // So that the sum below fits, and that adding and removing alone does not lengthen the row.
    if (owed_ > 0x40000000u || (walks_ == 0 && holes_ * 2 > left_.size())) Settle();
    // The passes that are owed to the row came before this event.
    const unsigned int left = static_cast<unsigned int>(event->interval - event->counter) + owed_;
    if (left_.size() == left_.capacity() || calls_.size() == calls_.capacity()) {
        left_.reserve(2 * left_.size() + 8);
        calls_.reserve(2 * calls_.size() + 8);
    }
    index_.insert(event);
    event->place = left_.size();
    left_.push_back(left);
    calls_.push_back({event->target, event->handler, static_cast<unsigned int>(event->interval), event->param,
                      event->serial, event});
    soonest_ = std::min(soonest_, left);
    events_.AddTail(event);
}

void KwEventTimeUnit::Remove(SEventTime* event) {
    index_.erase(event);
    calls_[event->place].event = nullptr;
    left_[event->place] = 0;  // it will be counted down, round the wrap, and hurt nobody
    ++holes_;
    event->RemoveNode();
    if (walks_ == 0) {
        delete event;
    } else {
        removed_.AddTail(event);
    }
}

void KwEventTimeUnit::RemoveTarget(KwInf* target) {
    for (SKwNode* node = events_.head.next; node != &events_.tail;) {
        auto* event = static_cast<SEventTime*>(node);
        node = node->next;
        if (event->target == target) Remove(event);
    }
}

void KwEventTimeUnit::Clear() {
    while (events_.count != 0) Remove(static_cast<SEventTime*>(events_.head.next));
}

void KwEventTimeUnit::Pass(EVTIMETYPE type) {
    if (walks_ == 0) {
        if (owed_ + 1 < soonest_) {
            ++owed_;
            return;
        }
        Settle();
    }
    Walk(type);
}

// Counts the passes that are owed into the row, which is closed up where many events were removed.
void KwEventTimeUnit::Settle() {
    if (owed_ != 0) {
        for (unsigned int& left : left_) left -= owed_;
        if (soonest_ != kNothing) soonest_ -= owed_;
        owed_ = 0;
    }
    if (walks_ == 0 && holes_ * 2 > left_.size()) CloseUp();
}

void KwEventTimeUnit::CloseUp() {
    std::size_t to = 0;
    for (std::size_t from = 0; from < calls_.size(); ++from) {
        if (calls_[from].event == nullptr) continue;
        left_[to] = left_[from];
        calls_[to] = calls_[from];
        calls_[to].event->place = to;
        ++to;
    }
    left_.resize(to);
    calls_.resize(to);
    holes_ = 0;
}

void KwEventTimeUnit::Walk(EVTIMETYPE type) {
    const Walking walking(*this);
    const std::size_t before = left_.size();
    std::size_t end = before;
    bool fired = false;
    soonest_ = 1;
    for (std::size_t i = 0; i < end;) {
        if (end - i >= kBlock && !AnyEnds(&left_[i])) {
            CountDown(&left_[i]);
            i += kBlock;
            continue;
        }
        for (const std::size_t stop = std::min(i + kBlock, end); i < stop; ++i) {
            if (--left_[i] != 0) continue;
            const Call call = calls_[i];  // a handler may move the row
            if (call.event == nullptr) continue;
            left_[i] = call.interval;
            fired = true;
            // As a walk of the list that takes the next event before it calls the handler: behind the last one it
            // ends, else it comes to what was appended. Handlers of appended events could keep that up for ever.
            const bool isLast = call.event == events_.tail.prev;
            Fire(type, call);
            soonest_ = 1;  // a pass inside the handler found out for itself, and this one goes on counting
            if (isLast) return;
            if (i < before) end = left_.size();
        }
    }
    // Only when nothing was due is it worth finding out for how long.
    if (fired) return;
    soonest_ = kNothing;
    for (const unsigned int left : left_) soonest_ = std::min(soonest_, left);
}

void KwEventTimeUnit::Fire(EVTIMETYPE type, const Call& call) {
    if (call.serial != 0 && Kw_InfSerial(call.target) != call.serial) {
        Remove(call.event);
        return;
    }
    KwGuardedCall(
        "timed event", [&call] { return call.event->name.c_str(); },
        [type, &call] { (call.target->*call.handler)(type, call.param); });
}
