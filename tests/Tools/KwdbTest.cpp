// The program kwdb, run on the files of small databases.
#include <nlohmann/json.hpp>

#include "../DB/KwDBRTFixture.h"
#include "KwTestSupport.h"

namespace {

class KwdbTest : public KwDBRTFixture {
protected:
    struct Result {
        int code;
        std::string out;
        bool Has(const std::string& text) const { return out.find(text) != std::string::npos; }
    };
    // Runs "kwdb command FOLDER t options".
    Result Run(const std::string& command, const std::string& options = "", bool withErrors = true) const {
        return RunLine(command + " \"" + folder_.string() + "\" t " + options, withErrors);
    }
    static Result RunLine(const std::string& line, bool withErrors = true) {
        Result result{-1, ""};
        result.code = RunProgram(KWDB_PROGRAM, line, withErrors, result.out);
        return result;
    }
    static std::string Event(KwDBRTRecord::Type type, unsigned char day = 4) {
        std::string bytes(KwDBRTRecord::kEventSize, '\0');
        KwDBRTRecord::PutEvent(reinterpret_cast<unsigned char*>(bytes.data()), type, {1, 2, 3, day, 5, 6, 2026});
        return bytes;
    }
    const std::string login_ = Event(KwDBRTRecord::kLogin);
    const std::string commit_ = Event(KwDBRTRecord::kCommit);

    // The bytes of whole records.
    static std::size_t WholeSize(std::string bytes) {
        KwDBRTReader reader(bytes.data(), bytes.size());
        while (reader.Next()) {
        }
        return static_cast<std::size_t>(reader.GetOffset());
    }
    // Checks and repairs a journal, and expects all its whole records and nothing else to be kept.
    void ExpectRepaired(const std::string& journal, bool damaged) {
        std::filesystem::remove(folder_ / "t.info.damaged");
        Put("t.info", journal);
        const std::size_t whole = WholeSize(journal);
        ASSERT_EQ(whole != journal.size(), damaged);
        const Result check = Run("check");
        EXPECT_EQ(check.code, damaged ? 1 : 0) << check.out;
        EXPECT_EQ(check.Has("t.info: damaged at offset " + std::to_string(whole) + ": "), damaged) << check.out;
        EXPECT_EQ(Run("repair").code, 0);
        EXPECT_EQ(Get("t.info"), journal.substr(0, whole));
        EXPECT_EQ(Get("t.info.damaged"), damaged ? journal : "");
    }
};

}  // namespace

TEST_F(KwdbTest, CountsWhatADatabaseWrote) {
    {
        TextDB db;
        ASSERT_TRUE(Open(db));
        db.Set(1, "one", true);
        db.Set(2, "two");
        ASSERT_TRUE(db.SetNow(1, "uno", true));
        const Result repair = Run("repair");
        EXPECT_EQ(repair.code, 2);
        EXPECT_TRUE(repair.Has("t.lock: the database is open elsewhere")) << repair.out;
    }
    const Result check = Run("check", "--copy");
    EXPECT_EQ(check.code, 0) << check.out;
    EXPECT_TRUE(check.Has("t.info: journal, 133 bytes, 4 records (1 login, 0 commit, 3 data)")) << check.out;
    EXPECT_TRUE(check.Has("t.log: text log")) << check.out;
    EXPECT_TRUE(check.Has("t.dat: data file, 38 bytes, 2 entries (0 without an object)")) << check.out;
    EXPECT_TRUE(check.Has("t.dat: 4 records name entries, 4 of them match\n")) << check.out;
    const Result stats = Run("stats");
    EXPECT_EQ(stats.code, 0);
    EXPECT_TRUE(stats.Has("2 objects, payloads of 3 to 3 bytes")) << stats.out;
    EXPECT_TRUE(Run("repair").Has("t.info: whole, left as it is"));
}

TEST_F(KwdbTest, RepairKeepsEveryWholeRecord) {
    const std::string before = login_ + Data(1, "one") + Data(2, "second");
    const std::string last = Data(3, "three");
    for (std::size_t size = 1; size < last.size(); size += 3) ExpectRepaired(before + last.substr(0, size), true);
    ExpectRepaired(before + last + std::string(100, '\0'), true);
    // The first bytes of the middle record: magic, type, length.
    for (std::size_t i = 0; i < 9; i += 2) {
        std::string journal = before + last;
        journal[login_.size() + i] = static_cast<char>(journal[login_.size() + i] ^ 0x55);
        ExpectRepaired(journal, true);
    }
    ExpectRepaired(before + last, false);
    ExpectRepaired("", false);
    Put("t.info", before + "?");
    TextDB db;
    EXPECT_FALSE(Open(db));
    db.Close();
    EXPECT_TRUE(Run("check").Has("1 bytes from there on, 0 records among them"));
    EXPECT_EQ(Run("repair").code, 0);
    EXPECT_TRUE(Open(db));
    EXPECT_EQ(db.State(), (std::map<double, std::string>{{1, "one"}, {2, "second"}}));
}

TEST_F(KwdbTest, BackupsAndOtherJournalsAreNotTouched) {
    const std::string cut = login_ + "x";
    Put("t.info.1", login_ + Data(1, "one") + "torn");
    Put("t.info.2", login_ + Data(2, "two"));
    Put("t.info", cut);
    Put("t.info.damaged", "earlier");
    Put("t.info.repair", "what an interrupted repair left");
    const Result repair = Run("repair");
    EXPECT_EQ(repair.code, 0) << repair.out;
    EXPECT_EQ(Get("t.info.1"), login_ + Data(1, "one"));
    EXPECT_EQ(Get("t.info.1.damaged"), login_ + Data(1, "one") + "torn");
    EXPECT_EQ(Get("t.info.2"), login_ + Data(2, "two"));
    EXPECT_EQ(Get("t.info"), login_);
    EXPECT_EQ(Get("t.info.damaged"), "earlier");
    EXPECT_EQ(Get("t.info.damaged_2"), cut);
    EXPECT_FALSE(std::filesystem::exists(folder_ / "t.info.repair"));
}

TEST_F(KwdbTest, RepairFromTheCopy) {
    // A record that was queued right before the commit stands in the new journal already.
    const std::string journal = Data(8, "early") + commit_ + Data(1, "one") + Data(2, "two") + Data(3, "three");
    const std::string old = login_ + Data(1, "old") + Data(9, "old");
    Put("t.logdat_1", old);
    Put("t.logdat", journal);
    std::string damaged = journal;
    damaged[journal.size() - 2 * Data(2, "two").size()] ^= 1;
    const auto repair = [&](const std::string& bytes) {
        Put("t.info", bytes);
        return Run("repair", "--from-copy");
    };
    Result result = repair(damaged);
    EXPECT_EQ(result.code, 0) << result.out;
    EXPECT_EQ(Get("t.info"), journal);
    EXPECT_EQ(Get("t.info.damaged"), damaged);
    // With nothing left to compare: what follows the commit.
    result = repair("?" + journal);
    EXPECT_EQ(result.code, 0) << result.out;
    EXPECT_EQ(Get("t.info"), journal.substr(journal.find(commit_) + commit_.size()));
    // The copy's torn end is left out.
    Put("t.logdat", journal + login_.substr(0, 9));
    EXPECT_TRUE(repair(damaged).Has("that was left out"));
    EXPECT_EQ(Get("t.info"), journal);

    // A copy that has less than the journal, or that is damaged itself, is no source.
    for (const std::string& copy : {journal.substr(0, journal.find(commit_)), old, journal.substr(5), damaged}) {
        Put("t.logdat", copy);
        result = repair(journal + "?");
        EXPECT_EQ(result.code, 2) << result.out;
        EXPECT_TRUE(result.Has("t.logdat")) << result.out;
        EXPECT_EQ(Get("t.info"), journal + "?");
        EXPECT_FALSE(std::filesystem::exists(folder_ / "t.info.repair"));
    }
}

// Repairs a copy that stands beside a journal, and expects it to be this afterwards, and nothing else to be found.
TEST_F(KwdbTest, RepairCutsTheCopyAndCompletesIt) {
    const std::string old = login_ + Data(1, "old") + Data(1, "older") + commit_;
    const std::string journal = Data(8, "early") + Data(2, "two") + Data(3, "three");
    const auto expect = [&](const std::string& copy, const std::string& repaired, const std::string& message) {
        for (const char* name : {"t.logdat.damaged", "t.log.damaged", "t.logdat_1.damaged"}) {
            std::filesystem::remove(folder_ / name);
        }
        Put("t.info", journal);
        Put("t.logdat", copy);
        const Result repair = Run("repair");
        EXPECT_EQ(repair.code, 0) << repair.out;
        EXPECT_TRUE(repair.Has(message)) << repair.out;
        EXPECT_EQ(Get("t.info"), journal);
        EXPECT_EQ(Get("t.logdat"), repaired);
        EXPECT_EQ(Get("t.logdat.damaged"), copy);
        EXPECT_EQ(Run("check").code, 0);
    };
    // The end is torn or blank; the journal has what is missing. A record that repeats is not mistaken.
    for (const std::string& tail : {Data(3, "three").substr(0, 20), std::string(9, '\0'), std::string("?")}) {
        expect(old + journal.substr(0, Data(8, "early").size() + Data(2, "two").size()) + tail, old + journal,
               "completed from the journal, " + std::to_string(Data(3, "three").size()) + " bytes; nothing is missing");
        expect(old + journal + tail, old + journal, "dropped " + std::to_string(tail.size()) + " bytes");
    }
    // The damage begins before the journal's records.
    const std::string cut = old.substr(0, old.size() - commit_.size());
    expect(cut + "?" + commit_ + journal, cut + journal, "may be missing");
    expect("?" + old + journal, journal, "may be missing");
    // Another history.
    expect(Data(9, "other") + Data(2, "two") + "?", Data(9, "other") + Data(2, "two"), "dropped 1 bytes");

    Put("t.logdat_1", old + "?");
    Put("t.log", "[03_02_01_04_06_2026]login\n[03_02_01_04_06_2026]data:1,0,0,5\tt" + std::string(3, '\0'));
    expect(journal + "?", journal, "t.log: kept 27 bytes, 1 lines; dropped 38 bytes");
    EXPECT_EQ(Get("t.logdat_1"), old);
    EXPECT_EQ(Get("t.log"), "[03_02_01_04_06_2026]login\n");
}

TEST_F(KwdbTest, CheckComparesDataEntries) {
    {
        TextDB db;
        ASSERT_TRUE(Open(db));
        db.Set(1, "one", true);
        ASSERT_TRUE(db.SetNow(2, "two", true));
    }
    const std::string data = Get("t.dat");
    const std::string log = Get("t.log");
    struct Case {
        std::string data, message;
    };
    std::string foreign = data, torn = data;
    std::memcpy(&foreign[4], &data[19 + 4], 8);
    torn[19] ^= 1;
    for (const Case& one : {Case{foreign, "of object 1 at offset 0: the entry is of another object"},
                            {torn, "t.dat: damaged at offset 19: no entry begins here"},
                            {torn, "of object 2 at offset 19: no entry begins there"},
                            {data.substr(0, 36), "at offset 19: the entry is cut"},
                            {data.substr(0, 19), "at offset 19: the file ends before it"}}) {
        Put("t.dat", one.data);
        const Result check = Run("check");
        EXPECT_EQ(check.code, 1);
        EXPECT_TRUE(check.Has(one.message)) << check.out;
    }
    std::filesystem::remove(folder_ / "t.dat");
    EXPECT_TRUE(Run("check").Has("t.dat: the file is missing; 2 records name entries of it"));
    Put("t.dat", data);
    Put("t.log", log + "[03_02");
    EXPECT_TRUE(Run("check").Has("damaged at offset " + std::to_string(log.size()) + ": the last line is cut"));
    Put("t.log", log + std::string(5, '\0'));
    EXPECT_TRUE(Run("check").Has("damaged at offset " + std::to_string(log.size()) + ": only zero bytes"));
}

TEST_F(KwdbTest, DumpFiltersAndWritesJson) {
    const std::string text = "tab\t\"quote\" \xE1\xBA\xB5";
    Put("t.info", login_ + Data(1, text) + Data(2, std::string("\xFF\0x", 3), 3, 16, 20) +
                      Event(KwDBRTRecord::kCommit, 5) + "torn");
    const auto dump = [&](const std::string& options) {
        const Result result = Run("dump", "--json " + options, false);
        EXPECT_EQ(result.code, 1);  // for the torn end
        return nlohmann::json::parse(result.out);
    };
    const nlohmann::json all = dump("");
    ASSERT_EQ(all.size(), 4u);
    EXPECT_EQ(all[0]["type"], "login");
    EXPECT_EQ(all[1]["payload"], text);
    EXPECT_EQ(all[1]["time"], "2026-06-04T03:02:01");
    EXPECT_EQ(all[2]["payloadHex"], "ff0078");
    EXPECT_EQ(all[2]["dataFile"], 3);
    EXPECT_EQ(all[2]["id"], 2);
    EXPECT_EQ(all[3]["offset"], 13 + 2 * 37 + text.size() + 3);
    EXPECT_EQ(dump("--id 2,7").size(), 1u);
    EXPECT_EQ(dump("--id 7").size(), 0u);
    EXPECT_EQ(dump("--type login --type commit").size(), 2u);
    EXPECT_EQ(dump("--from 2026-06-05").size(), 1u);
    EXPECT_EQ(dump("--to \"2026-06-04 03:02\"").size(), 3u);
    EXPECT_EQ(dump("--to 2026-06-04T03:02:00").size(), 0u);
    const Result plain = Run("dump", "--id 2");
    EXPECT_TRUE(plain.Has("[03_02_01_04_06_2026]data:2,3,16,20\t\\xff\\x00x\n")) << plain.out;
    EXPECT_TRUE(plain.Has("t.info: damaged at offset ")) << plain.out;
    // The copy has nothing to print, which is no damage.
    EXPECT_EQ(Run("dump", "--copy").code, 0);
}

TEST_F(KwdbTest, AFolderMayHaveAnyLetters) {
    const std::string folder = folder_.string() + "/d\xE1\xBB\xAF li\xE1\xBB\x87u \xE6\x95\xB0\xE6\x8D\xAE";
    {
        TextDB db;
        ASSERT_TRUE(db.Open(4096, folder, "t"));
        db.Set(1, "one");
    }
    Put("t.info", "?");
    for (const char* command : {"check", "repair", "stats"}) {
        const Result result = RunLine(command + (" \"" + folder) + "\" t");
        EXPECT_EQ(result.code, 0) << result.out;
        EXPECT_TRUE(result.Has(folder + "/t.logdat") || result.Has("2 records")) << result.out;
    }
}

TEST_F(KwdbTest, UsageAndFileErrors) {
    EXPECT_EQ(RunLine("").code, 2);
    EXPECT_EQ(RunLine("check").code, 2);
    EXPECT_EQ(Run("check").code, 2);  // no such database
    EXPECT_EQ(RunLine("stats /no/such/folder t").code, 2);
    Put("t.info", login_);
    EXPECT_EQ(Run("dump", "--from yesterday").code, 2);
    EXPECT_EQ(Run("dump", "--type other").code, 2);
    EXPECT_EQ(Run("repair", "--from-copy").code, 0);  // nothing to do
    EXPECT_EQ(RunLine("--help").code, 0);
    if (!std::filesystem::exists("/dev/full")) return;
    std::string out;
    EXPECT_EQ(RunProgram("/bin/sh", "-c '" KWDB_PROGRAM " dump " + folder_.string() + " t >/dev/full'", true, out), 2);
    EXPECT_NE(out.find("standard output"), std::string::npos);
}
