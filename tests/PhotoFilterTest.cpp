// Photo filter: every mode against a flat colour layer blended over the image, the gradient kinds' geometry,
// pixels worked by hand, and the checks before any pixel is touched.
#include "TestImages.h"

#include <array>
#include <cmath>
#include <numbers>

namespace {

const KXRect kBounds = KXRectMake(-2, 3, 9, 5);

// The 26 blend modes.
const char* const kModes[] = {"norm", "dark", "lite", "hue ", "sat ", "colr", "lum ", "mul ", "scrn",
                              "over", "hLit", "sLit", "diff", "smud", "div ", "idiv", "lbrn", "lddg",
                              "vLit", "llit", "pLit", "hMix", "dkCl", "lgCl", "fsub", "fdiv"};

struct FilterCall {
    int32_t kind = 0;
    float saturation = 0.0f, contrast = 0.0f;
    uint32_t mode = Code("norm");
    KXEffectsFloatPoint centre = {1.5f, 5.0f};
    float angleOrRadius = 0.0f, lengthOrFeather = 1.0f;
    std::array<float, 3> colour1 = {1, 1, 1};
    float opacity1 = 1.0f;
    std::array<float, 3> colour2 = {0, 0, 0};
    float opacity2 = 0.0f;
};

// The variable part goes as the library reads it: the centre by value, floats promoted to double.
int32_t Filter(KXImage* source, KXImage* destination, const KXRect& rect, const FilterCall& call)
{
    return KXEffectsPhotoFilter(source, destination, &rect, call.kind, call.saturation, call.contrast, call.mode,
                                call.centre, double(call.angleOrRadius), double(call.lengthOrFeather),
                                call.colour1.data(), double(call.opacity1), call.colour2.data(), double(call.opacity2));
}

// A flat filter is a layer of its colour blended over the picture in its mode at its opacity; the colour
// is held exactly by every depth.
TEST(PhotoFilter, FlatColourIsALayerBlendedInItsMode)
{
    ForEachImageKind([&](int32_t depth, bool lockable) {
        const TestImage source = RandomImage(depth, lockable, 31, 3, kBounds), filtered = source.Like(!lockable);
        TestImage layer = source.Like();
        std::vector<float> samples;
        for (int32_t i = 0; i < kBounds.width * kBounds.height; ++i)
            samples.insert(samples.end(), {StoredOf(0.8f, depth), StoredOf(0.4f, depth), StoredOf(0.2f, depth)});
        layer.SetSamples(samples);
        for (const char* mode : kModes) {
            SCOPED_TRACE(mode);
            const TestImage blended = source.Like();
            const FilterCall call = {.mode = Code(mode), .colour1 = {0.8f, 0.4f, 0.2f}, .opacity1 = 0.6f};
            ASSERT_EQ(Filter(source, filtered, kBounds, call), kKXNoErr);
            ASSERT_EQ(KXEffectsBlendImagesWithOpacitiesAndMasks(layer, 0.6f, nullptr, source, 1, nullptr, blended,
                                                                &kBounds, Code(mode)),
                      kKXNoErr);
            ExpectSameImage(filtered, blended, depth == 32 ? 2e-6f : 1.0f);
        }
    });
}

// The weight t of the gradient kinds at a pixel, in double.
double Weight(const FilterCall& call, int32_t x, int32_t y)
{
    const double dx = x - call.centre.x, dy = y - call.centre.y;
    double t = 0.0;
    if (call.kind <= 2) {
        const double angle = call.angleOrRadius * std::numbers::pi / 180.0;
        t = (dx * std::cos(angle) + dy * std::sin(angle)) / call.lengthOrFeather * 0.5 + 0.5;
    } else {
        t = (std::hypot(dx, dy) - call.angleOrRadius) / call.lengthOrFeather * 0.5 + 0.5;
    }
    return std::clamp(t, 0.0, 1.0);
}

// Black under "norm": the result is the colour times the opacity, each going from the first to the second
// (gray 0.5, opacity 0.5) with t.
TEST(PhotoFilter, GradientKindsWeighColourAndOpacity)
{
    const FilterCall linear{.kind = 1, .angleOrRadius = 30.0f, .lengthOrFeather = 3.0f, .opacity2 = 0.5f};
    const FilterCall radial{.kind = 3, .angleOrRadius = 2.0f, .lengthOrFeather = 1.5f, .opacity2 = 0.5f};
    ForEachImageKind([&](int32_t depth, bool lockable) {
        for (FilterCall call : {linear, radial})
            for (int32_t colours = 1; colours <= 2; ++colours) {
                call.kind += colours - 1; // kinds 2 and 4 go to a second colour, gray 0.5
                call.colour2 = {0.5f, 0.5f, 0.5f};
                SCOPED_TRACE("kind " + std::to_string(call.kind));
                TestImage image(kBounds, depth, 3, 0, lockable);
                KXImageFill(image, 0.0f);
                ASSERT_EQ(Filter(image, image, kBounds, call), kKXNoErr);
                ExpectRegion(image, kBounds, depth == 32 ? 1e-5f : 1.0f, [&](int32_t x, int32_t y, int32_t) {
                    const double t = Weight(call, x, y), mix = t + (1 - t) * 0.5;
                    return float((colours == 1 ? t : mix * mix) * WhiteOf(depth));
                });
            }
    });
}

// Saturation comes first, then the contrast curve p - k p (1 - p) (1 - 2p), here at k = 1; alpha stays.
TEST(PhotoFilter, SaturationAndContrastComeBeforeTheColour)
{
    const std::tuple<FilterCall, std::array<float, 4>, std::array<float, 3>> cases[] = {
        {{.contrast = 1, .opacity1 = 0}, {0.25f, 0.5f, 0.75f, 1}, {0.15625f, 0.5f, 0.84375f}},
        {{.saturation = 1, .opacity1 = 0}, {0.5f, 0.25f, 0.25f, 0.2f}, {0.5f, 0, 0}},
    };
    ForEachImageKind([&](int32_t depth, bool lockable) {
        for (const auto& [call, pixel, expected] : cases) {
            TestImage image(kBounds, depth, 4, 1, lockable);
            std::vector<float> stored;
            for (float unit : pixel)
                stored.push_back(StoredOf(unit, depth));
            image.Set(0, 4, stored);
            ASSERT_EQ(Filter(image, image, KXRectMake(0, 4, 1, 1), call), kKXNoErr);
            for (int32_t c = 0; c < 3; ++c)
                EXPECT_NEAR(image.At(0, 4, c), expected[size_t(c)] * WhiteOf(depth), depth == 32 ? 1e-6f : 1.0f) << c;
            EXPECT_EQ(image.At(0, 4, 3), stored[3]);
        }
    });
}

// A gray image is refused before the mode is read; unknown or reversed modes, kinds outside 0..4 and a
// missing colour are bad parameters.
TEST(PhotoFilter, Rejections)
{
    const TestImage rgb = RandomImage(8, true, 4, 3, kBounds), gray(kBounds, 8, 1, 0);
    EXPECT_EQ(Filter(gray, gray, kBounds, {.mode = Code("none")}), kKXErrUnsupported);
    for (const FilterCall& call : {FilterCall{.mode = Code("none")}, FilterCall{.mode = Code("Norm")}, {.kind = 5}})
        EXPECT_EQ(Filter(rgb, rgb, kBounds, call), kKXErrBadParam);
    EXPECT_EQ(KXEffectsPhotoFilter(rgb, rgb, &kBounds, 0, 0, 0, Code("norm"), KXEffectsFloatPoint{}, 0.0, 1.0, nullptr,
                                   1.0, nullptr, 0.0),
              kKXErrBadParam);
}

} // namespace
