// Box blurs by running sums, a few additions per sample whatever the window.
#include "KXEffectsBoxBlur.h"
#include "KXEffectsBlurModes.h"
#include "KXEffectsDispatch.h"
#include "KXEffectsEntry.h"
#include "KXEffectsRowLoop.h"

#include <cmath>
#include <memory>
#include <type_traits>
#include <vector>

namespace {

constexpr const char* kSourceFile = "Source/Common/KXEffects/KXEffectsBoxBlur";

// Offsets of the window from the output pixel, both ends included; it need not be centred.
struct BoxWindow {
    int32_t top;
    int32_t left;
    int32_t bottom;
    int32_t right;

    int32_t Width() const { return right - left + 1; }
    int32_t Height() const { return bottom - top + 1; }
    // Formed in 32 bits, wrapping as a product of two ints does.
    int32_t Area() const { return int32_t(uint32_t(Width()) * uint32_t(Height())); }
    // Offsets beyond the farthest reach are refused.
    bool WithinReach() const
    {
        const auto near = [](int32_t end) { return end >= -kMaxReach && end <= kMaxReach; };
        return near(top) && near(left) && near(bottom) && near(right);
    }
};

struct BoxSettings {
    float amount;
    float threshold;
};

// ---- Formulas ----

// v + 0.5 truncated, stored without a clamp; 32-bit integer samples truncate in 64 bits.
template <class Sample> inline Sample RoundToSample(float value)
{
    if constexpr (std::is_same_v<Sample, uint32_t>)
        return uint32_t(int64_t(value + 0.5f));
    else
        return FromRaw<Sample>(value);
}

// A sum to float, rounded once as a direct conversion rounds, from two parts that are exact as floats: a form
// that vectorises where unsigned conversions do not. Wide sums of 8 and 16-bit samples stay below 2^48 for
// any radius under 32768; those of 32-bit integer samples need not, and convert directly.
template <class Sample, class Sum> inline float SumToFloat(Sum sum)
{
    if constexpr (std::is_same_v<Sum, uint32_t>)
        return float(int32_t(sum >> 16)) * 65536.0f + float(int32_t(sum & 0xffffu));
    else if constexpr (std::is_same_v<Sum, uint64_t> && !std::is_same_v<Sample, uint32_t>)
        return float(int32_t(sum >> 24)) * 16777216.0f + float(int32_t(sum & 0xffffffu));
    else
        return float(sum);
}

// s (1 - amount) + S / area x amount; integers round, floats add in double with S kept 64-bit.
template <class Sample, class Sum> struct AmountFinish {
    static constexpr bool kUsesReference = true;
    float keep;
    float scale;

    AmountFinish(const BoxSettings& settings, int32_t area)
        : keep(1.0f - settings.amount), scale(1.0f / float(area) * settings.amount)
    {
    }
    Sample operator()(Sample s, Sum sum) const
    {
        if constexpr (std::is_floating_point_v<Sample>)
            return float(double(s * keep) + double(scale) * sum);
        else
            return RoundToSample<Sample>(float(s) * keep + SumToFloat<Sample>(sum) * scale);
    }
};

// avg = S / area x amount where |avg - s| >= threshold x white, else s untouched.
template <class Sample, class Sum> struct ThresholdFinish {
    static constexpr bool kUsesReference = true;
    float scale;
    float threshold;

    ThresholdFinish(const BoxSettings& settings, int32_t area)
        : scale(1.0f / float(area) * settings.amount), threshold(settings.threshold * kWhite<Sample>)
    {
    }
    Sample operator()(Sample s, Sum sum) const
    {
        const float average = SumToFloat<Sample>(sum) * scale;
        return std::fabs(average - float(s)) >= threshold ? RoundToSample<Sample>(average) : s;
    }
};

// S / area x amount alone; float samples multiply the 64-bit sum.
template <class Sample, class Sum> struct PlainFinish {
    static constexpr bool kUsesReference = false;
    float scale;

    PlainFinish(const BoxSettings& settings, int32_t area) : scale(1.0f / float(area) * settings.amount) {}
    Sample operator()(Sample, Sum sum) const
    {
        if constexpr (std::is_floating_point_v<Sample>)
            return float(sum * scale);
        else
            return RoundToSample<Sample>(SumToFloat<Sample>(sum) * scale);
    }
};

// base (1 - amount) + blend(base, top) amount, with top = S / area / white and base = s / white.
template <class Mode> struct BlendFinishOf {
    template <class Sample, class Sum> struct Finish {
        static constexpr bool kUsesReference = true;
        float factor;
        float keep;
        float amount;

        Finish(const BoxSettings& settings, int32_t area)
            : factor(1.0f / float(area) / kWhite<Sample>), keep(1.0f - settings.amount), amount(settings.amount)
        {
        }
        Sample operator()(Sample s, Sum sum) const
        {
            return MixBlurBlend<Mode, Sample>(ToUnit(s), SumToFloat<Sample>(sum) * factor, keep, amount);
        }
    };
};

// ---- Kernel ----

// The two loops that carry the cost, SumLine and FinishLine, are built twice on x86-64, the second for
// processors with AVX2 and taken on those at load; both do the same arithmetic in the same order. Clang
// clones no templates, so its build has the one loop.
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
#define KX_AVX2_CLONES __attribute__((target_clones("avx2", "default")))
#else
#define KX_AVX2_CLONES
#endif

// The ring of row sums, one slot of width x planes per window line, and the column sums of the slots inside
// the window, laid out like the pixels so that a line finishes in one pass.
template <class Sum> class BoxSums {
public:
    BoxSums(const BoxWindow& window, int32_t width, int32_t planes)
        : m_slots(window.Height()), m_slotLength(size_t(width) * size_t(planes))
    {
        // An empty window has no ring; it fails as the allocation of one would.
        if (window.Width() < 1 || m_slots < 1)
            throw std::bad_alloc();
        m_columns = std::make_unique<Sum[]>(m_slotLength);
        m_ring = std::make_unique_for_overwrite<Sum[]>(size_t(m_slots) * m_slotLength);
    }
    int32_t Slots() const { return m_slots; }
    Sum* Slot(int64_t index) const { return m_ring.get() + size_t(index % m_slots) * m_slotLength; }
    Sum* Columns() const { return m_columns.get(); }
    // The column sums of the first count slots, added in slot order.
    void Prime(int32_t count)
    {
        for (int32_t slot = 0; slot < count; ++slot)
            for (size_t i = 0; i < m_slotLength; ++i)
                m_columns[i] += Slot(slot)[i];
    }

private:
    int32_t m_slots;
    size_t m_slotLength;
    std::unique_ptr<Sum[]> m_columns;
    std::unique_ptr<Sum[]> m_ring;
};

// Window sums along a line of width + windowWidth - 1 pixels, every plane at once: the first pixel sums its
// window, each further one takes the previous sum less the sample that left, plus the one that came in, in
// that order. Alpha is summed with the rest, as the cost is the same, and ignored.
template <class Sum, class Sample, class Planes>
KX_AVX2_CLONES void SumLine(const Sample* line, int32_t windowWidth, int32_t width, Planes planes, Sum* slot)
{
    for (int32_t c = 0; c < planes; ++c) {
        Sum run = 0;
        for (int32_t i = 0; i < windowWidth - 1; ++i)
            run += Sum(line[ptrdiff_t(i) * planes + c]);
        slot[c] = run + Sum(line[ptrdiff_t(windowWidth - 1) * planes + c]);
    }
    // For the pixel of index i + planes, line[i] leaves the window and coming[i] enters it.
    const Sample* coming = line + ptrdiff_t(windowWidth) * planes;
    const ptrdiff_t count = ptrdiff_t(width - 1) * planes;
    Sum* next = slot + planes;
    if constexpr (std::is_integral_v<Sum>) {
        // Exact in integers: the differences first, in a loop that vectorises, then their running sum.
        for (ptrdiff_t i = 0; i < count; ++i)
            next[i] = Sum(coming[i]) - Sum(line[i]);
        for (ptrdiff_t i = 0; i < count; ++i)
            next[i] += slot[i];
    } else {
        for (ptrdiff_t i = 0; i < count; ++i)
            next[i] = (slot[i] - Sum(line[i])) + Sum(coming[i]);
    }
}

// One output line over all its samples: each column sum takes in the newest slot, gives the finished
// sample, then lets the oldest slot go. Each index is read before it is written, so kept may be out.
template <class Sample, class Sum, class Finish>
KX_AVX2_CLONES void FinishLine(Sum* columns, const Sum* added, const Sum* dropped, const Sample* kept, Sample* out,
                               ptrdiff_t count, Finish finish)
{
#pragma GCC ivdep
    for (ptrdiff_t i = 0; i < count; ++i) {
        columns[i] += added[i];
        out[i] = finish(kept[i], columns[i]);
        columns[i] -= dropped[i];
    }
}

// The planes beyond the colour planes of a line, set aside while the line is finished over all planes and
// put back after: alpha leaves the filter as it came.
template <class Sample> class AlphaLine {
public:
    AlphaLine(int32_t width, const PixelLayout& layout) : m_samples(size_t(width) * size_t(layout.transparency)) {}
    template <class Planes, class ColourPlanes>
    void Save(const Sample* line, int32_t width, Planes planes, ColourPlanes colourPlanes)
    {
        Sample* to = m_samples.data();
        for (ptrdiff_t x = 0; x < width; ++x)
            for (int32_t c = colourPlanes; c < planes; ++c)
                *to++ = line[x * planes + c];
    }
    template <class Planes, class ColourPlanes>
    void Restore(Sample* line, int32_t width, Planes planes, ColourPlanes colourPlanes) const
    {
        const Sample* from = m_samples.data();
        for (ptrdiff_t x = 0; x < width; ++x)
            for (int32_t c = colourPlanes; c < planes; ++c)
                line[x * planes + c] = *from++;
    }

private:
    std::vector<Sample> m_samples;
};

struct BoxImages {
    KXImage* reference;
    KXImage* source;
    KXImage* destination;
};

// The reference line of an output line, or null for a finish without one.
template <class Sample, class Finish>
const Sample* ReadReferenceLine(CImageView& view, int32_t row, int32_t left, int32_t width)
{
    if constexpr (!Finish::kUsesReference)
        return nullptr;
    const void* line = view.ReadRow(row, left, width);
    if (!line)
        KX_RAISE(kKXErrBadParam);
    return static_cast<const Sample*>(line);
}

// Source lines go into the ring before the destination line of the same index is written, so source may be
// destination when the window's bottom is not above the pixel and the offset is (0, 0).
template <class Sample, class Sum, class Finish>
void BoxBlurKernel(const BoxImages& images, const CEffectRect& whole, const BoxWindow& window, KXPoint offset,
                   const Finish& finish)
{
    // Only the lines and columns whose results land in the destination are computed.
    const CEffectRect rect = whole.Intersection(ShiftedBounds(images.destination, offset.x, offset.y));
    if (rect.IsEmpty())
        return;
    GrownRect(rect, window.top, window.left, window.bottom, window.right);
    const PixelLayout layout = LayoutOf(images.destination);
    const int32_t width = rect.Width();
    CImageView referenceView(Finish::kUsesReference ? images.reference : nullptr);
    CImageView sourceView(images.source);
    CImageView destinationView(images.destination);
    BoxSums<Sum> sums(window, width, layout.planes);
    AlphaLine<Sample> alpha(width, layout);
    WithPlaneCounts(layout, [&](auto planes, auto colourPlanes) {
        auto sumLine = [&](int32_t row, Sum* slot) {
            const void* line = sourceView.ReadRow(row, rect.left + window.left, width + window.Width() - 1);
            SumLine(static_cast<const Sample*>(line), window.Width(), width, planes, slot);
        };
        for (int32_t i = 0; i + 1 < sums.Slots(); ++i)
            sumLine(rect.top + window.top + i, sums.Slot(i));
        sums.Prime(sums.Slots() - 1);
        for (int32_t y = 0; y < rect.Height(); ++y) {
            Sum* added = sums.Slot(int64_t(y) + sums.Slots() - 1);
            sumLine(rect.top + window.bottom + y, added);
            const Sample* reference = ReadReferenceLine<Sample, Finish>(referenceView, rect.top + y, rect.left, width);
            const int32_t outRow = int32_t(int64_t(rect.top) - offset.y + y);
            const int32_t outLeft = int32_t(int64_t(rect.left) - offset.x);
            auto* out = static_cast<Sample*>(destinationView.WriteRow(outRow, outLeft, width));
            const Sample* kept = Finish::kUsesReference ? reference : out;
            alpha.Save(kept, width, planes, colourPlanes);
            FinishLine(sums.Columns(), added, sums.Slot(y), kept, out, ptrdiff_t(width) * planes, finish);
            alpha.Restore(out, width, planes, colourPlanes);
        }
    });
    destinationView.Detach();
    sourceView.Detach();
    referenceView.Detach();
}

// ---- Dispatch ----

// The most samples of the depth whose sum fits in 32 bits: 16843009 for 8-bit, 65537 for 16-bit.
template <class Sample> constexpr int32_t kNarrowAreaLimit = int32_t(0xffffffffu / uint32_t(kWhiteSample<Sample>));

template <template <class, class> class Finish, class Sample, class Sum>
int32_t RunBoxCore(const BoxImages& images, const CEffectRect& rect, const BoxWindow& window, KXPoint offset,
                   const BoxSettings& settings)
{
    BoxBlurKernel<Sample, Sum>(images, rect, window, offset, Finish<Sample, Sum>(settings, window.Area()));
    return kKXNoErr;
}

// Float samples sum in double; 8 and 16 bits in 32-bit sums, or in 64-bit ones when areaPicksSums and the
// area needs them. Other depths are kKXErrUnsupported.
template <template <class, class> class Finish>
int32_t RunBoxCoreForDepth(const BoxImages& images, const CEffectRect& rect, const BoxWindow& window, KXPoint offset,
                           const BoxSettings& settings, bool areaPicksSums)
{
    return DispatchImageDepth(images.source, [&](auto tag) -> int32_t {
        using Sample = typename decltype(tag)::Type;
        if constexpr (kIsFloatSample<Sample>)
            return RunBoxCore<Finish, Sample, double>(images, rect, window, offset, settings);
        else if (areaPicksSums && window.Area() > kNarrowAreaLimit<Sample>)
            return RunBoxCore<Finish, Sample, uint64_t>(images, rect, window, offset, settings);
        else
            return RunBoxCore<Finish, Sample, uint32_t>(images, rect, window, offset, settings);
    });
}

// Every failure below a box blur dispatch, a failed allocation or an unreadable line, is kKXErrNoResource.
template <class Body> int32_t CatchAsNoResource(Body&& body) noexcept
{
    try {
        return body();
    } catch (...) {
        return kKXErrNoResource;
    }
}

// The radius entries. Deliberately, the copy for a radius or amount not above 0 places the source at rect
// + offset, whereas the cores write it at rect - offset.
template <template <class, class> class Finish>
int32_t RadiusDispatch(const BoxImages& images, const KXRect* rect, int32_t radius, KXPoint offset,
                       const BoxSettings& settings)
{
    return CatchAsNoResource([&]() -> int32_t {
        const CEffectRect effectRect = CEffectRect::FromKXRect(*rect);
        if (radius <= 0 || !(settings.amount > 0.0f))
            return KXEffectsCopyRect(images.source, images.destination, effectRect, offset);
        if (radius > kMaxReach)
            return kKXErrBadParam;
        const BoxWindow window{-radius, -radius, radius, radius};
        return RunBoxCoreForDepth<Finish>(images, effectRect, window, offset, settings, true);
    });
}

template <class Mode>
int32_t BoxBlurBlendDispatch(KXImage* reference, KXImage* source, KXImage* destination, const KXRect* rect,
                             int32_t radius, KXPoint offset, float amount)
{
    return RadiusDispatch<BlendFinishOf<Mode>::template Finish>({reference, source, destination}, rect, radius, offset,
                                                                {amount, 0.0f});
}

} // namespace

int32_t BoxBlurDispatch(KXImage* reference, KXImage* source, KXImage* destination, const KXRect* rect, int32_t radius,
                        KXPoint offset, float amount)
{
    return RadiusDispatch<AmountFinish>({reference, source, destination}, rect, radius, offset, {amount, 0.0f});
}

int32_t BoxBlurThresholdDispatch(KXImage* reference, KXImage* source, KXImage* destination, const KXRect* rect,
                                 int32_t radius, KXPoint offset, float amount, float threshold)
{
    return RadiusDispatch<ThresholdFinish>({reference, source, destination}, rect, radius, offset, {amount, threshold});
}

int32_t BoxBlurPlainDispatch(KXImage* source, KXImage* destination, const KXRect* rect, int32_t radius, KXPoint offset,
                             float amount)
{
    return RadiusDispatch<PlainFinish>({nullptr, source, destination}, rect, radius, offset, {amount, 0.0f});
}

int32_t BoxBlurModeDispatch(KXImage* reference, KXImage* source, KXImage* destination, const KXRect* rect,
                            int32_t radius, KXPoint offset, float amount, uint32_t blendMode)
{
    return DispatchBlurMode(blendMode, [&](auto tag) {
        using Mode = typename decltype(tag)::Type;
        if constexpr (std::is_same_v<Mode, BlurNormal>)
            return BoxBlurDispatch(reference, source, destination, rect, radius, offset, amount);
        else
            return BoxBlurBlendDispatch<Mode>(reference, source, destination, rect, radius, offset, amount);
    });
}

// ---- Entry points ----

int32_t KXEffectsBoxBlur(KXImage* source, KXImage* destination, const KXRect* rect, int32_t radius)
{
    return KXEffectsBoxBlurWithOffsetAndAmount(source, destination, rect, radius, kNoOffset, 1.0f);
}

int32_t KXEffectsBoxBlurWithOffset(KXImage* source, KXImage* destination, const KXRect* rect, int32_t radius,
                                   KXPoint offset)
{
    return KXEffectsBoxBlurWithOffsetAndAmount(source, destination, rect, radius, offset, 1.0f);
}

int32_t KXEffectsBoxBlurWithOffsetAndAmount(KXImage* source, KXImage* destination, const KXRect* rect, int32_t radius,
                                            KXPoint offset, float amount)
{
    if (!source || !destination || !rect)
        return kKXErrBadParam;
    if (!HaveSameLayout(source, destination))
        return kKXErrUnsupported;
    return BoxBlurDispatch(source, source, destination, rect, radius, offset, amount);
}

int32_t KXEffectsBoxBlurWithThreshold(KXImage* source, KXImage* destination, const KXRect* rect, int32_t radius,
                                      float threshold)
{
    if (!source || !destination || !rect)
        return kKXErrBadParam;
    if (!HaveSameLayout(source, destination))
        return kKXErrUnsupported;
    return BoxBlurThresholdDispatch(source, source, destination, rect, radius, kNoOffset, 1.0f, threshold);
}

int32_t KXEffectsBoxBlurWithAmount(KXImage* source, KXImage* destination, const KXRect* rect, int32_t left,
                                   int32_t right, int32_t top, int32_t bottom, float amount)
{
    if (!source || !destination || !rect)
        return kKXErrBadParam;
    if (!HaveSameLayout(source, destination))
        return kKXErrUnsupported;
    const BoxImages images{source, source, destination};
    const BoxWindow window{top, left, bottom, right};
    if (!window.WithinReach())
        return kKXErrBadParam;
    return CatchAsNoResource([&] {
        return RunBoxCoreForDepth<AmountFinish>(images, CEffectRect::FromKXRect(*rect), window, kNoOffset,
                                                {amount, 0.0f}, false);
    });
}

int32_t KXEffectsBoxBlurInt(KXImage* source, KXImage* destination, const KXRect* rect, int32_t left, int32_t right,
                            int32_t top, int32_t bottom)
{
    if (!source || !destination || !rect)
        return kKXErrBadParam;
    if (!HaveSameLayout(source, destination))
        return kKXErrUnsupported;
    const BoxImages images{source, source, destination};
    const CEffectRect effectRect = CEffectRect::FromKXRect(*rect);
    const BoxWindow window{top, left, bottom, right};
    if (!window.WithinReach())
        return kKXErrBadParam;
    const BoxSettings settings{1.0f, 0.0f};
    return CatchAsNoResource([&] {
        // Depth 32 holds unsigned integers here, summed in 64 bits.
        if (KXImageGetDepth(source) == 32)
            return RunBoxCore<AmountFinish, uint32_t, uint64_t>(images, effectRect, window, kNoOffset, settings);
        return RunBoxCoreForDepth<AmountFinish>(images, effectRect, window, kNoOffset, settings, false);
    });
}
