// KwEventTime: calls members of a host's objects every n seconds, minutes, hours, days, months or years.
//
// It has no thread: the host calls RunTime on each pass of its main loop, and the handlers run there. Seconds are
// counted from the loop's ticks: at most one a call and never faster than one per 1000 ms, so a slow loop slows them
// down. A minute is over when 60 of them are counted, or after 60,000 ms; then the clock is read, and hours, days,
// months and years fire when their field of the local time differs from the minute before. Whatever moves the clock
// moves them with it: one that is set back fires them too, and a change of daylight saving fires the hour or repeats
// it without a firing.
// Ticks are compared by their distance from the last counted second, so their wrap after 49.7 days shows nowhere. A
// tick that is smaller than the last one by up to half of the range was taken earlier, and nothing happens until the
// ticks have caught up.
// A handler may add events and remove any, its own too. What it adds to the unit that runs is counted in this pass
// already, unless the handler's event is the unit's last or was itself added in this pass.
// An exception that leaves a handler is logged ("exception in timed event NAME: TEXT"), and the walk goes on.
// The object holds no references: a target outlives its events. Those of a target that was registered by Attack before
// AddEventTime, and that is gone when one is due, are removed.
// Thread-safety: none; everything belongs to the thread of the main loop. A handler must not destroy the object.
#pragma once

#include <concepts>
#include <string>
#include <type_traits>

#include "Kw/KwClock.h"
#include "Kw/KwInf.h"
#include "Kw/KwList.h"

enum EVTIMETYPE : int {
    EVTIME_SECOND = 0,
    EVTIME_MINUTE = 1,
    EVTIME_HOUR = 2,
    EVTIME_DAY = 3,
    EVTIME_MONTH = 4,
    EVTIME_YEAR = 5,
};

// A handler: `param` is what the event was registered with.
using KwInfEventTime = void (KwInf::*)(EVTIMETYPE type, unsigned int param);

// A member function with the arguments of a handler, or what converts to one.
template <class M>
void Kw_AsInfEventTime(void (M::*handler)(EVTIMETYPE, unsigned int));
template <class Handler>
concept KwInfEventTimeLike = std::convertible_to<Handler, KwInfEventTime> || requires(Handler handler) {
    Kw_AsInfEventTime(handler);
};

class KW_API KwEventTime {
public:
    KW_TRACKED_NEW

    // printf-like; KwLogSystem::Push is one.
    using Log = void (*)(const char* format, ...);

    // The interval that makes AddEventTime remove.
    static constexpr int kRemove = -999;

    // Takes the local time from `clock`, which outlives the object and its copies; the first form from the system's.
    KwEventTime();
    explicit KwEventTime(KwClock& clock);
    // A copy has the source's clock, as far as it has been counted, and its log, but no events. Assignment removes the
    // target's events.
    KwEventTime(const KwEventTime& other);
    KwEventTime& operator=(const KwEventTime& other);
    // Removes every event.
    ~KwEventTime();

    // What receives the messages, each of which begins with "[name]"; null for nobody.
    void SetLog(const std::string& name, Log log);

    // Takes the time from `clock` from now on; the next RunTime starts anew, with the events and their counts as
    // they are.
    void SetClock(KwClock& clock);

    // Calls `target->handler(type, param)` in every `interval`-th pass of the unit (at least 1) from now on. `name` is
    // for messages only. Within a unit an event is told by target, handler and param; one that is there already
    // stays as it is ("exist" is logged). The interval kRemove removes it instead. Nothing for a null target or handler
    // and for a type that does not exist.
    void AddEventTime(const char* name, EVTIMETYPE type, int interval, unsigned int param, KwInf* target,
                      KwInfEventTime handler);
    // The argument is a KwInfEventTime, unchecked: prefer the typed forms.
    void AddEventTime(const char* name, EVTIMETYPE type, int interval, unsigned int param, KwInf* target, ...);
    // A member of a class derived from KwInf.
    template <class T, class M>
    requires(std::derived_from<M, KwInf>&& std::derived_from<T, M>) void AddEventTime(
        const char* name, EVTIMETYPE type, int interval, unsigned int param, T* target,
        void (M::*handler)(EVTIMETYPE, unsigned int)) {
        AddEventTime(name, type, interval, param, static_cast<KwInf*>(target), static_cast<KwInfEventTime>(handler));
    }
    // A handler of another signature shall not slip into the unchecked form.
    template <class T, class Handler>
    requires(std::is_class_v<T> && !KwInfEventTimeLike<Handler>) void AddEventTime(const char*, EVTIMETYPE, int,
                                                                                   unsigned int, T* target,
                                                                                   Handler handler) = delete;

    // Removes the target's events of one unit.
    void RemoveEventTime(EVTIMETYPE type, KwInf* target);

    // One pass of a unit: counts its events on and fires those that are due, in the order of registration. Costs next
    // to nothing when none is due, however many there are.
    void RunEventTime(EVTIMETYPE type);

    // The clock: call it on each pass of the main loop with the tick of the pass. The first call starts it.
    void RunTime(unsigned int tick);
    // The same with the tick of the clock.
    void RunTime() { RunTime(clock_->GetTick()); }

    // The local time as the object has counted it.
    const STime& GetTime() const { return current_; }

private:
    class Units;

    void Start(unsigned int tick);
    void RunMinute(unsigned int tick);

    static constexpr int kTypes = 6;

    KwList events_[kTypes];  // SEventTime, in the order of registration
    STime current_ = {};
    STime previous_ = {};              // at the last minute pass, and its time of day at the last second
    unsigned int nextSecondTick_ = 0;  // ms
    unsigned int nextMinuteTick_ = 0;
    std::string logName_;
    Log log_ = nullptr;
    KwClock* clock_;
    Units* units_ = nullptr;  // made with the first event
    bool started_ = false;    // a tick of the clock may well be 0
};
