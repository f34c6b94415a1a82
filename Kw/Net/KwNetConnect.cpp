#include "Kw/Net/KwNetConnect.h"

#include "Kw/Net/KwNetLink.h"

CNetConnect::CNetConnect() = default;
CNetConnect::~CNetConnect() = default;

bool CNetConnect::Send(const void* data, unsigned int size) {
    return SendBytes(data, size);
}
