// Flat colour fills and solarize.
#include "TestImages.h"

namespace {

const KXRect kBounds = KXRectMake(100, 50, 9, 3);

// The colour is stored in every plane inside the rectangle and the image: 0.25 x 255 + 0.5 = 64.25 and
// 0.25 x 65535 + 0.5 = 16384.25 truncate; 1.5 and -0.5 wrap at integer depths.
TEST(FillColor, StoresTheConvertedColourInEveryPlane)
{
    const float color[] = {0.5f, 0.25f, 1.5f, -0.5f};
    const std::vector<float> expected[] = {
        {128, 64, 127, 129}, {32768, 16384, 32767, 32769}, {0.5f, 0.25f, 1.5f, -0.5f}};
    ForEachImageKind([&](int32_t depth, bool lockable) {
        TestImage image = RandomImage(depth, lockable, 1, 4, kBounds);
        const Pixels before(image);
        const KXRect rect = KXRectMake(104, 47, 20, 5); // columns 104..108, rows 50..51 inside
        ASSERT_EQ(KXEffectsFillColor(image, &rect, color), kKXNoErr);
        ExpectRegion(image, kBounds, 0.0f, [&](int32_t x, int32_t y, int32_t p) {
            return KXPointInRect(KXPointMake(x, y), &rect) ? expected[depth / 16][size_t(p)] : before.At(x, y, p);
        });
    });
    EXPECT_EQ(KXEffectsFillColor(nullptr, &kBounds, color), kKXErrBadParam);
}

// The middle itself stays, one step above folds below it; alpha is carried.
TEST(Solarize, FoldsTheUpperHalfAndCarriesAlpha)
{
    const std::vector<float> inputs[] = {
        {0, 127, 128, 200, 255}, {0, 32767, 32768, 40000, 65535}, {-0.25f, 0.5f, 0.5000001f, 0.75f, 1.5f}};
    const std::vector<float> results[] = {
        {0, 127, 127, 55, 0}, {0, 32767, 32767, 25535, 0}, {-0.25f, 0.5f, 1.0f - 0.5000001f, 0.25f, -0.5f}};
    ForEachImageKind([&](int32_t depth, bool lockable) {
        const size_t d = size_t(depth / 16);
        TestImage source(KXRectMake(-2, 7, 5, 1), depth, 4, 1, lockable);
        std::vector<float> samples, expected;
        for (size_t i = 0; i < 5; ++i) {
            samples.insert(samples.end(), {inputs[d][i], inputs[d][4 - i], inputs[d][i], inputs[d][(i + 3) % 5]});
            expected.insert(expected.end(), {results[d][i], results[d][4 - i], results[d][i], inputs[d][(i + 3) % 5]});
        }
        source.SetSamples(samples);
        const TestImage destination = source.Like(!lockable);
        const KXRect bounds = source.Bounds();
        ASSERT_EQ(KXEffectsSolarize(source, destination, &bounds), kKXNoErr);
        EXPECT_EQ(destination.Samples(), expected);
    });
    EXPECT_EQ(KXEffectsSolarize(nullptr, nullptr, &kBounds), kKXErrBadParam);
}

} // namespace
