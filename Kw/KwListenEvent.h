// KwListenEvent: an event service, a queue of posted calls and the threads that run them.
//
// KwOS makes and deletes services and explains the rules of posting.
// Thread-safety: posting and removing from any thread; opening and closing from one. Callbacks run
// without the service's lock, several at once when there are several listeners.
#pragma once

#include <vector>

#include "Kw/KwInf.h"
#include "Kw/KwList.h"

class KwEvent_Base;

// What is called, with what, and when.
struct SKwEventCall {
    enum class Kind : unsigned char { kMember, kObject, kFunction };

    void* param = nullptr;
    unsigned int delay = 0;      // ms, 0 = none
    unsigned int startTick = 0;  // when the delay began
    unsigned int polls = 0;
    unsigned int pollLimit = 0;  // delay / 5
    union {
        KwInf* target = nullptr;  // kMember
        KwEvent_Base* object;     // kObject
    };
    union {
        KwInfEvent member = nullptr;    // kMember
        bool (*function)(void* param);  // kFunction
    };
    Kind kind = Kind::kMember;

    bool Run() const;
    // Gives the target's reference back, if there is one.
    void LetGo() const;
};

// A call in a service's lists. Nodes are used again for later events.
class KW_API SKwListenEvent : public KwNode {
public:
    SKwEventCall call;
    bool removed = false;  // while it ran
};

class KW_API KwListenEvent : public KwInfLock {
public:
    KwListenEvent() = default;
    KwListenEvent(const KwListenEvent&) = delete;
    KwListenEvent& operator=(const KwListenEvent&) = delete;
    // Frees the nodes; what is still queued is not run.
    ~KwListenEvent() override;

    // Starts listeners or stops the oldest until `count` run. A thread that cannot be started is logged
    // as "OpenListenService error"; returns whether the count was reached.
    bool SetThreads(int count);
    // Refuses what is posted from here on, and stops every listener once the queue is empty.
    void Close();

    // Queues a call whose callback, target, parameter and delay are set.
    bool Post(const SKwEventCall& call);
    // Removes the queued events of `target`; one that runs at this moment is not repeated.
    void Remove(KwInf* target);

private:
    void _OnListen(bool& run, void* param);
    SKwListenEvent* TakeFirst();
    bool PutBack(SKwListenEvent* node);
    void Recycle(SKwListenEvent* node);
    static bool IsDue(SKwEventCall& call);

    KwList queue_;
    KwList spare_;  // at most kSpareLimit nodes
    std::vector<void*> threads_;
    int threadCount_ = 0;
    bool closing_ = false;
    KwList active_;  // the events that listeners run now

    static constexpr int kSpareLimit = 100;
};
