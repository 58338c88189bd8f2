// The common row loop of the effects: views on the sources and the destination, alpha carried across, then
// the kernel on each row; the pixel forms built on it; and the read-only pixel loop of the analyses.
#pragma once

#include "KXEffectsDispatch.h"
#include "KXEffectsUtils.h"

#include <algorithm>
#include <array>
#include <climits>
#include <memory>
#include <span>
#include <type_traits>
#include <utility>

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

// The source images of a walk with the sample type each is read as; void for one the kernel types itself.
// A null image has no view and gives null rows.
template <class... Samples> struct Sources {
    std::array<KXImage*, sizeof...(Samples)> images;
};

// The order of a walk's view calls and how it carries alpha; the default is the common loop.
struct RowWalkOrder {
    static constexpr int32_t kNoAlphaCopy = -1;

    // The source whose row is copied whole over the destination row when the destination has transparency;
    // kNoAlphaCopy where the kernel writes every plane itself. Only a source read before the destination
    // row is asked for, so none in a walk without sources.
    int32_t alphaSource = 0;
    // The sources from this one on are read after the destination row is asked for.
    int32_t firstLateSource = INT32_MAX;
    // The destination row is read before it is asked for, so that the kernel changes it in place: both hand
    // out the same locked row or the same scratch copy.
    bool readDestination = false;
};

namespace rowwalk {

// Reads row of sources [first, last) into rows; sources without an image give null.
inline void ReadSources(std::span<CImageView> views, std::span<const void*> rows, size_t first, size_t last,
                        int32_t row, const CEffectRect& rect)
{
    for (size_t k = first; k < last; ++k)
        rows[k] = views[k].Image() ? views[k].ReadRow(row, rect.left, rect.Width()) : nullptr;
}

// The one walker: views attached to the sources in order, then to the destination unless Out is void (a walk
// that only reads); for each row of rect the sources read, the destination row asked for, alpha copied, the
// late sources read, then rowKernel(row, out). An empty rectangle touches nothing. A walk that writes takes
// only the rows of rect inside the destination, since the others would be dropped at write-back: a rectangle
// reaching far beyond the image costs only its rows inside.
template <class Out, class RowKernel>
void Walk(const CEffectRect& rect, std::span<KXImage* const> sources, std::span<CImageView> views,
          std::span<const void*> rows, KXImage* destination, const RowWalkOrder& order, RowKernel&& rowKernel)
{
    int32_t top = rect.top, bottom = rect.bottom;
    if constexpr (!std::is_void_v<Out>) {
        const CEffectRect bounds = CEffectRect::FromKXRect(KXImageGetBounds(destination));
        if (rect.right <= bounds.left || rect.left >= bounds.right)
            return;
        top = std::max(top, bounds.top);
        bottom = std::min(bottom, bounds.bottom);
    }
    if (rect.IsEmpty() || top >= bottom)
        return;
    const int32_t width = rect.Width();
    for (size_t k = 0; k < sources.size(); ++k)
        if (sources[k])
            views[k].Attach(sources[k]);
    const size_t early = std::min(sources.size(), size_t(order.firstLateSource));
    CImageView destinationView;
    size_t alphaBytes = 0;
    if constexpr (!std::is_void_v<Out>) {
        const PixelLayout layout = LayoutOf(destination);
        if (order.alphaSource >= 0 && size_t(order.alphaSource) < early && layout.transparency != 0)
            alphaBytes = size_t(width) * size_t(layout.planes) * sizeof(Out);
        destinationView.Attach(destination);
    }
    for (int32_t row = top; row < bottom; ++row) {
        ReadSources(views, rows, 0, early, row, rect);
        Out* out = nullptr;
        if constexpr (!std::is_void_v<Out>) {
            if (order.readDestination)
                destinationView.ReadRow(row, rect.left, width);
            out = static_cast<Out*>(destinationView.WriteRow(row, rect.left, width));
            const void* alpha = alphaBytes ? rows[size_t(order.alphaSource)] : nullptr;
            if (alpha && alpha != out)
                std::memmove(out, alpha, alphaBytes);
        }
        ReadSources(views, rows, early, sources.size(), row, rect);
        rowKernel(row, out);
    }
    destinationView.Detach();
    for (size_t k = views.size(); k-- > 0;)
        views[k].Detach();
}

template <class Out, class... In, class RowKernel>
void WalkTyped(const CEffectRect& rect, const Sources<In...>& sources, KXImage* destination, const RowWalkOrder& order,
               RowKernel&& rowKernel)
{
    std::array<CImageView, sizeof...(In)> views;
    std::array<const void*, sizeof...(In)> rows{};
    Walk<Out>(rect, sources.images, views, rows, destination, order, [&](int32_t row, Out* out) {
        [&]<size_t... k>(std::index_sequence<k...>)
        {
            if constexpr (std::is_void_v<Out>)
                rowKernel(row, static_cast<const In*>(rows[k])...);
            else
                rowKernel(row, static_cast<const In*>(rows[k])..., out);
        }
        (std::index_sequence_for<In...>{});
    });
}

} // namespace rowwalk

// rowKernel(row, const In*... sourceRows, Out* out) for every row of rect, rows from rect.left, rect.Width()
// samples wide; with the order's defaults alpha comes from the first source as in the common loop.
template <class Out, class... In, class RowKernel>
void WalkRows(const CEffectRect& rect, const Sources<In...>& sources, KXImage* destination, const RowWalkOrder& order,
              RowKernel&& rowKernel)
{
    rowwalk::WalkTyped<Out>(rect, sources, destination, order, rowKernel);
}

template <class Out, class... In, class RowKernel>
void WalkRows(const CEffectRect& rect, const Sources<In...>& sources, KXImage* destination, RowKernel&& rowKernel)
{
    rowwalk::WalkTyped<Out>(rect, sources, destination, RowWalkOrder{}, rowKernel);
}

// Analysis: rowKernel(row, const In*... sourceRows), nothing written.
template <class... In, class RowKernel>
void WalkSourceRows(const CEffectRect& rect, const Sources<In...>& sources, RowKernel&& rowKernel)
{
    rowwalk::WalkTyped<void>(rect, sources, nullptr, RowWalkOrder{}, rowKernel);
}

// Fills and generated images: rowKernel(row, Out* out), with order.readDestination to change rows in place.
template <class Out, class RowKernel>
void WalkDestinationRows(const CEffectRect& rect, KXImage* destination, const RowWalkOrder& order,
                         RowKernel&& rowKernel)
{
    rowwalk::WalkTyped<Out>(rect, Sources<>{}, destination, order, rowKernel);
}

// Any number of sources, each typed by the kernel: rowKernel(row, const void* const* sourceRows, Out* out).
// Views for so many are allocated once; a failed allocation is thrown as kKXErrOutOfMemory.
template <class Out, class RowKernel>
void WalkRows(const CEffectRect& rect, std::span<KXImage* const> sources, KXImage* destination,
              const RowWalkOrder& order, RowKernel&& rowKernel)
{
    std::unique_ptr<CImageView[]> views(new (std::nothrow) CImageView[sources.size()]);
    std::unique_ptr<const void*[]> rows(new (std::nothrow) const void*[sources.size()]());
    if (!views || !rows)
        KXEffectsRaise(kKXErrOutOfMemory, "Source/Common/Utils/KXEffectsRowLoop", __LINE__);
    rowwalk::Walk<Out>(rect, sources, {views.get(), sources.size()}, {rows.get(), sources.size()}, destination, order,
                       [&](int32_t row, Out* out) { rowKernel(row, rows.get(), out); });
}

// rowKernel(row, const Sample* in, Sample* out, int32_t width, const PixelLayout& layout) for every row of
// rect, the source walked with the destination's plane count. With transparency the source row is first
// copied over the destination row whole, which carries alpha across. In place, in and out are one row.
template <class Sample, class RowKernel>
void ForEachRow(KXImage* source, KXImage* destination, const CEffectRect& rect, RowKernel&& rowKernel)
{
    const PixelLayout layout = LayoutOf(destination);
    WalkRows<Sample>(rect, Sources<Sample>{source}, destination, [&](int32_t row, const Sample* in, Sample* out) {
        rowKernel(row, in, out, rect.Width(), layout);
    });
}

// pixelKernel(in, out, colourPlanes, m) for every pixel of rect, m the one-plane mask's sample at the pixel
// in 0..1, whatever the mask's depth; the mask is read after the destination row is asked for. Alpha as in
// ForEachRow. A mask of another plane width is thrown as kKXErrUnsupported.
template <class Sample, class PixelKernel>
void ForEachMaskedPixel(KXImage* source, KXImage* destination, KXImage* mask, const CEffectRect& rect,
                        PixelKernel&& pixelKernel)
{
    const PixelLayout layout = LayoutOf(destination);
    const int32_t status = DispatchPlaneBytes(KXImageGetPlaneBytes(mask), [&](auto maskTag) {
        using MaskSample = typename decltype(maskTag)::Type;
        WalkRows<Sample>(rect, Sources<Sample, MaskSample>{source, mask}, destination, {.firstLateSource = 1},
                         [&](int32_t, const Sample* in, const MaskSample* coverage, Sample* out) {
                             WithPlaneCounts(layout, [&](auto planes, auto colourPlanes) {
                                 for (int32_t x = 0; x < rect.Width(); ++x)
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
                       [&](int32_t, const Sample* in, Sample* out, int32_t width, const PixelLayout& layout) {
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

// pixel(rgb, extra...) on the three colour samples of a pixel, read into 0..1 and stored back by the
// depth's rule.
template <class Sample, class PixelFn, class... Extra>
inline void ChangeColour(const Sample* in, Sample* out, PixelFn&& pixel, Extra... extra)
{
    float rgb[3] = {ToUnit(in[0]), ToUnit(in[1]), ToUnit(in[2])};
    pixel(rgb, extra...);
    for (int32_t c = 0; c < 3; ++c)
        out[c] = FromUnit<Sample>(rgb[c]);
}

// pixel(rgb) on the colour of every pixel of rect; alpha as in ForEachRow.
template <class Sample, class PixelFn>
void ForEachColour(KXImage* source, KXImage* destination, const CEffectRect& rect, PixelFn&& pixel)
{
    ForEachPixel<Sample>(source, destination, rect,
                         [&pixel](const Sample* in, Sample* out, auto) { ChangeColour(in, out, pixel); });
}

// pixel(rgb, m) on the colour of every pixel of rect, m the one-plane mask's sample in 0..1; as
// ForEachMaskedPixel.
template <class Sample, class PixelFn>
void ForEachMaskedColour(KXImage* source, KXImage* destination, KXImage* mask, const CEffectRect& rect, PixelFn&& pixel)
{
    ForEachMaskedPixel<Sample>(source, destination, mask, rect, [&pixel](const Sample* in, Sample* out, auto, float m) {
        ChangeColour(in, out, pixel, m);
    });
}
