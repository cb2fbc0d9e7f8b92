#include "Platform/CVThreadHeap.h"

#include <algorithm>
#include <cstdlib>
#include <vector>

namespace CVThreadHeap {

void growAhead(std::size_t bytes)
{
    // Pieces below the size glibc maps on their own come from the heap's top, growing it by a
    // piece at a time; freed together, they leave the heap's top free and its permission set.
    constexpr std::size_t piece = 120 * 1024;
    constexpr std::size_t heapLimit = 60u * 1024 * 1024; // stays within the thread's first heap
    std::vector<void *> pieces;
    pieces.reserve(std::min(bytes, heapLimit) / piece + 1);
    for (std::size_t taken = 0; taken < std::min(bytes, heapLimit); taken += piece) {
        void *p = std::malloc(piece);
        if (!p)
            break;
        pieces.push_back(p);
    }
    for (void *p : pieces)
        std::free(p);
}

} // namespace CVThreadHeap
