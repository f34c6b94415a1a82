// StoreMirrorTable: the table of kwstore's mirror, which has a row for each object:
//
//   name    its name
//   fields  its fields as a JSON object of texts
//   digest  16 hexadecimal digits of a hash of both, by which a row and its object are compared
//
// Thread-safety: after Init it does not change; the connection belongs to the service's thread.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include <Kw/Kw.h>

class StoreMirrorTable {
public:
    static constexpr std::size_t kPage = 1000;  // rows that Read gives

    struct Row {
        std::string name;
        std::string payload;  // of a set (StoreCodec); empty to delete the row
    };
    struct Digest {
        std::string name;
        std::uint64_t hash = 0;
    };

    // `kind` is "mysql", "sqlserver", "postgres" or "sqlite". What is wrong, null when nothing is.
    const char* Init(const std::string& kind, const std::string& table);
    const std::string& GetName() const { return name_; }

    // Appends the rows whose names follow `after` in the server's order, kPage at most; fewer are the last. Makes the
    // table if it cannot be read. False when that fails, too.
    bool Read(KwSQL& sql, const std::string& after, std::vector<Digest>& rows) const;
    // Makes the table have these rows, each name once: all together, or one by one if the server refuses that.
    // `refused` counts those that it takes in neither way. False when it takes none, or the connection broke.
    bool Write(KwSQL& sql, std::span<const Row> rows, int& refused) const;

private:
    bool ReadPage(KwSQL& sql, const std::string& after, std::vector<Digest>& rows) const;
    bool WriteAll(KwSQL& sql, std::span<const Row> rows) const;
    bool Insert(KwSQL& sql, std::span<const Row> rows) const;
    void BindName(KwSQL& sql, int index, const std::string& name) const;

    std::string name_;
    std::string create_;
    std::string page_;
    bool nameIsBlob_ = false;
};
