// Test helpers: depth lists, image makers for lockable and unbuffered images, random fills, pixel readers
// with the views' edge replication, and the checks that compare a result with its expectation.
#pragma once

#include "KXEffects.h"
#include "KXEffectsSample.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <utility>
#include <vector>

inline constexpr int32_t kDepths[] = {8, 16, 32};
inline constexpr bool kLockable[] = {true, false};

inline float WhiteOf(int32_t depth)
{
    return depth == 8 ? 255.0f : depth == 16 ? 65535.0f : 1.0f;
}

// An 8-bit level in the scale of a depth: v, v x 257, v / 255.
inline float LevelAt(float level, int32_t depth)
{
    return depth == 8 ? level : depth == 16 ? level * 257.0f : level / 255.0f;
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

// A blend-mode code from its four characters, most significant first.
constexpr uint32_t Code(const char* text)
{
    return uint32_t(uint8_t(text[0])) << 24 | uint32_t(uint8_t(text[1])) << 16 | uint32_t(uint8_t(text[2])) << 8 |
           uint32_t(uint8_t(text[3]));
}

// Owns one image reference; samples go in and out in raw scale (0..255, 0..65535, float as stored),
// row-major and interleaved.
class TestImage {
public:
    TestImage(const KXRect& bounds, int32_t depth, int32_t planes, int32_t transparency, bool lockable = true,
              int32_t colorSpace = -1)
    {
        if (colorSpace < 0)
            colorSpace = planes - transparency == 1 ? KXColorSpaceGray : KXColorSpaceRGB;
        KXImageCreateWithParams2(&bounds, depth, planes, colorSpace, transparency,
                                 lockable ? KXDataSourceMemory : KXDataSourceUnbuffered, &m_image);
    }
    // Takes over a reference that the caller holds, as from KXEffectsCreateLuminosityImage.
    static TestImage Adopt(KXImage* image) { return TestImage(image); }
    TestImage(TestImage&& other) noexcept : m_image(std::exchange(other.m_image, nullptr)) {}
    TestImage(const TestImage&) = delete;
    TestImage& operator=(const TestImage&) = delete;
    ~TestImage() { KXImageRelease(m_image); } // null after a move: released as nothing

    operator KXImage*() const { return m_image; }
    KXImage* get() const { return m_image; }
    KXRect Bounds() const { return KXImageGetBounds(m_image); }
    int32_t Depth() const { return KXImageGetDepth(m_image); }
    int32_t Planes() const { return KXImageGetNumPlanes(m_image); }
    bool Lockable() const { return KXImageGetDataSourceType(m_image) == KXDataSourceMemory; }
    // A new image of the same layout, of the same kind unless told.
    TestImage Like(int32_t lockable = -1) const
    {
        return TestImage(Bounds(), Depth(), Planes(), KXImageGetTransparency(m_image),
                         lockable < 0 ? Lockable() : lockable == 1, KXImageGetColorSpaceType(m_image));
    }

    std::vector<float> Samples() const { return Read(Bounds()); }
    void SetSamples(const std::vector<float>& samples) { Write(Bounds(), samples); }
    float At(int32_t x, int32_t y, int32_t plane) const { return Read(KXRectMake(x, y, 1, 1))[size_t(plane)]; }
    void Set(int32_t x, int32_t y, const std::vector<float>& pixel) { Write(KXRectMake(x, y, 1, 1), pixel); }
    std::vector<float> Read(const KXRect& rect) const
    {
        std::vector<float> samples(size_t(rect.width) * size_t(rect.height) * size_t(Planes()));
        std::vector<uint8_t> bytes(samples.size() * size_t(Depth() / 8));
        KXImageRead2(m_image, &rect, 0, -1, bytes.data(), -1, 0);
        for (size_t i = 0; i < samples.size(); ++i)
            samples[i] = Depth() == 8 ? bytes[i] : Depth() == 16 ? Load<uint16_t>(bytes, i) : Load<float>(bytes, i);
        return samples;
    }
    void Write(const KXRect& rect, const std::vector<float>& samples)
    {
        std::vector<uint8_t> bytes(samples.size() * size_t(Depth() / 8));
        for (size_t i = 0; i < samples.size(); ++i) {
            if (Depth() == 8)
                bytes[i] = uint8_t(samples[i]);
            else
                Depth() == 16 ? Store(bytes, i, uint16_t(samples[i])) : Store(bytes, i, samples[i]);
        }
        KXImageWrite2(m_image, &rect, 0, -1, bytes.data(), -1, 0);
    }
    // Random samples over the whole range of the depth (float: -0.25..1.25 when wide, else 0..1).
    void FillRandom(uint32_t seed, bool wideFloat = false)
    {
        std::mt19937 generator(seed);
        std::uniform_real_distribution<float> unit(wideFloat ? -0.25f : 0.0f, wideFloat ? 1.25f : 1.0f);
        std::uniform_int_distribution<int32_t> level(0, int32_t(WhiteOf(Depth())));
        std::vector<float> samples(size_t(KXImageGetWidth(m_image) * KXImageGetHeight(m_image) * Planes()));
        for (float& sample : samples)
            sample = Depth() == 32 ? unit(generator) : float(level(generator));
        SetSamples(samples);
    }

private:
    explicit TestImage(KXImage* image) : m_image(image) {}
    template <class Sample> static Sample Load(const std::vector<uint8_t>& bytes, size_t index)
    {
        Sample value;
        std::memcpy(&value, &bytes[index * sizeof(Sample)], sizeof(Sample));
        return value;
    }
    template <class Sample> static void Store(std::vector<uint8_t>& bytes, size_t index, Sample value)
    {
        std::memcpy(&bytes[index * sizeof(Sample)], &value, sizeof(Sample));
    }

    KXImage* m_image = nullptr;
};

// An image of random samples: RGBA for 4 planes, gray with alpha for 2, no alpha for 3 and 1.
inline TestImage RandomImage(int32_t depth, bool lockable, uint32_t seed, int32_t planes = 4,
                             const KXRect& bounds = KXRectMake(5, -3, 13, 9))
{
    TestImage image(bounds, depth, planes, planes % 2 == 0 ? 1 : 0, lockable);
    image.FillRandom(seed);
    return image;
}

// A readable name for a case, for SCOPED_TRACE.
inline std::string CaseName(int32_t depth, bool lockable, const std::string& extra = "")
{
    return "depth " + std::to_string(depth) + (lockable ? " lockable " : " unbuffered ") + extra;
}

// Calls fn(depth, lockable) for every depth and both kinds of image.
template <class Fn> void ForEachImageKind(Fn&& fn)
{
    for (int32_t depth : kDepths)
        for (bool lockable : kLockable) {
            SCOPED_TRACE(CaseName(depth, lockable));
            fn(depth, lockable);
        }
}

// A snapshot of an image, read with its edges replicated as the views replicate them.
struct Pixels {
    explicit Pixels(const TestImage& image) : bounds(image.Bounds()), planes(image.Planes()), samples(image.Samples())
    {
    }
    float At(int32_t x, int32_t y, int32_t plane) const
    {
        x = std::clamp(x, bounds.x, bounds.x + bounds.width - 1) - bounds.x;
        y = std::clamp(y, bounds.y, bounds.y + bounds.height - 1) - bounds.y;
        return samples[(size_t(y) * size_t(bounds.width) + size_t(x)) * size_t(planes) + size_t(plane)];
    }
    KXRect bounds;
    int32_t planes;
    std::vector<float> samples;
};

// Every sample of image inside region (cut to the image): expected(x, y, plane) within tolerance.
template <class Expected>
void ExpectRegion(const TestImage& image, const KXRect& region, float tolerance, Expected&& expected)
{
    const Pixels result(image);
    const KXRect inside = KXRectIntersect(&region, &result.bounds);
    for (int32_t y = inside.y; y < inside.y + inside.height; ++y)
        for (int32_t x = inside.x; x < inside.x + inside.width; ++x)
            for (int32_t p = 0; p < result.planes; ++p)
                ASSERT_NEAR(result.At(x, y, p), expected(x, y, p), tolerance) << "at " << x << "," << y << ", " << p;
}

// Two images alike in every sample within tolerance.
inline void ExpectSameImage(const TestImage& actual, const TestImage& expected, float tolerance = 0.0f)
{
    const Pixels want(expected);
    ExpectRegion(actual, want.bounds, tolerance, [&](int32_t x, int32_t y, int32_t p) { return want.At(x, y, p); });
}

using ImageEffect = std::function<int32_t(KXImage* source, KXImage* destination, const KXRect* rect)>;
// The expected colour of a pixel, both in 0..1.
using PixelFormula = std::function<void(const float* rgb, float* out)>;

// A pixel effect at every depth and image kind over a random RGBA image 9 wide (a vector tail after 8):
// each colour sample is the formula of its pixel stored by the depth's rule, within the tolerance of the
// depth's own scale, and alpha is the source's.
inline void ExpectPixelEffect(const ImageEffect& effect, const PixelFormula& formula, float integerTolerance = 0.0f,
                              float floatTolerance = 0.0f, uint32_t seed = 17)
{
    ForEachImageKind([&](int32_t depth, bool lockable) {
        const TestImage source = RandomImage(depth, lockable, seed, 4, KXRectMake(-3, 2, 9, 4));
        const TestImage destination = source.Like();
        const KXRect bounds = source.Bounds();
        ASSERT_EQ(effect(source, destination, &bounds), kKXNoErr);
        const Pixels in(source);
        const float tolerance = depth == 32 ? floatTolerance : integerTolerance;
        ExpectRegion(destination, bounds, tolerance, [&](int32_t x, int32_t y, int32_t p) {
            float rgb[3], want[3];
            for (int32_t c = 0; c < 3; ++c)
                rgb[c] = UnitOf(in.At(x, y, c), depth);
            formula(rgb, want);
            return p == 3 ? in.At(x, y, p) : StoredOf(want[p], depth);
        });
    });
}
