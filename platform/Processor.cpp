#include <IMB/platform/BAS_Processor.h>

#include <cstring>

#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#endif

void BASgetProcessor(int &type, int &features)
{
    type = BAS_PROC_UNKNOWN;
    features = 0;
#if defined(__x86_64__) || defined(__i386__)
    unsigned a = 0, b = 0, c = 0, d = 0;
    if (!__get_cpuid(0, &a, &b, &c, &d))
        return;
    // The vendor string is EBX, EDX, ECX in that order.
    char vendor[13];
    std::memcpy(vendor, &b, 4);
    std::memcpy(vendor + 4, &d, 4);
    std::memcpy(vendor + 8, &c, 4);
    vendor[12] = '\0';
    if (std::strcmp(vendor, "GenuineIntel") == 0)
        type = BAS_PROC_INTEL;
    else if (std::strcmp(vendor, "AuthenticAMD") == 0)
        type = BAS_PROC_AMD;
    else
        type = BAS_PROC_OTHER_X86;

    if (a >= 1 && __get_cpuid(1, &a, &b, &c, &d))
    {
        if (d & (1u << 23))
            features |= BAS_PROC_MMX;
        if (d & (1u << 15))
            features |= BAS_PROC_CMOV;
        if (d & (1u << 25))
            // SSE brought the integer MMX additions (pavgb, pmaxub, ...) with it.
            features |= BAS_PROC_SSE | BAS_PROC_XMMX;
        if (d & (1u << 26))
            features |= BAS_PROC_SSE2;
    }
    unsigned maxExt = __get_cpuid_max(0x80000000u, nullptr);
    if (maxExt >= 0x80000001u && __get_cpuid(0x80000001u, &a, &b, &c, &d))
    {
        if (type == BAS_PROC_AMD && (d & (1u << 22)))
            features |= BAS_PROC_XMMX;
        if (type == BAS_PROC_AMD && (d & (1u << 31)))
            features |= BAS_PROC_3DNOW;
    }
#endif
}
