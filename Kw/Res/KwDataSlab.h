// KwDataSlab: storage for the many small parts of a document: map nodes, short texts, nested documents.
//
// While a loader runs it opens a scope, and what its thread takes meanwhile is cut from a few large
// blocks. Each block counts its live parts and goes back to the tracked allocator with the last of them,
// so clearing and loading again does not grow. Outside a scope each part is a block of its own.
// A part knows its block, so it can be given back in any order, in or out of a scope, from any thread.
// Thread-safety: Take, Give and scopes from any thread; a scope belongs to the thread that opened it.
#pragma once

#include <cstddef>
#include <new>

#include "Kw/KwDefine.h"

class KwDataSlab {
public:
    // Cuts parts from slabs until the scope ends. `expected` is a guess of the bytes that will be taken, which
    // bounds what a slab wastes. Scopes of one thread nest.
    class Scope {
    public:
        explicit Scope(std::size_t expected);
        ~Scope();
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

        // The slab that parts are being cut from, and how many have been.
        const void* GetSlab() const { return slab_; }
        unsigned int GetTaken() const { return taken_; }

    private:
        friend class KwDataSlab;
        void* Cut(std::size_t bytes);
        bool Refill(std::size_t whole);
        void KeepToLargePages(std::size_t largePage, std::size_t whole);
        void Close();

        Scope* outer_;
        void* slab_ = nullptr;  // the block that is being cut, from next_ to end_
        unsigned char* next_ = nullptr;
        unsigned char* end_ = nullptr;
        unsigned int taken_ = 0;  // parts cut from it
        std::size_t slabSize_;    // bytes of the block after it
    };

    // While it lives, the parts that its thread gives back are counted and taken off their slabs' counts together.
    // Of scopes of one thread in each other the outermost counts.
    class GiveScope {
    public:
        GiveScope();
        ~GiveScope();
        GiveScope(const GiveScope&) = delete;
        GiveScope& operator=(const GiveScope&) = delete;

    private:
        bool outermost_;
    };

    // `bytes` bytes aligned for a pointer or double, not initialised; null when memory is out.
    static void* Take(std::size_t bytes);
    // The same, but null also when no scope is open: for parts that are otherwise allocated in another way.
    static void* TakeInScope(std::size_t bytes);
    // Gives back what either of them returned.
    static void Give(void* part) { Give(part, 1); }
    // Gives back `count` parts of one slab, of which `part` is one.
    static void Give(void* part, unsigned int count);
};

// The allocator of the maps of documents and tables. Without memory it throws std::bad_alloc, as the
// standard containers do.
template <typename T>
class KwDataAllocator {
public:
    using value_type = T;

    KwDataAllocator() = default;
    template <typename U>
    KwDataAllocator(const KwDataAllocator<U>&) {}

    T* allocate(std::size_t count) {
        void* part = KwDataSlab::Take(count * sizeof(T));
        if (part == nullptr) throw std::bad_alloc();
        return static_cast<T*>(part);
    }
    void deallocate(T* part, std::size_t) { KwDataSlab::Give(part); }

    friend bool operator==(const KwDataAllocator&, const KwDataAllocator&) { return true; }
};
