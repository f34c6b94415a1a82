// Writes files of every kind that the library has, the same ones on every platform, and reads those of another.
//   KwCrossWrite FOLDER          writes them into FOLDER
//   KwCrossWrite --read FOLDER   loads them and prints one line for each: what is in it, and its hash
// .ci/cross runs it on both platforms and compares.
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "Kw/Kw.h"

namespace {

// The C library's distributions differ; the generators and this do not.
std::mt19937_64 g_random(20240229);

double AnyDouble() {
    double value;
    do {
        const std::uint64_t bits = g_random();
        std::memcpy(&value, &bits, sizeof(value));
    } while (!std::isfinite(value));
    return value;
}

std::uint64_t Bits(double value) {
    std::uint64_t bits;
    std::memcpy(&bits, &value, sizeof(bits));
    return bits;
}

class Folder {
public:
    explicit Folder(const char* path) : path_(path) {}
    std::string Of(const char* name) const { return path_ + "\\" + name; }
    const std::string& Path() const { return path_; }

private:
    std::string path_;
};

// A log without the day in its name.
class PlainLog : public KwLog {
    void GetNewFile(char* out, const char* directory, const char* name) override {
        std::snprintf(out, KwRes::kPathSize, "%s\\%s.log", directory, name);
    }
    void OnBeginWrite(KwFile* file) override { file->WriteF("<%u>", file->Size() == 0 ? 0 : 1); }
};

bool WriteLogs(const Folder& folder) {
    PlainLog log;
    if (!log.Init(folder.Path().c_str(), "host", true, 10, 1)) return false;
    for (int i = 0; i < 100; ++i) {
        log.WriteF("line %d of %s, %.3f", i, "the host", i / 7.0);
        log.Run(static_cast<unsigned int>(i) * 500);
    }
    log.Write("\xE1\xBA\xB5 carriage\r return\n and line end", -1);
    log.Close();

    KwLogSystem::SetOutputLogFile(folder.Of("system.log").c_str(), false);
    for (int i = 0; i < 250; ++i) KwLogSystem::PushName("name", "system line %d: %08x %s", i, i * 2654435u, "text");
    KwLogSystem::WriteLog(folder.Of("extra.log").c_str(), "to both, %d%%", 100);
    KwLogSystem::SetOutputLogConsole(false);
    return true;
}

bool WriteFormats(const Folder& folder) {
    KwFile file;
    if (!file.Create(folder.Of("formats.txt").c_str())) return false;
    const std::int64_t wide[] = {0, 1, -1, INT64_MAX, INT64_MIN, 0x123456789ABCDEF};
    for (const std::int64_t value : wide) {
        const int low = static_cast<int>(value);
        file.WriteF("%d|%+5d|% d|%-12d|%012d|%.9d|%u|%x|%#X|%#o|%hd|%hhu\n", low, low, low, low, low, low,
                    static_cast<unsigned int>(low), static_cast<unsigned int>(low), static_cast<unsigned int>(low),
                    static_cast<unsigned int>(low), static_cast<short>(low), static_cast<unsigned char>(low));
        file.WriteF("%lld|%llx|%" PRId64 "|%30" PRIu64 "\n", static_cast<long long>(value),
                    static_cast<unsigned long long>(value), value, static_cast<std::uint64_t>(value));
    }
    std::vector<double> reals = {0.0,      -0.0,      0.1, 1e21, 1e-5, 123456789.125, 5e-324, 1.7976931348623157e308,
                                 INFINITY, -INFINITY, 0.5, 1.5,  2.5,  1e15 + 0.5};
    for (int i = 0; i < 2000; ++i) reals.push_back(AnyDouble());
    for (const double value : reals) {
        file.WriteF("%f|%e|%g|%.0f|%.17g|%+.3E|%#G|%a|%.2A|%40.10g|%-20.5e|\n", value, value, value, value, value,
                    value, value, value, value, value, value);
    }
    file.WriteF("%s|%10.3s|%-8s|%c|%%|\n", "text", "abcdef", "left", 'x');
    file.WriteF(KW_W("%s \u1EB5 %S %.3s|%5c|%d %.2f \U0001F600\n"), KW_W("wide \u0110"), "narrow", KW_W("\u1EB5bcdef"),
                0x110, -5, 2.675);
    return file.Close();
}

// UTF-16 in the byte order of the machine, which is the same on both.
bool WriteConversions(const Folder& folder) {
    KwFile file;
    if (!file.Create(folder.Of("conversions.bin").c_str())) return false;
    for (int round = 0; round < 500; ++round) {
        std::string text;
        for (std::uint64_t n = g_random() % 200; n > 0; --n) {
            // Mostly sound text of one to four bytes a character, and some that is none.
            const std::uint64_t kind = g_random() % 12;
            if (kind < 6)
                text += static_cast<char>(' ' + g_random() % 90);
            else if (kind < 8)
                text += "\xC4\x90";
            else if (kind < 10)
                text += "\xE1\xBA\xB5";
            else if (kind < 11)
                text += "\xF0\x9F\x98\x80";
            else
                text += static_cast<char>(g_random());
        }
        const int length = static_cast<int>(text.size());
        std::vector<char> wide(text.size() * 2 + 2), back(text.size() * 4 + 4), old(text.size() + 2);
        const int wideBytes = KwStr::UTF8ToUTF16(wide.data(), static_cast<int>(wide.size()), text.data(), length);
        const int bytes = KwStr::UTF16ToUTF8(back.data(), static_cast<int>(back.size()), wide.data(), wideBytes);
        const int olds = KwStr::UTF16ToTCVN3(old.data(), static_cast<int>(old.size()), wide.data(), wideBytes);
        file.WriteF("%d %d %d %d\n", wideBytes, bytes, olds, KwStr::GetUTF8Len(text.data(), length));
        file.Write(wide.data(), static_cast<unsigned int>(wideBytes));
        file.Write(back.data(), static_cast<unsigned int>(bytes));
        file.Write(old.data(), static_cast<unsigned int>(olds));
    }
    return file.Close();
}

// What a program computes with the library's numbers and stores.
bool WriteNumbers(const Folder& folder) {
    KwFile file;
    if (!file.Create(folder.Of("numbers.txt").c_str())) return false;
    for (int i = 0; i < 5000; ++i) {
        char text[64];
        // One draw a statement: arguments are evaluated in any order.
        const std::uint64_t whole = g_random() >> (i % 64);
        const std::uint64_t fraction = g_random();
        const int exponent = static_cast<int>(g_random() % 700) - 350;
        std::snprintf(text, sizeof(text), "%" PRIu64 ".%" PRIu64 "e%d", whole, fraction, exponent);
        const double value = KwMath::ToDouble(text);
        unsigned char data[16];
        std::memcpy(data, text, sizeof(data));
        KwHash::RoundData(data, sizeof(data), static_cast<unsigned int>(i));
        file.WriteF("%s %016" PRIx64 " %d %u %08x %s\n", text, Bits(value), KwMath::TruncateToInt(value / 1e300),
                    KwMath::TruncateToUint(value / 1e299), KwHash::HashString2(text),
                    KwMath::EncodeBase64(data, sizeof(data)).c_str());
    }
    return file.Close();
}

constexpr const char kDocument[] =
    "AppName=\"Server One\"; Port=8080 limit=4000000000 ratio=0.1 less=-0.000123\n"
    "listen={ ip=(127,0,0,1) backlog=64 deep={ value=0x1F letter='x' name=\"\xE1\xBA\xB5\" } }\n"
    "ports={ 80 443 8443 } [7]=last  // a comment\n"
    "again=$listen.backlog\n"
    "users=@table{\n"
    "id\tname\tbalance\n"
    "1\t\"Ada\"\t10.5\n"
    "2\t\xC4\x90\xC3\xA0o\t-3\n"
    "}\n";

constexpr const char kTable[] = "codes\tcoordinates\tzone\r\nAD\t+4230+00131\tEurope/Andorra\r\nAE\t\t\n\tlone\rlast";

void Dump(KwFile& out, const char* name, KwDSItem* item) {
    if (item == nullptr) {
        out.WriteF("%s none\n", name);
        return;
    }
    const DSTYPE type = item->GetType();
    int length = -1;
    const char* text = item->GetString(&length, nullptr);
    out.WriteF("%s type=%d int=%d uint=%u double=%016" PRIx64 " %.17g bool=%d text=%s:%d", name, type, item->GetInt(-9),
               item->GetUint(9), Bits(item->GetDouble(0.25)), item->GetDouble(0.25), item->GetBool(false), text,
               length);
    const KwWChar* wide = item->GetWString(&length, nullptr);
    out.WriteF(KW_W(" wide=%s:%d\n"), wide, length);
}

bool DumpDocument(KwFile& out, KwDS& document) {
    for (const char* name : {"AppName", "Port", "limit", "ratio", "less", "again", "missing", "$listen.backlog",
                             "$listen.ip.1", "$listen.ip.4", "$listen.deep.value", "$listen.deep.letter",
                             "$listen.deep.name", "$ports.1", "$ports.3", "$ports.4"}) {
        Dump(out, name, document.GetItemInfo(name));
    }
    Dump(out, "[7]", document.GetItemInfo(7));
    out.WriteF("members %d, numbered %d\n", document.GetMemberSize(), document.GetArraySize());
    KwTable* users = document.GetTable("users");
    if (users == nullptr) return false;
    for (int row = 1; row <= users->GetRowNum(); ++row) {
        for (int col = 1; col <= users->GetColumnNum(); ++col) Dump(out, "cell", users->GetItem(row, col));
    }
    return true;
}

bool DumpTables(KwFile& out, const char* path) {
    KwTable table;
    KwTablePtr view;
    if (!table.Init(path, nullptr) || !view.Load(path)) return false;
    out.WriteF("%d %d %d %d\n", table.GetRowNum(), table.GetColumnNum(), view.GetRowNum(), view.GetColumnNum());
    for (int row = 1; row <= table.GetRowNum(); ++row) {
        for (int col = 1; col <= table.GetColumnNum(); ++col) {
            char text[64];
            const bool filled = view.GetString(row, col, text, sizeof(text), "-");
            out.WriteF("%d:%d %s %d %s\n", row, col, table.GetString(row, col, nullptr, "-"), filled, text);
        }
    }
    return true;
}

// The sources and what the loaders make of them.
bool WriteData(const Folder& folder) {
    if (!KwRes::SaveFile(folder.Of("document.ds").c_str(), kDocument, sizeof(kDocument) - 1)) return false;
    if (!KwRes::SaveFile(folder.Of("table.txt").c_str(), kTable, sizeof(kTable) - 1)) return false;
    KwDS document;
    KwFile out;
    return document.Init(folder.Of("document.ds").c_str(), nullptr) && out.Create(folder.Of("document.dump").c_str()) &&
           DumpDocument(out, document) && out.Create(folder.Of("table.dump").c_str()) &&
           DumpTables(out, folder.Of("table.txt").c_str()) &&
           KwRes::CopyFileTo(folder.Of("table.txt").c_str(), folder.Of("table.copy").c_str()) && out.Close();
}

// The content of a file, empty and with a failed result when it cannot be read.
bool ReadText(const std::string& path, std::string& text) {
    KwBuffer buffer;
    if (!KwRes::ReadFileToBuffer(path.c_str(), &buffer)) return false;
    text.assign(reinterpret_cast<const char*>(buffer.GetData()), buffer.GetUsed());
    return true;
}

bool Read(const Folder& folder) {
    bool ok = true;
    for (const char* name : {"host.log", "system.log", "extra.log", "formats.txt", "conversions.bin", "numbers.txt",
                             "document.ds", "document.dump", "table.txt", "table.dump", "table.copy"}) {
        std::string text;
        if (!ReadText(folder.Of(name), text)) {
            std::printf("%s: cannot be read\n", name);
            ok = false;
            continue;
        }
        int lines = 0;
        for (const char ch : text) lines += ch == '\n';
        std::printf("%s: %u bytes, %d lines, hash %08x\n", name, static_cast<unsigned int>(text.size()), lines,
                    KwHash::HashString2(text.data(), static_cast<int>(text.size())));
    }
    // Loaded anew, they must say what their writer found in them.
    const std::string again = folder.Of("again.tmp");
    for (const bool table : {false, true}) {
        KwDS document;
        KwFile out;
        std::string before, after;
        const bool same =
            out.Create(again.c_str()) &&
            (table ? DumpTables(out, folder.Of("table.txt").c_str())
                   : document.Init(folder.Of("document.ds").c_str(), nullptr) && DumpDocument(out, document)) &&
            out.Close() && ReadText(again, after) &&
            ReadText(folder.Of(table ? "table.dump" : "document.dump"), before) && before == after;
        std::printf("%s: loads %s\n", table ? "table.txt" : "document.ds", same ? "the same" : "otherwise");
        ok = ok && same;
    }
    return KwRes::DeleteFileW(again.c_str()) && ok;
}

}  // namespace

int main(int argc, char** argv) {
    const bool read = argc == 3 && std::strcmp(argv[1], "--read") == 0;
    if (!read && argc != 2) {
        std::fprintf(stderr, "usage: KwCrossWrite [--read] FOLDER\n");
        return 2;
    }
    const Folder folder(argv[argc - 1]);
    if (read) return Read(folder) ? 0 : 1;
    const bool ok = KwRes::CreateFolder(folder.Path().c_str(), true, 0) && WriteLogs(folder) && WriteFormats(folder) &&
                    WriteConversions(folder) && WriteNumbers(folder) && WriteData(folder);
    if (!ok) std::fprintf(stderr, "KwCrossWrite: %s cannot be filled\n", folder.Path().c_str());
    return ok ? 0 : 1;
}
