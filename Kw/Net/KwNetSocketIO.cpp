#include "Kw/Net/KwNetSocketIO.h"

#include "Kw/Net/KwNetLink.h"

CNetSocketIO::CNetSocketIO() = default;
CNetSocketIO::~CNetSocketIO() = default;

bool CNetSocketIO::IsOpen() const {
    return link_ != nullptr && link_->IsOpen();
}

void CNetSocketIO::Close() {
    if (link_ != nullptr) link_->Close(false);
}

void CNetSocketIO::Abort() {
    if (link_ != nullptr) link_->Close(true);
}

bool CNetSocketIO::SendBytes(const void* data, unsigned int size) {
    return link_ != nullptr && link_->Send(data, size);
}

unsigned int CNetSocketIO::GetQueuedBytes() const {
    return link_ == nullptr ? 0 : static_cast<unsigned int>(link_->GetQueued());
}

std::string CNetSocketIO::GetPeerAddress() const {
    std::string address;
    unsigned short port = 0, local = 0;
    if (link_ != nullptr) link_->GetPeer(address, port, local);
    return address;
}

unsigned short CNetSocketIO::GetPeerPort() const {
    std::string address;
    unsigned short port = 0, local = 0;
    if (link_ != nullptr) link_->GetPeer(address, port, local);
    return port;
}

unsigned short CNetSocketIO::GetLocalPort() const {
    std::string address;
    unsigned short port = 0, local = 0;
    if (link_ != nullptr) link_->GetPeer(address, port, local);
    return local;
}

const char* Kw_NetCloseText(KwNetClose reason) {
    switch (reason) {
        case KwNetClose::kLocal: return "closed here";
        case KwNetClose::kPeer: return "closed by the peer";
        case KwNetClose::kLost: return "connection lost";
        case KwNetClose::kFrame: return "bad packet length";
        case KwNetClose::kStalled: return "stalled";
        case KwNetClose::kIdle: return "idle";
        case KwNetClose::kQueueFull: return "send queue full";
        case KwNetClose::kTls: return "TLS failure";
        case KwNetClose::kConnect: return "no connection";
    }
    return "unknown";
}
