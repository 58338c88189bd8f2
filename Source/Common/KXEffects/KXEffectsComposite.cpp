// Compositing: layers under a blend mode, opacities, masks and true alpha; weighted sums, gains about a
// pivot, products of masks and the flattening of an image onto white.
#include "KXEffectsBlendModes.h"
#include "KXEffectsEntry.h"
#include "KXEffectsRowLoop.h"

#include <algorithm>
#include <memory>

namespace {

constexpr const char* kSourceFile = "Source/Common/KXEffects/KXEffectsComposite";

// The most planes a pixel of the core may have; per-plane settings and work areas are this long.
constexpr int32_t kMaxPlanes = 8;

// ---- Formulas ----

// A linear reading of a value: a mask sample to coverage (1/white, or -1/white and bias 1 for an inverted
// mask), or a product of coverages to a stored mask sample (white, or -white and bias white).
struct ScaleBias {
    float scale;
    float bias;
};

// v' = scale x v + bias
inline float ApplyScaleBias(float value, const ScaleBias& reading)
{
    return reading.scale * value + reading.bias;
}

// aO = aL + aU - aL x aU
inline float UnionAlpha(float lowerAlpha, float upperAlpha)
{
    return lowerAlpha + upperAlpha - lowerAlpha * upperAlpha;
}

// The shares of a pixel covered by the upper layer only, by both, by the lower layer only:
// aU (1 - aL), aU aL, aL (1 - aU).
struct CompositeWeights {
    float upperOnly;
    float both;
    float lowerOnly;
};

inline CompositeWeights WeightsOf(float upperAlpha, float lowerAlpha)
{
    return {upperAlpha * (1.0f - lowerAlpha), upperAlpha * lowerAlpha, lowerAlpha * (1.0f - upperAlpha)};
}

// aU (1 - aL) s + aU aL r + aL (1 - aU) b, the colour before the division by aO
inline float CompositeSum(const CompositeWeights& weights, float s, float r, float b)
{
    return weights.upperOnly * s + weights.both * r + weights.lowerOnly * b;
}

// out = sum / aO; integers divide white x sum by aO, add 0.5 and truncate, with nothing clamped.
template <class Sample> inline Sample StoreComposite(float sum, float outputAlpha)
{
    if constexpr (kIsFloatSample<Sample>)
        return sum / outputAlpha;
    else
        return FromRaw<Sample>(sum * kWhite<Sample> / outputAlpha);
}

// out = w1 a + w2 b, limited to 0..1 in float; integers work on raw samples and are rounded, not limited.
template <class Sample> inline Sample MixSample(Sample a, Sample b, float weight1, float weight2)
{
    const float sum = weight1 * float(a) + weight2 * float(b);
    if constexpr (kIsFloatSample<Sample>)
        return ClampToWhite<float>(sum);
    else
        return FromRaw<Sample>(sum);
}

// out = (x - pivot) x factor + pivot, limited to 0..1
inline float GainAboutPivot(float x, float pivot, float factor)
{
    return ClampToWhite<float>((x - pivot) * factor + pivot);
}

// out = a x + (1 - a) in float; integers x a + (1 - a) white + 0.5 on the raw sample, truncated.
template <class Sample> inline Sample FlattenOnWhite(Sample x, float alpha)
{
    if constexpr (kIsFloatSample<Sample>)
        return alpha * x + (1.0f - alpha);
    else
        return FromRaw<Sample>(float(x) * alpha + (1.0f - alpha) * kWhite<Sample>);
}

// ---- Masks ----

using CoverageRowFn = void (*)(const void* maskRow, const ScaleBias& reading, float* values, int32_t width);

// values[x] x= coverage of the mask sample, read through the mask's own sample type.
template <class MaskSample>
void MultiplyByCoverage(const void* maskRow, const ScaleBias& reading, float* values, int32_t width)
{
    const auto* samples = static_cast<const MaskSample*>(maskRow);
    for (int32_t x = 0; x < width; ++x)
        values[x] = values[x] * ApplyScaleBias(float(samples[x]), reading);
}

// How one mask's rows multiply into coverage, its depth resolved once per call.
struct MaskCoverage {
    ScaleBias reading{};
    CoverageRowFn multiply = nullptr;

    // kKXErrUnsupported for a plane size without a kernel.
    int32_t Resolve(KXImage* mask)
    {
        const bool inverted = KXImageGetType(mask) == KXImageTypeInvertedMask;
        return DispatchSample(mask, [&](auto tag) {
            using MaskSample = typename decltype(tag)::Type;
            const float scale = SampleTraits<MaskSample>::kReciprocal;
            reading = inverted ? ScaleBias{-scale, 1.0f} : ScaleBias{scale, 0.0f};
            multiply = &MultiplyByCoverage<MaskSample>;
            return int32_t(kKXNoErr);
        });
    }
    void MultiplyRow(const void* maskRow, float* values, int32_t width) const
    {
        multiply(maskRow, reading, values, width);
    }
};

// ---- Layer compositing ----

struct CompositeLayer {
    KXImage* image;
    float opacity;
    KXImage* mask;
};

struct CompositeCall {
    CompositeLayer upper;
    CompositeLayer lower;
    KXImage* destination;
    CEffectRect rect;
};

// The pixel forms of a call: each layer has the destination's colour planes, with or without alpha.
struct CompositeLayout {
    PixelLayout destination;
    int32_t upperPlanes;
    int32_t lowerPlanes;
};

int32_t LayoutComposite(const CompositeCall& call, bool wholePixel, CompositeLayout* layout)
{
    *layout = {LayoutOf(call.destination), KXImageGetNumPlanes(call.upper.image),
               KXImageGetNumPlanes(call.lower.image)};
    const int32_t colourPlanes = layout->destination.colourPlanes;
    auto fits = [&](int32_t planes) { return planes == colourPlanes || planes == colourPlanes + 1; };
    if (colourPlanes > kMaxPlanes || !fits(layout->upperPlanes) || !fits(layout->lowerPlanes))
        return kKXErrUnsupported;
    // Whole-pixel modes work on red, green and blue together.
    return wholePixel && colourPlanes != 3 ? int32_t(kKXErrUnsupported) : int32_t(kKXNoErr);
}

// alphas[x] = opacity x alpha of the layer; a layer without alpha counts as opaque.
template <class Sample>
void LayerAlphaRow(const Sample* pixels, int32_t planes, int32_t colourPlanes, float opacity, float* alphas,
                   int32_t width)
{
    if (planes == colourPlanes) {
        std::fill(alphas, alphas + width, opacity);
        return;
    }
    for (int32_t x = 0; x < width; ++x)
        alphas[x] = opacity * ToUnit(pixels[x * planes + colourPlanes]);
}

// r of the mode over the colour planes: per plane, or the three planes at once.
template <class Mode, class ColourPlanes>
inline void BlendPixel(const float* b, const float* s, float* r, ColourPlanes colourPlanes)
{
    if constexpr (Mode::kWholePixel) {
        Mode::Pixel(b, s, r);
    } else {
        for (int32_t c = 0; c < colourPlanes; ++c)
            r[c] = Mode::Plane(b[c], s[c]);
    }
}

template <class Sample, class Mode, class ColourPlanes>
inline void CompositePixel(const Sample* upper, const Sample* lower, Sample* out, ColourPlanes colourPlanes,
                           const CompositeWeights& weights, float outputAlpha)
{
    float s[kMaxPlanes];
    float b[kMaxPlanes];
    float r[kMaxPlanes];
    for (int32_t c = 0; c < colourPlanes; ++c) {
        s[c] = ToUnit(upper[c]);
        b[c] = ToUnit(lower[c]);
    }
    BlendPixel<Mode>(b, s, r, colourPlanes);
    for (int32_t c = 0; c < colourPlanes; ++c)
        out[c] = StoreComposite<Sample>(CompositeSum(weights, s[c], r[c], b[c]), outputAlpha);
}

// One row's pointers and layer alphas (opacity x alpha x coverage).
template <class Sample> struct CompositeRowData {
    const Sample* upper;
    const Sample* lower;
    Sample* destination;
    float* upperAlphas;
    float* lowerAlphas;
    int32_t width;
};

template <class Sample, class Mode, class Planes, class ColourPlanes>
void CompositeRow(const CompositeRowData<Sample>& row, const CompositeLayout& layout, Planes planes,
                  ColourPlanes colourPlanes)
{
    for (int32_t x = 0; x < row.width; ++x) {
        const Sample* upper = row.upper + x * layout.upperPlanes;
        const Sample* lower = row.lower + x * layout.lowerPlanes;
        Sample* out = row.destination + x * planes;
        const float upperAlpha = row.upperAlphas[x];
        const float lowerAlpha = row.lowerAlphas[x];
        const float outputAlpha = UnionAlpha(lowerAlpha, upperAlpha);
        if (outputAlpha > 0.0f) {
            CompositePixel<Sample, Mode>(upper, lower, out, colourPlanes, WeightsOf(upperAlpha, lowerAlpha),
                                         outputAlpha);
        } else {
            // Nothing covers the pixel: the lower colour stays as stored.
            for (int32_t c = 0; c < colourPlanes; ++c)
                out[c] = lower[c];
        }
        if (planes > colourPlanes)
            out[colourPlanes] = FromUnit<Sample>(outputAlpha);
    }
}

// Compile-time plane counts for the row loop; whole-pixel modes only meet RGB, with or without alpha.
template <class Mode, class Fn> void WithCompositePlaneCounts(const PixelLayout& layout, Fn&& fn)
{
    using std::integral_constant;
    if constexpr (Mode::kWholePixel) {
        if (layout.transparency != 0)
            fn(integral_constant<int32_t, 4>{}, integral_constant<int32_t, 3>{});
        else
            fn(integral_constant<int32_t, 3>{}, integral_constant<int32_t, 3>{});
    } else {
        WithPlaneCounts(layout, fn);
    }
}

// The coverage of each mask present; kKXErrUnsupported for a mask of a plane size without a kernel.
int32_t ResolveMasks(const CompositeCall& call, MaskCoverage& upper, MaskCoverage& lower)
{
    const int32_t status = call.upper.mask ? upper.Resolve(call.upper.mask) : int32_t(kKXNoErr);
    if (status == kKXNoErr && call.lower.mask)
        return lower.Resolve(call.lower.mask);
    return status;
}

// The masks' rows of one row, null where a layer has no mask.
struct MaskRows {
    const void* upper;
    const void* lower;
};

// Both layers' alphas for one row: opacity x alpha x coverage, the mask's coverage multiplied in last.
template <class Sample>
void FormLayerAlphas(const CompositeCall& call, const CompositeLayout& layout, const MaskCoverage* coverages,
                     const MaskRows& masks, const CompositeRowData<Sample>& data)
{
    const int32_t colourPlanes = layout.destination.colourPlanes;
    LayerAlphaRow(data.upper, layout.upperPlanes, colourPlanes, call.upper.opacity, data.upperAlphas, data.width);
    LayerAlphaRow(data.lower, layout.lowerPlanes, colourPlanes, call.lower.opacity, data.lowerAlphas, data.width);
    if (masks.upper)
        coverages[0].MultiplyRow(masks.upper, data.upperAlphas, data.width);
    if (masks.lower)
        coverages[1].MultiplyRow(masks.lower, data.lowerAlphas, data.width);
}

// Upper and lower are read, the destination row asked for, then the masks read; the kernel writes alpha.
template <class Sample, class Mode> int32_t CompositeKernel(const CompositeCall& call)
{
    CompositeLayout layout;
    if (const int32_t status = LayoutComposite(call, Mode::kWholePixel, &layout))
        return status;
    MaskCoverage coverages[2];
    if (const int32_t status = ResolveMasks(call, coverages[0], coverages[1]))
        return status;
    const CEffectRect& rect = call.rect;
    const int32_t columns = std::max(rect.Width(), 0);
    CAlignedBuffer alphas(2 * size_t(columns) * sizeof(float));
    float* upperAlphas = alphas.As<float>();
    float* lowerAlphas = upperAlphas + columns;
    WalkRows<Sample>(
        rect, Sources<Sample, Sample, void, void>{call.upper.image, call.lower.image, call.upper.mask, call.lower.mask},
        call.destination, {.alphaSource = RowWalkOrder::kNoAlphaCopy, .firstLateSource = 2},
        [&](int32_t, const Sample* upper, const Sample* lower, const void* upperMask, const void* lowerMask,
            Sample* out) {
            const CompositeRowData<Sample> rowData{upper, lower, out, upperAlphas, lowerAlphas, columns};
            FormLayerAlphas(call, layout, coverages, {upperMask, lowerMask}, rowData);
            WithCompositePlaneCounts<Mode>(layout.destination, [&](auto planes, auto colourPlanes) {
                CompositeRow<Sample, Mode>(rowData, layout, planes, colourPlanes);
            });
        });
    return kKXNoErr;
}

// ---- Whole-image arithmetic ----

// Every plane, alpha included, as one run of samples a row.
template <class Sample>
int32_t MixKernel(KXImage* image1, KXImage* image2, KXImage* destination, const CEffectRect& rect, float weight1,
                  float weight2)
{
    const int32_t count = std::max(rect.Width(), 0) * KXImageGetNumPlanes(destination);
    WalkRows<Sample>(rect, Sources<Sample, Sample>{image1, image2}, destination,
                     {.alphaSource = RowWalkOrder::kNoAlphaCopy},
                     [&](int32_t, const Sample* a, const Sample* b, Sample* out) {
                         for (int32_t i = 0; i < count; ++i)
                             out[i] = MixSample(a[i], b[i], weight1, weight2);
                     });
    return kKXNoErr;
}

// The caller's arrays, copied once per call.
struct PlaneGains {
    float pivots[kMaxPlanes];
    float factors[kMaxPlanes];
};

template <class Sample>
int32_t MultiplyValuesKernel(KXImage* source, KXImage* destination, const CEffectRect& rect, const PlaneGains& gains)
{
    ForEachPixel<Sample>(source, destination, rect, [&](const Sample* in, Sample* out, auto colourPlanes) {
        for (int32_t c = 0; c < colourPlanes; ++c)
            out[c] = FromUnit<Sample>(GainAboutPivot(ToUnit(in[c]), gains.pivots[c], gains.factors[c]));
    });
    return kKXNoErr;
}

// How the product p is stored: scale x p + bias, with white and 0, or -white and white for an inverted mask.
template <class Sample> ScaleBias ProductStoreOf(KXImage* destination)
{
    const bool inverted = KXImageGetType(destination) == KXImageTypeInvertedMask;
    return inverted ? ScaleBias{-kWhite<Sample>, kWhite<Sample>} : ScaleBias{kWhite<Sample>, 0.0f};
}

// A failed allocation is thrown as kKXErrOutOfMemory.
template <class T> std::unique_ptr<T[]> NewArray(CFIndex count)
{
    std::unique_ptr<T[]> array(new (std::nothrow) T[size_t(count)]);
    if (!array)
        KX_RAISE(kKXErrOutOfMemory);
    return array;
}

// All masks are read, in the array's order, before the destination row is asked for.
template <class Sample> int32_t MultiplyMasksKernel(CFArrayRef masks, KXImage* destination, const CEffectRect& rect)
{
    const CFIndex count = CFArrayGetCount(masks);
    std::unique_ptr<KXImage*[]> images = NewArray<KXImage*>(count);
    std::unique_ptr<MaskCoverage[]> coverages = NewArray<MaskCoverage>(count);
    for (CFIndex i = 0; i < count; ++i) {
        images[i] = static_cast<KXImage*>(const_cast<void*>(CFArrayGetValueAtIndex(masks, i)));
        if (const int32_t status = coverages[i].Resolve(images[i]))
            return status;
    }
    const ScaleBias store = ProductStoreOf<Sample>(destination);
    const int32_t columns = std::max(rect.Width(), 0);
    CAlignedBuffer buffer(size_t(columns) * sizeof(float));
    float* products = buffer.As<float>();
    WalkRows<Sample>(rect, std::span<KXImage* const>(images.get(), size_t(count)), destination,
                     {.alphaSource = RowWalkOrder::kNoAlphaCopy},
                     [&](int32_t, const void* const* maskRows, Sample* out) {
                         std::fill(products, products + columns, 1.0f);
                         for (CFIndex i = 0; i < count; ++i)
                             coverages[i].MultiplyRow(maskRows[i], products, columns);
                         for (int32_t x = 0; x < columns; ++x)
                             out[x] = FromRaw<Sample>(ApplyScaleBias(products[x], store));
                     });
    return kKXNoErr;
}

// In place: each row is read, then asked for writing and changed where it lies.
template <class Sample> int32_t FlattenKernel(KXImage* image, const CEffectRect& rect)
{
    const PixelLayout layout = LayoutOf(image);
    WalkDestinationRows<Sample>(rect, image, {.readDestination = true}, [&](int32_t, Sample* pixels) {
        WithPlaneCounts(layout, [&](auto planes, auto colourPlanes) {
            for (int32_t x = 0; x < rect.Width(); ++x) {
                Sample* pixel = pixels + x * planes;
                const float alpha = ToUnit(pixel[colourPlanes]);
                for (int32_t c = 0; c < colourPlanes; ++c)
                    pixel[c] = FlattenOnWhite(pixel[c], alpha);
            }
        });
    });
    return kKXNoErr;
}

} // namespace

// ---- Entry points ----

int32_t KXEffectsBlendImagesWithOpacitiesAndMasks(KXImage* upper, float upperOpacity, KXImage* upperMask,
                                                  KXImage* lower, float lowerOpacity, KXImage* lowerMask,
                                                  KXImage* destination, const KXRect* rect, uint32_t mode)
{
    return EntryPoint(upper, destination, rect)
        .Requires(lower)
        .AnyDestinationLayout()
        .Require([&] { return HaveSameColourLayout(upper, destination) && HaveSameColourLayout(lower, destination); },
                 kKXErrUnsupported)
        .Run([&]<class Sample>(SampleTag<Sample>, const CEffectRect& effectRect) {
            const CompositeCall call{{upper, upperOpacity, upperMask},
                                     {lower, lowerOpacity, lowerMask},
                                     destination,
                                     InDestination(effectRect, destination)};
            return DispatchBlendMode(mode, [&](auto modeTag) {
                return CompositeKernel<Sample, typename decltype(modeTag)::Type>(call);
            });
        });
}

int32_t KXEffectsBlendImages(KXImage* upper, KXImage* lower, KXImage* destination, const KXRect* rect, uint32_t mode)
{
    return KXEffectsBlendImagesWithOpacitiesAndMasks(upper, 1.0f, nullptr, lower, 1.0f, nullptr, destination, rect,
                                                     mode);
}

int32_t KXEffectsMixImages(KXImage* image1, KXImage* image2, KXImage* destination, const KXRect* rect, float weight1,
                           float weight2)
{
    return EntryPoint(image1, destination, rect)
        .Requires(image2)
        .Require([&] { return HaveSameLayout(image2, destination); }, kKXErrUnsupported)
        .SampleOf(destination)
        .Run([&]<class Sample>(SampleTag<Sample>, const CEffectRect& effectRect) {
            return MixKernel<Sample>(image1, image2, destination, InDestination(effectRect, destination), weight1,
                                     weight2);
        });
}

int32_t KXEffectsMultiplyValues(KXImage* source, KXImage* destination, const KXRect* rect, const float* pivots,
                                const float* factors)
{
    const auto colourPlanes = [&] { return LayoutOf(destination).colourPlanes; };
    return EntryPoint(source, destination, rect)
        .Requires(pivots, factors)
        .Require([&] { return colourPlanes() <= kMaxPlanes; }, kKXErrUnsupported)
        .Run([&]<class Sample>(SampleTag<Sample>, const CEffectRect& effectRect) {
            PlaneGains gains{};
            std::copy(pivots, pivots + colourPlanes(), gains.pivots);
            std::copy(factors, factors + colourPlanes(), gains.factors);
            return MultiplyValuesKernel<Sample>(source, destination, InDestination(effectRect, destination), gains);
        });
}

int32_t KXEffectsMultiplyMasks(CFArrayRef masks, KXImage* destination, const KXRect* rect)
{
    // The product fills one plane: the rest of a wider row would be left to whatever the row held.
    return EntryPoint(destination, rect)
        .Requires(masks)
        .Require([&] { return KXImageGetNumPlanes(destination) == 1; }, kKXErrUnsupported)
        .Run([&]<class Sample>(SampleTag<Sample>, const CEffectRect& effectRect) {
            return MultiplyMasksKernel<Sample>(masks, destination, InDestination(effectRect, destination));
        });
}

int32_t KXEffectsMakeCompositeImage(KXImage* image, const KXRect* rect)
{
    // Without alpha there is nothing to flatten: the neutral copy of an image onto itself does nothing.
    return EntryPoint(image, rect)
        .NeutralWhen([&] { return KXImageGetTransparency(image) < 1; })
        .Run([&]<class Sample>(SampleTag<Sample>, const CEffectRect& effectRect) {
            return FlattenKernel<Sample>(image, InDestination(effectRect, image));
        });
}
