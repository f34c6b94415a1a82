#include <algorithm>
#include <limits>
#include <set>

#include "kwds/Commands.h"
#include "kwds/JsonValue.h"
#include "kwds/ScriptWriter.h"
#include "kwds/TableText.h"

namespace {

using Key = ScriptWriter::Key;
using Type = JsonValue::Type;

std::string FromHex(std::string_view digits) {
    std::string out;
    const auto value = [](char c) { return c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1; };
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
        const int high = value(digits[i]), low = value(digits[i + 1]);
        if (high >= 0 && low >= 0) out += static_cast<char>(high * 16 + low);
    }
    if (out.size() * 2 != digits.size()) throw ToolError("bytes are pairs of the digits 0 to 9 and a to f");
    return out;
}

// The value of an object that stands for something else by its one member, null for any other object.
const JsonValue* FindTag(const JsonValue& json, const std::string& tag) {
    return json.type == Type::kObject && json.keys.size() == 1 && json.keys[0] == tag ? &json.items[0] : nullptr;
}

bool IsTag(const std::string& key) {
    return key.starts_with('@') && !key.starts_with("@hex:");
}

std::string FromName(const std::string& key) {
    if (key.starts_with("@hex:")) return FromHex(std::string_view(key).substr(5));
    if (IsTag(key)) throw ToolError("it stands for no value; a name that begins with @ is written \\\\@");
    return key.starts_with('\\') ? key.substr(1) : key;
}

// "[7]"
int FromNumber(const std::string& key) {
    std::uint64_t number = 0;
    const std::string_view digits = std::string_view(key).substr(1, std::max<std::size_t>(key.size(), 2) - 2);
    bool sound = key.ends_with(']') && !digits.empty() && digits.size() <= 10;
    for (const char c : digits) {
        sound = sound && c >= '0' && c <= '9';
        number = number * 10 + static_cast<unsigned char>(c - '0');
    }
    if (!sound || number > std::numeric_limits<int>::max() || (digits[0] == '0' && digits.size() > 1)) {
        throw ToolError("a number of an entry is 0 to 2147483647; a name that begins with [ is written \\\\[");
    }
    return static_cast<int>(number);
}

// A cell or a value of an INI file: a text; numbers as they are written, true and false as 1 and 0.
std::string FromText(const JsonValue& json) {
    if (const JsonValue* bytes = FindTag(json, "@bytes"); bytes != nullptr && bytes->type == Type::kString) {
        return FromHex(bytes->text);
    }
    switch (json.type) {
        case Type::kBool:
        case Type::kInt: return std::to_string(json.intValue);
        case Type::kUint: return std::to_string(json.uintValue);
        case Type::kDouble:
        case Type::kString: return json.text;
        default: throw ToolError("a text or a number has to stand here");
    }
}

class Reader {
public:
    // Where it is, as a path of JSON.
    std::string GetPlace() const {
        std::string place;
        for (const std::string& step : path_) place += "/" + step;
        return place.empty() ? "/" : place;
    }

    void Script(const JsonValue& json) {
        if (json.type == Type::kArray) {
            int number = 0;
            for (const JsonValue& item : json.items) {
                const Step step(*this, std::to_string(number));
                Value({Key::kList, ++number}, item);
            }
        } else if (json.type == Type::kObject) {
            std::set<std::string> names;
            for (std::size_t i = 0; i < json.items.size(); ++i) {
                const Step step(*this, json.keys[i]);
                const bool number = json.keys[i].starts_with('[');
                const std::string name = number ? "" : FromName(json.keys[i]);
                if (!number && !names.insert(name).second) throw ToolError("the same name twice");
                Value(number ? Key{Key::kNumber, FromNumber(json.keys[i])} : Key{Key::kName, 0, name}, json.items[i]);
            }
        } else {
            throw ToolError("a document is an object or an array");
        }
    }
    void Table(const JsonValue& json, TableText& table) {
        if (json.type != Type::kArray) throw ToolError("a table is an array of rows");
        for (std::size_t row = 0; row < json.items.size(); ++row) {
            const Step step(*this, std::to_string(row));
            const JsonValue& cells = json.items[row];
            if (cells.type != Type::kArray || cells.items.empty()) throw ToolError("a row is an array of cells");
            for (std::size_t column = 0; column < cells.items.size(); ++column) {
                const Step inner(*this, std::to_string(column));
                table.AddCell(FromText(cells.items[column]));
            }
            table.EndRow();
        }
    }
    void Ini(const JsonValue& json, KwFileIni& ini) {
        if (json.type != Type::kObject) throw ToolError("an INI file is an object of sections");
        for (std::size_t i = 0; i < json.items.size(); ++i) {
            const Step step(*this, json.keys[i]);
            const JsonValue& members = json.items[i];
            const std::string name = FromName(json.keys[i]);
            if (members.type != Type::kObject) throw ToolError("a section is an object of members");
            if (ini.FindSection(name.data(), static_cast<int>(name.size())) != nullptr) {
                throw ToolError("the same section twice");
            }
            void* section = ini.SetSection(name.data(), static_cast<int>(name.size()));
            for (std::size_t m = 0; m < members.items.size(); ++m) {
                const Step inner(*this, members.keys[m]);
                const std::string key = FromName(members.keys[m]);
                const std::string value = FromText(members.items[m]);
                const int size = static_cast<int>(key.size());
                if (ini.FindKey(section, key.data(), size) != nullptr) throw ToolError("the same key twice");
                ini.SetMember(section, key.data(), value.data(), static_cast<int>(value.size()), size);
            }
        }
    }

    const std::string& GetScript() const { return writer_.GetText(); }

private:
    class Step {
    public:
        Step(Reader& reader, const std::string& name) : reader_(reader), before_(reader.path_.size()) {
            reader.path_.push_back(name);
        }
        // What is on the way out of a fault stays for its message.
        ~Step() {
            if (std::uncaught_exceptions() == 0) reader_.path_.resize(before_);
        }
        Step(const Step&) = delete;
        Step& operator=(const Step&) = delete;

    private:
        Reader& reader_;
        std::size_t before_;
    };

    void Value(const Key& key, const JsonValue& json) {
        switch (json.type) {
            case Type::kNull: throw ToolError("a data script has no null");
            case Type::kBool: return writer_.Int(key, json.intValue != 0 ? 1 : 0);
            case Type::kInt:
                if (json.intValue < std::numeric_limits<int>::min()) Beyond();
                return writer_.Int(key, static_cast<int>(json.intValue));
            case Type::kUint:
                if (json.uintValue > std::numeric_limits<unsigned int>::max()) Beyond();
                if (json.uintValue <= std::numeric_limits<int>::max()) {
                    return writer_.Int(key, static_cast<int>(json.uintValue));
                }
                return writer_.Uint(key, static_cast<unsigned int>(json.uintValue));
            case Type::kDouble: return writer_.Double(key, json.doubleValue);
            case Type::kString: return writer_.Text(key, json.text);
            case Type::kObject:
                if (std::any_of(json.keys.begin(), json.keys.end(), IsTag)) return Tagged(key, json);
                [[fallthrough]];
            case Type::kArray:
                writer_.Open(key);
                Script(json);
                writer_.Close();
        }
    }
    [[noreturn]] static void Beyond() {
        throw ToolError(
            "a whole number is -2147483648 to 4294967295; with a point, as 5e9 or 5000000000.0, it is a double");
    }

    void Tagged(const Key& key, const JsonValue& json) {
        if (const JsonValue* table = FindTag(json, "@table")) {
            TableText text;
            Table(*table, text);
            return writer_.Table(key, text);
        }
        if (const JsonValue* value = FindTag(json, "@uint");
            value != nullptr && value->type == Type::kUint && value->uintValue <= 0xFFFFFFFFu) {
            return writer_.Uint(key, static_cast<unsigned int>(value->uintValue));
        }
        const JsonValue* text = nullptr;
        for (const char* tag : {"@double", "@ref", "@bytes"}) {
            text = text == nullptr ? FindTag(json, tag) : text;
        }
        if (text != nullptr && text->type == Type::kString) {
            if (json.keys[0] == "@ref") return writer_.Reference(key, text->text);
            if (json.keys[0] == "@bytes") return writer_.Text(key, FromHex(text->text));
            constexpr double kInfinity = std::numeric_limits<double>::infinity();
            if (text->text == "inf") return writer_.Double(key, kInfinity);
            if (text->text == "-inf") return writer_.Double(key, -kInfinity);
        }
        throw ToolError(
            "a name with @ in front stands for a value: {\"@uint\": 5}, {\"@double\": \"inf\"}, {\"@bytes\": \"ff\"}, "
            "{\"@ref\": \"$a.b\"}, {\"@table\": [[...]]}; a name that begins with @ is written \\\\@");
    }

    ScriptWriter writer_;
    std::vector<std::string> path_;
};

}  // namespace

std::string FromJson(const std::string& file, const std::string& text, Kind kind) {
    const JsonValue json = ParseJson(file, text);
    Reader reader;
    try {
        if (kind == Kind::kTable) {
            TableText table;
            reader.Table(json, table);
            return table.GetText();
        }
        Content content;
        if (kind == Kind::kIni) {
            reader.Ini(json, content.ini);
            return Print(content.ini);
        }
        reader.Script(json);
        std::string script = reader.GetScript();
        if (!content.Load(script, kind).empty()) throw ToolError("no text of a data script gives this document");
        return Print(content.script);
    } catch (const ToolError& error) {
        throw FaultError(file + ": at " + reader.GetPlace() + ": " + error.what() + "\n");
    }
}
