// Variance: the local standard deviation (not the variance; the name is kept) from two box blurs, of the
// samples and of their squares.
#include "KXEffectsBoxBlur.h"
#include "KXEffectsEntry.h"
#include "KXEffectsRowLoop.h"

#include <algorithm>
#include <cmath>
#include <type_traits>

namespace {
constexpr const char* kSourceFile = "Source/Common/KXEffects/KXEffectsVariance";

// The squares of 8-bit samples fit 16 bits, those of 16-bit samples unsigned 32 bits, held in a 32-bit image.
template <class Sample> struct SquareOf;
template <> struct SquareOf<uint8_t> {
    using Type = uint16_t;
};
template <> struct SquareOf<uint16_t> {
    using Type = uint32_t;
};
template <> struct SquareOf<float> {
    using Type = float;
};

// truncate(sqrtf(q - m x m) + 0.5), the difference in signed 32 bits; a negative one (from the rounding
// of the two means) ends as 0.
inline uint8_t Deviation(uint16_t square, uint8_t mean)
{
    const int32_t difference = int32_t(square) - int32_t(mean) * int32_t(mean);
    return FromRaw<uint8_t>(std::sqrt(float(std::max(difference, 0))));
}

// The same with an unsigned 32-bit difference: a negative one wraps into a large value, which is accepted.
inline uint16_t Deviation(uint32_t square, uint16_t mean)
{
    return FromRaw<uint16_t>(std::sqrt(float(square - uint32_t(mean) * uint32_t(mean))));
}

// sqrtf(q - m x m), unrounded.
inline float Deviation(float square, float mean)
{
    return std::sqrt(square - mean * mean);
}

// Every sample of the source, alpha included, squared into the work image.
template <class Sample> void SquareKernel(KXImage* source, KXImage* squares, const CEffectRect& bounds)
{
    using Square = typename SquareOf<Sample>::Type;
    const size_t count = size_t(bounds.Width()) * size_t(KXImageGetNumPlanes(source));
    WalkRows<Square>(bounds, Sources<Sample>{source}, squares, {.alphaSource = RowWalkOrder::kNoAlphaCopy},
                     [&](int32_t, const Sample* in, Square* out) {
                         for (size_t i = 0; i < count; ++i)
                             out[i] = Square(Square(in[i]) * Square(in[i]));
                     });
}

// The destination holds the mean; it is read by one view and written by another, so that a destination
// without a locked buffer works as well. Alpha comes from the mean.
template <class Sample> void DeviationKernel(KXImage* squares, KXImage* destination, const CEffectRect& rect)
{
    using Square = typename SquareOf<Sample>::Type;
    const PixelLayout layout = LayoutOf(destination);
    WalkRows<Sample>(rect, Sources<Square, Sample>{squares, destination}, destination, {.alphaSource = 1},
                     [&](int32_t, const Square* square, const Sample* mean, Sample* out) {
                         for (int32_t x = 0; x < rect.Width(); ++x)
                             for (int32_t c = 0; c < layout.colourPlanes; ++c) {
                                 const int32_t at = x * layout.planes + c;
                                 out[at] = Deviation(square[at], mean[at]);
                             }
                     });
}

// 16-bit squares pass 16 bits, so their blur reads them as unsigned 32-bit integers.
template <class Sample> int32_t BlurSquares(KXImage* squares, const KXRect* rect, int32_t radius)
{
    if constexpr (std::is_same_v<Sample, uint16_t>)
        return KXEffectsBoxBlurInt(squares, squares, rect, -radius, radius, -radius, radius);
    else
        return BoxBlurDispatch(squares, squares, squares, rect, radius, KXPointMake(0, 0), 1.0f);
}

// The squares are taken before the mean is written, so that source and destination may be one image.
template <class Sample>
int32_t VarianceKernel(KXImage* source, KXImage* destination, const KXRect* rect, const CEffectRect& effectRect,
                       int32_t radius)
{
    const KXRect bounds = KXImageGetBounds(source);
    CImageRef squares;
    KX_THROW_IF_ERROR(KXImageCreateWithParams2(&bounds, int32_t(sizeof(typename SquareOf<Sample>::Type)) * 8,
                                               KXImageGetNumPlanes(source), KXImageGetColorSpaceType(source),
                                               KXImageGetTransparency(source), KXDataSourceMemory, squares.Out()));
    SquareKernel<Sample>(source, squares, CEffectRect::FromKXRect(bounds));
    KX_THROW_IF_ERROR(BoxBlurDispatch(source, source, destination, rect, radius, KXPointMake(0, 0), 1.0f));
    KX_THROW_IF_ERROR(BlurSquares<Sample>(squares, rect, radius));
    DeviationKernel<Sample>(squares, destination, effectRect);
    return kKXNoErr;
}

} // namespace

int32_t KXEffectsVariance(KXImage* source, KXImage* destination, const KXRect* rect, int32_t radius)
{
    // A negative radius is taken as 0: the mean is the sample itself.
    return EntryPoint(source, destination, rect)
        .Catching(kSourceFile, __LINE__)
        .Run([&]<class Sample>(SampleTag<Sample>, const CEffectRect& effectRect) {
            return VarianceKernel<Sample>(source, destination, rect, effectRect, std::max(radius, 0));
        });
}
