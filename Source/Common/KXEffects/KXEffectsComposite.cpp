// Compositing: layers under a blend mode, opacities, masks and true alpha; weighted sums, gains about a
// pivot, products of masks and the flattening of an image onto white.
#include "KXEffectsBlendModes.h"
#include "KXEffectsDispatch.h"
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

// One mask read row by row, its depth resolved once when it is attached.
class CMaskRows {
public:
    // kKXErrUnsupported for a plane size without a kernel.
    int32_t Attach(KXImage* mask)
    {
        m_view.Attach(mask);
        const bool inverted = KXImageGetType(mask) == KXImageTypeInvertedMask;
        return DispatchPlaneBytes(KXImageGetPlaneBytes(mask), [&](auto tag) {
            using MaskSample = typename decltype(tag)::Type;
            const float scale = SampleTraits<MaskSample>::kReciprocal;
            m_reading = inverted ? ScaleBias{-scale, 1.0f} : ScaleBias{scale, 0.0f};
            m_multiply = &MultiplyByCoverage<MaskSample>;
            return int32_t(kKXNoErr);
        });
    }
    void MultiplyRow(int32_t row, const CEffectRect& rect, float* values)
    {
        m_multiply(m_view.ReadRow(row, rect.left, rect.Width()), m_reading, values, std::max(rect.Width(), 0));
    }
    void Detach() { m_view.Detach(); }

private:
    CImageView m_view;
    ScaleBias m_reading{};
    CoverageRowFn m_multiply = nullptr;
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

// The views of a composite, attached in the order upper, lower, destination, upper mask, lower mask.
struct CompositeViews {
    CImageView upper;
    CImageView lower;
    CImageView destination;
    CMaskRows upperMask;
    CMaskRows lowerMask;

    int32_t Attach(const CompositeCall& call)
    {
        upper.Attach(call.upper.image);
        lower.Attach(call.lower.image);
        destination.Attach(call.destination);
        int32_t status = call.upper.mask ? upperMask.Attach(call.upper.mask) : int32_t(kKXNoErr);
        if (status == kKXNoErr && call.lower.mask)
            status = lowerMask.Attach(call.lower.mask);
        return status;
    }
    void Detach()
    {
        destination.Detach();
        lowerMask.Detach();
        upperMask.Detach();
        lower.Detach();
        upper.Detach();
    }
};

// Both layers' alphas for one row: opacity x alpha x coverage, the mask's coverage multiplied in last.
template <class Sample>
void FormLayerAlphas(const CompositeCall& call, const CompositeLayout& layout, CompositeViews& views, int32_t row,
                     const CompositeRowData<Sample>& data)
{
    const int32_t colourPlanes = layout.destination.colourPlanes;
    LayerAlphaRow(data.upper, layout.upperPlanes, colourPlanes, call.upper.opacity, data.upperAlphas, data.width);
    LayerAlphaRow(data.lower, layout.lowerPlanes, colourPlanes, call.lower.opacity, data.lowerAlphas, data.width);
    if (call.upper.mask)
        views.upperMask.MultiplyRow(row, call.rect, data.upperAlphas);
    if (call.lower.mask)
        views.lowerMask.MultiplyRow(row, call.rect, data.lowerAlphas);
}

template <class Sample, class Mode> int32_t CompositeKernel(const CompositeCall& call)
{
    CompositeLayout layout;
    if (const int32_t status = LayoutComposite(call, Mode::kWholePixel, &layout))
        return status;
    CompositeViews views;
    if (const int32_t status = views.Attach(call))
        return status;
    const CEffectRect& rect = call.rect;
    const int32_t columns = std::max(rect.Width(), 0);
    CAlignedBuffer alphas(2 * size_t(columns) * sizeof(float));
    float* upperAlphas = alphas.As<float>();
    float* lowerAlphas = upperAlphas + columns;
    for (int32_t row = rect.top; row < rect.bottom; ++row) {
        const CompositeRowData<Sample> rowData{
            static_cast<const Sample*>(views.upper.ReadRow(row, rect.left, rect.Width())),
            static_cast<const Sample*>(views.lower.ReadRow(row, rect.left, rect.Width())),
            static_cast<Sample*>(views.destination.WriteRow(row, rect.left, rect.Width())),
            upperAlphas, lowerAlphas, columns};
        FormLayerAlphas(call, layout, views, row, rowData);
        WithCompositePlaneCounts<Mode>(layout.destination, [&](auto planes, auto colourPlanes) {
            CompositeRow<Sample, Mode>(rowData, layout, planes, colourPlanes);
        });
    }
    views.Detach();
    return kKXNoErr;
}

// ---- Whole-image arithmetic ----

// Every plane, alpha included, as one run of samples a row.
template <class Sample>
int32_t MixKernel(KXImage* image1, KXImage* image2, KXImage* destination, const CEffectRect& rect, float weight1,
                  float weight2)
{
    const int32_t count = std::max(rect.Width(), 0) * KXImageGetNumPlanes(destination);
    CImageView first(image1);
    CImageView second(image2);
    CImageView target(destination);
    for (int32_t row = rect.top; row < rect.bottom; ++row) {
        const auto* a = static_cast<const Sample*>(first.ReadRow(row, rect.left, rect.Width()));
        const auto* b = static_cast<const Sample*>(second.ReadRow(row, rect.left, rect.Width()));
        auto* out = static_cast<Sample*>(target.WriteRow(row, rect.left, rect.Width()));
        for (int32_t i = 0; i < count; ++i)
            out[i] = MixSample(a[i], b[i], weight1, weight2);
    }
    target.Detach();
    second.Detach();
    first.Detach();
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

std::unique_ptr<CMaskRows[]> NewMaskRows(CFIndex count)
{
    std::unique_ptr<CMaskRows[]> rows(new (std::nothrow) CMaskRows[size_t(count)]);
    if (!rows)
        KX_RAISE(kKXErrOutOfMemory);
    return rows;
}

template <class Sample> int32_t MultiplyMasksKernel(CFArrayRef masks, KXImage* destination, const CEffectRect& rect)
{
    const CFIndex count = CFArrayGetCount(masks);
    std::unique_ptr<CMaskRows[]> maskRows = NewMaskRows(count);
    for (CFIndex i = 0; i < count; ++i) {
        auto* mask = static_cast<KXImage*>(const_cast<void*>(CFArrayGetValueAtIndex(masks, i)));
        if (const int32_t status = maskRows[i].Attach(mask))
            return status;
    }
    const ScaleBias store = ProductStoreOf<Sample>(destination);
    const int32_t columns = std::max(rect.Width(), 0);
    CAlignedBuffer buffer(size_t(columns) * sizeof(float));
    float* products = buffer.As<float>();
    CImageView target(destination);
    for (int32_t row = rect.top; row < rect.bottom; ++row) {
        std::fill(products, products + columns, 1.0f);
        for (CFIndex i = 0; i < count; ++i)
            maskRows[i].MultiplyRow(row, rect, products);
        auto* out = static_cast<Sample*>(target.WriteRow(row, rect.left, rect.Width()));
        for (int32_t x = 0; x < columns; ++x)
            out[x] = FromRaw<Sample>(ApplyScaleBias(products[x], store));
    }
    target.Detach();
    return kKXNoErr;
}

// In place through one view: each row is read, then marked as written and changed where it lies.
template <class Sample> int32_t FlattenKernel(KXImage* image, const CEffectRect& rect)
{
    const PixelLayout layout = LayoutOf(image);
    const int32_t columns = std::max(rect.Width(), 0);
    CImageView view(image);
    for (int32_t row = rect.top; row < rect.bottom; ++row) {
        view.ReadRow(row, rect.left, rect.Width());
        auto* pixels = static_cast<Sample*>(view.WriteRow(row, rect.left, rect.Width()));
        WithPlaneCounts(layout, [&](auto planes, auto colourPlanes) {
            for (int32_t x = 0; x < columns; ++x) {
                Sample* pixel = pixels + x * planes;
                const float alpha = ToUnit(pixel[colourPlanes]);
                for (int32_t c = 0; c < colourPlanes; ++c)
                    pixel[c] = FlattenOnWhite(pixel[c], alpha);
            }
        });
    }
    view.Detach();
    return kKXNoErr;
}

} // namespace

// ---- Entry points ----

int32_t KXEffectsBlendImagesWithOpacitiesAndMasks(KXImage* upper, float upperOpacity, KXImage* upperMask,
                                                  KXImage* lower, float lowerOpacity, KXImage* lowerMask,
                                                  KXImage* destination, const KXRect* rect, uint32_t mode)
{
    if (!upper || !lower || !destination || !rect)
        return kKXErrBadParam;
    const CompositeCall call{{upper, upperOpacity, upperMask}, {lower, lowerOpacity, lowerMask}, destination,
                             CEffectRect::FromKXRect(*rect)};
    return DispatchBlendMode(mode, [&](auto modeTag) {
        return DispatchPlaneBytes(KXImageGetPlaneBytes(upper), [&](auto sampleTag) {
            return CompositeKernel<typename decltype(sampleTag)::Type, typename decltype(modeTag)::Type>(call);
        });
    });
}

int32_t KXEffectsBlendImages(KXImage* upper, KXImage* lower, KXImage* destination, const KXRect* rect,
                             uint32_t mode)
{
    return KXEffectsBlendImagesWithOpacitiesAndMasks(upper, 1.0f, nullptr, lower, 1.0f, nullptr, destination, rect,
                                                     mode);
}

int32_t KXEffectsMixImages(KXImage* image1, KXImage* image2, KXImage* destination, const KXRect* rect,
                           float weight1, float weight2)
{
    if (!image1 || !image2 || !destination || !rect)
        return kKXErrBadParam;
    const CEffectRect effectRect = CEffectRect::FromKXRect(*rect);
    return DispatchPlaneBytes(KXImageGetPlaneBytes(destination), [&](auto tag) {
        return MixKernel<typename decltype(tag)::Type>(image1, image2, destination, effectRect, weight1, weight2);
    });
}

int32_t KXEffectsMultiplyValues(KXImage* source, KXImage* destination, const KXRect* rect, const float* pivots,
                                const float* factors)
{
    if (!source || !destination || !rect || !pivots || !factors)
        return kKXErrBadParam;
    const int32_t colourPlanes = LayoutOf(destination).colourPlanes;
    if (colourPlanes > kMaxPlanes)
        return kKXErrUnsupported;
    PlaneGains gains{};
    std::copy(pivots, pivots + colourPlanes, gains.pivots);
    std::copy(factors, factors + colourPlanes, gains.factors);
    const CEffectRect effectRect = CEffectRect::FromKXRect(*rect);
    return DispatchImageDepth(source, [&](auto tag) {
        return MultiplyValuesKernel<typename decltype(tag)::Type>(source, destination, effectRect, gains);
    });
}

int32_t KXEffectsMultiplyMasks(CFArrayRef masks, KXImage* destination, const KXRect* rect)
{
    if (!masks || !destination || !rect)
        return kKXErrBadParam;
    const CEffectRect effectRect = CEffectRect::FromKXRect(*rect);
    return DispatchPlaneBytes(KXImageGetPlaneBytes(destination), [&](auto tag) {
        return MultiplyMasksKernel<typename decltype(tag)::Type>(masks, destination, effectRect);
    });
}

int32_t KXEffectsMakeCompositeImage(KXImage* image, const KXRect* rect)
{
    if (!image || !rect)
        return kKXErrBadParam;
    if (KXImageGetTransparency(image) < 1)
        return kKXNoErr;
    const CEffectRect effectRect = CEffectRect::FromKXRect(*rect);
    return DispatchPlaneBytes(KXImageGetPlaneBytes(image),
                              [&](auto tag) { return FlattenKernel<typename decltype(tag)::Type>(image, effectRect); });
}
