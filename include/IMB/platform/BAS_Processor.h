// BASgetProcessor: what kind of processor the library runs on.
//
// One call that identifies the processor (with the CPUID instruction on x86)
// and reports its vendor and a word of feature bits. Pure query, no state;
// free-threaded.
#pragma once

#include <IMB/IMB_API.h>

// Processor vendor reported in `type`.
enum BAS_ProcessorType
{
    BAS_PROC_UNKNOWN = 0, // not x86, or an unrecognised vendor
    BAS_PROC_INTEL = 1,
    BAS_PROC_AMD = 2,
    BAS_PROC_OTHER_X86 = 3, // an x86 processor of another vendor
};

// Feature bits reported in `features`. Bits not listed are always 0.
enum BAS_ProcessorFeature
{
    BAS_PROC_MMX = 1 << 0,  // MMX
    BAS_PROC_XMMX = 1 << 1, // extended MMX: the integer additions that came with
                            // SSE, or the vendor's own MMX extension bit
    BAS_PROC_SSE = 1 << 2,  // SSE
    BAS_PROC_3DNOW = 1 << 3, // 3DNow! (vendor extension)
    BAS_PROC_CMOV = 1 << 4, // conditional move (CMOVcc)
    BAS_PROC_SSE2 = 1 << 7, // SSE2
};

// Identifies the processor: `type` receives a BAS_ProcessorType, `features` a
// combination of BAS_ProcessorFeature bits. On a processor without the
// identification instruction both are 0. Never fails.
IMB_API void BASgetProcessor(int &type, int &features);
