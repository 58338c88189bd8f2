// Black and white points: the clips of each plane's histogram, or of the mean of the planes, as points, as
// curves, or stretched onto an image.
#include "KXEffectsEntry.h"
#include "KXEffectsHistogram.h"
#include "KXEffectsToneCurves.h"

#include <algorithm>
#include <memory>

namespace {

constexpr int32_t kMaxPointPlanes = 3;

// The histogram bin of a sample: 8-bit as it is, 16-bit by its high byte.
template <class Sample> inline int32_t PointBin(Sample sample)
{
    return int32_t(sample) >> (SampleTraits<Sample>::kDepth - 8);
}

struct PointHistograms {
    std::unique_ptr<uint32_t[]> plane[kMaxPointPlanes];
    int64_t counted = 0;
};

// One histogram per colour plane, or one of the rounded mean of the planes when combined. A pixel with an
// alpha of 0 is left out.
template <class Sample, bool Combined> PointHistograms CountPoints(KXImage* image, int32_t histogramCount)
{
    PointHistograms histograms;
    for (int32_t p = 0; p < histogramCount; ++p)
        histograms.plane[p] = NewTable<uint32_t>(kBins);
    ForEachImagePixel<Sample>(image, BoundsOf(image), [&](const Sample* pixel, auto planes, auto colourPlanes) {
        if (planes > colourPlanes && pixel[colourPlanes] == Sample(0))
            return;
        if constexpr (Combined) {
            int32_t sum = 0;
            for (int32_t c = 0; c < colourPlanes; ++c)
                sum += PointBin(pixel[c]);
            ++histograms.plane[0][int32_t(float(sum) / float(colourPlanes) + 0.5f) & 0xFF];
        } else {
            for (int32_t c = 0; c < colourPlanes; ++c)
                ++histograms.plane[c][PointBin(pixel[c])];
        }
        ++histograms.counted;
    });
    return histograms;
}

// The points of every histogram; false for too few pixels or crossed points.
bool FindPoints(const PointHistograms& histograms, int32_t histogramCount, float shadowClip, float highlightClip,
                float* black, float* white)
{
    if (histograms.counted < 1000)
        return false;
    const float counted = float(histograms.counted);
    for (int32_t p = 0; p < histogramCount; ++p) {
        const uint32_t* histogram = histograms.plane[p].get();
        black[p] = float(BinReaching(histogram, int64_t(counted * shadowClip), false)) / 255.0f;
        white[p] = float(BinReaching(histogram, int64_t(counted * highlightClip), true)) / 255.0f;
        if (!(white[p] > black[p]))
            return false;
    }
    return true;
}

// Levels from b to w: (x - b) / (w - b) limited to 0..1; equal points make a step just above b.
inline float PointsCurveValue(float x, float b, float w)
{
    if (w == b)
        return x > b ? 1.0f : 0.0f;
    return Clamp01((x - b) / (w - b));
}

// v = (s / white - b) / (w - b) x white with the reciprocals hoisted, limited to 0..white; equal points make
// NaN at b, which reads 0 as in the curve. The store rounds half away from zero.
template <class Sample>
void ApplyPointsKernel(KXImage* source, KXImage* destination, const CEffectRect& rect, const float* black,
                       const float* white)
{
    float inverse[kMaxPointPlanes];
    for (int32_t p = 0; p < LayoutOf(destination).colourPlanes; ++p)
        inverse[p] = 1.0f / (white[p] - black[p]);
    ForEachPixel<Sample>(source, destination, rect, [&](const Sample* in, Sample* out, auto colourPlanes) {
        for (int32_t c = 0; c < colourPlanes; ++c) {
            const float v = (ToUnit(in[c]) - black[c]) * inverse[c] * kWhite<Sample>;
            out[c] = FromRaw<Sample>(v > 0.0f ? std::min(v, kWhite<Sample>) : 0.0f);
        }
    });
}

// fn(SampleTag) for depth 8 or 16; any other depth is kKXErrUnsupported.
template <class Fn> int32_t DispatchIntegerDepth(KXImage* image, Fn&& fn)
{
    switch (KXImageGetDepth(image)) {
    case 8:
        return fn(SampleTag<uint8_t>{});
    case 16:
        return fn(SampleTag<uint16_t>{});
    default:
        return kKXErrUnsupported;
    }
}

} // namespace

// ---- Entry points ----

int32_t KXEffectsBlackAndWhitePointsGetPoints(KXImage* image, float* black, float* white, float shadowClip,
                                              float highlightClip, bool combined)
{
    if (!image || !black || !white)
        return kKXErrBadParam;
    const int32_t colourPlanes = LayoutOf(image).colourPlanes;
    if (colourPlanes > kMaxPointPlanes)
        return kKXErrUnsupported;
    const int32_t histogramCount = combined ? 1 : colourPlanes;
    return DispatchIntegerDepth(image, [&](auto tag) {
        using Sample = typename decltype(tag)::Type;
        const PointHistograms histograms = combined ? CountPoints<Sample, true>(image, histogramCount)
                                                    : CountPoints<Sample, false>(image, histogramCount);
        const bool found = FindPoints(histograms, histogramCount, shadowClip, highlightClip, black, white);
        for (int32_t p = histogramCount; p < colourPlanes; ++p) {
            black[p] = black[0];
            white[p] = white[0];
        }
        if (found)
            return int32_t(kKXNoErr);
        std::fill(black, black + colourPlanes, 0.0f);
        std::fill(white, white + colourPlanes, 1.0f);
        return int32_t(kKXErrBadInput);
    });
}

int32_t KXEffectsBlackAndWhitePointsMakeCurves(int32_t numChannels, float* curves, const float* black,
                                               const float* white)
{
    if (numChannels < 1)
        return kKXNoErr;
    if (!curves || !black || !white)
        return kKXErrBadParam;
    for (int32_t c = 0; c < numChannels; ++c)
        for (int32_t i = 0; i < kCurveEntries; ++i)
            curves[c * kCurveEntries + i] = PointsCurveValue(float(i) / 255.0f, black[c], white[c]);
    return kKXNoErr;
}

int32_t KXEffectsBlackAndWhitePointsApply(KXImage* source, KXImage* destination, const KXRect* rect, const float* black,
                                          const float* white)
{
    if (!source || !destination || !rect || !black || !white)
        return kKXErrBadParam;
    if (!HaveSameLayout(source, destination))
        return kKXErrUnsupported;
    // The pixel loop walks the destination's colour planes, one point of each array apiece.
    if (LayoutOf(destination).colourPlanes > kMaxPointPlanes)
        return kKXErrUnsupported;
    const CEffectRect effectRect = CEffectRect::FromKXRect(*rect);
    return DispatchIntegerDepth(source, [&](auto tag) {
        ApplyPointsKernel<typename decltype(tag)::Type>(source, destination, effectRect, black, white);
        return int32_t(kKXNoErr);
    });
}
