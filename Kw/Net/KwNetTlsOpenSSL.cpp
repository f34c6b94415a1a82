// The TLS of builds with OpenSSL.
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <climits>
#include <system_error>

#include "Kw/Net/KwNetSettings.h"
#include "Kw/Net/KwNetTls.h"

struct KwNetTlsContext::State {
    ~State() { SSL_CTX_free(context); }

    SSL_CTX* context = nullptr;
    bool server = false;
    bool verify = false;
    std::string hostName;
};

struct KwNetTls::State {
    ~State() { SSL_free(ssl); }

    SSL* ssl = nullptr;
    BIO* in = nullptr;  // from the wire; the SSL's
    BIO* out = nullptr;
};

namespace {

// The oldest fault that OpenSSL noted, which is the cause of the others.
std::string TakeError() {
    const unsigned long code = ERR_get_error();
    ERR_clear_error();
    if (ERR_SYSTEM_ERROR(code)) return std::generic_category().message(ERR_GET_REASON(code));
    const char* const reason = code == 0 ? nullptr : ERR_reason_error_string(code);
    return reason == nullptr ? "unknown failure" : reason;
}

bool Fail(std::string& error, const std::string& what) {
    error = what + ": " + TakeError();
    return false;
}

// A key with a password is refused instead of asked for at the console.
int NoPassword(char*, int, int, void*) {
    return 0;
}

bool UseFiles(SSL_CTX* context, const SNetTls& settings, bool server, std::string& error) {
    const std::string &certificate = settings.certificateFile, &key = settings.keyFile;
    if (certificate.empty() != key.empty() || (server && certificate.empty())) {
        error = "a certificate file and a key file are needed";
        return false;
    }
    if (!certificate.empty()) {
        if (SSL_CTX_use_certificate_chain_file(context, certificate.c_str()) != 1) return Fail(error, certificate);
        if (SSL_CTX_use_PrivateKey_file(context, key.c_str(), SSL_FILETYPE_PEM) != 1) return Fail(error, key);
        if (SSL_CTX_check_private_key(context) != 1) return Fail(error, key);
    }
    if (!settings.authorityFile.empty()) {
        const char* const file = settings.authorityFile.c_str();
        if (SSL_CTX_load_verify_locations(context, file, nullptr) != 1) return Fail(error, settings.authorityFile);
        if (server) SSL_CTX_set_client_CA_list(context, SSL_load_client_CA_file(file));
    } else if (SSL_CTX_set_default_verify_paths(context) != 1) {
        return Fail(error, "the system's authorities");
    }
    return true;
}

}  // namespace

KwNetTlsContext::KwNetTlsContext() : state_(new State) {}
KwNetTlsContext::~KwNetTlsContext() = default;

std::unique_ptr<KwNetTlsContext> KwNetTlsContext::Make(const SNetTls& settings, bool server, std::string& error) {
    ERR_clear_error();
    std::unique_ptr<KwNetTlsContext> made(new KwNetTlsContext);
    State& state = *made->state_;
    SSL_CTX* const context = state.context = SSL_CTX_new(server ? TLS_server_method() : TLS_client_method());
    if (context == nullptr) {
        error = TakeError();
        return nullptr;
    }
    state.server = server;
    state.verify = server ? settings.verifyClients : settings.verifyServer;
    state.hostName = settings.hostName;
    SSL_CTX_set_min_proto_version(context, TLS1_2_VERSION);
    SSL_CTX_set_options(context, SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_COMPRESSION);
    SSL_CTX_set_mode(context, SSL_MODE_RELEASE_BUFFERS);
    SSL_CTX_set_session_cache_mode(context, SSL_SESS_CACHE_OFF);
    SSL_CTX_set_default_passwd_cb(context, NoPassword);
    const unsigned char id[] = {'K', 'w'};
    SSL_CTX_set_session_id_context(context, id, sizeof(id));
    SSL_CTX_set_verify(context, state.verify ? SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT : SSL_VERIFY_NONE,
                       nullptr);
    if (!UseFiles(context, settings, server, error)) return nullptr;
    return made;
}

// One connection ----------------------------------------------------------------------------------------------

KwNetTls::KwNetTls(KwNetTlsContext& context) : state_(new State) {
    const KwNetTlsContext::State& shared = context.GetState();
    state_->ssl = SSL_new(shared.context);
    state_->in = BIO_new(BIO_s_mem());
    state_->out = BIO_new(BIO_s_mem());
    if (state_->ssl == nullptr || state_->in == nullptr || state_->out == nullptr) {
        BIO_free(state_->in);
        BIO_free(state_->out);
        SSL_free(state_->ssl);
        state_->ssl = nullptr;
        return;
    }
    SSL_set_bio(state_->ssl, state_->in, state_->out);
    if (shared.server) {
        SSL_set_accept_state(state_->ssl);
        return;
    }
    SSL_set_connect_state(state_->ssl);
    const char* const name = shared.hostName.c_str();
    const bool isAddress = X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(state_->ssl), name) == 1;
    ERR_clear_error();
    if (!isAddress) {
        // SSL_set_tlsext_host_name, whose macro casts the const away.
        SSL_ctrl(state_->ssl, SSL_CTRL_SET_TLSEXT_HOSTNAME, TLSEXT_NAMETYPE_host_name, const_cast<char*>(name));
        SSL_set_hostflags(state_->ssl, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
        // Without a name to check nothing is trusted.
        if (SSL_set1_host(state_->ssl, name) != 1) {
            SSL_free(state_->ssl);
            state_->ssl = nullptr;
        }
    }
}

KwNetTls::~KwNetTls() = default;

KwNetTls::Result KwNetTls::Handshake(std::string& error) {
    if (state_->ssl == nullptr) {
        error = "out of memory";
        return Result::kFailed;
    }
    ERR_clear_error();
    const int result = SSL_do_handshake(state_->ssl);
    if (result == 1) return Result::kDone;
    if (SSL_get_error(state_->ssl, result) == SSL_ERROR_WANT_READ) return Result::kMore;
    error = TakeError();
    const long verified = SSL_get_verify_result(state_->ssl);
    if (verified != X509_V_OK) error += std::string(": ") + X509_verify_cert_error_string(verified);
    return Result::kFailed;
}

void KwNetTls::Feed(const void* data, std::size_t size) {
    if (state_->ssl != nullptr) BIO_write(state_->in, data, static_cast<int>(size));
}

KwNetTls::Result KwNetTls::Read(void* to, std::size_t size, std::size_t& got, std::string& error) {
    ERR_clear_error();
    const int result = SSL_read_ex(state_->ssl, to, size, &got);
    if (result == 1) return Result::kDone;
    switch (SSL_get_error(state_->ssl, result)) {
        case SSL_ERROR_WANT_READ: return Result::kMore;
        case SSL_ERROR_ZERO_RETURN: error.clear(); return Result::kFailed;
        default: error = TakeError(); return Result::kFailed;
    }
}

bool KwNetTls::Write(const void* data, std::size_t size) {
    ERR_clear_error();
    std::size_t put = 0;
    const bool written = SSL_write_ex(state_->ssl, data, size, &put) == 1 && put == size;
    ERR_clear_error();
    return written;
}

void KwNetTls::Close() {
    SSL_shutdown(state_->ssl);
    ERR_clear_error();
}

bool KwNetTls::HasOutput() const {
    return state_->ssl != nullptr && BIO_ctrl_pending(state_->out) != 0;
}

void KwNetTls::Take(std::vector<unsigned char>& to) {
    if (!HasOutput()) return;
    const std::size_t before = to.size();
    const std::size_t size = std::min<std::size_t>(BIO_ctrl_pending(state_->out), INT_MAX);
    to.resize(before + size);
    const int got = BIO_read(state_->out, to.data() + before, static_cast<int>(size));
    to.resize(before + static_cast<std::size_t>(std::max(got, 0)));
}
