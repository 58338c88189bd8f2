// The colour-temperature model: one rational map per channel, driven by temperature and tint.
#pragma once

#include "KXEffectsColorMath.h"

#include <algorithm>

// With T = temperature / 4 and N = tint / 4 split into their positive and negative parts, each channel
// has a gain k, and c' = c k / ((2k - 1) c + 1 - k): the identity at k = 0.5, and 0 and 1 stay fixed.
// Warming pulls red and green but barely blue; cooling pushes blue hard.
inline void TemperatureTintPixel(float* rgb, float temperature, float tint)
{
    const float t = temperature * 0.25f;
    const float n = tint * 0.25f;
    const float tPlus = std::max(t, 0.0f), tMinus = std::max(-t, 0.0f);
    const float nPlus = std::max(n, 0.0f), nMinus = std::max(-n, 0.0f);
    const float k[3] = {
        1.0f - 2.0f * (0.5f - tPlus * 0.32352942f - tMinus * 0.2137255f) *
                   (0.5f - nPlus * 0.11176473f - nMinus * 0.05686277f),
        1.0f - 2.0f * (0.5f - tPlus * 0.25686276f - tMinus * 0.2019608f) *
                   (0.5f - nPlus * 0.0058823824f - nMinus * 0.2529412f),
        1.0f - 2.0f * (0.5f - tPlus * 0.009803951f - tMinus * 0.48431373f) *
                   (0.5f - nPlus * 0.31960785f - nMinus * 0.009803951f),
    };
    for (int c = 0; c < 3; ++c)
        rgb[c] = rgb[c] * k[c] / ((2.0f * k[c] - 1.0f) * rgb[c] + (1.0f - k[c]));
}

// The toner's colour over its own gray: luma below toneLuma rises from black along it, above ceiling
// falls towards white; in between the whole tone is added to the gray. A gray toner tones with white.
struct TonerMap {
    float tone[3];
    float toneLuma, span, rise, fall, ceiling;

    explicit TonerMap(const float* colour)
    {
        const float low = std::min({colour[0], colour[1], colour[2]});
        const float high = std::max({colour[0], colour[1], colour[2]});
        tone[0] = colour[0] - low;
        tone[1] = colour[1] - low;
        tone[2] = colour[2] - low;
        toneLuma = Luma(tone);
        span = high - low;
        if (low >= high) {
            tone[0] = tone[1] = tone[2] = 1.0f;
            toneLuma = 1.0f;
            span = 1.0f;
        }
        rise = 1.0f / toneLuma;
        fall = 1.0f / (span - toneLuma);
        ceiling = 1.0f - span;
    }

    // The toned colour of luma y is weight * tone + base.
    struct Weights {
        float base, weight;
    };
    Weights operator()(float y) const
    {
        if (y <= toneLuma)
            return {0.0f, y * rise};
        const float base = y - toneLuma;
        if (base <= ceiling)
            return {base, 1.0f};
        return {1.0f - (1.0f - y) * fall * span, (1.0f - y) * fall};
    }
};
