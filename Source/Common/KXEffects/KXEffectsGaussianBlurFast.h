// The box radii of the fast gaussian blur, for the gaussian front door and the margins built on it.
#pragma once

#include "KXEffectsSample.h"

#include <cmath>
#include <cstdint>

// The fast blur's box radii: first (q) for the first pass, second (r) for the second and third. With
// s = radius / 1.1, q^2 + 2 r^2 = 3 s^2 up to the rounding of q, so any float radius is met.
struct FastGaussianRadii {
    int32_t first;
    int32_t second;
};

inline FastGaussianRadii FastGaussianRadiiOf(float radius)
{
    const float s = radius / 1.1f;
    const int32_t r = TruncateToInt32(s);
    const float rest = s * 3.0f * s - float(r) * 2.0f * float(r);
    return {TruncateToInt32(std::sqrt(rest) + 0.5f), r};
}
