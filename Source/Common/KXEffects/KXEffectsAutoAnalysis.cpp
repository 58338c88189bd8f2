// The measuring side of the tone tools: plane statistics, the auto colour and auto tone, black and white
// points, and the equalizers. Their clips and targets are the library's judgement of a photograph.
#include "KXEffectsColorMath.h"
#include "KXEffectsDispatch.h"
#include "KXEffectsRowLoop.h"
#include "KXEffectsToneCurves.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <memory>
#include <optional>

namespace {

constexpr const char* kSourceFile = "Source/Common/KXEffects/KXEffectsAutoAnalysis";

constexpr int32_t kBins = 256;
constexpr int32_t kLastBin = kBins - 1;

// ---- Formulas ----

// trunc(position) limited to 0..last; NaN reads 0, so a float sample never indexes past a table.
inline int32_t BinOf(float position, int32_t last)
{
    if (!(position > 0.0f))
        return 0;
    return position >= float(last) ? last : int32_t(position);
}

// A sample in 8-bit units, 0..255.
template <class Sample> inline float ByteUnits(Sample sample)
{
    return float(sample) * (255.0f / kWhite<Sample>);
}

// 0.299 r + 0.587 g + 0.114 b of the raw samples, scaled to 0..1.
template <class Sample> inline float LumaUnits(const Sample* pixel)
{
    return Luma(float(pixel[0]), float(pixel[1]), float(pixel[2])) * SampleTraits<Sample>::kReciprocal;
}

// Sum of squared distances of the planes from their mean: small for a near-neutral colour.
inline float NeutralVariance(const float* rgb)
{
    const float mean = (rgb[0] + rgb[1] + rgb[2]) * 0.33333334f;
    const float r = rgb[0] - mean, g = rgb[1] - mean, b = rgb[2] - mean;
    return r * r + g * g + b * b;
}

// The bin at which the running count, from bin 0 upward or from bin 255 downward, first reaches threshold;
// the far end when it never does.
template <class Count> int32_t BinReaching(const Count* histogram, int64_t threshold, bool fromTop)
{
    int64_t sum = 0;
    for (int32_t step = 0; step < kBins; ++step) {
        const int32_t bin = fromTop ? kLastBin - step : step;
        sum += int64_t(histogram[bin]);
        if (sum >= threshold)
            return bin;
    }
    return fromTop ? 0 : kLastBin;
}

// ---- Reading and tables ----

inline CEffectRect BoundsOf(KXImage* image)
{
    return CEffectRect::FromKXRect(KXImageGetBounds(image));
}

// Three colour planes in the RGB colour space: what the colour analyses read.
inline bool IsRGB(KXImage* image)
{
    return KXImageGetColorSpaceType(image) == KXColorSpaceRGB && LayoutOf(image).colourPlanes == 3;
}

// A zeroed table; a failed allocation is logged and thrown as kKXErrNoResource.
template <class T> std::unique_ptr<T[]> NewTable(size_t count)
{
    std::unique_ptr<T[]> table(new (std::nothrow) T[count]());
    if (!table)
        KX_RAISE(kKXErrNoResource);
    return table;
}

// pixelFn(pixel, planes, colourPlanes) for every pixel of rect, read only.
template <class Sample, class PixelFn>
void ForEachImagePixel(KXImage* image, const CEffectRect& rect, PixelFn&& pixelFn)
{
    if (rect.IsEmpty())
        return;
    CImageView view(image);
    WithPlaneCounts(LayoutOf(image), [&](auto planes, auto colourPlanes) {
        for (int32_t row = rect.top; row < rect.bottom; ++row) {
            const auto* in = static_cast<const Sample*>(view.ReadRow(row, rect.left, rect.Width()));
            for (int32_t x = 0; x < rect.Width(); ++x)
                pixelFn(in + x * planes, planes, colourPlanes);
        }
    });
    view.Detach();
}

// fn(SampleTag) for depth 8 or 16; any other depth is kKXErrUnsupported.
template <class Fn> int32_t DispatchIntegerDepth(KXImage* image, Fn&& fn)
{
    switch (KXImageGetDepth(image)) {
    case 8:
        return fn(SampleTag<uint8_t>{});
    case 16:
        return fn(SampleTag<uint16_t>{});
    default:
        return kKXErrUnsupported;
    }
}

// ---- Plane statistics ----

struct PlaneSums {
    double sum[4] = {};
    double squares[4] = {};
    int64_t count = 0;
};

// Raw samples in doubles, with the luma of an RGB pixel as a fourth channel. A fourth plane of 0 or less
// (a transparent pixel) leaves the pixel out.
template <class Sample> PlaneSums SumPlanes(KXImage* image, const CEffectRect& rect)
{
    PlaneSums sums;
    ForEachImagePixel<Sample>(image, rect, [&sums](const Sample* pixel, auto planes, auto colourPlanes) {
        if (planes > 3 && !(pixel[3] > Sample(0)))
            return;
        double values[4] = {double(pixel[0])};
        const int32_t channels = colourPlanes == 3 ? 4 : 1;
        if (channels == 4) {
            values[1] = double(pixel[1]), values[2] = double(pixel[2]);
            values[3] = 0.299 * values[0] + 0.587 * values[1] + 0.114 * values[2];
        }
        for (int32_t c = 0; c < channels; ++c) {
            sums.sum[c] += values[c];
            sums.squares[c] += values[c] * values[c];
        }
        ++sums.count;
    });
    return sums;
}

// mean = sum s / count, deviation = sqrt(squares s s / count - mean^2), s the reciprocal of white; a
// difference that rounding takes below 0 reads 0.
void FinishStatistics(const PlaneSums& sums, int32_t channels, double s, float* means, float* deviations)
{
    if (sums.count == 0)
        return;
    const double count = double(sums.count);
    for (int32_t c = 0; c < channels; ++c) {
        const double mean = sums.sum[c] * s / count;
        means[c] = float(mean);
        deviations[c] = float(std::sqrt(std::max(sums.squares[c] * s * s / count - mean * mean, 0.0)));
    }
}

// ---- Auto colour ----

struct AutoLevelsSettings {
    float shadowClip; // percent of the counted pixels
    float highlightClip;
    float neutrality; // largest variance of a pixel that counts as gray, in 8-bit units
    float strength;
};

constexpr AutoLevelsSettings kAutoColorSettings = {20.0f, 20.0f, 200.0f, 1.2f};

// Levels of one channel: bin numbers and a gamma in hundredths.
struct ChannelLevels {
    uint16_t black = 0;
    uint16_t white = 255;
    uint16_t gamma = 100;
};

using Levels = std::array<ChannelLevels, 3>;

struct NeutralHistograms {
    std::unique_ptr<uint32_t[]> channel[3];
    int64_t count = 0;
};

// Histograms of the pixels near gray only, which are what the auto colour takes to gray. Pixels with a fourth
// plane of 0 are left out.
template <class Sample> NeutralHistograms GatherNeutral(KXImage* image, float neutrality)
{
    NeutralHistograms histograms;
    for (auto& channel : histograms.channel)
        channel = NewTable<uint32_t>(kBins);
    ForEachImagePixel<Sample>(image, BoundsOf(image), [&](const Sample* pixel, auto planes, auto) {
        if (planes > 3 && pixel[3] == Sample(0))
            return;
        const float rgb[3] = {ByteUnits(pixel[0]), ByteUnits(pixel[1]), ByteUnits(pixel[2])};
        if (!(NeutralVariance(rgb) < neutrality))
            return;
        for (int32_t c = 0; c < 3; ++c)
            ++histograms.channel[c][BinOf(rgb[c] + 0.5f, kLastBin)];
        ++histograms.count;
    });
    return histograms;
}

// Each channel's black is its clip bin above the lowest one, white its clip bin below the highest one, both
// scaled by strength. Every counted pixel is in all three histograms, so the mean of their totals is the count.
void SetAutoPoints(const NeutralHistograms& histograms, const AutoLevelsSettings& settings, Levels& levels)
{
    const float count = float(histograms.count);
    const int64_t shadowClip = int64_t(settings.shadowClip * count * 0.01f);
    const int64_t highlightClip = int64_t(settings.highlightClip * count * 0.01f);
    int32_t blacks[3], whites[3];
    for (int32_t c = 0; c < 3; ++c) {
        blacks[c] = BinReaching(histograms.channel[c].get(), shadowClip, false);
        whites[c] = BinReaching(histograms.channel[c].get(), highlightClip, true);
    }
    const int32_t lowest = std::min({blacks[0], blacks[1], blacks[2]});
    const int32_t highest = std::max({whites[0], whites[1], whites[2]});
    for (int32_t c = 0; c < 3; ++c) {
        if (histograms.count > shadowClip)
            levels[c].black = uint16_t(int32_t(float(blacks[c] - lowest) * settings.strength));
        // A white below 0 wraps, and the curve builder then leaves the channel alone.
        if (histograms.count > highlightClip)
            levels[c].white = uint16_t(255 - int32_t(float(highest - whites[c]) * settings.strength));
    }
}

// The count-weighted mean bin over bins 64 to 191; 0 for an empty band.
float MidBandMean(const uint32_t* histogram)
{
    int64_t weighted = 0, total = 0;
    for (int32_t bin = 64; bin <= 191; ++bin) {
        weighted += int64_t(bin) * histogram[bin];
        total += histogram[bin];
    }
    return total > 0 ? float(weighted) / float(total) : 0.0f;
}

// v = ((middle - other) / middle x strength + 1) x 128, which for a channel above the middle is the same float
// as (1 - (other - middle) / middle x strength) x 128; truncated to 16 bits, wrapping. v = 128 gives 100.
uint16_t GammaFor(float middle, float other, float strength)
{
    const float ratio = (middle - other) / middle;
    const uint16_t v = uint16_t(int32_t((ratio * strength + 1.0f) * 128.0f));
    if (v < 45)
        return 250;
    if (v > 210)
        return 10;
    return uint16_t(std::clamp(int32_t(std::log10(float(v) / 256.0f) * -332.19281f), 10, 255));
}

// The channel of the middle mid-band mean keeps gamma 100, the other two are set against it; any tie keeps
// all three at 100.
void SetAutoGammas(const NeutralHistograms& histograms, float strength, Levels& levels)
{
    float means[3];
    for (int32_t c = 0; c < 3; ++c)
        means[c] = MidBandMean(histograms.channel[c].get());
    if (means[0] == means[1] || means[1] == means[2] || means[0] == means[2])
        return;
    std::array<int32_t, 3> order = {0, 1, 2};
    std::sort(order.begin(), order.end(), [&](int32_t a, int32_t b) { return means[a] < means[b]; });
    const int32_t middle = order[1];
    for (int32_t c : {order[0], order[2]})
        levels[c].gamma = GammaFor(means[middle], means[c], strength);
}

template <class Sample> Levels AutoColorLevels(KXImage* image, const AutoLevelsSettings& settings)
{
    const NeutralHistograms histograms = GatherNeutral<Sample>(image, settings.neutrality);
    Levels levels{};
    SetAutoPoints(histograms, settings, levels);
    SetAutoGammas(histograms, settings.strength, levels);
    return levels;
}

// One channel of levels as 256 entries: a 16.16 fixed-point ramp from black, whose running sum starts at one
// step, read through the gamma. Levels out of range leave the channel the identity.
void LevelsCurve(const ChannelLevels& levels, float* curve)
{
    const int32_t black = levels.black, white = levels.white;
    if (!(black < white && black + 64 < 320 && white <= 320 && levels.gamma != 0)) {
        KXEffectsInitCurves(1, curve);
        return;
    }
    uint8_t ramp[kBins] = {};
    const uint32_t step = 0xFF0000u / uint32_t(white - black);
    uint32_t sum = step;
    for (int32_t i = black; i < kBins; ++i, sum += step)
        ramp[i] = uint8_t(std::min(sum >> 16, 255u));
    const float exponent = 1.0f / (float(levels.gamma) * 0.01f);
    for (int32_t i = 0; i < kBins; ++i) {
        const float x = std::clamp(std::pow(float(i) / 255.0f, exponent) * 255.0f, 0.0f, 255.0f);
        curve[i] = float(ramp[int32_t(x)]) * (1.0f / 255.0f);
    }
}

// ---- Auto tone ----

// Levels, then midtone contrast, then brightness: the very operations of the tone effects.
struct ToneModel {
    float black = 0.0f;
    float white = 1.0f;
    float brightness = 0.0f;
    float contrast = 0.0f;
};

// The counts of the 256 luma bins and each bin's tone after a model.
struct ToneBins {
    float count[kBins];
    float value[kBins];
};

ToneBins ShapeBins(const float* counts, const ToneModel& model)
{
    ToneBins bins;
    const BrightnessShaper brightness(model.brightness);
    for (int32_t i = 0; i < kBins; ++i) {
        const float x = (float(i) / 255.0f - model.black) / (model.white - model.black);
        bins.count[i] = counts[i];
        bins.value[i] = brightness(MidtoneCurveValue(x, model.contrast));
    }
    return bins;
}

// Tent weight, largest for the middle tones.
inline float TentWeight(float v)
{
    return 0.5f - std::fabs(v - 0.5f);
}

// sum w v / sum w with w the tent weight times the count, in doubles; 0.5 without weight.
float ToneMean(const ToneBins& bins)
{
    double weights = 0.0, sum = 0.0;
    for (int32_t i = 0; i < kBins; ++i) {
        const float w = TentWeight(bins.value[i]) * bins.count[i];
        weights += w;
        sum += double(w) * bins.value[i];
    }
    return weights > 0.0 ? float(sum / weights) : 0.5f;
}

// sqrt(sum weighted(w, v) / sum w), w = weight(v) x count, in float; none without weight.
template <class Weight, class Weighted>
std::optional<float> WeightedRoot(const ToneBins& bins, Weight&& weight, Weighted&& weighted)
{
    float weights = 0.0f, sum = 0.0f;
    for (int32_t i = 0; i < kBins; ++i) {
        const float w = weight(bins.value[i]) * bins.count[i];
        weights += w;
        sum += weighted(w, bins.value[i]);
    }
    if (!(weights > 0.0f))
        return std::nullopt;
    return std::sqrt(sum / weights);
}

// How far the middle tones lie from 0.5.
std::optional<float> Spread(const ToneBins& bins)
{
    return WeightedRoot(bins, TentWeight, [](float w, float v) {
        const float d = v - 0.5f;
        return w * d * d;
    });
}

// How far the dark tones lie above black.
std::optional<float> DarkSpread(const ToneBins& bins)
{
    return WeightedRoot(
        bins, [](float v) { return std::max(0.5f - v, 0.0f); }, [](float w, float v) { return w * v * v; });
}

// How far the light tones lie below white.
std::optional<float> LightSpread(const ToneBins& bins)
{
    return WeightedRoot(
        bins, [](float v) { return std::max(v - 0.5f, 0.0f); },
        [](float w, float v) {
            const float u = 1.0f - v;
            return w * (u * u);
        });
}

// Each spread of a flat histogram at neutral settings, worked out on first use. A zero marks one not yet known;
// threads that race only work out the same value twice.
std::atomic<float> gSpreadReference{0.0f};
std::atomic<float> gDarkSpreadReference{0.0f};
std::atomic<float> gLightSpreadReference{0.0f};

float Reference(std::atomic<float>& cache, std::optional<float> (*measure)(const ToneBins&))
{
    float value = cache.load(std::memory_order_relaxed);
    if (value == 0.0f) {
        float flat[kBins];
        std::fill(flat, flat + kBins, 1.0f);
        value = *measure(ShapeBins(flat, ToneModel{}));
        cache.store(value, std::memory_order_relaxed);
    }
    return value;
}

// Steps a setting by hundredths, up to 1, toward the target for as long as the measure comes closer; the last
// step that came closer is the answer.
template <class Measure> float WalkToward(float start, float target, Measure&& measureAt)
{
    const float direction = target > start ? 1.0f : -1.0f;
    float kept = 0.0f, distance = std::fabs(start - target);
    for (int32_t i = 1; i <= 100; ++i) {
        const float setting = float(i) * 0.01f * direction;
        const float next = std::fabs(measureAt(setting) - target);
        if (!(next < distance))
            break;
        kept = setting;
        distance = next;
    }
    return kept;
}

// Brightness brings the mean part of the way to a middle value near 0.5.
float AutoBrightness(const float* counts, ToneModel model)
{
    const float start = ToneMean(ShapeBins(counts, model));
    return WalkToward(start, start * 0.39999998f + 0.3f, [&](float brightness) {
        model.brightness = brightness;
        return ToneMean(ShapeBins(counts, model));
    });
}

// Contrast brings the spread a fifth of the way to that of a flat histogram.
float AutoContrast(const float* counts, ToneModel model)
{
    const float reference = Reference(gSpreadReference, Spread);
    const auto spreadAt = [&](float contrast) {
        model.contrast = contrast;
        return Spread(ShapeBins(counts, model)).value_or(reference);
    };
    const float start = spreadAt(0.0f);
    return WalkToward(start, reference * 0.2f + start * 0.8f, spreadAt);
}

// Dark tones are opened against twice their reference, so twice as readily as light tones are held back.
// Without dark or light tones that slider stays 0.
void SetShadowsAndHighlights(const ToneBins& bins, ToneSettings& settings)
{
    const float dark = 2.0f * Reference(gDarkSpreadReference, DarkSpread);
    const std::optional<float> darkSpread = DarkSpread(bins);
    if (darkSpread && *darkSpread < dark)
        settings.shadows = (dark - *darkSpread) / dark;
    const float light = Reference(gLightSpreadReference, LightSpread);
    const std::optional<float> lightSpread = LightSpread(bins);
    if (lightSpread && *lightSpread < light)
        settings.highlights = std::clamp(-(light - *lightSpread) / light, -1.0f, 1.0f);
}

constexpr ToneSettings kNeutralTone = {{0.0f, 0.0f, 0.0f}, {1.0f, 1.0f, 1.0f}, 0.0f, 0.0f, 0.0f, 0.0f};

// Black clips 0.1% and white 0.01% of the pixels; the tone model then runs over the bins. A histogram of one
// level has no range to shape and keeps the sliders at 0.
ToneSettings ToneOfHistogram(const uint32_t* histogram, int64_t pixels)
{
    ToneSettings settings = kNeutralTone;
    ToneModel model;
    model.black = float(BinReaching(histogram, int64_t(float(pixels) * 0.001f) + 1, false)) / 255.0f;
    model.white = float(BinReaching(histogram, int64_t(float(pixels) * 0.0001f) + 1, true)) / 255.0f;
    std::fill(settings.black, settings.black + 3, model.black);
    std::fill(settings.white, settings.white + 3, model.white);
    if (!(model.white > model.black))
        return settings;
    float counts[kBins];
    std::copy(histogram, histogram + kBins, counts);
    settings.brightness = model.brightness = AutoBrightness(counts, model);
    settings.contrast = model.contrast = AutoContrast(counts, model);
    SetShadowsAndHighlights(ShapeBins(counts, model), settings);
    return settings;
}

template <class Sample> ToneSettings AutoToneOf(KXImage* image)
{
    const std::unique_ptr<uint32_t[]> histogram = NewTable<uint32_t>(kBins);
    ForEachImagePixel<Sample>(image, BoundsOf(image), [&](const Sample* pixel, auto, auto) {
        ++histogram[BinOf(LumaUnits(pixel) * 256.0f, kLastBin)];
    });
    return ToneOfHistogram(histogram.get(), int64_t(KXImageGetWidth(image)) * KXImageGetHeight(image));
}

// ---- Black and white points ----

constexpr int32_t kMaxPointPlanes = 3;

// The histogram bin of a sample: 8-bit as it is, 16-bit by its high byte.
template <class Sample> inline int32_t PointBin(Sample sample)
{
    return int32_t(sample) >> (SampleTraits<Sample>::kDepth - 8);
}

struct PointHistograms {
    std::unique_ptr<uint32_t[]> plane[kMaxPointPlanes];
    int64_t counted = 0;
};

// One histogram per colour plane, or one of the rounded mean of the planes when combined. A pixel with an
// alpha of 0 is left out.
template <class Sample, bool Combined> PointHistograms CountPoints(KXImage* image, int32_t histogramCount)
{
    PointHistograms histograms;
    for (int32_t p = 0; p < histogramCount; ++p)
        histograms.plane[p] = NewTable<uint32_t>(kBins);
    ForEachImagePixel<Sample>(image, BoundsOf(image), [&](const Sample* pixel, auto planes, auto colourPlanes) {
        if (planes > colourPlanes && pixel[colourPlanes] == Sample(0))
            return;
        if constexpr (Combined) {
            int32_t sum = 0;
            for (int32_t c = 0; c < colourPlanes; ++c)
                sum += PointBin(pixel[c]);
            ++histograms.plane[0][int32_t(float(sum) / float(colourPlanes) + 0.5f) & 0xFF];
        } else {
            for (int32_t c = 0; c < colourPlanes; ++c)
                ++histograms.plane[c][PointBin(pixel[c])];
        }
        ++histograms.counted;
    });
    return histograms;
}

// The points of every histogram; false for too few pixels or crossed points.
bool FindPoints(const PointHistograms& histograms, int32_t histogramCount, float shadowClip, float highlightClip,
                float* black, float* white)
{
    if (histograms.counted < 1000)
        return false;
    const float counted = float(histograms.counted);
    for (int32_t p = 0; p < histogramCount; ++p) {
        const uint32_t* histogram = histograms.plane[p].get();
        black[p] = float(BinReaching(histogram, int64_t(counted * shadowClip), false)) / 255.0f;
        white[p] = float(BinReaching(histogram, int64_t(counted * highlightClip), true)) / 255.0f;
        if (!(white[p] > black[p]))
            return false;
    }
    return true;
}

// Levels from b to w: (x - b) / (w - b) limited to 0..1; equal points make a step just above b.
inline float PointsCurveValue(float x, float b, float w)
{
    if (w == b)
        return x > b ? 1.0f : 0.0f;
    return Clamp01((x - b) / (w - b));
}

// v = (s / white - b) / (w - b) x white with the reciprocals hoisted, limited to 0..white; equal points make
// NaN at b, which reads 0 as in the curve. The store rounds half away from zero.
template <class Sample>
void ApplyPointsKernel(KXImage* source, KXImage* destination, const CEffectRect& rect, const float* black,
                       const float* white)
{
    float inverse[kMaxPointPlanes];
    for (int32_t p = 0; p < LayoutOf(destination).colourPlanes; ++p)
        inverse[p] = 1.0f / (white[p] - black[p]);
    ForEachPixel<Sample>(source, destination, rect, [&](const Sample* in, Sample* out, auto colourPlanes) {
        for (int32_t c = 0; c < colourPlanes; ++c) {
            const float v = (ToUnit(in[c]) - black[c]) * inverse[c] * kWhite<Sample>;
            out[c] = FromRaw<Sample>(v > 0.0f ? std::min(v, kWhite<Sample>) : 0.0f);
        }
    });
}

// ---- Equalizers ----

// trunc(s / white x 0.999999 x bins): the factor keeps white inside the last bin.
inline int32_t EqualizeBin(float unit, int32_t bins)
{
    return BinOf(unit * 0.999999f * float(bins), bins - 1);
}

// gain[0] = 0, gain[i] = (counts through bin i) x k / i: the equalized level of bin i as a factor on its samples.
std::unique_ptr<float[]> GainTable(const uint32_t* counts, int32_t bins, float k)
{
    std::unique_ptr<float[]> gains = NewTable<float>(size_t(bins));
    int64_t sum = counts[0];
    for (int32_t i = 1; i < bins; ++i) {
        sum += counts[i];
        gains[i] = float(sum) * k / float(i);
    }
    return gains;
}

// The gains of one histogram of all colour samples of the image, K = 255 / (pixels x planes).
template <class Sample> std::unique_ptr<float[]> EqualizeGains(KXImage* image)
{
    const std::unique_ptr<uint32_t[]> counts = NewTable<uint32_t>(kBins);
    ForEachImagePixel<Sample>(image, BoundsOf(image), [&](const Sample* pixel, auto, auto colourPlanes) {
        for (int32_t c = 0; c < colourPlanes; ++c)
            ++counts[EqualizeBin(ToUnit(pixel[c]), kBins)];
    });
    const int64_t samples = int64_t(KXImageGetWidth(image)) * KXImageGetHeight(image) * LayoutOf(image).colourPlanes;
    return GainTable(counts.get(), kBins, 255.0f / float(samples));
}

// out = s x gain[bin(s)]: the product keeps a 16-bit sample's place inside its bin. Float is not clamped; an
// integer sample high in a low bin can pass white, and stays white.
template <class Sample> void EqualizeKernel(KXImage* source, KXImage* destination, const float* gains)
{
    ForEachPixel<Sample>(source, destination, BoundsOf(destination),
                         [gains](const Sample* in, Sample* out, auto colourPlanes) {
                             for (int32_t c = 0; c < colourPlanes; ++c) {
                                 float v = float(in[c]) * gains[EqualizeBin(ToUnit(in[c]), kBins)];
                                 if constexpr (!kIsFloatSample<Sample>)
                                     v = std::min(v, kWhite<Sample>);
                                 out[c] = FromRaw<Sample>(v);
                             }
                         });
}

// Float luma takes 65,536 bins, integer luma 256.
template <class Sample> constexpr int32_t kLumaBins = kIsFloatSample<Sample> ? 65536 : kBins;

// The gains of the luma histogram, K = (bins - 1) / pixels.
template <class Sample> std::unique_ptr<float[]> LumaGains(KXImage* image)
{
    constexpr int32_t bins = kLumaBins<Sample>;
    const std::unique_ptr<uint32_t[]> counts = NewTable<uint32_t>(bins);
    ForEachImagePixel<Sample>(image, BoundsOf(image),
                              [&](const Sample* pixel, auto, auto) { ++counts[EqualizeBin(LumaUnits(pixel), bins)]; });
    const int64_t pixels = int64_t(KXImageGetWidth(image)) * KXImageGetHeight(image);
    return GainTable(counts.get(), bins, float(bins - 1) / float(pixels));
}

// All three planes of a pixel take the gain of its luma, so hues stay; clamped to 0..white.
template <class Sample> void EqualizeLuminosityKernel(KXImage* source, KXImage* destination, const float* gains)
{
    ForEachPixel<Sample>(source, destination, BoundsOf(destination), [gains](const Sample* in, Sample* out, auto) {
        const float gain = gains[EqualizeBin(LumaUnits(in), kLumaBins<Sample>)];
        for (int32_t c = 0; c < 3; ++c)
            out[c] = FromRaw<Sample>(ClampToWhite<Sample>(float(in[c]) * gain));
    });
}

// The equalizers know depths 8, 16 and 32 only, and say so with kKXErrBadImageFormat.
template <class Fn> int32_t DispatchEqualizerDepth(KXImage* image, Fn&& fn)
{
    const int32_t depth = KXImageGetDepth(image);
    if (depth != 8 && depth != 16 && depth != 32)
        return kKXErrBadImageFormat;
    return DispatchDepth(depth, fn);
}

} // namespace

// ---- Entry points ----

int32_t KXEffectsAnalyzeImage(KXImage* image, const KXRect* rect, float* means, float* deviations)
{
    if (!image || !rect || !means || !deviations)
        return kKXErrBadParam;
    const int32_t colourPlanes = LayoutOf(image).colourPlanes;
    if (colourPlanes != 1 && colourPlanes != 3)
        return kKXErrUnsupported;
    // Only pixels of the image count: a rectangle reaching past it is cut to it.
    const KXRect bounds = KXImageGetBounds(image);
    const CEffectRect inside = CEffectRect::FromKXRect(KXRectIntersect(rect, &bounds));
    return DispatchPlaneBytes(KXImageGetPlaneBytes(image), [&](auto tag) {
        using Sample = typename decltype(tag)::Type;
        FinishStatistics(SumPlanes<Sample>(image, inside), colourPlanes == 3 ? 4 : 1,
                         double(SampleTraits<Sample>::kReciprocal), means, deviations);
        return int32_t(kKXNoErr);
    });
}

int32_t KXEffectsAutoColorMakeCurves(KXImage* image, float* curves)
{
    if (!image || !curves)
        return kKXErrBadParam;
    if (KXImageGetWidth(image) < 16 || KXImageGetHeight(image) < 16)
        return kKXErrBadParam;
    if (!IsRGB(image))
        return kKXErrUnsupported;
    return DispatchPlaneBytes(KXImageGetPlaneBytes(image), [&](auto tag) {
        const Levels levels = AutoColorLevels<typename decltype(tag)::Type>(image, kAutoColorSettings);
        for (int32_t c = 0; c < 3; ++c)
            LevelsCurve(levels[c], curves + c * kCurveEntries);
        return int32_t(kKXNoErr);
    });
}

int32_t KXEffectsAutoColorTemperatureAndTint(KXImage* image, float* temperature, float* tint)
{
    if (!image || !temperature || !tint)
        return kKXErrBadParam;
    *temperature = 0.0f;
    *tint = 0.0f;
    float curves[3 * kCurveEntries];
    const int32_t status = KXEffectsAutoColorMakeCurves(image, curves);
    if (status != kKXNoErr)
        return status;
    return KXEffectsTemperatureAndTintForCurves(curves, temperature, tint);
}

int32_t KXEffectsAutoTone(KXImage* image, float* black, float* white, float* brightness, float* contrast,
                          float* shadows, float* highlights)
{
    if (!image || !black || !white || !brightness || !contrast || !shadows || !highlights)
        return kKXErrBadParam;
    ToneSettings settings = kNeutralTone;
    const auto publish = [&] {
        std::copy(settings.black, settings.black + 3, black);
        std::copy(settings.white, settings.white + 3, white);
        *brightness = settings.brightness, *contrast = settings.contrast;
        *shadows = settings.shadows, *highlights = settings.highlights;
    };
    publish();
    if (!IsRGB(image))
        return kKXErrUnsupported;
    const int32_t status = DispatchPlaneBytes(KXImageGetPlaneBytes(image), [&](auto tag) {
        settings = AutoToneOf<typename decltype(tag)::Type>(image);
        return int32_t(kKXNoErr);
    });
    publish();
    return status;
}

int32_t KXEffectsBlackAndWhitePointsGetPoints(KXImage* image, float* black, float* white, float shadowClip,
                                              float highlightClip, bool combined)
{
    if (!image || !black || !white)
        return kKXErrBadParam;
    const int32_t colourPlanes = LayoutOf(image).colourPlanes;
    if (colourPlanes > kMaxPointPlanes)
        return kKXErrUnsupported;
    const int32_t histogramCount = combined ? 1 : colourPlanes;
    return DispatchIntegerDepth(image, [&](auto tag) {
        using Sample = typename decltype(tag)::Type;
        const PointHistograms histograms = combined ? CountPoints<Sample, true>(image, histogramCount)
                                                    : CountPoints<Sample, false>(image, histogramCount);
        const bool found = FindPoints(histograms, histogramCount, shadowClip, highlightClip, black, white);
        for (int32_t p = histogramCount; p < colourPlanes; ++p) {
            black[p] = black[0];
            white[p] = white[0];
        }
        if (found)
            return int32_t(kKXNoErr);
        std::fill(black, black + colourPlanes, 0.0f);
        std::fill(white, white + colourPlanes, 1.0f);
        return int32_t(kKXErrBadInput);
    });
}

int32_t KXEffectsBlackAndWhitePointsMakeCurves(int32_t numChannels, float* curves, const float* black,
                                               const float* white)
{
    if (numChannels < 1)
        return kKXNoErr;
    if (!curves || !black || !white)
        return kKXErrBadParam;
    for (int32_t c = 0; c < numChannels; ++c)
        for (int32_t i = 0; i < kCurveEntries; ++i)
            curves[c * kCurveEntries + i] = PointsCurveValue(float(i) / 255.0f, black[c], white[c]);
    return kKXNoErr;
}

int32_t KXEffectsBlackAndWhitePointsApply(KXImage* source, KXImage* destination, const KXRect* rect, const float* black,
                                          const float* white)
{
    if (!source || !destination || !rect || !black || !white)
        return kKXErrBadParam;
    // The pixel loop walks the destination's colour planes, one point of each array apiece.
    if (LayoutOf(destination).colourPlanes > kMaxPointPlanes)
        return kKXErrUnsupported;
    const CEffectRect effectRect = CEffectRect::FromKXRect(*rect);
    return DispatchIntegerDepth(source, [&](auto tag) {
        ApplyPointsKernel<typename decltype(tag)::Type>(source, destination, effectRect, black, white);
        return int32_t(kKXNoErr);
    });
}

int32_t KXEffectsEqualize(KXImage* source, KXImage* destination)
{
    if (!source || !destination)
        return kKXErrBadParam;
    return DispatchEqualizerDepth(source, [&](auto tag) {
        using Sample = typename decltype(tag)::Type;
        EqualizeKernel<Sample>(source, destination, EqualizeGains<Sample>(source).get());
        return int32_t(kKXNoErr);
    });
}

int32_t KXEffectsEqualizeLuminosity(KXImage* source, KXImage* destination)
{
    if (!source || !destination)
        return kKXErrBadParam;
    const int32_t space = KXImageGetColorSpaceType(source);
    if (space == KXColorSpaceGray)
        return KXEffectsEqualize(source, destination);
    if (space != KXColorSpaceRGB || LayoutOf(source).colourPlanes != 3 || LayoutOf(destination).colourPlanes != 3)
        return kKXErrBadImageFormat;
    return DispatchEqualizerDepth(source, [&](auto tag) {
        using Sample = typename decltype(tag)::Type;
        EqualizeLuminosityKernel<Sample>(source, destination, LumaGains<Sample>(source).get());
        return int32_t(kKXNoErr);
    });
}

int32_t KXEffectsEqualizeMakeCurves(KXImage* image, float* curves)
{
    if (!image || !curves)
        return kKXErrBadParam;
    return DispatchEqualizerDepth(image, [&](auto tag) {
        const std::unique_ptr<float[]> gains = EqualizeGains<typename decltype(tag)::Type>(image);
        FillCurveChannels(LayoutOf(image).colourPlanes, curves,
                          [&](int32_t i) { return float(i) * gains[i] / 255.0f; });
        return int32_t(kKXNoErr);
    });
}
