// Absurd arguments to the entry points without images: sizes that wrap, negative counts, null tables, NaN
// and endless bounds, and margins of every float.
#include "KXEffectsRegistry.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

// The helpers without images: sizes that wrap, negative counts, null tables, NaN and endless bounds.
TEST(HostileInput, HelpersRefuseAbsurdArguments)
{
    EXPECT_EQ(KXEffectsAlignedAlloc(SIZE_MAX), nullptr);
    EXPECT_EQ(KXEffectsAlignedAlloc(size_t(1) << 62), nullptr);
    const float a[4] = {1, 2, 3, 4};
    const float* rows[4] = {a, a, a, a};
    float out[4] = {9, 9, 9, 9};
    KXEffectsDotProduct4(a, rows, out, -5);
    EXPECT_EQ(out[0], 0.0f);
    EXPECT_EQ(KXEffectsTuneColorsGetHueTables(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr), nullptr);

    const float warm[3] = {0.8f, 0.6f, 0.4f};
    float temperature = 0.0f, tint = 0.0f;
    const float nan = std::numeric_limits<float>::quiet_NaN(), inf = std::numeric_limits<float>::infinity();
    EXPECT_EQ(KXEffectsTemperatureAndTintForGrayWithRanges(warm, &temperature, &tint, nan, 1, -1, 1), kKXErrBadParam);
    // Endless bounds search the widest range, 201 x 201, as the default bounds do.
    float expectedTemperature = 0.0f, expectedTint = 0.0f;
    ASSERT_EQ(KXEffectsTemperatureAndTintForGray(warm, &expectedTemperature, &expectedTint), kKXNoErr);
    for (float wide : {inf, 1e30f}) {
        ASSERT_EQ(KXEffectsTemperatureAndTintForGrayWithRanges(warm, &temperature, &tint, -wide, wide, -wide, wide),
                  kKXNoErr);
        EXPECT_EQ(temperature, expectedTemperature);
        EXPECT_EQ(tint, expectedTint);
    }

    // Every margin answers for every float; the sanitized build reports an overflow on the way.
    for (const EffectEntry& entry : kEffectRegistry)
        for (float value : {nan, inf, -inf, 1e30f, -1e30f, 3e9f})
            KXEffectsGetOutset(entry.proc(), value);
}
