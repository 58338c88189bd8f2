// The surface blur's entries for the families built on it (clarity, local contrast). A radius, threshold
// or amount not above 0 copies rect from source to rect + offset instead; otherwise the result of a source
// pixel lands at its coordinates minus offset, as in the box blur.
#pragma once

#include "KXEffects.h"

// Eight bins of sample values per window.
int32_t SurfaceBlurDispatch(KXImage* source, KXImage* destination, const KXRect* rect, int32_t radius, float threshold,
                            float amount, KXPoint offset);

// Four bins: coarser and faster, for the detail filters.
int32_t SurfaceBlurFastDispatch(KXImage* source, KXImage* destination, const KXRect* rect, int32_t radius,
                                float threshold, float amount, KXPoint offset);
