// KwNetTls: the TLS of one connection, between the bytes on the wire and those of the packets. Internal.
//
// It does no input or output of its own: what came from the wire is fed, what is to go there is taken.
// Thread-safety: the thread of the connection's loop. A context may be used by several.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

struct SNetTls;

// Keys, certificates and authorities of a server or client.
class KwNetTlsContext {
public:
    // Null, with the reason in `error`.
    static std::unique_ptr<KwNetTlsContext> Make(const SNetTls& settings, bool server, std::string& error);
    ~KwNetTlsContext();

    struct State;
    State& GetState() { return *state_; }

private:
    KwNetTlsContext();
    std::unique_ptr<State> state_;
};

class KwNetTls {
public:
    explicit KwNetTls(KwNetTlsContext& context);
    ~KwNetTls();

    enum class Result { kDone, kMore, kFailed };
    // Goes on with the handshake; `error` says why it failed.
    Result Handshake(std::string& error);
    // From the wire, of any size.
    void Feed(const void* data, std::size_t size);
    // kDone with 1 to `size` bytes in `got`, kMore when more must be fed first.
    Result Read(void* to, std::size_t size, std::size_t& got, std::string& error);
    // False when the stream is damaged.
    bool Write(const void* data, std::size_t size);
    // Says the end to the peer.
    void Close();
    bool HasOutput() const;
    // Moves what is to go to the wire to the end of `to`.
    void Take(std::vector<unsigned char>& to);

private:
    struct State;
    std::unique_ptr<State> state_;
};
