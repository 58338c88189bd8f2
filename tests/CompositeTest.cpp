// Compositing: layers under modes, opacities, masks and alpha; mixing, gains, mask products, flattening.
#include "TestImages.h"

#include <cmath>

namespace {

// Width 9 leaves a tail after any block of 8.
const KXRect kBounds = KXRectMake(-4, 20, 9, 3);

using Pixel = std::vector<double>;

// An image of one pixel value everywhere, from unit values that are multiples of 0.2, which 255 and 65535
// hold exactly; transparency 1 when the pixel has four or two planes.
TestImage Uniform(int32_t depth, bool lockable, const Pixel& unit, int32_t transparency = -1)
{
    const int32_t planes = int32_t(unit.size());
    TestImage image(kBounds, depth, planes, transparency >= 0 ? transparency : planes % 2 == 0, lockable);
    std::vector<float> samples;
    for (int32_t i = 0; i < kBounds.width * kBounds.height * planes; ++i)
        samples.push_back(depth == 32 ? float(unit[size_t(i % planes)])
                                      : std::round(float(unit[size_t(i % planes)]) * WhiteOf(depth)));
    image.SetSamples(samples);
    return image;
}

TestImage Mask(int32_t depth, bool lockable, double unit, bool inverted = false)
{
    TestImage mask = Uniform(depth, lockable, {unit}, 0);
    if (inverted)
        KXImageSetType(mask, KXImageTypeInvertedMask);
    return mask;
}

// Every pixel holds the stored form of the unit values: white x v + 0.5, truncated and wrapped, for integers.
void ExpectUniform(const TestImage& image, const Pixel& unit)
{
    const int32_t depth = image.Depth();
    const std::vector<float> samples = image.Samples();
    for (size_t i = 0; i < samples.size(); ++i) {
        const double v = unit[i % unit.size()];
        const int64_t stored = int64_t(v * WhiteOf(depth) + 0.5) & (depth == 8 ? 0xff : 0xffff);
        ASSERT_NEAR(samples[i], depth == 32 ? float(v) : float(stored), depth == 32 ? 2e-6 : 0.0) << "sample " << i;
    }
}

struct BlendCase {
    const char* name;
    const char* mode;
    Pixel upper;
    float upperOpacity;
    Pixel lower;
    int32_t destinationPlanes;
    Pixel expected;
};

TEST(BlendImages, AlphaOpacityAndModeDecideTheMix)
{
    const BlendCase cases[] = {
        {"both opaque", "norm", {1, 0.2, 0, 1}, 1.0f, {0, 0.4, 1, 1}, 4, {1, 0.2, 0, 1}},
        {"transparent lower ignores the mode", "mul ", {1, 0.2, 0, 1}, 0.6f, {0, 0.4, 1, 0}, 4, {1, 0.2, 0, 0.6}},
        {"both transparent keep the lower colour", "scrn", {1, 1, 1, 0}, 1, {0.2, 0.4, 0.6, 0}, 4, {0.2, 0.4, 0.6, 0}},
        {"upper without alpha counts as opaque", "norm", {1, 0.2, 0}, 1.0f, {0, 0.4, 1, 0}, 4, {1, 0.2, 0, 1}},
        {"destination without alpha", "norm", {1, 0.2, 0, 1}, 0.25f, {0, 0.4, 1}, 3, {0.25, 0.35, 0.75}},
        {"half rounds up", "norm", {1, 1, 1, 1}, 0.5f, {0, 0, 0, 1}, 4, {0.5, 0.5, 0.5, 1}},
        {"nothing clamped, integers wrap", "norm", {1, 1, 0, 1}, 2.0f, {0, 0, 0, 1}, 4, {2, 2, 0, 1}},
        {"gray with alpha", "scrn", {0.2, 1}, 1.0f, {0.4, 1}, 2, {0.52, 1}},
        {"colour dodge at s = 1 and below", "div ", {1, 1, 0.2}, 1.0f, {0.6, 0, 0.2}, 3, {1, 0, 0.25}},
        {"hard mix at b = 1", "hMix", {0, 0.4, 0.4}, 1.0f, {1, 0.8, 0.2}, 3, {1, 1, 0}},
        {"divide by zero", "fdiv", {0, 0, 0.8}, 1.0f, {0, 0.2, 0.6}, 3, {0, 1, 0.75}},
        {"darker colour takes s", "dkCl", {0, 0.2, 0}, 1.0f, {1, 1, 1}, 3, {0, 0.2, 0}},
        {"gray source in hue", "hue ", {0.4, 0.4, 0.4, 1}, 1.0f, {0.2, 0.6, 1, 1}, 4, {0.526, 0.526, 0.526, 1}},
        {"colour of red on gray", "colr", {1, 0, 0}, 1.0f, {0.4, 0.4, 0.4}, 3, {1, 1 - 0.6 / 0.701, 1 - 0.6 / 0.701}},
    };
    ForEachImageKind([&](int32_t depth, bool lockable) {
        for (const BlendCase& test : cases) {
            SCOPED_TRACE(test.name);
            const TestImage upper = Uniform(depth, lockable, test.upper), lower = Uniform(depth, !lockable, test.lower);
            const TestImage destination = Uniform(depth, lockable, Pixel(size_t(test.destinationPlanes), 0.8));
            ASSERT_EQ(KXEffectsBlendImagesWithOpacitiesAndMasks(upper, test.upperOpacity, nullptr, lower, 1.0f, nullptr,
                                                                destination, &kBounds, Code(test.mode)),
                      kKXNoErr);
            ExpectUniform(destination, test.expected);
        }
    });
}

// Upper white over lower black, both opaque: the colour is the upper coverage, the alpha the union.
TEST(BlendImages, MasksOfAnyDepthAndTheInvertedType)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        const TestImage upper = Uniform(depth, lockable, {1, 1, 1, 1}), lower = Uniform(depth, lockable, {0, 0, 0, 1});
        const TestImage destination = Uniform(depth, !lockable, {0, 0, 0, 0});
        const auto blend = [&](float opacity, KXImage* upperMask, KXImage* lowerMask) {
            return KXEffectsBlendImagesWithOpacitiesAndMasks(upper, opacity, upperMask, lower, 1, lowerMask,
                                                             destination, &kBounds, Code("norm"));
        };
        for (int32_t maskDepth : kDepths) {
            SCOPED_TRACE(maskDepth);
            ASSERT_EQ(blend(1.0f, Mask(maskDepth, !lockable, 0.4), nullptr), kKXNoErr);
            ExpectUniform(destination, {0.4, 0.4, 0.4, 1});
            ASSERT_EQ(blend(0.5f, Mask(maskDepth, lockable, 0.2, true), nullptr), kKXNoErr);
            ExpectUniform(destination, {0.4, 0.4, 0.4, 1});
            // A lower mask of another depth than the upper one: aL = 0.2, aU = 0.6 x 1, aO = 0.68.
            ASSERT_EQ(blend(0.6f, Mask(maskDepth, lockable, 0, true), Mask(depth == 8 ? 32 : 8, lockable, 0.2)), 0);
            ExpectUniform(destination, {0.6 / 0.68, 0.6 / 0.68, 0.6 / 0.68, 0.68});
        }
    });
}

TEST(BlendImages, RejectsUnknownModesMissingImagesAndWholePixelGray)
{
    const TestImage rgb = Uniform(8, true, {0, 0, 0, 1});
    const TestImage gray = Uniform(8, true, {0.2});
    const uint32_t reversedNormal = Code("norm") & ~0x20000000u;
    EXPECT_EQ(KXEffectsBlendImages(rgb, rgb, rgb, &kBounds, reversedNormal), kKXErrBadParam);
    EXPECT_EQ(KXEffectsBlendImages(rgb, rgb, rgb, &kBounds, Code("none")), kKXErrBadParam);
    EXPECT_EQ(KXEffectsBlendImages(nullptr, rgb, rgb, &kBounds, Code("norm")), kKXErrBadParam);
    EXPECT_EQ(KXEffectsBlendImages(rgb, rgb, rgb, nullptr, Code("norm")), kKXErrBadParam);
    EXPECT_EQ(KXEffectsBlendImages(gray, gray, gray, &kBounds, Code("lum ")), kKXErrUnsupported);
    EXPECT_EQ(KXEffectsBlendImages(gray, rgb, rgb, &kBounds, Code("norm")), kKXErrUnsupported);
}

TEST(MixImages, WeightedSumOfEveryPlane)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        const TestImage first = Uniform(depth, lockable, {1, 0.2, 0, 0.6});
        const TestImage second = Uniform(depth, !lockable, {1, 0.4, 0.8, 0.6});
        const TestImage mixed = Uniform(depth, lockable, {0, 0, 0, 0});
        ASSERT_EQ(KXEffectsMixImages(first, second, mixed, &kBounds, 1.0f, 1.0f), kKXNoErr);
        // Float is limited to 0..1; integers are rounded, not limited, and wrap when stored.
        ExpectUniform(mixed, {depth == 32 ? 1.0 : 2.0, 0.6, 0.8, depth == 32 ? 1.0 : 1.2});
        ASSERT_EQ(KXEffectsMixImages(first, second, mixed, &kBounds, -1.0f, 1.0f), kKXNoErr);
        ExpectUniform(mixed, {0, 0.2, 0.8, 0});
    });
}

TEST(MultiplyMasks, ProductOfCoveragesOfAnyDepthAndType)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        // Six masks, one group of four and a rest of two: 1 x 0.4 x (1 - 0.5) x (1 - 0) x 1 x 1.
        CFMutableArrayRef masks = CFArrayCreateMutable(kCFAllocatorDefault, 0, KXUtilsGetArrayCallbacks());
        for (const auto& [maskDepth, unit, inverted] : {std::tuple{8, 1.0, false},
                                                        {16, 0.4, false},
                                                        {32, 0.5, true},
                                                        {8, 0.0, true},
                                                        {8, 1.0, false},
                                                        {8, 1.0, false}})
            CFArrayAppendValue(masks, Mask(maskDepth, lockable, unit, inverted).get());
        TestImage destination = Mask(depth, !lockable, 0.8);
        ASSERT_EQ(KXEffectsMultiplyMasks(masks, destination, &kBounds), kKXNoErr);
        ExpectUniform(destination, {0.2});
        KXImageSetType(destination, KXImageTypeInvertedMask);
        ASSERT_EQ(KXEffectsMultiplyMasks(masks, destination, &kBounds), kKXNoErr);
        ExpectUniform(destination, {0.8});
        CFRelease(masks);

        CFMutableArrayRef none = CFArrayCreateMutable(kCFAllocatorDefault, 0, KXUtilsGetArrayCallbacks());
        ASSERT_EQ(KXEffectsMultiplyMasks(none, destination, &kBounds), kKXNoErr);
        ExpectUniform(destination, {0});
        // The product is one plane: a wider destination is refused rather than left partly unwritten.
        const TestImage wide = RandomImage(depth, lockable, 5);
        EXPECT_EQ(KXEffectsMultiplyMasks(none, wide, &kBounds), kKXErrUnsupported);
        CFRelease(none);
    });
}

// A rectangle of negative width stands for rows as wide as the image in the views, but covers no pixel: on
// images without a locked buffer nothing may be written back.
TEST(Compositing, NegativeWidthChangesNothing)
{
    const KXRect negative = KXRectMake(kBounds.x + 1, kBounds.y + 1, -1, 2);
    for (int32_t depth : kDepths) {
        SCOPED_TRACE(CaseName(depth, false));
        const TestImage upper = Uniform(depth, false, {0.2, 0.4, 0.6, 1});
        const TestImage lower = Uniform(depth, false, {0.6, 0.4, 0.2, 1});
        const TestImage mask = Mask(depth, false, 0.6);
        TestImage destination = Uniform(depth, false, {0.8, 0.8, 0.8, 0.8});
        TestImage product = Mask(depth, false, 0.8);
        const std::vector<float> before = destination.Samples(), productBefore = product.Samples();
        CFMutableArrayRef masks = CFArrayCreateMutable(kCFAllocatorDefault, 0, KXUtilsGetArrayCallbacks());
        CFArrayAppendValue(masks, mask.get());
        EXPECT_EQ(KXEffectsBlendImages(upper, lower, destination, &negative, Code("norm")), kKXNoErr);
        EXPECT_EQ(KXEffectsBlendImagesWithOpacitiesAndMasks(upper, 1, mask, lower, 1, mask, destination, &negative,
                                                            Code("mul ")),
                  kKXNoErr);
        EXPECT_EQ(KXEffectsMixImages(upper, lower, destination, &negative, 0.5f, 0.5f), kKXNoErr);
        EXPECT_EQ(KXEffectsMultiplyMasks(masks, product, &negative), kKXNoErr);
        CFRelease(masks);
        EXPECT_EQ(destination.Samples(), before);
        EXPECT_EQ(product.Samples(), productBefore);
    }
}

TEST(MakeCompositeImage, FlattensOntoWhiteAndKeepsAlpha)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        for (double alpha : {0.0, 0.2, 1.0}) {
            const TestImage image = Uniform(depth, lockable, {0, 0.6, 1, alpha});
            ASSERT_EQ(KXEffectsMakeCompositeImage(image, &kBounds), kKXNoErr);
            ExpectUniform(image, {1 - alpha, 0.6 * alpha + 1 - alpha, 1, alpha});
        }
    });
}

} // namespace
