// Triangular blur: the tent formula summed directly, the 32/64-bit sums at their bound, tiles and in place.
#include "FilterReference.h"

namespace {

// truncate(float(sum of (r + 1 - |dx|)(r + 1 - |dy|) v) x (1 / (r + 1)^4) + 0.5); integer sums exact in double.
float TentReference(const SampleGrid& grid, int32_t x, int32_t y, int32_t c, int32_t radius, int32_t depth)
{
    double sum = 0.0;
    for (int32_t dy = -radius; dy <= radius; ++dy)
        for (int32_t dx = -radius; dx <= radius; ++dx)
            sum += double((radius + 1 - std::abs(dx)) * (radius + 1 - std::abs(dy))) * grid.At(x + dx, y + dy, c);
    const double side = radius + 1;
    return Stored(float(sum) * (1.0f / float(side * side * side * side)), depth);
}

void ExpectTent(const TestImage& source, const KXRect& rect, int32_t radius)
{
    const SampleGrid grid(source);
    TestImage result = RandomImage(source.Depth(), true, 71, source.Planes(), source.Bounds());
    const SampleGrid old(result);
    ASSERT_EQ(KXEffectsTriangularBlur(source, result, &rect, radius), kKXNoErr);
    ExpectFiltered(result, grid, old, rect, [&](int32_t x, int32_t y, int32_t c) {
        return TentReference(grid, x, y, c, radius, source.Depth());
    }, source.Depth() == 32 ? 1e-6f : 0.0f);
}

TEST(TriangularBlur, MatchesTheTentFormula)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        const TestImage source = RandomImage(depth, lockable, 70);
        for (int32_t radius : {0, 1, 4}) {
            SCOPED_TRACE(CaseName(depth, lockable, ("radius " + std::to_string(radius)).c_str()));
            ExpectTent(source, KXRectMake(1, -6, 13, 9), radius);
            ExpectTileAndInPlace(
                source, KXRectMake(9, -1, 4, 5), radius,
                [radius](KXImage* s, KXImage* d, const KXRect* r) { return KXEffectsTriangularBlur(s, d, r, radius); });
        }
    });
}

// 32-bit sums while (r + 1)^4 x white fits: to radius 63 at 8 bits and 15 at 16 bits. Near-white windows
// reach the bound.
TEST(TriangularBlur, SumsHoldTheFullWindow)
{
    for (const auto& [depth, radius] : {std::pair{8, 63}, {8, 64}, {16, 15}, {16, 16}}) {
        SCOPED_TRACE(CaseName(depth, true, ("radius " + std::to_string(radius)).c_str()));
        TestImage source(KXRectMake(0, 0, 4, 3), depth, 1, 0, true);
        KXImageFill(source, WhiteOf(depth));
        source.Set(2, 1, {WhiteOf(depth) * 0.25f});
        ExpectTent(source, source.Bounds(), radius);
    }
}

} // namespace
