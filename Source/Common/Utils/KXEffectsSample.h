// Sample traits: the one place that knows white, its reciprocal and the store rule of each depth, and the
// conversion of a value to a 32-bit integer as the processor makes it.
#pragma once

#include <cstdint>
#include <type_traits>

template <class Sample> struct SampleTraits;

template <> struct SampleTraits<uint8_t> {
    static constexpr bool kIsFloat = false;
    static constexpr int32_t kDepth = 8;
    static constexpr float kWhite = 255.0f;
    static constexpr float kReciprocal = 1.0f / 255.0f;
    static constexpr uint8_t kWhiteSample = 255;
};

template <> struct SampleTraits<uint16_t> {
    static constexpr bool kIsFloat = false;
    static constexpr int32_t kDepth = 16;
    static constexpr float kWhite = 65535.0f;
    static constexpr float kReciprocal = 1.0f / 65535.0f;
    static constexpr uint16_t kWhiteSample = 65535;
};

template <> struct SampleTraits<float> {
    static constexpr bool kIsFloat = true;
    static constexpr int32_t kDepth = 32;
    static constexpr float kWhite = 1.0f;
    static constexpr float kReciprocal = 1.0f;
    static constexpr float kWhiteSample = 1.0f;
};

template <class Sample> inline constexpr bool kIsFloatSample = SampleTraits<Sample>::kIsFloat;
template <class Sample> inline constexpr float kWhite = SampleTraits<Sample>::kWhite;
// White in the sample type itself, for arithmetic that stays in integers.
template <class Sample> inline constexpr Sample kWhiteSample = SampleTraits<Sample>::kWhiteSample;

// Truncation toward zero as the processor converts: NaN and values beyond 32 bits give INT32_MIN, so an
// absurd radius falls to the plain copy like a negative one, and an absurd sample stores as 0.
inline int32_t TruncateToInt32(double value)
{
    return value > -2147483649.0 && value < 2147483648.0 ? int32_t(value) : INT32_MIN;
}
// The same for a float, whose neighbour below -2^31 is -2^31 - 256.
inline int32_t TruncateToInt32(float value)
{
    return value > -2147483904.0f && value < 2147483648.0f ? int32_t(value) : INT32_MIN;
}

// Sample to 0..1: integers by the reciprocal of white; floats as they are.
template <class Sample> inline float ToUnit(Sample sample)
{
    if constexpr (kIsFloatSample<Sample>)
        return sample;
    else
        return float(sample) * SampleTraits<Sample>::kReciprocal;
}

// A value in the sample's own scale back to a sample: integers add 0.5 and truncate toward zero, and the
// narrowing wraps, as the stores of the library do; floats are stored as they are. NaN and values beyond
// 32 bits (an absurd amount) give INT32_MIN, as the processor's conversion does, which wraps to 0.
template <class Sample> inline Sample FromRaw(float value)
{
    if constexpr (kIsFloatSample<Sample>)
        return value;
    else
        return Sample(TruncateToInt32(value + 0.5f));
}

// 0..1 back to a sample: white x value + 0.5, truncated, for integers.
template <class Sample> inline Sample FromUnit(float value)
{
    if constexpr (kIsFloatSample<Sample>)
        return value;
    else
        return FromRaw<Sample>(value * SampleTraits<Sample>::kWhite);
}

// Clamp to 0..white in the sample's own scale.
template <class Sample> inline float ClampToWhite(float value)
{
    return value < 0.0f ? 0.0f : (value > kWhite<Sample> ? kWhite<Sample> : value);
}

// Sums of such integers taken in 64 bits come back within 32: an absurd radius gives an absurd reach, never
// an overflow.
inline int32_t SaturateToInt32(int64_t value)
{
    return value < INT32_MIN ? INT32_MIN : (value > INT32_MAX ? INT32_MAX : int32_t(value));
}
