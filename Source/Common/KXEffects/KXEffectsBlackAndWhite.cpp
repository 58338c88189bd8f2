// The monochrome conversions: the one-shot gray with contrast, grain and toner; the six-colour response
// mixer and its automatic mixture; the plain colour filter; luma or mean. Every colour plane of the result
// takes the same gray, unless a toner colours it.
#include "KXEffectsColorMath.h"
#include "KXEffectsEntry.h"
#include "KXEffectsRowLoop.h"
#include "KXEffectsToneCurves.h"
#include "KXEffectsWhiteBalance.h"

#include <algorithm>
#include <cmath>
#include <type_traits>

namespace {

// ---- Formulas ----

constexpr int32_t kColourCount = 6;

// Luma of the fully saturated red, yellow, green, cyan, blue and magenta.
constexpr float kColorResponseLuma[kColourCount] = {0.299f, 0.88600004f, 0.587f, 0.701f, 0.11399996f, 0.41299996f};

// The grain tile is addressed by masking the pixel's coordinates, so it is exactly this wide and high.
constexpr int32_t kGrainTileSize = 256;
constexpr int32_t kGrainTileMask = kGrainTileSize - 1;

// The weights of a hue on the hexagon from black to full colour: the dominant plane 1, its neighbour |f|.
inline void HueWeights(float hue, float* weights)
{
    HexconeToRGB(hue, 1.0f, 0.0f, weights);
}

// Overlay of grain t on gray y: 2ty below 0.5, else 2(t + y - ty) - 1; mixed with y by amount.
inline float GrainValue(float y, float t, float amount)
{
    const float overlay = y < 0.5f ? 2.0f * t * y : (t + y - t * y) * 2.0f - 1.0f;
    return overlay * amount + y * (1.0f - amount);
}

// Samples above this are in the upper half of the filter overlay: 127, 32767 (so 32768 up) and 0.5.
template <class Sample> inline constexpr float kOverlayMiddle = float(kWhiteSample<Sample> / 2);

// Overlay of filter component f on sample c of white W: 2(fW + c - fc) - W in the upper half, else 2fc.
template <class Sample> inline float FilterOverlay(float c, float f)
{
    if (c > kOverlayMiddle<Sample>)
        return (f * kWhite<Sample> + c - f * c) * 2.0f - kWhite<Sample>;
    return 2.0f * f * c;
}

// out = luma + sum of each hue component times its response; only the chroma above the gray reacts.
inline float ColorResponseValue(const float* rgb, const float* responses)
{
    float colours[kColourCount];
    SplitColorComponents(rgb, colours);
    float out = Luma(rgb);
    for (int32_t i = 0; i < kColourCount; ++i)
        out = out + colours[i] * responses[i];
    return out;
}

// fn(std::true_type) or fn(std::false_type): a switch resolved into the kernel once per call.
template <class Fn> auto WithFlag(bool flag, Fn&& fn)
{
    return flag ? fn(std::true_type{}) : fn(std::false_type{});
}

// ---- One gray in every colour plane ----

// gray(in, colourPlanes), in the sample's own scale, stored with + 0.5 to every colour plane.
template <class Sample, class Gray>
void GrayKernel(KXImage* source, KXImage* destination, const CEffectRect& rect, Gray&& gray)
{
    ForEachPixel<Sample>(source, destination, rect, [&gray](const Sample* in, Sample* out, auto colourPlanes) {
        const Sample value = FromRaw<Sample>(gray(in, colourPlanes));
        for (int32_t c = 0; c < colourPlanes; ++c)
            out[c] = value;
    });
}

// The response mixer; with a filter each plane is first overlaid by its component.
template <class Sample, bool Filtered>
void ColorResponseKernel(KXImage* source, KXImage* destination, const CEffectRect& rect, const float* filter,
                         const float* responses)
{
    GrayKernel<Sample>(source, destination, rect, [filter, responses](const Sample* in, auto) {
        float rgb[3] = {float(in[0]), float(in[1]), float(in[2])};
        if constexpr (Filtered)
            for (int32_t c = 0; c < 3; ++c)
                rgb[c] = FilterOverlay<Sample>(rgb[c], filter[c]);
        return ClampToWhite<Sample>(ColorResponseValue(rgb, responses));
    });
}

// ---- The one-shot gray ----

struct GraySettings {
    float weights[3]; // of the filter hue, adding to 1, times the reciprocal of white
    float contrast;
    TonerMap toner;
    float tonerAmount;
};

// No grain: the gray passes as it is.
struct NoGrain {
    std::nullptr_t Row(int32_t) { return nullptr; }
    float Apply(std::nullptr_t, int32_t, float y) const { return y; }
};

// The first plane of the tile at (x & 255, y & 255), read a tile row at a time through a view.
template <class TileSample> class GrainTile {
public:
    GrainTile(KXImage* tile, float amount)
        : m_view(tile), m_bounds(KXImageGetBounds(tile)), m_planes(KXImageGetNumPlanes(tile)), m_amount(amount)
    {
    }
    const TileSample* Row(int32_t y)
    {
        return static_cast<const TileSample*>(
            m_view.ReadRow(m_bounds.y + (y & kGrainTileMask), m_bounds.x, kGrainTileSize));
    }
    float Apply(const TileSample* row, int32_t x, float y) const
    {
        return GrainValue(y, ToUnit(row[(x & kGrainTileMask) * m_planes]), m_amount);
    }

private:
    CImageView m_view;
    KXRect m_bounds;
    int32_t m_planes;
    float m_amount;
};

// Mix, contrast, grain, then the toner or one gray in all three planes.
template <class Sample, bool Contrast, bool Toner, class Grain>
void BlackAndWhiteKernel(KXImage* source, KXImage* destination, const CEffectRect& rect, const GraySettings& s,
                         Grain& grain)
{
    const float keep = 1.0f - s.tonerAmount;
    ForEachRow<Sample>(
        source, destination, rect,
        [&](int32_t row, const Sample* in, Sample* out, int32_t width, const PixelLayout& layout) {
            const auto tileRow = grain.Row(row);
            WithPlaneCounts(layout, [&](auto planes, auto) {
                for (int32_t i = 0; i < width; ++i, in += planes, out += planes) {
                    float v = s.weights[0] * float(in[0]) + s.weights[1] * float(in[1]) + s.weights[2] * float(in[2]);
                    if constexpr (Contrast)
                        v = MidtoneCurveValue(v, s.contrast);
                    v = grain.Apply(tileRow, rect.left + i, v);
                    if constexpr (Toner) {
                        const TonerMap::Weights w = s.toner(v);
                        for (int32_t c = 0; c < 3; ++c)
                            out[c] = FromUnit<Sample>((w.weight * s.toner.tone[c] + w.base) * s.tonerAmount + v * keep);
                    } else {
                        out[0] = out[1] = out[2] = FromUnit<Sample>(v);
                    }
                }
            });
        });
}

// The kernel for the tile's plane width, or the one without grain.
template <class Sample, bool Contrast, bool Toner>
int32_t BlackAndWhiteWithGrain(KXImage* source, KXImage* destination, const CEffectRect& rect,
                               const GraySettings& settings, KXImage* grainTile, float grainAmount)
{
    if (!grainTile) {
        NoGrain none;
        BlackAndWhiteKernel<Sample, Contrast, Toner>(source, destination, rect, settings, none);
        return kKXNoErr;
    }
    return DispatchSample(grainTile, [&](auto tileTag) {
        GrainTile<typename decltype(tileTag)::Type> grain(grainTile, grainAmount);
        BlackAndWhiteKernel<Sample, Contrast, Toner>(source, destination, rect, settings, grain);
        return int32_t(kKXNoErr);
    });
}

// ---- Automatic mixture ----

struct MixtureSums {
    double luma = 0.0;
    double gray = 0.0;
    double sums[kColourCount] = {};
    double squares[kColourCount] = {};
};

// The decomposition of every pixel of the image, in the samples' own units, summed in doubles.
template <class Sample> void AccumulateMixture(KXImage* image, MixtureSums& sums)
{
    const CEffectRect bounds = CEffectRect::FromKXRect(KXImageGetBounds(image));
    const int32_t planes = KXImageGetNumPlanes(image);
    WalkSourceRows(bounds, Sources<Sample>{image}, [&](int32_t, const Sample* in) {
        for (int32_t x = 0; x < bounds.Width(); ++x, in += planes) {
            const float rgb[3] = {float(in[0]), float(in[1]), float(in[2])};
            float colours[kColourCount];
            SplitColorComponents(rgb, colours);
            sums.luma += Luma(rgb);
            sums.gray += std::min({rgb[0], rgb[1], rgb[2]});
            for (int32_t i = 0; i < kColourCount; ++i) {
                sums.sums[i] += colours[i];
                sums.squares[i] += double(colours[i]) * double(colours[i]);
            }
        }
    });
}

// Each colour weighted by its spread across the image, then scaled so the mixture keeps the mean of
// luma - gray; the result is relative to the base luma of each colour.
void MixtureFromSums(const MixtureSums& sums, double count, float* responses)
{
    float mean[kColourCount], deviation[kColourCount], spread = 0.0f;
    for (int32_t i = 0; i < kColourCount; ++i) {
        mean[i] = float(sums.sums[i] / count);
        // Rounding may leave a constant colour a variance just below 0.
        deviation[i] = std::sqrt(std::max(float(sums.squares[i] / count) - mean[i] * mean[i], 0.0f));
        spread += deviation[i];
    }
    float fit = 0.0f;
    for (int32_t i = 0; i < kColourCount; ++i) {
        responses[i] = spread > 0.0f ? deviation[i] * kColorResponseLuma[i] : kColorResponseLuma[i];
        fit += mean[i] * responses[i];
    }
    const float scale = fit > 0.0f ? (float(sums.luma / count) - float(sums.gray / count)) / fit : 0.0f;
    for (int32_t i = 0; i < kColourCount; ++i)
        responses[i] = responses[i] * scale - kColorResponseLuma[i];
}

} // namespace

// ---- Entry points ----

int32_t KXEffectsBlackAndWhite(KXImage* source, KXImage* destination, const KXRect* rect, float filterHue,
                               float contrast, KXImage* grainTile, float grainAmount, const float* tonerColor,
                               float tonerAmount)
{
    const bool grainOn = grainTile && grainAmount > 0.0f;
    float hueWeights[3];
    HueWeights(filterHue, hueWeights);
    const float sum = hueWeights[0] + hueWeights[1] + hueWeights[2];
    const float noToner[3] = {};
    GraySettings settings{{}, contrast, TonerMap(tonerColor ? tonerColor : noToner), tonerAmount};
    return EntryPoint(source, destination, rect)
        .RGBOnly()
        .Require([&] { return HasThreeColourPlanes(source); }, kKXErrUnsupported)
        .Require(
            [&] {
                return !grainOn ||
                       (KXImageGetWidth(grainTile) == kGrainTileSize && KXImageGetHeight(grainTile) == kGrainTileSize);
            },
            kKXErrBadInput)
        .Run([&]<class Sample>(SampleTag<Sample>, const CEffectRect& effectRect) {
            for (int32_t c = 0; c < 3; ++c)
                settings.weights[c] = hueWeights[c] / sum * SampleTraits<Sample>::kReciprocal;
            return WithFlag(contrast != 0.0f, [&](auto contrastOn) {
                return WithFlag(tonerColor && tonerAmount > 0.0f, [&](auto tonerOn) {
                    return BlackAndWhiteWithGrain<Sample, decltype(contrastOn)::value, decltype(tonerOn)::value>(
                        source, destination, effectRect, settings, grainOn ? grainTile : nullptr, grainAmount);
                });
            });
        });
}

int32_t KXEffectsBlackAndWhiteColorResponse(KXImage* source, KXImage* destination, const KXRect* rect,
                                            const float* filterColor, const float* responses)
{
    return EntryPoint(source, destination, rect)
        .Requires(responses)
        .RGBOnly()
        .Require([&] { return HasThreeColourPlanes(source); }, kKXErrUnsupported)
        .Run([&]<class Sample>(SampleTag<Sample>, const CEffectRect& effectRect) {
            WithFlag(filterColor != nullptr, [&](auto filtered) {
                ColorResponseKernel<Sample, decltype(filtered)::value>(source, destination, effectRect, filterColor,
                                                                       responses);
            });
        });
}

int32_t KXEffectsBlackAndWhiteColorResponseGetAutoMixture(KXImage* image, float* responses)
{
    if (!image || !responses)
        return kKXErrBadParam;
    if (!HasThreeColourPlanes(image))
        return kKXErrBadImageFormat;
    const double count = double(KXImageGetWidth(image)) * double(KXImageGetHeight(image));
    if (count == 0.0)
        return kKXErrBadInput;
    MixtureSums sums;
    const int32_t status = DispatchSample(image, [&](auto tag) {
        AccumulateMixture<typename decltype(tag)::Type>(image, sums);
        return int32_t(kKXNoErr);
    });
    if (status != kKXNoErr)
        return kKXErrBadImageFormat;
    MixtureFromSums(sums, count, responses);
    return kKXNoErr;
}

int32_t KXEffectsColorFilter(KXImage* source, KXImage* destination, const KXRect* rect, float redWeight,
                             float greenWeight, float blueWeight)
{
    const float weights[3] = {redWeight, greenWeight, blueWeight};
    return EntryPoint(source, destination, rect)
        .Run([&]<class Sample>(SampleTag<Sample>, const CEffectRect& effectRect) {
            GrayKernel<Sample>(source, destination, effectRect, [&weights](const Sample* in, auto colourPlanes) {
                float v = 0.0f;
                for (int32_t c = 0; c < colourPlanes && c < 3; ++c)
                    v += weights[c] * float(in[c]);
                return v;
            });
        });
}

int32_t KXEffectsBlackAndWhiteWithColorFilter(KXImage* source, KXImage* destination, const KXRect* rect,
                                              float filterHue)
{
    // The weights stand as the hue gives them: a secondary hue adds to 2 and may pass white.
    float weights[3];
    HueWeights(filterHue, weights);
    return KXEffectsColorFilter(source, destination, rect, weights[0], weights[1], weights[2]);
}

int32_t KXEffectsBlackWhite(KXImage* source, KXImage* destination, const KXRect* rect, int32_t mode)
{
    // Luma reads three colour planes, which a gray image does not have.
    return EntryPoint(source, destination, rect)
        .Require([&] { return mode != 0 || HasThreeColourPlanes(source); }, kKXErrUnsupported)
        .Run([&]<class Sample>(SampleTag<Sample>, const CEffectRect& effectRect) {
            if (mode == 0)
                GrayKernel<Sample>(source, destination, effectRect, [](const Sample* in, auto) {
                    return Luma(float(in[0]), float(in[1]), float(in[2]));
                });
            else if (mode == 1)
                GrayKernel<Sample>(source, destination, effectRect, [](const Sample* in, auto colourPlanes) {
                    float sum = 0.0f;
                    for (int32_t c = 0; c < colourPlanes; ++c)
                        sum += float(in[c]);
                    return sum / float(colourPlanes);
                });
        });
}
