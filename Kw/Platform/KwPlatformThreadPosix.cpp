#include "Kw/Platform/KwPlatformThread.h"

#include <pthread.h>
#include <sched.h>
#include <setjmp.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>
#include <new>

namespace KwPlatform {

struct Thread {
    pthread_t id;
    bool joined;
};

namespace {

struct Start {
    unsigned int (*entry)(void* param);
    void* param;
};

struct KillPoint {
    sigjmp_buf place;
};

// Where a kill takes this thread; null before its body has begun and once it has returned.
[[gnu::tls_model("initial-exec")]] thread_local KillPoint* volatile g_killPoint = nullptr;

// A kill is a signal whose handler jumps out of the body. The system's own cancellation would unwind the
// stack from wherever the thread stands, and C++ ends the process when that meets a frame which cannot be
// unwound there.
int KillSignal() {
    return SIGRTMIN + 7;
}

void OnKill(int) {
    KillPoint* point = g_killPoint;
    if (point == nullptr) return;
    g_killPoint = nullptr;
    siglongjmp(point->place, 1);
}

bool InstallKill() {
    struct sigaction action = {};
    action.sa_handler = OnKill;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    return sigaction(KillSignal(), &action, nullptr) == 0;
}

void* RunThread(void* raw) {
    const Start start = *static_cast<Start*>(raw);
    std::free(raw);
    // The thread inherits the mask of whoever started it.
    sigset_t kill;
    sigemptyset(&kill);
    sigaddset(&kill, KillSignal());
    pthread_sigmask(SIG_UNBLOCK, &kill, nullptr);

    KillPoint point;
    if (sigsetjmp(point.place, 1) != 0) return reinterpret_cast<void*>(1);
    g_killPoint = &point;
    const unsigned int result = start.entry(start.param);
    g_killPoint = nullptr;
    return reinterpret_cast<void*>(static_cast<std::size_t>(result));
}

}  // namespace

Thread* ThreadStart(unsigned int (*entry)(void* param), void* param) {
    static const bool killable = InstallKill();
    Start* start = static_cast<Start*>(std::malloc(sizeof(Start)));
    Thread* thread = static_cast<Thread*>(std::malloc(sizeof(Thread)));
    if (killable && start != nullptr && thread != nullptr) {
        *start = {entry, param};
        thread->joined = false;
        if (pthread_create(&thread->id, nullptr, RunThread, start) == 0) return thread;
    }
    std::free(start);
    std::free(thread);
    return nullptr;
}

void ThreadKill(Thread* thread) {
    if (!thread->joined) pthread_kill(thread->id, KillSignal());
}

bool ThreadHasEnded(Thread* thread) {
    if (!thread->joined) thread->joined = pthread_tryjoin_np(thread->id, nullptr) == 0;
    return thread->joined;
}

void ThreadClose(Thread* thread) {
    if (!thread->joined) pthread_join(thread->id, nullptr);
    std::free(thread);
}

void ThreadDetach(Thread* thread) {
    if (!thread->joined) pthread_detach(thread->id);
    std::free(thread);
}

unsigned int ThreadCurrentId() {
    // Not remembered: a child process made by fork has another one.
    return static_cast<unsigned int>(syscall(SYS_gettid));
}

void ThreadYield() {
    sched_yield();
}

int ProcessorCount() {
    const auto count = sysconf(_SC_NPROCESSORS_ONLN);
    return count < 1 ? 1 : static_cast<int>(count);
}

}  // namespace KwPlatform
