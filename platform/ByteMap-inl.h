// Mapping bytes through 256-entry tables, compiled once per instruction set
// (included through hwy/foreach_target.h by ByteMap.cpp). Processors with
// byte permutes over two registers (AVX-512 VBMI) hold a whole table in four
// registers and map 64 bytes per step; other targets map nothing here and
// leave the run to the caller's own walk.

#if defined(IMB_PLATFORM_BYTE_MAP_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef IMB_PLATFORM_BYTE_MAP_INL_H_
#undef IMB_PLATFORM_BYTE_MAP_INL_H_
#else
#define IMB_PLATFORM_BYTE_MAP_INL_H_
#endif

#include <IMB/platform/BAS_Types.h>

#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace imb_detail
{
namespace HWY_NAMESPACE
{
// Maps the first whole vectors of `count` components at `p` in place;
// component i goes through the 256-entry table (i mod period) of `tables`
// (period 1, 2 or 4). Returns how many components it mapped.
int64 MapBytes(uint8 *p, int64 count, const uint8 *tables, int period)
{
#if HWY_TARGET == HWY_AVX3_DL
    __m512i t[4][4];
    for (int c = 0; c < period; ++c)
        for (int q = 0; q < 4; ++q)
            t[c][q] = _mm512_loadu_si512(tables + 256 * c + 64 * q);
    // Lanes of phase c: every period-th lane from lane c.
    __mmask64 phase[4] = {0, 0, 0, 0};
    for (int lane = 0; lane < 64; ++lane)
        phase[lane % period] |= __mmask64(1) << lane;
    int64 i = 0;
    for (; i + 64 <= count; i += 64)
    {
        const __m512i v = _mm512_loadu_si512(p + i);
        const __mmask64 high = _mm512_movepi8_mask(v); // bit 7: the upper 128 entries
        __m512i out = _mm512_setzero_si512();
        for (int c = 0; c < period; ++c)
        {
            const __m512i lo = _mm512_permutex2var_epi8(t[c][0], v, t[c][1]);
            const __m512i hi = _mm512_permutex2var_epi8(t[c][2], v, t[c][3]);
            out = _mm512_mask_blend_epi8(phase[c], out, _mm512_mask_blend_epi8(high, lo, hi));
        }
        _mm512_storeu_si512(p + i, out);
    }
    return i;
#else
    (void)p, (void)count, (void)tables, (void)period;
    return 0;
#endif
}
} // namespace HWY_NAMESPACE
} // namespace imb_detail
HWY_AFTER_NAMESPACE();

#endif
