// Clarity: edges gain contrast while flat areas and the chroma stay; gray images are refused untouched.
#include "KXEffectsColorMath.h"
#include "TestImages.h"

namespace {

const KXRect kBounds = KXRectMake(2, -3, 24, 18);

TEST(Clarity, EdgesGainContrastFlatAreasStayAndGrayIsRefused)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        // Gray 0.3 left of column 14, 0.7 from it on.
        TestImage image(kBounds, depth, 3, 0, lockable);
        std::vector<float> samples;
        for (int32_t i = 0; i < kBounds.width * kBounds.height; ++i)
            samples.insert(samples.end(), 3, StoredOf(i % kBounds.width + kBounds.x < 14 ? 0.3f : 0.7f, depth));
        image.SetSamples(samples);
        const TestImage result = image.Like();
        ASSERT_EQ(KXEffectsClarity(image, result, &kBounds, 1.0f, 2.0f), kKXNoErr);
        EXPECT_TRUE(result.At(13, 0, 1) < image.At(13, 0, 1) && result.At(14, 0, 1) > image.At(14, 0, 1));
        // Beyond the blur's reach of the edge, up to the round trip through YCbCr.
        EXPECT_NEAR(result.At(kBounds.x, 0, 0), image.At(kBounds.x, 0, 0), depth == 32 ? 1e-6f : 1.0f);
        EXPECT_NEAR(result.At(25, 0, 2), image.At(25, 0, 2), depth == 32 ? 1e-6f : 1.0f);
        const TestImage gray = RandomImage(depth, lockable, 4, 1, kBounds), out = RandomImage(depth, lockable, 5, 1);
        const std::vector<float> before = out.Samples();
        EXPECT_EQ(KXEffectsClarity(gray, out, &kBounds, 1.0f, 3.0f), kKXErrUnsupported); // untouched
        EXPECT_EQ(out.Samples(), before);
    });
}

// Only the luma changes: where no plane clips, Cb and Cr come through.
TEST(Clarity, KeepsTheChroma)
{
    const TestImage source = RandomImage(32, true, 12, 4, kBounds), result(kBounds, 32, 4, 1);
    ASSERT_EQ(KXEffectsClarity(source, result, &kBounds, 1.7f, 2.5f), kKXNoErr);
    const std::vector<float> in = source.Samples(), out = result.Samples();
    int32_t unclipped = 0;
    for (size_t at = 0; at < in.size(); at += 4) {
        if (*std::min_element(&out[at], &out[at] + 3) <= 0.0f || *std::max_element(&out[at], &out[at] + 3) >= 1.0f)
            continue;
        float before[3], after[3];
        KXEffectsRGBToYCC(&in[at], before);
        KXEffectsRGBToYCC(&out[at], after);
        EXPECT_NEAR(after[1], before[1], 2e-6f) << at;
        EXPECT_NEAR(after[2], before[2], 2e-6f) << at;
        EXPECT_EQ(out[at + 3], in[at + 3]);
        ++unclipped;
    }
    EXPECT_GT(unclipped, 100);
}

} // namespace
