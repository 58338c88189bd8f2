// Colour model conversions of one colour and of images, the hue components, and desaturation.
#include "KXEffectsBlendModes.h"
#include "KXEffectsColorMath.h"
#include "KXEffectsEntry.h"
#include "KXEffectsRowLoop.h"

#include <array>
#include <type_traits>
#include <utility>

namespace {

// The conversion numbers; the one-colour form takes the first six.
enum : int32_t {
    kRGBToHSV,
    kHSVToRGB,
    kRGBToHSL,
    kHSLToRGB,
    kRGBToYCC,
    kYCCToRGB,
    kRGBToGray,
    kGrayToRGB,
    kRGBToGrayOnWhite,
    kColorConversions = kRGBToGray,
    kImageConversions = kRGBToGrayOnWhite + 1
};

constexpr int32_t InputPlanes(int32_t conversion)
{
    return conversion == kGrayToRGB ? 1 : 3;
}

constexpr int32_t OutputPlanes(int32_t conversion)
{
    return conversion == kRGBToGray || conversion == kRGBToGrayOnWhite ? 1 : 3;
}

// YCbCr back to RGB leaves each plane limited to 0..1.
inline void LimitToUnit(float* rgb)
{
    for (int32_t c = 0; c < 3; ++c)
        rgb[c] = rgb[c] < 0.0f ? 0.0f : (rgb[c] > 1.0f ? 1.0f : rgb[c]);
}

// One pixel of a conversion; alpha is the source's alpha in 0..1, or 1 without one. Reads before writing.
template <int32_t Conversion> void ConvertPixel(const float* in, float alpha, float* out)
{
    if constexpr (Conversion == kRGBToHSV) {
        KXEffectsRGBToHSV(in, out);
    } else if constexpr (Conversion == kHSVToRGB) {
        KXEffectsHSVToRGB(in, out);
    } else if constexpr (Conversion == kRGBToHSL) {
        KXEffectsRGBToHSL(in, out);
    } else if constexpr (Conversion == kHSLToRGB) {
        KXEffectsHSLToRGB(in, out);
    } else if constexpr (Conversion == kRGBToYCC) {
        KXEffectsRGBToYCC(in, out);
    } else if constexpr (Conversion == kYCCToRGB) {
        KXEffectsYCCToRGB(in, out);
        LimitToUnit(out);
    } else if constexpr (Conversion == kRGBToGray) {
        out[0] = Luma(in);
    } else if constexpr (Conversion == kGrayToRGB) {
        const float gray = in[0];
        out[0] = out[1] = out[2] = gray;
    } else {
        // luma x a + (1 - a): gray flattened on a white background
        out[0] = Luma(in) * alpha + (1.0f - alpha);
    }
}

// Steps of one converted pixel: the colour planes of the conversion plus each image's own alpha.
struct ConversionLayout {
    int32_t sourceStep;
    int32_t destinationStep;
    bool sourceAlpha;
    bool destinationAlpha;
};

template <class Sample, int32_t Conversion>
void ConvertRow(const Sample* in, Sample* out, int32_t width, const ConversionLayout& layout)
{
    constexpr int32_t inPlanes = InputPlanes(Conversion), outPlanes = OutputPlanes(Conversion);
    for (int32_t x = 0; x < width; ++x, in += layout.sourceStep, out += layout.destinationStep) {
        float unit[3], result[3];
        for (int32_t c = 0; c < inPlanes; ++c)
            unit[c] = ToUnit(in[c]);
        const float alpha = layout.sourceAlpha ? ToUnit(in[inPlanes]) : 1.0f;
        ConvertPixel<Conversion>(unit, alpha, result);
        for (int32_t c = 0; c < outPlanes; ++c)
            out[c] = FromUnit<Sample>(result[c]);
        if (layout.destinationAlpha)
            out[outPlanes] = layout.sourceAlpha ? in[inPlanes] : kWhiteSample<Sample>;
    }
}

// Source and destination differ in planes here, so each image is walked with its own layout and the
// kernel writes alpha itself.
template <class Sample, int32_t Conversion>
void ConvertImageKernel(KXImage* source, KXImage* destination, const CEffectRect& rect)
{
    const int32_t sourceAlpha = KXImageGetTransparency(source);
    const int32_t destinationAlpha = KXImageGetTransparency(destination);
    const ConversionLayout layout{InputPlanes(Conversion) + sourceAlpha, OutputPlanes(Conversion) + destinationAlpha,
                                  sourceAlpha != 0, destinationAlpha != 0};
    WalkRows<Sample>(rect, Sources<Sample>{source}, destination, {.alphaSource = RowWalkOrder::kNoAlphaCopy},
                     [&](int32_t, const Sample* in, Sample* out) {
                         ConvertRow<Sample, Conversion>(in, out, rect.Width(), layout);
                     });
}

using ImageKernel = void (*)(KXImage*, KXImage*, const CEffectRect&);

template <class Sample, int32_t... Conversions>
constexpr std::array<ImageKernel, sizeof...(Conversions)> ImageKernels(std::integer_sequence<int32_t, Conversions...>)
{
    return {&ConvertImageKernel<Sample, Conversions>...};
}

using ColorKernel = void (*)(const float*, float, float*);

template <int32_t... Conversions>
constexpr std::array<ColorKernel, sizeof...(Conversions)> ColorKernels(std::integer_sequence<int32_t, Conversions...>)
{
    return {&ConvertPixel<Conversions>...};
}

// Each colour plane becomes the luma; integer depths form it on the raw samples, + 0.5 truncated.
template <class Sample> void DesaturateToLumaKernel(KXImage* source, KXImage* destination, const CEffectRect& rect)
{
    ForEachPixel<Sample>(source, destination, rect, [](const Sample* in, Sample* out, auto) {
        const Sample luma = FromRaw<Sample>(Luma(float(in[0]), float(in[1]), float(in[2])));
        out[0] = out[1] = out[2] = luma;
    });
}

// r = mode(pixel, gray of its luma) x amount + pixel x (1 - amount); the luma is the layer laid over.
template <class Sample, class Mode>
void DesaturateKernel(KXImage* source, KXImage* destination, const CEffectRect& rect, float amount)
{
    const float keep = 1.0f - amount;
    ForEachPixel<Sample>(source, destination, rect, [amount, keep](const Sample* in, Sample* out, auto) {
        float pixel[3], result[3];
        for (int32_t c = 0; c < 3; ++c)
            pixel[c] = ToUnit(in[c]);
        const float luma = Luma(pixel);
        const float gray[3] = {luma, luma, luma};
        Mode::Pixel(pixel, gray, result);
        for (int32_t c = 0; c < 3; ++c)
            out[c] = FromUnit<Sample>(result[c] * amount + pixel[c] * keep);
    });
}

} // namespace

int32_t KXEffectsConvertColorMode(const float* input, float* output, int32_t conversion)
{
    if (!input || !output || conversion < 0 || conversion >= kColorConversions)
        return kKXErrBadParam;
    static constexpr auto kernels = ColorKernels(std::make_integer_sequence<int32_t, kColorConversions>{});
    kernels[size_t(conversion)](input, 1.0f, output);
    return kKXNoErr;
}

int32_t KXEffectsConvertImageMode(KXImage* source, KXImage* destination, const KXRect* rect, int32_t conversion)
{
    // Conversion 7 makes RGB of one gray plane; 6 and 8 make one plane of three; the others three of three.
    const auto colourPlanes = [](KXImage* image) { return KXImageGetNumPlanes(image) - KXImageGetTransparency(image); };
    return EntryPoint(source, destination, rect)
        .AnyDestinationLayout()
        .Require(conversion >= 0 && conversion < kImageConversions, kKXErrBadParam)
        .Require([&] { return colourPlanes(source) == (conversion == 7 ? 1 : 3); }, kKXErrUnsupported)
        .Require(
            [&] {
                return KXImageGetPlaneBytes(destination) == KXImageGetPlaneBytes(source) &&
                       colourPlanes(destination) == (conversion == 6 || conversion == 8 ? 1 : 3);
            },
            kKXErrUnsupported)
        .Run([&]<class Sample>(SampleTag<Sample>, const CEffectRect& effectRect) {
            static constexpr auto kernels =
                ImageKernels<Sample>(std::make_integer_sequence<int32_t, kImageConversions>{});
            kernels[size_t(conversion)](source, destination, effectRect);
        });
}

int32_t KXEffectsGetColorComponents(const float* rgb, float* components)
{
    if (!rgb || !components)
        return kKXErrBadParam;
    SplitColorComponents(rgb, components);
    return kKXNoErr;
}

int32_t KXEffectsDesaturate(KXImage* source, KXImage* destination, const KXRect* rect, uint32_t mode, float amount)
{
    return EntryPoint(source, destination, rect)
        .RGBOnly()
        .NeutralWhen(!(amount > 0.0f))
        .Run([&]<class Sample>(SampleTag<Sample>, const CEffectRect& effectRect) {
            return DispatchBlendMode(mode, [&](auto modeTag) {
                using Mode = typename decltype(modeTag)::Type;
                if (std::is_same_v<Mode, BlendNormal> && amount == 1.0f)
                    DesaturateToLumaKernel<Sample>(source, destination, effectRect);
                else
                    DesaturateKernel<Sample, Mode>(source, destination, effectRect, amount);
                return int32_t(kKXNoErr);
            });
        });
}
