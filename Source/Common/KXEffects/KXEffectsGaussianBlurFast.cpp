// The fast gaussian blur: three box blurs in a row, at a cost independent of the radius.
#include "KXEffectsGaussianBlurFast.h"
#include "KXEffectsBlurModes.h"
#include "KXEffectsBoxBlur.h"
#include "KXEffectsEntry.h"
#include "KXEffectsUtils.h"

namespace {

// The fast blur logs under the box blur's file, the name its failures have always been reported by.
constexpr const char* kSourceFile = "Source/Common/KXEffects/KXEffectsBoxBlur";

// Boxes of radii q, r, r over rect grown by 2r, then r, then rect itself; the last one takes source as
// reference, for the amount mix of "norm" or the mode's blend. Below radius 1.1 r is 0: the last two passes
// copy, the temporary reaches destination whole and amount and mode play no part.
int32_t FastGaussianBlur(KXImage* source, KXImage* destination, const KXRect* rect, float radius, float amount,
                         uint32_t blendMode)
{
    if (!(radius > 0.0f) || !(amount > 0.0f))
        return KXEffectsCopyRect(source, destination, CEffectRect::FromKXRect(*rect), kNoOffset);
    // An endless or absurd radius truncates to boxes below 0; boxes beyond the farthest reach are refused.
    const FastGaussianRadii radii = FastGaussianRadiiOf(radius);
    if (radii.first < 0 || radii.second < 0 || radii.first > kMaxReach || radii.second > kMaxReach)
        KX_RAISE(kKXErrBadParam);
    // Only the part of rect in the destination is blurred: the rest would be dropped. An empty part still
    // answers for the mode.
    const KXRect inside = InDestination(CEffectRect::FromKXRect(*rect), destination).ToKXRect();
    if (inside.width > 0 && inside.height > 0) {
        KXRect work = KXRectOutset(&inside, 2 * radii.second);
        CImageRef temporary(KXEffectsCreateWorkImageLike(destination, &work, kSourceFile, __LINE__));
        // Its alpha is never written by the boxes: cleared, it reaches destination as 0, not as stale memory.
        if (radii.second == 0)
            KX_THROW_IF_ERROR(KXImageFill(temporary, 0.0f));
        KX_THROW_IF_ERROR(BoxBlurPlainDispatch(source, temporary, &work, radii.first, kNoOffset, 1.0f));
        work = KXRectOutset(&work, -radii.second);
        KX_THROW_IF_ERROR(BoxBlurPlainDispatch(temporary, temporary, &work, radii.second, kNoOffset, 1.0f));
        KX_THROW_IF_ERROR(
            BoxBlurModeDispatch(source, temporary, destination, &inside, radii.second, kNoOffset, amount, blendMode));
    } else {
        KX_THROW_IF_ERROR(BoxBlurModeDispatch(source, source, destination, &inside, 0, kNoOffset, amount, blendMode));
    }
    if (BlurModeReportsBadParam(blendMode))
        KX_RAISE(kKXErrBadParam);
    return kKXNoErr;
}

} // namespace

// ---- Entry points ----

int32_t KXEffectsGaussianBlurFast(KXImage* source, KXImage* destination, const KXRect* rect, float radius)
{
    return KXEffectsGaussianBlurFastWithAmountAndMode(source, destination, rect, radius, 1.0f, FourCharCode("norm"));
}

int32_t KXEffectsGaussianBlurFastWithAmount(KXImage* source, KXImage* destination, const KXRect* rect, float radius,
                                            float amount)
{
    return KXEffectsGaussianBlurFastWithAmountAndMode(source, destination, rect, radius, amount, FourCharCode("norm"));
}

int32_t KXEffectsGaussianBlurFastWithAmountAndMode(KXImage* source, KXImage* destination, const KXRect* rect,
                                                   float radius, float amount, uint32_t blendMode)
{
    if (!source || !destination || !rect)
        return kKXErrBadParam;
    if (!HaveSameLayout(source, destination))
        return kKXErrUnsupported;
    return KXEffectsCatchStatus(kSourceFile, __LINE__,
                                [&] { return FastGaussianBlur(source, destination, rect, radius, amount, blendMode); });
}
