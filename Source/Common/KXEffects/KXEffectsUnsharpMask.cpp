// The unsharp masks: the source blurred into the destination by one of four blurs, then the difference
// between source and blur scaled by amount and added back, optionally past a soft threshold.
#include "KXEffectsBoxBlur.h"
#include "KXEffectsSample.h"
#include "KXEffectsSharpening.h"
#include "KXEffectsSurfaceBlur.h"

#include <algorithm>
#include <type_traits>

namespace {

constexpr const char* kSourceFile = "Source/Common/KXEffects/KXEffectsUnsharpMask";

// ---- Formulas ----

// Differences of integer samples stay integers.
template <class Sample> using Difference = std::conditional_t<kIsFloatSample<Sample>, float, int32_t>;

// clamp(s + truncate(float(d) x amount), 0, white); floats clamp(s + d x amount, 0, 1) without truncation.
template <class Sample> inline Sample SharpenedSample(Sample s, Difference<Sample> d, float amount)
{
    if constexpr (kIsFloatSample<Sample>) {
        return std::clamp(s + d * amount, 0.0f, 1.0f);
    } else {
        // 64 bits, so that a correction near the 32-bit limit does not wrap before the clamp.
        const int64_t sum = int64_t(s) + TruncateToInt32(float(d) * amount);
        return Sample(std::clamp<int64_t>(sum, 0, kWhiteSample<Sample>));
    }
}

template <class Sample> inline Sample PlainSample(Sample s, Sample b, float amount)
{
    return SharpenedSample<Sample>(s, Difference<Sample>(s) - Difference<Sample>(b), amount);
}

// t = truncate(threshold x white + 0.5) for integers, threshold itself for floats.
template <class Sample> inline Difference<Sample> ThresholdOf(float threshold)
{
    if constexpr (kIsFloatSample<Sample>)
        return threshold;
    else
        return TruncateToInt32(threshold * kWhite<Sample> + 0.5f);
}

// A soft knee: t is taken off the difference, so the correction grows from zero at the threshold.
template <class Sample> inline Sample ThresholdedSample(Sample s, Sample b, Difference<Sample> t, float amount)
{
    const Difference<Sample> d = Difference<Sample>(s) - Difference<Sample>(b);
    if (d > t)
        return SharpenedSample<Sample>(s, d - t, amount);
    if (d < -t)
        return SharpenedSample<Sample>(s, d + t, amount);
    return s;
}

// ---- Dispatch ----

// The destination holds the blur; the thresholded form only for a threshold above 0.
template <class Sample>
void SharpenAgainstBlur(KXImage* source, KXImage* destination, const CEffectRect& rect, float amount, float threshold)
{
    const KXPoint origin = KXPointMake(0, 0);
    if (threshold > 0.0f)
        CombineWithBlur<Sample>(source, destination, destination, rect, origin,
                                [t = ThresholdOf<Sample>(threshold), amount](Sample s, Sample b) {
                                    return ThresholdedSample<Sample>(s, b, t, amount);
                                });
    else
        CombineWithBlur<Sample>(source, destination, destination, rect, origin,
                                [amount](Sample s, Sample b) { return PlainSample<Sample>(s, b, amount); });
}

// blur() writes the blur of source into destination; the sharpening reads both, so they must differ.
template <class Blur>
int32_t UnsharpMaskWith(KXImage* source, KXImage* destination, const KXRect* rect, bool neutral, float amount,
                        float threshold, Blur&& blur)
{
    return EntryPoint(source, destination, rect)
        .NeutralWhen(neutral)
        .Require(source != destination, kKXErrBadParam)
        .Run([&]<class Sample>(SampleTag<Sample>, const CEffectRect& effectRect) {
            const int32_t status = LogFailure(blur(), kSourceFile, __LINE__);
            if (status == kKXNoErr)
                SharpenAgainstBlur<Sample>(source, destination, effectRect, amount, threshold);
            return status;
        });
}

} // namespace

// ---- Entry points ----

int32_t KXEffectsUnsharpMask(KXImage* source, KXImage* destination, const KXRect* rect, float amount, float radius,
                             float threshold)
{
    const bool neutral = !(amount > 0.0f) || !(radius > 0.0f) || !(threshold < 1.0f);
    return UnsharpMaskWith(source, destination, rect, neutral, amount, threshold, [&] {
        return KXEffectsGaussianBlurWithAmountAndMode(source, destination, rect, radius, 1.0f, FourCharCode("norm"));
    });
}

int32_t KXEffectsUnsharpMaskUsingSurfaceBlur(KXImage* source, KXImage* destination, const KXRect* rect, float amount,
                                             int32_t radius, float surfaceThreshold)
{
    const bool neutral = !(amount > 0.0f) || radius <= 0 || !(surfaceThreshold > 0.0f);
    // The surface threshold shapes the blur only: the combination is always the plain one.
    return UnsharpMaskWith(source, destination, rect, neutral, amount, 0.0f, [&] {
        return SurfaceBlurDispatch(source, destination, rect, radius, surfaceThreshold, 1.0f, KXPointMake(0, 0));
    });
}

int32_t KXEffectsUnsharpMaskUsingBoxBlur(KXImage* source, KXImage* destination, const KXRect* rect, float amount,
                                         int32_t radius, float threshold)
{
    const bool neutral = !(amount > 0.0f) || radius <= 0 || !(threshold < 1.0f);
    return UnsharpMaskWith(source, destination, rect, neutral, amount, threshold, [&] {
        return BoxBlurDispatch(source, source, destination, rect, radius, KXPointMake(0, 0), 1.0f);
    });
}

int32_t KXEffectsUnsharpMaskUsingTriangularBlur(KXImage* source, KXImage* destination, const KXRect* rect, float amount,
                                                int32_t radius, float threshold)
{
    const bool neutral = !(amount > 0.0f) || radius <= 0 || !(threshold < 1.0f);
    return UnsharpMaskWith(source, destination, rect, neutral, amount, threshold,
                           [&] { return KXEffectsTriangularBlur(source, destination, rect, radius); });
}
