// The per-component rules of the fill engine: how one component of each
// format is read as a fraction of its range and written back, and which rule
// a (source, destination, fast, fast) combination uses. Everything that
// decides a component's value lives here; the row walker only moves pointers.
#pragma once

#include <IMB/IMB_Formats.h>
#include <IMB/platform/BAS_Types.h>
#include <IMB/platform/half16.h>

#include <cmath>
#include <type_traits>

namespace imb_detail
{
// 1/255 and 1/65535 as the library has always rounded them; every 8- and
// 16-bit normalisation multiplies by these exact constants.
constexpr float kInv255 = 0.003921569f;
constexpr float kInv65535 = 1.5259022e-5f;
constexpr double kWhite32 = 4294967295.0;

template <IMB_DataFormat F> struct Format;
template <> struct Format<IMB_INT8>
{
    using Type = uint8;
    static constexpr uint32 white = 0xFF;
    static constexpr bool isInteger = true;
    static constexpr float inverseWhite = kInv255;
};
template <> struct Format<IMB_INT16>
{
    using Type = uint16;
    static constexpr uint32 white = 0xFFFF;
    static constexpr bool isInteger = true;
    static constexpr float inverseWhite = kInv65535;
};
template <> struct Format<IMB_INT32>
{
    using Type = uint32;
    static constexpr uint32 white = 0xFFFFFFFF;
    static constexpr bool isInteger = true;
};
template <> struct Format<IMB_FLOAT32>
{
    using Type = float;
    static constexpr bool isInteger = false;
};
// Halves are handled as their bit patterns.
template <> struct Format<IMB_FLOAT16>
{
    using Type = uint16;
    static constexpr bool isInteger = false;
};

template <IMB_DataFormat F> using ComponentOf = typename Format<F>::Type;

// The black-to-white range as a number: white may lie below black, which
// inverts the values.
inline int64 rangeOf(uint32 black, uint32 white)
{
    return static_cast<int64>(white) - static_cast<int64>(black);
}

// ------------------------------------------------------------------ reading
// Normalise<F, Fast> reads a component as a fraction x of its range. 8- and
// 16-bit, float and half sources give a float; 32-bit sources a double.
template <IMB_DataFormat F, bool Fast> struct Normalise;

template <IMB_DataFormat F> struct NormaliseFull
{
    using Result = float;
    NormaliseFull(uint32, uint32) {}
    float operator()(ComponentOf<F> v) const { return static_cast<float>(v) * Format<F>::inverseWhite; }
    float scale() const { return Format<F>::inverseWhite; }
    uint32 black() const { return 0; }
};

// A custom range: v - black is a 32-bit difference read as signed, so values
// below black (or far above white) give negative fractions; callers rely on
// this wrap-around exactly.
template <IMB_DataFormat F> struct NormaliseCustom
{
    using Result = float;
    NormaliseCustom(uint32 black, uint32 white)
        : myBlack(black), myScale(black == white ? 1.0f : 1.0f / static_cast<float>(rangeOf(black, white)))
    {
    }
    float operator()(ComponentOf<F> v) const
    {
        return static_cast<float>(static_cast<int32>(static_cast<uint32>(v) - myBlack)) * myScale;
    }
    float scale() const { return myScale; }
    uint32 black() const { return myBlack; }

    uint32 myBlack;
    float myScale;
};

#define IMB_SMALL_RULE(Rule, Base, F, Fast)                                                                      \
    template <> struct Rule<F, Fast> : Base<F>                                                                      \
    {                                                                                                               \
        using Base<F>::Base;                                                                                        \
    }
IMB_SMALL_RULE(Normalise, NormaliseFull, IMB_INT8, true);
IMB_SMALL_RULE(Normalise, NormaliseFull, IMB_INT16, true);
IMB_SMALL_RULE(Normalise, NormaliseCustom, IMB_INT8, false);
IMB_SMALL_RULE(Normalise, NormaliseCustom, IMB_INT16, false);

template <> struct Normalise<IMB_INT32, true>
{
    using Result = double;
    Normalise(uint32, uint32) {}
    double operator()(uint32 v) const { return static_cast<double>(v) / kWhite32; }
};

template <> struct Normalise<IMB_INT32, false>
{
    using Result = double;
    Normalise(uint32 black, uint32 white)
        : myBlack(black), myScale(black == white ? 1.0 : 1.0 / static_cast<double>(rangeOf(black, white)))
    {
    }
    double operator()(uint32 v) const { return static_cast<double>(static_cast<int32>(v - myBlack)) * myScale; }

    uint32 myBlack;
    double myScale;
};

// Float sources are their own fraction; black and white are never read.
template <bool Fast> struct Normalise<IMB_FLOAT32, Fast>
{
    using Result = float;
    Normalise(uint32, uint32) {}
    float operator()(float v) const { return v; }
};

template <bool Fast> struct Normalise<IMB_FLOAT16, Fast>
{
    using Result = float;
    Normalise(uint32, uint32) {}
    float operator()(uint16 bits) const { return half16::toFloat(bits); }
};

// ------------------------------------------------------------------ writing
// floor(y) of an 8- or 16-bit result, clamped to [0, white]; NaN gives 0.
template <typename T> inline T roundClamp(float y, float white)
{
    const float r = std::floor(y);
    if (!(r > 0.0f))
        return 0;
    return static_cast<T>(r < white ? r : white);
}

// floor(y) of a 32-bit result, clamped to [0, 4294967295]; NaN gives 0.
inline uint32 roundClamp32(double y)
{
    const double r = std::floor(y);
    if (!(r > 0.0))
        return 0;
    return r < kWhite32 ? static_cast<uint32>(r) : 0xFFFFFFFFu;
}

// Write<F, Fast> turns a fraction x back into a component of format F.
template <IMB_DataFormat F, bool Fast> struct Write;

template <IMB_DataFormat F> struct WriteFull
{
    using Type = ComponentOf<F>;
    WriteFull(uint32, uint32) {}
    Type operator()(float x) const { return roundClamp<Type>(x * white() + 0.5f, white()); }
    static constexpr float white() { return static_cast<float>(Format<F>::white); }
    // The terms of floor(x * scale + black + 0.5).
    float scale() const { return white(); }
    float black() const { return 0.0f; }
};

template <IMB_DataFormat F> struct WriteCustom
{
    using Type = ComponentOf<F>;
    WriteCustom(uint32 black, uint32 white)
        : myRange(static_cast<float>(rangeOf(black, white))), myBlack(static_cast<float>(black))
    {
    }
    Type operator()(float x) const { return roundClamp<Type>(x * myRange + myBlack + 0.5f, white()); }
    static constexpr float white() { return static_cast<float>(Format<F>::white); }
    float scale() const { return myRange; }
    float black() const { return myBlack; }

    float myRange;
    float myBlack;
};

IMB_SMALL_RULE(Write, WriteFull, IMB_INT8, true);
IMB_SMALL_RULE(Write, WriteFull, IMB_INT16, true);
IMB_SMALL_RULE(Write, WriteCustom, IMB_INT8, false);
IMB_SMALL_RULE(Write, WriteCustom, IMB_INT16, false);
#undef IMB_SMALL_RULE

// 32-bit destinations always scale by the black and white they are given,
// fast or not: fill hands them the stored myDestBlack/myDestWhite, so a float
// source on a default fast 32-bit destination lands in 0-255. Deliberate;
// callers that want the full range store 4294967295 as white themselves.
template <bool Fast> struct Write<IMB_INT32, Fast>
{
    using Type = uint32;
    Write(uint32 black, uint32 white)
        : myRange(static_cast<double>(rangeOf(black, white))), myBlack(static_cast<double>(black))
    {
    }
    uint32 operator()(double x) const { return roundClamp32(x * myRange + myBlack + 0.5); }

    double myRange;
    double myBlack;
};

// Float destinations take the fraction as it is (no black/white).
template <bool Fast> struct Write<IMB_FLOAT32, Fast>
{
    using Type = float;
    Write(uint32, uint32) {}
    float operator()(float x) const { return x; }
    float operator()(double x) const { return static_cast<float>(x); }
};

template <bool Fast> struct Write<IMB_FLOAT16, Fast>
{
    using Type = uint16;
    Write(uint32, uint32) {}
    uint16 operator()(float x) const { return half16::fromFloat(x); }
    uint16 operator()(double x) const { return half16::fromFloat(static_cast<float>(x)); }
};

// 8- and 16-bit writers work in single precision even from a double fraction.
template <typename W, typename X> inline auto writeAs(const W &w, X x)
{
    if constexpr (std::is_same_v<X, double> && !std::is_same_v<typename W::Type, uint32>)
        return w(static_cast<float>(x));
    else
        return w(x);
}

// ------------------------------------------------------------------ rules
// Each rule maps one source component to one destination component.

// The same component, unchanged.
template <typename T> struct CopyRule
{
    T operator()(T v) const { return v; }
};

// Integer to integer with both sides at full range: no arithmetic through
// floats. Widening replicates the bits (8 to 16: v * 257, 8 to 32: v *
// 0x01010101); narrowing keeps the high part and rounds on the highest dropped
// bit without overflowing.
template <IMB_DataFormat S, IMB_DataFormat D> struct BitsRule;

template <> struct BitsRule<IMB_INT8, IMB_INT16>
{
    uint16 operator()(uint8 v) const { return static_cast<uint16>(v * 257u); }
};
template <> struct BitsRule<IMB_INT8, IMB_INT32>
{
    uint32 operator()(uint8 v) const { return v * 0x01010101u; }
};
template <> struct BitsRule<IMB_INT16, IMB_INT8>
{
    uint8 operator()(uint16 v) const
    {
        const uint32 r = (static_cast<uint32>(v) >> 8) + ((static_cast<uint32>(v) >> 7) & 1u);
        return static_cast<uint8>(r < 255u ? r : 255u);
    }
};
template <> struct BitsRule<IMB_INT32, IMB_INT8>
{
    uint8 operator()(uint32 v) const
    {
        const uint32 r = (v >> 24) + ((v >> 23) & 1u);
        return static_cast<uint8>(r < 255u ? r : 255u);
    }
};
template <> struct BitsRule<IMB_INT32, IMB_INT16>
{
    uint16 operator()(uint32 v) const
    {
        const uint32 r = (v >> 16) + ((v >> 15) & 1u);
        return static_cast<uint16>(r < 65535u ? r : 65535u);
    }
};

// Everything else: normalise to a fraction, then write it.
template <IMB_DataFormat S, bool SF, IMB_DataFormat D, bool DF> struct ThroughRule
{
    ThroughRule(uint32 sb, uint32 sw, uint32 db, uint32 dw) : read(sb, sw), write(db, dw) {}
    ComponentOf<D> operator()(ComponentOf<S> v) const { return writeAs(write, read(v)); }

    Normalise<S, SF> read;
    Write<D, DF> write;
};

// Which rule a combination uses when the identity copy does not apply.
// 16 to 32 bits is deliberately not a bit replication: it goes through floats
// and the stored destination range, and callers rely on that.
template <IMB_DataFormat S, IMB_DataFormat D, bool SF, bool DF>
constexpr bool usesBits = SF && DF &&
                          ((S == IMB_INT8 && (D == IMB_INT16 || D == IMB_INT32)) ||
                           (S == IMB_INT16 && D == IMB_INT8) ||
                           (S == IMB_INT32 && (D == IMB_INT8 || D == IMB_INT16)));

} // namespace imb_detail
