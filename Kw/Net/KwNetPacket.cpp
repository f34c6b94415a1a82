#include "Kw/Net/KwNetPacket.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <iterator>

#include "Kw/Helper/KwLogSystem.h"
#include "Kw/KwBuffer.h"
#include "Kw/Net/KwNetInterface.h"

namespace {

constexpr unsigned int kHeader = 3;                          // type and length
constexpr std::size_t kMaxText = 255;                        // of a name or a parameter
[[maybe_unused]] constexpr std::size_t kMaxParams = 255;     // that the count byte can tell
[[maybe_unused]] constexpr unsigned int kMaxPacket = 65535;  // that the length can tell
constexpr std::size_t kMaxSpare = 256;

// Names and parameters are mostly short: two overlapping loads and stores in place of a call.
void CopyText(unsigned char* to, const char* from, std::size_t size) {
    if (size > 16) {
        std::memcpy(to, from, size);
    } else if (size >= 8) {
        std::uint64_t head, tail;
        std::memcpy(&head, from, 8);
        std::memcpy(&tail, from + size - 8, 8);
        std::memcpy(to, &head, 8);
        std::memcpy(to + size - 8, &tail, 8);
    } else if (size >= 4) {
        std::uint32_t head, tail;
        std::memcpy(&head, from, 4);
        std::memcpy(&tail, from + size - 4, 4);
        std::memcpy(to, &head, 4);
        std::memcpy(to + size - 4, &tail, 4);
    } else {
        for (std::size_t i = 0; i < size; ++i) to[i] = static_cast<unsigned char>(from[i]);
    }
}

void WarnUnreadable([[maybe_unused]] unsigned int size, [[maybe_unused]] std::size_t params) {
#ifndef NDEBUG
    if (size > kMaxPacket || params > kMaxParams)
        KwLogSystem::Push("net packet of %u bytes, %u parameters cannot be read back", size,
                          static_cast<unsigned int>(params));
#endif
}

template <class Target>
bool SendTo(Target* target, KwNetPacket& packet) {
    KwBuffer* const buffer = target == nullptr ? nullptr : packet.MakePacket();
    return buffer != nullptr && target->Send(buffer->GetData(), buffer->GetUsed());
}

}  // namespace

IKwNetClient::~IKwNetClient() = default;
IKwNetConnect::~IKwNetConnect() = default;

KwNetPacket::KwNetPacket(int size) : buffer_(new KwBuffer) {
    if (buffer_ == nullptr) return;
    if (size > 0 && buffer_->Alloc(static_cast<unsigned int>(size))) {
        buffer_->Attack();
    } else {
        buffer_->Release();
        buffer_ = nullptr;
    }
}

KwNetPacket::~KwNetPacket() {
    if (buffer_ != nullptr) buffer_->Release();
}

// Building ----------------------------------------------------------------------------------------------------

void KwNetPacket::Begin(int type, int mode) {
    mode_ = mode;
    type_ = static_cast<unsigned char>(type);
    if (buffer_ == nullptr) return;
    buffer_->SetUsed(1);
    buffer_->GetData()[0] = type_;
}

bool KwNetPacket::Create(int type, bool withLength) {
    Leave();
    Begin(type, withLength ? kLength : kRaw);
    if (withLength && buffer_ != nullptr) buffer_->AddWord(0);
    return true;
}

void KwNetPacket::CreateCommand(int type, const char* name) {
    command_.assign(name == nullptr ? "" : name);
    Begin(type, kCommand);
    const std::size_t size = command_.size();
    end_ = static_cast<unsigned int>(kHeader + 2 + size);  // behind the name and the count
    placed_ = 0;
    listed_ = false;
    inPlace_ = buffer_ != nullptr && size <= kMaxText && end_ <= buffer_->GetSize();
    if (!inPlace_) {
        List();
        return;
    }
    unsigned char* const data = buffer_->GetData();
    data[kHeader] = static_cast<unsigned char>(size);
    CopyText(data + kHeader + 1, command_.data(), size);
}

// The node for the parameter at `at`: the one that is there, or at the end one more.
std::list<std::string>::iterator KwNetPacket::NodeAt(std::list<std::string>::iterator at) const {
    if (at != params_.end()) return at;
    if (spare_.empty()) spare_.emplace_back();
    params_.splice(at, spare_, spare_.begin());
    return std::prev(at);
}

// Drops the parameters from `first` on; their nodes are kept.
void KwNetPacket::DropFrom(std::list<std::string>::iterator first) const {
    if (first == params_.end()) return;
    if (spare_.size() < kMaxSpare) {
        spare_.splice(spare_.end(), params_, first, params_.end());
    } else {
        params_.erase(first, params_.end());
    }
}

void KwNetPacket::List() const {
    listed_ = true;
    auto node = params_.begin();
    if (placed_ != 0) {
        const unsigned char* at = buffer_->GetData() + kHeader + 2 + command_.size();
        for (unsigned int i = 0; i < placed_; ++i, ++node) {
            node = NodeAt(node);
            node->assign(reinterpret_cast<const char*>(at + 1), *at);
            at += 1 + *at;
        }
    }
    DropFrom(node);
}

void KwNetPacket::PushText(const char* text, std::size_t size) {
    if (inPlace_ && size <= kMaxText && end_ + 1 + size <= buffer_->GetSize()) {
        unsigned char* const to = buffer_->GetData() + end_;
        *to = static_cast<unsigned char>(size);
        CopyText(to + 1, text, size);
        end_ += static_cast<unsigned int>(1 + size);
        ++placed_;
        listed_ = false;
        return;
    }
    Leave();
    NodeAt(params_.end())->assign(text, size);
}

void KwNetPacket::PushCommandParam(const char* text) {
    if (text == nullptr) text = "";
    PushText(text, std::strlen(text));
}

void KwNetPacket::PushCommandParam(std::string_view text) {
    PushText(text.data(), text.size());
}

void KwNetPacket::PushCommandParam(int value) {
    char text[16];
    const std::to_chars_result end = std::to_chars(text, text + sizeof(text), value);
    PushText(text, static_cast<std::size_t>(end.ptr - text));
}

void KwNetPacket::AddByte(unsigned char value) {
    Leave();
    if (buffer_ != nullptr) buffer_->AddByte(value);
}
void KwNetPacket::AddWorld(unsigned short value) {
    Leave();
    if (buffer_ != nullptr) buffer_->AddWord(value);
}
void KwNetPacket::AddInt(int value) {
    Leave();
    if (buffer_ != nullptr) buffer_->AddInt(value);
}
void KwNetPacket::AddUint(unsigned int value) {
    AddInt(static_cast<int>(value));
}
void KwNetPacket::AddDouble(double value) {
    Leave();
    if (buffer_ != nullptr) buffer_->AddDouble(value);
}
void KwNetPacket::AddData(const void* data, unsigned int len) {
    Leave();
    if (buffer_ != nullptr) buffer_->AddData(data, len);
}

KwBuffer* KwNetPacket::MakePacket() {
    if (mode_ == kRaw || buffer_ == nullptr) return buffer_;
    if (mode_ == kCommand && !AddCommand()) return nullptr;
    const unsigned int size = buffer_->GetUsed();
    if (size < kHeader) return nullptr;
    unsigned char* const data = buffer_->GetData();
    data[1] = static_cast<unsigned char>(size);
    data[2] = static_cast<unsigned char>(size >> 8);
    WarnUnreadable(size, mode_ == kCommand ? std::max<std::size_t>(params_.size(), placed_) : 0);
    return buffer_;
}

bool KwNetPacket::AddCommand() {
    if (command_.empty() || buffer_->GetUsed() != 1) return false;
    if (inPlace_) {
        buffer_->GetData()[kHeader + 1 + command_.size()] = static_cast<unsigned char>(placed_);
        buffer_->SetUsed(static_cast<int>(end_));
        return true;
    }
    // What does not fit goes step by step, which decides what fails and what is left out. The bytes of lengths and
    // counts are not checked for room: a packet without parameters that fills the buffer up to its count byte goes
    // out without that byte, and its receiver refuses it.
    buffer_->AddWord(0);
    buffer_->AddByte(static_cast<unsigned char>(command_.size()));
    if (command_.size() > kMaxText) return false;
    if (!buffer_->AddData(command_.data(), static_cast<unsigned int>(command_.size()))) return false;
    buffer_->AddByte(static_cast<unsigned char>(params_.size()));
    for (const std::string& param : params_) {
        if (param.size() > kMaxText) return false;
        buffer_->AddByte(static_cast<unsigned char>(param.size()));
        if (!buffer_->AddData(param.data(), static_cast<unsigned int>(param.size()))) return false;
    }
    return true;
}

bool KwNetPacket::Send(IKwNetClient* client) {
    return SendTo(client, *this);
}
bool KwNetPacket::Send(IKwNetConnect* connect) {
    return SendTo(connect, *this);
}

// Parsing -----------------------------------------------------------------------------------------------------

// A text as it comes out of the buffer: nothing when it does not fit, and ended by its first zero byte.
const char* KwNetPacket::TextIn(const unsigned char* text, unsigned int len, std::size_t& size) const {
    const char* const chars = reinterpret_cast<const char*>(text);
    size = buffer_ == nullptr || len > buffer_->GetSize() ? 0 : strnlen(chars, len);
    return chars;
}

bool KwNetPacket::RecvPacket(unsigned char* data, unsigned int len) {
    if (data == nullptr || len < kHeader || (data[1] | data[2] << 8) != static_cast<int>(len)) return false;
    inPlace_ = false;
    listed_ = true;
    type_ = data[0];
    const unsigned char* at = data + kHeader;
    const unsigned char* const end = data + len;
    const unsigned char* last = at;  // the text read last
    unsigned int lastSize = 0;
    // Steps over a length byte and the text behind it; false when they pass the end.
    const auto take = [&] {
        if (at == end || end - at <= *at) return false;
        lastSize = *at;
        last = at + 1;
        at = last + lastSize;
        return true;
    };
    std::size_t size = 0;
    bool whole = take();
    const char* text = whole ? TextIn(last, lastSize, size) : "";
    command_.assign(text, size);
    whole = whole && !command_.empty() && at != end;
    // The nodes of the parameters before are used again.
    auto node = params_.begin();
    for (unsigned int left = whole ? *at++ : 0; left != 0; --left) {
        whole = take();
        if (!whole) break;
        text = TextIn(last, lastSize, size);
        node = NodeAt(node);
        node->assign(text, size);
        ++node;
    }
    DropFrom(node);
    // Texts are read through the buffer, and hosts may look at what was read last.
    if (buffer_ != nullptr) {
        buffer_->SetUsed(0);
        buffer_->AddData(last, lastSize);
        buffer_->AddByte(0);
    }
    return whole && at == end;
}
