// Photo filter: every mode and depth through the whole pixel pipeline, the five filter kinds' geometry,
// known pixels, and the checks before any pixel is touched.
#include "KXEffectsBlendModes.h"
#include "KXEffectsSample.h"
#include "TestImages.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

namespace {

const KXRect kBounds = KXRectMake(-2, 3, 9, 5);
const KXRect kRect = KXRectMake(-1, 3, 8, 5);

struct FilterCall {
    int32_t kind = 0;
    float saturation = 0.0f;
    float contrast = 0.0f;
    uint32_t mode = FourCharCode("norm");
    KXEffectsFloatPoint centre = {1.5f, 5.0f};
    float angleOrRadius = 0.0f;
    float lengthOrFeather = 1.0f;
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

// A flat filter on one pixel, step by step: saturation, the contrast curve, the mode, the opacity mix with
// white folded into the weights.
template <class Mode> std::vector<float> FlatFiltered(const float* in, int32_t planes, const FilterCall& call, int32_t depth)
{
    std::vector<float> out(in, in + planes);
    float b[3], r[3];
    for (int32_t c = 0; c < 3; ++c)
        b[c] = UnitOf(in[c], depth);
    if (call.saturation != 0.0f)
        KXEffectsSaturatePixel(b, call.saturation);
    const float k = call.contrast;
    for (float& p : b)
        p = p * ((p * (-2.0f * k) + 3.0f * k) * p + (1.0f - k));
    Mode::Pixel(b, call.colour1.data(), r);
    const float white = WhiteOf(depth);
    for (int32_t c = 0; c < 3; ++c)
        out[size_t(c)] = StoredOf(r[c] * (call.opacity1 * white) + b[c] * ((1.0f - call.opacity1) * white), depth, true);
    return out;
}

template <class Fn, class... Modes> void ForEachMode(BlendModeList<Modes...>, Fn&& fn)
{
    (fn(BlendModeTag<Modes>{}), ...);
}

TEST(PhotoFilter, FlatColourInEveryModeDepthAndSaturationKernel)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        TestImage source(kBounds, depth, 4, 1, lockable);
        source.FillRandom(31);
        const std::vector<float> in = source.Samples();
        ForEachMode(AllBlendModes{}, [&](auto tag) {
            using Mode = typename decltype(tag)::Type;
            for (float saturation : {0.0f, 0.5f}) {
                SCOPED_TRACE(CaseName(depth, lockable) + " mode " + std::to_string(Mode::kCode) + " saturation " +
                             std::to_string(saturation));
                const FilterCall call{.saturation = saturation, .contrast = 0.3f, .mode = Mode::kCode,
                                      .colour1 = {0.8f, 0.3f, 0.1f}, .opacity1 = 0.7f};
                TestImage destination(kBounds, depth, 4, 1, !lockable);
                destination.FillRandom(32);
                const std::vector<float> before = destination.Samples();
                ASSERT_EQ(Filter(source, destination, kRect, call), kKXNoErr);
                const std::vector<float> out = destination.Samples();
                for (int32_t i = 0; i < kBounds.width * kBounds.height; ++i) {
                    const auto at = out.begin() + i * 4;
                    const std::vector<float> expected =
                        i % kBounds.width == 0 ? std::vector<float>(before.begin() + i * 4, before.begin() + i * 4 + 4)
                                               : FlatFiltered<Mode>(&in[size_t(i * 4)], 4, call, depth);
                    EXPECT_EQ(std::vector<float>(at, at + 4), expected) << "pixel " << i;
                }
            }
        });
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

TEST(PhotoFilter, GradientKindsWeighColourAndOpacity)
{
    const FilterCall linear{.kind = 1, .angleOrRadius = 30.0f, .lengthOrFeather = 3.0f, .opacity2 = 0.5f};
    const FilterCall radial{.kind = 3, .angleOrRadius = 2.0f, .lengthOrFeather = 1.5f, .opacity2 = 0.5f};
    ForEachImageKind([&](int32_t depth, bool lockable) {
        for (FilterCall call : {linear, radial})
            for (int32_t colours = 1; colours <= 2; ++colours) {
                call.kind += colours - 1;
                call.colour2 = {0.5f, 0.5f, 0.5f};
                SCOPED_TRACE(CaseName(depth, lockable) + " kind " + std::to_string(call.kind));
                // Black under "norm": the result is the colour times the opacity.
                TestImage image(kBounds, depth, 3, 0, lockable);
                KXImageFill(image, 0.0f);
                ASSERT_EQ(Filter(image, image, kBounds, call), kKXNoErr);
                for (int32_t y = kBounds.y; y < kBounds.y + kBounds.height; ++y)
                    for (int32_t x = kBounds.x; x < kBounds.x + kBounds.width; ++x) {
                        const double t = Weight(call, x, y);
                        const double value = colours == 1 ? t : (t + (1 - t) * 0.5) * (t + (1 - t) * 0.5);
                        EXPECT_NEAR(image.At(x, y, 1), value * WhiteOf(depth), depth == 32 ? 1e-5 : 1.0)
                            << "x " << x << " y " << y;
                    }
            }
    });
}

struct KnownCase {
    const char* name;
    FilterCall call;
    std::array<float, 4> pixel;
    std::array<float, 3> expected;
};

TEST(PhotoFilter, KnownPixelsKeepAlpha)
{
    const KnownCase cases[] = {
        {"norm at full opacity replaces the colour", {.colour1 = {0.8f, 0.4f, 0.2f}}, {0.2f, 0.4f, 0.6f, 0.6f},
         {0.8f, 0.4f, 0.2f}},
        {"contrast 1 is p^2 (3 - 2p)", {.contrast = 1, .opacity1 = 0}, {0.25f, 0.5f, 0.75f, 1},
         {0.15625f, 0.5f, 0.84375f}},
        {"saturation first", {.saturation = 1, .opacity1 = 0}, {0.5f, 0.25f, 0.25f, 0.2f}, {0.5f, 0, 0}},
        {"multiply at half opacity", {.mode = FourCharCode("mul "), .colour1 = {0.5f, 0.5f, 1}, .opacity1 = 0.5f},
         {0.5f, 1, 0.25f, 1}, {0.375f, 0.75f, 0.25f}},
        {"colour over the backdrop", {.mode = FourCharCode("colr"), .colour1 = {1, 0, 0}},
         {0.4f, 0.4f, 0.4f, 1}, {1, 1 - 0.6f / 0.701f, 1 - 0.6f / 0.701f}},
    };
    ForEachImageKind([&](int32_t depth, bool lockable) {
        const float white = WhiteOf(depth), step = depth == 32 ? 1e-6f : 1.0f;
        for (const KnownCase& test : cases) {
            SCOPED_TRACE(CaseName(depth, lockable, test.name));
            TestImage image(kBounds, depth, 4, 1, lockable);
            std::vector<float> pixel;
            for (float unit : test.pixel)
                pixel.push_back(depth == 32 ? unit : std::round(unit * white));
            image.Set(0, 4, pixel);
            ASSERT_EQ(Filter(image, image, KXRectMake(0, 4, 1, 1), test.call), kKXNoErr);
            for (int32_t c = 0; c < 3; ++c)
                EXPECT_NEAR(image.At(0, 4, c), test.expected[size_t(c)] * white, step) << c;
            EXPECT_EQ(image.At(0, 4, 3), pixel[3]);
        }
    });
}

TEST(PhotoFilter, ZeroFeatherSplitsAtTheCircle)
{
    for (bool lockable : kLockable) {
        TestImage image(kBounds, 32, 3, 0, lockable);
        KXImageFill(image, 0.0f);
        const FilterCall call{.kind = 3, .centre = {2.0f, 4.0f}, .angleOrRadius = 2.0f, .lengthOrFeather = 0.0f};
        ASSERT_EQ(Filter(image, image, kBounds, call), kKXNoErr);
        for (int32_t x = kBounds.x; x < kBounds.x + kBounds.width; ++x) {
            const float value = image.At(x, 4, 0);
            if (x == 0 || x == 4)
                EXPECT_TRUE(std::isnan(value)) << x; // 0 x infinity on the circle, passed through by the clamp
            else
                EXPECT_EQ(value, std::abs(x - 2) > 2 ? 1.0f : 0.0f) << x;
        }
    }
}

TEST(PhotoFilter, RejectionsInTheirOrder)
{
    TestImage rgb(kBounds, 8, 3, 0), gray(kBounds, 8, 1, 0);
    rgb.FillRandom(4);
    const std::vector<float> before = rgb.Samples();
    const FilterCall normal;
    FilterCall unknownMode, reversed, badKind;
    unknownMode.mode = FourCharCode("none");
    reversed.mode = KXEffectsGetReverseBlendMode(normal.mode);
    badKind.kind = 5;
    EXPECT_EQ(Filter(gray, gray, kBounds, unknownMode), kKXErrUnsupported);
    EXPECT_EQ(Filter(rgb, rgb, kBounds, unknownMode), kKXErrBadParam);
    EXPECT_EQ(Filter(rgb, rgb, kBounds, reversed), kKXErrBadParam);
    EXPECT_EQ(Filter(rgb, rgb, kBounds, badKind), kKXErrBadParam);
    badKind.kind = -1;
    EXPECT_EQ(Filter(rgb, rgb, kBounds, badKind), kKXErrBadParam);
    const float* none = nullptr;
    EXPECT_EQ(KXEffectsPhotoFilter(rgb, rgb, &kBounds, 0, 0.0f, 0.0f, normal.mode, normal.centre, 0.0, 1.0, none, 1.0,
                                   none, 0.0),
              kKXErrBadParam);
    EXPECT_EQ(KXEffectsPhotoFilter(rgb, rgb, &kBounds, 4, 0.0f, 0.0f, normal.mode, normal.centre, 0.0, 1.0,
                                   normal.colour1.data(), 1.0, none, 0.0),
              kKXErrBadParam);
    EXPECT_EQ(rgb.Samples(), before);
    // One colour needs no second.
    EXPECT_EQ(KXEffectsPhotoFilter(rgb, rgb, &kBounds, 1, 0.0f, 0.0f, normal.mode, normal.centre, 0.0, 1.0,
                                   normal.colour1.data(), 1.0, none, 0.0),
              kKXNoErr);
}

} // namespace
