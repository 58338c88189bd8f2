// The 26 blend formulas at their branches and against textbook forms, the mode words, and desaturation
// in every mode.
#include "KXEffectsBlendModes.h"
#include "KXEffectsSample.h"
#include "TestImages.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <map>
#include <set>
#include <type_traits>

namespace {

template <class Fn, class... Modes> void ForEachMode(BlendModeList<Modes...>, Fn&& fn)
{
    (fn(BlendModeTag<Modes>{}), ...);
}

// One plane through the dispatched mode, as Pixel on three equal planes.
float BlendPlane(uint32_t code, float b, float s)
{
    float result[3] = {};
    const float backdrop[3] = {b, b, b}, source[3] = {s, s, s};
    EXPECT_EQ(DispatchBlendMode(code, [&](auto tag) {
                  using Mode = typename decltype(tag)::Type;
                  Mode::Pixel(backdrop, source, result);
                  if constexpr (!Mode::kWholePixel) {
                      EXPECT_EQ(Mode::Plane(b, s), result[0]);
                  }
                  return int32_t(kKXNoErr);
              }),
              kKXNoErr);
    return result[0];
}

struct PlaneCase {
    const char code[5];
    float b, s, expected;
};

TEST(BlendFormulas, BranchesAtEqualValuesAndFloatsOutsideTheRange)
{
    const PlaneCase cases[] = {
        {"norm", 0.3f, 0.8f, 0.8f},   {"dark", 0.8f, 0.3f, 0.3f},   {"lite", 0.3f, 0.8f, 0.8f},
        {"mul ", 0.5f, 0.5f, 0.25f},  {"scrn", 0.5f, 0.5f, 0.75f},  {"over", 0.25f, 0.5f, 0.25f},
        {"over", 0.75f, 0.5f, 0.75f}, {"hLit", 0.25f, 0.75f, 0.625f}, {"hLit", 0.75f, 0.25f, 0.375f},
        {"sLit", 0.5f, 1, 0.75f},     {"sLit", 0.5f, 0, 0.25f},     {"diff", 0.25f, 0.75f, 0.5f},
        {"diff", 0.75f, 0.25f, 0.5f}, {"smud", 1, 1, 0},            {"smud", 0.5f, 0.25f, 0.5f},
        // Colour dodge at s = 1: 1 for any b above 0, 0 at b = 0.
        {"div ", 0.5f, 1, 1},         {"div ", 0, 1, 0},            {"div ", 0.25f, 0.5f, 0.5f},
        {"div ", 0.75f, 0.5f, 1},
        // Colour burn at s = 0: 1 only from b = 1.
        {"idiv", 1, 0, 1},            {"idiv", 0.99f, 0, 0},        {"idiv", 0.75f, 0.5f, 0.5f},
        {"idiv", 0.25f, 0.5f, 0},     {"lbrn", 0.5f, 0.5f, 0},      {"lbrn", 0.75f, 0.5f, 0.25f},
        {"lddg", 0.75f, 0.5f, 1},     {"lddg", 0.25f, 0.5f, 0.75f},
        // Vivid light: 0 at s = 0 and 1 at s = 1 whatever b; burn below 0.5, dodge from 0.5.
        {"vLit", 1, 0, 0},            {"vLit", 0, 1, 1},            {"vLit", 0.75f, 0.25f, 0.5f},
        {"vLit", 0.25f, 0.5f, 0.25f}, {"vLit", 0.25f, 0.75f, 0.5f}, {"vLit", 0, 0.25f, 0},
        {"llit", 0.25f, 0.75f, 0.75f}, {"llit", 1, 1, 1},           {"llit", 0.5f, 0, 0},
        {"pLit", 0.75f, 0.25f, 0.5f}, {"pLit", 0.25f, 0.25f, 0.25f}, {"pLit", 0.25f, 0.75f, 0.5f},
        {"pLit", 0.75f, 0.75f, 0.75f},
        // Hard mix: b + s must pass 1, but b = 1 is enough alone.
        {"hMix", 0.5f, 0.5f, 0},      {"hMix", 0.5f, 0.75f, 1},     {"hMix", 1, 0, 1},
        {"fsub", 0.25f, 0.5f, 0},     {"fsub", 0.75f, 0.5f, 0.25f},
        // Divide by 0 acts as colour dodge at s = 1.
        {"fdiv", 0.5f, 0, 1},         {"fdiv", 0, 0, 0},            {"fdiv", 0.25f, 0.5f, 0.5f},
        {"fdiv", 0.75f, 0.5f, 1},
        // Nothing clamped beyond the formula.
        {"norm", 0, 1.25f, 1.25f},    {"mul ", 2, 0.75f, 1.5f},     {"scrn", -0.5f, 0.5f, 0.25f},
        {"diff", -0.25f, 0.5f, 0.75f}, {"fsub", 1.5f, 0.25f, 1.25f}, {"lddg", -0.5f, 0.25f, -0.25f},
        {"dark", -1, 2, -1},          {"sLit", 2, 0, 4},
    };
    for (const PlaneCase& test : cases)
        EXPECT_FLOAT_EQ(BlendPlane(FourCharCode(test.code), test.b, test.s), test.expected)
            << test.code << " b " << test.b << " s " << test.s;
}

// The per-plane modes in their usual textbook forms, in double.
const std::map<std::string, std::function<double(double, double)>>& TextbookModes()
{
    static const std::map<std::string, std::function<double(double, double)>> modes = {
        {"norm", [](double, double s) { return s; }},
        {"dark", [](double b, double s) { return std::min(b, s); }},
        {"lite", [](double b, double s) { return std::max(b, s); }},
        {"mul ", [](double b, double s) { return b * s; }},
        {"scrn", [](double b, double s) { return 1 - (1 - b) * (1 - s); }},
        {"over", [](double b, double s) { return b < 0.5 ? 2 * b * s : 1 - 2 * (1 - b) * (1 - s); }},
        {"hLit", [](double b, double s) { return s < 0.5 ? 2 * b * s : 1 - 2 * (1 - b) * (1 - s); }},
        {"sLit", [](double b, double s) { return b * b + 2 * s * b * (1 - b); }},
        {"diff", [](double b, double s) { return std::fabs(b - s); }},
        {"smud", [](double b, double s) { return b + s - 2 * b * s; }},
        {"div ", [](double b, double s) { return s < 1 ? std::min(1.0, b / (1 - s)) : double(b > 0); }},
        {"idiv", [](double b, double s) { return s > 0 ? 1 - std::min(1.0, (1 - b) / s) : double(b >= 1); }},
        {"lbrn", [](double b, double s) { return std::max(0.0, b + s - 1); }},
        {"lddg", [](double b, double s) { return std::min(1.0, b + s); }},
        {"vLit",
         [](double b, double s) {
             if (s <= 0 || s >= 1)
                 return double(s >= 1);
             return s < 0.5 ? 1 - std::min(1.0, (1 - b) / (2 * s)) : std::min(1.0, b / (1 - (2 * s - 1)));
         }},
        {"llit", [](double b, double s) { return std::clamp(b + 2 * s - 1, 0.0, 1.0); }},
        {"pLit", [](double b, double s) { return s < 0.5 ? std::min(b, 2 * s) : std::max(b, 2 * s - 1); }},
        {"hMix", [](double b, double s) { return double(b + s > 1 || b >= 1); }},
        {"fsub", [](double b, double s) { return std::max(0.0, b - s); }},
        {"fdiv", [](double b, double s) { return s > 0 ? std::min(1.0, b / s) : double(b > 0); }},
    };
    return modes;
}

TEST(BlendFormulas, PerPlaneModesMatchTextbookFormsOnAGrid)
{
    for (const auto& [name, reference] : TextbookModes())
        for (int32_t i = 0; i <= 16; ++i)
            for (int32_t j = 0; j <= 16; ++j) {
                // Sixteenths: exact in float, so the branch taken is the same in both.
                const float b = float(i) / 16.0f, s = float(j) / 16.0f;
                char code[5] = {};
                name.copy(code, 4);
                EXPECT_NEAR(BlendPlane(FourCharCode(code), b, s),
                            reference(b, s), 1e-6)
                    << name << " b " << b << " s " << s;
            }
}

float LumaOf(const float* p)
{
    return 0.299f * p[0] + 0.587f * p[1] + 0.114f * p[2];
}

TEST(BlendFormulas, WholePixelModesKeepLumaAndSwapRoles)
{
    std::mt19937 generator(21);
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);
    for (int32_t n = 0; n < 500; ++n) {
        const float b[3] = {unit(generator), unit(generator), unit(generator)};
        const float s[3] = {unit(generator), unit(generator), unit(generator)};
        float hue[3], saturation[3], colour[3], luminosity[3], swapped[3];
        BlendHue::Pixel(b, s, hue);
        BlendSaturation::Pixel(b, s, saturation);
        BlendColor::Pixel(b, s, colour);
        BlendLuminosity::Pixel(b, s, luminosity);
        BlendLuminosity::Pixel(s, b, swapped);
        for (const float* result : {hue, saturation, colour})
            EXPECT_NEAR(LumaOf(result), LumaOf(b), 1e-5f);
        EXPECT_NEAR(LumaOf(luminosity), LumaOf(s), 1e-5f);
        for (const float* result : {hue, saturation, colour, luminosity})
            for (int32_t c = 0; c < 3; ++c) {
                EXPECT_GE(result[c], -1e-6f);
                EXPECT_LE(result[c], 1.0f + 1e-6f);
            }
        // Colour of s over b is luminosity of b over s.
        EXPECT_EQ(std::vector<float>(colour, colour + 3), std::vector<float>(swapped, swapped + 3));
    }
    const float gray[3] = {0.4f, 0.4f, 0.4f}, red[3] = {1, 0, 0}, blue[3] = {0.2f, 0.6f, 1};
    float result[3];
    BlendHue::Pixel(blue, gray, result);
    EXPECT_NEAR(result[0], LumaOf(blue), 1e-6f);
    EXPECT_EQ(result[0], result[1]);
    EXPECT_EQ(result[1], result[2]);
    BlendSaturation::Pixel(gray, red, result);
    for (float plane : result)
        EXPECT_NEAR(plane, 0.4f, 1e-6f);
    // Two colours of exactly equal luma: both darker and lighter colour keep b.
    const float b[3] = {0, 18 / 64.0f, 21 / 64.0f}, s[3] = {4 / 64.0f, 8 / 64.0f, 62 / 64.0f};
    ASSERT_EQ(LumaOf(b), LumaOf(s));
    BlendDarkerColor::Pixel(b, s, result);
    EXPECT_EQ(std::vector<float>(result, result + 3), std::vector<float>(b, b + 3));
    BlendLighterColor::Pixel(b, s, result);
    EXPECT_EQ(std::vector<float>(result, result + 3), std::vector<float>(b, b + 3));
    BlendDarkerColor::Pixel(blue, red, result);
    EXPECT_EQ(std::vector<float>(result, result + 3), std::vector<float>(red, red + 3));
    BlendLighterColor::Pixel(red, blue, result);
    EXPECT_EQ(std::vector<float>(result, result + 3), std::vector<float>(blue, blue + 3));
}

TEST(BlendModeWords, DispatchOfTheTwentySixAndTheReversedBit)
{
    const uint32_t codes[] = {0x6e6f726d, 0x6461726b, 0x6c697465, 0x68756520, 0x73617420, 0x636f6c72, 0x6c756d20,
                              0x6d756c20, 0x7363726e, 0x6f766572, 0x684c6974, 0x734c6974, 0x64696666, 0x736d7564,
                              0x64697620, 0x69646976, 0x6c62726e, 0x6c646467, 0x764c6974, 0x6c6c6974, 0x704c6974,
                              0x684d6978, 0x646b436c, 0x6c67436c, 0x66737562, 0x66646976};
    const std::set<uint32_t> wholePixel = {0x68756520, 0x73617420, 0x636f6c72, 0x6c756d20, 0x646b436c, 0x6c67436c};
    std::vector<uint32_t> listed;
    ForEachMode(AllBlendModes{}, [&](auto tag) { listed.push_back(decltype(tag)::Type::kCode); });
    EXPECT_EQ(listed, std::vector<uint32_t>(std::begin(codes), std::end(codes)));
    for (uint32_t code : codes) {
        uint32_t seen = 0;
        bool whole = false;
        EXPECT_EQ(DispatchBlendMode(code, [&](auto tag) {
                      seen = decltype(tag)::Type::kCode;
                      whole = decltype(tag)::Type::kWholePixel;
                      return int32_t(7);
                  }),
                  7);
        EXPECT_EQ(seen, code);
        EXPECT_EQ(whole, wholePixel.count(code) == 1) << std::hex << code;
        const uint32_t reversed = KXEffectsGetReverseBlendMode(code);
        EXPECT_EQ(reversed, code & 0xdfffffffu);
        EXPECT_TRUE(IsReversedBlendMode(reversed));
        EXPECT_FALSE(IsReversedBlendMode(code));
        EXPECT_EQ(KXEffectsGetNormalBlendMode(reversed), code);
        EXPECT_EQ(KXEffectsGetNormalBlendMode(code), code);
        EXPECT_EQ(KXEffectsGetReverseBlendMode(reversed), reversed);
        EXPECT_EQ(DispatchBlendMode(reversed, [](auto) { return int32_t(kKXNoErr); }), kKXErrBadParam);
    }
    EXPECT_EQ(KXEffectsGetReverseBlendMode(0x6e6f726d), 0x4e6f726du); // "Norm"
    for (uint32_t unknown : {0u, 0x6e6f6e65u, 0xffffffffu})
        EXPECT_EQ(DispatchBlendMode(unknown, [](auto) { return int32_t(kKXNoErr); }), kKXErrBadParam);
}

// The desaturated pixel: the luma laid over the pixel by Mode, mixed by amount; "norm" at amount 1 takes
// the luma of the raw samples.
template <class Mode> std::vector<float> Desaturated(const float* in, int32_t planes, float amount, int32_t depth)
{
    std::vector<float> out(in, in + planes);
    if (std::is_same_v<Mode, BlendNormal> && amount == 1.0f) {
        const float luma = StoredOf(0.299f * in[0] + 0.587f * in[1] + 0.114f * in[2], depth, true);
        out[0] = out[1] = out[2] = luma;
        return out;
    }
    float pixel[3], result[3];
    for (int32_t c = 0; c < 3; ++c)
        pixel[c] = UnitOf(in[c], depth);
    const float luma = 0.299f * pixel[0] + 0.587f * pixel[1] + 0.114f * pixel[2];
    const float gray[3] = {luma, luma, luma};
    Mode::Pixel(pixel, gray, result);
    for (int32_t c = 0; c < 3; ++c)
        out[size_t(c)] = StoredOf(result[c] * amount + pixel[c] * (1.0f - amount), depth);
    return out;
}

TEST(Desaturate, EveryModeDepthAndAmount)
{
    const KXRect bounds = KXRectMake(-2, 5, 9, 2), rect = KXRectMake(-1, 5, 8, 2);
    ForEachImageKind([&](int32_t depth, bool lockable) {
        for (int32_t planes : {3, 4}) {
            TestImage source(bounds, depth, planes, planes - 3, lockable);
            source.FillRandom(uint32_t(planes));
            const std::vector<float> in = source.Samples();
            ForEachMode(AllBlendModes{}, [&](auto tag) {
                using Mode = typename decltype(tag)::Type;
                for (float amount : {0.6f, 1.0f, 1.5f}) {
                    SCOPED_TRACE(CaseName(depth, lockable) + " mode " + std::to_string(Mode::kCode) + " amount " +
                                 std::to_string(amount) + " planes " + std::to_string(planes));
                    TestImage destination(bounds, depth, planes, planes - 3, !lockable);
                    destination.FillRandom(9);
                    const std::vector<float> before = destination.Samples();
                    ASSERT_EQ(KXEffectsDesaturate(source, destination, &rect, Mode::kCode, amount), kKXNoErr);
                    const std::vector<float> out = destination.Samples();
                    for (int32_t i = 0; i < bounds.width * bounds.height; ++i) {
                        const std::vector<float> pixel(out.begin() + i * planes, out.begin() + (i + 1) * planes);
                        if (i % bounds.width == 0)
                            EXPECT_EQ(pixel, std::vector<float>(before.begin() + i * planes,
                                                                before.begin() + (i + 1) * planes));
                        else
                            EXPECT_EQ(pixel, Desaturated<Mode>(&in[size_t(i * planes)], planes, amount, depth))
                                << "pixel " << i;
                    }
                }
            });
        }
    });
}

TEST(Desaturate, NoAmountCopiesAndRejections)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        SCOPED_TRACE(CaseName(depth, lockable));
        const KXRect bounds = KXRectMake(0, 0, 7, 2);
        TestImage source(bounds, depth, 4, 1, lockable), destination(bounds, depth, 4, 1, !lockable);
        source.FillRandom(8);
        for (float amount : {0.0f, -1.0f}) {
            // The copy comes before the mode is looked at.
            ASSERT_EQ(KXEffectsDesaturate(source, destination, &bounds, 0x6e6f6e65, amount), kKXNoErr);
            EXPECT_EQ(destination.Samples(), source.Samples());
        }
        const uint32_t normal = FourCharCode("norm");
        EXPECT_EQ(KXEffectsDesaturate(source, destination, &bounds, 0x6e6f6e65, 1), kKXErrBadParam);
        EXPECT_EQ(KXEffectsDesaturate(source, destination, &bounds, normal & ~kBlendReversedBit, 1), kKXErrBadParam);
        EXPECT_EQ(KXEffectsDesaturate(source, destination, nullptr, normal, 1), kKXErrBadParam);
        TestImage gray(bounds, depth, 1, 0, lockable);
        EXPECT_EQ(KXEffectsDesaturate(gray, gray, &bounds, normal, 0), kKXErrUnsupported);
        EXPECT_EQ(destination.Samples(), source.Samples());
    });
}

} // namespace
