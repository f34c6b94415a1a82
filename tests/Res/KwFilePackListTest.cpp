// The pack system: several packs as one, the cache and its counts, requests, several threads.
#include "Kw/Res/KwFilePackList.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <stdexcept>
#include <thread>

#include "Kw/Res/KwFile.h"
#include "KwPackFixture.h"

namespace {

class KwFilePackListTest : public KwPackFixture {
protected:
    KwFilePackListTest() {
        Put("a.pack", Pack({Stored("a", "a of a"),
                            Stored("both", "both of a"),
                            Stored("empty", ""),
                            {Hash("bad"), "1234", 5, 0}}));
        Put("m.pack", Pack({Stored("m", "m of m"), Stored("both", "both of m")}));
    }
    static std::string Read(KwFilePackList& list, const char* name) {
        SPackFileCache* file = list.OpenFile(Hash(name));
        if (file == nullptr) return "-";
        const std::string text = Text(*file->data);
        list.CloseFile(file);
        return text;
    }
    static std::string ReadFile(const char* name) {
        KwBuffer buffer;
        return KwRes::ReadFileToBuffer(name, &buffer) ? Text(buffer) : "-";
    }
    static void Wait(const std::atomic<int>& counter, int value) {
        for (int i = 0; i < 5000 && counter < value; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        ASSERT_EQ(counter, value);
    }

    KwFilePackList list{false};
};

TEST_F(KwFilePackListTest, TheFirstPackInTheListServesAFile) {
    for (const bool first : {true, false}) {
        ASSERT_TRUE(first ? OpenList(list, {"a.pack", "m.pack"}) : OpenList(list, {"m.pack", "a.pack"}));
        EXPECT_EQ(Read(list, "both"), first ? "both of a" : "both of m");
        EXPECT_EQ(Read(list, "a") + Read(list, "m") + Read(list, "empty") + Read(list, "none"), "a of am of m-");
        EXPECT_EQ(list.GetFilePack("both"), list.GetPack(0));
        SPackFileItem info;
        EXPECT_TRUE(list.GetFilePackInfo("/BAD", &info) && list.CheckFileExist("Bad"));
        EXPECT_EQ(info.unpackedSize, 5u);
        EXPECT_FALSE(list.GetFilePackInfo("none", &info) || list.CheckFileExist("none") || list.CheckFileExist(""));
        EXPECT_TRUE(TakeLog().empty());
        EXPECT_EQ(Read(list, "bad"), "-");
        EXPECT_EQ(LogLine(), "unpack data error");
        KwBuffer buffer;
        EXPECT_TRUE(list.ReadFilePack("m", &buffer) && !list.ReadFilePack("bad", &buffer));
        EXPECT_EQ(LogLine(), "unpack data error");
        // The packs of a list do not change.
        list.GetPack(0)->Close();
        EXPECT_EQ(list.GetPack(0)->GetItemCount(), first ? 4 : 2);
        EXPECT_FALSE(list.GetPack(0)->AddFile(1, 32, 1, 1, 0, 1) ||
                     list.GetPack(0)->Open(Path("m.pack").c_str(), false));
    }
}

TEST_F(KwFilePackListTest, ScriptsNameThePacks) {
    // Twice the same, two that are none, and entries that are no documents.
    std::string twice = Path("a.pack");
    std::transform(twice.begin(), twice.end(), twice.begin(), [](char ch) { return ch == 'A' ? 'a' : ch; });
    const std::string script = "packs={ 5 {\"" + Path("none.pack") + "\"} {7 true} text {\"" + Path("m.pack") +
                               "\" true} {\"" + Path("m.PACK") + "\"} {\"" + twice + "\"} {\"" + twice +
                               "\"} }\nnopacks={ 1 2 }";
    const std::string path = KwResFixture::Put("packs.ds", script);
    ASSERT_TRUE(list.Open(path.c_str(), "packs"));
    EXPECT_EQ(list.GetPackCount(), 2);
    EXPECT_EQ(Read(list, "both"), "both of m");
    EXPECT_FALSE(list.Open(path.c_str(), "nopacks"));
    EXPECT_EQ(Read(list, "both"), "-");
    EXPECT_FALSE(list.Open(path.c_str(), "other") || list.Open(path.c_str(), nullptr) || list.Open(nullptr, "packs") ||
                 list.Open(static_cast<KwDS*>(nullptr)) || list.IsOpen());
}

TEST_F(KwFilePackListTest, FilesAreFoundOnDiskAndThenInTheNewestList) {
    EXPECT_EQ(KwFilePackList::GetPackSystem(), nullptr);
    EXPECT_EQ(ReadFile("both"), "-");
    ASSERT_TRUE(OpenList(list, {"a.pack"}));
    EXPECT_EQ(KwFilePackList::GetPackSystem(), &list);
    EXPECT_EQ(ReadFile("both"), "both of a");
    EXPECT_TRUE(KwRes::IsFileExist("BOTH", true));
    KwFile empty;
    EXPECT_TRUE(empty.Open("empty") && empty.Size() == 0);
    {
        KwFilePackList newer(false);
        ASSERT_TRUE(OpenList(newer, {"m.pack"}));
        EXPECT_EQ(ReadFile("both"), "both of m");
        list.AttackSystem(true);
        EXPECT_EQ(ReadFile("both"), "both of a");
        list.AttackSystem(false);
        EXPECT_EQ(ReadFile("both"), "both of m");
        list.AttackSystem(true);
        newer.AttackSystem(true);
    }
    EXPECT_EQ(ReadFile("both"), "both of a");
    ASSERT_TRUE(KwRes::SetResPath(folder_.string().c_str(), 0));
    Put("both", "on disk");
    EXPECT_EQ(ReadFile("both"), "on disk");
    list.Close();
    EXPECT_EQ(KwFilePackList::GetPackSystem(), nullptr);
    EXPECT_EQ(ReadFile("a"), "-");
}

TEST_F(KwFilePackListTest, AnOpenFileIsSharedAndOutlivesItsList) {
    auto own = std::make_unique<KwFilePackList>(true);
    ASSERT_TRUE(OpenList(*own, {"a.pack"}));
    SPackFileCache* file = own->OpenFile(Hash("a"));
    EXPECT_EQ(own->OpenFile(Hash("a")), file);
    EXPECT_EQ(file->references, 2);
    EXPECT_EQ(file->hash, Hash("a"));
    own->CloseFile(file);
    KwFile first;
    KwFile second;
    ASSERT_TRUE(first.Open("a") && second.Open("both"));
    own->Close();
    EXPECT_EQ(own->OpenFile(Hash("a")), nullptr);
    EXPECT_EQ(Text(*file->data), "a of a");
    own->CloseFile(file);
    own->CloseFile(nullptr);
    ASSERT_TRUE(OpenList(*own, {"m.pack"}));
    EXPECT_EQ(Read(*own, "both"), "both of m");
    own.reset();
    char text[10] = {};
    EXPECT_TRUE(first.Read(text, 6) && second.Read(text, 9));
    EXPECT_STREQ(text, "both of a");
}

TEST_F(KwFilePackListTest, TheLeastRecentlyUsedGoesAndWhatIsOpenStays) {
    std::vector<Body> bodies;
    for (const char* name : {"1", "2", "3", "4"}) bodies.push_back(Stored(name, std::string(100, *name)));
    Put("b.pack", Pack(bodies));
    ASSERT_TRUE(OpenList(list, {"b.pack"}));
    list.SetLimitCache(250);
    SPackFileCache* open = list.OpenFile(Hash("1"));
    Read(list, "2");
    Read(list, "3");
    EXPECT_EQ(list.GetCacheSize(), 200u);  // 2 went
    SPackFileCache* kept = list.OpenFile(Hash("3"));
    Read(list, "4");
    EXPECT_EQ(list.GetCacheSize(), 200u);
    list.SetLimitCache(0);
    EXPECT_EQ(list.GetCacheSize(), 200u);
    EXPECT_EQ(Text(*open->data), std::string(100, '1'));
    list.CloseFile(open);
    list.CloseFile(kept);
    EXPECT_EQ(list.GetCacheCount(), 0u);
    // By age.
    list.SetLimitCache(1000);
    Read(list, "1");
    list.Working();
    EXPECT_EQ(list.GetCacheCount(), 1u);
    list.SetTimeCheckCache(20);
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    open = list.OpenFile(Hash("2"));
    EXPECT_EQ(list.GetCacheCount(), 1u);
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    list.Working();
    EXPECT_EQ(list.GetCacheCount(), 1u);
    list.UsedCache(false);
    list.CloseFile(open);
    EXPECT_EQ(list.GetCacheCount(), 0u);
}

struct Answers {
    std::atomic<int> count{0};
    std::atomic<int> withFile{0};
    static void Add(const std::string& name, void* a, void* b, KwFile* file) {
        Answers& answers = *static_cast<Answers*>(a);
        char first = 0;
        if (file != nullptr && file->Read(&first, 1) && first == name[0] && b == nullptr) ++answers.withFile;
        ++answers.count;
    }
};

class Target : public KwInfLock {
public:
    void OnLoaded(const std::string& name, void* a, void* b, KwFile* file) { Answers::Add(name, a, b, file); }
};

TEST_F(KwFilePackListTest, RequestsAreAnsweredOnceEach) {
    Answers answers;
    Target target;
    const auto ask = [&](KwFilePackList& asked) {
        EXPECT_FALSE(asked.RequestLoad("", Answers::Add, &answers, nullptr) ||
                     asked.RequestLoad("a", nullptr, nullptr, nullptr));
        EXPECT_TRUE(asked.RequestLoad("a", Answers::Add, &answers, nullptr));
        EXPECT_TRUE(asked.RequestLoad("none", Answers::Add, &answers, nullptr));
        EXPECT_TRUE(asked.RequestLoad("a", &target, &Target::OnLoaded, &answers, nullptr));
    };
    EXPECT_FALSE(list.RequestLoad("a", Answers::Add, &answers, nullptr));
    ASSERT_TRUE(OpenList(list, {"a.pack"}));
    ask(list);
    EXPECT_EQ(target.GetRef(), 2);
    EXPECT_EQ(answers.count, 0);
    EXPECT_TRUE(list.Working());
    EXPECT_FALSE(list.Working());
    EXPECT_EQ(answers.count, 3);
    EXPECT_EQ(answers.withFile, 2);
    // What still waits when the list closes gets null.
    ask(list);
    list.Close();
    EXPECT_EQ(answers.count, 6);
    EXPECT_EQ(answers.withFile, 2);
    EXPECT_EQ(target.GetRef(), 1);

    KwFilePackList served(true);
    ASSERT_TRUE(OpenList(served, {"a.pack"}));
    ask(served);
    Wait(answers.count, 9);
    EXPECT_EQ(answers.withFile, 4);
    // Closing from within a callback.
    const auto close = [](const std::string&, void* a, void* b, KwFile* file) {
        static_cast<KwFilePackList*>(b)->Close();
        Answers::Add("a", a, nullptr, file);
    };
    EXPECT_TRUE(served.RequestLoad("a", close, &answers, &served));
    Wait(answers.count, 10);
    EXPECT_EQ(answers.withFile, 5);
    EXPECT_FALSE(served.IsOpen());
    ASSERT_TRUE(OpenList(served, {"a.pack"}));
    EXPECT_TRUE(served.RequestLoad("a", Answers::Add, &answers, nullptr));
    Wait(answers.count, 11);
}

// Neither the service ends by it nor the reference to the target is lost.
TEST_F(KwFilePackListTest, WhatACallbackThrowsIsLogged) {
    class Throwing : public Target {
    public:
        void Throw(const std::string&, void*, void*, KwFile*) { throw std::runtime_error("no use for it"); }
    } target;
    Answers answers;
    KwFilePackList served(true);
    ASSERT_TRUE(OpenList(served, {"a.pack"}));
    EXPECT_TRUE(served.RequestLoad("a", &target, &Throwing::Throw, nullptr, nullptr));
    EXPECT_TRUE(served.RequestLoad("both", Answers::Add, &answers, nullptr));
    Wait(answers.count, 1);
    EXPECT_EQ(answers.withFile, 1);
    EXPECT_EQ(target.GetRef(), 1);
    EXPECT_EQ(LogLine(), "exception in a load request for a: no use for it");
}

TEST_F(KwFilePackListTest, ManyThreadsReadThroughASmallCache) {
    std::vector<Body> bodies;
    for (int i = 0; i < 50; ++i) {
        bodies.push_back(Stored(std::to_string(i).c_str(), std::to_string(i) + std::string(1000, 'x')));
    }
    Put("t.pack", Pack(bodies));
    KwFilePackList shared(true);
    ASSERT_TRUE(OpenList(shared, {"a.pack", "t.pack"}));
    shared.SetLimitCache(8000);
    shared.SetTimeCheckCache(1);
    Answers answers;
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (unsigned int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (unsigned int i = 0; i < 500; ++i) {
                const std::string name = std::to_string((i * 7 + t * (i % 3)) % 50);
                KwFile file;
                char text[3] = {};
                if (!file.OpenFromPack(Hash(name.c_str())) || !file.Read(text, 2) || text[0] != name[0]) ++wrong;
                if (i % 10 == 0 && !shared.RequestLoad(name.c_str(), Answers::Add, &answers, nullptr)) ++wrong;
            }
        });
    }
    for (unsigned int i = 0; i < 100; ++i) shared.SetUnpackLimit(2000 + i);
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(wrong, 0);
    shared.Close();
    EXPECT_EQ(answers.count, 200);
    EXPECT_EQ(shared.GetCacheCount(), 0u);
}

}  // namespace
