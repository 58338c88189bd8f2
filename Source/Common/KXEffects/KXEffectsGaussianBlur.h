// What the gaussian blurs share with the families built on them: the reach of a blur at a radius, and the
// blurred luma of the local tone effects.
#pragma once

#include "KXEffectsGaussianBlurFast.h"
#include "KXEffectsSample.h"
#include "KXEffectsUtils.h"

#include <cstdint>

// h of the true blur: the kernel has 2h + 1 taps. The product is a float; the half is added in double.
inline int32_t TrueGaussianHalfWidth(float radius)
{
    return TruncateToInt32(double(radius * 2.5f) + 0.5);
}

// Pixels read around a rectangle by KXEffectsGaussianBlur at this radius: h below 10.0 (NaN included),
// q + 2r from 10.0 on.
inline int32_t GaussianBlurOutset(float radius)
{
    if (!(radius >= 10.0f))
        return TrueGaussianHalfWidth(radius);
    const FastGaussianRadii radii = FastGaussianRadiiOf(radius);
    return SaturateToInt32(int64_t(radii.first) + 2 * int64_t(radii.second));
}

// The luma of grown (one plane at the source's depth) blurred in place over rect: the exact gaussian below
// radius 10, the fast one from there on. A failing status is logged under the caller's file and thrown.
void BlurredLuminosity(KXImage* source, const KXRect& grown, const KXRect& rect, float radius, CImageRef& luma,
                       const char* file);
