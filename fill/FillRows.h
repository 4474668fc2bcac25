// Row functions of the fill engine: apply one per-component rule along a row.
// Strided rows run the rule component by component; contiguous rows take the
// fast forms (block copies and the VEC_Math vector rows), which give exactly
// the rule's results.
#pragma once

#include "fill/FillRules.h"
#include "platform/VEC_Math.h"

#include <algorithm>
#include <cstring>

namespace imb_detail
{
template <typename Rule, typename S, typename D>
void ruleLoop(const Rule &rule, const S *__restrict s, D *__restrict d, int64 n)
{
    for (int64 i = 0; i < n; ++i)
        d[i] = rule(s[i]);
}

template <IMB_DataFormat F> constexpr VEC_Math::Kind kindOf =
    F == IMB_INT8    ? VEC_Math::kU8
    : F == IMB_INT16 ? VEC_Math::kU16
    : F == IMB_INT32 ? VEC_Math::kU32
    : F == IMB_FLOAT32 ? VEC_Math::kF32
                       : VEC_Math::kF16;

// Whether the float form of a 32-bit write (see VEC_Math::RowTerms) gives
// the rule's result for every value of an 8- or 16-bit source; checked value
// by value, so only for rows long enough to repay it.
template <IMB_DataFormat S, bool SF, IMB_DataFormat D, bool DF>
bool floatWriteIsExact(const ThroughRule<S, SF, D, DF> &rule, const VEC_Math::RowTerms &t, int64 n)
{
    constexpr uint32 white = Format<S>::white;
    if (n < 16 * (int64(white) + 1))
        return false;
    for (uint32 v = 0; v <= white; ++v)
    {
        const float x = static_cast<float>(static_cast<int32>(v) - t.readBlack) * t.readScale;
        const float y = (x * t.writeRange32f + t.writeBlack32f) + 0.5f;
        if (!(y >= 0.0f && y < 2147483648.0f) ||
            static_cast<uint32>(static_cast<int32>(y)) != rule(static_cast<ComponentOf<S>>(v)))
            return false;
    }
    return true;
}

// The terms of a conversion rule for the fused vector rows over n components.
template <IMB_DataFormat S, bool SF, IMB_DataFormat D, bool DF>
VEC_Math::RowTerms termsOf(const ThroughRule<S, SF, D, DF> &rule, int64 n)
{
    VEC_Math::RowTerms t;
    if constexpr (S == IMB_INT8 || S == IMB_INT16)
    {
        t.readScale = rule.read.scale();
        t.readBlack = static_cast<int32>(rule.read.black());
    }
    else if constexpr (S == IMB_INT32 && SF)
    {
        t.readDivide = true;
    }
    else if constexpr (S == IMB_INT32)
    {
        t.readBlack = static_cast<int32>(rule.read.myBlack);
        t.readScale64 = rule.read.myScale;
    }
    if constexpr (D == IMB_INT8 || D == IMB_INT16)
    {
        t.writeScale = rule.write.scale();
        t.writeBlack = rule.write.black();
        t.writeMax = rule.write.white();
    }
    else if constexpr (D == IMB_INT32)
    {
        t.writeRange64 = rule.write.myRange;
        t.writeBlack64 = rule.write.myBlack;
        if constexpr ((S == IMB_INT8 || S == IMB_INT16) && SF)
        {
            // Full-range 8- and 16-bit fractions run from 0 to white x
            // 1/white (in float); y is monotonic in x, so its ends bound it.
            const double top = static_cast<double>(static_cast<float>(Format<S>::white) * Format<S>::inverseWhite);
            const double lo = 0.0 * t.writeRange64 + t.writeBlack64 + 0.5;
            const double hi = top * t.writeRange64 + t.writeBlack64 + 0.5;
            t.writeInRange32 = std::min(lo, hi) >= 0.0 && std::max(lo, hi) < 2147483647.0;
            // Black and white being 32-bit values, this always holds here;
            // checked all the same, as it is what lets the clamps go.
            t.writeUnclamped32 = std::min(lo, hi) >= 0.0 && std::max(lo, hi) < 4294967296.0;
            // Then single precision is usually exact too (as for the
            // default 0-255 destination), at a quarter of the work.
            t.writeRange32f = static_cast<float>(t.writeRange64);
            t.writeBlack32f = static_cast<float>(t.writeBlack64);
            t.writeFloat32 = t.writeInRange32 && floatWriteIsExact(rule, t, n);
        }
    }
    return t;
}

// A contiguous row of a conversion through fractions: whole vectors in one
// pass through VEC_Math, the tail by the rule itself.
template <IMB_DataFormat S, bool SF, IMB_DataFormat D, bool DF>
void throughRow(const ThroughRule<S, SF, D, DF> &rule, const ComponentOf<S> *s, ComponentOf<D> *d, int64 n)
{
    if constexpr (S == D && !Format<S>::isInteger)
    {
        // float to float is the value itself, and half to float to half gives
        // back every bit pattern (NaN payloads included).
        if (s != d)
            std::memmove(d, s, static_cast<size_t>(n) * sizeof(ComponentOf<S>));
    }
    else if constexpr (S == IMB_INT32 && D == IMB_INT32)
    {
        ruleLoop(rule, s, d, n);
    }
    else if constexpr (S == IMB_FLOAT32 && (D == IMB_INT8 || D == IMB_INT16))
    {
        VEC_Math::wpoint(d, s, rule.write.scale(), rule.write.white(), rule.write.black(), n);
    }
    else if constexpr ((S == IMB_INT8 || S == IMB_INT16) && D == IMB_FLOAT32)
    {
        if (rule.read.black() <= Format<S>::white)
            VEC_Math::iwpoint(d, s, rule.read.scale(), static_cast<ComponentOf<S>>(rule.read.black()), n);
        else
            ruleLoop(rule, s, d, n);
    }
    else if constexpr (S == IMB_FLOAT32 && D == IMB_FLOAT16)
    {
        VEC_Math::toHalf(d, s, n);
    }
    else if constexpr (S == IMB_FLOAT16 && D == IMB_FLOAT32)
    {
        VEC_Math::fromHalf(d, s, n);
    }
    else
    {
        const int64 done = VEC_Math::convertRow(kindOf<S>, kindOf<D>, s, d, termsOf(rule, n), n);
        ruleLoop(rule, s + done, d + done, n - done);
    }
}

template <typename R> struct isThrough : std::false_type
{
};
template <IMB_DataFormat A, bool AF, IMB_DataFormat B, bool BF>
struct isThrough<ThroughRule<A, AF, B, BF>> : std::true_type
{
};

template <typename R> struct isBits : std::false_type
{
};
template <IMB_DataFormat A, IMB_DataFormat B> struct isBits<BitsRule<A, B>> : std::true_type
{
    static constexpr IMB_DataFormat from = A;
    static constexpr IMB_DataFormat to = B;
};

template <typename Rule, typename S, typename D> struct RowConverter
{
    Rule rule;

    void operator()(const S *s, int64 sInc, D *d, int64 dInc, int64 n) const
    {
        if (sInc == 1 && dInc == 1)
            contiguous(s, d, n);
        else
            for (int64 i = 0; i < n; ++i)
                d[i * dInc] = rule(s[i * sInc]);
    }

    void contiguous(const S *s, D *d, int64 n) const
    {
        if constexpr (std::is_same_v<Rule, CopyRule<S>>)
        {
            if (s != d)
                std::memmove(d, s, static_cast<size_t>(n) * sizeof(S));
        }
        else if constexpr (isThrough<Rule>::value)
            throughRow(rule, s, d, n);
        else if constexpr (isBits<Rule>::value)
        {
            const int64 done = VEC_Math::bitsRow(kindOf<isBits<Rule>::from>, kindOf<isBits<Rule>::to>, s, d, n);
            ruleLoop(rule, s + done, d + done, n - done);
        }
        else
            ruleLoop(rule, s, d, n);
    }
};
} // namespace imb_detail
