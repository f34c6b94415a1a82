// IKwNetClient and IKwNetConnect: what a packet can be sent to.
//
// The client's end and the server's end of a connection. Each implementation says which thread may send.
#pragma once

#include "Kw/KwDefine.h"

class KW_API IKwNetClient {
public:
    // Takes `size` bytes, which are copied or sent before the call returns. False when they were refused.
    virtual bool Send(const void* data, unsigned int size) = 0;
    virtual ~IKwNetClient();

protected:
    IKwNetClient() = default;
    IKwNetClient(const IKwNetClient&) = default;
    IKwNetClient& operator=(const IKwNetClient&) = default;
};

class KW_API IKwNetConnect {
public:
    virtual bool Send(const void* data, unsigned int size) = 0;
    virtual ~IKwNetConnect();

protected:
    IKwNetConnect() = default;
    IKwNetConnect(const IKwNetConnect&) = default;
    IKwNetConnect& operator=(const IKwNetConnect&) = default;
};
