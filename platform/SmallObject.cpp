#include <IMB/platform/BAS_SmallObject.h>

#include <cstdint>
#include <mutex>
#include <new>

namespace
{
// Blocks are handed out in multiples of this, so every block of a chunk is
// aligned for any fundamental type (chunks themselves are aligned to it).
constexpr std::size_t theGranule = 16;
// Size classes kept in the pool; larger objects always use the global
// allocator whatever MaxSize says.
constexpr std::size_t theLargestPooled = 4096;
constexpr std::size_t theClassCount = theLargestPooled / theGranule;

struct FreeBlock
{
    FreeBlock *next;
};

// One size class: a free list fed by chunks of `chunk` blocks. Chunks are
// never returned to the system; freed blocks go back on the list.
struct SizeClass
{
    std::mutex lock;
    FreeBlock *freeList = nullptr;
};

SizeClass *sizeClasses()
{
    // Never destroyed: objects with static storage may be deleted during
    // process exit, after this file's destructors would have run.
    static SizeClass *theClasses = new SizeClass[theClassCount];
    return theClasses;
}

std::size_t roundUp(std::size_t n, std::size_t to) { return (n + to - 1) / to * to; }

// Block size for a request, or 0 when it goes to the global allocator.
std::size_t blockSize(std::size_t size, std::size_t align, std::size_t maxSize)
{
    if (size == 0)
        size = 1;
    if (size > maxSize)
        return 0;
    std::size_t block = roundUp(roundUp(size, align ? align : 1), theGranule);
    return block <= theLargestPooled ? block : 0;
}
} // namespace

void *BASsmallObjectAlloc(std::size_t size, std::size_t chunk, std::size_t align, std::size_t maxSize)
{
    std::size_t block = blockSize(size, align, maxSize);
    if (block == 0)
        return ::operator new(size);

    SizeClass &sc = sizeClasses()[block / theGranule - 1];
    std::lock_guard<std::mutex> guard(sc.lock);
    if (!sc.freeList)
    {
        std::size_t count = chunk ? chunk : 1;
        char *mem = static_cast<char *>(::operator new(block * count, std::align_val_t(theGranule)));
        // Thread the new blocks onto the list, lowest address first.
        for (std::size_t i = count; i-- > 0;)
        {
            FreeBlock *b = reinterpret_cast<FreeBlock *>(mem + i * block);
            b->next = sc.freeList;
            sc.freeList = b;
        }
    }
    FreeBlock *b = sc.freeList;
    sc.freeList = b->next;
    return b;
}

void BASsmallObjectFree(void *ptr, std::size_t size, std::size_t align, std::size_t maxSize)
{
    if (!ptr)
        return;
    std::size_t block = blockSize(size, align, maxSize);
    if (block == 0)
    {
        ::operator delete(ptr);
        return;
    }
    SizeClass &sc = sizeClasses()[block / theGranule - 1];
    std::lock_guard<std::mutex> guard(sc.lock);
    FreeBlock *b = static_cast<FreeBlock *>(ptr);
    b->next = sc.freeList;
    sc.freeList = b;
}
