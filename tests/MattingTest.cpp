// Matting: brush stamps by every trimap and brush depth, the growth of certain regions worked at single
// pixels, and mattes of a band that mixes two flat colours by a known fraction, under each flag.
#include "TestImages.h"

namespace {

const KXRect kStrip = KXRectMake(2, -1, 6, 1);

// A one-plane image of 8-bit levels in the scale of depth.
TestImage Plane(const KXRect& bounds, int32_t depth, const std::vector<float>& levels, bool lockable = true)
{
    TestImage image(bounds, depth, 1, 0, lockable);
    std::vector<float> samples(levels.size());
    for (size_t i = 0; i < levels.size(); ++i)
        samples[i] = StoredOf(LevelAt(levels[i], depth), depth, true);
    image.SetSamples(samples);
    return image;
}

} // namespace

// Where the brush is not 0, even at its smallest step, the stamp's level; elsewhere the trimap's.
TEST(Matting, SetTrimapStampsTheLevelOfItsFlagsWhereTheBrushIsNotZero)
{
    const struct {
        int32_t flags;
        float level;
    } stamps[] = {{0x1, 255}, {0x2, 0}, {0x0, 127}, {0x101, 127}, {0x100, 63}, {0x3, 255}};
    const std::vector<float> trimap = {0, 40, 127, 255, 90, 0};
    ForEachImageKind([&](int32_t depth, bool lockable) {
        for (int32_t brushDepth : kDepths)
            for (const auto& stamp : stamps) {
                SCOPED_TRACE(std::to_string(brushDepth) + " flags " + std::to_string(stamp.flags));
                const TestImage source = Plane(kStrip, depth, trimap, lockable);
                TestImage brush(kStrip, brushDepth, 1, 0, !lockable);
                const float smallest = brushDepth == 32 ? 1e-6f : 1.0f;
                brush.SetSamples({0, smallest, WhiteOf(brushDepth), 0, 7, 0});
                TestImage destination = Plane(kStrip, depth, std::vector<float>(6, 200), lockable);
                const KXRect rect = KXRectMake(3, -1, 4, 1);
                ASSERT_EQ(KXEffectsSetTrimap(source, destination, brush, &rect, stamp.flags), kKXNoErr);
                const std::vector<float> expected = {200, stamp.level, stamp.level, 255, stamp.level, 200};
                ExpectRegion(destination, kStrip, depth == 32 ? 1e-6f : 0.0f, [&](int32_t x, int32_t, int32_t) {
                    return StoredOf(LevelAt(expected[size_t(x - kStrip.x)], depth), depth, true);
                });
            }
    });
}

// On a 128 x 128 image the reach is 2 (limit 4): a pixel takes the nearest known neighbour within 5/255 of
// its colour, the later scanned of two at one distance, never one beyond the limit or further in colour.
TEST(Matting, ExpandTrimapTakesTheNearestKnownNeighbourOfNearlyTheSameColour)
{
    const KXRect bounds = KXRectMake(0, 0, 128, 128);
    struct Neighbour {
        int32_t dx, dy;
        float level;   // 0 or 255
        float redStep; // levels of red away from the pixel's
    };
    const struct {
        std::vector<Neighbour> neighbours;
        float expected; // the pixel's level after
    } cases[] = {
        {{{1, 1, 0, 0}, {1, 0, 255, 4}}, 255},  // the nearer wins
        {{{0, -1, 0, 0}, {0, 1, 255, 0}}, 255}, // the same distance: below is scanned later
        {{{0, 1, 0, 0}, {0, -1, 255, 0}}, 0},
        {{{-1, 0, 255, 6}}, 128}, // too far in colour
        {{{2, 1, 255, 0}}, 128},  // beyond the limit, though inside the square
        {{{2, 0, 0, 0}, {1, 1, 255, 0}}, 255},
    };
    ForEachImageKind([&](int32_t depth, bool lockable) {
        TestImage image(bounds, depth, 3, 0, lockable);
        KXImageFill(image, 0.0f);
        TestImage trimap = Plane(bounds, depth, std::vector<float>(128 * 128, 128), !lockable);
        const auto colour = [&](float red) {
            return std::vector<float>{LevelAt(120 + red, depth), LevelAt(60, depth), LevelAt(30, depth)};
        };
        for (size_t i = 0; i < std::size(cases); ++i) {
            const int32_t x = 10 + int32_t(i) * 8, y = 20;
            image.Set(x, y, colour(0));
            for (const Neighbour& n : cases[i].neighbours) {
                image.Set(x + n.dx, y + n.dy, colour(n.redStep));
                trimap.Set(x + n.dx, y + n.dy, {LevelAt(n.level, depth)});
            }
        }
        TestImage destination = Plane(bounds, depth, std::vector<float>(128 * 128, 7), lockable);
        int32_t changed = -1;
        ASSERT_EQ(KXEffectsExpandTrimap(image, trimap, destination, &bounds, &changed), kKXNoErr);
        EXPECT_EQ(changed, 4);
        for (size_t i = 0; i < std::size(cases); ++i)
            EXPECT_EQ(destination.At(10 + int32_t(i) * 8, 20, 0), LevelAt(cases[i].expected, depth)) << i;
        EXPECT_EQ(destination.At(100, 100, 0), LevelAt(128, depth));
    });
}

namespace {

const KXRect kBand = KXRectMake(0, 0, 24, 12);
const float kForeground[3] = {0.9f, 0.2f, 0.1f};
const float kBackground[3] = {0.1f, 0.3f, 0.8f};
constexpr float kFraction = 0.35f;

// Columns 0 to 7 foreground, 8 to 15 the mix, 16 to 23 background; the trimap knows the sides.
struct BandScene {
    TestImage image, trimap, destination, matte;

    BandScene(int32_t depth, bool lockable, float foregroundLevel = 255)
        : image(kBand, depth, 4, 1, lockable), trimap(kBand, depth, 1, 0, !lockable),
          destination(kBand, depth, 4, 1, lockable), matte(kBand, depth, 1, 0, lockable)
    {
        for (int32_t x = 0; x < kBand.width; ++x) {
            const float a = x < 8 ? 1.0f : (x < 16 ? kFraction : 0.0f);
            std::vector<float> pixel(4, WhiteOf(depth));
            for (size_t c = 0; c < 3; ++c)
                pixel[c] = StoredOf(a * kForeground[c] + (1 - a) * kBackground[c], depth);
            const float unknown = foregroundLevel == 255 ? 128.0f : 64.0f;
            const float level = x < 8 ? foregroundLevel : (x < 16 ? unknown : 0.0f);
            for (int32_t y = 0; y < kBand.height; ++y) {
                image.Set(x, y, pixel);
                trimap.Set(x, y, {LevelAt(level, depth)});
            }
        }
        KXImageFill(destination, LevelAt(50, depth));
        KXImageFill(matte, LevelAt(200, depth));
    }
    int32_t Solve(int32_t flags, const KXRect& rect = kBand)
    {
        return KXEffectsGenerateMatte(image, trimap, nullptr, destination, matte, &rect, flags, nullptr);
    }
};

float TrueAlpha(int32_t x)
{
    return x < 8 ? 1.0f : (x < 16 ? kFraction : 0.0f);
}

} // namespace

// The band's fraction and the foreground colour come back, at every depth; 0x1 keeps the larger of the new
// and the existing alpha, 0x10 mixes the foreground over the destination by the existing alpha, and 0x100
// reads level 127 as foreground.
TEST(Matting, GenerateMatteRecoversTheFractionAndForegroundOfAMixedBand)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        const float colourTolerance = depth == 32 ? 1e-4f : 2.0f / 255.0f;
        const float existing = 200.0f / 255.0f;
        for (int32_t flags : {0x0, 0x1, 0x10, 0x100, 0x1000000}) {
            SCOPED_TRACE(flags);
            BandScene scene(depth, lockable, flags == 0x100 ? 127.0f : 255.0f);
            ASSERT_EQ(scene.Solve(flags), kKXNoErr);
            const Pixels matte(scene.matte), result(scene.destination), before(scene.image);
            for (int32_t y = 0; y < kBand.height; ++y)
                for (int32_t x = 0; x < kBand.width; ++x) {
                    const float alpha = flags == 0x1 ? std::max(TrueAlpha(x), existing) : TrueAlpha(x);
                    ASSERT_NEAR(UnitOf(matte.At(x, y, 0), depth), alpha, 0.03f) << x << "," << y;
                    const float a = flags == 0x10 ? existing : 1.0f;
                    for (int32_t c = 0; c < 3; ++c) {
                        const float f = x < 16 ? kForeground[c] : UnitOf(before.At(x, y, c), depth);
                        const float mixed = (1 - a) * 50.0f / 255.0f + a * f;
                        ASSERT_NEAR(UnitOf(result.At(x, y, c), depth), mixed, colourTolerance) << x << "," << y;
                    }
                    ASSERT_EQ(result.At(x, y, 3), WhiteOf(depth));
                }
        }
    });
}

// With no known pixel no ray finds a sample: every pixel keeps the sentinel and comes out half transparent
// in its own colour.
TEST(Matting, GenerateMatteWithoutSamplesGivesHalfAlphaAndTheImage)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        BandScene scene(depth, lockable);
        KXImageFill(scene.trimap, LevelAt(128, depth));
        ASSERT_EQ(scene.Solve(0), kKXNoErr);
        ExpectRegion(scene.matte, kBand, 0.0f, [&](int32_t, int32_t, int32_t) { return StoredOf(0.5f, depth); });
        ExpectSameImage(scene.destination, scene.image);
    });
}

// Trimaps and mattes of another sample width or more planes, and gray images, are refused with 1020; an
// empty rectangle writes nothing.
TEST(Matting, RefusalsAndEmptyRectangles)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        BandScene scene(depth, lockable);
        const int32_t other = depth == 8 ? 16 : 8;
        TestImage wide(kBand, other, 1, 0), rgb(kBand, depth, 3, 0), gray(kBand, depth, 1, 0);
        int32_t changed = 0;
        EXPECT_EQ(KXEffectsGenerateMatte(scene.image, wide, nullptr, scene.destination, scene.matte, &kBand, 0,
                                         nullptr),
                  kKXErrUnsupported);
        EXPECT_EQ(KXEffectsGenerateMatte(scene.image, scene.trimap, nullptr, scene.destination, wide, &kBand, 0,
                                         nullptr),
                  kKXErrUnsupported);
        EXPECT_EQ(KXEffectsGenerateMatte(scene.image, scene.trimap, rgb, scene.destination, scene.matte, &kBand, 0,
                                         nullptr),
                  kKXErrUnsupported);
        EXPECT_EQ(KXEffectsGenerateMatte(gray, scene.trimap, nullptr, gray, scene.matte, &kBand, 0, nullptr),
                  kKXErrUnsupported);
        EXPECT_EQ(KXEffectsExpandTrimap(scene.image, rgb, scene.matte, &kBand, &changed), kKXErrUnsupported);
        EXPECT_EQ(KXEffectsExpandTrimap(scene.image, scene.trimap, wide, &kBand, &changed), kKXErrUnsupported);

        const std::vector<float> matte = scene.matte.Samples(), destination = scene.destination.Samples();
        for (const KXRect& empty : {KXRectMake(3, 3, 0, 5), KXRectMake(3, 3, 5, 0)}) {
            ASSERT_EQ(scene.Solve(0x11, empty), kKXNoErr);
            ASSERT_EQ(KXEffectsSetTrimap(scene.trimap, scene.matte, scene.trimap, &empty, 1), kKXNoErr);
            ASSERT_EQ(KXEffectsExpandTrimap(scene.image, scene.trimap, scene.matte, &empty, &changed), kKXNoErr);
            EXPECT_EQ(changed, 0);
        }
        EXPECT_EQ(scene.matte.Samples(), matte);
        EXPECT_EQ(scene.destination.Samples(), destination);
    });
}
