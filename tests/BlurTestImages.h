// Helpers of the blur tests: snapshots read with replicated edges, expectations over a whole image, and the
// host's tile protocol.
#pragma once

#include "TestImages.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

// A snapshot of an image, read with its edges replicated as the views replicate them.
struct Pixels {
    explicit Pixels(const TestImage& image) : bounds(image.Bounds()), planes(image.Planes()), samples(image.Samples())
    {
    }
    float At(int32_t x, int32_t y, int32_t plane) const
    {
        x = std::clamp(x, bounds.x, bounds.x + bounds.width - 1) - bounds.x;
        y = std::clamp(y, bounds.y, bounds.y + bounds.height - 1) - bounds.y;
        return samples[(size_t(y) * size_t(bounds.width) + size_t(x)) * size_t(planes) + size_t(plane)];
    }
    KXRect bounds;
    int32_t planes;
    std::vector<float> samples;
};

// The library's integer store: add 0.5, truncate, narrow without a clamp; floats as they are.
inline float StoreSample(int32_t depth, float value)
{
    if (depth == 32)
        return value;
    const int32_t truncated = int32_t(value + 0.5f);
    return depth == 8 ? float(uint8_t(truncated)) : float(uint16_t(truncated));
}

// An image of 4 planes with alpha, or a gray one, of random samples.
inline TestImage RandomImage(int32_t depth, bool lockable, int32_t planes, const KXRect& bounds, uint32_t seed)
{
    TestImage image(bounds, depth, planes, planes == 4 ? 1 : 0, lockable);
    image.FillRandom(seed);
    return image;
}

// Every sample of after inside region: expected(x, y, plane).
template <class Expected>
void ExpectRegion(const TestImage& after, const KXRect& region, float tolerance, Expected&& expected)
{
    const Pixels result(after);
    const KXRect inside = KXRectIntersect(&region, &result.bounds);
    for (int32_t y = inside.y; y < inside.y + inside.height; ++y)
        for (int32_t x = inside.x; x < inside.x + inside.width; ++x)
            for (int32_t p = 0; p < result.planes; ++p)
                ASSERT_NEAR(result.At(x, y, p), expected(x, y, p), tolerance) << "at " << x << "," << y << " plane " << p;
}

// Every sample of after: expected(x, y, plane) inside target, that of before outside it.
template <class Expected>
void ExpectImage(const TestImage& after, const Pixels& before, const KXRect& target, float tolerance,
                 Expected&& expected)
{
    ExpectRegion(after, before.bounds, tolerance, [&](int32_t x, int32_t y, int32_t p) {
        return KXPointInRect(KXPointMake(x, y), &target) ? expected(x, y, p) : before.At(x, y, p);
    });
}

using BlurCall = std::function<int32_t(KXImage* source, KXImage* destination, const KXRect* rect)>;

// A host's tile: the tile and reach pixels around it (inside the image) copied into an image of its own,
// blurred in place over the tile, equals the blur of the whole image there.
inline void ExpectTilesMatchWholeImage(int32_t depth, bool lockable, int32_t reach, float tolerance, const BlurCall& blur)
{
    const KXRect bounds = KXRectMake(10, 20, 40, 30);
    const TestImage whole = RandomImage(depth, lockable, 4, bounds, 51);
    const TestImage blurred(bounds, depth, 4, 1, lockable);
    ASSERT_EQ(blur(whole, blurred, &bounds), 0);
    const Pixels expected(blurred);
    for (const KXRect tile : {KXRectMake(22, 31, 9, 7), KXRectMake(10, 20, 8, 8), KXRectMake(45, 44, 5, 6)}) {
        const KXRect grown = KXRectOutset(&tile, reach);
        const KXRect read = KXRectIntersect(&grown, &bounds);
        const TestImage piece(read, depth, 4, 1, lockable);
        ASSERT_EQ(KXEffectsCopyImage(whole, piece, &read), 0);
        ASSERT_EQ(blur(piece, piece, &tile), 0);
        ExpectRegion(piece, tile, tolerance, [&](int32_t x, int32_t y, int32_t p) { return expected.At(x, y, p); });
    }
}
