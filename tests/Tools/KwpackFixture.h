// KwpackFixture: runs kwpack in a temporary folder, and makes packs that mean no good.
#pragma once

#include <algorithm>
#include <cstring>
#include <map>
#include <nlohmann/json.hpp>
#include <random>

#include "../Res/KwResFixture.h"
#include "KwTestSupport.h"
#include "kwpack/PackNames.h"
#include "kwpack/PackWriter.h"

namespace fs = std::filesystem;
using Json = nlohmann::json;
using Files = std::map<std::string, std::string>;

class KwpackTest : public KwResFixture {
protected:
    struct Result {
        int code;
        std::string out;
        bool Has(const std::string& text) const { return out.find(text) != std::string::npos; }
    };

    KwpackTest() : before_(fs::current_path()) { fs::current_path(folder_); }
    ~KwpackTest() override { fs::current_path(before_); }

    // Runs "kwpack line" in the folder.
    static Result Run(const std::string& line) {
        Result result{-1, ""};
        result.code = RunProgram(KWPACK_PROGRAM, line, true, result.out);
        return result;
    }
    void PutFiles(const std::string& folder, const Files& files) const {
        for (const auto& [name, content] : files) Put(folder + "/" + name, content);
    }
    Files GetFiles(const std::string& folder) const {
        Files files;
        for (const auto& entry : fs::recursive_directory_iterator(folder_ / folder)) {
            const std::string name = entry.path().lexically_relative(folder_ / folder).generic_string();
            if (entry.is_regular_file()) files[name] = Get(folder + "/" + name);
        }
        return files;
    }
    // A pack of stored files with any names.
    void MakePack(const std::string& pack, const Files& files) const {
        PackWriter writer(Path(pack));
        std::vector<std::string> names;
        const auto add = [&](const std::string& name, std::vector<unsigned char> bytes) {
            writer.Add(HashName(name), MakeBody(name, std::move(bytes), PackMethod::kStored, 1));
        };
        for (const auto& [name, content] : files) {
            add(name, {content.begin(), content.end()});
            names.push_back(name);
        }
        add(kNamesEntry, WriteNames(names));
        writer.Commit(false);
    }
    // Overwrites a number in a pack.
    void Patch(const std::string& pack, std::size_t at, std::uint32_t value) const {
        std::string bytes = Get(pack);
        std::memcpy(&bytes[at], &value, sizeof(value));
        Put(pack, bytes);
    }
    // Where its directory entry number `index` is, in the order of hashes.
    std::size_t EntryAt(const std::string& pack, std::size_t index) const {
        return Get(pack).size() - (CountItems(pack) - index) * KwPackLayout::kEntrySize;
    }
    std::size_t CountItems(const std::string& pack) const {
        std::uint32_t count = 0;
        std::memcpy(&count, Get(pack).data() + 4, 4);
        return count;
    }
    // `verify` finds it damaged and says why; nothing crashes over it.
    void ExpectDamaged(const std::string& pack, const std::string& why) const {
        const Result verify = Run("verify " + pack);
        EXPECT_EQ(verify.code, 1) << verify.out;
        EXPECT_TRUE(verify.Has(why)) << verify.out;
        for (const std::string& line : {"list " + pack, "extract --replace " + pack + " out"}) {
            const int code = Run(line).code;
            EXPECT_TRUE(code == 0 || code == 1) << line << " ends with " << code;
        }
    }

    static std::string Noise(std::size_t size) {
        std::mt19937 random(1);
        std::string bytes(size, '\0');
        for (char& byte : bytes) byte = static_cast<char>(random());
        return bytes;
    }
    const Files files_ = {{"Empty", ""}, {"a.txt", std::string(3000, 'a') + "b"}, {"sub/deep/Noise.bin", Noise(2000)}};

private:
    const fs::path before_;
};
