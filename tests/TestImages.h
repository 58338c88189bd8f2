// Test helpers: image makers for every depth and kind, and raw pixel access.
#pragma once

#include "KXEffects.h"
#include "KXEffectsSample.h"

#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

inline constexpr int32_t kDepths[] = {8, 16, 32};
inline constexpr bool kLockable[] = {true, false};

inline float WhiteOf(int32_t depth)
{
    return depth == 8 ? 255.0f : depth == 16 ? 65535.0f : 1.0f;
}

// Raw sample to 0..1, and 0..1 (or, with raw, the sample's own scale) back to a stored sample, by the
// library's sample rules.
inline float UnitOf(float raw, int32_t depth)
{
    return depth == 8 ? ToUnit(uint8_t(raw)) : depth == 16 ? ToUnit(uint16_t(raw)) : raw;
}

inline float StoredOf(float value, int32_t depth, bool raw = false)
{
    if (depth == 8)
        return raw ? FromRaw<uint8_t>(value) : FromUnit<uint8_t>(value);
    return depth == 16 ? (raw ? FromRaw<uint16_t>(value) : FromUnit<uint16_t>(value)) : value;
}

// Owns one image reference.
class TestImage {
public:
    TestImage() = default;
    TestImage(const KXRect& bounds, int32_t depth, int32_t planes, int32_t transparency, bool lockable = true,
              int32_t colorSpace = -1)
    {
        if (colorSpace < 0)
            colorSpace = planes - transparency == 1 ? KXColorSpaceGray : KXColorSpaceRGB;
        KXImageCreateWithParams2(&bounds, depth, planes, colorSpace, transparency,
                                 lockable ? KXDataSourceMemory : KXDataSourceUnbuffered, &m_image);
    }
    ~TestImage() { if (m_image) KXImageRelease(m_image); }
    TestImage(TestImage&& other) noexcept : m_image(other.m_image) { other.m_image = nullptr; }
    TestImage& operator=(TestImage&& other) noexcept
    {
        std::swap(m_image, other.m_image);
        return *this;
    }
    TestImage(const TestImage&) = delete;

    KXImage* get() const { return m_image; }
    operator KXImage*() const { return m_image; }
    KXRect Bounds() const { return KXImageGetBounds(m_image); }
    int32_t Depth() const { return KXImageGetDepth(m_image); }
    int32_t Planes() const { return KXImageGetNumPlanes(m_image); }
    int32_t Width() const { return KXImageGetWidth(m_image); }
    int32_t Height() const { return KXImageGetHeight(m_image); }

    // All samples of the image in raw scale (0..255, 0..65535, float as stored), row-major interleaved.
    std::vector<float> Samples() const
    {
        const KXRect bounds = Bounds();
        const size_t count = size_t(bounds.width) * bounds.height * Planes();
        std::vector<uint8_t> bytes(count * size_t(Depth() / 8));
        KXImageRead2(m_image, &bounds, 0, -1, bytes.data(), -1, 0);
        std::vector<float> samples(count);
        for (size_t i = 0; i < count; ++i)
            samples[i] = RawAt(bytes.data(), i);
        return samples;
    }
    void SetSamples(const std::vector<float>& samples)
    {
        const KXRect bounds = Bounds();
        std::vector<uint8_t> bytes(samples.size() * size_t(Depth() / 8));
        for (size_t i = 0; i < samples.size(); ++i)
            StoreAt(bytes.data(), i, samples[i]);
        KXImageWrite2(m_image, &bounds, 0, -1, bytes.data(), -1, 0);
    }
    // One sample at image coordinates (x, y), raw scale.
    float At(int32_t x, int32_t y, int32_t plane) const
    {
        const KXRect bounds = Bounds();
        const KXRect one = KXRectMake(x, y, 1, 1);
        uint8_t bytes[32] = {};
        KXImageRead2(m_image, &one, 0, -1, bytes, -1, 0);
        (void)bounds;
        return RawAt(bytes, size_t(plane));
    }
    void Set(int32_t x, int32_t y, const std::vector<float>& pixel)
    {
        const KXRect one = KXRectMake(x, y, 1, 1);
        uint8_t bytes[32] = {};
        for (size_t i = 0; i < pixel.size(); ++i)
            StoreAt(bytes, i, pixel[i]);
        KXImageWrite2(m_image, &one, 0, -1, bytes, -1, 0);
    }
    // Random samples over the whole range of the depth (float: -0.25..1.25 when wide, else 0..1).
    void FillRandom(uint32_t seed, bool wideFloat = false)
    {
        std::mt19937 generator(seed);
        std::vector<float> samples(size_t(Width()) * Height() * Planes());
        const float white = WhiteOf(Depth());
        for (float& sample : samples) {
            if (Depth() == 32) {
                std::uniform_real_distribution<float> unit(wideFloat ? -0.25f : 0.0f, wideFloat ? 1.25f : 1.0f);
                sample = unit(generator);
            } else {
                sample = float(std::uniform_int_distribution<int32_t>(0, int32_t(white))(generator));
            }
        }
        SetSamples(samples);
    }

private:
    float RawAt(const uint8_t* bytes, size_t index) const
    {
        switch (Depth()) {
        case 8:
            return bytes[index];
        case 16: {
            uint16_t value;
            std::memcpy(&value, bytes + index * 2, 2);
            return value;
        }
        default: {
            float value;
            std::memcpy(&value, bytes + index * 4, 4);
            return value;
        }
        }
    }
    void StoreAt(uint8_t* bytes, size_t index, float value) const
    {
        if (Depth() == 8) {
            bytes[index] = uint8_t(value);
        } else if (Depth() == 16) {
            const uint16_t sample = uint16_t(value);
            std::memcpy(bytes + index * 2, &sample, 2);
        } else {
            std::memcpy(bytes + index * 4, &value, 4);
        }
    }

    KXImage* m_image = nullptr;
};

// A readable name for a case, for SCOPED_TRACE.
inline std::string CaseName(int32_t depth, bool lockable, const char* extra = "")
{
    return "depth " + std::to_string(depth) + (lockable ? " lockable" : " unbuffered") + " " + extra;
}

// Calls fn(depth, lockable) for every depth and both kinds of image.
template <class Fn> void ForEachImageKind(Fn&& fn)
{
    for (int32_t depth : kDepths)
        for (bool lockable : kLockable)
            fn(depth, lockable);
}
