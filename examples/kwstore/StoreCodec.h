// StoreCodec: the payload of a journal record: one change of one object.
//
//   0 version 1, 1 kind 1, 2 length of the name 2, 4 the name
//   and for kind "set": number of fields 2, and each: length 2, field, length 4, value
//
// Numbers are little-endian. A set states the whole object, so applying it twice does no harm.
// Thread-safety: plain functions.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>

using StoreFields = std::map<std::string, std::string, std::less<>>;

// A field to be changed; an empty value takes it away.
struct StoreFieldChange {
    std::string_view field;
    std::string_view value;
};

struct StoreChange {
    bool isDelete = false;
    std::string name;
    StoreFields fields;  // none for a delete
};

class StoreCodec {
public:
    static constexpr std::size_t kMaxPayload = 16 * 1024;  // bytes
    static constexpr std::size_t kMaxName = 1024;          // bytes of an object's or a field's name

    // What is wrong with the name of an object or a field; null when nothing is.
    static const char* CheckName(std::string_view name);
    // What keeps the object from being stored; null when nothing does.
    static const char* Check(const std::string& name, const StoreFields& fields);

    static constexpr std::size_t kMaxFields = 0xFFFF;

    static std::string EncodeSet(const std::string& name, const StoreFields& fields);
    // The bytes that a set takes, and the same bytes written to `out`; gives their end.
    static std::size_t GetSetSize(const std::string& name, const StoreFields& fields);
    static unsigned char* EncodeSet(const std::string& name, const StoreFields& fields, unsigned char* out);
    static std::string EncodeDelete(const std::string& name);
    // Reads a payload that may hold anything. What is wrong with it, null when it was read.
    static const char* Decode(std::string_view payload, StoreChange& change);

    // Appends a payload as one line without control characters, for people; or says what is wrong with it.
    static void Describe(std::string_view payload, std::string& out);
};
