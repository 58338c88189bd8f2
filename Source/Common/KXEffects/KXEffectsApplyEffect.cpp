// What a host needs to mix a computed effect image back over its source under a mask or by hue zone.
#include "KXEffectsColorMath.h"
#include "KXEffectsDispatch.h"
#include "KXEffectsRowLoop.h"
#include "KXEffectsToneCurves.h"

#include <cmath>

namespace {

// ---- Mixing ----

// Mask values at 127 of 255 leave the weight as the settings make it, at every depth.
constexpr float kNeutralMask = 127.0f / 255.0f;

// rowKernel(source, effect, mask or null, out, width, layout) over rect, the four views attached in the
// order source, effect, mask, destination; alpha of the source carried across as in the common row loop.
template <class Sample, class RowKernel>
void ForEachMixRow(KXImage* source, KXImage* effect, KXImage* mask, KXImage* destination, const CEffectRect& rect,
                   RowKernel&& rowKernel)
{
    if (rect.IsEmpty())
        return;
    const PixelLayout layout = LayoutOf(destination);
    const int32_t width = rect.Width();
    CImageView sourceView(source);
    CImageView effectView(effect);
    CImageView maskView;
    if (mask)
        maskView.Attach(mask);
    CImageView destinationView(destination);
    for (int32_t row = rect.top; row < rect.bottom; ++row) {
        const auto* in = static_cast<const Sample*>(sourceView.ReadRow(row, rect.left, width));
        const auto* effected = static_cast<const Sample*>(effectView.ReadRow(row, rect.left, width));
        const auto* masked = mask ? static_cast<const Sample*>(maskView.ReadRow(row, rect.left, width)) : nullptr;
        auto* out = static_cast<Sample*>(destinationView.WriteRow(row, rect.left, width));
        if (layout.transparency != 0 && in != out)
            std::memmove(out, in, size_t(width) * size_t(layout.planes) * sizeof(Sample));
        rowKernel(in, effected, masked, out, width, layout);
    }
    destinationView.Detach();
}

// r = (1 - w) a + w b on the samples' own scale, limited to 0..white; w = m - 127/255 + amount / 2, or
// amount / 2 without a mask, and is itself not limited.
template <class Sample, bool kMasked>
void MixWithMaskKernel(KXImage* source, KXImage* effect, KXImage* mask, KXImage* destination,
                       const CEffectRect& rect, float amount)
{
    const float halfAmount = amount / 2.0f;
    ForEachMixRow<Sample>(source, effect, kMasked ? mask : nullptr, destination, rect,
                          [&](const Sample* a, const Sample* b, const Sample* m, Sample* out, int32_t width,
                              const PixelLayout& layout) {
                              WithPlaneCounts(layout, [&](auto planes, auto colourPlanes) {
                                  for (int32_t x = 0; x < width; ++x) {
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
void MixInZonesKernel(KXImage* source, KXImage* effect, KXImage* mask, KXImage* destination,
                      const CEffectRect& rect, const Zones& zones)
{
    ForEachMixRow<Sample>(source, effect, mask, destination, rect,
                          [&](const Sample* a, const Sample* b, const Sample* m, Sample* out, int32_t width,
                              const PixelLayout& layout) {
                              const int32_t planes = layout.planes;
                              for (int32_t x = 0; x < width; ++x) {
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
    if (!source || !effect || !destination || !rect)
        return kKXErrBadParam;
    const CEffectRect effectRect = CEffectRect::FromKXRect(*rect);
    return DispatchPlaneBytes(KXImageGetPlaneBytes(destination), [&](auto tag) {
        using Sample = typename decltype(tag)::Type;
        if (mask)
            MixWithMaskKernel<Sample, true>(source, effect, mask, destination, effectRect, amount);
        else
            MixWithMaskKernel<Sample, false>(source, effect, mask, destination, effectRect, amount);
        return int32_t(kKXNoErr);
    });
}

int32_t KXEffectsApplyEffectInZones(KXImage* source, KXImage* effect, KXImage* mask, KXImage* destination,
                                    const KXRect* rect, const float* effectZones, const float* brightnessZones,
                                    const float* midtoneZones)
{
    if (!source || !effect || !destination || !rect || !effectZones || !brightnessZones || !midtoneZones)
        return kKXErrBadParam;
    if (KXImageGetColorSpaceType(destination) != KXColorSpaceRGB)
        return kKXErrUnsupported;
    const CEffectRect effectRect = CEffectRect::FromKXRect(*rect);
    const Zones zones{effectZones, brightnessZones, midtoneZones};
    return DispatchPlaneBytes(KXImageGetPlaneBytes(destination), [&](auto tag) {
        MixInZonesKernel<typename decltype(tag)::Type>(source, effect, mask, destination, effectRect, zones);
        return int32_t(kKXNoErr);
    });
}
