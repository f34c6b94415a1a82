#include <asio/connect.hpp>
#include <asio/executor_work_guard.hpp>
#include <asio/ip/v6_only.hpp>
#include <asio/post.hpp>
#include <chrono>

#include "Kw/Net/KwNetAsio.h"
#include "Kw/Platform/KwPlatformSocket.h"

KwNetIo::KwNetIo() : state_(new State) {}
KwNetIo::~KwNetIo() = default;

void KwNetIo::Run(unsigned int waitMs) {
    if (waitMs == 0 || state_->context.run_one_for(std::chrono::milliseconds(waitMs)) != 0) state_->context.poll();
}

void KwNetIo::Post(std::function<void()> work) {
    asio::post(state_->context, std::move(work));
}

struct KwNetStream::State {
    explicit State(KwNetIo& io) : socket(io.GetState().context), resolver(io.GetState().context) {}

    asio::ip::tcp::socket socket;
    asio::ip::tcp::resolver resolver;
    Owner* owner = nullptr;
    int pending = 0;
    bool closed = false;
    KwNetHandlerMemory readMemory;
    KwNetHandlerMemory writeMemory;
    std::string peer;
    unsigned short peerPort = 0;
    unsigned short localPort = 0;
};

namespace {

std::error_code Aborted() {
    return asio::error::operation_aborted;
}

}  // namespace

KwNetStream::KwNetStream(KwNetIo& io) : state_(new State(io)) {}
KwNetStream::~KwNetStream() = default;

void KwNetStream::SetOwner(Owner* owner) {
    state_->owner = owner;
}

void KwNetStream::Prepare() {
    std::error_code ignored;
    state_->socket.non_blocking(true, ignored);
    state_->socket.set_option(asio::ip::tcp::no_delay(true), ignored);
    state_->socket.set_option(asio::socket_base::keep_alive(true), ignored);
    const auto peer = state_->socket.remote_endpoint(ignored);
    if (!ignored) {
        state_->peer = peer.address().to_string();
        state_->peerPort = peer.port();
    }
    const auto local = state_->socket.local_endpoint(ignored);
    if (!ignored) state_->localPort = local.port();
}

void KwNetStream::Connect(const std::string& address, unsigned short port) {
    State* const state = state_.get();
    const auto connected = [this, state](const std::error_code& error, const asio::ip::tcp::endpoint&) {
        --state->pending;
        if (!error && !state->closed) Prepare();
        state->owner->OnOpened(state->closed ? Aborted() : error);
    };
    ++state->pending;
    // Numbers need no resolver, whose thread may hang in a look-up.
    std::error_code notNumber;
    const auto number = asio::ip::make_address(address, notNumber);
    if (!notNumber) {
        const asio::ip::tcp::endpoint endpoint(number, port);
        state->socket.async_connect(
            endpoint, [connected, endpoint](const std::error_code& error) { connected(error, endpoint); });
        return;
    }
    state->resolver.async_resolve(
        address, std::to_string(port), asio::ip::tcp::resolver::numeric_service,
        [state, connected](const std::error_code& error, const asio::ip::tcp::resolver::results_type& results) {
            if (error || state->closed) {
                connected(error, {});
                return;
            }
            // A socket that was closed meanwhile must not be opened for the next address.
            asio::async_connect(
                state->socket, results,
                [state](const std::error_code&, const asio::ip::tcp::endpoint&) { return !state->closed; }, connected);
        });
}

void KwNetStream::Read(void* to, std::size_t size) {
    State* const state = state_.get();
    ++state->pending;
    state->socket.async_read_some(
        asio::buffer(to, size), KwNetHandle(state->readMemory, [state](const std::error_code& error, std::size_t got) {
            --state->pending;
            state->owner->OnRead(state->closed ? Aborted() : error, got);
        }));
}

void KwNetStream::Write(const void* data, std::size_t size) {
    State* const state = state_.get();
    ++state->pending;
    state->socket.async_write_some(
        asio::buffer(data, size),
        KwNetHandle(state->writeMemory, [state](const std::error_code& error, std::size_t put) {
            --state->pending;
            state->owner->OnWritten(state->closed ? Aborted() : error, put);
        }));
}

std::size_t KwNetStream::TryWrite(const void* data, std::size_t size, std::error_code& error) {
    const std::size_t put = state_->socket.write_some(asio::buffer(data, size), error);
    if (error == asio::error::would_block || error == asio::error::try_again) error.clear();
    return put;
}

void KwNetStream::Shutdown() {
    std::error_code ignored;
    state_->socket.shutdown(asio::ip::tcp::socket::shutdown_send, ignored);
}

void KwNetStream::Close(bool reset) {
    state_->closed = true;
    std::error_code ignored;
    if (reset && state_->socket.is_open()) state_->socket.set_option(asio::socket_base::linger(true, 0), ignored);
    state_->resolver.cancel();
    state_->socket.cancel(ignored);  // Wine's server does not survive a close with a write under way
    state_->socket.close(ignored);
}

bool KwNetStream::IsOpen() const {
    return !state_->closed && state_->socket.is_open();
}

int KwNetStream::GetPending() const {
    return state_->pending;
}

void KwNetStream::GetPeer(std::string& address, unsigned short& port) const {
    address = state_->peer;
    port = state_->peerPort;
}

unsigned short KwNetStream::GetLocalPort() const {
    return state_->localPort;
}

bool KwNetIsEnd(const std::error_code& error) {
    return error == asio::error::eof;
}

// Listening ---------------------------------------------------------------------------------------------------

struct KwNetListener::State {
    State(KwNetIo& io, Owner* to) : acceptor(io.GetState().context), owner(to) {}

    asio::ip::tcp::acceptor acceptor;
    Owner* owner;
    std::unique_ptr<KwNetStream> next;  // what the accept under way fills
    int pending = 0;
    bool closed = false;
    KwNetHandlerMemory memory;
};

KwNetListener::KwNetListener(KwNetIo& io, Owner* owner) : state_(new State(io, owner)) {}
KwNetListener::~KwNetListener() = default;

bool KwNetListener::Open(const std::string& address, unsigned short port, int backlog, std::error_code& error) {
    asio::ip::tcp::endpoint endpoint(asio::ip::make_address(address, error), port);
    if (error) {
        asio::ip::tcp::resolver resolver(state_->acceptor.get_executor());
        const auto found =
            resolver.resolve(address, std::to_string(port), asio::ip::tcp::resolver::numeric_service, error);
        if (error) return false;
        endpoint = *found.begin();
    }
    asio::ip::tcp::acceptor& acceptor = state_->acceptor;
    acceptor.open(endpoint.protocol(), error);
    if (error) return false;
    if (KwPlatform::RebindNeedsReuse()) acceptor.set_option(asio::socket_base::reuse_address(true), error);
    if (endpoint.address().is_v6() && endpoint.address().is_unspecified()) {
        std::error_code ignored;  // where the system has no IPv4, IPv6 alone will do
        acceptor.set_option(asio::ip::v6_only(false), ignored);
    }
    acceptor.bind(endpoint, error);
    if (!error) acceptor.listen(backlog, error);
    std::error_code ignored;
    if (error) acceptor.close(ignored);
    return !error;
}

unsigned short KwNetListener::GetPort() const {
    std::error_code ignored;
    return state_->acceptor.local_endpoint(ignored).port();
}

void KwNetListener::Accept() {
    State* const state = state_.get();
    state->next = state->owner->MakeStream();
    ++state->pending;
    state->acceptor.async_accept(state->next->GetState().socket,
                                 KwNetHandle(state->memory, [state](const std::error_code& error) {
                                     --state->pending;
                                     std::unique_ptr<KwNetStream> stream = std::move(state->next);
                                     if (error || state->closed) {
                                         stream.reset();
                                         state->owner->OnAccepted(state->closed ? Aborted() : error, nullptr);
                                     } else {
                                         stream->Prepare();
                                         state->owner->OnAccepted(error, std::move(stream));
                                     }
                                 }));
}

void KwNetListener::Close() {
    state_->closed = true;
    std::error_code ignored;
    state_->acceptor.close(ignored);
}

int KwNetListener::GetPending() const {
    return state_->pending;
}
