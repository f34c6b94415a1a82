// What hosts bind to by name: the exported classes leave Kw.dll whole.
#define WIN32_LEAN_AND_MEAN
#define NOMINMAX
#include <windows.h>
// The Windows header comes first.
#include <gtest/gtest.h>

TEST(KwExportWin32Test, ClassesAreExportedWhole) {
    const HMODULE library = GetModuleHandleA("Kw.dll");
    ASSERT_NE(library, nullptr);
    for (const char* name : {
             "_ZN5KwInfC1ERKS_",           // copied by default
             "_ZN5KwInfaSERKS_",           // assigned by default
             "_ZN6KwLock5EnterEv",         // defined in its class
             "_ZNK8KwBuffer7GetDataEv",    //
             "_ZN5KwCmdD1Ev",              // destroyed by default
             "_ZN10KwAppClassC1Ev",        // made by default
             "_ZN10KwAppClass7StopAppEv",  // defined in a source
             "_ZN6KwFile8kMaxSizeE",       // a constant
             "_ZTV6KwList",                // a table of virtual operations
             "_ZTI9KwInfLock",             // a type to cast to
         }) {
        EXPECT_NE(GetProcAddress(library, name), nullptr) << name;
    }
}
