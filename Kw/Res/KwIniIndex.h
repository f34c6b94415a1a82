// KwIniIndex: the hash table beside a list of sections or members. Internal.
//
// A short list is walked; beyond kWalked nodes an open table is kept at most three quarters full. Without memory
// for a table the list is walked too, so that only speed depends on it.
// Thread-safety: as the file.
#pragma once

#include <cstring>

#include "Kw/Res/KwIniStore.h"

inline const char* KwIniName(const SIniSec& sec, int& len) {
    len = sec.nameLen;
    return sec.name;
}
inline const char* KwIniName(const SIniMem& mem, int& len) {
    len = mem.keyLen;
    return mem.key;
}

template <typename Node>
class KwIniIndex {
public:
    static Node* FromLink(SKwNode* node) { return static_cast<Node*>(static_cast<KwNode*>(node)); }

    static bool Matches(const Node& node, unsigned int hash, const char* name, int len) {
        int nodeLen;
        const char* nodeName = KwIniName(node, nodeLen);
        return node.hash == hash && nodeLen == len &&
               (len == 0 || std::memcmp(nodeName, name, static_cast<std::size_t>(len)) == 0);
    }

    static Node* Find(const KwIniTable& table, const SKwList& list, unsigned int hash, const char* name, int len) {
        if (table.slots == nullptr) {
            for (SKwNode* node = list.head.next; node != nullptr && node->next != nullptr; node = node->next) {
                if (Matches(*FromLink(node), hash, name, len)) return FromLink(node);
            }
            return nullptr;
        }
        for (unsigned int i = Home(table, hash); table.slots[i] != nullptr; i = Next(table, i)) {
            Node* node = static_cast<Node*>(table.slots[i]);
            if (Matches(*node, hash, name, len)) return node;
        }
        return nullptr;
    }

    // Takes in a node that was just linked into the list.
    static void Add(KwIniTable& table, SKwList& list, Node* node, KwIniStore& store) {
        if (table.slots == nullptr && list.count <= kWalked) return;
        if (table.slots != nullptr && (table.used + 1) * 4 <= table.capacity * 3) return Put(table, node);
        Rebuild(table, list, store);
    }

    static void Remove(KwIniTable& table, const Node* node) {
        if (table.slots == nullptr) return;
        unsigned int hole = Home(table, node->hash);
        while (table.slots[hole] != node) {
            if (table.slots[hole] == nullptr) return;
            hole = Next(table, hole);
        }
        // What stands behind the hole moves into it unless that lies before its home.
        for (unsigned int i = Next(table, hole); table.slots[i] != nullptr; i = Next(table, i)) {
            const unsigned int home = Home(table, static_cast<Node*>(table.slots[i])->hash);
            const unsigned int mask = table.capacity - 1;
            if (((i - home) & mask) < ((i - hole) & mask)) continue;
            table.slots[hole] = table.slots[i];
            hole = i;
        }
        table.slots[hole] = nullptr;
        --table.used;
    }

private:
    static constexpr int kWalked = 8;

    static unsigned int Home(const KwIniTable& table, unsigned int hash) { return hash & (table.capacity - 1); }
    static unsigned int Next(const KwIniTable& table, unsigned int i) { return (i + 1) & (table.capacity - 1); }

    static void Put(KwIniTable& table, Node* node) {
        unsigned int i = Home(table, node->hash);
        while (table.slots[i] != nullptr) i = Next(table, i);
        table.slots[i] = node;
        ++table.used;
    }

    static void Rebuild(KwIniTable& table, SKwList& list, KwIniStore& store) {
        KwIniStore::FreeTable(table);
        if (list.count >= 1 << 27) return;  // the table's bytes would not fit 32 bits
        unsigned int capacity = 4 * kWalked;
        while (capacity * 3 < static_cast<unsigned int>(list.count) * 4) capacity *= 2;
        table = store.NewTable(capacity);
        if (table.slots == nullptr) return;
        for (SKwNode* node = list.head.next; node->next != nullptr; node = node->next) Put(table, FromLink(node));
    }
};
