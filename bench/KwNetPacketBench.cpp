// A command with four short parameters, encoded and decoded again (ns are for both):
//   strings   decoded to strings of its own; every object is used again
//   views     decoded to views of the packet
//   encode    the first half alone
#include <benchmark/benchmark.h>

#include <array>
#include <cstring>
#include <string>
#include <string_view>

#include "Kw/KwBuffer.h"
#include "Kw/Net/KwNetPacket.h"
#include "Kw/Net/KwNetPacketView.h"

#if defined(KW_PEER_MSGPACK)
#define MSGPACK_NO_BOOST
#include <msgpack.hpp>
#endif
#if defined(KW_PEER_PROTOBUF)
#include "Command.pb.h"
#endif

namespace {

// Not constants, which a compiler would measure and pack ahead.
std::array<std::string, 4> kParams = {"player.1042", "x=120.5", "gold", "-17"};
std::string kName = "set";

KwBuffer* Encode(KwNetPacket& packet) {
    packet.CreateCommand(1, kName.c_str());
    for (const std::string& param : kParams) packet.PushCommandParam(std::string_view(param));
    return packet.MakePacket();
}

void KwStrings(benchmark::State& state) {
    KwNetPacket out(256), in(256);
    for (auto _ : state) {
        KwBuffer* const bytes = Encode(out);
        if (!in.RecvPacket(bytes->GetData(), bytes->GetUsed())) state.SkipWithError("not read");
        benchmark::DoNotOptimize(in.GetParams().back().data());
    }
}
BENCHMARK(KwStrings)->Name("strings/Kw");

void KwViews(benchmark::State& state) {
    KwNetPacket out(256);
    KwNetPacketView in;
    for (auto _ : state) {
        KwBuffer* const bytes = Encode(out);
        if (!in.Read(bytes->GetData(), bytes->GetUsed())) state.SkipWithError("not read");
        for (unsigned int i = 0; i < in.GetCount(); ++i) benchmark::DoNotOptimize(in.GetParam(i));
    }
}
BENCHMARK(KwViews)->Name("views/Kw");

void KwEncodeTexts(benchmark::State& state) {
    KwNetPacket out(256);
    for (auto _ : state) {
        out.CreateCommand(1, kName.c_str());
        for (const std::string& param : kParams) out.PushCommandParam(param.c_str());
        benchmark::DoNotOptimize(out.MakePacket()->GetData());
    }
}
BENCHMARK(KwEncodeTexts)->Name("encode/Kw-terminated-texts");

void KwEncode(benchmark::State& state) {
    KwNetPacket out(256);
    for (auto _ : state) benchmark::DoNotOptimize(Encode(out)->GetData());
}
BENCHMARK(KwEncode)->Name("encode/Kw");

#if defined(KW_PEER_MSGPACK)

void MsgpackEncode(msgpack::sbuffer& to) {
    to.clear();
    msgpack::packer<msgpack::sbuffer> packer(to);
    packer.pack_array(3);
    packer.pack(std::uint8_t{1});
    packer.pack(kName);
    packer.pack_array(static_cast<std::uint32_t>(kParams.size()));
    for (const std::string& param : kParams) packer.pack(param);
}

// Views are made by a visitor, which builds no object tree.
struct ViewVisitor : msgpack::null_visitor {
    bool visit_str(const char* text, std::uint32_t size) {
        if (count < views.size()) views[count++] = {text, size};
        return true;
    }
    std::array<std::string_view, 8> views;
    std::size_t count = 0;
};

struct StringVisitor : msgpack::null_visitor {
    bool visit_str(const char* text, std::uint32_t size) {
        if (count < texts.size()) texts[count++].assign(text, size);
        return true;
    }
    std::array<std::string, 8> texts;
    std::size_t count = 0;
};

template <class Visitor>
void Msgpack(benchmark::State& state) {
    msgpack::sbuffer buffer;
    Visitor visitor;
    for (auto _ : state) {
        MsgpackEncode(buffer);
        visitor.count = 0;
        std::size_t offset = 0;
        if (!msgpack::parse(buffer.data(), buffer.size(), offset, visitor)) state.SkipWithError("not read");
        benchmark::DoNotOptimize(visitor);
    }
}
BENCHMARK(Msgpack<StringVisitor>)->Name("strings/msgpack-visitor");
BENCHMARK(Msgpack<ViewVisitor>)->Name("views/msgpack-visitor");

// The usual way: unpack to objects in a zone, which are views, then convert.
template <bool strings>
void MsgpackUnpack(benchmark::State& state) {
    msgpack::sbuffer buffer;
    for (auto _ : state) {
        MsgpackEncode(buffer);
        const msgpack::object_handle handle = msgpack::unpack(
            buffer.data(), buffer.size(), [](msgpack::type::object_type, std::size_t, void*) { return true; });
        const msgpack::object* parts = handle.get().via.array.ptr;
        if constexpr (strings) {
            auto name = parts[1].as<std::string>();
            auto params = parts[2].as<std::vector<std::string>>();
            benchmark::DoNotOptimize(name.data());
            benchmark::DoNotOptimize(params.data());
        } else {
            benchmark::DoNotOptimize(parts[2].via.array.ptr[3].via.str.ptr);
        }
    }
}
BENCHMARK(MsgpackUnpack<true>)->Name("strings/msgpack");
BENCHMARK(MsgpackUnpack<false>)->Name("views/msgpack");

void MsgpackEncodeOnly(benchmark::State& state) {
    msgpack::sbuffer buffer;
    for (auto _ : state) {
        MsgpackEncode(buffer);
        benchmark::DoNotOptimize(buffer.data());
    }
}
BENCHMARK(MsgpackEncodeOnly)->Name("encode/msgpack");

#endif

#if defined(KW_PEER_PROTOBUF)
void Protobuf(benchmark::State& state) {
    KwBenchCommand out, in;
    std::string bytes;
    for (auto _ : state) {
        out.Clear();
        out.set_type(1);
        out.set_name(kName);
        for (const std::string& param : kParams) out.add_params(param);
        out.SerializeToString(&bytes);
        if (!in.ParseFromString(bytes)) state.SkipWithError("not read");
        benchmark::DoNotOptimize(in.params(3).data());
    }
}
BENCHMARK(Protobuf)->Name("strings/protobuf");
#endif

}  // namespace

BENCHMARK_MAIN();
