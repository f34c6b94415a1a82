#include "Kw/App/KwEventTime.h"

#include <algorithm>
#include <cstdarg>
#include <memory>

#include "Kw/App/KwEventTimeUnit.h"
#include "Kw/Helper/KwLogSystem.h"
#include "Kw/KwTick.h"

namespace {

constexpr unsigned int kSecond = 1000;  // ms
constexpr unsigned int kMinute = 60000;

const char* const kAddMessages[] = {
    "[%s]Add [%s] with event delay %d second", "[%s]Add [%s] with event delay %d minute",
    "[%s]Add [%s] with event delay %d hour",   "[%s]Add [%s] with event delay %d day",
    "[%s]Add [%s] with event delay %d month",  "[%s]Add [%s] with event delay %d year",
};

}  // namespace

// Windows hosts may take its address: without this line the DLL would not hold it.
constexpr int KwEventTime::kRemove;

class KwEventTime::Units {
public:
    KW_TRACKED_NEW

    explicit Units(KwList* events)
        : units_{KwEventTimeUnit(events[0]), KwEventTimeUnit(events[1]), KwEventTimeUnit(events[2]),
                 KwEventTimeUnit(events[3]), KwEventTimeUnit(events[4]), KwEventTimeUnit(events[5])} {}

    static bool IsType(EVTIMETYPE type) { return static_cast<unsigned int>(type) < kTypes; }
    KwEventTimeUnit& operator[](EVTIMETYPE type) { return units_[type]; }
    void Clear() {
        for (KwEventTimeUnit& unit : units_) unit.Clear();
    }

private:
    KwEventTimeUnit units_[kTypes];
};

KwEventTime::KwEventTime() : KwEventTime(KwClock::GetSystem()) {}

KwEventTime::KwEventTime(KwClock& clock) : clock_(&clock) {
    clock_->GetLocalTime(current_);
    previous_ = current_;
}

KwEventTime::KwEventTime(const KwEventTime& other) : clock_(other.clock_) {
    *this = other;
}

KwEventTime& KwEventTime::operator=(const KwEventTime& other) {
    if (this == &other) return *this;
    if (units_ != nullptr) units_->Clear();
    current_ = other.current_;
    previous_ = other.previous_;
    nextSecondTick_ = other.nextSecondTick_;
    nextMinuteTick_ = other.nextMinuteTick_;
    logName_ = other.logName_;
    log_ = other.log_;
    clock_ = other.clock_;
    started_ = other.started_;
    return *this;
}

KwEventTime::~KwEventTime() {
    delete units_;
}

void KwEventTime::SetLog(const std::string& name, Log log) {
    logName_ = name;
    log_ = log;
}

void KwEventTime::SetClock(KwClock& clock) {
    clock_ = &clock;
    started_ = false;
}

void KwEventTime::AddEventTime(const char* name, EVTIMETYPE type, int interval, unsigned int param, KwInf* target,
                               KwInfEventTime handler) {
    if (target == nullptr || handler == nullptr || !Units::IsType(type)) return;
    if (units_ == nullptr) units_ = new Units(events_);
    std::unique_ptr<SEventTime> event(units_ == nullptr ? nullptr : new SEventTime);
    if (event == nullptr) {
        KwLogSystem::Push("new timed event error");
        return;
    }
    event->target = target;
    event->handler = handler;
    event->param = param;
    event->serial = Kw_InfSerial(target);
    if (name == nullptr) name = "";
    event->name = name;

    KwEventTimeUnit& unit = (*units_)[type];
    SEventTime* found = unit.Find(*event);
    // One whose target is gone only has the address in common with the new one.
    if (found != nullptr && found->serial != 0 && found->serial != event->serial) {
        unit.Remove(found);
        found = nullptr;
    }
    if (found != nullptr || interval == kRemove) {
        if (found == nullptr) return;
        if (interval == kRemove) unit.Remove(found);
        // Hosts set a log function before either of these messages can come, unlike the ones below. One that has
        // not shall live all the same, so it is asked for here too.
        const char* message = interval == kRemove ? "[%s]remove [%s] with event %d" : "[%s]exist [%s] with event %d";
        if (log_ != nullptr) log_(message, logName_.c_str(), name, static_cast<int>(type));
        return;
    }
    event->interval = std::max(interval, 1);
    const int stored = event->interval;
    unit.Add(event.get());
    static_cast<void>(event.release());  // the unit has it now
    if (log_ != nullptr) log_(kAddMessages[type], logName_.c_str(), name, stored);
}

void KwEventTime::AddEventTime(const char* name, EVTIMETYPE type, int interval, unsigned int param, KwInf* target,
                               ...) {
    va_list args;
    va_start(args, target);
    const KwInfEventTime handler = va_arg(args, KwInfEventTime);
    va_end(args);
    AddEventTime(name, type, interval, param, target, handler);
}

void KwEventTime::RemoveEventTime(EVTIMETYPE type, KwInf* target) {
    if (units_ != nullptr && Units::IsType(type)) (*units_)[type].RemoveTarget(target);
}

void KwEventTime::RunEventTime(EVTIMETYPE type) {
    if (units_ != nullptr && Units::IsType(type)) (*units_)[type].Pass(type);
}

void KwEventTime::Start(unsigned int tick) {
    started_ = true;
    clock_->GetLocalTime(current_);
    previous_ = current_;
    nextSecondTick_ = tick + kSecond;
    nextMinuteTick_ = tick + kMinute;
}

void KwEventTime::RunTime(unsigned int tick) {
    if (!started_) return Start(tick);
    const unsigned int lastTick = nextSecondTick_ - kSecond;
    if (!Kw_IsTickPast(tick, lastTick, kSecond)) return;
    ++current_.second;
    nextSecondTick_ = tick + kSecond;
    RunEventTime(EVTIME_SECOND);
    previous_.second = current_.second;
    previous_.minute = current_.minute;
    previous_.hour = current_.hour;
    previous_.day = current_.day;
    // At the last second the minute was not over, so its distance from there is the time that was left.
    if (current_.second < 60 && !Kw_IsTickPast(tick, lastTick, nextMinuteTick_ - lastTick)) return;
    RunMinute(tick);
}

void KwEventTime::RunMinute(unsigned int tick) {
    nextMinuteTick_ = tick + kMinute;
    // Without the system's time the count itself goes on.
    if (!clock_->GetLocalTime(current_)) KwTime::CheckTime(current_);
    RunEventTime(EVTIME_MINUTE);
    if (current_.hour != previous_.hour) RunEventTime(EVTIME_HOUR);
    if (current_.day != previous_.day) RunEventTime(EVTIME_DAY);
    if (current_.month != previous_.month) RunEventTime(EVTIME_MONTH);
    if (current_.year != previous_.year) RunEventTime(EVTIME_YEAR);
    previous_ = current_;
}
