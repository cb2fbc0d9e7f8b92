#pragma once

#include <cstddef>

// glibc grows the heap of a thread other than the main one a page at a time, with an mprotect
// for each page, and every mprotect holds the address space's lock against the page faults of
// all other threads. A thread about to take much memory in small pieces grows its heap once,
// ahead: later growth within that size needs no system call.
namespace CVThreadHeap {

// Grows this thread's heap by up to bytes (at most one heap of glibc's, 64 MB) and gives the
// memory back at once: the pages stay unused, only the permission to use them is kept.
void growAhead(std::size_t bytes);

} // namespace CVThreadHeap
