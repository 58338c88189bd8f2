// The colour-temperature model: one rational map per channel, driven by temperature and tint.
#pragma once

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
