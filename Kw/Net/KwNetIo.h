// KwNetIo: what the socket layer needs of the system's network, with no type of the library beneath. Internal.
//
// Everything of one KwNetIo is called, and calls back, on the one thread that runs it; Post and Wake come from any.
// An operation under way is answered exactly once, after a Close too, and its object must live until then.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <system_error>

class KwNetIo {
public:
    KwNetIo();
    ~KwNetIo();
    KwNetIo(const KwNetIo&) = delete;
    KwNetIo& operator=(const KwNetIo&) = delete;

    // Runs all that is ready; with nothing ready waits up to `waitMs` for the first.
    void Run(unsigned int waitMs);
    void Post(std::function<void()> work);

    struct State;
    State& GetState() { return *state_; }

private:
    std::unique_ptr<State> state_;
};

// A TCP connection.
class KwNetStream {
public:
    class Owner {
    public:
        virtual void OnOpened(const std::error_code& error) = 0;
        virtual void OnRead(const std::error_code& error, std::size_t size) = 0;
        virtual void OnWritten(const std::error_code& error, std::size_t size) = 0;

    protected:
        ~Owner() = default;
    };

    explicit KwNetStream(KwNetIo& io);
    ~KwNetStream();
    KwNetStream(const KwNetStream&) = delete;
    KwNetStream& operator=(const KwNetStream&) = delete;

    void SetOwner(Owner* owner);
    // Begin an operation, one of a kind at a time. Connect tries every address of a name in turn.
    void Connect(const std::string& address, unsigned short port);
    void Read(void* to, std::size_t size);
    void Write(const void* data, std::size_t size);
    // Writes what the system takes at once; 0 without an error when it takes nothing.
    std::size_t TryWrite(const void* data, std::size_t size, std::error_code& error);
    // No more is sent; the peer reads to the end.
    void Shutdown();
    // With `reset` the peer hears of it as an error.
    void Close(bool reset);
    bool IsOpen() const;
    // Operations that have not been answered.
    int GetPending() const;
    // Empty and 0 without a connection.
    void GetPeer(std::string& address, unsigned short& port) const;
    unsigned short GetLocalPort() const;

    struct State;
    State& GetState() { return *state_; }
    // After an accept.
    void Prepare();

private:
    std::unique_ptr<State> state_;
};

// Whether an error is how streams end in order.
bool KwNetIsEnd(const std::error_code& error);

// A listening socket.
class KwNetListener {
public:
    class Owner {
    public:
        // A stream made with the KwNetIo that will run it.
        virtual std::unique_ptr<KwNetStream> MakeStream() = 0;
        // Null with an error.
        virtual void OnAccepted(const std::error_code& error, std::unique_ptr<KwNetStream> stream) = 0;

    protected:
        ~Owner() = default;
    };

    KwNetListener(KwNetIo& io, Owner* owner);
    ~KwNetListener();
    KwNetListener(const KwNetListener&) = delete;
    KwNetListener& operator=(const KwNetListener&) = delete;

    // From any thread while nothing is under way.
    bool Open(const std::string& address, unsigned short port, int backlog, std::error_code& error);
    unsigned short GetPort() const;
    void Accept();
    void Close();
    int GetPending() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};
