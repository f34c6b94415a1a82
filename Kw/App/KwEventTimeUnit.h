// SEventTime and KwEventTimeUnit: the registered events of one unit and their counts. Internal.
//
// A pass counts down a row of numbers, the passes that each event still has to wait, and looks only at events that
// fire. While none is due, passes are not even counted into the row: they are owed to it.
#pragma once

#include <cstddef>
#include <string>
#include <unordered_set>
#include <vector>

#include "Kw/App/KwEventTime.h"

// One event.
class SEventTime : public KwNode {
public:
    KwInf* target = nullptr;
    KwInfEventTime handler = nullptr;
    int interval = 1;        // fires once every so many passes
    int counter = 0;         // passes since the last firing as the event is added; then the unit's row counts them
    unsigned int param = 0;  // for the handler

    unsigned int serial = 0;  // of a registered target, see Kw_InfSerial; else 0
    std::size_t place = 0;    // in the row
    std::string name;         // for messages
};

class KwEventTimeUnit {
public:
    // `events` is the list of the unit, which outlives it.
    explicit KwEventTimeUnit(KwList& events) : events_(events) {}
    ~KwEventTimeUnit() { Clear(); }
    KwEventTimeUnit(const KwEventTimeUnit&) = delete;
    KwEventTimeUnit& operator=(const KwEventTimeUnit&) = delete;

    // The event with the same target, handler and param, null when there is none.
    SEventTime* Find(SEventTime& like) const;
    // Appends an event, which belongs to the unit from now on.
    void Add(SEventTime* event);
    // Unlinks and frees an event; one that is removed in a pass is freed behind it.
    void Remove(SEventTime* event);
    void RemoveTarget(KwInf* target);
    void Clear();
    void Pass(EVTIMETYPE type);

private:
    struct Hash {
        std::size_t operator()(const SEventTime* event) const;
    };
    struct Same {
        bool operator()(const SEventTime* a, const SEventTime* b) const;
    };
    // What a firing needs, side by side: the events themselves are all over the memory.
    struct Call {
        KwInf* target;
        KwInfEventTime handler;
        unsigned int interval;
        unsigned int param;
        unsigned int serial;
        SEventTime* event;  // null for one that was removed
    };
    class Walking;

    void Settle();
    void CloseUp();
    void Walk(EVTIMETYPE type);
    void Fire(EVTIMETYPE type, const Call& call);

    KwList& events_;
    std::vector<unsigned int> left_;  // passes until the event at this place fires
    std::vector<Call> calls_;         // at the same places
    std::size_t holes_ = 0;
    std::unordered_set<SEventTime*, Hash, Same> index_;
    unsigned int owed_ = 0;            // passes that left_ does not know of, fewer than soonest_
    unsigned int soonest_ = kNothing;  // no number in left_ is smaller
    int walks_ = 0;                    // a handler may run a pass itself
    KwList removed_;                   // during a walk

    static constexpr unsigned int kNothing = 0xFFFFFFFFu;
};
