// kwstore's readers: the input is a journal payload, and, behind a head and before a check sum that fit, a snapshot.
// What is read is written again as the same object, and leaves no control character for the text log.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "StoreBytes.h"
#include "StoreSnapshot.h"

namespace {

void ExpectSame(const StoreChange& change) {
    const std::string payload =
        change.isDelete ? StoreCodec::EncodeDelete(change.name) : StoreCodec::EncodeSet(change.name, change.fields);
    if (payload.size() > StoreCodec::kMaxPayload) std::abort();
    StoreChange again;
    if (StoreCodec::Decode(payload, again) != nullptr) std::abort();
    if (again.isDelete != change.isDelete || again.name != change.name || again.fields != change.fields) std::abort();
    std::string text;
    StoreCodec::Describe(payload, text);
    if (std::any_of(text.begin(), text.end(), [](unsigned char ch) { return ch < 0x20; })) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    StoreChange change;
    if (StoreCodec::Decode(bytes, change) == nullptr) ExpectSame(change);

    unsigned int objects = 0;
    const auto each = [&](double, StoreChange& object, const StorePlace&) {
        ExpectSame(object);
        return ++objects < 1000;
    };
    StoreSnapshot::Parse(bytes, each);
    std::string snapshot = "KwSS";
    StorePut(snapshot, 1, 4);
    snapshot += bytes;
    std::uint64_t hash = 0xCBF29CE484222325u;
    for (const char byte : snapshot) hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001B3u;
    StorePut(snapshot, hash, 8);
    objects = 0;
    const char* why = StoreSnapshot::Parse(snapshot, each);
    // Nothing is taken of a snapshot that is damaged.
    if (why != nullptr && objects != 0 && objects < 1000) std::abort();
    return 0;
}
