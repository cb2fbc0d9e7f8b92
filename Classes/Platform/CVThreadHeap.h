#pragma once

#include <cstddef>
#include <utility>

// glibc grows the heap of a thread other than the main one a page at a time, with an mprotect
// for each page, and every mprotect takes the address space's lock for writing, which the page
// faults of all other threads may have to wait for. A thread about to take much memory in small
// pieces grows its heap once, ahead: later growth within that size needs no system call.
namespace CVThreadHeap {

// Keeps the heaps grown ahead (glibc's heaps are 64 MB each): a heap emptied while no piece of
// it is in use would be given back whole, so the last piece stays taken until this ends.
class Reservation {
public:
    Reservation() = default;
    explicit Reservation(void *kept)
        : m_kept(kept)
    {
    }
    Reservation(Reservation &&other) noexcept
        : m_kept(other.m_kept)
    {
        other.m_kept = nullptr;
    }
    Reservation(const Reservation &) = delete;
    Reservation &operator=(const Reservation &) = delete;
    Reservation &operator=(Reservation &&other) noexcept
    {
        std::swap(m_kept, other.m_kept);
        return *this;
    }
    ~Reservation();

private:
    void *m_kept = nullptr;
};

// Whether the heaps are glibc's own: under a sanitizer's allocator there is nothing to grow.
bool isGlibcHeap();

// Grows this thread's heaps by about bytes and gives the memory back at once: its pages stay
// untouched (but for a header every 120 kB), only the permission to use them is kept.
[[nodiscard]] Reservation growAhead(std::size_t bytes);

// Gives the pages of all freed memory back to the system, also those below a heap's top, which
// glibc keeps: after heaps grown ahead, what a load freed on its way lies there.
void giveBackFreePages();

} // namespace CVThreadHeap
