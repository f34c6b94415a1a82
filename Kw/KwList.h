// KwNode, KwList and KwListLock: the intrusive doubly linked list.
//
// A list never owns its nodes: it links what derives from KwNode and forgets it on removal. A node
// is in one list at most; linking it elsewhere moves it.
// Thread-safety: none. KwListLock carries a lock, which its users hold around every use.
#pragma once

#include "Kw/KwLink.h"
#include "Kw/KwLock.h"
#include "Kw/KwMemory.h"

class KW_API KwNode : public SKwNode {
public:
    KW_TRACKED_NEW

    KwNode() = default;
    // A copy is in no list, and an assignment leaves the links as they are: links belong to one object.
    KwNode(const KwNode&) : SKwNode() {}
    KwNode& operator=(const KwNode&) { return *this; }
    // Unlinks the node.
    virtual ~KwNode();

    // Clears the three links without touching a neighbour or a count; returns the structure.
    virtual SKwNode* ResetNode();
    // Unlinks the node; returns the list it was in, null when detached.
    virtual SKwList* RemoveNode();
    // Links `node` in front of or behind this one, moving it from wherever it is. Nothing when `node`
    // is null or this node is detached.
    virtual void InsertBefore(KwNode* node);
    virtual void InsertAfter(KwNode* node);
};

class KW_API KwList : public SKwList {
public:
    KW_TRACKED_NEW

    KwList() = default;
    // Memberwise: the nodes stay in the source, whose sentinels the copy's links lead to. Of use only to carry an
    // object that holds a list; InitList makes the copy a list of its own.
    KwList(const KwList&) = default;
    KwList& operator=(const KwList&) = default;
    // Leaves the nodes alone: a list that owns its nodes empties itself first.
    virtual ~KwList();

    // Unlinks every node from the front; none is freed.
    virtual void Clear();
    // Makes the list empty without touching the nodes; returns the tail sentinel.
    virtual SKwNode* InitList();
    virtual void AddHead(KwNode* node);
    virtual void AddTail(KwNode* node);
    // Unlinks and returns the first or last node; null when empty.
    virtual KwNode* RemoveHead();
    virtual KwNode* RemoveTail();
};

class KW_API KwListLock : public KwList, public KwLock {};
