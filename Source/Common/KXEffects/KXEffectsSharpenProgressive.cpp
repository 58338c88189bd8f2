// Progressive sharpening: the luma of RGB pictures (each plane of others) pushed away from its gaussian blurs
// at four scales in one pass, the finest weighted down by fineReduction.
#include "KXEffectsColorMath.h"
#include "KXEffectsEntry.h"
#include "KXEffectsGaussianBlur.h"
#include "KXEffectsRowLoop.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <type_traits>

namespace {

constexpr const char* kSourceFile = "Source/Common/KXEffects/KXEffectsSharpenProgressive";

constexpr int32_t kScales = 4;
constexpr float kBaseWeights[kScales] = {1.0f, 0.0f, 0.3f, 0.15f};
constexpr float kRadiusFactors[kScales] = {0.5f, 1.0f, 2.0f, 4.0f};

// w[k] = base[k] x the product of (1 - w[j]) for j below k, the first also times 1 - fineReduction;
// sum = 1 + the weights.
struct ProgressiveSettings {
    float weights[kScales];
    float sum;
    float amount;
    float threshold;
};

ProgressiveSettings SettingsOf(float amount, float fineReduction, float threshold)
{
    ProgressiveSettings settings{{}, 1.0f, amount, threshold};
    for (int32_t k = 0; k < kScales; ++k) {
        float product = 1.0f;
        for (int32_t j = 0; j < k; ++j)
            product *= 1.0f - settings.weights[j];
        settings.weights[k] = kBaseWeights[k] * product;
        if (k == 0)
            settings.weights[0] *= 1.0f - fineReduction;
        settings.sum += settings.weights[k];
    }
    return settings;
}

// ---- Formulas ----

// S = v x sum - w0 B0 - w1 B1 - w2 B2 - w3 B3, in the sample's own scale.
inline float Sharpened(float v, const std::array<float, kScales>& blurred, const ProgressiveSettings& settings)
{
    float sharpened = v * settings.sum;
    for (int32_t k = 0; k < kScales; ++k)
        sharpened -= settings.weights[k] * blurred[k];
    return sharpened;
}

// v (1 - amount) + S amount, clamped to 0..white.
template <class Sample> inline float Mixed(float v, float sharpened, float amount)
{
    return ClampToWhite<Sample>(v * (1.0f - amount) + sharpened * amount);
}

// The new luma with the pixel's own chroma: Cb, Cr of the unsharpened R, G, B, back to RGB, each clamped.
template <class Sample> inline void StoreWithChroma(const Sample* in, Sample* out, float luma)
{
    const float red = float(in[0]), green = float(in[1]), blue = float(in[2]);
    const float cb = blue * 0.5f - (red * 0.168736f + green * 0.331264f);
    const float cr = red * 0.5f - green * 0.418688f - blue * 0.081312f;
    out[0] = FromRaw<Sample>(ClampToWhite<Sample>(luma + cr * 1.402f));
    out[1] = FromRaw<Sample>(ClampToWhite<Sample>(luma - cb * 0.344136f - cr * 0.714136f));
    out[2] = FromRaw<Sample>(ClampToWhite<Sample>(luma + cb * 1.772f));
}

// ---- Kernels ----

// A scale without an image reads as zeros.
using ScaleImages = CImageRef[kScales];

// rowKernel(in, out, blurred rows, width, planes, colourPlanes) over rect, alpha copied with the whole line;
// the scales are read after the destination row is asked for.
template <class Sample, class RowKernel>
void ForEachScaleRow(KXImage* source, KXImage* destination, const ScaleImages& scales, const CEffectRect& rect,
                     RowKernel&& rowKernel)
{
    const PixelLayout layout = LayoutOf(destination);
    const int32_t width = rect.Width();
    const CAlignedBuffer zeros(size_t(std::max(width, 0)) * size_t(layout.planes) * sizeof(Sample));
    const auto orZeros = [&](const Sample* row) { return row ? row : zeros.As<Sample>(); };
    WalkRows<Sample>(
        rect, Sources<Sample, Sample, Sample, Sample, Sample>{source, scales[0], scales[1], scales[2], scales[3]},
        destination, {.firstLateSource = 1},
        [&](int32_t, const Sample* in, const Sample* fine, const Sample* second, const Sample* third,
            const Sample* coarse, Sample* out) {
            const Sample* rows[kScales] = {orZeros(fine), orZeros(second), orZeros(third), orZeros(coarse)};
            WithPlaneCounts(layout, [&](auto planes, auto colourPlanes) {
                rowKernel(in, out, rows, width, planes, colourPlanes);
            });
        });
}

// The samples of the four scales at one index of their rows.
template <class Sample> inline std::array<float, kScales> BlurredAt(const Sample* const* rows, ptrdiff_t index)
{
    return {float(rows[0][index]), float(rows[1][index]), float(rows[2][index]), float(rows[3][index])};
}

// RGB: the luma sharpened against the blurred lumas, which are one plane; a pixel the threshold keeps is
// copied as it was.
template <class Sample, bool kThresholded>
void LuminanceKernel(KXImage* source, KXImage* destination, const ScaleImages& scales, const CEffectRect& rect,
                     const ProgressiveSettings& settings)
{
    const float t = settings.threshold * kWhite<Sample>;
    ForEachScaleRow<Sample>(source, destination, scales, rect,
                            [&](const Sample* in, Sample* out, const Sample* const* rows, int32_t width, auto planes,
                                auto) {
                                for (int32_t x = 0; x < width; ++x) {
                                    const Sample* pixel = in + ptrdiff_t(x) * planes;
                                    Sample* target = out + ptrdiff_t(x) * planes;
                                    const float y = Luma(float(pixel[0]), float(pixel[1]), float(pixel[2]));
                                    const float sharpened = Sharpened(y, BlurredAt(rows, x), settings);
                                    if (kThresholded && t > std::abs(sharpened - y)) {
                                        std::copy_n(pixel, 3, target);
                                        continue;
                                    }
                                    StoreWithChroma(pixel, target, Mixed<Sample>(y, sharpened, settings.amount));
                                }
                            });
}

// Other colour spaces: each colour plane against the same plane of its blurs, stored directly.
template <class Sample, bool kThresholded>
void PlaneKernel(KXImage* source, KXImage* destination, const ScaleImages& scales, const CEffectRect& rect,
                 const ProgressiveSettings& settings)
{
    const float t = settings.threshold * kWhite<Sample>;
    ForEachScaleRow<Sample>(
        source, destination, scales, rect,
        [&](const Sample* in, Sample* out, const Sample* const* rows, int32_t width, auto planes, auto colourPlanes) {
            for (ptrdiff_t at = 0; at < ptrdiff_t(width) * planes; at += planes) {
                for (int32_t c = 0; c < colourPlanes; ++c) {
                    const float s = float(in[at + c]);
                    const float sharpened = Sharpened(s, BlurredAt(rows, at + c), settings);
                    out[at + c] = kThresholded && t > std::abs(sharpened - s)
                                      ? in[at + c]
                                      : FromRaw<Sample>(Mixed<Sample>(s, sharpened, settings.amount));
                }
            }
        });
}

// ---- Dispatch ----

// One of the four kernels of a depth: luminance or planes, with or without threshold.
template <class Sample>
void CombineScales(KXImage* source, KXImage* destination, const ScaleImages& scales, const CEffectRect& rect,
                   bool luminance, const ProgressiveSettings& settings)
{
    const auto run = [&](auto thresholded) {
        if (luminance)
            LuminanceKernel<Sample, decltype(thresholded)::value>(source, destination, scales, rect, settings);
        else
            PlaneKernel<Sample, decltype(thresholded)::value>(source, destination, scales, rect, settings);
    };
    if (settings.threshold > 0.0f)
        run(std::true_type{});
    else
        run(std::false_type{});
}

// The blurs of input over rect, one work image for each scale of weight above 0.
void BlurScales(KXImage* input, const KXRect* rect, float radius, const ProgressiveSettings& settings,
                ScaleImages& scales)
{
    for (int32_t k = 0; k < kScales; ++k) {
        if (!(settings.weights[k] > 0.0f))
            continue;
        scales[k].Reset(KXEffectsCreateWorkImageLike(input, rect, kSourceFile, __LINE__));
        if (!scales[k])
            KX_RAISE(kKXErrNoResource);
        KX_THROW_IF_ERROR(KXEffectsGaussianBlurWithAmountAndMode(input, scales[k], rect, radius * kRadiusFactors[k],
                                                                 1.0f, FourCharCode("norm")));
    }
}

} // namespace

// ---- Entry points ----

int32_t KXEffectsSharpenProgressive(KXImage* source, KXImage* destination, const KXRect* rect, float amount,
                                    float radius, float fineReduction, float threshold)
{
    return EntryPoint(source, destination, rect)
        .NeutralWhen(!(amount > 0.0f) || !(radius > 0.0f))
        .Require(GaussianBlurOutset(radius * 4.0f) <= kMaxReach, kKXErrBadParam)
        .Catching(kSourceFile, __LINE__)
        .Run([&]<class Sample>(SampleTag<Sample>, const CEffectRect& effectRect) {
            const ProgressiveSettings settings = SettingsOf(amount, fineReduction, threshold);
            const bool luminance = IsRGB(source);
            CImageRef luma;
            if (luminance) {
                // Reach of the coarsest scale, so that its blur sees real pixels around rect.
                const KXRect grown = KXRectOutset(rect, GaussianBlurOutset(radius * 4.0f));
                KX_THROW_IF_ERROR(KXEffectsCreateLuminosityImage(source, luma.Out(), &grown, 0));
            }
            ScaleImages scales;
            BlurScales(luminance ? luma.Get() : source, rect, radius, settings, scales);
            CombineScales<Sample>(source, destination, scales, effectRect, luminance, settings);
        });
}
