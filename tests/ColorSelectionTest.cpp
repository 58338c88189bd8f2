// Colour selection: masks narrowed by colour, luma, saturation and flesh tone, worked at a few pixels; the
// presets, the refusals, the tables and the box of a mask's live pixels.
#include "TestImages.h"

#include <cmath>

namespace {

const KXRect kBounds = KXRectMake(-3, 5, 4, 1);

struct SelectionCase {
    const char* name;
    ImageEffect select;     // source, mask, rectangle
    float levels[4][3];     // four pixels in 8-bit levels
    float weights[4];       // what each keeps of its mask sample
    float tolerance = 0.0f; // beyond the rounding, in 0..1
};

// Each pixel keeps weight x its mask sample, a mask of level 200 here, stored by the mask's rule; every
// depth and kind of source (RGB with alpha when lockable) by every mask depth.
void ExpectSelection(const SelectionCase& test)
{
    SCOPED_TRACE(test.name);
    ForEachImageKind([&](int32_t depth, bool lockable) {
        TestImage source(kBounds, depth, lockable ? 4 : 3, lockable ? 1 : 0, lockable);
        for (int32_t x = 0; x < 4; ++x) {
            std::vector<float> pixel(size_t(source.Planes()), WhiteOf(depth));
            for (size_t c = 0; c < 3; ++c)
                pixel[c] = LevelAt(test.levels[x][c], depth);
            source.Set(kBounds.x + x, kBounds.y, pixel);
        }
        for (int32_t maskDepth : kDepths) {
            SCOPED_TRACE(maskDepth);
            TestImage mask(kBounds, maskDepth, 1, 0, !lockable);
            KXImageFill(mask, LevelAt(200, maskDepth));
            ASSERT_EQ(test.select(source, mask, &kBounds), kKXNoErr);
            const float tolerance = std::max(maskDepth == 32 ? 1e-5f : 1.0f, test.tolerance * WhiteOf(maskDepth));
            ExpectRegion(mask, kBounds, tolerance, [&](int32_t x, int32_t, int32_t) {
                return StoredOf(LevelAt(200, maskDepth) * test.weights[x - kBounds.x], maskDepth, true);
            });
        }
    });
}

// Hue, saturation and value each weigh by their distance from the target's: (200, 100, 40) has hue 1/16,
// saturation 0.8 and value 0.784; at range 1 the value weighs 1 - dv^2, and half the value keeps 0.846.
// The complementary hue and a gray keep nothing. Luma and saturation bands rise and fall by the smooth
// step (3 - 2t) t^2 across their shoulders.
TEST(ColorSelection, ColoursAndBandsWeighTheirDistances)
{
    const float target[3] = {200 / 255.0f, 100 / 255.0f, 40 / 255.0f};
    const SelectionCase cases[] = {
        {"colour",
         [&](auto s, auto m, auto r) { return KXEffectsSelectColor(s, m, r, target, 1.0f); },
         {{200, 100, 40}, {100, 50, 20}, {40, 140, 200}, {128, 128, 128}},
         {1.0f, 0.846213f, 0, 0}},
        {"luma",
         [](auto s, auto m, auto r) { return KXEffectsSelectLuminosityRange(s, m, r, .2f, .4f, .6f, .8f); },
         {{25, 25, 25}, {68, 68, 68}, {127, 127, 127}, {230, 230, 230}},
         {0, 0.259259f, 1, 0}},
        {"sat",
         [](auto s, auto m, auto r) { return KXEffectsSelectSaturationRange(s, m, r, .1f, .3f, .5f, .9f); },
         {{200, 100, 40}, {200, 160, 120}, {90, 90, 90}, {200, 160, 120}},
         {0.15625f, 1, 0, 1}},
        // An end at 0 or 1 is pushed out to -1 or 2: open there.
        {"open luma",
         [](auto s, auto m, auto r) { return KXEffectsSelectLuminosity(s, m, r, 0.0f, 1.0f, 10.0f); },
         {{0, 0, 0}, {255, 255, 255}, {0, 255, 0}, {90, 10, 200}},
         {1, 1, 1, 1}},
        // Presets 12 and 14 are the luma above two thirds and below one third; with a range 14 takes
        // the luma band 0, 0, r, 2r.
        {"highlights",
         [](auto s, auto m, auto r) { return KXEffectsSelectColors(s, m, r, 12, 0.2f); },
         {{0, 0, 0}, {255, 255, 255}, {230, 230, 230}, {100, 100, 100}},
         {0, 1, 1, 0}},
        {"shadows with range",
         [](auto s, auto m, auto r) { return KXEffectsSelectColorsWithRange(s, m, r, 14, 0.2f); },
         {{0, 0, 0}, {255, 255, 255}, {68, 68, 68}, {40, 40, 40}},
         {1, 0, 0.740741f, 1}},
    };
    for (const SelectionCase& test : cases)
        ExpectSelection(test);
}

// The ellipsoid around a target in YCbCr keeps it whole and a far colour not at all; flesh tones take a
// table's centre and extents, and exclusion keeps the complement of strength x weight.
TEST(ColorRange, EllipsoidKeepsOrExcludesAroundTheTarget)
{
    const float target[3] = {153 / 255.0f, 115 / 255.0f, 77 / 255.0f};
    ExpectSelection({"colour range",
                     [&](auto s, auto m, auto r) { return KXEffectsColorRange(s, m, r, target, 1.5f); },
                     {{153, 115, 77}, {0, 0, 255}, {153, 115, 77}, {0, 255, 0}},
                     {1, 0, 1, 0}});
    float r[6];
    ASSERT_EQ(KXEffectsGetFleshColorTable(0, r), kKXNoErr);
    const float y = (r[0] + r[1]) * 127.5f, cb = (r[2] + r[3]) * 127.5f - 127.5f, cr = (r[4] + r[5]) * 127.5f - 127.5f;
    const float red = std::round(y + 1.402f * cr), green = std::round(y - 0.34414f * cb - 0.71414f * cr);
    const float blue = std::round(y + 1.772f * cb);
    // The skin colour rounded to levels lies a little off the centre.
    const auto flesh = [](auto s, auto m, auto r) { return KXEffectsSelectFleshColors(s, m, r, 0, 2, 0.75f, true); };
    ExpectSelection({"flesh",
                     flesh,
                     {{red, green, blue}, {0, 0, 255}, {red, green, blue}, {0, 255, 255}},
                     {0.25f, 1, 0.25f, 1},
                     0.01f});
}

// Missing colours or images, presets beyond 16 (or below 12 with a range), flesh tables beyond 5 are bad
// parameters; gray sources and colour masks are unsupported; the mask stays.
TEST(ColorSelection, RefusesBadArgumentsAndLeavesTheMask)
{
    const TestImage rgb(kBounds, 8, 3, 0), gray(kBounds, 8, 1, 0), mask = RandomImage(16, true, 90, 1, kBounds);
    const std::vector<float> before = mask.Samples(), color = {0.5f, 0.5f, 0.5f};
    EXPECT_EQ(KXEffectsSelectColor(rgb, mask, &kBounds, nullptr, 1), kKXErrBadParam);
    EXPECT_EQ(KXEffectsSelectColors(rgb, mask, &kBounds, 17, 1), kKXErrBadParam);
    EXPECT_EQ(KXEffectsSelectColorsWithRange(rgb, mask, &kBounds, 3, 1), kKXErrBadParam);
    EXPECT_EQ(KXEffectsSelectFleshColors(rgb, mask, &kBounds, 6, 1, 1, false), kKXErrBadParam);
    EXPECT_EQ(KXEffectsSelectColor(gray, mask, &kBounds, color.data(), 1), kKXErrUnsupported);
    EXPECT_EQ(KXEffectsColorRange(rgb, rgb, &kBounds, color.data(), 1), kKXErrUnsupported);
    EXPECT_EQ(mask.Samples(), before);
}

TEST(ColorSelection, FindMaskBoundsBoxesTheLiveSamples)
{
    const KXRect bounds = KXRectMake(-3, 5, 9, 4);
    auto boxOf = [](KXImage* mask) {
        KXRect box = KXRectMake(1, 2, 3, 4);
        EXPECT_EQ(KXEffectsFindMaskBounds(mask, &box), kKXNoErr);
        return std::vector<int32_t>{box.x, box.y, box.width, box.height};
    };
    ForEachImageKind([&](int32_t depth, bool lockable) {
        TestImage mask(bounds, depth, 1, 0, lockable);
        KXImageFill(mask, 0.0f);
        EXPECT_EQ(boxOf(mask), std::vector<int32_t>({0, 0, 0, 0}));
        // Live samples one by one, a float below zero among them, up to both corners of the image.
        const std::pair<KXPoint, std::vector<int32_t>> steps[] = {
            {{2, 6}, {2, 6, 1, 1}}, {{-1, 7}, {-1, 6, 4, 2}}, {{5, 8}, {-1, 6, 7, 3}}, {{-3, 5}, {-3, 5, 9, 4}}};
        for (const auto& [point, box] : steps) {
            mask.Set(point.x, point.y, {depth == 32 ? -0.5f : 1.0f});
            EXPECT_EQ(boxOf(mask), box);
        }
    });
    KXRect box;
    EXPECT_EQ(KXEffectsFindMaskBounds(nullptr, &box), kKXErrBadParam);
    EXPECT_EQ(KXEffectsFindMaskBounds(TestImage(bounds, 8, 3, 0), &box), kKXErrUnsupported);
}

} // namespace
