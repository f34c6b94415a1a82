// KwNetAsio: the states behind KwNetIo, for the sources that see Asio. Internal.
#pragma once

#include <array>
#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/ip/udp.hpp>

#include "Kw/Net/KwNetIo.h"

struct KwNetIo::State {
    asio::io_context context{1};
    asio::executor_work_guard<asio::io_context::executor_type> work{context.get_executor()};
};

// Memory for the one handler of a kind that is under way, so that no operation allocates.
class KwNetHandlerMemory {
public:
    void* Take(std::size_t size) {
        if (taken_ || size > sizeof(bytes_)) return ::operator new(size);
        taken_ = true;
        return bytes_;
    }
    void Give(void* block) {
        if (block == bytes_) {
            taken_ = false;
        } else {
            ::operator delete(block);
        }
    }

private:
    alignas(std::max_align_t) unsigned char bytes_[256];
    bool taken_ = false;
};

template <class T>
struct KwNetHandlerAllocator {
    using value_type = T;
    explicit KwNetHandlerAllocator(KwNetHandlerMemory* from) : memory(from) {}
    template <class Other>
    KwNetHandlerAllocator(const KwNetHandlerAllocator<Other>& other) : memory(other.memory) {}
    T* allocate(std::size_t count) { return static_cast<T*>(memory->Take(sizeof(T) * count)); }
    void deallocate(T* block, std::size_t) { memory->Give(block); }
    bool operator==(const KwNetHandlerAllocator& other) const { return memory == other.memory; }
    bool operator!=(const KwNetHandlerAllocator& other) const { return memory != other.memory; }

    KwNetHandlerMemory* memory;
};

template <>
struct KwNetHandlerAllocator<void> {
    using value_type = void;
    explicit KwNetHandlerAllocator(KwNetHandlerMemory* from) : memory(from) {}
    template <class Other>
    KwNetHandlerAllocator(const KwNetHandlerAllocator<Other>& other) : memory(other.memory) {}
    bool operator==(const KwNetHandlerAllocator& other) const { return memory == other.memory; }
    bool operator!=(const KwNetHandlerAllocator& other) const { return memory != other.memory; }

    KwNetHandlerMemory* memory;
};

// A handler that takes its memory from the object whose operation it ends.
template <class Call>
struct KwNetHandler {
    using allocator_type = KwNetHandlerAllocator<void>;
    allocator_type get_allocator() const { return allocator_type(memory); }
    template <class... Args>
    void operator()(Args&&... args) {
        call(std::forward<Args>(args)...);
    }

    KwNetHandlerMemory* memory;
    Call call;
};
template <class Call>
KwNetHandler<Call> KwNetHandle(KwNetHandlerMemory& memory, Call call) {
    return {&memory, std::move(call)};
}
