// The true gaussian blur, a separable convolution with a sampled gaussian, and the front door that takes it
// below radius 10.0 and the fast blur of three boxes from there on.
#include "KXEffectsGaussianBlur.h"
#include "KXEffectsBlurModes.h"
#include "KXEffectsDispatch.h"
#include "KXEffectsDotProduct.h"
#include "KXEffectsEntry.h"
#include "KXEffectsRowLoop.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <type_traits>

namespace {

constexpr const char* kSourceFile = "Source/Common/KXEffects/KXEffectsGaussianBlur";

// ---- Formulas ----

// "norm": s (1 - amount) + v amount in the sample's scale; other modes mix their blend of s and v in 0..1.
template <class Mode, class Sample> inline Sample FinishTrueSample(Sample s, float v, float keep, float amount)
{
    if constexpr (std::is_same_v<Mode, BlurNormal>)
        return FromRaw<Sample>(float(s) * keep + v * amount);
    else
        return MixBlurBlend<Mode, Sample>(ToUnit(s), v * SampleTraits<Sample>::kReciprocal, keep, amount);
}

// exp(i^2 c), c = -1 / (2 radius^2), for i = -h..h, divided by their sum, which is taken in double.
std::unique_ptr<float[]> GaussianKernel(float radius, int32_t halfWidth)
{
    const int32_t taps = 2 * halfWidth + 1;
    std::unique_ptr<float[]> kernel(new (std::nothrow) float[size_t(taps)]);
    if (!kernel)
        KX_RAISE(kKXErrNoResource);
    const float c = -1.0f / (radius * 2.0f * radius);
    double sum = 0.0;
    for (int32_t i = -halfWidth; i <= halfWidth; ++i) {
        kernel[i + halfWidth] = std::exp(float(int64_t(i) * i) * c);
        sum += kernel[i + halfWidth];
    }
    const float normaliser = 1.0f / float(sum);
    for (int32_t i = 0; i < taps; ++i)
        kernel[i] *= normaliser;
    return kernel;
}

// ---- Kernel ----

inline int32_t RoundUpTo4(int32_t value)
{
    return (value + 3) & ~3;
}

// The kernel in the shapes the aligned dot product needs. shifted holds four copies of padded length,
// copy k starting at float k, so that the line under output column i is read from the aligned index i - k
// (k = i mod 4). vertical is the kernel over a ring of padded lines and is rotated instead of the ring.
// ring holds, for each column and colour plane, the row results of the last padded lines side by side.
class TrueBlurBuffers {
public:
    TrueBlurBuffers(float radius, int32_t halfWidth, int32_t width, int32_t colourPlanes)
        : taps(2 * halfWidth + 1), padded(RoundUpTo4(taps)), shiftedLength(RoundUpTo4(taps + 3))
    {
        m_shifted.Allocate(4 * size_t(shiftedLength) * sizeof(float));
        m_vertical.Allocate(size_t(padded) * sizeof(float));
        m_ring.Allocate(size_t(width) * size_t(colourPlanes) * size_t(padded) * sizeof(float));
        m_line.Allocate((size_t(width) + size_t(shiftedLength)) * sizeof(float));
        m_blurred.Allocate(size_t(width) * size_t(colourPlanes) * sizeof(float));
        const std::unique_ptr<float[]> kernel = GaussianKernel(radius, halfWidth);
        for (int32_t k = 0; k < 4; ++k)
            std::copy_n(kernel.get(), taps, Shifted(k) + k);
        std::copy_n(kernel.get(), taps, Vertical());
    }
    const float* Shifted(int32_t k) const { return m_shifted.As<float>() + size_t(k) * size_t(shiftedLength); }
    float* Shifted(int32_t k) { return m_shifted.As<float>() + size_t(k) * size_t(shiftedLength); }
    float* Vertical() { return m_vertical.As<float>(); }
    float* Ring(size_t entry) { return m_ring.As<float>() + entry * size_t(padded); }
    float* Line() { return m_line.As<float>(); }
    float* Blurred() { return m_blurred.As<float>(); }
    // The last entry goes to the front, so that the newest line meets the weight the ring would give it.
    void RotateVertical() { std::rotate(Vertical(), Vertical() + padded - 1, Vertical() + padded); }

    const int32_t taps;
    const int32_t padded;
    const int32_t shiftedLength;

private:
    CAlignedBuffer m_shifted;
    CAlignedBuffer m_vertical;
    CAlignedBuffer m_ring;
    CAlignedBuffer m_line;
    CAlignedBuffer m_blurred;
};

// The aligned 16-byte order, or the scalar one when a wider build sets gWideVectors.
template <class Body> inline void WithDotProduct(bool wideVectors, Body&& body)
{
    if (wideVectors)
        body([](const float* a, const float* b, int32_t n) { return InlineDotProductScalar(a, b, n); });
    else
        body([](const float* a, const float* b, int32_t n) { return InlineDotProduct(a, b, n); });
}

// Row results of one source line, into ring slot `slot` of every column and colour plane.
template <class Sample, class Planes, class ColourPlanes>
void FilterLine(const Sample* line, int32_t width, int32_t halfWidth, int32_t slot, Planes planes,
                ColourPlanes colourPlanes, TrueBlurBuffers& buffers, bool wideVectors)
{
    WithDotProduct(wideVectors, [&](auto dot) {
        float* unpacked = buffers.Line();
        for (int32_t c = 0; c < colourPlanes; ++c) {
            for (int32_t i = 0; i < width + 2 * halfWidth; ++i)
                unpacked[i] = float(line[ptrdiff_t(i) * planes + c]);
            for (int32_t i = 0; i < width; ++i) {
                const int32_t k = i & 3;
                buffers.Ring(size_t(i) * size_t(colourPlanes) + size_t(c))[slot] =
                    dot(buffers.Shifted(k), unpacked + i - k, buffers.shiftedLength);
            }
        }
    });
}

// The vertical kernel over every column and colour plane's ring, into the blurred line.
inline void VerticalLine(int32_t entries, TrueBlurBuffers& buffers, bool wideVectors)
{
    WithDotProduct(wideVectors, [&](auto dot) {
        float* blurred = buffers.Blurred();
        for (int32_t entry = 0; entry < entries; ++entry)
            blurred[entry] = dot(buffers.Ring(size_t(entry)), buffers.Vertical(), buffers.padded);
    });
    buffers.RotateVertical();
}

// One output line from the blurred line and the unblurred line; alpha comes with the whole line first.
template <class Sample, class Mode, class Planes, class ColourPlanes>
void FinishTrueLine(const Sample* in, Sample* out, const float* blurred, int32_t width, const PixelLayout& layout,
                    Planes planes, ColourPlanes colourPlanes, float amount)
{
    if (layout.transparency != 0)
        std::memmove(out, in, size_t(width) * size_t(layout.planes) * sizeof(Sample));
    const float keep = 1.0f - amount;
    for (int32_t x = 0; x < width; ++x) {
        for (int32_t c = 0; c < colourPlanes; ++c) {
            const ptrdiff_t sample = ptrdiff_t(x) * planes + c;
            out[sample] = FinishTrueSample<Mode>(in[sample], blurred[x * colourPlanes + c], keep, amount);
        }
    }
}

// One sweep over the source lines rect.top - h .. rect.bottom + h - 1; an output line follows each line from
// the (2h + 1)th on. Output line y is written after source line y + h is read, so source may be destination.
template <class Sample, class Mode>
void TrueBlurKernel(KXImage* source, KXImage* destination, const CEffectRect& whole, float radius, int32_t halfWidth,
                    float amount)
{
    // Only the lines and columns whose results land in the destination are computed.
    const CEffectRect rect = InDestination(whole, destination);
    if (rect.IsEmpty())
        return;
    GrownRect(rect, -halfWidth, -halfWidth, halfWidth, halfWidth);
    const PixelLayout layout = LayoutOf(destination);
    const int32_t width = rect.Width();
    TrueBlurBuffers buffers(radius, halfWidth, width, layout.colourPlanes);
    const bool wideVectors = gWideVectors;
    CImageView sourceView(source);
    CImageView destinationView(destination);
    WithPlaneCounts(layout, [&](auto planes, auto colourPlanes) {
        for (int32_t j = 0, row = rect.top - halfWidth; row < rect.bottom + halfWidth; ++j, ++row) {
            const void* line = sourceView.ReadRow(row, rect.left - halfWidth, width + 2 * halfWidth);
            FilterLine(static_cast<const Sample*>(line), width, halfWidth, j % buffers.padded, planes, colourPlanes,
                       buffers, wideVectors);
            if (j + 1 < buffers.taps)
                continue;
            const auto* in = static_cast<const Sample*>(sourceView.ReadRow(row - halfWidth, rect.left, width));
            auto* out = static_cast<Sample*>(destinationView.WriteRow(row - halfWidth, rect.left, width));
            VerticalLine(width * colourPlanes, buffers, wideVectors);
            FinishTrueLine<Sample, Mode>(in, out, buffers.Blurred(), width, layout, planes, colourPlanes, amount);
        }
    });
    destinationView.Detach();
    sourceView.Detach();
}

} // namespace

// ---- Entry points ----

void BlurredLuminosity(KXImage* source, const KXRect& grown, const KXRect& rect, float radius, CImageRef& luma,
                       const char* file)
{
    KXEffectsThrowIfError(KXEffectsCreateLuminosityImage(source, luma.Out(), &grown, 0), file, __LINE__);
    const uint32_t normal = FourCharCode("norm");
    KXEffectsThrowIfError(radius < 10.0f
                              ? KXEffectsGaussianBlurTrueWithAmountAndMode(luma, luma, &rect, radius, 1.0f, normal)
                              : KXEffectsGaussianBlurFastWithAmountAndMode(luma, luma, &rect, radius, 1.0f, normal),
                          file, __LINE__);
}

int32_t KXEffectsGaussianBlur(KXImage* source, KXImage* destination, const KXRect* rect, float radius)
{
    return KXEffectsGaussianBlurWithAmountAndMode(source, destination, rect, radius, 1.0f, FourCharCode("norm"));
}

int32_t KXEffectsGaussianBlurWithAmount(KXImage* source, KXImage* destination, const KXRect* rect, float radius,
                                        float amount)
{
    return KXEffectsGaussianBlurWithAmountAndMode(source, destination, rect, radius, amount, FourCharCode("norm"));
}

int32_t KXEffectsGaussianBlurWithAmountAndMode(KXImage* source, KXImage* destination, const KXRect* rect, float radius,
                                               float amount, uint32_t blendMode)
{
    // Written so that a NaN radius takes the true blur.
    if (radius >= 10.0f)
        return KXEffectsGaussianBlurFastWithAmountAndMode(source, destination, rect, radius, amount, blendMode);
    return KXEffectsGaussianBlurTrueWithAmountAndMode(source, destination, rect, radius, amount, blendMode);
}

int32_t KXEffectsGaussianBlurTrue(KXImage* source, KXImage* destination, const KXRect* rect, float radius)
{
    return KXEffectsGaussianBlurTrueWithAmountAndMode(source, destination, rect, radius, 1.0f, FourCharCode("norm"));
}

int32_t KXEffectsGaussianBlurTrueWithAmount(KXImage* source, KXImage* destination, const KXRect* rect, float radius,
                                            float amount)
{
    return KXEffectsGaussianBlurTrueWithAmountAndMode(source, destination, rect, radius, amount, FourCharCode("norm"));
}

int32_t KXEffectsGaussianBlurTrueWithAmountAndMode(KXImage* source, KXImage* destination, const KXRect* rect,
                                                   float radius, float amount, uint32_t blendMode)
{
    if (!source || !destination || !rect)
        return kKXErrBadParam;
    if (!HaveSameLayout(source, destination))
        return kKXErrUnsupported;
    const CEffectRect effectRect = CEffectRect::FromKXRect(*rect);
    const int32_t halfWidth = TrueGaussianHalfWidth(radius);
    if (halfWidth <= 0 || !(amount > 0.0f))
        return KXEffectsCopyRect(source, destination, effectRect, KXPointMake(0, 0));
    if (halfWidth > kMaxReach)
        return kKXErrBadParam;
    const int32_t status = DispatchImageDepth(source, [&](auto sampleTag) {
        return DispatchBlurMode(blendMode, [&](auto modeTag) -> int32_t {
            using Sample = typename decltype(sampleTag)::Type;
            TrueBlurKernel<Sample, typename decltype(modeTag)::Type>(source, destination, effectRect, radius, halfWidth,
                                                                     amount);
            return kKXNoErr;
        });
    });
    return status == kKXNoErr && BlurModeReportsBadParam(blendMode) ? int32_t(kKXErrBadParam) : status;
}
