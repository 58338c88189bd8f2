// Plane statistics: means and standard deviations of the planes of a rectangle, with the luma of RGB beside them.
#include "KXEffectsDispatch.h"
#include "KXEffectsRowLoop.h"

#include <algorithm>
#include <cmath>

namespace {

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
