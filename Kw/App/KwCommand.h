// KwCommand: the registry of console commands, and the console that they are typed at.
//
// A command has a dotted name such as "db.save"; names are looked up without regard to ASCII case, and a name
// with sub-commands lists them when it is typed. A line is the name, blanks, and the parameters (see KwCmd).
// Names of more than 4095 bytes and names with an empty segment are invalid; of a segment 63 bytes count.
// Handlers run on the thread that calls Do, Listen or OnEvent, and receive the command word as it was typed. They
// may add and remove commands, their own too, and may call Do, Listen and OnEvent. An exception that leaves one is
// logged ("exception in command NAME: TEXT"), and the line is done.
// The registry holds no references: a target outlives its commands. A target that was registered by Attack
// before Add may also die earlier; its commands then count as not found.
// Thread-safety: every operation from any thread, Listen and InputPassword from one at a time. One line is executed at
// a time. What FindCommand returns is valid until the command is removed. ShowInfo locks nothing.
#pragma once

#include <atomic>
#include <concepts>
#include <functional>
#include <list>
#include <map>
#include <string>
#include <string_view>
#include <type_traits>

#include "Kw/App/KwCmd.h"
#include "Kw/KwInf.h"

namespace KwPlatform {
struct LineStop;
}

// Handlers: a member of a KwInf or a plain function. `params` ends with the call.
using KwInfCommand = void (KwInf::*)(const std::string& name, KwCmd* params);
using KwCommandFunction = void (*)(const std::string& name, KwCmd* params);
// Gets the lines whose name no command bears; true when it took the line.
using KwInfCommandCallback = bool (KwInf::*)(const std::string& name, KwCmd* params);

// A class whose members can be called back on an object of class T.
template <class M, class T>
concept KwInfMemberOf = std::derived_from<M, KwInf> && std::derived_from<T, M>;

// A member function with the arguments and the result of a command handler, or what converts to one.
template <class M>
void Kw_AsInfCommand(void (M::*handler)(const std::string&, KwCmd*));
template <class Handler>
concept KwInfCommandLike = std::convertible_to<Handler, KwInfCommand> || requires(Handler handler) {
    Kw_AsInfCommand(handler);
};

class KW_API KwCommand : public KwInfLock {
public:
    struct SCommand;
    using CommandMap = std::map<std::string, SCommand, std::less<>>;

    // One node of the tree of commands.
    struct SCommand {
        union {
            KwInfCommand member = nullptr;
            KwCommandFunction function;
        } handler;                      // `member` when there is a target; null in a node that only has members
        KwInf* target = nullptr;        // null for a plain function
        std::string description;        // shown by the list
        CommandMap* members = nullptr;  // sub-commands, null until the first is added
        unsigned int serial = 0;        // of a registered target, see Kw_InfSerial; else 0
    };

    static constexpr int kLineCapacity = 1024;  // characters of a typed or read line, with its terminator
    static constexpr int kNameCapacity = 4096;

    // Comes with the commands "?" and "help" (list the top level) and "cls" (clear the screen).
    KwCommand();
    ~KwCommand() override;
    KwCommand(const KwCommand&) = delete;
    KwCommand& operator=(const KwCommand&) = delete;

    // Registers a handler, in place of the one that the name had; its sub-commands stay. A null description is
    // empty. Nothing for an invalid name and for a member without a target.
    void Add(const std::string& name, KwInf* target, KwInfCommand handler, const char* description = nullptr);
    void Add(const std::string& name, KwCommandFunction handler, const char* description = nullptr);
    // The arguments are a KwInfCommand and a const char*, unchecked: prefer the typed forms.
    void Add(const std::string& name, KwInf* target, ...);
    // A member of a class derived from KwInf: Add("db.save", this, &MyApp::OnSave, "save").
    template <class T, class M>
    requires KwInfMemberOf<M, T>
    void Add(const std::string& name, T* target, void (M::*handler)(const std::string&, KwCmd*),
             const char* description = nullptr) {
        Add(name, static_cast<KwInf*>(target), static_cast<KwInfCommand>(handler), description);
    }
    // A handler of another signature shall not slip into the unchecked form.
    template <class T, class Handler, class... Rest>
    requires(std::is_class_v<T> && !KwInfCommandLike<Handler>) void Add(const std::string& name, T* target,
                                                                        Handler handler, Rest... rest) = delete;

    // Removes a command with everything below it, and the nodes above it that are left without a purpose.
    void Remove(const std::string& name);

    // The node of a command, null when there is none.
    SCommand* FindCommand(const std::string& name);

    // What gets the lines that match no command; a null target or callback takes it away.
    void SetCommandCallback(KwInf* target, KwInfCommandCallback callback);
    template <class T, class M>
    requires KwInfMemberOf<M, T>
    void SetCommandCallback(T* target, bool (M::*callback)(const std::string&, KwCmd*)) {
        SetCommandCallback(static_cast<KwInf*>(target), static_cast<KwInfCommandCallback>(callback));
    }

    // Executes one line, which ends at its terminator; a terminator is written behind its command word. `length`
    // is accepted for callers that have it and not used. A name that nobody takes is logged.
    void Do(char* line, int length);

    // Takes the keys that are waiting, without blocking, and executes each line that Enter completes. A line
    // of 1023 characters is executed by the key that does not fit any more, which is dropped. Backspace takes back the
    // last character; arrow keys and Delete leave the line as it is. When standard input is no terminal its lines are
    // taken the same way. One call takes at most 64 KB, so that endless input does not hold up the caller.
    void Listen();

    // Waits for a line of standard input and appends it to the pending lines. A longer line than 1023 bytes is
    // refused whole with one message. At the end of input there is nothing to wait for: it returns after a pause.
    void WaitEvent();
    // Ends the wait of WaitEvent on any thread, and every later one at once.
    void StopWait();
    // Whether standard input has ended, so that Listen and WaitEvent can bring nothing more.
    static bool IsInputEnded();

    // Executes and removes the pending lines, oldest first, those included that arrive meanwhile.
    void OnEvent();

    // For handlers: Listen and OnEvent return when the present line is done. What is left waits for the next call.
    void StopLines() { stopLines_.store(true, std::memory_order_relaxed); }

    // Logs one level of the tree: the number of entries, and a line for each.
    void ShowInfo(CommandMap& commands);

    // Removes every command, the built-in ones too.
    void Clear();

    // Reads keys up to Enter without showing them, "*" for each at a terminal. Every other key belongs to the
    // result, Backspace too. Ends early with the input and with a stop signal.
    std::string InputPassword();

protected:
    // Appends a line to the pending ones.
    void PushLine(const char* line);
    // Blocks for the next line of standard input, typed-ahead keys discarded first, and refuses those that
    // are too long. False when the input has ended or StopWait was called.
    bool ReadLine(char (&line)[kLineCapacity]);
    void RearmWait();
    // Whether a line waits or is being executed.
    bool HasPending() const { return pendingCount_.load(std::memory_order_acquire) != 0; }

private:
    friend class KwAppClass;

    void DoSystemCommand(const std::string& name, KwCmd* params);
    void FreeCommand(CommandMap& commands);
    // Folds `name` into the name buffer; empty when it is invalid.
    std::string_view Fold(const std::string& name);
    SCommand* FindNode(std::string_view path, bool create);
    SCommand* AddNode(const std::string& name, const char* description);
    bool RemoveNode(CommandMap& commands, std::string_view path);
    void OnKey(int key);
    void DropLast();
    bool CallFallback(const std::string& name, KwCmd* params);

    CommandMap commands_;
    char lineBuffer_[kLineCapacity] = {};  // of Listen
    int lineLength_ = 0;
    int previousKey_ = -1;
    std::list<std::string> pending_;
    KwLock pendingLock_;  // held while pending lines run
    KwInf* fallbackTarget_ = nullptr;
    KwInfCommandCallback fallback_ = nullptr;
    char nameBuffer_[kNameCapacity] = {};
    KwLock listLock_;                   // guards pending_ for moments only, so that no reader waits for a handler
    std::atomic<int> pendingCount_{0};  // lines in pending_ and the one that runs
    std::atomic<bool> stopLines_{false};
    KwPlatform::LineStop* stop_ = nullptr;  // null when memory is out: waits cannot be stopped then
};
