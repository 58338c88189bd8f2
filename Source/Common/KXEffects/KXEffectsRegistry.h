// The registry: one entry for every exported entry point that works on images, in the order of the public
// header. The margins of KXEffectsGetOutset, the kxfx rows and the generic tests are read from it; a new
// effect is its source file and one entry here.
#pragma once

#include "KXEffectsRegistryTypes.h"

// KXEffectsPhotoFilter's variable part as fixed arguments, in the order it reads them (the floats after
// the centre arrive promoted to double).
inline int32_t PhotoFilterWithFixedArguments(KXImage* source, KXImage* destination, const KXRect* rect,
                                             int32_t filterKind, float saturation, float contrast, uint32_t mode,
                                             KXEffectsFloatPoint centre, float angleOrRadius, float lengthOrFeather,
                                             const float* colour1, float opacity1, const float* colour2, float opacity2)
{
    return KXEffectsPhotoFilter(source, destination, rect, filterKind, saturation, contrast, mode, centre,
                                double(angleOrRadius), double(lengthOrFeather), colour1, double(opacity1), colour2,
                                double(opacity2));
}

// KXEffectsExpandTrimap's count as a float output, the form in which the runners print what an entry finds.
inline int32_t ExpandTrimapCountingInFloat(KXImage* image, KXImage* trimap, KXImage* destination, const KXRect* rect,
                                           float* changed)
{
    int32_t count = 0;
    const int32_t status = KXEffectsExpandTrimap(image, trimap, destination, rect, &count);
    *changed = float(count);
    return status;
}

namespace registry_args {

inline constexpr ArgSpec kAmount = FloatArg("amount", "0", "0.6", 0, 1, "0..1 mix with the input; 0 copies");
inline constexpr ArgSpec kBlurAmount = FloatArg("amount", "0", "1", 0, 1, "0..1 mix of the blur with the input");
inline constexpr ArgSpec kBoxRadius = IntegerRadiusArg("radius", "0", "4", 0, 1000, "pixels around each sample");
inline constexpr ArgSpec kGaussianRadius = RadiusArg("radius", "0", "4", 0, 1000, "standard deviation in pixels");
inline constexpr ArgSpec kOffset =
    PointArg("offset", "0,0", "3,2", "x,y subtracted from the coordinates of the result");
inline constexpr ArgSpec kBlurMode =
    ModeArg("blend-mode", "norm", "scrn", "how the blur is laid over the sample: norm, mul, scrn, over, ...");
inline constexpr ArgSpec kMode = ModeArg("mode", "norm", "mul", "four characters such as norm, mul, scrn, over, lum");
inline constexpr ArgSpec kThreshold = FloatArg("threshold", "0", "0.1", 0, 1, "0..1 of white");
inline constexpr ArgSpec kSurfaceThreshold =
    FloatArg("threshold", "0", "0.1", 0, 1, "0..1: how far a sample may be to be blurred with");
inline constexpr ArgSpec kSharpenAmount = FloatArg("amount", "0", "1", 0, 5, "gain on the difference; 0 copies");
inline constexpr ArgSpec kSharpenThreshold =
    FloatArg("threshold", "0", "0", 0, 1, "0..1 of white: smaller differences are left");
inline constexpr ArgSpec kMask =
    MaskArg("mask", "a one-plane image; none leaves the settings as they are", kArgOptional);
inline constexpr ArgSpec kSignedMask =
    MaskArg("mask", "a one-plane image: below mid-gray subtracts, above adds; none leaves it", kArgOptional);
inline constexpr ArgSpec kBrightness = FloatArg("brightness", "0", "0.3", -1, 1, "-1..1; 0 leaves it");
inline constexpr ArgSpec kContrast = FloatArg("contrast", "0", "0.3", -1, 1, "-1..1; 0 leaves it");
inline constexpr ArgSpec kMidtoneContrast = FloatArg("midtone-contrast", "0", "0.4", -1, 1, "-1..1; 0 leaves it");
inline constexpr ArgSpec kTemperature = FloatArg("temperature", "0", "0.3", -1, 1, "-1 (cool) to 1 (warm)");
inline constexpr ArgSpec kTint = FloatArg("tint", "0", "0.1", -1, 1, "-1 (green) to 1 (magenta)");
inline constexpr ArgSpec kSaturation = FloatArg("saturation", "0", "0.3", -1, 1, "-1 (gray) up; 0 leaves the colours");
inline constexpr ArgSpec kVibrance =
    FloatArg("vibrance", "0", "0.4", -1, 1, "-1..1; lifts the duller colours most; 0 leaves them");
inline constexpr ArgSpec kHue = FloatArg("hue", "0", "0.1", -1, 1, "turns; 1 is a whole turn");
inline constexpr ArgSpec kSelectColour = ColourArg("color", "1,0,0", "0.8,0.5,0.3", "r,g,b in 0..1 to select");
inline constexpr ArgSpec kSelectRange = FloatArg("range", "1", "1", 0, 10, "above 0; larger selects more");
inline constexpr ArgSpec kLow = FloatArg("low", "0", "0.25", 0, 1, "0..1; 0 leaves the low end open");
inline constexpr ArgSpec kHigh = FloatArg("high", "1", "0.75", 0, 1, "0..1; 1 leaves the high end open");
inline constexpr ArgSpec kFeather = FloatArg("feather", "1", "1", 0, 10, "shoulders of 0.075 x feather");
inline constexpr ArgSpec kRampStart = FloatArg("ramp-start", "0", "0.2", 0, 1, "where the weight leaves 0");
inline constexpr ArgSpec kRampFull = FloatArg("ramp-full", "0", "0.4", 0, 1, "where it reaches 1");
inline constexpr ArgSpec kFallStart = FloatArg("fall-start", "1", "0.6", 0, 1, "where it leaves 1");
inline constexpr ArgSpec kFallEnd = FloatArg("fall-end", "1", "0.8", 0, 1, "where it is back at 0");
inline constexpr ArgSpec kPresetCode = IntegerArg("code", "12", "4", 0, 16,
                                                  "0 to 11 palette colours, 12 light, 13 mid, 14 dark tones, "
                                                  "15 low, 16 high saturation");
inline constexpr ArgSpec kBlack = ColourArg("black", "0,0,0", "0.05,0.05,0.05", "r,g,b in 0..1 that become black");
inline constexpr ArgSpec kWhite = ColourArg("white", "1,1,1", "0.9,0.9,0.9", "r,g,b in 0..1 that become white");
inline constexpr ArgSpec kToner = ColourArg("toner-color", "0.5,0.5,0.5", "0.9,0.7,0.5", "r,g,b in 0..1");
inline constexpr ArgSpec kGrainAmount = FloatArg("amount", "0", "0.5", 0, 1, "0..1, opacity of the grain overlay");
inline constexpr ArgSpec kZones[3] = {
    FloatsArg("effect-zones", 6, "0,0,0,0,0,0", "1,0,0,-1,0,0", -1, 1,
              "weights of red, yellow, green, cyan, blue, magenta"),
    FloatsArg("brightness-zones", 6, "0,0,0,0,0,0", "0,0.2,0,0,-0.2,0", -1, 1, "brightness by hue zone"),
    FloatsArg("midtone-zones", 6, "0,0,0,0,0,0", "0,0,0.3,0,0,0", -1, 1, "midtone contrast by hue zone")};
inline constexpr ArgSpec kResponses = FloatsArg("responses", 6, "0,0,0,0,0,0", "0.4,0.2,-0.2,-0.3,-0.4,0.1", -1, 1,
                                                "red, yellow, green, cyan, blue, magenta; 0 leaves the luma");
inline constexpr ArgSpec kTuned[3] = {
    FloatsArg("hues", 9, "0,0,0,0,0,0,0,0,0", "0.3,0,0,0,0,0,0,0,0", -1, 1,
              "eight anchors (0 just below red) then the master; 1 reaches the next anchor"),
    FloatsArg("saturations", 9, "0,0,0,0,0,0,0,0,0", "0,0,0,0.3,0,0,0,0,0", -1, 1, "as offsets; 0 leaves it"),
    FloatsArg("brightnesses", 9, "0,0,0,0,0,0,0,0,0", "0,0,0,0,0,-0.2,0,0,0", -1, 1, "as offsets; 0 leaves it")};
inline constexpr ArgSpec kTrimap = MaskArg("TRIMAP", "one plane: 0 background, 255 foreground, between unknown");
inline constexpr ArgSpec kIdentityCurves = CurvesArg("curves", "identity", "0,0;0.25,0.18;0.75,0.85;1,1",
                                                     "x,y;x,y;... points in 0..1, or a file of 256 values a channel");

} // namespace registry_args

// clang-format off
inline constexpr EffectEntry kEffectRegistry[] = {
    // ---- Frame ----
    Effect<KXEffectsInvert>(
        {"KXEffectsInvert", "invert", "frame", "colour planes become white minus the sample; alpha is kept",
         Margin::Pointwise, Catching::Throws, kAllDepths, false},
        {kSourceArg, kDestinationArg, kRectArg}),
    Effect<KXEffectsCopyImage>(
        {"KXEffectsCopyImage", "copy-image", "frame", "copies the rectangle, alpha included", Margin::Pointwise},
        {kSourceArg, kDestinationArg, kRectArg}),
    Effect<KXEffectsApplyEffectWithMask>(
        {"KXEffectsApplyEffectWithMask", "apply-effect-with-mask", "frame",
         "mixes EFFECT, an effect computed from INPUT, back over it by amount / 2 plus the mask's distance from "
         "mid-gray"},
        {kSourceArg, ImageArg("EFFECT", "the effect image computed from INPUT"), registry_args::kMask,
         kDestinationArg, kRectArg,
         FloatArg("amount", "0", "1.2", 0, 2, "2 gives the effect in full, 0 the source")}),
    Effect<KXEffectsApplyEffectInZones>(
        {"KXEffectsApplyEffectInZones", "apply-effect-in-zones", "frame",
         "mixes EFFECT over INPUT by the hue of each pixel, then brightness and midtone contrast by hue; RGB only",
         Margin::Whole, Catching::Throws, kAllDepths, false},
        {kSourceArg, ImageArg("EFFECT", "the effect image computed from INPUT"), registry_args::kMask,
         kDestinationArg, kRectArg, registry_args::kZones[0], registry_args::kZones[1], registry_args::kZones[2]}),
    // ---- Colour ----
    Effect<KXEffectsConvertImageMode>(
        {"KXEffectsConvertImageMode", "convert-image-mode", "colour",
         "colour conversions 0 RGB to HSV, 1 HSV to RGB, 2 RGB to HSL, 3 HSL to RGB, 4 RGB to YCbCr, 5 YCbCr to RGB",
         Margin::Pointwise, Catching::Throws, kAllDepths, false},
        {kSourceArg, kDestinationArg, kRectArg, IntegerArg("conversion", "0", "2", 0, 5, "0 to 5")}),
    Effect<KXEffectsDesaturate>(
        {"KXEffectsDesaturate", "desaturate", "colour", "lays the luma of each pixel over it in a blend mode; RGB only",
         Margin::Pointwise},
        {kSourceArg, kDestinationArg, kRectArg, registry_args::kMode,
         FloatArg("amount", "0", "0.8", 0, 1, "opacity of the luma; 0 or less copies")}),
    // ---- Blending ----
    Effect<PhotoFilterWithFixedArguments, KXEffectsPhotoFilter>(
        {"KXEffectsPhotoFilter", "photo-filter", "blending",
         "a colour (kind 0) or a linear (1, 2) or radial (3, 4) gradient blended into the RGB planes after "
         "saturation and contrast", Margin::Pointwise},
        {kSourceArg, kDestinationArg, kRectArg,
         IntegerArg("kind", "0", "3", 0, 4, "0 colour, 1 and 2 linear, 3 and 4 radial gradients"),
         FloatArg("saturation", "0", "0.2", -1, 1, "-1 (gray) up; 0 leaves the colours"),
         FloatArg("contrast", "0", "0.3", 0, 1, "0 (none) to 1 (full S curve)"), registry_args::kMode,
         FloatPointArg("centre", "0,0", "160,120", "x,y in image pixels, for kinds 1 to 4"),
         FloatArg("angle-or-radius", "0", "20", 0, 360, "degrees of the linear kinds, pixels of the radial ones"),
         FloatArg("length-or-feather", "100", "150", 0, 10000, "pixels over which the gradient runs; above 0"),
         ColourArg("color1", "0.93,0.55,0.1", "0.93,0.55,0.1", "r,g,b in 0..1"),
         FloatArg("opacity1", "0", "0.35", 0, 1, "0..1, of color1"),
         ColourArg("color2", "0,0,0", "0.1,0.3,0.9", "r,g,b in 0..1"),
         FloatArg("opacity2", "0", "0.2", 0, 1, "0..1, of color2")}),
    Effect<KXEffectsBlendImagesWithOpacitiesAndMasks>(
        {"KXEffectsBlendImagesWithOpacitiesAndMasks", "blend-images-with-opacities-and-masks", "blending",
         "lays INPUT (the upper layer) over LOWER in a blend mode, each with an opacity and an optional mask",
         Margin::Pointwise, Catching::Throws, kAllDepths, false},
        {kSourceArg, FloatArg("upper-opacity", "1", "0.7", 0, 1, "0..1, of the upper layer"),
         MaskArg("upper-mask", "a one-plane image over the upper layer", kArgOptional),
         ImageArg("LOWER", "the lower layer"), FloatArg("lower-opacity", "1", "1", 0, 1, "0..1, of the lower layer"),
         MaskArg("lower-mask", "a one-plane image over the lower layer", kArgOptional), kDestinationArg, kRectArg,
         registry_args::kMode}),
    Effect<KXEffectsBlendImages>(
        {"KXEffectsBlendImages", "blend-images", "blending", "lays INPUT (the upper layer) over LOWER in a blend mode",
         Margin::Pointwise, Catching::Throws, kAllDepths, false},
        {kSourceArg, ImageArg("LOWER", "the lower layer"), kDestinationArg, kRectArg, registry_args::kMode}),
    Effect<KXEffectsMixImages>(
        {"KXEffectsMixImages", "mix-images", "blending", "weight1 x INPUT + weight2 x IMAGE2 on every plane, alpha included",
         Margin::Pointwise},
        {kSourceArg, ImageArg("IMAGE2", "the second image"), kDestinationArg, kRectArg,
         FloatArg("weight1", "1", "0.5", 0, 1, "weight of INPUT"),
         FloatArg("weight2", "0", "0.5", 0, 1, "weight of IMAGE2")}),
    Effect<KXEffectsMultiplyValues>(
        {"KXEffectsMultiplyValues", "multiply-values", "blending",
         "each colour plane becomes (x - pivot) x factor + pivot, limited to 0..1", Margin::Pointwise,
         Catching::Throws, kAllDepths, false},
        {kSourceArg, kDestinationArg, kRectArg,
         FloatsArg("pivots", 3, "0.5,0.5,0.5", "0.5,0.5,0.5", 0, 1, "a pivot per colour plane"),
         FloatsArg("factors", 3, "1,1,1", "1.3,1.1,0.8", 0, 4, "a factor per colour plane")}),
    Effect<KXEffectsMultiplyMasks>(
        {"KXEffectsMultiplyMasks", "multiply-masks", "blending", "the product of one-plane masks into a one-plane image",
         Margin::Whole, Catching::Throws, kAllDepths, false},
        {MasksArg("MASK", "one-plane images, one or more"), kMaskDestinationArg, kRectArg}),
    Effect<KXEffectsMakeCompositeImage>(
        {"KXEffectsMakeCompositeImage", "make-composite-image", "blending", "flattens an image with alpha onto white",
         Margin::Whole, Catching::Throws, kAllDepths, false},
        {kInPlaceArg, kRectArg}),
    // ---- Curves and fills ----
    Effect<KXEffectsApplyCurves>(
        {"KXEffectsApplyCurves", "apply-curves", "curves", "maps each colour plane through its channel of the curves",
         Margin::Pointwise, Catching::Throws, kAllDepths, false},
        {kSourceArg, kDestinationArg, kRectArg, registry_args::kIdentityCurves}),
    Effect<KXEffectsApplyCurvesWithAmount>(
        {"KXEffectsApplyCurvesWithAmount", "apply-curves-with-amount", "curves", "the curves mixed with the input by amount",
         Margin::Pointwise},
        {kSourceArg, kDestinationArg, kRectArg, registry_args::kIdentityCurves,
         FloatArg("amount", "0", "0.7", 0, 1, "0 (input) to 1 (full curves)")}),
    Effect<KXEffectsFillColor>(
        {"KXEffectsFillColor", "fill-color", "curves", "sets every plane of the rectangle, alpha included, to one value each",
         Margin::Pointwise, Catching::Throws, kAllDepths, false},
        {kInPlaceArg, kRectArg,
         FloatsArg("color", 4, "1,1,1,1", "0.2,0.5,0.8,1", 0, 1, "a value 0..1 per plane, alpha last")}),
    Effect<KXEffectsSolarize>(
        {"KXEffectsSolarize", "solarize", "curves", "colour samples above the middle become white minus the sample",
         Margin::Pointwise, Catching::Throws, kAllDepths, false},
        {kSourceArg, kDestinationArg, kRectArg}),
    // ---- Blurs ----
    Effect<KXEffectsBoxBlur>(
        {"KXEffectsBoxBlur", "box-blur", "blurs", "the mean of the square around each sample", Margin::Rounded},
        {kSourceArg, kDestinationArg, kRectArg, registry_args::kBoxRadius}),
    Effect<KXEffectsBoxBlurWithOffset>(
        {"KXEffectsBoxBlurWithOffset", "box-blur-with-offset", "blurs", "the box blur, its result moved by minus offset",
         Margin::Rounded},
        {kSourceArg, kDestinationArg, kRectArg, registry_args::kBoxRadius, registry_args::kOffset}),
    Effect<KXEffectsBoxBlurWithOffsetAndAmount>(
        {"KXEffectsBoxBlurWithOffsetAndAmount", "box-blur-with-offset-and-amount", "blurs",
         "the moved box blur mixed with the input by amount", Margin::Rounded},
        {kSourceArg, kDestinationArg, kRectArg, registry_args::kBoxRadius, registry_args::kOffset,
         registry_args::kBlurAmount}),
    Effect<KXEffectsBoxBlurWithThreshold>(
        {"KXEffectsBoxBlurWithThreshold", "box-blur-with-threshold", "blurs",
         "the box mean only where it differs from the sample by the threshold or more"},
        {kSourceArg, kDestinationArg, kRectArg, registry_args::kBoxRadius,
         FloatArg("threshold", "0.1", "0.05", 0, 1, "0..1 of white")}),
    Effect<KXEffectsBoxBlurWithAmount>(
        {"KXEffectsBoxBlurWithAmount", "box-blur-with-amount", "blurs",
         "the mean over a window from left to right and top to bottom around each pixel, mixed by amount"},
        {kSourceArg, kDestinationArg, kRectArg,
         IntegerArg("left", "0", "-3", -1000, 1000, "first column of the window, from the pixel"),
         IntegerArg("right", "0", "1", -1000, 1000, "last column of the window, from the pixel"),
         IntegerArg("top", "0", "-1", -1000, 1000, "first row of the window, from the pixel"),
         IntegerArg("bottom", "0", "2", -1000, 1000, "last row of the window, from the pixel"),
         registry_args::kBlurAmount}),
    Effect<KXEffectsBoxBlurInt>(
        {"KXEffectsBoxBlurInt", "box-blur-int", "blurs", "the free-window mean at full strength", Margin::Rounded,
         Catching::Throws, kAllDepths, false},
        {kSourceArg, kDestinationArg, kRectArg,
         IntegerArg("left", "0", "-2", -1000, 1000, "first column of the window, from the pixel"),
         IntegerArg("right", "0", "2", -1000, 1000, "last column of the window, from the pixel", kArgMarginValue),
         IntegerArg("top", "0", "-2", -1000, 1000, "first row of the window, from the pixel"),
         IntegerArg("bottom", "0", "2", -1000, 1000, "last row of the window, from the pixel")}),
    Effect<KXEffectsGaussianBlur>(
        {"KXEffectsGaussianBlur", "gaussian-blur", "blurs", "gaussian blur: the true blur below radius 10, the fast one above",
         Margin::Gaussian},
        {kSourceArg, kDestinationArg, kRectArg, registry_args::kGaussianRadius}),
    Effect<KXEffectsGaussianBlurWithAmount>(
        {"KXEffectsGaussianBlurWithAmount", "gaussian-blur-with-amount", "blurs", "the gaussian blur mixed by amount",
         Margin::Gaussian},
        {kSourceArg, kDestinationArg, kRectArg, registry_args::kGaussianRadius, registry_args::kBlurAmount}),
    Effect<KXEffectsGaussianBlurWithAmountAndMode>(
        {"KXEffectsGaussianBlurWithAmountAndMode", "gaussian-blur-with-amount-and-mode", "blurs",
         "the gaussian blur laid over the sample in a blend mode, mixed by amount", Margin::Gaussian},
        {kSourceArg, kDestinationArg, kRectArg, registry_args::kGaussianRadius, registry_args::kBlurAmount,
         registry_args::kBlurMode}),
    Effect<KXEffectsGaussianBlurFast>(
        {"KXEffectsGaussianBlurFast", "gaussian-blur-fast", "blurs", "three box passes, at a cost independent of the radius",
         Margin::FastGaussian},
        {kSourceArg, kDestinationArg, kRectArg, registry_args::kGaussianRadius}),
    Effect<KXEffectsGaussianBlurFastWithAmount>(
        {"KXEffectsGaussianBlurFastWithAmount", "gaussian-blur-fast-with-amount", "blurs", "the fast blur mixed by amount",
         Margin::FastGaussian},
        {kSourceArg, kDestinationArg, kRectArg, registry_args::kGaussianRadius, registry_args::kBlurAmount}),
    Effect<KXEffectsGaussianBlurFastWithAmountAndMode>(
        {"KXEffectsGaussianBlurFastWithAmountAndMode", "gaussian-blur-fast-with-amount-and-mode", "blurs",
         "the fast blur in a blend mode, mixed by amount", Margin::Whole, Catching::Catches},
        {kSourceArg, kDestinationArg, kRectArg, registry_args::kGaussianRadius, registry_args::kBlurAmount,
         registry_args::kBlurMode}),
    Effect<KXEffectsGaussianBlurTrue>(
        {"KXEffectsGaussianBlurTrue", "gaussian-blur-true", "blurs", "separable convolution with a gaussian of 2h + 1 taps",
         Margin::TrueGaussian},
        {kSourceArg, kDestinationArg, kRectArg, registry_args::kGaussianRadius}),
    Effect<KXEffectsGaussianBlurTrueWithAmount>(
        {"KXEffectsGaussianBlurTrueWithAmount", "gaussian-blur-true-with-amount", "blurs", "the true blur mixed by amount",
         Margin::TrueGaussian},
        {kSourceArg, kDestinationArg, kRectArg, registry_args::kGaussianRadius, registry_args::kBlurAmount}),
    Effect<KXEffectsGaussianBlurTrueWithAmountAndMode>(
        {"KXEffectsGaussianBlurTrueWithAmountAndMode", "gaussian-blur-true-with-amount-and-mode", "blurs",
         "the true blur in a blend mode, mixed by amount"},
        {kSourceArg, kDestinationArg, kRectArg, registry_args::kGaussianRadius, registry_args::kBlurAmount,
         registry_args::kBlurMode}),
    // ---- Filters ----
    Effect<KXEffectsSurfaceBlur>(
        {"KXEffectsSurfaceBlur", "surface-blur", "filters", "edge-preserving smoothing: samples move toward similar neighbours",
         Margin::Rounded},
        {kSourceArg, kDestinationArg, kRectArg, registry_args::kBoxRadius, registry_args::kSurfaceThreshold,
         FloatArg("amount", "1", "1", 0, 1, "0..1 mix with the input")}),
    Effect<KXEffectsSurfaceBlurWithOffset>(
        {"KXEffectsSurfaceBlurWithOffset", "surface-blur-with-offset", "filters",
         "the surface blur, its result moved by minus offset", Margin::Rounded},
        {kSourceArg, kDestinationArg, kRectArg, registry_args::kBoxRadius, registry_args::kSurfaceThreshold,
         FloatArg("amount", "1", "1", 0, 1, "0..1 mix with the input"), registry_args::kOffset}),
    Effect<KXEffectsSurfaceBlurLuminosity>(
        {"KXEffectsSurfaceBlurLuminosity", "surface-blur-luminosity", "filters",
         "the surface blur of the luma given back to each pixel, chroma kept; RGB only", Margin::Whole,
         Catching::Catches},
        {kSourceArg, kDestinationArg, kRectArg, registry_args::kBoxRadius, registry_args::kSurfaceThreshold,
         FloatArg("amount", "1", "1", 0, 1, "0..1 mix with the input")}),
    Effect<KXEffectsCreateLuminosityImage>(
        {"KXEffectsCreateLuminosityImage", "create-luminosity-image", "filters",
         "a new one-plane image of the luma of an RGB image", Margin::Whole, Catching::Throws, kAllDepths, false},
        {kSourceArg, OutImageArg("OUTPUT", "the luma image"), kRectArg,
         IntegerArg("plane-bytes", "0", "0", 0, 4, "1, 2 or 4; 0 those of INPUT")}),
    Effect<KXEffectsMedian>(
        {"KXEffectsMedian", "median", "filters", "the median of the square around each sample", Margin::Rounded,
         Catching::Throws, kDepth8 | kDepth16},
        {kSourceArg, kDestinationArg, kRectArg, registry_args::kBoxRadius}),
    Effect<KXEffectsDustAndScratch>(
        {"KXEffectsDustAndScratch", "dust-and-scratch", "filters",
         "replaces a sample by its median where they differ by the threshold or more", Margin::Rounded,
         Catching::Throws, kDepth8 | kDepth16},
        {kSourceArg, kDestinationArg, kRectArg, registry_args::kBoxRadius,
         FloatArg("threshold", "1", "0.05", 0, 1, "0..1: a sample this far from its median goes; 1 copies")}),
    Effect<KXEffectsTriangularBlur>(
        {"KXEffectsTriangularBlur", "triangular-blur", "filters", "tent-weighted mean around each sample"},
        {kSourceArg, kDestinationArg, kRectArg, registry_args::kBoxRadius}),
    Effect<KXEffectsVariance>(
        {"KXEffectsVariance", "variance", "filters", "the local standard deviation over the square around each sample",
         Margin::Whole, Catching::Catches, kAllDepths, false},
        {kSourceArg, kDestinationArg, kRectArg, registry_args::kBoxRadius}),
    Effect<KXEffectsSharpen>(
        {"KXEffectsSharpen", "sharpen", "filters", "3 x 3 sharpening", Margin::OnePixel, Catching::Throws, kAllDepths, false},
        {kSourceArg, kDestinationArg, kRectArg}),
    Effect<KXEffectsSharpenMore>(
        {"KXEffectsSharpenMore", "sharpen-more", "filters", "stronger 3 x 3 sharpening", Margin::OnePixel, Catching::Throws,
         kAllDepths, false},
        {kSourceArg, kDestinationArg, kRectArg}),
    Effect<KXEffectsBlur>(
        {"KXEffectsBlur", "blur", "filters", "3 x 3 blur", Margin::OnePixel, Catching::Throws, kAllDepths, false},
        {kSourceArg, kDestinationArg, kRectArg}),
    Effect<KXEffectsBlurMore>(
        {"KXEffectsBlurMore", "blur-more", "filters", "stronger 3 x 3 blur", Margin::OnePixel, Catching::Throws, kAllDepths,
         false},
        {kSourceArg, kDestinationArg, kRectArg}),
    Effect<KXEffectsFindEdges>(
        {"KXEffectsFindEdges", "find-edges", "filters", "white minus the Sobel gradient magnitude: edges dark on white",
         Margin::OnePixel, Catching::Throws, kAllDepths, false},
        {kSourceArg, kDestinationArg, kRectArg}),
    Effect<KXEffectsEmboss>(
        {"KXEffectsEmboss", "emboss", "filters", "relief about mid-gray along a light direction", Margin::Emboss,
         Catching::Throws, kAllDepths, false},
        {kSourceArg, kDestinationArg, kRectArg,
         FloatArg("angle", "135", "135", -360, 360, "degrees of the light direction", kArgMarginValue),
         IntegerArg("height", "3", "3", 1, 100, "pixels between the two samples"),
         FloatArg("amount", "1", "1", 0, 10, "gain on the difference")}),
    // ---- Clarity and sharpening ----
    Effect<KXEffectsClarity>(
        {"KXEffectsClarity", "clarity", "sharpening", "local contrast on the luma, chroma kept; RGB only", Margin::Gaussian,
         Catching::Catches},
        {kSourceArg, kDestinationArg, kRectArg,
         FloatArg("amount", "0", "0.5", -1, 2, "gain on the difference from the blurred luma; 0 copies"),
         RadiusArg("radius", "10", "10", 0, 1000, "gaussian radius in pixels")}),
    Effect<KXEffectsUnsharpMask>(
        {"KXEffectsUnsharpMask", "unsharp-mask", "sharpening", "s + (s - gaussian blur) x amount, with a soft threshold",
         Margin::Gaussian},
        {kSourceArg, kDestinationArg, kRectArg, registry_args::kSharpenAmount,
         RadiusArg("radius", "2", "2", 0, 1000, "gaussian radius in pixels"), registry_args::kSharpenThreshold}),
    Effect<KXEffectsUnsharpMaskUsingSurfaceBlur>(
        {"KXEffectsUnsharpMaskUsingSurfaceBlur", "unsharp-mask-using-surface-blur", "sharpening",
         "the unsharp mask over a surface blur", Margin::Rounded},
        {kSourceArg, kDestinationArg, kRectArg, registry_args::kSharpenAmount,
         IntegerRadiusArg("radius", "2", "3", 0, 1000, "pixels around each sample"),
         FloatArg("surface-threshold", "0.1", "0.1", 0, 1, "0..1: how far a sample may be to be blurred with")}),
    Effect<KXEffectsUnsharpMaskUsingBoxBlur>(
        {"KXEffectsUnsharpMaskUsingBoxBlur", "unsharp-mask-using-box-blur", "sharpening", "the unsharp mask over a box blur",
         Margin::Rounded},
        {kSourceArg, kDestinationArg, kRectArg, registry_args::kSharpenAmount,
         IntegerRadiusArg("radius", "2", "2", 0, 1000, "pixels around each sample"), registry_args::kSharpenThreshold}),
    Effect<KXEffectsUnsharpMaskUsingTriangularBlur>(
        {"KXEffectsUnsharpMaskUsingTriangularBlur", "unsharp-mask-using-triangular-blur", "sharpening",
         "the unsharp mask over a triangular blur", Margin::Rounded},
        {kSourceArg, kDestinationArg, kRectArg, registry_args::kSharpenAmount,
         IntegerRadiusArg("radius", "2", "2", 0, 1000, "pixels around each sample"), registry_args::kSharpenThreshold}),
    Effect<KXEffectsHighPass>(
        {"KXEffectsHighPass", "high-pass", "sharpening", "the difference from a gaussian blur around mid-gray", Margin::Gaussian,
         Catching::Catches, kAllDepths, false},
        {kSourceArg, kDestinationArg, kRectArg, RadiusArg("radius", "4", "4", 0, 1000, "gaussian radius in pixels")}),
    Effect<KXEffectsHighPassAndLowPass>(
        {"KXEffectsHighPassAndLowPass", "high-pass-and-low-pass", "sharpening",
         "the gaussian blur into --low-pass and the high pass of it into OUTPUT", Margin::Gaussian,
         Catching::Catches, kAllDepths, false},
        {kSourceArg, kDestinationArg, DestinationArg("low-pass", ArgKind::ExtraDestination, "file for the blur"),
         kRectArg, RadiusArg("radius", "4", "4", 0, 1000, "gaussian radius in pixels")}),
    Effect<KXEffectsSharpenHighPass>(
        {"KXEffectsSharpenHighPass", "sharpen-high-pass", "sharpening", "the high pass laid over the image in overlay mode",
         Margin::Rounded},
        {kSourceArg, kDestinationArg, kRectArg, FloatArg("amount", "0", "0.8", 0, 2, "0..1 and beyond; 0 copies"),
         IntegerRadiusArg("radius", "2", "3", 0, 1000, "box radius of the blur")}),
    Effect<KXEffectsSharpenHighPassWithOffset>(
        {"KXEffectsSharpenHighPassWithOffset", "sharpen-high-pass-with-offset", "sharpening",
         "the high-pass sharpening, its result moved by minus offset", Margin::Rounded},
        {kSourceArg, kDestinationArg, kRectArg, FloatArg("amount", "0", "0.8", 0, 2, "0..1 and beyond; 0 copies"),
         IntegerRadiusArg("radius", "2", "3", 0, 1000, "box radius of the blur"), registry_args::kOffset}),
    Effect<KXEffectsSharpenProgressive>(
        {"KXEffectsSharpenProgressive", "sharpen-progressive", "sharpening", "sharpens against gaussian blurs at three scales",
         Margin::ProgressiveGaussian, Catching::Catches},
        {kSourceArg, kDestinationArg, kRectArg, FloatArg("amount", "0", "1", 0, 5, "gain; 0 copies"),
         RadiusArg("radius", "2", "2", 0, 1000, "pixels of the middle scale"),
         FloatArg("fine-reduction", "0", "0.3", 0, 1, "0..1: weight taken from the finest scale"),
         registry_args::kSharpenThreshold}),
    // ---- Colour selection ----
    Effect<KXEffectsSelectColor>(
        {"KXEffectsSelectColor", "select-color", "selection", "multiplies a mask by the nearness of each colour to one colour",
         Margin::Pointwise, Catching::Throws, kAllDepths, false},
        {kSourceArg, kMaskDestinationArg, kRectArg, registry_args::kSelectColour, registry_args::kSelectRange}),
    Effect<KXEffectsSelectLuminosity>(
        {"KXEffectsSelectLuminosity", "select-luminosity", "selection", "multiplies a mask by a band of luma",
         Margin::Pointwise, Catching::Throws, kAllDepths, false},
        {kSourceArg, kMaskDestinationArg, kRectArg, registry_args::kLow, registry_args::kHigh,
         registry_args::kFeather}),
    Effect<KXEffectsSelectSaturation>(
        {"KXEffectsSelectSaturation", "select-saturation", "selection", "multiplies a mask by a band of saturation",
         Margin::Pointwise, Catching::Throws, kAllDepths, false},
        {kSourceArg, kMaskDestinationArg, kRectArg, registry_args::kLow, registry_args::kHigh,
         registry_args::kFeather}),
    Effect<KXEffectsSelectLuminosityRange>(
        {"KXEffectsSelectLuminosityRange", "select-luminosity-range", "selection",
         "multiplies a mask by a trapezoid of luma", Margin::Whole, Catching::Throws, kAllDepths, false},
        {kSourceArg, kMaskDestinationArg, kRectArg, registry_args::kRampStart, registry_args::kRampFull,
         registry_args::kFallStart, registry_args::kFallEnd}),
    Effect<KXEffectsSelectSaturationRange>(
        {"KXEffectsSelectSaturationRange", "select-saturation-range", "selection",
         "multiplies a mask by a trapezoid of saturation", Margin::Whole, Catching::Throws, kAllDepths, false},
        {kSourceArg, kMaskDestinationArg, kRectArg, registry_args::kRampStart, registry_args::kRampFull,
         registry_args::kFallStart, registry_args::kFallEnd}),
    Effect<KXEffectsSelectColors>(
        {"KXEffectsSelectColors", "select-colors", "selection", "multiplies a mask by a preset colour or tone band",
         Margin::Pointwise, Catching::Throws, kAllDepths, false},
        {kSourceArg, kMaskDestinationArg, kRectArg, registry_args::kPresetCode,
         FloatArg("range", "1", "1", 0, 10, "range of a colour, feather of a band")}),
    Effect<KXEffectsSelectColorsWithRange>(
        {"KXEffectsSelectColorsWithRange", "select-colors-with-range", "selection",
         "multiplies a mask by a tone or saturation band (codes 12 to 16)", Margin::Whole, Catching::Throws,
         kAllDepths, false},
        {kSourceArg, kMaskDestinationArg, kRectArg, IntegerArg("code", "12", "13", 12, 16, "12 to 16"),
         FloatArg("range", "0.25", "0.25", 0, 1, "width of the band's shoulders; 0 gives hard edges")}),
    Effect<KXEffectsSelectFleshColors>(
        {"KXEffectsSelectFleshColors", "select-flesh-colors", "selection", "multiplies a mask by the skin tones of a table",
         Margin::Pointwise, Catching::Throws, kAllDepths, false},
        {kSourceArg, kMaskDestinationArg, kRectArg, IntegerArg("table", "0", "0", 0, 5, "flesh table 0 to 5"),
         FloatArg("range", "1", "1", 0, 10, "size of the skin ellipsoid"),
         FloatArg("strength", "1", "1", 0, 1, "0..1 weight of the selection"),
         BoolArg("exclude", "false", "false", "keep everything but the skin tones")}),
    Effect<KXEffectsColorRange>(
        {"KXEffectsColorRange", "color-range", "selection", "multiplies a mask by an ellipsoid in YCbCr around a colour",
         Margin::Pointwise, Catching::Throws, kAllDepths, false},
        {kSourceArg, kMaskDestinationArg, kRectArg, registry_args::kSelectColour, registry_args::kSelectRange}),
    Effect<KXEffectsFindMaskBounds>(
        {"KXEffectsFindMaskBounds", "find-mask-bounds", "selection", "prints the box of the non-zero samples of a one-plane image",
         Margin::Whole, Catching::Throws, kAllDepths, false},
        {kMaskSourceArg, OutRectArg("bounds", "x, y, width, height")}),
    // ---- Matting ----
    Effect<KXEffectsSetTrimap>(
        {"KXEffectsSetTrimap", "set-trimap", "matting",
         "stamps foreground, background or unknown into a trimap where a brush is not 0", Margin::Pointwise,
         Catching::Throws, kAllDepths, false},
        {{.name = "TRIMAP", .kind = ArgKind::Source, .help = "a one-plane trimap"}, kDestinationArg,
         MaskArg("BRUSH", "one plane: the stamp goes where it is not 0"), kRectArg,
         IntegerArg("flags", "0", "1", 0, 511, "1 foreground, 2 background, neither unknown; 256 foreground level 127")}),
    Effect<ExpandTrimapCountingInFloat, KXEffectsExpandTrimap>(
        {"KXEffectsExpandTrimap", "expand-trimap", "matting",
         "unknown trimap pixels take the certainty of a near known pixel of nearly their colour; RGB only",
         Margin::Whole, Catching::Throws, kAllDepths, false},
        {kSourceArg, registry_args::kTrimap, DestinationArg("OUTPUT", ArgKind::MaskDestination, "the grown trimap"),
         kRectArg, OutArg("changed", 1, "the count of pixels that turned certain")}),
    Effect<KXEffectsGenerateMatte>(
        {"KXEffectsGenerateMatte", "generate-matte", "matting",
         "solves the unknown band of a trimap into an alpha matte and foreground colours by shared sampling; RGB only",
         Margin::Whole, Catching::Throws, kAllDepths, false, "matte"},
        {{.name = "IMAGE", .kind = ArgKind::Source}, registry_args::kTrimap,
         MaskArg("prior-alpha", "one plane that flags 1 and 16 read as the existing alpha; none: the matte's own",
                 kArgOptional),
         NamedOutputArg("foreground", ArgKind::ExtraDestination, "file for the foreground colours", kArgOptional),
         NamedOutputArg("matte", ArgKind::MaskDestination, "file for the alpha matte"), kRectArg,
         IntegerArg("flags", "0", "0", 0, 33554432,
                    "1 keeps the larger alpha, 16 mixes the foreground by the existing alpha, 256 foreground "
                    "level 127, 16777216 skips the smoothing"),
         kProgressArg}),
    // ---- Black and white ----
    Effect<KXEffectsBlackAndWhite>(
        {"KXEffectsBlackAndWhite", "black-and-white", "black-and-white",
         "gray by a filter hue, midtone contrast, an optional grain tile and toner; RGB only", Margin::Pointwise,
         Catching::Throws, kAllDepths, false},
        {kSourceArg, kDestinationArg, kRectArg,
         FloatArg("filter-hue", "0", "0.1", 0, 1, "turns 0..1 of the filter: 0 red, 0.333 green, 0.667 blue"),
         FloatArg("contrast", "0", "0.3", -1, 1, "-1..1 midtone contrast; 0 none"),
         ImageArg("grain-tile", "a 256 x 256 grain tile", kArgOptional),
         FloatArg("grain-amount", "0", "0.3", 0, 1, "0..1 of the grain; 0 none"),
         ColourArg("toner-color", "", "0.9,0.75,0.55", "r,g,b in 0..1; none leaves the gray", kArgOptional),
         FloatArg("toner-amount", "0", "0.5", 0, 1, "0..1 of the toner; 0 none")}),
    Effect<KXEffectsBlackAndWhiteColorResponse>(
        {"KXEffectsBlackAndWhiteColorResponse", "black-and-white-color-response", "black-and-white",
         "luma plus six responses by how much of each colour a pixel has; RGB only", Margin::Pointwise,
         Catching::Throws, kAllDepths, false},
        {kSourceArg, kDestinationArg, kRectArg,
         ColourArg("filter-color", "", "0.6,0.5,0.4", "r,g,b in 0..1 overlaid first; none is no filter", kArgOptional),
         registry_args::kResponses}),
    Effect<KXEffectsBlackAndWhiteColorResponseGetAutoMixture>(
        {"KXEffectsBlackAndWhiteColorResponseGetAutoMixture", "black-and-white-color-response-get-auto-mixture", "black-and-white",
         "prints six responses from the spread of each colour over the image", Margin::Whole, Catching::Throws,
         kAllDepths, false},
        {kSourceArg, OutArg("responses", 6, "red, yellow, green, cyan, blue, magenta")}),
    Effect<KXEffectsColorFilter>(
        {"KXEffectsColorFilter", "color-filter", "black-and-white", "every colour plane becomes a weighted sum of the three",
         Margin::Pointwise, Catching::Throws, kAllDepths, false},
        {kSourceArg, kDestinationArg, kRectArg, FloatArg("red", "0.299", "0.5", -2, 2, "weight of the first plane"),
         FloatArg("green", "0.587", "0.4", -2, 2, "weight of the second plane"),
         FloatArg("blue", "0.114", "0.1", -2, 2, "weight of the third plane")}),
    Effect<KXEffectsBlackAndWhiteWithColorFilter>(
        {"KXEffectsBlackAndWhiteWithColorFilter", "black-and-white-with-color-filter", "black-and-white",
         "the colour filter with the weights of a hue", Margin::Pointwise, Catching::Throws, kAllDepths, false},
        {kSourceArg, kDestinationArg, kRectArg,
         FloatArg("filter-hue", "0", "0.1", 0, 1, "turns 0..1: 0 red, 0.167 yellow, 0.333 green")}),
    Effect<KXEffectsBlackWhite>(
        {"KXEffectsBlackWhite", "black-white", "black-and-white", "every colour plane becomes the luma (0) or the mean (1)",
         Margin::Pointwise, Catching::Throws, kAllDepths, false},
        {kSourceArg, kDestinationArg, kRectArg, IntegerArg("mode", "0", "0", 0, 1, "0 luma, 1 mean")}),
    // ---- White balance ----
    Effect<KXEffectsTemperatureAndTint>(
        {"KXEffectsTemperatureAndTint", "temperature-and-tint", "white-balance", "temperature and tint; RGB only", Margin::Pointwise},
        {kSourceArg, kDestinationArg, kRectArg, registry_args::kTemperature, registry_args::kTint}),
    Effect<KXEffectsTemperatureTintAndVibrance>(
        {"KXEffectsTemperatureTintAndVibrance", "temperature-tint-and-vibrance", "white-balance",
         "temperature and tint, then vibrance; RGB only", Margin::Pointwise},
        {kSourceArg, kDestinationArg, kRectArg, registry_args::kTemperature, registry_args::kTint,
         registry_args::kVibrance}),
    Effect<KXEffectsTemperatureTintAndSaturation>(
        {"KXEffectsTemperatureTintAndSaturation", "temperature-tint-and-saturation", "white-balance",
         "temperature and tint, then saturation; RGB only", Margin::Pointwise},
        {kSourceArg, kDestinationArg, kRectArg, registry_args::kTemperature, registry_args::kTint,
         registry_args::kSaturation}),
    Effect<KXEffectsTemperatureTintSaturationAndVibrance>(
        {"KXEffectsTemperatureTintSaturationAndVibrance", "temperature-tint-saturation-and-vibrance", "white-balance",
         "temperature and tint, then saturation and vibrance; RGB only", Margin::Pointwise},
        {kSourceArg, kDestinationArg, kRectArg, registry_args::kTemperature, registry_args::kTint,
         registry_args::kSaturation, registry_args::kVibrance}),
    Effect<KXEffectsVibrance>(
        {"KXEffectsVibrance", "vibrance", "white-balance", "lifts the duller colours most; RGB only", Margin::Pointwise},
        {kSourceArg, kDestinationArg, kRectArg, registry_args::kVibrance}),
    Effect<KXEffectsAddToner>(
        {"KXEffectsAddToner", "add-toner", "white-balance", "luminosity mapped through a toner colour, mixed by amount; RGB only",
         Margin::Pointwise},
        {kSourceArg, kDestinationArg, kRectArg, registry_args::kToner,
         FloatArg("amount", "0", "0.5", 0, 1, "0..1 mix with the input")}),
    // ---- Automatic analysis ----
    Effect<KXEffectsAnalyzeImage>(
        {"KXEffectsAnalyzeImage", "analyze-image", "analysis",
         "prints the means and deviations of the colour planes (and luma of RGB) over the rectangle",
         Margin::Pointwise, Catching::Throws, kAllDepths, false},
        {kSourceArg, kRectArg, OutArg("means", 4, "red, green, blue and luma, or the gray plane"),
         OutArg("deviations", 4, "likewise")}),
    Effect<KXEffectsAutoColorMakeCurves>(
        {"KXEffectsAutoColorMakeCurves", "auto-color-make-curves", "analysis",
         "prints three channels of curves that take the near-gray pixels toward gray; RGB only", Margin::Whole,
         Catching::Throws, kAllDepths, false},
        {kSourceArg, OutArg("curves", 0, "256 values a channel")}),
    Effect<KXEffectsAutoColorTemperatureAndTint>(
        {"KXEffectsAutoColorTemperatureAndTint", "auto-color-temperature-and-tint", "analysis",
         "prints the temperature and tint nearest to the auto colour", Margin::Whole, Catching::Throws, kAllDepths,
         false},
        {kSourceArg, OutArg("temperature", 1, "-1..1"), OutArg("tint", 1, "-1..1")}),
    Effect<KXEffectsAutoTone>(
        {"KXEffectsAutoTone", "auto-tone", "analysis",
         "prints the black and white points, brightness, contrast, shadows and highlights of an RGB image",
         Margin::Whole, Catching::Throws, kAllDepths, false},
        {kSourceArg, OutArg("black", 3, "0..1 per plane"), OutArg("white", 3, "0..1 per plane"),
         OutArg("brightness", 1, "-1..1"), OutArg("contrast", 1, "-1..1"), OutArg("shadows", 1, "-1..1"),
         OutArg("highlights", 1, "-1..1")}),
    Effect<KXEffectsBlackAndWhitePointsGetPoints>(
        {"KXEffectsBlackAndWhitePointsGetPoints", "black-and-white-points-get-points", "analysis",
         "prints the points that clip the given fractions at each end", Margin::Whole, Catching::Throws,
         kDepth8 | kDepth16, false},
        {kSourceArg, OutArg("black", 3, "0..1 per plane"), OutArg("white", 3, "0..1 per plane"),
         FloatArg("shadow-clip", "0.001", "0.001", 0, 1, "fraction of the pixels at or below black"),
         FloatArg("highlight-clip", "0.001", "0.001", 0, 1, "fraction of the pixels at or above white"),
         BoolArg("combined", "false", "false", "one histogram of the mean of the planes")}),
    Effect<KXEffectsBlackAndWhitePointsApply>(
        {"KXEffectsBlackAndWhitePointsApply", "black-and-white-points-apply", "analysis",
         "stretches black..white of each colour plane to 0..1", Margin::Pointwise, Catching::Throws,
         kDepth8 | kDepth16},
        {kSourceArg, kDestinationArg, kRectArg, registry_args::kBlack, registry_args::kWhite}),
    Effect<KXEffectsEqualize>(
        {"KXEffectsEqualize", "equalize", "analysis", "equalizes the histogram of all colour planes of the whole image",
         Margin::Whole, Catching::Throws, kAllDepths, false},
        {kSourceArg, kDestinationArg}),
    Effect<KXEffectsEqualizeLuminosity>(
        {"KXEffectsEqualizeLuminosity", "equalize-luminosity", "analysis",
         "equalizes the luma of the whole image, one gain a pixel so hues stay", Margin::Whole, Catching::Throws,
         kAllDepths, false},
        {kSourceArg, kDestinationArg}),
    Effect<KXEffectsEqualizeMakeCurves>(
        {"KXEffectsEqualizeMakeCurves", "equalize-make-curves", "analysis", "prints the equalization as curves", Margin::Whole,
         Catching::Throws, kAllDepths, false},
        {kSourceArg, OutArg("curves", 0, "256 values a channel")}),
    // ---- Hue and colour ranges ----
    Effect<KXEffectsHueSaturationBrightness>(
        {"KXEffectsHueSaturationBrightness", "hue-saturation-brightness", "hue",
         "turns the hue, and moves saturation and brightness; RGB only", Margin::Pointwise},
        {kSourceArg, kDestinationArg, kRectArg, registry_args::kHue, registry_args::kSaturation,
         FloatArg("brightness", "0", "0.1", -1, 1, "-1..1; 0 leaves it")}),
    Effect<KXEffectsHueSaturationLightness>(
        {"KXEffectsHueSaturationLightness", "hue-saturation-lightness", "hue",
         "turns the hue, and moves saturation and lightness; RGB only", Margin::Pointwise},
        {kSourceArg, kDestinationArg, kRectArg, registry_args::kHue, registry_args::kSaturation,
         FloatArg("lightness", "0", "0.1", -1, 1, "-1..1; 0 leaves it")}),
    Effect<KXEffectsTuneColors>(
        {"KXEffectsTuneColors", "tune-colors", "hue",
         "moves eight anchor hues (or all) in hue, saturation and brightness, after temperature and tint",
         Margin::Pointwise},
        {kSourceArg, kDestinationArg, kRectArg, registry_args::kTemperature, registry_args::kTint,
         registry_args::kTuned[0], registry_args::kTuned[1], registry_args::kTuned[2]}),
    Effect<KXEffectsColorize>(
        {"KXEffectsColorize", "colorize", "hue", "gives every pixel one hue and saturation, keeping its lightness",
         Margin::Whole, Catching::Throws, kAllDepths, false},
        {kSourceArg, kDestinationArg, kRectArg, FloatArg("hue", "0.1", "0.08", 0, 1, "turns 0..1"),
         FloatArg("saturation", "0.5", "0.4", 0, 1, "0..1"),
         FloatArg("lightness", "0", "0", -1, 1, "-1 (black) to 1 (white); 0 keeps it")}),
    Effect<KXEffectsChannelMixer>(
        {"KXEffectsChannelMixer", "channel-mixer", "hue",
         "red and green planes as sums of the three planes; blue turns white", Margin::Pointwise, Catching::Throws,
         kAllDepths, false},
        {kSourceArg, kDestinationArg, kRectArg, FloatArg("red-red", "1", "0.8", -1, 1, "weight of red in red"),
         FloatArg("red-green", "0", "0.2", -1, 1, "weight of green in red"),
         FloatArg("red-blue", "0", "0", -1, 1, "weight of blue in red"),
         FloatArg("green-red", "0", "0.1", -1, 1, "weight of red in green"),
         FloatArg("green-green", "1", "0.9", -1, 1, "weight of green in green"),
         FloatArg("green-blue", "0", "0", -1, 1, "weight of blue in green")}),
    Effect<KXEffectsPurity>(
        {"KXEffectsPurity", "purity", "hue", "bleaches the colour out of the darkest and lightest tones; RGB only",
         Margin::Pointwise},
        {kSourceArg, kDestinationArg, kRectArg,
         FloatArg("shadows", "0", "0.3", 0, 1, "width of the dark band in luma, 0..1"),
         FloatArg("highlights", "0", "0.2", 0, 1, "width of the light band in luma, 0..1")}),
    Effect<KXEffectsProtectColors>(
        {"KXEffectsProtectColors", "protect-colors", "hue",
         "lays ADJUSTED over INPUT except in the protected dark and light bands and skin tones",
         Margin::Pointwise, Catching::Catches, kAllDepths, false},
        {kSourceArg, ImageArg("ADJUSTED", "the adjusted image"), kDestinationArg, kRectArg,
         FloatArg("shadows", "0", "0.2", 0, 1, "width of the protected dark band in luma, 0..1"),
         FloatArg("highlights", "0", "0.1", 0, 1, "width of the protected light band in luma, 0..1"),
         FloatArg("skin", "0", "0.5", 0, 1, "0..1: how fully skin tones are protected"),
         IntegerArg("skin-table", "0", "0", 0, 5, "flesh table 0 to 5")}),
    // ---- Grain and noise ----
    Effect<KXEffectsAddNoise>(
        {"KXEffectsAddNoise", "add-noise", "grain", "adds uniform noise of up to amount x white to each colour plane",
         Margin::Pointwise},
        {kSourceArg, kDestinationArg, kRectArg,
         IntegerArg("noise-type", "0", "2", 0, 2, "0 per sample, 1 per pixel, 2 a fixed tile by position"),
         FloatArg("amount", "0", "0.1", 0, 1, "0..1 of white, the largest change; 0 copies")}),
    Effect<KXEffectsApplyFilmGrain>(
        {"KXEffectsApplyFilmGrain", "apply-film-grain", "grain",
         "overlays GRAIN, placed by its bounds and at least as large, one byte a column", Margin::Pointwise},
        {kSourceArg, kDestinationArg, kRectArg, ImageArg("GRAIN", "the grain image"), registry_args::kGrainAmount}),
    Effect<KXEffectsApplyFilmGrainTile>(
        {"KXEffectsApplyFilmGrainTile", "apply-film-grain-tile", "grain",
         "overlays a power-of-two grain tile repeated over the image and magnified by a scale", Margin::Pointwise},
        {kSourceArg, kDestinationArg, kRectArg, ImageArg("TILE", "a power-of-two grain tile"),
         registry_args::kGrainAmount, FloatArg("scale", "1", "1.5", 0.1f, 16, "image pixels per tile pixel, above 0")}),
    // ---- Shadows and local tone ----
    Effect<KXEffectsShadowsAndHilites>(
        {"KXEffectsShadowsAndHilites", "shadows-and-hilites", "local-tone",
         "lifts dark neighbourhoods and holds back bright ones; RGB only", Margin::Gaussian},
        {kSourceArg, kDestinationArg, kRectArg,
         RadiusArg("radius", "20", "8", 0, 1000, "gaussian radius of the neighbourhood in pixels"),
         FloatArg("shadows", "0", "0.4", 0, 1, "0..1"), FloatArg("highlights", "0", "0.3", 0, 1, "0..1")}),
    Effect<KXEffectsApplyContrastMask>(
        {"KXEffectsApplyContrastMask", "apply-contrast-mask", "local-tone",
         "mixes in the overlay of the inverted blurred luma outside a protected band; RGB only", Margin::Gaussian},
        {kSourceArg, kDestinationArg, kRectArg, RadiusArg("radius", "20", "8", 0, 1000, "gaussian radius in pixels"),
         FloatArg("dark-amount", "0", "0.5", 0, 1, "0..1 below the band"),
         FloatArg("low-band", "0.25", "0.25", 0, 1, "luma where the band starts"),
         FloatArg("low-feather", "1", "1", 0, 10, "softness of the band's start"),
         FloatArg("light-amount", "0", "0.4", 0, 1, "0..1 above the band"),
         FloatArg("high-band", "0.75", "0.75", 0, 1, "luma where the band ends"),
         FloatArg("high-feather", "1", "1", 0, 10, "softness of the band's end")}),
    Effect<KXEffectsAdjustShadows>(
        {"KXEffectsAdjustShadows", "adjust-shadows", "local-tone", "reshapes the tones below a threshold", Margin::Pointwise},
        {kSourceArg, kDestinationArg, kRectArg, FloatArg("strength", "0", "0.5", -1, 1, "-1..1: slope at black"),
         FloatArg("threshold", "0.5", "0.5", 0, 1, "0..1: where the knee meets the line")}),
    Effect<KXEffectsAdjustTone>(
        {"KXEffectsAdjustTone", "adjust-tone", "local-tone",
         "black and white points, brightness, midtone contrast and curves as one table", Margin::Pointwise,
         Catching::Catches, kAllDepths, false},
        {kSourceArg, kDestinationArg, kRectArg, registry_args::kBlack, registry_args::kWhite,
         registry_args::kBrightness, registry_args::kMidtoneContrast,
         CurvesArg("first-curves", "", "0,0;0.5,0.6;1,1", "a curve applied after the points", kArgOptional),
         CurvesArg("second-curves", "", "", "a curve applied last", kArgOptional)}),
    // ---- Tone controls ----
    Effect<KXEffectsBrightnessContrast>(
        {"KXEffectsBrightnessContrast", "brightness-contrast", "tone", "brightness and contrast on each colour plane",
         Margin::Pointwise},
        {kSourceArg, kDestinationArg, kRectArg, registry_args::kBrightness, registry_args::kContrast}),
    Effect<KXEffectsBrightnessContrastWithMask>(
        {"KXEffectsBrightnessContrastWithMask", "brightness-contrast-with-mask", "tone",
         "brightness and contrast scaled by a mask at each pixel", Margin::Pointwise},
        {kSourceArg, kDestinationArg, registry_args::kMask, kRectArg, registry_args::kBrightness,
         registry_args::kContrast}),
    Effect<KXEffectsBrightnessMidtoneContrast>(
        {"KXEffectsBrightnessMidtoneContrast", "brightness-midtone-contrast", "tone",
         "brightness and S-shaped midtone contrast on each colour plane", Margin::Pointwise},
        {kSourceArg, kDestinationArg, kRectArg, registry_args::kBrightness, registry_args::kMidtoneContrast}),
    Effect<KXEffectsBrightnessMidtoneContrastWithMask>(
        {"KXEffectsBrightnessMidtoneContrastWithMask", "brightness-midtone-contrast-with-mask", "tone",
         "brightness and midtone contrast scaled by a mask at each pixel", Margin::Pointwise},
        {kSourceArg, kDestinationArg, registry_args::kMask, kRectArg, registry_args::kBrightness,
         registry_args::kMidtoneContrast}),
    Effect<KXEffectsBrightnessWithMask>(
        {"KXEffectsBrightnessWithMask", "brightness-with-mask", "tone", "brightness, optionally with a signed mask",
         Margin::Pointwise},
        {kSourceArg, kDestinationArg, kRectArg, registry_args::kBrightness, registry_args::kSignedMask}),
    Effect<KXEffectsMidtoneContrast>(
        {"KXEffectsMidtoneContrast", "midtone-contrast", "tone", "S-shaped midtone contrast on each colour plane",
         Margin::Pointwise},
        {kSourceArg, kDestinationArg, kRectArg, FloatArg("strength", "0", "0.4", -1, 1, "-1..1; 0 leaves it")}),
    Effect<KXEffectsMidtoneContrastAltWithMask>(
        {"KXEffectsMidtoneContrastAltWithMask", "midtone-contrast-alt-with-mask", "tone",
         "midtone contrast reaching past +-1 into plain contrast, with a signed mask", Margin::Pointwise},
        {kSourceArg, kDestinationArg, kRectArg, FloatArg("strength", "0", "1.3", -2, 2, "-2..2; 0 leaves it"),
         registry_args::kSignedMask}),
    Effect<KXEffectsExposure>(
        {"KXEffectsExposure", "exposure", "tone", "a soft-shouldered exposure that keeps the hue of every pixel"},
        {kSourceArg, kDestinationArg, kRectArg, FloatArg("exposure", "1", "1.6", 0, 8, "multiplier; 1 copies")}),
    Effect<KXEffectsBrightnessHazeSaturation>(
        {"KXEffectsBrightnessHazeSaturation", "brightness-haze-saturation", "tone",
         "brightness and saturation, then haze lifts black toward gray; RGB only", Margin::Pointwise},
        {kSourceArg, kDestinationArg, kRectArg, registry_args::kBrightness,
         FloatArg("haze", "0", "0.2", 0, 1, "0..1: the level black is lifted to"),
         FloatArg("saturation", "0", "0.2", -1, 1, "-1..1; 0 leaves it")}),
};
// clang-format on

// The entry of an exported function, or null.
inline const EffectEntry* FindEffectEntry(KXEffectProc effect)
{
    for (const EffectEntry& entry : kEffectRegistry)
        if (entry.proc() == effect)
            return &entry;
    return nullptr;
}
