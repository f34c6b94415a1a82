// 10,000 registered timers on these works; each timer that fires adds to a number and is set again:
//   idle    a pass of the main loop between two units of time
//   none    a pass with a new unit of time in which nothing is due
//   due     a pass in which 100 of them are, others each time; per timer that fires
//   change  one more timer is registered and removed again
// The unit of time is a second for Kw, whose ticks the benchmark sets, and a millisecond for the event loops, which
// run on the system's clock: the wait for the next one is not measured. "list" walks a list and counts every event.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdint>
#include <list>
#include <memory>
#include <queue>
#include <vector>

#include "Kw/App/KwEventTime.h"

#if defined(KW_PEER_UV)
#include <uv.h>
#endif
#if defined(KW_PEER_ASIO)
#include <asio.hpp>
#endif

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kTimers = 10000;
constexpr int kPeriod = 100;  // units between two firings of one timer in "due"

int g_fired = 0;

// Measures `pass` alone; `prepare` comes before each.
template <class Prepare, class Pass>
void Measure(benchmark::State& state, bool perTimer, Prepare prepare, Pass pass) {
    g_fired = 0;
    for (auto _ : state) {
        prepare();
        const auto start = Clock::now();
        pass();
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
    }
    if (perTimer) state.SetItemsProcessed(g_fired);
}

// A short pass is repeated, so that reading the clock does not count.
template <class Pass>
auto Times(int times, Pass pass) {
    return [=] {
        for (int i = 0; i < times; ++i) pass();
    };
}

constexpr int kRepeat = 1000;

void Each(benchmark::State& state) {
    state.SetItemsProcessed(state.iterations() * kRepeat);
}

void Nothing() {}

// Kw ----------------------------------------------------------------------------------------------------------

class Target : public KwInf {
public:
    void OnTime(EVTIMETYPE, unsigned int) { ++g_fired; }
};

struct Kw {
    // Events that are due in every `period`-th second, as many in each.
    explicit Kw(int period) {
        events.RunTime(tick);
        const int step = kTimers / kPeriod;
        for (int i = 0; i < kTimers; ++i) {
            if (period == kPeriod && i % step == 0) Second();
            events.AddEventTime("", EVTIME_SECOND, period, static_cast<unsigned int>(i), &target, &Target::OnTime);
        }
    }
    void Second() { events.RunTime(tick += 1001); }

    Target target;
    KwEventTime events;
    unsigned int tick = 1;
};

void Kw_Idle(benchmark::State& state) {
    Kw kw(1 << 30);
    Measure(state, false, Nothing, Times(kRepeat, [&] { kw.events.RunTime(kw.tick); }));
    Each(state);
}
void Kw_None(benchmark::State& state) {
    Kw kw(1 << 30);
    Measure(state, false, Nothing, Times(kRepeat, [&] { kw.Second(); }));
    Each(state);
}
void Kw_Due(benchmark::State& state) {
    Kw kw(kPeriod);
    Measure(state, true, Nothing, [&] { kw.Second(); });
}
void Kw_Change(benchmark::State& state) {
    Kw kw(1 << 30);
    Measure(state, false, Nothing, Times(kRepeat, [&] {
                kw.events.AddEventTime("", EVTIME_SECOND, 7, kTimers, &kw.target, &Target::OnTime);
                kw.events.AddEventTime("", EVTIME_SECOND, KwEventTime::kRemove, kTimers, &kw.target, &Target::OnTime);
            }));
    Each(state);
}

// The standard library ------------------------------------------------------------------------------------------

struct ListEvent {
    Target* target;
    int interval;
    int counter;
};

void List_Pass(benchmark::State& state, int period, bool perTimer) {
    Target target;
    std::list<ListEvent> events;
    for (int i = 0; i < kTimers; ++i) events.push_back({&target, period, i % kPeriod});
    Measure(state, perTimer, Nothing, [&] {
        for (ListEvent& event : events) {
            if (++event.counter < event.interval) continue;
            event.counter = 0;
            event.target->OnTime(EVTIME_SECOND, 0);
        }
    });
}
void List_None(benchmark::State& state) {
    List_Pass(state, 1 << 30, false);
}
void List_Due(benchmark::State& state) {
    List_Pass(state, kPeriod, true);
}

struct HeapEvent {
    std::uint64_t due;
    Target* target;
    bool operator>(const HeapEvent& other) const { return due > other.due; }
};

void Heap_Due(benchmark::State& state) {
    Target target;
    std::priority_queue<HeapEvent, std::vector<HeapEvent>, std::greater<>> heap;
    for (int i = 0; i < kTimers; ++i) heap.push({static_cast<std::uint64_t>(1 + i % kPeriod), &target});
    std::uint64_t now = 0;
    Measure(state, true, Nothing, [&] {
        ++now;
        while (heap.top().due <= now) {
            HeapEvent event = heap.top();
            heap.pop();
            event.due += kPeriod;
            heap.push(event);
            event.target->OnTime(EVTIME_SECOND, 0);
        }
    });
}

BENCHMARK(Kw_Idle)->Name("idle/Kw")->UseManualTime();
BENCHMARK(Kw_None)->Name("none/Kw")->UseManualTime();
BENCHMARK(Kw_Due)->Name("due/Kw")->UseManualTime();
BENCHMARK(Kw_Change)->Name("change/Kw")->UseManualTime();
BENCHMARK(List_None)->Name("none/list")->UseManualTime();
BENCHMARK(List_Due)->Name("due/list")->UseManualTime();
BENCHMARK(Heap_Due)->Name("due/std::priority_queue")->UseManualTime();

// Event loops ---------------------------------------------------------------------------------------------------

#if defined(KW_PEER_UV) || defined(KW_PEER_ASIO)
constexpr int kHour = 3600 * 1000;  // ms

// Waits until the system's clock shows another millisecond.
void NextMillisecond() {
    const auto now = std::chrono::floor<std::chrono::milliseconds>(Clock::now());
    while (std::chrono::floor<std::chrono::milliseconds>(Clock::now()) == now) {
    }
}
#endif

#if defined(KW_PEER_UV)
struct Uv {
    explicit Uv(int period) : timers(kTimers) {
        uv_loop_init(&loop);
        for (int i = 0; i < kTimers; ++i) {
            uv_timer_init(&loop, &timers[static_cast<std::size_t>(i)]);
            const auto first = static_cast<std::uint64_t>(period == kPeriod ? 1 + i % kPeriod : period);
            uv_timer_start(&timers[static_cast<std::size_t>(i)], OnTime, first, static_cast<std::uint64_t>(period));
        }
    }
    ~Uv() {
        for (uv_timer_t& timer : timers) uv_close(reinterpret_cast<uv_handle_t*>(&timer), nullptr);
        uv_run(&loop, UV_RUN_DEFAULT);
        uv_loop_close(&loop);
    }
    static void OnTime(uv_timer_t*) { ++g_fired; }
    void Pass() { uv_run(&loop, UV_RUN_NOWAIT); }

    uv_loop_t loop;
    std::vector<uv_timer_t> timers;
};

void Uv_Idle(benchmark::State& state) {
    Uv uv(kHour);
    Measure(state, false, Nothing, Times(kRepeat, [&] { uv.Pass(); }));
    Each(state);
}
void Uv_None(benchmark::State& state) {
    Uv uv(kHour);
    Measure(state, false, NextMillisecond, [&] { uv.Pass(); });
}
void Uv_Due(benchmark::State& state) {
    Uv uv(kPeriod);
    Measure(state, true, NextMillisecond, [&] { uv.Pass(); });
}
void Uv_Change(benchmark::State& state) {
    Uv uv(kHour);
    uv_timer_t timer;
    uv_timer_init(&uv.loop, &timer);
    Measure(state, false, Nothing, Times(kRepeat, [&] {
                uv_timer_start(&timer, Uv::OnTime, 7000, 7000);
                uv_timer_stop(&timer);
            }));
    Each(state);
    uv_close(reinterpret_cast<uv_handle_t*>(&timer), nullptr);
    uv.Pass();
}

BENCHMARK(Uv_Idle)->Name("idle/libuv")->UseManualTime();
BENCHMARK(Uv_None)->Name("none/libuv")->UseManualTime()->Iterations(1000);
BENCHMARK(Uv_Due)->Name("due/libuv")->UseManualTime()->Iterations(1000);
BENCHMARK(Uv_Change)->Name("change/libuv")->UseManualTime();
#endif

#if defined(KW_PEER_ASIO)
struct Asio {
    explicit Asio(int period) {
        const auto now = Clock::now();
        for (int i = 0; i < kTimers; ++i) {
            timers.push_back(std::make_unique<asio::steady_timer>(io));
            Wait(*timers.back(), now + std::chrono::milliseconds(period == kPeriod ? 1 + i % kPeriod : period), period);
        }
    }
    static void Wait(asio::steady_timer& timer, Clock::time_point due, int period) {
        timer.expires_at(due);
        timer.async_wait([&timer, due, period](const asio::error_code& error) {
            if (error) return;
            ++g_fired;
            Wait(timer, due + std::chrono::milliseconds(period), period);
        });
    }
    void Pass() { io.poll(); }

    asio::io_context io{1};
    std::vector<std::unique_ptr<asio::steady_timer>> timers;
};

void Asio_Idle(benchmark::State& state) {
    Asio loop(kHour);
    Measure(state, false, Nothing, Times(kRepeat, [&] { loop.Pass(); }));
    Each(state);
}
void Asio_None(benchmark::State& state) {
    Asio loop(kHour);
    Measure(state, false, NextMillisecond, [&] { loop.Pass(); });
}
void Asio_Due(benchmark::State& state) {
    Asio loop(kPeriod);
    Measure(state, true, NextMillisecond, [&] { loop.Pass(); });
}
void Asio_Change(benchmark::State& state) {
    Asio loop(kHour);
    Measure(state, false, Nothing, Times(kRepeat, [&] {
                asio::steady_timer timer(loop.io, std::chrono::seconds(7));
                timer.async_wait([](const asio::error_code&) {});
                timer.cancel();
                loop.Pass();  // the wait that was cancelled leaves the loop
            }));
    Each(state);
}

BENCHMARK(Asio_Idle)->Name("idle/Asio")->UseManualTime();
BENCHMARK(Asio_None)->Name("none/Asio")->UseManualTime()->Iterations(1000);
BENCHMARK(Asio_Due)->Name("due/Asio")->UseManualTime()->Iterations(1000);
BENCHMARK(Asio_Change)->Name("change/Asio")->UseManualTime();
#endif

}  // namespace

BENCHMARK_MAIN();
