// The first effects and the call conventions: invert, copy, memory helpers, dot products.
#include "KXEffectsUtils.h"
#include "TestImages.h"

#include <gtest/gtest.h>

#include <numeric>

namespace {

const KXRect kBounds = KXRectMake(100, 50, 9, 5);

struct LayoutCase {
    int32_t planes;
    int32_t transparency;
};
constexpr LayoutCase kLayouts[] = {{4, 1}, {3, 0}, {1, 0}, {2, 1}};

// Expected image after inverting rect of source into destination (planes of raw samples).
std::vector<float> ExpectedInvert(const TestImage& source, const std::vector<float>& destinationBefore,
                                  const KXRect& rect, int32_t transparency)
{
    std::vector<float> expected = destinationBefore;
    const std::vector<float> samples = source.Samples();
    const KXRect bounds = source.Bounds();
    const int32_t planes = source.Planes();
    const float white = WhiteOf(source.Depth());
    for (int32_t y = 0; y < bounds.height; ++y)
        for (int32_t x = 0; x < bounds.width; ++x) {
            if (!KXPointInRect(KXPointMake(bounds.x + x, bounds.y + y), &rect))
                continue;
            for (int32_t plane = 0; plane < planes; ++plane) {
                const size_t index = size_t((y * bounds.width + x) * planes + plane);
                const bool alpha = transparency && plane == planes - 1;
                expected[index] = alpha ? samples[index] : white - samples[index];
            }
        }
    return expected;
}

TEST(Invert, InvertsColourAndCarriesAlphaAtEveryDepthLayoutAndRectangle)
{
    const KXRect rects[] = {kBounds, KXRectMake(102, 51, 5, 3), KXRectMake(95, 48, 9, 20), KXRectMake(200, 0, 4, 4),
                            KXRectMake(101, 51, 0, 3), KXRectMake(101, 51, 3, -2), KXRectMake(104, 51, -3, 2)};
    ForEachImageKind([&](int32_t depth, bool lockable) {
        for (const LayoutCase& layout : kLayouts)
            for (const KXRect& rect : rects) {
                SCOPED_TRACE(CaseName(depth, lockable) + std::to_string(layout.planes) + " planes, rect x " +
                             std::to_string(rect.x) + " w " + std::to_string(rect.width));
                TestImage source(kBounds, depth, layout.planes, layout.transparency, lockable);
                TestImage destination(kBounds, depth, layout.planes, layout.transparency, !lockable);
                source.FillRandom(1, true);
                destination.FillRandom(2, true);
                const auto expected = ExpectedInvert(source, destination.Samples(), rect, layout.transparency);
                ASSERT_EQ(KXEffectsInvert(source, destination, &rect), kKXNoErr);
                EXPECT_EQ(destination.Samples(), expected);
            }
    });
}

TEST(Invert, WorksInPlaceAndLeavesFloatUnclamped)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        SCOPED_TRACE(CaseName(depth, lockable));
        TestImage image(kBounds, depth, 4, 1, lockable);
        image.FillRandom(3, true);
        const auto expected = ExpectedInvert(image, image.Samples(), kBounds, 1);
        ASSERT_EQ(KXEffectsInvert(image, image, &kBounds), kKXNoErr);
        EXPECT_EQ(image.Samples(), expected);
    });
    TestImage gray(kBounds, 32, 1, 0);
    gray.Set(100, 50, {-0.5f});
    gray.Set(101, 50, {1.25f});
    ASSERT_EQ(KXEffectsInvert(gray, gray, &kBounds), kKXNoErr);
    EXPECT_EQ(gray.At(100, 50, 0), 1.5f);
    EXPECT_EQ(gray.At(101, 50, 0), -0.25f);
}

TEST(CopyImage, CopiesEveryPlaneOfTheRectangleOnly)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        SCOPED_TRACE(CaseName(depth, lockable));
        TestImage source(kBounds, depth, 4, 1, lockable);
        TestImage destination(kBounds, depth, 4, 1, !lockable);
        source.FillRandom(4, true);
        destination.FillRandom(5, true);
        const KXRect rect = KXRectMake(98, 52, 6, 9);
        std::vector<float> expected = destination.Samples();
        const std::vector<float> samples = source.Samples();
        for (size_t i = 0; i < expected.size(); ++i) {
            const int32_t pixel = int32_t(i / 4);
            const KXPoint point = KXPointMake(100 + pixel % 9, 50 + pixel / 9);
            if (KXPointInRect(point, &rect))
                expected[i] = samples[i];
        }
        ASSERT_EQ(KXEffectsCopyImage(source, destination, &rect), kKXNoErr);
        EXPECT_EQ(destination.Samples(), expected);
        const std::vector<float> same = source.Samples();
        EXPECT_EQ(KXEffectsCopyImage(source, source, &rect), kKXNoErr);
        EXPECT_EQ(source.Samples(), same);
    });
}

TEST(CopyRect, ShiftsByTheOffset)
{
    TestImage source(kBounds, 16, 3, 0);
    TestImage destination(kBounds, 16, 3, 0, false);
    source.FillRandom(6);
    destination.FillRandom(7);
    ASSERT_EQ(KXEffectsCopyRect(source, destination, {50, 100, 52, 102}, KXPointMake(3, 1)), kKXNoErr);
    for (int32_t plane = 0; plane < 3; ++plane) {
        EXPECT_EQ(destination.At(103, 51, plane), source.At(100, 50, plane));
        EXPECT_EQ(destination.At(104, 52, plane), source.At(101, 51, plane));
    }
}

TEST(Frame, StatusesAndHelpers)
{
    EXPECT_EQ(KXEffectsTest(), kKXNoErr);
    TestImage image(kBounds, 8, 3, 0);
    EXPECT_EQ(KXEffectsInvert(image, image, nullptr), kKXErrBadParam);

    KXImage* like = nullptr;
    const KXRect rect = KXRectMake(-3, 4, 5, 6);
    ASSERT_EQ(KXEffectsCreateImageLike(image, &like, &rect), kKXNoErr);
    const KXRect bounds = KXImageGetBounds(like);
    EXPECT_EQ(std::vector<int32_t>({bounds.x, bounds.y, bounds.width, bounds.height}),
              std::vector<int32_t>({-3, 4, 5, 6}));
    EXPECT_EQ(KXImageGetDepth(like), 8);
    EXPECT_EQ(KXImageGetNumPlanes(like), 3);
    EXPECT_NE(KXImageLockBuffer(like), nullptr);
    KXImageUnlockBuffer(like);
    KXImageRelease(like);

    for (size_t count : {size_t(0), size_t(1), size_t(17), size_t(1000)}) {
        auto* block = static_cast<uint8_t*>(KXEffectsAlignedAlloc(count));
        ASSERT_NE(block, nullptr);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % 16, 0u);
        const size_t size = ((count + 15) >> 2) << 4; // about four times the count
        EXPECT_TRUE(std::all_of(block, block + size, [](uint8_t byte) { return byte == 0; }));
        KXEffectsAlignedFree(block);
    }
    KXEffectsAlignedFree(nullptr);
}

TEST(Frame, DotProductsAgree)
{
    for (int32_t n : {0, 1, 3, 4, 15, 16, 17, 35, 64}) {
        SCOPED_TRACE(n);
        CAlignedBuffer a(size_t(n) * 4 + 16), b(size_t(n) * 4 + 16);
        float* x = a.As<float>();
        float* y = b.As<float>();
        for (int32_t i = 0; i < n; ++i) {
            x[i] = float(i % 7) * 0.25f;
            y[i] = float(i % 5) - 2.0f;
        }
        float exact = 0.0f;
        for (int32_t i = 0; i < n; ++i)
            exact += x[i] * y[i]; // small integers and quarters: every order gives the same sum
        EXPECT_EQ(KXEffectsDotProduct(x, y, n), exact);
        EXPECT_EQ(KXEffectsDotProductScalar(x, y, n), exact);
        const float* rows[4] = {y, x, y, x};
        float out[4];
        KXEffectsDotProduct4(x, rows, out, n);
        EXPECT_EQ(out[0], exact);
        EXPECT_EQ(out[2], exact);
        EXPECT_EQ(out[1], KXEffectsDotProductScalar(x, x, n));
    }
}

} // namespace
