// The auto tone: black and white clips of the luma histogram, then brightness, contrast, shadows and highlights
// found by walking the tone model over its bins. Its clips and targets are the library's judgement of a photograph.
#include "KXEffectsHistogram.h"
#include "KXEffectsToneCurves.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <memory>
#include <optional>

namespace {

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

} // namespace

// ---- Entry points ----

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
    if (!IsRGBOfThreeColourPlanes(image))
        return kKXErrUnsupported;
    const int32_t status = DispatchPlaneBytes(KXImageGetPlaneBytes(image), [&](auto tag) {
        settings = AutoToneOf<typename decltype(tag)::Type>(image);
        return int32_t(kKXNoErr);
    });
    publish();
    return status;
}
