// KwLink: the plain structures of the intrusive doubly linked list, and how they are joined.
//
// A list is two sentinels and a count; a node carries its list and its two neighbours. Hosts
// may walk a list directly: from `head.next` along `next` until `&list.tail`.
// Thread-safety: none; whoever shares a list locks around every use of it.
#pragma once

#include "Kw/KwDefine.h"

struct SKwList;

struct SKwNode {
    SKwList* owner = nullptr;  // the list this node is linked into; null when detached
    SKwNode* next = nullptr;   // the tail sentinel behind the last node
    SKwNode* prev = nullptr;   // the head sentinel before the first node
};

struct SKwList {
    SKwNode head;
    SKwNode tail;
    int count = 0;  // linked nodes, sentinels not counted

    SKwList() noexcept { Reset(); }
    SKwList(const SKwList&) = default;
    SKwList& operator=(const SKwList&) = default;

    // The empty state; nodes that were linked are not touched.
    void Reset() noexcept {
        head = {this, &tail, nullptr};
        tail = {this, nullptr, &head};
        count = 0;
    }
};

// Joins the neighbours of `node`, lowers its owner's count and clears its links.
// Returns the former owner, null when the node was detached.
inline SKwList* Kw_Unlink(SKwNode* node) noexcept {
    SKwList* owner = node->owner;
    if (node->next != nullptr) node->next->prev = node->prev;
    if (node->prev != nullptr) node->prev->next = node->next;
    if (owner != nullptr) --owner->count;
    *node = SKwNode();
    return owner;
}

// Links the detached `node` right behind `position`, which is linked or a head sentinel.
inline void Kw_LinkAfter(SKwNode* position, SKwNode* node) noexcept {
    node->owner = position->owner;
    node->prev = position;
    node->next = position->next;
    position->next->prev = node;
    position->next = node;
    ++node->owner->count;
}

// Links the detached `node` right before `position`, which is linked or a tail sentinel.
inline void Kw_LinkBefore(SKwNode* position, SKwNode* node) noexcept {
    Kw_LinkAfter(position->prev, node);
}
