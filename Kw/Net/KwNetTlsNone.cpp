// For builds with KW_WITH_TLS off.
#include "Kw/Net/KwNetTls.h"

struct KwNetTlsContext::State {};
struct KwNetTls::State {};

KwNetTlsContext::KwNetTlsContext() = default;
KwNetTlsContext::~KwNetTlsContext() = default;

std::unique_ptr<KwNetTlsContext> KwNetTlsContext::Make(const SNetTls&, bool, std::string& error) {
    error = "this Kw was built without TLS";
    return nullptr;
}

// Without a context none is made.
KwNetTls::KwNetTls(KwNetTlsContext&) {}
KwNetTls::~KwNetTls() = default;
KwNetTls::Result KwNetTls::Handshake(std::string&) {
    return Result::kFailed;
}
void KwNetTls::Feed(const void*, std::size_t) {}
KwNetTls::Result KwNetTls::Read(void*, std::size_t, std::size_t&, std::string&) {
    return Result::kFailed;
}
bool KwNetTls::Write(const void*, std::size_t) {
    return false;
}
void KwNetTls::Close() {}
bool KwNetTls::HasOutput() const {
    return false;
}
void KwNetTls::Take(std::vector<unsigned char>&) {}
