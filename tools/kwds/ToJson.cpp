#include <cmath>
#include <nlohmann/json.hpp>

#include "kwds/Commands.h"

namespace {

constexpr int kIndented = 16;

std::string Hex(std::string_view bytes) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string out;
    for (const char ch : bytes) {
        out += kDigits[static_cast<unsigned char>(ch) >> 4];
        out += kDigits[static_cast<unsigned char>(ch) & 15];
    }
    return out;
}

// In quotes; none when it is no UTF-8.
std::optional<std::string> Quote(std::string_view text) {
    try {
        return nlohmann::json(text).dump();
    } catch (const nlohmann::json::type_error&) {
        return std::nullopt;
    }
}

class Writer {
public:
    void Open(char bracket) {
        out_ += bracket;
        ++depth_;
        empty_ = true;
    }
    void Close(char bracket) {
        --depth_;
        if (!empty_) Line();
        out_ += bracket;
        empty_ = false;
    }
    void Next() {
        if (!empty_) out_ += ',';
        empty_ = false;
        Line();
    }
    // What begins with a sign that means something has a \ in front.
    void Name(std::string_view name) {
        Next();
        const bool sign = !name.empty() && (name[0] == '@' || name[0] == '[' || name[0] == '\\');
        const std::optional<std::string> quoted = Quote(sign ? "\\" + std::string(name) : std::string(name));
        out_ += quoted ? *quoted : "\"@hex:" + Hex(name) + "\"";
        out_ += ": ";
    }
    void Number(int number) {
        Next();
        out_ += "\"[" + std::to_string(number) + "]\": ";
    }

    void Text(std::string_view text) {
        const std::optional<std::string> quoted = Quote(text);
        out_ += quoted ? *quoted : "{\"@bytes\": \"" + Hex(text) + "\"}";
    }
    void Item(const KwDSItem& item) {
        int size = 0;
        switch (item.GetType()) {
            case DSTYPE_INT: out_ += std::to_string(item.GetInt(0)); break;
            case DSTYPE_UINT:
                if (item.GetInt(0) < 0) {
                    out_ += std::to_string(item.GetUint(0));  // beyond all that is INT
                } else {
                    out_ += "{\"@uint\": " + std::to_string(item.GetUint(0)) + "}";
                }
                break;
            case DSTYPE_DOUBLE: Double(item.GetDouble(0)); break;
            case DSTYPE_STRING: {
                const char* text = item.GetString(&size, "");
                Text({text, static_cast<std::size_t>(size)});
                break;
            }
            case DSTYPE_REFERENCE: {
                const char* path = item.GetReference(&size);
                out_ += "{\"@ref\": " + *Quote({path, static_cast<std::size_t>(size)}) + "}";
                break;
            }
            case DSTYPE_OBJECT: Script(*item.GetStruct()); break;
            case DSTYPE_TABLE:
                out_ += "{\"@table\": ";
                Table(*item.GetTable());
                out_ += "}";
                break;
            default: throw FaultError("no text gives a value of this type");
        }
    }
    void Script(const KwDS& script) {
        bool list = script.Named().empty() && !script.Indexed().empty();
        int last = 0;
        for (const auto& [number, item] : script.Indexed()) list = list && number == ++last;
        Open(list ? '[' : '{');
        for (const auto& [name, item] : script.Named()) {
            Name(name);
            Item(item);
        }
        for (const auto& [number, item] : script.Indexed()) {
            if (list) {
                Next();
            } else {
                Number(number);
            }
            Item(item);
        }
        Close(list ? ']' : '}');
    }
    void Table(const KwTable& table) {
        Open('[');
        for (const auto& [row, cells] : table.Rows()) {
            Next();
            const char* between = "[";
            for (const auto& [column, item] : cells) {
                out_ += between;
                between = ", ";
                Item(item);
            }
            out_ += "]";
        }
        Close(']');
    }
    void Ini(KwFileIni& ini) {
        Open('{');
        const char* name = nullptr;
        int length = 0;
        for (void* handle = nullptr; (handle = ini.NextSection(handle, &name, &length)) != nullptr;) {
            Name({name, static_cast<std::size_t>(length)});
            Open('{');
            for (void* member = nullptr; (member = ini.NextMember(handle, member)) != nullptr;) {
                const auto& mem = *static_cast<SIniMem*>(member);
                Name({mem.key, static_cast<std::size_t>(mem.keyLen)});
                Text({mem.value, static_cast<std::size_t>(mem.valueLen)});
            }
            Close('}');
        }
        Close('}');
    }
    std::string Take() {
        out_ += '\n';
        return std::move(out_);
    }

private:
    void Line() {
        out_ += '\n';
        out_.append(static_cast<std::size_t>(std::min(depth_, kIndented)) * 2, ' ');
    }
    // JSON has no infinity; all else comes out with a point or an exponent.
    void Double(double value) {
        if (std::isfinite(value)) {
            out_ += nlohmann::json(value).dump();
        } else {
            out_ += value < 0 ? "{\"@double\": \"-inf\"}" : "{\"@double\": \"inf\"}";
        }
    }

    std::string out_;
    int depth_ = 0;
    bool empty_ = true;
};

}  // namespace

std::string ToJson(const KwDS& script) {
    Writer writer;
    writer.Script(script);
    return writer.Take();
}

std::string ToJson(const KwTable& table) {
    Writer writer;
    writer.Table(table);
    return writer.Take();
}

std::string ToJson(KwFileIni& ini) {
    Writer writer;
    writer.Ini(ini);
    return writer.Take();
}

std::string ToJson(Content& content) {
    return content.kind == Kind::kIni     ? ToJson(content.ini)
           : content.kind == Kind::kTable ? ToJson(content.table)
                                          : ToJson(content.script);
}

std::string ToJson(const KwDSItem& item) {
    Writer writer;
    writer.Item(item);
    return writer.Take();
}

std::string ToJson(std::string_view text) {
    Writer writer;
    writer.Text(text);
    return writer.Take();
}
