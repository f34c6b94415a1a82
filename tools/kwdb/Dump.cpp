#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <tuple>

#include "common/Progress.h"
#include "common/Terminal.h"
#include "kwdb/Commands.h"

namespace {

using Json = nlohmann::ordered_json;

// Orders as the times do.
auto Key(const STime& time) {
    return std::make_tuple(time.year, time.month, time.day, time.hour, time.minute, time.second);
}

const char* TypeName(const KwDBRTRecord& record) {
    return record.type == KwDBRTRecord::kData ? "data" : record.type == KwDBRTRecord::kCommit ? "commit" : "login";
}

bool IsWanted(const DumpFilter& filter, const KwDBRTRecord& record) {
    if (!filter.types.empty() &&
        std::find(filter.types.begin(), filter.types.end(), TypeName(record)) == filter.types.end()) {
        return false;
    }
    if (!filter.ids.empty() &&
        (record.IsEvent() || std::find(filter.ids.begin(), filter.ids.end(), record.id) == filter.ids.end())) {
        return false;
    }
    return (!filter.from || Key(record.time) >= Key(*filter.from)) &&
           (!filter.to || Key(record.time) <= Key(*filter.to));
}

bool IsControl(unsigned char byte) {
    return byte < 0x20 || byte == 0x7F;
}

std::string Hex(const unsigned char* bytes, std::size_t size) {
    static const char digits[] = "0123456789abcdef";
    std::string text;
    for (std::size_t i = 0; i < size; ++i) text.append({digits[bytes[i] >> 4], digits[bytes[i] & 15]});
    return text;
}

void AddText(std::string& out, KwDBRTReader& reader) {
    const KwDBRTRecord& record = reader.GetRecord();
    out += std::to_string(reader.GetRecordOffset()) + "\t";
    record.AppendText(out);
    if (record.IsEvent()) return;
    // One line a record, whatever the payload holds.
    const unsigned char* payload = reader.GetPayload();
    for (unsigned int i = 0; i < record.length; ++i) {
        if (payload[i] == '\\') {
            out += "\\\\";
        } else if (IsControl(payload[i]) || payload[i] >= 0x80) {
            out += "\\x" + Hex(payload + i, 1);
        } else {
            out += static_cast<char>(payload[i]);
        }
    }
    out += '\n';
}

void AddJson(std::string& out, const std::string& path, KwDBRTReader& reader) {
    const KwDBRTRecord& record = reader.GetRecord();
    const STime& time = record.time;
    char stamp[64];
    std::snprintf(stamp, sizeof(stamp), "%04d-%02d-%02dT%02d:%02d:%02d", time.year, time.month, time.day, time.hour,
                  time.minute, time.second);
    Json json;
    json["file"] = path;
    json["offset"] = reader.GetRecordOffset();
    json["type"] = TypeName(record);
    json["time"] = stamp;
    if (!record.IsEvent()) {
        constexpr double kExact = 9007199254740992.0;  // whole numbers up to here are written as such
        if (record.id <= kExact && record.id == static_cast<double>(static_cast<std::uint64_t>(record.id))) {
            json["id"] = static_cast<std::uint64_t>(record.id);
        } else {
            json["id"] = record.id;
        }
        json["dataFile"] = record.fileNumber;
        json["dataOffset"] = record.offset;
        json["dataSize"] = record.size;
        json["length"] = record.length;
        const unsigned char* payload = reader.GetPayload();
        const auto isBinary = [](unsigned char byte) {
            return IsControl(byte) && byte != '\t' && byte != '\n' && byte != '\r';
        };
        bool text = std::none_of(payload, payload + record.length, isBinary);
        if (text) {
            json["payload"] = std::string(reinterpret_cast<const char*>(payload), record.length);
            try {
                out += json.dump();
            } catch (const Json::type_error&) {
                text = false;  // no UTF-8
                json.erase("payload");
            }
        }
        if (text) return;
        json["payloadHex"] = Hex(payload, record.length);
    }
    out += json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

void Flush(std::string& out) {
    if (std::fwrite(out.data(), 1, out.size(), stdout) != out.size()) {
        throw ToolError("standard output: the records cannot be written");
    }
    out.clear();
}

}  // namespace

std::optional<STime> ParseTime(const std::string& text, bool end) {
    int year = 0, month = 0, day = 0, hour = end ? 23 : 0, minute = end ? 59 : 0, second = end ? 59 : 0;
    int date = 0, clock = -1, whole = -1;
    if (std::sscanf(text.c_str(), "%4d-%2d-%2d%n", &year, &month, &day, &date) != 3) return std::nullopt;
    const std::size_t at = static_cast<std::size_t>(date);
    if (at != text.size()) {
        if (text[at] != ' ' && text[at] != 'T') return std::nullopt;
        const char* rest = text.c_str() + at + 1;
        const int fields = std::sscanf(rest, "%2d:%2d%n:%2d%n", &hour, &minute, &clock, &second, &whole);
        const int used = fields == 3 ? whole : clock;
        if (fields < 2 || used < 0 || rest[used] != '\0') return std::nullopt;
    }
    const auto within = [](int value, int low, int high) { return value >= low && value <= high; };
    if (!within(year, 0, 9999) || !within(month, 1, 12) || !within(day, 1, 31) || !within(hour, 0, 23) ||
        !within(minute, 0, 59) || !within(second, 0, 59)) {
        return std::nullopt;
    }
    STime time{};
    time.year = static_cast<std::uint16_t>(year);
    time.month = static_cast<std::uint8_t>(month);
    time.day = static_cast<std::uint8_t>(day);
    time.hour = static_cast<std::uint8_t>(hour);
    time.minute = static_cast<std::uint8_t>(minute);
    time.second = static_cast<std::uint8_t>(second);
    return time;
}

int Dump(const Database& db, const DumpFilter& filter, bool copy, bool json) {
    const std::vector<std::string> paths = copy ? db.ListLog("logdat") : db.ListJournals();
    // On a terminal the records themselves show that something goes on.
    Progress progress("dump", db.GetSize(paths), !IsTerminal(Stream::kOutput));
    std::string out = json ? "[" : "";
    const char* between = "\n";
    std::string damage;
    std::uint64_t base = 0;
    for (const std::string& path : paths) {
        if (!json && paths.size() > 1) out += "# " + path + "\n";
        const std::unique_ptr<KwDBFile> file = db.Open(path);
        const Walk walk = WalkRecords(*file, path, [&](KwDBRTReader& reader) {
            progress.Update(base + reader.GetOffset());
            if (!IsWanted(filter, reader.GetRecord())) return;
            reader.UnscramblePayload();
            if (json) {
                out += between;
                between = ",\n";
                AddJson(out, path, reader);
            } else {
                AddText(out, reader);
            }
            if (out.size() > (1u << 16)) Flush(out);
        });
        base += walk.size;
        if (!walk.IsWhole()) damage += "kwdb: " + path + ": " + walk.DamageText() + "\n";
    }
    if (json) out += "\n]\n";
    Flush(out);
    if (std::fflush(stdout) != 0) throw ToolError("standard output: the records cannot be written");
    std::fputs(damage.c_str(), stderr);
    return damage.empty() ? 0 : 1;
}
