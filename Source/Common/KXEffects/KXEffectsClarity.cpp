// Clarity: local contrast on luminance alone. The difference between each pixel's luma and a blur of the
// luma is laid over the luma in overlay fashion, so midtones gain most and chroma stays.
#include "KXEffectsEntry.h"
#include "KXEffectsGaussianBlur.h"
#include "KXEffectsRowLoop.h"

namespace {

constexpr const char* kSourceFile = "Source/Common/KXEffects/KXEffectsClarity";

// d = (Y - l) amount + 0.5 overlaid on Y, with Y = 0.587 G + 0.299 R + 0.114 B, then back from YCbCr with
// the pixel's own chroma; each plane limited to 0..1. d itself is not limited.
inline void ClarityPixel(float* rgb, float blurredLuma, float amount)
{
    const float red = rgb[0], green = rgb[1], blue = rgb[2];
    const float y = 0.587f * green + 0.299f * red + 0.114f * blue;
    const float cb = 0.5f * blue - (0.168736f * red + 0.331264f * green) + 0.5f;
    const float cr = 0.5f * red - 0.418688f * green - 0.081312f * blue + 0.5f;
    const float d = (y - blurredLuma) * amount + 0.5f;
    const float shaped = y < 0.5f ? 2.0f * d * y : 2.0f * (y + d - y * d) - 1.0f;
    const float c = cb - 0.5f, e = cr - 0.5f;
    rgb[0] = shaped + 1.402f * e;
    rgb[1] = shaped - 0.344136f * c - 0.714136f * e;
    rgb[2] = shaped + 1.772f * c;
    for (int32_t plane = 0; plane < 3; ++plane)
        rgb[plane] = rgb[plane] < 0.0f ? 0.0f : (rgb[plane] > 1.0f ? 1.0f : rgb[plane]);
}

// The blurred luma comes in beside each row, a plane of the source's own sample type.
template <class Sample>
void ClarityKernel(KXImage* source, KXImage* luma, KXImage* destination, const CEffectRect& rect, float amount)
{
    ForEachMaskedColour<Sample>(source, destination, luma, rect,
                                [amount](float* rgb, float blurredLuma) { ClarityPixel(rgb, blurredLuma, amount); });
}

} // namespace

int32_t KXEffectsClarity(KXImage* source, KXImage* destination, const KXRect* rect, float amount, float radius)
{
    return EntryPoint(source, destination, rect)
        .NeutralWhen(!(amount > 0.0f) || !(radius > 0.0f))
        .Require(GaussianBlurOutset(radius) <= kMaxReach, kKXErrBadParam)
        .Catching(kSourceFile, __LINE__)
        .Run([&]<class Sample>(SampleTag<Sample>, const CEffectRect& effectRect) {
            // Checked once the neutral copy is ruled out, and logged.
            if (!IsRGB(source))
                KX_RAISE(kKXErrUnsupported);
            // Only the part of rect in the destination is worked on: the rest would be dropped.
            const CEffectRect inside = InDestination(effectRect, destination);
            if (inside.IsEmpty())
                return;
            const KXRect insideRect = inside.ToKXRect();
            const KXRect grown = KXRectOutset(&insideRect, GaussianBlurOutset(radius));
            CImageRef luma;
            BlurredLuminosity(source, grown, insideRect, radius, luma, kSourceFile);
            ClarityKernel<Sample>(source, luma, destination, inside, amount);
        });
}
