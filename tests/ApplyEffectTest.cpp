// Tile margins by effect address, and the mixing of an effect image back over its source by mask and by
// hue zone.
#include "KXEffectsColorMath.h"
#include "KXEffectsToneCurves.h"
#include "TestImages.h"

namespace {

const KXRect kBounds = KXRectMake(-3, 2, 9, 4); // the image of ExpectPixelEffect

template <class Function> int32_t Outset(Function* effect, float value)
{
    return KXEffectsGetOutset(reinterpret_cast<KXEffectProc>(effect), value);
}

TEST(ApplyEffect, OutsetsFollowTheEffectAndItsSetting)
{
    EXPECT_EQ(KXEffectsGetOutset(nullptr, 3.0f), -1);
    EXPECT_EQ(Outset(KXEffectsTriangularBlur, 3.0f), -1); // no row: the whole image
    EXPECT_EQ(Outset(KXEffectsProtectColors, 3.0f), 0);
    EXPECT_EQ(Outset(KXEffectsMedian, 4.5f), 5);
    EXPECT_EQ(Outset(KXEffectsGaussianBlur, 9.9f), 25);
    EXPECT_EQ(Outset(KXEffectsGaussianBlurTrue, 10.0f), 25);
    // From 10.0 the front door takes the fast blur: q + 2r with r = trunc(10 / 1.1) = 9 and
    // q = trunc(sqrt(3 (10 / 1.1)^2 - 2 x 81) + 0.5) = 9; the fast blur's own rule holds at any radius.
    EXPECT_EQ(Outset(KXEffectsGaussianBlur, 10.0f), 27);
    EXPECT_EQ(Outset(KXEffectsGaussianBlurFast, 3.0f), 8);
    EXPECT_EQ(Outset(KXEffectsEmboss, -3.0f), 0);
}

using Mix = std::function<int32_t(KXImage* source, KXImage* effect, KXImage* mask, KXImage* destination)>;

// The effect image is the inverted source and the mask the source's luma, so that each mixed pixel is a
// formula of the source pixel alone.
ImageEffect Mixing(const Mix& mix, bool masked)
{
    return [=](KXImage* source, KXImage* destination, const KXRect* rect) {
        KXImage *luma = nullptr, *inverted = nullptr;
        EXPECT_EQ(KXEffectsCreateLuminosityImage(source, &luma, rect, 0), kKXNoErr);
        EXPECT_EQ(KXEffectsCreateImageLike(source, &inverted, rect), kKXNoErr);
        const TestImage mask = TestImage::Adopt(luma), effect = TestImage::Adopt(inverted);
        EXPECT_EQ(KXEffectsInvert(source, effect, rect), kKXNoErr);
        return mix(source, effect, masked ? mask.get() : nullptr, destination);
    };
}

// The weight of the effect is half the amount, moved by the mask's distance from 127.
TEST(ApplyEffect, MaskAndAmountWeighTheEffect)
{
    for (float amount : {0.7f, 2.6f})
        for (bool masked : {false, true}) {
            SCOPED_TRACE(amount);
            const Mix mix = [&](auto a, auto b, auto m, auto d) {
                return KXEffectsApplyEffectWithMask(a, b, m, d, &kBounds, amount);
            };
            ExpectPixelEffect(
                Mixing(mix, masked),
                [&](const float* a, float* out) {
                    const float w = masked ? Luma(a) - 127.0f / 255.0f + amount / 2.0f : amount / 2.0f;
                    for (int c = 0; c < 3; ++c)
                        out[c] = Clamp01((1.0f - w) * a[c] + w * (1.0f - a[c]));
                },
                1.0f, 1e-6f);
        }
    // A 16-bit mask of 32767 is not quite neutral: w = 32767 / 65535 - 127 / 255 = 0.00196.
    const KXRect one = KXRectMake(0, 0, 1, 1);
    TestImage source(one, 16, 1, 0), effect(one, 16, 1, 0), mask(one, 16, 1, 0);
    source.SetSamples({0});
    effect.SetSamples({65535});
    mask.SetSamples({32767});
    ASSERT_EQ(KXEffectsApplyEffectWithMask(source, effect, mask, source, &one, 0.0f), kKXNoErr);
    EXPECT_EQ(source.At(0, 0, 0), 128.0f);
}

// Each hue zone moves the weight of the effect by its share of the source's colour, and shapes the luma of
// the mix by brightness and midtone contrast.
TEST(ApplyEffect, ZonesMixByHueAndShapeTheLuma)
{
    const float effectZones[6] = {1.0f, 0.0f, -0.5f, 0.0f, 0.8f, 0.2f};
    const float brightnessZones[6] = {0.4f, 0.0f, 0.0f, -0.3f, 0.0f, 0.0f};
    const float midtoneZones[6] = {0.0f, 0.5f, 0.0f, 0.0f, -0.6f, 0.0f};
    for (bool masked : {false, true})
        ExpectPixelEffect(
            Mixing(
                [&](auto a, auto b, auto m, auto d) {
                    return KXEffectsApplyEffectInZones(a, b, m, d, &kBounds, effectZones, brightnessZones,
                                                       midtoneZones);
                },
                masked),
            [&](const float* a, float* out) {
                float parts[6], mixed[3], ycc[3], zone = 0.0f, brightness = 0.0f, midtone = 0.0f;
                KXEffectsGetColorComponents(a, parts);
                for (int i = 0; i < 6; ++i) {
                    zone += parts[i] * effectZones[i];
                    brightness += parts[i] * brightnessZones[i];
                    midtone += parts[i] * midtoneZones[i];
                }
                const float t = Clamp01(0.5f * zone + (masked ? Luma(a) : 127.0f / 255.0f));
                for (int c = 0; c < 3; ++c)
                    mixed[c] = t * (1.0f - a[c]) + (1.0f - t) * a[c];
                KXEffectsRGBToYCC(mixed, ycc);
                ycc[0] = MidtoneCurveValue(BrightnessCurveValue(ycc[0], brightness), midtone);
                KXEffectsYCCToRGB(ycc, out);
                for (int c = 0; c < 3; ++c)
                    out[c] = Clamp01(out[c]);
            },
            1.0f, 1e-6f);
    const TestImage gray(kBounds, 8, 1, 0);
    EXPECT_EQ(KXEffectsApplyEffectInZones(gray, gray, nullptr, gray, &kBounds, effectZones, brightnessZones,
                                          midtoneZones),
              kKXErrUnsupported);
}

} // namespace
