// What the image analyses share: the 256-bin histograms they count into, the clip search in them, the tables
// they allocate and the colour images they read.
#pragma once

#include "KXEffectsColorMath.h"
#include "KXEffectsEntry.h"
#include "KXEffectsRowLoop.h"

#include <cstdint>
#include <memory>
#include <new>

inline constexpr int32_t kBins = 256;
inline constexpr int32_t kLastBin = kBins - 1;

// ---- Formulas ----

// trunc(position) limited to 0..last; NaN reads 0, so a float sample never indexes past a table.
inline int32_t BinOf(float position, int32_t last)
{
    if (!(position > 0.0f))
        return 0;
    return position >= float(last) ? last : int32_t(position);
}

// 0.299 r + 0.587 g + 0.114 b of the raw samples, scaled to 0..1.
template <class Sample> inline float LumaUnits(const Sample* pixel)
{
    return Luma(float(pixel[0]), float(pixel[1]), float(pixel[2])) * SampleTraits<Sample>::kReciprocal;
}

// The bin at which the running count, from bin 0 upward or from bin 255 downward, first reaches threshold;
// the far end when it never does.
template <class Count> int32_t BinReaching(const Count* histogram, int64_t threshold, bool fromTop)
{
    int64_t sum = 0;
    for (int32_t step = 0; step < kBins; ++step) {
        const int32_t bin = fromTop ? kLastBin - step : step;
        sum += int64_t(histogram[bin]);
        if (sum >= threshold)
            return bin;
    }
    return fromTop ? 0 : kLastBin;
}

// ---- Images and tables ----

// Three colour planes in the RGB colour space: what the colour analyses read.
inline bool IsRGBOfThreeColourPlanes(KXImage* image)
{
    return IsRGB(image) && LayoutOf(image).colourPlanes == 3;
}

// A zeroed table; a failed allocation is logged and thrown as kKXErrNoResource.
template <class T> std::unique_ptr<T[]> NewTable(size_t count)
{
    std::unique_ptr<T[]> table(new (std::nothrow) T[count]());
    if (!table)
        KXEffectsRaise(kKXErrNoResource, "Source/Common/Utils/KXEffectsHistogram", __LINE__);
    return table;
}
