// The one-plane luma image of an RGB picture, for the effects that work on luminance alone.
#include "KXEffectsColorMath.h"
#include "KXEffectsEntry.h"
#include "KXEffectsRowLoop.h"

#include <algorithm>
#include <type_traits>

namespace {

// At the source's depth, the luma p0 x 0.299 + p1 x 0.587 + p2 x 0.114 is rounded in the source's scale
// (floats as they are). Across depths it goes through 0..1, clamped there for integer results, as float
// sources may pass 1.
template <class In, class Out> inline Out LumaSample(const In* pixel)
{
    const float luma = Luma(float(pixel[0]), float(pixel[1]), float(pixel[2]));
    if constexpr (std::is_same_v<In, Out>) {
        return FromRaw<Out>(luma);
    } else {
        const float unit = luma * SampleTraits<In>::kReciprocal;
        if constexpr (kIsFloatSample<Out>)
            return unit;
        else
            return FromUnit<Out>(std::clamp(unit, 0.0f, 1.0f));
    }
}

template <class In, class Out> void LumaKernel(KXImage* source, KXImage* luma, const CEffectRect& rect)
{
    const int32_t planes = KXImageGetNumPlanes(source);
    // Source and luma differ in planes and depth: no row is copied across.
    WalkRows<Out>(rect, Sources<In>{source}, luma, {.alphaSource = RowWalkOrder::kNoAlphaCopy},
                  [&](int32_t, const In* in, Out* out) {
                      for (int32_t x = 0; x < rect.Width(); ++x)
                          out[x] = LumaSample<In, Out>(in + x * planes);
                  });
}

int32_t CreateLuminosity(KXImage* source, KXImage** outImage, const KXRect* rect, int32_t planeBytes)
{
    return DispatchSample(source, [&](auto in) {
        return DispatchPlaneBytes(planeBytes, [&](auto out) {
            CImageRef luma;
            const int32_t status =
                KXImageCreateWithParams2(rect, planeBytes * 8, 1, KXColorSpaceGray, 0, KXDataSourceMemory, luma.Out());
            if (status != kKXNoErr)
                return status;
            LumaKernel<typename decltype(in)::Type, typename decltype(out)::Type>(source, luma,
                                                                                  CEffectRect::FromKXRect(*rect));
            KXImageRetain(luma);
            *outImage = luma;
            return int32_t(kKXNoErr);
        });
    });
}

} // namespace

int32_t KXEffectsCreateLuminosityImage(KXImage* source, KXImage** outImage, const KXRect* rect, int32_t planeBytes)
{
    if (!source || !outImage || !rect)
        return kKXErrBadParam;
    *outImage = nullptr;
    if (!HasThreeColourPlanes(source))
        return kKXErrUnsupported;
    return CreateLuminosity(source, outImage, rect, planeBytes == 0 ? KXImageGetPlaneBytes(source) : planeBytes);
}
