// High pass: the difference between the image and its gaussian blur, centred on mid-gray; with the low pass
// kept beside it when asked.
#include "KXEffectsSharpening.h"

#include <algorithm>

namespace {

constexpr const char* kSourceFile = "Source/Common/KXEffects/KXEffectsHighPass";

// ---- Formulas ----

// clamp(s - b + middle, 0, white), middle 128, 32768 or 0.5.
template <class Sample> inline Sample HighPassSample(Sample s, Sample b)
{
    if constexpr (kIsFloatSample<Sample>) {
        return std::clamp(s - b + 0.5f, 0.0f, 1.0f);
    } else {
        constexpr int32_t middle = (int32_t(kWhiteSample<Sample>) + 1) / 2;
        return Sample(std::clamp(int32_t(s) - int32_t(b) + middle, 0, int32_t(kWhiteSample<Sample>)));
    }
}

// ---- Dispatch ----

// The gaussian blur of source into lowPass, then source minus it into highPass; lowPass may be highPass.
int32_t SplitByBlur(EntryPoint entry, KXImage* source, KXImage* highPass, KXImage* lowPass, const KXRect* rect,
                    float radius)
{
    return entry.Catching(kSourceFile, __LINE__)
        .Run([&]<class Sample>(SampleTag<Sample>, const CEffectRect& effectRect) {
            KX_THROW_IF_ERROR(
                KXEffectsGaussianBlurWithAmountAndMode(source, lowPass, rect, radius, 1.0f, FourCharCode("norm")));
            CombineWithBlur<Sample>(source, lowPass, highPass, effectRect, KXPointMake(0, 0), HighPassSample<Sample>);
        });
}

} // namespace

// ---- Entry points ----

int32_t KXEffectsHighPass(KXImage* source, KXImage* destination, const KXRect* rect, float radius)
{
    return SplitByBlur(EntryPoint(source, destination, rect).Require(source != destination, kKXErrBadParam), source,
                       destination, destination, rect, radius);
}

int32_t KXEffectsHighPassAndLowPass(KXImage* source, KXImage* highPass, KXImage* lowPass, const KXRect* rect,
                                    float radius)
{
    return SplitByBlur(EntryPoint(source, highPass, rect)
                           .Requires(lowPass)
                           .Require(lowPass != source && lowPass != highPass, kKXErrBadParam),
                       source, highPass, lowPass, rect, radius);
}
