// One-colour operations: colour models, luma-chroma-hue, saturation helpers. Pixels are three floats,
// red, green, blue, nominally 0..1; nothing here clamps unless its formula says so. Every function reads
// its whole input before writing, so input and output may be the same three floats.
#pragma once

#include "KXEffectsSample.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

// Limits to 0..1; a NaN stays NaN.
inline float Clamp01(float v)
{
    return v < 0.0f ? 0.0f : (v > 1.0f ? 1.0f : v);
}

// Luma weights of the whole library.
inline float Luma(float red, float green, float blue)
{
    return 0.299f * red + 0.587f * green + 0.114f * blue;
}

inline float Luma(const float* rgb)
{
    return Luma(rgb[0], rgb[1], rgb[2]);
}

// Indices of the largest, middle and smallest planes. Ties are part of the hue formulas: with all planes
// equal, red is the largest and blue the smallest.
struct PlaneOrder {
    int32_t largest;
    int32_t middle;
    int32_t smallest;
};

inline PlaneOrder OrderPlanes(const float* p)
{
    int32_t largest, smallest;
    if (p[1] > p[0]) {
        largest = p[1] >= p[2] ? 1 : 2;
        smallest = p[2] > p[0] ? 0 : 2;
    } else {
        largest = p[0] >= p[2] ? 0 : 2;
        smallest = p[2] > p[1] ? 1 : 2;
    }
    return {largest, 3 - largest - smallest, smallest};
}

// H = (p[i] - p[j]) / (6D, or 1 when D <= 0) + largest / 3, wrapped into 0..1; i follows largest.
inline float HueOf(const float* p, int32_t largest, float delta)
{
    const int32_t i = (largest + 1) % 3;
    const int32_t j = 3 - i - largest;
    float hue = (p[i] - p[j]) / (delta <= 0.0f ? 1.0f : 6.0f * delta) + float(largest) * 0.33333334f;
    if (hue < 0.0f)
        hue += 1.0f;
    return hue;
}

// The hexcone from hue, top value V and bottom value m: i = (1 - trunc(-6H)) >> 1 mod 3 gets V, f = 6H - 2q
// picks which neighbour rises from m. The arithmetic shift and truncation decide the sector at the edges.
inline void HexconeToRGB(float hue, float top, float bottom, float* rgb)
{
    // Truncated as the processor does and taken on in 64 bits, so that no hue overflows on its way to a plane.
    const int64_t n = 1 - int64_t(TruncateToInt32(-6.0f * hue));
    const int64_t q = n >> 1;
    const int32_t i = int32_t((q % 3 + 3) % 3); // a hue below 0 still names a plane
    const float f = 6.0f * hue - float(2 * q);
    const int32_t j = (i + 1) % 3;
    const int32_t k = 3 - i - j;
    const float d = (top - bottom) * f;
    rgb[i] = top;
    if (f >= 0.0f) {
        rgb[j] = d + bottom;
        rgb[k] = bottom;
    } else {
        rgb[j] = bottom;
        rgb[k] = bottom - d;
    }
}

// H, S = D / V (0 when V <= 0), V = largest.
inline void KXEffectsRGBToHSV(const float* rgb, float* hsv)
{
    const PlaneOrder order = OrderPlanes(rgb);
    const float value = rgb[order.largest];
    const float delta = value - rgb[order.smallest];
    const float hue = HueOf(rgb, order.largest, delta);
    hsv[1] = value <= 0.0f ? 0.0f : delta / value;
    hsv[0] = hue;
    hsv[2] = value;
}

// m = (1 - S) V, then the hexcone.
inline void KXEffectsHSVToRGB(const float* hsv, float* rgb)
{
    const float hue = hsv[0], value = hsv[2];
    HexconeToRGB(hue, value, (1.0f - hsv[1]) * value, rgb);
}

// H, S = D / (1 - |2L - 1|) for 0 < L < 1 (else 0), L = (largest + smallest) / 2.
inline void KXEffectsRGBToHSL(const float* rgb, float* hsl)
{
    const PlaneOrder order = OrderPlanes(rgb);
    const float largest = rgb[order.largest], smallest = rgb[order.smallest];
    const float delta = largest - smallest;
    const float lightness = (largest + smallest) * 0.5f;
    const float hue = HueOf(rgb, order.largest, delta);
    hsl[1] = lightness > 0.0f && lightness < 1.0f ? delta / (1.0f - std::fabs(2.0f * lightness - 1.0f)) : 0.0f;
    hsl[0] = hue;
    hsl[2] = lightness;
}

// m = L - (1 - |2L - 1|) S / 2, V = 2L - m, then the hexcone.
inline void KXEffectsHSLToRGB(const float* hsl, float* rgb)
{
    const float hue = hsl[0], lightness = hsl[2];
    const float bottom = lightness - (1.0f - std::fabs(2.0f * lightness - 1.0f)) * 0.5f * hsl[1];
    HexconeToRGB(hue, 2.0f * lightness - bottom, bottom, rgb);
}

// Y = luma; Cb = 0.5 B - (0.331264 G + 0.168736 R) + 0.5; Cr = 0.5 R - 0.418688 G - 0.081312 B + 0.5.
inline void KXEffectsRGBToYCC(const float* rgb, float* ycc)
{
    const float red = rgb[0], green = rgb[1], blue = rgb[2];
    ycc[0] = Luma(red, green, blue);
    ycc[1] = 0.5f * blue - (0.331264f * green + 0.168736f * red) + 0.5f;
    ycc[2] = 0.5f * red - 0.418688f * green - 0.081312f * blue + 0.5f;
}

// R = Y + 1.402 Cr'; G = Y - 0.344136 Cb' - 0.714136 Cr'; B = Y + 1.772 Cb', with Cb', Cr' less 0.5.
inline void KXEffectsYCCToRGB(const float* ycc, float* rgb)
{
    const float luma = ycc[0], cb = ycc[1] - 0.5f, cr = ycc[2] - 0.5f;
    rgb[0] = luma + 1.402f * cr;
    rgb[1] = luma - 0.344136f * cb - 0.714136f * cr;
    rgb[2] = luma + 1.772f * cb;
}

// The blending model: luma, chroma = largest - smallest, hue from f = (middle - smallest) / chroma.
inline void KXEffectsRGBToLumaChromaHue(const float* rgb, float* out)
{
    const PlaneOrder order = OrderPlanes(rgb);
    const float chroma = rgb[order.largest] - rgb[order.smallest];
    float hue = 0.0f;
    if (chroma > 0.0f) {
        const float f = (rgb[order.middle] - rgb[order.smallest]) / chroma;
        const float base = float(2 * order.largest);
        if (order.largest == 0 && order.middle == 2)
            hue = (6.0f - f) / 6.0f;
        else if (order.largest == 2 && order.middle == 0)
            hue = (base + f) / 6.0f;
        else
            hue = order.middle > order.largest ? (base + f) / 6.0f : (base - f) / 6.0f;
    }
    out[0] = Luma(rgb);
    out[1] = chroma;
    out[2] = hue;
}

// A colour of chroma C and hue H at luma 0: the sector s = trunc(6H) places C and its ramp f C.
inline void ChromaHueToRGB(float chroma, float hue, float* rgb)
{
    const int32_t sector = TruncateToInt32(6.0f * hue);
    const float f = 6.0f * hue - float(sector);
    float red = 0.0f, green = 0.0f, blue = 0.0f;
    switch (sector) {
    case 1:
        green = chroma;
        red = (1.0f - f) * chroma;
        break;
    case 2:
        green = chroma;
        blue = f * chroma;
        break;
    case 3:
        blue = chroma;
        green = (1.0f - f) * chroma;
        break;
    case 4:
        blue = chroma;
        red = f * chroma;
        break;
    case 5:
        red = chroma;
        blue = (1.0f - f) * chroma;
        break;
    default:
        red = chroma;
        green = f * chroma;
        break;
    }
    rgb[0] = red;
    rgb[1] = green;
    rgb[2] = blue;
}

// Scale k and offset o give the pixel exactly luma L; chroma gives way when a plane would pass 1.
inline void KXEffectsLumaChromaHueToRGB(const float* in, float* rgb)
{
    const float luma = in[0], chroma = in[1];
    float p[3];
    ChromaHueToRGB(chroma, in[2], p);
    float scale = 1.0f, offset = 0.0f;
    if (luma <= 0.0f) {
        scale = 0.0f;
    } else {
        const float y = Luma(p);
        if (y >= luma) {
            scale = luma / y;
        } else if (y < luma) {
            offset = luma - y;
            if (chroma + offset > 1.0f) {
                scale = (1.0f - luma) / (chroma - y);
                offset = 1.0f - chroma * scale;
            }
        }
    }
    for (int32_t c = 0; c < 3; ++c)
        rgb[c] = scale * p[c] + offset;
}

// k = min(amount + 1, mx / (mx - mn)): the bound keeps the smallest plane from falling below 0.
inline float SaturationFactor(float amount, float largest, float smallest)
{
    const float bound = largest / (largest - smallest);
    return amount + 1.0f > bound ? bound : amount + 1.0f;
}

// p' = (p - mx) k + mx; equal planes are left alone.
inline void KXEffectsSaturatePixel(float* rgb, float amount)
{
    const PlaneOrder order = OrderPlanes(rgb);
    const float largest = rgb[order.largest], smallest = rgb[order.smallest];
    if (!(largest > smallest))
        return;
    const float k = SaturationFactor(amount, largest, smallest);
    for (int32_t c = 0; c < 3; ++c)
        rgb[c] = (rgb[c] - largest) * k + largest;
}

// p' = mx - (mx - p)(amount + 1 - amount D / mx), then the old sum restored as far as the largest plane
// stays at most 1.
inline void KXEffectsVibrancePixel(float* rgb, float amount)
{
    const PlaneOrder order = OrderPlanes(rgb);
    const float largest = rgb[order.largest];
    const float delta = largest - rgb[order.smallest];
    if (!(delta > 0.0f))
        return;
    const float sum = rgb[0] + rgb[1] + rgb[2];
    const float k = amount + 1.0f - delta / largest * amount;
    for (int32_t c = 0; c < 3; ++c)
        rgb[c] = largest - (largest - rgb[c]) * k;
    float gain = sum / (rgb[0] + rgb[1] + rgb[2]);
    const float limit = 1.0f / rgb[OrderPlanes(rgb).largest];
    if (gain > limit)
        gain = limit;
    for (int32_t c = 0; c < 3; ++c)
        rgb[c] *= gain;
}

// Below 0: p' = p + (p - mid) amount about mid = (lo + hi) / 2. Above: the extremes move apart by
// d amount, d = min(lo, 1 - hi, (hi - lo) / 2), and the middle plane keeps its relative place.
inline void KXEffectsSaturateAboutMid(float* rgb, float amount)
{
    const PlaneOrder order = OrderPlanes(rgb);
    const float lo = rgb[order.smallest], hi = rgb[order.largest], middle = rgb[order.middle];
    if (lo == hi)
        return;
    if (amount < 0.0f) {
        const float mid = (lo + hi) * 0.5f;
        for (int32_t c = 0; c < 3; ++c)
            rgb[c] = rgb[c] + (rgb[c] - mid) * amount;
        return;
    }
    float d = lo < 1.0f - hi ? lo : 1.0f - hi;
    const float halfRange = (hi - lo) * 0.5f;
    if (d > halfRange)
        d = halfRange;
    const float newLo = lo - d * amount, newHi = hi + d * amount;
    rgb[order.smallest] = newLo;
    rgb[order.largest] = newHi;
    rgb[order.middle] = newHi - (newHi - newLo) * (hi - middle) / (hi - lo);
}

// The gain g that lands the largest plane on mx g, lifted by lightness: e = 1 / (2l + 1) for 2l > 0,
// else 1 - 2l; g = min(mx / ((1 - e) mx + e) / mx, 1 / mx).
inline float LightenGain(float largest, float lightness)
{
    if (!(largest > 0.0f))
        return 1.0f;
    const float unit = 1.0f / largest;
    const float twice = 2.0f * lightness;
    const float e = twice > 0.0f ? 1.0f / (twice + 1.0f) : 1.0f - twice;
    const float w = largest / ((1.0f - e) * largest + e) * unit;
    return w > unit ? unit : w;
}

// p' = ((p - mx) k + mx) g, k as in saturation; gray pixels only take the gain.
inline void KXEffectsSaturateAndLighten(float* rgb, float amount, float lightness)
{
    const PlaneOrder order = OrderPlanes(rgb);
    const float largest = rgb[order.largest], smallest = rgb[order.smallest];
    const float gain = LightenGain(largest, lightness);
    if (largest > smallest) {
        const float k = SaturationFactor(amount, largest, smallest);
        for (int32_t c = 0; c < 3; ++c)
            rgb[c] = ((rgb[c] - largest) * k + largest) * gain;
    } else {
        for (int32_t c = 0; c < 3; ++c)
            rgb[c] *= gain;
    }
}

// (3 - 2t) t^2: the smoothstep of both window edges.
inline float SmoothStep(float t)
{
    return (3.0f - 2.0f * t) * (t * t);
}

// 1 inside lowEnd..highStart, smooth ramps down to lowStart and highEnd, 0 outside.
inline float KXEffectsSmoothWindow(float v, float lowStart, float lowEnd, float highStart, float highEnd)
{
    if (v < lowStart || v > highEnd)
        return 0.0f;
    float w = 1.0f;
    if (lowEnd > v)
        w = SmoothStep((v - lowStart) / (lowEnd - lowStart));
    if (v > highStart)
        w = w * SmoothStep((highEnd - v) / (highEnd - highStart));
    return w;
}

// The six hue components red, yellow, green, cyan, blue, magenta over the gray min(R, G, B); at most two
// adjacent ones are non-zero, and they add up with the gray to the colour.
inline void SplitColorComponents(const float* rgb, float* components)
{
    const float gray = std::min({rgb[0], rgb[1], rgb[2]});
    const float r = rgb[0] - gray, g = rgb[1] - gray, b = rgb[2] - gray;
    const float yellow = std::min(r, g), cyan = std::min(g, b), magenta = std::min(b, r);
    components[0] = r - std::max(yellow, magenta);
    components[1] = yellow;
    components[2] = g - std::max(cyan, yellow);
    components[3] = cyan;
    components[4] = b - std::max(magenta, cyan);
    components[5] = magenta;
}
