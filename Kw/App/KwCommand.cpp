#include "Kw/App/KwCommand.h"

#include <cstdarg>
#include <mutex>
#include <new>
#include <vector>

#include "Kw/Helper/KwLogSystem.h"
#include "Kw/KwGuardedCall.h"
#include "Kw/Platform/KwPlatformConsole.h"
#include "Kw/Platform/KwPlatformInput.h"

namespace {

constexpr std::size_t kSegmentLimit = 63;

bool IsBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

char Folded(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
}

// Whether every segment of a dotted path has at least one character.
bool IsPath(std::string_view path) {
    bool empty = true;
    for (const char c : path) {
        if (c == '.' && empty) return false;
        empty = c == '.';
    }
    return !empty;
}

// Takes the first segment off a valid path.
std::string_view TakeSegment(std::string_view& path) {
    const std::size_t dot = path.find('.');
    const std::string_view segment = path.substr(0, dot);
    path = dot == std::string_view::npos ? std::string_view() : path.substr(dot + 1);
    return segment.substr(0, kSegmentLimit);
}

bool HasMembers(const KwCommand::SCommand& command) {
    return command.members != nullptr && !command.members->empty();
}

bool HasHandler(const KwCommand::SCommand& command) {
    return command.target != nullptr ? command.handler.member != nullptr : command.handler.function != nullptr;
}

// Takes a line that has run off the count.
class Executing {
public:
    explicit Executing(std::atomic<int>& count) : count_(count) {}
    ~Executing() { count_.fetch_sub(1, std::memory_order_release); }
    Executing(const Executing&) = delete;
    Executing& operator=(const Executing&) = delete;

private:
    std::atomic<int>& count_;
};

bool IsTargetGone(const KwCommand::SCommand& command) {
    return command.serial != 0 && Kw_InfSerial(command.target) != command.serial;
}

}  // namespace

// Windows hosts may take their addresses: without these lines the DLL would not hold them.
constexpr int KwCommand::kLineCapacity;
constexpr int KwCommand::kNameCapacity;

KwCommand::KwCommand() : stop_(KwPlatform::LineStopCreate()) {
    Add("?", this, &KwCommand::DoSystemCommand, "show func list");
    Add("help", this, &KwCommand::DoSystemCommand, "show func list");
    Add("cls", this, &KwCommand::DoSystemCommand, "clear screen");
}

KwCommand::~KwCommand() {
    Clear();
    KwPlatform::LineStopDestroy(stop_);
    KwPlatform::InputRestore();
}

void KwCommand::DoSystemCommand(const std::string& name, KwCmd*) {
    // The word comes as typed, "HELP" too; only "cls" begins with a c.
    if (Folded(name[0]) == 'c') {
        KwPlatform::ConsoleClear();
    } else {
        ShowInfo(commands_);
    }
}

std::string_view KwCommand::Fold(const std::string& name) {
    const std::string_view text(name.c_str());
    if (text.size() >= sizeof(nameBuffer_)) return {};
    char* out = nameBuffer_;
    for (const char c : text) *out++ = Folded(c);
    *out = '\0';
    const std::string_view folded(nameBuffer_, text.size());
    return IsPath(folded) ? folded : std::string_view();
}

KwCommand::SCommand* KwCommand::FindNode(std::string_view path, bool create) {
    if (path.empty()) return nullptr;
    CommandMap* level = &commands_;
    for (;;) {
        const std::string_view segment = TakeSegment(path);
        auto found = level->find(segment);
        if (found == level->end()) {
            if (!create) return nullptr;
            found = level->try_emplace(std::string(segment)).first;
        }
        SCommand& node = found->second;
        if (path.empty()) return &node;
        if (node.members == nullptr) {
            if (!create) return nullptr;
            void* memory = KwMemory::Malloc(sizeof(CommandMap), nullptr, 0);
            if (memory == nullptr) return nullptr;
            node.members = new (memory) CommandMap;
        }
        level = node.members;
    }
}

KwCommand::SCommand* KwCommand::AddNode(const std::string& name, const char* description) {
    SCommand* node = FindNode(Fold(name), true);
    if (node != nullptr) node->description = description == nullptr ? "" : description;
    return node;
}

void KwCommand::Add(const std::string& name, KwInf* target, KwInfCommand handler, const char* description) {
    if (target == nullptr) return;
    const Guard guard(this);
    SCommand* node = AddNode(name, description);
    if (node == nullptr) return;
    node->target = target;
    node->handler.member = handler;
    node->serial = Kw_InfSerial(target);
}

void KwCommand::Add(const std::string& name, KwCommandFunction handler, const char* description) {
    const Guard guard(this);
    SCommand* node = AddNode(name, description);
    if (node == nullptr) return;
    node->target = nullptr;
    node->handler.function = handler;
    node->serial = 0;
}

void KwCommand::Add(const std::string& name, KwInf* target, ...) {
    va_list args;
    va_start(args, target);
    const KwInfCommand handler = va_arg(args, KwInfCommand);
    const char* description = va_arg(args, const char*);
    va_end(args);
    Add(name, target, handler, description);
}

void KwCommand::Remove(const std::string& name) {
    const Guard guard(this);
    const std::string_view path = Fold(name);
    if (!path.empty()) RemoveNode(commands_, path);
}

// Removes the node at `path` below `commands`; true when it was there.
bool KwCommand::RemoveNode(CommandMap& commands, std::string_view path) {
    const auto found = commands.find(TakeSegment(path));
    if (found == commands.end()) return false;
    SCommand& node = found->second;
    if (!path.empty()) {
        if (node.members == nullptr || !RemoveNode(*node.members, path)) return false;
        if (HasMembers(node) || HasHandler(node)) return true;
    }
    if (node.members != nullptr) FreeCommand(*node.members);
    KwMemory::Free(node.members, nullptr, 0);
    commands.erase(found);
    return true;
}

// Empties `commands` and ends its life.
void KwCommand::FreeCommand(CommandMap& commands) {
    for (auto& [name, node] : commands) {
        if (node.members == nullptr) continue;
        FreeCommand(*node.members);
        KwMemory::Free(node.members, nullptr, 0);
    }
    commands.~CommandMap();
}

void KwCommand::Clear() {
    const Guard guard(this);
    for (auto& [name, node] : commands_) {
        if (node.members == nullptr) continue;
        FreeCommand(*node.members);
        KwMemory::Free(node.members, nullptr, 0);
    }
    commands_.clear();
}

KwCommand::SCommand* KwCommand::FindCommand(const std::string& name) {
    const Guard guard(this);
    return FindNode(Fold(name), false);
}

void KwCommand::SetCommandCallback(KwInf* target, KwInfCommandCallback callback) {
    const Guard guard(this);
    fallbackTarget_ = target;
    fallback_ = callback;
}

bool KwCommand::CallFallback(const std::string& name, KwCmd* params) {
    if (fallbackTarget_ == nullptr || fallback_ == nullptr) return false;
    bool taken = true;  // whoever throws has taken the line
    KwInf* const target = fallbackTarget_;
    const KwInfCommandCallback callback = fallback_;
    KwGuardedCall("command", name.c_str(),
                  [&taken, target, callback, &name, params] { taken = (target->*callback)(name, params); });
    return taken;
}

void KwCommand::Do(char* line, int) {
    if (line == nullptr) return;
    const Guard guard(this);
    while (IsBlank(*line)) ++line;
    char* end = line;
    while (*end != '\0' && !IsBlank(*end)) ++end;
    const std::string word(line, static_cast<std::size_t>(end - line));
    if (*end != '\0') *end++ = '\0';
    while (IsBlank(*end)) ++end;
    KwCmd params;
    params.Init(end, -1);

    const SCommand* command = FindNode(Fold(word), false);
    if (command == nullptr || IsTargetGone(*command)) {
        if (!CallFallback(word, &params)) {
            KwLogSystem::Push("function %s not found,docommand error", word.c_str());
        }
    } else if (HasMembers(*command)) {
        ShowInfo(*command->members);
    } else if (HasHandler(*command)) {
        // The handler may remove its own node: nothing of the node is used once the call has begun.
        KwGuardedCall("command", word.c_str(), [&] {
            if (KwInf* target = command->target) {
                (target->*(command->handler.member))(word, &params);
            } else {
                command->handler.function(word, &params);
            }
        });
    }
}

void KwCommand::ShowInfo(CommandMap& commands) {
    // The log may call into the host, which may change the registry: first collect, then push.
    std::vector<std::string> lines;
    lines.reserve(commands.size());
    int number = 0;
    for (const auto& [name, node] : commands) {
        const std::size_t members = node.members == nullptr ? 0 : node.members->size();
        std::string line = "[" + std::to_string(number++) + "]" + name + "(" + std::to_string(members) + " member)";
        if (!node.description.empty()) line += "(" + node.description + ")";
        lines.push_back(line + ".");
    }
    KwLogSystem::Push("Have %d funcion", number);
    for (const std::string& line : lines) KwLogSystem::Push("%s", line.c_str());
}

void KwCommand::OnEvent() {
    if (!HasPending()) return;
    // In the order in which a handler that calls this holds them.
    const Guard registry(this);
    const std::lock_guard<KwLock> running(pendingLock_);
    stopLines_.store(false, std::memory_order_relaxed);
    while (!stopLines_.load(std::memory_order_relaxed)) {
        std::string line;
        {
            const std::lock_guard<KwLock> guard(listLock_);
            if (pending_.empty()) return;
            line.swap(pending_.front());
            pending_.pop_front();
        }
        // Counted until it is done, so that no reader takes keys that the handler asks for.
        const Executing executing(pendingCount_);
        Do(line.data(), static_cast<int>(line.size()));
    }
}

void KwCommand::PushLine(const char* line) {
    const std::lock_guard<KwLock> guard(listLock_);
    pending_.emplace_back(line);
    pendingCount_.fetch_add(1, std::memory_order_release);
}
