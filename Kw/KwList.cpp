#include "Kw/KwList.h"

namespace {

// Moves `node` to stand next to `position`. Nothing for a null node or a position outside any list.
void Link(SKwNode* position, SKwNode* node, bool after) {
    if (node == nullptr || position->owner == nullptr || node == position) return;
    Kw_Unlink(node);
    if (after) {
        Kw_LinkAfter(position, node);
    } else {
        Kw_LinkBefore(position, node);
    }
}

}  // namespace

KwNode::~KwNode() {
    Kw_Unlink(this);
}

SKwNode* KwNode::ResetNode() {
    static_cast<SKwNode&>(*this) = SKwNode();
    return this;
}

SKwList* KwNode::RemoveNode() {
    return Kw_Unlink(this);
}
void KwNode::InsertBefore(KwNode* node) {
    Link(this, node, false);
}
void KwNode::InsertAfter(KwNode* node) {
    Link(this, node, true);
}

KwList::~KwList() = default;

void KwList::Clear() {
    while (RemoveHead() != nullptr) {
    }
}

SKwNode* KwList::InitList() {
    Reset();
    return &tail;
}

void KwList::AddHead(KwNode* node) {
    Link(&head, node, true);
}
void KwList::AddTail(KwNode* node) {
    Link(&tail, node, false);
}

KwNode* KwList::RemoveHead() {
    SKwNode* node = head.next;
    // A sentinel, or a node that was unlinked behind the back of a copied list, leads no further.
    if (node == nullptr || node->next == nullptr) return nullptr;
    Kw_Unlink(node);
    return static_cast<KwNode*>(node);
}

KwNode* KwList::RemoveTail() {
    SKwNode* node = tail.prev;
    if (node == nullptr || node->prev == nullptr) return nullptr;
    Kw_Unlink(node);
    return static_cast<KwNode*>(node);
}
