// The auto colour: levels per channel that take the near-gray pixels of an RGB image to gray, given as curves
// or as the nearest temperature and tint. Its clip and neutrality are the library's judgement of a photograph.
#include "KXEffectsHistogram.h"
#include "KXEffectsToneCurves.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>

namespace {

// ---- Formulas ----

// A sample in 8-bit units, 0..255.
template <class Sample> inline float ByteUnits(Sample sample)
{
    return float(sample) * (255.0f / kWhite<Sample>);
}

// Sum of squared distances of the planes from their mean: small for a near-neutral colour.
inline float NeutralVariance(const float* rgb)
{
    const float mean = (rgb[0] + rgb[1] + rgb[2]) * 0.33333334f;
    const float r = rgb[0] - mean, g = rgb[1] - mean, b = rgb[2] - mean;
    return r * r + g * g + b * b;
}

// ---- Levels ----

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

} // namespace

// ---- Entry points ----

int32_t KXEffectsAutoColorMakeCurves(KXImage* image, float* curves)
{
    if (!image || !curves)
        return kKXErrBadParam;
    if (KXImageGetWidth(image) < 16 || KXImageGetHeight(image) < 16)
        return kKXErrBadParam;
    if (!IsRGBOfThreeColourPlanes(image))
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
