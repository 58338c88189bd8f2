// Compositing: layers under modes, opacities, masks and alpha; mixing, gains, mask products, flattening.
#include "TestImages.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

// Width 9 leaves a tail after any block of 8; the rectangle leaves the first column alone.
const KXRect kBounds = KXRectMake(-4, 20, 9, 3);
const KXRect kRect = KXRectMake(-3, 20, 8, 3);

using Pixel = std::vector<double>;

uint32_t Code(const char* text)
{
    return uint32_t(uint8_t(text[0])) << 24 | uint32_t(uint8_t(text[1])) << 16 | uint32_t(uint8_t(text[2])) << 8 |
           uint32_t(uint8_t(text[3]));
}

// Test values are multiples of 0.2, which 255 and 65535 hold exactly; float keeps any value.
float RawOf(double unit, int32_t depth)
{
    return depth == 32 ? float(unit) : float(std::lround(unit * WhiteOf(depth)));
}

// An image of one pixel value everywhere; transparency 1 when the pixel has four or two planes.
TestImage Uniform(int32_t depth, bool lockable, const Pixel& unit, int32_t transparency = -1)
{
    const int32_t planes = int32_t(unit.size());
    TestImage image(kBounds, depth, planes, transparency >= 0 ? transparency : planes % 2 == 0, lockable);
    std::vector<float> samples;
    for (int32_t i = 0; i < kBounds.width * kBounds.height; ++i)
        for (double value : unit)
            samples.push_back(RawOf(value, depth));
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

// The stored form of a unit value: white x v + 0.5, truncated and wrapped, for integers.
void ExpectStored(float actual, double unit, int32_t depth)
{
    if (depth == 32) {
        EXPECT_NEAR(actual, unit, 2e-6);
        return;
    }
    const int64_t value = int64_t(unit * WhiteOf(depth) + 0.5);
    EXPECT_EQ(actual, float(value & (depth == 8 ? 0xff : 0xffff))) << "unit " << unit;
}

// Every pixel of rect holds inside (unit values), every other pixel outside (raw samples).
void ExpectImage(const TestImage& image, const KXRect& rect, const Pixel& inside, const std::vector<float>& outside)
{
    for (int32_t y = kBounds.y; y < kBounds.y + kBounds.height; ++y)
        for (int32_t x = kBounds.x; x < kBounds.x + kBounds.width; ++x)
            for (int32_t plane = 0; plane < int32_t(inside.size()); ++plane) {
                SCOPED_TRACE("x " + std::to_string(x) + " y " + std::to_string(y) + " plane " + std::to_string(plane));
                if (KXPointInRect(KXPointMake(x, y), &rect))
                    ExpectStored(image.At(x, y, plane), inside[size_t(plane)], image.Depth());
                else
                    EXPECT_EQ(image.At(x, y, plane), outside[size_t(plane)]);
            }
}

std::vector<float> RawPixel(const TestImage& image)
{
    std::vector<float> pixel;
    for (int32_t plane = 0; plane < image.Planes(); ++plane)
        pixel.push_back(image.At(kBounds.x, kBounds.y, plane));
    return pixel;
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

void RunBlendCase(const BlendCase& test, int32_t depth, bool lockable)
{
    SCOPED_TRACE(CaseName(depth, lockable, test.name));
    const TestImage upper = Uniform(depth, lockable, test.upper);
    const TestImage lower = Uniform(depth, !lockable, test.lower);
    const TestImage destination = Uniform(depth, lockable, Pixel(size_t(test.destinationPlanes), 0.8));
    const std::vector<float> before = RawPixel(destination);
    ASSERT_EQ(KXEffectsBlendImagesWithOpacitiesAndMasks(upper, test.upperOpacity, nullptr, lower, 1.0f, nullptr,
                                                        destination, &kRect, Code(test.mode)),
              kKXNoErr);
    ExpectImage(destination, kRect, test.expected, before);
}

TEST(BlendImages, AlphaOfBothLayersDecidesTheMix)
{
    const BlendCase cases[] = {
        {"both opaque", "norm", {1, 0.2, 0, 1}, 1.0f, {0, 0.4, 1, 1}, 4, {1, 0.2, 0, 1}},
        {"quarter opacity", "norm", {1, 0.2, 0, 1}, 0.25f, {0, 0.4, 1, 1}, 4, {0.25, 0.35, 0.75, 1}},
        {"transparent lower ignores the mode", "mul ", {1, 0.2, 0, 1}, 0.6f, {0, 0.4, 1, 0}, 4, {1, 0.2, 0, 0.6}},
        {"transparent upper", "scrn", {1, 0.2, 0, 0}, 1.0f, {0, 0.4, 1, 0.6}, 4, {0, 0.4, 1, 0.6}},
        {"both transparent keep the lower colour", "scrn", {1, 1, 1, 0}, 1.0f, {0.2, 0.4, 0.6, 0}, 4,
         {0.2, 0.4, 0.6, 0}},
        {"upper without alpha counts as opaque", "norm", {1, 0.2, 0}, 1.0f, {0, 0.4, 1, 0}, 4, {1, 0.2, 0, 1}},
        {"destination without alpha", "norm", {1, 0.2, 0, 1}, 0.25f, {0, 0.4, 1}, 3, {0.25, 0.35, 0.75}},
        {"half rounds up", "norm", {1, 1, 1, 1}, 0.5f, {0, 0, 0, 1}, 4, {0.5, 0.5, 0.5, 1}},
        {"nothing clamped, integers wrap", "norm", {1, 1, 0, 1}, 2.0f, {0, 0, 0, 1}, 4, {2, 2, 0, 1}},
        {"gray with alpha", "scrn", {0.2, 1}, 1.0f, {0.4, 1}, 2, {0.52, 1}},
    };
    ForEachImageKind([&](int32_t depth, bool lockable) {
        for (const BlendCase& test : cases)
            RunBlendCase(test, depth, lockable);
    });
}

TEST(BlendImages, ModesAtTheirBranchesAndKnownValues)
{
    const BlendCase cases[] = {
        {"multiply", "mul ", {0.2, 1, 0.6}, 1.0f, {0.4, 0.6, 1}, 3, {0.08, 0.6, 0.6}},
        {"screen", "scrn", {0.2, 0.4, 0}, 1.0f, {0.4, 0.4, 1}, 3, {0.52, 0.64, 1}},
        {"colour dodge at s = 1 and below", "div ", {1, 1, 0.2}, 1.0f, {0.6, 0, 0.2}, 3, {1, 0, 0.25}},
        {"colour burn at s = 0 and above", "idiv", {0, 0, 0.8}, 1.0f, {1, 0.6, 0.8}, 3, {1, 0, 0.75}},
        {"vivid light at its ends and burn", "vLit", {0, 1, 0.4}, 1.0f, {1, 0, 0.8}, 3, {0, 1, 0.75}},
        {"hard mix at b = 1", "hMix", {0, 0.4, 0.4}, 1.0f, {1, 0.8, 0.2}, 3, {1, 1, 0}},
        {"limits of the linear modes", "lbrn", {0.4, 1, 0.8}, 1.0f, {0.2, 0.6, 0.8}, 3, {0, 0.6, 0.6}},
        {"linear dodge", "lddg", {0.6, 0.2, 0}, 1.0f, {0.8, 0.2, 0}, 3, {1, 0.4, 0}},
        {"difference both ways", "diff", {0.8, 0.2, 1}, 1.0f, {0.2, 0.8, 1}, 3, {0.6, 0.6, 0}},
        {"divide by zero", "fdiv", {0, 0, 0.8}, 1.0f, {0, 0.2, 0.6}, 3, {0, 1, 0.75}},
        {"subtract", "fsub", {0.4, 0.2, 0}, 1.0f, {0.2, 0.6, 1}, 3, {0, 0.4, 1}},
        {"darker colour takes s", "dkCl", {0, 0.2, 0}, 1.0f, {1, 1, 1}, 3, {0, 0.2, 0}},
        {"lighter colour keeps b", "lgCl", {0, 0.2, 0}, 1.0f, {1, 1, 1}, 3, {1, 1, 1}},
        {"luminosity of black", "lum ", {0, 0, 0}, 1.0f, {0.2, 0.6, 1}, 3, {0, 0, 0}},
        {"gray source in hue", "hue ", {0.4, 0.4, 0.4, 1}, 1.0f, {0.2, 0.6, 1, 1}, 4, {0.526, 0.526, 0.526, 1}},
        {"gray backdrop in saturation", "sat ", {1, 0, 0}, 1.0f, {0.6, 0.6, 0.6}, 3, {0.6, 0.6, 0.6}},
        {"colour of red on gray", "colr", {1, 0, 0}, 1.0f, {0.4, 0.4, 0.4}, 3,
         {1, 1 - 0.6 / 0.701, 1 - 0.6 / 0.701}},
        {"per-plane mode on gray", "mul ", {0.4}, 1.0f, {0.6}, 1, {0.24}},
    };
    ForEachImageKind([&](int32_t depth, bool lockable) {
        for (const BlendCase& test : cases)
            RunBlendCase(test, depth, lockable);
    });
}

TEST(BlendImages, FloatOutsideTheUnitRangePassesThrough)
{
    for (bool lockable : kLockable) {
        const TestImage upper = Uniform(32, lockable, {1.5, -0.25, 0.5});
        const TestImage lower = Uniform(32, lockable, {0.2, 0.2, 0.2, 0});
        const TestImage destination = Uniform(32, !lockable, {0, 0, 0, 0});
        ASSERT_EQ(KXEffectsBlendImages(upper, lower, destination, &kBounds, Code("mul ")), kKXNoErr);
        ExpectImage(destination, kBounds, {1.5, -0.25, 0.5, 1}, {});
        // Nothing covers the pixel: the lower colour stays as it was, here in place.
        const TestImage clear = Uniform(32, lockable, {1, 1, 1, 0});
        const TestImage both = Uniform(32, lockable, {1.4, -0.2, 0.4, 0});
        ASSERT_EQ(KXEffectsBlendImages(clear, both, both, &kBounds, Code("scrn")), kKXNoErr);
        ExpectImage(both, kBounds, {1.4, -0.2, 0.4, 0}, {});
    }
}

// Upper white over lower black, both opaque: the colour is the upper coverage, the alpha the union.
TEST(BlendImages, MasksOfAnyDepthAndTheInvertedType)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        const TestImage upper = Uniform(depth, lockable, {1, 1, 1, 1});
        const TestImage lower = Uniform(depth, lockable, {0, 0, 0, 1});
        for (int32_t maskDepth : kDepths) {
            SCOPED_TRACE(CaseName(depth, lockable) + "mask depth " + std::to_string(maskDepth));
            const TestImage destination = Uniform(depth, !lockable, {0, 0, 0, 0});
            const TestImage upperMask = Mask(maskDepth, !lockable, 0.4);
            ASSERT_EQ(KXEffectsBlendImagesWithOpacitiesAndMasks(upper, 1.0f, upperMask, lower, 1.0f, nullptr,
                                                                destination, &kBounds, Code("norm")),
                      kKXNoErr);
            ExpectImage(destination, kBounds, {0.4, 0.4, 0.4, 1}, {});

            const TestImage inverted = Mask(maskDepth, lockable, 0.2, true);
            ASSERT_EQ(KXEffectsBlendImagesWithOpacitiesAndMasks(upper, 0.5f, inverted, lower, 1.0f, nullptr,
                                                                destination, &kBounds, Code("norm")),
                      kKXNoErr);
            ExpectImage(destination, kBounds, {0.4, 0.4, 0.4, 1}, {});

            // A lower mask of another depth than the upper one: aL = 0.2, aU = 0.6 x 1, aO = 0.68.
            const TestImage lowerMask = Mask(depth == 8 ? 32 : 8, lockable, 0.2);
            const TestImage fullUpper = Mask(maskDepth, lockable, 0, true);
            ASSERT_EQ(KXEffectsBlendImagesWithOpacitiesAndMasks(upper, 0.6f, fullUpper, lower, 1.0f, lowerMask,
                                                                destination, &kBounds, Code("norm")),
                      kKXNoErr);
            ExpectImage(destination, kBounds, {0.6 / 0.68, 0.6 / 0.68, 0.6 / 0.68, 0.68}, {});
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
        SCOPED_TRACE(CaseName(depth, lockable));
        TestImage random(kBounds, depth, 4, 1, lockable);
        random.FillRandom(7);
        const TestImage destination = Uniform(depth, !lockable, {0, 0, 0, 0});
        ASSERT_EQ(KXEffectsMixImages(random, random, destination, &kBounds, 0.5f, 0.5f), kKXNoErr);
        EXPECT_EQ(destination.Samples(), random.Samples());

        const TestImage first = Uniform(depth, lockable, {1, 0.2, 0, 0.6});
        const TestImage second = Uniform(depth, !lockable, {1, 0.4, 0.8, 0.6});
        const TestImage mixed = Uniform(depth, lockable, {0, 0, 0, 0});
        const std::vector<float> before = RawPixel(mixed);
        ASSERT_EQ(KXEffectsMixImages(first, second, mixed, &kRect, 1.0f, 1.0f), kKXNoErr);
        // Float is limited to 0..1; integers are rounded, not limited, and wrap when stored.
        ExpectImage(mixed, kRect, {depth == 32 ? 1.0 : 2.0, 0.6, 0.8, depth == 32 ? 1.0 : 1.2}, before);
        ASSERT_EQ(KXEffectsMixImages(first, second, mixed, &kRect, -1.0f, 1.0f), kKXNoErr);
        ExpectImage(mixed, kRect, {0, 0.2, 0.8, 0}, before);
        if (depth == 32) {
            ASSERT_EQ(KXEffectsMixImages(first, second, mixed, &kRect, -2.0f, 1.0f), kKXNoErr);
            ExpectImage(mixed, kRect, {0, 0, 0.8, 0}, before);
        }
    });
}

TEST(MultiplyValues, GainAboutPivotLimitedAndAlphaKept)
{
    const float pivots[] = {0.5f, 0.0f, 0.2f};
    const float factors[] = {2.0f, 2.0f, 0.0f};
    ForEachImageKind([&](int32_t depth, bool lockable) {
        SCOPED_TRACE(CaseName(depth, lockable));
        const TestImage source = Uniform(depth, lockable, {0.8, 0.2, 1, 0.4});
        const TestImage destination = Uniform(depth, !lockable, {0, 0, 0, 0});
        const std::vector<float> before = RawPixel(destination);
        ASSERT_EQ(KXEffectsMultiplyValues(source, destination, &kRect, pivots, factors), kKXNoErr);
        ExpectImage(destination, kRect, {1, 0.4, 0.2, 0.4}, before);
        const TestImage low = Uniform(depth, lockable, {0.2, 0.6, 0});
        ASSERT_EQ(KXEffectsMultiplyValues(low, low, &kBounds, pivots, factors), kKXNoErr);
        ExpectImage(low, kBounds, {0, 1, 0.2}, {});
    });
    EXPECT_EQ(KXEffectsMultiplyValues(Uniform(8, true, {0}), Uniform(8, true, {0}), &kBounds, nullptr, factors),
              kKXErrBadParam);
}

CFMutableArrayRef MaskArray(const std::vector<const TestImage*>& masks)
{
    CFMutableArrayRef array = CFArrayCreateMutable(kCFAllocatorDefault, 0, KXUtilsGetArrayCallbacks());
    for (const TestImage* mask : masks)
        CFArrayAppendValue(array, mask->get());
    return array;
}

TEST(MultiplyMasks, ProductOfCoveragesOfAnyDepthAndType)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        SCOPED_TRACE(CaseName(depth, lockable));
        const TestImage full8 = Mask(8, lockable, 1);
        const TestImage twoFifths16 = Mask(16, !lockable, 0.4);
        const TestImage invertedHalf = Mask(32, lockable, 0.5, true);
        const TestImage invertedNone8 = Mask(8, !lockable, 0, true);
        // Six masks: one group of four and a rest of two.
        CFMutableArrayRef masks = MaskArray({&full8, &twoFifths16, &invertedHalf, &invertedNone8, &full8, &full8});
        TestImage destination = Mask(depth, !lockable, 0.8);
        const std::vector<float> before = RawPixel(destination);
        ASSERT_EQ(KXEffectsMultiplyMasks(masks, destination, &kRect), kKXNoErr);
        ExpectImage(destination, kRect, {0.2}, before);
        KXImageSetType(destination, KXImageTypeInvertedMask);
        ASSERT_EQ(KXEffectsMultiplyMasks(masks, destination, &kRect), kKXNoErr);
        ExpectImage(destination, kRect, {0.8}, before);
        CFRelease(masks);

        CFMutableArrayRef none = MaskArray({});
        ASSERT_EQ(KXEffectsMultiplyMasks(none, destination, &kBounds), kKXNoErr);
        ExpectImage(destination, kBounds, {0}, {});
        CFRelease(none);
    });
}

// A rectangle of negative width stands for rows as wide as the image in the views, but covers no pixel: on
// images without a locked buffer nothing may be written back.
TEST(Compositing, NegativeWidthChangesNothing)
{
    const KXRect negative = KXRectMake(kRect.x, kRect.y, -1, kRect.height);
    for (int32_t depth : kDepths) {
        SCOPED_TRACE(CaseName(depth, false));
        const TestImage upper = Uniform(depth, false, {0.2, 0.4, 0.6, 1});
        const TestImage lower = Uniform(depth, false, {0.6, 0.4, 0.2, 1});
        const TestImage mask = Mask(depth, false, 0.6);
        TestImage destination = Uniform(depth, false, {0.8, 0.8, 0.8, 0.8});
        TestImage product = Mask(depth, false, 0.8);
        const std::vector<float> before = destination.Samples(), productBefore = product.Samples();
        CFMutableArrayRef masks = MaskArray({&mask, &mask});
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
        SCOPED_TRACE(CaseName(depth, lockable));
        for (double alpha : {0.0, 0.2, 1.0}) {
            const TestImage image = Uniform(depth, lockable, {0, 0.6, 1, alpha});
            const std::vector<float> before = RawPixel(image);
            ASSERT_EQ(KXEffectsMakeCompositeImage(image, &kRect), kKXNoErr);
            ExpectImage(image, kRect, {1 - alpha, 0.6 * alpha + 1 - alpha, 1, alpha}, before);
        }
        const TestImage gray = Uniform(depth, lockable, {0.2, 0.6});
        ASSERT_EQ(KXEffectsMakeCompositeImage(gray, &kBounds), kKXNoErr);
        ExpectImage(gray, kBounds, {0.2 * 0.6 + 0.4, 0.6}, {});
        const TestImage opaque = Uniform(depth, lockable, {0.2, 0.4, 0.6});
        ASSERT_EQ(KXEffectsMakeCompositeImage(opaque, &kBounds), kKXNoErr);
        ExpectImage(opaque, kBounds, {0.2, 0.4, 0.6}, {});
    });
}

} // namespace
