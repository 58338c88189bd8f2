// Tone shapers shared by the curve tables and the tone effects, so that a table and its pixel effect agree.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

// Entries of one channel of a curve table, whatever the image depth.
inline constexpr int32_t kCurveEntries = 256;

// S curve of strength g: k = 1 + g (g >= 0) or 1 / (1 - g); A = 4(k - 1), B = 2(1 - k);
// x < 0.5: (A x x + B x + 1) x, else with y = 1 - x: 1 - (A y y + B y + 1) y.
// Each half is computed from its own end of the range, so 0, 0.5 and 1 are fixed exactly.
inline float MidtoneCurveValue(float value, float strength)
{
    const float k = strength >= 0.0f ? 1.0f + strength : 1.0f / (1.0f - strength);
    const float a = (k - 1.0f) * 4.0f;
    const float b = (1.0f - k) * 2.0f;
    if (value < 0.5f)
        return (a * value * value + b * value + 1.0f) * value;
    const float y = 1.0f - value;
    return 1.0f - (a * y * y + b * y + 1.0f) * y;
}

// The rational brightness shaper, which fixes 0 and 1: B = 2b, s = 1 / (B + 1) for B > 0, else 1 - B;
// x / ((1 - s) x + s). s is worked out once for a setting.
struct BrightnessShaper {
    float s;

    explicit BrightnessShaper(float brightness)
    {
        const float b = brightness * 2.0f;
        s = b > 0.0f ? 1.0f / (b + 1.0f) : 1.0f - b;
    }
    float operator()(float x) const { return x / ((1.0f - s) * x + s); }
};

inline float BrightnessCurveValue(float x, float brightness)
{
    return BrightnessShaper(brightness)(x);
}

// Contrast c >= 0: the parabola 2c x^2 + (1 - c) x on each half, taken from its own end; c < 0 inverts it,
// with u = c + 1: (sqrt(-8c x + u^2) - u) / (-4c). 0.5 stays for every c.
inline float ContrastCurveValue(float x, float c)
{
    const bool upper = !(x < 0.5f);
    const float v = upper ? 1.0f - x : x;
    float r;
    if (c >= 0.0f) {
        r = 2.0f * c * v * v + (1.0f - c) * v;
    } else {
        const float u = c + 1.0f;
        r = (std::sqrt(-8.0f * c * v + u * u) - u) / (-4.0f * c);
    }
    return upper ? 1.0f - r : r;
}

// Writes entryValue(i) for the 256 entries once and repeats them in each of numChannels channels.
template <class EntryValue> void FillCurveChannels(int32_t numChannels, float* curves, EntryValue&& entryValue)
{
    if (numChannels < 1)
        return;
    for (int32_t i = 0; i < kCurveEntries; ++i)
        curves[i] = entryValue(i);
    for (int32_t c = 1; c < numChannels; ++c)
        std::copy(curves, curves + kCurveEntries, curves + c * kCurveEntries);
}
