// The blend formulas against textbook forms, the whole-pixel modes' luma, the mode words, and desaturation
// in every mode.
#include "KXEffectsBlendModes.h"
#include "TestImages.h"

#include <cmath>
#include <map>
#include <set>

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
    EXPECT_EQ(DispatchBlendMode(code,
                                [&](auto tag) {
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

// The per-plane modes in their usual textbook forms, in double; at the poles colour dodge at s = 1 gives 1
// for any b above 0, colour burn at s = 0 only b = 1, vivid light the pole of s, hard mix 1 from b = 1 alone,
// and divide by 0 acts as colour dodge at s = 1.
const std::map<std::string, std::function<double(double, double)>>& TextbookModes()
{
    static const std::map<std::string, std::function<double(double, double)>> modes = {
        {"scrn", [](double b, double s) { return 1 - (1 - b) * (1 - s); }},
        {"over", [](double b, double s) { return b < 0.5 ? 2 * b * s : 1 - 2 * (1 - b) * (1 - s); }},
        {"hLit", [](double b, double s) { return s < 0.5 ? 2 * b * s : 1 - 2 * (1 - b) * (1 - s); }},
        {"sLit", [](double b, double s) { return b * b + 2 * s * b * (1 - b); }},

        {"smud", [](double b, double s) { return b + s - 2 * b * s; }},
        {"div ", [](double b, double s) { return s < 1 ? std::min(1.0, b / (1 - s)) : double(b > 0); }},
        {"idiv", [](double b, double s) { return s > 0 ? 1 - std::min(1.0, (1 - b) / s) : double(b >= 1); }},
        {"lbrn", [](double b, double s) { return std::max(0.0, b + s - 1); }},

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
                EXPECT_NEAR(BlendPlane(Code(name.c_str()), b, s), reference(b, s), 1e-6) << name << b << " " << s;
            }
}

float LumaOf(const float* p)
{
    return 0.299f * p[0] + 0.587f * p[1] + 0.114f * p[2];
}

// Hue, saturation and colour keep the backdrop's luma, luminosity takes the source's, all within 0..1; colour
// of s over b is luminosity of b over s.
TEST(BlendFormulas, WholePixelModesKeepLumaAndSwapRoles)
{
    std::mt19937 generator(21);
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);
    for (int32_t n = 0; n < 500; ++n) {
        const float b[3] = {unit(generator), unit(generator), unit(generator)};
        const float s[3] = {unit(generator), unit(generator), unit(generator)};
        float results[4][3], swapped[3];
        BlendHue::Pixel(b, s, results[0]);
        BlendSaturation::Pixel(b, s, results[1]);
        BlendColor::Pixel(b, s, results[2]);
        BlendLuminosity::Pixel(b, s, results[3]);
        BlendLuminosity::Pixel(s, b, swapped);
        for (const float* result : results) {
            EXPECT_NEAR(LumaOf(result), LumaOf(result == results[3] ? s : b), 1e-5f);
            EXPECT_TRUE(*std::min_element(result, result + 3) >= -1e-6f);
            EXPECT_TRUE(*std::max_element(result, result + 3) <= 1 + 1e-6f);
        }
        EXPECT_EQ(std::vector<float>(results[2], results[2] + 3), std::vector<float>(swapped, swapped + 3));
    }
    // Two colours of exactly equal luma: both darker and lighter colour keep b.
    const float b[3] = {0, 18 / 64.0f, 21 / 64.0f}, s[3] = {4 / 64.0f, 8 / 64.0f, 62 / 64.0f};
    float darker[3], lighter[3];
    ASSERT_EQ(LumaOf(b), LumaOf(s));
    BlendDarkerColor::Pixel(b, s, darker);
    BlendLighterColor::Pixel(b, s, lighter);
    EXPECT_TRUE(std::equal(b, b + 3, darker) && std::equal(b, b + 3, lighter));
}

// The list holds the 26 codes in order, six of them whole-pixel; each dispatches to itself, and its reversed
// form (bit 29 clear) dispatches to nothing but converts back.
TEST(BlendModeWords, DispatchOfTheTwentySixAndTheReversedBit)
{
    const char* const codes[] = {"norm", "dark", "lite", "hue ", "sat ", "colr", "lum ", "mul ", "scrn",
                                 "over", "hLit", "sLit", "diff", "smud", "div ", "idiv", "lbrn", "lddg",
                                 "vLit", "llit", "pLit", "hMix", "dkCl", "lgCl", "fsub", "fdiv"};
    const std::set<std::string> wholePixel = {"hue ", "sat ", "colr", "lum ", "dkCl", "lgCl"};
    std::vector<uint32_t> listed, expected;
    ForEachMode(AllBlendModes{}, [&](auto tag) { listed.push_back(decltype(tag)::Type::kCode); });
    for (const char* name : codes) {
        const uint32_t code = Code(name), reversed = KXEffectsGetReverseBlendMode(code);
        expected.push_back(code);
        EXPECT_EQ(DispatchBlendMode(code,
                                    [&](auto tag) {
                                        using Mode = typename decltype(tag)::Type;
                                        return int32_t(Mode::kCode == code &&
                                                               Mode::kWholePixel == (wholePixel.count(name) == 1)
                                                           ? 7
                                                           : 0);
                                    }),
                  7)
            << name;
        EXPECT_EQ(reversed, code & ~kBlendReversedBit);
        EXPECT_TRUE(IsReversedBlendMode(reversed) && !IsReversedBlendMode(code));
        EXPECT_EQ(KXEffectsGetNormalBlendMode(reversed), code);
        EXPECT_EQ(KXEffectsGetReverseBlendMode(reversed), reversed);
        EXPECT_EQ(DispatchBlendMode(reversed, [](auto) { return int32_t(kKXNoErr); }), kKXErrBadParam);
    }
    EXPECT_EQ(listed, expected);
    for (uint32_t unknown : {0u, Code("none"), 0xffffffffu})
        EXPECT_EQ(DispatchBlendMode(unknown, [](auto) { return int32_t(kKXNoErr); }), kKXErrBadParam);
}

// Desaturating in a mode lays the luma over the pixel in that mode, mixed by amount: in float, the luma
// image of mode 0 blended over the source at the amount as opacity.
TEST(Desaturate, EveryModeIsTheLumaBlendedOverThePixel)
{
    const KXRect bounds = KXRectMake(-2, 5, 9, 2);
    const TestImage source = RandomImage(32, true, 3, 3, bounds), luma(bounds, 32, 3, 0);
    ASSERT_EQ(KXEffectsBlackWhite(source, luma, &bounds, 0), kKXNoErr);
    ForEachMode(AllBlendModes{}, [&](auto tag) {
        const uint32_t code = decltype(tag)::Type::kCode;
        for (float amount : {0.6f, 1.0f, 1.5f}) {
            SCOPED_TRACE(std::to_string(code) + " amount " + std::to_string(amount));
            const TestImage desaturated = source.Like(false), blended = source.Like();
            ASSERT_EQ(KXEffectsDesaturate(source, desaturated, &bounds, code, amount), kKXNoErr);
            ASSERT_EQ(KXEffectsBlendImagesWithOpacitiesAndMasks(luma, amount, nullptr, source, 1, nullptr, blended,
                                                                &bounds, code),
                      kKXNoErr);
            ExpectSameImage(desaturated, blended, 1e-5f);
        }
    });
    const TestImage gray(bounds, 8, 1, 0);
    EXPECT_EQ(KXEffectsDesaturate(source, source, &bounds, Code("none"), 1), kKXErrBadParam);
    EXPECT_EQ(KXEffectsDesaturate(source, source, &bounds, Code("Norm"), 1), kKXErrBadParam);
    EXPECT_EQ(KXEffectsDesaturate(gray, gray, &bounds, Code("norm"), 0), kKXErrUnsupported);
}

} // namespace
