// Image views: direct service of locked buffers, scratch copies with edge replication, write-back.
#include "KXEffectsUtils.h"
#include "TestImages.h"

#include <gtest/gtest.h>

#include <algorithm>

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

const uint8_t* PixelIn(const void* base, int32_t stride, int32_t row, int32_t column)
{
    return static_cast<const uint8_t*>(base) + row * stride + column * 4;
}

TEST(ImageView, InBoundsRectanglesOfLockedImagesAreServedDirectly)
{
    TestImage image = MakeGrid(true);
    CImageView view(image);
    int32_t stride = 0;
    const void* rows = view.ReadRect({20, 11, 23, 13}, &stride);
    EXPECT_EQ(stride, KXImageGetRowBytes(image));
    EXPECT_EQ(rows, static_cast<uint8_t*>(KXImageLockBuffer(image)) + 4);
    KXImageUnlockBuffer(image);
    EXPECT_FALSE(view.HasScratch());
    EXPECT_NE(view.ReadRect({21, 12, 21 + 1, 12}, &stride), nullptr); // zero width inside
    EXPECT_FALSE(view.HasScratch());

    view.SetPackedRows(true);
    view.ReadRect({20, 10, 22, 14}, &stride);
    EXPECT_EQ(stride, 16);
    EXPECT_TRUE(view.HasScratch());
    view.ReadRect({22, 10, 23, 14}, &stride);
    EXPECT_EQ(stride, KXImageGetRowBytes(image));
}

TEST(ImageView, ReadsBeyondTheEdgeReplicateColourWithAlphaZero)
{
    for (bool lockable : kLockable) {
        SCOPED_TRACE(lockable);
        TestImage image = MakeGrid(lockable);
        CImageView view(image);
        int32_t stride = 0;
        const CEffectRect grown{18, 8, 25, 16}; // two pixels beyond every side
        const void* rows = view.ReadRect(grown, &stride);
        ASSERT_EQ(stride, 8 * 4);
        for (int32_t row = 0; row < 7; ++row) {
            for (int32_t column = 0; column < 8; ++column) {
                const int32_t x = std::clamp(column + 8, 10, 13);
                const int32_t y = std::clamp(row + 18, 20, 22);
                const bool inside = x == column + 8 && y == row + 18;
                const uint8_t* pixel = PixelIn(rows, stride, row, column);
                EXPECT_EQ(pixel[0], x);
                EXPECT_EQ(pixel[1], y);
                EXPECT_EQ(pixel[2], x + y);
                EXPECT_EQ(pixel[3], inside ? 200 + x : 0) << row << "," << column;
            }
        }
    }
}

TEST(ImageView, RectanglesWhollyOutsideReadTheNearestRowOrColumn)
{
    for (bool lockable : kLockable) {
        TestImage image = MakeGrid(lockable);
        CImageView view(image);
        int32_t stride = 0;
        const void* right = view.ReadRect({20, 30, 23, 33}, &stride); // beside the image, same rows
        for (int32_t row = 0; row < 3; ++row)
            for (int32_t column = 0; column < 3; ++column) {
                const uint8_t* pixel = PixelIn(right, stride, row, column);
                EXPECT_EQ(pixel[0], 13);
                EXPECT_EQ(pixel[1], 20 + row);
                EXPECT_EQ(pixel[3], 0);
            }
        const void* below = view.ReadRect({40, 10, 42, 14}, &stride);
        for (int32_t row = 0; row < 2; ++row)
            for (int32_t column = 0; column < 4; ++column) {
                const uint8_t* pixel = PixelIn(below, stride, row, column);
                EXPECT_EQ(pixel[0], 10 + column);
                EXPECT_EQ(pixel[1], 22);
                EXPECT_EQ(pixel[3], 0);
            }
        const void* corner = view.ReadRect({0, 0, 2, 2}, &stride); // above and left: the corner pixel
        EXPECT_EQ(PixelIn(corner, stride, 1, 1)[0], 10);
        EXPECT_EQ(PixelIn(corner, stride, 0, 0)[1], 20);
        CImageView fresh(image);
        fresh.ReadRect({0, 50, 3, 50}, &stride); // zero width, outside
        EXPECT_EQ(fresh.ScratchSize(), 0u);
    }
}

TEST(ImageView, BackgroundPixelShowsOutsideTheImage)
{
    TestImage image = MakeGrid(true);
    CImageView view(image);
    const uint8_t background[4] = {1, 2, 3, 4};
    view.SetBackground(background);
    int32_t stride = 0;
    const void* rows = view.ReadRect({19, 9, 21, 11}, &stride);
    for (int32_t i = 0; i < 4; ++i)
        EXPECT_EQ(PixelIn(rows, stride, 0, 0)[i], background[i]);
    EXPECT_EQ(PixelIn(rows, stride, 0, 1)[0], 1);
    EXPECT_EQ(PixelIn(rows, stride, 1, 1)[0], 10); // the one pixel inside
    EXPECT_EQ(PixelIn(rows, stride, 1, 1)[3], 210);
    const void* outside = view.ReadRect({0, 0, 1, 1}, &stride);
    EXPECT_EQ(PixelIn(outside, stride, 0, 0)[3], 4);
}

TEST(ImageView, WritesLandOnlyInsideTheImage)
{
    for (bool lockable : kLockable) {
        SCOPED_TRACE(lockable);
        TestImage image = MakeGrid(lockable);
        const std::vector<float> before = image.Samples();
        {
            CImageView view(image);
            int32_t stride = 0;
            auto* rows = static_cast<uint8_t*>(view.WriteRect({22, 12, 24, 16}, &stride));
            for (int32_t row = 0; row < 2; ++row)
                std::memset(rows + row * stride, 77, 16);
            view.WriteRect({0, 0, 2, 2}, &stride); // wholly outside: dropped
            view.Flush();
            EXPECT_EQ(view.CurrentState(), CImageView::kViewClean);
        }
        const std::vector<float> after = image.Samples();
        for (int32_t y = 0; y < 3; ++y)
            for (int32_t x = 0; x < 4; ++x)
                for (int32_t plane = 0; plane < 4; ++plane) {
                    const size_t index = size_t((y * 4 + x) * 4 + plane);
                    EXPECT_EQ(after[index], y == 2 && x >= 2 ? 77.0f : before[index]);
                }
    }
}

TEST(ImageView, RowsFollowTheDefaultsOfAutoLeftAndNegativeWidth)
{
    TestImage image = MakeGrid(false);
    CImageView view(image);
    int32_t stride = 0;
    const void* row = view.ReadRow(21, CImageView::kViewAuto, -1, &stride);
    EXPECT_EQ(stride, 16);
    EXPECT_EQ(PixelIn(row, stride, 0, 0)[0], 10);
    EXPECT_EQ(PixelIn(row, stride, 0, 3)[0], 13);
}

} // namespace
