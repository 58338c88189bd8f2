// The gaussian unsharp mask of a 24-megapixel RGBA 8-bit image on one thread, beside OpenCV's unsharp mask
// of the same standard deviation: cv::GaussianBlur, then cv::addWeighted of 1 + amount and -amount.
#include "BenchCommon.h"

#include <opencv2/imgproc.hpp>

#include <string>

namespace {

constexpr float kAmount = 1.5f;

// Source, blurred work matrix for OpenCV and destination, made once for every case.
struct SharpenImages {
    BenchImage source{8, 4, 1, 5};
    BenchImage destination{8, 4, 1, 6};
    cv::Mat blurred;

    static SharpenImages& Get()
    {
        static SharpenImages images;
        return images;
    }
};

template <class Sharpen> void Register(const std::string& name, Sharpen sharpen)
{
    benchmark::RegisterBenchmark(name.c_str(), [sharpen](benchmark::State& state) {
        cv::setNumThreads(1);
        SharpenImages& images = SharpenImages::Get();
        for (auto _ : state) {
            sharpen(images);
            benchmark::ClobberMemory();
        }
        CountMegapixels(state, images.source.Megapixels());
    })->Unit(benchmark::kMillisecond);
}

const bool kRegistered = [] {
    for (float radius : {2.0f, 9.0f}) {
        const std::string group = "Sharpen/unsharp-gaussian-r" + std::to_string(int32_t(radius)) + "/";
        Register(group + "kx", [radius](SharpenImages& images) {
            const KXRect bounds = images.source.Bounds();
            KXEffectsUnsharpMask(images.source.image, images.destination.image, &bounds, kAmount, radius, 0.0f);
        });
        Register(group + "opencv", [radius](SharpenImages& images) {
            cv::GaussianBlur(images.source.pixels, images.blurred, cv::Size(), radius, radius, cv::BORDER_REPLICATE);
            cv::addWeighted(images.source.pixels, 1.0 + kAmount, images.blurred, -kAmount, 0.0,
                            images.destination.pixels);
        });
    }
    return true;
}();

} // namespace
