// Triangular blur: a separable tent kernel from exact running sums.
#include "KXEffectsEntry.h"
#include "KXEffectsRowLoop.h"

#include <algorithm>

namespace {

// truncate(float(S) x (1 / (r + 1)^4) + 0.5), S the tent-weighted sum; floats have no rounding term.
template <class Sample, class Sum> inline Sample TentValue(Sum sum, float scale)
{
    return FromRaw<Sample>(float(sum) * scale);
}

// Running sums of one axis. The tent sum T moves by one step as T += R - L, with L the sum of the r + 1
// values up to and including the centre and R the r + 1 values beyond it; unsigned sums may wrap on the
// way but end exact.
template <class Sum> struct TentRun {
    Sum tent = 0, left = 0, right = 0;

    // values[k * step] for k in 0 .. 2r: the first window, right holding all of its right half.
    template <class Value> void Start(const Value* values, int32_t step, int32_t radius)
    {
        tent = left = right = 0;
        for (int32_t k = 0; k <= 2 * radius; ++k) {
            const Sum value = Sum(values[k * step]);
            const int32_t weight = radius + 1 - (k < radius ? radius - k : k - radius);
            tent += Sum(weight) * value;
            (k <= radius ? left : right) += value;
        }
    }
    // Moves the centre by one: entering joins the far end, centre is the value that becomes the centre,
    // leaving falls out of the near end.
    void Step(Sum entering, Sum centre, Sum leaving)
    {
        right += entering;
        tent += right - left;
        left += centre - leaving;
        right -= centre;
    }
};

// The tent sums along one line, for each output column and colour plane, into a row of the ring.
template <class Sample, class Sum>
void TentRow(const Sample* line, Sum* row, int32_t width, int32_t radius, const PixelLayout& layout)
{
    const int32_t planes = layout.planes;
    for (int32_t c = 0; c < layout.colourPlanes; ++c) {
        const Sample* in = line + c;
        TentRun<Sum> run;
        run.Start(in, planes, radius);
        row[c] = run.tent;
        for (int32_t x = 1; x < width; ++x) {
            run.Step(Sum(in[(x + 2 * radius) * planes]), Sum(in[(x + radius) * planes]), Sum(in[(x - 1) * planes]));
            row[x * layout.colourPlanes + c] = run.tent;
        }
    }
}

// The buffers of one call: a ring of W + 1 rows of tent sums (the vertical step reaches one row beyond
// the window) and the three vertical running sums of every column.
template <class Sum> struct TentColumns {
    int32_t radius, count, slots;
    Sum* ring;
    Sum* tent;
    Sum* upper;
    Sum* lower;

    Sum* Row(int32_t index) const { return ring + size_t(index % slots) * size_t(count); }

    // Output line 0: rows 0 .. 2r of the ring are lines -r .. r.
    void Start()
    {
        for (int32_t i = 0; i < count; ++i) {
            TentRun<Sum> run;
            run.Start(ring + i, count, radius);
            tent[i] = run.tent, upper[i] = run.left, lower[i] = run.right;
        }
    }
    // Output line y > 0: ring row index y + 2r has just been stored.
    void Step(int32_t y)
    {
        const Sum* entering = Row(y + 2 * radius);
        const Sum* centre = Row(y + radius);
        const Sum* leaving = Row(y - 1);
        for (int32_t i = 0; i < count; ++i) {
            lower[i] += entering[i];
            tent[i] += lower[i] - upper[i];
            upper[i] += centre[i] - leaving[i];
            lower[i] -= centre[i];
        }
    }
};

// The largest radius whose weighted sum of 16-bit samples, (r + 1)^4 x 65535, fits in 64 bits.
constexpr int32_t kMaxTentRadius = 4095;

template <class Sample, class Sum>
int32_t TentKernel(KXImage* source, KXImage* destination, const CEffectRect& whole, int32_t radius)
{
    // Only the lines and columns whose results land in the destination are computed.
    const CEffectRect rect = InDestination(whole, destination);
    if (rect.IsEmpty())
        return kKXNoErr;
    GrownRect(rect, -radius, -radius, radius, radius);
    const PixelLayout layout = LayoutOf(destination);
    const int32_t width = rect.Width();
    const int32_t count = width * layout.colourPlanes;
    const int32_t window = 2 * radius + 1;
    CAlignedBuffer ring(size_t(window + 1) * size_t(count) * sizeof(Sum));
    CAlignedBuffer sums(3 * size_t(count) * sizeof(Sum));
    TentColumns<Sum> columns{radius,
                             count,
                             window + 1,
                             ring.As<Sum>(),
                             sums.As<Sum>(),
                             sums.As<Sum>() + count,
                             sums.As<Sum>() + 2 * size_t(count)};
    const uint64_t fourth = uint64_t(radius + 1) * uint64_t(radius + 1) * uint64_t(radius + 1) * uint64_t(radius + 1);
    const float scale = 1.0f / float(fourth);
    CImageView sourceView(source);
    CImageView destinationView(destination);
    auto storeLine = [&](int32_t index) {
        const auto* line = static_cast<const Sample*>(
            sourceView.ReadRow(rect.top - radius + index, rect.left - radius, width + 2 * radius));
        TentRow(line, columns.Row(index), width, radius, layout);
    };
    for (int32_t index = 0; index < window; ++index)
        storeLine(index);
    columns.Start();
    for (int32_t y = 0; y < rect.Height(); ++y) {
        if (y > 0) {
            storeLine(y + 2 * radius);
            columns.Step(y);
        }
        const auto* in = static_cast<const Sample*>(sourceView.ReadRow(rect.top + y, rect.left, width));
        auto* out = static_cast<Sample*>(destinationView.WriteRow(rect.top + y, rect.left, width));
        if (layout.transparency != 0 && in != out)
            std::memmove(out, in, size_t(width) * size_t(layout.planes) * sizeof(Sample));
        for (int32_t x = 0; x < width; ++x)
            for (int32_t c = 0; c < layout.colourPlanes; ++c)
                out[x * layout.planes + c] = TentValue<Sample>(columns.tent[x * layout.colourPlanes + c], scale);
    }
    destinationView.Detach();
    return kKXNoErr;
}

// Integer sums are exact: 32 bits while (r + 1)^4 x white fits, else 64. Float samples sum in double,
// since the formula converts the whole sum to float once.
template <class Sample>
int32_t TentBySum(KXImage* source, KXImage* destination, const CEffectRect& rect, int32_t radius)
{
    if constexpr (kIsFloatSample<Sample>) {
        return TentKernel<float, double>(source, destination, rect, radius);
    } else {
        const uint64_t side = uint64_t(radius) + 1;
        const bool narrow = side * side * side * side * uint64_t(kWhiteSample<Sample>) <= 0xffffffffu;
        return narrow ? TentKernel<Sample, uint32_t>(source, destination, rect, radius)
                      : TentKernel<Sample, uint64_t>(source, destination, rect, radius);
    }
}

} // namespace

int32_t KXEffectsTriangularBlur(KXImage* source, KXImage* destination, const KXRect* rect, int32_t radius)
{
    return EntryPoint(source, destination, rect)
        .Require(radius <= kMaxTentRadius, kKXErrBadParam)
        .Run([&]<class Sample>(SampleTag<Sample>, const CEffectRect& effectRect) {
            if (effectRect.IsEmpty())
                return int32_t(kKXNoErr);
            // A negative radius is taken as 0, which yields the source.
            return TentBySum<Sample>(source, destination, effectRect, std::max(radius, 0));
        });
}
