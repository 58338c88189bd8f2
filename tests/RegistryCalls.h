// Calls of registry entries on small test images, shared by the registry's tests, the hostile-input tests
// and the fuzz targets: images made and filled from a hash of the position, settings parsed from the
// entries' texts, destinations that start as a canary.
#pragma once

#include "EffectRunner.h"
#include "KXEffectsRegistry.h"
#include "RegistryWrites.h"
#include "Settings.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <vector>

struct ImageDeleter {
    void operator()(KXImage* image) const { KXImageRelease(image); }
};
using Image = std::unique_ptr<KXImage, ImageDeleter>;

struct Shape {
    int32_t depth;
    int32_t planes; // 4 RGBA, 3 RGB, 2 gray and alpha, 1 gray
    bool lockable;
};

inline Image MakeImage(const KXRect& bounds, const Shape& shape)
{
    KXImage* image = nullptr;
    const int32_t transparency = shape.planes == 4 || shape.planes == 2 ? 1 : 0;
    EXPECT_EQ(KXImageCreateWithParams2(&bounds, shape.depth, shape.planes,
                                       shape.planes >= 3 ? KXColorSpaceRGB : KXColorSpaceGray, transparency,
                                       shape.lockable ? KXDataSourceMemory : KXDataSourceUnbuffered, &image),
              0);
    return Image(image);
}

inline size_t SampleBytes(int32_t depth)
{
    return size_t(depth / 8);
}

inline std::vector<uint8_t> ReadBytes(KXImage* image, const KXRect& rect)
{
    std::vector<uint8_t> bytes(size_t(rect.width) * size_t(rect.height) * size_t(KXImageGetNumPlanes(image)) *
                               SampleBytes(KXImageGetDepth(image)));
    EXPECT_EQ(KXImageRead2(image, &rect, 0, -1, bytes.data(), -1, 0), 0);
    return bytes;
}

inline void WriteBytes(KXImage* image, const KXRect& rect, const std::vector<uint8_t>& bytes)
{
    EXPECT_EQ(KXImageWrite2(image, &rect, 0, -1, bytes.data(), -1, 0), 0);
}

// Samples from a hash of the absolute position, within 0..white (float 0..1), so that an image cut to other
// bounds holds the same pixels where the two overlap.
inline void FillRandom(KXImage* image, uint32_t seed)
{
    const KXRect bounds = KXImageGetBounds(image);
    std::vector<uint8_t> bytes = ReadBytes(image, bounds);
    const int32_t depth = KXImageGetDepth(image);
    const size_t planes = size_t(KXImageGetNumPlanes(image));
    size_t at = 0;
    for (int32_t y = bounds.y; y < bounds.y + bounds.height; ++y)
        for (int32_t x = bounds.x; x < bounds.x + bounds.width; ++x)
            for (size_t plane = 0; plane < planes; ++plane, at += SampleBytes(depth)) {
                uint32_t hash = (uint32_t(x) * 73856093u) ^ (uint32_t(y) * 19349663u) ^ (uint32_t(plane) * 83492791u) ^
                                seed;
                hash = (hash ^ (hash >> 15)) * 2246822519u;
                hash ^= hash >> 13;
                if (depth == 8)
                    bytes[at] = uint8_t(hash);
                else if (depth == 16) {
                    const uint16_t value = uint16_t(hash);
                    std::memcpy(&bytes[at], &value, 2);
                } else {
                    const float value = float(hash % 10001) / 10000.0f;
                    std::memcpy(&bytes[at], &value, 4);
                }
            }
    WriteBytes(image, bounds, bytes);
}

inline Image CopyInto(KXImage* image, const KXRect& bounds, bool lockable)
{
    const Shape shape{KXImageGetDepth(image), KXImageGetNumPlanes(image), lockable};
    Image copy = MakeImage(bounds, shape);
    WriteBytes(copy.get(), bounds, ReadBytes(image, bounds));
    return copy;
}

// The images and values of one call of an entry. Inputs come from the images given (cut to their bounds),
// destinations start as a canary that the effect must not touch outside the rectangle.
struct Call {
    std::unique_ptr<CallValues> values;
    std::vector<Image> owned;
    KXImage* destination = nullptr;
    KXImage* made = nullptr;
    KXRect rect{};
    KXRect found{};
    CFMutableArrayRef masks = nullptr;

    ~Call()
    {
        if (masks)
            CFRelease(masks);
        if (made)
            KXImageRelease(made);
    }
};

struct Inputs {
    KXImage* source;
    KXImage* second;
    KXImage* mask;
};

// Settings at their neutral (or representative) text; images from inputs, cut to bounds. A destination
// shape other than the source's makes a mismatched destination.
inline std::unique_ptr<Call> PrepareCall(const EffectEntry& entry, const Inputs& inputs, const KXRect& bounds,
                                         const KXRect& rect, bool sample, bool lockable, bool inPlace = false,
                                         const Shape* destinationShape = nullptr)
{
    auto call = std::make_unique<Call>();
    call->values = std::make_unique<CallValues>(entry);
    call->rect = rect;
    KXImage* source = call->owned.emplace_back(CopyInto(inputs.source, bounds, lockable)).get();
    const int32_t colourPlanes = KXImageGetNumPlanes(source) - KXImageGetTransparency(source);
    const auto canary = [&](KXImage* like, int32_t planes) {
        const Shape shape = destinationShape ? *destinationShape : Shape{KXImageGetDepth(like), planes, lockable};
        KXImage* image = call->owned.emplace_back(MakeImage(bounds, shape)).get();
        FillRandom(image, 99);
        return image;
    };
    for (size_t index = 0; index < entry.argCount; ++index) {
        const ArgSpec& arg = entry.args[index];
        switch (arg.kind) {
        case ArgKind::Source:
            call->values->Set(index, source);
            break;
        case ArgKind::Destination:
        case ArgKind::InPlace:
            call->destination = inPlace || arg.kind == ArgKind::InPlace ? source
                                                                        : canary(source, KXImageGetNumPlanes(source));
            call->values->Set(index, call->destination);
            break;
        case ArgKind::MaskDestination:
            call->values->Set(index, call->destination = canary(source, 1));
            break;
        case ArgKind::ExtraDestination:
            call->values->Set(index, canary(source, KXImageGetNumPlanes(source)));
            break;
        case ArgKind::Image:
            call->values->Set(index, arg.IsOptional()
                                         ? nullptr
                                         : call->owned.emplace_back(CopyInto(inputs.second, bounds, lockable)).get());
            break;
        case ArgKind::Mask:
            call->values->Set(index, arg.IsOptional() && !sample
                                         ? nullptr
                                         : call->owned.emplace_back(CopyInto(inputs.mask, bounds, lockable)).get());
            break;
        case ArgKind::Masks:
            call->masks = CFArrayCreateMutable(kCFAllocatorDefault, 0, KXUtilsGetArrayCallbacks());
            CFArrayAppendValue(call->masks, call->owned.emplace_back(CopyInto(inputs.mask, bounds, lockable)).get());
            call->values->Set(index, CFArrayRef(call->masks));
            break;
        case ArgKind::Rect:
            call->values->Set(index, static_cast<const KXRect*>(&call->rect));
            break;
        case ArgKind::Out:
            call->values->AddOutput(index);
            break;
        case ArgKind::OutImage:
            call->values->Set(index, &call->made);
            break;
        case ArgKind::OutRect:
            call->values->Set(index, &call->found);
            break;
        case ArgKind::Progress:
            break;
        default:
            call->values->Parse(index, sample ? arg.sample : arg.neutral, colourPlanes);
        }
    }
    return call;
}

// Status of a call; a thrown status is the result too.
inline int32_t RunCall(const Call& call)
{
    try {
        return call.values->Invoke();
    } catch (int32_t status) {
        return status;
    }
}
