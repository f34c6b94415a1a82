#include "kwds/JsonValue.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string_view>

#include "Kw/Res/KwParseError.h"
#include "kwds/Content.h"

namespace {

constexpr std::size_t kDeepest = 1010;

class Builder {
public:
    Builder(const std::string& file, const std::string& text) : file_(file), text_(text) {}

    bool null() { return Add({}); }
    bool boolean(bool value) { return AddNumber(JsonValue::Type::kBool, &JsonValue::intValue, std::int64_t{value}); }
    bool number_integer(std::int64_t value) { return AddNumber(JsonValue::Type::kInt, &JsonValue::intValue, value); }
    bool number_unsigned(std::uint64_t value) {
        return AddNumber(JsonValue::Type::kUint, &JsonValue::uintValue, value);
    }
    bool number_float(double value, const std::string& digits) {
        JsonValue json;
        json.type = JsonValue::Type::kDouble;
        json.doubleValue = value;
        json.text = digits;
        return Add(std::move(json));
    }
    bool string(std::string& value) {
        JsonValue json;
        json.type = JsonValue::Type::kString;
        json.text = std::move(value);
        return Add(std::move(json));
    }
    bool binary(std::vector<std::uint8_t>&) { return false; }
    bool start_object(std::size_t) { return Open(JsonValue::Type::kObject); }
    bool start_array(std::size_t) { return Open(JsonValue::Type::kArray); }
    bool end_array() { return Close(); }
    bool key(std::string& name) {
        stack_.back().keys.push_back(std::move(name));
        return true;
    }
    bool end_object() {
        std::vector<std::string_view> names(stack_.back().keys.begin(), stack_.back().keys.end());
        std::sort(names.begin(), names.end());
        const auto twice = std::adjacent_find(names.begin(), names.end());
        if (twice != names.end()) throw FaultError(file_ + ": an object has \"" + std::string(*twice) + "\" twice\n");
        return Close();
    }
    [[noreturn]] bool parse_error(std::size_t position, const std::string&, const nlohmann::json::exception& error) {
        // Its message repeats the place.
        const std::string_view message(error.what());
        std::size_t at = message.find("column ");
        at = at == std::string_view::npos ? message.find("] ") : message.find(": ", at);
        KwParseError place;
        const auto* bytes = reinterpret_cast<const unsigned char*>(text_.data());
        place.SetPosition(bytes, bytes + std::min(position > 0 ? position - 1 : 0, text_.size()));
        const std::string reason(at == std::string_view::npos ? message : message.substr(at + 2));
        throw FaultError(Describe(file_, text_, {place.line, place.column, reason}));
    }

    JsonValue root_;

private:
    bool Add(JsonValue&& value) {
        (stack_.empty() ? root_ : stack_.back().items.emplace_back()) = std::move(value);
        return true;
    }
    template <typename Member, typename Value>
    bool AddNumber(JsonValue::Type type, Member member, Value value) {
        JsonValue json;
        json.type = type;
        json.*member = value;
        return Add(std::move(json));
    }
    bool Open(JsonValue::Type type) {
        if (stack_.size() == kDeepest) throw FaultError(file_ + ": nested too deep\n");
        stack_.emplace_back().type = type;
        return true;
    }
    bool Close() {
        JsonValue done = std::move(stack_.back());
        stack_.pop_back();
        return Add(std::move(done));
    }

    const std::string& file_;
    const std::string& text_;
    std::vector<JsonValue> stack_;  // what is open, the outermost first
};

}  // namespace

JsonValue ParseJson(const std::string& file, const std::string& text) {
    Builder builder(file, text);
    nlohmann::json::sax_parse(text, &builder);
    return std::move(builder.root_);
}
