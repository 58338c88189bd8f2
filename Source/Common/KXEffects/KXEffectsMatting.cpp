// Matting: a brush stamped into a trimap, the trimap's certain regions grown into unknown pixels of their
// colour, and the unknown band solved by shared sampling into an alpha matte and a foreground colour.
// Trimap levels are 8-bit levels scaled to the depth of the trimap: 255 is white, 127 is 127/255 of it.
#include "KXEffectsEntry.h"
#include "KXEffectsRowLoop.h"

#include <algorithm>
#include <cmath>
#include <memory>

namespace {

constexpr const char* kSourceFile = "Source/Common/KXEffects/KXEffectsMatting";

enum MatteFlags : int32_t {
    kStampForeground = 0x1, // and, for the matte, keep the larger alpha
    kStampBackground = 0x2,
    kMixByAlpha = 0x10,
    kLowForeground = 0x100,
    kSkipSmoothing = 1 << 24,
};

enum TrimapClass : uint8_t { kBackground = 0, kUnknown = 1, kForeground = 2 };

constexpr float kNoPairCost = 1e30f;
constexpr float kEqualPairDistortion = 1.842f;
// (5/255)^2: neighbours this close in colour give their certainty to an unknown pixel.
constexpr float kExpandColourLimit = 0.00038446754f;
// Sharing tests 15 x 15 positions, one pixel apart.
constexpr int32_t kSharingReach = 7;
constexpr int32_t kSharingStride = 1;
constexpr int32_t kSmoothingReach = 5; // 11 x 11 taps
constexpr int32_t kVarianceReach = 2;  // 5 x 5

// The first row; each further row is the one above turned by three places, so that every 3 by 3 block of
// pixels holds all nine offsets.
constexpr float kFirstAngleRow[9] = {0.0f, 0.1315f, 0.7556f, 0.4586f, 0.5328f, 0.219f, 0.047f, 0.6789f, 0.6793f};

// Indexed by (y + 1000000) % 9 and (x + 1000000) % 9, taken in 64 bits and brought into 0..8 so that
// coordinates far below zero stay in the table.
inline int32_t AngleIndex(int32_t coordinate)
{
    return int32_t(((int64_t(coordinate) + 1000000) % 9 + 9) % 9);
}

inline float RayAngleOffset(int32_t x, int32_t y)
{
    return kFirstAngleRow[(AngleIndex(x) + 3 * AngleIndex(y)) % 9];
}

// ---- Formulas ----

inline float Dot(const float* a, const float* b)
{
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

inline float DistanceSquared(const float* a, const float* b)
{
    const float d[3] = {a[0] - b[0], a[1] - b[1], a[2] - b[2]};
    return Dot(d, d);
}

struct Projection {
    float alpha;
    float distortion;
};

// alpha = clamp((c - b).(f - b) / |f - b|^2, 0, 1), distortion = |c - (b + alpha (f - b))|. Equal colours
// skip it: the distortion is 1.842 and alpha, which nothing fixes, is taken as 0.5.
inline Projection Project(const float* c, const float* f, const float* b)
{
    const float line[3] = {f[0] - b[0], f[1] - b[1], f[2] - b[2]};
    const float length2 = Dot(line, line);
    if (length2 == 0.0f)
        return {0.5f, kEqualPairDistortion};
    const float offset[3] = {c[0] - b[0], c[1] - b[1], c[2] - b[2]};
    const float alpha = std::clamp(Dot(offset, line) / length2, 0.0f, 1.0f);
    const float miss[3] = {offset[0] - alpha * line[0], offset[1] - alpha * line[1], offset[2] - alpha * line[2]};
    return {alpha, std::sqrt(Dot(miss, miss))};
}

// exp(-10 distortion): how far a pair explains its pixel.
inline float Confidence(float distortion)
{
    return std::exp(-10.0f * distortion);
}

// The level a stamp writes: the foreground level, 0, or half the foreground level.
int32_t StampLevel(int32_t flags)
{
    const int32_t foreground = flags & kLowForeground ? 127 : 255;
    if (flags & kStampForeground)
        return foreground;
    return flags & kStampBackground ? 0 : foreground / 2;
}

// An 8-bit level in the scale of Sample.
template <class Sample> Sample SampleOfLevel(int32_t level)
{
    return FromUnit<Sample>(float(level) * (1.0f / 255.0f));
}

// Where foreground starts in a trimap of Sample: the level itself, or for floats, which hold a level however
// it was divided, half a level below it.
template <class Sample> Sample ForegroundThreshold(int32_t level)
{
    if constexpr (kIsFloatSample<Sample>)
        return (float(level) - 0.5f) * (1.0f / 255.0f);
    else
        return SampleOfLevel<Sample>(level);
}

// A block for one call; a failed allocation is thrown as kKXErrOutOfMemory.
template <class T> std::unique_ptr<T[]> Allocate(size_t count)
{
    std::unique_ptr<T[]> block(new (std::nothrow) T[count]());
    if (!block)
        KX_RAISE(kKXErrOutOfMemory);
    return block;
}

// A rectangle of an image held in memory: colours in 0..1 and trimap classes, addressed by absolute
// coordinates.
struct Grid {
    CEffectRect area;
    std::unique_ptr<float[]> colours;
    std::unique_ptr<uint8_t[]> classes;

    explicit Grid(const CEffectRect& rect)
        : area(rect), colours(Allocate<float>(Count() * 3)), classes(Allocate<uint8_t>(Count()))
    {
    }
    size_t Count() const { return size_t(area.Width()) * size_t(area.Height()); }
    bool Contains(int32_t x, int32_t y) const
    {
        return x >= area.left && x < area.right && y >= area.top && y < area.bottom;
    }
    size_t Index(int32_t x, int32_t y) const
    {
        return size_t(y - area.top) * size_t(area.Width()) + size_t(x - area.left);
    }
    const float* Colour(size_t index) const { return &colours[index * 3]; }

    // Colours of image, the first three planes; rows beyond the image replicate its edges.
    template <class Sample> void ReadColours(KXImage* image)
    {
        float* out = colours.get();
        ForEachImagePixel<Sample>(image, area, [&](const Sample* pixel, auto, auto) {
            for (int32_t c = 0; c < 3; ++c)
                *out++ = ToUnit(pixel[c]);
        });
    }
    // Classes of a one-plane trimap: 0 background, foreground from the level on, unknown between.
    template <class Sample> void ReadClasses(KXImage* trimap, Sample foreground)
    {
        uint8_t* out = classes.get();
        ForEachImagePixel<Sample>(trimap, area, [&](const Sample* pixel, auto, auto) {
            *out++ = *pixel == Sample(0) ? kBackground : (*pixel >= foreground ? kForeground : kUnknown);
        });
    }
};

// ---- Set trimap ----

// Copies the trimap's row, then writes value into the colour planes where the brush is not 0.
template <class Sample, class BrushSample>
void StampKernel(KXImage* trimap, KXImage* destination, KXImage* brush, const CEffectRect& rect, Sample value)
{
    const PixelLayout layout = LayoutOf(destination);
    const size_t rowBytes = size_t(rect.Width()) * size_t(layout.planes) * sizeof(Sample);
    WalkRows<Sample>(rect, Sources<Sample, BrushSample>{{trimap, brush}}, destination,
                     {.alphaSource = RowWalkOrder::kNoAlphaCopy},
                     [&](int32_t, const Sample* in, const BrushSample* stroke, Sample* out) {
                         if (in != out)
                             std::memmove(out, in, rowBytes);
                         for (int32_t x = 0; x < rect.Width(); ++x)
                             if (stroke[x] != BrushSample(0))
                                 std::fill_n(out + x * layout.planes, layout.colourPlanes, value);
                     });
}

// ---- Expand trimap ----

struct ExpandReach {
    int32_t radius;
    int32_t limit; // squared distance
};

// reach = min(width, height) / 64 of the image's bounds.
ExpandReach ReachOf(KXImage* image)
{
    const KXRect bounds = KXImageGetBounds(image);
    const float reach = float(std::min(bounds.width, bounds.height)) * 0.015625f;
    return {int32_t(reach), int32_t(reach * reach)};
}

// The class an unknown pixel takes: that of the nearest known neighbour of nearly its colour, rings scanned
// from the centre outward and each ring row by row, the later of two at one distance winning; unknown when
// none is near enough.
uint8_t ExpandedClass(const Grid& grid, const CEffectRect& bounds, int32_t x, int32_t y, const ExpandReach& reach)
{
    const float* colour = grid.Colour(grid.Index(x, y));
    int32_t best = reach.limit;
    uint8_t found = kUnknown;
    for (int32_t ring = 1; ring <= reach.radius && ring * ring <= best; ++ring)
        for (int32_t dy = -ring; dy <= ring; ++dy) {
            const int32_t step = dy == -ring || dy == ring ? 1 : 2 * ring;
            for (int32_t dx = -ring; dx <= ring; dx += step) {
                const int32_t qx = x + dx, qy = y + dy, d2 = dx * dx + dy * dy;
                if (d2 > best || qx < bounds.left || qx >= bounds.right || qy < bounds.top || qy >= bounds.bottom)
                    continue;
                const size_t q = grid.Index(qx, qy);
                if (grid.classes[q] == kUnknown || DistanceSquared(colour, grid.Colour(q)) > kExpandColourLimit)
                    continue;
                found = grid.classes[q];
                best = d2;
            }
        }
    return found;
}

template <class Sample>
int32_t ExpandKernel(KXImage* image, KXImage* trimap, KXImage* destination, const CEffectRect& rect)
{
    if (rect.IsEmpty())
        return 0;
    const ExpandReach reach = ReachOf(image);
    const CEffectRect bounds = BoundsOf(trimap);
    Grid grid(
        {rect.top - reach.radius, rect.left - reach.radius, rect.bottom + reach.radius, rect.right + reach.radius});
    grid.ReadColours<Sample>(image);
    grid.ReadClasses<Sample>(trimap, ForegroundThreshold<Sample>(255));
    int32_t changed = 0;
    WalkRows<Sample>(rect, Sources<Sample>{{trimap}}, destination, {.alphaSource = RowWalkOrder::kNoAlphaCopy},
                     [&](int32_t y, const Sample* in, Sample* out) {
                         for (int32_t x = rect.left; x < rect.right; ++x) {
                             Sample value = in[x - rect.left];
                             if (grid.classes[grid.Index(x, y)] == kUnknown) {
                                 const uint8_t found = ExpandedClass(grid, bounds, x, y, reach);
                                 if (found != kUnknown) {
                                     value = found == kForeground ? kWhiteSample<Sample> : Sample(0);
                                     changed += bounds.top <= y && y < bounds.bottom && bounds.left <= x &&
                                                x < bounds.right;
                                 }
                             }
                             out[x - rect.left] = value;
                         }
                     });
    return changed;
}

// ---- Generate matte ----

// A gathered sample: where it lies and its colour, with the spread of colour around it.
struct RaySample {
    int32_t dx, dy;
    float colour[3];
    float variance;
    float distance;
};

// The solver's record of a pixel: its best pair and what it costs.
struct PairRecord {
    float foreground[3];
    float background[3];
    float cost = kNoPairCost;
};

// Reports one stage of rows to the core's progress object and ends it on every path.
class RowProgress {
public:
    RowProgress(KXProgress* progress, int32_t rows) : m_progress(progress)
    {
        KXProgressDoProgressBeginStage(m_progress, 0, "matte", rows);
    }
    ~RowProgress() { KXProgressDoProgressEndStage(m_progress); }
    RowProgress(const RowProgress&) = delete;
    RowProgress& operator=(const RowProgress&) = delete;
    void Done() { KXProgressDoProgressUpdateStage(m_progress, ++m_rows); }

private:
    KXProgress* m_progress;
    int32_t m_rows = 0;
};

class MatteSolver {
public:
    MatteSolver(const Grid& grid, float step, int32_t flags)
        : m_grid(grid), m_step(step), m_flags(flags), m_records(Allocate<PairRecord>(grid.Count())),
          m_refined(Allocate<Refinement>(grid.Count())), m_alpha(Allocate<float>(grid.Count())),
          m_foreground(Allocate<float>(grid.Count() * 3)), m_single(Allocate<uint8_t>(grid.Count()))
    {
        std::fill_n(m_single.get(), grid.Count(), uint8_t(kUnknown));
    }

    void Solve(KXProgress* progress)
    {
        const CEffectRect& area = m_grid.area;
        RowProgress rows(progress, 4 * area.Height());
        ForEachUnknown(rows, [&](int32_t x, int32_t y, size_t p) { m_records[p] = BestGatheredPair(x, y, p); });
        auto shared = Allocate<PairRecord>(m_grid.Count());
        ForEachUnknown(rows, [&](int32_t x, int32_t y, size_t p) { shared[p] = SharedPair(x, y); });
        m_records = std::move(shared);
        ForEachUnknown(rows, [&](int32_t, int32_t, size_t p) { Refine(p); });
        ForEachUnknown(rows, [&](int32_t x, int32_t y, size_t p) {
            if (m_flags & kSkipSmoothing)
                Unsmoothed(p);
            else
                Smoothed(x, y, p);
        });
        for (size_t p = 0; p < m_grid.Count(); ++p)
            if (m_grid.classes[p] != kUnknown) {
                m_alpha[p] = m_grid.classes[p] == kForeground ? 1.0f : 0.0f;
                std::copy_n(m_grid.Colour(p), 3, &m_foreground[p * 3]);
            }
    }

    float Alpha(size_t p) const { return m_alpha[p]; }
    const float* Foreground(size_t p) const { return &m_foreground[p * 3]; }

private:
    template <class Step> void ForEachUnknown(RowProgress& rows, Step&& step)
    {
        const CEffectRect& area = m_grid.area;
        for (int32_t y = area.top; y < area.bottom; ++y, rows.Done())
            for (int32_t x = area.left; x < area.right; ++x) {
                const size_t p = m_grid.Index(x, y);
                if (m_grid.classes[p] == kUnknown)
                    step(x, y, p);
            }
    }

    // ---- Gathering ----

    // Eight rays from the pixel, turned by its angle offset, each ending at the first known pixel.
    int32_t GatherSamples(int32_t x, int32_t y, RaySample* samples, bool* isForeground) const
    {
        int32_t count = 0;
        const float offset = RayAngleOffset(x, y);
        for (int32_t i = 0; i < 16; i += 2) {
            const float angle = float(i) * 3.1415927f * 0.125f + offset;
            float dx = std::sin(angle) * m_step, dy = std::cos(angle) * m_step;
            const float largest = std::max(std::fabs(dx), std::fabs(dy));
            if (largest < 1.0f) {
                dx /= largest;
                dy /= largest;
            }
            for (int32_t n = 1;; ++n) {
                const int32_t qx = x + int32_t(std::floor(float(n) * dx + 0.5f));
                const int32_t qy = y + int32_t(std::floor(float(n) * dy + 0.5f));
                if (!m_grid.Contains(qx, qy))
                    break;
                const uint8_t kind = m_grid.classes[m_grid.Index(qx, qy)];
                if (kind == kUnknown)
                    continue;
                samples[count] = MakeSample(qx, qy, qx - x, qy - y);
                isForeground[count++] = kind == kForeground;
                break;
            }
        }
        return count;
    }

    RaySample MakeSample(int32_t x, int32_t y, int32_t dx, int32_t dy) const
    {
        RaySample sample{dx, dy, {}, 0.0f, std::sqrt(float(dx * dx + dy * dy))};
        const float* colour = m_grid.Colour(m_grid.Index(x, y));
        std::copy_n(colour, 3, sample.colour);
        float sum = 0.0f;
        for (int32_t j = -kVarianceReach; j <= kVarianceReach; ++j)
            for (int32_t i = -kVarianceReach; i <= kVarianceReach; ++i)
                if (m_grid.Contains(x + i, y + j))
                    sum += DistanceSquared(colour, m_grid.Colour(m_grid.Index(x + i, y + j)));
        sample.variance = sum / 25.0f;
        return sample;
    }

    // (mean over the 3 x 3 neighbourhood of distortion^2 + alpha^2 var(f) + (1 - alpha)^2 var(b) + 1e-4)^3
    // x dist(f) x dist(b)^4: the colour error the pair leaves around the pixel, counting the spread of its
    // samples, weighted over their distances; near backgrounds count most, since they vary most.
    float PairEnergy(int32_t x, int32_t y, const RaySample& f, const RaySample& b) const
    {
        float sum = 0.0f;
        int32_t count = 0;
        float alpha = 0.0f;
        for (int32_t j = -1; j <= 1; ++j)
            for (int32_t i = -1; i <= 1; ++i) {
                if (!m_grid.Contains(x + i, y + j))
                    continue;
                const Projection projection = Project(m_grid.Colour(m_grid.Index(x + i, y + j)), f.colour, b.colour);
                sum += projection.distortion * projection.distortion;
                ++count;
                if (i == 0 && j == 0)
                    alpha = projection.alpha;
            }
        const float error =
            sum / float(count) + alpha * alpha * f.variance + (1.0f - alpha) * (1.0f - alpha) * b.variance + 1e-4f;
        return error * error * error * f.distance * b.distance * b.distance * b.distance * b.distance;
    }

    // The pair of least energy; and, in m_single, the kind of the nearest gathered sample when the pixel's
    // colour lies nearer to it than to that pair's line: one known colour explains it better than a mixture.
    PairRecord BestGatheredPair(int32_t x, int32_t y, size_t p)
    {
        RaySample samples[8];
        bool isForeground[8];
        const int32_t count = GatherSamples(x, y, samples, isForeground);
        PairRecord best;
        for (int32_t f = 0; f < count; ++f)
            for (int32_t b = 0; b < count; ++b) {
                if (!isForeground[f] || isForeground[b])
                    continue;
                const float energy = PairEnergy(x, y, samples[f], samples[b]);
                if (energy < best.cost) {
                    std::copy_n(samples[f].colour, 3, best.foreground);
                    std::copy_n(samples[b].colour, 3, best.background);
                    best.cost = energy;
                }
            }
        if (best.cost == kNoPairCost)
            return best;
        const float* colour = m_grid.Colour(p);
        const float distortion = Project(colour, best.foreground, best.background).distortion;
        float nearest = distortion * distortion;
        for (int32_t s = 0; s < count; ++s) {
            const float d2 = DistanceSquared(colour, samples[s].colour);
            if (d2 < nearest) {
                nearest = d2;
                m_single[p] = isForeground[s] ? kForeground : kBackground;
            }
        }
        return best;
    }

    // ---- Sharing ----

    // The neighbours' pair that leaves the least distortion of this pixel's colour; the cost becomes that
    // distortion.
    PairRecord SharedPair(int32_t x, int32_t y) const
    {
        const float* colour = m_grid.Colour(m_grid.Index(x, y));
        PairRecord best;
        for (int32_t j = -kSharingReach; j <= kSharingReach; ++j)
            for (int32_t i = -kSharingReach; i <= kSharingReach; ++i) {
                const int32_t qx = x + i * kSharingStride, qy = y + j * kSharingStride;
                if (!m_grid.Contains(qx, qy))
                    continue;
                const PairRecord& record = m_records[m_grid.Index(qx, qy)];
                if (record.cost == kNoPairCost)
                    continue;
                const float distortion = Project(colour, record.foreground, record.background).distortion;
                if (distortion < best.cost) {
                    best = record;
                    best.cost = distortion;
                }
            }
        return best;
    }

    // ---- Refinement and smoothing ----

    // What the smoothing reads of a pixel's shared pair.
    struct Refinement {
        float alpha;  // by the projection
        float weight; // exp(-10 distortion); 0 without a pair
        float spread; // |F - B|
    };

    void Refine(size_t p)
    {
        const PairRecord& record = m_records[p];
        if (record.cost == kNoPairCost) {
            m_refined[p] = {0.0f, 0.0f, 0.0f};
            return;
        }
        const float alpha = Project(m_grid.Colour(p), record.foreground, record.background).alpha;
        m_refined[p] = {alpha, Confidence(record.cost),
                        std::sqrt(DistanceSquared(record.foreground, record.background))};
    }

    // The pair's own alpha; a pixel without a pair is background in its own colour.
    void Unsmoothed(size_t p)
    {
        const bool paired = m_records[p].cost != kNoPairCost;
        m_alpha[p] = m_single[p] == kUnknown ? m_refined[p].alpha : (m_single[p] == kForeground ? 1.0f : 0.0f);
        std::copy_n(paired ? m_records[p].foreground : m_grid.Colour(p), 3, &m_foreground[p * 3]);
    }

    struct Neighbourhood {
        float foreground[3] = {}, foregroundWeight = 0.0f;
        float background[3] = {}, backgroundWeight = 0.0f;
        float alpha = 0.0f, alphaWeight = 0.0f;
        float spread = 0.0f, spreadWeight = 0.0f; // |F - B| of the unknown neighbours
    };

    // The 11 x 11 gaussian exp(-(i^2 + j^2) / 7.073553) / sqrt(22.22222) over the neighbours, each further
    // weighted by its confidence exp(-10 distortion): known pixels are certain, their colour the foreground
    // or the background, and count twice toward the alpha.
    Neighbourhood Gather(int32_t x, int32_t y) const
    {
        Neighbourhood n;
        for (int32_t j = -kSmoothingReach; j <= kSmoothingReach; ++j)
            for (int32_t i = -kSmoothingReach; i <= kSmoothingReach; ++i) {
                if (!m_grid.Contains(x + i, y + j))
                    continue;
                const size_t q = m_grid.Index(x + i, y + j);
                const float g = m_gaussian[j + kSmoothingReach][i + kSmoothingReach];
                if (m_grid.classes[q] != kUnknown) {
                    const bool foreground = m_grid.classes[q] == kForeground;
                    Accumulate(foreground ? n.foreground : n.background, m_grid.Colour(q), g);
                    (foreground ? n.foregroundWeight : n.backgroundWeight) += g;
                    n.alpha += foreground ? 2.0f * g : 0.0f;
                    n.alphaWeight += 2.0f * g;
                    continue;
                }
                const Refinement& refined = m_refined[q];
                if (refined.weight == 0.0f)
                    continue;
                const PairRecord& record = m_records[q];
                const float w = g * refined.weight, a = refined.alpha;
                Accumulate(n.foreground, record.foreground, w * a);
                n.foregroundWeight += w * a;
                Accumulate(n.background, record.background, w * (1.0f - a));
                n.backgroundWeight += w * (1.0f - a);
                n.alpha += w * a;
                n.alphaWeight += w;
                n.spread += w * refined.spread;
                n.spreadWeight += w;
            }
        return n;
    }

    static void Accumulate(float* sum, const float* colour, float weight)
    {
        for (int32_t c = 0; c < 3; ++c)
            sum[c] += weight * colour[c];
    }

    // The smoothed colours, whose projection is trusted by its confidence 0.999 exp(-10 distortion), less
    // where they lie closer than the neighbours' pairs do; the low-frequency alpha fills the rest.
    void Smoothed(int32_t x, int32_t y, size_t p)
    {
        const Neighbourhood n = Gather(x, y);
        const float* colour = m_grid.Colour(p);
        float foreground[3], background[3];
        for (int32_t c = 0; c < 3; ++c) {
            foreground[c] = n.foregroundWeight > 0.0f ? n.foreground[c] / n.foregroundWeight : colour[c];
            background[c] = n.backgroundWeight > 0.0f ? n.background[c] / n.backgroundWeight : colour[c];
        }
        const Projection projection = Project(colour, foreground, background);
        float confidence = 0.999f * Confidence(projection.distortion);
        if (n.spread > 0.0f) {
            const float typical = n.spread / n.spreadWeight;
            confidence *= std::min(1.0f, std::sqrt(DistanceSquared(foreground, background)) / typical);
        }
        const float lowFrequency = n.alphaWeight > 0.0f ? n.alpha / n.alphaWeight : projection.alpha;
        m_alpha[p] = confidence * projection.alpha + (1.0f - confidence) * lowFrequency;
        if (m_single[p] != kUnknown)
            m_alpha[p] = m_single[p] == kForeground ? 1.0f : 0.0f;
        for (int32_t c = 0; c < 3; ++c)
            m_foreground[p * 3 + c] = std::clamp(foreground[c], 0.0f, 1.0f);
    }

    struct GaussianTaps {
        float taps[2 * kSmoothingReach + 1][2 * kSmoothingReach + 1];
        GaussianTaps()
        {
            for (int32_t j = -kSmoothingReach; j <= kSmoothingReach; ++j)
                for (int32_t i = -kSmoothingReach; i <= kSmoothingReach; ++i)
                    taps[j + kSmoothingReach][i + kSmoothingReach] =
                        std::exp(-float(i * i + j * j) / 7.073553f) / std::sqrt(22.22222f);
        }
        const float* operator[](int32_t row) const { return taps[row]; }
    };

    const Grid& m_grid;
    float m_step;
    int32_t m_flags;
    std::unique_ptr<PairRecord[]> m_records;
    std::unique_ptr<Refinement[]> m_refined;
    std::unique_ptr<float[]> m_alpha;
    std::unique_ptr<float[]> m_foreground;
    std::unique_ptr<uint8_t[]> m_single; // kUnknown, or the kind of the one sample that explains the pixel
    GaussianTaps m_gaussian;
};

// The alpha, times white plus 0.5 truncated into the matte; with kStampForeground the larger of it and the
// alpha already there (prior's, when given) stays. existing receives that alpha in 0..1.
template <class Sample, class PriorSample>
void WriteMatte(const MatteSolver& solver, const Grid& grid, KXImage* prior, KXImage* matte, int32_t flags,
                float* existing)
{
    WalkRows<Sample>(grid.area, Sources<PriorSample>{{prior}}, matte,
                     {.alphaSource = RowWalkOrder::kNoAlphaCopy, .readDestination = true},
                     [&](int32_t y, const PriorSample* priorRow, Sample* out) {
                         for (int32_t x = 0; x < grid.area.Width(); ++x) {
                             const size_t p = grid.Index(grid.area.left + x, y);
                             existing[p] = priorRow ? ToUnit(priorRow[x]) : ToUnit(out[x]);
                             const float alpha = solver.Alpha(p);
                             out[x] = FromUnit<Sample>(flags & kStampForeground ? std::max(alpha, existing[p]) : alpha);
                         }
                     });
}

// The foreground colour into the destination's colour planes: mixed over what is there by the existing
// alpha with kMixByAlpha, else as it is. Further planes come from the image.
template <class Sample>
void WriteForeground(const MatteSolver& solver, const Grid& grid, KXImage* image, KXImage* destination, int32_t flags,
                     const float* existing)
{
    const PixelLayout layout = LayoutOf(destination);
    const int32_t imagePlanes = KXImageGetNumPlanes(image);
    WalkRows<Sample>(grid.area, Sources<Sample>{{image}}, destination,
                     {.alphaSource = RowWalkOrder::kNoAlphaCopy, .readDestination = true},
                     [&](int32_t y, const Sample* in, Sample* out) {
                         for (int32_t x = 0; x < grid.area.Width(); ++x, out += layout.planes, in += imagePlanes) {
                             const size_t p = grid.Index(grid.area.left + x, y);
                             const float* f = solver.Foreground(p);
                             const float a = existing[p];
                             for (int32_t c = 3; c < layout.planes; ++c)
                                 out[c] = in[c];
                             for (int32_t c = 0; c < 3; ++c)
                                 out[c] = flags & kMixByAlpha
                                              ? FromRaw<Sample>(float(out[c]) * (1.0f - a) + a * kWhite<Sample> * f[c])
                                              : FromUnit<Sample>(f[c]);
                         }
                     });
}

template <class Sample, class PriorSample>
void MatteKernel(KXImage* image, KXImage* trimap, KXImage* prior, KXImage* destination, KXImage* matte,
                 const CEffectRect& rect, int32_t flags, KXProgress* progress)
{
    if (rect.IsEmpty())
        return;
    Grid grid(rect);
    grid.ReadColours<Sample>(image);
    grid.ReadClasses<Sample>(trimap, ForegroundThreshold<Sample>(flags & kLowForeground ? 127 : 255));
    const KXRect bounds = KXImageGetBounds(trimap);
    const float step = std::max(float(std::min(bounds.width, bounds.height)) * 0.0025f, 1.0f);
    MatteSolver solver(grid, step, flags);
    solver.Solve(progress);
    auto existing = Allocate<float>(grid.Count());
    WriteMatte<Sample, PriorSample>(solver, grid, prior, matte, flags, existing.get());
    WriteForeground<Sample>(solver, grid, image, destination, flags, existing.get());
}

// One plane of the sample width of the image.
bool IsPlaneLike(KXImage* plane, KXImage* image)
{
    return KXImageGetNumPlanes(plane) == 1 && KXImageGetPlaneBytes(plane) == KXImageGetPlaneBytes(image);
}

} // namespace

int32_t KXEffectsSetTrimap(KXImage* trimap, KXImage* destination, KXImage* brush, const KXRect* rect, int32_t flags)
{
    return EntryPoint(trimap, destination, rect)
        .Requires(brush)
        .Run([&]<class Sample>(SampleTag<Sample>, const CEffectRect& effectRect) {
            const Sample value = SampleOfLevel<Sample>(StampLevel(flags));
            return DispatchSample(brush, [&](auto brushTag) {
                StampKernel<Sample, typename decltype(brushTag)::Type>(trimap, destination, brush, effectRect, value);
                return int32_t(kKXNoErr);
            });
        });
}

int32_t KXEffectsExpandTrimap(KXImage* image, KXImage* trimap, KXImage* destination, const KXRect* rect,
                              int32_t* changed)
{
    return EntryPoint(image, destination, rect)
        .Requires(trimap, changed)
        .AnyDestinationLayout()
        .Require([&] { return HasThreeColourPlanes(image); }, kKXErrUnsupported)
        .Require([&] { return IsPlaneLike(trimap, image) && IsPlaneLike(destination, image); }, kKXErrUnsupported)
        .Run([&]<class Sample>(SampleTag<Sample>, const CEffectRect& effectRect) {
            *changed = ExpandKernel<Sample>(image, trimap, destination, effectRect);
        });
}

int32_t KXEffectsGenerateMatte(KXImage* image, KXImage* trimap, KXImage* priorAlpha, KXImage* destination,
                               KXImage* matte, const KXRect* rect, int32_t flags, KXProgress* progress)
{
    return EntryPoint(image, destination, rect)
        .Requires(trimap, matte)
        .Require([&] { return HasThreeColourPlanes(image); }, kKXErrUnsupported)
        .Require([&] { return IsPlaneLike(trimap, image) && IsPlaneLike(matte, image); }, kKXErrUnsupported)
        .Require([&] { return !priorAlpha || KXImageGetNumPlanes(priorAlpha) == 1; }, kKXErrUnsupported)
        .Run([&]<class Sample>(SampleTag<Sample>, const CEffectRect& effectRect) {
            // A rectangle wholly outside has nothing to write, and its far ends need not be reached.
            if (InDestination(effectRect, destination).IsEmpty())
                return int32_t(kKXNoErr);
            const int32_t priorBytes = priorAlpha ? KXImageGetPlaneBytes(priorAlpha) : 1;
            return DispatchPlaneBytes(priorBytes, [&](auto priorTag) {
                MatteKernel<Sample, typename decltype(priorTag)::Type>(image, trimap, priorAlpha, destination, matte,
                                                                       effectRect, flags, progress);
                return int32_t(kKXNoErr);
            });
        });
}
