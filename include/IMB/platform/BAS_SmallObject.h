// BAS_SmallObject: class-level allocation from a pool of small blocks.
//
// A class derives from BAS_SmallObject<Threaded, ChunkSize, Align, MaxSize>
// to have its `new` and `delete` served by a process-wide pool: objects of at
// most MaxSize bytes come from chunks of ChunkSize blocks of their size class;
// larger ones go to the global allocator. The pool is thread-safe.
#pragma once

#include <IMB/IMB_API.h>

#include <cstddef>
#include <new>

// The pool behind BAS_SmallObject. Blocks are grouped in size classes of
// `align` bytes; `chunk` blocks are carved from one allocation at a time.
IMB_API void *BASsmallObjectAlloc(std::size_t size, std::size_t chunk, std::size_t align, std::size_t maxSize);
IMB_API void BASsmallObjectFree(void *ptr, std::size_t size, std::size_t align, std::size_t maxSize);

template <int Threaded, int ChunkSize, int Align, int MaxSize> class BAS_SmallObject
{
public:
    static void *operator new(std::size_t size)
    {
        return BASsmallObjectAlloc(size, ChunkSize, Align < 1 ? 1 : Align, MaxSize);
    }
    static void operator delete(void *ptr, std::size_t size)
    {
        BASsmallObjectFree(ptr, size, Align < 1 ? 1 : Align, MaxSize);
    }
    static void *operator new(std::size_t, void *where) noexcept { return where; }
    static void operator delete(void *, void *) noexcept {}
};
