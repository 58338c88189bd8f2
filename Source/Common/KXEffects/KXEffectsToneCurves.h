// Tone shapers shared by the curve tables and the tone effects, so that a table and its pixel effect agree.
#pragma once

#include <algorithm>
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
