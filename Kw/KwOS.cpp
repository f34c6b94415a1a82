#include "Kw/KwOS.h"

#include <atomic>
#include <mutex>
#include <string>

#include "Kw/Helper/KwLogSystem.h"
#include "Kw/KwGuardedCall.h"
#include "Kw/KwListenEvent.h"
#include "Kw/KwModuleEngine.h"
#include "Kw/KwStaticLock.h"
#include "Kw/Platform/KwPlatformClock.h"
#include "Kw/Platform/KwPlatformFile.h"
#include "Kw/Platform/KwPlatformThread.h"
#include "Kw/Res/KwRes.h"

namespace {

constexpr unsigned int kThreadTag = 0x0043A695;

// What a thread handle points to. Both sides touch the two flags, through atomic_ref.
struct ThreadState {
    KW_TRACKED_NEW

    bool finished = false;
    bool running = false;
    unsigned int tag = kThreadTag;
    KwInf* target = nullptr;  // null for a plain function
    union {
        KwInfThreadBody member = nullptr;
        void (*plain)(bool&, void*);
    };
    void* param = nullptr;
    KwPlatform::Thread* system = nullptr;

    unsigned int id = 0;          // of the thread, set by itself before `running`
    bool selfClosed = false;      // written and read by the thread itself only
    ThreadState* next = nullptr;  // in the list of killed threads

    bool IsFinished() { return std::atomic_ref<bool>(finished).load(std::memory_order_acquire); }
    bool IsRunning() { return std::atomic_ref<bool>(running).load(std::memory_order_acquire); }
};

unsigned int ThreadEntry(void* raw) {
    ThreadState* state = static_cast<ThreadState*>(raw);
    // Before `running`: until then the starter waits and keeps the target alive.
    if (state->target != nullptr) state->target->AddRef();
    state->id = KwPlatform::ThreadCurrentId();
    std::atomic_ref<bool>(state->running).store(true, std::memory_order_release);
    KwGuardedCall("a thread", nullptr, [state] {
        if (state->target != nullptr) {
            (state->target->*state->member)(state->running, state->param);
        } else {
            state->plain(state->running, state->param);
        }
    });
    if (state->target != nullptr) state->target->Release();
    std::atomic_ref<bool>(state->running).store(false, std::memory_order_release);
    if (state->selfClosed) {
        KwPlatform::ThreadDetach(state->system);
        delete state;
        return 0;
    }
    // The last touch: whoever sees the flag frees the state.
    std::atomic_ref<bool>(state->finished).store(true, std::memory_order_release);
    return 0;
}

// The i-th wait of a poll: gives the processor away at first, then sleeps 1 ms, later `longest`.
void Wait(unsigned int i, unsigned int longest) {
    if (i < 100) {
        KwPlatform::ThreadYield();
    } else {
        KwPlatform::SleepMs(i < 110 ? 1 : longest);
    }
}

void* StartThread(ThreadState* state) {
    if (state != nullptr) state->system = KwPlatform::ThreadStart(ThreadEntry, state);
    if (state == nullptr || state->system == nullptr) {
        KwLogSystem::Push("Create Thread error");
        delete state;
        return nullptr;
    }
    // A new thread mostly runs within microseconds; the long waits are for a machine that is overloaded.
    for (unsigned int i = 0; !state->IsRunning() && !state->IsFinished(); ++i) Wait(i, 10);
    return state;
}

ThreadState* CheckThread(void* thread) {
    ThreadState* state = static_cast<ThreadState*>(thread);
    return state != nullptr && state->tag == kThreadTag ? state : nullptr;
}

// Killed threads whose end has not been seen. Their state is freed then, not before: a thread runs on for a
// moment after the kill, and its body holds a reference to the flag.
constinit KwStaticLock g_killedMutex;
constinit ThreadState* g_killed = nullptr;
constinit bool g_killedPosted = false;

// The caller holds g_killedMutex.
void FreeEndedThreads() {
    for (ThreadState** link = &g_killed; *link != nullptr;) {
        ThreadState* state = *link;
        if (!KwPlatform::ThreadHasEnded(state->system)) {
            link = &state->next;
            continue;
        }
        *link = state->next;
        KwPlatform::ThreadClose(state->system);
        delete state;
    }
}

class KilledThreads : public KwModuleEngine {
public:
    KW_TRACKED_NEW

    void EndRelease() override {
        // One that does not end hangs in the system; its state is left behind.
        for (int i = 0; i < 1000; ++i) {
            {
                const std::lock_guard<KwStaticLock> guard(g_killedMutex);
                FreeEndedThreads();
                if (i == 999) g_killed = nullptr;
                if (g_killed == nullptr) {
                    g_killedPosted = false;
                    break;
                }
            }
            KwPlatform::SleepMs(1);
        }
        delete this;
    }
};

}  // namespace

unsigned int KwOS::GetCurrentThreadId() {
    return KwPlatform::ThreadCurrentId();
}

int KwOS::GetCpuCount() {
    return KwPlatform::ProcessorCount();
}

unsigned int KwOS::GetExceptionCount() {
    return Kw_ExceptionCount();
}

void* KwOS::NewThread(void (*body)(bool& run, void* param), void* param) {
    if (body == nullptr) return nullptr;
    ThreadState* state = new ThreadState;
    if (state != nullptr) {
        state->plain = body;
        state->param = param;
    }
    return StartThread(state);
}

void* KwOS::NewThread(KwInf* target, KwInfThreadBody body, void* param) {
    if (target == nullptr || body == nullptr) return nullptr;
    ThreadState* state = new ThreadState;
    if (state != nullptr) {
        state->target = target;
        state->member = body;
        state->param = param;
    }
    return StartThread(state);
}

void KwOS::CloseService(void* thread) {
    ThreadState* state = CheckThread(thread);
    if (state == nullptr) return;
    std::atomic_ref<bool>(state->running).store(false, std::memory_order_release);
    if (state->id == KwPlatform::ThreadCurrentId() && !state->IsFinished()) {
        state->tag = 0;
        state->selfClosed = true;
        return;
    }
    // `finished` is only ever set, by the thread: clearing it here would wait for ever for one that ends
    // by itself at this moment.
    for (unsigned int i = 0; !state->IsFinished(); ++i) Wait(i, 1);
    KwPlatform::ThreadClose(state->system);
    state->tag = 0;
    delete state;
}

void KwOS::KillService(void* thread) {
    ThreadState* state = CheckThread(thread);
    if (state == nullptr) return;
    state->tag = 0;
    KwModuleEngine* module = nullptr;
    {
        const std::lock_guard<KwStaticLock> guard(g_killedMutex);
        FreeEndedThreads();
        if (!g_killedPosted) {
            module = new KilledThreads;
            g_killedPosted = module != nullptr;
        }
        state->next = g_killed;
        g_killed = state;
    }
    PostModuleEngine(module);
    // Last, since a thread that kills itself does not come back. Nobody frees the state before it has ended.
    KwPlatform::ThreadKill(state->system);
}

void* KwOS::CreateEventW(int threads) {
    KwListenEvent* service = new KwListenEvent;
    if (service == nullptr) return nullptr;
    if (service->SetThreads(threads < 1 ? 1 : threads)) return service;
    DeleteEvent(service);
    return nullptr;
}

void KwOS::DeleteEvent(void* event) {
    KwListenEvent* service = static_cast<KwListenEvent*>(event);
    if (service == nullptr) return;
    service->Close();
    service->Release();
}

bool KwOS::PostEvent(void* event, KwInf* target, KwInfEvent callback, void* param, unsigned int delay) {
    if (event == nullptr || target == nullptr || callback == nullptr) return false;
    SKwEventCall call;
    call.kind = SKwEventCall::Kind::kMember;
    call.target = target;
    call.member = callback;
    call.param = param;
    call.delay = delay;
    return static_cast<KwListenEvent*>(event)->Post(call);
}

bool KwOS::PostEvent(void* event, KwEvent_Base* object, void* param, unsigned int delay) {
    if (event == nullptr || object == nullptr) return false;
    SKwEventCall call;
    call.kind = SKwEventCall::Kind::kObject;
    call.object = object;
    call.param = param;
    call.delay = delay;
    return static_cast<KwListenEvent*>(event)->Post(call);
}

bool KwOS::PostEvent(void* event, bool (*callback)(void*), void* param, unsigned int delay) {
    if (event == nullptr || callback == nullptr) return false;
    SKwEventCall call;
    call.kind = SKwEventCall::Kind::kFunction;
    call.function = callback;
    call.param = param;
    call.delay = delay;
    return static_cast<KwListenEvent*>(event)->Post(call);
}

void KwOS::RemoveInfFromEvent(void* event, KwInf* target) {
    if (event != nullptr && target != nullptr) static_cast<KwListenEvent*>(event)->Remove(target);
}

bool KwOS::CanLockApp() {
    const std::string path = std::string(KwRes::GetProcessPath()) + KwRes::GetProcessName() + ".lock";
    // Held until the process ends, however it ends: the system gives it back.
    static std::atomic<KwPlatform::FileLock*> held{nullptr};
    KwPlatform::FileLock* lock = KwPlatform::FileLockAcquire(path.c_str());
    if (lock == nullptr) return false;
    held.store(lock);
    return true;
}
