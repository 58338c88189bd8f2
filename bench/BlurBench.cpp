// Box and gaussian blurs of a 24-megapixel RGBA image at 8 and 16 bits on one thread, beside OpenCV's
// cv::blur and cv::GaussianBlur over the same window or with the same standard deviation.
#include "KXEffects.h"

#include <benchmark/benchmark.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <functional>
#include <string>

namespace {

constexpr int32_t kWidth = 6000;
constexpr int32_t kHeight = 4000;
constexpr double kMegapixels = double(kWidth) * kHeight / 1e6;

// A random RGBA source and a destination of one depth, made once and kept for every case of that depth;
// OpenCV sees their locked buffers as matrices.
class BlurImages {
public:
    static BlurImages& Of(int32_t depth)
    {
        static BlurImages eight(8);
        static BlurImages sixteen(16);
        return depth == 8 ? eight : sixteen;
    }

    const KXRect bounds = KXRectMake(0, 0, kWidth, kHeight);
    KXImage* source = nullptr;
    KXImage* destination = nullptr;
    cv::Mat in;
    cv::Mat out;

private:
    explicit BlurImages(int32_t depth)
    {
        const int32_t type = depth == 8 ? CV_8UC4 : CV_16UC4;
        KXImageCreateWithParams2(&bounds, depth, 4, KXColorSpaceRGB, 1, KXDataSourceMemory, &source);
        KXImageCreateWithParams2(&bounds, depth, 4, KXColorSpaceRGB, 1, KXDataSourceMemory, &destination);
        in = cv::Mat(kHeight, kWidth, type, KXImageLockBuffer(source), size_t(KXImageGetRowBytes(source)));
        out = cv::Mat(kHeight, kWidth, type, KXImageLockBuffer(destination), size_t(KXImageGetRowBytes(destination)));
        cv::RNG(uint64_t(depth))
            .fill(in, cv::RNG::UNIFORM, cv::Scalar::all(0), cv::Scalar::all(depth == 8 ? 256 : 65536));
    }
};

using BlurCall = std::function<void(BlurImages& images)>;

void Register(const std::string& name, int32_t depth, BlurCall blur)
{
    benchmark::RegisterBenchmark(name.c_str(), [depth, blur](benchmark::State& state) {
        cv::setNumThreads(1);
        BlurImages& images = BlurImages::Of(depth);
        for (auto _ : state) {
            blur(images);
            benchmark::ClobberMemory();
        }
        state.counters["MP/s"] =
            benchmark::Counter(kMegapixels * double(state.iterations()), benchmark::Counter::kIsRate);
    })->Unit(benchmark::kMillisecond);
}

// "Group/<depth>bit-r<radius>/" with kx or opencv after it.
std::string CaseName(const char* group, int32_t depth, int32_t radius)
{
    return std::string(group) + "/" + std::to_string(depth) + "bit-r" + std::to_string(radius) + "/";
}

const bool kRegistered = [] {
    for (int32_t depth : {8, 16}) {
        for (int32_t radius : {2, 16, 128}) {
            const cv::Size window(2 * radius + 1, 2 * radius + 1);
            Register(CaseName("BoxBlur", depth, radius) + "kx", depth, [radius](BlurImages& images) {
                KXEffectsBoxBlur(images.source, images.destination, &images.bounds, radius);
            });
            Register(CaseName("BoxBlur", depth, radius) + "opencv", depth, [window](BlurImages& images) {
                cv::blur(images.in, images.out, window, cv::Point(-1, -1), cv::BORDER_REPLICATE);
            });
            // The fast blur's standard deviation is radius / 1.1.
            const double sigma = double(radius) / 1.1;
            Register(CaseName("GaussianFast", depth, radius) + "kx", depth, [radius](BlurImages& images) {
                KXEffectsGaussianBlurFast(images.source, images.destination, &images.bounds, float(radius));
            });
            Register(CaseName("GaussianFast", depth, radius) + "opencv", depth, [sigma](BlurImages& images) {
                cv::GaussianBlur(images.in, images.out, cv::Size(0, 0), sigma, sigma, cv::BORDER_REPLICATE);
            });
        }
        for (int32_t radius : {3, 9}) {
            // 2h + 1 taps, h = radius x 2.5 rounded, standard deviation radius.
            const int32_t taps = 2 * int32_t(float(radius) * 2.5f + 0.5f) + 1;
            Register(CaseName("GaussianTrue", depth, radius) + "kx", depth, [radius](BlurImages& images) {
                KXEffectsGaussianBlurTrue(images.source, images.destination, &images.bounds, float(radius));
            });
            Register(CaseName("GaussianTrue", depth, radius) + "opencv", depth, [radius, taps](BlurImages& images) {
                cv::GaussianBlur(images.in, images.out, cv::Size(taps, taps), radius, radius, cv::BORDER_REPLICATE);
            });
        }
    }
    return true;
}();

} // namespace
