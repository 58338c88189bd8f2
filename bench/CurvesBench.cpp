// Curves over a 24-megapixel RGBA image on one thread, beside OpenCV's LUT (8-bit) and a plain copy of
// the same bytes.
#include "KXEffects.h"

#include <benchmark/benchmark.h>
#include <opencv2/core.hpp>

#include <cmath>
#include <cstring>
#include <vector>

namespace {

constexpr int32_t kWidth = 6000;
constexpr int32_t kHeight = 4000;
constexpr double kMegapixels = double(kWidth) * kHeight / 1e6;

// A locked RGBA image of the benchmark's size with a varied pattern in every plane.
class BenchImage {
public:
    explicit BenchImage(int32_t depth)
    {
        const KXRect bounds = KXRectMake(0, 0, kWidth, kHeight);
        KXImageCreateWithParams2(&bounds, depth, 4, KXColorSpaceRGB, 1, KXDataSourceMemory, &m_image);
        m_pixels = static_cast<uint8_t*>(KXImageLockBuffer(m_image));
        for (int32_t y = 0; y < kHeight; ++y)
            for (int32_t i = 0; i < RowBytes(); ++i)
                m_pixels[size_t(y) * RowBytes() + i] = uint8_t(i * 7 + y * 13);
    }
    ~BenchImage()
    {
        KXImageUnlockBuffer(m_image);
        KXImageRelease(m_image);
    }
    BenchImage(const BenchImage&) = delete;
    BenchImage& operator=(const BenchImage&) = delete;

    KXImage* Image() const { return m_image; }
    uint8_t* Pixels() const { return m_pixels; }
    int32_t RowBytes() const { return KXImageGetRowBytes(m_image); }
    size_t Bytes() const { return size_t(RowBytes()) * kHeight; }

private:
    KXImage* m_image = nullptr;
    uint8_t* m_pixels = nullptr;
};

// A gamma of 1/2.2 in each of the three colour channels.
std::vector<float> GammaCurves()
{
    std::vector<float> curves(3 * 256);
    for (size_t i = 0; i < curves.size(); ++i)
        curves[i] = std::pow(float(i % 256) / 255.0f, 1.0f / 2.2f);
    return curves;
}

void SetRate(benchmark::State& state)
{
    state.counters["MP/s"] = benchmark::Counter(kMegapixels * double(state.iterations()), benchmark::Counter::kIsRate);
}

void CurvesKX(benchmark::State& state, int32_t depth)
{
    BenchImage source(depth), destination(depth);
    const std::vector<float> curves = GammaCurves();
    const KXRect rect = KXRectMake(0, 0, kWidth, kHeight);
    for (auto _ : state)
        benchmark::DoNotOptimize(KXEffectsApplyCurves(source.Image(), destination.Image(), &rect, curves.data()));
    SetRate(state);
}

void CurvesOpenCV(benchmark::State& state)
{
    cv::setNumThreads(1);
    BenchImage source(8), destination(8);
    const std::vector<float> curves = GammaCurves();
    cv::Mat lut(1, 256, CV_8UC4);
    for (int32_t i = 0; i < 256; ++i)
        lut.at<cv::Vec4b>(0, i) = cv::Vec4b(uint8_t(curves[i] * 255.0f + 0.5f),
                                            uint8_t(curves[256 + i] * 255.0f + 0.5f),
                                            uint8_t(curves[512 + i] * 255.0f + 0.5f), uint8_t(i));
    const cv::Mat in(kHeight, kWidth, CV_8UC4, source.Pixels(), size_t(source.RowBytes()));
    cv::Mat out(kHeight, kWidth, CV_8UC4, destination.Pixels(), size_t(destination.RowBytes()));
    for (auto _ : state) {
        cv::LUT(in, lut, out);
        benchmark::ClobberMemory();
    }
    SetRate(state);
}

void CurvesMemcpy(benchmark::State& state, int32_t depth)
{
    BenchImage source(depth), destination(depth);
    for (auto _ : state) {
        std::memcpy(destination.Pixels(), source.Pixels(), source.Bytes());
        benchmark::ClobberMemory();
    }
    SetRate(state);
}

BENCHMARK_CAPTURE(CurvesKX, 8, 8)->Name("Curves/8bit/kx")->Unit(benchmark::kMillisecond);
BENCHMARK(CurvesOpenCV)->Name("Curves/8bit/opencv")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(CurvesMemcpy, 8, 8)->Name("Curves/8bit/memcpy")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(CurvesKX, 16, 16)->Name("Curves/16bit/kx")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(CurvesMemcpy, 16, 16)->Name("Curves/16bit/memcpy")->Unit(benchmark::kMillisecond);

} // namespace
