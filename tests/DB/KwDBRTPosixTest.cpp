// The runtime database on a POSIX system: killed processes, full disks, missing rights.
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <random>
#include <set>

#include "KwDBRTFixture.h"

namespace {

class KwDBRTPosixTest : public KwDBRTFixture {
protected:
    // Runs `body` in a child and gives its exit code.
    template <typename Body>
    static int InChild(Body body) {
        const pid_t child = fork();
        if (child == 0) _exit(body());
        int status = 0;
        waitpid(child, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
};

TEST_F(KwDBRTPosixTest, AKilledProcessLosesNothingAcknowledged) {
    std::mt19937 random(7);
    int last = 0;          // change that was acknowledged
    std::set<int> unsure;  // changes that survived without that, perhaps without their data
    for (int round = 0; round < 50; ++round) {
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        const pid_t child = fork();
        if (child == 0) {
            TextDB db;
            db.counts = false;  // the journal goes on
            db.SetDurable(true);
            if (!Open(db)) _exit(1);
            unsigned long long queued = 1;
            for (int change = last + 1;; ++change) {
                db.Set(change % 10 + 1, std::to_string(change), change % 2 == 0);
                ++queued;
                if (change % 3 != 0) continue;
                db.RunTask(1);
                if (db.GetWrittenCount() != queued) _exit(2);
                if (write(ends[1], &change, sizeof(change)) != sizeof(change)) _exit(3);
            }
        }
        close(ends[1]);
        usleep(static_cast<useconds_t>(500 + random() % 12000));
        kill(child, SIGKILL);
        int status = 0;
        waitpid(child, &status, 0);
        ASSERT_TRUE(WIFSIGNALED(status)) << WEXITSTATUS(status);
        for (int change = 0; read(ends[0], &change, sizeof(change)) == sizeof(change);) last = change;
        close(ends[0]);

        TextDB db;
        db.counts = false;
        db.SetDurable(true);
        ASSERT_TRUE(Open(db)) << "round " << round;
        int newest = 0;
        for (const auto& [id, text] : db.State()) newest = std::max(newest, std::stoi(text));
        ASSERT_GE(newest, last) << "round " << round;
        for (int change = std::max(1, last - 9); change <= last; ++change) {
            TextObject* object = db.Get(change % 10 + 1);
            ASSERT_GE(std::stoi(object->text), change);
            if (object->text == std::to_string(change) && object->size != 0 && unsure.count(change) == 0) {
                ASSERT_EQ(db.ReadText(object->GetId()), object->text);
            }
        }
        // The copy has everything that the journal has.
        const std::string journal = Get("t.info"), copy = Get("t.logdat");
        ASSERT_EQ(copy.compare(copy.size() - journal.size(), journal.size(), journal), 0) << "round " << round;
        while (last < newest) unsure.insert(++last);
    }
    EXPECT_GT(last, 100);
}

TEST_F(KwDBRTPosixTest, AFullDiskDropsWhatDoesNotFitAndNothingElse) {
    signal(SIGXFSZ, SIG_IGN);
    rlimit old;
    getrlimit(RLIMIT_FSIZE, &old);
    TextDB db;
    ASSERT_TRUE(Open(db));
    for (int i = 1; i <= 100; ++i) db.Set(i, std::string(100, static_cast<char>('0' + i % 10)), i % 2 == 0);
    const rlimit limit{5000, old.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
    db.RunTask(1);
    setrlimit(RLIMIT_FSIZE, &old);
    const auto dropped = static_cast<std::size_t>(db.GetDroppedCount());
    EXPECT_EQ(dropped, 100u - (5000 - 13) / 137);
    EXPECT_EQ(Kinds(Get("t.info")), "l" + std::string(100 - dropped, 'd'));
    EXPECT_EQ(TakeLog().front(), "write data dbrt error");
    for (int i = 101; i <= 110; ++i) db.Set(i, "more", true);
    db.RunTask(1);
    EXPECT_EQ(db.GetWrittenCount(), 111 - dropped);
    EXPECT_EQ(Get("t.logdat"), Get("t.info"));
    for (int i = 101; i <= 110; ++i) EXPECT_EQ(db.ReadText(i), "more");
    EXPECT_EQ(db.ReadText(2), db.Get(2)->text);
}

// The room that durable passes set aside for the journal shows in no file's length, and Close gives it back.
TEST_F(KwDBRTPosixTest, RoomSetAsideForTheJournalGoesBack) {
    struct stat info {};
    const auto look = [&] { ASSERT_EQ(stat((folder_ / "t.info").c_str(), &info), 0); };
    TextDB db;
    db.SetDurable(true);
    ASSERT_TRUE(Open(db));
    const std::string text(1000, 'x');
    for (int i = 1; i <= 1500; ++i) {
        db.Set(i, text);
        if (i % 500 == 0) db.RunTask(1);
    }
    look();
    EXPECT_EQ(info.st_size, 13 + 1500 * (37 + 1000));
    EXPECT_TRUE(db.Checkpoint());
    look();
    EXPECT_LT(info.st_blocks * 512, 1 << 16);
    db.SetNow(1, text);
    db.Close();
    look();
    EXPECT_EQ(Kinds(Get("t.info")), "cd");
    EXPECT_LT(info.st_blocks * 512, 1 << 16);
}

TEST_F(KwDBRTPosixTest, MissingRightsAreRefused) {
    if (getuid() != 0) GTEST_SKIP() << "only root can become another user";
    {
        TextDB db;
        ASSERT_TRUE(Open(db));
    }
    const std::string journal = Get("t.info");
    chmod(folder_.c_str(), 0755);
    for (const char* name : {"t.info", "t.lock"}) chmod((folder_ / name).c_str(), 0644);
    EXPECT_EQ(InChild([this] {
                  if (setuid(65534) != 0) return 1;
                  TextDB db;
                  if (Open(db) || !TakeLog().back().ends_with("t.lock error: the file cannot be made or written"))
                      return 2;
                  return db.Open(4096, Path("new"), "t") ? 3 : 0;
              }),
              0);
    EXPECT_EQ(Get("t.info"), journal);
}

TEST_F(KwDBRTPosixTest, OpeningsLeakNoHandles) {
    const auto handles = [] { return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}); };
    const auto before = handles();
    for (int i = 0; i < 10000; ++i) {
        TextDB db;
        ASSERT_TRUE(Open(db));
        db.counts = i % 100 == 0;  // and the journal grows for a while
        if (i % 7 == 0) db.Set(1, "x", true);
    }
    EXPECT_EQ(handles(), before);
}

}  // namespace
