// KwAppClass: the base of a host's application object, which owns the life of the process.
//
// A host derives from it, calls Init, Run and Close, and overrides the protected hooks. Init reads the
// configuration document and starts what was asked for, Run is the main loop, Close takes everything down.
// SIGINT and SIGTERM (Ctrl+C at a Windows console) end the loop between passes without a question; a second
// one ends the process at once.
// What is thrown by a hook passes through Init, Run or Close to whoever called it; what is thrown by a command handler
// or a start-up hook is logged and counted (KwOS::GetExceptionCount).
// Thread-safety: everything belongs to the host's main thread, which runs every hook and command handler.
#pragma once

#include <list>
#include <string>

#include "Kw/KwInf.h"

class KwCmd;
class KwCommand;
class KwDS;

class KW_API KwAppClass : public KwInfLock {
public:
    KwAppClass() = default;
    // A copy takes over the state of the loop, the last tick and the name. The command registry and the
    // threads stay with their owner: a copy has none, and assignment leaves those of the target alone.
    KwAppClass(const KwAppClass& other);
    KwAppClass& operator=(const KwAppClass& other);
    // What Close was not called for is stopped and freed, without its hooks.
    ~KwAppClass() override;

    // Prepares the application: gives standard streams that are closed to nothing, loads the data-script document
    // `configFile` (null for none), makes the command registry with its "exit" command (`withCommand`), sets the
    // console title from the document's "AppName", calls OnInit and then the init and start phases of the start-up
    // hooks, and with `commandThread` starts a thread that reads the console's lines. The document goes at the end:
    // OnInit copies what it needs. Returns whether the application runs. When a start-up hook or the thread fails it
    // returns false although the running flag stays as OnInit set it, so that a host that ignores the result still
    // enters its loop.
    bool Init(const char* configFile, bool withCommand, bool commandThread);

    // The main loop: one OnPreRun, then passes of OnRun and console commands until the running flag is false.
    // It sleeps 1 ms (see SetPassSleep) once every `passesPerSleep` passes (at least 1). While it runs, lines of
    // the process-wide log reach their file within a second.
    void Run(int passesPerSleep);

    // The length of that sleep in milliseconds, at least 1. A thousand passes a second cost 1 to 3 % of a processor
    // even when none does anything; a host that has nothing to do so often sleeps longer.
    void SetPassSleep(unsigned int ms) { passSleep_ = ms == 0 ? 1 : ms; }

    // Calls OnClose, stops the threads, runs the close and destroy phases of the start-up hooks and deletes
    // the command registry. From then on signals have their default effect again.
    void Close();

    // Asks the main loop to end after the present pass; only when CanStopApp agrees.
    void StopApp();

    bool IsRunning() const;

    // Asks the person at the console a yes/no question; true for yes, and where nobody can be asked.
    // Null stands for "System" and for "You want stop Application ?".
    bool PostQuestionStopApp(const char* caption, const char* text);

    // Whether SIGINT and SIGTERM end the loop, which is so from the start. Off, they are left as the host has them.
    void SetStopBySignal(bool on);

    // The command registry; null without one and after Close.
    KwCommand* GetCommand() const { return command_; }
    // The configuration's "AppName" text, empty when absent.
    const std::string& GetAppName() const { return name_; }
    // The tick in milliseconds of the present pass.
    unsigned int GetLastTick() const { return lastTick_; }

protected:
    // Sets the host up from its configuration, null when there is none; false: the application does not run.
    virtual bool OnInit(KwDS* config);
    // Once before the first pass.
    virtual void OnPreRun();
    // Each pass; `tick` is the absolute time in milliseconds, which wraps.
    virtual void OnRun(unsigned int tick);
    // First of all in Close.
    virtual void OnClose();
    // Whether StopApp and the "exit" command may end the loop. The default asks the person at the console.
    virtual bool CanStopApp();

private:
    void _OnCommand(const std::string& name, KwCmd* cmd);
    void _OnThreadCmd(bool& run, void* param);
    void SetRunning(bool running);
    void CatchSignals(bool on);
    void StopThreads();
    bool StartUp();
    void Pass();

    KwCommand* command_ = nullptr;
    bool running_ = false;
    std::list<void*> threads_;  // see KwOS::NewThread
    bool commandThread_ = false;
    unsigned int lastTick_ = 0;  // milliseconds
    std::string name_;
    bool stopBySignal_ = true;
    unsigned int lastFlush_ = 0;  // tick of the log's last flush
    bool catching_ = false;       // this object has the signals caught
    unsigned int passSleep_ = 1;  // milliseconds
};
