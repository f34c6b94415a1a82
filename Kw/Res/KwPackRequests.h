// KwPackRequests: files that a pack list was asked to load. Internal.
#pragma once

#include <deque>
#include <string>

#include "Kw/Res/KwFilePackList.h"

struct KwPackRequest {
    std::string name;
    KwPackLoaded callback = nullptr;  // or a member of the target, to which a reference is held
    KwInf* target = nullptr;
    KwPackLoadedMember member = nullptr;
    void* a = nullptr;
    void* b = nullptr;
};

struct KwPackRequests {
    std::deque<KwPackRequest> waiting;
};
