// The runtime database: objects, the bytes of its files, and reading them again.
#include <cmath>
#include <limits>

#include "KwDBRTFixture.h"

namespace {

class KwDBRTTest : public KwDBRTFixture {};

std::string Bytes(std::initializer_list<int> values) {
    std::string bytes;
    for (const int value : values) bytes += static_cast<char>(value);
    return bytes;
}

TEST_F(KwDBRTTest, IdsFollowTheLastAndAreKeptApart) {
    TextDB db;
    EXPECT_EQ(db.AddObject("a", 0)->GetId(), 1);
    EXPECT_EQ(db.AddObject("a", 0)->GetId(), 2);
    EXPECT_EQ(db.AddObject("b", 10)->GetId(), 10);
    EXPECT_EQ(db.AddObject("c", 10), nullptr);
    EXPECT_EQ(db.AddObject("c", 5)->GetId(), 5);
    EXPECT_EQ(db.AddObject("c", -0.0)->GetId(), 11);
    EXPECT_EQ(db.FindObject("a"), nullptr);
    EXPECT_EQ(db.FindObject(10)->GetName(), "b");
    db.onAdd = [&db] { EXPECT_EQ(db.AddObject("within", 0)->GetId(), 12); };
    EXPECT_EQ(db.AddObject("late", 0), nullptr);  // the hook took its id
    EXPECT_EQ(db.FindObject(12)->GetName(), "within");
    EXPECT_TRUE(TakeLog().empty());
    const double inf = std::numeric_limits<double>::infinity();
    for (const double id : {-1.0, 0.5, std::nan(""), inf, -inf}) {
        EXPECT_EQ(db.AddObject("x", id), nullptr);
        EXPECT_EQ(db.FindObject(id), nullptr);
        EXPECT_FALSE(db.RemoveObject(id));
        EXPECT_EQ(TakeLog().size(), 1u);
    }
    EXPECT_NE(db.AddObject(std::string(CKwDBRT::kMaxName, 'n'), 0), nullptr);
    EXPECT_EQ(db.AddObject(std::string(CKwDBRT::kMaxName + 1, 'n'), 0), nullptr);
    EXPECT_EQ(LogLine(), "add object error name size:65537");
    // Behind the last exact number there is no next one.
    EXPECT_NE(db.AddObject("", 9007199254740992.0), nullptr);
    EXPECT_EQ(db.AddObject("", 0), nullptr);
}

TEST_F(KwDBRTTest, NamesAreKeysWithOrWithoutCase) {
    TextDB db;
    db.keyNames = true;
    CKwDBRTObject* upper = db.AddObject("Abc", 0);
    EXPECT_NE(db.AddObject("abc", 0), nullptr);
    EXPECT_EQ(db.AddObject("Abc", 0), nullptr);
    EXPECT_EQ(db.FindObject("Abc"), upper);
    EXPECT_TRUE(db.RemoveObject("Abc"));
    EXPECT_FALSE(db.RemoveObject("Abc"));
    db.Close();
    db.lowNames = true;
    CKwDBRTObject* object = db.AddObject("Abc", 0);
    EXPECT_EQ(db.AddObject("aBC", 0), nullptr);
    EXPECT_EQ(db.FindObject("ABC"), object);
    EXPECT_TRUE(db.RemoveObject(object->GetId()));
    EXPECT_EQ(db.FindObject("ABC"), nullptr);
    EXPECT_NE(db.AddObject("ABC", 0), nullptr);
}

// The table against a plain map, with ids of every size and many removals.
TEST_F(KwDBRTTest, TheIdTableFindsWhatIsThere) {
    TextDB db;
    std::map<double, CKwDBRTObject*> expected;
    std::uint64_t random = 1;
    for (int i = 0; i < 60000; ++i) {
        random = random * 6364136223846793005u + 1442695040888963407u;
        const double id = std::ldexp(static_cast<double>(random >> 54) + 1, static_cast<int>(random >> 32) % 4 * 20);
        if ((random >> 20) % 3 == 0) {
            ASSERT_EQ(db.RemoveObject(id), expected.erase(id) == 1);
        } else if (CKwDBRTObject* object = db.AddObject("", id)) {
            ASSERT_TRUE(expected.emplace(id, object).second);
        }
        ASSERT_EQ(db.FindObject(id), expected.count(id) != 0 ? expected[id] : nullptr);
    }
    for (const auto& [id, object] : expected) ASSERT_EQ(db.FindObject(id), object);
    EXPECT_EQ(db.GetObjectCount(), expected.size());
}

// Likewise with names of every length, some of which differ in a case or in one place only.
TEST_F(KwDBRTTest, TheNameTableFindsWhatIsThere) {
    TextDB db;
    db.keyNames = db.lowNames = true;
    std::map<std::string, CKwDBRTObject*> expected;
    std::uint64_t random = 2;
    for (int i = 0; i < 60000; ++i) {
        random = random * 6364136223846793005u + 1442695040888963407u;
        const auto length =
            static_cast<std::size_t>((random >> 30) % 1000 == 0 ? CKwDBRT::kMaxName : (random >> 33) % 40);
        std::string name(length, 'n');
        if (length != 0)
            name[static_cast<std::size_t>(random >> 40) % length] = static_cast<char>('A' + (random >> 50) % 26);
        std::string key = name;
        for (char& ch : key) ch = static_cast<char>(ch | 0x20);
        if ((random >> 20) % 3 == 0) {
            ASSERT_EQ(db.RemoveObject(name), expected.erase(key) == 1);
        } else if (CKwDBRTObject* object = db.AddObject(name, 0)) {
            ASSERT_TRUE(expected.emplace(key, object).second);
        }
        ASSERT_EQ(db.FindObject(key), expected.count(key) != 0 ? expected[key] : nullptr);
    }
    for (const auto& [key, object] : expected) ASSERT_EQ(db.FindObject(key), object);
}

TEST_F(KwDBRTTest, ARemovedObjectLivesWithItsKeeperAndWritesItsRecord) {
    TextDB db;
    ASSERT_TRUE(Open(db));
    TextObject* object = db.Make(7);
    TextObject* kept = static_cast<TextObject*>(db.KeepObject(7));
    ASSERT_EQ(kept, object);
    KwBuffer* record = kept->BeginUpdate();
    record->AddString("gone", -1);
    TextObject::removed = 0;
    EXPECT_TRUE(db.RemoveObject(7));
    EXPECT_EQ(TextObject::removed, 1);
    kept->EndUpdate(record, true);
    db.Close();
    EXPECT_EQ(kept->GetDB(), nullptr);
    EXPECT_EQ(kept->BeginUpdate(), nullptr);
    EXPECT_EQ(kept->Release(), 0);
    EXPECT_EQ(Kinds(Get("t.info")), "ld");
}

// Long and short payloads, now alike and now different, over several of the pieces in which a journal is read.
TEST_F(KwDBRTTest, PayloadsOfAnyLengthAreWrittenAndReplayedAsRoundDataHasThem) {
    std::vector<std::string> texts;
    std::string journal;
    std::uint64_t random = 3;
    for (int i = 0; i < 3000; ++i) {
        random = random * 6364136223846793005u + 1442695040888963407u;
        const auto length = static_cast<std::size_t>(i % 3 == 0 ? 1 + (random >> 40) % 1500 : texts.back().size());
        texts.emplace_back(length, static_cast<char>('a' + i % 26));
        journal += Data(static_cast<double>(1 + (random >> 50) % 300), texts.back());
    }
    Put("t.info", journal);
    TextDB db;
    ASSERT_TRUE(Open(db));
    EXPECT_EQ(db.commitCount, 3000);
    EXPECT_TRUE(db.replayed == texts);
    for (const std::string& text : texts) db.Set(1, text);
    db.RunTask(1);
    std::string written = Get("t.info");
    KwDBRTReader reader(written.data(), written.size());
    for (std::size_t i = 0; reader.Next();) {
        if (reader.GetRecord().IsEvent()) continue;
        KwHash::RoundData(texts[i].data(), reader.GetRecord().length, reader.GetRecord().length);
        ASSERT_EQ(std::string(reinterpret_cast<char*>(reader.GetPayload()), reader.GetRecord().length), texts[i]) << i;
        ++i;
    }
}

TEST_F(KwDBRTTest, TheFilesHaveTheirBytes) {
    STime time{1, 2, 3, 4, 5, 6, 2026};
    {
        TextDB db;
        ASSERT_TRUE(Open(db));
        KwBuffer data;
        data.Alloc(8);
        data.AddData("state", 5);
        int file = 9;
        unsigned int offset = 9, size = 9;
        TextObject* object = db.Make(300);
        KwBuffer* record = object->BeginUpdate(&data, &file, &offset, &size, &time);
        record->AddData("pay", 3);
        object->EndUpdate(record, true);
        EXPECT_EQ(file, 0);
        EXPECT_EQ(offset, 0u);
        EXPECT_EQ(size, 5u);
        // Without data the record names the place that the caller passes.
        record = object->BeginUpdate(nullptr, &file, &offset, &size, &time);
        record->AddData("x", 1);
        object->EndUpdate(record, true);
        // Empty data has a place and no entry.
        data.SetUsed(0);
        record = object->BeginUpdate(&data, &file, &offset, &size, &time);
        EXPECT_EQ(offset, 21u);
        EXPECT_EQ(size, 0u);
        object->EndUpdate(record, false);
        EXPECT_EQ(db.GetWrittenCount(), 0u);
        db.RunTask(1);
        EXPECT_EQ(db.GetWrittenCount(), 3u);
        EXPECT_TRUE(TakeLog().empty());
    }
    const std::string magic = Bytes({0xB2, 0x71, 0x1D, 0x21});
    const std::string id = Bytes({0, 0, 0, 0, 0, 0xC0, 0x72, 0x40});
    const std::string stamp = Bytes({1, 2, 3, 4, 5, 6, 0xEA, 7});
    std::string pay = "pay", x = "x", state = "state";
    KwHash::RoundData(pay.data(), 3, 3);
    KwHash::RoundData(x.data(), 1, 1);
    KwHash::RoundData(state.data(), 5, 5);
    const std::string place = Bytes({0, 0, 0, 0, 0, 0, 0, 0, 5, 0, 0, 0});
    const std::string journal = Get("t.info");
    EXPECT_EQ(journal.substr(0, 5), magic + "\3");
    EXPECT_EQ(journal.substr(13), magic + "\1" + Bytes({3, 0, 0, 0}) + id + place + stamp + pay + magic + "\1" +
                                      Bytes({1, 0, 0, 0}) + id + place + stamp + x);
    EXPECT_EQ(Get("t.logdat"), journal);
    EXPECT_EQ(Get("t.dat"), magic + id + Bytes({5, 0, 0, 0}) + state);
    const std::string text = Get("t.log");
    EXPECT_EQ(text.substr(21, 6), "login\n");
    EXPECT_EQ(text.substr(27),
              "[03_02_01_04_06_2026]data:300,0,0,5\ttext=pay\n[03_02_01_04_06_2026]data:300,0,0,5\ttext=x\n");
    EXPECT_EQ(CountEntries(), 5);
}

TEST_F(KwDBRTTest, AReopenedDatabaseHasItsStateAndAnEmptyJournal) {
    {
        TextDB db;
        ASSERT_TRUE(Open(db));
        for (int i = 1; i <= 100; ++i) db.Set(i, "first" + std::to_string(i), true);
        for (int i = 1; i <= 100; i += 2) db.Set(i, "second" + std::to_string(i), true);
    }
    TextDB db;
    ASSERT_TRUE(Open(db));
    EXPECT_EQ(db.commitCount, 150);
    EXPECT_EQ(Get("t.info"), "");
    EXPECT_EQ(db.Get(3)->text, "second3");
    EXPECT_EQ(db.Get(4)->text, "first4");
    for (int i = 1; i <= 100; ++i) ASSERT_EQ(db.ReadText(i), db.Get(i)->text);
    EXPECT_FALSE(db.Get(3)->ReadData(nullptr, 0, 0, 1));
    KwBuffer out;
    EXPECT_TRUE(db.Get(3)->ReadData(&out, -1, 0, 9));
    EXPECT_TRUE(TakeLog().empty());
    // Another object's entry, another size, no entry, no file: refused.
    TextObject* other = db.Get(5);
    for (const auto& [file, offset, size] :
         {std::tuple{0, db.Get(3)->offset, db.Get(3)->size}, std::tuple{0, other->offset, other->size + 1},
          std::tuple{0, 0xFFFFFFF0u, 5u}, std::tuple{3, 0u, 5u}, std::tuple{0, 0u, 0xFFFFFFFFu}}) {
        EXPECT_FALSE(other->ReadData(&out, file, offset, size));
        EXPECT_EQ(TakeLog().size(), 1u);
    }
    // New entries follow the old ones.
    db.SetNow(3, "third", true);
    EXPECT_EQ(db.ReadText(3), "third");
    EXPECT_EQ(Kinds(Get("t.info")), "lcd");
    EXPECT_EQ(Kinds(Get("t.logdat")), "l" + std::string(150, 'd') + "lcd");
}

TEST_F(KwDBRTTest, APlaceThatPassesTheLimitGoesToTheNextFile) {
    // A hole stands for the gigabyte.
    ASSERT_TRUE(Put("t.dat", "").size() > 0);
    std::filesystem::resize_file(folder_ / "t.dat", CKwDBRT::kMaxFileEnd - 26);
    TextDB db;
    ASSERT_TRUE(Open(db));
    db.Set(1, "0123456789", true);  // to the limit exactly
    db.Set(2, "x", true);           // past it, still in the old file
    db.Set(3, "y", true);
    EXPECT_EQ(db.Get(1)->offset, CKwDBRT::kMaxFileEnd - 26);
    EXPECT_EQ(db.Get(2)->offset, CKwDBRT::kMaxFileEnd);
    EXPECT_EQ(db.Get(2)->file, 0);
    EXPECT_EQ(db.Get(3)->offset, 0u);
    EXPECT_EQ(db.Get(3)->file, 1);
    db.RunTask(1);
    EXPECT_EQ(db.ReadText(1) + db.ReadText(2) + db.ReadText(3), "0123456789xy");
    EXPECT_EQ(Get("t.dat_1").size(), 17u);
    char path[1024];
    db.MakeFileData(path, 3, "dat");
    EXPECT_EQ(path, Inner("t.dat_3"));
    db.MakeFileData(path, 0, "dat");
    EXPECT_EQ(path, Inner("t.dat"));
    // A file that is past it takes a last place, without bytes too.
    db.Close();
    ASSERT_TRUE(Open(db));
    KwBuffer none;
    for (const int expected : {0, 1}) {
        int file = -1;
        db.Get(1)->EndUpdate(db.Get(1)->BeginUpdate(&none, &file), false);
        EXPECT_EQ(file, expected);
    }
}

TEST_F(KwDBRTTest, PlacesCommittedInAnotherOrderLoseNothing) {
    TextDB db;
    ASSERT_TRUE(Open(db));
    KwBuffer data[3];
    KwBuffer* records[3];
    for (int i = 0; i < 3; ++i) {
        TextObject* object = db.Make(i + 1);
        data[i].Alloc(16);
        data[i].AddString(std::to_string(i).c_str(), 1);
        records[i] = object->BeginUpdate(&data[i], &object->file, &object->offset, &object->size);
        records[i]->AddByte('p');
    }
    // In one pass, and over several.
    db.Get(3)->EndUpdate(records[2], true);
    db.RunTask(1);
    EXPECT_EQ(db.GetWrittenCount(), 1u);
    db.Get(2)->EndUpdate(records[1], true);
    db.Get(1)->EndUpdate(records[0], true);
    db.RunTask(1);
    EXPECT_EQ(db.GetWrittenCount(), 4u);
    EXPECT_EQ(db.ReadText(1) + db.ReadText(2) + db.ReadText(3), "012");
    EXPECT_TRUE(TakeLog().empty());
    // A place that is given up is a gap until the database is opened again.
    TextObject* object = db.Get(1);
    KwBuffer* dropped = object->BeginUpdate(&data[0]);
    object->EndUpdate(dropped, false);
    db.SetNow(2, "behind", true);
    EXPECT_EQ(LogLine(), "update dbrt data error dataoffset:51,68");
    EXPECT_EQ(db.GetWrittenCount(), 5u);
    db.Close();
    ASSERT_TRUE(Open(db));
    db.SetNow(2, "again", true);
    EXPECT_EQ(db.ReadText(2), "again");
}

TEST_F(KwDBRTTest, OddRecordsAreRefusedOrKeptAsTheyAre) {
    TextDB db;
    TextObject* object = db.Make(1);
    EXPECT_EQ(object->BeginUpdate(), nullptr);  // no buffers before Open
    ASSERT_TRUE(Open(db));
    KwBuffer payload;
    payload.Alloc(4096);
    EXPECT_FALSE(object->PostUpdate(nullptr) || object->PostUpdate(&payload));
    payload.SetUsed(4096 - 1023);
    EXPECT_FALSE(object->PostUpdate(&payload));
    EXPECT_FALSE(db.Set(1, std::string(4096 - 36, 'x')));
    EXPECT_TRUE(db.Set(1, std::string(4096 - 37, 'x')));
    KwBuffer huge;
    huge.SetUsed(CKwDBRTObject::kMaxData + 1);
    EXPECT_EQ(object->BeginUpdate(&huge), nullptr);
    EXPECT_EQ(LogLine(), "update dbrt data error size:536870913");
    payload.SetUsed(4096 - 1024);
    EXPECT_TRUE(object->PostUpdate(&payload));
    db.Close();
    EXPECT_EQ(Kinds(Get("t.info")), "ld!");
    EXPECT_FALSE(Open(db));
    EXPECT_EQ(LogLine(), "load journal " + Inner("t.info") + " error offset:4109, the record has no payload");
    EXPECT_NE(db.Get(1), nullptr);  // what stood before is applied
    EXPECT_TRUE(db.Set(1, "queued where nobody writes", true));
    db.Close();
    // Buffers too small for a record, and no buffers at all.
    for (const int size : {0, -5, 3, 13, 20, 36}) {
        std::filesystem::remove(folder_ / "t.info");
        TextDB tiny;
        ASSERT_TRUE(tiny.Open(size, folder_.string(), "t"));
        KwBuffer* record = tiny.Make(1)->BeginUpdate();
        if (record != nullptr) tiny.Get(1)->EndUpdate(record, true);
        tiny.RunTask(1);
        EXPECT_EQ(Kinds(Get("t.info")), size < 13 ? "" : "l") << size;
        TakeLog();
    }
}

TEST_F(KwDBRTTest, OneDatabaseHasOneOwner) {
    TextDB db, other;
    ASSERT_TRUE(Open(db));
    EXPECT_FALSE(Open(other));
    EXPECT_EQ(LogLine(), "open database " + Inner("t.lock") + " error: it is open elsewhere");
    EXPECT_FALSE(Open(db));
    EXPECT_EQ(LogLine(), "open database t error: it is open");
    EXPECT_TRUE(other.Open(4096, folder_.string(), "t2"));
    db.Close();
    other.Close();
    EXPECT_TRUE(Open(other));
    other.Close();
    for (const char* name : {"", "a/b", "a\\b"}) EXPECT_FALSE(db.Open(4096, folder_.string(), name));
    EXPECT_FALSE(db.Open(4096, std::string(1020, 'd'), "t"));
    Put("file", "");
    EXPECT_FALSE(db.Open(4096, Path("file"), "t"));
    EXPECT_EQ(TakeLog().size(), 5u);
    EXPECT_TRUE(db.Open(4096, Path("new/deep/"), "t"));
}

TEST_F(KwDBRTTest, TheCopyIsListedAcrossItsFiles) {
    TextDB db;
    db.SetLogLimit(150);
    ASSERT_TRUE(Open(db));
    for (int i = 0; i < 5; ++i) db.SetNow(1, std::string(50, 'a'));
    EXPECT_EQ(Kinds(Get("t.logdat_1") + Get("t.logdat_2") + Get("t.logdat")), "lddddd");
    EXPECT_EQ((Get("t.log_1") + Get("t.log_2") + Get("t.log")).size(), 27 + 5 * (21 + 14 + 56u));
    db.LoadLog();
    EXPECT_EQ(LogLine(), "start load log");
    ASSERT_EQ(db.GetActions().size(), 6u);
    EXPECT_EQ(db.GetActions()[5].offset, 13 + 4 * 87u);
    db.RestoreLogin();
    const std::string login = LogLine();
    EXPECT_EQ(login.substr(login.find(']')), "]offset=0");
    db.RestoreTime();
    EXPECT_NE(TakeLog()[5].find("]action=data\toffset=361"), std::string::npos);
    db.Close();
    Put("t.logdat_2", Get("t.logdat_2").substr(1));
    db.LoadLog();
    EXPECT_EQ(TakeLog()[1], "read log error");
    EXPECT_TRUE(db.GetActions().empty());
    TextDB none;
    none.RestoreCommit();
    EXPECT_EQ(TakeLog().size(), 1u);
}

TEST_F(KwDBRTTest, ManyOpeningsLeaveNothingBehind) {
    TextDB db;
    for (int i = 0; i < 1000; ++i) {
        ASSERT_TRUE(Open(db));
        db.Set(i % 10 + 1, "x", true);
        db.Close();
    }
    ASSERT_TRUE(Open(db));
    EXPECT_EQ(CountEntries(), 5);
}

}  // namespace
