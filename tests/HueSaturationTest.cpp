// Hue tools: hue rotation against OpenCV's HSV, the specialised kernels, the colour tuner against the hue
// rotation and the temperature effect, colorize, the channel mixer, purity and colour protection.
#include "KXEffectsColorMath.h"
#include "TestImages.h"

#include <opencv2/imgproc.hpp>

#include <cmath>

namespace {

const KXRect kBounds = KXRectMake(3, -2, 7, 6);

float Lightness(const float* rgb)
{
    return (std::min({rgb[0], rgb[1], rgb[2]}) + std::max({rgb[0], rgb[1], rgb[2]})) * 0.5f;
}

TEST(HueSaturation, HueRotationMatchesOpenCVHSV)
{
    const TestImage image = RandomImage(32, true, 23, 3, kBounds), rotated(kBounds, 32, 3, 0);
    ASSERT_EQ(KXEffectsHueSaturationBrightness(image, rotated, &kBounds, 0.3f, 0.0f, 0.0f), kKXNoErr);
    std::vector<float> samples = image.Samples();
    cv::Mat hsv, back;
    cv::cvtColor(cv::Mat(kBounds.height, kBounds.width, CV_32FC3, samples.data()), hsv, cv::COLOR_RGB2HSV);
    for (auto it = hsv.begin<cv::Vec3f>(); it != hsv.end<cv::Vec3f>(); ++it)
        (*it)[0] = std::fmod((*it)[0] + 0.3f * 360.0f, 360.0f);
    cv::cvtColor(hsv, back, cv::COLOR_HSV2RGB);
    ExpectRegion(rotated, kBounds, 2e-5f,
                 [&](int32_t x, int32_t y, int32_t p) { return back.at<cv::Vec3f>(y - kBounds.y, x - kBounds.x)[p]; });
}

ImageEffect Hsb(float hue, float saturation, float brightness)
{
    return
        [=](auto s, auto d, auto r) { return KXEffectsHueSaturationBrightness(s, d, r, hue, saturation, brightness); };
}

TEST(HueSaturation, SpecialisedKernelsFollowTheirFormulas)
{
    // Saturation -1 alone: every plane becomes the largest.
    ExpectPixelEffect(Hsb(0, -1, 0), [](const float* i, float* o) { std::fill_n(o, 3, *std::max_element(i, i + 3)); });
    ExpectPixelEffect(Hsb(0.0f, 0.5f, -0.3f), [](const float* in, float* out) {
        std::copy_n(in, 3, out);
        KXEffectsSaturateAndLighten(out, 0.5f, -0.3f);
    });
    // A whole turn is the identity, up to the hexagon's rounding.
    ExpectPixelEffect(
        Hsb(1.0f, 0.0f, 0.0f), [](const float* in, float* out) { std::copy_n(in, 3, out); }, 1.0f, 1e-6f);
    // Lightness form with saturation -1: gray at the pixel's lightness, then the lightness curve.
    ExpectPixelEffect([](auto s, auto d, auto r) { return KXEffectsHueSaturationLightness(s, d, r, 0, -1, 0.5f); },
                      [](const float* in, float* out) {
                          const float l = Lightness(in);
                          std::fill_n(out, 3, l / ((1.0f - 0.5f) * l + 0.5f));
                      },
                      1.0f, 1e-6f);
}

TEST(HueSaturation, GrayImagesAreRefused)
{
    const TestImage gray(kBounds, 8, 1, 0);
    const float zeros[9] = {};
    EXPECT_EQ(KXEffectsHueSaturationBrightness(gray, gray, &kBounds, 0.1f, 0, 0), kKXErrUnsupported);
    EXPECT_EQ(KXEffectsHueSaturationLightness(gray, gray, &kBounds, 0.1f, 0, 0), kKXErrUnsupported);
    EXPECT_EQ(KXEffectsTuneColors(gray, gray, &kBounds, 0.1f, 0, zeros, zeros, zeros), kKXErrUnsupported);
    EXPECT_EQ(KXEffectsPurity(gray, gray, &kBounds, 0.1f, 0), kKXErrUnsupported);
    EXPECT_EQ(KXEffectsChannelMixer(gray, gray, &kBounds, 1, 0, 0, 0, 1, 0), kKXErrUnsupported);
    EXPECT_EQ(KXEffectsColorize(gray, gray, &kBounds, 0.5f, 0.5f, 0.0f), kKXErrUnsupported);
    EXPECT_EQ(KXEffectsProtectColors(gray, gray, gray, &kBounds, 0.2f, 0.0f, 0.0f, 0), kKXErrUnsupported);
}

TEST(TuneColors, TablesMoveAnchorsAndTheMasterRotatesLikeHue)
{
    // Hue 1 in slot 3 carries slot 2 onto slot 3's anchor; the last saturation slot is the master gain.
    const float hues[9] = {0, 0, 0, 1.0f}, saturations[9] = {0, 0, 0, 0, 0, 0, 0, 0, 0.5f};
    float shifts[9], gains[9], others[9], gaps[8];
    const float zeros[9] = {};
    const float* anchors = KXEffectsTuneColorsGetHueTables(hues, saturations, zeros, shifts, gains, others, gaps);
    EXPECT_FLOAT_EQ(anchors[2] + shifts[2], anchors[3]);
    EXPECT_EQ(gains[8], 1.5f);
    // The master hue alone turns every colour by half its setting; temperature alone is the temperature effect.
    const float master[9] = {0, 0, 0, 0, 0, 0, 0, 0, 0.6f};
    ExpectPixelEffect([&](auto s, auto d, auto r) { return KXEffectsTuneColors(s, d, r, 0, 0, master, zeros, zeros); },
                      [](const float* in, float* out) {
                          float h[3];
                          KXEffectsRGBToHSV(in, h);
                          h[0] = std::fmod(h[0] + 0.3f, 1.0f);
                          KXEffectsHSVToRGB(h, out);
                      },
                      1.0f, 2e-6f);
    ForEachImageKind([&](int32_t depth, bool lockable) {
        const TestImage source = RandomImage(depth, lockable, 24, 3, kBounds), tuned = source.Like();
        const TestImage warmed = source.Like();
        ASSERT_EQ(KXEffectsTuneColors(source, tuned, &kBounds, 0.4f, -0.2f, zeros, zeros, zeros), kKXNoErr);
        ASSERT_EQ(KXEffectsTemperatureAndTint(source, warmed, &kBounds, 0.4f, -0.2f), kKXNoErr);
        ExpectSameImage(tuned, warmed);
    });
}

// Colorize gives every pixel one hue and saturation at its lightness remapped (0.3: l x 0.7 + 0.3); each term
// of the channel mixer clamps on its own before the sum, and its third plane is white; purity fades the bands
// at the ends of the luma to the luma.
TEST(HueTools, ColorizeChannelMixerAndPurityFollowTheirFormulas)
{
    ExpectPixelEffect([](auto s, auto d, auto r) { return KXEffectsColorize(s, d, r, 0.58f, 0.6f, 0.3f); },
                      [](const float* in, float* out) {
                          const float hsl[3] = {0.58f, 0.6f, Lightness(in) * 0.7f + 0.3f};
                          KXEffectsHSLToRGB(hsl, out);
                      },
                      1.0f, 1e-6f);
    ExpectPixelEffect([](auto s, auto d, auto r) { return KXEffectsChannelMixer(s, d, r, 2, -1, 0.5f, -3, 0, 3); },
                      [](const float* in, float* out) {
                          out[0] = std::clamp(std::min(in[0] * 2.0f, 1.0f) - in[1] + in[2] * 0.5f, 0.0f, 1.0f);
                          out[1] = std::clamp(std::max(in[0] * -3, -1.0f) + std::min(in[2] * 3, 1.0f), 0.0f, 1.0f);
                          out[2] = 1.0f;
                      },
                      1.0f, 1e-6f);
    ExpectPixelEffect([](auto s, auto d, auto r) { return KXEffectsPurity(s, d, r, 0.3f, 0.2f); },
                      [](const float* in, float* out) {
                          const float y = Luma(in);
                          const float w = std::max(1.0f - y / 0.3f, 0.0f) + std::max(1.0f - (1.0f - y) / 0.2f, 0.0f);
                          for (int c = 0; c < 3; ++c)
                              out[c] = (1.0f - w) * in[c] + w * y;
                      },
                      1.0f, 1e-6f);
}

// The reference shows through in the protected bands (a dark and a light pixel at shadows 0.2 and
// highlights 0.1) and on skin (the centre of flesh table 0); elsewhere the adjusted image is laid over it.
TEST(ProtectColors, ReferenceShowsInTheProtectedTonesAndSkin)
{
    float r[6];
    ASSERT_EQ(KXEffectsGetFleshColorTable(0, r), kKXNoErr);
    const float y = (r[0] + r[1]) * 0.5f, cb = (r[2] + r[3]) * 0.5f - 0.5f, cr = (r[4] + r[5]) * 0.5f - 0.5f;
    const std::vector<float> reference = {0.05f,
                                          0.04f,
                                          0.06f,
                                          0.2f,
                                          0.4f,
                                          0.9f,
                                          0.97f,
                                          0.99f,
                                          0.98f,
                                          y + 1.402f * cr,
                                          y - 0.34414f * cb - 0.71414f * cr,
                                          y + 1.772f * cb};
    for (int32_t depth : kDepths) {
        SCOPED_TRACE(depth);
        TestImage referenceImage(KXRectMake(1, 1, 4, 1), depth, 3, 0);
        const TestImage adjusted = referenceImage.Like(), result = referenceImage.Like();
        const KXRect bounds = referenceImage.Bounds();
        std::vector<float> stored;
        for (float unit : reference)
            stored.push_back(StoredOf(unit, depth));
        referenceImage.SetSamples(stored);
        KXImageFill(adjusted, StoredOf(0.3f, depth));
        ASSERT_EQ(KXEffectsProtectColors(referenceImage, adjusted, result, &bounds, 0.2f, 0.1f, 0.0f, 0), kKXNoErr);
        std::vector<float> expected = stored;
        std::fill(expected.begin() + 3, expected.begin() + 6, StoredOf(0.3f, depth));
        std::fill(expected.begin() + 9, expected.end(), StoredOf(0.3f, depth));
        EXPECT_EQ(result.Samples(), expected);
        // Skin: the skin colour itself is the reference.
        ASSERT_EQ(KXEffectsProtectColors(referenceImage, adjusted, result, &bounds, 0.0f, 0.0f, 1.0f, 0), kKXNoErr);
        EXPECT_EQ(result.At(4, 1, 1), stored[10]);
    }
}

} // namespace
