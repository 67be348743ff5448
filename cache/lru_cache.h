// LRUCache: a bounded map from string key to value that forgets the least recently used
// entry when a new key would exceed the capacity.
//
// Entries are nodes of an intrusive doubly linked recency list (newest at head). Each node
// is one heap block holding the node and, right behind it, the key's characters: the key
// is stored once. The index is a flat open-addressing table of (hash, node) slots, linear
// probing, backward-shift deletion, at most three quarters full. A lookup reads one slot
// (its neighbours share the cache line) and the node; get, set, promotion and eviction
// are constant-time on average and need no allocation but the new node's.
// The cache owns its nodes: evicted and cleared nodes are deleted, which releases the
// cache's copy of the value (a shared value stays alive only while someone else holds it).
// Not synchronised: get() reorders the list, so even lookups need one thread at a time.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace VQFeature {

// One entry of the recency list. Created and destroyed by its LRUCache only.
template <typename K, typename V>
struct CacheNode {
    static_assert(std::is_same_v<K, std::string>, "keys are strings, stored inside their nodes");

    std::string_view key;         // the node's private copy of the key, stored behind it
    V value;
    CacheNode* prev = nullptr;    // the next more recently used entry; null at head
    CacheNode* next = nullptr;    // the next less recently used entry; null at tail
};

template <typename K, typename V>
class LRUCache {
public:
    using Node = CacheNode<K, V>;

    // A negative capacity never evicts (compared as a huge unsigned count).
    // Throws std::invalid_argument for 0: such a cache could hold nothing.
    explicit LRUCache(int capacity) : capacity(capacity) {
        if (capacity == 0) {
            throw std::invalid_argument("LRUCache capacity must not be 0");
        }
    }
    LRUCache(const LRUCache&) = delete;
    LRUCache& operator=(const LRUCache&) = delete;
    ~LRUCache() { clear(); }

    // The value stored under key, promoted to most recent; an empty V on a miss.
    V get(std::string_view key) {
        const size_t slot = find(key, hashOf(key));
        if (slot == kNone) {
            return V();
        }
        Node* node = index[slot].node;
        promote(node);
        return node->value;
    }

    // Stores value under key as the most recent entry. Replacing an existing key never
    // evicts; a new key evicts the least recent entry first when the cache is full.
    void set(std::string_view key, const V& value) {
        const size_t hash = hashOf(key);
        const size_t slot = find(key, hash);
        if (slot != kNone) {
            Node* node = index[slot].node;
            node->value = value;
            promote(node);
            return;
        }
        Node* node = makeNode(key, value);
        if (count >= static_cast<size_t>(static_cast<int64_t>(capacity)) && tail != nullptr) {
            Node* evicted = tail;
            unlink(evicted);
            erase(find(evicted->key, hashOf(evicted->key)));
            destroyNode(evicted);
        }
        linkAtHead(node);
        insert(hash, node);
    }

    // Forgets every entry; the index keeps its size for the entries to come.
    void clear() {
        for (Node* node = head; node != nullptr;) {
            Node* next = node->next;
            destroyNode(node);
            node = next;
        }
        std::fill(index.begin(), index.end(), Slot{});
        count = 0;
        head = nullptr;
        tail = nullptr;
    }

    size_t size() const { return count; }
    // Most recent entry, or null when empty.
    const Node* newest() const { return head; }
    // Least recent entry, or null when empty.
    const Node* oldest() const { return tail; }

private:
    struct Slot {
        size_t hash = 0;
        Node* node = nullptr;  // null: the slot is free
    };
    static constexpr size_t kNone = SIZE_MAX;
    static constexpr size_t kMinSlots = 16;

    static size_t hashOf(std::string_view key) { return std::hash<std::string_view>()(key); }

    // One block: the node, then the key's characters (operator new's alignment suits the
    // node; the characters need none).
    static Node* makeNode(std::string_view key, const V& value) {
        void* block = ::operator new(sizeof(Node) + key.size());
        char* chars = static_cast<char*>(block) + sizeof(Node);
        if (!key.empty()) {
            std::memcpy(chars, key.data(), key.size());
        }
        try {
            return new (block) Node{std::string_view(chars, key.size()), value};
        } catch (...) {
            ::operator delete(block);
            throw;
        }
    }

    static void destroyNode(Node* node) {
        node->~Node();
        ::operator delete(static_cast<void*>(node));
    }

    // The slot holding key, or kNone.
    size_t find(std::string_view key, size_t hash) const {
        if (index.empty()) {
            return kNone;
        }
        const size_t mask = index.size() - 1;
        for (size_t i = hash & mask;; i = (i + 1) & mask) {
            const Slot& slot = index[i];
            if (slot.node == nullptr) {
                return kNone;
            }
            if (slot.hash == hash && slot.node->key == key) {
                return i;
            }
        }
    }

    void insert(size_t hash, Node* node) {
        if ((count + 1) * 4 > index.size() * 3) {
            grow();
        }
        place(hash, node);
        ++count;
    }

    // Into the first free slot from the key's home slot on.
    void place(size_t hash, Node* node) {
        const size_t mask = index.size() - 1;
        size_t i = hash & mask;
        while (index[i].node != nullptr) {
            i = (i + 1) & mask;
        }
        index[i] = Slot{hash, node};
    }

    void grow() {
        std::vector<Slot> old(index.empty() ? kMinSlots : index.size() * 2);
        old.swap(index);
        for (const Slot& slot : old) {
            if (slot.node != nullptr) {
                place(slot.hash, slot.node);
            }
        }
    }

    // Frees the slot and moves later slots of the same probe run back into the gap, so
    // that every key stays reachable from its home slot without tombstones.
    void erase(size_t hole) {
        const size_t mask = index.size() - 1;
        for (size_t i = (hole + 1) & mask; index[i].node != nullptr; i = (i + 1) & mask) {
            const size_t home = index[i].hash & mask;
            // The entry may move to the hole when its home is not cyclically in (hole, i].
            const bool homeAfterHole = hole <= i ? (home > hole && home <= i) : (home > hole || home <= i);
            if (!homeAfterHole) {
                index[hole] = index[i];
                hole = i;
            }
        }
        index[hole] = Slot{};
        --count;
    }

    void unlink(Node* node) {
        if (node->prev != nullptr) {
            node->prev->next = node->next;
        } else {
            head = node->next;
        }
        if (node->next != nullptr) {
            node->next->prev = node->prev;
        } else {
            tail = node->prev;
        }
        node->prev = nullptr;
        node->next = nullptr;
    }

    void linkAtHead(Node* node) {
        node->prev = nullptr;
        node->next = head;
        if (head != nullptr) {
            head->prev = node;
        }
        head = node;
        if (tail == nullptr) {
            tail = node;
        }
    }

    void promote(Node* node) {
        if (node == head) {
            return;
        }
        unlink(node);
        linkAtHead(node);
    }

    int capacity;
    Node* head = nullptr;
    Node* tail = nullptr;
    std::vector<Slot> index;  // size 0 or a power of two
    size_t count = 0;
};

}  // namespace VQFeature
