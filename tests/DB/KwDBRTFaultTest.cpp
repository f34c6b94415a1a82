// The runtime database on a disk that fails, fills up, and forgets what was not flushed.
#include <algorithm>

#include "KwDBRTFixture.h"
#include "KwDBSimDisk.h"

namespace {

// A host with its snapshot: what a crash leaves of both must lead to every change that was acknowledged.
struct Host {
    struct Saved {
        std::string text;
        int file;
        unsigned int offset, size;
    };
    SimDisk disk;
    std::unique_ptr<TextDB> db;
    std::map<double, Saved> snapshot;  // flushed by the host when it committed
    std::map<double, int> last;        // version of each object, as it was set
    std::map<double, int> safe;        // as it was acknowledged
    std::vector<std::string> pending, acknowledged;
    int serial = 0;
    unsigned long long queued = 0;
    bool failed = false;
    unsigned long long dropped = 0;

    static int Version(const std::string& text) { return std::stoi(text.substr(text.find(':') + 1)); }

    bool Start() {
        db = std::make_unique<TextDB>();
        db->SetFiles(&disk);
        db->SetDurable(true);
        db->onCommit = [this] {
            snapshot.clear();
            db->WalkObjects([&](CKwDBRTObject* each) {
                auto* object = static_cast<TextObject*>(each);
                snapshot[object->GetId()] = {object->text, object->file, object->offset, object->size};
            });
        };
        for (const auto& [id, saved] : snapshot) {
            TextObject* object = db->Make(id);
            object->text = saved.text;
            object->file = saved.file;
            object->offset = saved.offset;
            object->size = saved.size;
        }
        queued = 1;
        return db->Open(4096, "d", "t");
    }
    void Change(double id, bool withData) {
        const int version = last[id] = ++serial;
        const std::string text = std::to_string(static_cast<int>(id)) + ":" + std::to_string(version);
        if (!db->Set(id, text, withData)) return;
        ++queued;
        pending.push_back(text);
    }
    void Pass() {
        db->RunTask(1);
        failed = failed || db->IsFailed();
        if (!db->IsFailed() && db->GetDroppedCount() == 0 && db->GetWrittenCount() >= queued) {
            for (const auto& [id, version] : last) safe[id] = version;
            acknowledged.insert(acknowledged.end(), pending.begin(), pending.end());
            pending.clear();
        }
    }
    void Work(int rounds) {
        for (int round = 0; round < rounds; ++round) {
            for (int i = 0; i < 4; ++i) Change(1 + (round * 7 + i * 3) % 9, i % 2 == 0);
            Pass();
            if (round % 5 == 3 && db->Checkpoint()) ++queued;
        }
    }
    // Cuts what a crash tore off the journals, which a database refuses to open with.
    void Repair() {
        for (auto& [path, node] : disk.names) {
            if (path.find(".info") == std::string::npos) continue;
            std::string bytes = node->now;
            KwDBRTReader reader(bytes.data(), bytes.size());
            std::uint64_t whole = 0;
            while (reader.Next()) {
                reader.UnscramblePayload();
                // Zeros instead of a payload only the host can see.
                const char* text = reinterpret_cast<const char*>(reader.GetPayload());
                if (!reader.GetRecord().IsEvent() &&
                    std::string(text, reader.GetRecord().length).find_first_not_of("0123456789:") !=
                        std::string::npos) {
                    break;
                }
                whole = reader.GetOffset();
            }
            node->now.resize(static_cast<std::size_t>(whole));
            node->flushed = node->now;
        }
    }
    // What a crash left is what the next changes follow on.
    void GoOn() {
        last.clear();
        pending.clear();
        for (const auto& [id, text] : db->State()) last[id] = Version(text);
    }
    void Check(const std::string& where) {
        for (const auto& [id, version] : safe) {
            TextObject* object = db->Get(id);
            ASSERT_NE(object, nullptr) << where << " id " << id;
            const int found = Version(object->text);
            ASSERT_GE(found, version) << where << " id " << id;
            ASSERT_LE(found, last[id]) << where << " id " << id;
            const bool sure = std::find(acknowledged.begin(), acknowledged.end(), object->text) != acknowledged.end();
            if (sure && object->size != 0) {
                ASSERT_EQ(db->ReadText(id), object->text) << where;
            }
        }
        db->LoadLog();
        ASSERT_FALSE(db->GetActions().empty() && !safe.empty()) << where;
    }
    // Every acknowledged change has its record in the copy and its line in the text log.
    void CheckCopy(const std::string& where) {
        std::string copy = disk.Get("d\\t.logdat");
        const std::string text = disk.Get("d\\t.log");
        std::map<std::string, int> seen;
        KwDBRTReader reader(copy.data(), copy.size());
        while (reader.Next()) {
            if (reader.GetRecord().IsEvent()) continue;
            reader.UnscramblePayload();
            ++seen[{reinterpret_cast<char*>(reader.GetPayload()), reader.GetRecord().length}];
        }
        for (const std::string& value : acknowledged) {
            ASSERT_GE(seen[value], 1) << where << " " << value;
            const std::string line = "\ttext=" + value + "\n";
            ASSERT_NE(text.find(line), std::string::npos) << where << " " << value;
        }
    }
};

class KwDBRTFaultTest : public KwDBRTFixture {};

TEST_F(KwDBRTFaultTest, APowerCutAnywhereLosesNothingAcknowledged) {
    int total = 0;
    for (int seed = 1; seed <= 8; ++seed) {
        for (int cut = 1; cut == 1 || cut <= total; ++cut, TakeLog()) {
            const std::string where = "seed " + std::to_string(seed) + " cut " + std::to_string(cut);
            Host host;
            host.disk.random.seed(static_cast<unsigned int>(seed * 1000 + cut));
            host.disk.failForGood = true;
            host.disk.failAt = total == 0 ? 0 : cut;
            if (host.Start()) host.Work(12);
            if (total == 0) total = host.disk.operations;
            host.db->SetFiles(nullptr);
            host.db = nullptr;
            host.disk.Crash();
            host.Repair();
            // The second crash hits the recovery.
            host.disk.failAt = host.disk.operations + 1 + static_cast<int>(host.disk.random() % 12);
            host.disk.failForGood = true;
            host.Start();
            host.db = nullptr;
            host.disk.Crash();
            host.Repair();
            TakeLog();
            ASSERT_TRUE(host.Start()) << where << " " << testing::PrintToString(TakeLog());
            ASSERT_NO_FATAL_FAILURE(host.Check(where));
            ASSERT_NO_FATAL_FAILURE(host.CheckCopy(where));
            host.GoOn();
            host.Work(2);
            ASSERT_NO_FATAL_FAILURE(host.Check(where + " later"));
            ASSERT_EQ(host.db->GetDroppedCount(), 0u);
        }
    }
    EXPECT_GT(total, 150);
}

TEST_F(KwDBRTFaultTest, AnyOneFailureIsSaidAndLosesNothingAcknowledged) {
    int total = 1;
    for (int fail = 0; fail <= total; ++fail) {
        const std::string where = "failing " + std::to_string(fail);
        Host host;
        host.disk.failAt = fail;
        bool started = host.Start();
        if (!started) started = host.Start();
        ASSERT_TRUE(started) << where;
        host.Work(12);
        host.db->RunTask(1);
        const unsigned long long dropped = host.db->GetDroppedCount();
        host.db->Close();
        if (fail == 0) total = host.disk.operations;
        ASSERT_EQ(TakeLog().empty(), fail == 0 || fail > total) << where;
        ASSERT_TRUE(host.Start()) << where;
        ASSERT_NO_FATAL_FAILURE(host.Check(where));
        if (!host.failed && dropped == 0) {
            for (const auto& [id, version] : host.last) {
                ASSERT_EQ(Host::Version(host.db->Get(id)->text), version) << where;
            }
        }
        TakeLog();
    }
}

TEST_F(KwDBRTFaultTest, AFailedFlushEndsAllChanges) {
    Host host;
    ASSERT_TRUE(host.Start());
    host.Work(1);
    host.Change(1, false);
    host.disk.failAt = host.disk.operations + 7;  // three files opened, three appended to, the journal flushed
    host.Pass();
    ASSERT_TRUE(host.db->IsFailed());
    EXPECT_NE(TakeLog().back().find("takes no more changes until it is opened again"), std::string::npos);
    EXPECT_EQ(host.db->Get(1)->BeginUpdate(), nullptr);
    EXPECT_FALSE(host.db->Checkpoint());
    const std::string journal = host.disk.Get("d\\t.info");
    host.db->RunTask(1);
    host.db->Close();
    EXPECT_EQ(host.disk.Get("d\\t.info"), journal);
    ASSERT_TRUE(host.Start());
    EXPECT_FALSE(host.db->IsFailed());
    host.Change(1, false);
    host.Pass();
    EXPECT_EQ(host.safe[1], host.last[1]);
}

// On a full disk the journal keeps its whole records, and copy, text and data follow only those.
TEST_F(KwDBRTFaultTest, AFullDiskTearsNothingAndWorkGoesOn) {
    for (std::size_t room = 0; room < 1500; room += 7) {
        SimDisk disk;
        TextDB db;
        db.SetFiles(&disk);
        ASSERT_TRUE(db.Open(4096, "d", "t"));
        db.RunTask(1);
        for (int i = 1; i <= 10; ++i) db.Set(i, "text" + std::to_string(i), true);
        disk.room = room;
        db.RunTask(1);
        const auto dropped = static_cast<std::size_t>(db.GetDroppedCount());
        EXPECT_EQ(Kinds(disk.Get("d\\t.info")), "l" + std::string(10 - dropped, 'd'));
        EXPECT_EQ(Kinds(disk.Get("d\\t.logdat")).find('!'), std::string::npos);
        ASSERT_LE(disk.Get("d\\t.logdat").size(), disk.Get("d\\t.info").size());
        disk.room = SIZE_MAX;
        for (int i = 11; i <= 13; ++i) db.Set(i, "text" + std::to_string(i), true);
        db.RunTask(1);
        EXPECT_EQ(db.GetDroppedCount(), dropped);
        EXPECT_EQ(db.GetWrittenCount(), 14 - dropped);
        EXPECT_EQ(disk.Get("d\\t.logdat"), disk.Get("d\\t.info"));
        int readable = 0;
        for (int i = 1; i <= 13; ++i) readable += db.ReadText(i) == db.Get(i)->text;
        EXPECT_EQ(readable, static_cast<int>(13 - dropped));
        TakeLog();
    }
}

TEST_F(KwDBRTFaultTest, AMissingFileLosesNoRecord) {
    for (const char* name : {"t.info", "t.logdat", "t.log"}) {
        TextDB db;
        ASSERT_TRUE(Open(db));
        std::filesystem::create_directories(folder_ / name);
        db.SetNow(1, "x");
        EXPECT_EQ(LogLine(), "modify file " + Inner(name) + " error");
        EXPECT_EQ(db.GetWrittenCount(), 0u);
        std::filesystem::remove(folder_ / name);
        db.RunTask(1);
        EXPECT_EQ(db.GetWrittenCount(), 2u);
        EXPECT_EQ(Kinds(Get("t.info")), "ld");
        db.Close();
        for (const char* other : {"t.info", "t.logdat", "t.log"}) std::filesystem::remove(folder_ / other);
    }
}

// The journal is longer than what is compared at first.
TEST_F(KwDBRTFaultTest, ALongJournalCompletesTheLogs) {
    const auto open = [this](TextDB& db) {
        db.counts = false;
        db.SetDurable(true);
        return db.Open(4 << 20, folder_.string(), "t");
    };
    {
        TextDB db;
        ASSERT_TRUE(open(db));
        for (int i = 0; i < 10; ++i) db.SetNow(1, std::string(2 << 20, static_cast<char>('a' + i)));
    }
    const auto size = [this](const char* name) { return std::filesystem::file_size(folder_ / name); };
    const auto copied = size("t.logdat"), lines = size("t.log");
    for (const unsigned int kept : {15u << 20, 1u << 20}) {
        std::filesystem::resize_file(folder_ / "t.logdat", kept);
        std::filesystem::resize_file(folder_ / "t.log", kept);
        TextDB db;
        ASSERT_TRUE(open(db));
        const auto logins = kept == 1u << 20 ? 1 : 0;  // of the round before
        EXPECT_EQ(size("t.logdat"), copied + logins * KwDBRTRecord::kEventSize);
        EXPECT_EQ(size("t.log"), lines + logins * 27);
    }
    EXPECT_EQ(Kinds(Get("t.logdat")), "lddddddddddll");
}

TEST_F(KwDBRTFaultTest, ARefusedCommitKeepsTheJournalAside) {
    {
        TextDB db;
        ASSERT_TRUE(Open(db));
        for (int i = 1; i <= 5; ++i) db.Set(i, "a");
        db.commits = false;
        EXPECT_FALSE(db.Checkpoint());
        EXPECT_EQ(db.commitCount, 5);
        db.Set(1, "b");
        EXPECT_FALSE(db.Checkpoint());
        EXPECT_EQ(db.commitCount, 6);
        db.Set(2, "c");
    }
    EXPECT_EQ(Kinds(Get("t.info.1") + Get("t.info.2") + Get("t.info")), "ldddddcdcd");
    TakeLog();
    for (int round = 0; round < 3; ++round) {
        TextDB db;
        db.commits = round == 2;
        EXPECT_EQ(Open(db), round == 2);
        EXPECT_EQ(db.commitCount, 7);
        EXPECT_EQ(db.State(), (std::map<double, std::string>{{1, "b"}, {2, "c"}, {3, "a"}, {4, "a"}, {5, "a"}}));
    }
    EXPECT_FALSE(std::filesystem::exists(folder_ / "t.info.1"));
    EXPECT_EQ(Kinds(Get("t.info")), "lc");
    TextDB db;
    ASSERT_TRUE(Open(db));
    EXPECT_TRUE(db.Checkpoint());
    EXPECT_EQ(db.commitCount, -1);  // nothing to commit
}

// A queue that others fill as fast as it is written does not hold a checkpoint up.
TEST_F(KwDBRTFaultTest, ACheckpointTakesWhatWasQueuedBefore) {
    TextDB db;
    ASSERT_TRUE(Open(db));
    int more = 100;
    db.onText = [&] {
        EXPECT_FALSE(db.Checkpoint());  // in the middle of a pass
        if (--more > 0) db.Set(2, "more");
    };
    db.Set(1, "a");
    EXPECT_TRUE(db.Checkpoint());
    EXPECT_EQ(more, 99);
    EXPECT_EQ(db.commitCount, 1);
    db.Close();
    EXPECT_EQ(more, 0);
}

// The journal is cut at every byte of its last three records, and each byte of it is flipped.
TEST_F(KwDBRTFaultTest, ADamagedJournalIsRefusedAndLeftAlone) {
    const std::string event = [this] {
        TextDB db;
        EXPECT_TRUE(Open(db));
        db.Close();
        return Get("t.info");
    }();
    const std::string texts[] = {"first", "second", "third"};
    std::string journal = event;
    std::vector<std::size_t> ends{0, journal.size()};
    for (int i = 0; i < 3; ++i) {
        journal += Data(i + 1, texts[i], 0, 5, 6);
        ends.push_back(journal.size());
    }
    for (std::size_t cut = 0; cut <= journal.size() * 2; ++cut, TakeLog()) {
        std::string bytes = journal.substr(0, cut);
        const bool flipped = cut > journal.size();
        if (flipped) (bytes = journal)[cut - journal.size() - 1] ^= static_cast<char>(1 << cut % 8);
        if (cut == journal.size() / 2) bytes = journal + std::string(1, '\0');  // what a power cut may leave
        Put("t.info", bytes);
        std::filesystem::remove(folder_ / "t.logdat");
        TextDB db;
        const bool opened = Open(db);
        if (!flipped) {
            const auto end = std::find(ends.begin(), ends.end(), bytes.size());
            EXPECT_EQ(opened, end != ends.end()) << cut;
            std::size_t whole = 0;
            while (whole < 3 && ends[whole + 2] <= bytes.size()) ++whole;
            ASSERT_EQ(db.replayed, std::vector<std::string>(texts, texts + whole)) << cut;
        }
        if (!opened) {
            EXPECT_EQ(Get("t.info"), bytes) << cut;
        }
        // As a copy the same bytes are listed whole or not at all.
        db.Close();
        Put("t.logdat", bytes);
        TakeLog();
        db.LoadLog();
        EXPECT_EQ(db.GetActions().empty(), bytes.empty() || Kinds(bytes).back() == '!');
        EXPECT_EQ(TakeLog().size(), Kinds(bytes + "!") == "" || Kinds(bytes).find('!') == std::string::npos ? 1u : 2u);
    }
    Put("t.info", event + Data(1, "fine") + Data(2, "refuse") + Data(3, "fine"));
    TextDB db;
    EXPECT_FALSE(Open(db));
    EXPECT_EQ(db.replayed, std::vector<std::string>{"fine"});
    for (const double id : {-1.0, std::nan("")}) {
        Put("t.info", Data(id, "x"));
        EXPECT_FALSE(Open(db));
    }
}

}  // namespace
