// KwNetPacket: builds and parses messages for a byte stream or a datagram.
//
//   raw              type byte, then whatever was added
//   length-prefixed  type byte, 16-bit length of the whole packet, then whatever was added
//   command          type byte, 16-bit length of the whole packet, name and parameters, each behind a byte
//                    with its length, the parameters behind a byte with their number
//
// Numbers are little-endian. Everything is built in one buffer of the capacity given at the start, which never grows:
// what does not fit is not added. Commands have a name of 1 to 255 bytes and up to 255 parameters of up to 255 bytes.
// KwNetPacketView reads commands without copying anything.
// Thread-safety: an object belongs to one thread at a time.
#pragma once

#include <list>
#include <string>
#include <string_view>

#include "Kw/KwMemory.h"

class IKwNetClient;
class IKwNetConnect;
class KwBuffer;

class KW_API KwNetPacket {
public:
    KW_TRACKED_NEW

    // `size` is the capacity in bytes. Without memory for it nothing can be built or parsed.
    explicit KwNetPacket(int size);
    KwNetPacket(const KwNetPacket&) = delete;
    KwNetPacket& operator=(const KwNetPacket&) = delete;
    ~KwNetPacket();

    // Begin a packet: raw, with `withLength` length-prefixed, or a command. Only the type's low 8 bits count; a null
    // name is an empty one, with which no packet can be made. Create returns true.
    bool Create(int type, bool withLength);
    void CreateCommand(int type, const char* name);

    // A parameter of the command; a number as its decimal text. A null text is an empty one. Zero bytes inside a
    // view are sent; KwNetPacketView shows them, RecvPacket ends there.
    void PushCommandParam(const char* text);
    void PushCommandParam(int value);
    void PushCommandParam(std::string_view text);

    // Add to a raw or length-prefixed packet: 1, 2, 4, 4, 8 or `len` bytes, or nothing when they do not fit. A
    // command to which something was added cannot be made.
    void AddByte(unsigned char value);
    void AddWorld(unsigned short value);
    void AddInt(int value);
    void AddUint(unsigned int value);
    void AddDouble(double value);
    void AddData(const void* data, unsigned int len);

    // Finishes the packet; the buffer stays this object's and holds it until the next Create, CreateCommand or
    // RecvPacket. Null when there is no buffer, for a command that does not fit it or whose name or a parameter is
    // too long, and for the second call on the same command. A packet of more than 65,535 bytes or 255 parameters is
    // made, but cannot be read back; a debug build logs that.
    KwBuffer* MakePacket();
    // Make the packet and hand it over. False for a null target, without a packet, or when the target refuses it.
    bool Send(IKwNetClient* client);
    bool Send(IKwNetConnect* connect);

    // Parses one command packet, `len` bytes from its type byte on. False when the length in it is not `len`, without a
    // name, and when its parts do not end exactly at `len`; the parameters before the fault stay. Name and
    // parameters end at their first zero byte. A parameter larger than the buffer reads as an empty one, and such a
    // name as none. What was being built is overwritten.
    bool RecvPacket(unsigned char* data, unsigned int len);

    // The command being built or parsed last, and the type of the packet.
    const std::string& GetCommand() const { return command_; }
    const std::list<std::string>& GetParams() const {
        if (!listed_) List();
        return params_;
    }
    unsigned char GetType() const { return type_; }

private:
    enum : int { kRaw = 0, kCommand = 1, kLength = 2 };  // mode_

    void Begin(int type, int mode);
    void PushText(const char* text, std::size_t size);
    // Gives up writing in place, before something else is written to the buffer.
    void Leave() {
        if (!inPlace_) return;
        if (!listed_) List();
        inPlace_ = false;
    }
    // Makes the list of the parameters that stand in place.
    void List() const;
    std::list<std::string>::iterator NodeAt(std::list<std::string>::iterator at) const;
    void DropFrom(std::list<std::string>::iterator first) const;
    bool AddCommand();
    const char* TextIn(const unsigned char* text, unsigned int len, std::size_t& size) const;

    mutable std::list<std::string> params_;
    std::string command_;
    KwBuffer* buffer_;
    int mode_ = kRaw;
    // Behind the stated fields. A command's parts are written where they will stand, behind the fill mark, as
    // long as they fit; the list is made of them when it is asked for, or when one does not fit.
    mutable std::list<std::string> spare_;  // nodes of earlier parameters, for later ones
    unsigned int end_ = 0;                  // of what stands in place
    unsigned int placed_ = 0;               // parameters there
    bool inPlace_ = false;
    mutable bool listed_ = true;  // params_ is up to date
    unsigned char type_ = 0;
};
