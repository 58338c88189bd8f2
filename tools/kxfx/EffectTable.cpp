// The one table of kxfx. An effect is one row: name, summary, input files, settings with their neutral
// values, and a function that calls the library. Rows are grouped by family.
#include "EffectTable.h"
#include "Status.h"

#include <algorithm>
#include <cstdio>

namespace {

const std::vector<const char*> kOneInput = {"INPUT"};

// ---- Curves and fills ----

// x,y points in 0..1 as one channel of 256 entries: straight lines between the points, flat beyond the
// first and the last.
std::vector<float> CurveThroughPoints(const std::vector<float>& numbers, const std::string& name)
{
    if (numbers.empty() || numbers.size() % 2 != 0)
        throw ToolError("--" + name + ": give x,y points or a file of curve values");
    std::vector<std::pair<float, float>> points;
    for (size_t i = 0; i < numbers.size(); i += 2)
        points.emplace_back(numbers[i], numbers[i + 1]);
    std::sort(points.begin(), points.end());
    std::vector<float> curve(256);
    KXEffectsInitCurves(1, curve.data());
    for (float& entry : curve) {
        const auto after = std::find_if(points.begin(), points.end(), [&](const auto& p) { return p.first >= entry; });
        if (after == points.begin() || after == points.end()) {
            entry = after == points.end() ? points.back().second : after->second;
            continue;
        }
        const auto& [x0, y0] = *(after - 1);
        entry = y0 + (after->second - y0) * (entry - x0) / (after->first - x0);
    }
    return curve;
}

// A curve setting as a table with a channel for every colour plane of the source: 256 values a channel
// as given (one channel serves every plane), or a point list.
std::vector<float> CurveTable(const EffectCall& call, const std::string& name)
{
    const auto& numbers = call.settings.Get<std::vector<float>>(name);
    std::vector<float> table =
        !numbers.empty() && numbers.size() % 256 == 0 ? numbers : CurveThroughPoints(numbers, name);
    const size_t colourPlanes = size_t(KXImageGetNumPlanes(call.Source()) - KXImageGetTransparency(call.Source()));
    if (table.size() == 256) {
        table.resize(std::max<size_t>(colourPlanes, 1) * 256);
        for (size_t at = 256; at < table.size(); at += 256)
            std::copy_n(table.begin(), 256, table.begin() + at);
    }
    if (table.size() < colourPlanes * 256)
        throw ToolError("--" + name + ": " + std::to_string(table.size() / 256) + " channels for " +
                        std::to_string(colourPlanes) + " colour planes");
    return table;
}

// --curve, followed by --then when one is given, as one table.
std::vector<float> CurvesOfCall(const EffectCall& call)
{
    std::vector<float> table = CurveTable(call, "curve");
    if (call.settings.Get<std::vector<float>>("then").empty())
        return table;
    const std::vector<float> then = CurveTable(call, "then");
    const int32_t channels = int32_t(std::min(table.size(), then.size()) / 256);
    KXEffectsConcatCurves(channels, table.data(), then.data(), table.data());
    return table;
}

// The colour setting for every plane: r,g,b, or its luma on a gray image, then --alpha.
std::vector<float> FillColour(const EffectCall& call)
{
    const Colour colour = call.settings.Get<Colour>("colour");
    KXImage* image = call.destination;
    std::vector<float> planes = {colour.red, colour.green, colour.blue};
    if (KXImageGetNumPlanes(image) - KXImageGetTransparency(image) == 1)
        planes = {0.299f * colour.red + 0.587f * colour.green + 0.114f * colour.blue};
    if (KXImageGetTransparency(image))
        planes.push_back(call.settings.Get<float>("alpha"));
    return planes;
}

// ---- Blending ----

// Masks are images of one plane; anything else is refused under the name it came by.
KXImage* RequireMask(KXImage* image, const std::string& name)
{
    if (image && KXImageGetNumPlanes(image) != 1)
        throw ToolError(name + ": give a gray image of one plane as a mask");
    return image;
}

struct ArrayReleaser {
    void operator()(CFMutableArrayRef array) const { CFRelease(array); }
};

// The product of the input masks, written over the copy of the first.
int32_t MultiplyInputMasks(const EffectCall& call)
{
    const std::unique_ptr<__CFArray, ArrayReleaser> masks(
        CFArrayCreateMutable(kCFAllocatorDefault, 0, KXUtilsGetArrayCallbacks()));
    for (size_t i = 0; i < call.inputs.size(); ++i)
        CFArrayAppendValue(masks.get(), RequireMask(call.inputs[i], "MASK" + std::to_string(i + 1)));
    return KXEffectsMultiplyMasks(masks.get(), call.destination, &call.rect);
}

const SettingSpec kBlendModeSetting = {"mode", SettingKind::BlendMode, "norm",
                                       "four characters such as norm, mul, scrn, over, lum"};

// ---- Colour ----

// Conversions 6 and 8 make one gray plane: it goes through a work image and comes back to the planes of
// the output by conversion 7. The input must be RGB, as the conversions read three planes.
int32_t ConvertImage(const EffectCall& call)
{
    KXImage* source = call.Source();
    const int32_t conversion = call.settings.Get<int32_t>("conversion");
    const int32_t transparency = KXImageGetTransparency(source);
    if (KXImageGetNumPlanes(source) - transparency != 3)
        throw ToolError("convert-image-mode: give an RGB input");
    if (conversion == 7)
        throw ToolError("convert-image-mode: conversion 7 makes RGB of a gray input, which the output cannot hold");
    if (conversion != 6 && conversion != 8)
        return KXEffectsConvertImageMode(source, call.destination, &call.rect, conversion);
    const KXRect bounds = KXImageGetBounds(source);
    KXImage* gray = nullptr;
    CheckCoreStatus(KXImageCreateWithParams2(&bounds, KXImageGetDepth(source), 1 + transparency, KXColorSpaceGray,
                                             transparency, KXDataSourceMemory, &gray),
                    "cannot make a gray work image");
    const ImageHandle work = AdoptImage(gray);
    const int32_t status = KXEffectsConvertImageMode(source, gray, &call.rect, conversion);
    return status != kKXNoErr ? status : KXEffectsConvertImageMode(gray, call.destination, &call.rect, 7);
}

int32_t PhotoFilter(const EffectCall& call)
{
    const SettingValues& settings = call.settings;
    const KXPoint centre = settings.Get<KXPoint>("centre");
    const Colour first = settings.Get<Colour>("colour1"), second = settings.Get<Colour>("colour2");
    const float colour1[] = {first.red, first.green, first.blue}, colour2[] = {second.red, second.green, second.blue};
    return KXEffectsPhotoFilter(call.Source(), call.destination, &call.rect, settings.Get<int32_t>("kind"),
                                settings.Get<float>("saturation"), settings.Get<float>("contrast"),
                                settings.Get<uint32_t>("mode"), KXEffectsFloatPoint{float(centre.x), float(centre.y)},
                                double(settings.Get<float>("angle-or-radius")),
                                double(settings.Get<float>("length-or-feather")), colour1,
                                double(settings.Get<float>("opacity1")), colour2, double(settings.Get<float>("opacity2")));
}

// ---- Black and white ----

int32_t BlackAndWhite(const EffectCall& call)
{
    const SettingValues& settings = call.settings;
    const Colour toner = settings.Get<Colour>("toner");
    const float colour[] = {toner.red, toner.green, toner.blue};
    return KXEffectsBlackAndWhite(call.Source(), call.destination, &call.rect, settings.Get<float>("hue"),
                                  settings.Get<float>("contrast"), settings.Get<ImageHandle>("grain").get(),
                                  settings.Get<float>("grain-amount"), colour, settings.Get<float>("toner-amount"));
}

// The six responses in the library's order, as settings.
constexpr const char* kResponseNames[6] = {"red", "yellow", "green", "cyan", "blue", "magenta"};

// A filter of 0.5 in every plane is the identity of the overlay, so it stands for no filter.
int32_t ColorResponse(const EffectCall& call, const float* responses)
{
    const Colour filter = call.settings.Get<Colour>("filter");
    const float colour[] = {filter.red, filter.green, filter.blue};
    const bool none = filter.red == 0.5f && filter.green == 0.5f && filter.blue == 0.5f;
    return KXEffectsBlackAndWhiteColorResponse(call.Source(), call.destination, &call.rect, none ? nullptr : colour,
                                               responses);
}

int32_t ColorResponseRow(const EffectCall& call)
{
    float responses[6];
    for (size_t i = 0; i < 6; ++i)
        responses[i] = call.settings.Get<float>(kResponseNames[i]);
    return ColorResponse(call, responses);
}

// The mixture is found over the whole input, told on standard output and applied.
int32_t AutoMixture(const EffectCall& call)
{
    float responses[6];
    const int32_t status = KXEffectsBlackAndWhiteColorResponseGetAutoMixture(call.Source(), responses);
    if (status != kKXNoErr)
        return status;
    std::printf("responses: %g %g %g %g %g %g\n", responses[0], responses[1], responses[2], responses[3],
                responses[4], responses[5]);
    return ColorResponse(call, responses);
}

const SettingSpec kFilterSetting = {"filter", SettingKind::Colour, "0.5,0.5,0.5",
                                    "r,g,b in 0..1 overlaid on the planes first; 0.5,0.5,0.5 is none"};
const SettingSpec kResponseSettings[] = {
    {"red", SettingKind::Float, "0", "added to the gray by the red in a pixel; 0 leaves the luma"},
    {"yellow", SettingKind::Float, "0", "likewise for yellow"},
    {"green", SettingKind::Float, "0", "likewise for green"},
    {"cyan", SettingKind::Float, "0", "likewise for cyan"},
    {"blue", SettingKind::Float, "0", "likewise for blue"},
    {"magenta", SettingKind::Float, "0", "likewise for magenta"}};

// ---- White balance ----

// The narrowest export that takes the settings given, so that each of the four is reachable.
int32_t ApplyTemperature(const EffectCall& call, float temperature, float tint)
{
    const float saturation = call.settings.Get<float>("saturation"), vibrance = call.settings.Get<float>("vibrance");
    KXImage* source = call.Source();
    if (saturation == 0.0f && vibrance == 0.0f)
        return KXEffectsTemperatureAndTint(source, call.destination, &call.rect, temperature, tint);
    if (saturation == 0.0f)
        return KXEffectsTemperatureTintAndVibrance(source, call.destination, &call.rect, temperature, tint, vibrance);
    if (vibrance == 0.0f)
        return KXEffectsTemperatureTintAndSaturation(source, call.destination, &call.rect, temperature, tint,
                                                     saturation);
    return KXEffectsTemperatureTintSaturationAndVibrance(source, call.destination, &call.rect, temperature, tint,
                                                         saturation, vibrance);
}

// A search's result is applied, and told on standard output for use with the temperature row.
int32_t ApplyFoundTemperature(const EffectCall& call, int32_t searchStatus, float temperature, float tint)
{
    if (searchStatus != kKXNoErr)
        return searchStatus;
    std::printf("temperature %g tint %g\n", temperature, tint);
    return ApplyTemperature(call, temperature, tint);
}

int32_t Neutralise(const EffectCall& call)
{
    const SettingValues& settings = call.settings;
    const Colour gray = settings.Get<Colour>("gray");
    const float colour[] = {gray.red, gray.green, gray.blue};
    float temperature = 0.0f, tint = 0.0f;
    const int32_t status = KXEffectsTemperatureAndTintForGrayWithRanges(
        colour, &temperature, &tint, settings.Get<float>("min-temperature"), settings.Get<float>("max-temperature"),
        settings.Get<float>("min-tint"), settings.Get<float>("max-tint"));
    return ApplyFoundTemperature(call, status, temperature, tint);
}

int32_t MatchCurves(const EffectCall& call)
{
    const std::vector<float> curves = CurveTable(call, "curve");
    if (curves.size() < 3 * 256)
        throw ToolError("--curve: give three channels of 256 values");
    float temperature = 0.0f, tint = 0.0f;
    const int32_t status = KXEffectsTemperatureAndTintForCurves(curves.data(), &temperature, &tint);
    return ApplyFoundTemperature(call, status, temperature, tint);
}

int32_t WhiteBalancePreset(const EffectCall& call)
{
    const int32_t preset = call.settings.Get<int32_t>("preset");
    if (preset < 0)
        throw ToolError("--preset: give 0 to 8");
    float temperature = 0.0f, tint = 0.0f;
    const int32_t status = KXEffectsWhiteBalanceTemperatureAndTint(nullptr, uint32_t(preset), &temperature, &tint);
    return ApplyFoundTemperature(call, status, temperature, tint);
}

int32_t AddToner(const EffectCall& call)
{
    const Colour toner = call.settings.Get<Colour>("toner");
    const float colour[] = {toner.red, toner.green, toner.blue};
    return KXEffectsAddToner(call.Source(), call.destination, &call.rect, colour, call.settings.Get<float>("amount"));
}

// ---- Automatic analysis ----

int32_t ColourPlanesOf(KXImage* image)
{
    return KXImageGetNumPlanes(image) - KXImageGetTransparency(image);
}

// One "name: values" line.
void PrintNumbers(const char* name, const float* values, int32_t count)
{
    std::printf("%s:", name);
    for (int32_t i = 0; i < count; ++i)
        std::printf(" %g", values[i]);
    std::printf("\n");
}

int32_t PrintAnalysis(const EffectCall& call)
{
    float means[4] = {}, deviations[4] = {};
    const int32_t status = KXEffectsAnalyzeImage(call.Source(), &call.rect, means, deviations);
    if (status != kKXNoErr)
        return status;
    const int32_t channels = ColourPlanesOf(call.Source()) == 3 ? 4 : 1;
    PrintNumbers("means", means, channels);
    PrintNumbers("deviations", deviations, channels);
    return kKXNoErr;
}

int32_t PrintAutoTone(const EffectCall& call)
{
    float black[3], white[3], brightness, contrast, shadows, highlights;
    const int32_t status =
        KXEffectsAutoTone(call.Source(), black, white, &brightness, &contrast, &shadows, &highlights);
    if (status != kKXNoErr)
        return status;
    PrintNumbers("black", black, 3);
    PrintNumbers("white", white, 3);
    std::printf("brightness: %g\ncontrast: %g\nshadows: %g\nhighlights: %g\n", brightness, contrast, shadows,
                highlights);
    return kKXNoErr;
}

int32_t PrintBlackAndWhitePoints(const EffectCall& call)
{
    const SettingValues& settings = call.settings;
    float black[3], white[3];
    const int32_t status =
        KXEffectsBlackAndWhitePointsGetPoints(call.Source(), black, white, settings.Get<float>("shadow-clip"),
                                              settings.Get<float>("highlight-clip"), settings.Get<bool>("combined"));
    if (status != kKXNoErr)
        return status;
    PrintNumbers("black", black, ColourPlanesOf(call.Source()));
    PrintNumbers("white", white, ColourPlanesOf(call.Source()));
    return kKXNoErr;
}

// A table made by the library is applied to the input through the curves effect.
int32_t ApplyMadeCurves(const EffectCall& call, const std::function<int32_t(float* curves)>& makeCurves)
{
    std::vector<float> curves(4 * 256);
    const int32_t status = makeCurves(curves.data());
    if (status != kKXNoErr)
        return status;
    return KXEffectsApplyCurves(call.Source(), call.destination, &call.rect, curves.data());
}

template <int32_t (*MakeCurves)(KXImage*, float*)> int32_t ImageCurvesRow(const EffectCall& call)
{
    return ApplyMadeCurves(call, [&](float* curves) { return MakeCurves(call.Source(), curves); });
}

// The points per colour plane, a gray image taking the first.
struct Points {
    float black[3], white[3];
};

Points PointsOf(const EffectCall& call)
{
    const Colour black = call.settings.Get<Colour>("black"), white = call.settings.Get<Colour>("white");
    return {{black.red, black.green, black.blue}, {white.red, white.green, white.blue}};
}

int32_t BlackAndWhitePointsCurves(const EffectCall& call)
{
    const Points points = PointsOf(call);
    return ApplyMadeCurves(call, [&](float* curves) {
        return KXEffectsBlackAndWhitePointsMakeCurves(ColourPlanesOf(call.Source()), curves, points.black,
                                                      points.white);
    });
}

int32_t ApplyBlackAndWhitePoints(const EffectCall& call)
{
    const Points points = PointsOf(call);
    return KXEffectsBlackAndWhitePointsApply(call.Source(), call.destination, &call.rect, points.black,
                                             points.white);
}

int32_t AutoColorTemperature(const EffectCall& call)
{
    float temperature = 0.0f, tint = 0.0f;
    const int32_t status = KXEffectsAutoColorTemperatureAndTint(call.Source(), &temperature, &tint);
    return ApplyFoundTemperature(call, status, temperature, tint);
}

const SettingSpec kPointSettings[] = {
    {"black", SettingKind::Colour, "0,0,0", "r,g,b in 0..1 that become black; a gray image takes the first"},
    {"white", SettingKind::Colour, "1,1,1", "r,g,b in 0..1 that become white; a gray image takes the first"}};

// ---- Hue ----

// One tuner entry at a time: slot 0 to 7 moves one anchor hue, 8 is the master. Tells where the anchor
// lands, from the library's own tables.
int32_t TuneColors(const EffectCall& call)
{
    const SettingValues& settings = call.settings;
    const int32_t slot = settings.Get<int32_t>("index");
    if (slot < 0 || slot > 8)
        throw ToolError("--index: give 0 to 8");
    float hues[9] = {}, saturations[9] = {}, brightnesses[9] = {};
    hues[slot] = settings.Get<float>("hue");
    saturations[slot] = settings.Get<float>("saturation");
    brightnesses[slot] = settings.Get<float>("brightness");
    if (slot < 8) {
        float shifts[9], saturationGains[9], brightnessGains[9], reciprocalGaps[8];
        const float* anchors = KXEffectsTuneColorsGetHueTables(hues, saturations, brightnesses, shifts,
                                                               saturationGains, brightnessGains, reciprocalGaps);
        const int32_t anchor = (slot + 7) % 8;
        std::printf("anchor hue %g moves to %g\n", anchors[anchor], anchors[anchor] + shifts[anchor]);
    }
    return KXEffectsTuneColors(call.Source(), call.destination, &call.rect, settings.Get<float>("temperature"),
                               settings.Get<float>("tint"), hues, saturations, brightnesses);
}

const SettingSpec kHueSetting = {"hue", SettingKind::Float, "0", "turns; 1 is a whole turn"};
const SettingSpec kHueSaturationSetting = {"saturation", SettingKind::Float, "0", "-1 (gray) up; 0 leaves it"};

const SettingSpec kSaturationVibranceSettings[] = {
    {"saturation", SettingKind::Float, "0", "-1 (gray at the brightest plane) up; 0 leaves the colours"},
    {"vibrance", SettingKind::Float, "0", "-1..1; lifts the duller colours most; 0 leaves them"}};

// ---- Grain and noise ----

// With --alone the grain is rendered on mid-gray: the library is called without a source.
KXImage* GrainBase(const EffectCall& call)
{
    return call.settings.Get<bool>("alone") ? nullptr : call.Source();
}

const SettingSpec kGrainSettings[] = {
    {"amount", SettingKind::Float, "0", "0..1, opacity of the grain overlay; 0 copies"},
    {"alone", SettingKind::Bool, "false", "the grain alone on mid-gray with full alpha"}};

// ---- Tone controls ----

KXImage* OptionalMask(const EffectCall& call)
{
    return RequireMask(call.settings.Get<ImageHandle>("mask").get(), "--mask");
}

// With --as-curve the response is written to a curve table and applied through the curves effect, which is
// how a host chains it with other curves.
int32_t ApplyAsCurve(const EffectCall& call, int32_t (*makeCurves)(int32_t, float*, float, float), float first,
                     float second)
{
    std::vector<float> curves(4 * 256);
    const int32_t status = makeCurves(4, curves.data(), first, second);
    return status != kKXNoErr ? status : KXEffectsApplyCurves(call.Source(), call.destination, &call.rect, curves.data());
}

int32_t BrightnessContrast(const EffectCall& call)
{
    const float brightness = call.settings.Get<float>("brightness"), contrast = call.settings.Get<float>("contrast");
    if (call.settings.Get<bool>("as-curve"))
        return ApplyAsCurve(call, KXEffectsBrightnessContrastMakeCurves, brightness, contrast);
    KXImage* mask = OptionalMask(call);
    if (!mask)
        return KXEffectsBrightnessContrast(call.Source(), call.destination, &call.rect, brightness, contrast);
    return KXEffectsBrightnessContrastWithMask(call.Source(), call.destination, mask, &call.rect, brightness, contrast);
}

int32_t BrightnessMidtoneContrast(const EffectCall& call)
{
    const float brightness = call.settings.Get<float>("brightness");
    const float midtoneContrast = call.settings.Get<float>("midtone-contrast");
    if (call.settings.Get<bool>("as-curve"))
        return ApplyAsCurve(call, KXEffectsBrightnessMidtoneContrastMakeCurves, brightness, midtoneContrast);
    KXImage* mask = OptionalMask(call);
    if (!mask)
        return KXEffectsBrightnessMidtoneContrast(call.Source(), call.destination, &call.rect, brightness,
                                                  midtoneContrast);
    return KXEffectsBrightnessMidtoneContrastWithMask(call.Source(), call.destination, mask, &call.rect, brightness,
                                                      midtoneContrast);
}

int32_t SignedBrightness(const EffectCall& call)
{
    const float brightness = call.settings.Get<float>("brightness");
    if (call.settings.Get<bool>("as-curve"))
        return ApplyAsCurve(call, [](int32_t n, float* c, float b, float) { return KXEffectsBrightnessAltMakeCurves(n, c, b); },
                            brightness, 0.0f);
    return KXEffectsBrightnessWithMask(call.Source(), call.destination, &call.rect, brightness, OptionalMask(call));
}

int32_t MidtoneContrast(const EffectCall& call)
{
    const float strength = call.settings.Get<float>("strength");
    if (call.settings.Get<bool>("as-curve"))
        return ApplyAsCurve(call, [](int32_t n, float* c, float g, float) { return KXEffectsMidtoneContrastMakeCurves(n, c, g); },
                            strength, 0.0f);
    return KXEffectsMidtoneContrast(call.Source(), call.destination, &call.rect, strength);
}

int32_t MidtoneContrastAlt(const EffectCall& call)
{
    const float strength = call.settings.Get<float>("strength");
    if (call.settings.Get<bool>("as-curve"))
        return ApplyAsCurve(
            call, [](int32_t n, float* c, float g, float) { return KXEffectsMidtoneContrastAltMakeCurves(n, c, g); },
            strength, 0.0f);
    return KXEffectsMidtoneContrastAltWithMask(call.Source(), call.destination, &call.rect, strength,
                                               OptionalMask(call));
}

// --brightness, when given, is turned into the exposure by the library's own mapping.
int32_t Exposure(const EffectCall& call)
{
    float exposure = call.settings.Get<float>("exposure");
    const float brightness = call.settings.Get<float>("brightness");
    if (brightness != 0.0f)
        KXEffectsBrightnessAltToExposure(brightness, &exposure);
    return KXEffectsExposure(call.Source(), call.destination, &call.rect, exposure);
}

const SettingSpec kToneBrightnessSetting = {"brightness", SettingKind::Float, "0", "-1..1; 0 leaves it"};
const SettingSpec kAsCurveSetting = {"as-curve", SettingKind::Bool, "false",
                                     "apply as a curve table through the curves effect"};
const SettingSpec kToneMaskSetting = {"mask", SettingKind::Image, "",
                                      "gray image of one plane: the strength at each pixel"};
const SettingSpec kSignedMaskSetting = {"mask", SettingKind::Image, "",
                                        "gray image of one plane: below mid-gray darkens, above lightens"};

// ---- Shadows and local tone ----

int32_t AdjustTone(const EffectCall& call)
{
    const SettingValues& settings = call.settings;
    const Colour black = settings.Get<Colour>("black"), white = settings.Get<Colour>("white");
    const float blacks[] = {black.red, black.green, black.blue}, whites[] = {white.red, white.green, white.blue};
    const bool curved = !settings.Get<std::vector<float>>("curve").empty();
    const std::vector<float> curves = curved ? CurveTable(call, "curve") : std::vector<float>();
    return KXEffectsAdjustTone(call.Source(), call.destination, &call.rect, blacks, whites,
                               settings.Get<float>("brightness"), settings.Get<float>("midtone-contrast"),
                               curved ? curves.data() : nullptr, nullptr);
}

int32_t ContrastMask(const EffectCall& call)
{
    const SettingValues& settings = call.settings;
    return KXEffectsApplyContrastMask(call.Source(), call.destination, &call.rect, settings.Get<float>("radius"),
                                      settings.Get<float>("dark-amount"), settings.Get<float>("low-band"),
                                      settings.Get<float>("low-feather"), settings.Get<float>("light-amount"),
                                      settings.Get<float>("high-band"), settings.Get<float>("high-feather"));
}

// ---- Tiles and masked application ----

// Six numbers, one a hue zone: red, yellow, green, cyan, blue, magenta.
std::vector<float> ZoneSetting(const EffectCall& call, const std::string& name)
{
    std::vector<float> zones = call.settings.Get<std::vector<float>>(name);
    if (zones.size() != 6)
        throw ToolError("--" + name + ": give six numbers, for red, yellow, green, cyan, blue and magenta");
    return zones;
}

int32_t ApplyEffectInZones(const EffectCall& call)
{
    const std::vector<float> effect = ZoneSetting(call, "effect-zones"), brightness = ZoneSetting(call, "brightness-zones");
    const std::vector<float> midtone = ZoneSetting(call, "midtone-zones");
    return KXEffectsApplyEffectInZones(call.inputs[0], call.inputs[1], OptionalMask(call), call.destination, &call.rect,
                                       effect.data(), brightness.data(), midtone.data());
}

// ---- Filters ----

// The luma image of an RGB input over the rectangle, laid into every colour plane of the output.
int32_t LuminosityImage(const EffectCall& call)
{
    KXImage* source = call.Source();
    if (KXImageGetNumPlanes(source) - KXImageGetTransparency(source) != 3)
        throw ToolError("luminosity: give an RGB input");
    const KXRect bounds = KXImageGetBounds(source);
    const KXRect rect = KXRectIntersect(&call.rect, &bounds);
    KXImage* luma = nullptr;
    const int32_t status = KXEffectsCreateLuminosityImage(source, &luma, &rect, 0);
    if (status != kKXNoErr)
        return status;
    const ImageHandle owned = AdoptImage(luma);
    std::vector<uint8_t> samples(size_t(rect.width) * size_t(rect.height) * size_t(KXImageGetPlaneBytes(luma)));
    CheckCoreStatus(KXImageRead2(luma, &rect, 0, 0, samples.data(), -1, 0), "cannot read the luma");
    for (int32_t plane = 0; plane < 3; ++plane)
        CheckCoreStatus(KXImageWrite2(call.destination, &rect, plane, plane, samples.data(), -1, 0),
                        "cannot write the luma");
    return kKXNoErr;
}

const SettingSpec kRadiusSetting = {"radius", SettingKind::Integer, "5", "pixels around each sample"};
const SettingSpec kThresholdSetting = {"threshold", SettingKind::Float, "0.1",
                                       "0..1: samples within about 2.5 x threshold count as alike"};
const SettingSpec kAmountSetting = {"amount", SettingKind::Float, "1", "0..1 mix with the input; 0 copies"};

// ---- Sharpening ----

const SettingSpec kSharpenAmountSetting = {"amount", SettingKind::Float, "1",
                                           "times the difference from the blur; above 1 is usual; 0 or less copies"};
const SettingSpec kSharpenThresholdSetting = {"threshold", SettingKind::Float, "0",
                                              "0..1 of white: smaller differences are left, larger lose it first"};
const SettingSpec kSharpenBoxRadiusSetting = {"radius", SettingKind::Integer, "2",
                                              "pixels of the blur; 0 or less copies"};
const SettingSpec kSharpenGaussianRadiusSetting = {"radius", SettingKind::Float, "2",
                                                   "standard deviation of the blur in pixels; 0 or less copies"};

template <int32_t (*Sharpen)(KXImage*, KXImage*, const KXRect*, float, int32_t, float)>
int32_t UnsharpMaskRow(const EffectCall& call)
{
    return Sharpen(call.Source(), call.destination, &call.rect, call.settings.Get<float>("amount"),
                   call.settings.Get<int32_t>("radius"), call.settings.Get<float>("threshold"));
}

// The library writes both passes; the one not asked for goes to an image of its own and is dropped.
int32_t HighPassAndLowPassRow(const EffectCall& call)
{
    KXImage* created = nullptr;
    CheckCoreStatus(KXEffectsCreateImageLike(call.Source(), &created, nullptr), "cannot make the second pass");
    const ImageHandle other = AdoptImage(created);
    const bool lowPass = call.settings.Get<bool>("low-pass");
    return KXEffectsHighPassAndLowPass(call.Source(), lowPass ? created : call.destination,
                                       lowPass ? call.destination : created, &call.rect,
                                       call.settings.Get<float>("radius"));
}

// ---- Blurs ----

const SettingSpec kBoxRadiusSetting = {"radius", SettingKind::Integer, "2",
                                       "pixels: the window is 2 radius + 1 square; 0 or less copies"};
const SettingSpec kBlurAmountSetting = {"amount", SettingKind::Float, "1",
                                        "mix with the input, not clamped; 0 or less copies"};
const SettingSpec kBoxLeftSetting = {"left", SettingKind::Integer, "-2", "first column of the window, from the pixel"};
const SettingSpec kBoxRightSetting = {"right", SettingKind::Integer, "2", "last column of the window, from the pixel"};
const SettingSpec kBoxTopSetting = {"top", SettingKind::Integer, "-2", "first row of the window, from the pixel"};
const SettingSpec kBoxBottomSetting = {"bottom", SettingKind::Integer, "2", "last row of the window, from the pixel"};
const SettingSpec kGaussianRadiusSetting = {"radius", SettingKind::Float, "2", "standard deviation in pixels"};
const SettingSpec kBlurModeSetting = {
    "mode", SettingKind::BlendMode, "norm",
    "norm, over, scrn, mul, dark, lite, diff, smud, div, vidi, lbrn, lddg, till, hLit, sLit, vLit, pLit, hMix, "
    "fsub or fdiv lays the blur over the input; Over, HLit, SLit, Div, Vidi, VLit, Till, HMix, FSub, FDiv under it"};

// The free window of a box blur row: columns left..right and rows top..bottom around each pixel.
struct BoxWindow {
    int32_t left, right, top, bottom;
};

BoxWindow BoxWindowOf(const EffectCall& call)
{
    const SettingValues& settings = call.settings;
    return {settings.Get<int32_t>("left"), settings.Get<int32_t>("right"), settings.Get<int32_t>("top"),
            settings.Get<int32_t>("bottom")};
}

template <int32_t (*Blur)(KXImage*, KXImage*, const KXRect*, float)> int32_t GaussianRow(const EffectCall& call)
{
    return Blur(call.Source(), call.destination, &call.rect, call.settings.Get<float>("radius"));
}

template <int32_t (*Blur)(KXImage*, KXImage*, const KXRect*, float, float)>
int32_t GaussianAmountRow(const EffectCall& call)
{
    return Blur(call.Source(), call.destination, &call.rect, call.settings.Get<float>("radius"),
                call.settings.Get<float>("amount"));
}

template <int32_t (*Blur)(KXImage*, KXImage*, const KXRect*, float, float, uint32_t)>
int32_t GaussianModeRow(const EffectCall& call)
{
    return Blur(call.Source(), call.destination, &call.rect, call.settings.Get<float>("radius"),
                call.settings.Get<float>("amount"), call.settings.Get<uint32_t>("mode"));
}

const SettingSpec kCurveSetting = {
    "curve", SettingKind::Curve, "0,0;1,1",
    "x,y points in 0..1 joined by straight lines, or a file of 256 values a channel or of one channel of any "
    "other count, resampled to 256"};
const SettingSpec kThenSetting = {"then", SettingKind::Curve, "", "a second curve, like --curve, applied after it"};

// ---- Colour selection ----

using MaskSelection = std::function<int32_t(KXImage* mask)>;

// The selection narrows a white one-plane mask of the input's depth and bounds; the mask then fills every
// colour plane of the output, alpha kept.
int32_t ShowSelection(const EffectCall& call, const MaskSelection& select)
{
    const KXRect bounds = KXImageGetBounds(call.Source());
    const int32_t depth = KXImageGetDepth(call.Source());
    KXImage* created = nullptr;
    CheckCoreStatus(KXImageCreateWithParams2(&bounds, depth, 1, KXColorSpaceGray, 0, KXDataSourceMemory, &created),
                    "cannot make a mask");
    const ImageHandle mask = AdoptImage(created);
    CheckCoreStatus(KXImageFill(created, depth == 8 ? 255.0f : depth == 16 ? 65535.0f : 1.0f), "cannot fill the mask");
    const int32_t status = select(created);
    if (status != kKXNoErr)
        return status;
    std::vector<uint8_t> samples(size_t(bounds.width) * size_t(bounds.height) * size_t(depth / 8));
    CheckCoreStatus(KXImageRead2(created, &bounds, 0, 0, samples.data(), -1, 0), "cannot read the mask");
    const int32_t colourPlanes = KXImageGetNumPlanes(call.destination) - KXImageGetTransparency(call.destination);
    for (int32_t plane = 0; plane < colourPlanes; ++plane)
        CheckCoreStatus(KXImageWrite2(call.destination, &bounds, plane, plane, samples.data(), -1, 0),
                        "cannot write the mask");
    return kKXNoErr;
}

template <int32_t (*Select)(KXImage*, KXImage*, const KXRect*, const float*, float)>
int32_t ColourSelectionRow(const EffectCall& call)
{
    const Colour colour = call.settings.Get<Colour>("colour");
    const float rgb[] = {colour.red, colour.green, colour.blue};
    return ShowSelection(call, [&](KXImage* mask) {
        return Select(call.Source(), mask, &call.rect, rgb, call.settings.Get<float>("range"));
    });
}

template <int32_t (*Select)(KXImage*, KXImage*, const KXRect*, float, float, float)>
int32_t BandSelectionRow(const EffectCall& call)
{
    const SettingValues& settings = call.settings;
    return ShowSelection(call, [&](KXImage* mask) {
        return Select(call.Source(), mask, &call.rect, settings.Get<float>("low"), settings.Get<float>("high"),
                      settings.Get<float>("feather"));
    });
}

template <int32_t (*Select)(KXImage*, KXImage*, const KXRect*, float, float, float, float)>
int32_t RampSelectionRow(const EffectCall& call)
{
    const SettingValues& settings = call.settings;
    return ShowSelection(call, [&](KXImage* mask) {
        return Select(call.Source(), mask, &call.rect, settings.Get<float>("ramp-start"),
                      settings.Get<float>("ramp-full"), settings.Get<float>("fall-start"),
                      settings.Get<float>("fall-end"));
    });
}

template <int32_t (*Select)(KXImage*, KXImage*, const KXRect*, int32_t, float)>
int32_t PresetSelectionRow(const EffectCall& call)
{
    return ShowSelection(call, [&](KXImage* mask) {
        return Select(call.Source(), mask, &call.rect, call.settings.Get<int32_t>("code"),
                      call.settings.Get<float>("range"));
    });
}

int32_t FleshSelectionRow(const EffectCall& call)
{
    const SettingValues& settings = call.settings;
    return ShowSelection(call, [&](KXImage* mask) {
        return KXEffectsSelectFleshColors(call.Source(), mask, &call.rect, settings.Get<int32_t>("table"),
                                          settings.Get<float>("range"), settings.Get<float>("strength"),
                                          settings.Get<bool>("exclude"));
    });
}

// The rows that compute numbers print them, one "name: values" line each, and pass the input through.
int32_t PrintMaskBounds(const EffectCall& call)
{
    KXRect bounds{};
    const int32_t status = KXEffectsFindMaskBounds(call.Source(), &bounds);
    if (status == kKXNoErr)
        std::printf("bounds: %d %d %d %d\n", bounds.x, bounds.y, bounds.width, bounds.height);
    return status;
}

int32_t PrintFleshColorTable(const EffectCall& call)
{
    float r[6];
    const int32_t status = KXEffectsGetFleshColorTable(call.settings.Get<int32_t>("table"), r);
    if (status == kKXNoErr)
        std::printf("y: %g %g\ncb: %g %g\ncr: %g %g\n", r[0], r[1], r[2], r[3], r[4], r[5]);
    return status;
}

int32_t PrintColorForIndex(const EffectCall& call)
{
    float rgb[3];
    const int32_t status = KXEffectsGetColorForIndex(uint32_t(call.settings.Get<int32_t>("index")), rgb);
    if (status == kKXNoErr)
        std::printf("color: %g %g %g\n", rgb[0], rgb[1], rgb[2]);
    return status;
}

const SettingSpec kSelectColourSetting = {"colour", SettingKind::Colour, "1,0,0", "r,g,b in 0..1 to select"};
const SettingSpec kSelectRangeSetting = {"range", SettingKind::Float, "1", "above 0; larger selects more"};
const SettingSpec kBandSettings[] = {{"low", SettingKind::Float, "0.25", "0..1; 0 leaves the low end open"},
                                     {"high", SettingKind::Float, "0.75", "0..1; 1 leaves the high end open"},
                                     {"feather", SettingKind::Float, "1", "shoulders of 0.075 x feather"}};
const SettingSpec kRampSettings[] = {{"ramp-start", SettingKind::Float, "0.2", "where the weight leaves 0"},
                                     {"ramp-full", SettingKind::Float, "0.4", "where it reaches 1"},
                                     {"fall-start", SettingKind::Float, "0.6", "where it leaves 1"},
                                     {"fall-end", SettingKind::Float, "0.8", "where it is back at 0"}};
const SettingSpec kFleshTableSetting = {"table", SettingKind::Integer, "0", "flesh table 0 to 5"};

const std::vector<EffectRow> kEffects = {
    // ---- Frame ----
    {"invert", "colour planes become white minus the sample; alpha is kept", kOneInput, {},
     [](const EffectCall& call) { return KXEffectsInvert(call.Source(), call.destination, &call.rect); }},
    {"copy", "copies the rectangle, alpha included", kOneInput, {},
     [](const EffectCall& call) { return KXEffectsCopyImage(call.Source(), call.destination, &call.rect); }},
    // ---- Colour ----
    {"convert-image-mode",
     "colour model of an RGB image: 0 HSV, 1 from HSV, 2 HSL, 3 from HSL, 4 YCbCr, 5 from YCbCr, 6 gray, 8 gray on "
     "white; alpha is kept",
     kOneInput,
     {{"conversion", SettingKind::Integer, "0", "0 to 6 or 8; gray results fill all three planes"}},
     ConvertImage},
    {"desaturate",
     "lays the luma of each pixel over it in a blend mode at an amount; alpha is kept",
     kOneInput,
     {{"mode", SettingKind::BlendMode, "norm", "four characters such as norm, mul, scrn, over, lum"},
      {"amount", SettingKind::Float, "1", "opacity of the luma; 0 or less copies"}},
     [](const EffectCall& call) {
         return KXEffectsDesaturate(call.Source(), call.destination, &call.rect, call.settings.Get<uint32_t>("mode"),
                                    call.settings.Get<float>("amount"));
     }},
    {"photo-filter",
     "blends a flat, linear or radial colour into an RGB image after saturation and contrast; alpha is kept",
     kOneInput,
     {{"kind", SettingKind::Integer, "0", "0 flat, 1 linear, 2 linear from colour2, 3 radial, 4 radial from colour2"},
      {"saturation", SettingKind::Float, "0", "-1 (gray) up; 0 leaves the colours"},
      {"contrast", SettingKind::Float, "0", "0 (none) to 1 (full S curve)"},
      {"mode", SettingKind::BlendMode, "mul", "four characters such as norm, mul, scrn, over, colr"},
      {"centre", SettingKind::Point, "0,0", "x,y in image pixels, for kinds 1 to 4"},
      {"angle-or-radius", SettingKind::Float, "0", "degrees of the linear kinds, pixels of the radial ones"},
      {"length-or-feather", SettingKind::Float, "100", "pixels over which the gradient runs; above 0"},
      {"colour1", SettingKind::Colour, "1,0.6,0.2", "r,g,b in 0..1"},
      {"opacity1", SettingKind::Float, "0.25", "0..1, of colour1"},
      {"colour2", SettingKind::Colour, "0.2,0.6,1", "r,g,b in 0..1, for kinds 2 and 4"},
      {"opacity2", SettingKind::Float, "0", "0..1, of colour2"}},
     PhotoFilter},
    // ---- Shadows and local tone ----
    {"shadows-highlights", "lifts dark neighbourhoods and holds back bright ones of an RGB image", kOneInput,
     {{"radius", SettingKind::Float, "20", "gaussian radius of the neighbourhood in pixels"},
      {"shadows", SettingKind::Float, "0", "0..1"},
      {"highlights", SettingKind::Float, "0", "0..1"}},
     [](const EffectCall& call) {
         const SettingValues& settings = call.settings;
         return KXEffectsShadowsAndHilites(call.Source(), call.destination, &call.rect, settings.Get<float>("radius"),
                                           settings.Get<float>("shadows"), settings.Get<float>("highlights"));
     }},
    {"contrast-mask", "mixes in the overlay of the inverted blurred luma outside a protected band; RGB only",
     kOneInput,
     {{"radius", SettingKind::Float, "20", "gaussian radius in pixels"},
      {"dark-amount", SettingKind::Float, "0", "0..1 below the band"},
      {"low-band", SettingKind::Float, "0.25", "luma where the band starts"},
      {"low-feather", SettingKind::Float, "1", "softness of the band's start"},
      {"light-amount", SettingKind::Float, "0", "0..1 above the band"},
      {"high-band", SettingKind::Float, "0.75", "luma where the band ends"},
      {"high-feather", SettingKind::Float, "1", "softness of the band's end"}},
     ContrastMask},
    {"adjust-shadows", "reshapes the tones below a threshold; above it nothing moves", kOneInput,
     {{"strength", SettingKind::Float, "0", "-1..1: slope at black; 0 copies"},
      {"threshold", SettingKind::Float, "0.5", "0..1: where the knee meets the line"}},
     [](const EffectCall& call) {
         return KXEffectsAdjustShadows(call.Source(), call.destination, &call.rect,
                                       call.settings.Get<float>("strength"), call.settings.Get<float>("threshold"));
     }},
    {"adjust-tone", "black and white points, brightness, midtone contrast and a curve as one table", kOneInput,
     {{"black", SettingKind::Colour, "0,0,0", "black point of each plane, 0..1"},
      {"white", SettingKind::Colour, "1,1,1", "white point of each plane, 0..1"},
      kToneBrightnessSetting,
      {"midtone-contrast", SettingKind::Float, "0", "-1..1"},
      {"curve", SettingKind::Curve, "", "a curve run first, as in the curves effect"}},
     AdjustTone},
    // ---- Tiles and masked application ----
    {"apply-effect-with-mask",
     "mixes EFFECT, made from SOURCE, back over it: weight amount / 2, moved by the mask's distance from mid-gray",
     {"SOURCE", "EFFECT"},
     {{"amount", SettingKind::Float, "2", "2 gives the effect in full, 0 the source"},
      {"mask", SettingKind::Image, "", "gray image of one plane; mid-gray leaves the weight"}},
     [](const EffectCall& call) {
         return KXEffectsApplyEffectWithMask(call.inputs[0], call.inputs[1], OptionalMask(call), call.destination,
                                             &call.rect, call.settings.Get<float>("amount"));
     }},
    {"apply-effect-in-zones",
     "mixes EFFECT over SOURCE by the hue of each pixel, then changes brightness and midtones by hue; RGB only",
     {"SOURCE", "EFFECT"},
     {{"effect-zones", SettingKind::Numbers, "0,0,0,0,0,0", "red,yellow,green,cyan,blue,magenta: more effect"},
      {"brightness-zones", SettingKind::Numbers, "0,0,0,0,0,0", "six brightness changes by hue"},
      {"midtone-zones", SettingKind::Numbers, "0,0,0,0,0,0", "six midtone contrast changes by hue"},
      {"mask", SettingKind::Image, "", "gray image of one plane; mid-gray is neutral"}},
     ApplyEffectInZones},
    // ---- Grain and noise ----
    {"add-noise", "adds uniform noise of up to amount x white to each colour plane; alpha is kept", kOneInput,
     {{"type", SettingKind::Integer, "0", "0 a value per sample, 1 one per pixel, 2 from a fixed tile by position"},
      {"amount", SettingKind::Float, "0", "0..1 of white, the largest change; 0 copies"}},
     [](const EffectCall& call) {
         return KXEffectsAddNoise(call.Source(), call.destination, &call.rect, call.settings.Get<int32_t>("type"),
                                  call.settings.Get<float>("amount"));
     }},
    {"film-grain", "overlays GRAIN, placed by its bounds and at least as large, one byte a column; alpha is kept",
     {"INPUT", "GRAIN"},
     {kGrainSettings[0], kGrainSettings[1]},
     [](const EffectCall& call) {
         return KXEffectsApplyFilmGrain(GrainBase(call), call.destination, &call.rect, call.inputs[1],
                                        call.settings.Get<float>("amount"));
     }},
    {"film-grain-tile", "overlays a grain tile repeated over the image and magnified by a scale; alpha is kept",
     kOneInput,
     {{"tile", SettingKind::Image, "", "a power-of-two gray image, read one sample a column; none copies"},
      kGrainSettings[0], {"scale", SettingKind::Float, "1", "image pixels per tile pixel, above 0"}, kGrainSettings[1]},
     [](const EffectCall& call) {
         return KXEffectsApplyFilmGrainTile(GrainBase(call), call.destination, &call.rect,
                                            call.settings.Get<ImageHandle>("tile").get(),
                                            call.settings.Get<float>("amount"), call.settings.Get<float>("scale"));
     }},
    // ---- Tone controls ----
    {"brightness-contrast", "brightness and contrast on each colour plane; alpha is kept", kOneInput,
     {kToneBrightnessSetting, {"contrast", SettingKind::Float, "0", "-1..1; 0 leaves it"}, kToneMaskSetting,
      kAsCurveSetting},
     BrightnessContrast},
    {"brightness-midtone-contrast", "brightness and S-shaped midtone contrast on each colour plane", kOneInput,
     {kToneBrightnessSetting, {"midtone-contrast", SettingKind::Float, "0", "-1..1; 0 leaves it"},
      kToneMaskSetting, kAsCurveSetting},
     BrightnessMidtoneContrast},
    {"brightness", "brightness on each colour plane, optionally with a signed mask", kOneInput,
     {kToneBrightnessSetting, kSignedMaskSetting, kAsCurveSetting}, SignedBrightness},
    {"midtone-contrast", "S-shaped midtone contrast on each colour plane", kOneInput,
     {{"strength", SettingKind::Float, "0", "-1..1; 0 leaves it"}, kAsCurveSetting}, MidtoneContrast},
    {"midtone-contrast-alt", "midtone contrast reaching past +-1 into plain contrast, with a signed mask",
     kOneInput,
     {{"strength", SettingKind::Float, "0", "-2..2; 0 leaves it"}, kSignedMaskSetting, kAsCurveSetting},
     MidtoneContrastAlt},
    {"exposure", "a soft-shouldered exposure that keeps the hue of every pixel", kOneInput,
     {{"exposure", SettingKind::Float, "1", "multiplier; 1 copies"},
      {"brightness", SettingKind::Float, "0", "-1..1 instead of --exposure: 1 is x3, -1 is x0.5"}},
     Exposure},
    {"brightness-haze-saturation", "brightness and saturation, then haze lifts black toward gray; RGB only",
     kOneInput,
     {kToneBrightnessSetting, {"haze", SettingKind::Float, "0", "0..1: the level black is lifted to"},
      {"saturation", SettingKind::Float, "0", "-1..1; 0 leaves it"}},
     [](const EffectCall& call) {
         const SettingValues& settings = call.settings;
         return KXEffectsBrightnessHazeSaturation(call.Source(), call.destination, &call.rect,
                                                  settings.Get<float>("brightness"), settings.Get<float>("haze"),
                                                  settings.Get<float>("saturation"));
     }},
    // ---- Automatic analysis ----
    {"analyze-image", "prints the means and deviations of the colour planes (and luma of RGB) over the rectangle",
     kOneInput, {}, PrintAnalysis},
    {"auto-color", "takes the near-gray pixels of an RGB image toward gray through per-channel curves", kOneInput,
     {}, ImageCurvesRow<KXEffectsAutoColorMakeCurves>},
    {"auto-color-temperature",
     "finds the temperature and tint nearest to the auto colour and applies them; prints them", kOneInput,
     {kSaturationVibranceSettings[0], kSaturationVibranceSettings[1]}, AutoColorTemperature},
    {"auto-tone", "prints the black and white points, brightness, contrast, shadows and highlights of an RGB image",
     kOneInput, {}, PrintAutoTone},
    {"black-and-white-points", "prints the points that clip the given fractions at each end; 8 and 16-bit",
     kOneInput,
     {{"shadow-clip", SettingKind::Float, "0.001", "fraction of the pixels at or below black"},
      {"highlight-clip", SettingKind::Float, "0.001", "fraction of the pixels at or above white"},
      {"combined", SettingKind::Bool, "false", "one histogram of the mean of the planes"}},
     PrintBlackAndWhitePoints},
    {"black-and-white-points-curves", "stretches black..white of each colour plane to 0..1 through curves",
     kOneInput, {kPointSettings[0], kPointSettings[1]}, BlackAndWhitePointsCurves},
    {"black-and-white-points-apply", "stretches black..white of each colour plane to 0..1; 8 and 16-bit", kOneInput,
     {kPointSettings[0], kPointSettings[1]}, ApplyBlackAndWhitePoints},
    {"equalize", "equalizes the histogram of all colour planes of the whole image; alpha is kept", kOneInput, {},
     [](const EffectCall& call) { return KXEffectsEqualize(call.Source(), call.destination); }},
    {"equalize-luminosity", "equalizes the luma of the whole image, one gain a pixel so hues stay", kOneInput, {},
     [](const EffectCall& call) { return KXEffectsEqualizeLuminosity(call.Source(), call.destination); }},
    {"equalize-curves", "the equalization as curves, applied over the rectangle", kOneInput, {},
     ImageCurvesRow<KXEffectsEqualizeMakeCurves>},
    // ---- Hue ----
    {"hue-saturation", "turns the hue, and scales saturation and brightness, of an RGB image; alpha is kept",
     kOneInput,
     {kHueSetting, kHueSaturationSetting, {"brightness", SettingKind::Float, "0", "-1..1; 0 leaves it"}},
     [](const EffectCall& call) {
         const SettingValues& settings = call.settings;
         return KXEffectsHueSaturationBrightness(call.Source(), call.destination, &call.rect,
                                                 settings.Get<float>("hue"), settings.Get<float>("saturation"),
                                                 settings.Get<float>("brightness"));
     }},
    {"hue-saturation-lightness", "turns the hue, and scales saturation and lightness, of an RGB image",
     kOneInput,
     {kHueSetting, kHueSaturationSetting, {"lightness", SettingKind::Float, "0", "-1..1; 0 leaves it"}},
     [](const EffectCall& call) {
         const SettingValues& settings = call.settings;
         return KXEffectsHueSaturationLightness(call.Source(), call.destination, &call.rect,
                                                settings.Get<float>("hue"), settings.Get<float>("saturation"),
                                                settings.Get<float>("lightness"));
     }},
    {"tune-colors",
     "moves one of eight hues (index 0 to 7) or all of them (8) in hue, saturation and brightness, after "
     "temperature and tint",
     kOneInput,
     {{"index", SettingKind::Integer, "8", "0 to 7 one tuned hue (0 is just below red), 8 the master"},
      {"hue", SettingKind::Float, "0", "-1..1: 1 moves the hue onto the next tuned one"},
      {"saturation", SettingKind::Float, "0", "-1 up; 0 leaves it"},
      {"brightness", SettingKind::Float, "0", "-1 up; 0 leaves it"},
      {"temperature", SettingKind::Float, "0", "-1 (cool) to 1 (warm)"},
      {"tint", SettingKind::Float, "0", "-1 (green) to 1 (magenta)"}},
     TuneColors},
    {"colorize", "gives every pixel of an RGB image one hue and saturation, keeping its lightness", kOneInput,
     {{"hue", SettingKind::Float, "0.1", "turns 0..1"},
      {"saturation", SettingKind::Float, "0.5", "0..1"},
      {"lightness", SettingKind::Float, "0", "-1 (black) to 1 (white); 0 keeps it"}},
     [](const EffectCall& call) {
         const SettingValues& settings = call.settings;
         return KXEffectsColorize(call.Source(), call.destination, &call.rect, settings.Get<float>("hue"),
                                  settings.Get<float>("saturation"), settings.Get<float>("lightness"));
     }},
    {"channel-mixer", "red and green planes as sums of the three planes, each term within -1..1; blue turns white",
     kOneInput,
     {{"red-red", SettingKind::Float, "1", "weight of red in red"},
      {"red-green", SettingKind::Float, "0", "weight of green in red"},
      {"red-blue", SettingKind::Float, "0", "weight of blue in red"},
      {"green-red", SettingKind::Float, "0", "weight of red in green"},
      {"green-green", SettingKind::Float, "1", "weight of green in green"},
      {"green-blue", SettingKind::Float, "0", "weight of blue in green"}},
     [](const EffectCall& call) {
         const SettingValues& settings = call.settings;
         return KXEffectsChannelMixer(call.Source(), call.destination, &call.rect, settings.Get<float>("red-red"),
                                      settings.Get<float>("red-green"), settings.Get<float>("red-blue"),
                                      settings.Get<float>("green-red"), settings.Get<float>("green-green"),
                                      settings.Get<float>("green-blue"));
     }},
    {"purity", "bleaches the colour out of the darkest and lightest tones of an RGB image", kOneInput,
     {{"shadows", SettingKind::Float, "0", "width of the dark band in luma, 0..1"},
      {"highlights", SettingKind::Float, "0", "width of the light band in luma, 0..1"}},
     [](const EffectCall& call) {
         return KXEffectsPurity(call.Source(), call.destination, &call.rect, call.settings.Get<float>("shadows"),
                                call.settings.Get<float>("highlights"));
     }},
    {"protect-colors",
     "lays ADJUSTED over REFERENCE except in the darkest and lightest tones and in skin, where REFERENCE stays",
     {"REFERENCE", "ADJUSTED"},
     {{"shadows", SettingKind::Float, "0", "width of the protected dark band in luma, 0..1"},
      {"highlights", SettingKind::Float, "0", "width of the protected light band in luma, 0..1"},
      {"skin", SettingKind::Float, "0", "0..1: how fully skin tones are protected"},
      {"table", SettingKind::Integer, "0", "flesh table 0 to 5"}},
     [](const EffectCall& call) {
         const SettingValues& settings = call.settings;
         return KXEffectsProtectColors(call.inputs[0], call.inputs[1], call.destination, &call.rect,
                                       settings.Get<float>("shadows"), settings.Get<float>("highlights"),
                                       settings.Get<float>("skin"), settings.Get<int32_t>("table"));
     }},
    // ---- Black and white ----
    {"black-and-white",
     "gray of an RGB image by a filter hue, with midtone contrast, a grain tile and a toner; alpha is kept",
     kOneInput,
     {{"hue", SettingKind::Float, "0", "turns 0..1 of the filter: 0 red, 0.333 green, 0.667 blue"},
      {"contrast", SettingKind::Float, "0", "-1..1 midtone contrast; 0 none"},
      {"grain", SettingKind::Image, "", "a 256 x 256 image whose first plane is overlaid as grain"},
      {"grain-amount", SettingKind::Float, "0", "0..1 of the grain; 0 none"},
      {"toner", SettingKind::Colour, "0.44,0.26,0.08", "r,g,b in 0..1"},
      {"toner-amount", SettingKind::Float, "0", "0..1 of the toner; 0 none"}},
     BlackAndWhite},
    {"black-and-white-color-response",
     "gray of an RGB image as luma plus a response to each of six colours, after an optional filter",
     kOneInput,
     {kFilterSetting, kResponseSettings[0], kResponseSettings[1], kResponseSettings[2], kResponseSettings[3],
      kResponseSettings[4], kResponseSettings[5]},
     ColorResponseRow},
    {"black-and-white-auto-mixture",
     "finds the six colour responses from the spread of each colour and applies them; prints them",
     kOneInput,
     {kFilterSetting},
     AutoMixture},
    {"color-filter", "every colour plane becomes red x R + green x G + blue x B, not clamped; alpha is kept",
     kOneInput,
     {{"red", SettingKind::Float, "0.299", "weight of the first plane"},
      {"green", SettingKind::Float, "0.587", "weight of the second plane"},
      {"blue", SettingKind::Float, "0.114", "weight of the third plane"}},
     [](const EffectCall& call) {
         const SettingValues& settings = call.settings;
         return KXEffectsColorFilter(call.Source(), call.destination, &call.rect, settings.Get<float>("red"),
                                     settings.Get<float>("green"), settings.Get<float>("blue"));
     }},
    {"black-and-white-with-color-filter",
     "the colour filter of a hue, not normalised: a secondary hue adds two planes and may pass white",
     kOneInput,
     {{"hue", SettingKind::Float, "0", "turns 0..1: 0 red, 0.167 yellow, 0.333 green"}},
     [](const EffectCall& call) {
         return KXEffectsBlackAndWhiteWithColorFilter(call.Source(), call.destination, &call.rect,
                                                      call.settings.Get<float>("hue"));
     }},
    {"black-white", "every colour plane becomes the luma (mode 0) or the mean of the colour planes (mode 1)",
     kOneInput,
     {{"mode", SettingKind::Integer, "0", "0 luma of an RGB image, 1 mean; others leave the output a copy"}},
     [](const EffectCall& call) {
         return KXEffectsBlackWhite(call.Source(), call.destination, &call.rect, call.settings.Get<int32_t>("mode"));
     }},
    // ---- White balance ----
    {"temperature",
     "warms or cools and tints an RGB image, then saturation and vibrance; black and white stay; alpha is kept",
     kOneInput,
     {{"temperature", SettingKind::Float, "0", "-1 (cool) to 1 (warm)"},
      {"tint", SettingKind::Float, "0", "-1 (green) to 1 (magenta)"},
      kSaturationVibranceSettings[0],
      kSaturationVibranceSettings[1]},
     [](const EffectCall& call) {
         return ApplyTemperature(call, call.settings.Get<float>("temperature"), call.settings.Get<float>("tint"));
     }},
    {"vibrance", "saturates the duller colours of an RGB image most, keeping the sum of the planes", kOneInput,
     {kSaturationVibranceSettings[1]},
     [](const EffectCall& call) {
         return KXEffectsVibrance(call.Source(), call.destination, &call.rect, call.settings.Get<float>("vibrance"));
     }},
    {"neutralise",
     "finds and applies the temperature and tint that make a picked colour gray; prints them",
     kOneInput,
     {{"gray", SettingKind::Colour, "0.5,0.5,0.5", "r,g,b in 0..1 of something that should be gray"},
      {"min-temperature", SettingKind::Float, "-1", "lowest temperature tried"},
      {"max-temperature", SettingKind::Float, "1", "highest temperature tried"},
      {"min-tint", SettingKind::Float, "-1", "lowest tint tried"},
      {"max-tint", SettingKind::Float, "1", "highest tint tried"},
      kSaturationVibranceSettings[0],
      kSaturationVibranceSettings[1]},
     Neutralise},
    {"match-curves",
     "finds and applies the temperature and tint nearest to what curves do to a light gray; prints them",
     kOneInput,
     {{"curve", SettingKind::Curve, "", "a file of three channels of 256 values"},
      kSaturationVibranceSettings[0],
      kSaturationVibranceSettings[1]},
     MatchCurves},
    {"white-balance-preset",
     "finds and applies the temperature and tint of an illuminant preset (3 to 7); prints them",
     kOneInput,
     {{"preset", SettingKind::Integer, "0", "0 or 2 neutral, 3 to 7 illuminants"},
      kSaturationVibranceSettings[0],
      kSaturationVibranceSettings[1]},
     WhiteBalancePreset},
    {"toner",
     "maps the luminosity of an RGB image through a toner colour, black and white kept; alpha is kept",
     kOneInput,
     {{"toner", SettingKind::Colour, "0.44,0.26,0.08", "r,g,b in 0..1"}, kAmountSetting},
     AddToner},
    // ---- Curves and fills ----
    {"curves",
     "maps each colour plane through its curve; alpha is kept",
     kOneInput,
     {kCurveSetting, kThenSetting},
     [](const EffectCall& call) {
         return KXEffectsApplyCurves(call.Source(), call.destination, &call.rect, CurvesOfCall(call).data());
     }},
    {"curves-with-amount",
     "curves mixed with the input by amount; alpha is kept",
     kOneInput,
     {kCurveSetting, kThenSetting, {"amount", SettingKind::Float, "1", "0 (input) to 1 (full curve)"}},
     [](const EffectCall& call) {
         return KXEffectsApplyCurvesWithAmount(call.Source(), call.destination, &call.rect, CurvesOfCall(call).data(),
                                               call.settings.Get<float>("amount"));
     }},
    {"fill-color",
     "fills the rectangle with one colour, alpha included",
     kOneInput,
     {{"colour", SettingKind::Colour, "0,0,0", "r,g,b in 0..1; a gray image takes its luma"},
      {"alpha", SettingKind::Float, "1", "0..1, for an image with alpha"}},
     [](const EffectCall& call) { return KXEffectsFillColor(call.destination, &call.rect, FillColour(call).data()); }},
    {"solarize",
     "colour samples above the middle become white minus the sample; alpha is kept",
     kOneInput,
     {},
     [](const EffectCall& call) { return KXEffectsSolarize(call.Source(), call.destination, &call.rect); }},
    // ---- Filters ----
    {"surface-blur", "edge-preserving smoothing: each sample moves toward the mean of its alike neighbours",
     kOneInput,
     {kRadiusSetting, kThresholdSetting, kAmountSetting},
     [](const EffectCall& call) {
         const SettingValues& settings = call.settings;
         return KXEffectsSurfaceBlur(call.Source(), call.destination, &call.rect, settings.Get<int32_t>("radius"),
                                     settings.Get<float>("threshold"), settings.Get<float>("amount"));
     }},
    {"surface-blur-with-offset", "surface blur written at the source coordinates minus the offset",
     kOneInput,
     {kRadiusSetting, kThresholdSetting, kAmountSetting,
      {"offset", SettingKind::Point, "0,0", "x,y subtracted from the coordinates of the result"}},
     [](const EffectCall& call) {
         const SettingValues& settings = call.settings;
         return KXEffectsSurfaceBlurWithOffset(call.Source(), call.destination, &call.rect,
                                               settings.Get<int32_t>("radius"), settings.Get<float>("threshold"),
                                               settings.Get<float>("amount"), settings.Get<KXPoint>("offset"));
     }},
    {"surface-blur-luminosity", "surface blur of the luma of an RGB image, keeping chroma and hue; alpha is kept",
     kOneInput,
     {kRadiusSetting, kThresholdSetting, kAmountSetting},
     [](const EffectCall& call) {
         const SettingValues& settings = call.settings;
         return KXEffectsSurfaceBlurLuminosity(call.Source(), call.destination, &call.rect,
                                               settings.Get<int32_t>("radius"), settings.Get<float>("threshold"),
                                               settings.Get<float>("amount"));
     }},
    {"luminosity", "0.299 R + 0.587 G + 0.114 B of an RGB image in all three planes; alpha is kept", kOneInput, {},
     LuminosityImage},
    {"median", "the median of the (2 radius + 1) square around each colour sample; 8 and 16-bit; alpha is kept", kOneInput,
     {kRadiusSetting},
     [](const EffectCall& call) {
         return KXEffectsMedian(call.Source(), call.destination, &call.rect, call.settings.Get<int32_t>("radius"));
     }},
    {"dust-and-scratch", "replaces samples that stand out from their median; 8 and 16-bit; alpha is kept",
     kOneInput,
     {kRadiusSetting, {"threshold", SettingKind::Float, "0.1", "0..1: a sample this far from its median goes"}},
     [](const EffectCall& call) {
         return KXEffectsDustAndScratch(call.Source(), call.destination, &call.rect,
                                        call.settings.Get<int32_t>("radius"), call.settings.Get<float>("threshold"));
     }},
    {"triangular-blur", "tent-weighted mean; alpha is kept", kOneInput, {kRadiusSetting},
     [](const EffectCall& call) {
         return KXEffectsTriangularBlur(call.Source(), call.destination, &call.rect,
                                        call.settings.Get<int32_t>("radius"));
     }},
    {"variance", "the local standard deviation of each colour plane; alpha is kept", kOneInput, {kRadiusSetting},
     [](const EffectCall& call) {
         return KXEffectsVariance(call.Source(), call.destination, &call.rect, call.settings.Get<int32_t>("radius"));
     }},
    {"sharpen", "3 x 3 sharpening; alpha is kept", kOneInput, {},
     [](const EffectCall& call) { return KXEffectsSharpen(call.Source(), call.destination, &call.rect); }},
    {"sharpen-more", "stronger 3 x 3 sharpening; alpha is kept", kOneInput, {},
     [](const EffectCall& call) { return KXEffectsSharpenMore(call.Source(), call.destination, &call.rect); }},
    {"blur", "3 x 3 blur; alpha is kept", kOneInput, {},
     [](const EffectCall& call) { return KXEffectsBlur(call.Source(), call.destination, &call.rect); }},
    {"blur-more", "stronger 3 x 3 blur; alpha is kept", kOneInput, {},
     [](const EffectCall& call) { return KXEffectsBlurMore(call.Source(), call.destination, &call.rect); }},
    {"find-edges", "edges dark on white from the Sobel gradient; alpha is kept", kOneInput, {},
     [](const EffectCall& call) { return KXEffectsFindEdges(call.Source(), call.destination, &call.rect); }},
    {"emboss", "relief about mid-gray along a direction; alpha is kept", kOneInput,
     {{"angle", SettingKind::Float, "135", "degrees of the light direction"},
      {"height", SettingKind::Integer, "3", "pixels between the two taps"},
      {"amount", SettingKind::Float, "1", "gain on the difference"}},
     [](const EffectCall& call) {
         const SettingValues& settings = call.settings;
         return KXEffectsEmboss(call.Source(), call.destination, &call.rect, settings.Get<float>("angle"),
                                settings.Get<int32_t>("height"), settings.Get<float>("amount"));
     }},
    {"clarity", "local contrast on the luma of an RGB image, chroma kept; alpha is kept", kOneInput,
     {{"amount", SettingKind::Float, "0.5", "gain on the difference from the blurred luma; 0 copies"},
      {"radius", SettingKind::Float, "10", "gaussian radius in pixels"}},
     [](const EffectCall& call) {
         return KXEffectsClarity(call.Source(), call.destination, &call.rect, call.settings.Get<float>("amount"),
                                 call.settings.Get<float>("radius"));
     }},
    // ---- Sharpening ----
    {"unsharp-mask", "adds the difference from a gaussian blur, scaled by amount", kOneInput,
     {kSharpenAmountSetting, kSharpenGaussianRadiusSetting, kSharpenThresholdSetting},
     [](const EffectCall& call) {
         return KXEffectsUnsharpMask(call.Source(), call.destination, &call.rect, call.settings.Get<float>("amount"),
                                     call.settings.Get<float>("radius"), call.settings.Get<float>("threshold"));
     }},
    {"unsharp-mask-using-surface-blur", "unsharp mask against an edge-preserving surface blur", kOneInput,
     {kSharpenAmountSetting, kSharpenBoxRadiusSetting,
      {"surface-threshold", SettingKind::Float, "0.1", "0..1: how far a sample may be to be blurred with"}},
     [](const EffectCall& call) {
         return KXEffectsUnsharpMaskUsingSurfaceBlur(call.Source(), call.destination, &call.rect,
                                                     call.settings.Get<float>("amount"),
                                                     call.settings.Get<int32_t>("radius"),
                                                     call.settings.Get<float>("surface-threshold"));
     }},
    {"unsharp-mask-using-box-blur", "unsharp mask against a box blur", kOneInput,
     {kSharpenAmountSetting, kSharpenBoxRadiusSetting, kSharpenThresholdSetting},
     UnsharpMaskRow<KXEffectsUnsharpMaskUsingBoxBlur>},
    {"unsharp-mask-using-triangular-blur", "unsharp mask against a triangular blur", kOneInput,
     {kSharpenAmountSetting, kSharpenBoxRadiusSetting, kSharpenThresholdSetting},
     UnsharpMaskRow<KXEffectsUnsharpMaskUsingTriangularBlur>},
    {"high-pass", "the difference from a gaussian blur around mid-gray", kOneInput,
     {kSharpenGaussianRadiusSetting},
     [](const EffectCall& call) {
         return KXEffectsHighPass(call.Source(), call.destination, &call.rect, call.settings.Get<float>("radius"));
     }},
    {"high-pass-and-low-pass", "the high pass, or the gaussian blur it is taken against", kOneInput,
     {kSharpenGaussianRadiusSetting, {"low-pass", SettingKind::Bool, "false", "write the blur instead"}},
     HighPassAndLowPassRow},
    {"sharpen-high-pass", "the high pass against a box blur laid over the image in overlay mode", kOneInput,
     {kSharpenAmountSetting, kSharpenBoxRadiusSetting},
     [](const EffectCall& call) {
         return KXEffectsSharpenHighPass(call.Source(), call.destination, &call.rect,
                                         call.settings.Get<float>("amount"), call.settings.Get<int32_t>("radius"));
     }},
    {"sharpen-high-pass-with-offset", "high-pass sharpening written at the source coordinates minus the offset",
     kOneInput,
     {kSharpenAmountSetting, kSharpenBoxRadiusSetting,
      {"offset", SettingKind::Point, "0,0", "x,y subtracted from the coordinates of the result"}},
     [](const EffectCall& call) {
         return KXEffectsSharpenHighPassWithOffset(call.Source(), call.destination, &call.rect,
                                                   call.settings.Get<float>("amount"),
                                                   call.settings.Get<int32_t>("radius"),
                                                   call.settings.Get<KXPoint>("offset"));
     }},
    {"sharpen-progressive", "sharpens the luma of RGB (each plane otherwise) at four blur scales", kOneInput,
     {kSharpenAmountSetting, kSharpenGaussianRadiusSetting,
      {"fine-reduction", SettingKind::Float, "0", "0..1: weight taken from the finest scale"},
      kSharpenThresholdSetting},
     [](const EffectCall& call) {
         return KXEffectsSharpenProgressive(call.Source(), call.destination, &call.rect,
                                            call.settings.Get<float>("amount"), call.settings.Get<float>("radius"),
                                            call.settings.Get<float>("fine-reduction"),
                                            call.settings.Get<float>("threshold"));
     }},
    // ---- Blurs ----
    {"box-blur", "the mean of the square around each sample; alpha is kept", kOneInput, {kBoxRadiusSetting},
     [](const EffectCall& call) {
         return KXEffectsBoxBlur(call.Source(), call.destination, &call.rect, call.settings.Get<int32_t>("radius"));
     }},
    {"box-blur-with-offset", "box blur written at the source coordinates minus the offset", kOneInput,
     {kBoxRadiusSetting, {"offset", SettingKind::Point, "0,0", "x,y subtracted from the coordinates of the result"}},
     [](const EffectCall& call) {
         return KXEffectsBoxBlurWithOffset(call.Source(), call.destination, &call.rect,
                                           call.settings.Get<int32_t>("radius"), call.settings.Get<KXPoint>("offset"));
     }},
    {"box-blur-with-offset-and-amount", "box blur at an offset, mixed with the input by amount", kOneInput,
     {kBoxRadiusSetting, {"offset", SettingKind::Point, "0,0", "x,y subtracted from the coordinates of the result"},
      kBlurAmountSetting},
     [](const EffectCall& call) {
         return KXEffectsBoxBlurWithOffsetAndAmount(call.Source(), call.destination, &call.rect,
                                                    call.settings.Get<int32_t>("radius"),
                                                    call.settings.Get<KXPoint>("offset"),
                                                    call.settings.Get<float>("amount"));
     }},
    {"box-blur-with-threshold", "box blur only where the mean differs from the sample by the threshold", kOneInput,
     {kBoxRadiusSetting, {"threshold", SettingKind::Float, "0.1", "0..1 of white"}},
     [](const EffectCall& call) {
         return KXEffectsBoxBlurWithThreshold(call.Source(), call.destination, &call.rect,
                                              call.settings.Get<int32_t>("radius"),
                                              call.settings.Get<float>("threshold"));
     }},
    {"box-blur-with-amount", "the mean over a window that need not be centred, mixed by amount", kOneInput,
     {kBoxLeftSetting, kBoxRightSetting, kBoxTopSetting, kBoxBottomSetting, kBlurAmountSetting},
     [](const EffectCall& call) {
         const BoxWindow window = BoxWindowOf(call);
         return KXEffectsBoxBlurWithAmount(call.Source(), call.destination, &call.rect, window.left, window.right,
                                           window.top, window.bottom, call.settings.Get<float>("amount"));
     }},
    {"box-blur-int", "the mean over a free window; 32-bit samples are read as unsigned integers", kOneInput,
     {kBoxLeftSetting, kBoxRightSetting, kBoxTopSetting, kBoxBottomSetting},
     [](const EffectCall& call) {
         const BoxWindow window = BoxWindowOf(call);
         return KXEffectsBoxBlurInt(call.Source(), call.destination, &call.rect, window.left, window.right,
                                    window.top, window.bottom);
     }},
    {"gaussian-blur", "gaussian of standard deviation radius: exact below 10, three boxes from 10", kOneInput,
     {kGaussianRadiusSetting}, GaussianRow<KXEffectsGaussianBlur>},
    {"gaussian-blur-with-amount", "gaussian-blur mixed with the input by amount", kOneInput,
     {kGaussianRadiusSetting, kBlurAmountSetting}, GaussianAmountRow<KXEffectsGaussianBlurWithAmount>},
    {"gaussian-blur-with-amount-and-mode", "gaussian-blur finished in a blend mode with the input", kOneInput,
     {kGaussianRadiusSetting, kBlurAmountSetting, kBlurModeSetting},
     GaussianModeRow<KXEffectsGaussianBlurWithAmountAndMode>},
    {"gaussian-blur-fast", "three box blurs of about radius / 1.1 deviation, at any radius", kOneInput,
     {kGaussianRadiusSetting}, GaussianRow<KXEffectsGaussianBlurFast>},
    {"gaussian-blur-fast-with-amount", "gaussian-blur-fast mixed with the input by amount", kOneInput,
     {kGaussianRadiusSetting, kBlurAmountSetting}, GaussianAmountRow<KXEffectsGaussianBlurFastWithAmount>},
    {"gaussian-blur-fast-with-amount-and-mode", "gaussian-blur-fast finished in a blend mode with the input",
     kOneInput, {kGaussianRadiusSetting, kBlurAmountSetting, kBlurModeSetting},
     GaussianModeRow<KXEffectsGaussianBlurFastWithAmountAndMode>},
    {"gaussian-blur-true", "convolution with a sampled gaussian of 2 x 2.5 radius + 1 taps, at any radius",
     kOneInput, {kGaussianRadiusSetting}, GaussianRow<KXEffectsGaussianBlurTrue>},
    {"gaussian-blur-true-with-amount", "gaussian-blur-true mixed with the input by amount", kOneInput,
     {kGaussianRadiusSetting, kBlurAmountSetting}, GaussianAmountRow<KXEffectsGaussianBlurTrueWithAmount>},
    {"gaussian-blur-true-with-amount-and-mode", "gaussian-blur-true finished in a blend mode with the input",
     kOneInput, {kGaussianRadiusSetting, kBlurAmountSetting, kBlurModeSetting},
     GaussianModeRow<KXEffectsGaussianBlurTrueWithAmountAndMode>},
    // ---- Blending ----
    {"blend", "lays UPPER over LOWER in a blend mode at an opacity, under an optional mask, with true alpha",
     {"UPPER", "LOWER"},
     {kBlendModeSetting,
      {"opacity", SettingKind::Float, "1", "0..1, of the upper layer"},
      {"mask", SettingKind::Image, "", "gray image of one plane: the coverage of the upper layer"}},
     [](const EffectCall& call) {
         return KXEffectsBlendImagesWithOpacitiesAndMasks(
             call.inputs[0], call.settings.Get<float>("opacity"),
             RequireMask(call.settings.Get<ImageHandle>("mask").get(), "--mask"), call.inputs[1], 1.0f, nullptr,
             call.destination, &call.rect, call.settings.Get<uint32_t>("mode"));
     }},
    {"blend-plain", "lays UPPER over LOWER in a blend mode at full opacity, with true alpha",
     {"UPPER", "LOWER"},
     {kBlendModeSetting},
     [](const EffectCall& call) {
         return KXEffectsBlendImages(call.inputs[0], call.inputs[1], call.destination, &call.rect,
                                     call.settings.Get<uint32_t>("mode"));
     }},
    {"mix", "weight1 x IMAGE1 + weight2 x IMAGE2 on every plane, alpha included; float limited to 0..1",
     {"IMAGE1", "IMAGE2"},
     {{"weight1", SettingKind::Float, "0.5", "weight of IMAGE1"},
      {"weight2", SettingKind::Float, "0.5", "weight of IMAGE2"}},
     [](const EffectCall& call) {
         return KXEffectsMixImages(call.inputs[0], call.inputs[1], call.destination, &call.rect,
                                   call.settings.Get<float>("weight1"), call.settings.Get<float>("weight2"));
     }},
    {"multiply-values", "each colour plane becomes (x - pivot) x factor + pivot, limited to 0..1; alpha is kept",
     kOneInput,
     {{"pivot", SettingKind::Colour, "0.5,0.5,0.5", "r,g,b in 0..1; a gray image takes the first"},
      {"factor", SettingKind::Colour, "1,1,1", "r,g,b gains; a gray image takes the first"}},
     [](const EffectCall& call) {
         const Colour pivot = call.settings.Get<Colour>("pivot");
         const Colour factor = call.settings.Get<Colour>("factor");
         const float pivots[] = {pivot.red, pivot.green, pivot.blue};
         const float factors[] = {factor.red, factor.green, factor.blue};
         return KXEffectsMultiplyValues(call.Source(), call.destination, &call.rect, pivots, factors);
     }},
    {"multiply-masks", "the product of the coverages of two gray masks", {"MASK1", "MASK2"}, {},
     MultiplyInputMasks},
    {"flatten", "flattens an image with alpha onto white; alpha is kept", kOneInput, {},
     [](const EffectCall& call) { return KXEffectsMakeCompositeImage(call.destination, &call.rect); }},
    // ---- Colour selection ----
    {"select-color", "the selection of colours near a colour, shown as gray; RGB input, alpha is kept", kOneInput,
     {kSelectColourSetting, kSelectRangeSetting}, ColourSelectionRow<KXEffectsSelectColor>},
    {"select-luminosity", "the selection of a band of luma, shown as gray; RGB input, alpha is kept", kOneInput,
     {kBandSettings[0], kBandSettings[1], kBandSettings[2]}, BandSelectionRow<KXEffectsSelectLuminosity>},
    {"select-saturation", "the selection of a band of saturation, shown as gray; RGB input, alpha is kept",
     kOneInput, {kBandSettings[0], kBandSettings[1], kBandSettings[2]},
     BandSelectionRow<KXEffectsSelectSaturation>},
    {"select-luminosity-range", "the selection of a luma ramp up and down, shown as gray; RGB input", kOneInput,
     {kRampSettings[0], kRampSettings[1], kRampSettings[2], kRampSettings[3]},
     RampSelectionRow<KXEffectsSelectLuminosityRange>},
    {"select-saturation-range", "the selection of a saturation ramp up and down, shown as gray; RGB input",
     kOneInput, {kRampSettings[0], kRampSettings[1], kRampSettings[2], kRampSettings[3]},
     RampSelectionRow<KXEffectsSelectSaturationRange>},
    {"select-colors", "a preset selection, shown as gray; RGB input, alpha is kept", kOneInput,
     {{"code", SettingKind::Integer, "0", "0 to 11 wheel colours, 12 light, 13 mid, 14 dark, 15 dull, 16 vivid"},
      {"range", SettingKind::Float, "1", "range of a colour, feather of a band"}},
     PresetSelectionRow<KXEffectsSelectColors>},
    {"select-colors-with-range", "a band preset of a given width, shown as gray; RGB input, alpha is kept",
     kOneInput,
     {{"code", SettingKind::Integer, "12", "12 light, 13 mid, 14 dark, 15 dull, 16 vivid"},
      {"range", SettingKind::Float, "0.25", "width of the band's shoulders; 0 gives hard edges"}},
     PresetSelectionRow<KXEffectsSelectColorsWithRange>},
    {"select-flesh-colors", "the selection of skin tones, shown as gray; RGB input, alpha is kept", kOneInput,
     {kFleshTableSetting, {"range", SettingKind::Float, "1", "size of the skin ellipsoid"},
      {"strength", SettingKind::Float, "1", "0..1 weight of the selection"},
      {"exclude", SettingKind::Bool, "false", "select everything but the skin tones"}},
     FleshSelectionRow},
    {"color-range", "the selection of colours in an ellipsoid around a colour, shown as gray; RGB input",
     kOneInput, {kSelectColourSetting, kSelectRangeSetting}, ColourSelectionRow<KXEffectsColorRange>},
    {"find-mask-bounds", "prints the box x y width height of the non-zero samples of a gray mask; OUTPUT is a copy",
     kOneInput, {}, PrintMaskBounds},
    {"flesh-color-table", "prints the Y, Cb and Cr bounds of a flesh table; OUTPUT is a copy of INPUT", kOneInput,
     {kFleshTableSetting}, PrintFleshColorTable},
    {"color-for-index", "prints a colour of the palette; OUTPUT is a copy of INPUT", kOneInput,
     {{"index", SettingKind::Integer, "0", "0 to 31; 0 to 11 are the colour wheel"}}, PrintColorForIndex},
};

} // namespace

std::span<const EffectRow> EffectTable()
{
    return kEffects;
}

const EffectRow* FindEffect(std::string_view name)
{
    const auto found =
        std::find_if(kEffects.begin(), kEffects.end(), [&](const EffectRow& row) { return row.name == name; });
    return found == kEffects.end() ? nullptr : &*found;
}
