// Small convolution filters: the fixed 3 x 3 kernels, find edges and emboss.
#include "KXEffectsEntry.h"
#include "KXEffectsRowLoop.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace {
constexpr const char* kSourceFile = "Source/Common/KXEffects/KXEffectsFilters";

// The 3 x 3 neighbourhood of one sample as floats: rows above, at and below, columns left, centre, right.
// Integer samples are exact in float, so sums formed here equal the integer sums converted.
struct Window3 {
    float up[3];
    float at[3];
    float down[3];
};

// e: up + down + left + right.
inline float EdgeSum(const Window3& w)
{
    return w.up[1] + w.down[1] + w.at[0] + w.at[2];
}

// k: the four corners.
inline float CornerSum(const Window3& w)
{
    return w.up[0] + w.up[2] + w.down[0] + w.down[2];
}

// (8 c - e) x 0.25
inline float SharpenValue(const Window3& w, float)
{
    return (8.0f * w.at[1] - EdgeSum(w)) * 0.25f;
}

// (12 c - e - k) x 0.25
inline float SharpenMoreValue(const Window3& w, float)
{
    return (12.0f * w.at[1] - EdgeSum(w) - CornerSum(w)) * 0.25f;
}

// (4 c + e) x 0.125
inline float BlurValue(const Window3& w, float)
{
    return (4.0f * w.at[1] + EdgeSum(w)) * 0.125f;
}

// (2 c + 2 e + k) x 0.071428575 (1 / 14)
inline float BlurMoreValue(const Window3& w, float)
{
    return (2.0f * w.at[1] + 2.0f * EdgeSum(w) + CornerSum(w)) * 0.071428575f;
}

// white - sqrtf(gx^2 + gy^2), gx and gy the Sobel sums (weights 1 2 1): edges come out dark on white.
inline float FindEdgesValue(const Window3& w, float white)
{
    const float gx = (w.up[2] + 2.0f * w.at[2] + w.down[2]) - (w.up[0] + 2.0f * w.at[0] + w.down[0]);
    const float gy = (w.down[0] + 2.0f * w.down[1] + w.down[2]) - (w.up[0] + 2.0f * w.up[1] + w.up[2]);
    return white - std::sqrt(gx * gx + gy * gy);
}

// (A - B) x amount + middle, middle being 127.5, 32767.5 or 0.5: a flat area comes out mid-gray.
inline float EmbossValue(float ahead, float behind, float amount, float middle)
{
    return (ahead - behind) * amount + middle;
}

// Integers: + 0.5, truncated as the processor converts (NaN, from an absurd amount, is INT32_MIN), then
// clamped as an integer; floats clamped to 0..1.
template <class Sample> inline Sample StoreEmboss(float value)
{
    if constexpr (kIsFloatSample<Sample>)
        return std::clamp(value, 0.0f, 1.0f);
    else
        return Sample(std::clamp(TruncateToInt32(value + 0.5f), 0, int32_t(kWhiteSample<Sample>)));
}

using WindowFormula = float (*)(const Window3&, float);

template <class Sample>
inline void LoadWindow(const Sample* up, const Sample* at, const Sample* down, int32_t step, Window3& w)
{
    for (int32_t k = 0; k < 3; ++k) {
        w.up[k] = float(up[(k - 1) * step]);
        w.at[k] = float(at[(k - 1) * step]);
        w.down[k] = float(down[(k - 1) * step]);
    }
}

// One output row: rows[0..2] hold the lines above, at and below, one pixel wider on each side.
template <class Sample, WindowFormula Formula>
void FixedFilterRow(const Sample* const* rows, Sample* out, int32_t width, const PixelLayout& layout)
{
    WithPlaneCounts(layout, [&](auto planes, auto colourPlanes) {
        for (int32_t x = 0; x < width; ++x) {
            const int32_t centre = (x + 1) * planes;
            for (int32_t c = 0; c < colourPlanes; ++c) {
                Window3 w;
                LoadWindow(rows[0] + centre + c, rows[1] + centre + c, rows[2] + centre + c, planes, w);
                out[x * planes + c] = FromRaw<Sample>(ClampToWhite<Sample>(Formula(w, kWhite<Sample>)));
            }
        }
    });
}

// Three views on the source in rotation, by line index mod 3, hold the lines y - 1, y and y + 1.
template <class Sample, WindowFormula Formula>
int32_t FixedFilterKernel(KXImage* source, KXImage* destination, const CEffectRect& rect)
{
    const PixelLayout layout = LayoutOf(destination);
    const int32_t width = rect.Width();
    CImageView lines[3];
    const Sample* held[3] = {};
    for (CImageView& view : lines)
        view.Attach(source);
    CImageView destinationView(destination);
    auto readLine = [&](int32_t index) {
        held[index % 3] =
            static_cast<const Sample*>(lines[index % 3].ReadRow(rect.top + index - 1, rect.left - 1, width + 2));
    };
    readLine(0);
    readLine(1);
    for (int32_t y = 0; y < rect.Height(); ++y) {
        readLine(y + 2);
        const Sample* rows[3] = {held[y % 3], held[(y + 1) % 3], held[(y + 2) % 3]};
        auto* out = static_cast<Sample*>(destinationView.WriteRow(rect.top + y, rect.left, width));
        if (layout.transparency != 0)
            std::memmove(out, rows[1] + layout.planes, size_t(width) * size_t(layout.planes) * sizeof(Sample));
        FixedFilterRow<Sample, Formula>(rows, out, width, layout);
    }
    destinationView.Detach();
    return kKXNoErr;
}

// The offsets and bilinear weights of the emboss taps, from angle and height.
struct EmbossTaps {
    int32_t ix, jx, iy, jy;
    float w00, w01, w10, w11;
};

// i = truncate(d), j one further from zero, f = |d - i|.
inline void SplitOffset(float d, int32_t& i, int32_t& j, float& f)
{
    i = int32_t(d);
    j = i >= 0 ? i + 1 : i - 1;
    f = std::fabs(d - float(i));
}

EmbossTaps MakeEmbossTaps(float angle, int32_t height)
{
    const float t = float(double(angle) * 3.141592653589793 / 180.0);
    const float dx = std::cos(t) * float(height) * 0.5f;
    const float dy = std::sin(t) * float(height) * -0.5f;
    EmbossTaps taps;
    float fx, fy;
    SplitOffset(dx, taps.ix, taps.jx, fx);
    SplitOffset(dy, taps.iy, taps.jy, fy);
    taps.w00 = (1.0f - fx) * (1.0f - fy);
    taps.w01 = (1.0f - fx) * fy;
    taps.w10 = (1.0f - fy) * fx;
    taps.w11 = fy * fx;
    return taps;
}

// The bilinear sample from the pixels at (i, iRow), (j, iRow), (i, jRow), (j, jRow); columns relative to
// the centre, at the pixel step.
template <class Sample>
inline float BilinearTap(const Sample* iRow, const Sample* jRow, int32_t i, int32_t j, const EmbossTaps& taps)
{
    return taps.w00 * float(iRow[i]) + taps.w10 * float(iRow[j]) + taps.w01 * float(jRow[i]) +
           taps.w11 * float(jRow[j]);
}

// rows: lines y + iy, y + jy, y - iy, y - jy, each reaching reach pixels beyond the rectangle on both sides.
template <class Sample>
void EmbossRow(const Sample* const* rows, Sample* out, int32_t width, int32_t reach, const PixelLayout& layout,
               const EmbossTaps& taps, float amount)
{
    constexpr float kMiddle = kWhite<Sample> * 0.5f;
    WithPlaneCounts(layout, [&](auto planes, auto colourPlanes) {
        const int32_t ix = taps.ix * planes, jx = taps.jx * planes;
        for (int32_t x = 0; x < width; ++x) {
            const int32_t centre = (x + reach) * planes;
            for (int32_t c = 0; c < colourPlanes; ++c) {
                const int32_t at = centre + c;
                const float ahead = BilinearTap(rows[0] + at, rows[1] + at, ix, jx, taps);
                const float behind = BilinearTap(rows[2] + at, rows[3] + at, -ix, -jx, taps);
                out[x * planes + c] = StoreEmboss<Sample>(EmbossValue(ahead, behind, amount, kMiddle));
            }
        }
    });
}

// Four views read the tap lines, a fifth the line itself for alpha.
template <class Sample>
int32_t EmbossKernel(KXImage* source, KXImage* destination, const CEffectRect& rect, const EmbossTaps& taps,
                     float amount)
{
    const PixelLayout layout = LayoutOf(destination);
    const int32_t width = rect.Width();
    const int32_t reach = std::abs(taps.jx);
    const int32_t lineOffsets[4] = {taps.iy, taps.jy, -taps.iy, -taps.jy};
    CImageView tapViews[4];
    for (CImageView& view : tapViews)
        view.Attach(source);
    CImageView reference(source);
    CImageView destinationView(destination);
    for (int32_t y = rect.top; y < rect.bottom; ++y) {
        const Sample* rows[4];
        for (int32_t k = 0; k < 4; ++k)
            rows[k] = static_cast<const Sample*>(
                tapViews[k].ReadRow(y + lineOffsets[k], rect.left - reach, width + 2 * reach));
        auto* out = static_cast<Sample*>(destinationView.WriteRow(y, rect.left, width));
        if (layout.transparency != 0)
            std::memmove(out, reference.ReadRow(y, rect.left, width),
                         size_t(width) * size_t(layout.planes) * sizeof(Sample));
        EmbossRow<Sample>(rows, out, width, reach, layout, taps, amount);
    }
    destinationView.Detach();
    return kKXNoErr;
}

// In place, a filter would read lines it has already written; it reads a copy of the rectangle grown by
// its reach instead, made with the edge replication of the views.
KXImage* ReadableSource(KXImage* source, KXImage* destination, const CEffectRect& rect, int32_t reachX, int32_t reachY,
                        CImageRef& copy)
{
    if (source != destination)
        return source;
    const CEffectRect grown = GrownRect(rect, -reachY, -reachX, reachY, reachX);
    const KXRect bounds = grown.ToKXRect();
    copy.Reset(KXEffectsCreateWorkImageLike(source, &bounds, kSourceFile, __LINE__));
    KXEffectsCopyRect(source, copy, grown, KXPointMake(0, 0));
    return copy;
}

template <WindowFormula Formula> int32_t FixedFilter(KXImage* source, KXImage* destination, const KXRect* rect)
{
    return EntryPoint(source, destination, rect)
        .Run([&]<class Sample>(SampleTag<Sample>, const CEffectRect& effectRect) {
            // Only the part of rect in the destination is filtered: the rest would be dropped.
            const CEffectRect inside = InDestination(effectRect, destination);
            if (inside.IsEmpty())
                return int32_t(kKXNoErr);
            CImageRef copy;
            KXImage* readable = ReadableSource(source, destination, inside, 1, 1, copy);
            return FixedFilterKernel<Sample, Formula>(readable, destination, inside);
        });
}

} // namespace

int32_t KXEffectsSharpen(KXImage* source, KXImage* destination, const KXRect* rect)
{
    return FixedFilter<SharpenValue>(source, destination, rect);
}

int32_t KXEffectsSharpenMore(KXImage* source, KXImage* destination, const KXRect* rect)
{
    return FixedFilter<SharpenMoreValue>(source, destination, rect);
}

int32_t KXEffectsBlur(KXImage* source, KXImage* destination, const KXRect* rect)
{
    return FixedFilter<BlurValue>(source, destination, rect);
}

int32_t KXEffectsBlurMore(KXImage* source, KXImage* destination, const KXRect* rect)
{
    return FixedFilter<BlurMoreValue>(source, destination, rect);
}

int32_t KXEffectsFindEdges(KXImage* source, KXImage* destination, const KXRect* rect)
{
    return FixedFilter<FindEdgesValue>(source, destination, rect);
}

int32_t KXEffectsEmboss(KXImage* source, KXImage* destination, const KXRect* rect, float angle, int32_t height,
                        float amount)
{
    // An angle or amount that is not finite has no taps or no result; a height beyond twice the farthest
    // reach has taps too far away.
    const bool tapsReachable = std::isfinite(angle) && std::abs(int64_t(height)) <= 2 * int64_t(kMaxReach - 1);
    const EmbossTaps taps = tapsReachable ? MakeEmbossTaps(angle, height) : EmbossTaps{};
    return EntryPoint(source, destination, rect)
        .Require(tapsReachable && std::isfinite(amount), kKXErrBadParam)
        .Run([&]<class Sample>(SampleTag<Sample>, const CEffectRect& effectRect) {
            // Only the part of rect in the destination is filtered: the rest would be dropped.
            const CEffectRect inside = InDestination(effectRect, destination);
            if (inside.IsEmpty())
                return int32_t(kKXNoErr);
            CImageRef copy;
            KXImage* readable = ReadableSource(source, destination, inside, std::abs(taps.jx), std::abs(taps.jy), copy);
            return EmbossKernel<Sample>(readable, destination, inside, taps, amount);
        });
}
