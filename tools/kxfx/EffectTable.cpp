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
std::vector<float> CurveThroughPoints(const std::vector<float>& numbers)
{
    if (numbers.size() % 2 != 0)
        throw ToolError("--curve: give x,y points or 256 values a channel");
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

// The curve setting as a table with a channel for every colour plane of image: 256 values a channel as
// given (one channel serves every plane), or a point list.
std::vector<float> CurveTable(const EffectCall& call)
{
    const auto& numbers = call.settings.Get<std::vector<float>>("curve");
    std::vector<float> table = numbers.size() % 256 == 0 ? numbers : CurveThroughPoints(numbers);
    const size_t colourPlanes = size_t(KXImageGetNumPlanes(call.Source()) - KXImageGetTransparency(call.Source()));
    if (table.size() == 256) {
        table.resize(std::max<size_t>(colourPlanes, 1) * 256);
        for (size_t at = 256; at < table.size(); at += 256)
            std::copy_n(table.begin(), 256, table.begin() + at);
    }
    if (table.size() < colourPlanes * 256)
        throw ToolError("--curve: " + std::to_string(table.size() / 256) + " channels for " +
                        std::to_string(colourPlanes) + " colour planes");
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

const SettingSpec kCurveSetting = {"curve", SettingKind::Curve, "0,0;1,1",
                                   "x,y points in 0..1 joined by straight lines, or 256 values a channel"};

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
     {kCurveSetting},
     [](const EffectCall& call) {
         return KXEffectsApplyCurves(call.Source(), call.destination, &call.rect, CurveTable(call).data());
     }},
    {"curves-with-amount",
     "curves mixed with the input by amount; alpha is kept",
     kOneInput,
     {kCurveSetting, {"amount", SettingKind::Float, "1", "0 (input) to 1 (full curve)"}},
     [](const EffectCall& call) {
         return KXEffectsApplyCurvesWithAmount(call.Source(), call.destination, &call.rect, CurveTable(call).data(),
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
    // ---- Blending ----
    {"blend", "lays UPPER over LOWER in a blend mode at an opacity, under an optional mask, with true alpha",
     {"UPPER", "LOWER"},
     {{"mode", SettingKind::BlendMode, "norm", "four characters such as norm, mul, scrn, over, lum"},
      {"opacity", SettingKind::Float, "1", "0..1, of the upper layer"},
      {"mask", SettingKind::Image, "", "gray image of one plane: the coverage of the upper layer"}},
     [](const EffectCall& call) {
         return KXEffectsBlendImagesWithOpacitiesAndMasks(
             call.inputs[0], call.settings.Get<float>("opacity"),
             RequireMask(call.settings.Get<ImageHandle>("mask").get(), "--mask"), call.inputs[1], 1.0f, nullptr,
             call.destination, &call.rect, call.settings.Get<uint32_t>("mode"));
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
