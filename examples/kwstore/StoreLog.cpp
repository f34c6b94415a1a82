#include "StoreLog.h"

#include <algorithm>
#include <string>

bool StoreLog::Start(KwDS* settings) {
    if (settings == nullptr) return true;
    std::string folder = settings->GetString("folder", nullptr, "log");
    const bool absolute = !folder.empty() && (folder[0] == '/' || folder[0] == '\\' || folder.find(':') == 1);
    if (!absolute) folder.insert(0, KwRes::GetProcessPath());
    const int size = settings->GetInt("size", 16 << 20);
    SetRotation(static_cast<unsigned int>(std::max(size, 0)), 0, settings->GetInt("keep", 30));
    if (!Init(folder.c_str(), "kwstore", false, 1000, 60)) return false;
    reader_ = new Reader(*this);
    KwLogSystem::Hook(reader_);
    return true;
}

void StoreLog::Pass(unsigned int tick) {
    if (reader_ == nullptr) return;
    if (KwLogSystem::CallHook() != 0) Flush();
    Run(tick);
}

void StoreLog::Stop() {
    if (reader_ == nullptr) return;
    KwLogSystem::UnHook();
    reader_->Release();
    reader_ = nullptr;
    Close();
}
