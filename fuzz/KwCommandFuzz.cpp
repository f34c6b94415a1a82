// Command lines: KwCmd::Init of any text, and KwCommand::Do of any lines, with handlers that change the registry.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "Kw/App/KwCommand.h"
#include "Kw/Helper/KwLogSystem.h"

namespace {

void Silence(const char*, va_list, STime*) {}

class Target : public KwInf {
public:
    explicit Target(KwCommand& registry) : registry_(registry) {}
    void OnAdd(const std::string&, KwCmd* params) {
        registry_.Add(params->GetString(1, ""), this, &Target::OnRead, params->GetString(2, nullptr));
    }
    void OnRemove(const std::string&, KwCmd* params) { registry_.Remove(params->GetString(1, "")); }
    void OnNest(const std::string&, KwCmd* params) {
        if (depth_ > 4) return;
        ++depth_;
        std::string line = params->GetString(1, "");
        registry_.Do(line.data(), -1);
        --depth_;
    }
    void OnRead(const std::string& name, KwCmd* params) {
        for (const auto& [key, value] : *params) {
            if (params->GetString(key, nullptr) != value.c_str()) std::abort();
        }
        if (registry_.FindCommand(name) == nullptr) std::abort();
    }

private:
    KwCommand& registry_;
    int depth_ = 0;
};

void CheckParameters(const std::string& text) {
    std::string writable = text;
    KwCmd cmd;
    const bool complete = cmd.Init(writable.data(), -1);
    if (writable != text) std::abort();
    std::size_t bytes = 0;
    for (const auto& [key, value] : cmd) bytes += value.size();
    if (bytes > text.size()) std::abort();
    for (int i = -1; i < 12; ++i) {
        cmd.GetInt(i, 0);
        cmd.GetInt64(i, 0);
        cmd.GetDouble(i, 0);
        cmd.GetBool(i, false);
        cmd.GetIntAnd("a", i, 0);
    }
    // The same text gives the same again.
    const int count = cmd.GetParamNum();
    if (cmd.Init(text.c_str(), 0) != complete || cmd.GetParamNum() != count) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool silent = (KwLogSystem::SetOutputLogCallback(Silence, false), true);
    (void)silent;
    const std::string text(reinterpret_cast<const char*>(data), size);
    CheckParameters(text);

    KwCommand registry;
    Target target(registry);
    registry.Remove("cls");
    registry.Add("add", &target, &Target::OnAdd);
    registry.Add("remove", &target, &Target::OnRemove);
    registry.Add("do.nest", &target, &Target::OnNest);
    registry.Add("read", &target, &Target::OnRead);
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = text.find('\n', at);
        std::string line = text.substr(at, end == std::string::npos ? end : end - at);
        registry.Do(line.data(), static_cast<int>(line.size()));
        if (end == std::string::npos) break;
        at = end + 1;
    }
    return 0;
}
