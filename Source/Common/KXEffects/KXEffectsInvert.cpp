// Invert and plain copies.
#include "KXEffectsEntry.h"
#include "KXEffectsRowLoop.h"

namespace {

// v' = white - v; 8-bit flips every bit, float is not clamped.
template <class Sample> inline Sample InvertSample(Sample value)
{
    return Sample(kWhiteSample<Sample> - value);
}

template <class Sample> int32_t InvertKernel(KXImage* source, KXImage* destination, const CEffectRect& rect)
{
    ForEachRow<Sample>(source, destination, rect,
                       [](int32_t, const Sample* in, Sample* out, int32_t width, const PixelLayout& layout) {
                           if (layout.transparency == 0) {
                               // No alpha: the row is one run of colour samples.
                               const int32_t count = width * layout.planes;
                               for (int32_t i = 0; i < count; ++i)
                                   out[i] = InvertSample(in[i]);
                               return;
                           }
                           WithPlaneCounts(layout, [&](auto planes, auto colourPlanes) {
                               for (int32_t x = 0; x < width; ++x)
                                   for (int32_t c = 0; c < colourPlanes; ++c)
                                       out[x * planes + c] = InvertSample(in[x * planes + c]);
                           });
                       });
    return kKXNoErr;
}

} // namespace

int32_t KXEffectsInvert(KXImage* source, KXImage* destination, const KXRect* rect)
{
    return EntryPoint(source, destination, rect)
        .Run([&]<class Sample>(SampleTag<Sample>, const CEffectRect& effectRect) {
            return InvertKernel<Sample>(source, destination, effectRect);
        });
}

int32_t KXEffectsCopyImage(KXImage* source, KXImage* destination, const KXRect* rect)
{
    return EntryPoint(source, destination, rect).Copy();
}
