// KwResFixture: a temporary folder, and the log as a list of lines. The resource paths are unset again
// after each case.
#pragma once

#include <gtest/gtest.h>

#include <cstdarg>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "Kw/Helper/KwLogSystem.h"
#include "Kw/KwFormat.h"
#include "Kw/KwModuleEngine.h"
#include "Kw/Res/KwRes.h"

class KwResFixture : public testing::Test {
protected:
    KwResFixture() {
        static int serial = 0;
        const auto* info = testing::UnitTest::GetInstance()->current_test_info();
        folder_ = std::filesystem::temp_directory_path() /
                  ("kw-" + std::string(info->test_suite_name()) + "-" + info->name() + "-" +
                   std::to_string(testing::UnitTest::GetInstance()->random_seed()) + "-" +
                   std::to_string(reinterpret_cast<std::uintptr_t>(this) % 1000003) + "-" + std::to_string(++serial));
        std::filesystem::create_directories(folder_);
        Lines().clear();
        KwLogSystem::SetOutputLogCallback(Collect, false);
    }
    ~KwResFixture() override {
        KwLogSystem::SetOutputLogConsole(false);
        Kw_Release();
        Kw_Init();
        std::error_code ignored;
        std::filesystem::remove_all(LongPath(folder_.string()), ignored);
    }

    // A path in the folder.
    std::string Path(const std::string& name) const { return (folder_ / name).string(); }
    // The same as the library writes it.
    std::string Inner(const std::string& name) const {
        std::string path = Path(name);
        for (char& ch : path) ch = ch == '/' ? '\\' : ch;
        return path;
    }
    std::string Put(const std::string& name, const std::string& content) const {
        std::filesystem::create_directories((folder_ / name).parent_path());
        std::ofstream(folder_ / name, std::ios::binary) << content;
        return Path(name);
    }
    std::string Get(const std::string& name) const {
        std::ifstream stream(folder_ / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }
    // The path in a form whose length Windows does not limit.
    static std::filesystem::path LongPath(const std::string& path) {
        if (path[1] != ':') return path;
        return std::filesystem::path("\\\\?\\" + path).make_preferred();
    }
    int CountEntries() const {
        return static_cast<int>(std::distance(std::filesystem::directory_iterator(folder_), {}));
    }
    static KwWString Wide(const std::string& text) { return {text.begin(), text.end()}; }

    // The lines logged since the last call.
    static std::vector<std::string> TakeLog() {
        std::vector<std::string> lines;
        lines.swap(Lines());
        return lines;
    }
    // The one line logged since the last call.
    static std::string LogLine() {
        const std::vector<std::string> lines = TakeLog();
        EXPECT_EQ(lines.size(), 1u);
        return lines.empty() ? "" : lines.back();
    }

    std::filesystem::path folder_;

private:
    static std::vector<std::string>& Lines() {
        static std::vector<std::string> lines;
        return lines;
    }
    static void Collect(const char* format, va_list args, STime*) {
        std::string line;
        va_list copy;
        va_copy(copy, args);
        KwFormat::Append(line, format, copy);
        va_end(copy);
        Lines().push_back(line);
    }
};
