// Soft high-pass sharpening: the difference from a box blur, centred on mid-gray, laid over the image in
// overlay mode and mixed with it by amount.
#include "KXEffectsBoxBlur.h"
#include "KXEffectsSharpening.h"

#include <algorithm>

namespace {

constexpr const char* kSourceFile = "Source/Common/KXEffects/KXEffectsSharpenHighPass";

// ---- Formulas ----

// h = a + 0.5 - c over a: a 2 h below a = 0.5, else 1 - (1 - a) 2 (1 - h); then a (1 - amount) + o amount
// in 0..1. Written out rather than taken from the blend modes, whose overlay rounds in another order.
inline float OverlaidHighPass(float a, float c, float amount)
{
    const float h = a + 0.5f - c;
    const float o = a < 0.5f ? a * 2.0f * h : 1.0f - (1.0f - a) * 2.0f * (1.0f - h);
    return std::clamp(a * (1.0f - amount) + o * amount, 0.0f, 1.0f);
}

} // namespace

// ---- Entry points ----

int32_t KXEffectsSharpenHighPass(KXImage* source, KXImage* destination, const KXRect* rect, float amount,
                                 int32_t radius)
{
    return KXEffectsSharpenHighPassWithOffset(source, destination, rect, amount, radius, KXPointMake(0, 0));
}

int32_t KXEffectsSharpenHighPassWithOffset(KXImage* source, KXImage* destination, const KXRect* rect, float amount,
                                           int32_t radius, KXPoint offset)
{
    // The overlay reads the unsharpened samples after the blur has filled the destination.
    return EntryPoint(source, destination, rect)
        .NeutralWhen(!(amount > 0.0f) || radius <= 0, offset)
        .Require(source != destination, kKXErrBadParam)
        .Run([&]<class Sample>(SampleTag<Sample>, const CEffectRect& effectRect) {
            const int32_t status = LogFailure(BoxBlurDispatch(source, source, destination, rect, radius, offset, 1.0f),
                                              kSourceFile, __LINE__);
            if (status == kKXNoErr)
                CombineWithBlur<Sample>(source, destination, destination, effectRect, offset,
                                        [amount](Sample s, Sample b) {
                                            return FromUnit<Sample>(OverlaidHighPass(ToUnit(s), ToUnit(b), amount));
                                        });
            return status;
        });
}
