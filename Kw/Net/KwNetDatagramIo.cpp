#include "Kw/Net/KwNetDatagramIo.h"

#include <algorithm>
#include <asio/ip/v6_only.hpp>
#include <cstring>

#include "Kw/Net/KwNetAsio.h"

namespace {

SNetAddress FromEndpoint(const asio::ip::udp::endpoint& endpoint) {
    SNetAddress address;
    address.port = endpoint.port();
    asio::ip::address from = endpoint.address();
    // An IPv4 peer of a socket for both families.
    if (from.is_v6() && from.to_v6().is_v4_mapped())
        from = asio::ip::make_address_v4(asio::ip::v4_mapped, from.to_v6());
    address.isV6 = from.is_v6();
    if (address.isV6) {
        const auto bytes = from.to_v6().to_bytes();
        std::copy(bytes.begin(), bytes.end(), address.bytes);
        address.scope = static_cast<unsigned int>(from.to_v6().scope_id());
    } else {
        const auto bytes = from.to_v4().to_bytes();
        std::copy(bytes.begin(), bytes.end(), address.bytes);
    }
    return address;
}

asio::ip::udp::endpoint ToEndpoint(const SNetAddress& address, bool socketIsV6) {
    asio::ip::address_v6::bytes_type bytes6{};
    asio::ip::address_v4::bytes_type bytes4{};
    std::copy(address.bytes, address.bytes + 16, bytes6.begin());
    std::copy(address.bytes, address.bytes + 4, bytes4.begin());
    if (address.isV6) return {asio::ip::address_v6(bytes6, address.scope), address.port};
    const asio::ip::address_v4 v4(bytes4);
    if (socketIsV6) return {asio::ip::make_address_v6(asio::ip::v4_mapped, v4), address.port};
    return {v4, address.port};
}

}  // namespace

bool SNetAddress::Set(const std::string& address, unsigned short toPort) {
    std::error_code error;
    const asio::ip::address read = asio::ip::make_address(address, error);
    if (error) return false;
    *this = FromEndpoint({read, toPort});
    return true;
}

std::string SNetAddress::GetText() const {
    return ToEndpoint(*this, false).address().to_string();
}

struct KwNetDatagramIo::State {
    State(KwNetIo& io, Owner* to) : socket(io.GetState().context), owner(to) {}

    asio::ip::udp::socket socket;
    Owner* owner;
    asio::ip::udp::endpoint from;
    int pending = 0;
    bool closed = false;
    bool isV6 = false;
    unsigned short port = 0;
    KwNetHandlerMemory memory;
};

KwNetDatagramIo::KwNetDatagramIo(KwNetIo& io, Owner* owner) : state_(new State(io, owner)) {}
KwNetDatagramIo::~KwNetDatagramIo() = default;

bool KwNetDatagramIo::Open(const SNetDatagramSettings& settings, std::error_code& error) {
    const asio::ip::udp::endpoint endpoint(asio::ip::make_address(settings.address, error), settings.port);
    if (error) return false;
    asio::ip::udp::socket& socket = state_->socket;
    std::error_code ignored;
    state_->isV6 = endpoint.address().is_v6();
    socket.open(endpoint.protocol(), error);
    if (error) return false;
    if (state_->isV6 && endpoint.address().is_unspecified()) socket.set_option(asio::ip::v6_only(false), ignored);
    socket.set_option(asio::socket_base::receive_buffer_size(static_cast<int>(settings.receiveBytes)), ignored);
    socket.bind(endpoint, error);
    if (!error) socket.non_blocking(true, error);
    if (error) {
        socket.close(ignored);
        return false;
    }
    state_->port = socket.local_endpoint(ignored).port();
    return true;
}

unsigned short KwNetDatagramIo::GetPort() const {
    return state_->port;
}

void KwNetDatagramIo::Receive(void* to, std::size_t size) {
    State* const state = state_.get();
    ++state->pending;
    state->socket.async_receive_from(
        asio::buffer(to, size), state->from,
        KwNetHandle(state->memory, [state](const std::error_code& error, std::size_t got) {
            --state->pending;
            state->owner->OnReceived(state->closed ? std::error_code(asio::error::operation_aborted) : error, got);
        }));
}

bool KwNetDatagramIo::TryReceive(void* to, std::size_t size, std::size_t& got, std::error_code& error) {
    got = state_->socket.receive_from(asio::buffer(to, size), state_->from, 0, error);
    if (!error) return true;
    if (error == asio::error::would_block || error == asio::error::try_again) error.clear();
    return false;
}

SNetAddress KwNetDatagramIo::GetFrom() const {
    return FromEndpoint(state_->from);
}

bool KwNetDatagramIo::TrySend(const SNetAddress& to, const void* data, std::size_t size, bool& isFull,
                              std::error_code& error) {
    state_->socket.send_to(asio::buffer(data, size), ToEndpoint(to, state_->isV6), 0, error);
    isFull =
        error == asio::error::would_block || error == asio::error::try_again || error == asio::error::no_buffer_space;
    return !error;
}

void KwNetDatagramIo::Close() {
    state_->closed = true;
    std::error_code ignored;
    state_->socket.close(ignored);
}

int KwNetDatagramIo::GetPending() const {
    return state_->pending;
}
