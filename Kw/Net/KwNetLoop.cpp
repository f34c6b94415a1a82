#include "Kw/Net/KwNetLoop.h"

#include <algorithm>
#include <chrono>

#include "Kw/Net/KwNetLink.h"

namespace {

constinit thread_local const KwNetLoop* t_loop = nullptr;  // in whose pass this thread is
constinit thread_local const KwNetPump* t_pump = nullptr;

constexpr std::int64_t kPause = 50;  // ms between passes that count

std::int64_t Milliseconds() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

template <class T>
class Entered {
public:
    Entered(T& to, T value) : to_(to), before_(to) { to = value; }
    ~Entered() { to_ = before_; }
    Entered(const Entered&) = delete;
    Entered& operator=(const Entered&) = delete;

private:
    T& to_;
    T before_;
};

void AddOnce(std::vector<KwNetLinkHost*>& touched, KwNetLinkHost* host) {
    if (std::find(touched.begin(), touched.end(), host) == touched.end()) touched.push_back(host);
}

// The hosts that got packets, each once, before their answers go out.
void EndPass(std::vector<KwNetLinkHost*>& touched) {
    for (KwNetLinkHost* host : touched) host->OnPassEnd();
    touched.clear();
}

}  // namespace

bool KwNetLoop::IsMine() const {
    return t_loop == this;
}

bool KwNetLoop::IsAny() {
    return t_loop != nullptr || t_pump != nullptr;
}

unsigned int KwNetLoop::Pass(unsigned int waitMs, unsigned int budget) {
    const Entered<const KwNetLoop*> entered(t_loop, this);
    events_ = 0;
    Advance(true);
    TakePosted();
    if (!ready_.empty() || !dirty_.empty()) waitMs = 0;
    if (waitMs != 0) {
        const std::uint64_t left = nextTick_ > now_ ? nextTick_ - now_ : 1;
        waitMs = static_cast<unsigned int>(std::min<std::uint64_t>(waitMs, left));
        const std::lock_guard<std::mutex> guard(mutex_);
        if (posted_.empty()) {
            sleeping_ = true;
        } else {
            waitMs = 0;
        }
    }
    io_.Run(waitMs);
    Advance(false);
    TakePosted();
    events_ += Deliver(budget);
    EndPass(touched_);
    Flush();
    if (now_ >= nextTick_) Tick();
    for (KwNetPassWork* work : passWork_) work->OnPass();
    passWork_.clear();
    for (KwNetLink* link : retired_) link->OnRetire();
    retired_.clear();
    return events_;
}

void KwNetLoop::AddTouched(KwNetLinkHost* host) {
    AddOnce(touched_, host);
}

void KwNetLoop::Wake() {
    io_.Post([] {});
}

void KwNetLoop::Advance(bool between) {
    const std::int64_t clock = Milliseconds();
    const std::int64_t passed = clock - clock_;
    clock_ = clock;
    now_ += static_cast<std::uint64_t>(between ? std::min(passed, kPause) : passed);
}

void KwNetLoop::NeedTick(unsigned int ms) {
    if (ms == 0) return;
    const unsigned int want = std::clamp(ms / 4, 5u, 100u);
    unsigned int have = tickMs_.load();
    while (want < have && !tickMs_.compare_exchange_weak(have, want)) {
    }
}

void KwNetLoop::Tick() {
    nextTick_ = now_ + tickMs_.load(std::memory_order_relaxed);
    for (std::size_t i = links_.size(); i-- > 0;) links_[i]->OnTick(now_);
    for (std::size_t i = timed_.size(); i-- > 0;) timed_[i]->OnTick(now_);
}

void KwNetLoop::RemoveTimed(KwNetTimed* timed) {
    timed_.erase(std::remove(timed_.begin(), timed_.end(), timed), timed_.end());
}

void KwNetLoop::AddLink(KwNetLink* link) {
    link->SetIndex(links_.size());
    links_.push_back(link);
}

void KwNetLoop::RemoveLink(KwNetLink* link) {
    links_[link->GetIndex()] = links_.back();
    links_.back()->SetIndex(link->GetIndex());
    links_.pop_back();
}

void KwNetLoop::PostLink(KwNetLink* link) {
    bool wake = false;
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        posted_.push_back(link);
        wake = sleeping_;
        sleeping_ = false;
    }
    if (wake) Wake();
}

void KwNetLoop::TakePosted() {
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        sleeping_ = false;
        taken_.swap(posted_);
    }
    for (KwNetLink* link : taken_) link->OnPosted();
    taken_.clear();
}

void KwNetLoop::CallHost(std::function<void()> call) {
    if (pump_ != nullptr) {
        pump_->Call(std::move(call));
    } else {
        ++events_;
        call();
    }
}

unsigned int KwNetLoop::Deliver(unsigned int budget) {
    if (ready_.empty()) return 0;
    if (pump_ != nullptr) {
        for (KwNetLink* link : ready_) link->SetHanded();
        pump_->Take(ready_);
        return 0;
    }
    unsigned int done = 0;
    delivering_.swap(ready_);
    std::size_t at = 0;
    for (; at < delivering_.size() && done < budget; ++at) {
        KwNetLink* const link = delivering_[at];
        done += link->Deliver(budget - done);
        link->OnDelivered();
    }
    // Those that had no turn come before those that have more.
    ready_.insert(ready_.begin(), delivering_.begin() + static_cast<std::ptrdiff_t>(at), delivering_.end());
    delivering_.clear();
    return done;
}

void KwNetLoop::Flush() {
    flushing_.swap(dirty_);
    for (KwNetLink* link : flushing_) link->OnDirty();
    flushing_.clear();
}

// The host's thread -------------------------------------------------------------------------------------------

bool KwNetPump::IsMine() const {
    return t_pump == this;
}

void KwNetPump::AddTouched(KwNetLinkHost* host) {
    AddOnce(touched_, host);
}

void KwNetPump::Take(std::vector<KwNetLink*>& links) {
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        inbox_.insert(inbox_.end(), links.begin(), links.end());
    }
    links.clear();
    wake_.notify_one();
}

void KwNetPump::Call(std::function<void()> call) {
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        calls_.push_back(std::move(call));
    }
    wake_.notify_one();
}

void KwNetPump::Wake() {
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        woken_ = true;
    }
    wake_.notify_one();
}

unsigned int KwNetPump::Run(unsigned int waitMs, unsigned int budget) {
    const Entered<const KwNetPump*> entered(t_pump, this);
    {
        std::unique_lock<std::mutex> lock(mutex_);
        if (waitMs != 0 && links_.empty() && inbox_.empty() && calls_.empty() && !woken_) {
            wake_.wait_for(lock, std::chrono::milliseconds(waitMs),
                           [this] { return !inbox_.empty() || !calls_.empty() || woken_; });
        }
        woken_ = false;
        links_.insert(links_.end(), inbox_.begin(), inbox_.end());
        inbox_.clear();
        running_.swap(calls_);
    }
    unsigned int done = static_cast<unsigned int>(running_.size());
    for (const std::function<void()>& call : running_) call();
    running_.clear();
    std::size_t at = 0;
    const std::size_t count = links_.size();
    for (; at < count && done < budget; ++at) {
        done += links_[at]->Deliver(budget - done);
        done_.push_back(links_[at]);
    }
    links_.erase(links_.begin(), links_.begin() + static_cast<std::ptrdiff_t>(at));
    EndPass(touched_);
    // What was sent goes out with the connection's return, one post for both.
    for (KwNetLink* link : done_) link->PostReturn();
    done_.clear();
    for (KwNetLink* link : dirty_) link->PostPending();
    dirty_.clear();
    return done;
}
