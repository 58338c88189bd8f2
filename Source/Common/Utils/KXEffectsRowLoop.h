// The common row loops of the effects: views on source and destination, alpha carried across, then the
// colour planes of every pixel; and the read-only pixel loop of the analyses.
#pragma once

#include "KXEffectsDispatch.h"
#include "KXEffectsUtils.h"

#include <type_traits>

struct PixelLayout {
    int32_t planes;
    int32_t colourPlanes;
    int32_t transparency;
};

inline PixelLayout LayoutOf(KXImage* image)
{
    const int32_t planes = KXImageGetNumPlanes(image);
    const int32_t transparency = KXImageGetTransparency(image);
    return {planes, planes - transparency, transparency};
}

// Calls fn(planes, colourPlanes) with compile-time counts for the usual pixel forms (gray, gray with
// alpha, RGB, RGB with alpha), so that pixel loops unroll and vectorise; plain integers otherwise.
template <class Fn> void WithPlaneCounts(const PixelLayout& layout, Fn&& fn)
{
    using std::integral_constant;
    if (layout.planes == 4 && layout.colourPlanes == 3)
        fn(integral_constant<int32_t, 4>{}, integral_constant<int32_t, 3>{});
    else if (layout.planes == 3 && layout.colourPlanes == 3)
        fn(integral_constant<int32_t, 3>{}, integral_constant<int32_t, 3>{});
    else if (layout.planes == 1 && layout.colourPlanes == 1)
        fn(integral_constant<int32_t, 1>{}, integral_constant<int32_t, 1>{});
    else if (layout.planes == 2 && layout.colourPlanes == 1)
        fn(integral_constant<int32_t, 2>{}, integral_constant<int32_t, 1>{});
    else
        fn(layout.planes, layout.colourPlanes);
}

// The common loop of ForEachRow below, with a one-plane mask's row beside each row (null without a mask).
// The mask view, when there is one, is attached after the two images and read row by row with them.
template <class Sample, class RowKernel>
void ForEachRowWithMaskView(KXImage* source, KXImage* destination, KXImage* mask, const CEffectRect& rect,
                            RowKernel&& rowKernel)
{
    // An empty rectangle touches nothing: a row served from scratch would otherwise be written back unset.
    if (rect.IsEmpty())
        return;
    const PixelLayout layout = LayoutOf(destination);
    const int32_t width = rect.right - rect.left;
    CImageView sourceView(source);
    CImageView destinationView(destination);
    CImageView maskView;
    if (mask)
        maskView.Attach(mask);
    for (int32_t row = rect.top; row < rect.bottom; ++row) {
        const auto* in = static_cast<const Sample*>(sourceView.ReadRow(row, rect.left, width));
        auto* out = static_cast<Sample*>(destinationView.WriteRow(row, rect.left, width));
        if (layout.transparency != 0 && in != out)
            std::memmove(out, in, size_t(width) * size_t(layout.planes) * sizeof(Sample));
        rowKernel(in, out, mask ? maskView.ReadRow(row, rect.left, width) : nullptr, width, layout);
    }
    destinationView.Detach();
    sourceView.Detach();
}

// rowKernel(const Sample* in, Sample* out, int32_t width, const PixelLayout& layout) for every row of rect,
// the source walked with the destination's plane count. With transparency the source row is first
// copied over the destination row whole, which carries alpha across. In place, in and out are one row.
template <class Sample, class RowKernel>
void ForEachRow(KXImage* source, KXImage* destination, const CEffectRect& rect, RowKernel&& rowKernel)
{
    ForEachRowWithMaskView<Sample>(source, destination, nullptr, rect,
                                   [&](const Sample* in, Sample* out, const void*, int32_t width,
                                       const PixelLayout& layout) { rowKernel(in, out, width, layout); });
}

// pixelKernel(in, out, colourPlanes, m) for every pixel of rect, m the one-plane mask's sample at the pixel
// in 0..1, whatever the mask's depth. Alpha as in ForEachRow. A mask of another plane width is thrown as
// kKXErrUnsupported.
template <class Sample, class PixelKernel>
void ForEachMaskedPixel(KXImage* source, KXImage* destination, KXImage* mask, const CEffectRect& rect,
                        PixelKernel&& pixelKernel)
{
    const int32_t status = DispatchPlaneBytes(KXImageGetPlaneBytes(mask), [&](auto maskTag) {
        using MaskSample = typename decltype(maskTag)::Type;
        ForEachRowWithMaskView<Sample>(
            source, destination, mask, rect,
            [&](const Sample* in, Sample* out, const void* maskRow, int32_t width, const PixelLayout& layout) {
                const auto* coverage = static_cast<const MaskSample*>(maskRow);
                WithPlaneCounts(layout, [&](auto planes, auto colourPlanes) {
                    for (int32_t x = 0; x < width; ++x)
                        pixelKernel(in + x * planes, out + x * planes, colourPlanes, ToUnit(coverage[x]));
                });
            });
        return int32_t(kKXNoErr);
    });
    if (status != kKXNoErr)
        KXEffectsRaise(status, "Source/Common/Utils/KXEffectsRowLoop", __LINE__);
}

// pixelKernel(const Sample* in, Sample* out, colourPlanes) for every pixel of rect; alpha as in ForEachRow.
template <class Sample, class PixelKernel>
void ForEachPixel(KXImage* source, KXImage* destination, const CEffectRect& rect, PixelKernel&& pixelKernel)
{
    ForEachRow<Sample>(source, destination, rect,
                       [&](const Sample* in, Sample* out, int32_t width, const PixelLayout& layout) {
                           WithPlaneCounts(layout, [&](auto planes, auto colourPlanes) {
                               for (int32_t x = 0; x < width; ++x)
                                   pixelKernel(in + x * planes, out + x * planes, colourPlanes);
                           });
                       });
}

// The whole image as a rectangle.
inline CEffectRect BoundsOf(KXImage* image)
{
    return CEffectRect::FromKXRect(KXImageGetBounds(image));
}

// pixelFn(pixel, planes, colourPlanes) for every pixel of rect, read only.
template <class Sample, class PixelFn>
void ForEachImagePixel(KXImage* image, const CEffectRect& rect, PixelFn&& pixelFn)
{
    if (rect.IsEmpty())
        return;
    CImageView view(image);
    WithPlaneCounts(LayoutOf(image), [&](auto planes, auto colourPlanes) {
        for (int32_t row = rect.top; row < rect.bottom; ++row) {
            const auto* in = static_cast<const Sample*>(view.ReadRow(row, rect.left, rect.Width()));
            for (int32_t x = 0; x < rect.Width(); ++x)
                pixelFn(in + x * planes, planes, colourPlanes);
        }
    });
    view.Detach();
}
