// Resolves the sample type of a call once into a kernel instantiated for it.
#pragma once

#include "KXEffects.h"
#include "KXEffectsSample.h"

template <class Sample> struct SampleTag {
    using Type = Sample;
};

// fn(SampleTag<Sample>) for 1, 2 or 4 bytes a sample; any other count is kKXErrUnsupported, not logged.
template <class Fn> int32_t DispatchPlaneBytes(int32_t planeBytes, Fn&& fn)
{
    switch (planeBytes) {
    case 1:
        return fn(SampleTag<uint8_t>{});
    case 2:
        return fn(SampleTag<uint16_t>{});
    case 4:
        return fn(SampleTag<float>{});
    default:
        return kKXErrUnsupported;
    }
}

// The sample type of an image. Its plane bytes are always its depth / 8, so keying by either picks the
// same kernel for every image.
template <class Fn> int32_t DispatchSample(KXImage* image, Fn&& fn)
{
    return DispatchPlaneBytes(KXImageGetPlaneBytes(image), fn);
}

// Whether DispatchSample has a kernel for the image, for checks made before dispatching.
inline bool HasSampleKernel(KXImage* image)
{
    return DispatchSample(image, [](auto) { return int32_t(kKXNoErr); }) == kKXNoErr;
}

// By depth 8, 16 or 32.
template <class Fn> int32_t DispatchDepth(int32_t depth, Fn&& fn)
{
    return depth == 8 || depth == 16 || depth == 32 ? DispatchPlaneBytes(depth / 8, fn) : int32_t(kKXErrUnsupported);
}

inline int32_t DispatchImageDepth(KXImage* image, auto&& fn)
{
    return DispatchDepth(KXImageGetDepth(image), fn);
}
