// Curve tables: their small algebra and their application to images of every depth.
#include "KXEffectsEntry.h"
#include "KXEffectsRowLoop.h"
#include "KXEffectsToneCurves.h"

#include <algorithm>
#include <type_traits>
#include <vector>

namespace {

// 16-bit samples to table positions: the float constant 255 / 65535, multiplied rather than divided.
constexpr float kSixteenBitToPosition = 255.0f / 65535.0f;

// L(p): i = trunc(p) kept to the segments of the table, f = p - i, (1 - f) T[i] + f T[i + 1].
// Above the table the top segment extrapolates, so float highlights above white are kept; below it the
// bottom segment does the same rather than read before the table. A position beyond 32 bits or NaN truncates
// as the processor converts, to INT32_MIN, and so takes the bottom segment.
inline float CurveLookup(const float* table, float position)
{
    const int32_t index = std::clamp(TruncateToInt32(position), 0, kCurveEntries - 2);
    const float fraction = position - float(index);
    return (1.0f - fraction) * table[index] + fraction * table[index + 1];
}

// Between k = trunc(p) and k + 1: (p - k) curve[k + 1] + ((k + 1) - p) curve[k].
inline float ResampledEntry(const float* curve, float position)
{
    const int32_t k = int32_t(position);
    return (position - float(k)) * curve[k + 1] + (float(k + 1) - position) * curve[k];
}

// T(in): 8-bit samples index the table; 16-bit ones interpolate at in x 255 / 65535, float at in x 255.
template <class Sample> inline float CurveValue(const float* table, Sample in)
{
    if constexpr (std::is_same_v<Sample, uint8_t>)
        return table[in];
    else if constexpr (std::is_same_v<Sample, uint16_t>)
        return CurveLookup(table, float(in) * kSixteenBitToPosition);
    else
        return CurveLookup(table, in * 255.0f);
}

// The table and the amount as the blend uses them: amount x white and 1 - amount.
struct CurveMix {
    const float* curves;
    float scaledAmount;
    float keep;
};

// Full curve: T(in) x white + 0.5 truncated for integers, unclamped, so a table value outside 0..1 wraps.
// Blend: T(in) x (amount x white) + in x (1 - amount), stored the same way.
template <class Sample, bool kBlend> inline Sample CurveSample(const float* table, Sample in, const CurveMix& mix)
{
    if constexpr (kBlend)
        return FromRaw<Sample>(CurveValue(table, in) * mix.scaledAmount + float(in) * mix.keep);
    else
        return FromUnit<Sample>(CurveValue(table, in));
}

// 16-bit and float: every colour sample through its channel; alpha is carried by the row loop.
template <class Sample, bool kBlend>
void CurvesKernel(KXImage* source, KXImage* destination, const CEffectRect& rect, const CurveMix& mix)
{
    ForEachPixel<Sample>(source, destination, rect, [&](const Sample* in, Sample* out, auto colourPlanes) {
        for (int32_t c = 0; c < colourPlanes; ++c)
            out[c] = CurveSample<Sample, kBlend>(mix.curves + c * kCurveEntries, in[c], mix);
    });
}

// 8-bit: a result depends only on the channel and the input byte, so each channel's 256 results are
// computed once per call and the pixels only look them up.
template <bool kBlend>
void ByteCurvesKernel(KXImage* source, KXImage* destination, const CEffectRect& rect, const CurveMix& mix)
{
    const int32_t colourPlanes = std::max(LayoutOf(destination).colourPlanes, 0);
    std::vector<uint8_t> maps(size_t(colourPlanes) * kCurveEntries);
    for (int32_t c = 0; c < colourPlanes; ++c)
        for (int32_t i = 0; i < kCurveEntries; ++i)
            maps[c * kCurveEntries + i] = CurveSample<uint8_t, kBlend>(mix.curves + c * kCurveEntries, uint8_t(i), mix);
    const uint8_t* map = maps.data();
    ForEachPixel<uint8_t>(source, destination, rect, [map](const uint8_t* in, uint8_t* out, auto colourPlanes) {
        for (int32_t c = 0; c < colourPlanes; ++c)
            out[c] = map[c * kCurveEntries + in[c]];
    });
}

template <class Sample, bool kBlend>
void RunCurves(KXImage* source, KXImage* destination, const CEffectRect& rect, const CurveMix& mix)
{
    if constexpr (std::is_same_v<Sample, uint8_t>)
        ByteCurvesKernel<kBlend>(source, destination, rect, mix);
    else
        CurvesKernel<Sample, kBlend>(source, destination, rect, mix);
}

// Below 1 the blend runs; 1 and above are the full curve.
template <class Sample>
int32_t ApplyCurvesAtDepth(KXImage* source, KXImage* destination, const CEffectRect& rect, const float* curves,
                           float amount)
{
    if (amount < 1.0f)
        RunCurves<Sample, true>(source, destination, rect, {curves, amount * kWhite<Sample>, 1.0f - amount});
    else
        RunCurves<Sample, false>(source, destination, rect, {curves, kWhite<Sample>, 0.0f});
    return kKXNoErr;
}

} // namespace

int32_t KXEffectsInitCurves(int32_t numChannels, float* curves)
{
    // A true division: i x (1 / 255) differs in the last bit for some entries.
    FillCurveChannels(numChannels, curves, [](int32_t i) { return float(i) / 255.0f; });
    return kKXNoErr;
}

int32_t KXEffectsConcatCurves(int32_t numChannels, const float* first, const float* second, float* result)
{
    // Entry by entry in ascending order, each read before it is written, so result may be first.
    for (int32_t c = 0; c < numChannels; ++c) {
        const float* table = second + c * kCurveEntries;
        for (int32_t i = c * kCurveEntries; i < (c + 1) * kCurveEntries; ++i)
            result[i] = CurveLookup(table, first[i] * 255.0f);
    }
    return kKXNoErr;
}

int32_t KXEffectsResizeCurve(int32_t oldCount, const float* oldCurve, int32_t newCount, float* newCurve)
{
    if (oldCount < 1 || newCount < 1)
        return kKXNoErr;
    const float step = float(oldCount - 1) / float(newCount - 1);
    // The last entry is the old last entry bit for bit, so the loop stops short of it and never reads
    // past the end of oldCurve.
    for (int32_t i = 0; i < newCount - 1; ++i)
        newCurve[i] = ResampledEntry(oldCurve, float(i) * step);
    newCurve[newCount - 1] = oldCurve[oldCount - 1];
    return kKXNoErr;
}

int32_t KXEffectsApplyCurves(KXImage* source, KXImage* destination, const KXRect* rect, const float* curves)
{
    return KXEffectsApplyCurvesWithAmount(source, destination, rect, curves, 1.0f);
}

int32_t KXEffectsApplyCurvesWithAmount(KXImage* source, KXImage* destination, const KXRect* rect, const float* curves,
                                       float amount)
{
    // No amount is a plain copy, whatever the depth.
    return EntryPoint(source, destination, rect)
        .Requires(curves)
        .NeutralWhen(amount <= 0.0f)
        .Run([&]<class Sample>(SampleTag<Sample>, const CEffectRect& effectRect) {
            return ApplyCurvesAtDepth<Sample>(source, destination, effectRect, curves, amount);
        });
}
