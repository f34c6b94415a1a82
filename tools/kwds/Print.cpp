#include "kwds/Commands.h"
#include "kwds/ScriptWriter.h"
#include "kwds/TableText.h"

namespace {

using Key = ScriptWriter::Key;

void WriteEntries(ScriptWriter& writer, const KwDS& script);

void WriteItem(ScriptWriter& writer, const Key& key, const KwDSItem& item) {
    int size = 0;
    switch (item.GetType()) {
        case DSTYPE_INT: return writer.Int(key, item.GetInt(0));
        case DSTYPE_UINT: return writer.Uint(key, item.GetUint(0));
        case DSTYPE_DOUBLE: return writer.Double(key, item.GetDouble(0));
        case DSTYPE_STRING: {
            const char* text = item.GetString(&size, "");
            return writer.Text(key, {text, static_cast<std::size_t>(size)});
        }
        case DSTYPE_REFERENCE: {
            const char* path = item.GetReference(&size);
            return writer.Reference(key, {path, static_cast<std::size_t>(size)});
        }
        case DSTYPE_OBJECT:
            writer.Open(key);
            WriteEntries(writer, *item.GetStruct());
            return writer.Close();
        case DSTYPE_TABLE: return writer.Table(key, TableText(*item.GetTable()));
        default: throw FaultError("no text gives a value of this type");
    }
}

void WriteEntries(ScriptWriter& writer, const KwDS& script) {
    for (const auto& [name, item] : script.Named()) WriteItem(writer, {Key::kName, 0, name}, item);
    bool list = true;
    int last = 0;
    for (const auto& [number, item] : script.Indexed()) list = list && number == ++last;
    for (const auto& [number, item] : script.Indexed()) {
        WriteItem(writer, {list ? Key::kList : Key::kNumber, number}, item);
    }
}

std::string Write(const KwDS& script) {
    ScriptWriter writer;
    WriteEntries(writer, script);
    return writer.GetText();
}

bool Contains(std::string_view text, const char* set) {
    return text.find_first_of(set) != std::string_view::npos;
}

void CheckKey(std::string_view key) {
    if (key.empty() || Contains(key, "\t\r\n =") || Contains(key.substr(0, 1), ";[\"") || key.starts_with("//") ||
        key.starts_with("/*")) {
        throw FaultError(
            "a key of an INI file is not empty, has no blanks and no =, and begins with none of ; [ \" // /*");
    }
}

std::string IniValue(std::string_view value) {
    const bool bare = value.empty() || (!Contains(value, "/;\r\n") && !Contains(value.substr(0, 1), "\t =[\""));
    const bool blank = !value.empty() && Contains(value.substr(value.size() - 1), "\t ");  // editors drop it
    const bool quotable = !Contains(value, "\"");
    if (!bare && !quotable) {
        throw FaultError(
            "a value of an INI file with a double quote cannot hold / ; or a line end, or begin with a blank, = [ or "
            "\"");
    }
    return bare && !(blank && quotable) ? std::string(value) : '"' + std::string(value) + '"';
}

}  // namespace

std::string Print(const KwDS& script) {
    std::string text = Write(script);
    // Rather no text than one that reads back differently.
    KwDS again;
    const bool fits = text.size() <= 0x7FFFFFFF;
    if (!fits || !again.Init(reinterpret_cast<unsigned char*>(text.data()), static_cast<unsigned int>(text.size())) ||
        Write(again) != text) {
        throw FaultError("no text of a data script gives this document");
    }
    return text;
}

std::string Print(const KwTable& table) {
    return TableText(table).GetText();
}

std::string Print(KwFileIni& ini) {
    std::string out;
    const char* name = nullptr;
    int length = 0;
    for (void* handle = nullptr; (handle = ini.NextSection(handle, &name, &length)) != nullptr;) {
        const std::string_view section(name, static_cast<std::size_t>(length));
        if (Contains(section, "]")) throw FaultError("the name of a section cannot hold ]");
        if (!out.empty()) out += '\n';
        out += '[';
        out += section;
        out += "]\n";
        for (void* member = nullptr; (member = ini.NextMember(handle, member)) != nullptr;) {
            const auto& mem = *static_cast<SIniMem*>(member);
            const std::string_view key(mem.key, static_cast<std::size_t>(mem.keyLen));
            CheckKey(key);
            out += key;
            out += '=';
            out += IniValue({mem.value, static_cast<std::size_t>(mem.valueLen)});
            out += '\n';
        }
    }
    return out;
}

std::string Print(Content& content) {
    return content.kind == Kind::kIni     ? Print(content.ini)
           : content.kind == Kind::kTable ? Print(content.table)
                                          : Print(content.script);
}
