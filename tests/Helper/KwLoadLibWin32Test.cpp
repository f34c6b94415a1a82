#include <gtest/gtest.h>

#include "KwModuleFixture.h"

#include <windows.h>

namespace {
class KwLoadLibWin32Test : public KwModuleFixture {};
}  // namespace

TEST_F(KwLoadLibWin32Test, AttachCallbacksNumbersAndForwardersWork) {
    std::string tiny = ReadBeside("tiny.kwmod");
    KwLoadLib first;
    KwLoadLib second;  // cannot have the same address
    ASSERT_TRUE(LoadBytes(first, tiny) && LoadBytes(second, tiny));
    for (KwLoadLib* lib : {&first, &second}) {
        EXPECT_EQ(Call<int()>(*lib, "TinyState"), 11);
        EXPECT_EQ(Call<unsigned int()>(*lib, "TinyTicks"), 1u);
        EXPECT_EQ(Call<int()>(*lib, "TinyPort"), 0x3412);
        EXPECT_EQ(Call<DWORD()>(*lib, "TinyForward"), GetCurrentProcessId());
    }
}

// Code cannot be written, data cannot be run, and all of it goes.
TEST_F(KwLoadLibWin32Test, SectionsAreProtectedAndFreed) {
    KwLoadLib lib;
    ASSERT_TRUE(LoadBytes(lib, module_));
    const auto rights = [](const void* at) {
        MEMORY_BASIC_INFORMATION info{};
        VirtualQuery(at, &info, sizeof(info));
        return info.State == MEM_COMMIT ? info.Protect : 0;
    };
    const void* const code = lib.GetFunction("KwTestAdd");
    const void* const data = lib.GetFunction("KwTestNumber");
    EXPECT_EQ(rights(code), DWORD{PAGE_EXECUTE_READ});
    EXPECT_EQ(rights(data), DWORD{PAGE_READWRITE});
    lib.Close();
    EXPECT_EQ(rights(code), 0u);
    EXPECT_EQ(rights(data), 0u);
}
