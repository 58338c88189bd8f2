// Helpers of the filter tests: samples read with the views' edge replication, the check of a filtered
// rectangle, and the tile and in-place protocols.
#pragma once

#include "TestImages.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>

// The samples of an image; reads beyond the bounds take the nearest edge pixel, as the views replicate.
struct SampleGrid {
    explicit SampleGrid(const TestImage& image)
        : bounds(image.Bounds()), planes(image.Planes()), samples(image.Samples())
    {
    }
    float At(int32_t x, int32_t y, int32_t plane) const
    {
        x = std::clamp(x, bounds.x, bounds.x + bounds.width - 1);
        y = std::clamp(y, bounds.y, bounds.y + bounds.height - 1);
        return samples[(size_t(y - bounds.y) * size_t(bounds.width) + size_t(x - bounds.x)) * planes + plane];
    }
    bool Inside(int32_t x, int32_t y) const { return KXPointInRect(KXPointMake(x, y), &bounds); }

    KXRect bounds;
    int32_t planes;
    std::vector<float> samples;
};

using ExpectedSample = std::function<float(int32_t x, int32_t y, int32_t plane)>;
using Effect = std::function<int32_t(KXImage* source, KXImage* destination, const KXRect* rect)>;

// An RGBA image (gray with alpha for planes 2) with random samples, bounds not at 0, 0.
inline TestImage RandomImage(int32_t depth, bool lockable, uint32_t seed, int32_t planes = 4,
                             KXRect bounds = KXRectMake(5, -3, 13, 9))
{
    TestImage image(bounds, depth, planes, planes == 4 || planes == 2 ? 1 : 0, lockable);
    image.FillRandom(seed);
    return image;
}

inline TestImage ImageLike(const TestImage& image, const KXRect& bounds, bool lockable)
{
    return TestImage(bounds, image.Depth(), image.Planes(), KXImageGetTransparency(image), lockable,
                     KXImageGetColorSpaceType(image));
}

inline TestImage CopyOf(const TestImage& image, bool lockable)
{
    TestImage copy = ImageLike(image, image.Bounds(), lockable);
    copy.SetSamples(image.Samples());
    return copy;
}

// Inside rect and the image, colour samples are expected(x, y, plane) within tolerance and alpha is the
// source's at the point plus shift; everything else still holds what old held.
inline void ExpectFiltered(const TestImage& result, const SampleGrid& source, const SampleGrid& old, const KXRect& rect,
                           const ExpectedSample& expected, float tolerance = 0.0f, KXPoint shift = KXPointMake(0, 0))
{
    const SampleGrid after(result);
    const int32_t colourPlanes = after.planes - KXImageGetTransparency(result);
    for (int32_t y = after.bounds.y; y < after.bounds.y + after.bounds.height; ++y)
        for (int32_t x = after.bounds.x; x < after.bounds.x + after.bounds.width; ++x)
            for (int32_t c = 0; c < after.planes; ++c) {
                const bool inRect = KXPointInRect(KXPointMake(x, y), &rect);
                const float want = !inRect ? old.At(x, y, c) : c < colourPlanes ? expected(x, y, c)
                                                                   : source.At(x + shift.x, y + shift.y, c);
                ASSERT_NEAR(after.At(x, y, c), want, inRect && c < colourPlanes ? tolerance : 0.0f)
                    << "at " << x << "," << y << " plane " << c;
            }
}

// Integer results: + 0.5 truncated; float results as they are.
inline float Stored(float value, int32_t depth)
{
    return depth == 32 ? value : std::trunc(value + 0.5f);
}

// A tile of source grown by reach, copied into an image of its own and filtered over the inner rectangle,
// equals the result over the whole image there, within tolerance for float running sums that start
// elsewhere. In place the result is the same, exactly.
inline void ExpectTileAndInPlace(const TestImage& source, const KXRect& inner, int32_t reach, const Effect& effect,
                                 float tolerance = 0.0f)
{
    const bool lockable = KXImageGetDataSourceType(source) == KXDataSourceMemory;
    TestImage whole = CopyOf(source, lockable);
    const KXRect bounds = source.Bounds();
    ASSERT_EQ(effect(source, whole, &bounds), kKXNoErr);
    const KXRect grown = KXRectOutset(&inner, reach);
    TestImage tile = ImageLike(source, grown, lockable);
    ASSERT_EQ(KXEffectsCopyImage(source, tile, &grown), kKXNoErr);
    TestImage tileResult = CopyOf(tile, lockable);
    ASSERT_EQ(effect(tile, tileResult, &inner), kKXNoErr);
    TestImage inPlace = CopyOf(source, lockable);
    ASSERT_EQ(effect(inPlace, inPlace, &bounds), kKXNoErr);
    const SampleGrid wholeGrid(whole);
    EXPECT_EQ(SampleGrid(inPlace).samples, wholeGrid.samples);
    const SampleGrid tileGrid(tileResult);
    for (int32_t y = inner.y; y < inner.y + inner.height; ++y)
        for (int32_t x = inner.x; x < inner.x + inner.width; ++x)
            for (int32_t c = 0; c < tileGrid.planes; ++c)
                ASSERT_NEAR(tileGrid.At(x, y, c), wholeGrid.At(x, y, c), tolerance)
                    << "at " << x << "," << y << " plane " << c;
}
