// Grain and noise: the generator's stream and seeding, the positional tile, film grain over a grain image
// and over a repeating tile, and the neutral and failing calls.
#include "KXEffectsNoise.h"
#include "TestImages.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace {

const KXRect kBounds = KXRectMake(-3, 2, 9, 5);
const KXRect kRect = KXRectMake(-4, 3, 10, 3); // one column before the left edge
constexpr float kFill = 3.0f;

bool Inside(size_t pixel)
{
    const int32_t x = kBounds.x + int32_t(pixel) % kBounds.width, y = kBounds.y + int32_t(pixel) / kBounds.width;
    return x >= kRect.x && x < kRect.x + kRect.width && y >= kRect.y && y < kRect.y + kRect.height;
}

// The generator read plainly: the state in 64 bits cut to 32, u by a double division rounded to float.
float NextU(uint32_t& state)
{
    state = uint32_t(uint64_t(state) * 987654321ull);
    return float(double(state) / 4294967296.0) - 0.5f;
}

// A noisy sample: integers truncate (u scale + s) + 0.5 and limit it to 0..white; floats limit u scale + s.
float Noisy(float s, float u, float amount, int32_t depth)
{
    const float white = WhiteOf(depth), v = u * (amount * white * 2.0f) + s;
    if (depth == 32)
        return std::clamp(v, 0.0f, 1.0f);
    return std::clamp(std::trunc(v + 0.5f), 0.0f, white);
}

TEST(Noise, GeneratorStreamRestartsAtTheSeedAndRunsPerSampleOrPerPixel)
{
    uint32_t state = 123456789u;
    EXPECT_FLOAT_EQ(NextU(state), 4227814277.0f / 4294967296.0f - 0.5f); // 123456789 x 987654321 mod 2^32
    EXPECT_EQ(state, 4227814277u);
    NextU(state);
    EXPECT_EQ(state, 2228012789u);
    for (int32_t type : {0, 1})
        for (int32_t planes : {4, 1})
            ForEachImageKind([&](int32_t depth, bool lockable) {
                SCOPED_TRACE(CaseName(depth, lockable, planes == 4 ? "RGBA" : "gray") + " type " + std::to_string(type));
                const int32_t colourPlanes = planes == 4 ? 3 : 1;
                TestImage source(kBounds, depth, planes, planes == 4 ? 1 : 0, lockable);
                TestImage destination(kBounds, depth, planes, planes == 4 ? 1 : 0, lockable);
                source.FillRandom(41);
                const std::vector<float> in = source.Samples();
                for (int32_t call = 0; call < 2; ++call) { // the second call repeats the first
                    destination.SetSamples(std::vector<float>(in.size(), kFill));
                    ASSERT_EQ(KXEffectsAddNoise(source, destination, &kRect, type, 0.3f), kKXNoErr);
                    const std::vector<float> out = destination.Samples();
                    uint32_t expected = 123456789u;
                    for (int32_t y = kRect.y; y < kRect.y + kRect.height; ++y)
                        for (int32_t x = kRect.x; x < kRect.x + kRect.width; ++x) { // outside the image too
                            const size_t at = (size_t(y - kBounds.y) * kBounds.width + size_t(x - kBounds.x)) * planes;
                            const float shared = type == 1 ? NextU(expected) : 0.0f;
                            for (int32_t c = 0; c < colourPlanes; ++c) {
                                const float u = type == 0 ? NextU(expected) : shared;
                                ASSERT_TRUE(x < kBounds.x || out[at + c] == Noisy(in[at + c], u, 0.3f, depth))
                                    << x << "," << y << " plane " << c;
                            }
                            ASSERT_TRUE(x < kBounds.x || planes != 4 || out[at + 3] == in[at + 3]);
                        }
                    for (size_t pixel = 0; pixel < in.size() / size_t(planes); ++pixel)
                        ASSERT_TRUE(Inside(pixel) || out[pixel * size_t(planes)] == kFill) << "pixel " << pixel;
                }
            });
}

// Noise type 2 on a float image of mid-gray at amount 0.5 shows u + 0.5, the tile entry over 65535.
TEST(Noise, PositionalNoiseIsAWhiteUniformTileAtTheAbsolutePosition)
{
    const KXRect bounds = KXRectMake(-20, -10, 300, 270);
    TestImage gray(bounds, 32, 1, 0), first(bounds, 32, 1, 0), second(bounds, 32, 1, 0);
    gray.SetSamples(std::vector<float>(size_t(300) * 270, 0.5f));
    const KXRect a = KXRectMake(-20, -10, 300, 270), b = KXRectMake(7, 3, 40, 9);
    ASSERT_EQ(KXEffectsAddNoise(gray, first, &a, 2, 0.5f), kKXNoErr);
    ASSERT_EQ(KXEffectsAddNoise(gray, second, &b, 2, 0.5f), kKXNoErr);
    for (int32_t y = b.y; y < b.y + b.height; ++y)
        for (int32_t x = b.x; x < b.x + b.width; ++x)
            ASSERT_EQ(first.At(x, y, 0), second.At(x, y, 0)) << x << "," << y;
    const std::vector<float> v = first.Samples();
    const auto at = [&](int32_t x, int32_t y) { return double(v[size_t(y + 10) * 300 + size_t(x + 20)]); };
    double sum = 0.0, squares = 0.0, across = 0.0, down = 0.0;
    for (int32_t y = -10; y < 260; ++y)
        for (int32_t x = -20; x < 280; ++x) {
            ASSERT_TRUE(x >= 24 || at(x, y) == at(x + 256, y)) << x << "," << y; // repeats every 256 columns
            ASSERT_TRUE(y >= 4 || at(x, y) == at(x, y + 256)) << x << "," << y;  // and every 256 rows
        }
    for (int32_t y = 0; y < 256; ++y)
        for (int32_t x = 0; x < 256; ++x) {
            sum += at(x, y);
            squares += at(x, y) * at(x, y);
            across += (at(x, y) - 0.5) * (at((x + 1) & 255, y) - 0.5);
            down += (at(x, y) - 0.5) * (at(x, (y + 1) & 255) - 0.5);
        }
    const double mean = sum / 65536.0, variance = squares / 65536.0 - mean * mean;
    EXPECT_NEAR(mean, 0.5, 0.005);
    EXPECT_NEAR(std::sqrt(variance), std::sqrt(1.0 / 12.0), 0.003);
    EXPECT_LT(std::abs(across / 65536.0 / variance), 0.011);
    EXPECT_LT(std::abs(down / 65536.0 / variance), 0.011);
}

// Every depth and kind: one u for all colour planes of a pixel, the same on any rectangle, and the internal
// kernel in place gives what the exported call gives.
TEST(Noise, PositionalNoiseAgreesAcrossRectanglesAndWithTheInternalKernel)
{
    ForEachImageKind([&](int32_t depth, bool lockable) {
        SCOPED_TRACE(CaseName(depth, lockable));
        TestImage source(kBounds, depth, 4, 1, lockable), whole(kBounds, depth, 4, 1, lockable);
        TestImage part(kBounds, depth, 4, 1, lockable), inPlace(kBounds, depth, 4, 1, lockable);
        const float mid = depth == 32 ? 0.5f : WhiteOf(depth) / 2.0f;
        source.SetSamples(std::vector<float>(size_t(kBounds.width) * kBounds.height * 4, std::trunc(mid)));
        inPlace.SetSamples(source.Samples());
        const KXRect small = KXRectMake(0, 4, 3, 2);
        ASSERT_EQ(KXEffectsAddNoise(source, whole, &kBounds, 2, 0.1f), kKXNoErr);
        ASSERT_EQ(KXEffectsAddNoise(source, part, &small, 2, 0.1f), kKXNoErr);
        ASSERT_EQ(PositionalNoiseDispatch(inPlace, inPlace, &kBounds, 0.1f), kKXNoErr);
        EXPECT_EQ(inPlace.Samples(), whole.Samples());
        for (int32_t y = kBounds.y; y < kBounds.y + kBounds.height; ++y)
            for (int32_t x = kBounds.x; x < kBounds.x + kBounds.width; ++x) {
                ASSERT_EQ(whole.At(x, y, 1), whole.At(x, y, 0));
                ASSERT_EQ(whole.At(x, y, 2), whole.At(x, y, 0));
                const bool overlap = KXPointInRect(KXPointMake(x, y), &small);
                ASSERT_TRUE(!overlap || part.At(x, y, 0) == whole.At(x, y, 0)) << x << "," << y;
            }
    });
}

// The overlay of grain g on b at opacity a, read plainly.
float Overlaid(float b, float g, float a)
{
    const float overlay = b < 0.5f ? 2.0f * b * g : 2.0f * (b + g - b * g) - 1.0f;
    return b * (1.0f - a) + overlay * a;
}

// A one-plane 8-bit grain larger than the image, placed two columns left and one row up of it.
TestImage RandomGrain()
{
    TestImage grain(KXRectMake(kBounds.x - 2, kBounds.y - 1, kBounds.width + 5, kBounds.height + 3), 8, 1, 0);
    grain.FillRandom(53);
    return grain;
}

TEST(Noise, FilmGrainOverlaysTheGrainImageOrRendersItOnGray)
{
    const TestImage grain = RandomGrain();
    const float amount = 0.7f;
    for (bool withSource : {true, false})
        for (int32_t depth : {8, 16})
            for (bool lockable : kLockable) {
                SCOPED_TRACE(CaseName(depth, lockable, withSource ? "source" : "gray"));
                TestImage source(kBounds, depth, 4, 1, lockable), destination(kBounds, depth, 4, 1, lockable);
                source.FillRandom(61);
                const std::vector<float> in = source.Samples();
                destination.SetSamples(std::vector<float>(in.size(), kFill));
                ASSERT_EQ(KXEffectsApplyFilmGrain(withSource ? source.get() : nullptr, destination, &kRect, grain, amount),
                          kKXNoErr);
                const std::vector<float> out = destination.Samples();
                for (size_t pixel = 0; pixel < in.size() / 4; ++pixel) {
                    const size_t at = pixel * 4;
                    const int32_t x = kBounds.x + int32_t(pixel) % kBounds.width,
                                  y = kBounds.y + int32_t(pixel) / kBounds.width;
                    if (!Inside(pixel)) {
                        ASSERT_EQ(out[at], kFill);
                        continue;
                    }
                    const float g = grain.At(x - 2, y - 1, 0) / 255.0f;
                    for (size_t c = 0; c < 3; ++c) {
                        const float result = withSource ? Overlaid(UnitOf(in[at + c], depth), g, amount)
                                                        : g * amount + (1.0f - amount) * 0.5f;
                        ASSERT_EQ(out[at + c], StoredOf(result, depth)) << x << "," << y;
                    }
                    ASSERT_EQ(out[at + 3], withSource ? in[at + 3] : WhiteOf(depth));
                }
            }
}

// Bytes that step through the values from start, for images whose every byte should be told apart.
std::vector<uint8_t> BytePattern(size_t count, uint32_t start, uint32_t step)
{
    std::vector<uint8_t> bytes(count);
    for (size_t i = 0; i < count; ++i)
        bytes[i] = uint8_t(start + uint32_t(i) * step);
    return bytes;
}

// Four-byte destinations are addressed as bytes: each pixel's first colour-plane-count bytes take the
// overlay of the raw source byte (or the gray), stored as result + 0.5 truncated into the byte; without a
// source the byte behind them is 1 when there is a transparency plane. Every other byte keeps what the
// destination held, except that a source with a transparency plane is first copied over the row.
TEST(Noise, FilmGrainOnFloatImagesWritesOnlyTheLeadingBytes)
{
    const TestImage grain = RandomGrain();
    const float amount = 0.6f;
    for (const auto& [planes, transparency] : {std::pair{1, 0}, std::pair{3, 0}, std::pair{4, 1}})
        for (bool withSource : {true, false})
            for (bool lockable : kLockable) {
                SCOPED_TRACE(CaseName(32, lockable, withSource ? "source" : "gray") + " planes " + std::to_string(planes));
                TestImage source(kBounds, 32, planes, transparency, lockable),
                    destination(kBounds, 32, planes, transparency, lockable);
                const size_t pixelBytes = size_t(planes) * 4;
                const size_t count = size_t(kBounds.width) * kBounds.height * pixelBytes;
                const std::vector<uint8_t> in = BytePattern(count, 11, 37), held = BytePattern(count, 200, 53);
                KXImageWrite2(source, &kBounds, 0, -1, in.data(), -1, 0);
                KXImageWrite2(destination, &kBounds, 0, -1, held.data(), -1, 0);
                ASSERT_EQ(KXEffectsApplyFilmGrain(withSource ? source.get() : nullptr, destination, &kRect, grain, amount),
                          kKXNoErr);
                std::vector<uint8_t> expected = held, out(count);
                KXImageRead2(destination, &kBounds, 0, -1, out.data(), -1, 0);
                for (size_t pixel = 0; pixel < count / pixelBytes; ++pixel) {
                    if (!Inside(pixel))
                        continue;
                    const size_t at = pixel * pixelBytes;
                    const int32_t x = kBounds.x + int32_t(pixel) % kBounds.width,
                                  y = kBounds.y + int32_t(pixel) / kBounds.width;
                    const float g = UnitOf(grain.At(x - 2, y - 1, 0), 8);
                    if (withSource && transparency != 0)
                        std::copy_n(in.begin() + ptrdiff_t(at), pixelBytes, expected.begin() + ptrdiff_t(at));
                    const int32_t colourPlanes = planes - transparency;
                    for (int32_t c = 0; c < colourPlanes; ++c) {
                        const float result = withSource ? Overlaid(in[at + size_t(c)], g, amount)
                                                        : g * amount + (1.0f - amount) * 0.5f;
                        expected[at + size_t(c)] = uint8_t(int32_t(result + 0.5f));
                    }
                    if (!withSource && transparency != 0)
                        expected[at + size_t(colourPlanes)] = 1;
                }
                for (size_t i = 0; i < count; ++i)
                    ASSERT_EQ(int32_t(out[i]), int32_t(expected[i])) << "byte " << i % pixelBytes << " of pixel "
                                                                     << i / pixelBytes;
            }
}

// A tile of four values at a scale: the bilinear mean at each pixel centre, read in doubles.
double TileGrain(const std::vector<float>& tile, int32_t x, int32_t y, double scale)
{
    const double fx = (x + 0.5) / scale - 0.5, fy = (y + 0.5) / scale - 0.5;
    const double ix = std::floor(fx), iy = std::floor(fy), wx = fx - ix, wy = fy - iy;
    const auto t = [&](double col, double row) { return double(tile[size_t(int64_t(row) & 1) * 2 + size_t(int64_t(col) & 1)]); };
    return (1 - wx) * (1 - wy) * t(ix, iy) + wx * (1 - wy) * t(ix + 1, iy) + (1 - wx) * wy * t(ix, iy + 1) +
           wx * wy * t(ix + 1, iy + 1);
}

TEST(Noise, FilmGrainTileIsBilinearAtTheAbsolutePositionAndMidGrayIsNeutral)
{
    const std::vector<float> values = {0.1f, 0.9f, 0.6f, 0.3f};
    ForEachImageKind([&](int32_t depth, bool lockable) {
        SCOPED_TRACE(CaseName(depth, lockable));
        TestImage tile(KXRectMake(0, 0, 2, 2), 32, 1, 0), flat(KXRectMake(0, 0, 4, 4), depth, 1, 0);
        tile.SetSamples(values);
        flat.SetSamples(std::vector<float>(16, depth == 32 ? 0.5f : std::ceil(WhiteOf(depth) / 2.0f)));
        TestImage source(kBounds, depth, 4, 1, lockable), destination(kBounds, depth, 4, 1, lockable);
        source.FillRandom(67);
        ASSERT_EQ(KXEffectsApplyFilmGrainTile(nullptr, destination, &kRect, tile, 0.8f, 1.5f), kKXNoErr);
        for (int32_t y = kRect.y; y < kRect.y + kRect.height; ++y)
            for (int32_t x = std::max(kRect.x, kBounds.x); x < kRect.x + kRect.width; ++x) {
                const double gray = TileGrain(values, x, y, 1.5) * 0.8 + 0.2 * 0.5;
                ASSERT_NEAR(destination.At(x, y, 1), gray * WhiteOf(depth), depth == 32 ? 1e-6 : 0.51) << x << "," << y;
                ASSERT_EQ(destination.At(x, y, 3), WhiteOf(depth));
            }
        // A mid-gray tile of the image's depth leaves the picture within a step of rounding.
        ASSERT_EQ(KXEffectsApplyFilmGrainTile(source, destination, &kBounds, flat, 0.6f, 3.0f), kKXNoErr);
        const std::vector<float> in = source.Samples(), out = destination.Samples();
        for (size_t i = 0; i < in.size(); ++i)
            ASSERT_NEAR(out[i], in[i], depth == 32 ? 1e-6 : 1.0) << "sample " << i;
    });
}

TEST(Noise, NeutralSettingsCopyOrFillAndBadCallsFail)
{
    const TestImage grain = RandomGrain();
    ForEachImageKind([&](int32_t depth, bool lockable) {
        SCOPED_TRACE(CaseName(depth, lockable));
        TestImage source(kBounds, depth, 4, 1, lockable), destination(kBounds, depth, 4, 1, lockable);
        source.FillRandom(71, true);
        const std::vector<float> in = source.Samples();
        const std::vector<float> filled(in.size(), kFill);
        const auto expectCopy = [&](int32_t status) {
            ASSERT_EQ(status, kKXNoErr);
            EXPECT_EQ(destination.Samples(), in);
            destination.SetSamples(filled);
        };
        destination.SetSamples(filled);
        expectCopy(KXEffectsAddNoise(source, destination, &kBounds, 3, 0.0f)); // the type is not looked at
        expectCopy(KXEffectsAddNoise(source, destination, &kBounds, 0, -1.0f));
        expectCopy(KXEffectsApplyFilmGrain(source, destination, &kBounds, nullptr, 0.0f));
        expectCopy(KXEffectsApplyFilmGrainTile(source, destination, &kBounds, nullptr, 0.5f, 1.0f));
        ASSERT_EQ(KXEffectsApplyFilmGrainTile(nullptr, destination, &kBounds, grain, -0.5f, 1.0f), kKXNoErr);
        const float mid = StoredOf(0.5f, depth);
        const std::vector<float> gray = destination.Samples();
        for (size_t i = 0; i < gray.size(); ++i)
            ASSERT_EQ(gray[i], i % 4 == 3 ? WhiteOf(depth) : mid);
        destination.SetSamples(filled);
        TestImage smallGrain(KXRectMake(0, 0, kBounds.width, kBounds.height - 1), 8, 1, 0);
        EXPECT_EQ(KXEffectsAddNoise(source, destination, &kRect, 3, 0.5f), kKXErrUnsupported);
        EXPECT_EQ(KXEffectsApplyFilmGrain(source, destination, &kRect, smallGrain, 0.5f), kKXErrUnsupported);
        EXPECT_EQ(destination.Samples(), filled);
        EXPECT_EQ(KXEffectsAddNoise(nullptr, destination, &kRect, 0, 0.5f), kKXErrBadParam);
        EXPECT_EQ(KXEffectsAddNoise(source, destination, nullptr, 0, 0.5f), kKXErrBadParam);
        EXPECT_EQ(KXEffectsApplyFilmGrain(source, nullptr, &kRect, grain, 0.5f), kKXErrBadParam);
        EXPECT_EQ(KXEffectsApplyFilmGrain(source, destination, &kRect, nullptr, 0.5f), kKXErrBadParam);
        EXPECT_EQ(KXEffectsApplyFilmGrainTile(source, destination, &kRect, grain, 0.5f, 0.0f), kKXErrBadParam);
        EXPECT_EQ(destination.Samples(), filled);
    });
}

} // namespace
