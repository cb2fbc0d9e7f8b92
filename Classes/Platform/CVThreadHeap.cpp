#include "Platform/CVThreadHeap.h"

#include <cstdint>
#include <cstdlib>
#include <vector>

#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define CV_SANITIZER_HEAP 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
#define CV_SANITIZER_HEAP 1
#endif
#endif

namespace CVThreadHeap {

bool isGlibcHeap()
{
#ifdef CV_SANITIZER_HEAP
    return false;
#else
    return true;
#endif
}

Reservation::~Reservation()
{
    std::free(m_kept);
}

Reservation growAhead(std::size_t bytes)
{
    // Pieces below the size glibc maps on their own come from the heap's top, growing it by a
    // piece at a time; freed together, they leave the space free and its permission set. The
    // last one is kept: it holds the last heap, and the freed pieces of the heaps below it stay
    // with the thread's arena for its next allocations.
    constexpr std::size_t piece = 120 * 1024;
    if (!isGlibcHeap())
        return {};
    std::vector<void *> pieces;
    pieces.reserve(bytes / piece + 1);
    for (std::size_t taken = 0; taken < bytes; taken += piece) {
        void *p = std::malloc(piece);
        if (!p)
            break;
        pieces.push_back(p);
    }
    if (pieces.empty())
        return {};
    void *kept = pieces.back();
    pieces.pop_back();
    for (void *p : pieces)
        std::free(p);
    // Each piece's header took a page; the freed pieces of one heap make one free block, whose
    // pages but its first and last (where the allocator keeps its records) are given back.
    const auto page = std::uintptr_t(sysconf(_SC_PAGESIZE));
    auto giveBack = [page](std::uintptr_t from, std::uintptr_t to) {
        from = (from + 2 * page - 1) / page * page;
        to = to > 2 * page ? (to - page) / page * page : 0;
        if (to > from)
            madvise(reinterpret_cast<void *>(from), to - from, MADV_DONTNEED);
    };
    std::uintptr_t runStart = 0, runEnd = 0;
    for (void *p : pieces) {
        const auto at = std::uintptr_t(p);
        if (runEnd == 0 || at < runEnd || at - runEnd > 64) {
            giveBack(runStart, runEnd);
            runStart = at;
        }
        runEnd = at + piece;
    }
    giveBack(runStart, runEnd);
    return Reservation(kept);
}

void giveBackFreePages()
{
    if (isGlibcHeap())
        malloc_trim(0);
}

} // namespace CVThreadHeap
