#include "Kw/DB/KwDBRTRecord.h"

#include <bit>
#include <cstdio>
#include <cstring>

#include "Kw/KwFormatNumber.h"

namespace {

template <typename Number>
Number Get(const unsigned char* from) {
    Number value = 0;
    for (std::size_t i = 0; i < sizeof(value); ++i) value = static_cast<Number>(value | Number{from[i]} << 8 * i);
    return value;
}

template <typename Number>
void Put(unsigned char* to, Number value) {
    for (std::size_t i = 0; i < sizeof(value); ++i) to[i] = static_cast<unsigned char>(value >> 8 * i);
}

STime GetTime(const unsigned char* from) {
    return {from[0], from[1], from[2], from[3], from[4], from[5], Get<std::uint16_t>(from + 6)};
}

void PutTime(unsigned char* to, const STime& time) {
    const unsigned char fields[] = {time.second, time.minute, time.hour, time.day, time.week, time.month};
    std::memcpy(to, fields, sizeof(fields));
    Put(to + 6, time.year);
}

double GetId(const unsigned char* from) {
    return std::bit_cast<double>(Get<std::uint64_t>(from));
}

char* AddDigits(char* out, unsigned int value) {
    if (value >= 100) return KwFormatNumber::PutDecimal(out, value);
    *out++ = static_cast<char>('0' + value / 10);
    *out++ = static_cast<char>('0' + value % 10);
    return out;
}

char* AddTime(char* out, const STime& time) {
    *out++ = '[';
    out = AddDigits(out, time.hour);
    for (const unsigned int field : {time.minute, time.second, time.day, time.month}) {
        *out++ = '_';
        out = AddDigits(out, field);
    }
    *out++ = '_';
    out = AddDigits(out, time.year);
    *out++ = ']';
    return out;
}

constexpr std::size_t kTextRoom = 512;  // an id has up to 309 digits

}  // namespace

KwDBRTRecord::State KwDBRTRecord::Parse(const unsigned char* bytes, std::size_t size, KwDBRTRecord& record) {
    if (size >= 4 && Get<std::uint32_t>(bytes) != kMagic) return State::kMagicWrong;
    if (size < kEventSize) return State::kCut;
    record.type = bytes[4];
    if (record.type == kLogin || record.type == kCommit) {
        record.time = GetTime(bytes + 5);
        return State::kWhole;
    }
    if (record.type != kData) return State::kTypeWrong;
    record.length = Get<std::uint32_t>(bytes + 5);
    if (record.length == 0) return State::kLengthZero;
    if (size < kHeaderSize) return State::kCut;
    ParseFields(bytes, record);
    if (!(record.id >= 0)) return State::kIdWrong;
    return size - kHeaderSize < record.length ? State::kCut : State::kWhole;
}

void KwDBRTRecord::ParseFields(const unsigned char* bytes, KwDBRTRecord& record) {
    record.type = bytes[4];
    record.length = Get<std::uint32_t>(bytes + 5);
    record.id = GetId(bytes + 9);
    record.fileNumber = static_cast<int>(Get<std::uint32_t>(bytes + 17));
    record.offset = Get<std::uint32_t>(bytes + 21);
    record.size = Get<std::uint32_t>(bytes + 25);
    record.time = GetTime(bytes + 29);
}

const char* KwDBRTRecord::Describe(State state) {
    switch (state) {
        case State::kWhole: break;
        case State::kCut: return "the record is cut";
        case State::kMagicWrong: return "no record begins here";
        case State::kTypeWrong: return "the record's type is unknown";
        case State::kLengthZero: return "the record has no payload";
        case State::kIdWrong: return "the record's id is no number of an object";
    }
    return nullptr;
}

void KwDBRTRecord::PutEvent(unsigned char* out, Type type, const STime& time) {
    Put(out, std::uint32_t{kMagic});
    out[4] = type;
    PutTime(out + 5, time);
}

void KwDBRTRecord::PutHeader(unsigned char* out) const {
    Put(out, std::uint32_t{kMagic});
    out[4] = type;
    Put(out + 5, std::uint32_t{length});
    Put(out + 9, std::bit_cast<std::uint64_t>(id));
    Put(out + 17, static_cast<std::uint32_t>(fileNumber));
    Put(out + 21, std::uint32_t{offset});
    Put(out + 25, std::uint32_t{size});
    PutTime(out + 29, time);
}

void KwDBRTRecord::PutLength(unsigned char* record, unsigned int length) {
    Put(record + 5, std::uint32_t{length});
}

void KwDBRTRecord::PutEntry(unsigned char* out, double id, unsigned int size) {
    Put(out, std::uint32_t{kMagic});
    Put(out + 4, std::bit_cast<std::uint64_t>(id));
    Put(out + 12, std::uint32_t{size});
}

bool KwDBRTRecord::ParseEntry(const unsigned char* bytes, double& id, unsigned int& size) {
    id = GetId(bytes + 4);
    size = Get<std::uint32_t>(bytes + 12);
    return Get<std::uint32_t>(bytes) == kMagic;
}

void KwDBRTRecord::AppendTime(std::string& out, const STime& time) {
    char text[64];
    out.append(text, AddTime(text, time));
}

void KwDBRTRecord::AppendText(std::string& out) const {
    char text[kTextRoom];
    char* end = AddTime(text, time);
    const auto add = [&end](const char* part, std::size_t count) {
        std::memcpy(end, part, count);
        end += count;
    };
    if (IsEvent()) {
        type == kLogin ? add("login\n", 6) : add("commit\n", 7);
        out.append(text, end);
        return;
    }
    add("data:", 5);
    constexpr double kExact = 9007199254740992.0;  // whole numbers up to here fit 64 bits
    if (id <= kExact && id == static_cast<double>(static_cast<std::uint64_t>(id))) {
        end = KwFormatNumber::PutDecimal(end, static_cast<std::uint64_t>(id));
    } else {
        // "%.0f"; what stands in a damaged record may be anything.
        end += std::snprintf(end, 400, "%.0f", id);
    }
    *end++ = ',';
    std::int64_t number = fileNumber;
    if (number < 0) {
        *end++ = '-';
        number = -number;
    }
    end = KwFormatNumber::PutDecimal(end, static_cast<std::uint64_t>(number));
    *end++ = ',';
    end = KwFormatNumber::PutDecimal(end, offset);
    *end++ = ',';
    end = KwFormatNumber::PutDecimal(end, size);
    *end++ = '\t';
    out.append(text, end);
}

// Windows hosts may take their addresses: without these lines the DLL would not hold them.
constexpr unsigned int KwDBRTRecord::kMagic;
constexpr unsigned int KwDBRTRecord::kEventSize;
constexpr unsigned int KwDBRTRecord::kHeaderSize;
constexpr unsigned int KwDBRTRecord::kEntrySize;
