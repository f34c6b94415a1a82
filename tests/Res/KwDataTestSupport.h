// What the tests of documents and tables share.
#pragma once

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "Kw/Helper/KwLogSystem.h"
#include "Kw/Res/KwDataObject.h"
#include "Kw/Res/KwTable.h"
#include "Kw/Res/KwTablePtr.h"

// Collects the log's lines while it lives.
class LogLines {
public:
    LogLines() {
        Lines().clear();
        KwLogSystem::SetOutputLogCallback(Take, false);
    }
    ~LogLines() { KwLogSystem::SetOutputLogConsole(false); }

    // The lines since the last call, joined by "|".
    std::string TakeAll() {
        std::string all;
        for (const std::string& line : Lines()) all += (all.empty() ? "" : "|") + line;
        Lines().clear();
        return all;
    }

private:
    static std::vector<std::string>& Lines() {
        static std::vector<std::string> lines;
        return lines;
    }
    static void Take(const char* format, va_list args, STime*) {
        char text[512];
        if (args != nullptr) {
            std::vsnprintf(text, sizeof(text), format, args);
        } else {
            std::snprintf(text, sizeof(text), "%s", format);
        }
        Lines().emplace_back(text);
    }
};

// Loads from an allocation of exactly the text's size, so that the address sanitizer sees a step too far.
template <typename Target>
bool LoadText(Target& target, const std::string& text) {
    std::vector<unsigned char> bytes(text.begin(), text.end());
    bytes.shrink_to_fit();
    return target.Init(bytes.data(), static_cast<unsigned int>(bytes.size()));
}

// A file in the temporary folder, gone at the end.
class TempFile {
public:
    explicit TempFile(const std::string& content) : path_(testing::TempDir() + "kw_data_test.txt") {
        std::ofstream(path_, std::ios::binary) << content;
    }
    ~TempFile() { std::remove(path_.c_str()); }
    const char* Path() const { return path_.c_str(); }

private:
    std::string path_;
};
