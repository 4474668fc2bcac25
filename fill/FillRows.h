// Row functions of the fill engine: apply one per-component rule along a row.
// Strided rows run the rule component by component; contiguous rows take the
// fast forms (block copies, and the VEC_Math vector routines through a small
// float buffer), which give exactly the rule's results.
#pragma once

#include "fill/FillRules.h"
#include "platform/VEC_Math.h"

#include <cstring>

namespace imb_detail
{
// Components per float staging buffer: small enough to stay in the first
// level cache, large enough to hide the per-call overhead.
constexpr int64 kStageChunk = 1024;

template <typename Rule, typename S, typename D> void ruleLoop(const Rule &rule, const S *s, D *d, int64 n)
{
    for (int64 i = 0; i < n; ++i)
        d[i] = rule(s[i]);
}

// The fraction of n contiguous source components, as floats, through the
// vector routines. False when the rule has no such form (a black point that
// does not fit the source's width).
template <IMB_DataFormat S, bool SF> bool stageIn(const Normalise<S, SF> &read, const ComponentOf<S> *s, float *x, int64 n)
{
    if constexpr (S == IMB_FLOAT32)
    {
        std::memcpy(x, s, static_cast<size_t>(n) * sizeof(float));
        return true;
    }
    else if constexpr (S == IMB_FLOAT16)
    {
        VEC_Math::fromHalf(x, s, n);
        return true;
    }
    else
    {
        if (read.black() > Format<S>::white)
            return false;
        VEC_Math::iwpoint(x, s, read.scale(), static_cast<ComponentOf<S>>(read.black()), n);
        return true;
    }
}

template <IMB_DataFormat D, bool DF> void stageOut(const Write<D, DF> &write, const float *x, ComponentOf<D> *d, int64 n)
{
    if constexpr (D == IMB_FLOAT32)
        std::memcpy(d, x, static_cast<size_t>(n) * sizeof(float));
    else if constexpr (D == IMB_FLOAT16)
        VEC_Math::toHalf(d, x, n);
    else
        VEC_Math::wpoint(d, x, write.scale(), write.white(), write.black(), n);
}

template <IMB_DataFormat F> constexpr bool hasFloatStage =
    F == IMB_INT8 || F == IMB_INT16 || F == IMB_FLOAT32 || F == IMB_FLOAT16;

// A contiguous row of a conversion through fractions.
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
    else if constexpr (hasFloatStage<S> && hasFloatStage<D>)
    {
        if constexpr (Format<S>::isInteger && !SF)
        {
            if (rule.read.black() > Format<S>::white)
                return ruleLoop(rule, s, d, n);
        }
        if constexpr (S == IMB_FLOAT32)
        {
            stageOut(rule.write, s, d, n);
        }
        else if constexpr (D == IMB_FLOAT32)
        {
            stageIn(rule.read, s, d, n);
        }
        else
        {
            float x[kStageChunk];
            for (int64 i = 0; i < n; i += kStageChunk)
            {
                const int64 m = n - i < kStageChunk ? n - i : kStageChunk;
                stageIn(rule.read, s + i, x, m);
                stageOut(rule.write, x, d + i, m);
            }
        }
    }
    else
    {
        ruleLoop(rule, s, d, n);
    }
}

template <typename R> struct isThrough : std::false_type
{
};
template <IMB_DataFormat A, bool AF, IMB_DataFormat B, bool BF>
struct isThrough<ThroughRule<A, AF, B, BF>> : std::true_type
{
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
        else
            ruleLoop(rule, s, d, n);
    }
};
} // namespace imb_detail
