// Temperature, tint, saturation and vibrance as pixel effects; the searches that find temperature and tint
// from a gray, from curves or from an illuminant preset; the toner.
#include "KXEffectsWhiteBalance.h"
#include "KXEffectsColorMath.h"
#include "KXEffectsEntry.h"
#include "KXEffectsRowLoop.h"
#include "KXEffectsToneCurves.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace {

constexpr const char* kSourceFile = "Source/Common/KXEffects/KXEffectsWhiteBalance";

// ---- Pixel effects ----

struct ColourSettings {
    float temperature;
    float tint;
    float saturation;
    float vibrance;
};

// The four kernels of a depth differ only in whether saturation and vibrance run.
template <class Sample, bool Saturate, bool Vibrance, bool Temperature = true>
void ColourKernel(KXImage* source, KXImage* destination, const CEffectRect& rect, const ColourSettings& settings)
{
    ForEachColour<Sample>(source, destination, rect, [&settings](float* rgb) {
        if constexpr (Temperature)
            TemperatureTintPixel(rgb, settings.temperature, settings.tint);
        if constexpr (Saturate)
            KXEffectsSaturatePixel(rgb, settings.saturation);
        if constexpr (Vibrance)
            KXEffectsVibrancePixel(rgb, settings.vibrance);
    });
}

// Picks the kernel for which of saturation and vibrance are exactly 0, saturation first.
template <class Sample>
void ApplyColourSettings(KXImage* source, KXImage* destination, const CEffectRect& rect, const ColourSettings& settings)
{
    if (settings.saturation == 0.0f) {
        if (settings.vibrance == 0.0f)
            ColourKernel<Sample, false, false>(source, destination, rect, settings);
        else
            ColourKernel<Sample, false, true>(source, destination, rect, settings);
    } else if (settings.vibrance == 0.0f) {
        ColourKernel<Sample, true, false>(source, destination, rect, settings);
    } else {
        ColourKernel<Sample, true, true>(source, destination, rect, settings);
    }
}

int32_t TemperatureDriver(KXImage* source, KXImage* destination, const KXRect* rect, const ColourSettings& settings)
{
    return EntryPoint(source, destination, rect)
        .RGBOnly()
        .Finite(settings.temperature, settings.tint, settings.vibrance, settings.saturation)
        .NeutralWhen(settings.temperature == 0.0f && settings.tint == 0.0f && settings.vibrance == 0.0f &&
                     settings.saturation == 0.0f)
        .Run([&]<class Sample>(SampleTag<Sample>, const CEffectRect& effectRect) {
            ApplyColourSettings<Sample>(source, destination, effectRect, settings);
        });
}

// ---- Searches ----

// Sum of squared distances of the planes from their mean: 0 for a neutral colour.
float NeutralityScore(const float* rgb)
{
    const float mean = (rgb[0] + rgb[1] + rgb[2]) * 0.33333334f;
    const float r = rgb[0] - mean, g = rgb[1] - mean, b = rgb[2] - mean;
    return r * r + g * g + b * b;
}

bool HasColour(const float* rgb)
{
    return std::max({rgb[0], rgb[1], rgb[2]}) > std::min({rgb[0], rgb[1], rgb[2]});
}

// x in hundredths, halves away from zero, within the search's -1..1, so that the scan stays 201 x 201.
int32_t Hundredths(float x)
{
    const float scaled = std::clamp(x, -1.0f, 1.0f) * 100.0f;
    return int32_t(scaled >= 0.0f ? scaled + 0.5f : scaled - 0.5f);
}

float Distance(const float* a, const float* b)
{
    const float r = a[0] - b[0], g = a[1] - b[1], bl = a[2] - b[2];
    return std::sqrt(r * r + g * g + bl * bl);
}

float Magnitude(const float* rgb)
{
    return std::sqrt(rgb[0] * rgb[0] + rgb[1] * rgb[1] + rgb[2] * rgb[2]);
}

constexpr int32_t kPatches = 24;
using PatchRow = float[kPatches][3];

// A 24-patch colour target: row 0 the reference rendering, rows 1..5 under the illuminants of presets 3..7,
// in the ProPhoto working space.
constexpr float kWhiteBalancePatches[6][kPatches][3] = {
    {{0.4080f, 0.3336f, 0.2591f}, {0.7574f, 0.5710f, 0.2796f}, {0.2409f, 0.2375f, 0.5269f},
     {0.9208f, 0.9201f, 0.9027f}, {0.7728f, 0.6815f, 0.5802f}, {0.3748f, 0.3909f, 0.6663f},
     {0.4580f, 0.6083f, 0.3445f}, {0.8266f, 0.8285f, 0.8051f}, {0.5089f, 0.5499f, 0.6717f},
     {0.6952f, 0.4311f, 0.3835f}, {0.6203f, 0.3018f, 0.2361f}, {0.6829f, 0.6844f, 0.6588f},
     {0.3803f, 0.4245f, 0.2680f}, {0.3016f, 0.2229f, 0.3386f}, {0.8649f, 0.8223f, 0.3847f},
     {0.4911f, 0.4977f, 0.4712f}, {0.6147f, 0.5926f, 0.7401f}, {0.7366f, 0.7969f, 0.3866f},
     {0.6954f, 0.4092f, 0.5844f}, {0.2723f, 0.2766f, 0.2609f}, {0.6989f, 0.8072f, 0.7728f},
     {0.8138f, 0.7030f, 0.3172f}, {0.4229f, 0.5697f, 0.7063f}, {0.1211f, 0.1211f, 0.1140f}},
    {{0.4321f, 0.3404f, 0.2464f}, {0.7790f, 0.5730f, 0.2737f}, {0.2438f, 0.2352f, 0.4919f},
     {0.9281f, 0.9160f, 0.8772f}, {0.7924f, 0.6807f, 0.5481f}, {0.3853f, 0.3903f, 0.6323f},
     {0.4806f, 0.6146f, 0.3286f}, {0.8412f, 0.8272f, 0.7754f}, {0.5282f, 0.5525f, 0.6384f},
     {0.7193f, 0.4339f, 0.3640f}, {0.6468f, 0.3063f, 0.2293f}, {0.7049f, 0.6866f, 0.6263f},
     {0.4008f, 0.4302f, 0.2553f}, {0.3112f, 0.2221f, 0.3126f}, {0.8785f, 0.8160f, 0.3790f},
     {0.5141f, 0.5026f, 0.4461f}, {0.6392f, 0.5987f, 0.7080f}, {0.7576f, 0.7996f, 0.3725f},
     {0.7187f, 0.4094f, 0.5469f}, {0.2872f, 0.2806f, 0.2479f}, {0.7194f, 0.8100f, 0.7424f},
     {0.8316f, 0.7016f, 0.3116f}, {0.4411f, 0.5741f, 0.6735f}, {0.1286f, 0.1234f, 0.1080f}},
    {{0.4461f, 0.3456f, 0.2322f}, {0.7907f, 0.5757f, 0.2626f}, {0.2449f, 0.2367f, 0.4649f},
     {0.9314f, 0.9139f, 0.8524f}, {0.8027f, 0.6803f, 0.5138f}, {0.3929f, 0.3961f, 0.6042f},
     {0.4916f, 0.6173f, 0.3083f}, {0.8487f, 0.8271f, 0.7452f}, {0.5401f, 0.5582f, 0.6082f},
     {0.7335f, 0.4403f, 0.3442f}, {0.6633f, 0.3139f, 0.2206f}, {0.7166f, 0.6887f, 0.5922f},
     {0.4112f, 0.4332f, 0.2387f}, {0.3217f, 0.2255f, 0.2962f}, {0.8848f, 0.8121f, 0.3581f},
     {0.5269f, 0.5068f, 0.4190f}, {0.6548f, 0.6065f, 0.6790f}, {0.7671f, 0.8001f, 0.3485f},
     {0.7329f, 0.4173f, 0.5113f}, {0.2959f, 0.2842f, 0.2335f}, {0.7281f, 0.8124f, 0.7123f},
     {0.8406f, 0.7010f, 0.2961f}, {0.4502f, 0.5790f, 0.6447f}, {0.1328f, 0.1252f, 0.1013f}},
    {{0.3203f, 0.3255f, 0.3920f}, {0.6265f, 0.5520f, 0.3622f}, {0.2605f, 0.2874f, 0.7261f},
     {0.8564f, 0.9228f, 0.9848f}, {0.6590f, 0.6808f, 0.7829f}, {0.3658f, 0.4346f, 0.8438f},
     {0.3615f, 0.5844f, 0.5177f}, {0.7359f, 0.8239f, 0.9402f}, {0.4534f, 0.5700f, 0.8493f},
     {0.5688f, 0.4260f, 0.5769f}, {0.4852f, 0.2648f, 0.3182f}, {0.5782f, 0.6809f, 0.8422f},
     {0.2982f, 0.4048f, 0.4002f}, {0.2701f, 0.2488f, 0.5310f}, {0.7542f, 0.8181f, 0.5177f},
     {0.4036f, 0.5031f, 0.6774f}, {0.5531f, 0.6176f, 0.8985f}, {0.6029f, 0.7748f, 0.5619f},
     {0.5536f, 0.4197f, 0.7822f}, {0.2403f, 0.2945f, 0.4200f}, {0.6217f, 0.8004f, 0.9204f},
     {0.6944f, 0.7045f, 0.4084f}, {0.4172f, 0.5936f, 0.8739f}, {0.1071f, 0.1317f, 0.1930f}},
    {{0.3609f, 0.3165f, 0.3366f}, {0.7037f, 0.5571f, 0.3321f}, {0.2473f, 0.2458f, 0.6584f},
     {0.8894f, 0.9081f, 0.9654f}, {0.7241f, 0.6728f, 0.7195f}, {0.3630f, 0.3891f, 0.7871f},
     {0.4061f, 0.5876f, 0.4551f}, {0.7841f, 0.8137f, 0.9020f}, {0.4726f, 0.5364f, 0.7937f},
     {0.6423f, 0.4122f, 0.5044f}, {0.5642f, 0.2688f, 0.2764f}, {0.6342f, 0.6695f, 0.7858f},
     {0.3363f, 0.4057f, 0.3485f}, {0.2902f, 0.2300f, 0.4595f}, {0.8219f, 0.8220f, 0.4682f},
     {0.4521f, 0.4902f, 0.6082f}, {0.5748f, 0.5776f, 0.8500f}, {0.6764f, 0.7790f, 0.5005f},
     {0.6338f, 0.4004f, 0.7171f}, {0.2598f, 0.2809f, 0.3578f}, {0.6550f, 0.7900f, 0.8778f},
     {0.7630f, 0.6902f, 0.3750f}, {0.4155f, 0.5660f, 0.8219f}, {0.1155f, 0.1240f, 0.1619f}},
    {{0.3996f, 0.3333f, 0.2514f}, {0.7486f, 0.5718f, 0.2728f}, {0.2385f, 0.2406f, 0.5149f},
     {0.9173f, 0.9224f, 0.8944f}, {0.7650f, 0.6821f, 0.5652f}, {0.3704f, 0.3954f, 0.6543f},
     {0.4534f, 0.6095f, 0.3341f}, {0.8205f, 0.8307f, 0.7935f}, {0.5023f, 0.5531f, 0.6589f},
     {0.6852f, 0.4322f, 0.3741f}, {0.6092f, 0.3014f, 0.2302f}, {0.6752f, 0.6866f, 0.6449f},
     {0.3748f, 0.4258f, 0.2599f}, {0.2949f, 0.2232f, 0.3289f}, {0.8591f, 0.8255f, 0.3715f},
     {0.4844f, 0.4999f, 0.4598f}, {0.6084f, 0.5961f, 0.7282f}, {0.7307f, 0.7980f, 0.3756f},
     {0.6856f, 0.4123f, 0.5717f}, {0.2684f, 0.2781f, 0.2546f}, {0.6930f, 0.8093f, 0.7604f},
     {0.8064f, 0.7041f, 0.3079f}, {0.4200f, 0.5726f, 0.6939f}, {0.1192f, 0.1219f, 0.1112f}},
};

// Score of a candidate: each reference patch under (t, n), brought to the target patch's magnitude, so
// only its hue counts, then its distance to the target, summed over the patches.
float PatchScore(const PatchRow& reference, const PatchRow& target, const float* magnitudes, float t, float n)
{
    float score = 0.0f;
    for (int32_t i = 0; i < kPatches; ++i) {
        float rgb[3] = {reference[i][0], reference[i][1], reference[i][2]};
        TemperatureTintPixel(rgb, t, n);
        const float scale = magnitudes[i] / Magnitude(rgb);
        for (float& c : rgb)
            c *= scale;
        score += Distance(target[i], rgb);
    }
    return score;
}

// Coarse steps of 0.2 over -4..4, then single hundredths within 0.19 of the coarse best.
void SearchPatches(const PatchRow& reference, const PatchRow& target, float* temperature, float* tint)
{
    float magnitudes[kPatches];
    for (int32_t i = 0; i < kPatches; ++i)
        magnitudes[i] = Magnitude(target[i]);
    float best = 1e10f;
    int32_t bestT = 0, bestN = 0;
    const auto consider = [&](int32_t t, int32_t n) {
        const float score = PatchScore(reference, target, magnitudes, float(t) * 0.01f, float(n) * 0.01f);
        if (score < best) {
            best = score;
            bestT = t;
            bestN = n;
        }
    };
    for (int32_t t = -400; t <= 400; t += 20)
        for (int32_t n = -400; n <= 400; n += 20)
            consider(t, n);
    const int32_t coarseT = bestT, coarseN = bestN;
    for (int32_t t = coarseT - 19; t <= coarseT + 19; ++t)
        for (int32_t n = coarseN - 19; n <= coarseN + 19; ++n)
            consider(t, n);
    *temperature = float(bestT) * 0.01f;
    *tint = float(bestN) * 0.01f;
}

// Both patch rows written to a 16-bit image, converted from the working space to profile in place, and
// read back; throws the failing status of a step.
void ConvertPatchRows(KXColorProfile* profile, const PatchRow* rows[2], PatchRow converted[2])
{
    struct ProfileRef {
        KXColorProfile* profile;
        ~ProfileRef()
        {
            if (profile)
                KXColorProfileRelease(profile);
        }
    } working{KXColorProfileCreateStandard(FourCharCode("prop"))};
    if (!working.profile)
        KX_RAISE(kKXErrNoResource);
    const KXRect bounds = KXRectMake(0, 0, kPatches, 1);
    CImageRef image;
    KX_THROW_IF_ERROR(KXImageCreateWithParams2(&bounds, 16, 3, KXColorSpaceRGB, 0, 1, image.Out()));
    for (int32_t row = 0; row < 2; ++row) {
        uint16_t samples[kPatches * 3];
        for (int32_t i = 0; i < kPatches * 3; ++i)
            samples[i] = uint16_t(int32_t((*rows[row])[i / 3][i % 3] * 65535.0f + 0.5f));
        KX_THROW_IF_ERROR(KXImageWrite2(image, &bounds, 0, 2, samples, 0, 0));
        KX_THROW_IF_ERROR(KXColorProfileConvertProfile(working.profile, profile, image, image, &bounds, 0));
        const auto* pixels = static_cast<const uint16_t*>(KXImageLockBuffer(image));
        if (!pixels)
            KX_RAISE(kKXErrNoResource);
        for (int32_t i = 0; i < kPatches * 3; ++i)
            converted[row][i / 3][i % 3] = float(pixels[i]) * 1.5259022e-5f;
        KXImageUnlockBuffer(image);
    }
}

} // namespace

// ---- Entry points ----

int32_t KXEffectsTemperatureAndTint(KXImage* source, KXImage* destination, const KXRect* rect, float temperature,
                                    float tint)
{
    return TemperatureDriver(source, destination, rect, {temperature, tint, 0.0f, 0.0f});
}

int32_t KXEffectsTemperatureTintAndVibrance(KXImage* source, KXImage* destination, const KXRect* rect,
                                            float temperature, float tint, float vibrance)
{
    return TemperatureDriver(source, destination, rect, {temperature, tint, 0.0f, vibrance});
}

int32_t KXEffectsTemperatureTintAndSaturation(KXImage* source, KXImage* destination, const KXRect* rect,
                                              float temperature, float tint, float saturation)
{
    return TemperatureDriver(source, destination, rect, {temperature, tint, saturation, 0.0f});
}

int32_t KXEffectsTemperatureTintSaturationAndVibrance(KXImage* source, KXImage* destination, const KXRect* rect,
                                                      float temperature, float tint, float saturation, float vibrance)
{
    return TemperatureDriver(source, destination, rect, {temperature, tint, saturation, vibrance});
}

int32_t KXEffectsVibrance(KXImage* source, KXImage* destination, const KXRect* rect, float vibrance)
{
    return EntryPoint(source, destination, rect)
        .RGBOnly()
        .NeutralWhen(vibrance == 0.0f)
        .Run([&]<class Sample>(SampleTag<Sample>, const CEffectRect& effectRect) {
            ColourKernel<Sample, false, true, false>(source, destination, effectRect, {0.0f, 0.0f, 0.0f, vibrance});
        });
}

int32_t KXEffectsAddToner(KXImage* source, KXImage* destination, const KXRect* rect, const float* tonerColor,
                          float amount)
{
    return EntryPoint(source, destination, rect)
        .Requires(tonerColor)
        .RGBOnly()
        .Run([&]<class Sample>(SampleTag<Sample>, const CEffectRect& effectRect) {
            const TonerMap toner(tonerColor);
            const float toned = amount * kWhite<Sample>, keep = 1.0f - amount;
            ForEachPixel<Sample>(source, destination, effectRect, [&](const Sample* in, Sample* out, auto) {
                const TonerMap::Weights w = toner(Luma(ToUnit(in[0]), ToUnit(in[1]), ToUnit(in[2])));
                for (int32_t c = 0; c < 3; ++c)
                    out[c] = FromRaw<Sample>((w.weight * toner.tone[c] + w.base) * toned + float(in[c]) * keep);
            });
        });
}

int32_t KXEffectsTemperatureAndTintForGray(const float* grayColor, float* temperature, float* tint)
{
    return KXEffectsTemperatureAndTintForGrayWithRanges(grayColor, temperature, tint, -1.0f, 1.0f, -1.0f, 1.0f);
}

int32_t KXEffectsTemperatureAndTintForGrayWithRanges(const float* grayColor, float* temperature, float* tint,
                                                     float minTemperature, float maxTemperature, float minTint,
                                                     float maxTint)
{
    if (!grayColor || !temperature || !tint)
        return kKXErrBadParam;
    *temperature = 0.0f;
    *tint = 0.0f;
    for (float bound : {minTemperature, maxTemperature, minTint, maxTint})
        if (std::isnan(bound))
            return kKXErrBadParam;
    const int32_t temperatureLow = Hundredths(minTemperature), temperatureHigh = Hundredths(maxTemperature);
    const int32_t tintLow = Hundredths(minTint), tintHigh = Hundredths(maxTint);
    if (!HasColour(grayColor) || temperatureLow > temperatureHigh)
        return kKXNoErr;
    float best = NeutralityScore(grayColor);
    for (int32_t i = temperatureLow; i <= temperatureHigh; ++i) {
        for (int32_t j = tintLow; j <= tintHigh; ++j) {
            const float t = float(i) * 0.01f, n = float(j) * 0.01f;
            float rgb[3] = {grayColor[0], grayColor[1], grayColor[2]};
            TemperatureTintPixel(rgb, t, n);
            // The ends are tested on the given value, not the transformed one.
            for (int32_t c = 0; c < 3; ++c)
                rgb[c] = grayColor[c] <= 0.0f ? 0.0f : (grayColor[c] >= 1.0f ? 1.0f : rgb[c]);
            const float score = NeutralityScore(rgb);
            if (score < best) {
                best = score;
                *temperature = t;
                *tint = n;
            }
        }
    }
    return kKXNoErr;
}

int32_t KXEffectsTemperatureAndTintForCurves(const float* curves, float* temperature, float* tint)
{
    if (!curves || !temperature || !tint)
        return kKXErrBadParam;
    *temperature = 0.0f;
    *tint = 0.0f;
    // Where the curves take the light gray 192.
    constexpr int32_t kEntry = 192;
    const float target[3] = {curves[kEntry], curves[kCurveEntries + kEntry], curves[2 * kCurveEntries + kEntry]};
    if (!HasColour(target))
        return kKXNoErr;
    constexpr float gray = 192.0f / 255.0f;
    static_assert(std::bit_cast<uint32_t>(gray) == 0x3F40C0C1);
    float best = 1.0f;
    for (int32_t i = -100; i <= 100; ++i) {
        for (int32_t j = -100; j <= 100; ++j) {
            const float t = float(i) * 0.01f, n = float(j) * 0.01f;
            float rgb[3] = {gray, gray, gray};
            TemperatureTintPixel(rgb, t, n);
            const float score = Distance(rgb, target);
            if (score < best) {
                best = score;
                *temperature = t;
                *tint = n;
            }
        }
    }
    return kKXNoErr;
}

int32_t KXEffectsWhiteBalanceTemperatureAndTint(KXColorProfile* profile, uint32_t preset, float* temperature,
                                                float* tint)
{
    if (!temperature || !tint)
        return kKXErrBadParam;
    if (preset > 8)
        return kKXErrBadParam;
    if (preset == 1 || preset == 8)
        return kKXNoErr;
    *temperature = 0.0f;
    *tint = 0.0f;
    if (preset == 0 || preset == 2)
        return kKXNoErr;
    const PatchRow* rows[2] = {&kWhiteBalancePatches[0], &kWhiteBalancePatches[preset - 2]};
    if (!profile) {
        SearchPatches(*rows[0], *rows[1], temperature, tint);
        return kKXNoErr;
    }
    return KXEffectsCatchStatus(kSourceFile, __LINE__, [&] {
        PatchRow converted[2];
        ConvertPatchRows(profile, rows, converted);
        SearchPatches(converted[0], converted[1], temperature, tint);
        return int32_t(kKXNoErr);
    });
}
