#include "Kw/Helper/KwLoadLib.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>

#include "Kw/Helper/KwLoadLibManager.h"
#include "KwModuleFixture.h"

class KwLoadLibTest : public KwModuleFixture {};

TEST_F(KwLoadLibTest, AFileIsFoundThroughTheResourcePathsAndLoadedOnce) {
    Put("Plugin.dll", module_);
    ASSERT_TRUE(KwRes::SetResPath(Path("").c_str(), -1));
    TakeLog();
    KwLoadLibManager manager;
    KwLoadLib* const lib = manager.Load("Plugin.dll");
    ASSERT_NE(lib, nullptr);
    EXPECT_EQ(manager.Load("plugin.DLL"), lib);
    EXPECT_EQ(manager.LoadFromMemory("PLUGIN.dll", nullptr, 0, 0), lib);
    EXPECT_EQ(Add(*lib, 1, 2), 3);
    EXPECT_EQ(manager.GetFunction("pLUGIN.dll", "KwTestAdd"), lib->GetFunction("KwTestAdd"));
    EXPECT_EQ(manager.GetFunction("plugin.dll", "KwTestMissing"), nullptr);
    EXPECT_EQ(manager.GetFunction("plugin.dll", nullptr), nullptr);
    EXPECT_EQ(manager.GetFunction("other.dll", "KwTestAdd"), nullptr);
    EXPECT_EQ(manager.Load("missing.dll"), nullptr);
    EXPECT_EQ(manager.GetFunction("missing.dll", "KwTestAdd"), nullptr);
    manager.CloseLib("PLUGIN.DLL");
    EXPECT_EQ(manager.GetFunction("plugin.dll", "KwTestAdd"), nullptr);
    Put("Plugin.dll", module_.substr(0, 3000));
    EXPECT_EQ(manager.Load("Plugin.dll"), nullptr);
    for (const char* name : {"", "$", static_cast<const char*>(nullptr)}) EXPECT_EQ(manager.Load(name), nullptr);
    EXPECT_TRUE(TakeLog().empty());
}

TEST_F(KwLoadLibTest, ADollarAsksTheSystem) {
    KwLoadLib lib;
    // One of them is there, whatever the system.
    ASSERT_TRUE(lib.Load("$kernel32.dll") || lib.Load("$libm.so.6"));
    EXPECT_TRUE(lib.GetFunction("GetTickCount") != nullptr || lib.GetFunction("cos") != nullptr);
    EXPECT_FALSE(lib.Load("kernel32.dll"));
    EXPECT_FALSE(lib.IsLoad());
    EXPECT_EQ(lib.GetFunction("GetTickCount"), nullptr);
}

// Each time the module is new, does what a module does, and is told when it goes.
TEST_F(KwLoadLibTest, AnImageIsLoadedAndThrownAwayFiftyTimes) {
    int farewells = 0;
    for (int round = 1; round <= 50; ++round) {
        KwLoadLib lib;
        {
            std::string image = module_;
            // A size of 0 believes the headers.
            ASSERT_TRUE(lib.LoadFromMemory(image.data(), round % 2 == 0 ? 0 : Size(image), 0));
            image.assign(image.size(), '\xCC');
        }
        ASSERT_EQ(Add(lib, round, 2), round + 2);
        ASSERT_EQ(Call<int()>(lib, "KwTestState"), 101);
        ASSERT_EQ(Call<int()>(lib, "KwTestState"), 102);
        ASSERT_STREQ(Call<const char*(int)>(lib, "KwTestName", 2), "two");
        ASSERT_EQ(Call<int(int)>(lib, "KwTestThrow", 7), 7);
        ASSERT_EQ(*static_cast<int*>(lib.GetFunction("KwTestNumber")), 4711);
        ASSERT_EQ(lib.GetFunction("abs"), nullptr);  // one that it needs itself
        CountFarewell(lib, farewells);
        if (round % 2 == 0) lib.Close();
    }
    EXPECT_EQ(farewells, 50);
}

TEST_F(KwLoadLibTest, CopiesKeepTheLibrary) {
    Put("plugin.dll", module_);
    ASSERT_TRUE(KwRes::SetResPath(Path("").c_str(), -1));
    for (const bool fromMemory : {false, true}) {
        int farewells = 0;
        KwLoadLib copy;
        {
            KwLoadLib lib;
            ASSERT_TRUE(fromMemory ? LoadBytes(lib, module_) : lib.Load("plugin.dll"));
            CountFarewell(lib, farewells);
            const KwLoadLib other(lib);
            copy = other;
            copy = *&copy;
        }
        EXPECT_EQ(Add(copy, 1, 1), 2);
        EXPECT_EQ(farewells, 0);
        EXPECT_FALSE(copy.LoadFromMemory(nullptr, 100, 0));
        EXPECT_EQ(farewells, 1);
        EXPECT_FALSE(copy.IsLoad());
    }
}

// The entry point's own code stays until it has returned.
TEST_F(KwLoadLibTest, AnEntryPointMayCloseItsOwnManager) {
    struct Param {
        void (*function)(void*);
        KwLoadLibManager* manager;
        int* farewells;
    };
    int farewells = 0;
    auto manager = std::make_unique<KwLoadLibManager>();
    EXPECT_EQ(manager->CreateEntryPoint("module", "KwTestEntry", nullptr), nullptr);
    KwLoadLib* const lib = manager->LoadFromMemory("Module", module_.data(), Size(module_), 0);
    ASSERT_NE(lib, nullptr);
    EXPECT_EQ(manager->CreateEntryPoint("module", "KwTestMissing", nullptr), nullptr);
    CountFarewell(*lib, farewells);
    Param param{[](void* p) {
                    auto* const own = static_cast<Param*>(p);
                    delete own->manager;
                    EXPECT_EQ(*own->farewells, 0);
                },
                manager.get(), &farewells};
    void* const entry = lib->GetFunction("KwTestEntry");
    EXPECT_EQ(manager.release()->CreateEntryPoint("MODULE", "KwTestEntry", &param), entry);
    EXPECT_EQ(farewells, 1);
}

TEST_F(KwLoadLibTest, ACutImageIsRefused) {
    KwLoadLibManager manager;
    for (std::size_t size = 1; size < module_.size(); size += size < 1024 ? 1 : 977) {
        std::string cut = module_.substr(0, size);
        cut.shrink_to_fit();
        ASSERT_EQ(manager.LoadFromMemory("cut", cut.data(), Size(cut), 0), nullptr) << size;
    }
    std::string cut = module_.substr(0, module_.size() - 1);
    EXPECT_EQ(manager.LoadFromMemory("cut", cut.data(), Size(cut), 0), nullptr);
    EXPECT_EQ(manager.GetFunction("cut", "KwTestAdd"), nullptr);
}

// What is not refused is loaded, and works.
TEST_F(KwLoadLibTest, DamagedHeadersDoNoHarm) {
    int refused = 0;
    for (std::size_t at = 0; at < 1024; ++at) {
        for (const int flip : {0xFF, 0x01, 0x80}) {
            std::string image = module_;
            image[at] = static_cast<char>(image[at] ^ flip);
            KwLoadLib lib;
            if (!LoadBytes(lib, image)) {
                ++refused;
            } else if (lib.GetFunction("KwTestAdd") != nullptr) {
                ASSERT_EQ(Add(lib, 2, 3), 5) << at;
            }
        }
    }
    EXPECT_GT(refused, 1000);
}
