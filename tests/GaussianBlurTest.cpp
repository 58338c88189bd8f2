// Gaussian blurs: the true blur against OpenCV's separable filter, the fast blur as three boxes, the modes
// against the blurred image blended over the source, and the codes that fail.
#include "TestImages.h"

#include <opencv2/imgproc.hpp>

#include <cmath>
#include <tuple>

namespace {

const KXRect kBounds = KXRectMake(-5, 4, 23, 17);

using Blur = int32_t (*)(KXImage*, KXImage*, const KXRect*, float);
using BlurWithMode = int32_t (*)(KXImage*, KXImage*, const KXRect*, float, float, uint32_t);

TEST(GaussianBlurTrue, MatchesOpenCVSeparableFilterMixedByAmount)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        const TestImage source = RandomImage(depth, lockable, 3, 4, kBounds);
        std::vector<float> samples = source.Samples();
        const cv::Mat in(kBounds.height, kBounds.width, CV_32FC4, samples.data());
        const Pixels original(source);
        for (float radius : {0.2f, 1.0f, 2.5f}) {
            SCOPED_TRACE(radius);
            const int32_t half = KXEffectsGetOutset(reinterpret_cast<KXEffectProc>(KXEffectsGaussianBlurTrue), radius);
            const cv::Mat kernel = cv::getGaussianKernel(2 * half + 1, radius, CV_32F);
            cv::Mat blurred;
            cv::sepFilter2D(in, blurred, CV_32F, kernel, kernel, cv::Point(-1, -1), 0, cv::BORDER_REPLICATE);
            const TestImage destination = source.Like();
            ASSERT_EQ(KXEffectsGaussianBlurTrueWithAmount(source, destination, &kBounds, radius, 0.7f), kKXNoErr);
            ExpectRegion(destination, kBounds, depth == 32 ? 1e-5f : 1.0f, [&](int32_t x, int32_t y, int32_t p) {
                const float s = original.At(x, y, p);
                return p == 3 ? s : s * 0.3f + blurred.at<cv::Vec4f>(y - kBounds.y, x - kBounds.x)[p] * 0.7f;
            });
        }
    });
}

// Radius 2 takes boxes of radius 3, 1 and 1; radius 5 boxes of 5, 4 and 4.
TEST(GaussianBlurFast, IsThreeBoxBlurs)
{
    const KXRect bounds = KXRectMake(2, 3, 30, 24);
    ForEachImageKind([&](int32_t depth, bool lockable) {
        const TestImage source = RandomImage(depth, lockable, 5, 4, bounds);
        for (const auto& [radius, first, second] : {std::tuple{2.0f, 3, 1}, std::tuple{5.0f, 5, 4}}) {
            const TestImage fast = source.Like(), boxes = source.Like();
            ASSERT_EQ(KXEffectsGaussianBlurFast(source, fast, &bounds, radius), kKXNoErr);
            ASSERT_EQ(KXEffectsBoxBlur(source, boxes, &bounds, first), kKXNoErr);
            ASSERT_EQ(KXEffectsBoxBlur(boxes, boxes, &bounds, second), kKXNoErr);
            ASSERT_EQ(KXEffectsBoxBlur(boxes, boxes, &bounds, second), kKXNoErr);
            // Only 2r from the edges do the chained boxes read what the fast blur's larger temporary holds.
            const Pixels want(boxes);
            ExpectRegion(fast, KXRectOutset(&bounds, -2 * second), depth == 32 ? 1e-6f : 0.0f,
                         [&](int32_t x, int32_t y, int32_t p) { return want.At(x, y, p); });
        }
        // Below 1.1: one box of radius q at full strength whatever the amount and mode; the alpha is the
        // temporary's, never written.
        const TestImage small = source.Like(), box = source.Like();
        ASSERT_EQ(KXEffectsGaussianBlurFastWithAmountAndMode(source, small, &bounds, 0.4f, 0.5f, Code("scrn")), 0);
        ASSERT_EQ(KXEffectsBoxBlur(source, box, &bounds, 1), kKXNoErr);
        const Pixels boxed(box), got(small);
        ExpectRegion(small, bounds, 0, [&](auto x, auto y, auto p) { return (p == 3 ? got : boxed).At(x, y, p); });
    });
}

// The blur codes and the blend codes of the same modes; a capital first letter swaps base and top.
const std::pair<const char*, const char*> kModes[] = {
    {"over", "over"}, {"scrn", "scrn"}, {"mul ", "mul "}, {"dark", "dark"}, {"lite", "lite"}, {"diff", "diff"},
    {"smud", "smud"}, {"div ", "div "}, {"vidi", "idiv"}, {"lbrn", "lbrn"}, {"lddg", "lddg"}, {"till", "llit"},
    {"hLit", "hLit"}, {"sLit", "sLit"}, {"vLit", "vLit"}, {"pLit", "pLit"}, {"hMix", "hMix"}, {"fsub", "fsub"},
    {"Over", "over"}, {"HLit", "hLit"}, {"SLit", "sLit"}, {"Div ", "div "}, {"Vidi", "idiv"}, {"VLit", "vLit"},
    {"Till", "llit"}, {"HMix", "hMix"}, {"FSub", "fsub"}};

// Blurring in a mode equals blending the plain blur over the source in that mode (the source over the blur
// when reversed).
TEST(GaussianBlur, ModesBlendTheBlurOverTheSample)
{
    const TestImage source = RandomImage(32, true, 6, 3, KXRectMake(1, 1, 14, 11)), blurred = source.Like();
    const KXRect bounds = source.Bounds();
    const std::tuple<BlurWithMode, Blur, float> blurs[] = {
        {KXEffectsGaussianBlurTrueWithAmountAndMode, KXEffectsGaussianBlurTrue, 1.5f},
        {KXEffectsGaussianBlurFastWithAmountAndMode, KXEffectsGaussianBlurFast, 2.5f}};
    for (const auto& [blur, plain, radius] : blurs) {
        ASSERT_EQ(plain(source, blurred, &bounds, radius), kKXNoErr);
        for (const auto& [code, blendCode] : kModes) {
            SCOPED_TRACE(code);
            const TestImage moded = source.Like(), blended = source.Like();
            const bool reversed = code[0] >= 'A' && code[0] <= 'Z';
            ASSERT_EQ(blur(source, moded, &bounds, radius, 1.0f, Code(code)), kKXNoErr);
            const TestImage &upper = reversed ? source : blurred, &lower = reversed ? blurred : source;
            ASSERT_EQ(KXEffectsBlendImages(upper, lower, blended, &bounds, Code(blendCode)), kKXNoErr);
            ExpectSameImage(moded, blended, 1e-6f);
        }
    }
}

TEST(GaussianBlur, UnknownModesFailAndOnlyTheFastBlurLogs)
{
    std::vector<std::string> events;
    KXLogSetEventHandler(
        [](int32_t code, const char* file, int32_t, void* user) {
            static_cast<std::vector<std::string>*>(user)->push_back(std::to_string(code) + " " + file);
        },
        &events);
    const TestImage source = RandomImage(16, false, 7, 4, kBounds), destination = source.Like();
    const std::vector<std::string> logged = {std::to_string(kKXErrBadParam) +
                                             " Source/Common/KXEffects/KXEffectsBoxBlur"};
    for (const char* code : {"idiv", "llit", "Norm", "Mul ", "PLit", "blur", "fdiv", "FDiv"}) {
        for (BlurWithMode blur :
             {KXEffectsGaussianBlurTrueWithAmountAndMode, KXEffectsGaussianBlurFastWithAmountAndMode})
            EXPECT_EQ(blur(source, destination, &kBounds, 2, 1, Code(code)), kKXErrBadParam);
        EXPECT_EQ(events, logged) << code;
        events.clear();
    }
    KXLogSetEventHandler(nullptr, nullptr);
}

} // namespace
