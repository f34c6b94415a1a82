// The library's initialisation and release, on load, on unload and on request.
#include "Kw/KwMemoryState.h"
#include "Kw/KwModuleChain.h"

bool Kw_Init() {
    // Both do nothing the second time, so that a call after a failed one tries again.
    return KwModuleChain::Get().Open() && KwMemoryState_Create();
}

void Kw_Release() {
    KwModuleChain::Get().ReleaseAll();
}

namespace {
[[gnu::constructor(101)]] void OnLoad() {
    Kw_Init();
}
[[gnu::destructor(101)]] void OnUnload() {
    Kw_Release();
}
}  // namespace
