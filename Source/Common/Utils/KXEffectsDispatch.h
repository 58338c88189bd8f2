// Resolves the depth of a call once into a kernel instantiated for its sample type.
#pragma once

#include "KXEffects.h"
#include "KXEffectsSample.h"

template <class Sample> struct SampleTag {
    using Type = Sample;
};

// fn(SampleTag<Sample>) for depth 8, 16 or 32; any other depth is kKXErrUnsupported, not logged.
template <class Fn> int32_t DispatchDepth(int32_t depth, Fn&& fn)
{
    switch (depth) {
    case 8:
        return fn(SampleTag<uint8_t>{});
    case 16:
        return fn(SampleTag<uint16_t>{});
    case 32:
        return fn(SampleTag<float>{});
    default:
        return kKXErrUnsupported;
    }
}

// The same keyed by plane bytes 1, 2 or 4.
template <class Fn> int32_t DispatchPlaneBytes(int32_t planeBytes, Fn&& fn)
{
    return planeBytes == 1 || planeBytes == 2 || planeBytes == 4 ? DispatchDepth(planeBytes * 8, fn)
                                                                 : int32_t(kKXErrUnsupported);
}

inline int32_t DispatchImageDepth(KXImage* image, auto&& fn)
{
    return DispatchDepth(KXImageGetDepth(image), fn);
}
