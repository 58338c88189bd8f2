// Tone work beyond one curve: shadows and highlights and the contrast mask steer each pixel by the blurred
// luma around it; the shadow knee reshapes the range below a threshold; the tone chain folds the global
// controls into one curve table.
#include "KXEffectsColorMath.h"
#include "KXEffectsColorSelection.h"
#include "KXEffectsEntry.h"
#include "KXEffectsGaussianBlur.h"
#include "KXEffectsRowLoop.h"
#include "KXEffectsToneCurves.h"

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

namespace {

constexpr const char* kSourceFile = "Source/Common/KXEffects/KXEffectsLocalTone";

// ---- Blurred luma ----

// The blurred luma of the rectangle grown by the blur's reach, within the image. Throws on failure. False,
// with nothing made, when that lies wholly outside the source: no pixel of rect is in the image then, so there
// is nothing to write.
bool BlurredLuma(KXImage* source, const KXRect& rect, float radius, CImageRef& luma)
{
    const KXRect grown = KXRectOutset(&rect, GaussianBlurOutset(radius));
    const KXRect bounds = KXImageGetBounds(source);
    const KXRect clipped = KXRectIntersect(&grown, &bounds);
    if (clipped.width <= 0 || clipped.height <= 0)
        return false;
    BlurredLuminosity(source, clipped, rect, radius, luma, kSourceFile);
    return true;
}

// pixel(rgb, m) on the colour in 0..1 with m the blurred luma at the pixel; the planes stored clamped. RGB
// only; neutral settings copy.
template <class PixelFn>
int32_t WithBlurredLuma(KXImage* source, KXImage* destination, const KXRect* rect, bool neutral, float radius,
                        PixelFn&& pixel)
{
    return EntryPoint(source, destination, rect)
        .NeutralWhen(neutral)
        .RGBOnly()
        .Require(GaussianBlurOutset(radius) <= kMaxReach, kKXErrBadParam)
        .Run([&]<class Sample>(SampleTag<Sample>, const CEffectRect& effectRect) {
            // Only the part of rect in the destination is worked on: the rest would be dropped.
            const CEffectRect inside = InDestination(effectRect, destination);
            if (inside.IsEmpty())
                return;
            CImageRef luma;
            if (BlurredLuma(source, inside.ToKXRect(), radius, luma))
                ForEachMaskedColour<Sample>(source, destination, luma, inside, pixel);
        });
}

// ---- Formulas ----

// A dark neighbourhood pulls each channel onto 1 - (1 - c)^2.5, a bright one onto c^2.5; weights m^3 and
// (1 - m)^3 of the blurred luma m.
inline void ShadowsAndHilitesPixel(float* rgb, float m, float shadows, float highlights)
{
    const float lightWeight = std::pow(m, 3.0f) * highlights;
    const float darkWeight = std::pow(1.0f - m, 3.0f) * shadows;
    const float keep = 1.0f - darkWeight - lightWeight;
    for (int32_t c = 0; c < 3; ++c) {
        const float s = rgb[c];
        rgb[c] = Clamp01((1.0f - std::pow(1.0f - s, 2.5f)) * darkWeight + std::pow(s, 2.5f) * lightWeight + keep * s);
    }
}

struct ContrastMaskSettings {
    float darkAmount, lightAmount;
    float a, b, c, d;
};

// Outside the protected band of the pixel's own luma, the overlay of the inverted blurred luma is mixed in.
inline void ContrastMaskPixel(float* rgb, float m, const ContrastMaskSettings& settings)
{
    const float y = Luma(rgb);
    const float amount = y <= settings.b ? settings.darkAmount : settings.lightAmount;
    const float mix = (1.0f - RangeWeight(y, settings.a, settings.b, settings.c, settings.d)) * amount;
    const float inverse = 1.0f - m;
    for (int32_t c = 0; c < 3; ++c) {
        const float s = rgb[c];
        const float o = s >= 0.5f ? (s * m + inverse) * 2.0f - 1.0f : s * 2.0f * inverse;
        rgb[c] = s * (1.0f - mix) + o * mix;
    }
}

// Below the threshold t a cubic of slope k at 0 that meets the line at t; above it nothing moves.
inline float ShadowKnee(float x, float k, float threshold)
{
    if (x >= threshold)
        return x;
    return ((x * ((k - 1.0f) / (threshold * threshold)) + (1.0f - k) * 2.0f / threshold) * x + k) * x;
}

// ---- Tone chain ----

struct ToneChain {
    const float* black;
    const float* white;
    float brightness;
    float midtoneContrast;
    const float* firstCurves;
    const float* secondCurves;
};

// The chain folded into one table: black and white points, brightness, midtone contrast, and the caller's
// curves run first on the data. Throws on failure.
std::vector<float> ToneTable(int32_t numChannels, const ToneChain& chain)
{
    const size_t entries = size_t(std::max(numChannels, 1)) * kCurveEntries;
    // Three tables in rotation: the current one, the next stage, and the result of joining them.
    std::vector<float> tables[3] = {std::vector<float>(entries), std::vector<float>(entries),
                                    std::vector<float>(entries)};
    int32_t current = 0;
    const auto join = [&](const float* first, const float* second) {
        const int32_t result = (current + 2) % 3;
        KX_THROW_IF_ERROR(KXEffectsConcatCurves(numChannels, first, second, tables[result].data()));
        current = result;
    };
    const auto joinStage = [&](auto makeCurves) {
        float* next = tables[(current + 1) % 3].data();
        KX_THROW_IF_ERROR(makeCurves(next));
        join(tables[current].data(), next);
    };
    KX_THROW_IF_ERROR(KXEffectsBlackAndWhitePointsMakeCurves(numChannels, tables[0].data(), chain.black, chain.white));
    if (chain.brightness != 0.0f)
        joinStage([&](float* next) {
            return KXEffectsBrightnessContrastMakeCurves(numChannels, next, chain.brightness, 0.0f);
        });
    if (chain.midtoneContrast != 0.0f)
        joinStage(
            [&](float* next) { return KXEffectsMidtoneContrastMakeCurves(numChannels, next, chain.midtoneContrast); });
    for (const float* curves : {chain.firstCurves, chain.secondCurves})
        if (curves)
            join(curves, tables[current].data());
    return std::move(tables[current]);
}

} // namespace

// ---- Entry points ----

int32_t KXEffectsShadowsAndHilites(KXImage* source, KXImage* destination, const KXRect* rect, float radius,
                                   float shadows, float highlights)
{
    return WithBlurredLuma(source, destination, rect, shadows == 0.0f && highlights == 0.0f, radius,
                           [=](float* rgb, float m) { ShadowsAndHilitesPixel(rgb, m, shadows, highlights); });
}

int32_t KXEffectsApplyContrastMask(KXImage* source, KXImage* destination, const KXRect* rect, float radius,
                                   float darkAmount, float lowBand, float lowFeather, float lightAmount, float highBand,
                                   float highFeather)
{
    const ContrastMaskSettings settings{darkAmount,
                                        lightAmount,
                                        lowBand - lowFeather * 0.075f,
                                        lowBand + lowFeather * 0.075f,
                                        highBand - highFeather * 0.075f,
                                        highBand + highFeather * 0.075f};
    return WithBlurredLuma(source, destination, rect, !(darkAmount > 0.0f) && !(lightAmount > 0.0f), radius,
                           [&](float* rgb, float m) { ContrastMaskPixel(rgb, m, settings); });
}

int32_t KXEffectsAdjustShadows(KXImage* source, KXImage* destination, const KXRect* rect, float strength,
                               float threshold)
{
    const float k = strength < 0.0f ? 1.0f / (1.0f - strength) : strength + 1.0f;
    return EntryPoint(source, destination, rect)
        .NeutralWhen(strength == 0.0f || !(threshold > 0.0f))
        .Run([&]<class Sample>(SampleTag<Sample>, const CEffectRect& effectRect) {
            ForEachPixel<Sample>(source, destination, effectRect,
                                 [&](const Sample* in, Sample* out, auto colourPlanes) {
                                     for (int32_t c = 0; c < colourPlanes; ++c)
                                         out[c] = FromUnit<Sample>(ShadowKnee(ToUnit(in[c]), k, threshold));
                                 });
        });
}

int32_t KXEffectsAdjustTone(KXImage* source, KXImage* destination, const KXRect* rect, const float* black,
                            const float* white, float brightness, float midtoneContrast, const float* firstCurves,
                            const float* secondCurves)
{
    return EntryPoint(source, destination, rect)
        .Requires(black, white)
        .Catching(kSourceFile, __LINE__)
        .Compose([&](const CEffectRect&) {
            const ToneChain chain{black, white, brightness, midtoneContrast, firstCurves, secondCurves};
            const std::vector<float> table = ToneTable(LayoutOf(source).colourPlanes, chain);
            return KXEffectsApplyCurvesWithAmount(source, destination, rect, table.data(), 1.0f);
        });
}
