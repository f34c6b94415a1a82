// The runtime database under several threads.
#include <atomic>
#include <thread>

#include "KwDBRTFixture.h"

namespace {

class KwDBRTThreadTest : public KwDBRTFixture {};

TEST_F(KwDBRTThreadTest, FourThreadsChangeWhileAFifthWrites) {
    constexpr int kRounds = 1500;
    std::map<double, std::string> expected;
    std::atomic<int> queued{0};
    {
        TextDB db;
        db.keyNames = true;
        ASSERT_TRUE(Open(db));
        std::atomic<bool> run{true};
        std::thread writer([&] {
            for (int pass = 0; run.load(); ++pass) {
                db.RunTask(1);
                if (pass % 50 == 0) db.RestoreCommit();
            }
        });
        std::vector<std::map<double, std::string>> states(4);
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t) {
            threads.emplace_back([&, t] {
                for (int i = 1; i <= kRounds; ++i) {
                    const double id = t * 100000 + i;
                    const std::string text = std::to_string(t) + ":" + std::to_string(i);
                    TextObject* object = static_cast<TextObject*>(db.AddObject(text, id));
                    ASSERT_NE(object, nullptr);
                    ASSERT_EQ(db.FindObject(text), object);
                    ASSERT_TRUE(db.Set(id, text, i % 2 == 0));
                    ++queued;
                    if (i % 4 == 0) {
                        ASSERT_TRUE(db.RemoveObject(id));
                    } else {
                        states[static_cast<std::size_t>(t)][id] = text;
                    }
                    // Somebody else's object may go at any time.
                    if (CKwDBRTObject* kept = db.KeepObject((t + 1) % 4 * 100000 + i)) {
                        ASSERT_FALSE(kept->GetName().empty());
                        kept->Release();
                    }
                }
            });
        }
        for (std::thread& thread : threads) thread.join();
        run = false;
        writer.join();
        db.RunTask(1);
        EXPECT_EQ(db.GetWrittenCount(), static_cast<unsigned long long>(queued) + 1);
        EXPECT_EQ(db.GetDroppedCount(), 0u);
        for (const auto& state : states) expected.insert(state.begin(), state.end());
        for (const auto& [id, text] : expected) {
            ASSERT_EQ(db.Get(id)->text, text);
            if (db.Get(id)->size != 0) {
                ASSERT_EQ(db.ReadText(id), text);
            }
        }
    }
    for (const std::string& line : TakeLog()) ASSERT_EQ(line.find("error"), std::string::npos) << line;
    TextDB db;
    ASSERT_TRUE(Open(db));
    EXPECT_EQ(db.commitCount, queued);
}

TEST_F(KwDBRTThreadTest, CheckpointsGoOnBesideChanges) {
    std::map<double, std::string> saved;  // the host's snapshot
    {
        TextDB db;
        ASSERT_TRUE(Open(db));
        std::mutex changing;
        db.onCommit = [&] {
            const std::lock_guard<std::mutex> guard(changing);
            saved = db.State();
        };
        std::atomic<bool> run{true};
        std::thread writer([&] {
            while (run.load()) db.RunTask(1);
        });
        std::thread committer([&] {
            for (int i = 0; i < 20; ++i) ASSERT_TRUE(db.Checkpoint());
        });
        for (int i = 0; i < 3000; ++i) {
            const std::lock_guard<std::mutex> guard(changing);
            db.Set(i % 100 + 1, std::to_string(i));
        }
        committer.join();
        run = false;
        writer.join();
    }
    TextDB db;
    for (const auto& [id, text] : saved) db.Make(id)->text = text;
    ASSERT_TRUE(Open(db));
    for (int i = 0; i < 100; ++i) EXPECT_EQ(db.Get(i + 1)->text, std::to_string(2900 + i));
}

}  // namespace
