// Median and dust and scratch: a moving histogram per colour plane along each row.
#include "KXEffectsEntry.h"
#include "KXEffectsRowLoop.h"

#include <cstdlib>
#include <type_traits>

namespace {

// s if t > 0 and |m - s| < t, else m: the median (t = 0) always takes m, dust and scratch only outliers.
inline int32_t RankValue(int32_t median, int32_t sample, int32_t threshold)
{
    return threshold > 0 && std::abs(median - sample) < threshold ? sample : median;
}

// One bin per value.
template <class Sample> struct ExactBins {
    static constexpr int32_t kCount = int32_t(kWhiteSample<Sample>) + 1;
    static int32_t Bin(Sample sample) { return sample; }
    static int32_t Value(int32_t bin) { return bin; }
};

// 16-bit dust and scratch: 256 bins on the high byte, bin m standing for m x 256 + m. This trades
// precision for speed deliberately.
struct HighByteBins {
    static constexpr int32_t kCount = 256;
    static int32_t Bin(uint16_t sample) { return sample >> 8; }
    static int32_t Value(int32_t bin) { return bin * 256 + bin; }
};

// The histogram of one plane over the W x W window, with the running median m and below, the number of
// samples at or below m. A histogram of more than 256 bins keeps the totals of blocks of 16 bins too, so
// that its walk crosses a block it does not stop in at one step.
template <class Count, class Bins> class MovingHistogram {
public:
    static constexpr bool kBlocks = Bins::kCount > 256;
    static constexpr int32_t kBlockBits = 4;
    static constexpr int32_t kBlockEnd = (1 << kBlockBits) - 1;
    static constexpr size_t kCounts = size_t(Bins::kCount) + (kBlocks ? size_t(Bins::kCount) >> kBlockBits : 0);

    MovingHistogram(Count* counts, uint32_t area)
        : m_counts(counts), m_blocks(counts + Bins::kCount), m_area(area), m_half(area / 2)
    {
    }

    // Clears and fills with the first window, W columns of W samples; the first Settle finds the median.
    template <class Sample> void Start(const Sample* samples)
    {
        std::memset(m_counts, 0, sizeof(Count) * kCounts);
        for (uint32_t k = 0; k < m_area; ++k)
            Change(m_counts, m_blocks, Bins::Bin(samples[k]), Count(1));
        m_median = -1;
        m_below = 0;
    }

    // m becomes the first value whose running total from bin 0 is above area / 2, walking from the last m.
    int32_t Settle()
    {
        int32_t median = m_median;
        uint32_t below = m_below;
        if (below > m_half) {
            for (;;) {
                if (AtBlockEnd(median) && below - m_blocks[median >> kBlockBits] > m_half) {
                    below -= m_blocks[median >> kBlockBits];
                    median -= kBlockEnd + 1;
                } else if (below - m_counts[median] > m_half) {
                    below -= m_counts[median--];
                } else {
                    break;
                }
            }
        } else {
            while (below <= m_half) {
                if (AtBlockEnd(median) && below + m_blocks[(median >> kBlockBits) + 1] <= m_half) {
                    below += m_blocks[(median >> kBlockBits) + 1];
                    median += kBlockEnd + 1;
                } else {
                    below += m_counts[++median];
                }
            }
        }
        m_median = median;
        m_below = below;
        return median;
    }

    // Takes out the samples of the left column and puts in those of the right one, row by row. The state
    // is worked on in locals: byte counts may alias anything, so the compiler would otherwise reload it
    // after every count it writes.
    template <class Sample> void Slide(const Sample* left, const Sample* right, int32_t window)
    {
        Count* const counts = m_counts;
        Count* const blocks = m_blocks;
        const int32_t median = m_median;
        uint32_t below = m_below;
        for (int32_t k = 0; k < window; ++k) {
            const int32_t out = Bins::Bin(left[k]);
            const int32_t in = Bins::Bin(right[k]);
            Change(counts, blocks, out, Count(-1));
            below -= out <= median;
            Change(counts, blocks, in, Count(1));
            below += in <= median;
        }
        m_below = below;
    }

private:
    // The last bin of a block, -1 counting as the end of the block before the first.
    static bool AtBlockEnd(int32_t median) { return kBlocks && (median & kBlockEnd) == kBlockEnd; }

    static void Change(Count* counts, Count* blocks, int32_t bin, Count change)
    {
        counts[bin] += change;
        if constexpr (kBlocks)
            blocks[bin >> kBlockBits] += change;
    }

    Count* m_counts;
    Count* m_blocks;
    uint32_t m_area;
    uint32_t m_half;
    int32_t m_median = -1;
    uint32_t m_below = 0;
};

// The window geometry and buffers of one call. The ring keeps W lines of width + 2r samples per colour
// plane, column by column, so that the W samples of one column are adjacent; line i goes to row i mod W.
template <class Sample> struct RankJob {
    int32_t window, span, width;
    uint32_t area;
    int32_t threshold;
    PixelLayout layout;
    Sample* ring;

    const Sample* Columns(int32_t plane) const { return ring + size_t(plane) * size_t(span) * size_t(window); }

    void StoreLine(const Sample* line, int32_t row)
    {
        for (int32_t c = 0; c < layout.colourPlanes; ++c) {
            Sample* columns = ring + size_t(c) * size_t(span) * size_t(window) + row;
            for (int32_t x = 0; x < span; ++x)
                columns[size_t(x) * size_t(window)] = line[x * layout.planes + c];
        }
    }
};

template <class Sample, class Count, class Bins>
void RankPlane(const RankJob<Sample>& job, MovingHistogram<Count, Bins>& histogram, int32_t plane, const Sample* in,
               Sample* out)
{
    const Sample* columns = job.Columns(plane);
    const int32_t window = job.window;
    histogram.Start(columns);
    for (int32_t x = 0; x < job.width; ++x) {
        const int32_t median = Bins::Value(histogram.Settle());
        const int32_t at = x * job.layout.planes + plane;
        out[at] = Sample(RankValue(median, in[at], job.threshold));
        if (x + 1 < job.width)
            histogram.Slide(columns + size_t(x) * window, columns + size_t(x + window) * window, window);
    }
}

template <class Sample, class Count, class Bins>
int32_t RankKernel(KXImage* source, KXImage* destination, const CEffectRect& whole, int32_t radius, int32_t threshold)
{
    // Only the lines and columns whose results land in the destination are computed.
    const CEffectRect rect = InDestination(whole, destination);
    if (rect.IsEmpty())
        return kKXNoErr;
    GrownRect(rect, -radius, -radius, radius, radius);
    const int32_t window = 2 * radius + 1;
    RankJob<Sample> job{window,    rect.Width() + 2 * radius, rect.Width(), uint32_t(window) * uint32_t(window),
                        threshold, LayoutOf(destination),     nullptr};
    CAlignedBuffer ring(size_t(job.layout.colourPlanes) * size_t(job.span) * size_t(window) * sizeof(Sample));
    CAlignedBuffer counts(sizeof(Count) * MovingHistogram<Count, Bins>::kCounts);
    job.ring = ring.As<Sample>();
    MovingHistogram<Count, Bins> histogram(counts.As<Count>(), job.area);
    CImageView sourceView(source);
    CImageView destinationView(destination);
    auto storeLine = [&](int32_t index) {
        const int32_t line = rect.top - radius + index;
        job.StoreLine(static_cast<const Sample*>(sourceView.ReadRow(line, rect.left - radius, job.span)),
                      index % window);
    };
    for (int32_t index = 0; index < window - 1; ++index)
        storeLine(index);
    for (int32_t y = rect.top; y < rect.bottom; ++y) {
        storeLine(y - rect.top + window - 1);
        const auto* in = static_cast<const Sample*>(sourceView.ReadRow(y, rect.left, job.width));
        auto* out = static_cast<Sample*>(destinationView.WriteRow(y, rect.left, job.width));
        if (job.layout.transparency != 0 && in != out)
            std::memmove(out, in, size_t(job.width) * size_t(job.layout.planes) * sizeof(Sample));
        for (int32_t c = 0; c < job.layout.colourPlanes; ++c)
            RankPlane(job, histogram, c, in, out);
    }
    destinationView.Detach();
    return kKXNoErr;
}

// The count type follows from the window area, so that the histogram stays small.
template <class Sample, class Bins>
int32_t RankByArea(KXImage* source, KXImage* destination, const CEffectRect& rect, int32_t radius, int32_t threshold)
{
    const uint64_t window = 2 * uint64_t(radius) + 1;
    const uint64_t area = window * window;
    if (area < 256)
        return RankKernel<Sample, uint8_t, Bins>(source, destination, rect, radius, threshold);
    if (area < 65536)
        return RankKernel<Sample, uint16_t, Bins>(source, destination, rect, radius, threshold);
    if (area <= 0xffffffffu)
        return RankKernel<Sample, uint32_t, Bins>(source, destination, rect, radius, threshold);
    return kKXErrBadParam;
}

// highByteBins: 16-bit samples take the 256 bins of their high byte (dust and scratch). Float images have
// no kernel.
int32_t RankFilter(KXImage* source, KXImage* destination, const KXRect* rect, int32_t radius, float threshold,
                   bool highByteBins)
{
    return EntryPoint(source, destination, rect)
        .Require(!std::isnan(threshold), kKXErrBadParam)
        .NeutralWhen(radius <= 0 || threshold >= 1.0f)
        .Run([&]<class Sample>(SampleTag<Sample>, const CEffectRect& effectRect) -> int32_t {
            if constexpr (kIsFloatSample<Sample>) {
                return kKXErrUnsupported;
            } else {
                if (effectRect.IsEmpty())
                    return kKXNoErr;
                const int32_t t = TruncateToInt32(threshold * kWhite<Sample> + 0.5f);
                if constexpr (std::is_same_v<Sample, uint8_t>)
                    return RankByArea<uint8_t, ExactBins<uint8_t>>(source, destination, effectRect, radius, t);
                else if (highByteBins)
                    return RankByArea<uint16_t, HighByteBins>(source, destination, effectRect, radius, t);
                else
                    return RankByArea<uint16_t, ExactBins<uint16_t>>(source, destination, effectRect, radius, t);
            }
        });
}

} // namespace

int32_t KXEffectsMedian(KXImage* source, KXImage* destination, const KXRect* rect, int32_t radius)
{
    return RankFilter(source, destination, rect, radius, 0.0f, false);
}

int32_t KXEffectsDustAndScratch(KXImage* source, KXImage* destination, const KXRect* rect, int32_t radius,
                                float threshold)
{
    return RankFilter(source, destination, rect, radius, threshold, true);
}
