// The one table of kxfx. An effect is one row: name, summary, input files, settings with their neutral
// values, and a function that calls the library. Rows are grouped by family.
#include "EffectTable.h"
#include "Status.h"

#include <algorithm>

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
