// Clarity: the overlay of the luma difference read plainly, the copies and refusals, flat pictures, tiles.
#include "TestImages.h"

#include <gtest/gtest.h>

namespace {

const KXRect kBounds = KXRectMake(2, -3, 24, 18);
const KXRect kRect = KXRectMake(1, -1, 20, 12); // beyond the left edge

// The blurred luma of the source over kRect, as the effect should see it: its own luminosity image blurred.
std::vector<float> BlurredLuma(KXImage* source, float radius)
{
    KXImage* luma = nullptr;
    const KXRect grown = KXRectOutset(&kRect, KXEffectsGetOutset(reinterpret_cast<KXEffectProc>(KXEffectsClarity), radius));
    EXPECT_EQ(KXEffectsCreateLuminosityImage(source, &luma, &grown, 0), kKXNoErr);
    EXPECT_EQ(KXEffectsGaussianBlurTrueWithAmountAndMode(luma, luma, &kRect, radius, 1.0f, 0x6e6f726d), kKXNoErr);
    std::vector<float> values(size_t(kBounds.width) * size_t(kBounds.height), 0.0f);
    for (int32_t y = kRect.y; y < kRect.y + kRect.height; ++y)
        for (int32_t x = std::max(kRect.x, kBounds.x); x < kRect.x + kRect.width; ++x) {
            float sample = 0.0f;
            const KXRect one = KXRectMake(x, y, 1, 1);
            uint8_t bytes[4] = {};
            KXImageRead2(luma, &one, 0, 0, bytes, -1, 0);
            const int32_t depth = KXImageGetDepth(luma);
            sample = depth == 8 ? bytes[0] : depth == 16 ? float(bytes[0] | bytes[1] << 8) : *reinterpret_cast<float*>(bytes);
            values[size_t(y - kBounds.y) * size_t(kBounds.width) + size_t(x - kBounds.x)] = UnitOf(sample, depth);
        }
    KXImageRelease(luma);
    return values;
}

TEST(Clarity, OverlaysTheLumaDifferenceAndKeepsChroma)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        SCOPED_TRACE(CaseName(depth, lockable));
        TestImage source(kBounds, depth, 4, 1, lockable);
        source.FillRandom(12);
        TestImage destination(kBounds, depth, 4, 1, lockable);
        const std::vector<float> in = source.Samples();
        destination.SetSamples(in);
        const float amount = 1.7f, radius = 2.5f;
        ASSERT_EQ(KXEffectsClarity(source, destination, &kRect, amount, radius), kKXNoErr);
        const std::vector<float> blurred = BlurredLuma(source, radius), out = destination.Samples();
        for (size_t pixel = 0; pixel < blurred.size(); ++pixel) {
            const size_t at = pixel * 4;
            const int32_t y = int32_t(pixel) / kBounds.width + kBounds.y;
            const bool inside = y >= kRect.y && y < kRect.y + kRect.height &&
                                int32_t(pixel) % kBounds.width + kBounds.x < kRect.x + kRect.width;
            const float r = UnitOf(in[at], depth), g = UnitOf(in[at + 1], depth), b = UnitOf(in[at + 2], depth);
            const float luma = 0.587f * g + 0.299f * r + 0.114f * b;
            const float d = (luma - blurred[pixel]) * amount + 0.5f;
            const float shaped = luma < 0.5f ? 2.0f * d * luma : 2.0f * (luma + d - luma * d) - 1.0f;
            const float c = 0.5f * b - (0.168736f * r + 0.331264f * g), e = 0.5f * r - 0.418688f * g - 0.081312f * b;
            const float want[3] = {shaped + 1.402f * e, shaped - 0.344136f * c - 0.714136f * e, shaped + 1.772f * c};
            for (size_t p = 0; p < 3; ++p)
                ASSERT_NEAR(out[at + p], inside ? StoredOf(std::clamp(want[p], 0.0f, 1.0f), depth) : in[at + p],
                            depth == 32 ? 2e-6f : 1.0f)
                    << pixel << " plane " << p;
            ASSERT_EQ(out[at + 3], in[at + 3]);
        }
    });
}

TEST(Clarity, DegenerateSettingsCopyAndGrayIsRefusedUntouched)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        SCOPED_TRACE(CaseName(depth, lockable));
        TestImage gray(kBounds, depth, 1, 0, lockable), out(kBounds, depth, 1, 0, lockable);
        gray.FillRandom(4);
        const std::vector<float> before = gray.Samples(), marked(before.size(), 9.0f);
        out.SetSamples(marked);
        EXPECT_EQ(KXEffectsClarity(gray, out, &kRect, 1.0f, 3.0f), kKXErrUnsupported);
        EXPECT_TRUE(out.Samples() == marked);
        for (const auto& [amount, radius] : {std::pair{0.0f, 3.0f}, std::pair{1.0f, 0.0f}}) {
            ASSERT_EQ(KXEffectsClarity(gray, out, &kBounds, amount, radius), kKXNoErr);
            EXPECT_TRUE(out.Samples() == before);
        }
        // A flat picture keeps its colour, up to the round trip through YCbCr.
        TestImage flat(kBounds, depth, 3, 0, lockable);
        const float level = StoredOf(0.35f, depth);
        const std::vector<float> flatSamples(size_t(kBounds.width) * size_t(kBounds.height) * 3, level);
        flat.SetSamples(flatSamples);
        ASSERT_EQ(KXEffectsClarity(flat, flat, &kBounds, 3.0f, 4.0f), kKXNoErr);
        for (float sample : flat.Samples())
            ASSERT_NEAR(sample, level, depth == 32 ? 1e-6f : 1.0f);
    });
}

TEST(Clarity, TileGrownByTheOutsetMatchesTheWholeImage)
{
    for (float radius : {3.0f, 12.0f}) {
        SCOPED_TRACE(radius);
        const KXRect bounds = KXRectMake(0, 0, 120, 100), tile = KXRectMake(50, 40, 16, 12);
        TestImage whole(bounds, 16, 3, 0);
        whole.FillRandom(8);
        TestImage result(bounds, 16, 3, 0);
        ASSERT_EQ(KXEffectsClarity(whole, result, &bounds, 0.8f, radius), kKXNoErr);
        const int32_t reach = KXEffectsGetOutset(reinterpret_cast<KXEffectProc>(KXEffectsClarity), radius);
        const KXRect grown = KXRectOutset(&tile, reach);
        TestImage piece(grown, 16, 3, 0);
        std::vector<uint16_t> samples(size_t(grown.width) * size_t(grown.height) * 3);
        ASSERT_EQ(KXImageRead2(whole, &grown, 0, -1, samples.data(), -1, 0), 0);
        ASSERT_EQ(KXImageWrite2(piece, &grown, 0, -1, samples.data(), -1, 0), 0);
        ASSERT_EQ(KXEffectsClarity(piece, piece, &tile, 0.8f, radius), kKXNoErr);
        for (int32_t y = tile.y; y < tile.y + tile.height; ++y)
            for (int32_t x = tile.x; x < tile.x + tile.width; ++x)
                for (int32_t p = 0; p < 3; ++p)
                    ASSERT_EQ(piece.At(x, y, p), result.At(x, y, p)) << x << "," << y;
    }
}

} // namespace
