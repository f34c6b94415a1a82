#include "Kw/Net/KwNetPacket.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Kw/KwBuffer.h"
#include "Kw/Net/KwNetInterface.h"
#include "Kw/Net/KwNetPacketView.h"

namespace {

using Params = std::list<std::string>;

std::string Bytes(KwBuffer* buffer) {
    if (buffer == nullptr) return "null";
    return {reinterpret_cast<const char*>(buffer->GetData()), buffer->GetUsed()};
}

template <std::size_t n>
std::string Text(const char (&text)[n]) {
    return {text, n - 1};
}

// What the packet reader makes of bytes that the view shows whole.
std::string Cut(std::string_view text) {
    return std::string(text.substr(0, text.find('\0')));
}

// Parses with both readers, which must agree, from memory that ends where the packet does.
bool Receive(KwNetPacket& packet, const std::string& bytes) {
    std::vector<unsigned char> exact(bytes.begin(), bytes.end());
    KwNetPacketView view;
    const bool received = packet.RecvPacket(exact.data(), static_cast<unsigned int>(exact.size()));
    EXPECT_EQ(view.Read(exact.data(), static_cast<unsigned int>(exact.size())), received);
    if (!received) return false;
    EXPECT_EQ(view.GetType(), packet.GetType());
    EXPECT_EQ(Cut(view.GetCommand()), packet.GetCommand());
    unsigned int i = 0;
    for (const std::string& param : packet.GetParams()) EXPECT_EQ(Cut(view.GetParam(i++)), param);
    EXPECT_EQ(view.GetCount(), i);
    EXPECT_EQ(view.GetParam(i), "");
    return true;
}

TEST(KwNetPacketTest, TheThreeFormsHaveTheirBytes) {
    KwNetPacket packet(64);
    packet.Create(0x107, false);
    packet.AddWorld(0x0201);
    packet.AddData(nullptr, 3);
    packet.AddData("ab", 2);
    EXPECT_EQ(Bytes(packet.MakePacket()), Text("\7\1\2ab"));
    packet.Create(7, true);
    packet.AddInt(1);
    EXPECT_EQ(Bytes(packet.MakePacket()), Text("\7\7\0\1\0\0\0"));
    packet.AddByte(9);
    EXPECT_EQ(Bytes(packet.MakePacket()), Text("\7\x8\0\1\0\0\0\x9"));
    packet.CreateCommand(1, "go");
    packet.PushCommandParam("a");
    packet.PushCommandParam(12);
    EXPECT_EQ(Bytes(packet.MakePacket()), Text("\1\xC\0\2go\2\1a\2\x31\x32"));
    EXPECT_EQ(packet.MakePacket(), nullptr);
    packet.CreateCommand(1, "go");
    packet.AddByte(1);
    EXPECT_EQ(packet.MakePacket(), nullptr);
}

TEST(KwNetPacketTest, CommandsKeepTheirLimits) {
    const std::string longest(255, 'n');
    KwNetPacket packet(70000), reader(300);
    for (const bool fits : {true, false}) {
        const std::string name = longest + (fits ? "" : "x");
        packet.CreateCommand(1, name.c_str());
        EXPECT_EQ(packet.MakePacket() != nullptr, fits);
        packet.CreateCommand(1, "n");
        packet.PushCommandParam(name.c_str());
        EXPECT_EQ(packet.MakePacket() != nullptr, fits);
    }
    packet.CreateCommand(2, "many");
    for (int i = 0; i < 255; ++i) packet.PushCommandParam(-i);
    ASSERT_TRUE(Receive(reader, Bytes(packet.MakePacket())));
    EXPECT_EQ(reader.GetParams().size(), 255u);
    EXPECT_EQ(reader.GetParams().back(), "-254");
    packet.CreateCommand(2, nullptr);
    EXPECT_EQ(packet.MakePacket(), nullptr);
}

// Every capacity from none to enough: a packet that does not fit is null, but for the count byte.
TEST(KwNetPacketTest, ShortRoomIsSilentUntilThePacketIsMade) {
    for (int capacity = 0; capacity <= 12; ++capacity) {
        KwNetPacket packet(capacity);
        packet.CreateCommand(1, "go");
        packet.PushCommandParam("a");
        packet.PushCommandParam(12);
        EXPECT_EQ(packet.MakePacket() != nullptr, capacity == 12) << capacity;
        packet.CreateCommand(1, "go");
        EXPECT_EQ(Bytes(packet.MakePacket()), capacity < 6    ? "null"
                                              : capacity == 6 ? Text("\1\6\0\2go")
                                                              : Text("\1\7\0\2go\0"));
        packet.Create(1, true);
        packet.AddInt(1);
        EXPECT_EQ(packet.MakePacket() != nullptr, capacity >= 3) << capacity;
    }
}

TEST(KwNetPacketTest, EveryCutAndEveryDamageIsRefusedOrReadWithinThePacket) {
    KwNetPacket packet(64), reader(64);
    packet.CreateCommand(5, "set");
    packet.PushCommandParam("key");
    packet.PushCommandParam("");
    packet.PushCommandParam(42);
    const std::string whole = Bytes(packet.MakePacket());
    ASSERT_TRUE(Receive(reader, whole));
    EXPECT_EQ(reader.GetType(), 5);
    EXPECT_EQ(reader.GetCommand(), "set");
    EXPECT_EQ(reader.GetParams(), (Params{"key", "", "42"}));
    EXPECT_FALSE(reader.RecvPacket(nullptr, 3));
    EXPECT_FALSE(Receive(reader, whole + "x"));
    for (std::size_t cut = 0; cut < whole.size(); ++cut) {
        std::string bytes = whole.substr(0, cut);
        EXPECT_FALSE(Receive(reader, bytes));
        if (cut < 3) continue;
        bytes[1] = static_cast<char>(cut);
        EXPECT_FALSE(Receive(reader, bytes));
    }
    for (std::size_t at = 3; at < whole.size(); ++at) {
        for (int value = 1; value < 256; ++value) {
            std::string bytes = whole;
            bytes[at] = static_cast<char>(value);
            Receive(reader, bytes);
        }
    }
}

TEST(KwNetPacketTest, TheReadersBufferBoundsWhatItReads) {
    KwNetPacket packet(64), reader(4), none(0);
    packet.CreateCommand(1, "abcd");
    packet.PushCommandParam("12345");
    packet.PushCommandParam("1234");
    std::string bytes = Bytes(packet.MakePacket());
    auto* const data = reinterpret_cast<unsigned char*>(bytes.data());
    const auto size = static_cast<unsigned int>(bytes.size());
    ASSERT_TRUE(reader.RecvPacket(data, size));
    EXPECT_EQ(reader.GetCommand(), "abcd");
    EXPECT_EQ(reader.GetParams(), (Params{"", "1234"}));
    EXPECT_FALSE(none.RecvPacket(data, size));
    bytes[5] = '\0';  // the name ends there, for this reader
    ASSERT_TRUE(reader.RecvPacket(data, size));
    EXPECT_EQ(reader.GetCommand(), "a");
}

class Target : public IKwNetClient, public IKwNetConnect {
public:
    bool Send(const void* data, unsigned int size) override {
        sent.assign(static_cast<const char*>(data), size);
        return accepts;
    }
    std::string sent;
    bool accepts = true;
};

TEST(KwNetPacketTest, SendingHandsTheBytesOver) {
    Target target;
    KwNetPacket packet(16);
    packet.Create(3, false);
    EXPECT_TRUE(packet.Send(static_cast<IKwNetClient*>(&target)));
    EXPECT_EQ(target.sent, "\3");
    target.accepts = false;
    EXPECT_FALSE(packet.Send(static_cast<IKwNetConnect*>(&target)));
    EXPECT_FALSE(packet.Send(static_cast<IKwNetConnect*>(nullptr)));
    packet.CreateCommand(1, "");
    target.accepts = true;
    EXPECT_FALSE(packet.Send(static_cast<IKwNetClient*>(&target)));
}

}  // namespace
