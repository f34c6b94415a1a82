#include <algorithm>
#include <charconv>

#include "kwds/Commands.h"
#include "kwds/TableText.h"

namespace {

struct Step {
    enum Form { kPlain, kQuoted, kBracket };
    Form form;
    std::string text;

    // A step of digits only is a number, as one in brackets; in quotes it is a name.
    std::optional<int> GetNumber() const {
        int number = 0;
        const char* end = text.data() + text.size();
        const auto [last, error] = std::from_chars(text.data(), end, number);
        const bool sound = form != kQuoted && last == end && error == std::errc() && number >= 0;
        return sound ? std::optional(number) : std::nullopt;
    }
};

std::vector<Step> ParsePath(std::string_view path) {
    const auto fail = [](const char* why) { throw ToolError(std::string("the path: ") + why); };
    std::vector<Step> steps;
    if (path.starts_with('$')) path.remove_prefix(1);
    bool separated = true;  // at the front, or a point stands in front
    while (!path.empty()) {
        if (path[0] == '[') {
            const std::size_t close = path.find(']');
            if (close == std::string_view::npos) fail("[ without ]");
            steps.push_back({Step::kBracket, std::string(path.substr(1, close - 1))});
            if (!steps.back().GetNumber()) fail("only a number stands in brackets");
            path.remove_prefix(close + 1);
        } else {
            if (!separated) fail("a point, or a number in brackets, has to stand between two steps");
            if (path[0] == '"') {
                const std::size_t close = path.find('"', 1);
                if (close == std::string_view::npos) fail("a double quote without its end");
                steps.push_back({Step::kQuoted, std::string(path.substr(1, close - 1))});
                path.remove_prefix(close + 1);
            } else {
                const std::size_t end = std::min(path.find_first_of(".["), path.size());
                if (end == 0) fail("a step is empty");
                steps.push_back({Step::kPlain, std::string(path.substr(0, end))});
                path.remove_prefix(end);
            }
        }
        separated = path.starts_with('.');
        if (separated) path.remove_prefix(1);
        if (separated && path.empty()) fail("it ends in a point");
    }
    return steps;
}

std::string Line(std::string_view text) {
    return std::string(text) + "\n";
}

// A value as a host reads it.
std::string Show(KwDSItem& item, bool json) {
    item.Commit();
    if (json) return ToJson(item);
    int size = 0;
    switch (item.GetType()) {
        case DSTYPE_INT: return Line(std::to_string(item.GetInt(0)));
        case DSTYPE_UINT: return Line(std::to_string(item.GetUint(0)));
        case DSTYPE_DOUBLE: {
            char digits[64];
            const auto end = std::to_chars(digits, digits + sizeof(digits), item.GetDouble(0)).ptr;
            return Line({digits, static_cast<std::size_t>(end - digits)});
        }
        case DSTYPE_OBJECT: return Print(*item.GetStruct());
        case DSTYPE_TABLE: return Print(*item.GetTable());
        default: {
            const char* text = item.GetString(&size, "");
            return Line({text, static_cast<std::size_t>(size)});
        }
    }
}

class Getter {
public:
    Getter(std::vector<Step> steps, bool json) : steps_(std::move(steps)), json_(json) {}

    std::optional<std::string> FromScript(const KwDS& root) const {
        const KwDS* script = &root;
        for (std::size_t i = 0;; ++i) {
            if (i == steps_.size()) return json_ ? ToJson(*script) : Print(*script);
            const KwDSItem* item = Find(*script, steps_[i]);
            if (item == nullptr) return std::nullopt;
            if (item->GetType() == DSTYPE_TABLE) return FromTable(*item->GetTable(), i + 1);
            script = item->GetStruct();
            if (script != nullptr) continue;
            if (i + 1 != steps_.size()) return std::nullopt;
            return Show(const_cast<KwDSItem&>(*item), json_);  // the document is ours
        }
    }

    // The table, a row of it, or a cell, whose column may have its name from row 1.
    std::optional<std::string> FromTable(KwTable& table, std::size_t at) const {
        if (at == steps_.size()) return json_ ? ToJson(table) : Print(table);
        const std::optional<int> row = steps_[at].GetNumber();
        if (!row)
            throw ToolError("the path: the number of a row of the table has to stand at \"" + steps_[at].text + "\"");
        if (at + 1 == steps_.size()) return Row(table, *row);
        if (at + 2 != steps_.size()) throw ToolError("the path: nothing goes below a cell of a table");
        const std::optional<int> number = steps_[at + 1].GetNumber();
        KwDSItem* cell = table.GetItem(*row, number ? *number : table.FindCol(steps_[at + 1].text.c_str(), 1));
        if (cell == nullptr) return std::nullopt;
        return Show(*cell, json_);
    }

    // The file, a section, or the value of a member.
    std::optional<std::string> FromIni(KwFileIni& ini) const {
        if (steps_.empty()) return json_ ? ToJson(ini) : Print(ini);
        if (steps_.size() > 2) throw ToolError("the path: SECTION.KEY, with quotes around what has a point in it");
        const std::string& name = steps_[0].text;
        void* section = ini.FindSection(name.data(), static_cast<int>(name.size()));
        if (section == nullptr) return std::nullopt;
        if (steps_.size() == 2) {
            const std::string& key = steps_[1].text;
            const auto* member = static_cast<SIniMem*>(ini.FindKey(section, key.data(), static_cast<int>(key.size())));
            if (member == nullptr) return std::nullopt;
            const std::string_view value(member->value, static_cast<std::size_t>(member->valueLen));
            return json_ ? ToJson(value) : Line(value);
        }
        // It alone.
        for (void *one = nullptr, *next = ini.NextSection(nullptr); (one = next) != nullptr;) {
            next = ini.NextSection(one);
            if (one != section) ini.RemoveSection(one);
        }
        return json_ ? ToJson(ini) : Print(ini);
    }

private:
    static const KwDSItem* Find(const KwDS& script, const Step& step) {
        if (const std::optional<int> number = step.GetNumber()) {
            for (const auto& [index, item] : script.Indexed()) {
                if (index == *number) return &item;
            }
            return nullptr;
        }
        for (const auto& [name, item] : script.Named()) {
            if (name == step.text) return &item;
        }
        return nullptr;
    }

    std::optional<std::string> Row(const KwTable& table, int number) const {
        for (const auto& [row, cells] : table.Rows()) {
            if (row != number) continue;
            std::string line = json_ ? "[" : "";
            const char* between = "";
            for (const auto& [column, item] : cells) {
                int size = 0;
                const char* text = item.GetString(&size, "");
                const std::string_view cell(text, static_cast<std::size_t>(size));
                line += between;
                line += json_ ? ToJson(cell) : std::string(cell);
                if (json_) line.pop_back();  // its line feed
                between = json_ ? ", " : "\t";
            }
            return Line(json_ ? line + "]" : line);
        }
        return std::nullopt;
    }

    std::vector<Step> steps_;
    bool json_;
};

}  // namespace

std::optional<std::string> Get(Content& content, const std::string& path, bool json) {
    const Getter getter(ParsePath(path), json);
    return content.kind == Kind::kIni     ? getter.FromIni(content.ini)
           : content.kind == Kind::kTable ? getter.FromTable(content.table, 0)
                                          : getter.FromScript(content.script);
}
