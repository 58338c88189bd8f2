// The margin an effect reads around a tile, by the rule its registry entry names.
#include "KXEffectsGaussianBlur.h"
#include "KXEffectsRegistry.h"

namespace {

int32_t OutsetByRule(Margin rule, float value)
{
    switch (rule) {
    case Margin::Whole:
        return -1;
    case Margin::Pointwise:
        return 0;
    case Margin::OnePixel:
        return 1;
    case Margin::Rounded:
        return TruncateToInt32(value + 0.5f);
    case Margin::Gaussian:
        return GaussianBlurOutset(value);
    case Margin::FastGaussian: {
        const FastGaussianRadii radii = FastGaussianRadiiOf(value);
        return SaturateToInt32(int64_t(radii.first) + 2 * int64_t(radii.second));
    }
    case Margin::TrueGaussian:
        return TrueGaussianHalfWidth(value);
    case Margin::ProgressiveGaussian:
        // The coarsest of its four scales.
        return GaussianBlurOutset(4.0f * value);
    case Margin::Emboss:
        return SaturateToInt32(1 - int64_t(TruncateToInt32(-0.5f * value)));
    }
    return -1;
}

} // namespace

int32_t KXEffectsGetOutset(KXEffectProc effect, float value)
{
    const EffectEntry* entry = FindEffectEntry(effect);
    return entry ? OutsetByRule(entry->margin, value) : -1;
}
