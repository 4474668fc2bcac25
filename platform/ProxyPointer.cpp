#include <IMB/platform/BAS_ProxyPointer.h>

#include <mutex>
#include <vector>

namespace
{
// The registry: one slot per index handed out so far, and a stack of freed
// indices to reuse. A slot in use holds its pointer and a flag (a registered
// pointer may itself be null).
struct Slot
{
    void *ptr = nullptr;
    bool used = false;
};

struct Registry
{
    std::mutex lock;
    std::vector<Slot> slots;
    std::vector<int> freeIndices;
};

Registry &registry()
{
    // Never destroyed: objects with static storage in client code may free
    // their index during process exit.
    static Registry *theRegistry = new Registry;
    return *theRegistry;
}
} // namespace

int BAS_ProxyPointer::allocProxy(void *ptr)
{
    Registry &r = registry();
    std::lock_guard<std::mutex> guard(r.lock);
    int index;
    if (!r.freeIndices.empty())
    {
        index = r.freeIndices.back();
        r.freeIndices.pop_back();
    }
    else
    {
        r.slots.emplace_back();
        try
        {
            // Room for every index to be freed, so freeProxy never allocates.
            if (r.freeIndices.capacity() < r.slots.size())
                r.freeIndices.reserve(r.slots.capacity());
        }
        catch (...)
        {
            r.slots.pop_back();
            throw;
        }
        index = static_cast<int>(r.slots.size() - 1);
    }
    r.slots[static_cast<std::size_t>(index)] = Slot{ptr, true};
    return index;
}

void BAS_ProxyPointer::freeProxy(int index)
{
    Registry &r = registry();
    std::lock_guard<std::mutex> guard(r.lock);
    if (index < 0 || static_cast<std::size_t>(index) >= r.slots.size())
        return;
    Slot &s = r.slots[static_cast<std::size_t>(index)];
    if (!s.used)
        return;
    s = Slot{};
    // Reserved when the slot was created, so this push cannot throw.
    r.freeIndices.push_back(index);
}

void *BAS_ProxyPointer::lookupProxy(int index)
{
    Registry &r = registry();
    std::lock_guard<std::mutex> guard(r.lock);
    if (index < 0 || static_cast<std::size_t>(index) >= r.slots.size())
        return nullptr;
    return r.slots[static_cast<std::size_t>(index)].ptr;
}
