// Photo filter: a flat or graded colour blended into the image in one of the blend modes.
#include "KXEffectsBlendModes.h"
#include "KXEffectsColorMath.h"
#include "KXEffectsEntry.h"
#include "KXEffectsRowLoop.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <numbers>
#include <type_traits>

namespace {

// The variable part of the call, in its order: doubles by promotion, narrowed back to float.
struct FilterArguments {
    KXEffectsFloatPoint centre;
    float angleOrRadius;
    float lengthOrFeather;
    const float* colour1;
    float opacity1;
    const float* colour2;
    float opacity2;
};

FilterArguments ReadFilterArguments(va_list args)
{
    FilterArguments read;
    read.centre = va_arg(args, KXEffectsFloatPoint);
    read.angleOrRadius = float(va_arg(args, double));
    read.lengthOrFeather = float(va_arg(args, double));
    read.colour1 = va_arg(args, const float*);
    read.opacity1 = float(va_arg(args, double));
    read.colour2 = va_arg(args, const float*);
    read.opacity2 = float(va_arg(args, double));
    return read;
}

// The values of filterKind: a flat colour, or a linear or radial gradient of colour1 over nothing or over
// colour2.
enum : int32_t { kFlat = 0, kLinear = 1, kLinearTwoColours = 2, kRadial = 3, kRadialTwoColours = 4 };

constexpr bool UsesSecondColour(int32_t filterKind)
{
    return filterKind == kLinearTwoColours || filterKind == kRadialTwoColours;
}

// Everything a pixel needs, set up once per call.
struct FilterSetup {
    float saturation;
    float contrastSquare;   // -2k
    float contrastLinear;   // 3k
    float contrastConstant; // 1 - k
    float centreX, centreY;
    float directionX, directionY; // cos a / L, sin a / L
    float radius;
    float inverseFeather; // 1 / F
    float colour1[3], opacity1;
    float colour2[3], opacity2;
};

FilterSetup MakeSetup(const FilterArguments& read, float saturation, float contrast, int32_t filterKind)
{
    // The angle goes through double on its way to radians.
    const float angle = float(double(read.angleOrRadius) * std::numbers::pi / 180.0);
    FilterSetup setup{.saturation = saturation,
                      .contrastSquare = -2.0f * contrast,
                      .contrastLinear = 3.0f * contrast,
                      .contrastConstant = 1.0f - contrast,
                      .centreX = read.centre.x,
                      .centreY = read.centre.y,
                      .directionX = std::cos(angle) / read.lengthOrFeather,
                      .directionY = std::sin(angle) / read.lengthOrFeather,
                      .radius = read.angleOrRadius,
                      .inverseFeather = 1.0f / read.lengthOrFeather,
                      .colour1 = {read.colour1[0], read.colour1[1], read.colour1[2]},
                      .opacity1 = read.opacity1,
                      .colour2 = {},
                      .opacity2 = read.opacity2};
    if (UsesSecondColour(filterKind))
        std::copy(read.colour2, read.colour2 + 3, setup.colour2);
    return setup;
}

// p' = p ((p (-2k) + 3k) p + (1 - k)): the identity at k = 0, the S curve p^2 (3 - 2p) at k = 1.
inline float ContrastCurve(float p, const FilterSetup& setup)
{
    return p * ((p * setup.contrastSquare + setup.contrastLinear) * p + setup.contrastConstant);
}

// Below 0 gives 0 and above 1 gives 1; a NaN passes through both comparisons.
inline float ClampWeight(float t)
{
    return t < 0.0f ? 0.0f : (t > 1.0f ? 1.0f : t);
}

// Linear: t = clamp(((x - cx) cos a / L + (y - cy) sin a / L) / 2 + 0.5).
// Radial: t = clamp((d - R) / F / 2 + 0.5), d the distance to the centre.
template <int32_t Kind> float FilterWeight(const FilterSetup& setup, float x, float y)
{
    const float dx = x - setup.centreX, dy = y - setup.centreY;
    if constexpr (Kind == kLinear || Kind == kLinearTwoColours)
        return ClampWeight((dx * setup.directionX + dy * setup.directionY) * 0.5f + 0.5f);
    else
        return ClampWeight((std::sqrt(dx * dx + dy * dy) - setup.radius) * setup.inverseFeather * 0.5f + 0.5f);
}

struct FilterPaint {
    float colour[3];
    float opacity;
};

// Flat: colour1 at opacity1; one-colour gradients: opacity t opacity1; two-colour gradients mix colour and
// opacity by t from the second to the first.
template <int32_t Kind> FilterPaint PaintAt(const FilterSetup& setup, float x, float y)
{
    const float* first = setup.colour1;
    if constexpr (Kind == kFlat) {
        return {{first[0], first[1], first[2]}, setup.opacity1};
    } else if constexpr (!UsesSecondColour(Kind)) {
        return {{first[0], first[1], first[2]}, FilterWeight<Kind>(setup, x, y) * setup.opacity1};
    } else {
        const float t = FilterWeight<Kind>(setup, x, y), u = 1.0f - t;
        const float* second = setup.colour2;
        return {{t * first[0] + u * second[0], t * first[1] + u * second[1], t * first[2] + u * second[2]},
                t * setup.opacity1 + u * setup.opacity2};
    }
}

// Saturation, contrast, then r = mode(b, c) and r o + b (1 - o). Integer depths store
// r (o white) + b ((1 - o) white) + 0.5 truncated; for float white is 1 and the weights are o and 1 - o.
template <class Sample, class Mode, int32_t Kind, bool Saturate>
inline void FilterPixel(const Sample* in, Sample* out, const FilterSetup& setup, float x, float y)
{
    float backdrop[3], result[3];
    for (int32_t c = 0; c < 3; ++c)
        backdrop[c] = ToUnit(in[c]);
    if constexpr (Saturate)
        KXEffectsSaturatePixel(backdrop, setup.saturation);
    for (int32_t c = 0; c < 3; ++c)
        backdrop[c] = ContrastCurve(backdrop[c], setup);
    const FilterPaint paint = PaintAt<Kind>(setup, x, y);
    Mode::Pixel(backdrop, paint.colour, result);
    const float onResult = paint.opacity * kWhite<Sample>;
    const float onBackdrop = (1.0f - paint.opacity) * kWhite<Sample>;
    for (int32_t c = 0; c < 3; ++c)
        out[c] = FromRaw<Sample>(result[c] * onResult + backdrop[c] * onBackdrop);
}

template <class Sample, class Mode, int32_t Kind, bool Saturate>
void PhotoFilterKernel(KXImage* source, KXImage* destination, const CEffectRect& rect, const FilterSetup& setup)
{
    ForEachRow<Sample>(source, destination, rect,
                       [&](int32_t row, const Sample* in, Sample* out, int32_t width, const PixelLayout& layout) {
                           const float y = float(row);
                           for (int32_t i = 0; i < width; ++i, in += layout.planes, out += layout.planes)
                               FilterPixel<Sample, Mode, Kind, Saturate>(in, out, setup, float(rect.left + i), y);
                       });
}

// fn(integral_constant<Kind>) for the five filter kinds; any other is kKXErrBadParam.
template <class Fn> int32_t DispatchFilterKind(int32_t filterKind, Fn&& fn)
{
    using std::integral_constant;
    switch (filterKind) {
    case kFlat:
        return fn(integral_constant<int32_t, kFlat>{});
    case kLinear:
        return fn(integral_constant<int32_t, kLinear>{});
    case kLinearTwoColours:
        return fn(integral_constant<int32_t, kLinearTwoColours>{});
    case kRadial:
        return fn(integral_constant<int32_t, kRadial>{});
    case kRadialTwoColours:
        return fn(integral_constant<int32_t, kRadialTwoColours>{});
    default:
        return kKXErrBadParam;
    }
}

// The mode and the filter kind resolved once into one kernel; saturation exactly 0 takes the kernel
// without the saturation step.
template <class Sample>
int32_t PhotoFilter(KXImage* source, KXImage* destination, const CEffectRect& rect, int32_t filterKind, uint32_t mode,
                    const FilterSetup& setup)
{
    return DispatchBlendMode(mode, [&](auto modeTag) {
        using Mode = typename decltype(modeTag)::Type;
        return DispatchFilterKind(filterKind, [&](auto kind) {
            if (setup.saturation != 0.0f)
                PhotoFilterKernel<Sample, Mode, decltype(kind)::value, true>(source, destination, rect, setup);
            else
                PhotoFilterKernel<Sample, Mode, decltype(kind)::value, false>(source, destination, rect, setup);
            return int32_t(kKXNoErr);
        });
    });
}

} // namespace

int32_t KXEffectsPhotoFilter(KXImage* source, KXImage* destination, const KXRect* rect, int32_t filterKind,
                             float saturation, float contrast, uint32_t mode, ...)
{
    va_list args;
    va_start(args, mode);
    const FilterArguments read = ReadFilterArguments(args);
    va_end(args);
    return EntryPoint(source, destination, rect)
        .Requires(read.colour1)
        .Require(!UsesSecondColour(filterKind) || read.colour2, kKXErrBadParam)
        .RGBOnly()
        .Run([&]<class Sample>(SampleTag<Sample>, const CEffectRect& effectRect) {
            return PhotoFilter<Sample>(source, destination, effectRect, filterKind, mode,
                                       MakeSetup(read, saturation, contrast, filterKind));
        });
}
