// The 26 blend modes, each a struct with its four-character code and its formula: b is the backdrop, s the
// source laid over it, r the result, floats nominally 0..1. Only the clamps a formula names are applied, and
// its strict comparisons decide the branch at equal values. Integer kernels run these formulas on
// ToUnit samples and store with FromUnit.
#pragma once

#include "KXEffects.h"
#include "KXEffectsColorMath.h"
#include "KXEffectsUtils.h"

#include <algorithm>
#include <cstdint>

// Every mode code starts with a lower-case letter, so bit 29 is set; a word with it clear is reversed.
inline constexpr uint32_t kBlendReversedBit = 0x20000000;

constexpr bool IsReversedBlendMode(uint32_t code)
{
    return (code & kBlendReversedBit) == 0;
}

constexpr uint32_t NormalBlendMode(uint32_t code)
{
    return code | kBlendReversedBit;
}

// A mode that works plane by plane: Pixel applies Mode::Plane to each of the three colour planes.
template <class Mode, uint32_t Code> struct PlaneBlendMode {
    static constexpr uint32_t kCode = Code;
    static constexpr bool kWholePixel = false;
    static void Pixel(const float* b, const float* s, float* r)
    {
        for (int32_t c = 0; c < 3; ++c)
            r[c] = Mode::Plane(b[c], s[c]);
    }
};

// A mode over the whole pixel; it has Pixel only.
template <uint32_t Code> struct WholePixelBlendMode {
    static constexpr uint32_t kCode = Code;
    static constexpr bool kWholePixel = true;
};

// r = s
struct BlendNormal : PlaneBlendMode<BlendNormal, FourCharCode("norm")> {
    static float Plane(float, float s) { return s; }
};

// r = s if b > s, else b
struct BlendDarken : PlaneBlendMode<BlendDarken, FourCharCode("dark")> {
    static float Plane(float b, float s) { return b > s ? s : b; }
};

// r = s if s > b, else b
struct BlendLighten : PlaneBlendMode<BlendLighten, FourCharCode("lite")> {
    static float Plane(float b, float s) { return s > b ? s : b; }
};

// The pixel of the given luma, chroma and hue.
inline void PixelFromLumaChromaHue(float luma, float chroma, float hue, float* r)
{
    const float lumaChromaHue[3] = {luma, chroma, hue};
    KXEffectsLumaChromaHueToRGB(lumaChromaHue, r);
}

// Luma, chroma and hue of both pixels, for the modes that take parts of each.
struct LumaChromaHueOfBoth {
    float b[3];
    float s[3];
    LumaChromaHueOfBoth(const float* backdrop, const float* source)
    {
        KXEffectsRGBToLumaChromaHue(backdrop, b);
        KXEffectsRGBToLumaChromaHue(source, s);
    }
};

// luma(b), chroma(b), hue(s); a gray source keeps chroma 0, giving a gray of luma(b)
struct BlendHue : WholePixelBlendMode<FourCharCode("hue ")> {
    static void Pixel(const float* b, const float* s, float* r)
    {
        const LumaChromaHueOfBoth both(b, s);
        PixelFromLumaChromaHue(both.b[0], both.s[1] == 0.0f ? 0.0f : both.b[1], both.s[2], r);
    }
};

// luma(b), chroma(s), hue(b); a gray backdrop keeps chroma 0
struct BlendSaturation : WholePixelBlendMode<FourCharCode("sat ")> {
    static void Pixel(const float* b, const float* s, float* r)
    {
        const LumaChromaHueOfBoth both(b, s);
        PixelFromLumaChromaHue(both.b[0], both.b[1] == 0.0f ? 0.0f : both.s[1], both.b[2], r);
    }
};

// luma(b), chroma(s), hue(s)
struct BlendColor : WholePixelBlendMode<FourCharCode("colr")> {
    static void Pixel(const float* b, const float* s, float* r)
    {
        float source[3];
        KXEffectsRGBToLumaChromaHue(s, source);
        PixelFromLumaChromaHue(Luma(b), source[1], source[2], r);
    }
};

// luma(s), chroma(b), hue(b)
struct BlendLuminosity : WholePixelBlendMode<FourCharCode("lum ")> {
    static void Pixel(const float* b, const float* s, float* r)
    {
        float backdrop[3];
        KXEffectsRGBToLumaChromaHue(b, backdrop);
        PixelFromLumaChromaHue(Luma(s), backdrop[1], backdrop[2], r);
    }
};

// r = b s
struct BlendMultiply : PlaneBlendMode<BlendMultiply, FourCharCode("mul ")> {
    static float Plane(float b, float s) { return b * s; }
};

// r = b + s - b s
struct BlendScreen : PlaneBlendMode<BlendScreen, FourCharCode("scrn")> {
    static float Plane(float b, float s) { return b + s - b * s; }
};

// r = 2 s b if 0.5 > b, else 2 (b + s - b s) - 1
struct BlendOverlay : PlaneBlendMode<BlendOverlay, FourCharCode("over")> {
    static float Plane(float b, float s) { return 0.5f > b ? s * 2.0f * b : (b + s - b * s) * 2.0f - 1.0f; }
};

// r = 2 s b if 0.5 > s, else 2 (b + s - b s) - 1
struct BlendHardLight : PlaneBlendMode<BlendHardLight, FourCharCode("hLit")> {
    static float Plane(float b, float s) { return 0.5f > s ? s * 2.0f * b : (b + s - b * s) * 2.0f - 1.0f; }
};

// r = ((1 - b) 2s + b) b
struct BlendSoftLight : PlaneBlendMode<BlendSoftLight, FourCharCode("sLit")> {
    static float Plane(float b, float s) { return ((1.0f - b) * (2.0f * s) + b) * b; }
};

// r = |b - s|
struct BlendDifference : PlaneBlendMode<BlendDifference, FourCharCode("diff")> {
    static float Plane(float b, float s) { return s > b ? s - b : b - s; }
};

// r = b + s - 2 s b
struct BlendExclusion : PlaneBlendMode<BlendExclusion, FourCharCode("smud")> {
    static float Plane(float b, float s) { return b + s - 2.0f * s * b; }
};

// r = min(b / (1 - s), 1) if 1 > s; else 1 if b > 0, else 0
struct BlendColorDodge : PlaneBlendMode<BlendColorDodge, FourCharCode("div ")> {
    static float Plane(float b, float s)
    {
        return 1.0f > s ? std::min(b / (1.0f - s), 1.0f) : (b > 0.0f ? 1.0f : 0.0f);
    }
};

// r = max((b - 1) / s + 1, 0) if s > 0; else 1 if b >= 1, else 0
struct BlendColorBurn : PlaneBlendMode<BlendColorBurn, FourCharCode("idiv")> {
    static float Plane(float b, float s)
    {
        return s > 0.0f ? std::max((b - 1.0f) / s + 1.0f, 0.0f) : (b >= 1.0f ? 1.0f : 0.0f);
    }
};

// r = max(b + s - 1, 0)
struct BlendLinearBurn : PlaneBlendMode<BlendLinearBurn, FourCharCode("lbrn")> {
    static float Plane(float b, float s) { return std::max(b + s - 1.0f, 0.0f); }
};

// r = min(b + s, 1)
struct BlendLinearDodge : PlaneBlendMode<BlendLinearDodge, FourCharCode("lddg")> {
    static float Plane(float b, float s) { return std::min(b + s, 1.0f); }
};

// r = 0 if 0 >= s; burn by 2s below 0.5; dodge by 2s - 1 below 1; else 1
struct BlendVividLight : PlaneBlendMode<BlendVividLight, FourCharCode("vLit")> {
    static float Plane(float b, float s)
    {
        if (0.0f >= s)
            return 0.0f;
        if (0.5f > s)
            return std::max((b - 1.0f) / (2.0f * s) + 1.0f, 0.0f);
        if (1.0f > s)
            return std::min(b / (2.0f - 2.0f * s), 1.0f);
        return 1.0f;
    }
};

// r = min(max(2s + b - 1, 0), 1)
struct BlendLinearLight : PlaneBlendMode<BlendLinearLight, FourCharCode("llit")> {
    static float Plane(float b, float s) { return std::min(std::max(2.0f * s + b - 1.0f, 0.0f), 1.0f); }
};

// r = min(b, 2s) if 0.5 > s, else max(b, 2s - 1), b kept at equal values
struct BlendPinLight : PlaneBlendMode<BlendPinLight, FourCharCode("pLit")> {
    static float Plane(float b, float s)
    {
        const float twice = 2.0f * s;
        if (0.5f > s)
            return twice >= b ? b : twice;
        return twice - 1.0f > b ? twice - 1.0f : b;
    }
};

// r = 1 if b + s > 1 or b >= 1, else 0
struct BlendHardMix : PlaneBlendMode<BlendHardMix, FourCharCode("hMix")> {
    static float Plane(float b, float s) { return b + s > 1.0f || b >= 1.0f ? 1.0f : 0.0f; }
};

// The whole pixel s if luma(b) > luma(s), else b
struct BlendDarkerColor : WholePixelBlendMode<FourCharCode("dkCl")> {
    static void Pixel(const float* b, const float* s, float* r)
    {
        const float* chosen = Luma(b) > Luma(s) ? s : b;
        std::copy(chosen, chosen + 3, r);
    }
};

// The whole pixel s if luma(s) > luma(b), else b
struct BlendLighterColor : WholePixelBlendMode<FourCharCode("lgCl")> {
    static void Pixel(const float* b, const float* s, float* r)
    {
        const float* chosen = Luma(s) > Luma(b) ? s : b;
        std::copy(chosen, chosen + 3, r);
    }
};

// r = max(b - s, 0)
struct BlendSubtract : PlaneBlendMode<BlendSubtract, FourCharCode("fsub")> {
    static float Plane(float b, float s) { return std::max(b - s, 0.0f); }
};

// r = min(b / s, 1) if s > 0; else 1 if b > 0, else 0
struct BlendDivide : PlaneBlendMode<BlendDivide, FourCharCode("fdiv")> {
    static float Plane(float b, float s) { return s > 0.0f ? std::min(b / s, 1.0f) : (b > 0.0f ? 1.0f : 0.0f); }
};

template <class... Modes> struct BlendModeList {
};

// The one list of the modes, in the library's order; a mode is dispatched once it is here.
using AllBlendModes = BlendModeList<BlendNormal, BlendDarken, BlendLighten, BlendHue, BlendSaturation, BlendColor,
                                    BlendLuminosity, BlendMultiply, BlendScreen, BlendOverlay, BlendHardLight,
                                    BlendSoftLight, BlendDifference, BlendExclusion, BlendColorDodge, BlendColorBurn,
                                    BlendLinearBurn, BlendLinearDodge, BlendVividLight, BlendLinearLight, BlendPinLight,
                                    BlendHardMix, BlendDarkerColor, BlendLighterColor, BlendSubtract, BlendDivide>;

template <class Mode> struct BlendModeTag {
    using Type = Mode;
};

template <class Fn, class... Modes> int32_t DispatchBlendModeIn(BlendModeList<Modes...>, uint32_t code, Fn& fn)
{
    int32_t status = kKXErrBadParam;
    (void)((code == Modes::kCode && ((status = fn(BlendModeTag<Modes>{})), true)) || ...);
    return status;
}

// fn(BlendModeTag<Mode>) for one of the 26 codes in normal form; any other word, a reversed one
// included, is kKXErrBadParam.
template <class Fn> int32_t DispatchBlendMode(uint32_t code, Fn&& fn)
{
    return DispatchBlendModeIn(AllBlendModes{}, code, fn);
}
