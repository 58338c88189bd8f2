// Variance: the deviation from the two rounded box means summed directly, flat areas, tiles and in place.
#include "FilterReference.h"

namespace {

// m and q are box means as the box blur rounds them (q of the squares, 16 bits wide for 8-bit samples, 32
// for 16-bit); then sqrtf(q - m x m), negative differences 0 at 8 bits and wrapping at 16.
float VarianceReference(const SampleGrid& grid, int32_t x, int32_t y, int32_t c, int32_t radius, int32_t depth)
{
    double sum = 0.0, squares = 0.0;
    for (int32_t dy = -radius; dy <= radius; ++dy)
        for (int32_t dx = -radius; dx <= radius; ++dx) {
            const double v = grid.At(x + dx, y + dy, c);
            sum += v;
            squares += depth == 32 ? double(float(v) * float(v)) : v * v;
        }
    const float scale = 1.0f / float((2 * radius + 1) * (2 * radius + 1));
    if (depth == 32) {
        const double mean = sum * double(scale), square = squares * double(scale);
        return std::sqrt(float(square) - float(mean) * float(mean));
    }
    const uint32_t mean = uint32_t(float(sum) * scale + 0.5f);
    const uint32_t square = uint32_t(double(float(squares) * scale + 0.5f));
    if (depth == 8)
        return std::trunc(std::sqrt(float(std::max(int32_t(square) - int32_t(mean * mean), 0))) + 0.5f);
    return float(uint16_t(int32_t(std::sqrt(float(square - mean * mean)) + 0.5f)));
}

TEST(Variance, MatchesTheRoundedBoxMeans)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        SCOPED_TRACE(CaseName(depth, lockable));
        const TestImage source = RandomImage(depth, lockable, 80);
        const SampleGrid grid(source);
        const KXRect rect = KXRectMake(0, -4, 12, 8);
        TestImage result = RandomImage(depth, lockable, 81);
        const SampleGrid old(result);
        ASSERT_EQ(KXEffectsVariance(source, result, &rect, 2), kKXNoErr);
        ExpectFiltered(result, grid, old, rect, [&](int32_t x, int32_t y, int32_t c) {
            return VarianceReference(grid, x, y, c, 2, depth);
        }, depth == 32 ? 1e-4f : 0.0f);
        ExpectTileAndInPlace(source, KXRectMake(9, -1, 4, 4), 1, [](KXImage* s, KXImage* d, const KXRect* r) {
            return KXEffectsVariance(s, d, r, 1);
        });
    });
}

TEST(Variance, FlatAreaHasNoDeviation)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        SCOPED_TRACE(CaseName(depth, lockable));
        TestImage flat(KXRectMake(3, 3, 7, 5), depth, 3, 0, lockable);
        // At 16 bits the mean of the squares goes through float and keeps 1000000 exact; larger values may not.
        KXImageFill(flat, depth == 32 ? 0.6f : depth == 16 ? 1000.0f : 153.0f);
        const KXRect rect = flat.Bounds();
        ASSERT_EQ(KXEffectsVariance(flat, flat, &rect, 3), kKXNoErr);
        EXPECT_EQ(flat.Samples(), std::vector<float>(105, 0.0f));
    });
}

// A rectangle of negative width covers no pixel, also on images without a locked buffer and with alpha.
TEST(Variance, NegativeWidthChangesNothing)
{
    for (int32_t depth : kDepths) {
        SCOPED_TRACE(CaseName(depth, false));
        const TestImage source = RandomImage(depth, false, 82, 4);
        TestImage result = RandomImage(depth, false, 83, 4);
        const std::vector<float> before = result.Samples();
        const KXRect negative = KXRectMake(8, 0, -2, 3);
        ASSERT_EQ(KXEffectsVariance(source, result, &negative, 1), kKXNoErr);
        EXPECT_EQ(result.Samples(), before);
    }
}

} // namespace
