// Image views: edge replication and the background pixel, and write-back inside the image.
#include "KXEffectsUtils.h"
#include "TestImages.h"

namespace {

// A 4 x 3 RGBA 8-bit image at (10, 20) whose pixel (x, y) holds (x, y, x + y, 200 + x).
TestImage MakeGrid(bool lockable)
{
    TestImage image(KXRectMake(10, 20, 4, 3), 8, 4, 1, lockable);
    for (int32_t y = 20; y < 23; ++y)
        for (int32_t x = 10; x < 14; ++x)
            image.Set(x, y, {float(x), float(y), float(x + y), float(200 + x)});
    return image;
}

// The pixel at row and column of the rows a view hands out for rect (top, left, bottom, right).
std::vector<int32_t> PixelAt(CImageView& view, const CEffectRect& rect, int32_t row, int32_t column)
{
    int32_t stride = 0;
    const uint8_t* pixel = static_cast<const uint8_t*>(view.ReadRect(rect, &stride)) + row * stride + column * 4;
    return {pixel[0], pixel[1], pixel[2], pixel[3]};
}

// Beyond the edge the nearest pixel's colour comes back with alpha 0, also for rectangles wholly outside;
// a background pixel, when set, shows instead. Writes land only inside the image.
TEST(ImageView, ReadsReplicateTheEdgeWithAlphaZeroAndWritesStayInside)
{
    for (bool lockable : kLockable) {
        SCOPED_TRACE(lockable);
        TestImage image = MakeGrid(lockable);
        const Pixels before(image);
        CImageView view(image);
        for (int32_t row = 0; row < 7; ++row) // two pixels beyond every side
            for (int32_t column = 0; column < 8; ++column) {
                const int32_t x = std::clamp(column + 8, 10, 13), y = std::clamp(row + 18, 20, 22);
                const int32_t alpha = x == column + 8 && y == row + 18 ? 200 + x : 0;
                EXPECT_EQ(PixelAt(view, {18, 8, 25, 16}, row, column), (std::vector<int32_t>{x, y, x + y, alpha}));
            }
        EXPECT_EQ(PixelAt(view, {20, 30, 23, 33}, 2, 1), (std::vector<int32_t>{13, 22, 35, 0})); // beside it
        EXPECT_EQ(PixelAt(view, {0, 0, 2, 2}, 1, 1), (std::vector<int32_t>{10, 20, 30, 0}));     // above and left
        const uint8_t background[4] = {1, 2, 3, 4};
        view.SetBackground(background);
        EXPECT_EQ(PixelAt(view, {19, 9, 21, 11}, 0, 1), (std::vector<int32_t>{1, 2, 3, 4}));
        int32_t stride = 0;
        auto* rows = static_cast<uint8_t*>(view.WriteRect({22, 12, 24, 16}, &stride));
        for (int32_t row = 0; row < 2; ++row)
            std::memset(rows + row * stride, 77, 16);
        view.Flush();
        ExpectRegion(image, before.bounds, 0.0f,
                     [&](int32_t x, int32_t y, int32_t p) { return y == 22 && x >= 12 ? 77.0f : before.At(x, y, p); });
    }
}

} // namespace
