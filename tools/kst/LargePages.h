// Asks the kernel to back malloc's heap with large pages.

#pragma once

namespace kst {

// A log's records are a million small blocks from malloc's heap, and with 4 KB pages the kernel
// takes a fault for every 4 KB of them: a fifth of a big load. This grows the heap once by a
// reach sized to the machine and advises large pages over it; the heap is kept at least that
// big while kst runs. Advice only: where the allocator or the kernel says no, nothing changes.
void adviseLargePagesForHeap();

}  // namespace kst
