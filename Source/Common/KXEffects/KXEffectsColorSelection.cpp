// Selection masks by colour, luma, saturation and flesh tone, and the box of a mask's live pixels. A
// selection only narrows: it multiplies the mask by a weight of the source colour, so selections chain.
#include "KXEffectsColorSelection.h"

#include "KXEffectsColorMath.h"
#include "KXEffectsEntry.h"
#include "KXEffectsRowLoop.h"

#include <algorithm>
#include <cmath>
#include <iterator>

namespace {

// Low and high bounds of Y, Cb and Cr of the skin tones of six populations. Records 1 and 2, and 3 and 4,
// are the same on purpose.
constexpr float FleshColorTable[6][6] = {
    {0.04313726f, 0.7764706f, 0.24313726f, 0.49411765f, 0.5058824f, 0.84313726f},
    {0.1882353f, 0.91764706f, 0.23137255f, 0.49411765f, 0.50980395f, 0.85882354f},
    {0.1882353f, 0.91764706f, 0.23137255f, 0.49411765f, 0.50980395f, 0.85882354f},
    {0.14117648f, 0.81960785f, 0.25882354f, 0.49411765f, 0.5058824f, 0.8235294f},
    {0.14117648f, 0.81960785f, 0.25882354f, 0.49411765f, 0.5058824f, 0.8235294f},
    {0.04313726f, 0.91764706f, 0.21176471f, 0.49803922f, 0.5019608f, 0.88627452f},
};

// The first twelve are the steps of the colour wheel of the preset selections; the rest are named colours
// of the host.
constexpr float ColorPalette[32][3] = {
    {1.0f, 0.0f, 0.0f},          {1.0f, 0.5f, 0.0f},          {1.0f, 1.0f, 0.0f},          {0.5f, 1.0f, 0.0f},
    {0.0f, 1.0f, 0.0f},          {0.0f, 1.0f, 0.5f},          {0.0f, 1.0f, 1.0f},          {0.0f, 0.5f, 1.0f},
    {0.0f, 0.0f, 1.0f},          {0.5f, 0.0f, 1.0f},          {1.0f, 0.0f, 1.0f},          {1.0f, 0.0f, 0.5f},
    {0.9255f, 0.5412f, 0.0f},    {0.9804f, 0.5882f, 0.0f},    {0.9216f, 0.6941f, 0.0745f}, {0.0f, 0.4275f, 1.0f},
    {0.0f, 0.3647f, 1.0f},       {0.0f, 0.7098f, 1.0f},       {0.9176f, 0.102f, 0.102f},   {0.9529f, 0.5176f, 0.0902f},
    {0.9765f, 0.8902f, 0.1098f}, {0.098f, 0.7882f, 0.098f},   {0.1137f, 0.7961f, 0.9176f}, {0.1137f, 0.2078f, 0.9176f},
    {0.6078f, 0.1137f, 0.9176f}, {0.8902f, 0.0941f, 0.8902f}, {0.6745f, 0.4784f, 0.2f},    {1.0f, 0.0f, 0.0f},
    {0.0f, 0.1333f, 0.8039f},    {0.0f, 0.5529f, 0.0f},       {1.0f, 0.8353f, 0.0f},       {0.0f, 0.7608f, 0.6941f},
};

// The preset codes of KXEffectsSelectColors past the twelve palette colours.
enum SelectionCode : int32_t {
    kLightTones = 12,
    kMidTones = 13,
    kDarkTones = 14,
    kLowSaturation = 15,
    kHighSaturation = 16,
};

struct PresetBand {
    bool onSaturation;
    float low;
    float high;
};

// Codes 12 to 16 in order.
constexpr PresetBand kPresetBands[] = {
    {false, 0.6666667f, 1.0f},        // light tones
    {false, 0.33333334f, 0.6666667f}, // mid tones
    {false, 0.0f, 0.33333334f},       // dark tones
    {true, 0.0f, 0.5f},               // low saturation
    {true, 0.5f, 1.0f},               // high saturation
};

enum EllipsoidMode : int32_t { kKeep = 0, kExclude = 1 };

// ---- Formulas ----

// S = (max - min) / max, 0 when max <= 0
inline float Saturation(const float* rgb)
{
    const float largest = std::max({rgb[0], rgb[1], rgb[2]});
    const float smallest = std::min({rgb[0], rgb[1], rgb[2]});
    return largest <= 0.0f ? 0.0f : (largest - smallest) / largest;
}

// d = |h - h0| 6; min(d, 6 - d): the distance on the colour circle in sextants, with no trigonometry
inline float HueDistance(float hue, float target)
{
    const float d = std::fabs(hue - target) * 6.0f;
    return std::min(d, 6.0f - d);
}

// w, or 0 where w is 0 or less
inline float PositiveWeight(float w)
{
    return w > 0.0f ? w : 0.0f;
}

// ---- Selections: each gives the new mask value, in the mask's raw scale, for a colour in 0..1 ----

// mask x hueWeight x saturationWeight x valueWeight; value is quadratic, so brightness is forgiven most.
struct ColorSelection {
    float target[3]; // hue, saturation, value
    float p;         // sqrt(q)
    float q;         // sqrt(1 / range)

    float operator()(const float* rgb, float mask) const
    {
        float hsv[3];
        KXEffectsRGBToHSV(rgb, hsv);
        const float hueWeight = PositiveWeight(1.0f - HueDistance(hsv[0], target[0]) * p);
        const float saturationWeight = PositiveWeight(1.0f - std::fabs(hsv[1] - target[1]) * p * 2.0f);
        const float valueDifference = hsv[2] - target[2];
        const float valueWeight = PositiveWeight(1.0f - valueDifference * valueDifference * q);
        return mask * hueWeight * saturationWeight * valueWeight;
    }
};

ColorSelection MakeColorSelection(const float* color, float range)
{
    ColorSelection selection;
    selection.q = std::sqrt(1.0f / range);
    selection.p = std::sqrt(selection.q);
    KXEffectsRGBToHSV(color, selection.target);
    return selection;
}

struct BandEdges {
    float a, b, c, d;
};

// mask x RangeWeight(m, a, b, c, d), m the luma or the saturation of the pixel.
template <float (*Measure)(const float*)> struct BandSelection {
    BandEdges edges;

    float operator()(const float* rgb, float mask) const
    {
        return mask * RangeWeight(Measure(rgb), edges.a, edges.b, edges.c, edges.d);
    }
};

using LumaBand = BandSelection<Luma>;
using SaturationBand = BandSelection<Saturation>;

// A band from low to high with shoulders of feather x 0.075 each side. A band that touches an end of the
// range is pushed past it, so that it has no falloff there.
BandEdges FeatheredBand(float low, float high, float feather)
{
    if (low <= 0.0f)
        low = -1.0f;
    if (high >= 1.0f)
        high = 2.0f;
    const float f = feather * 0.075f;
    return {low - f, low + f, high - f, high + f};
}

// The bands of the preset codes at width r.
BandEdges PresetEdges(int32_t code, float r)
{
    switch (code) {
    case kLightTones:
    case kHighSaturation:
        return {1.0f - 2.0f * r, 1.0f - r, 1.0f, 1.0f};
    case kMidTones:
        return {0.5f - r, 0.5f - r / 2.0f, 0.5f + r / 2.0f, 0.5f + r};
    default: // dark tones, low saturation
        return {0.0f, 0.0f, r, 2.0f * r};
    }
}

// An ellipsoid in YCbCr around a target: dist = |(pixel - target) / radii|, w = (1 - (3 - 2 dist) dist^2)
// strength inside it, the inverse smoothstep, and 0 outside.
struct Ellipsoid {
    float target[3];     // Y, Cb, Cr
    float reciprocal[3]; // of the luma, Cb and Cr radii
    float strength;

    float Weight(const float* rgb) const
    {
        float ycc[3];
        KXEffectsRGBToYCC(rgb, ycc);
        const float dY = (ycc[0] - target[0]) * reciprocal[0];
        const float dCb = (ycc[1] - target[1]) * reciprocal[1];
        const float dCr = (ycc[2] - target[2]) * reciprocal[2];
        const float dist = std::sqrt(dY * dY + dCb * dCb + dCr * dCr);
        return dist < 1.0f ? (1.0f - ShoulderStep(dist)) * strength : 0.0f;
    }
};

// Keep: mask x w. Exclude: mask x (1 - w).
template <EllipsoidMode Mode> struct EllipsoidSelection : Ellipsoid {
    float operator()(const float* rgb, float mask) const
    {
        const float w = Weight(rgb);
        return Mode == kExclude ? mask * (1.0f - w) : mask * w;
    }
};

// ---- Kernels ----

// Each mask sample of rect becomes selection(colour of the source pixel, sample); integer masks add 0.5 to
// the raw product and truncate. The mask row is changed in place.
template <class SourceSample, class MaskSample, class Selection>
void SelectionKernel(KXImage* source, KXImage* mask, const CEffectRect& rect, const Selection& selection)
{
    const int32_t planes = KXImageGetNumPlanes(source);
    WalkRows<MaskSample>(rect, Sources<SourceSample>{source}, mask,
                         {.alphaSource = RowWalkOrder::kNoAlphaCopy, .readDestination = true},
                         [&](int32_t, const SourceSample* in, MaskSample* out) {
                             for (int32_t x = 0; x < rect.Width(); ++x, in += planes) {
                                 const float rgb[3] = {ToUnit(in[0]), ToUnit(in[1]), ToUnit(in[2])};
                                 out[x] = FromRaw<MaskSample>(selection(rgb, float(out[x])));
                             }
                         });
}

// The live box of a one-plane mask over its bounds, as top, left, bottom, right. It starts inverted, near
// sides at the far edge, so a mask without a live sample leaves it with a negative width and height.
template <class MaskSample> CEffectRect LiveBox(KXImage* mask)
{
    const CEffectRect bounds = CEffectRect::FromKXRect(KXImageGetBounds(mask));
    const int32_t width = bounds.Width();
    CEffectRect box{bounds.bottom, bounds.right, bounds.top, bounds.left};
    WalkSourceRows(bounds, Sources<MaskSample>{mask}, [&](int32_t row, const MaskSample* samples) {
        int32_t first = 0;
        while (first < width && samples[first] == MaskSample(0))
            ++first;
        if (first == width)
            return;
        int32_t last = width - 1;
        while (samples[last] == MaskSample(0))
            --last;
        box = {std::min(box.top, row), std::min(box.left, bounds.left + first), std::max(box.bottom, row + 1),
               std::max(box.right, bounds.left + last + 1)};
    });
    return box;
}

// ---- Dispatch ----

// The checks of every selection, then source width by mask width into one of nine kernels. The mask is the
// destination, of one plane.
template <class Selection>
int32_t RunSelection(KXImage* source, KXImage* mask, const KXRect* rect, const Selection& selection)
{
    return EntryPoint(source, mask, rect)
        .AnyDestinationLayout()
        .RGBOnly()
        .Require([&] { return KXImageGetNumPlanes(mask) == 1; }, kKXErrUnsupported)
        .Run([&]<class SourceSample>(SampleTag<SourceSample>, const CEffectRect& effectRect) {
            return DispatchSample(mask, [&](auto maskTag) {
                SelectionKernel<SourceSample, typename decltype(maskTag)::Type>(source, mask, effectRect, selection);
                return int32_t(kKXNoErr);
            });
        });
}

// The general ellipsoid selector: the target colour, radii of luma, Cb and Cr, strength and mode.
int32_t SelectInEllipsoid(KXImage* source, KXImage* mask, const KXRect* rect, const float* color, const float* radii,
                          float strength, EllipsoidMode mode)
{
    Ellipsoid ellipsoid;
    KXEffectsRGBToYCC(color, ellipsoid.target);
    for (int32_t axis = 0; axis < 3; ++axis)
        ellipsoid.reciprocal[axis] = 1.0f / radii[axis];
    ellipsoid.strength = strength;
    if (mode == kExclude)
        return RunSelection(source, mask, rect, EllipsoidSelection<kExclude>{ellipsoid});
    return RunSelection(source, mask, rect, EllipsoidSelection<kKeep>{ellipsoid});
}

// The centre of a flesh record, from YCbCr back to RGB through r = Y + 1.402 Cr, g = Y - 0.34414 Cb -
// 0.71414 Cr, b = Y + 1.772 Cb, each a full row of the matrix, zero terms included.
void FleshTarget(const float* record, float* rgb)
{
    static constexpr float kToRGB[3][3] = {{1.0f, 0.0f, 1.402f}, {1.0f, -0.34414f, -0.71414f}, {1.0f, 1.772f, 0.0f}};
    const float centre[3] = {(record[0] + record[1]) * 0.5f, (record[2] + record[3]) * 0.5f - 0.5f,
                             (record[4] + record[5]) * 0.5f - 0.5f};
    for (int32_t plane = 0; plane < 3; ++plane)
        rgb[plane] = kToRGB[plane][0] * centre[0] + kToRGB[plane][1] * centre[1] + kToRGB[plane][2] * centre[2];
}

} // namespace

int32_t KXEffectsSelectColor(KXImage* source, KXImage* mask, const KXRect* rect, const float* color, float range)
{
    if (!color)
        return kKXErrBadParam;
    return RunSelection(source, mask, rect, MakeColorSelection(color, range));
}

int32_t KXEffectsSelectLuminosity(KXImage* source, KXImage* mask, const KXRect* rect, float low, float high,
                                  float feather)
{
    return RunSelection(source, mask, rect, LumaBand{FeatheredBand(low, high, feather)});
}

int32_t KXEffectsSelectSaturation(KXImage* source, KXImage* mask, const KXRect* rect, float low, float high,
                                  float feather)
{
    return RunSelection(source, mask, rect, SaturationBand{FeatheredBand(low, high, feather)});
}

int32_t KXEffectsSelectLuminosityRange(KXImage* source, KXImage* mask, const KXRect* rect, float rampStart,
                                       float rampFull, float fallStart, float fallEnd)
{
    return RunSelection(source, mask, rect, LumaBand{{rampStart, rampFull, fallStart, fallEnd}});
}

int32_t KXEffectsSelectSaturationRange(KXImage* source, KXImage* mask, const KXRect* rect, float rampStart,
                                       float rampFull, float fallStart, float fallEnd)
{
    return RunSelection(source, mask, rect, SaturationBand{{rampStart, rampFull, fallStart, fallEnd}});
}

int32_t KXEffectsSelectColors(KXImage* source, KXImage* mask, const KXRect* rect, int32_t code, float range)
{
    if (code < 0 || code > kHighSaturation)
        return kKXErrBadParam;
    if (code < kLightTones)
        return KXEffectsSelectColor(source, mask, rect, ColorPalette[code], range);
    const PresetBand& band = kPresetBands[code - kLightTones];
    if (band.onSaturation)
        return KXEffectsSelectSaturation(source, mask, rect, band.low, band.high, range);
    return KXEffectsSelectLuminosity(source, mask, rect, band.low, band.high, range);
}

int32_t KXEffectsSelectColorsWithRange(KXImage* source, KXImage* mask, const KXRect* rect, int32_t code, float range)
{
    // The colour codes 0 to 11 are refused too: this form selects bands only.
    if (code < kLightTones || code > kHighSaturation)
        return kKXErrBadParam;
    const BandEdges edges = PresetEdges(code, range);
    if (code >= kLowSaturation)
        return RunSelection(source, mask, rect, SaturationBand{edges});
    return RunSelection(source, mask, rect, LumaBand{edges});
}

int32_t KXEffectsSelectFleshColors(KXImage* source, KXImage* mask, const KXRect* rect, int32_t table, float range,
                                   float strength, bool exclude)
{
    float record[6];
    const int32_t status = KXEffectsGetFleshColorTable(table, record);
    if (status != kKXNoErr)
        return status;
    float target[3];
    FleshTarget(record, target);
    const float radii[3] = {(record[1] - record[0]) * range, (record[3] - record[2]) * range,
                            (record[5] - record[4]) * range};
    return SelectInEllipsoid(source, mask, rect, target, radii, strength, exclude ? kExclude : kKeep);
}

int32_t KXEffectsColorRange(KXImage* source, KXImage* mask, const KXRect* rect, const float* color, float range)
{
    if (!color)
        return kKXErrBadParam;
    const float radii[3] = {range * 0.35f, range * 0.175f, range * 0.175f};
    return SelectInEllipsoid(source, mask, rect, color, radii, 1.0f, kKeep);
}

int32_t KXEffectsGetFleshColorTable(int32_t table, float* record)
{
    if (table < 0 || table >= int32_t(std::size(FleshColorTable)) || !record)
        return kKXErrBadParam;
    std::copy_n(FleshColorTable[table], 6, record);
    return kKXNoErr;
}

int32_t KXEffectsGetColorForIndex(uint32_t index, float* color)
{
    if (!color)
        return kKXErrBadParam;
    std::fill_n(color, 3, 0.0f);
    if (index >= std::size(ColorPalette))
        return kKXErrBadParam;
    std::copy_n(ColorPalette[index], 3, color);
    return kKXNoErr;
}

int32_t KXEffectsFindMaskBounds(KXImage* mask, KXRect* bounds)
{
    if (!mask || !bounds)
        return kKXErrBadParam;
    if (KXImageGetNumPlanes(mask) != 1)
        return kKXErrUnsupported;
    return DispatchSample(mask, [&](auto tag) {
        const CEffectRect box = LiveBox<typename decltype(tag)::Type>(mask);
        *bounds = box.Width() < 0 || box.Height() < 0 ? KXRectMake(0, 0, 0, 0) : box.ToKXRect();
        return int32_t(kKXNoErr);
    });
}
