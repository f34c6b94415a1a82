#include "Kw/App/KwEventTimeUnit.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "Kw/KwGuardedCall.h"

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
    if (left_.size() == left_.capacity() || at_.size() == at_.capacity()) {
        left_.reserve(2 * left_.size() + 8);
        at_.reserve(2 * at_.size() + 8);
    }
    index_.insert(event);
    left_.push_back(left);
    at_.push_back(event);
    event->place = left_.size() - 1;
    soonest_ = std::min(soonest_, left);
    events_.AddTail(event);
}

void KwEventTimeUnit::Remove(SEventTime* event) {
    index_.erase(event);
    at_[event->place] = nullptr;
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

// Counts the passes that are owed into the row and closes it up where many events were removed.
void KwEventTimeUnit::Settle() {
    for (unsigned int& left : left_) left -= owed_;
    soonest_ = soonest_ == kNothing ? kNothing : soonest_ - owed_;
    owed_ = 0;
    if (walks_ != 0 || holes_ * 2 <= left_.size()) return;
    std::size_t to = 0;
    for (std::size_t from = 0; from < at_.size(); ++from) {
        if (at_[from] == nullptr) continue;
        left_[to] = left_[from];
        at_[to] = at_[from];
        at_[to]->place = to;
        ++to;
    }
    left_.resize(to);
    at_.resize(to);
    holes_ = 0;
}

void KwEventTimeUnit::Walk(EVTIMETYPE type) {
    const Walking walking(*this);
    soonest_ = kNothing;
    const std::size_t before = left_.size();
    std::size_t end = before;
    for (std::size_t i = 0;; ++i) {
        // Handlers change the row and soonest_, so both are taken anew behind each.
        unsigned int soonest = soonest_;
        unsigned int* const left = left_.data();
        for (; i < end && --left[i] != 0; ++i) soonest = std::min(soonest, left[i]);
        soonest_ = soonest;
        if (i >= end) return;
        SEventTime* const event = at_[i];
        if (event == nullptr) continue;
        event->counter = 0;
        left[i] = static_cast<unsigned int>(event->interval);
        soonest_ = std::min(soonest_, left[i]);
        // As a walk of the list that takes the next event before it calls the handler: behind the last one it ends,
        // else it comes to what was appended. Handlers of appended events could keep that up for ever.
        const bool isLast = event->next == &events_.tail;
        Fire(type, event);
        if (isLast) return;
        if (i < before) end = left_.size();
    }
}

void KwEventTimeUnit::Fire(EVTIMETYPE type, SEventTime* event) {
    if (event->serial != 0 && Kw_InfSerial(event->target) != event->serial) {
        Remove(event);
        return;
    }
    KwGuardedCall("timed event", event->name.c_str(),
                  [type, event] { (event->target->*event->handler)(type, event->param); });
}
