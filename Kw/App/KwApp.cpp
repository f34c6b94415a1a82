#include "Kw/App/KwApp.h"

#include <atomic>

#include "Kw/App/KwCommand.h"
#include "Kw/App/KwEventInit.h"
#include "Kw/Helper/KwLogSystem.h"
#include "Kw/KwOS.h"
#include "Kw/Platform/KwPlatformClock.h"
#include "Kw/Platform/KwPlatformConsole.h"
#include "Kw/Platform/KwPlatformSignal.h"
#include "Kw/Res/KwDataObject.h"

namespace {

constexpr unsigned int kFlushInterval = 1000;  // milliseconds

// Keeps the command registry alive for a scope: a handler may close the application.
class Hold {
public:
    explicit Hold(KwCommand* command) : command_(command) {
        if (command_ != nullptr) command_->AddRef();
    }
    ~Hold() {
        if (command_ != nullptr) command_->Release();
    }
    Hold(const Hold&) = delete;
    Hold& operator=(const Hold&) = delete;

private:
    KwCommand* command_;
};

}  // namespace

KwAppClass::KwAppClass(const KwAppClass& other)
    : KwInfLock(other),
      running_(other.IsRunning()),
      commandThread_(other.commandThread_),
      lastTick_(other.lastTick_),
      name_(other.name_),
      stopBySignal_(other.stopBySignal_),
      passSleep_(other.passSleep_) {}

KwAppClass& KwAppClass::operator=(const KwAppClass& other) {
    if (this == &other) return *this;
    KwInfLock::operator=(other);
    SetRunning(other.IsRunning());
    commandThread_ = other.commandThread_;
    lastTick_ = other.lastTick_;
    name_ = other.name_;
    stopBySignal_ = other.stopBySignal_;
    passSleep_ = other.passSleep_;
    return *this;
}

KwAppClass::~KwAppClass() {
    SetRunning(false);
    StopThreads();
    if (command_ != nullptr) command_->Release();
    CatchSignals(false);
}

bool KwAppClass::IsRunning() const {
    return std::atomic_ref<bool>(const_cast<bool&>(running_)).load();
}

void KwAppClass::SetRunning(bool running) {
    std::atomic_ref<bool>(running_).store(running);
    // Lines that were typed behind "exit" are not run in its pass.
    if (!running && command_ != nullptr) command_->StopLines();
}

void KwAppClass::CatchSignals(bool on) {
    if (on == catching_) return;
    catching_ = on;
    KwPlatform::SignalCatchStop(on);
}

void KwAppClass::SetStopBySignal(bool on) {
    stopBySignal_ = on;
    if (!on) CatchSignals(false);
    if (on && IsRunning()) CatchSignals(true);
}

bool KwAppClass::Init(const char* configFile, bool withCommand, bool commandThread) {
    KwPlatform::ConsoleKeepStreams();
    KwPlatform::ConsoleDisableClose();
    KwDS config;
    if (configFile != nullptr && !config.Init(configFile, nullptr)) return false;
    if (withCommand) {
        // A second Init without a Close between replaces the registry.
        StopThreads();
        if (command_ != nullptr) command_->Release();
        command_ = new KwCommand;
        if (command_ != nullptr) command_->Add("exit", this, &KwAppClass::_OnCommand);
        commandThread_ = commandThread;
    }
    if (configFile != nullptr) {
        const char* name = config.GetString("AppName", nullptr, "");  // a text, or ""
        name_ = name;
        KwPlatform::ConsoleSetTitle(name);
    }
    lastTick_ = KwPlatform::TickCount();
    // From here on there is somebody who takes a request to stop to heart.
    CatchSignals(stopBySignal_);
    SetRunning(OnInit(configFile != nullptr ? &config : nullptr));
    if (IsRunning()) return StartUp();
    CatchSignals(false);
    return false;
}

bool KwAppClass::StartUp() {
    if (!KwEventInit::CallEventInit() || !KwEventInit::CallEventStart()) return false;
    if (commandThread_ && command_ != nullptr) {
        command_->RearmWait();
        void* thread = KwOS::NewThread(this, static_cast<KwInfThreadBody>(&KwAppClass::_OnThreadCmd), nullptr);
        if (thread == nullptr) return false;
        threads_.push_back(thread);
    }
    return IsRunning();
}

void KwAppClass::Run(int passesPerSleep) {
    const int limit = passesPerSleep < 1 ? 1 : passesPerSleep;
    int passes = 0;
    const Hold hold(command_);
    OnPreRun();
    for (;;) {
        if (catching_ && KwPlatform::SignalStopRequested()) SetRunning(false);
        if (!IsRunning()) return;
        if (++passes > limit - 1) {
            KwPlatform::SleepMs(passSleep_);
            passes = 0;
        }
        Pass();
    }
}

void KwAppClass::Pass() {
    lastTick_ = KwPlatform::TickCount();
    OnRun(lastTick_);
    // Each step may have closed the application.
    if (command_ != nullptr && !commandThread_) command_->Listen();
    if (command_ != nullptr) command_->OnEvent();
    // A quiet log would keep its last lines to itself until the next ones push them out.
    if (lastTick_ - lastFlush_ >= kFlushInterval) {
        lastFlush_ = lastTick_;
        KwLogSystem::Flush();
    }
}

void KwAppClass::Close() {
    OnClose();
    SetRunning(false);
    StopThreads();
    KwEventInit::CallEventClose();
    KwEventInit::CallEventDestroy();
    if (KwCommand* command = command_) {
        command_ = nullptr;
        command->Release();
    }
    CatchSignals(false);
}

void KwAppClass::StopThreads() {
    // The reader may wait for a line that never comes.
    if (command_ != nullptr) command_->StopWait();
    while (!threads_.empty()) {
        void* thread = threads_.front();
        threads_.pop_front();
        KwOS::CloseService(thread);
    }
}

void KwAppClass::StopApp() {
    if (IsRunning() && CanStopApp()) SetRunning(false);
}

void KwAppClass::_OnCommand(const std::string& name, KwCmd*) {
    if (name == "exit") StopApp();
}

bool KwAppClass::CanStopApp() {
    return PostQuestionStopApp(nullptr, nullptr);
}

bool KwAppClass::PostQuestionStopApp(const char* caption, const char* text) {
    return KwPlatform::ConsoleAsk(caption == nullptr ? "System" : caption,
                                  text == nullptr ? "You want stop Application ?" : text);
}

bool KwAppClass::OnInit(KwDS*) {
    return true;
}
void KwAppClass::OnPreRun() {}
void KwAppClass::OnRun(unsigned int) {}
void KwAppClass::OnClose() {}

void KwAppClass::_OnThreadCmd(bool& run, void*) {
    const std::atomic_ref<bool> runFlag(run);
    char line[KwCommand::kLineCapacity];
    while (runFlag.load() && IsRunning() && command_->ReadLine(line)) {
        command_->PushLine(line);
        // One line at a time: the next one is read when the main loop has executed this one.
        while (command_->HasPending()) {
            if (!runFlag.load()) return;
            if (!IsRunning()) break;
            KwPlatform::SleepMs(1);
        }
    }
}
