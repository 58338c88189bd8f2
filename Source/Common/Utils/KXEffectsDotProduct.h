// The dot products' summation orders, inline so that the blurs' inner loops keep their accumulators in
// registers; the exported functions are these same bodies.
#pragma once

#include <cstdint>
#include <cstring>

// Four float lanes; element-wise arithmetic, so each lane sums exactly as a scalar would.
typedef float Float4 __attribute__((vector_size(16)));

inline Float4 LoadFloat4(const float* p)
{
    Float4 v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

// Four accumulators of four lanes over blocks of 16, then groups of 4 into the first, reading up to
// three floats past n (the arrays are zero-padded).
inline float InlineDotProduct(const float* a, const float* b, int32_t n)
{
    Float4 lanes0 = {}, lanes1 = {}, lanes2 = {}, lanes3 = {};
    int32_t i = 0;
    for (; i + 16 <= n; i += 16) {
        lanes0 += LoadFloat4(a + i) * LoadFloat4(b + i);
        lanes1 += LoadFloat4(a + i + 4) * LoadFloat4(b + i + 4);
        lanes2 += LoadFloat4(a + i + 8) * LoadFloat4(b + i + 8);
        lanes3 += LoadFloat4(a + i + 12) * LoadFloat4(b + i + 12);
    }
    for (; i < n; i += 4)
        lanes0 += LoadFloat4(a + i) * LoadFloat4(b + i);
    const Float4 sum = (lanes0 + lanes1) + (lanes2 + lanes3);
    return (sum[0] + sum[1]) + (sum[2] + sum[3]);
}

// One scalar accumulator in steps of 4, then the tail; reads no further than n.
inline float InlineDotProductScalar(const float* a, const float* b, int32_t n)
{
    float sum = 0.0f;
    int32_t i = 0;
    for (; i + 4 <= n; i += 4)
        sum += a[i] * b[i] + a[i + 1] * b[i + 1] + a[i + 2] * b[i + 2] + a[i + 3] * b[i + 3];
    for (; i < n; ++i)
        sum += a[i] * b[i];
    return sum;
}
