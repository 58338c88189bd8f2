// Gaussian blurs: the true blur against OpenCV's separable filter, the fast blur as three boxes, the 30 mode
// codes and their failures, the switch at 10.0 and the host's tiles.
#include "BlurTestImages.h"
#include "KXEffectsBlendModes.h"
#include "KXEffectsGaussianBlur.h"

#include <opencv2/imgproc.hpp>

#include <cmath>
#include <string>

namespace {

const KXRect kBounds = KXRectMake(-5, 4, 23, 17);

// The sampled gaussian of the true blur: exp(i^2 c), c = -1 / (2 radius^2), normalised by a double sum.
std::vector<float> GaussianTaps(float radius)
{
    const int32_t h = TrueGaussianHalfWidth(radius);
    const float c = -1.0f / (radius * 2.0f * radius);
    std::vector<float> taps;
    double sum = 0.0;
    for (int32_t i = -h; i <= h; ++i) {
        taps.push_back(std::exp(float(i * i) * c));
        sum += taps.back();
    }
    const float normaliser = 1.0f / float(sum);
    for (float& tap : taps)
        tap *= normaliser;
    return taps;
}

// OpenCV's separable convolution of the whole image with the same taps and replicated borders, raw scale.
std::vector<float> SeparableReference(const TestImage& image, float radius)
{
    std::vector<float> samples = image.Samples();
    const cv::Mat in(image.Height(), image.Width(), CV_32FC(image.Planes()), samples.data());
    const std::vector<float> taps = GaussianTaps(radius);
    const cv::Mat kernel(1, int(taps.size()), CV_32F, const_cast<float*>(taps.data()));
    cv::Mat out;
    cv::sepFilter2D(in, out, CV_32F, kernel, kernel, cv::Point(-1, -1), 0, cv::BORDER_REPLICATE);
    return std::vector<float>(out.ptr<float>(), out.ptr<float>() + samples.size());
}

TEST(GaussianBlurTrue, MatchesOpenCVSeparableFilterMixedByAmount)
{
    EXPECT_EQ(GaussianTaps(0.2f).size(), 3u);
    ForEachImageKind([](int32_t depth, bool lockable) {
        for (float radius : {0.2f, 1.0f, 2.5f})
            for (int32_t planes : {4, 1}) {
                SCOPED_TRACE(CaseName(depth, lockable, std::to_string(radius).c_str()));
                const TestImage source = RandomImage(depth, lockable, planes, kBounds, 3);
                const TestImage destination = RandomImage(depth, lockable, planes, kBounds, 4);
                const Pixels in(source), before(destination);
                const KXRect rect = KXRectMake(-7, 6, 20, 18);
                ASSERT_EQ(KXEffectsGaussianBlurTrueWithAmount(source, destination, &rect, radius, 0.7f), 0);
                const std::vector<float> blurred = SeparableReference(source, radius);
                const float keep = 1.0f - 0.7f;
                ExpectImage(destination, before, rect, depth == 32 ? 1e-5f : 1.0f, [&](int32_t x, int32_t y, int32_t p) {
                    const float s = in.At(x, y, p);
                    const float v = blurred[(size_t(y - kBounds.y) * kBounds.width + (x - kBounds.x)) * planes + p];
                    return p == 3 ? s : StoreSample(depth, s * keep + v * 0.7f);
                });
            }
    });
}

TEST(GaussianBlurFast, IsThreeBoxesOfTheDerivedRadii)
{
    const std::pair<float, FastGaussianRadii> examples[] = {
        {1.0f, {2, 0}}, {2.0f, {3, 1}}, {5.0f, {5, 4}}, {20.0f, {19, 18}}, {100.0f, {93, 90}}, {0.4f, {1, 0}}};
    for (const auto& [radius, radii] : examples) {
        EXPECT_EQ(FastGaussianRadiiOf(radius).first, radii.first) << radius;
        EXPECT_EQ(FastGaussianRadiiOf(radius).second, radii.second) << radius;
    }
    const KXRect bounds = KXRectMake(2, 3, 30, 24);
    ForEachImageKind([&](int32_t depth, bool lockable) {
        SCOPED_TRACE(CaseName(depth, lockable));
        const TestImage source = RandomImage(depth, lockable, 4, bounds, 5);
        for (float radius : {2.0f, 5.0f}) {
            const FastGaussianRadii radii = FastGaussianRadiiOf(radius);
            const TestImage fast(bounds, depth, 4, 1, lockable), first(bounds, depth, 4, 1, lockable),
                boxes(bounds, depth, 4, 1, lockable);
            ASSERT_EQ(KXEffectsGaussianBlurFast(source, fast, &bounds, radius), 0);
            ASSERT_EQ(KXEffectsBoxBlur(source, first, &bounds, radii.first), 0);
            ASSERT_EQ(KXEffectsBoxBlur(first, boxes, &bounds, radii.second), 0);
            ASSERT_EQ(KXEffectsBoxBlur(boxes, boxes, &bounds, radii.second), 0);
            // Only 2r from the edges do the chained boxes read what the fast blur's larger temporary holds.
            const KXRect inner = KXRectOutset(&bounds, -2 * radii.second);
            const Pixels want(boxes);
            ExpectRegion(fast, inner, depth == 32 ? 1e-6f : 0.0f,
                         [&](int32_t x, int32_t y, int32_t p) { return want.At(x, y, p); });
        }
        // Below 1.1: one box of radius q at full strength, whatever the amount and mode, alpha 0.
        const TestImage small(bounds, depth, 4, 1, lockable), box(bounds, depth, 4, 1, lockable);
        ASSERT_EQ(KXEffectsGaussianBlurFastWithAmountAndMode(source, small, &bounds, 0.4f, 0.5f, FourCharCode("scrn")), 0);
        ASSERT_EQ(KXEffectsBoxBlur(source, box, &bounds, 1), 0);
        const Pixels boxed(box);
        ExpectImage(small, boxed, bounds, 0.0f,
                    [&](int32_t x, int32_t y, int32_t p) { return p == 3 ? 0.0f : boxed.At(x, y, p); });
        ASSERT_EQ(KXEffectsGaussianBlurFastWithAmount(source, small, &bounds, 0.1f, 0.5f), 0);
        EXPECT_EQ(small.Samples(), source.Samples());
    });
}

struct ModeCase {
    uint32_t code;
    float (*blend)(float b, float s);
    bool reversed;
};

const ModeCase kModes[] = {
    {FourCharCode("over"), BlendOverlay::Plane, false},     {FourCharCode("scrn"), BlendScreen::Plane, false},
    {FourCharCode("mul "), BlendMultiply::Plane, false},    {FourCharCode("dark"), BlendDarken::Plane, false},
    {FourCharCode("lite"), BlendLighten::Plane, false},     {FourCharCode("diff"), BlendDifference::Plane, false},
    {FourCharCode("smud"), BlendExclusion::Plane, false},   {FourCharCode("div "), BlendColorDodge::Plane, false},
    {FourCharCode("vidi"), BlendColorBurn::Plane, false},   {FourCharCode("lbrn"), BlendLinearBurn::Plane, false},
    {FourCharCode("lddg"), BlendLinearDodge::Plane, false}, {FourCharCode("till"), BlendLinearLight::Plane, false},
    {FourCharCode("hLit"), BlendHardLight::Plane, false},   {FourCharCode("sLit"), BlendSoftLight::Plane, false},
    {FourCharCode("vLit"), BlendVividLight::Plane, false},  {FourCharCode("pLit"), BlendPinLight::Plane, false},
    {FourCharCode("hMix"), BlendHardMix::Plane, false},     {FourCharCode("fsub"), BlendSubtract::Plane, false},
    {FourCharCode("fdiv"), BlendDivide::Plane, false},      {FourCharCode("Over"), BlendOverlay::Plane, true},
    {FourCharCode("HLit"), BlendHardLight::Plane, true},    {FourCharCode("SLit"), BlendSoftLight::Plane, true},
    {FourCharCode("Div "), BlendColorDodge::Plane, true},   {FourCharCode("Vidi"), BlendColorBurn::Plane, true},
    {FourCharCode("VLit"), BlendVividLight::Plane, true},   {FourCharCode("Till"), BlendLinearLight::Plane, true},
    {FourCharCode("HMix"), BlendHardMix::Plane, true},      {FourCharCode("FSub"), BlendSubtract::Plane, true},
    {FourCharCode("FDiv"), BlendDivide::Plane, true}};

using BlurWithMode = int32_t (*)(KXImage*, KXImage*, const KXRect*, float, float, uint32_t);

// Samples between 0.2 and 0.8 of white, away from the poles of the dividing modes.
TestImage MidRangeImage(int32_t depth, bool lockable, const KXRect& bounds)
{
    TestImage image = RandomImage(depth, lockable, 4, bounds, 6);
    std::vector<float> samples = image.Samples();
    for (float& sample : samples)
        sample = depth == 32 ? 0.2f + 0.6f * sample : std::round(0.2f * WhiteOf(depth) + 0.6f * sample);
    image.SetSamples(samples);
    return image;
}

std::string CodeText(uint32_t code)
{
    return {char(code >> 24), char(code >> 16), char(code >> 8), char(code)};
}

// Each mode at amount 0.6 against base (1 - amount) + blend amount over region, base the sample and top(x, y,
// p) the blurred value, both in 0..1; alpha is the source's.
template <class Top>
void ExpectModes(const TestImage& source, BlurWithMode blur, float radius, const KXRect& region, float tolerance,
                 Top&& top)
{
    const Pixels in(source);
    const int32_t depth = source.Depth();
    const float white = WhiteOf(depth), amount = 0.6f, keep = 1.0f - amount;
    const KXRect bounds = source.Bounds();
    for (const ModeCase& mode : kModes) {
        SCOPED_TRACE(CodeText(mode.code));
        const TestImage out(bounds, depth, 4, 1);
        const bool divide = mode.code == FourCharCode("fdiv") || mode.code == FourCharCode("FDiv");
        ASSERT_EQ(blur(source, out, &bounds, radius, amount, mode.code), divide ? kKXErrBadParam : kKXNoErr);
        ExpectRegion(out, region, tolerance, [&](int32_t x, int32_t y, int32_t p) {
            const float base = in.At(x, y, p) * (1.0f / white), blurred = top(x, y, p);
            const float blend = mode.reversed ? mode.blend(blurred, base) : mode.blend(base, blurred);
            return p == 3 ? in.At(x, y, p) : StoreSample(depth, (base * keep + blend * amount) * white);
        });
    }
}

TEST(GaussianBlur, ModesBlendTheBlurredValueWithTheSample)
{
    const KXRect bounds = KXRectMake(1, 1, 14, 11);
    ForEachImageKind([&](int32_t depth, bool lockable) {
        SCOPED_TRACE(CaseName(depth, lockable));
        const TestImage source = MidRangeImage(depth, lockable, bounds);
        const float white = WhiteOf(depth);
        // True blur: the top is the float blur of the sample in 0..1.
        TestImage unit(bounds, 32, 4, 1);
        std::vector<float> samples = source.Samples();
        for (float& sample : samples)
            sample *= 1.0f / white;
        unit.SetSamples(samples);
        ASSERT_EQ(KXEffectsGaussianBlurTrue(unit, unit, &bounds, 1.5f), 0);
        const Pixels trueTop(unit);
        ExpectModes(source, KXEffectsGaussianBlurTrueWithAmountAndMode, 1.5f, bounds, depth == 32 ? 1e-6f : 1.0f,
                    [&](int32_t x, int32_t y, int32_t p) { return trueTop.At(x, y, p); });
        // Fast blur at radius 2.5 (q 3, r 2): the top is the mean of the second box's result over radius 2.
        const TestImage boxes(bounds, depth, 4, 1, lockable);
        ASSERT_EQ(KXEffectsBoxBlur(source, boxes, &bounds, 3), 0);
        ASSERT_EQ(KXEffectsBoxBlur(boxes, boxes, &bounds, 2), 0);
        const Pixels second(boxes);
        ExpectModes(source, KXEffectsGaussianBlurFastWithAmountAndMode, 2.5f, KXRectOutset(&bounds, -4),
                    depth == 32 ? 1e-6f : 0.0f, [&](int32_t x, int32_t y, int32_t p) {
                        double sum = 0.0;
                        for (int32_t v = y - 2; v <= y + 2; ++v)
                            for (int32_t u = x - 2; u <= x + 2; ++u)
                                sum += second.At(u, v, p);
                        return float(sum) * (1.0f / 25.0f / white);
                    });
    });
}

TEST(GaussianBlur, UnknownModesFailAndOnlyTheFastBlurLogs)
{
    std::vector<std::pair<int32_t, std::string>> events;
    KXLogSetEventHandler(
        [](int32_t code, const char* file, int32_t, void* user) {
            static_cast<std::vector<std::pair<int32_t, std::string>>*>(user)->emplace_back(code, file);
        },
        &events);
    ForEachImageKind([&](int32_t depth, bool lockable) {
        SCOPED_TRACE(CaseName(depth, lockable));
        const TestImage source = RandomImage(depth, lockable, 4, kBounds, 7);
        TestImage destination = RandomImage(depth, lockable, 4, kBounds, 8);
        const std::vector<float> before = destination.Samples();
        for (uint32_t code : {FourCharCode("idiv"), FourCharCode("llit"), FourCharCode("Norm"), FourCharCode("Mul "),
                              FourCharCode("PLit"), FourCharCode("blur")}) {
            SCOPED_TRACE(CodeText(code));
            events.clear();
            EXPECT_EQ(KXEffectsGaussianBlurTrueWithAmountAndMode(source, destination, &kBounds, 2.0f, 1.0f, code),
                      kKXErrBadParam);
            EXPECT_TRUE(events.empty());
            EXPECT_EQ(KXEffectsGaussianBlurFastWithAmountAndMode(source, destination, &kBounds, 15.0f, 1.0f, code),
                      kKXErrBadParam);
            ASSERT_EQ(events.size(), 1u);
            EXPECT_EQ(events[0], std::make_pair(int32_t(kKXErrBadParam), std::string("Source/Common/KXEffects/KXEffectsBoxBlur")));
            EXPECT_EQ(destination.Samples(), before);
            // Nothing to blur: a copy, whatever the code.
            EXPECT_EQ(KXEffectsGaussianBlurWithAmountAndMode(source, destination, &kBounds, 3.0f, 0.0f, code), 0);
            EXPECT_EQ(destination.Samples(), source.Samples());
            destination.SetSamples(before);
        }
        // "fdiv" and "FDiv" write the whole result and still report an unknown mode; the fast blur logs it.
        events.clear();
        EXPECT_EQ(KXEffectsGaussianBlurTrueWithAmountAndMode(source, destination, &kBounds, 2.0f, 1.0f,
                                                             FourCharCode("fdiv")), kKXErrBadParam);
        EXPECT_TRUE(events.empty());
        EXPECT_EQ(KXEffectsGaussianBlurFastWithAmountAndMode(source, destination, &kBounds, 15.0f, 1.0f,
                                                             FourCharCode("FDiv")), kKXErrBadParam);
        EXPECT_EQ(events.size(), 1u);
    });
    KXLogSetEventHandler(nullptr, nullptr);
}

TEST(GaussianBlur, FrontDoorSwitchesAtTenAndCopiesWithoutTaps)
{
    EXPECT_EQ(GaussianBlurOutset(0.19f), 0);
    EXPECT_EQ(GaussianBlurOutset(0.2f), 1);
    EXPECT_EQ(GaussianBlurOutset(9.9f), 25);
    EXPECT_EQ(GaussianBlurOutset(10.0f), 27);
    ForEachImageKind([](int32_t depth, bool lockable) {
        SCOPED_TRACE(CaseName(depth, lockable));
        const TestImage source = RandomImage(depth, lockable, 4, kBounds, 9);
        using Blur = int32_t (*)(KXImage*, KXImage*, const KXRect*, float);
        for (const auto& [radius, alone] : {std::pair<float, Blur>{9.999f, KXEffectsGaussianBlurTrue},
                                            std::pair<float, Blur>{10.0f, KXEffectsGaussianBlurFast}}) {
            const TestImage front(kBounds, depth, 4, 1, lockable), direct(kBounds, depth, 4, 1, lockable);
            ASSERT_EQ(KXEffectsGaussianBlur(source, front, &kBounds, radius), 0);
            ASSERT_EQ(alone(source, direct, &kBounds, radius), 0);
            EXPECT_EQ(front.Samples(), direct.Samples()) << radius;
        }
        for (float radius : {0.19f, std::nanf(""), -3.0f}) {
            const TestImage copy = RandomImage(depth, lockable, 4, kBounds, 10);
            ASSERT_EQ(KXEffectsGaussianBlur(source, copy, &kBounds, radius), 0);
            EXPECT_EQ(copy.Samples(), source.Samples()) << radius;
        }
    });
}

TEST(GaussianBlur, TilesGrownByTheOutsetMatchTheWholeImage)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        SCOPED_TRACE(CaseName(depth, lockable));
        // The true blur's column sums run in the order of its ring, which starts at the first line read: a
        // tile may round differently by one unit.
        ExpectTilesMatchWholeImage(depth, lockable, GaussianBlurOutset(3.0f), depth == 32 ? 1e-5f : 1.0f,
                                   [](KXImage* source, KXImage* destination, const KXRect* rect) {
                                       return KXEffectsGaussianBlur(source, destination, rect, 3.0f);
                                   });
        ExpectTilesMatchWholeImage(depth, lockable, GaussianBlurOutset(12.0f), depth == 32 ? 1e-6f : 0.0f,
                                   [](KXImage* source, KXImage* destination, const KXRect* rect) {
                                       return KXEffectsGaussianBlur(source, destination, rect, 12.0f);
                                   });
    });
}

} // namespace
