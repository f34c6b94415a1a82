// The main program of every test program: a case fails when the allocator reports an error that it did
// not expect, and the run fails when tracked blocks are still alive after the library's release.
#include "KwTestSupport.h"

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>
#include <mutex>

#include "Kw/KwMemory.h"
#include "Kw/KwModuleEngine.h"

namespace {

std::mutex g_mutex;
std::vector<std::string> g_reports;

void Report(const char* format, ...) {
    char text[512];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof(text), format, args);
    va_end(args);
    const std::lock_guard<std::mutex> guard(g_mutex);
    g_reports.emplace_back(text);
}

class ReportCheck : public testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo&) override { KwMemory::AttackLogError(Report); }
    void OnTestEnd(const testing::TestInfo&) override {
        for (const std::string& line : TakeMemoryReports()) ADD_FAILURE() << "allocator report: " << line;
    }
};

}  // namespace

std::vector<std::string> TakeMemoryReports() {
    const std::lock_guard<std::mutex> guard(g_mutex);
    std::vector<std::string> taken;
    taken.swap(g_reports);
    return taken;
}

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    testing::UnitTest::GetInstance()->listeners().Append(new ReportCheck);
    int result = RUN_ALL_TESTS();
    KwMemory::AttackLogError(Report);
    Kw_Release();
    for (const std::string& line : TakeMemoryReports()) {
        std::printf("at release: %s\n", line.c_str());
        result = 1;
    }
    return result;
}
