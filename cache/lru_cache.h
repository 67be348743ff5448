// LRUCache: a bounded map from key to value that forgets the least recently used entry
// when a new key would exceed the capacity.
//
// A hash index points at the nodes of an intrusive doubly linked recency list (newest at
// head), so get, set, promotion and eviction are constant-time on average. The cache owns
// its nodes: evicted and cleared nodes are deleted, which releases the cache's copy of the
// value (a shared value stays alive only while someone else holds it).
// Not synchronised: get() reorders the list, so even lookups need one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <unordered_map>
#include <utility>

namespace VQFeature {

// One entry of the recency list.
template <typename K, typename V>
class CacheNode {
public:
    CacheNode(K key, const V& value) : key(std::move(key)), value(value) {}

    K key;                        // private copy of the index key
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
    V get(const K& key) {
        auto found = index.find(IndexKey(key));
        if (found == index.end()) {
            return V();
        }
        promote(found->second);
        return found->second->value;
    }

    // Stores value under key as the most recent entry. Replacing an existing key never
    // evicts; a new key evicts the least recent entry first when the cache is full.
    void set(K key, const V& value) {
        auto found = index.find(IndexKey(key));
        if (found != index.end()) {
            found->second->value = value;
            promote(found->second);
            return;
        }
        Node* node = new Node(std::move(key), value);
        if (index.size() >= static_cast<size_t>(static_cast<int64_t>(capacity)) && tail != nullptr) {
            Node* evicted = tail;
            unlink(evicted);
            index.erase(IndexKey(evicted->key));
            delete evicted;
        }
        linkAtHead(node);
        index.emplace(IndexKey(node->key), node);
    }

    // Forgets every entry.
    void clear() {
        for (auto& entry : index) {
            delete entry.second;
        }
        index.clear();
        head = nullptr;
        tail = nullptr;
    }

    size_t size() const { return index.size(); }
    // Most recent entry, or null when empty.
    const Node* newest() const { return head; }
    // Least recent entry, or null when empty.
    const Node* oldest() const { return tail; }

private:
    // String keys are indexed by a view of the node's own copy, so each key is stored
    // once and a lookup needs no copy of it. Nodes never move, so the views stay valid
    // while their node is indexed.
    using IndexKey = std::conditional_t<std::is_same_v<K, std::string>, std::string_view, K>;

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
        unlink(node);
        linkAtHead(node);
    }

    int capacity;
    Node* head = nullptr;
    Node* tail = nullptr;
    std::unordered_map<IndexKey, Node*> index;
};

}  // namespace VQFeature
