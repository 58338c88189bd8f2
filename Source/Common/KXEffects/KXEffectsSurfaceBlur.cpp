// Surface blur: an edge-preserving mean from running bin statistics, at a cost per sample independent of
// the radius; and its form on the luminosity of an RGB picture.
#include "KXEffectsSurfaceBlur.h"

#include "KXEffectsColorMath.h"
#include "KXEffectsEntry.h"
#include "KXEffectsRowLoop.h"

#include <type_traits>

namespace {
constexpr const char* kSourceFile = "Source/Common/KXEffects/KXEffectsSurfaceBlur";

// The bin of an integer sample: its top three bits (8 bins) or two (4 bins).
template <int32_t Bins> inline int32_t SampleBin(uint8_t sample)
{
    return sample >> (Bins == 8 ? 5 : 6);
}

template <int32_t Bins> inline int32_t SampleBin(uint16_t sample)
{
    return sample >> (Bins == 8 ? 13 : 14);
}

// truncate(s x 7.999992) or truncate(s x 3.999996); samples beyond 0..1 (and NaN) go to the end bins.
template <int32_t Bins> inline int32_t SampleBin(float sample)
{
    const float scaled = sample * (Bins == 8 ? 7.999992f : 3.999996f);
    return scaled > 0.0f ? (scaled < float(Bins - 1) ? int32_t(scaled) : Bins - 1) : 0;
}

// Whole rows of bins move as 16-byte vectors (a vector extension of GCC and Clang): float lanes for the
// weights, accumulator lanes for the statistics, and index lanes of the accumulator's width for masks.
typedef float Lanes __attribute__((vector_size(16)));
typedef int32_t IntLanes __attribute__((vector_size(16)));

template <class Acc> struct AccVector;
template <> struct AccVector<int32_t> {
    typedef int32_t Type __attribute__((vector_size(16)));
    typedef int32_t Index __attribute__((vector_size(16)));
};
template <> struct AccVector<uint32_t> {
    typedef uint32_t Type __attribute__((vector_size(16)));
    typedef int32_t Index __attribute__((vector_size(16)));
};
template <> struct AccVector<float> {
    typedef float Type __attribute__((vector_size(16)));
    typedef int32_t Index __attribute__((vector_size(16)));
};
template <> struct AccVector<uint64_t> {
    typedef uint64_t Type __attribute__((vector_size(16)));
    typedef int64_t Index __attribute__((vector_size(16)));
};

// The statistics of the samples of a window: per bin their sum, then per bin their count. A sample goes
// in or out by a one-hot mask over the bins, so that the statistics stay in vector registers.
template <class Acc, int32_t Bins> struct BinStats {
    using Vector = typename AccVector<Acc>::Type;
    using Index = typename AccVector<Acc>::Index;
    static constexpr int32_t kLanes = int32_t(16 / sizeof(Acc));
    static constexpr int32_t kVectors = Bins / kLanes;

    Vector sums[kVectors];
    Vector counts[kVectors];

    // The value in the lanes of the bin, 0 elsewhere.
    static Vector Masked(Index hit, Acc value) { return (Vector)(hit & (Index)(Vector{} + value)); }
    static Index Hit(int32_t k, int32_t bin)
    {
        Index lane = {};
        for (int32_t i = 0; i < kLanes; ++i)
            lane[i] = k * kLanes + i;
        return lane == bin;
    }
    void Put(Acc value, int32_t bin)
    {
        for (int32_t k = 0; k < kVectors; ++k)
            sums[k] += Masked(Hit(k, bin), value), counts[k] += Masked(Hit(k, bin), Acc(1));
    }
    void Take(Acc value, int32_t bin)
    {
        for (int32_t k = 0; k < kVectors; ++k)
            sums[k] -= Masked(Hit(k, bin), value), counts[k] -= Masked(Hit(k, bin), Acc(1));
    }
    void operator+=(const BinStats& other)
    {
        for (int32_t k = 0; k < kVectors; ++k)
            sums[k] += other.sums[k], counts[k] += other.counts[k];
    }
    void operator-=(const BinStats& other)
    {
        for (int32_t k = 0; k < kVectors; ++k)
            sums[k] -= other.sums[k], counts[k] -= other.counts[k];
    }
    // Bins j .. j + 3 of the sums or counts as float lanes.
    static Lanes FloatLanes(const Vector* vectors, int32_t j)
    {
        if constexpr (kLanes == 4) {
            return __builtin_convertvector(vectors[j / 4], Lanes);
        } else {
            const Vector low = vectors[j / 2], high = vectors[j / 2 + 1];
            return Lanes{float(low[0]), float(low[1]), float(high[0]), float(high[1])};
        }
    }
};

// |x| and max(0, x) on float lanes by their bits: the sign cleared; the lanes not above 0 (NaN among
// them) cleared.
inline Lanes Abs(Lanes x)
{
    return (Lanes)((IntLanes)x & 0x7fffffff);
}

inline Lanes NotBelowZero(Lanes x)
{
    return (Lanes)((IntLanes)x & (x > 0.0f));
}

// mean[j] = sum[j] / max(1, count[j]); weight[j] = max(0, 1 - |mean[j] - s| x inv); A and N are the
// weighted sums and counts, added lane by lane (bin j in lane j mod 4), then across the lanes.
template <class Acc, int32_t Bins>
inline void WeightedTotals(const BinStats<Acc, Bins>& stats, float s, float inv, float& a, float& n)
{
    const Lanes zero = {}, one = zero + 1.0f;
    Lanes laneA = zero, laneN = zero;
    for (int32_t j = 0; j < Bins; j += 4) {
        const Lanes sum = stats.FloatLanes(stats.sums, j);
        const Lanes count = stats.FloatLanes(stats.counts, j);
        const Lanes weight = NotBelowZero(one - Abs(sum / (count > one ? count : one) - s) * inv);
        laneA += weight * sum;
        laneN += weight * count;
    }
    a = (laneA[0] + laneA[1]) + (laneA[2] + laneA[3]);
    n = (laneN[0] + laneN[1]) + (laneN[2] + laneN[3]);
}

// truncate(A / N x amount + s x keep + 0.5), floats without the 0.5; s itself when N is not above 0.
template <class Sample> inline Sample SurfaceValue(float a, float n, Sample s, float amount, float keep)
{
    return n > 0.0f ? FromRaw<Sample>(a / n * amount + float(s) * keep) : s;
}

struct SurfaceSettings {
    int32_t radius;
    float inv;
    float amount;
    float keep;
    KXPoint offset;
};

// The ring holds W slots of statistics, one per source line of the window, each with the statistics of
// every output column and colour plane; columns holds their totals.
template <class Sample, class Acc, int32_t Bins> struct SurfaceJob {
    using Stats = BinStats<Acc, Bins>;
    int32_t window;
    int32_t width;
    PixelLayout layout;
    SurfaceSettings settings;
    Stats* ring;
    Stats* columns;

    size_t LineStats() const { return size_t(width) * size_t(layout.colourPlanes); }
    Stats* Slot(int32_t index) const { return ring + size_t(index % window) * LineStats(); }

    // Each plane of a line of width + 2r samples gives the window statistics of every output column: those
    // of the column before with one sample out and one in. They go to the slot, and to visit(stats index,
    // plane, column, statistics), pixel by pixel.
    template <class Visit> [[gnu::flatten]] void RunLine(const Sample* line, Stats* slot, Visit&& visit) const
    {
        WithPlaneCounts(layout, [&](auto planes, auto colourPlanes) {
            for (int32_t c = 0; c < colourPlanes; ++c) {
                Stats run = {};
                for (int32_t k = 0; k < window; ++k)
                    Put(run, line[k * planes + c]);
                slot[c] = run;
                visit(size_t(c), c, 0, run);
            }
            for (int32_t x = 1; x < width; ++x)
                for (int32_t c = 0; c < colourPlanes; ++c) {
                    const size_t at = size_t(x) * colourPlanes + c;
                    Stats run = slot[at - colourPlanes];
                    const Sample leaving = line[(x - 1) * planes + c];
                    run.Take(Acc(leaving), SampleBin<Bins>(leaving));
                    Put(run, line[(x + window - 1) * planes + c]);
                    slot[at] = run;
                    visit(at, c, x, run);
                }
        });
    }

    static void Put(Stats& stats, Sample sample) { stats.Put(Acc(sample), SampleBin<Bins>(sample)); }

    // A line of the window's first W - 1 joins the column totals.
    void PrimeLine(const Sample* line, int32_t index) const
    {
        RunLine(line, Slot(index), [&](size_t at, int32_t, int32_t, const Stats& run) { columns[at] += run; });
    }

    // The newest line joins the column totals, the samples of the output line are finished, and the
    // oldest line leaves.
    void FinishLine(const Sample* line, int32_t index, const Sample* in, Sample* out) const
    {
        const Stats* dropped = Slot(index + 1);
        const int32_t planes = layout.planes;
        RunLine(line, Slot(index), [&](size_t at, int32_t c, int32_t x, const Stats& run) {
            Stats& total = columns[at];
            total += run;
            float a, n;
            const Sample s = in[x * planes + c];
            WeightedTotals(total, float(s), settings.inv, a, n);
            out[x * planes + c] = SurfaceValue(a, n, s, settings.amount, settings.keep);
            total -= dropped[at];
        });
    }
};

template <class Sample, class Acc, int32_t Bins>
int32_t SurfaceKernel(KXImage* source, KXImage* destination, const CEffectRect& whole, const SurfaceSettings& settings)
{
    using Job = SurfaceJob<Sample, Acc, Bins>;
    const int32_t radius = settings.radius;
    // Only the lines and columns whose results land in the destination are computed.
    const CEffectRect rect = whole.Intersection(ShiftedBounds(destination, settings.offset.x, settings.offset.y));
    if (rect.IsEmpty())
        return kKXNoErr;
    GrownRect(rect, -radius, -radius, radius, radius);
    Job job{2 * radius + 1, rect.Width(), LayoutOf(destination), settings, nullptr, nullptr};
    CAlignedBuffer ring(size_t(job.window) * job.LineStats() * sizeof(typename Job::Stats));
    CAlignedBuffer columns(job.LineStats() * sizeof(typename Job::Stats));
    job.ring = ring.As<typename Job::Stats>();
    job.columns = columns.As<typename Job::Stats>();
    CImageView lineView(source);
    CImageView referenceView(source);
    CImageView destinationView(destination);
    auto readLine = [&](int32_t index) {
        return static_cast<const Sample*>(
            lineView.ReadRow(rect.top - radius + index, rect.left - radius, job.width + 2 * radius));
    };
    for (int32_t index = 0; index < job.window - 1; ++index)
        job.PrimeLine(readLine(index), index);
    for (int32_t y = 0; y < rect.Height(); ++y) {
        const Sample* line = readLine(y + job.window - 1);
        const auto* in = static_cast<const Sample*>(referenceView.ReadRow(rect.top + y, rect.left, job.width));
        const int32_t outRow = int32_t(int64_t(rect.top) + y - settings.offset.y);
        const int32_t outLeft = int32_t(int64_t(rect.left) - settings.offset.x);
        auto* out = static_cast<Sample*>(destinationView.WriteRow(outRow, outLeft, job.width));
        if (job.layout.transparency != 0 && in != out)
            std::memmove(out, in, size_t(job.width) * size_t(job.layout.planes) * sizeof(Sample));
        job.FinishLine(line, y + job.window - 1, in, out);
    }
    destinationView.Detach();
    return kKXNoErr;
}

// The accumulator keeps W x W x white exact: signed 32 bits (the fastest conversion to float) up to
// 0x7fffffff, unsigned 32 bits up to 0xffffffff, 64 bits above; float samples sum in float.
template <class Sample, int32_t Bins>
int32_t SurfaceByAccumulator(KXImage* source, KXImage* destination, const CEffectRect& rect,
                             const SurfaceSettings& settings)
{
    if constexpr (kIsFloatSample<Sample>) {
        return SurfaceKernel<float, float, Bins>(source, destination, rect, settings);
    } else {
        const uint64_t window = 2 * uint64_t(settings.radius) + 1;
        const uint64_t bound = window * window * uint64_t(kWhiteSample<Sample>);
        if (bound <= 0x7fffffffu)
            return SurfaceKernel<Sample, int32_t, Bins>(source, destination, rect, settings);
        if (bound <= 0xffffffffu)
            return SurfaceKernel<Sample, uint32_t, Bins>(source, destination, rect, settings);
        return SurfaceKernel<Sample, uint64_t, Bins>(source, destination, rect, settings);
    }
}

template <int32_t Bins>
int32_t SurfaceBlurWithBins(KXImage* source, KXImage* destination, const KXRect* rect, int32_t radius, float threshold,
                            float amount, KXPoint offset)
{
    return EntryPoint(source, destination, rect)
        .NeutralWhen(!(amount > 0.0f) || radius <= 0 || !(threshold > 0.0f), offset)
        .Require(radius <= kMaxReach, kKXErrBadParam)
        .Run([&]<class Sample>(SampleTag<Sample>, const CEffectRect& effectRect) {
            if (effectRect.IsEmpty())
                return int32_t(kKXNoErr);
            // The weight is a tent of half-width 2.5 x threshold around the centre sample.
            const SurfaceSettings settings{radius, 1.0f / (threshold * 2.5f * kWhite<Sample>), amount, 1.0f - amount,
                                           offset};
            return SurfaceByAccumulator<Sample, Bins>(source, destination, effectRect, settings);
        });
}

// The pixel takes the blurred luma l (0..255) as its luma, keeping its chroma and hue.
template <class Sample> inline void ApplyLuma(const Sample* in, uint8_t luma, Sample* out)
{
    float rgb[3] = {ToUnit(in[0]), ToUnit(in[1]), ToUnit(in[2])};
    float lumaChromaHue[3];
    KXEffectsRGBToLumaChromaHue(rgb, lumaChromaHue);
    lumaChromaHue[0] = ToUnit(luma);
    KXEffectsLumaChromaHueToRGB(lumaChromaHue, rgb);
    for (int32_t c = 0; c < 3; ++c)
        out[c] = FromUnit<Sample>(rgb[c]);
}

// Source and luma read in that order; alpha carried across.
template <class Sample>
int32_t ApplyLumaKernel(KXImage* source, KXImage* luma, KXImage* destination, const CEffectRect& rect)
{
    const int32_t planes = KXImageGetNumPlanes(destination);
    WalkRows<Sample>(rect, Sources<Sample, uint8_t>{source, luma}, destination,
                     [&](int32_t, const Sample* in, const uint8_t* lumaRow, Sample* out) {
                         for (int32_t x = 0; x < rect.Width(); ++x)
                             ApplyLuma(in + x * planes, lumaRow[x], out + x * planes);
                     });
    return kKXNoErr;
}

} // namespace

int32_t SurfaceBlurDispatch(KXImage* source, KXImage* destination, const KXRect* rect, int32_t radius, float threshold,
                            float amount, KXPoint offset)
{
    return SurfaceBlurWithBins<8>(source, destination, rect, radius, threshold, amount, offset);
}

int32_t SurfaceBlurFastDispatch(KXImage* source, KXImage* destination, const KXRect* rect, int32_t radius,
                                float threshold, float amount, KXPoint offset)
{
    return SurfaceBlurWithBins<4>(source, destination, rect, radius, threshold, amount, offset);
}

int32_t KXEffectsSurfaceBlur(KXImage* source, KXImage* destination, const KXRect* rect, int32_t radius, float threshold,
                             float amount)
{
    return SurfaceBlurDispatch(source, destination, rect, radius, threshold, amount, KXPointMake(0, 0));
}

int32_t KXEffectsSurfaceBlurWithOffset(KXImage* source, KXImage* destination, const KXRect* rect, int32_t radius,
                                       float threshold, float amount, KXPoint offset)
{
    return SurfaceBlurDispatch(source, destination, rect, radius, threshold, amount, offset);
}

int32_t KXEffectsSurfaceBlurLuminosity(KXImage* source, KXImage* destination, const KXRect* rect, int32_t radius,
                                       float threshold, float amount)
{
    // The surface blur would copy: so does its luminosity form, whatever the colour space.
    return EntryPoint(source, destination, rect)
        .Catching(kSourceFile, __LINE__)
        .NeutralWhen(!(amount > 0.0f) || radius <= 0 || !(threshold > 0.0f))
        .RGBOnly()
        .Require(radius <= kMaxReach, kKXErrBadParam)
        .Run([&]<class Sample>(SampleTag<Sample>, const CEffectRect& effectRect) {
            // Only the part of rect in the destination is worked on: the rest would be dropped.
            const CEffectRect inside = InDestination(effectRect, destination);
            if (inside.IsEmpty())
                return int32_t(kKXNoErr);
            const KXRect insideRect = inside.ToKXRect();
            const KXRect grown = KXRectOutset(&insideRect, radius);
            CImageRef luma;
            KX_THROW_IF_ERROR(KXEffectsCreateLuminosityImage(source, luma.Out(), &grown, 1));
            KX_THROW_IF_ERROR(
                SurfaceBlurDispatch(luma, luma, &insideRect, radius, threshold, amount, KXPointMake(0, 0)));
            return ApplyLumaKernel<Sample>(source, luma, destination, inside);
        });
}
