/// The result blobs alive in this process: each block's size and how many records
/// (Result, MultiResult::ResultItem) hold it.
///
/// Records take a blob by pointer and a length that anyone may overwrite, and the engine
/// moves blobs between records by copying the pointer. The table lets a reader stop at
/// the end of the block whatever a length field says, and lets a block that two records
/// hold (the engine's hand-over, a pointer set from Java into a second record) be freed
/// once, by the last holder. Blocks the table has never seen are taken at their word.
/// Thread-safe.
#pragma once

namespace VQFeature::blobs {

/// A record takes the block: a block the table knows gets one more holder and keeps its
/// recorded size; a new one is recorded with bytes and one holder. Null does nothing.
void hold(void* block, unsigned long bytes);

/// Adds a holder to a live block of the table and answers true; answers false, and
/// does nothing, for a block the table does not hold (never seen, or freed since). One
/// step, so that no other thread can free the block between the check and the hold.
bool holdIfLive(void* block);

/// A holder lets go: the last one frees the block. A block the table does not know is
/// freed (its single owner let go).
void release(void* block);

/// A holder lets go without freeing: the last one leaves the block to whoever took the
/// pointer (it is no longer in the table).
void forget(void* block);

/// Whether block is a live block of the table.
bool isHeld(const void* block);

/// How many bytes of block a reader may read when its record claims claimed: claimed,
/// cut at the block's end when the table knows the block.
unsigned long readable(const void* block, unsigned long claimed);

/// The block's recorded size, or fallback for a block the table does not know.
unsigned long sizeOr(const void* block, unsigned long fallback);

}  // namespace VQFeature::blobs
