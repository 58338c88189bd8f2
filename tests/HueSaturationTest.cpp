// Hue tools: hue rotation against OpenCV's HSV, the specialised kernels, the colour tuner against the
// plain hue rotation, colorize, the channel mixer and purity.
#include "KXEffectsColorMath.h"
#include "KXEffectsWhiteBalance.h"
#include "TestImages.h"

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include <cmath>

namespace {

const KXRect kBounds = KXRectMake(3, -2, 7, 6);
const KXRect kRect = KXRectMake(2, -2, 8, 5); // one column before the left edge

using PixelFn = std::function<void(const float* in, float* out)>;

// Every pixel inside kRect against expected(in, out) on the 0..1 colour planes, alpha as it was, within
// tolerance (in the sample's own scale).
void ExpectPixels(const TestImage& source, const TestImage& destination, float tolerance, const PixelFn& expected)
{
    const int32_t depth = source.Depth(), planes = source.Planes();
    const std::vector<float> in = source.Samples(), out = destination.Samples();
    for (int32_t y = kRect.y; y < kRect.y + kRect.height; ++y) {
        for (int32_t x = std::max(kRect.x, kBounds.x); x < kRect.x + kRect.width; ++x) {
            const size_t at = (size_t(y - kBounds.y) * size_t(kBounds.width) + size_t(x - kBounds.x)) * size_t(planes);
            float rgb[3] = {UnitOf(in[at], depth), UnitOf(in[at + 1], depth), UnitOf(in[at + 2], depth)}, want[3];
            expected(rgb, want);
            for (size_t c = 0; c < 3; ++c)
                ASSERT_NEAR(out[at + c], StoredOf(want[c], depth), tolerance) << "at " << x << "," << y << " plane " << c;
            ASSERT_TRUE(planes < 4 || out[at + 3] == in[at + 3]);
        }
    }
}

// Runs effect(source, destination) at every depth and image kind and checks it with ExpectPixels.
void CheckEffect(const std::function<int32_t(KXImage*, KXImage*)>& effect, const PixelFn& expected,
                 float floatTolerance = 0.0f, float integerTolerance = 0.0f)
{
    ForEachImageKind([&](int32_t depth, bool lockable) {
        SCOPED_TRACE(CaseName(depth, lockable));
        TestImage source(kBounds, depth, 4, 1, lockable);
        source.FillRandom(17);
        TestImage destination(kBounds, depth, 4, 1, lockable);
        ASSERT_EQ(effect(source, destination), kKXNoErr);
        ExpectPixels(source, destination, depth == 32 ? floatTolerance : integerTolerance, expected);
    });
}

TEST(HueSaturation, HueRotationMatchesOpenCVHSV)
{
    TestImage image(kBounds, 32, 3, 0);
    image.FillRandom(23);
    TestImage rotated(kBounds, 32, 3, 0);
    const KXRect whole = image.Bounds();
    ASSERT_EQ(KXEffectsHueSaturationBrightness(image, rotated, &whole, 0.3f, 0.0f, 0.0f), kKXNoErr);
    cv::Mat rgb(whole.height, whole.width, CV_32FC3), hsv, back;
    const std::vector<float> samples = image.Samples();
    std::copy(samples.begin(), samples.end(), rgb.ptr<float>());
    cv::cvtColor(rgb, hsv, cv::COLOR_RGB2HSV);
    for (auto it = hsv.begin<cv::Vec3f>(); it != hsv.end<cv::Vec3f>(); ++it)
        (*it)[0] = std::fmod((*it)[0] + 0.3f * 360.0f, 360.0f);
    cv::cvtColor(hsv, back, cv::COLOR_HSV2RGB);
    const std::vector<float> out = rotated.Samples();
    for (size_t i = 0; i < out.size(); ++i)
        ASSERT_NEAR(out[i], back.ptr<float>()[i], 2e-5f) << i;
}

TEST(HueSaturation, SpecialisedKernelsFollowTheirFormulas)
{
    const auto hsb = [](float hue, float saturation, float brightness) {
        return [=](KXImage* s, KXImage* d) { return KXEffectsHueSaturationBrightness(s, d, &kRect, hue, saturation, brightness); };
    };
    // Brightness alone scales the planes together: hue and ratios kept, nothing past white.
    CheckEffect(hsb(0.0f, 0.0f, 0.4f), [](const float* in, float* out) {
        const float largest = std::max({in[0], in[1], in[2]});
        const float s = 1.0f / (0.8f + 1.0f);
        const float scale = largest > 0.0f ? std::min(1.0f / largest, largest / ((1.0f - s) * largest + s) / largest) : 1.0f;
        for (int c = 0; c < 3; ++c)
            out[c] = in[c] * scale;
    });
    // Saturation -1 alone: every plane becomes the largest.
    CheckEffect(hsb(0.0f, -1.0f, 0.0f), [](const float* in, float* out) {
        out[0] = out[1] = out[2] = std::max({in[0], in[1], in[2]});
    });
    CheckEffect(hsb(0.0f, 0.5f, -0.3f), [](const float* in, float* out) {
        std::copy_n(in, 3, out);
        KXEffectsSaturateAndLighten(out, 0.5f, -0.3f);
    });
    // A whole turn is the identity, up to the hexagon's rounding.
    CheckEffect(hsb(1.0f, 0.0f, 0.0f), [](const float* in, float* out) { std::copy_n(in, 3, out); }, 1e-6f, 1.0f);
    // Lightness form with saturation -1: gray at the pixel's lightness, then the lightness curve.
    CheckEffect([](KXImage* s, KXImage* d) { return KXEffectsHueSaturationLightness(s, d, &kRect, 0.0f, -1.0f, 0.5f); },
                [](const float* in, float* out) {
                    const float l = (std::min({in[0], in[1], in[2]}) + std::max({in[0], in[1], in[2]})) * 0.5f;
                    out[0] = out[1] = out[2] = l / ((1.0f - 0.5f) * l + 0.5f);
                }, 1e-6f, 1.0f);
}

TEST(HueSaturation, NeutralSettingsCopyAndGrayImagesAreRefused)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        SCOPED_TRACE(CaseName(depth, lockable));
        TestImage gray(kBounds, depth, 1, 0, lockable);
        const float zeros[9] = {};
        EXPECT_EQ(KXEffectsHueSaturationBrightness(gray, gray, &kRect, 0.1f, 0, 0), kKXErrUnsupported);
        EXPECT_EQ(KXEffectsHueSaturationLightness(gray, gray, &kRect, 0.1f, 0, 0), kKXErrUnsupported);
        EXPECT_EQ(KXEffectsTuneColors(gray, gray, &kRect, 0.1f, 0, zeros, zeros, zeros), kKXErrUnsupported);
        EXPECT_EQ(KXEffectsColorize(gray, gray, &kRect, 0.1f, 0.5f, 0), kKXErrUnsupported);
        EXPECT_EQ(KXEffectsPurity(gray, gray, &kRect, 0.1f, 0), kKXErrUnsupported);
        EXPECT_EQ(KXEffectsChannelMixer(gray, gray, &kRect, 1, 0, 0, 0, 1, 0), kKXErrUnsupported);
    });
    const auto copies = [](KXImage* s, KXImage* d) {
        const float zeros[9] = {};
        const int32_t statuses[] = {KXEffectsHueSaturationBrightness(s, d, &kRect, 0, 0, 0),
                                    KXEffectsHueSaturationLightness(s, d, &kRect, 0, 0, 0),
                                    KXEffectsTuneColors(s, d, &kRect, 0, 0, zeros, zeros, zeros),
                                    KXEffectsPurity(s, d, &kRect, 0, -1)};
        return *std::max_element(std::begin(statuses), std::end(statuses));
    };
    CheckEffect(copies, [](const float* in, float* out) { std::copy_n(in, 3, out); });
}

TEST(TuneColors, TablesMoveAnchorsAndTheMasterRotatesLikeHue)
{
    float hues[9] = {}, saturations[9] = {}, brightnesses[9] = {};
    float shifts[9], saturationGains[9], brightnessGains[9], gaps[8];
    hues[3] = 1.0f;  // slot 2 onto slot 3
    hues[0] = -1.0f; // slot 7 onto slot 6
    saturations[8] = 0.5f;
    const float* anchors =
        KXEffectsTuneColorsGetHueTables(hues, saturations, brightnesses, shifts, saturationGains, brightnessGains, gaps);
    EXPECT_FLOAT_EQ(anchors[2] + shifts[2], anchors[3]);
    EXPECT_FLOAT_EQ(anchors[7] + shifts[7], anchors[6]);
    EXPECT_EQ(saturationGains[8], 1.5f);
    EXPECT_FLOAT_EQ(gaps[4] * (anchors[5] - anchors[4]), 1.0f);

    // A colour on anchor 2 is carried onto anchor 3; a gray does not move.
    const KXRect one = KXRectMake(0, 0, 2, 1);
    TestImage image(one, 32, 3, 0);
    float onAnchor[3];
    const float hsv[3] = {anchors[2], 0.8f, 0.9f};
    KXEffectsHSVToRGB(hsv, onAnchor);
    image.SetSamples({onAnchor[0], onAnchor[1], onAnchor[2], 0.4f, 0.4f, 0.4f});
    const float zeros[9] = {};
    ASSERT_EQ(KXEffectsTuneColors(image, image, &one, 0.0f, 0.0f, hues, zeros, zeros), kKXNoErr);
    const std::vector<float> out = image.Samples();
    float moved[3];
    KXEffectsRGBToHSV(out.data(), moved);
    EXPECT_NEAR(moved[0], anchors[3], 1e-4f);
    EXPECT_NEAR(moved[2], 0.9f, 1e-5f);
    EXPECT_EQ(std::vector<float>(out.begin() + 3, out.end()), std::vector<float>(3, 0.4f));

    // The master hue alone turns every colour by half its setting, as the hue rotation does; temperature
    // alone is the temperature effect.
    float master[9] = {};
    master[8] = 0.6f;
    CheckEffect([&](KXImage* s, KXImage* d) { return KXEffectsTuneColors(s, d, &kRect, 0, 0, master, zeros, zeros); },
                [](const float* in, float* out) {
                    float h[3];
                    KXEffectsRGBToHSV(in, h);
                    h[0] += 0.3f;
                    h[0] -= std::floor(h[0]);
                    KXEffectsHSVToRGB(h, out);
                }, 2e-6f, 1.0f);
    CheckEffect([&](KXImage* s, KXImage* d) { return KXEffectsTuneColors(s, d, &kRect, 0.4f, -0.2f, zeros, zeros, zeros); },
                [](const float* in, float* out) {
                    std::copy_n(in, 3, out);
                    TemperatureTintPixel(out, 0.4f, -0.2f);
                });
}

TEST(Colorize, EveryPixelTakesTheHueAndTheRemappedLightness)
{
    for (float lightness : {-0.4f, 0.0f, 0.3f}) {
        SCOPED_TRACE(lightness);
        CheckEffect([&](KXImage* s, KXImage* d) { return KXEffectsColorize(s, d, &kRect, 0.58f, 0.6f, lightness); },
                    [&](const float* in, float* out) {
                        const float l = (std::min({in[0], in[1], in[2]}) + std::max({in[0], in[1], in[2]})) * 0.5f;
                        const float hsl[3] = {0.58f, 0.6f, l * (1.0f - std::fabs(lightness)) + std::max(lightness, 0.0f)};
                        KXEffectsHSLToRGB(hsl, out);
                    }, 1e-6f, 1.0f);
    }
    int32_t logged = 0;
    KXLogSetEventHandler([](int32_t code, const char*, int32_t, void* user) { *static_cast<int32_t*>(user) = code; },
                         &logged);
    TestImage gray(kBounds, 8, 1, 0);
    EXPECT_EQ(KXEffectsColorize(gray, gray, &kRect, 0.5f, 0.5f, 0.0f), kKXErrUnsupported);
    KXLogSetEventHandler(nullptr, nullptr);
    EXPECT_EQ(logged, kKXErrUnsupported);
}

TEST(ChannelMixer, TermsClampOneByOneAndTheThirdPlaneIsWhite)
{
    CheckEffect([](KXImage* s, KXImage* d) { return KXEffectsChannelMixer(s, d, &kRect, 1, 0, 0, 0, 1, 0); },
                [](const float* in, float* out) {
                    out[0] = in[0];
                    out[1] = in[1];
                    out[2] = 1.0f;
                });
    CheckEffect([](KXImage* s, KXImage* d) { return KXEffectsChannelMixer(s, d, &kRect, 2.0f, -1.0f, 0.5f, -3.0f, 0, 3.0f); },
                [](const float* in, float* out) {
                    out[0] = std::clamp(std::min(in[0] * 2.0f, 1.0f) - in[1] + in[2] * 0.5f, 0.0f, 1.0f);
                    out[1] = std::clamp(std::max(in[0] * -3.0f, -1.0f) + 0.0f + std::min(in[2] * 3.0f, 1.0f), 0.0f, 1.0f);
                    out[2] = 1.0f;
                }, 1e-6f, 1.0f);
}

TEST(Purity, BandsAtTheEndsFadeToTheLuma)
{
    CheckEffect([](KXImage* s, KXImage* d) { return KXEffectsPurity(s, d, &kRect, 0.3f, 0.2f); },
                [](const float* in, float* out) {
                    const float y = Luma(in);
                    const float w = std::max(1.0f - y / 0.3f, 0.0f) + std::max(1.0f - (1.0f - y) / 0.2f, 0.0f);
                    for (int c = 0; c < 3; ++c)
                        out[c] = (1.0f - w) * in[c] + w * y;
                }, 1e-6f, 1.0f);
    // Shadows 1 and highlights 0: black has weight 1, white keeps only its own narrow band.
    const KXRect one = KXRectMake(0, 0, 3, 1);
    TestImage image(one, 32, 3, 0);
    image.SetSamples({0, 0, 0, 1, 1, 1, 0.9f, 0.2f, 0.1f});
    ASSERT_EQ(KXEffectsPurity(image, image, &one, 1.0f, 0.0f), kKXNoErr);
    const std::vector<float> out = image.Samples();
    EXPECT_EQ(out[0], 0.0f);
    EXPECT_NEAR(out[3], 1.0f, 1e-6f);
    const float y = Luma(0.9f, 0.2f, 0.1f);
    EXPECT_NEAR(out[6], y * 0.9f + (1.0f - y) * y, 1e-6f);
}

// The reference shows through in the protected bands and skin; elsewhere the adjusted image is laid over it.
TEST(ProtectColors, ReferenceShowsInTheProtectedTonesAndSkin)
{
    const KXRect bounds = KXRectMake(1, 1, 4, 1);
    float skin[6];
    ASSERT_EQ(KXEffectsGetFleshColorTable(0, skin), kKXNoErr);
    const float y = (skin[0] + skin[1]) * 0.5f, cb = (skin[2] + skin[3]) * 0.5f - 0.5f;
    const float cr = (skin[4] + skin[5]) * 0.5f - 0.5f;
    const std::vector<float> reference = {0.05f, 0.04f, 0.06f, 0.2f, 0.4f, 0.9f, 0.97f, 0.99f, 0.98f,
                                          y + 1.402f * cr, y - 0.34414f * cb - 0.71414f * cr, y + 1.772f * cb};
    for (int32_t depth : kDepths) {
        SCOPED_TRACE(depth);
        TestImage referenceImage(bounds, depth, 3, 0), adjusted(bounds, depth, 3, 0), result(bounds, depth, 3, 0);
        std::vector<float> stored(reference.size()), other(reference.size(), StoredOf(0.3f, depth));
        for (size_t i = 0; i < reference.size(); ++i)
            stored[i] = StoredOf(reference[i], depth);
        referenceImage.SetSamples(stored);
        adjusted.SetSamples(other);
        ASSERT_EQ(KXEffectsProtectColors(referenceImage, adjusted, result, &bounds, 0.0f, 0.0f, 0.0f, 0), kKXNoErr);
        EXPECT_EQ(result.Samples(), other);
        ASSERT_EQ(KXEffectsProtectColors(referenceImage, adjusted, result, &bounds, 0.2f, 0.1f, 0.0f, 0), kKXNoErr);
        std::vector<float> expected = stored;
        std::fill(expected.begin() + 3, expected.end(), other[0]);
        std::copy(stored.begin() + 6, stored.begin() + 9, expected.begin() + 6);
        EXPECT_EQ(result.Samples(), expected);
        ASSERT_EQ(KXEffectsProtectColors(referenceImage, adjusted, result, &bounds, 0.0f, 0.0f, 1.0f, 0), kKXNoErr);
        // Far from skin the adjusted colour stays; the skin colour itself is the reference.
        const std::vector<float> out = result.Samples();
        EXPECT_EQ(std::vector<float>(out.begin() + 3, out.begin() + 6), std::vector<float>(3, other[0]));
        EXPECT_EQ(std::vector<float>(out.begin() + 9, out.end()), std::vector<float>(stored.begin() + 9, stored.end()));
    }
    TestImage gray(bounds, 8, 1, 0);
    EXPECT_EQ(KXEffectsProtectColors(gray, gray, gray, &bounds, 0.2f, 0.0f, 0.0f, 0), kKXErrUnsupported);
}

} // namespace
