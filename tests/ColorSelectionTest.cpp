// Colour selection: masks narrowed by colour, luma, saturation and flesh tone, the presets, the tables and
// the box of a mask's live pixels.
#include "TestImages.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>

namespace {

const KXRect kBounds = KXRectMake(-3, 5, 9, 4);
// The whole image, partly beyond the left and bottom, partly beyond the top and right, and empty.
const KXRect kRects[] = {kBounds, KXRectMake(-5, 7, 8, 5), KXRectMake(2, 3, 20, 3), KXRectMake(0, 6, 0, 2)};

using Select = std::function<int32_t(KXImage* source, KXImage* mask, const KXRect* rect)>;
// The new mask value, in the mask's raw scale, for a colour in 0..1 and the old raw value.
using Formula = std::function<float(const float* rgb, float mask)>;

float PositiveOrZero(float w)
{
    return w > 0.0f ? w : 0.0f;
}

float Shoulder(float t)
{
    return (3.0f - 2.0f * t) * t * t;
}

float Trapezoid(float x, float a, float b, float c, float d)
{
    if (x < a || x > d)
        return 0.0f;
    const float rise = x < b ? Shoulder((x - a) / (b - a)) : 1.0f;
    return x > c ? rise * Shoulder((d - x) / (d - c)) : rise;
}

float LumaOf(const float* rgb)
{
    return 0.299f * rgb[0] + 0.587f * rgb[1] + 0.114f * rgb[2];
}

float SaturationOf(const float* rgb)
{
    float hsv[3];
    KXEffectsConvertColorMode(rgb, hsv, 0);
    return hsv[1];
}

Formula BandFormula(float (*measure)(const float*), float a, float b, float c, float d)
{
    return [=](const float* rgb, float mask) { return mask * Trapezoid(measure(rgb), a, b, c, d); };
}

Formula ColorFormula(const float* color, float range)
{
    float target[3];
    KXEffectsConvertColorMode(color, target, 0);
    const float q = std::sqrt(1.0f / range), p = std::sqrt(q);
    return [=](const float* rgb, float mask) {
        float hsv[3];
        KXEffectsConvertColorMode(rgb, hsv, 0);
        const float d = std::fabs(hsv[0] - target[0]) * 6.0f;
        const float hue = PositiveOrZero(1.0f - std::min(d, 6.0f - d) * p);
        const float saturation = PositiveOrZero(1.0f - std::fabs(hsv[1] - target[1]) * p * 2.0f);
        const float value = PositiveOrZero(1.0f - (hsv[2] - target[2]) * (hsv[2] - target[2]) * q);
        return mask * hue * saturation * value;
    };
}

// dist over reciprocal radii in YCbCr; the inverse smoothstep inside, times strength.
Formula EllipsoidFormula(const float* color, const float* radii, float strength, bool exclude)
{
    float target[3];
    KXEffectsConvertColorMode(color, target, 4);
    const float reciprocal[3] = {1.0f / radii[0], 1.0f / radii[1], 1.0f / radii[2]};
    return [=](const float* rgb, float mask) {
        float ycc[3], squares = 0.0f;
        KXEffectsConvertColorMode(rgb, ycc, 4);
        for (int32_t axis = 0; axis < 3; ++axis) {
            const float d = (ycc[axis] - target[axis]) * reciprocal[axis];
            squares += d * d;
        }
        const float dist = std::sqrt(squares);
        const float w = dist < 1.0f ? (1.0f - Shoulder(dist)) * strength : 0.0f;
        return exclude ? mask * (1.0f - w) : mask * w;
    };
}

// Every source depth (RGB with alpha when lockable, plain RGB otherwise) by every mask depth, kind and
// rectangle, on random images: inside rectangle and image each mask sample is the formula stored by the
// mask's rule, and never above what it was; elsewhere it is untouched. Returns the samples kept above 0.
int32_t ExpectSelection(const Select& select, const Formula& formula, uint32_t seed)
{
    int32_t kept = 0;
    for (int32_t depth : kDepths)
        for (int32_t maskDepth : kDepths)
            for (bool lockable : kLockable)
                for (bool maskLockable : kLockable)
                    for (const KXRect& rect : kRects) {
                        SCOPED_TRACE(CaseName(depth, lockable) + "mask " + CaseName(maskDepth, maskLockable) + "rect " +
                                     std::to_string(&rect - kRects));
                        const int32_t planes = lockable ? 4 : 3;
                        TestImage source(kBounds, depth, planes, planes - 3, lockable);
                        TestImage mask(kBounds, maskDepth, 1, 0, maskLockable);
                        source.FillRandom(seed++);
                        mask.FillRandom(seed++);
                        const std::vector<float> pixels = source.Samples(), before = mask.Samples();
                        EXPECT_EQ(select(source, mask, &rect), kKXNoErr);
                        const std::vector<float> after = mask.Samples();
                        for (size_t i = 0; i < before.size(); ++i) {
                            const int32_t x = kBounds.x + int32_t(i) % 9, y = kBounds.y + int32_t(i) / 9;
                            float expected = before[i];
                            if (x >= rect.x && x < rect.x + rect.width && y >= rect.y && y < rect.y + rect.height) {
                                const float* p = &pixels[i * size_t(planes)];
                                const float rgb[3] = {UnitOf(p[0], depth), UnitOf(p[1], depth), UnitOf(p[2], depth)};
                                expected = StoredOf(formula(rgb, before[i]), maskDepth, true);
                            }
                            EXPECT_EQ(after[i], expected) << "sample " << i;
                            EXPECT_LE(after[i], before[i]) << "sample " << i;
                            kept += after[i] > 0.0f;
                        }
                    }
    return kept;
}

TEST(ColorSelection, SelectColorWeighsHueSaturationAndValue)
{
    const float colors[][3] = {{0.9f, 0.4f, 0.1f}, {0.2f, 0.5f, 0.8f}};
    for (const auto& color : colors) {
        for (float range : {1.0f, 4.0f}) {
            SCOPED_TRACE("range " + std::to_string(range));
            const Select select = [&](KXImage* source, KXImage* mask, const KXRect* rect) {
                return KXEffectsSelectColor(source, mask, rect, color, range);
            };
            EXPECT_GT(ExpectSelection(select, ColorFormula(color, range), 10), 0);
        }
    }
}

TEST(ColorSelection, BandsWeighLumaOrSaturationThroughTheTrapezoid)
{
    // Feathered bands have shoulders of 0.075 x feather; an end at 0 or 1 is pushed to -1 or 2, open there.
    const float f = 1.5f * 0.075f, g = 1.0f * 0.075f;
    const std::pair<Select, Formula> bands[] = {
        {[](KXImage* s, KXImage* m, const KXRect* r) {
             return KXEffectsSelectLuminosityRange(s, m, r, 0.2f, 0.4f, 0.6f, 0.8f);
         },
         BandFormula(LumaOf, 0.2f, 0.4f, 0.6f, 0.8f)},
        {[](KXImage* s, KXImage* m, const KXRect* r) {
             return KXEffectsSelectLuminosityRange(s, m, r, 0.3f, 0.3f, 0.7f, 0.7f);
         },
         BandFormula(LumaOf, 0.3f, 0.3f, 0.7f, 0.7f)},
        {[](KXImage* s, KXImage* m, const KXRect* r) {
             return KXEffectsSelectSaturationRange(s, m, r, 0.1f, 0.3f, 0.5f, 0.9f);
         },
         BandFormula(SaturationOf, 0.1f, 0.3f, 0.5f, 0.9f)},
        {[](KXImage* s, KXImage* m, const KXRect* r) { return KXEffectsSelectLuminosity(s, m, r, 0.3f, 0.6f, 1.5f); },
         BandFormula(LumaOf, 0.3f - f, 0.3f + f, 0.6f - f, 0.6f + f)},
        {[](KXImage* s, KXImage* m, const KXRect* r) { return KXEffectsSelectLuminosity(s, m, r, 0.0f, 1.0f, 10.0f); },
         [](const float*, float mask) { return mask; }},
        {[](KXImage* s, KXImage* m, const KXRect* r) { return KXEffectsSelectSaturation(s, m, r, 0.4f, 1.0f, 1.0f); },
         BandFormula(SaturationOf, 0.4f - g, 0.4f + g, 2.0f - g, 2.0f + g)},
    };
    for (size_t band = 0; band < std::size(bands); ++band) {
        SCOPED_TRACE("band " + std::to_string(band));
        EXPECT_GT(ExpectSelection(bands[band].first, bands[band].second, 20), 0);
    }
}

TEST(ColorRange, EllipsoidKeepsOrExcludesAroundTheTarget)
{
    const float color[] = {0.6f, 0.45f, 0.3f};
    const float radii[] = {1.5f * 0.35f, 1.5f * 0.175f, 1.5f * 0.175f};
    const Select colorRange = [&](KXImage* source, KXImage* mask, const KXRect* rect) {
        return KXEffectsColorRange(source, mask, rect, color, 1.5f);
    };
    EXPECT_GT(ExpectSelection(colorRange, EllipsoidFormula(color, radii, 1.0f, false), 40), 0);
    // Flesh: the record's centre taken back to RGB, radii its extents times range.
    for (int32_t table : {0, 3, 5}) {
        for (bool exclude : {false, true}) {
            SCOPED_TRACE("flesh table " + std::to_string(table) + (exclude ? " exclude" : " keep"));
            float r[6];
            ASSERT_EQ(KXEffectsGetFleshColorTable(table, r), kKXNoErr);
            const float y = (r[0] + r[1]) * 0.5f, cb = (r[2] + r[3]) * 0.5f - 0.5f, cr = (r[4] + r[5]) * 0.5f - 0.5f;
            const float target[] = {y + 1.402f * cr, y - 0.34414f * cb - 0.71414f * cr, y + 1.772f * cb};
            const float fleshRadii[] = {(r[1] - r[0]) * 2.0f, (r[3] - r[2]) * 2.0f, (r[5] - r[4]) * 2.0f};
            const Select flesh = [&](KXImage* source, KXImage* mask, const KXRect* rect) {
                return KXEffectsSelectFleshColors(source, mask, rect, table, 2.0f, 0.75f, exclude);
            };
            EXPECT_GT(ExpectSelection(flesh, EllipsoidFormula(target, fleshRadii, 0.75f, exclude), 50), 0);
        }
    }
}

TEST(ColorSelection, PresetsAreTheirColoursAndBands)
{
    struct Preset {
        int32_t code;
        float range;
        bool withRange; // KXEffectsSelectColorsWithRange rather than KXEffectsSelectColors
        Formula formula;
    };
    const float r = 0.2f, f = r * 0.075f, third = 0.33333334f, twoThirds = 0.6666667f;
    const float orange[] = {1.0f, 0.5f, 0.0f};
    const Preset presets[] = {
        {1, r, false, ColorFormula(orange, r)},
        {12, r, false, BandFormula(LumaOf, twoThirds - f, twoThirds + f, 2.0f - f, 2.0f + f)},
        {13, r, false, BandFormula(LumaOf, third - f, third + f, twoThirds - f, twoThirds + f)},
        {14, r, false, BandFormula(LumaOf, -1.0f - f, -1.0f + f, third - f, third + f)},
        {15, r, false, BandFormula(SaturationOf, -1.0f - f, -1.0f + f, 0.5f - f, 0.5f + f)},
        {16, r, false, BandFormula(SaturationOf, 0.5f - f, 0.5f + f, 2.0f - f, 2.0f + f)},
        {12, r, true, BandFormula(LumaOf, 1.0f - 2.0f * r, 1.0f - r, 1.0f, 1.0f)},
        {13, r, true, BandFormula(LumaOf, 0.5f - r, 0.5f - r / 2.0f, 0.5f + r / 2.0f, 0.5f + r)},
        {14, r, true, BandFormula(LumaOf, 0.0f, 0.0f, r, 2.0f * r)},
        {14, 0.0f, true, BandFormula(LumaOf, 0.0f, 0.0f, 0.0f, 0.0f)}, // all but black cut
        {15, r, true, BandFormula(SaturationOf, 0.0f, 0.0f, r, 2.0f * r)},
        {16, r, true, BandFormula(SaturationOf, 1.0f - 2.0f * r, 1.0f - r, 1.0f, 1.0f)},
    };
    for (const Preset& preset : presets) {
        SCOPED_TRACE("code " + std::to_string(preset.code) + (preset.withRange ? " with range" : ""));
        const Select select = [&](KXImage* source, KXImage* mask, const KXRect* rect) {
            return (preset.withRange ? KXEffectsSelectColorsWithRange
                                     : KXEffectsSelectColors)(source, mask, rect, preset.code, preset.range);
        };
        ExpectSelection(select, preset.formula, 60);
    }
}

TEST(ColorSelection, RefusesBadArgumentsAndLeavesTheMask)
{
    TestImage rgb(kBounds, 8, 3, 0), gray(kBounds, 8, 1, 0), rgbMask(kBounds, 8, 3, 0), mask(kBounds, 16, 1, 0);
    mask.FillRandom(90);
    const std::vector<float> before = mask.Samples();
    const float color[] = {0.5f, 0.5f, 0.5f};
    const std::pair<int32_t, std::function<int32_t()>> cases[] = {
        {kKXErrBadParam, [&] { return KXEffectsSelectColor(rgb, mask, &kBounds, nullptr, 1); }},
        {kKXErrBadParam, [&] { return KXEffectsColorRange(rgb, mask, &kBounds, nullptr, 1); }},
        {kKXErrBadParam, [&] { return KXEffectsSelectLuminosity(nullptr, mask, &kBounds, 0, 1, 1); }},
        {kKXErrBadParam, [&] { return KXEffectsSelectSaturationRange(rgb, nullptr, &kBounds, 0, 0, 1, 1); }},
        {kKXErrBadParam, [&] { return KXEffectsSelectLuminosityRange(rgb, mask, nullptr, 0, 0, 1, 1); }},
        {kKXErrBadParam, [&] { return KXEffectsSelectColors(rgb, mask, &kBounds, 17, 1); }},
        {kKXErrBadParam, [&] { return KXEffectsSelectColors(rgb, mask, &kBounds, -1, 1); }},
        {kKXErrBadParam, [&] { return KXEffectsSelectColorsWithRange(rgb, mask, &kBounds, 3, 1); }},
        {kKXErrBadParam, [&] { return KXEffectsSelectFleshColors(rgb, mask, &kBounds, 6, 1, 1, false); }},
        {kKXErrBadParam, [&] { return KXEffectsSelectFleshColors(rgb, mask, &kBounds, -1, 1, 1, true); }},
        {kKXErrUnsupported, [&] { return KXEffectsSelectColor(gray, mask, &kBounds, color, 1); }},
        {kKXErrUnsupported, [&] { return KXEffectsSelectColorsWithRange(gray, mask, &kBounds, 12, 1); }},
        {kKXErrUnsupported, [&] { return KXEffectsSelectFleshColors(gray, mask, &kBounds, 0, 1, 1, false); }},
        {kKXErrUnsupported, [&] { return KXEffectsColorRange(rgb, rgbMask, &kBounds, color, 1); }},
    };
    for (size_t i = 0; i < std::size(cases); ++i) {
        EXPECT_EQ(cases[i].second(), cases[i].first) << "case " << i;
        EXPECT_EQ(mask.Samples(), before) << "case " << i;
    }
}

TEST(ColorSelection, FindMaskBoundsBoxesTheLiveSamples)
{
    auto boxOf = [](KXImage* mask) {
        KXRect box = KXRectMake(1, 2, 3, 4);
        EXPECT_EQ(KXEffectsFindMaskBounds(mask, &box), kKXNoErr);
        return std::vector<int32_t>{box.x, box.y, box.width, box.height};
    };
    ForEachImageKind([&](int32_t depth, bool lockable) {
        SCOPED_TRACE(CaseName(depth, lockable));
        TestImage mask(kBounds, depth, 1, 0, lockable);
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
    TestImage rgb(kBounds, 8, 3, 0);
    KXRect bounds;
    EXPECT_EQ(KXEffectsFindMaskBounds(nullptr, &bounds), kKXErrBadParam);
    EXPECT_EQ(KXEffectsFindMaskBounds(rgb, nullptr), kKXErrBadParam);
    EXPECT_EQ(KXEffectsFindMaskBounds(rgb, &bounds), kKXErrUnsupported);
}

TEST(ColorSelection, TablesCopyOutTheirRecords)
{
    float record[6], twin[6], color[3], hsv[3];
    for (int32_t table : {1, 3}) {
        ASSERT_EQ(KXEffectsGetFleshColorTable(table, record), kKXNoErr);
        ASSERT_EQ(KXEffectsGetFleshColorTable(table + 1, twin), kKXNoErr);
        EXPECT_TRUE(std::equal(record, record + 6, twin)) << "tables " << table << " and " << table + 1;
    }
    EXPECT_EQ(KXEffectsGetFleshColorTable(6, twin), kKXErrBadParam);
    EXPECT_TRUE(std::equal(record, record + 6, twin)) << "a refused table leaves the record";
    // The first twelve colours step around the wheel in twelfths of a turn.
    for (uint32_t index = 0; index < 12; ++index) {
        ASSERT_EQ(KXEffectsGetColorForIndex(index, color), kKXNoErr);
        KXEffectsConvertColorMode(color, hsv, 0);
        EXPECT_NEAR(hsv[0], float(index) / 12.0f, 1e-6f) << "index " << index;
    }
    EXPECT_EQ(KXEffectsGetColorForIndex(32, color), kKXErrBadParam);
    EXPECT_EQ(std::vector<float>(color, color + 3), std::vector<float>(3, 0.0f));
    EXPECT_EQ(KXEffectsGetColorForIndex(0, nullptr), kKXErrBadParam);
}

} // namespace
