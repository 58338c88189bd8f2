// Grain and noise: uniform noise from a multiplicative generator or a fixed tile, and film grain, a grain
// image or a repeating grain tile laid over the picture by the overlay blend. Film grain draws no random
// number: all of its structure comes from the grain the caller hands in.
#include "KXEffectsNoise.h"

#include "KXEffectsBlendModes.h"
#include "KXEffectsEntry.h"
#include "KXEffectsRowLoop.h"
#include "KXEffectsSample.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <type_traits>
#include <vector>

namespace {

// ---- Noise formulas ----

enum NoiseType : int32_t { kPerSampleNoise = 0, kPerPixelNoise = 1, kPositionalNoise = 2 };

constexpr uint32_t kNoiseSeedStart = 123456789u;
constexpr uint32_t kNoiseMultiplier = 987654321u;
constexpr int32_t kNoiseTileSize = 256;
constexpr int32_t kNoiseTileMask = kNoiseTileSize - 1;
constexpr size_t kNoiseTileArea = size_t(kNoiseTileSize) * kNoiseTileSize;

// The generator state of the whole process: every kernel reseeds it and stores its running state back after
// each row, without a lock, so calls that overlap share one stream. Atomic only to keep such calls defined.
std::atomic<uint32_t> noiseSeed{kNoiseSeedStart};

// The high half of a well-mixed hash of the position: uniform over 0..65535 and spatially white.
constexpr uint16_t NoiseTileEntry(uint32_t index)
{
    uint32_t x = index * 0x9e3779b9u + 0xb5297a4du;
    x = (x ^ (x >> 16)) * 0x7feb352du;
    x = (x ^ (x >> 15)) * 0x846ca68bu;
    return uint16_t((x ^ (x >> 16)) >> 16);
}

constexpr std::array<uint16_t, kNoiseTileArea> MakeNoiseTile()
{
    std::array<uint16_t, kNoiseTileArea> tile{};
    for (uint32_t i = 0; i < tile.size(); ++i)
        tile[i] = NoiseTileEntry(i);
    return tile;
}

// 256 rows of 256 entries, row major; fixed data made by the compiler, the same in every run.
constexpr std::array<uint16_t, kNoiseTileArea> noiseTile = MakeNoiseTile();

// state = state x 987654321 mod 2^32 (no additive term), then u = state x 2^-32 - 0.5, in [-0.5, 0.5)
inline float NextNoise(uint32_t& state)
{
    state *= kNoiseMultiplier;
    return float(state) * 0x1p-32f - 0.5f;
}

// The state after count draws: the generator is a power of the multiplier, so count draws multiply by
// 987654321^count mod 2^32.
inline uint32_t SkipNoise(uint32_t state, uint64_t count)
{
    for (uint32_t power = kNoiseMultiplier; count != 0; count >>= 1, power *= power)
        if (count & 1)
            state *= power;
    return state;
}

// u = t x 1.5259022e-5 - 0.5, the multiplier being 1 / 65535 in single precision: u in [-0.5, 0.5]
inline float TileNoise(uint16_t t)
{
    return float(t) * 1.5259022e-5f - 0.5f;
}

// Integers: (u scale + s) + 0.5 truncated toward zero, limited to 0..white; floats: u scale + s in 0..1.
template <class Sample> inline Sample NoisySample(Sample s, float u, float scale)
{
    if constexpr (kIsFloatSample<Sample>) {
        return Clamp01(u * scale + s);
    } else {
        // Limiting before the truncation gives the same sample for every finite value and keeps the
        // conversion defined at any amount.
        const float v = (u * scale + float(s)) + 0.5f;
        return Sample(v > 0.0f ? (v < kWhite<Sample> ? v : kWhite<Sample>) : 0.0f);
    }
}

// ---- Noise kernels ----

// The colour planes of one pixel: a draw for every sample, one draw for the pixel, or the tile entry of x.
template <int32_t Type, class Sample, class Planes>
inline void NoisyPixel(const Sample* in, Sample* out, Planes colourPlanes, uint32_t& state, const uint16_t* tileRow,
                       int32_t x, float scale)
{
    if constexpr (Type == kPerSampleNoise) {
        for (int32_t c = 0; c < colourPlanes; ++c)
            out[c] = NoisySample(in[c], NextNoise(state), scale);
    } else {
        const float u = Type == kPerPixelNoise ? NextNoise(state) : TileNoise(tileRow[x & kNoiseTileMask]);
        for (int32_t c = 0; c < colourPlanes; ++c)
            out[c] = NoisySample(in[c], u, scale);
    }
}

// scale = amount x white x 2: the uniform variable spans 1, so a sample moves by amount x white at most.
template <class Sample, int32_t Type>
int32_t NoiseKernel(KXImage* source, KXImage* destination, const CEffectRect& rect, float amount)
{
    const float scale = amount * kWhite<Sample> * 2.0f;
    noiseSeed.store(kNoiseSeedStart, std::memory_order_relaxed);
    // The walk leaves out rows outside the destination; the stream still runs through them.
    int32_t nextRow = rect.top;
    ForEachRow<Sample>(source, destination, rect,
                       [&](int32_t row, const Sample* in, Sample* out, int32_t width, const PixelLayout& layout) {
                           uint32_t state = noiseSeed.load(std::memory_order_relaxed);
                           if (row != nextRow) {
                               const uint64_t drawsPerRow = Type == kPerSampleNoise
                                                                ? uint64_t(width) * uint64_t(layout.colourPlanes)
                                                            : Type == kPerPixelNoise ? uint64_t(width)
                                                                                     : 0;
                               state = SkipNoise(state, uint64_t(row - int64_t(nextRow)) * drawsPerRow);
                           }
                           nextRow = row + 1;
                           const uint16_t* tileRow = noiseTile.data() + (row & kNoiseTileMask) * kNoiseTileSize;
                           WithPlaneCounts(layout, [&](auto planes, auto colourPlanes) {
                               for (int32_t i = 0; i < width; ++i)
                                   NoisyPixel<Type>(in + i * planes, out + i * planes, colourPlanes, state, tileRow,
                                                    rect.left + i, scale);
                           });
                           noiseSeed.store(state, std::memory_order_relaxed);
                       });
    return kKXNoErr;
}

// fn(integral_constant of the type) for noise types 0, 1 and 2; any other type is kKXErrUnsupported.
template <class Fn> int32_t DispatchNoiseType(int32_t noiseType, Fn&& fn)
{
    switch (noiseType) {
    case kPerSampleNoise:
        return fn(std::integral_constant<int32_t, kPerSampleNoise>{});
    case kPerPixelNoise:
        return fn(std::integral_constant<int32_t, kPerPixelNoise>{});
    case kPositionalNoise:
        return fn(std::integral_constant<int32_t, kPositionalNoise>{});
    default:
        return kKXErrUnsupported;
    }
}

int32_t NoiseDispatch(KXImage* source, KXImage* destination, const CEffectRect& effectRect, int32_t noiseType,
                      float amount)
{
    return DispatchNoiseType(noiseType, [&](auto type) {
        return DispatchSample(source, [&](auto tag) {
            return NoiseKernel<typename decltype(tag)::Type, decltype(type)::value>(source, destination, effectRect,
                                                                                    amount);
        });
    });
}

// ---- Film grain formulas ----

// overlay = 2bg below b = 0.5, else 2(b + g - bg) - 1; result = b(1 - a) + overlay a
inline float GrainOverlay(float b, float g, float a)
{
    return b * (1.0f - a) + BlendOverlay::Plane(b, g) * a;
}

// The grain alone on mid-gray: g a + (1 - a) 0.5
inline float GrainOnGray(float g, float a)
{
    return g * a + (1.0f - a) * 0.5f;
}

// A destination as the grain kernels address it: a sample is kCells cells of type Cell, b = cell x kNormal,
// and a result is stored as result x kWhite + 0.5 truncated without a clamp (floats as they are).
template <class Sample> struct SampleCells {
    using Cell = Sample;
    static constexpr int32_t kCells = 1;
    static constexpr float kNormal = SampleTraits<Sample>::kReciprocal;
    static constexpr float kWhite = SampleTraits<Sample>::kWhite;
};

// Four-byte destinations of KXEffectsApplyFilmGrain, a deliberate inheritance kept as it is: addressed as
// bytes like the 8-bit ones, plane c being byte c at the pixel's start, b the raw byte, result + 0.5
// truncated into that byte and the transparency byte set to 1.
struct FloatAsBytes {
    using Cell = uint8_t;
    static constexpr int32_t kCells = 4;
    static constexpr float kNormal = 1.0f;
    static constexpr float kWhite = 1.0f;
};

template <class Sample>
using FilmGrainCells = std::conditional_t<kIsFloatSample<Sample>, FloatAsBytes, SampleCells<Sample>>;

// ---- Grain sources ----

// The grain image at its own placement, shifted by offset: each row read as bytes, one a column, whatever
// the grain's depth and planes, g = byte / 255.
class GrainImageRows {
public:
    GrainImageRows(KXImage* grain, KXPoint offset, const CEffectRect& rect)
        : m_view(grain), m_offset(offset), m_left(rect.left), m_width(rect.Width())
    {
    }
    const uint8_t* Row(int32_t y)
    {
        return static_cast<const uint8_t*>(m_view.ReadRow(y + m_offset.y, m_left + m_offset.x, m_width));
    }
    static float Value(const uint8_t* row, int32_t i) { return ToUnit(row[i]); }

private:
    CImageView m_view;
    KXPoint m_offset;
    int32_t m_left;
    int32_t m_width;
};

// Tile positions floor(f) and floor(f) + 1, masked, and the weight f - floor(f) of the second, for the
// pixel centre p: f = (p + 0.5) / scale - 0.5.
struct TileStep {
    int32_t first;
    int32_t second;
    float weight;
};

inline TileStep TileStepAt(int32_t p, float inverse, int32_t mask)
{
    const float f = (float(p) + 0.5f) * inverse - 0.5f;
    const int32_t i = TruncateToInt32(std::floor(f));
    return {i & mask, (i + 1) & mask, f - float(i)};
}

// A power-of-two tile read whole once, repeated from the image origin and magnified by scale: g is the
// bilinear mean of the four samples around the pixel, each by the tile's own white. Rows are read one
// sample a column, whatever the tile's planes.
template <class TileSample> class GrainTileRows {
public:
    struct Rows {
        const TileSample* upper;
        const TileSample* lower;
        float weight;
    };

    GrainTileRows(KXImage* tile, float scale, int32_t left)
        : m_view(tile), m_inverse(1.0f / scale), m_left(left), m_columnMask(KXImageGetWidth(tile) - 1),
          m_rowMask(KXImageGetHeight(tile) - 1)
    {
        // Taken from the origin; rows by the height, so a tile that is not square is not read past its end.
        m_tile = static_cast<const uint8_t*>(m_view.ReadRect({0, 0, m_rowMask + 1, m_columnMask + 1}, &m_stride));
    }
    Rows Row(int32_t y) const
    {
        const TileStep step = TileStepAt(y, m_inverse, m_rowMask);
        return {RowAt(step.first), RowAt(step.second), step.weight};
    }
    float Value(const Rows& rows, int32_t i) const
    {
        const TileStep step = TileStepAt(m_left + i, m_inverse, m_columnMask);
        const float wx = step.weight, wy = rows.weight;
        return (1.0f - wx) * (1.0f - wy) * ToUnit(rows.upper[step.first]) +
               wx * (1.0f - wy) * ToUnit(rows.upper[step.second]) + (1.0f - wx) * wy * ToUnit(rows.lower[step.first]) +
               wx * wy * ToUnit(rows.lower[step.second]);
    }

private:
    const TileSample* RowAt(int32_t row) const
    {
        return reinterpret_cast<const TileSample*>(m_tile + ptrdiff_t(row) * m_stride);
    }

    CImageView m_view;
    float m_inverse;
    int32_t m_left;
    int32_t m_columnMask;
    int32_t m_rowMask;
    const uint8_t* m_tile = nullptr;
    int32_t m_stride = 0;
};

// ---- Film grain kernels ----

// A destination row to write over rect. Pixels addressed as bytes are only partly written, so such a row
// first holds what the destination has, on either kind of image.
template <class Cells> typename Cells::Cell* GrainDestinationRow(CImageView& view, int32_t y, const CEffectRect& rect)
{
    if constexpr (Cells::kCells > 1)
        view.ReadRow(y, rect.left, rect.Width());
    return static_cast<typename Cells::Cell*>(view.WriteRow(y, rect.left, rect.Width()));
}

// The overlay on the colour planes of one row; the other planes and bytes are left as they are.
template <class Cells, class Grain, class GrainRow>
void GrainOverlayRow(const typename Cells::Cell* from, typename Cells::Cell* to, int32_t width,
                     const PixelLayout& layout, const Grain& grain, const GrainRow& grainRow, float amount)
{
    WithPlaneCounts(layout, [&](auto planes, auto colourPlanes) {
        const int32_t step = planes * Cells::kCells;
        for (int32_t i = 0; i < width; ++i, from += step, to += step) {
            const float g = grain.Value(grainRow, i);
            for (int32_t c = 0; c < colourPlanes; ++c)
                to[c] = FromRaw<typename Cells::Cell>(GrainOverlay(float(from[c]) * Cells::kNormal, g, amount) *
                                                      Cells::kWhite);
        }
    });
}

// With a source: the overlay on every colour plane, a transparency plane carried by the row copy.
template <class Sample, class Cells, class Grain>
void GrainOverlayKernel(KXImage* source, KXImage* destination, const CEffectRect& rect, Grain& grain, float amount)
{
    using Cell = typename Cells::Cell;
    // Rows outside the destination would be dropped at write-back.
    const CEffectRect inside = InDestination(rect, destination);
    if (inside.IsEmpty())
        return;
    const PixelLayout layout = LayoutOf(destination);
    const int32_t width = rect.Width();
    CImageView sourceView(source);
    CImageView destinationView(destination);
    for (int32_t y = inside.top; y < inside.bottom; ++y) {
        const auto* in = static_cast<const Cell*>(sourceView.ReadRow(y, rect.left, width));
        Cell* out = GrainDestinationRow<Cells>(destinationView, y, rect);
        if (layout.transparency != 0 && in != out)
            std::memmove(out, in, size_t(width) * size_t(layout.planes) * sizeof(Sample));
        GrainOverlayRow<Cells>(in, out, width, layout, grain, grain.Row(y), amount);
    }
    destinationView.Detach();
    sourceView.Detach();
}

// Without a source: the grain on mid-gray in every colour plane, the transparency plane white.
template <class Cells, class Grain>
void GrainOnGrayKernel(KXImage* destination, const CEffectRect& rect, Grain& grain, float amount)
{
    using Cell = typename Cells::Cell;
    // Rows outside the destination would be dropped at write-back.
    const CEffectRect inside = InDestination(rect, destination);
    if (inside.IsEmpty())
        return;
    const PixelLayout layout = LayoutOf(destination);
    const int32_t step = layout.planes * Cells::kCells;
    CImageView view(destination);
    for (int32_t y = inside.top; y < inside.bottom; ++y) {
        Cell* out = GrainDestinationRow<Cells>(view, y, rect);
        const auto grainRow = grain.Row(y);
        for (int32_t i = 0; i < rect.Width(); ++i, out += step) {
            std::fill_n(out, layout.colourPlanes,
                        FromRaw<Cell>(GrainOnGray(grain.Value(grainRow, i), amount) * Cells::kWhite));
            if (layout.transparency != 0)
                out[layout.colourPlanes] = Cell(Cells::kWhite);
        }
    }
    view.Detach();
}

template <class Sample, class Cells, class Grain>
int32_t GrainKernel(KXImage* source, KXImage* destination, const CEffectRect& rect, Grain& grain, float amount)
{
    if (source)
        GrainOverlayKernel<Sample, Cells>(source, destination, rect, grain, amount);
    else
        GrainOnGrayKernel<Cells>(destination, rect, grain, amount);
    return kKXNoErr;
}

// ---- Film grain dispatch ----

// No grain to lay: the source copied, or without a source mid-gray with a full transparency plane.
int32_t WithoutGrain(KXImage* source, KXImage* destination, const KXRect* rect)
{
    if (source)
        return KXEffectsCopyRect(source, destination, CEffectRect::FromKXRect(*rect), KXPointMake(0, 0));
    const PixelLayout layout = LayoutOf(destination);
    std::vector<float> colour(size_t(std::max(layout.planes, 0)), 0.5f);
    if (layout.transparency != 0)
        colour[size_t(layout.colourPlanes)] = 1.0f;
    return KXEffectsFillColor(destination, rect, colour.data());
}

int32_t FilmGrainDispatch(KXImage* source, KXImage* destination, const KXRect* rect, KXImage* grain, float amount)
{
    const KXRect bounds = KXImageGetBounds(destination), grainBounds = KXImageGetBounds(grain);
    // Magnifying a smaller grain over the picture needs an image transform, which the library lacks.
    if (bounds.width > grainBounds.width || bounds.height > grainBounds.height)
        return kKXErrUnsupported;
    const CEffectRect effectRect = CEffectRect::FromKXRect(*rect);
    const KXPoint offset = KXPointMake(grainBounds.x - bounds.x, grainBounds.y - bounds.y);
    return DispatchPlaneBytes(KXImageGetPlaneBytes(destination), [&](auto tag) {
        using Sample = typename decltype(tag)::Type;
        GrainImageRows grainRows(grain, offset, effectRect);
        return GrainKernel<Sample, FilmGrainCells<Sample>>(source, destination, effectRect, grainRows, amount);
    });
}

int32_t FilmGrainTileDispatch(KXImage* source, KXImage* destination, const KXRect* rect, KXImage* tile, float amount,
                              float scale)
{
    const CEffectRect effectRect = CEffectRect::FromKXRect(*rect);
    return DispatchSample(destination, [&](auto tag) {
        using Sample = typename decltype(tag)::Type;
        return DispatchSample(tile, [&](auto tileTag) {
            GrainTileRows<typename decltype(tileTag)::Type> tileRows(tile, scale, effectRect.left);
            return GrainKernel<Sample, SampleCells<Sample>>(source, destination, effectRect, tileRows, amount);
        });
    });
}

} // namespace

int32_t PositionalNoiseDispatch(KXImage* source, KXImage* destination, const KXRect* rect, float amount)
{
    return NoiseDispatch(source, destination, CEffectRect::FromKXRect(*rect), kPositionalNoise, amount);
}

// ---- Entry points ----

int32_t KXEffectsAddNoise(KXImage* source, KXImage* destination, const KXRect* rect, int32_t noiseType, float amount)
{
    // The type is not looked at when there is nothing to add.
    return EntryPoint(source, destination, rect).NeutralWhen(!(amount > 0.0f)).Compose([&](const CEffectRect& r) {
        return NoiseDispatch(source, destination, r, noiseType, amount);
    });
}

int32_t KXEffectsApplyFilmGrain(KXImage* source, KXImage* destination, const KXRect* rect, KXImage* grain, float amount)
{
    if (!destination || !rect)
        return kKXErrBadParam;
    if (source && !HaveSameLayout(source, destination))
        return kKXErrUnsupported;
    if (!(amount > 0.0f))
        return WithoutGrain(source, destination, rect);
    if (!grain)
        return kKXErrBadParam;
    return FilmGrainDispatch(source, destination, rect, grain, amount);
}

int32_t KXEffectsApplyFilmGrainTile(KXImage* source, KXImage* destination, const KXRect* rect, KXImage* grainTile,
                                    float amount, float scale)
{
    if (!destination || !rect)
        return kKXErrBadParam;
    if (source && !HaveSameLayout(source, destination))
        return kKXErrUnsupported;
    if (!grainTile || !(amount > 0.0f))
        return WithoutGrain(source, destination, rect);
    if (!(scale > 0.0f))
        return kKXErrBadParam;
    return FilmGrainTileDispatch(source, destination, rect, grainTile, amount, scale);
}
