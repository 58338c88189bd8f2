// Compositing of a 24-megapixel RGBA 8-bit image, beside single-threaded OpenCV and a plain copy of the
// same bytes.
#include "BenchCommon.h"

#include <opencv2/imgproc.hpp>

#include <cstring>

namespace {

// Made once, outside every timed loop; OpenCV runs on one thread like the library.
struct CompositeImages {
    BenchImage upper{8, 4, 1, 1};
    BenchImage lower{8, 4, 1, 2};
    BenchImage output{8, 4, 1, 3};
    cv::Mat upperLuma;
    cv::Mat lowerLuma;

    static CompositeImages& Get()
    {
        static CompositeImages images;
        return images;
    }

private:
    CompositeImages()
    {
        cv::setNumThreads(1);
        upperLuma.create(kBenchHeight, kBenchWidth, CV_8UC3);
        lowerLuma.create(kBenchHeight, kBenchWidth, CV_8UC3);
    }
};

void CompositeKx(benchmark::State& state, uint32_t mode, float opacity)
{
    CompositeImages& images = CompositeImages::Get();
    const KXRect rect = images.output.Bounds();
    for (auto _ : state)
        benchmark::DoNotOptimize(KXEffectsBlendImagesWithOpacitiesAndMasks(
            images.upper.image, opacity, nullptr, images.lower.image, 1.0f, nullptr, images.output.image, &rect, mode));
    CountMegapixels(state, images.output.Megapixels());
}

// Normal at half opacity over an opaque layer is the weighted sum of the two.
void NormalOpenCV(benchmark::State& state)
{
    CompositeImages& images = CompositeImages::Get();
    for (auto _ : state)
        cv::addWeighted(images.upper.pixels, 0.5, images.lower.pixels, 0.5, 0.0, images.output.pixels);
    CountMegapixels(state, images.output.Megapixels());
}

// Luminosity in OpenCV's terms: the luma of the upper layer with the chroma of the lower one, in YCrCb.
void LuminosityOpenCV(benchmark::State& state)
{
    CompositeImages& images = CompositeImages::Get();
    const int lumaPlane[] = {0, 0};
    for (auto _ : state) {
        cv::cvtColor(images.upper.pixels, images.upperLuma, cv::COLOR_RGB2YCrCb);
        cv::cvtColor(images.lower.pixels, images.lowerLuma, cv::COLOR_RGB2YCrCb);
        cv::mixChannels(&images.upperLuma, 1, &images.lowerLuma, 1, lumaPlane, 1);
        cv::cvtColor(images.lowerLuma, images.output.pixels, cv::COLOR_YCrCb2RGB, 4);
    }
    CountMegapixels(state, images.output.Megapixels());
}

// The floor: the output's bytes copied once.
void CopyFloor(benchmark::State& state)
{
    CompositeImages& images = CompositeImages::Get();
    const size_t bytes = images.output.pixels.total() * images.output.pixels.elemSize();
    for (auto _ : state) {
        std::memcpy(images.output.pixels.data, images.upper.pixels.data, bytes);
        benchmark::ClobberMemory();
    }
    CountMegapixels(state, images.output.Megapixels());
}

// Timed in processor time: the build machines are shared, and every case runs on one thread.
void Register(const char* name, void (*function)(benchmark::State&))
{
    benchmark::RegisterBenchmark(name, function)->Unit(benchmark::kMillisecond);
}

const bool kRegistered = [] {
    Register("Composite/norm/kx", [](benchmark::State& state) { CompositeKx(state, 0x6e6f726d, 0.5f); });
    Register("Composite/norm/opencv", NormalOpenCV);
    Register("Composite/norm/memcpy", CopyFloor);
    Register("Composite/lum/kx", [](benchmark::State& state) { CompositeKx(state, 0x6c756d20, 1.0f); });
    Register("Composite/lum/opencv", LuminosityOpenCV);
    Register("Composite/lum/memcpy", CopyFloor);
    return true;
}();

} // namespace
