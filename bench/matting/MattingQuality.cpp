// Matting quality against a known alpha: a foreground with straight and curved edges and fine strands,
// composited over two backgrounds; trimaps from the true alpha eroded and dilated; the library's matte and
// OpenCV's information-flow matte (cv::alphamat::infoFlow) measured against the truth, each with its time.
//
// usage: kxeffects_matting_quality OUT_FOLDER [--band PIXELS]
// Prints one table row per scene and method; writes OUT_FOLDER/SCENE-{image,trimap,truth,kx,infoflow}.png.
#include "KXEffects.h"

// The contrib header leans on core's macros.
#include <opencv2/core.hpp>

#include <opencv2/alphamat.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

namespace {

constexpr int kWidth = 360;
constexpr int kHeight = 270;

// The true alpha in 0..1: a rectangle and a disc, their edges anti-aliased, and strands of hair above the
// disc from noise blurred along the vertical, through a steep ramp.
cv::Mat TrueAlpha()
{
    cv::Mat shape(kHeight, kWidth, CV_32F, cv::Scalar(0));
    cv::rectangle(shape, cv::Point(40, 150), cv::Point(170, 250), cv::Scalar(1), cv::FILLED);
    cv::circle(shape, cv::Point(240, 170), 70, cv::Scalar(1), cv::FILLED, cv::LINE_8);
    cv::GaussianBlur(shape, shape, cv::Size(0, 0), 1.2);

    cv::Mat noise(kHeight, kWidth, CV_32F);
    cv::RNG generator(12345);
    generator.fill(noise, cv::RNG::NORMAL, 0.0, 1.0);
    cv::GaussianBlur(noise, noise, cv::Size(0, 0), 0.8, 10.0);
    cv::Mat strands = (noise - 0.05) * 6.0;
    cv::threshold(strands, strands, 1.0, 1.0, cv::THRESH_TRUNC);
    cv::threshold(strands, strands, 0.0, 0.0, cv::THRESH_TOZERO);
    // Strands grow from the top of the disc and thin out upward.
    for (int y = 0; y < kHeight; ++y) {
        const float fade = y < 30 ? 0.0f : std::min(1.0f, float(y - 30) / 60.0f);
        float* row = strands.ptr<float>(y);
        for (int x = 0; x < kWidth; ++x) {
            const float dx = float(x - 240) / 95.0f;
            row[x] *= y < 140 && dx * dx < 1.0f ? fade * (1.0f - dx * dx) : 0.0f;
        }
    }
    return cv::max(shape, strands);
}

// A smooth warm foreground with a little texture.
cv::Mat Foreground()
{
    cv::Mat colour(kHeight, kWidth, CV_32FC3);
    cv::Mat grain(kHeight, kWidth, CV_32F);
    cv::RNG(7).fill(grain, cv::RNG::NORMAL, 0.0, 0.03);
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x) {
            const float u = float(x) / kWidth, v = float(y) / kHeight, g = grain.at<float>(y, x);
            colour.at<cv::Vec3f>(y, x) = cv::Vec3f(0.15f + 0.2f * v + g, 0.45f + 0.2f * u + g, 0.85f - 0.2f * v + g);
        }
    return colour;
}

// A smooth cool gradient.
cv::Mat GradientBackground()
{
    cv::Mat colour(kHeight, kWidth, CV_32FC3);
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x) {
            const float u = float(x) / kWidth, v = float(y) / kHeight;
            colour.at<cv::Vec3f>(y, x) = cv::Vec3f(0.55f + 0.3f * u, 0.35f + 0.2f * v, 0.1f + 0.15f * u * v);
        }
    return colour;
}

// Blotches of colour from blurred noise: a busy background.
cv::Mat TexturedBackground()
{
    cv::Mat colour(kHeight, kWidth, CV_32FC3);
    cv::RNG(99).fill(colour, cv::RNG::UNIFORM, 0.0, 1.0);
    cv::GaussianBlur(colour, colour, cv::Size(0, 0), 6.0);
    cv::normalize(colour, colour, 0.05, 0.95, cv::NORM_MINMAX);
    return colour;
}

cv::Mat To8Bit(const cv::Mat& unit)
{
    cv::Mat bytes;
    unit.convertTo(bytes, unit.channels() == 3 ? CV_8UC3 : CV_8U, 255.0);
    return bytes;
}

// 255 where the alpha is 1 eroded by band, 0 where it is 0 beyond band, 128 between.
cv::Mat TrimapOf(const cv::Mat& alpha, int band)
{
    const cv::Mat disc = cv::getStructuringElement(cv::MORPH_ELLIPSE, cv::Size(2 * band + 1, 2 * band + 1));
    cv::Mat foreground, touched;
    cv::erode(alpha >= 254.5f / 255.0f, foreground, disc);
    cv::dilate(alpha > 0.5f / 255.0f, touched, disc);
    cv::Mat trimap(alpha.size(), CV_8U, cv::Scalar(0));
    trimap.setTo(128, touched);
    trimap.setTo(255, foreground);
    return trimap;
}

double Seconds(const std::function<void()>& work)
{
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// An 8-bit image of the library with the Mat's samples, red first.
KXImage* LibraryImage(const cv::Mat& bytes)
{
    const KXRect bounds = KXRectMake(0, 0, bytes.cols, bytes.rows);
    const int planes = bytes.channels();
    KXImage* image = nullptr;
    if (KXImageCreateWithParams2(&bounds, 8, planes, planes == 3 ? KXColorSpaceRGB : KXColorSpaceGray, 0,
                                 KXDataSourceMemory, &image) != 0)
        throw std::runtime_error("cannot make an image");
    cv::Mat rgb = bytes;
    if (planes == 3)
        cv::cvtColor(bytes, rgb, cv::COLOR_BGR2RGB);
    KXImageWrite2(image, &bounds, 0, -1, rgb.ptr(), -1, 0);
    return image;
}

cv::Mat LibraryMatte(const cv::Mat& image, const cv::Mat& trimap)
{
    KXImage* picture = LibraryImage(image);
    KXImage* map = LibraryImage(trimap);
    KXImage* foreground = LibraryImage(image);
    KXImage* matte = LibraryImage(trimap);
    const KXRect bounds = KXRectMake(0, 0, image.cols, image.rows);
    const int32_t status = KXEffectsGenerateMatte(picture, map, nullptr, foreground, matte, &bounds, 0, nullptr);
    cv::Mat result(image.rows, image.cols, CV_8U);
    KXImageRead2(matte, &bounds, 0, -1, result.ptr(), -1, 0);
    for (KXImage* owned : {picture, map, foreground, matte})
        KXImageRelease(owned);
    if (status != 0)
        throw std::runtime_error("KXEffectsGenerateMatte failed with " + std::to_string(status));
    return result;
}

struct Score {
    double sad; // sum of |alpha - truth| over the image, alpha in 0..1
    double mse; // mean of (alpha - truth)^2 over the unknown pixels
};

Score ScoreOf(const cv::Mat& matte, const cv::Mat& truth, const cv::Mat& trimap)
{
    cv::Mat alpha;
    matte.convertTo(alpha, CV_32F, 1.0 / 255.0);
    const cv::Mat difference = alpha - truth;
    const cv::Mat unknown = trimap == 128;
    return {cv::sum(cv::abs(difference))[0], cv::mean(difference.mul(difference), unknown)[0]};
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s OUT_FOLDER [--band PIXELS]\n", argv[0]);
        return 1;
    }
    const std::string folder = argv[1];
    const int band = argc >= 4 && std::strcmp(argv[2], "--band") == 0 ? std::atoi(argv[3]) : 4;
    const cv::Mat truth = TrueAlpha();
    const cv::Mat foreground = Foreground();
    const struct {
        const char* name;
        cv::Mat background;
    } scenes[] = {{"gradient", GradientBackground()}, {"textured", TexturedBackground()}};

    std::printf("%-10s %-9s %10s %12s %10s\n", "scene", "method", "SAD", "MSE", "seconds");
    for (const auto& scene : scenes) {
        cv::Mat truth3;
        cv::cvtColor(truth, truth3, cv::COLOR_GRAY2BGR);
        const cv::Mat composite = To8Bit(foreground.mul(truth3) + scene.background.mul(cv::Scalar(1, 1, 1) - truth3));
        const cv::Mat trimap = TrimapOf(truth, band);
        const std::string stem = folder + "/" + scene.name;
        cv::imwrite(stem + "-image.png", composite);
        cv::imwrite(stem + "-trimap.png", trimap);
        cv::imwrite(stem + "-truth.png", To8Bit(truth));

        cv::Mat ours, theirs;
        double oursSeconds = 1e30;
        for (int run = 0; run < 3; ++run)
            oursSeconds = std::min(oursSeconds, Seconds([&] { ours = LibraryMatte(composite, trimap); }));
        const double theirSeconds = Seconds([&] { cv::alphamat::infoFlow(composite, trimap, theirs); });
        if (theirs.type() != CV_8U)
            theirs.convertTo(theirs, CV_8U, theirs.depth() == CV_32F ? 255.0 : 1.0);
        cv::imwrite(stem + "-kx.png", ours);
        cv::imwrite(stem + "-infoflow.png", theirs);

        for (const auto& [method, matte, seconds] :
             {std::tuple{"kx", ours, oursSeconds}, std::tuple{"infoflow", theirs, theirSeconds}}) {
            const Score score = ScoreOf(matte, truth, trimap);
            std::printf("%-10s %-9s %10.1f %12.6f %10.4f\n", scene.name, method, score.sad, score.mse, seconds);
        }
    }
    return 0;
}
