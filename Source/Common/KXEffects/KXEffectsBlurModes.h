// The modes the blurs finish in: the plain amount mix or a blend mode of the blurred value with the
// unblurred sample, resolved from the mode code into one instantiation per call.
#pragma once

#include "KXEffectsBlendModes.h"
#include "KXEffectsSample.h"

#include <cstdint>

// "norm": the blurred value mixed with the unblurred sample by the amount, each blur in its own arithmetic.
struct BlurNormal {};

// A blend mode as the blurs apply it: base is the unblurred sample, top the blurred value; a reversed
// mode swaps the two in the formula only.
template <class Blend, bool kReversed> struct BlurBlend {
    static float Apply(float base, float top)
    {
        if constexpr (kReversed)
            return Blend::Plane(top, base);
        else
            return Blend::Plane(base, top);
    }
};

template <class Mode> struct BlurModeTag {
    using Type = Mode;
};

// fn(BlurModeTag<Mode>) for each of the 30 codes the blurs take; any other code is kKXErrBadParam. "vidi"
// and "till" are colour burn and linear light, spelt backward; a capitalised code is the reversed form of
// the code of the same letters in lower case.
template <class Fn> int32_t DispatchBlurMode(uint32_t code, Fn&& fn)
{
    switch (code) {
    case FourCharCode("norm"):
        return fn(BlurModeTag<BlurNormal>{});
    case FourCharCode("over"):
        return fn(BlurModeTag<BlurBlend<BlendOverlay, false>>{});
    case FourCharCode("scrn"):
        return fn(BlurModeTag<BlurBlend<BlendScreen, false>>{});
    case FourCharCode("mul "):
        return fn(BlurModeTag<BlurBlend<BlendMultiply, false>>{});
    case FourCharCode("dark"):
        return fn(BlurModeTag<BlurBlend<BlendDarken, false>>{});
    case FourCharCode("lite"):
        return fn(BlurModeTag<BlurBlend<BlendLighten, false>>{});
    case FourCharCode("diff"):
        return fn(BlurModeTag<BlurBlend<BlendDifference, false>>{});
    case FourCharCode("smud"):
        return fn(BlurModeTag<BlurBlend<BlendExclusion, false>>{});
    case FourCharCode("div "):
        return fn(BlurModeTag<BlurBlend<BlendColorDodge, false>>{});
    case FourCharCode("vidi"):
        return fn(BlurModeTag<BlurBlend<BlendColorBurn, false>>{});
    case FourCharCode("lbrn"):
        return fn(BlurModeTag<BlurBlend<BlendLinearBurn, false>>{});
    case FourCharCode("lddg"):
        return fn(BlurModeTag<BlurBlend<BlendLinearDodge, false>>{});
    case FourCharCode("till"):
        return fn(BlurModeTag<BlurBlend<BlendLinearLight, false>>{});
    case FourCharCode("hLit"):
        return fn(BlurModeTag<BlurBlend<BlendHardLight, false>>{});
    case FourCharCode("sLit"):
        return fn(BlurModeTag<BlurBlend<BlendSoftLight, false>>{});
    case FourCharCode("vLit"):
        return fn(BlurModeTag<BlurBlend<BlendVividLight, false>>{});
    case FourCharCode("pLit"):
        return fn(BlurModeTag<BlurBlend<BlendPinLight, false>>{});
    case FourCharCode("hMix"):
        return fn(BlurModeTag<BlurBlend<BlendHardMix, false>>{});
    case FourCharCode("fsub"):
        return fn(BlurModeTag<BlurBlend<BlendSubtract, false>>{});
    case FourCharCode("fdiv"):
        return fn(BlurModeTag<BlurBlend<BlendDivide, false>>{});
    case FourCharCode("Over"):
        return fn(BlurModeTag<BlurBlend<BlendOverlay, true>>{});
    case FourCharCode("HLit"):
        return fn(BlurModeTag<BlurBlend<BlendHardLight, true>>{});
    case FourCharCode("SLit"):
        return fn(BlurModeTag<BlurBlend<BlendSoftLight, true>>{});
    case FourCharCode("Div "):
        return fn(BlurModeTag<BlurBlend<BlendColorDodge, true>>{});
    case FourCharCode("Vidi"):
        return fn(BlurModeTag<BlurBlend<BlendColorBurn, true>>{});
    case FourCharCode("VLit"):
        return fn(BlurModeTag<BlurBlend<BlendVividLight, true>>{});
    case FourCharCode("Till"):
        return fn(BlurModeTag<BlurBlend<BlendLinearLight, true>>{});
    case FourCharCode("HMix"):
        return fn(BlurModeTag<BlurBlend<BlendHardMix, true>>{});
    case FourCharCode("FSub"):
        return fn(BlurModeTag<BlurBlend<BlendSubtract, true>>{});
    case FourCharCode("FDiv"):
        return fn(BlurModeTag<BlurBlend<BlendDivide, true>>{});
    default:
        return kKXErrBadParam;
    }
}

// Deliberately kept: "fdiv" and "FDiv" write the whole result and still answer as an unknown mode would.
constexpr bool BlurModeReportsBadParam(uint32_t code)
{
    return code == FourCharCode("fdiv") || code == FourCharCode("FDiv");
}

// base (1 - amount) + blend(base, top) amount, on samples scaled to 0..1, back to the sample unclamped.
template <class Mode, class Sample> inline Sample MixBlurBlend(float base, float top, float keep, float amount)
{
    return FromUnit<Sample>(base * keep + Mode::Apply(base, top) * amount);
}

// The unblurred sample in 0..1 by the constants 0.003921569 and 1.5259022e-5, which are 1/255 and 1/65535.
static_assert(SampleTraits<uint8_t>::kReciprocal == 0.003921569f);
static_assert(SampleTraits<uint16_t>::kReciprocal == 1.5259022e-5f);
