// Grain and noise: the generator's stream and seeding, the positional tile, film grain over a grain image
// and over a repeating tile, and the failing calls.
#include "TestImages.h"

#include <cmath>
#include <utility>

namespace {

const KXRect kBounds = KXRectMake(-3, 2, 9, 5);
const KXRect kRect = KXRectMake(-4, 3, 10, 3); // one column before the left edge

// The generator read plainly: the state in 64 bits cut to 32, u by a double division rounded to float.
float NextU(uint32_t& state)
{
    state = uint32_t(uint64_t(state) * 987654321ull);
    return float(double(state) / 4294967296.0) - 0.5f;
}

// Integers truncate (u scale + s) + 0.5 and limit it to 0..white; floats limit u scale + s.
float Noisy(float s, float u, float amount, int32_t depth)
{
    const float white = WhiteOf(depth), v = u * (amount * white * 2.0f) + s;
    return std::clamp(depth == 32 ? v : std::trunc(v + 0.5f), 0.0f, white);
}

// Type 0 draws a u for each colour sample, type 1 one for each pixel; the stream starts at its seed on
// every call and runs over the rectangle's pixels outside the image too, rows above it included.
TEST(Noise, GeneratorStreamRestartsAtTheSeedAndRunsPerSampleOrPerPixel)
{
    const KXRect streamRect = KXRectMake(-4, -1, 10, 6); // a column before the left edge, three rows above
    uint32_t state = 123456789u;
    EXPECT_FLOAT_EQ(NextU(state), 4227814277.0f / 4294967296.0f - 0.5f); // 123456789 x 987654321 mod 2^32
    EXPECT_EQ(state, 4227814277u);
    for (int32_t type : {0, 1})
        ForEachImageKind([&](int32_t depth, bool lockable) {
            SCOPED_TRACE("type " + std::to_string(type));
            const TestImage source = RandomImage(depth, lockable, 41, 4, kBounds), destination = source.Like();
            const Pixels in(source);
            for (int32_t call = 0; call < 2; ++call) {
                ASSERT_EQ(KXEffectsAddNoise(source, destination, &streamRect, type, 0.3f), kKXNoErr);
                const Pixels out(destination);
                uint32_t expected = 123456789u;
                for (int32_t y = streamRect.y; y < streamRect.y + streamRect.height; ++y)
                    for (int32_t x = streamRect.x; x < streamRect.x + streamRect.width; ++x) {
                        const float shared = type == 1 ? NextU(expected) : 0.0f;
                        for (int32_t c = 0; c < 3; ++c) {
                            const float u = type == 0 ? NextU(expected) : shared;
                            ASSERT_TRUE(x < kBounds.x || y < kBounds.y ||
                                        out.At(x, y, c) == Noisy(in.At(x, y, c), u, 0.3f, depth))
                                << x << "," << y << " plane " << c;
                        }
                        ASSERT_EQ(out.At(x, y, 3), in.At(x, y, 3));
                    }
            }
        });
}

// Noise type 2 on a float image of mid-gray at amount 0.5 shows u + 0.5: a white uniform tile of 256 x 256
// at the absolute position.
TEST(Noise, PositionalNoiseIsAWhiteUniformTileAtTheAbsolutePosition)
{
    const KXRect bounds = KXRectMake(-20, -10, 300, 270);
    TestImage gray(bounds, 32, 1, 0);
    const TestImage noise = gray.Like();
    KXImageFill(gray, 0.5f);
    ASSERT_EQ(KXEffectsAddNoise(gray, noise, &bounds, 2, 0.5f), kKXNoErr);
    const std::vector<float> v = noise.Samples();
    const auto at = [&](int32_t x, int32_t y) { return double(v[size_t(y + 10) * 300 + size_t(x + 20)]); };
    for (int32_t y = -10; y < 260; ++y)
        for (int32_t x = -20; x < 280; ++x) {
            ASSERT_TRUE(x >= 24 || at(x, y) == at(x + 256, y)) << x << "," << y;
            ASSERT_TRUE(y >= 4 || at(x, y) == at(x, y + 256)) << x << "," << y;
        }
    double sum = 0.0, squares = 0.0, across = 0.0;
    for (int32_t y = 0; y < 256; ++y)
        for (int32_t x = 0; x < 256; ++x) {
            sum += at(x, y);
            squares += at(x, y) * at(x, y);
            across += (at(x, y) - 0.5) * (at((x + 1) & 255, y) - 0.5);
        }
    const double mean = sum / 65536.0, variance = squares / 65536.0 - mean * mean;
    EXPECT_NEAR(mean, 0.5, 0.005);
    EXPECT_NEAR(std::sqrt(variance), std::sqrt(1.0 / 12.0), 0.003);
    EXPECT_LT(std::abs(across) / 65536.0 / variance, 0.011); // neighbours uncorrelated
}

// A one-plane 8-bit grain larger than the image, placed two columns left and one row up of it.
TestImage RandomGrain()
{
    return RandomImage(8, true, 53, 1, KXRectMake(kBounds.x - 2, kBounds.y - 1, kBounds.width + 5, kBounds.height + 3));
}

// The grain g overlays the picture b at opacity a; without a picture it lies over mid gray, opaque.
TEST(Noise, FilmGrainOverlaysTheGrainImageOrRendersItOnGray)
{
    const TestImage grain = RandomGrain();
    const Pixels g(grain);
    for (bool withSource : {true, false})
        for (int32_t depth : {8, 16})
            for (bool lockable : kLockable) {
                SCOPED_TRACE(CaseName(depth, lockable, withSource ? "source" : "gray"));
                const TestImage source = RandomImage(depth, lockable, 61, 4, kBounds), destination = source.Like();
                KXImage* picture = withSource ? source.get() : nullptr;
                ASSERT_EQ(KXEffectsApplyFilmGrain(picture, destination, &kRect, grain, 0.7f), kKXNoErr);
                const Pixels in(source);
                ExpectRegion(destination, kRect, 0.0f, [&](int32_t x, int32_t y, int32_t p) {
                    if (p == 3)
                        return withSource ? in.At(x, y, p) : WhiteOf(depth);
                    const float t = g.At(x - 2, y - 1, 0) / 255.0f, b = UnitOf(in.At(x, y, p), depth);
                    const float overlay = b < 0.5f ? 2.0f * b * t : 2.0f * (b + t - b * t) - 1.0f;
                    return StoredOf(withSource ? b * 0.3f + overlay * 0.7f : t * 0.7f + 0.3f * 0.5f, depth);
                });
            }
}

bool Inside(size_t pixel)
{
    const int32_t x = kBounds.x + int32_t(pixel) % kBounds.width, y = kBounds.y + int32_t(pixel) / kBounds.width;
    return x >= kRect.x && x < kRect.x + kRect.width && y >= kRect.y && y < kRect.y + kRect.height;
}

// The overlay of grain g on b, mixed by a.
float Overlaid(float b, float g, float a)
{
    const float overlay = b < 0.5f ? 2.0f * b * g : 2.0f * (b + g - b * g) - 1.0f;
    return b * (1.0f - a) + overlay * a;
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
                SCOPED_TRACE(CaseName(32, lockable, withSource ? "source" : "gray") + " planes " +
                             std::to_string(planes));
                TestImage source(kBounds, 32, planes, transparency, lockable),
                    destination(kBounds, 32, planes, transparency, lockable);
                const size_t pixelBytes = size_t(planes) * 4;
                const size_t count = size_t(kBounds.width) * kBounds.height * pixelBytes;
                const std::vector<uint8_t> in = BytePattern(count, 11, 37), held = BytePattern(count, 200, 53);
                KXImageWrite2(source, &kBounds, 0, -1, in.data(), -1, 0);
                KXImageWrite2(destination, &kBounds, 0, -1, held.data(), -1, 0);
                ASSERT_EQ(KXEffectsApplyFilmGrain(withSource ? source.get() : nullptr, destination, &kRect, grain,
                                                  amount),
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
                    ASSERT_EQ(int32_t(out[i]), int32_t(expected[i]))
                        << "byte " << i % pixelBytes << " of pixel " << i / pixelBytes;
            }
}

// A tile of four values at a scale: the bilinear mean at each pixel centre, read in doubles.
double TileGrain(const std::vector<float>& tile, int32_t x, int32_t y, double scale)
{
    const double fx = (x + 0.5) / scale - 0.5, fy = (y + 0.5) / scale - 0.5;
    const double ix = std::floor(fx), iy = std::floor(fy), wx = fx - ix, wy = fy - iy;
    const auto t = [&](double col, double row) {
        return tile[size_t(int64_t(row) & 1) * 2 + size_t(int64_t(col) & 1)];
    };
    return (1 - wx) * (1 - wy) * t(ix, iy) + wx * (1 - wy) * t(ix + 1, iy) + (1 - wx) * wy * t(ix, iy + 1) +
           wx * wy * t(ix + 1, iy + 1);
}

TEST(Noise, FilmGrainTileIsBilinearAtTheAbsolutePosition)
{
    const std::vector<float> values = {0.1f, 0.9f, 0.6f, 0.3f};
    ForEachImageKind([&](int32_t depth, bool lockable) {
        TestImage tile(KXRectMake(0, 0, 2, 2), 32, 1, 0);
        tile.SetSamples(values);
        const TestImage destination(kBounds, depth, 4, 1, lockable);
        ASSERT_EQ(KXEffectsApplyFilmGrainTile(nullptr, destination, &kRect, tile, 0.8f, 1.5f), kKXNoErr);
        ExpectRegion(destination, kRect, depth == 32 ? 1e-6f : 0.51f, [&](int32_t x, int32_t y, int32_t p) {
            return p == 3 ? WhiteOf(depth) : float((TileGrain(values, x, y, 1.5) * 0.8 + 0.2 * 0.5) * WhiteOf(depth));
        });
    });
}

TEST(Noise, BadCallsFail)
{
    // Noise types run to 2; a grain image must cover the image; a tile needs a scale.
    const TestImage grain = RandomGrain(), source = RandomImage(8, true, 71, 4, kBounds), destination = source.Like();
    const TestImage smallGrain(KXRectMake(0, 0, kBounds.width, kBounds.height - 1), 8, 1, 0);
    EXPECT_EQ(KXEffectsAddNoise(source, destination, &kRect, 3, 0.5f), kKXErrUnsupported);
    EXPECT_EQ(KXEffectsApplyFilmGrain(source, destination, &kRect, smallGrain, 0.5f), kKXErrUnsupported);
    EXPECT_EQ(KXEffectsAddNoise(nullptr, destination, &kRect, 0, 0.5f), kKXErrBadParam);
    EXPECT_EQ(KXEffectsApplyFilmGrainTile(source, destination, &kRect, grain, 0.5f, 0.0f), kKXErrBadParam);
}

} // namespace
