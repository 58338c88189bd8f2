// The kxfx tool: files in and out at every depth through the built executable, one-line failures, and
// its parts (setting kinds, image files, progress bar, library statuses) driven directly.
#include "EffectRunner.h"
#include "Gallery.h"
#include "ImageFile.h"
#include "KXEffects.h"
#include "KXEffectsRegistry.h"
#include "Progress.h"
#include "Settings.h"
#include "Status.h"

#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// CTest runs the tests of this file side by side, and other checkouts may run them at once: each test keeps
// its files apart by its own name and its process.
std::string TempPath(const std::string& name)
{
    return testing::TempDir() + "kxfx_" + std::to_string(getpid()) + "_" +
           testing::UnitTest::GetInstance()->current_test_info()->name() + "_" + name;
}

std::string ReadText(const std::string& path)
{
    std::ifstream file(path);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

struct Outcome {
    int exitCode;
    std::string out;
    std::string err;
};

Outcome RunKxfx(const std::string& arguments)
{
    const std::string out = TempPath("stdout.txt");
    const std::string err = TempPath("stderr.txt");
    const std::string command = std::string(KXFX_PATH) + " " + arguments + " >" + out + " 2>" + err;
    const int status = std::system(command.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, ReadText(out), ReadText(err)};
}

// Three-channel float TIFF would otherwise be written in OpenCV's lossy LogLuv encoding.
void WriteExact(const std::string& path, const cv::Mat& mat)
{
    ASSERT_TRUE(cv::imwrite(path, mat, {cv::IMWRITE_TIFF_COMPRESSION, 5}));
}

cv::Mat RandomMat(int type, uint64_t seed, double low, double high, cv::Size size = {9, 13})
{
    cv::Mat mat(size, type);
    cv::RNG generator(seed);
    generator.fill(mat, cv::RNG::UNIFORM, low, high);
    return mat;
}

// Inverse of every colour channel, alpha (the last of 2 or 4 channels) as it was.
cv::Mat Inverted(const cv::Mat& mat, double white)
{
    std::vector<cv::Mat> channels;
    cv::split(mat, channels);
    const size_t colours = channels.size() % 2 == 0 ? channels.size() - 1 : channels.size();
    for (size_t c = 0; c < colours; ++c) {
        cv::Mat inverted;
        cv::subtract(cv::Scalar::all(white), channels[c], inverted, cv::noArray(), mat.depth());
        channels[c] = inverted;
    }
    cv::Mat merged;
    cv::merge(channels, merged);
    return merged;
}

void ExpectSameMat(const cv::Mat& expected, const cv::Mat& actual)
{
    ASSERT_EQ(expected.type(), actual.type());
    ASSERT_EQ(expected.size(), actual.size());
    EXPECT_EQ(cv::norm(expected, actual, cv::NORM_INF), 0.0);
}

struct FileCase {
    const char* name;
    int type;
    double white;
    double low, high; // range of the random samples
};

const FileCase kFileCases[] = {
    {"rgb16.tif", CV_16UC3, 65535.0, 0.0, 65536.0},
    {"rgb32.tif", CV_32FC3, 1.0, -0.25, 1.25}, // float is not clamped either way
    {"rgba32.tiff", CV_32FC4, 1.0, 0.0, 1.0},
    {"rgba16.png", CV_16UC4, 65535.0, 0.0, 65536.0},
    {"gray8.png", CV_8UC1, 255.0, 0.0, 256.0},
    {"rgb8.tif", CV_8UC3, 255.0, 0.0, 256.0},
};

TEST(KxfxTool, InvertsFilesOfEveryDepthExactly)
{
    uint64_t seed = 1;
    for (const FileCase& file : kFileCases) {
        SCOPED_TRACE(file.name);
        const std::string input = TempPath(std::string("in_") + file.name);
        const std::string output = TempPath(std::string("out_") + file.name);
        const cv::Mat source = RandomMat(file.type, seed++, file.low, file.high);
        WriteExact(input, source);
        const Outcome outcome = RunKxfx("invert " + input + " " + output);
        ASSERT_EQ(outcome.exitCode, 0) << outcome.err;
        EXPECT_EQ(outcome.err, "");
        ExpectSameMat(Inverted(source, file.white), cv::imread(output, cv::IMREAD_UNCHANGED));

        // Partly beyond the image: the part inside is inverted, the rest of the output keeps the input.
        ASSERT_EQ(RunKxfx("invert " + input + " " + output + " --rect 2,3,20,4").exitCode, 0);
        cv::Mat expected = source.clone();
        const cv::Rect inside(2, 3, source.cols - 2, 4);
        Inverted(source(inside), file.white).copyTo(expected(inside));
        ExpectSameMat(expected, cv::imread(output, cv::IMREAD_UNCHANGED));
    }
}

// A selection narrows the white mask it starts from; an open band leaves it white at every depth.
TEST(KxfxTool, SelectionsStartFromWhite)
{
    for (const FileCase& file : kFileCases) {
        if (CV_MAT_CN(file.type) != 3)
            continue;
        SCOPED_TRACE(file.name);
        const std::string input = TempPath(std::string("in_") + file.name);
        const std::string output = TempPath(std::string("mask_") + file.name);
        WriteExact(input, RandomMat(file.type, 3, 0.0, file.white));
        const Outcome outcome = RunKxfx("select-luminosity " + input + " " + output);
        ASSERT_EQ(outcome.exitCode, 0) << outcome.err;
        const cv::Mat mask = cv::imread(output, cv::IMREAD_UNCHANGED);
        ExpectSameMat(cv::Mat(mask.size(), CV_MAKETYPE(CV_MAT_DEPTH(file.type), 1), cv::Scalar(file.white)), mask);
    }
}

TEST(KxfxTool, RoundsDeepResultsIntoShallowFormats)
{
    // Float to PNG: 16-bit, rounded, clamped to 0..1 after the inversion.
    const std::string floatInput = TempPath("deep.tif");
    const std::string pngOutput = TempPath("deep.png");
    const cv::Mat floats = (cv::Mat_<float>(1, 6) << 0.25f, 0.75f, 1.5f, -0.5f, 0.0f, 1.0f);
    WriteExact(floatInput, floats);
    ASSERT_EQ(RunKxfx("invert " + floatInput + " " + pngOutput).exitCode, 0);
    const cv::Mat expected16 = (cv::Mat_<uint16_t>(1, 6) << 49151, 16384, 0, 65535, 65535, 0);
    ExpectSameMat(expected16, cv::imread(pngOutput, cv::IMREAD_UNCHANGED));

    // 16-bit to JPEG: 8-bit; a flat colour keeps JPEG's own error within one or two levels.
    const std::string input16 = TempPath("flat16.png");
    const std::string jpegOutput = TempPath("flat.jpg");
    ASSERT_TRUE(cv::imwrite(input16, cv::Mat(16, 16, CV_16UC3, cv::Scalar(257 * 10, 257 * 128, 257 * 240))));
    ASSERT_EQ(RunKxfx("invert " + input16 + " " + jpegOutput).exitCode, 0);
    const cv::Mat jpeg = cv::imread(jpegOutput, cv::IMREAD_UNCHANGED);
    ASSERT_EQ(jpeg.type(), CV_8UC3);
    const cv::Mat expected8(16, 16, CV_8UC3, cv::Scalar(245, 127, 15));
    EXPECT_LE(cv::norm(expected8, jpeg, cv::NORM_INF), 2.0);
}

TEST(KxfxTool, BadInputFailsWithOneLineAndNoOutput)
{
    const std::string input = TempPath("good.png");
    const std::string output = TempPath("never.png");
    const std::string notImage = TempPath("text.png");
    ASSERT_TRUE(cv::imwrite(input, cv::Mat(4, 4, CV_8UC3, cv::Scalar(1, 2, 3))));
    std::ofstream(notImage) << "not an image\n";
    const std::string cases[] = {
        "",
        "no-such-effect " + input + " " + output,
        "invert " + input + " " + output + " --amount 2",
        "add-noise " + input + " " + output + " --noise-type 7",
        "apply-curves " + input + " " + output + " --curves '0,0;1'",
        "blend-images " + input + " " + output,
        "invert " + TempPath("missing.png") + " " + output,
        "invert " + notImage + " " + output,
        "invert " + input + " " + output + " --rect",
        "invert " + input + " " + output + " --rect 1,2,3",
        "invert " + input + " " + output + " --rect 0,0,-1,4",
        "invert " + input,
        "invert " + input + " " + TempPath("never.bmp"),
        "invert " + input + " " + TempPath("no_such_dir/never.png"),
        "color",
        "color 1,0.5",
        "color 1,0.5,x",
        "color 1,0,0 0,1,0",
    };
    for (const std::string& arguments : cases) {
        SCOPED_TRACE(arguments);
        std::filesystem::remove(output);
        const Outcome outcome = RunKxfx(arguments);
        EXPECT_NE(outcome.exitCode, 0);
        EXPECT_EQ(outcome.err.rfind("kxfx: ", 0), 0u) << outcome.err;
        EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1) << outcome.err;
        EXPECT_FALSE(std::filesystem::exists(output));
        EXPECT_FALSE(std::filesystem::exists(output + ".partial"));
    }
}

TEST(KxfxTool, HelpAndListDescribeTheEffects)
{
    const std::pair<const char*, const char*> cases[] = {{"--help", "usage: kxfx EFFECT"},
                                                         {"help", "usage: kxfx EFFECT"},
                                                         {"help invert", "usage: kxfx invert INPUT OUTPUT"},
                                                         {"list", "\ncopy-image "}};
    for (const auto& [arguments, text] : cases) {
        SCOPED_TRACE(arguments);
        const Outcome outcome = RunKxfx(arguments);
        EXPECT_EQ(outcome.exitCode, 0);
        EXPECT_EQ(outcome.err, "");
        EXPECT_NE(outcome.out.find(text), std::string::npos) << outcome.out;
    }
}

// Each conversion line and component line equals the library called directly, in the library's order.
TEST(KxfxTool, ColorPrintsEveryModelAndTheHueComponents)
{
    const Outcome orange = RunKxfx("color 1,0.5,0");
    ASSERT_EQ(orange.exitCode, 0) << orange.err;
    EXPECT_EQ(orange.out.rfind("hsv: 0.0833333 1 1\n", 0), 0u) << orange.out;
    EXPECT_NE(orange.out.find("\nred: 0.5\nyellow: 0.5\ngreen: 0\ncyan: 0\nblue: 0\nmagenta: 0\n"), std::string::npos)
        << orange.out;

    const char* conversions[] = {"hsv", "rgb from hsv", "hsl", "rgb from hsl", "ycbcr", "rgb from ycbcr"};
    const char* hues[] = {"red", "yellow", "green", "cyan", "blue", "magenta"};
    for (const char* text : {"1,0.5,0", "0.2,0.4,0.9", "0.75,0.1,0.6", "0.5,0.5,0.5"}) {
        SCOPED_TRACE(text);
        const Colour colour = ParseColour(text);
        const float rgb[] = {colour.red, colour.green, colour.blue};
        std::string expected;
        char line[128];
        for (int32_t conversion = 0; conversion < 6; ++conversion) {
            float out[3];
            ASSERT_EQ(KXEffectsConvertColorMode(rgb, out, conversion), kKXNoErr);
            std::snprintf(line, sizeof line, "%s: %g %g %g\n", conversions[conversion], out[0], out[1], out[2]);
            expected += line;
        }
        float components[6];
        ASSERT_EQ(KXEffectsGetColorComponents(rgb, components), kKXNoErr);
        for (int hue = 0; hue < 6; ++hue) {
            std::snprintf(line, sizeof line, "%s: %g\n", hues[hue], components[hue]);
            expected += line;
        }
        const Outcome outcome = RunKxfx(std::string("color ") + text);
        ASSERT_EQ(outcome.exitCode, 0) << outcome.err;
        EXPECT_EQ(outcome.out, expected);
    }
}

// Curve files of another count than 256 are one channel brought to 256 entries; a table file is used as it is.
TEST(KxfxTool, CurvesResampleFiles)
{
    const std::string identity = TempPath("curve_identity.txt");
    const std::string reversed = TempPath("curve_reversed.txt");
    const std::string table = TempPath("curve_table.txt");
    std::ofstream(identity) << "0\n1\n";
    std::ofstream(reversed) << "1 0.5 0\n";
    {
        std::ofstream file(table);
        for (int i = 0; i < 256; ++i)
            file << float(255 - i) / 255.0f << "\n";
    }
    const std::pair<std::string, bool> cases[] = {
        {identity, false}, {reversed, true}, {table, true}, {"'0,1;1,0'", true}};
    const std::string input = TempPath("curve_in.png");
    const std::string output = TempPath("curve_out.png");
    for (int type : {CV_8UC1, CV_8UC4}) {
        const cv::Mat source = RandomMat(type, uint64_t(type) + 40, 0.0, 256.0);
        ASSERT_TRUE(cv::imwrite(input, source));
        const cv::Mat inverted = Inverted(source, 255.0);
        for (const auto& [curve, inverts] : cases) {
            SCOPED_TRACE(curve + " type " + std::to_string(type));
            const Outcome outcome = RunKxfx("apply-curves " + input + " " + output + " --curves " + curve);
            ASSERT_EQ(outcome.exitCode, 0) << outcome.err;
            ExpectSameMat(inverts ? inverted : source, cv::imread(output, cv::IMREAD_UNCHANGED));
        }
    }
}

// One pixel of an image as floats in the raw scale of its depth.
std::vector<float> PixelOf(KXImage* image, int32_t x, int32_t y)
{
    const KXRect one = KXRectMake(x, y, 1, 1);
    const int32_t planes = KXImageGetNumPlanes(image);
    const int32_t depth = KXImageGetDepth(image);
    cv::Mat pixel(1, 1, CV_MAKETYPE(depth == 8 ? CV_8U : depth == 16 ? CV_16U : CV_32F, planes));
    EXPECT_EQ(KXImageRead2(image, &one, 0, -1, pixel.data, -1, 0), 0);
    pixel.convertTo(pixel, CV_32F);
    return std::vector<float>(pixel.ptr<float>(), pixel.ptr<float>() + planes);
}

// Pixel order and depth conversion, which a symmetric effect cannot show: files hold BGR, images RGB.
// Each codec's whole file reads as OpenCV reads it; the file cut short fails with one line that names the
// damage, whatever the codec library would have printed itself.
TEST(KxfxTool, DamagedFilesFailWithOneLineFromKxfx)
{
    const struct {
        const char* name;
        int type;
    } formats[] = {{"png8.png", CV_8UC3},    {"png16.png", CV_16UC4},  {"tiff8.tif", CV_8UC1},
                   {"tiff16.tif", CV_16UC3}, {"tiff32.tif", CV_32FC3}, {"jpeg8.jpg", CV_8UC3}};
    for (const auto& format : formats) {
        SCOPED_TRACE(format.name);
        const std::string whole = TempPath(std::string("whole_") + format.name);
        const std::string cut = TempPath(std::string("cut_") + format.name);
        const std::string output = TempPath("never.tif");
        const cv::Mat source = RandomMat(format.type, 5, 0.0, format.type == CV_32FC3 ? 1.0 : 256.0, {40, 30});
        WriteExact(whole, source);
        const ImageHandle image = ReadImageFile(whole);
        cv::Mat expected = cv::imread(whole, cv::IMREAD_UNCHANGED);
        if (expected.channels() >= 3)
            cv::cvtColor(expected, expected, expected.channels() == 3 ? cv::COLOR_BGR2RGB : cv::COLOR_BGRA2RGBA);
        const KXRect bounds = KXImageGetBounds(image.get());
        cv::Mat actual(bounds.height, bounds.width, expected.type());
        ASSERT_EQ(KXImageRead2(image.get(), &bounds, 0, -1, actual.data, int32_t(actual.step[0]), 0), 0);
        ExpectSameMat(expected, actual);

        const std::string bytes = ReadText(whole);
        std::ofstream(cut, std::ios::binary) << bytes.substr(0, bytes.size() * 2 / 3);
        const Outcome outcome = RunKxfx("invert " + cut + " " + output);
        EXPECT_NE(outcome.exitCode, 0);
        EXPECT_EQ(outcome.err.rfind("kxfx: cannot read '" + cut + "': the file is damaged (", 0), 0u) << outcome.err;
        EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1) << outcome.err;
        EXPECT_FALSE(std::filesystem::exists(output));
    }
}

TEST(KxfxParts, ReadsAndWritesRedFirstAtTheRequestedDepth)
{
    const std::string path = TempPath("bgr.png");
    const cv::Scalar bgr(10, 20, 30);
    ASSERT_TRUE(cv::imwrite(path, cv::Mat(2, 3, CV_8UC3, bgr)));
    struct DepthCase {
        int32_t depth;
        float scale; // of a file sample into the image
    };
    for (const DepthCase& want : {DepthCase{8, 1.0f}, DepthCase{16, 257.0f}, DepthCase{32, 1.0f / 255.0f}}) {
        SCOPED_TRACE(want.depth);
        const ImageHandle image = ReadImageFile(path, want.depth == 8 ? 0 : want.depth);
        ASSERT_EQ(KXImageGetDepth(image.get()), want.depth);
        ASSERT_EQ(KXImageGetColorSpaceType(image.get()), KXColorSpaceRGB);
        const std::vector<float> pixel = PixelOf(image.get(), 2, 1);
        ASSERT_EQ(pixel.size(), 3u);
        for (int c = 0; c < 3; ++c)
            EXPECT_NEAR(pixel[c], float(bgr[2 - c]) * want.scale, 1e-6f) << "plane " << c;

        const std::string written = TempPath("bgr_back.tif");
        WriteImageFile(image.get(), written);
        cv::Mat back = cv::imread(written, cv::IMREAD_UNCHANGED);
        ASSERT_EQ(back.depth(), want.depth == 8 ? CV_8U : want.depth == 16 ? CV_16U : CV_32F);
        back.convertTo(back, CV_32F);
        for (int c = 0; c < 3; ++c)
            EXPECT_NEAR(back.at<cv::Vec3f>(1, 2)[c], float(bgr[c]) * want.scale, 1e-6f) << "channel " << c;
    }
}

TEST(KxfxParts, ParsesEverySettingKindAndRejectsMalformedText)
{
    EXPECT_EQ(ParseBlendMode("scrn"), 0x7363726eu);
    EXPECT_EQ(ParseBlendMode("hue"), 0x68756520u); // padded: "hue "
    EXPECT_EQ(ParseBlendMode("Norm"), 0x4e6f726du);
    // A capital first letter is the reversed form: the lower-case code with bit 29 clear.
    for (const std::string lower : {"over", "fsub", "hlit", "div"}) {
        std::string upper = lower;
        upper[0] = char(std::toupper(upper[0]));
        const uint32_t code = ParseBlendMode(upper);
        EXPECT_EQ(code & 0x20000000u, 0u) << upper;
        EXPECT_EQ(code, ParseBlendMode(lower) & ~0x20000000u) << upper;
        EXPECT_EQ(code, KXEffectsGetReverseBlendMode(ParseBlendMode(lower))) << upper;
    }
    EXPECT_EQ(ParseFloat("-1e-3"), -1e-3f);
    EXPECT_EQ(ParseInteger("-12"), -12);
    EXPECT_TRUE(ParseBool("yes"));
    EXPECT_FALSE(ParseBool("0"));
    const Colour colour = ParseColour("1,0.5,-0.25");
    EXPECT_EQ(colour.red, 1.0f);
    EXPECT_EQ(colour.green, 0.5f);
    EXPECT_EQ(colour.blue, -0.25f);
    const KXPoint point = ParsePoint("3,-4");
    EXPECT_EQ(point.x, 3);
    EXPECT_EQ(point.y, -4);
    const KXRect rect = ParseRect("100,50,20,10");
    EXPECT_EQ(rect.x, 100);
    EXPECT_EQ(rect.y, 50);
    EXPECT_EQ(rect.width, 20);
    EXPECT_EQ(rect.height, 10);
    EXPECT_EQ(ParseCurve("0,0;128,150;255,255"), (std::vector<float>{0, 0, 128, 150, 255, 255}));
    // Three values are one channel resampled to 256 entries, the last kept exactly.
    const std::string curveFile = TempPath("curve.txt");
    std::ofstream(curveFile) << "0 0.5,\n1\n";
    const std::vector<float> resampled = ParseCurve(curveFile);
    ASSERT_EQ(resampled.size(), 256u);
    EXPECT_EQ(resampled.front(), 0.0f);
    EXPECT_NEAR(resampled[51], 0.2f, 1e-6f);
    EXPECT_EQ(resampled.back(), 1.0f);
    const std::string oneValue = TempPath("curve_one.txt");
    std::ofstream(oneValue) << "0.5\n";

    const std::vector<std::function<void()>> malformed = {
        [] { ParseBlendMode(""); },
        [] { ParseBlendMode("toolong"); },
        [] { ParseFloat("abc"); },
        [] { ParseFloat("nan"); },
        [] { ParseFloat("inf"); },
        [] { ParseFloat("1.5x"); },
        [] { ParseFloat(""); },
        [] { ParseInteger("1.5"); },
        [] { ParseInteger("99999999999"); },
        [] { ParseBool("maybe"); },
        [] { ParseColour("1,2"); },
        [] { ParseColour("1,2,x"); },
        [] { ParsePoint("3.5,1"); },
        [] { ParseCurve("0,0;128"); },
        [] { ParseCurve(""); },
        [] { ParseCurve("missing.txt"); },
        [&] { ParseCurve(oneValue); },
        [] { ParseRect("0,0,-1,1"); },
        [] { ParseRect("0,0,1"); },
    };
    for (size_t i = 0; i < malformed.size(); ++i)
        EXPECT_THROW(malformed[i](), ToolError) << "case " << i;
}

// Settings parse by the kind of their argument and name themselves in a failure.
TEST(KxfxParts, CallValuesParseByArgumentKind)
{
    const EffectEntry& adjustTone = *FindEffect("adjust-tone");
    CallValues values(adjustTone);
    try {
        values.Parse(5, "bright", 3);
        ADD_FAILURE() << "no error";
    } catch (const ToolError& error) {
        EXPECT_STREQ(error.what(), "--brightness: 'bright' is not a number");
    }
    values.Parse(7, "", 3); // an optional curve given as nothing is none
    EXPECT_EQ(std::get<const float*>(values.Values()[7]), nullptr);
    values.Parse(8, "identity", 3);
    const float* identity = std::get<const float*>(values.Values()[8]);
    EXPECT_EQ(identity[2 * 256 + 255], 1.0f);
    EXPECT_EQ(identity[2 * 256 + 51], 0.2f);
    values.Parse(3, "0.1,0.2,0.3", 3);
    EXPECT_EQ(std::get<const float*>(values.Values()[3])[2], 0.3f);

    CallValues tuner(*FindEffect("tune-colors"));
    EXPECT_THROW(tuner.Parse(5, "1,2,3", 3), ToolError); // nine values
    tuner.Parse(5, "1,2,3,4,5,6,7,8,9", 3);
    EXPECT_EQ(std::get<const float*>(tuner.Values()[5])[8], 9.0f);
    CallValues noise(*FindEffect("add-noise"));
    EXPECT_THROW(noise.Parse(3, "3", 3), ToolError); // outside the integer range
}

TEST(KxfxParts, ProgressBarDrawsStagesOnlyWhenEnabled)
{
    for (bool enabled : {true, false}) {
        char* text = nullptr;
        size_t size = 0;
        std::FILE* stream = open_memstream(&text, &size);
        {
            const ProgressBar bar(stream, enabled);
            KXProgressDoProgressBeginStage(bar.Progress(), 0, "", 1100);
            KXProgressDoProgressUpdateStage(bar.Progress(), 550);
            KXProgressDoProgressUpdateStage(bar.Progress(), 1100);
            KXProgressDoProgressEndStage(bar.Progress());
        }
        std::fclose(stream);
        const std::string drawn(text, size);
        std::free(text);
        if (!enabled) {
            EXPECT_EQ(drawn, "");
            continue;
        }
        const std::string half = "[" + std::string(20, '#') + std::string(20, '-') + "]  50%";
        EXPECT_NE(drawn.find(half), std::string::npos) << drawn;
        EXPECT_EQ(drawn.substr(drawn.size() - 7), "] 100%\n") << drawn;
    }
}

TEST(KxfxParts, LibraryFailuresBecomeOneLine)
{
    RecordLibraryEvents();
    KXImage* image = nullptr;
    const KXRect bounds = KXRectMake(0, 0, 2, 2);
    ASSERT_EQ(KXImageCreateWithParams2(&bounds, 8, 1, KXColorSpaceGray, 0, KXDataSourceMemory, &image), 0);
    const ImageHandle owned = AdoptImage(image);
    CallLibrary("invert", false, [&] { return KXEffectsInvert(image, image, &bounds); });
    struct FailureCase {
        bool verbose;
        std::function<int32_t()> call;
        const char* message;
    };
    const FailureCase cases[] = {
        {false, [&] { return KXEffectsInvert(image, image, nullptr); },
         "invert failed with status 1005 (bad parameter)"},
        {true,
         []() -> int32_t {
             KXLogEvent(kKXErrUnsupported, "Source/Common/KXEffects/KXEffectsInvert", 12);
             throw int32_t(kKXErrUnsupported);
         },
         "invert failed with status 1020 (unsupported depth, plane size or colour space); last event 1020 at "
         "Source/Common/KXEffects/KXEffectsInvert:12"},
    };
    for (const FailureCase& failure : cases) {
        try {
            CallLibrary("invert", failure.verbose, failure.call);
            ADD_FAILURE() << "no error for " << failure.message;
        } catch (const ToolError& error) {
            EXPECT_STREQ(error.what(), failure.message);
        }
    }
}

// Every registry entry runs from kxfx at its representative settings: files in, an image or numbers out.
TEST(KxfxTool, EveryEffectRunsAtItsSampleSettings)
{
    const std::string input = TempPath("every_in.png");
    const std::string second = TempPath("every_second.png");
    const std::string mask = TempPath("every_mask.png");
    const std::string output = TempPath("every_out.png");
    // Large enough for the analyses, which want 16 x 16 and a thousand pixels.
    const cv::Size size(48, 40);
    ASSERT_TRUE(cv::imwrite(input, RandomMat(CV_16UC4, 61, 0.0, 65536.0, size)));
    ASSERT_TRUE(cv::imwrite(second, RandomMat(CV_16UC4, 62, 0.0, 65536.0, size)));
    ASSERT_TRUE(cv::imwrite(mask, RandomMat(CV_16UC1, 63, 0.0, 65536.0, size)));
    for (const EffectEntry& entry : kEffectRegistry) {
        SCOPED_TRACE(entry.cliName);
        const bool masksOnly = entry.Has(ArgKind::Masks);
        const bool maskInput = masksOnly || entry.args[0].name == std::string_view("MASK");
        std::string arguments = std::string(entry.cliName) + " " + (maskInput ? mask : input);
        if (masksOnly)
            arguments += " " + mask;
        bool namedOutput = false;
        for (const ArgSpec& arg : entry.Args()) {
            if (arg.IsNamedOutput() && !arg.IsOptional()) {
                arguments += std::string(" --") + arg.name + " " + output;
                namedOutput = true;
            } else if ((arg.kind == ArgKind::Image || arg.kind == ArgKind::Mask) && !arg.IsOptional())
                arguments += " " + (arg.kind == ArgKind::Mask ? mask : second);
            else if (arg.kind == ArgKind::Mask)
                arguments += std::string(" --") + arg.name + " " + mask;
            else if (IsSetting(arg) && *arg.sample && arg.kind != ArgKind::Image)
                arguments += std::string(" --") + arg.name + " '" + arg.sample + "'";
        }
        const std::vector<std::string> files = FileNames(entry);
        const bool makesImage = files.back() == "OUTPUT";
        std::filesystem::remove(output);
        if (makesImage)
            arguments += " " + output;
        const Outcome outcome = RunKxfx(arguments);
        ASSERT_EQ(outcome.exitCode, 0) << arguments << "\n" << outcome.err;
        EXPECT_EQ(std::filesystem::exists(output), makesImage || namedOutput);
        EXPECT_EQ(outcome.out.empty(), !entry.Has(ArgKind::Out) && !entry.Has(ArgKind::OutRect)) << outcome.out;
    }
}

std::string SamplePhoto()
{
    return std::string(KXFX_SAMPLES) + "/coffee.png";
}

size_t CountOf(const std::string& text, const std::string& part)
{
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

TEST(KxfxGallery, BadOptionsFailWithOneLineAndNoPage)
{
    const std::string folder = TempPath("gallery");
    const std::vector<std::string> badOptions = {"--size 0", "--size 2x", "--colour 1", "--rect 0,0,4,4",
                                                 "--mask " + folder + "-none.png"};
    for (const std::string& options : badOptions) {
        SCOPED_TRACE(options);
        std::filesystem::remove_all(folder);
        const Outcome outcome = RunKxfx("gallery " + SamplePhoto() + " " + folder + " " + options);
        EXPECT_EQ(outcome.exitCode, 1);
        EXPECT_EQ(CountOf(outcome.err, "\n"), 1u) << outcome.err;
        EXPECT_FALSE(std::filesystem::exists(folder + "/index.html"));
    }
    EXPECT_EQ(RunKxfx("gallery " + SamplePhoto()).exitCode, 1);
}

// A tile per effect, and the numbers of an analysis as kxfx prints them for the same input.
TEST(KxfxGallery, TilesShowEveryEffectAndTheNumbersKxfxPrints)
{
    const std::string folder = TempPath("gallery");
    std::filesystem::remove_all(folder);
    const Outcome gallery = RunKxfx("gallery " + SamplePhoto() + " " + folder + " --size 48");
    ASSERT_EQ(gallery.exitCode, 0) << gallery.err;
    EXPECT_EQ(gallery.out,
              "gallery of " + std::to_string(std::size(kEffectRegistry)) + " effects: " + folder + "/index.html\n");
    const std::string page = ReadText(folder + "/index.html");
    EXPECT_EQ(CountOf(page, "<article class=\"tile\""), std::size(kEffectRegistry));
    EXPECT_EQ(CountOf(page, "class=\"failure\""), 0u);
    const std::pair<std::string, std::string> analyses[] = {
        {"analyze-image", "input"}, {"auto-tone", "input"}, {"find-mask-bounds", "mask"}};
    for (const auto& [effect, input] : analyses) {
        SCOPED_TRACE(effect);
        const Outcome printed = RunKxfx(effect + " " + folder + "/full/" + input + ".png");
        ASSERT_EQ(printed.exitCode, 0) << printed.err;
        std::istringstream lines(printed.out);
        for (std::string line; std::getline(lines, line);)
            EXPECT_NE(page.find(line), std::string::npos) << line;
    }
}

TEST(KxfxGallery, PageEscapesTextAndShowsFailures)
{
    GalleryTile tile;
    tile.entry = &kEffectRegistry[0];
    tile.settings = {{"curves", "0,0;1,1", ""}, {"LOWER", "<b>.png", "second"}};
    tile.figures = {{"before", "input"}};
    tile.numbers = "x: 1 & 2\n";
    tile.failure = "failed with status 1005 (bad parameter)";
    const GalleryFacts facts{"a<b>.png", 60, 40, 8, 60, 40, {tile}};
    const std::string path = TempPath("page.html");
    WriteGalleryPage(path, facts);
    const std::string page = ReadText(path);
    for (const char* part : {"a&lt;b&gt;.png", "x: 1 &amp; 2", "<a href=\"full/second.png\">&lt;b&gt;.png</a>",
                             "<p class=\"failure\">failed with status 1005 (bad parameter)</p>",
                             "<img src=\"thumbs/input.png\" width=\"60\" height=\"40\""})
        EXPECT_NE(page.find(part), std::string::npos) << part;
    EXPECT_EQ(page.find("<b>"), std::string::npos);
}

// kxfx matte: the alias of generate-matte, its outputs named by settings, the matte required, the bar drawn.
TEST(KxfxTool, MatteWritesItsNamedOutputsOnTheSampleTrimap)
{
    const std::string alpha = TempPath("alpha.png"), foreground = TempPath("foreground.png");
    const std::string inputs = SamplePhoto() + " " + std::string(KXFX_SAMPLES) + "/coffee-trimap.png";
    const Outcome missing = RunKxfx("matte " + inputs + " --foreground " + foreground);
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_EQ(CountOf(missing.err, "\n"), 1u) << missing.err;
    EXPECT_FALSE(std::filesystem::exists(foreground));

    const Outcome done =
        RunKxfx("matte " + inputs + " --matte " + alpha + " --foreground " + foreground + " --progress");
    ASSERT_EQ(done.exitCode, 0) << done.err;
    EXPECT_NE(done.err.find("matte"), std::string::npos);
    EXPECT_NE(done.err.find("100%"), std::string::npos);
    const cv::Mat matte = cv::imread(alpha, cv::IMREAD_UNCHANGED);
    ASSERT_EQ(matte.type(), CV_8UC1);
    EXPECT_EQ(matte.at<uint8_t>(110, 290), 255); // inside the cup
    EXPECT_EQ(matte.at<uint8_t>(50, 550), 0);    // the wood
    EXPECT_EQ(cv::imread(foreground, cv::IMREAD_UNCHANGED).size(), matte.size());
}

} // namespace
