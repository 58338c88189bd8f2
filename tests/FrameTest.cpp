// The first effects and the call conventions: invert, the statuses, images made like another.
#include "KXEffectsUtils.h"
#include "TestImages.h"

namespace {

const KXRect kBounds = KXRectMake(100, 50, 9, 5);

// Colour inverts inside the rectangle, alpha is carried, float is not clamped, and what lies outside keeps
// the destination's samples.
TEST(Invert, InvertsColourAndCarriesAlphaAtEveryDepthLayoutAndRectangle)
{
    const std::pair<int32_t, int32_t> layouts[] = {{4, 1}, {3, 0}, {1, 0}, {2, 1}};
    const KXRect rects[] = {KXRectMake(102, 51, 5, 3), KXRectMake(95, 48, 9, 20), KXRectMake(101, 51, 0, 3)};
    ForEachImageKind([&](int32_t depth, bool lockable) {
        for (const auto& [planes, transparency] : layouts)
            for (const KXRect& rect : rects) {
                TestImage source(kBounds, depth, planes, transparency, lockable), destination = source.Like(!lockable);
                source.FillRandom(1, true);
                destination.FillRandom(2, true);
                const Pixels in(source), before(destination);
                ASSERT_EQ(KXEffectsInvert(source, destination, &rect), kKXNoErr);
                ExpectRegion(destination, kBounds, 0.0f, [&](int32_t x, int32_t y, int32_t p) {
                    if (!KXPointInRect(KXPointMake(x, y), &rect))
                        return before.At(x, y, p);
                    return transparency && p == planes - 1 ? in.At(x, y, p) : WhiteOf(depth) - in.At(x, y, p);
                });
            }
    });
}

TEST(Frame, StatusesAndHelpers)
{
    EXPECT_EQ(KXEffectsTest(), kKXNoErr);
    const TestImage image(kBounds, 8, 3, 0);
    EXPECT_EQ(KXEffectsInvert(image, image, nullptr), kKXErrBadParam);
    KXImage* like = nullptr;
    const KXRect rect = KXRectMake(-3, 4, 5, 6);
    ASSERT_EQ(KXEffectsCreateImageLike(image, &like, &rect), kKXNoErr);
    const TestImage owned = TestImage::Adopt(like);
    const KXRect bounds = owned.Bounds();
    EXPECT_EQ(std::vector<int32_t>({bounds.x, bounds.y, bounds.width, bounds.height, owned.Depth(), owned.Planes()}),
              std::vector<int32_t>({-3, 4, 5, 6, 8, 3}));
    EXPECT_TRUE(owned.Lockable());
}

} // namespace
