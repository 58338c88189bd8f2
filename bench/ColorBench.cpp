// Colour conversion of a 24-megapixel RGBA 8-bit image to a three-plane image, beside single-threaded
// OpenCV and a plain copy of the same bytes.
#include "BenchCommon.h"

#include <opencv2/imgproc.hpp>

#include <cstring>

namespace {

struct ColorImages {
    BenchImage source{8, 4, 1, 11};
    BenchImage destination{8, 3, 0, 12};
    cv::Mat peerOutput{kBenchHeight, kBenchWidth, CV_8UC3};

    static ColorImages& Get()
    {
        static ColorImages images;
        return images;
    }

private:
    ColorImages() { cv::setNumThreads(1); }
};

void ConvertKX(benchmark::State& state, int32_t conversion)
{
    ColorImages& images = ColorImages::Get();
    const KXRect rect = images.source.Bounds();
    for (auto _ : state)
        benchmark::DoNotOptimize(
            KXEffectsConvertImageMode(images.source.image, images.destination.image, &rect, conversion));
    CountMegapixels(state, images.source.Megapixels());
}

void ConvertOpenCV(benchmark::State& state, int code)
{
    ColorImages& images = ColorImages::Get();
    for (auto _ : state)
        cv::cvtColor(images.source.pixels, images.peerOutput, code);
    CountMegapixels(state, images.source.Megapixels());
}

void CopyBytes(benchmark::State& state)
{
    ColorImages& images = ColorImages::Get();
    const size_t bytes = images.source.pixels.total() * images.source.pixels.elemSize();
    cv::Mat target(images.source.pixels.size(), images.source.pixels.type());
    for (auto _ : state) {
        std::memcpy(target.data, images.source.pixels.data, bytes);
        benchmark::ClobberMemory();
    }
    CountMegapixels(state, images.source.Megapixels());
}

BENCHMARK_CAPTURE(ConvertKX, hsv, 0)->Name("Color/rgb-to-hsv/kx")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(ConvertOpenCV, hsv, cv::COLOR_RGB2HSV_FULL)
    ->Name("Color/rgb-to-hsv/opencv")
    ->Unit(benchmark::kMillisecond);
BENCHMARK(CopyBytes)->Name("Color/rgb-to-hsv/memcpy")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(ConvertKX, ycc, 4)->Name("Color/rgb-to-ycbcr/kx")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(ConvertOpenCV, ycc, cv::COLOR_RGB2YCrCb)
    ->Name("Color/rgb-to-ycbcr/opencv")
    ->Unit(benchmark::kMillisecond);
BENCHMARK(CopyBytes)->Name("Color/rgb-to-ycbcr/memcpy")->Unit(benchmark::kMillisecond);

} // namespace
