// CNetConnect: the server's end of a connection.
//
// A callback's pointer is valid until OnClose has returned; a host that takes a reference may keep it longer, and
// sends nothing then.
// Thread-safety: see CNetSocketIO; Send from any thread.
#pragma once

#include "Kw/Net/KwNetInterface.h"
#include "Kw/Net/KwNetSocketIO.h"

class KwNetServerWork;

class KW_API CNetConnect final : public IKwNetConnect, public CNetSocketIO {
public:
    // Queues a copy of one packet's bytes. False when the connection is not open or its queue is full.
    bool Send(const void* data, unsigned int size) override;

private:
    friend class KwNetServerWork;
    CNetConnect();
    ~CNetConnect() override;
};
