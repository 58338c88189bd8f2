// Flat colour fills and solarize.
#include "KXEffectsEntry.h"
#include "KXEffectsRowLoop.h"

#include <algorithm>
#include <vector>

namespace {

// v' = white - v above the middle of the range (127, 32767, 0.5), else v. Deliberately in the sample
// type: 8-bit 128 becomes 127, so the result never passes the middle; float is not clamped.
template <class Sample> inline Sample SolarizeSample(Sample value)
{
    return value > kWhiteSample<Sample> / 2 ? Sample(kWhiteSample<Sample> - value) : value;
}

// Every plane of every pixel of rect, alpha too. The colour is converted once with white x v + 0.5
// truncated and no clamp, so integer samples wrap above 1.
template <class Sample> int32_t FillKernel(KXImage* image, const CEffectRect& rect, const float* color)
{
    std::vector<Sample> pixel(size_t(std::max(KXImageGetNumPlanes(image), 0)));
    std::transform(color, color + pixel.size(), pixel.begin(), FromUnit<Sample>);
    WalkDestinationRows<Sample>(rect, image, {}, [&](int32_t, Sample* out) {
        for (int32_t x = 0; x < rect.Width(); ++x)
            std::copy(pixel.begin(), pixel.end(), out + size_t(x) * pixel.size());
    });
    return kKXNoErr;
}

template <class Sample> int32_t SolarizeKernel(KXImage* source, KXImage* destination, const CEffectRect& rect)
{
    ForEachPixel<Sample>(source, destination, rect, [](const Sample* in, Sample* out, auto colourPlanes) {
        for (int32_t c = 0; c < colourPlanes; ++c)
            out[c] = SolarizeSample(in[c]);
    });
    return kKXNoErr;
}

} // namespace

int32_t KXEffectsFillColor(KXImage* image, const KXRect* rect, const float* color)
{
    return EntryPoint(image, rect).Requires(color).Run([&]<class Sample>(SampleTag<Sample>, const CEffectRect& r) {
        return FillKernel<Sample>(image, r, color);
    });
}

int32_t KXEffectsSolarize(KXImage* source, KXImage* destination, const KXRect* rect)
{
    // Unlike the other effects, solarize reports an unknown depth as a bad image format.
    return EntryPoint(source, destination, rect)
        .Require(
            [&] {
                const int32_t depth = KXImageGetDepth(source);
                return depth == 8 || depth == 16 || depth == 32;
            },
            kKXErrBadImageFormat)
        .Run([&]<class Sample>(SampleTag<Sample>, const CEffectRect& effectRect) {
            return SolarizeKernel<Sample>(source, destination, effectRect);
        });
}
