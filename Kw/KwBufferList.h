// KwBufferList: a pool of byte buffers of one size, and KwBufferNode, the buffer that sits in it.
//
// PopFree hands a buffer out with two references: the pool's and the user's. The user's single Release
// brings it back; further references that the user took are given up first. The pool keeps at most
// 1024 idle buffers, what comes back beyond that is freed.
// Thread-safety: every operation takes the pool's lock; a buffer belongs to one user at a time. Lock
// order: the list's, then a node's. A buffer may outlive its pool, also on another thread.
#pragma once

#include "Kw/KwBuffer.h"
#include "Kw/KwList.h"

class KwBufferList;

// Made by `new` or by a pool; its KwBuffer view is what callers hold.
class KW_API KwBufferNode : public KwNode, public KwBuffer {
public:
    KW_TRACKED_NEW

    KwBufferNode() = default;
    KwBufferNode(const KwBufferNode&) = delete;
    KwBufferNode& operator=(const KwBufferNode&) = delete;

    // Gives a reference back. The one that finds two references returns the node to its pool; when the
    // pool is full or gone, the node is destroyed.
    int Release() override;

private:
    friend class KwBufferList;
    friend class KwBufferTrunk;
    KwBufferList* owner_ = nullptr;  // the pool that handed the node out; null while it is not out
    void* life_ = nullptr;           // tells whether owner_ is still alive; see KwBufferList::Life
    bool holdsList_ = false;         // whether this node holds a reference to its pool
};

class KW_API KwBufferList : public KwInfLock {
public:
    KwBufferList();
    KwBufferList(const KwBufferList&) = delete;
    KwBufferList& operator=(const KwBufferList&) = delete;
    // Releases the buffers of both lists. Buffers still out are destroyed by their last Release.
    ~KwBufferList() override;

    // Drops both lists and sets the capacity in bytes of every buffer made from now on.
    // 0: the pool makes none and only hands out what came back to it.
    void Init(unsigned int size);

    // The next idle buffer, empty, or a new one. Null when the capacity is 0 and none is idle, or memory
    // is out (one line is logged). Adds a reference to this list, which the node's return gives back; with more
    // than 32,766 buffers out the rest go without.
    KwBufferNode* PopFree();

    // The queue of buffers in use, for the owner's own purposes. Null is ignored; PopUsed gives null
    // when it is empty.
    KwBufferNode* PopUsed();
    void PushUsedBack(KwBufferNode* node);
    void PushUsedFront(KwBufferNode* node);

    // About the queue of buffers in use (`used`), or the idle ones.
    bool Empty(bool used);
    int GetItemCount(bool used);

    // Takes every buffer out of both lists and gives the list's reference to it back.
    void Clear();

    unsigned int GetBufferSize() const { return bufferSize_; }  // bytes

private:
    friend class KwBufferNode;
    friend class KwBufferTrunk;
    struct Life;

    bool TakeBack(KwBufferNode* node);
    void ReleaseAll(KwList* list);

    unsigned int tag_ = 0;  // kTag while the list is alive
    KwList free_;           // idle, in the order in which they came back
    KwList used_;
    unsigned int bufferSize_ = 0;  // bytes
    int freeLimit_ = 1024;
    Life* life_ = nullptr;  // outlives the list for as long as one of its buffers is out
};
