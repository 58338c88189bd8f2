// What the sharpening effects share: the pass that sets each colour sample from its unsharpened value and the
// blurred image beside it, and the way they hand back a blur's failure.
#pragma once

#include "KXEffectsEntry.h"
#include "KXEffectsRowLoop.h"

// out = sampleKernel(s, b) on the colour planes of rect, s from source and b from blurred; blurred and
// destination are taken at the source coordinates minus offset. Alpha comes from source pixel by pixel, after
// the blurred samples are read, so blurred may be destination itself.
template <class Sample, class SampleKernel>
void CombineWithBlur(KXImage* source, KXImage* blurred, KXImage* destination, const CEffectRect& whole, KXPoint offset,
                     SampleKernel&& sampleKernel)
{
    // Only the pixels that land in the destination are computed.
    const CEffectRect rect = whole.Intersection(ShiftedBounds(destination, offset.x, offset.y));
    if (rect.IsEmpty())
        return;
    const PixelLayout layout = LayoutOf(destination);
    const int32_t width = rect.Width();
    CImageView sourceView(source);
    CImageView blurredView(blurred);
    CImageView destinationView(destination);
    WithPlaneCounts(layout, [&](auto planes, auto colourPlanes) {
        for (int32_t row = rect.top; row < rect.bottom; ++row) {
            const auto* in = static_cast<const Sample*>(sourceView.ReadRow(row, rect.left, width));
            const int32_t outRow = int32_t(int64_t(row) - offset.y), outLeft = int32_t(int64_t(rect.left) - offset.x);
            auto* out = static_cast<Sample*>(destinationView.WriteRow(outRow, outLeft, width));
            const auto* low = static_cast<const Sample*>(blurredView.ReadRow(outRow, outLeft, width));
            for (ptrdiff_t at = 0; at < ptrdiff_t(width) * planes; at += planes) {
                for (int32_t c = 0; c < colourPlanes; ++c)
                    out[at + c] = sampleKernel(in[at + c], low[at + c]);
                for (int32_t c = colourPlanes; c < planes; ++c)
                    out[at + c] = in[at + c];
            }
        }
    });
    destinationView.Detach();
    blurredView.Detach();
    sourceView.Detach();
}

// The effects that do not catch hand a blur's failure back as their status, logged under their own file.
inline int32_t LogFailure(int32_t status, const char* file, int32_t line)
{
    if (status != kKXNoErr)
        KXLogEvent(status, file, line);
    return status;
}
