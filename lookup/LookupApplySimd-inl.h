// Vector kernels for float rasters, compiled once per instruction set by
// LookupApplySimd.cpp through Highway's foreach_target. The arithmetic is
// that of the scalar rules in LookupApplyKernels-inl.h, operation for
// operation and without fused multiply-add.

// Per-target include guard, as Highway requires.
#if defined(IMB_LOOKUP_APPLY_SIMD_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef IMB_LOOKUP_APPLY_SIMD_INL_H_
#undef IMB_LOOKUP_APPLY_SIMD_INL_H_
#else
#define IMB_LOOKUP_APPLY_SIMD_INL_H_
#endif

#include "hwy/contrib/math/math-inl.h"
#include "hwy/highway.h"
#include "lookup/LookupApplyKernels-inl.h"

#include <algorithm>
#include <cstring>

HWY_BEFORE_NAMESPACE();
namespace imb_detail
{
namespace HWY_NAMESPACE
{
namespace hn = hwy::HWY_NAMESPACE;

// Largest lanes x step period the stream walker supports (16 lanes x 3).
constexpr size_t kMaxPeriod = 64;

#if HWY_ARCH_X86 && HWY_TARGET <= HWY_AVX2
// Eight table pairs into two registers: t[k] of every lane into a, t[k + 1]
// into b. Each pair goes straight into a register half (a trip through
// memory would end in a wide reload of narrow stores, which cannot be
// forwarded): pairs 0, 1, 4, 5 make x and 2, 3, 6, 7 make y, so one in-lane
// shuffle of the two gives every first value in order, another every
// second. The indices leave the vector two at a time. With SKIP37 (lanes 3
// and 7 are alpha that stays) those lanes load nothing and hold garbage.
template <bool SKIP37> HWY_INLINE void gatherPairs8(const float *table, __m256i k, __m256 &a, __m256 &b)
{
    const __m128i lo = _mm256_castsi256_si128(k), hi = _mm256_extracti128_si256(k, 1);
    const uint64_t q0 = uint64_t(_mm_cvtsi128_si64(lo)), q1 = uint64_t(_mm_extract_epi64(lo, 1));
    const uint64_t q2 = uint64_t(_mm_cvtsi128_si64(hi)), q3 = uint64_t(_mm_extract_epi64(hi, 1));
    auto one = [table](uint64_t q) { return _mm_load_sd(reinterpret_cast<const double *>(table + uint32_t(q))); };
    auto two = [table, &one](uint64_t q) {
        return _mm_castpd_ps(_mm_loadh_pd(one(q), reinterpret_cast<const double *>(table + uint32_t(q >> 32))));
    };
    const __m128 y0 = SKIP37 ? _mm_castpd_ps(one(q1)) : two(q1), y1 = SKIP37 ? _mm_castpd_ps(one(q3)) : two(q3);
    const __m256 x = _mm256_insertf128_ps(_mm256_castps128_ps256(two(q0)), two(q2), 1);
    const __m256 y = _mm256_insertf128_ps(_mm256_castps128_ps256(y0), y1, 1);
    a = _mm256_shuffle_ps(x, y, _MM_SHUFFLE(2, 0, 2, 0));
    b = _mm256_shuffle_ps(x, y, _MM_SHUFFLE(3, 1, 3, 1));
}
#endif

// Fetches table[o] into a and table[o + 1] into b for every lane, with one
// 8-byte load per pair of neighbours.
template <class DF, class VI, class VF>
HWY_INLINE void gatherPairs(DF df, const float *table, VI o, VF &a, VF &b)
{
#if HWY_TARGET == HWY_SCALAR || HWY_TARGET == HWY_EMU128
    a = hn::GatherIndex(df, table, o);
    b = hn::GatherIndex(df, table + 1, o);
#elif HWY_TARGET == HWY_AVX2
    gatherPairs8<false>(table, o.raw, a.raw, b.raw);
#else
    // Plain 8-byte loads of each neighbour pair beat hardware gathers on
    // common x86 cores; the pairs are then split into a and b.
    const hn::RebindToSigned<DF> di;
    constexpr size_t kMaxLanes = HWY_MAX_BYTES / sizeof(float);
    HWY_ALIGN int32 idx[kMaxLanes];
    HWY_ALIGN float pairs[2 * kMaxLanes];
    hn::Store(o, di, idx);
    const size_t lanes = hn::Lanes(df);
    for (size_t l = 0; l < lanes; ++l)
        std::memcpy(pairs + 2 * l, table + idx[l], 2 * sizeof(float));
    const auto lo = hn::Load(df, pairs), hi = hn::Load(df, pairs + lanes);
    a = hn::ConcatEven(df, hi, lo);
    b = hn::ConcatOdd(df, hi, lo);
#endif
}

// Maps `count` consecutive floats in place. Component k belongs to slot
// k % step; slotOffset[s] is the offset of the slot's padded table in
// p.padded, or -1 to leave the slot's components alone.
template <bool LOG>
void streamFloat1D(const Lut1DParams &p, float *data, int64 count, int step, const int slotOffset[4])
{
    const hn::ScalableTag<float> df;
    const hn::RebindToSigned<decltype(df)> di;
    const size_t lanes = hn::Lanes(df);
    size_t period = lanes;
    while (period % static_cast<size_t>(step) != 0)
        period += lanes;
    if (period > kMaxPeriod)
        return;
    HWY_ALIGN int32 offsets[kMaxPeriod];
    HWY_ALIGN int32 keep[kMaxPeriod];
    for (size_t k = 0; k < period; ++k)
    {
        const int o = slotOffset[k % static_cast<size_t>(step)];
        offsets[k] = o < 0 ? 0 : o;
        keep[k] = o < 0 ? -1 : 0;
    }

    const auto lo = hn::Set(df, p.dmin), hi = hn::Set(df, p.dmax);
    const auto lnMin = hn::Set(df, p.lnMin), scale = hn::Set(df, p.scale);
    const auto zero = hn::Zero(df), last = hn::Set(df, static_cast<float>(p.last));
    const float *table = p.padded;

    auto rule = [&](decltype(hn::Zero(df)) x, size_t phase) {
        const auto in = x;
        x = hn::IfThenElse(hn::Gt(x, lo), x, lo); // NaN becomes dmin
        x = hn::Min(x, hi);
        decltype(x) pos;
        if (LOG)
        {
            const auto lx = hn::IfThenElseZero(hn::Gt(x, zero), hn::Log(df, x));
            pos = hn::Mul(hn::Sub(lx, lnMin), scale);
        }
        else
            pos = hn::Mul(hn::Sub(x, lo), scale);
        pos = hn::IfThenElse(hn::Gt(pos, zero), pos, zero);
        pos = hn::Min(pos, last);
        const auto i = hn::ConvertTo(di, pos);
        const auto f = hn::Sub(pos, hn::ConvertTo(df, i));
        const auto o = hn::Add(i, hn::Load(di, offsets + phase));
        auto a = hn::Zero(df), b = hn::Zero(df);
        gatherPairs(df, table, o, a, b);
        const auto y = hn::Add(a, hn::Mul(hn::Sub(b, a), f));
        const auto keepMask = hn::RebindMask(df, hn::Lt(hn::Load(di, keep + phase), hn::Zero(di)));
        return hn::IfThenElse(keepMask, in, y);
    };

    size_t phase = 0;
    int64 i = 0;
    const int64 n = static_cast<int64>(lanes);
    for (; i + n <= count; i += n)
    {
        hn::StoreU(rule(hn::LoadU(df, data + i), phase), df, data + i);
        phase += lanes;
        if (phase == period)
            phase = 0;
    }
    if (i < count)
    {
        // The tail goes through the same vector rule via a small buffer.
        HWY_ALIGN float buf[kMaxPeriod] = {};
        const size_t rest = static_cast<size_t>(count - i);
        std::memcpy(buf, data + i, rest * sizeof(float));
        hn::Store(rule(hn::Load(df, buf), phase), df, buf);
        std::memcpy(data + i, buf, rest * sizeof(float));
    }
}

#if HWY_ARCH_X86 && HWY_TARGET <= HWY_AVX2
// The linear rule of streamFloat1D in eight-lane vectors (also on AVX-512
// processors, where the pairs are fetched the same way), for one to eight
// components per pixel with the step dividing 8: the table offsets and kept
// lanes are the same for every vector and stay in registers. maxps(x, lo)
// gives lo for a NaN x, as the rule wants, and positions are clamped before
// the conversion, which needs no overflow fix-up.
template <bool SKIP37> void streamFloat1DEight(const Lut1DParams &p, float *data, int64 count, const int slot[8])
{
    const __m256i offsets = _mm256_setr_epi32(std::max(slot[0], 0), std::max(slot[1], 0), std::max(slot[2], 0),
                                              std::max(slot[3], 0), std::max(slot[4], 0), std::max(slot[5], 0),
                                              std::max(slot[6], 0), std::max(slot[7], 0));
    const __m256 keep = _mm256_castsi256_ps(_mm256_setr_epi32(-(slot[0] < 0), -(slot[1] < 0), -(slot[2] < 0),
                                                              -(slot[3] < 0), -(slot[4] < 0), -(slot[5] < 0),
                                                              -(slot[6] < 0), -(slot[7] < 0)));
    const __m256 lo = _mm256_set1_ps(p.dmin), hi = _mm256_set1_ps(p.dmax), scale = _mm256_set1_ps(p.scale);
    const __m256 zero = _mm256_setzero_ps(), last = _mm256_set1_ps(static_cast<float>(p.last));
    auto rule = [&](float *at) {
        const __m256 in = _mm256_loadu_ps(at);
        const __m256 x = _mm256_min_ps(_mm256_max_ps(in, lo), hi);
        const __m256 pos = _mm256_min_ps(_mm256_max_ps(_mm256_mul_ps(_mm256_sub_ps(x, lo), scale), zero), last);
        const __m256i k = _mm256_cvttps_epi32(pos);
        const __m256 f = _mm256_sub_ps(pos, _mm256_cvtepi32_ps(k));
        __m256 a, b;
        gatherPairs8<SKIP37>(p.padded, _mm256_add_epi32(k, offsets), a, b);
        const __m256 y = _mm256_add_ps(a, _mm256_mul_ps(_mm256_sub_ps(b, a), f));
        _mm256_storeu_ps(at, _mm256_blendv_ps(y, in, keep));
    };
    int64 i = 0;
    // Two vectors a step, and the pixels 2 KB ahead asked for early: the
    // hardware's own prefetch alone leaves the table reads waiting on them.
    for (; i + 16 <= count; i += 16)
    {
        __builtin_prefetch(data + i + 512, 1);
        rule(data + i);
        rule(data + i + 8);
    }
    for (; i + 8 <= count; i += 8)
        rule(data + i);
    if (i < count)
        streamFloat1D<false>(p, data + i, count - i, 8, slot);
}
#endif

// Components per block: a multiple of every period, so each block starts
// at phase 0 and the gamma pass can find a component's slot by k % step.
constexpr int64 kStreamBlock = 3072;

void ApplyFloat1D(const Lut1DParams &p, const LutSpan &span)
{
    auto stream = [&](float *data, int64 count, int step, const int slots[4]) {
        for (int64 b = 0; b < count; b += kStreamBlock)
        {
            const int64 m = std::min(kStreamBlock, count - b);
            if (p.log)
                streamFloat1D<true>(p, data + b, m, step, slots);
#if HWY_ARCH_X86 && HWY_TARGET <= HWY_AVX2
            else if (8 % step == 0)
            {
                int eight[8];
                for (int k = 0; k < 8; ++k)
                    eight[k] = slots[k % step];
                // RGBA pixels whose alpha is kept need no table reads for
                // the alpha lanes.
                if (step == 4 && slots[3] < 0)
                    streamFloat1DEight<true>(p, data + b, m, eight);
                else
                    streamFloat1DEight<false>(p, data + b, m, eight);
            }
#endif
            else
                streamFloat1D<false>(p, data + b, m, step, slots);
            if (p.gammaOne)
                continue;
            for (int64 k = 0; k < m; ++k)
                if (slots[k % step] >= 0)
                    data[b + k] = applyGamma(data[b + k], p.invGamma);
        }
    };
    float *base = static_cast<float *>(span.comp[0]);
    const int step = static_cast<int>(span.step);
    bool interleaved = step > 1 && step <= 4 && base != nullptr;
    for (int c = 1; interleaved && c < step; ++c)
        interleaved = span.comp[c] == base + c;
    if (interleaved)
    {
        int slots[4] = {-1, -1, -1, -1};
        bool any = false;
        for (int c = 0; c < step; ++c)
        {
            slots[c] = p.table[c] ? p.slot[c] : -1;
            any = any || slots[c] >= 0;
        }
        if (any && p.padded)
            stream(base, span.count * step, step, slots);
        return;
    }
    for (int c = 0; c < 4; ++c)
    {
        if (!p.table[c] || !span.comp[c])
            continue;
        const int slots[4] = {p.slot[c], -1, -1, -1};
        if (span.step == 1)
            stream(static_cast<float *>(span.comp[c]), span.count, 1, slots);
        else
        {
            // An unusual layout: one component at a time through the buffer.
            float *px = static_cast<float *>(span.comp[c]);
            for (int64 i = 0; i < span.count; ++i)
                stream(px + i * span.step, 1, 1, slots);
        }
    }
}

// Cube lookup with four-lane corner loads (R, G, B and one spare lane), red
// first, then green, then blue. A cube of any size lives mostly outside the
// first-level caches and its corners are scattered, so the pixels go in
// blocks: a first pass finds every pixel's corner cell and asks for its
// cache lines, a second interpolates, by which time most have arrived.
template <CubeInput IN, bool GAMMA1>
void walkFloat3D(const Lut3DParams &p, const LutSpan &span)
{
#if HWY_TARGET != HWY_SCALAR
    const hn::Full128<float> d4;
#endif
    constexpr int64 kBlock = 32;
    const float top = static_cast<float>(p.n - 1);
    const std::ptrdiff_t e = p.n + 1;
    const std::ptrdiff_t dr = 3, dg = 3 * e, db = 3 * e * e;
    float *r = static_cast<float *>(span.comp[0]);
    float *g = static_cast<float *>(span.comp[1]);
    float *b = static_cast<float *>(span.comp[2]);
    const int64 step = span.step;
    std::ptrdiff_t cell[kBlock];
    float pos[kBlock][3];
    for (int64 first = 0; first < span.count; first += kBlock)
    {
        const int64 m = std::min(kBlock, span.count - first);
        for (int64 j = 0; j < m; ++j)
        {
            const int64 at = (first + j) * step;
            const float cr = r[at], cg = g[at], cb = b[at];
            if (cr != cr || cg != cg || cb != cb) // pixels with a NaN keep their values
            {
                cell[j] = -1;
                continue;
            }
            const float pr = clampLow(cubePosition<IN>(cr, p, top), 0.0f, top);
            const float pg = clampLow(cubePosition<IN>(cg, p, top), 0.0f, top);
            const float pb = clampLow(cubePosition<IN>(cb, p, top), 0.0f, top);
            pos[j][0] = pr;
            pos[j][1] = pg;
            pos[j][2] = pb;
            cell[j] = 3 * (static_cast<int>(pr) + e * static_cast<int>(pg) + e * e * static_cast<int>(pb));
            const float *c = p.cube + cell[j];
            for (const float *row : {c, c + dg, c + db, c + dg + db})
            {
                __builtin_prefetch(row);
                __builtin_prefetch(row + dr + 3);
            }
        }
        for (int64 j = 0; j < m; ++j)
        {
            if (cell[j] < 0)
                continue;
            const float pr = pos[j][0], pg = pos[j][1], pb = pos[j][2];
            const int ir = static_cast<int>(pr), ig = static_cast<int>(pg), ib = static_cast<int>(pb);
            const float fr = pr - static_cast<float>(ir), fg = pg - static_cast<float>(ig),
                        fb = pb - static_cast<float>(ib);
            const float *c = p.cube + cell[j];
            HWY_ALIGN float out[4];
#if HWY_TARGET == HWY_SCALAR
            (void)c, (void)fr, (void)fg, (void)fb, (void)dr, (void)dg, (void)db;
            cubeLookup(p.cube, p.n, pr, pg, pb, out);
#else
            auto v00 = hn::LoadU(d4, c), v10 = hn::LoadU(d4, c + dg), v01 = hn::LoadU(d4, c + db),
                 v11 = hn::LoadU(d4, c + dg + db);
            if (!(fr >= -kCubeSkip && fr <= kCubeSkip))
            {
                const auto f = hn::Set(d4, fr);
                v00 = hn::Add(v00, hn::Mul(hn::Sub(hn::LoadU(d4, c + dr), v00), f));
                v10 = hn::Add(v10, hn::Mul(hn::Sub(hn::LoadU(d4, c + dr + dg), v10), f));
                v01 = hn::Add(v01, hn::Mul(hn::Sub(hn::LoadU(d4, c + dr + db), v01), f));
                v11 = hn::Add(v11, hn::Mul(hn::Sub(hn::LoadU(d4, c + dr + dg + db), v11), f));
            }
            if (!(fg >= -kCubeSkip && fg <= kCubeSkip))
            {
                const auto f = hn::Set(d4, fg);
                v00 = hn::Add(v00, hn::Mul(hn::Sub(v10, v00), f));
                v01 = hn::Add(v01, hn::Mul(hn::Sub(v11, v01), f));
            }
            if (!(fb >= -kCubeSkip && fb <= kCubeSkip))
                v00 = hn::Add(v00, hn::Mul(hn::Sub(v01, v00), hn::Set(d4, fb)));
            hn::Store(v00, d4, out);
#endif
            if (!GAMMA1)
                for (int i = 0; i < 3; ++i)
                    out[i] = applyGamma(out[i], p.invGamma);
            const int64 at = (first + j) * step;
            r[at] = out[0];
            g[at] = out[1];
            b[at] = out[2];
        }
    }
}

#if HWY_ARCH_X86 && HWY_TARGET <= HWY_AVX2
// walkFloat3D<Linear, true> for interleaved RGBA floats, in eight-lane
// vectors: the corner cells of eight pixels at a time come from one
// transpose and vector arithmetic (the same operations as the scalar rule),
// their cache lines are asked for a block ahead, and two pixels share each
// interpolation step, one per 128-bit half. An axis whose fraction is
// within kCubeSkip takes the lower sample as is (fractions are never
// negative here), selected per half. Alpha is written back as it was.
// n pixels of RGBA from px through the scalar rule (a NaN among them).
inline void scalarCubePixels(const Lut3DParams &p, float *px, int n)
{
    LutSpan span;
    span.comp[0] = px;
    span.comp[1] = px + 1;
    span.comp[2] = px + 2;
    span.step = 4;
    span.count = n;
    walkFloat3D<CubeInput::Linear, true>(p, span);
}

void walkFloat3DRGBA(const Lut3DParams &p, float *data, int64 count)
{
    constexpr int64 kBlock = 32; // a multiple of 8
    const float top = static_cast<float>(p.n - 1);
    const int32 e = p.n + 1;
    const std::ptrdiff_t dr = 3, dg = 3 * std::ptrdiff_t(e), db = 3 * std::ptrdiff_t(e) * e;
    const float *cube = p.cube;
    HWY_ALIGN int32 cell[kBlock];
    HWY_ALIGN float frac[3][kBlock];
    const __m256 zero = _mm256_setzero_ps(), one = _mm256_set1_ps(1.0f), vtop = _mm256_set1_ps(top);
    const __m256i order = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
    const __m256i ve = _mm256_set1_epi32(e), ve2 = _mm256_set1_epi32(e * e);
    const __m256 skip = _mm256_set1_ps(kCubeSkip);
    const __m256 alphaLanes = _mm256_castsi256_ps(_mm256_setr_epi32(0, 0, 0, -1, 0, 0, 0, -1));

    // Corner cells and fractions of the eight pixels from `px`; -1 marks a
    // pixel with a NaN component.
    auto locate8 = [&](const float *px, int at) {
        const __m256 q0 = _mm256_loadu_ps(px), q1 = _mm256_loadu_ps(px + 8), q2 = _mm256_loadu_ps(px + 16),
                     q3 = _mm256_loadu_ps(px + 24);
        const __m256 t0 = _mm256_unpacklo_ps(q0, q1), t1 = _mm256_unpackhi_ps(q0, q1);
        const __m256 t2 = _mm256_unpacklo_ps(q2, q3), t3 = _mm256_unpackhi_ps(q2, q3);
        // Lanes come out in pixel order 0, 2, 4, 6, 1, 3, 5, 7; `order` undoes that.
        const __m256 cr = _mm256_permutevar8x32_ps(_mm256_shuffle_ps(t0, t2, 0x44), order);
        const __m256 cg = _mm256_permutevar8x32_ps(_mm256_shuffle_ps(t0, t2, 0xEE), order);
        const __m256 cb = _mm256_permutevar8x32_ps(_mm256_shuffle_ps(t1, t3, 0x44), order);
        const __m256 nan = _mm256_or_ps(_mm256_or_ps(_mm256_cmp_ps(cr, cr, _CMP_UNORD_Q), _mm256_cmp_ps(cg, cg, _CMP_UNORD_Q)),
                                        _mm256_cmp_ps(cb, cb, _CMP_UNORD_Q));
        __m256i k[3];
        const __m256 c[3] = {cr, cg, cb};
        for (int a = 0; a < 3; ++a)
        {
            // clampLow(top * clampLow(c, 0, 1), 0, top); maxps(c, 0) gives 0 for NaN.
            const __m256 x = _mm256_min_ps(_mm256_max_ps(c[a], zero), one);
            const __m256 pos = _mm256_min_ps(_mm256_max_ps(_mm256_mul_ps(vtop, x), zero), vtop);
            k[a] = _mm256_cvttps_epi32(pos);
            _mm256_store_ps(frac[a] + at, _mm256_sub_ps(pos, _mm256_cvtepi32_ps(k[a])));
        }
        __m256i idx = _mm256_add_epi32(_mm256_add_epi32(k[0], _mm256_mullo_epi32(k[1], ve)), _mm256_mullo_epi32(k[2], ve2));
        idx = _mm256_add_epi32(idx, _mm256_add_epi32(idx, idx));
        _mm256_store_si256(reinterpret_cast<__m256i *>(cell + at), _mm256_or_si256(idx, _mm256_castps_si256(nan)));
        for (int j = at; j < at + 8; ++j)
        {
            const float *cc = cube + cell[j];
            if (cell[j] >= 0)
                for (const float *row : {cc, cc + dg, cc + db, cc + dg + db})
                {
                    __builtin_prefetch(row);
                    __builtin_prefetch(row + dr + 3);
                }
        }
    };
    auto both = [](const float *a, const float *b) {
        return _mm256_insertf128_ps(_mm256_castps128_ps256(_mm_loadu_ps(a)), _mm_loadu_ps(b), 1);
    };
    auto fracs = [&](int a, int j) {
        return _mm256_insertf128_ps(_mm256_castps128_ps256(_mm_broadcast_ss(&frac[a][j])), _mm_broadcast_ss(&frac[a][j + 1]), 1);
    };
    // a + (b - a) * f, or a where the half's fraction is within kCubeSkip.
    auto lerp = [&](__m256 a, __m256 b, __m256 f, __m256 keep) {
        return _mm256_blendv_ps(_mm256_add_ps(a, _mm256_mul_ps(_mm256_sub_ps(b, a), f)), a, keep);
    };

    const int64 whole = count & ~int64(kBlock - 1);
    for (int64 first = 0; first < whole; first += kBlock)
    {
        float *block = data + 4 * first;
        for (int at = 0; at < kBlock; at += 8)
            locate8(block + 4 * at, at);
#if HWY_TARGET <= HWY_AVX3
        // Four pixels a step, one per 128-bit quarter of a 512-bit vector;
        // alpha is left alone by a masked store.
        const __m512i quarterOf = _mm512_setr_epi32(0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2, 2, 3, 3, 3, 3);
        const __m512 skip4 = _mm512_set1_ps(kCubeSkip);
        for (int j = 0; j < kBlock; j += 4)
        {
            float *px = block + 4 * j;
            if ((cell[j] | cell[j + 1] | cell[j + 2] | cell[j + 3]) < 0)
            {
                scalarCubePixels(p, px, 4); // a pixel with a NaN among the four
                continue;
            }
            const float *c0 = cube + cell[j], *c1 = cube + cell[j + 1], *c2 = cube + cell[j + 2],
                        *c3 = cube + cell[j + 3];
            auto corner = [&](std::ptrdiff_t o) {
                __m512 v = _mm512_castps128_ps512(_mm_loadu_ps(c0 + o));
                v = _mm512_insertf32x4(v, _mm_loadu_ps(c1 + o), 1);
                v = _mm512_insertf32x4(v, _mm_loadu_ps(c2 + o), 2);
                return _mm512_insertf32x4(v, _mm_loadu_ps(c3 + o), 3);
            };
            auto fracs4 = [&](int a) {
                return _mm512_permutexvar_ps(quarterOf, _mm512_castps128_ps512(_mm_load_ps(&frac[a][j])));
            };
            // a + (b - a) * f, or a where the quarter's fraction is within kCubeSkip.
            auto lerp4 = [](__m512 a, __m512 b, __m512 f, __mmask16 keep) {
                return _mm512_mask_blend_ps(keep, _mm512_add_ps(a, _mm512_mul_ps(_mm512_sub_ps(b, a), f)), a);
            };
            const __m512 fr = fracs4(0), fg = fracs4(1), fb = fracs4(2);
            const __mmask16 sr = _mm512_cmp_ps_mask(fr, skip4, _CMP_LE_OQ),
                            sg = _mm512_cmp_ps_mask(fg, skip4, _CMP_LE_OQ),
                            sb = _mm512_cmp_ps_mask(fb, skip4, _CMP_LE_OQ);
            __m512 v00 = lerp4(corner(0), corner(dr), fr, sr);
            __m512 v10 = lerp4(corner(dg), corner(dr + dg), fr, sr);
            __m512 v01 = lerp4(corner(db), corner(dr + db), fr, sr);
            __m512 v11 = lerp4(corner(dg + db), corner(dr + dg + db), fr, sr);
            v00 = lerp4(v00, v10, fg, sg);
            v01 = lerp4(v01, v11, fg, sg);
            v00 = lerp4(v00, v01, fb, sb);
            _mm512_mask_storeu_ps(px, 0x7777, v00);
        }
#else
        for (int j = 0; j < kBlock; j += 2)
        {
            float *px = block + 4 * j;
            if ((cell[j] | cell[j + 1]) < 0)
            {
                scalarCubePixels(p, px, 2); // a pixel with a NaN in the pair
                continue;
            }
            const float *a = cube + cell[j], *b = cube + cell[j + 1];
            const __m256 fr = fracs(0, j), fg = fracs(1, j), fb = fracs(2, j);
            const __m256 sr = _mm256_cmp_ps(fr, skip, _CMP_LE_OQ), sg = _mm256_cmp_ps(fg, skip, _CMP_LE_OQ),
                         sb = _mm256_cmp_ps(fb, skip, _CMP_LE_OQ);
            __m256 v00 = lerp(both(a, b), both(a + dr, b + dr), fr, sr);
            __m256 v10 = lerp(both(a + dg, b + dg), both(a + dr + dg, b + dr + dg), fr, sr);
            __m256 v01 = lerp(both(a + db, b + db), both(a + dr + db, b + dr + db), fr, sr);
            __m256 v11 = lerp(both(a + dg + db, b + dg + db), both(a + dr + dg + db, b + dr + dg + db), fr, sr);
            v00 = lerp(v00, v10, fg, sg);
            v01 = lerp(v01, v11, fg, sg);
            v00 = lerp(v00, v01, fb, sb);
            _mm256_storeu_ps(px, _mm256_blendv_ps(v00, _mm256_loadu_ps(px), alphaLanes));
        }
#endif
    }
    if (whole < count)
    {
        LutSpan rest;
        rest.comp[0] = data + 4 * whole;
        rest.comp[1] = data + 4 * whole + 1;
        rest.comp[2] = data + 4 * whole + 2;
        rest.step = 4;
        rest.count = count - whole;
        walkFloat3D<CubeInput::Linear, true>(p, rest);
    }
}
#endif

void ApplyFloat3D(const Lut3DParams &p, const LutSpan &span)
{
    switch (p.input)
    {
    case CubeInput::Log:
        return p.gammaOne ? walkFloat3D<CubeInput::Log, true>(p, span) : walkFloat3D<CubeInput::Log, false>(p, span);
    case CubeInput::PreLut:
        return p.gammaOne ? walkFloat3D<CubeInput::PreLut, true>(p, span)
                          : walkFloat3D<CubeInput::PreLut, false>(p, span);
    default:
#if HWY_ARCH_X86 && HWY_TARGET <= HWY_AVX2
    {
        float *base = static_cast<float *>(span.comp[0]);
        if (p.gammaOne && span.step == 4 && base && span.comp[1] == base + 1 && span.comp[2] == base + 2 &&
            span.comp[3] == base + 3)
            return walkFloat3DRGBA(p, base, span.count);
    }
#endif
        return p.gammaOne ? walkFloat3D<CubeInput::Linear, true>(p, span)
                          : walkFloat3D<CubeInput::Linear, false>(p, span);
    }
}
} // namespace HWY_NAMESPACE
} // namespace imb_detail
HWY_AFTER_NAMESPACE();

#endif // per-target include guard
