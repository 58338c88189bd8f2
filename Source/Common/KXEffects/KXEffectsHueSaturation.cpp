// The hue-domain tools: hue, saturation and brightness or lightness, the eight-hue colour tuner, colorize,
// the channel mixer and purity. All walk between RGB and one hexagonal hue the same way.
#include "KXEffectsColorMath.h"
#include "KXEffectsEntry.h"
#include "KXEffectsRowLoop.h"
#include "KXEffectsToneCurves.h"
#include "KXEffectsWhiteBalance.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr const char* kSourceFile = "Source/Common/KXEffects/KXEffectsHueSaturation";

// ---- Formulas ----

// The hue wrapped into 0..1 and placed on the hexagon between high and low.
inline void HexagonToRGB(float hue, float high, float low, float* rgb)
{
    HexconeToRGB(hue - std::floor(hue), high, low, rgb);
}

// ---- Hue, saturation, brightness or lightness ----

// The kernel that does no more than the settings need: a zero hue never takes the hexagon.
template <class Sample>
void HueSaturationBrightnessKernel(KXImage* source, KXImage* destination, const CEffectRect& rect, float hue,
                                   float saturation, float brightness)
{
    const BrightnessShaper curve(brightness);
    if (hue != 0.0f) {
        ForEachColour<Sample>(source, destination, rect, [&](float* rgb) {
            float hsv[3];
            KXEffectsRGBToHSV(rgb, hsv);
            const float shifted = hsv[0] + hue;
            const float value = curve(hsv[2]);
            const float newSaturation = std::min(hsv[1] * (1.0f + saturation), 1.0f);
            HexagonToRGB(shifted - std::floor(shifted), value, (1.0f - newSaturation) * value, rgb);
        });
    } else if (saturation == 0.0f) {
        ForEachColour<Sample>(source, destination, rect, [&](float* rgb) {
            const float largest = std::max({rgb[0], rgb[1], rgb[2]});
            if (!(largest > 0.0f))
                return;
            const float scale = std::min(1.0f / largest, curve(largest) / largest);
            for (int32_t c = 0; c < 3; ++c)
                rgb[c] *= scale;
        });
    } else if (brightness == 0.0f) {
        ForEachColour<Sample>(source, destination, rect, [&](float* rgb) { KXEffectsSaturatePixel(rgb, saturation); });
    } else {
        ForEachColour<Sample>(source, destination, rect,
                              [&](float* rgb) { KXEffectsSaturateAndLighten(rgb, saturation, brightness); });
    }
}

template <class Sample>
void HueSaturationLightnessKernel(KXImage* source, KXImage* destination, const CEffectRect& rect, float hue,
                                  float saturation, float lightness)
{
    const BrightnessShaper curve(lightness);
    ForEachColour<Sample>(source, destination, rect, [&](float* rgb) {
        float hsl[3];
        KXEffectsRGBToHSL(rgb, hsl);
        const float shifted = hsl[0] + hue;
        hsl[0] = shifted - std::floor(shifted);
        hsl[1] = std::min(hsl[1] * (1.0f + saturation), 1.0f);
        hsl[2] = curve(hsl[2]);
        KXEffectsHSLToRGB(hsl, rgb);
    });
}

// The common frame: RGB only, all settings 0 copies.
template <class Kernel>
int32_t HueFrame(KXImage* source, KXImage* destination, const KXRect* rect, float hue, float saturation, float third,
                 Kernel&& kernel)
{
    return EntryPoint(source, destination, rect)
        .RGBOnly()
        .Finite(hue, saturation, third)
        .NeutralWhen(hue == 0.0f && saturation == 0.0f && third == 0.0f)
        .Run(kernel);
}

// ---- Colour tuner ----

constexpr int32_t kAnchors = 8;
constexpr int32_t kMaster = 8;
constexpr int32_t kTableEntries = 9;

// The eight tuned hues in turns, ascending; the last gap wraps through 1 to the first.
constexpr float kTuneColorAnchors[kAnchors] = {0.09215686f, 0.14117648f, 0.30980393f, 0.47843137f,
                                               0.55490196f, 0.81764704f, 0.89019608f, 0.94313723f};
constexpr float kAnchorGaps[kAnchors] = {0.04901961f, 0.16862746f, 0.16862744f, 0.07647058f,
                                         0.26274508f, 0.07254905f, 0.05294114f, 0.14901965f};
constexpr float kReciprocalGaps[kAnchors] = {20.399998f, 5.9302325f, 5.930233f, 13.076924f,
                                             3.8059704f, 13.783779f, 18.8889f,  6.7105241f};

struct TunerTables {
    float hueShifts[kTableEntries];
    float saturationGains[kTableEntries];
    float brightnessGains[kTableEntries];
    float reciprocalGaps[kAnchors];
    bool temperatureOn, hueOn, masterOn;
};

// Between the anchors q and p = q + 1 that enclose the hue, weighted by w, the distance from q in gaps.
// Saturation moves with the anchors' gains; value keeps the pixel's lightness and takes a brightness
// change weighted by the old saturation, so grays stay put.
inline void TuneHue(const TunerTables& tables, float& hue, float& saturation, float& value)
{
    int32_t p = 0;
    while (p < kAnchors && kTuneColorAnchors[p] <= hue)
        ++p;
    p %= kAnchors;
    const int32_t q = (p + kAnchors - 1) % kAnchors;
    float d = hue - kTuneColorAnchors[q];
    if (d < 0.0f)
        d += 1.0f;
    const float w = d * tables.reciprocalGaps[q];
    hue += w * tables.hueShifts[p] + (1.0f - w) * tables.hueShifts[q];
    const float s = saturation;
    const float newSaturation =
        Clamp01(s * (1.0f + (1.0f - w) * tables.saturationGains[q] + w * tables.saturationGains[p]));
    value = Clamp01((1.0f + s * (1.0f - w) * tables.brightnessGains[q] + s * w * tables.brightnessGains[p]) *
                    (value * 2.0f - s * value) / (2.0f - newSaturation));
    saturation = newSaturation;
}

// The master works on the tuned result, with the same lightness-keeping factor.
inline void TuneMaster(const TunerTables& tables, float& hue, float& saturation, float& value)
{
    hue += tables.hueShifts[kMaster];
    const float s = saturation;
    const float newSaturation = Clamp01(tables.saturationGains[kMaster] * s);
    value = Clamp01(tables.brightnessGains[kMaster] * (value * 2.0f - s * value) / (2.0f - newSaturation));
    saturation = newSaturation;
}

template <class Sample>
void TuneColorsKernel(KXImage* source, KXImage* destination, const CEffectRect& rect, float temperature, float tint,
                      const TunerTables& tables)
{
    ForEachColour<Sample>(source, destination, rect, [&](float* rgb) {
        if (tables.temperatureOn)
            TemperatureTintPixel(rgb, temperature, tint);
        if (!tables.hueOn && !tables.masterOn)
            return;
        float hsv[3];
        KXEffectsRGBToHSV(rgb, hsv);
        if (tables.hueOn && hsv[1] > 0.0f)
            TuneHue(tables, hsv[0], hsv[1], hsv[2]);
        if (tables.masterOn)
            TuneMaster(tables, hsv[0], hsv[1], hsv[2]);
        HexagonToRGB(hsv[0], hsv[2], (1.0f - hsv[1]) * hsv[2], rgb);
    });
}

bool AnyNonZero(const float* values, int32_t first, int32_t last)
{
    return std::any_of(values + first, values + last, [](float v) { return v != 0.0f; });
}

// The switches of a call and its tables; all switches off is the neutral tuning.
TunerTables TunerTablesOf(float temperature, float tint, const float* hues, const float* saturations,
                          const float* brightnesses)
{
    TunerTables tables;
    tables.temperatureOn = temperature != 0.0f || tint != 0.0f;
    tables.hueOn = AnyNonZero(hues, 0, kAnchors) || AnyNonZero(saturations, 0, kAnchors) ||
                   AnyNonZero(brightnesses, 0, kAnchors);
    tables.masterOn = hues[kMaster] != 0.0f || saturations[kMaster] != 0.0f || brightnesses[kMaster] != 0.0f;
    KXEffectsTuneColorsGetHueTables(hues, saturations, brightnesses, tables.hueShifts, tables.saturationGains,
                                    tables.brightnessGains, tables.reciprocalGaps);
    return tables;
}

// ---- Colorize ----

// The sector of a hue, fixed for the whole image: the dominant plane takes high, its neighbour rises from
// low by f, as in the hexagonal back conversion.
struct HueSector {
    int32_t dominant, next, other;
    float f;

    explicit HueSector(float hue)
    {
        const int32_t k = (TruncateToInt32(hue * 6.0f) + 1) >> 1;
        f = hue * 6.0f - float(2 * k);
        dominant = (k % 3 + 3) % 3; // a hue below 0 still names a plane
        next = (dominant + 1) % 3;
        other = 3 - next - dominant;
    }
    void Place(float high, float low, float* rgb) const
    {
        const float t = (high - low) * f;
        rgb[dominant] = high;
        if (f < 0.0f) {
            rgb[next] = low;
            rgb[other] = low - t;
        } else {
            rgb[next] = t + low;
            rgb[other] = low;
        }
    }
};

// Colorize alone logs what it refuses: a colour space other than RGB, or a plane size without a kernel.
bool ColorizeAccepts(KXImage* source, int32_t line)
{
    if (IsRGB(source) && HasSampleKernel(source))
        return true;
    KXLogEvent(kKXErrUnsupported, kSourceFile, line);
    return false;
}

// ---- Channel mixer ----

struct MixerRow {
    float red, green, blue;
};

// Each term is clamped to -1..1 on its own, then the sum to 0..1.
inline float MixPlane(const MixerRow& row, float r, float g, float b)
{
    const float t1 = std::clamp(r * row.red, -1.0f, 1.0f);
    const float t2 = std::clamp(g * row.green, -1.0f, 1.0f);
    const float t3 = std::clamp(b * row.blue, -1.0f, 1.0f);
    return std::clamp(t1 + t2 + t3, 0.0f, 1.0f);
}

} // namespace

// ---- Entry points ----

int32_t KXEffectsHueSaturationBrightness(KXImage* source, KXImage* destination, const KXRect* rect, float hue,
                                         float saturation, float brightness)
{
    return HueFrame(source, destination, rect, hue, saturation, brightness,
                    [&]<class Sample>(SampleTag<Sample>, const CEffectRect& effectRect) {
                        HueSaturationBrightnessKernel<Sample>(source, destination, effectRect, hue, saturation,
                                                              brightness);
                    });
}

int32_t KXEffectsHueSaturationLightness(KXImage* source, KXImage* destination, const KXRect* rect, float hue,
                                        float saturation, float lightness)
{
    return HueFrame(source, destination, rect, hue, saturation, lightness,
                    [&]<class Sample>(SampleTag<Sample>, const CEffectRect& effectRect) {
                        HueSaturationLightnessKernel<Sample>(source, destination, effectRect, hue, saturation,
                                                             lightness);
                    });
}

const float* KXEffectsTuneColorsGetHueTables(const float* hues, const float* saturations, const float* brightnesses,
                                             float* hueShifts, float* saturationGains, float* brightnessGains,
                                             float* reciprocalGaps)
{
    if (!hues || !saturations || !brightnesses || !hueShifts || !saturationGains || !brightnessGains || !reciprocalGaps)
        return nullptr;
    for (int32_t slot = 0; slot < kAnchors; ++slot) {
        const int32_t index = (slot + 1) % kAnchors;
        saturationGains[slot] = saturations[index];
        brightnessGains[slot] = brightnesses[index];
        // 1 moves the anchor onto the next one, -1 onto the one before.
        hueShifts[slot] =
            hues[index] * (hues[index] >= 0.0f ? kAnchorGaps[slot] : kAnchorGaps[(slot + kAnchors - 1) % kAnchors]);
        reciprocalGaps[slot] = kReciprocalGaps[slot];
    }
    saturationGains[kMaster] = saturations[kMaster] + 1.0f;
    brightnessGains[kMaster] = brightnesses[kMaster] + 1.0f;
    hueShifts[kMaster] = hues[kMaster] * 0.5f;
    return kTuneColorAnchors;
}

int32_t KXEffectsTuneColors(KXImage* source, KXImage* destination, const KXRect* rect, float temperature, float tint,
                            const float* hues, const float* saturations, const float* brightnesses)
{
    const auto tables = [&] { return TunerTablesOf(temperature, tint, hues, saturations, brightnesses); };
    return EntryPoint(source, destination, rect)
        .Requires(hues, saturations, brightnesses)
        .RGBOnly()
        .Finite(temperature, tint)
        .NeutralWhen([&] {
            const TunerTables switches = tables();
            return !switches.temperatureOn && !switches.hueOn && !switches.masterOn;
        })
        .Run([&]<class Sample>(SampleTag<Sample>, const CEffectRect& effectRect) {
            TuneColorsKernel<Sample>(source, destination, effectRect, temperature, tint, tables());
        });
}

int32_t KXEffectsColorize(KXImage* source, KXImage* destination, const KXRect* rect, float hue, float saturation,
                          float lightness)
{
    const float lightnessScale = 1.0f - std::fabs(lightness), lightnessLift = std::max(lightness, 0.0f);
    return EntryPoint(source, destination, rect)
        .Require([&] { return ColorizeAccepts(source, __LINE__); }, kKXErrUnsupported)
        .Finite(hue, saturation, lightness)
        .Run([&]<class Sample>(SampleTag<Sample>, const CEffectRect& effectRect) {
            const HueSector sector(hue);
            ForEachColour<Sample>(source, destination, effectRect, [&](float* rgb) {
                const float l = (std::min({rgb[0], rgb[1], rgb[2]}) + std::max({rgb[0], rgb[1], rgb[2]})) * 0.5f;
                const float remapped = l * lightnessScale + lightnessLift;
                const float low = remapped - (1.0f - std::fabs(2.0f * remapped - 1.0f)) * 0.5f * saturation;
                sector.Place(2.0f * remapped - low, low, rgb);
            });
        });
}

int32_t KXEffectsChannelMixer(KXImage* source, KXImage* destination, const KXRect* rect, float redRed, float redGreen,
                              float redBlue, float greenRed, float greenGreen, float greenBlue)
{
    const MixerRow rows[2] = {{redRed, redGreen, redBlue}, {greenRed, greenGreen, greenBlue}};
    // The third plane and beyond take fixed terms, not products: they come out white.
    const float fixedPlane = std::clamp(0.30f + 0.59f + 0.11f, 0.0f, 1.0f);
    // The mix reads the first three samples of a pixel, which only an RGB pixel has.
    return EntryPoint(source, destination, rect)
        .Require([&] { return HasThreeColourPlanes(source); }, kKXErrUnsupported)
        .Run([&]<class Sample>(SampleTag<Sample>, const CEffectRect& effectRect) {
            ForEachPixel<Sample>(source, destination, effectRect,
                                 [&](const Sample* in, Sample* out, auto colourPlanes) {
                                     const float r = ToUnit(in[0]), g = ToUnit(in[1]), b = ToUnit(in[2]);
                                     out[0] = FromUnit<Sample>(MixPlane(rows[0], r, g, b));
                                     out[1] = FromUnit<Sample>(MixPlane(rows[1], r, g, b));
                                     for (int32_t c = 2; c < colourPlanes; ++c)
                                         out[c] = FromUnit<Sample>(fixedPlane);
                                 });
        });
}

int32_t KXEffectsPurity(KXImage* source, KXImage* destination, const KXRect* rect, float shadows, float highlights)
{
    // A width of 0 gives a very narrow band rather than a division by zero.
    const float darkRate = shadows > 0.0f ? 1.0f / shadows : 6.5535e6f;
    const float lightRate = highlights > 0.0f ? 1.0f / highlights : 6.5535e6f;
    return EntryPoint(source, destination, rect)
        .RGBOnly()
        .RGBOnly(destination)
        .NeutralWhen(!(shadows > 0.0f) && !(highlights > 0.0f))
        .Run([&]<class Sample>(SampleTag<Sample>, const CEffectRect& effectRect) {
            ForEachColour<Sample>(source, destination, effectRect, [&](float* rgb) {
                const float y = Luma(rgb);
                const float dark = std::max(1.0f - y * darkRate, 0.0f);
                const float light = std::max(1.0f - (1.0f - y) * lightRate, 0.0f);
                const float w = dark + light;
                for (int32_t c = 0; c < 3; ++c)
                    rgb[c] = (1.0f - w) * rgb[c] + w * y;
            });
        });
}

int32_t KXEffectsProtectColors(KXImage* reference, KXImage* adjusted, KXImage* result, const KXRect* rect,
                               float shadows, float highlights, float skin, int32_t skinTable)
{
    return EntryPoint(adjusted, result, rect)
        .Requires(reference)
        .NeutralWhen(!(shadows > 0.0f) && !(highlights > 0.0f) && !(skin > 0.0f))
        .Catching(kSourceFile, __LINE__)
        .Compose([&](const CEffectRect&) {
            // The mask starts white and the protections narrow it: where it falls, the reference shows through.
            CImageRef mask;
            KX_THROW_IF_ERROR(
                KXImageCreateWithParams2(rect, 8, 1, KXColorSpaceGray, 0, KXDataSourceMemory, mask.Out()));
            const float white = 1.0f;
            KX_THROW_IF_ERROR(KXEffectsFillColor(mask, rect, &white));
            if (shadows > 0.0f || highlights > 0.0f)
                KX_THROW_IF_ERROR(KXEffectsSelectLuminosity(reference, mask, rect, shadows, 1.0f - highlights, 1.0f));
            if (skin > 0.0f)
                KX_THROW_IF_ERROR(KXEffectsSelectFleshColors(reference, mask, rect, skinTable, 1.0f, skin, true));
            KX_THROW_IF_ERROR(KXEffectsBlendImagesWithOpacitiesAndMasks(adjusted, 1.0f, mask, reference, 1.0f, nullptr,
                                                                        result, rect, FourCharCode("norm")));
        });
}
