// The positional noise of KXEffectsAddNoise, for the effects that lay it down as a pattern of their own.
#pragma once

#include "KXEffects.h"

// Noise from the fixed 256 x 256 tile at the absolute position, up to amount x white, over rect; any amount
// runs, none is a copy. The depth of source picks the kernel; other depths are kKXErrUnsupported.
int32_t PositionalNoiseDispatch(KXImage* source, KXImage* destination, const KXRect* rect, float amount);
