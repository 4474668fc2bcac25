// Lets a test program run on one chosen vector instruction set: with
// IMB_TEST_SIMD_TARGET set to a Highway target name (AVX2, SSE4, SSSE3,
// EMU128, SCALAR, ...), every dispatched kernel in the library takes that
// target's code instead of the best one. A target the processor cannot run
// exits with 77, which CTest reports as skipped.
#include <hwy/targets.h>

#include <cstdio>
#include <cstdlib>
#include <strings.h>

namespace
{
const int theSimdTarget = [] {
    const char *want = std::getenv("IMB_TEST_SIMD_TARGET");
    if (!want || !*want)
        return 0;
    for (int bit = 0; bit < 63; ++bit)
    {
        const int64_t target = int64_t(1) << bit;
        if (strcasecmp(hwy::TargetName(target), want) != 0)
            continue;
        if (!(hwy::SupportedTargets() & target))
        {
            std::printf("vector target %s is not supported here\n", want);
            std::exit(77);
        }
        hwy::SetSupportedTargetsForTest(target);
        return std::printf("vector target: %s\n", want);
    }
    std::printf("unknown vector target %s\n", want);
    std::exit(2);
}();
} // namespace
