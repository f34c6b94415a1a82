#include "Kw/DB/KwMsSqlText.h"

namespace KwMsSqlText {

namespace {

// A value that could be taken for more than one is put into braces, where "}" is doubled.
std::string Value(const std::string& text) {
    const bool plain =
        text.find_first_of(";{}") == std::string::npos && (text.empty() || (text.front() != ' ' && text.back() != ' '));
    if (plain) return text;
    std::string out = "{";
    for (const char c : text) out.append(c == '}' ? 2 : 1, c);
    return out + "}";
}

}  // namespace

std::string ConnectionString(const KwSQLSettings& settings) {
    const std::string database = Value(settings.database);
    if (settings.account.empty()) {
        return "DRIVER=SQL Server; SERVER=" + settings.server + ";DATABASE=" + database + ";Trusted_Connection=Yes;";
    }
    return "DRIVER=SQL Server; SERVER=" + settings.server + "; UID=" + Value(settings.account) +
           "; PWD=" + Value(settings.password) + "; DATABASE=" + database + ";";
}

}  // namespace KwMsSqlText
