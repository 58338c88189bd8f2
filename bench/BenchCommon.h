// Shared pieces of the benchmarks: the 24-megapixel test size, random images whose locked buffers OpenCV
// sees as matrices, and the megapixel rate counter.
#pragma once

#include "KXEffects.h"

#include <benchmark/benchmark.h>
#include <opencv2/core.hpp>

inline constexpr int32_t kBenchWidth = 6000;
inline constexpr int32_t kBenchHeight = 4000;

// An image of the benchmark size filled with random samples (alpha opaque where there is one), and a
// matrix header over its locked buffer. Made outside the timed loops.
struct BenchImage {
    KXImage* image = nullptr;
    cv::Mat pixels;

    BenchImage(int32_t depth, int32_t planes, int32_t transparency, uint64_t seed, int32_t width = kBenchWidth,
               int32_t height = kBenchHeight)
    {
        const KXRect bounds = KXRectMake(0, 0, width, height);
        KXImageCreateWithParams2(&bounds, depth, planes,
                                 planes - transparency == 1 ? KXColorSpaceGray : KXColorSpaceRGB, transparency,
                                 KXDataSourceMemory, &image);
        const int32_t type = CV_MAKETYPE(depth == 8 ? CV_8U : depth == 16 ? CV_16U : CV_32F, planes);
        pixels = cv::Mat(height, width, type, KXImageLockBuffer(image), size_t(KXImageGetRowBytes(image)));
        const double white = depth == 8 ? 255.0 : depth == 16 ? 65535.0 : 1.0;
        cv::RNG generator(seed);
        cv::Scalar low = cv::Scalar::all(0.0);
        if (transparency)
            low[planes - 1] = white;
        generator.fill(pixels, cv::RNG::UNIFORM, low, cv::Scalar::all(depth == 32 ? white : white + 1.0));
    }
    ~BenchImage()
    {
        KXImageUnlockBuffer(image);
        KXImageRelease(image);
    }
    BenchImage(const BenchImage&) = delete;
    BenchImage& operator=(const BenchImage&) = delete;

    KXRect Bounds() const { return KXImageGetBounds(image); }
    double Megapixels() const { return double(pixels.cols) * pixels.rows / 1e6; }
};

// Reports megapixels per second for the iterations run.
inline void CountMegapixels(benchmark::State& state, double megapixels)
{
    state.counters["MP/s"] = benchmark::Counter(megapixels * double(state.iterations()), benchmark::Counter::kIsRate);
}
