// Median and surface blur of RGBA images at 8 and 16 bits on one thread, beside OpenCV's cv::medianBlur
// (8-bit at any size, 16-bit at kernel sizes 3 and 5 only) and cv::bilateralFilter, a different
// edge-preserving filter given for scale (8-bit, and float for the 16-bit cases, since it takes no 16-bit
// images; three channels, as it takes no four).
#include "KXEffects.h"

#include <benchmark/benchmark.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <functional>
#include <map>
#include <string>

namespace {

// A photo-like texture: noise smoothed by a 15 x 15 box, with a little fresh noise on top; random noise
// alone would be the worst case of the median's walk, which pictures do not reach.
cv::Mat Texture(int32_t width, int32_t height, int32_t depth)
{
    cv::Mat noise(height, width, CV_32FC4), texture;
    cv::RNG generator{uint64_t(depth)};
    generator.fill(noise, cv::RNG::UNIFORM, cv::Scalar::all(0.0), cv::Scalar::all(1.0));
    cv::blur(noise, texture, cv::Size(15, 15));
    generator.fill(noise, cv::RNG::NORMAL, cv::Scalar::all(0.0), cv::Scalar::all(0.01));
    texture = (texture - cv::Scalar::all(0.5)) * 3.0 + cv::Scalar::all(0.5) + noise;
    cv::Mat samples;
    texture.convertTo(samples, depth == 8 ? CV_8UC4 : CV_16UC4, depth == 8 ? 255.0 : 65535.0);
    return samples;
}

// A source and a destination of one size and depth, made once outside the timed loops, with OpenCV's
// three-channel copy of the source (and its float form at 16 bits) for the bilateral filter.
struct FilterImages {
    int32_t width, height;
    KXImage* source = nullptr;
    KXImage* destination = nullptr;
    cv::Mat in, out, colour, colourOut;

    FilterImages(int32_t imageWidth, int32_t imageHeight, int32_t depth) : width(imageWidth), height(imageHeight)
    {
        const KXRect bounds = KXRectMake(0, 0, width, height);
        const int32_t type = depth == 8 ? CV_8UC4 : CV_16UC4;
        KXImageCreateWithParams2(&bounds, depth, 4, KXColorSpaceRGB, 1, KXDataSourceMemory, &source);
        KXImageCreateWithParams2(&bounds, depth, 4, KXColorSpaceRGB, 1, KXDataSourceMemory, &destination);
        in = cv::Mat(height, width, type, KXImageLockBuffer(source), size_t(KXImageGetRowBytes(source)));
        out = cv::Mat(height, width, type, KXImageLockBuffer(destination), size_t(KXImageGetRowBytes(destination)));
        Texture(width, height, depth).copyTo(in);
        cv::cvtColor(in, colour, cv::COLOR_RGBA2RGB);
        if (depth == 16)
            colour.convertTo(colour, CV_32FC3, 1.0 / 65535.0);
    }

    double Megapixels() const { return double(width) * double(height) / 1e6; }

    // 24 megapixels, or 6 for the slow cases.
    static FilterImages& Of(int32_t depth, bool small)
    {
        static std::map<std::pair<int32_t, bool>, FilterImages> images;
        auto found = images.find({depth, small});
        if (found == images.end())
            found = images.try_emplace({depth, small}, small ? 3000 : 6000, small ? 2000 : 4000, depth).first;
        return found->second;
    }
};

using FilterCall = std::function<void(FilterImages& images, const KXRect& rect)>;

void Register(const std::string& name, int32_t depth, bool small, FilterCall filter)
{
    benchmark::RegisterBenchmark(name.c_str(),
                                 [depth, small, filter](benchmark::State& state) {
                                     cv::setNumThreads(1);
                                     FilterImages& images = FilterImages::Of(depth, small);
                                     const KXRect rect = KXRectMake(0, 0, images.width, images.height);
                                     for (auto _ : state) {
                                         filter(images, rect);
                                         benchmark::ClobberMemory();
                                     }
                                     state.counters["MP/s"] = benchmark::Counter(
                                         images.Megapixels() * double(state.iterations()), benchmark::Counter::kIsRate);
                                 })
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
}

std::string Case(const char* group, int32_t depth, int32_t radius, const char* impl)
{
    return std::string(group) + "/" + std::to_string(depth) + "bit-r" + std::to_string(radius) + "/" + impl;
}

void RegisterMedian(int32_t depth, int32_t radius)
{
    Register(Case("Median", depth, radius, "kx"), depth, false, [radius](FilterImages& images, const KXRect& rect) {
        KXEffectsMedian(images.source, images.destination, &rect, radius);
    });
    if (depth == 8 || radius <= 2)
        Register(Case("Median", depth, radius, "opencv"), depth, false, [radius](FilterImages& images, const KXRect&) {
            cv::medianBlur(images.in, images.out, 2 * radius + 1);
        });
}

// The bilateral filter over the same window, with a range spread like the surface blur's threshold
// of 0.1 and a spatial spread of half the radius.
void RegisterSurfaceBlur(int32_t depth, int32_t radius)
{
    Register(Case("SurfaceBlur", depth, radius, "kx"), depth, false,
             [radius](FilterImages& images, const KXRect& rect) {
                 KXEffectsSurfaceBlur(images.source, images.destination, &rect, radius, 0.1f, 1.0f);
             });
    Register(Case("SurfaceBlur", depth, radius, "opencv"), depth, true,
             [radius, depth](FilterImages& images, const KXRect&) {
                 cv::bilateralFilter(images.colour, images.colourOut, 2 * radius + 1, depth == 8 ? 25.5 : 0.1,
                                     radius * 0.5);
             });
}

const bool kRegistered = [] {
    for (int32_t depth : {8, 16}) {
        RegisterMedian(depth, 2);
        RegisterMedian(depth, 7);
        RegisterSurfaceBlur(depth, 4);
        RegisterSurfaceBlur(depth, 16);
    }
    return true;
}();

} // namespace
