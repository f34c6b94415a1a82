// The library's initialisation and release, on load, on unload and on request.
#include "Kw/KwMemoryState.h"
#include "Kw/KwModuleChain.h"

bool Kw_Init() {
    KwModuleChain& chain = KwModuleChain::Get();
    if (chain.IsOpen()) return true;
    if (!chain.Open()) return false;
    return KwMemoryState_Create();
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
