#include "extractor/blob_blocks.h"

#include <cstdlib>
#include <mutex>
#include <unordered_map>

namespace VQFeature::blobs {

namespace {

struct Block {
    unsigned long bytes;
    unsigned holders;
};

struct Table {
    std::mutex mutex;
    std::unordered_map<const void*, Block> blocks;
};

// Never destroyed: records held by static caches are released during exit.
Table& table() {
    static Table* const instance = new Table;
    return *instance;
}

// Drops one holder; true when the block had no other (it has left the table, or was
// never in it).
bool dropHolder(void* block) {
    Table& t = table();
    std::lock_guard<std::mutex> lock(t.mutex);
    auto found = t.blocks.find(block);
    if (found == t.blocks.end()) return true;
    if (--found->second.holders > 0) return false;
    t.blocks.erase(found);
    return true;
}

}  // namespace

void hold(void* block, unsigned long bytes) {
    if (block == nullptr) return;
    Table& t = table();
    std::lock_guard<std::mutex> lock(t.mutex);
    auto [entry, added] = t.blocks.try_emplace(block, Block{bytes, 1});
    if (!added) ++entry->second.holders;
}

bool holdIfLive(void* block) {
    Table& t = table();
    std::lock_guard<std::mutex> lock(t.mutex);
    auto found = t.blocks.find(block);
    if (found == t.blocks.end()) return false;
    ++found->second.holders;
    return true;
}

void release(void* block) {
    if (block != nullptr && dropHolder(block)) std::free(block);
}

void forget(void* block) {
    if (block != nullptr) dropHolder(block);
}

bool isHeld(const void* block) {
    Table& t = table();
    std::lock_guard<std::mutex> lock(t.mutex);
    return t.blocks.count(block) > 0;
}

unsigned long sizeOr(const void* block, unsigned long fallback) {
    Table& t = table();
    std::lock_guard<std::mutex> lock(t.mutex);
    auto found = t.blocks.find(block);
    return found == t.blocks.end() ? fallback : found->second.bytes;
}

unsigned long readable(const void* block, unsigned long claimed) {
    const unsigned long size = sizeOr(block, claimed);
    return claimed < size ? claimed : size;
}

}  // namespace VQFeature::blobs
