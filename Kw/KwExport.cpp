// Emits what the headers hold inline, so that the exported classes leave the library whole: hosts take addresses
// and build against tables of names. Only the Windows build needs it, see cmake/KwWindows.cmake.
#include <concepts>
#include <new>
#include <type_traits>

#include "Kw/Kw.h"
#include "Kw/KwListenEvent.h"

namespace {

// What a class has by default is made where it is used.
template <class T>
void UseDefaults(void* place, T* to, const T* from) {
    if constexpr (std::is_default_constructible_v<T>) new (place) T();
    if constexpr (std::is_copy_constructible_v<T>) new (place) T(*from);
    if constexpr (std::is_copy_assignable_v<T>) *to = *from;
    if constexpr (std::is_destructible_v<T>) to->~T();
}

template <class... T>
struct Whole {
    static void Use(void* place) { (UseDefaults<T>(place, static_cast<T*>(place), static_cast<const T*>(place)), ...); }
};

// Never called.
[[gnu::used]] void UseAll(void* place) {
    Whole<KwAppClass, KwCmd, KwCommand, KwCommandThread, KwEventInit, CBKwEventInit>::Use(place);
    Whole<KwInf, KwInfLock, KwLock, KwNode, KwList, KwListLock, KwBuffer, KwBufferNode, KwBufferList,
          KwBufferTrunk>::Use(place);
    Whole<KwCalcTime, CTestProssTime, KwLog, KwFile, KwStreamShare>::Use(place);
    Whole<KwDS, KwDSItem, KwTable, KwTablePtr, KwConvertToUTF8, KwConvertToUnicode>::Use(place);
}

}  // namespace
