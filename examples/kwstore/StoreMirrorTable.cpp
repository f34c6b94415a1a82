#include "StoreMirrorTable.h"

#include <algorithm>
#include <charconv>
#include <cstdio>

#include "StoreBytes.h"
#include "StoreCodec.h"

namespace {

// Names are compared byte by byte everywhere: where texts are not, as blobs.
struct Kind {
    const char* name;
    const char* columns;
    bool nameIsBlob;
    const char* page[2];  // in front of the columns, and at the end
};
constexpr Kind kKinds[] = {
    {"mysql",
     "name VARBINARY(1024) NOT NULL PRIMARY KEY, fields LONGTEXT CHARACTER SET utf8mb4 NOT NULL, "
     "digest CHAR(16) CHARACTER SET ascii NOT NULL",
     true,
     {"", " LIMIT 1000"}},
    {"sqlserver",
     "name VARBINARY(1024) NOT NULL PRIMARY KEY NONCLUSTERED, fields NVARCHAR(MAX) NOT NULL, digest CHAR(16) NOT NULL",
     true,
     {"TOP 1000 ", ""}},
    {"postgres",
     "name TEXT COLLATE \"C\" NOT NULL PRIMARY KEY, fields TEXT NOT NULL, digest CHAR(16) NOT NULL",
     false,
     {"", " LIMIT 1000"}},
    {"sqlite",
     "name TEXT NOT NULL PRIMARY KEY, fields TEXT NOT NULL, digest TEXT NOT NULL",
     false,
     {"", " LIMIT 1000"}},
};

void AppendText(std::string& out, std::string_view text) {
    out += '"';
    for (const char ch : text) {
        const auto byte = static_cast<unsigned char>(ch);
        if (byte < 0x20) {
            char escape[8];
            std::snprintf(escape, sizeof(escape), "\\u%04x", byte);
            out += escape;
        } else {
            if (ch == '"' || ch == '\\') out += '\\';
            out += ch;
        }
    }
    out += '"';
}

std::string Json(const StoreFields& fields) {
    std::string out;
    for (const auto& [field, value] : fields) {
        out += out.empty() ? '{' : ',';
        AppendText(out, field);
        out += ':';
        AppendText(out, value);
    }
    out += out.empty() ? "{}" : "}";
    // Servers refuse a text with bytes that are no UTF-8. These become U+FFFD on the way there and back.
    KwWString wide(KwUtf::Utf16Length(out.data(), out.size()), KwWChar());
    KwUtf::Utf8ToUtf16(wide.data(), wide.size(), out.data(), out.size());
    out.resize(KwUtf::Utf8Length(wide.data(), wide.size()));
    KwUtf::Utf16ToUtf8(out.data(), out.size(), wide.data(), wide.size());
    return out;
}

// "item, item, item"
std::string List(const char* item, std::size_t count) {
    std::string out;
    for (std::size_t i = 0; i < count; ++i) out.append(i == 0 ? "" : ", ").append(item);
    return out;
}

// The server does not take the values, whatever its own state is.
bool IsRefusal(const KwSQLError& error) {
    return !error.lost && (error.state.starts_with("22") || error.state.starts_with("23"));
}

}  // namespace

const char* StoreMirrorTable::Init(const std::string& kind, const std::string& table) {
    const auto isOdd = [](char ch) {
        return ch != '_' && ch != '.' && !(ch >= '0' && ch <= '9') && !((ch | 32) >= 'a' && (ch | 32) <= 'z');
    };
    if (table.empty() || std::any_of(table.begin(), table.end(), isOdd)) return "the table's name needs A-Z, 0-9, _";
    for (const Kind& known : kKinds) {
        if (kind != known.name) continue;
        name_ = table;
        nameIsBlob_ = known.nameIsBlob;
        create_ = "CREATE TABLE " + table + " (" + known.columns + ")";
        page_ = std::string("SELECT ") + known.page[0] + "name, digest FROM " + table +
                " WHERE name > ? ORDER BY name" + known.page[1];
        return nullptr;
    }
    return "kind is none of mysql, sqlserver, postgres, sqlite";
}

void StoreMirrorTable::BindName(KwSQL& sql, int index, const std::string& name) const {
    if (nameIsBlob_) {
        sql.BindBlob(index, name.data(), name.size());
    } else {
        sql.BindText(index, name.data(), static_cast<int>(name.size()));
    }
}

bool StoreMirrorTable::Read(KwSQL& sql, const std::string& after, std::vector<Digest>& rows) const {
    if (ReadPage(sql, after, rows)) return true;
    if (sql.GetError().lost || !sql.Execute(create_.c_str())) return false;
    KwLogSystem::Push("mirror: made the table %s", name_.c_str());
    return ReadPage(sql, "", rows);
}

bool StoreMirrorTable::ReadPage(KwSQL& sql, const std::string& after, std::vector<Digest>& rows) const {
    rows.clear();
    if (!sql.Prepare(page_.c_str())) return false;
    BindName(sql, 1, after);
    if (!sql.Execute()) return false;
    while (sql.Fetch()) {
        Digest& row = rows.emplace_back();
        int length = 0;
        const char* const name = sql.GetString(1, &length, "");
        row.name.assign(name, static_cast<std::size_t>(length));
        const char* const digest = sql.GetString(2, &length, "");
        std::from_chars(digest, digest + length, row.hash, 16);
    }
    return sql.GetError().state.empty();
}

bool StoreMirrorTable::Write(KwSQL& sql, std::span<const Row> rows, int& refused) const {
    if (WriteAll(sql, rows)) return true;
    if (sql.GetError().lost) return false;
    if (rows.size() == 1) {
        const bool isRefused = IsRefusal(sql.GetError());
        refused += isRefused ? 1 : 0;
        return isRefused;
    }
    std::size_t failed = 0;
    for (std::size_t i = 0; i < rows.size(); ++i) {
        if (Write(sql, rows.subspan(i, 1), refused)) continue;
        if (sql.GetError().lost) return false;
        ++failed;
    }
    // Where others are taken, it is the row's own fault.
    if (failed == rows.size()) return false;
    refused += static_cast<int>(failed);
    return true;
}

bool StoreMirrorTable::WriteAll(KwSQL& sql, std::span<const Row> rows) const {
    sql.EndStatement();  // what a failure has left open
    if (!sql.Begin()) return false;
    const std::string drop = "DELETE FROM " + name_ + " WHERE name IN (" + List("?", rows.size()) + ")";
    if (!sql.Prepare(drop.c_str())) return false;
    for (std::size_t i = 0; i < rows.size(); ++i) BindName(sql, static_cast<int>(i) + 1, rows[i].name);
    return sql.Execute() && Insert(sql, rows) && sql.Commit();
}

bool StoreMirrorTable::Insert(KwSQL& sql, std::span<const Row> rows) const {
    const auto count = std::count_if(rows.begin(), rows.end(), [](const Row& row) { return !row.payload.empty(); });
    if (count == 0) return true;
    const std::string insert =
        "INSERT INTO " + name_ + " (name, fields, digest) VALUES " + List("(?, ?, ?)", static_cast<std::size_t>(count));
    if (!sql.Prepare(insert.c_str())) return false;
    StoreChange change;
    int index = 0;
    for (const Row& row : rows) {
        if (row.payload.empty() || StoreCodec::Decode(row.payload, change) != nullptr) continue;
        const std::string json = Json(change.fields);
        char digest[20];
        std::snprintf(digest, sizeof(digest), "%016llx", static_cast<unsigned long long>(StoreHash(row.payload)));
        BindName(sql, ++index, row.name);
        sql.BindText(++index, json.data(), static_cast<int>(json.size()));
        sql.BindText(++index, digest);
    }
    return sql.Execute();
}
