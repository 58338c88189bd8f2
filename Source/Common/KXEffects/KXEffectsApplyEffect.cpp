// What a host needs to mix a computed effect image back over its source under a mask or by hue zone.
#include "KXEffectsColorMath.h"
#include "KXEffectsEntry.h"
#include "KXEffectsRowLoop.h"
#include "KXEffectsToneCurves.h"

#include <cmath>

namespace {

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

int32_t KXEffectsApplyEffectWithMask(KXImage* source, KXImage* effect, KXImage* mask, KXImage* destination,
                                     const KXRect* rect, float amount)
{
    return EntryPoint(source, destination, rect)
        .Requires(effect)
        .Finite(amount)
        .Require([&] { return HaveSameLayout(effect, destination); }, kKXErrUnsupported)
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
    return EntryPoint(source, destination, rect)
        .Requires(effect, effectZones, brightnessZones, midtoneZones)
        .RGBOnly(destination)
        .Require([&] { return HaveSameLayout(effect, destination); }, kKXErrUnsupported)
        .SampleOf(destination)
        .Run([&]<class Sample>(SampleTag<Sample>, const CEffectRect& effectRect) {
            MixInZonesKernel<Sample>(source, effect, mask, destination, effectRect, zones);
        });
}
