// KwModuleFixture: the test plug-in as bytes, and calls of what it exports.
#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>

#include "Kw/Helper/KwLoadLib.h"
#include "Res/KwResFixture.h"

class KwModuleFixture : public KwResFixture {
protected:
    // A file beside the test program.
    static std::string ReadBeside(const std::string& name) {
        std::string path = KwRes::GetProcessPath() + name;
        char native[KwRes::kPathSize];
        if (!KwRes::GetNativePath(native, path.c_str())) return {};
        std::ifstream stream(native, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }
    static unsigned int Size(const std::string& bytes) { return static_cast<unsigned int>(bytes.size()); }
    static bool LoadBytes(KwLoadLib& lib, std::string& image) {
        return lib.LoadFromMemory(image.data(), Size(image), 0);
    }

    template <typename Function, typename... Arguments>
    static auto Call(const KwLoadLib& lib, const char* name, Arguments... arguments) {
        return reinterpret_cast<Function*>(lib.GetFunction(name))(arguments...);
    }
    static int Add(const KwLoadLib& lib, int a, int b) { return Call<int(int, int)>(lib, "KwTestAdd", a, b); }
    // Has the module count when it goes.
    static void CountFarewell(const KwLoadLib& lib, int& count) {
        Call<void(void (*)(void*), void*)>(
            lib, "KwTestFarewell", [](void* param) { ++*static_cast<int*>(param); }, static_cast<void*>(&count));
    }

    std::string module_ = ReadBeside("KwTestModule.kwmod");
};
