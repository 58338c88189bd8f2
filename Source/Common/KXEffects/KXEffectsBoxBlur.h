// The box blur's entries for the families built on it. Three images: reference feeds the amount mix, the
// threshold test and alpha; source is summed; destination receives rect - offset. A radius not above 0 or
// an amount not above 0.0 copies rect from source to rect + offset instead, alpha included. Every failure
// below them returns kKXErrNoResource.
#pragma once

#include "KXEffects.h"

#include <cstdint>

// The offset of a blur written where its source lies.
inline constexpr KXPoint kNoOffset = {0, 0};

// s (1 - amount) + mean x amount over the square window of the radius.
int32_t BoxBlurDispatch(KXImage* reference, KXImage* source, KXImage* destination, const KXRect* rect, int32_t radius,
                        KXPoint offset, float amount);

// The mean (times amount) where it differs from s by at least threshold (0..1 of white), else s.
int32_t BoxBlurThresholdDispatch(KXImage* reference, KXImage* source, KXImage* destination, const KXRect* rect,
                                 int32_t radius, KXPoint offset, float amount, float threshold);

// The amount mix of BoxBlurDispatch for "norm", s (1 - amount) + blend(s, mean) x amount in 0..1 for the other
// blur mode codes; an unknown code is kKXErrBadParam before anything is read.
int32_t BoxBlurModeDispatch(KXImage* reference, KXImage* source, KXImage* destination, const KXRect* rect,
                            int32_t radius, KXPoint offset, float amount, uint32_t blendMode);

// The mean times amount, colour planes only: alpha of destination stays as its buffer holds it, which
// suits work images between passes.
int32_t BoxBlurPlainDispatch(KXImage* source, KXImage* destination, const KXRect* rect, int32_t radius, KXPoint offset,
                             float amount);
