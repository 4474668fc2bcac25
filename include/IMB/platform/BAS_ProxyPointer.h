// BAS_ProxyPointer: a process-wide registry of small integer handles for
// object pointers.
//
// allocProxy() hands out an index that stands for an object pointer; clients
// keep the index where a raw pointer would be unsafe to store (another
// process's message, a script value) and turn it back into the pointer with
// lookupProxy() for as long as the object lives. Freed indices are reused.
// All three calls are thread-safe.
#pragma once

#include <IMB/IMB_API.h>

class IMB_API BAS_ProxyPointer
{
public:
    // Registers `ptr` and returns its index (>= 0). Throws std::bad_alloc only
    // when the registry cannot grow.
    static int allocProxy(void *ptr);
    // Releases `index`; an index that is not in use (negative, never handed
    // out or already freed) is ignored.
    static void freeProxy(int index);
    // The pointer registered under `index`, or null when the index is not in
    // use.
    static void *lookupProxy(int index);
};
