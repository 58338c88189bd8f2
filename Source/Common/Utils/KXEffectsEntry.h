// The frame of an exported effect: the argument checks, the neutral copy, the rectangle, the sample type and
// the catching rule. An entry point states its checks in the order it makes them, then runs its kernel:
//
//     return EntryPoint(source, destination, rect).RGBOnly().NeutralWhen(amount == 0.0f).Run(kernel);
//
// The first check that fails gives the status. Once the settings are neutral no later check is made, and
// the rectangle is copied instead of running the kernel.
#pragma once

#include "KXEffectsDispatch.h"
#include "KXEffectsUtils.h"

#include <cmath>
#include <type_traits>

// The colour space of the effects that work on red, green and blue.
inline bool IsRGB(KXImage* image)
{
    return KXImageGetColorSpaceType(image) == KXColorSpaceRGB;
}

// Red, green and blue before any alpha: what the effects that mix the three planes read.
inline bool HasThreeColourPlanes(KXImage* image)
{
    return KXImageGetNumPlanes(image) - KXImageGetTransparency(image) >= 3;
}

// The same plane width and plane count: what the row loops assume of a source and destination they walk
// together, and what the copy of a rectangle needs.
inline bool HaveSameLayout(KXImage* a, KXImage* b)
{
    return KXImageGetPlaneBytes(a) == KXImageGetPlaneBytes(b) && KXImageGetNumPlanes(a) == KXImageGetNumPlanes(b);
}

// The same plane width and colour planes, each image with or without alpha: what the effects that read
// alpha where an image has it and 1 where it has none need of their images.
inline bool HaveSameColourLayout(KXImage* a, KXImage* b)
{
    return KXImageGetPlaneBytes(a) == KXImageGetPlaneBytes(b) &&
           KXImageGetNumPlanes(a) - KXImageGetTransparency(a) == KXImageGetNumPlanes(b) - KXImageGetTransparency(b);
}

class EntryPoint {
public:
    // Source, destination and rect must be set (kKXErrBadParam); the kernel's sample type is the source's.
    EntryPoint(KXImage* source, KXImage* destination, const KXRect* rect)
        : m_source(source), m_destination(destination), m_rect(rect), m_sampleImage(source),
          m_status(source && destination && rect ? kKXNoErr : kKXErrBadParam)
    {
    }
    // An effect that only writes image: fills, products, generated images.
    EntryPoint(KXImage* image, const KXRect* rect) : EntryPoint(image, image, rect) {}

    // Further pointers the effect reads: kKXErrBadParam when one is null.
    template <class... Pointers> EntryPoint& Requires(const Pointers*... pointers)
    {
        return Require([&] { return ((pointers != nullptr) && ...); }, kKXErrBadParam);
    }
    // Any other condition on the arguments, a bool or a test run only if the checks before it passed;
    // status when it does not hold.
    template <class Condition> EntryPoint& Require(Condition&& condition, int32_t status)
    {
        if (Open() && !Holds(condition))
            m_status = status;
        return *this;
    }
    // Settings without an answer for NaN or an endless value: kKXErrBadParam when one is either.
    template <class... Floats> EntryPoint& Finite(Floats... settings)
    {
        return Require((std::isfinite(settings) && ...), kKXErrBadParam);
    }
    // image, the source unless named, must be RGB: kKXErrUnsupported otherwise.
    EntryPoint& RGBOnly(KXImage* image = nullptr)
    {
        return Require([&] { return IsRGB(image ? image : m_source); }, kKXErrUnsupported);
    }
    // Settings that change nothing, a bool or a test as for Require: rect is copied from the source to the
    // destination at rect + offset.
    template <class Condition> EntryPoint& NeutralWhen(Condition&& condition, KXPoint offset = KXPointMake(0, 0))
    {
        if (Open() && Holds(condition)) {
            m_neutral = true;
            m_offset = offset;
        }
        return *this;
    }
    // The destination may have another layout than the source (a mask, another colour model); the effect
    // checks what it needs. Otherwise another plane width or plane count is kKXErrUnsupported before
    // anything is written, the neutral copy included.
    EntryPoint& AnyDestinationLayout()
    {
        m_anyDestinationLayout = true;
        return *this;
    }
    // The kernel's sample type is image's rather than the source's.
    EntryPoint& SampleOf(KXImage* image)
    {
        m_sampleImage = image;
        return *this;
    }
    // A thrown status comes back as the result, std::bad_alloc as kKXErrOutOfMemory and anything else as
    // kKXErrUnexpected, both logged at file and line; the neutral copy included. Without it a thrown status
    // leaves the library.
    EntryPoint& Catching(const char* file, int32_t line)
    {
        m_catchFile = file;
        m_catchLine = line;
        return *this;
    }

    // kernel(SampleTag<Sample>, const CEffectRect&) for the sample type, returning a status or nothing. Another
    // plane size is kKXErrUnsupported, not logged.
    template <class Kernel> int32_t Run(Kernel&& kernel) const
    {
        return Finish([&](const CEffectRect& rect) {
            return DispatchSample(m_sampleImage, [&](auto tag) { return StatusOf([&] { return kernel(tag, rect); }); });
        });
    }
    // body(const CEffectRect&) without a sample type, for effects made of other effects.
    template <class Body> int32_t Compose(Body&& body) const
    {
        return Finish([&](const CEffectRect& rect) { return StatusOf([&] { return body(rect); }); });
    }
    // The effect that is the copy itself.
    int32_t Copy()
    {
        NeutralWhen(true);
        return Compose([](const CEffectRect&) {});
    }

private:
    bool Open() const { return m_status == kKXNoErr && !m_neutral; }

    template <class Condition> static bool Holds(Condition& condition)
    {
        if constexpr (std::is_invocable_r_v<bool, Condition&>)
            return condition();
        else
            return bool(condition);
    }

    template <class Call> static int32_t StatusOf(Call&& call)
    {
        if constexpr (std::is_void_v<decltype(call())>) {
            call();
            return kKXNoErr;
        } else {
            return call();
        }
    }

    template <class Work> int32_t Finish(Work&& work) const
    {
        if (m_status != kKXNoErr)
            return m_status;
        if (!m_anyDestinationLayout && !HaveSameLayout(m_source, m_destination))
            return kKXErrUnsupported;
        const auto run = [&]() -> int32_t {
            const CEffectRect rect = CEffectRect::FromKXRect(*m_rect);
            return m_neutral ? KXEffectsCopyRect(m_source, m_destination, rect, m_offset) : work(rect);
        };
        return m_catchFile ? KXEffectsCatchStatus(m_catchFile, m_catchLine, run) : run();
    }

    KXImage* m_source;
    KXImage* m_destination;
    const KXRect* m_rect;
    KXImage* m_sampleImage;
    int32_t m_status;
    bool m_neutral = false;
    bool m_anyDestinationLayout = false;
    KXPoint m_offset = KXPointMake(0, 0);
    const char* m_catchFile = nullptr;
    int32_t m_catchLine = 0;
};
