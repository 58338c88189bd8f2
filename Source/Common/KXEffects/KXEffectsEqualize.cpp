// The equalizers: every colour sample, or the luma of each pixel, scaled by the gain that flattens the
// image's histogram.
#include "KXEffectsEntry.h"
#include "KXEffectsHistogram.h"
#include "KXEffectsToneCurves.h"

#include <algorithm>
#include <memory>

namespace {

// trunc(s / white x 0.999999 x bins): the factor keeps white inside the last bin.
inline int32_t EqualizeBin(float unit, int32_t bins)
{
    return BinOf(unit * 0.999999f * float(bins), bins - 1);
}

// gain[0] = 0, gain[i] = (counts through bin i) x k / i: the equalized level of bin i as a factor on its samples.
std::unique_ptr<float[]> GainTable(const uint32_t* counts, int32_t bins, float k)
{
    std::unique_ptr<float[]> gains = NewTable<float>(size_t(bins));
    int64_t sum = counts[0];
    for (int32_t i = 1; i < bins; ++i) {
        sum += counts[i];
        gains[i] = float(sum) * k / float(i);
    }
    return gains;
}

// The gains of one histogram of all colour samples of the image, K = 255 / (pixels x planes).
template <class Sample> std::unique_ptr<float[]> EqualizeGains(KXImage* image)
{
    const std::unique_ptr<uint32_t[]> counts = NewTable<uint32_t>(kBins);
    ForEachImagePixel<Sample>(image, BoundsOf(image), [&](const Sample* pixel, auto, auto colourPlanes) {
        for (int32_t c = 0; c < colourPlanes; ++c)
            ++counts[EqualizeBin(ToUnit(pixel[c]), kBins)];
    });
    const int64_t samples = int64_t(KXImageGetWidth(image)) * KXImageGetHeight(image) * LayoutOf(image).colourPlanes;
    return GainTable(counts.get(), kBins, 255.0f / float(samples));
}

// out = s x gain[bin(s)]: the product keeps a 16-bit sample's place inside its bin. Float is not clamped; an
// integer sample high in a low bin can pass white, and stays white.
template <class Sample> void EqualizeKernel(KXImage* source, KXImage* destination, const float* gains)
{
    ForEachPixel<Sample>(source, destination, BoundsOf(destination),
                         [gains](const Sample* in, Sample* out, auto colourPlanes) {
                             for (int32_t c = 0; c < colourPlanes; ++c) {
                                 float v = float(in[c]) * gains[EqualizeBin(ToUnit(in[c]), kBins)];
                                 if constexpr (!kIsFloatSample<Sample>)
                                     v = std::min(v, kWhite<Sample>);
                                 out[c] = FromRaw<Sample>(v);
                             }
                         });
}

// Float luma takes 65,536 bins, integer luma 256.
template <class Sample> constexpr int32_t kLumaBins = kIsFloatSample<Sample> ? 65536 : kBins;

// The gains of the luma histogram, K = (bins - 1) / pixels.
template <class Sample> std::unique_ptr<float[]> LumaGains(KXImage* image)
{
    constexpr int32_t bins = kLumaBins<Sample>;
    const std::unique_ptr<uint32_t[]> counts = NewTable<uint32_t>(bins);
    ForEachImagePixel<Sample>(image, BoundsOf(image),
                              [&](const Sample* pixel, auto, auto) { ++counts[EqualizeBin(LumaUnits(pixel), bins)]; });
    const int64_t pixels = int64_t(KXImageGetWidth(image)) * KXImageGetHeight(image);
    return GainTable(counts.get(), bins, float(bins - 1) / float(pixels));
}

// All three planes of a pixel take the gain of its luma, so hues stay; clamped to 0..white.
template <class Sample> void EqualizeLuminosityKernel(KXImage* source, KXImage* destination, const float* gains)
{
    ForEachPixel<Sample>(source, destination, BoundsOf(destination), [gains](const Sample* in, Sample* out, auto) {
        const float gain = gains[EqualizeBin(LumaUnits(in), kLumaBins<Sample>)];
        for (int32_t c = 0; c < 3; ++c)
            out[c] = FromRaw<Sample>(ClampToWhite<Sample>(float(in[c]) * gain));
    });
}

// The equalizers know depths 8, 16 and 32 only, and say so with kKXErrBadImageFormat.
template <class Fn> int32_t DispatchEqualizerDepth(KXImage* image, Fn&& fn)
{
    const int32_t depth = KXImageGetDepth(image);
    if (depth != 8 && depth != 16 && depth != 32)
        return kKXErrBadImageFormat;
    return DispatchDepth(depth, fn);
}

} // namespace

// ---- Entry points ----

int32_t KXEffectsEqualize(KXImage* source, KXImage* destination)
{
    if (!source || !destination)
        return kKXErrBadParam;
    if (!HaveSameLayout(source, destination))
        return kKXErrUnsupported;
    return DispatchEqualizerDepth(source, [&](auto tag) {
        using Sample = typename decltype(tag)::Type;
        EqualizeKernel<Sample>(source, destination, EqualizeGains<Sample>(source).get());
        return int32_t(kKXNoErr);
    });
}

int32_t KXEffectsEqualizeLuminosity(KXImage* source, KXImage* destination)
{
    if (!source || !destination)
        return kKXErrBadParam;
    const int32_t space = KXImageGetColorSpaceType(source);
    if (space == KXColorSpaceGray)
        return KXEffectsEqualize(source, destination);
    if (space != KXColorSpaceRGB || LayoutOf(source).colourPlanes != 3 || LayoutOf(destination).colourPlanes != 3)
        return kKXErrBadImageFormat;
    if (!HaveSameLayout(source, destination))
        return kKXErrUnsupported;
    return DispatchEqualizerDepth(source, [&](auto tag) {
        using Sample = typename decltype(tag)::Type;
        EqualizeLuminosityKernel<Sample>(source, destination, LumaGains<Sample>(source).get());
        return int32_t(kKXNoErr);
    });
}

int32_t KXEffectsEqualizeMakeCurves(KXImage* image, float* curves)
{
    if (!image || !curves)
        return kKXErrBadParam;
    return DispatchEqualizerDepth(image, [&](auto tag) {
        const std::unique_ptr<float[]> gains = EqualizeGains<typename decltype(tag)::Type>(image);
        FillCurveChannels(LayoutOf(image).colourPlanes, curves,
                          [&](int32_t i) { return float(i) * gains[i] / 255.0f; });
        return int32_t(kKXNoErr);
    });
}
