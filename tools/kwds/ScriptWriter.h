// ScriptWriter: writes a data script in its normal form, entry by entry.
//
// One statement a line; texts in quotes, INT in decimal and UINT in hexadecimal digits, a Double with a point: so the
// type of a value shows. Nested documents are indented by four blanks a level, up to 16 levels.
// Braces and comments count inside the quoted texts of a nested document, where they would end it elsewhere. Such a
// text is written so that they do not: x="/*" x="}" /**/. The first one is overwritten by the second, and stands only
// for what looks for the end of the document. What no data script can say is refused by a FaultError: a double quote, a
// name of more than 1,023 bytes, and in a nested document a few odd texts and names with braces.
#pragma once

#include <string>
#include <string_view>

class TableText;

class ScriptWriter {
public:
    struct Key {
        enum Form { kList, kNumber, kName };  // kList: the next of a list that has all numbers from 1 on
        Form form;
        int number = 0;
        std::string_view name{};
    };

    void Open(const Key& key);
    void Close();
    void Int(const Key& key, int value);
    void Uint(const Key& key, unsigned int value);
    void Double(const Key& key, double value);  // not NaN
    void Text(const Key& key, std::string_view text);
    void Reference(const Key& key, std::string_view path);
    void Table(const Key& key, const TableText& table);

    const std::string& GetText() const { return text_; }

private:
    void Begin(const Key& key);
    void AppendKey(const Key& key);
    void Hidden(const Key& key, std::string_view text);

    std::string text_;
    int depth_ = 0;
};
