#include "Maps/QLM_LayerBlendRows.h"

#include "Rasterizer/QLM_BlendFormulas.h"

#include <cstring>
#include <type_traits>
#include <utility>

// Vectors of the compiler: the same source becomes wide instructions where a function's target has them. Arguments go
// by reference, as vectors by value would depend on the target.
#define QLM_INLINE [[gnu::always_inline]] inline
#if defined(__x86_64__)
#define QLM_WIDE [[gnu::target("avx2")]]
#else
#define QLM_WIDE
#endif

namespace {

constexpr int Block = 32; ///< bytes of a vector
constexpr int RowPixels = QLM_BlendRowLimit;

using Words = uint16_t __attribute__((vector_size(Block)));
using SignedWords = int16_t __attribute__((vector_size(Block)));
using HalfBytes = uint8_t __attribute__((vector_size(Block / 2)));
using Integers = int32_t __attribute__((vector_size(Block)));
using Floats = float __attribute__((vector_size(Block)));

/// A block of bytes as two vectors of words: lanes stay where they are, so a load is a mask and a shift.
struct BytePair {
    Words even, odd;
};
QLM_INLINE void Load(const uint8_t* bytes, BytePair& v) {
    Words packed;
    memcpy(&packed, bytes, Block);
    v.even = packed & 255;
    v.odd = packed >> 8;
}
QLM_INLINE void Store(uint8_t* bytes, const BytePair& v) {
    const Words packed = v.even | (v.odd << 8);
    memcpy(bytes, &packed, Block);
}
/// x / 255 truncated, for 0..65025.
QLM_INLINE void Divide255(Words& x) { x = (x + 1 + (x >> 8)) >> 8; }
QLM_INLINE void Select(const Words& condition, const Words& yes, const Words& no, Words& out) {
    out = (condition & yes) | (~condition & no);
}
/// d mixed towards t with weight a; the quotient truncates toward zero.
QLM_INLINE void Mix(Words& d, const Words& t, const Words& a) {
    const SignedWords difference = (SignedWords)(t - d), sign = difference >> 15;
    Words quotient = (Words)((difference ^ sign) - sign) * a;
    Divide255(quotient);
    d += (Words)(((SignedWords)quotient ^ sign) - sign);
}

// The targets of the formulas that have a vector form.

struct NoTarget {};
template <class Formula> struct WideTarget : NoTarget {};
template <> struct WideTarget<QLM_Shader_Normal> {
    QLM_INLINE static void Get(const Words&, const Words& s, Words& t) { t = s; }
};
template <> struct WideTarget<QLM_Shader_LightenOnly> {
    QLM_INLINE static void Get(const Words& d, const Words& s, Words& t) { Select((Words)(d > s), d, s, t); }
};
template <> struct WideTarget<QLM_Shader_DarkenOnly> {
    QLM_INLINE static void Get(const Words& d, const Words& s, Words& t) { Select((Words)(d < s), d, s, t); }
};
template <> struct WideTarget<QLM_Shader_Multiply> {
    QLM_INLINE static void Get(const Words& d, const Words& s, Words& t) {
        t = d * s;
        Divide255(t);
    }
};
template <> struct WideTarget<QLM_Shader_Screen> {
    QLM_INLINE static void Get(const Words& d, const Words& s, Words& t) {
        t = (255 - d) * (255 - s);
        Divide255(t);
        t = 255 - t;
    }
};
template <> struct WideTarget<QLM_Shader_Overlay> {
    QLM_INLINE static void Get(const Words& d, const Words& s, Words& t) {
        Words multiplied, screened;
        WideTarget<QLM_Shader_Multiply>::Get(d, s, multiplied);
        WideTarget<QLM_Shader_Screen>::Get(d, s, screened);
        t = multiplied * (255 - d) + screened * d;
        Divide255(t);
    }
};
template <> struct WideTarget<QLM_Shader_Difference> {
    QLM_INLINE static void Get(const Words& d, const Words& s, Words& t) { Select((Words)(d > s), d - s, s - d, t); }
};
template <> struct WideTarget<QLM_Shader_RgbUp> {
    QLM_INLINE static void Get(const Words& d, const Words& s, Words& t) {
        Select((Words)(d + s > 255), Words{} + 255, d + s, t);
    }
};
template <> struct WideTarget<QLM_Shader_RgbDown> {
    QLM_INLINE static void Get(const Words& d, const Words& s, Words& t) { Select((Words)(d > s), d - s, Words{}, t); }
};
/// Clamps words that may have fallen below 0 or risen above 255.
QLM_INLINE void Clamp(SignedWords& x) {
    x &= (SignedWords)(x > 0);
    const SignedWords over = (SignedWords)(x > 255);
    x = (over & 255) | (~over & x);
}
template <> struct WideTarget<QLM_Shader_HardLight> {
    QLM_INLINE static void Get(const Words& d, const Words& s, Words& t) {
        SignedWords x = (SignedWords)(d + s + s) - 254;
        Clamp(x);
        t = (Words)x;
    }
};
template <> struct WideTarget<QLM_Shader_SoftLight> {
    QLM_INLINE static void Get(const Words& d, const Words& s, Words& t) {
        SignedWords x = (SignedWords)d + (((SignedWords)s - 127) >> 1);
        Clamp(x);
        t = (Words)x;
    }
};

// Hue, lightness and saturation of a few pixels at a time, as the formulas of QLM_ByteHSL.h without their branches. All
// numbers are whole below 2^24 or halves below 2^23, which floats hold exactly.

constexpr int Lanes = Block / sizeof(float); ///< pixels of a group

/// Three numbers of each pixel: RGB, or hue, lightness and saturation.
struct PixelGroup {
    Floats x, y, z;
};
QLM_INLINE void LoadGroup(const uint8_t* bytes, PixelGroup& v) {
    HalfBytes low, high; // overlap, so as not to read beyond the group
    memcpy(&low, bytes, sizeof low);
    memcpy(&high, bytes + Lanes * 3 - sizeof high, sizeof high);
    low = __builtin_shufflevector(low, low, 0, 1, 2, 2, 3, 4, 5, 5, 6, 7, 8, 8, 9, 10, 11, 11);
    high = __builtin_shufflevector(high, high, 4, 5, 6, 6, 7, 8, 9, 9, 10, 11, 12, 12, 13, 14, 15, 15);
    using HalfIntegers = int32_t __attribute__((vector_size(Block / 2)));
    const Integers pixels = __builtin_shufflevector((HalfIntegers)low, (HalfIntegers)high, 0, 1, 2, 3, 4, 5, 6, 7);
    v.x = __builtin_convertvector(pixels & 255, Floats);
    v.y = __builtin_convertvector(pixels >> 8 & 255, Floats);
    v.z = __builtin_convertvector(pixels >> 16 & 255, Floats);
}
/// Drops what lies behind the point.
QLM_INLINE void StoreGroup(uint8_t* bytes, const PixelGroup& v) {
    const Integers pixels = __builtin_convertvector(v.x, Integers) | __builtin_convertvector(v.y, Integers) << 8 |
                            __builtin_convertvector(v.z, Integers) << 16;
    HalfBytes halves[2];
    memcpy(halves, &pixels, sizeof halves);
    for (HalfBytes& half : halves) {
        half = __builtin_shufflevector(half, half, 0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, 15, 15, 15, 15);
        memcpy(bytes, &half, 12);
        bytes += 12;
    }
}
QLM_INLINE void Truncate(Floats& x) { x = __builtin_convertvector(__builtin_convertvector(x, Integers), Floats); }

QLM_INLINE void ToHSL(PixelGroup& v) {
    const Floats r = v.x, g = v.y, b = v.z, zero{}, one = zero + 1;
    Floats largest = r > g ? r : g, smallest = r < g ? r : g;
    largest = largest > b ? largest : b;
    smallest = smallest < b ? smallest : b;
    const Floats sum = largest + smallest, rest = 510 - sum, spread = largest - smallest;
    const Floats room = sum < rest ? sum : rest;

    const Integers isBlue = b == largest, isGreen = g == largest;
    const Floats difference = isBlue ? r - g : isGreen ? b - r : g - b;
    const Floats offset = isBlue ? zero + 1020 : isGreen ? zero + 510 : zero;
    Floats hue = difference * 255 / (spread > one ? spread : one);
    Truncate(hue);
    // The float next to 1 / 6 lies above it: multiples of 6 stay whole.
    hue = (hue + offset) * (1.0f / 6);
    Truncate(hue);
    hue = hue < zero ? hue + 256 : hue;

    v.x = spread > zero ? hue : zero;
    v.y = sum * 0.5f;
    v.z = spread * 255 / (room > one ? room : one); // greys divide 0, by what doesn't matter
}

/// One channel from its least value, rounding included, and how far it rises, in steps of a sextant.
QLM_INLINE void RampChannel(const Floats& least, const Floats& reach, const Floats& position, Floats& out) {
    const Floats zero{}, top = zero + QLM_HSL::Sextant;
    Floats ramp = position > zero ? position : zero;
    ramp = ramp < top ? ramp : top;
    // The half in `least` keeps the quotients so far from whole numbers that the reciprocal's error doesn't matter.
    out = (least + reach * ramp) * (1.0f / (255 * QLM_HSL::Sextant));
}
QLM_INLINE void Magnitude(Floats& x) { x = (Floats)((Integers)x & 0x7fffffff); }

QLM_INLINE void ToRGB(PixelGroup& v) {
    constexpr int Sextant = QLM_HSL::Sextant;
    const Floats mirrored = 255 - v.y;
    const Floats reach = (v.y < mirrored ? v.y : mirrored) * v.z;
    const Floats least = (v.y * 255 - reach) * Sextant + 255 * Sextant * 0.5f;
    // Distances from where a channel is least (red) or largest.
    Floats red = v.x * 2 - 3 * Sextant, green = v.x * 2 - 2 * Sextant, blue = v.x * 2 - 4 * Sextant;
    Magnitude(red);
    Magnitude(green);
    Magnitude(blue);
    RampChannel(least, reach * 2, red - Sextant, v.x);
    RampChannel(least, reach * 2, 2 * Sextant - green, v.y);
    RampChannel(least, reach * 2, 2 * Sextant - blue, v.z);
}

/// `count` pixels, a multiple of the group; the rows may be the same.
template <void (&convert)(PixelGroup&)> QLM_INLINE void ConvertRow(const uint8_t* from, uint8_t* to, int count) {
    for (int i = 0; i < count * 3; i += Lanes * 3) {
        PixelGroup v;
        LoadGroup(from + i, v);
        convert(v);
        StoreGroup(to + i, v);
    }
}

constexpr QLM_BlendParameters layerParameters{255, QLM_FullSaturationSpread.data()};

template <class Formula> constexpr bool IsOfHSL = std::is_base_of_v<QLM_BlendHSL<Formula>, Formula>;

/// What a formula of hue, lightness and saturation mixes the composite towards. Takes the weight of pixels that the
/// formula leaves alone. `count` is a multiple of the block.
template <class Formula>
QLM_INLINE void FindTargets(const QLM_BlendRow& row, int count, uint8_t* weights, uint8_t* targets) {
    QLM_ByteHSL own[RowPixels], source[RowPixels];
    uint8_t* ownBytes = reinterpret_cast<uint8_t*>(own);
    ConvertRow<ToHSL>(row.color, ownBytes, count);
    if constexpr (Formula::takesHSL) {
        ConvertRow<ToHSL>(row.layer, reinterpret_cast<uint8_t*>(source), count);
        for (int i = 0; i < count; ++i) Formula::Change(own[i], source[i], layerParameters);
    } else {
        for (int i = 0; i < count; ++i)
            if (!Formula::Change(own[i], row.layer + i * 3, layerParameters)) weights[i] = 0;
    }
    ConvertRow<ToRGB>(ownBytes, targets, count);
}

/// Each byte of a row three times. Reads and writes whole blocks.
QLM_INLINE void Triple(const uint8_t* bytes, uint8_t* out, int count) {
    constexpr int Half = Block / 2;
    for (int i = 0; i < count; i += Half, out += 3 * Half) {
        HalfBytes v;
        memcpy(&v, bytes + i, Half);
        const HalfBytes parts[3] = {
            __builtin_shufflevector(v, v, 0, 0, 0, 1, 1, 1, 2, 2, 2, 3, 3, 3, 4, 4, 4, 5),
            __builtin_shufflevector(v, v, 5, 5, 6, 6, 6, 7, 7, 7, 8, 8, 8, 9, 9, 9, 10, 10),
            __builtin_shufflevector(v, v, 10, 11, 11, 11, 12, 12, 12, 13, 13, 13, 14, 14, 14, 15, 15, 15)};
        memcpy(out, parts, sizeof parts);
    }
}

/// Weighs the layer's mask by its opacity and raises the composite's alpha; false when the layer leaves no trace here.
/// `count` is a multiple of the block.
QLM_INLINE bool WeighBlocks(uint8_t* alpha, const uint8_t* mask, int opacity, int count, uint8_t* weights) {
    const Words factor = Words{} + static_cast<uint16_t>(opacity);
    Words any{};
    for (int i = 0; i < count; i += Block) {
        BytePair a, A;
        Load(mask + i, a);
        a.even *= factor;
        a.odd *= factor;
        Divide255(a.even);
        Divide255(a.odd);
        any |= a.even | a.odd;
        Store(weights + i, a);

        Load(alpha + i, A);
        Words rise = (255 - A.even) * a.even;
        Divide255(rise);
        A.even += rise;
        rise = (255 - A.odd) * a.odd;
        Divide255(rise);
        A.odd += rise;
        Store(alpha + i, A);
    }
    uint64_t lanes[Block / 8], united = 0;
    memcpy(lanes, &any, Block);
    for (const uint64_t lane : lanes) united |= lane;
    return united != 0;
}

template <class Formula> void BlendPixels(const QLM_BlendRow& row, int first) {
    for (int i = first; i < row.count; ++i) {
        const int a = QLM_Divide255(row.mask[i] * row.opacity);
        if (a == 0) continue;
        uint8_t out[3];
        Formula::Apply(row.color + i * 3, row.layer + i * 3, a, layerParameters, out);
        memcpy(row.color + i * 3, out, 3);
        row.alpha[i] = QLM_RaiseMask(row.alpha[i], a);
    }
}

/// `count` is a multiple of the block.
template <class Formula>
QLM_INLINE void MixBlocks(uint8_t* color, const uint8_t* layer, const uint8_t* weights, int count) {
    alignas(Block) uint8_t triples[RowPixels * 3];
    Triple(weights, triples, count);
    for (int i = 0; i < count * 3; i += Block) {
        BytePair d, s, a;
        Words target;
        Load(color + i, d);
        Load(layer + i, s);
        Load(triples + i, a);
        WideTarget<Formula>::Get(d.even, s.even, target);
        Mix(d.even, target, a.even);
        WideTarget<Formula>::Get(d.odd, s.odd, target);
        Mix(d.odd, target, a.odd);
        Store(color + i, d);
    }
}

template <class Formula> QLM_INLINE void BlendBlocks(const QLM_BlendRow& row) {
    const int whole = row.count / Block * Block;
    alignas(Block) uint8_t weights[RowPixels];
    if (WeighBlocks(row.alpha, row.mask, row.opacity, whole, weights)) {
        if constexpr (IsOfHSL<Formula>) {
            uint8_t targets[RowPixels * 3];
            FindTargets<Formula>(row, whole, weights, targets);
            MixBlocks<QLM_Shader_Normal>(row.color, targets, weights, whole);
        } else {
            MixBlocks<Formula>(row.color, row.layer, weights, whole);
        }
    }
    BlendPixels<Formula>(row, whole);
}

template <class Formula> void BlendRowScalar(const QLM_BlendRow& row) { BlendPixels<Formula>(row, 0); }
template <class Formula> void BlendRowBaseline(const QLM_BlendRow& row) { BlendBlocks<Formula>(row); }
template <class Formula> QLM_WIDE void BlendRowWide(const QLM_BlendRow& row) { BlendBlocks<Formula>(row); }

template <class Formula> constexpr bool HasTarget = !std::is_base_of_v<NoTarget, WideTarget<Formula>>;

template <class Formula> QLM_BlendRowFunction ChooseRow(QLM_RowKernel kernel) {
    if constexpr (HasTarget<Formula> || IsOfHSL<Formula>)
        if (kernel == QLM_RowKernel::Wide) return BlendRowWide<Formula>;
    // Without a shuffle of bytes, groups of pixels are slower than single ones.
    if constexpr (HasTarget<Formula>)
        if (kernel == QLM_RowKernel::Baseline) return BlendRowBaseline<Formula>;
    return BlendRowScalar<Formula>;
}

using RowChooser = QLM_BlendRowFunction (*)(QLM_RowKernel);
template <size_t... Index> constexpr std::array<RowChooser, sizeof...(Index)> MakeTable(std::index_sequence<Index...>) {
    return {ChooseRow<std::tuple_element_t<Index, QLM_LayerBlendFormulas>>...};
}
constexpr auto rowTable = MakeTable(std::make_index_sequence<QLM_BlendTypeCount>());

// Finishing.

void FinishPixels(uint8_t* color, const uint8_t* alpha, const uint8_t* checker, int first, int count) {
    for (int i = first; i < count; ++i)
        for (int c = i * 3; c < i * 3 + 3; ++c) {
            const int straight = alpha[i] ? std::min(255, color[c] * 255 / alpha[i]) : 0;
            color[c] = static_cast<uint8_t>(checker ? QLM_BlendMix(checker[c], straight, alpha[i]) : straight);
        }
}

/// c x 255 / A, cut to 255, and 0 where A is 0. A float's quotient of such integers never rounds up to a whole one
/// below 256, so its integer part is exact.
QLM_INLINE void Straighten(Words& color, const Words& alpha) {
    using Floats = float __attribute__((vector_size(Block / 2 * sizeof(float))));
    using Integers = int32_t __attribute__((vector_size(Block / 2 * sizeof(int32_t))));
    const Words empty = (Words)(alpha == 0);
    const Words dividend = color * 255, divisor = alpha | (empty & 1);
    const Floats quotient = __builtin_convertvector(__builtin_convertvector(dividend, Integers), Floats) /
                            __builtin_convertvector(__builtin_convertvector(divisor, Integers), Floats);
    const Words whole = __builtin_convertvector(__builtin_convertvector(quotient, Integers), Words);
    Select((Words)(whole > 255), Words{} + 255, whole, color);
    color &= ~empty;
}

QLM_INLINE void FinishBlocks(uint8_t* color, const uint8_t* alpha, const uint8_t* checker, int count) {
    const int whole = count / Block * Block;
    alignas(Block) uint8_t triples[RowPixels * 3];
    Triple(alpha, triples, whole);
    for (int i = 0; i < whole * 3; i += Block) {
        BytePair c, A;
        Load(color + i, c);
        Load(triples + i, A);
        Straighten(c.even, A.even);
        Straighten(c.odd, A.odd);
        if (checker) {
            BytePair k;
            Load(checker + i, k);
            Mix(k.even, c.even, A.even);
            Mix(k.odd, c.odd, A.odd);
            c = k;
        }
        Store(color + i, c);
    }
    FinishPixels(color, alpha, checker, whole, count);
}
QLM_WIDE void FinishBlocksWide(uint8_t* color, const uint8_t* alpha, const uint8_t* checker, int count) {
    FinishBlocks(color, alpha, checker, count);
}

} // namespace

QLM_RowKernel QLM_GetRowKernel() {
#if defined(__x86_64__)
    static const bool isWide = __builtin_cpu_supports("avx2");
    return isWide ? QLM_RowKernel::Wide : QLM_RowKernel::Baseline;
#else
    return QLM_RowKernel::Baseline;
#endif
}

QLM_BlendRowFunction QLM_GetBlendRow(int blendType, QLM_RowKernel kernel) {
    const bool isKnown = blendType >= 0 && blendType < QLM_BlendTypeCount;
    return rowTable[isKnown ? static_cast<size_t>(blendType) : 0](kernel);
}

void QLM_FinishRow(uint8_t* color, const uint8_t* alpha, const uint8_t* checker, int count, QLM_RowKernel kernel) {
    // Opaque pixels are finished as they are.
    if (std::all_of(alpha, alpha + count, [](uint8_t a) { return a == 255; })) return;
    if (kernel == QLM_RowKernel::Wide) FinishBlocksWide(color, alpha, checker, count);
    else if (kernel == QLM_RowKernel::Baseline) FinishBlocks(color, alpha, checker, count);
    else FinishPixels(color, alpha, checker, 0, count);
}
