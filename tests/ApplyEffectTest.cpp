// Tile margins by effect address, and the mixing of an effect image back over its source by mask and by
// hue zone.
#include "KXEffectsColorMath.h"
#include "KXEffectsToneCurves.h"
#include "TestImages.h"

#include <gtest/gtest.h>

namespace {

const KXRect kBounds = KXRectMake(4, -1, 7, 6);
const KXRect kRect = KXRectMake(5, -2, 7, 6); // beyond the top and right edges

template <class Function> int32_t Outset(Function* effect, float value)
{
    return KXEffectsGetOutset(reinterpret_cast<KXEffectProc>(effect), value);
}

TEST(ApplyEffect, OutsetsFollowTheEffectAndItsSetting)
{
    EXPECT_EQ(KXEffectsGetOutset(nullptr, 3.0f), -1);
    EXPECT_EQ(Outset(KXEffectsTriangularBlur, 3.0f), -1); // no row: the whole image
    EXPECT_EQ(Outset(KXEffectsProtectColors, 3.0f), 0);
    EXPECT_EQ(Outset(KXEffectsSharpen, 30.0f), 1);
    EXPECT_EQ(Outset(KXEffectsBoxBlur, 4.4f), 4);
    EXPECT_EQ(Outset(KXEffectsMedian, 4.5f), 5);
    EXPECT_EQ(Outset(KXEffectsGaussianBlur, 9.9f), 25);
    EXPECT_EQ(Outset(KXEffectsGaussianBlurTrue, 10.0f), 25);
    // From 10.0 the front door takes the fast blur: q + 2r with r = trunc(10 / 1.1) = 9 and
    // q = trunc(sqrt(3 (10 / 1.1)^2 - 2 x 81) + 0.5) = 9; the fast blur's own rule holds at any radius.
    EXPECT_EQ(Outset(KXEffectsGaussianBlur, 10.0f), 27);
    EXPECT_EQ(Outset(KXEffectsGaussianBlurFast, 3.0f), 8);
    EXPECT_EQ(Outset(KXEffectsEmboss, 3.0f), 2);
    EXPECT_EQ(Outset(KXEffectsEmboss, -3.0f), 0);
}

struct MixImages {
    TestImage source, effect, mask, destination;
};

MixImages MakeMixImages(int32_t depth, bool lockable, uint32_t seed)
{
    MixImages images{TestImage(kBounds, depth, 4, 1, lockable), TestImage(kBounds, depth, 4, 1, lockable),
                     TestImage(kBounds, depth, 1, 0, lockable), TestImage(kBounds, depth, 4, 1, lockable)};
    images.source.FillRandom(seed);
    images.effect.FillRandom(seed + 1);
    images.mask.FillRandom(seed + 2);
    return images;
}

// expected(a, b, m, out) over the colour planes of each pixel inside kRect, in 0..1 (m < 0: no mask).
void ExpectMixed(const MixImages& images, bool masked, float tolerance,
                 const std::function<void(const float* a, const float* b, float m, float* out)>& expected)
{
    const int32_t depth = images.source.Depth();
    const std::vector<float> a = images.source.Samples(), b = images.effect.Samples(), m = images.mask.Samples();
    const std::vector<float> out = images.destination.Samples();
    for (int32_t y = 0; y < kBounds.height; ++y) {
        for (int32_t x = kRect.x - kBounds.x; x < kBounds.width; ++x) {
            if (y + kBounds.y >= kRect.y + kRect.height)
                continue;
            const size_t pixel = size_t(y) * size_t(kBounds.width) + size_t(x), at = pixel * 4;
            float in[3], effected[3], want[3];
            for (size_t c = 0; c < 3; ++c) {
                in[c] = UnitOf(a[at + c], depth);
                effected[c] = UnitOf(b[at + c], depth);
            }
            expected(in, effected, masked ? UnitOf(m[pixel], depth) : -1.0f, want);
            for (size_t c = 0; c < 3; ++c)
                ASSERT_NEAR(out[at + c], StoredOf(want[c], depth), tolerance) << x << "," << y << " plane " << c;
            ASSERT_EQ(out[at + 3], a[at + 3]);
        }
    }
}

TEST(ApplyEffect, MaskAndAmountWeighTheEffect)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        SCOPED_TRACE(CaseName(depth, lockable));
        const float tolerance = depth == 32 ? 1e-6f : 1.0f;
        for (float amount : {0.0f, 0.7f, 2.0f, 2.6f}) {
            for (bool masked : {false, true}) {
                SCOPED_TRACE(amount);
                MixImages images = MakeMixImages(depth, lockable, 5);
                ASSERT_EQ(KXEffectsApplyEffectWithMask(images.source, images.effect, masked ? images.mask.get() : nullptr,
                                                       images.destination, &kRect, amount),
                          kKXNoErr);
                ExpectMixed(images, masked, tolerance, [&](const float* a, const float* b, float m, float* out) {
                    const float w = m < 0.0f ? amount / 2.0f : m - 127.0f / 255.0f + amount / 2.0f;
                    for (int c = 0; c < 3; ++c)
                        out[c] = Clamp01((1.0f - w) * a[c] + w * b[c]);
                });
            }
        }
    });
    // A 16-bit mask of 32767 is not quite neutral.
    const KXRect one = KXRectMake(0, 0, 1, 1);
    TestImage source(one, 16, 1, 0), effect(one, 16, 1, 0), mask(one, 16, 1, 0), out(one, 16, 1, 0);
    source.SetSamples({0});
    effect.SetSamples({65535});
    mask.SetSamples({32767});
    ASSERT_EQ(KXEffectsApplyEffectWithMask(source, effect, mask, out, &one, 0.0f), kKXNoErr);
    EXPECT_EQ(out.At(0, 0, 0), 128.0f); // w = 32767 / 65535 - 127 / 255 = 0.00196
}

TEST(ApplyEffect, ZonesMixByHueAndShapeTheLuma)
{
    const float effectZones[6] = {1.0f, 0.0f, -0.5f, 0.0f, 0.8f, 0.2f};
    const float brightnessZones[6] = {0.4f, 0.0f, 0.0f, -0.3f, 0.0f, 0.0f};
    const float midtoneZones[6] = {0.0f, 0.5f, 0.0f, 0.0f, -0.6f, 0.0f};
    ForEachImageKind([&](int32_t depth, bool lockable) {
        SCOPED_TRACE(CaseName(depth, lockable));
        for (bool masked : {false, true}) {
            MixImages images = MakeMixImages(depth, lockable, 9);
            ASSERT_EQ(KXEffectsApplyEffectInZones(images.source, images.effect, masked ? images.mask.get() : nullptr,
                                                  images.destination, &kRect, effectZones, brightnessZones,
                                                  midtoneZones),
                      kKXNoErr);
            ExpectMixed(images, masked, depth == 32 ? 1e-6f : 0.0f, [&](const float* a, const float* b, float m, float* out) {
                float parts[6];
                KXEffectsGetColorComponents(a, parts);
                float t = m < 0.0f ? 127.0f / 255.0f : m, brightness = 0.0f, midtone = 0.0f, zone = 0.0f;
                for (int i = 0; i < 6; ++i) {
                    zone += parts[i] * effectZones[i];
                    brightness += parts[i] * brightnessZones[i];
                    midtone += parts[i] * midtoneZones[i];
                }
                t = Clamp01(0.5f * zone + t);
                float mixed[3], ycc[3];
                for (int c = 0; c < 3; ++c)
                    mixed[c] = t * b[c] + (1.0f - t) * a[c];
                KXEffectsRGBToYCC(mixed, ycc);
                ycc[0] = MidtoneCurveValue(BrightnessCurveValue(ycc[0], brightness), midtone);
                KXEffectsYCCToRGB(ycc, out);
                for (int c = 0; c < 3; ++c)
                    out[c] = Clamp01(out[c]);
            });
        }
        TestImage gray(kBounds, depth, 1, 0, lockable);
        EXPECT_EQ(KXEffectsApplyEffectInZones(gray, gray, nullptr, gray, &kRect, effectZones, brightnessZones,
                                              midtoneZones),
                  kKXErrUnsupported);
    });
}

} // namespace
