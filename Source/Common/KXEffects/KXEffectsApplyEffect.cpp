// What a host needs to run effects in tiles and mix them back: the margin an effect reads around a tile,
// and the mixing of a computed effect image with its source under a mask or by hue zone.
#include "KXEffectsColorMath.h"
#include "KXEffectsEntry.h"
#include "KXEffectsGaussianBlur.h"
#include "KXEffectsRowLoop.h"
#include "KXEffectsToneCurves.h"

#include <cmath>
#include <iterator>

namespace {

// ---- Margins ----

enum class OutsetRule {
    Pointwise,
    OnePixel,
    Rounded,
    Gaussian,
    FastGaussian,
    TrueGaussian,
    ProgressiveGaussian,
    Emboss
};

struct OutsetRow {
    KXEffectProc effect;
    OutsetRule rule;
};

template <class Function> OutsetRow Outset(Function* effect, OutsetRule rule)
{
    return {reinterpret_cast<KXEffectProc>(effect), rule};
}

// Effects are known by their address; one absent from the table needs the whole image.
const OutsetRow kOutsetRows[] = {
    Outset(KXEffectsBlur, OutsetRule::OnePixel),
    Outset(KXEffectsBlurMore, OutsetRule::OnePixel),
    Outset(KXEffectsSharpen, OutsetRule::OnePixel),
    Outset(KXEffectsSharpenMore, OutsetRule::OnePixel),
    Outset(KXEffectsFindEdges, OutsetRule::OnePixel),
    Outset(KXEffectsBoxBlur, OutsetRule::Rounded),
    Outset(KXEffectsBoxBlurWithOffset, OutsetRule::Rounded),
    Outset(KXEffectsBoxBlurWithOffsetAndAmount, OutsetRule::Rounded),
    Outset(KXEffectsBoxBlurInt, OutsetRule::Rounded),
    Outset(KXEffectsSurfaceBlur, OutsetRule::Rounded),
    Outset(KXEffectsSurfaceBlurWithOffset, OutsetRule::Rounded),
    Outset(KXEffectsMedian, OutsetRule::Rounded),
    Outset(KXEffectsDustAndScratch, OutsetRule::Rounded),
    Outset(KXEffectsUnsharpMaskUsingSurfaceBlur, OutsetRule::Rounded),
    Outset(KXEffectsUnsharpMaskUsingBoxBlur, OutsetRule::Rounded),
    Outset(KXEffectsUnsharpMaskUsingTriangularBlur, OutsetRule::Rounded),
    Outset(KXEffectsSharpenHighPass, OutsetRule::Rounded),
    Outset(KXEffectsSharpenHighPassWithOffset, OutsetRule::Rounded),
    Outset(KXEffectsGaussianBlur, OutsetRule::Gaussian),
    Outset(KXEffectsGaussianBlurWithAmount, OutsetRule::Gaussian),
    Outset(KXEffectsGaussianBlurWithAmountAndMode, OutsetRule::Gaussian),
    Outset(KXEffectsUnsharpMask, OutsetRule::Gaussian),
    Outset(KXEffectsHighPass, OutsetRule::Gaussian),
    Outset(KXEffectsHighPassAndLowPass, OutsetRule::Gaussian),
    Outset(KXEffectsClarity, OutsetRule::Gaussian),
    Outset(KXEffectsApplyContrastMask, OutsetRule::Gaussian),
    Outset(KXEffectsShadowsAndHilites, OutsetRule::Gaussian),
    Outset(KXEffectsGaussianBlurFast, OutsetRule::FastGaussian),
    Outset(KXEffectsGaussianBlurFastWithAmount, OutsetRule::FastGaussian),
    Outset(KXEffectsGaussianBlurTrue, OutsetRule::TrueGaussian),
    Outset(KXEffectsGaussianBlurTrueWithAmount, OutsetRule::TrueGaussian),
    Outset(KXEffectsSharpenProgressive, OutsetRule::ProgressiveGaussian),
    Outset(KXEffectsEmboss, OutsetRule::Emboss),
    Outset(KXEffectsMultiplyValues, OutsetRule::Pointwise),
    Outset(KXEffectsMixImages, OutsetRule::Pointwise),
    Outset(KXEffectsBlackAndWhitePointsApply, OutsetRule::Pointwise),
    Outset(KXEffectsAnalyzeImage, OutsetRule::Pointwise),
    Outset(KXEffectsVibrance, OutsetRule::Pointwise),
    Outset(KXEffectsHueSaturationBrightness, OutsetRule::Pointwise),
    Outset(KXEffectsHueSaturationLightness, OutsetRule::Pointwise),
    Outset(KXEffectsBrightnessHazeSaturation, OutsetRule::Pointwise),
    Outset(KXEffectsInvert, OutsetRule::Pointwise),
    Outset(KXEffectsBlackWhite, OutsetRule::Pointwise),
    Outset(KXEffectsColorFilter, OutsetRule::Pointwise),
    Outset(KXEffectsBlackAndWhiteColorResponse, OutsetRule::Pointwise),
    Outset(KXEffectsAddToner, OutsetRule::Pointwise),
    Outset(KXEffectsChannelMixer, OutsetRule::Pointwise),
    Outset(KXEffectsBlackAndWhiteWithColorFilter, OutsetRule::Pointwise),
    Outset(KXEffectsBlackAndWhite, OutsetRule::Pointwise),
    Outset(KXEffectsPhotoFilter, OutsetRule::Pointwise),
    Outset(KXEffectsTemperatureAndTint, OutsetRule::Pointwise),
    Outset(KXEffectsTemperatureTintAndVibrance, OutsetRule::Pointwise),
    Outset(KXEffectsTemperatureTintAndSaturation, OutsetRule::Pointwise),
    Outset(KXEffectsTemperatureTintSaturationAndVibrance, OutsetRule::Pointwise),
    Outset(KXEffectsTuneColors, OutsetRule::Pointwise),
    Outset(KXEffectsPurity, OutsetRule::Pointwise),
    Outset(KXEffectsAdjustShadows, OutsetRule::Pointwise),
    Outset(KXEffectsAdjustTone, OutsetRule::Pointwise),
    Outset(KXEffectsDesaturate, OutsetRule::Pointwise),
    Outset(KXEffectsApplyCurves, OutsetRule::Pointwise),
    Outset(KXEffectsApplyCurvesWithAmount, OutsetRule::Pointwise),
    Outset(KXEffectsBrightnessContrast, OutsetRule::Pointwise),
    Outset(KXEffectsBrightnessContrastWithMask, OutsetRule::Pointwise),
    Outset(KXEffectsMidtoneContrast, OutsetRule::Pointwise),
    Outset(KXEffectsBrightnessWithMask, OutsetRule::Pointwise),
    Outset(KXEffectsMidtoneContrastAltWithMask, OutsetRule::Pointwise),
    Outset(KXEffectsBrightnessMidtoneContrast, OutsetRule::Pointwise),
    Outset(KXEffectsBrightnessMidtoneContrastWithMask, OutsetRule::Pointwise),
    Outset(KXEffectsSolarize, OutsetRule::Pointwise),
    Outset(KXEffectsAddNoise, OutsetRule::Pointwise),
    Outset(KXEffectsApplyFilmGrain, OutsetRule::Pointwise),
    Outset(KXEffectsApplyFilmGrainTile, OutsetRule::Pointwise),
    Outset(KXEffectsFillColor, OutsetRule::Pointwise),
    Outset(KXEffectsBlendImages, OutsetRule::Pointwise),
    Outset(KXEffectsBlendImagesWithOpacitiesAndMasks, OutsetRule::Pointwise),
    Outset(KXEffectsConvertImageMode, OutsetRule::Pointwise),
    Outset(KXEffectsCopyImage, OutsetRule::Pointwise),
    Outset(KXEffectsColorRange, OutsetRule::Pointwise),
    Outset(KXEffectsSelectColor, OutsetRule::Pointwise),
    Outset(KXEffectsSelectLuminosity, OutsetRule::Pointwise),
    Outset(KXEffectsSelectSaturation, OutsetRule::Pointwise),
    Outset(KXEffectsSelectFleshColors, OutsetRule::Pointwise),
    Outset(KXEffectsSelectColors, OutsetRule::Pointwise),
    Outset(KXEffectsProtectColors, OutsetRule::Pointwise),
};

int32_t OutsetByRule(OutsetRule rule, float value)
{
    switch (rule) {
    case OutsetRule::Pointwise:
        return 0;
    case OutsetRule::OnePixel:
        return 1;
    case OutsetRule::Rounded:
        return TruncateToInt32(value + 0.5f);
    case OutsetRule::Gaussian:
        return GaussianBlurOutset(value);
    case OutsetRule::FastGaussian: {
        const FastGaussianRadii radii = FastGaussianRadiiOf(value);
        return radii.first + 2 * radii.second;
    }
    case OutsetRule::TrueGaussian:
        return TrueGaussianHalfWidth(value);
    case OutsetRule::ProgressiveGaussian:
        // The coarsest of its four scales.
        return GaussianBlurOutset(4.0f * value);
    case OutsetRule::Emboss:
        return 1 - TruncateToInt32(-0.5f * value);
    }
    return -1;
}

// ---- Mixing ----

// Mask values at 127 of 255 leave the weight as the settings make it, at every depth.
constexpr float kNeutralMask = 127.0f / 255.0f;

// The mixing kernels read source, effect and mask (null for none) in that order, the mask at the images'
// depth, and carry the source's alpha across.

// r = (1 - w) a + w b on the samples' own scale, limited to 0..white; w = m - 127/255 + amount / 2, or
// amount / 2 without a mask, and is itself not limited.
template <class Sample, bool kMasked>
void MixWithMaskKernel(KXImage* source, KXImage* effect, KXImage* mask, KXImage* destination, const CEffectRect& rect,
                       float amount)
{
    const float halfAmount = amount / 2.0f;
    const PixelLayout layout = LayoutOf(destination);
    WalkRows<Sample>(rect, Sources<Sample, Sample, Sample>{source, effect, kMasked ? mask : nullptr}, destination,
                     [&](int32_t, const Sample* a, const Sample* b, const Sample* m, Sample* out) {
                         WithPlaneCounts(layout, [&](auto planes, auto colourPlanes) {
                             for (int32_t x = 0; x < rect.Width(); ++x) {
                                 float w = halfAmount;
                                 if constexpr (kMasked)
                                     w = ToUnit(m[x]) - kNeutralMask + halfAmount;
                                 for (int32_t c = 0; c < colourPlanes; ++c) {
                                     const ptrdiff_t at = ptrdiff_t(x) * planes + c;
                                     const float r = (1.0f - w) * float(a[at]) + w * float(b[at]);
                                     out[at] = FromRaw<Sample>(ClampToWhite<Sample>(r));
                                 }
                             }
                         });
                     });
}

inline float WeightedSum(const float* components, const float* zones)
{
    float sum = 0.0f;
    for (int32_t i = 0; i < 6; ++i)
        sum += components[i] * zones[i];
    return sum;
}

struct Zones {
    const float* effect;
    const float* brightness;
    const float* midtone;
};

// The effect is mixed in by the hue of the source pixel, then its luma takes a brightness and a midtone
// change by hue, chroma kept; everything limited to 0..1 at the end.
inline void MixInZones(const float* source, const float* effect, float m, const Zones& zones, float* rgb)
{
    float components[6];
    SplitColorComponents(source, components);
    const float t = Clamp01(0.5f * WeightedSum(components, zones.effect) + m);
    float mixed[3], ycc[3];
    for (int32_t c = 0; c < 3; ++c)
        mixed[c] = t * effect[c] + (1.0f - t) * source[c];
    KXEffectsRGBToYCC(mixed, ycc);
    const float brightness = WeightedSum(components, zones.brightness);
    ycc[0] = MidtoneCurveValue(BrightnessCurveValue(ycc[0], brightness), WeightedSum(components, zones.midtone));
    KXEffectsYCCToRGB(ycc, rgb);
    for (int32_t c = 0; c < 3; ++c)
        rgb[c] = Clamp01(rgb[c]);
}

template <class Sample>
void MixInZonesKernel(KXImage* source, KXImage* effect, KXImage* mask, KXImage* destination, const CEffectRect& rect,
                      const Zones& zones)
{
    const int32_t planes = KXImageGetNumPlanes(destination);
    WalkRows<Sample>(rect, Sources<Sample, Sample, Sample>{source, effect, mask}, destination,
                     [&](int32_t, const Sample* a, const Sample* b, const Sample* m, Sample* out) {
                         for (int32_t x = 0; x < rect.Width(); ++x) {
                             const ptrdiff_t at = ptrdiff_t(x) * planes;
                             const float in[3] = {ToUnit(a[at]), ToUnit(a[at + 1]), ToUnit(a[at + 2])};
                             const float effected[3] = {ToUnit(b[at]), ToUnit(b[at + 1]), ToUnit(b[at + 2])};
                             float rgb[3];
                             MixInZones(in, effected, m ? ToUnit(m[x]) : kNeutralMask, zones, rgb);
                             for (int32_t c = 0; c < 3; ++c)
                                 out[at + c] = FromUnit<Sample>(rgb[c]);
                         }
                     });
}

} // namespace

int32_t KXEffectsGetOutset(KXEffectProc effect, float value)
{
    for (const OutsetRow& row : kOutsetRows)
        if (row.effect == effect)
            return OutsetByRule(row.rule, value);
    return -1;
}

int32_t KXEffectsApplyEffectWithMask(KXImage* source, KXImage* effect, KXImage* mask, KXImage* destination,
                                     const KXRect* rect, float amount)
{
    return EffectEntry(source, destination, rect)
        .Requires(effect)
        .SampleOf(destination)
        .Run([&]<class Sample>(SampleTag<Sample>, const CEffectRect& effectRect) {
            if (mask)
                MixWithMaskKernel<Sample, true>(source, effect, mask, destination, effectRect, amount);
            else
                MixWithMaskKernel<Sample, false>(source, effect, mask, destination, effectRect, amount);
        });
}

int32_t KXEffectsApplyEffectInZones(KXImage* source, KXImage* effect, KXImage* mask, KXImage* destination,
                                    const KXRect* rect, const float* effectZones, const float* brightnessZones,
                                    const float* midtoneZones)
{
    const Zones zones{effectZones, brightnessZones, midtoneZones};
    return EffectEntry(source, destination, rect)
        .Requires(effect, effectZones, brightnessZones, midtoneZones)
        .RGBOnly(destination)
        .SampleOf(destination)
        .Run([&]<class Sample>(SampleTag<Sample>, const CEffectRect& effectRect) {
            MixInZonesKernel<Sample>(source, effect, mask, destination, effectRect, zones);
        });
}
