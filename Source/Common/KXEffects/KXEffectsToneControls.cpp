// The global tone sliders: brightness, contrast, midtone contrast, exposure, and brightness with haze and
// saturation, as pixel effects, as masked variants and as curve tables built from the same shapers.
#include "KXEffectsColorMath.h"
#include "KXEffectsEntry.h"
#include "KXEffectsRowLoop.h"
#include "KXEffectsToneCurves.h"

#include <algorithm>
#include <type_traits>

namespace {

// ---- Formulas ----

// Whichever shaper would clip first goes second: brightness then contrast for contrast above 0, contrast
// then brightness otherwise.
inline float BrightnessContrastValue(float x, const BrightnessShaper& brightness, float contrast)
{
    return contrast > 0.0f ? ContrastCurveValue(brightness(x), contrast) : brightness(ContrastCurveValue(x, contrast));
}

// The midtone shaper always goes first.
inline float BrightnessMidtoneValue(float x, const BrightnessShaper& brightness, float midtoneContrast)
{
    return brightness(MidtoneCurveValue(x, midtoneContrast));
}

// The alternative midtone slider reaches past +-1 by a contrast stage: inner = clamp(v, -1, 1) widened two
// times, extra = what lies beyond +-1.
inline float MidtoneAltValue(float x, float v)
{
    const float inner = std::clamp(v, -1.0f, 1.0f) * 2.0f;
    const float extra = v < -1.0f ? v + 1.0f : (v > 1.0f ? v - 1.0f : 0.0f);
    const float shaped = MidtoneCurveValue(x, inner);
    return extra != 0.0f ? ContrastCurveValue(shaped, extra) : shaped;
}

// A bipolar mask sample in 0..1 read as -1..about 1, with 127 of 255 near 0.
inline float SignedMask(float m)
{
    return m * 2.007874f - 1.0f;
}

// Below 0 the mask offsets (darkens), above 0 it gains (lightens); clamped.
inline float BrightnessWithSignedMask(float c, const BrightnessShaper& brightness, float t)
{
    const float v = brightness(c);
    return Clamp01(t <= 0.0f ? t * 0.5f + v : (t + 1.0f) * v);
}

// The soft shoulder of the exposure: c e / (c kneeShift + 1), white staying about white near e = 1.
struct ExposureResponse {
    float exposure, kneeShift;

    explicit ExposureResponse(float e) : exposure(e)
    {
        const float k = std::min(std::min(e * 0.25f + 0.875f, 1.0f), 0.25f / e + 0.875f);
        kneeShift = (e - 1.0f) * k;
    }
    float operator()(float c) const { return c * exposure / (c * kneeShift + 1.0f); }
};

// All three planes go through the line from (lo, newLow) to (hi, top), so hue is kept exactly; near black
// (hi + lo below 0.2) the spread between the planes is kept instead of following the curve.
inline void ExposePixel(float* rgb, const ExposureResponse& respond)
{
    const float hi = std::max({rgb[0], rgb[1], rgb[2]});
    const float lo = std::min({rgb[0], rgb[1], rgb[2]});
    if (hi <= lo) {
        rgb[0] = rgb[1] = rgb[2] = Clamp01(respond(hi));
        return;
    }
    const float top = Clamp01(respond(hi));
    const float bottom = Clamp01(respond(lo));
    const float m = (hi + lo) * 0.5f * 10.0f;
    const float s = std::min(((m * 6.0f - 15.0f) * m + 10.0f) * m * m * m, 1.0f);
    const float newLow = (top - (hi - lo)) * (1.0f - s) + s * bottom;
    const float slope = (top - newLow) / (hi - lo);
    const float offset = (newLow * hi - top * lo) / (hi - lo);
    for (int32_t c = 0; c < 3; ++c)
        rgb[c] = Clamp01(slope * rgb[c] + offset);
}

// ---- Kernels ----

// shape(x) on every colour sample, in 0..1.
template <class Sample, class Shape>
void ShapeKernel(KXImage* source, KXImage* destination, const CEffectRect& rect, Shape&& shape)
{
    ForEachPixel<Sample>(source, destination, rect, [&shape](const Sample* in, Sample* out, auto colourPlanes) {
        for (int32_t c = 0; c < colourPlanes; ++c)
            out[c] = FromUnit<Sample>(shape(ToUnit(in[c])));
    });
}

// shape(x, m) on every colour sample, m the mask at the pixel.
template <class Sample, class Shape>
void MaskedShapeKernel(KXImage* source, KXImage* destination, KXImage* mask, const CEffectRect& rect, Shape&& shape)
{
    ForEachMaskedPixel<Sample>(source, destination, mask, rect,
                               [&shape](const Sample* in, Sample* out, auto colourPlanes, float m) {
                                   for (int32_t c = 0; c < colourPlanes; ++c)
                                       out[c] = FromUnit<Sample>(shape(ToUnit(in[c]), m));
                               });
}

// Runs the per-sample shape over the image at its depth; with a mask, shape takes the mask value too. The
// mask has one plane of any depth.
template <class Plain, class Masked>
int32_t RunShape(EntryPoint entry, KXImage* source, KXImage* destination, KXImage* mask, Plain&& plain, Masked&& masked)
{
    return entry
        .Require([&] { return !mask || (KXImageGetNumPlanes(mask) == 1 && HasSampleKernel(mask)); }, kKXErrUnsupported)
        .Run([&]<class Sample>(SampleTag<Sample>, const CEffectRect& effectRect) {
            if (mask)
                MaskedShapeKernel<Sample>(source, destination, mask, effectRect, masked);
            else
                ShapeKernel<Sample>(source, destination, effectRect, plain);
        });
}

template <class Plain, class Masked>
int32_t ShapeImage(KXImage* source, KXImage* destination, KXImage* mask, const KXRect* rect, Plain&& plain,
                   Masked&& masked)
{
    return RunShape(EntryPoint(source, destination, rect), source, destination, mask, plain, masked);
}

// The bipolar mask forms: a setting of 0 without a mask copies.
template <class Plain, class Masked>
int32_t ShapeImageWithSignedMask(KXImage* source, KXImage* destination, KXImage* mask, const KXRect* rect,
                                 float setting, Plain&& plain, Masked&& masked)
{
    return RunShape(EntryPoint(source, destination, rect).NeutralWhen(!mask && setting == 0.0f), source, destination,
                    mask, plain, masked);
}

// The entries of a table at x = i / 255, repeated in every channel.
template <class Shape> int32_t MakeCurves(int32_t numChannels, float* curves, Shape&& shape)
{
    if (!curves)
        return kKXErrBadParam;
    FillCurveChannels(numChannels, curves, [&shape](int32_t i) { return shape(float(i) / 255.0f); });
    return kKXNoErr;
}

} // namespace

// ---- Entry points ----

int32_t KXEffectsBrightnessContrast(KXImage* source, KXImage* destination, const KXRect* rect, float brightness,
                                    float contrast)
{
    return KXEffectsBrightnessContrastWithMask(source, destination, nullptr, rect, brightness, contrast);
}

int32_t KXEffectsBrightnessContrastWithMask(KXImage* source, KXImage* destination, KXImage* mask, const KXRect* rect,
                                            float brightness, float contrast)
{
    const BrightnessShaper shaper(brightness);
    return ShapeImage(
        source, destination, mask, rect, [&](float x) { return BrightnessContrastValue(x, shaper, contrast); },
        [&](float x, float m) { return BrightnessContrastValue(x, BrightnessShaper(brightness * m), contrast * m); });
}

int32_t KXEffectsBrightnessContrastMakeCurves(int32_t numChannels, float* curves, float brightness, float contrast)
{
    const BrightnessShaper shaper(brightness);
    return MakeCurves(numChannels, curves, [&](float x) { return BrightnessContrastValue(x, shaper, contrast); });
}

int32_t KXEffectsBrightnessMidtoneContrast(KXImage* source, KXImage* destination, const KXRect* rect, float brightness,
                                           float midtoneContrast)
{
    return KXEffectsBrightnessMidtoneContrastWithMask(source, destination, nullptr, rect, brightness, midtoneContrast);
}

int32_t KXEffectsBrightnessMidtoneContrastWithMask(KXImage* source, KXImage* destination, KXImage* mask,
                                                   const KXRect* rect, float brightness, float midtoneContrast)
{
    const BrightnessShaper shaper(brightness);
    return ShapeImage(
        source, destination, mask, rect, [&](float x) { return BrightnessMidtoneValue(x, shaper, midtoneContrast); },
        [&](float x, float m) {
            return BrightnessMidtoneValue(x, BrightnessShaper(brightness * m), midtoneContrast * m);
        });
}

int32_t KXEffectsBrightnessMidtoneContrastMakeCurves(int32_t numChannels, float* curves, float brightness,
                                                     float midtoneContrast)
{
    const BrightnessShaper shaper(brightness);
    return MakeCurves(numChannels, curves, [&](float x) { return BrightnessMidtoneValue(x, shaper, midtoneContrast); });
}

int32_t KXEffectsBrightnessWithMask(KXImage* source, KXImage* destination, const KXRect* rect, float brightness,
                                    KXImage* mask)
{
    const BrightnessShaper shaper(brightness);
    return ShapeImageWithSignedMask(
        source, destination, mask, rect, brightness, [&](float x) { return shaper(x); },
        [&](float x, float m) { return BrightnessWithSignedMask(x, shaper, SignedMask(m)); });
}

int32_t KXEffectsBrightnessAltMakeCurves(int32_t numChannels, float* curves, float brightness)
{
    const BrightnessShaper shaper(brightness);
    return MakeCurves(numChannels, curves, shaper);
}

int32_t KXEffectsBrightnessAltToExposure(float brightness, float* exposure)
{
    if (!exposure)
        return kKXErrBadParam;
    *exposure = brightness >= 0.0f ? brightness * 2.0f + 1.0f : 1.0f / (1.0f - brightness);
    return kKXNoErr;
}

int32_t KXEffectsMidtoneContrast(KXImage* source, KXImage* destination, const KXRect* rect, float strength)
{
    return ShapeImage(
        source, destination, nullptr, rect, [&](float x) { return MidtoneCurveValue(x, strength); },
        [&](float x, float) { return MidtoneCurveValue(x, strength); });
}

int32_t KXEffectsMidtoneContrastMakeCurves(int32_t numChannels, float* curves, float strength)
{
    return MakeCurves(numChannels, curves, [&](float x) { return MidtoneCurveValue(x, strength); });
}

int32_t KXEffectsMidtoneContrastAltWithMask(KXImage* source, KXImage* destination, const KXRect* rect, float strength,
                                            KXImage* mask)
{
    return ShapeImageWithSignedMask(
        source, destination, mask, rect, strength, [&](float x) { return MidtoneAltValue(x, strength); },
        [&](float x, float m) { return MidtoneAltValue(x, SignedMask(m) + strength); });
}

int32_t KXEffectsMidtoneContrastAltMakeCurves(int32_t numChannels, float* curves, float strength)
{
    return MakeCurves(numChannels, curves, [&](float x) { return MidtoneAltValue(x, strength); });
}

int32_t KXEffectsExposure(KXImage* source, KXImage* destination, const KXRect* rect, float exposure)
{
    const ExposureResponse respond(exposure);
    return EntryPoint(source, destination, rect)
        .NeutralWhen(exposure == 1.0f)
        .Run([&]<class Sample>(SampleTag<Sample>, const CEffectRect& effectRect) {
            ForEachPixel<Sample>(source, destination, effectRect,
                                 [&](const Sample* in, Sample* out, auto colourPlanes) {
                                     // A gray image has only the gray case.
                                     if (colourPlanes < 3) {
                                         for (int32_t c = 0; c < colourPlanes; ++c)
                                             out[c] = FromUnit<Sample>(Clamp01(respond(ToUnit(in[c]))));
                                         return;
                                     }
                                     ChangeColour(in, out, [&](float* rgb) { ExposePixel(rgb, respond); });
                                 });
        });
}

int32_t KXEffectsBrightnessHazeSaturation(KXImage* source, KXImage* destination, const KXRect* rect, float brightness,
                                          float haze, float saturation)
{
    const float lift = std::max(haze, 0.0f), hold = 1.0f - lift;
    const bool adjust = brightness != 0.0f || saturation != 0.0f;
    return EntryPoint(source, destination, rect)
        .RGBOnly()
        .Run([&]<class Sample>(SampleTag<Sample>, const CEffectRect& effectRect) {
            // Haze lifts black to the haze and leaves white at white.
            const auto kernel = [&](auto adjustTag) {
                ForEachColour<Sample>(source, destination, effectRect, [&](float* rgb) {
                    if constexpr (decltype(adjustTag)::value)
                        KXEffectsSaturateAndLighten(rgb, saturation, brightness);
                    for (int32_t c = 0; c < 3; ++c)
                        rgb[c] = rgb[c] * hold + lift;
                });
            };
            if (adjust)
                kernel(std::true_type{});
            else
                kernel(std::false_type{});
        });
}
