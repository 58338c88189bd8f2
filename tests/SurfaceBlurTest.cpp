// Surface blur: the bins of each window counted directly as the reference, the accumulator at its bounds,
// flat areas and vanishing weights, the offset, tiles and in place, and the luminosity form.
#include "FilterReference.h"
#include "KXEffectsSurfaceBlur.h"

namespace {

struct SurfaceCase {
    int32_t bins;
    int32_t radius;
    float threshold;
    float amount;
};

int32_t BinOf(float v, int32_t bins, int32_t depth)
{
    if (depth == 32)
        return std::clamp(int32_t(v * (bins == 8 ? 7.999992f : 3.999996f)), 0, bins - 1);
    return int32_t(v) >> ((depth == 8 ? 8 : 16) - (bins == 8 ? 3 : 2));
}

// Counts every sample of the window into its bin (integer sums exact in double), then weighs the bins by
// how near their means lie to the sample.
float SurfaceReference(const SampleGrid& grid, int32_t x, int32_t y, int32_t c, const SurfaceCase& test,
                       int32_t depth)
{
    double sums[8] = {}, counts[8] = {};
    for (int32_t dy = -test.radius; dy <= test.radius; ++dy)
        for (int32_t dx = -test.radius; dx <= test.radius; ++dx) {
            const float v = grid.At(x + dx, y + dy, c);
            sums[BinOf(v, test.bins, depth)] += v;
            counts[BinOf(v, test.bins, depth)] += 1.0;
        }
    const float s = grid.At(x, y, c);
    const float inv = 1.0f / (test.threshold * 2.5f * WhiteOf(depth));
    float a[4] = {}, n[4] = {};
    for (int32_t j = 0; j < test.bins; ++j) {
        const float sum = float(sums[j]), count = float(counts[j]);
        const float weight = std::max(0.0f, 1.0f - std::fabs(sum / std::max(1.0f, count) - s) * inv);
        a[j % 4] += weight * sum;
        n[j % 4] += weight * count;
    }
    const float total = (n[0] + n[1]) + (n[2] + n[3]);
    if (!(total > 0.0f))
        return s;
    return Stored(((a[0] + a[1]) + (a[2] + a[3])) / total * test.amount + s * (1.0f - test.amount), depth);
}

Effect SurfaceEffect(const SurfaceCase& test)
{
    return [test](KXImage* source, KXImage* destination, const KXRect* rect) {
        return test.bins == 8
                   ? KXEffectsSurfaceBlur(source, destination, rect, test.radius, test.threshold, test.amount)
                   : SurfaceBlurFastDispatch(source, destination, rect, test.radius, test.threshold, test.amount,
                                             KXPointMake(0, 0));
    };
}

void ExpectSurfaceBlur(const TestImage& source, const KXRect& rect, const SurfaceCase& test)
{
    const SampleGrid grid(source);
    TestImage result = CopyOf(source, KXImageGetDataSourceType(source) == KXDataSourceMemory);
    ASSERT_EQ(SurfaceEffect(test)(source, result, &rect), kKXNoErr);
    ExpectFiltered(result, grid, grid, rect, [&](int32_t x, int32_t y, int32_t c) {
        return SurfaceReference(grid, x, y, c, test, source.Depth());
    }, source.Depth() == 32 ? 2e-5f : 0.0f);
}

TEST(SurfaceBlur, MatchesBinsCountedDirectly)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        const TestImage source = RandomImage(depth, lockable, 60);
        for (const SurfaceCase& test : {SurfaceCase{8, 2, 0.3f, 0.8f}, SurfaceCase{4, 3, 0.15f, 1.0f},
                                        SurfaceCase{8, 1, 0.05f, 1.5f}}) {
            SCOPED_TRACE(CaseName(depth, lockable, ("bins " + std::to_string(test.bins)).c_str()));
            ExpectSurfaceBlur(source, KXRectMake(2, -5, 12, 9), test);
            ExpectTileAndInPlace(source, KXRectMake(9, 0, 4, 3), test.radius, SurfaceEffect(test),
                                 depth == 32 ? 1e-6f : 0.0f);
        }
    });
}

// At 16 bits: signed 32-bit sums to radius 90, unsigned to 127, 64-bit beyond (8-bit samples take the same
// test on W x W x 255, first passing it at radius 1451). A window of near-white samples fills the widest
// bin up to the bound, so a narrower accumulator would wrap.
TEST(SurfaceBlur, AccumulatorHoldsTheFullWindow)
{
    for (int32_t radius : {90, 91, 127, 128}) {
        SCOPED_TRACE("radius " + std::to_string(radius));
        TestImage source(KXRectMake(0, 0, 3, 2), 16, 1, 0, true);
        KXImageFill(source, 65535.0f);
        source.Set(1, 1, {40000.0f});
        ExpectSurfaceBlur(source, source.Bounds(), SurfaceCase{8, radius, 1.0f, 1.0f});
    }
}

// Float sums run through the window in float, so a flat float area comes back within rounding.
TEST(SurfaceBlur, FlatAreasAndVanishingWeightsKeepTheSample)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        SCOPED_TRACE(CaseName(depth, lockable));
        TestImage flat(KXRectMake(0, 0, 9, 4), depth, 3, 0, lockable);
        KXImageFill(flat, depth == 32 ? 0.7f : 100.0f);
        const SampleGrid before(flat);
        const KXRect rect = flat.Bounds();
        ASSERT_EQ(KXEffectsSurfaceBlur(flat, flat, &rect, 3, 0.2f, 1.0f), kKXNoErr);
        ExpectFiltered(flat, before, before, rect, [&](int32_t x, int32_t y, int32_t c) { return before.At(x, y, c); },
                       depth == 32 ? 1e-6f : 0.0f);
        // A checkerboard within the lowest bin: its mean lies far from every sample at a tiny threshold, so
        // no bin has weight and every sample stays.
        const float high = depth == 32 ? 0.1f : depth == 16 ? 7967.0f : 31.0f;
        for (int32_t x = 0; x < 9; ++x)
            for (int32_t y = 0; y < 4; ++y)
                flat.Set(x, y, std::vector<float>(3, (x + y) % 2 ? 0.0f : high));
        const std::vector<float> checkerboard = flat.Samples();
        ASSERT_EQ(KXEffectsSurfaceBlur(flat, flat, &rect, 2, 1e-4f, 1.0f), kKXNoErr);
        EXPECT_EQ(flat.Samples(), checkerboard);
    });
}

TEST(SurfaceBlur, OffsetMovesTheResultAndDegenerateSettingsCopy)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        SCOPED_TRACE(CaseName(depth, lockable));
        const TestImage source = RandomImage(depth, lockable, 61);
        const SampleGrid grid(source);
        const KXRect rect = KXRectMake(8, -1, 6, 5);
        TestImage plain = CopyOf(source, lockable), moved = CopyOf(source, lockable);
        ASSERT_EQ(KXEffectsSurfaceBlur(source, plain, &rect, 2, 0.4f, 0.9f), kKXNoErr);
        ASSERT_EQ(KXEffectsSurfaceBlurWithOffset(source, moved, &rect, 2, 0.4f, 0.9f, KXPointMake(3, -1)), kKXNoErr);
        const SampleGrid plainGrid(plain);
        const KXRect target = KXRectMake(rect.x - 3, rect.y + 1, rect.width, rect.height);
        ExpectFiltered(moved, grid, grid, target, [&](int32_t x, int32_t y, int32_t c) {
            return plainGrid.At(x + 3, y - 1, c);
        }, 0.0f, KXPointMake(3, -1));
        for (const SurfaceCase& degenerate : {SurfaceCase{8, 0, 0.4f, 1.0f}, {8, 2, 0.0f, 1.0f}, {8, 2, 0.4f, 0.0f}}) {
            TestImage copy = CopyOf(plain, lockable);
            ASSERT_EQ(KXEffectsSurfaceBlurWithOffset(source, copy, &rect, degenerate.radius, degenerate.threshold,
                                                     degenerate.amount, KXPointMake(-2, 1)),
                      kKXNoErr);
            const KXRect shifted = KXRectMake(rect.x - 2, rect.y + 1, rect.width, rect.height);
            ExpectFiltered(copy, grid, plainGrid, shifted, [&](int32_t x, int32_t y, int32_t c) {
                return grid.At(x + 2, y - 1, c);
            }, 0.0f, KXPointMake(2, -1));
        }
    });
}

// The luminosity form gives each pixel the surface-blurred 8-bit luma, so the luma of its result is that
// value up to the rounding of the stored samples; alpha and the parts outside stay.
TEST(SurfaceBlurLuminosity, ResultTakesTheBlurredLuma)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        SCOPED_TRACE(CaseName(depth, lockable));
        const TestImage source = RandomImage(depth, lockable, 62);
        const KXRect rect = KXRectMake(6, -4, 9, 7);
        const KXRect grown = KXRectOutset(&rect, 3);
        KXImage* luma = nullptr;
        ASSERT_EQ(KXEffectsCreateLuminosityImage(source, &luma, &grown, 1), kKXNoErr);
        ASSERT_EQ(KXEffectsSurfaceBlur(luma, luma, &rect, 3, 0.25f, 1.0f), kKXNoErr);
        TestImage result = RandomImage(depth, lockable, 63);
        const SampleGrid old(result), grid(source);
        ASSERT_EQ(KXEffectsSurfaceBlurLuminosity(source, result, &rect, 3, 0.25f, 1.0f), kKXNoErr);
        const SampleGrid after(result);
        const float white = WhiteOf(depth);
        for (int32_t y = rect.y; y < rect.y + rect.height; ++y)
            for (int32_t x = rect.x; x < rect.x + rect.width; ++x) {
                if (!grid.Inside(x, y))
                    continue;
                const float resultLuma = (0.299f * after.At(x, y, 0) + 0.587f * after.At(x, y, 1) +
                                          0.114f * after.At(x, y, 2)) / white * 255.0f;
                uint8_t blurred = 0;
                const KXRect one = KXRectMake(x, y, 1, 1);
                KXImageRead2(luma, &one, 0, 0, &blurred, -1, 0);
                ASSERT_NEAR(resultLuma, float(blurred), depth == 8 ? 0.75f : 0.01f) << x << "," << y;
            }
        ExpectFiltered(result, grid, old, rect, [&](int32_t x, int32_t y, int32_t c) { return after.At(x, y, c); });
        KXImageRelease(luma);
    });
}

TEST(SurfaceBlurLuminosity, CopiesWhenDegenerateAndRefusesGrayAsAStatus)
{
    for (bool lockable : kLockable) {
        const TestImage gray = RandomImage(16, lockable, 64, 2);
        const SampleGrid grid(gray);
        TestImage result = RandomImage(16, lockable, 65, 2);
        const SampleGrid old(result);
        const KXRect rect = KXRectMake(7, -2, 5, 4);
        ASSERT_EQ(KXEffectsSurfaceBlurLuminosity(gray, result, &rect, 0, 0.3f, 1.0f), kKXNoErr);
        ExpectFiltered(result, grid, old, rect, [&](int32_t x, int32_t y, int32_t c) { return grid.At(x, y, c); });
        EXPECT_EQ(KXEffectsSurfaceBlurLuminosity(gray, result, &rect, 2, 0.3f, 1.0f), kKXErrUnsupported);
    }
}

// Same depth: the raw weighted sum rounded; other sizes through 0..1; gray sources and odd sizes refused.
TEST(LuminosityImage, HoldsTheLumaOfTheRectangle)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        SCOPED_TRACE(CaseName(depth, lockable));
        const TestImage source = RandomImage(depth, lockable, 66);
        const SampleGrid grid(source);
        const KXRect rect = KXRectMake(15, 2, 4, 6);
        for (int32_t planeBytes : {0, 1, 4}) {
            KXImage* luma = nullptr;
            ASSERT_EQ(KXEffectsCreateLuminosityImage(source, &luma, &rect, planeBytes), kKXNoErr);
            const int32_t lumaDepth = planeBytes == 0 ? depth : planeBytes * 8;
            ASSERT_EQ(KXImageGetDepth(luma), lumaDepth);
            ASSERT_EQ(KXImageGetNumPlanes(luma), 1);
            std::vector<uint8_t> bytes(size_t(24) * (lumaDepth / 8));
            KXImageRead2(luma, &rect, 0, 0, bytes.data(), -1, 0);
            for (int32_t i = 0; i < 24; ++i) {
                const int32_t x = rect.x + i % 4, y = rect.y + i / 4;
                const float raw = grid.At(x, y, 0) * 0.299f + grid.At(x, y, 1) * 0.587f + grid.At(x, y, 2) * 0.114f;
                const float got = lumaDepth == 8    ? bytes[i]
                                  : lumaDepth == 16 ? reinterpret_cast<uint16_t*>(bytes.data())[i]
                                                    : reinterpret_cast<float*>(bytes.data())[i];
                const float unit = raw * (1.0f / WhiteOf(depth));
                const float expected = lumaDepth == depth ? Stored(raw, depth)
                                       : lumaDepth == 32  ? unit
                                                          : std::trunc(std::min(unit, 1.0f) * 255.0f + 0.5f);
                ASSERT_EQ(got, expected) << "plane bytes " << planeBytes;
            }
            KXImageRelease(luma);
        }
        KXImage* luma = nullptr;
        EXPECT_EQ(KXEffectsCreateLuminosityImage(source, &luma, &rect, 3), kKXErrUnsupported);
        const TestImage gray = RandomImage(depth, lockable, 67, 1);
        EXPECT_EQ(KXEffectsCreateLuminosityImage(gray, &luma, &rect, 0), kKXErrUnsupported);
        EXPECT_EQ(luma, nullptr);
    });
}

} // namespace
