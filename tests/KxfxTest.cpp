// The kxfx tool: files in and out at every depth through the built executable, one-line failures, and
// its parts (setting kinds, image files, progress bar, library statuses) driven directly.
#include "ImageFile.h"
#include "KXEffects.h"
#include "Progress.h"
#include "Settings.h"
#include "Status.h"

#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <sys/wait.h>

namespace {

// CTest runs the tests of this file side by side, so each test keeps its files apart by its own name.
std::string TempPath(const std::string& name)
{
    return testing::TempDir() + "kxfx_" + testing::UnitTest::GetInstance()->current_test_info()->name() + "_" + name;
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

cv::Mat RandomMat(int type, uint64_t seed, double low, double high)
{
    cv::Mat mat(13, 9, type);
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
    }
}

TEST(KxfxTool, InvertsOnlyTheRectangle)
{
    const std::string input = TempPath("rect_in.png");
    const std::string output = TempPath("rect_out.png");
    const cv::Mat source = RandomMat(CV_16UC3, 7, 0.0, 65536.0);
    ASSERT_TRUE(cv::imwrite(input, source));
    // Partly beyond the image: the part inside is inverted, the rest of the output keeps the input.
    const Outcome outcome = RunKxfx("invert " + input + " " + output + " --rect 2,3,20,4");
    ASSERT_EQ(outcome.exitCode, 0) << outcome.err;
    cv::Mat expected = source.clone();
    const cv::Rect inside(2, 3, source.cols - 2, 4);
    Inverted(source(inside), 65535.0).copyTo(expected(inside));
    ExpectSameMat(expected, cv::imread(output, cv::IMREAD_UNCHANGED));
}

TEST(KxfxTool, CopyKeepsEverySampleAndAlpha)
{
    for (int type : {CV_8UC4, CV_16UC4}) {
        SCOPED_TRACE(type);
        const std::string input = TempPath("copy_in.png");
        const std::string output = TempPath("copy_out.png");
        const cv::Mat source = RandomMat(type, uint64_t(type), 0.0, type == CV_8UC4 ? 256.0 : 65536.0);
        ASSERT_TRUE(cv::imwrite(input, source));
        const Outcome outcome = RunKxfx("copy " + input + " " + output);
        ASSERT_EQ(outcome.exitCode, 0) << outcome.err;
        ExpectSameMat(source, cv::imread(output, cv::IMREAD_UNCHANGED));
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
        "invert " + TempPath("missing.png") + " " + output,
        "invert " + notImage + " " + output,
        "invert " + input + " " + output + " --rect",
        "invert " + input + " " + output + " --rect 1,2,3",
        "invert " + input + " " + output + " --rect 0,0,-1,4",
        "invert " + input,
        "invert " + input + " " + TempPath("never.bmp"),
        "invert " + input + " " + TempPath("no_such_dir/never.png"),
        "curves " + input + " " + output + " --curve ''",
        "curves " + input + " " + output + " --then '0,0;1'",
        "blend-plain " + input + " " + output,
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
                                                         {"list", "\ncopy "}};
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

// Curve files of another count than 256 are one channel brought to 256 entries; --then runs after --curve.
TEST(KxfxTool, CurvesResampleFilesAndChainASecondCurve)
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
        {"--curve " + identity, false},
        {"--curve " + reversed, true},
        {"--curve " + table, true},
        {"--curve " + identity + " --then '0,1;1,0'", true},
        {"--curve '0,1;1,0' --then " + reversed, false},
        {"--curve " + table + " --then " + table, false},
    };
    const std::string input = TempPath("curve_in.png");
    const std::string output = TempPath("curve_out.png");
    for (int type : {CV_8UC1, CV_8UC4}) {
        const cv::Mat source = RandomMat(type, uint64_t(type) + 40, 0.0, 256.0);
        ASSERT_TRUE(cv::imwrite(input, source));
        const cv::Mat inverted = Inverted(source, 255.0);
        for (const char* row : {"curves", "curves-with-amount"}) {
            for (const auto& [settings, inverts] : cases) {
                SCOPED_TRACE(std::string(row) + " " + settings + " type " + std::to_string(type));
                const Outcome outcome = RunKxfx(std::string(row) + " " + input + " " + output + " " + settings);
                ASSERT_EQ(outcome.exitCode, 0) << outcome.err;
                ExpectSameMat(inverts ? inverted : source, cv::imread(output, cv::IMREAD_UNCHANGED));
            }
        }
    }
}

// blend-plain is blend at full opacity without a mask, whole-pixel modes included.
TEST(KxfxTool, BlendPlainMatchesBlendAtFullOpacity)
{
    const std::string upper = TempPath("plain_upper.png");
    const std::string lower = TempPath("plain_lower.png");
    const std::string viaBlend = TempPath("plain_blend.png");
    const std::string viaPlain = TempPath("plain_plain.png");
    ASSERT_TRUE(cv::imwrite(upper, RandomMat(CV_16UC4, 51, 0.0, 65536.0)));
    ASSERT_TRUE(cv::imwrite(lower, RandomMat(CV_16UC4, 52, 0.0, 65536.0)));
    for (const char* mode : {"norm", "mul", "scrn", "over", "lum"}) {
        SCOPED_TRACE(mode);
        const std::string files = " " + upper + " " + lower + " ";
        ASSERT_EQ(RunKxfx("blend" + files + viaBlend + " --mode " + mode).exitCode, 0);
        const Outcome plain = RunKxfx("blend-plain" + files + viaPlain + " --mode " + mode);
        ASSERT_EQ(plain.exitCode, 0) << plain.err;
        ExpectSameMat(cv::imread(viaBlend, cv::IMREAD_UNCHANGED), cv::imread(viaPlain, cv::IMREAD_UNCHANGED));
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

TEST(KxfxParts, SettingsNameThemselvesAndReadImagesOnlyWhenGiven)
{
    int reads = 0;
    const ImageReader reader = [&](const std::string&) {
        ++reads;
        return ImageHandle();
    };
    const SettingSpec radius = {"radius", SettingKind::Float, "0", "help"};
    try {
        ParseSetting(radius, "wide", reader);
        ADD_FAILURE() << "no error";
    } catch (const ToolError& error) {
        EXPECT_STREQ(error.what(), "--radius: 'wide' is not a number");
    }
    const SettingSpec then = {"then", SettingKind::Curve, "", "help"};
    EXPECT_TRUE(std::get<std::vector<float>>(ParseSetting(then, "", reader)).empty());
    const SettingSpec mask = {"mask", SettingKind::Image, "", "help"};
    EXPECT_EQ(std::get<ImageHandle>(ParseSetting(mask, "", reader)), nullptr);
    EXPECT_EQ(reads, 0);
    ParseSetting(mask, "mask.png", reader);
    EXPECT_EQ(reads, 1);
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


// A selection row shows the library's selection of a white mask in every plane; the number rows print.
TEST(KxfxTool, SelectionRowsShowTheMaskAndNumberRowsPrint)
{
    const std::string input = TempPath("select_in.png");
    const std::string output = TempPath("select_out.png");
    ASSERT_TRUE(cv::imwrite(input, RandomMat(CV_16UC3, 61, 0.0, 65536.0)));
    const Outcome shown = RunKxfx("select-luminosity-range " + input + " " + output + " --rect 1,2,5,20");
    ASSERT_EQ(shown.exitCode, 0) << shown.err;
    const ImageHandle source = ReadImageFile(input);
    const KXRect bounds = KXImageGetBounds(source.get()), rect = KXRectMake(1, 2, 5, 20);
    KXImage* created = nullptr;
    ASSERT_EQ(KXImageCreateWithParams2(&bounds, 16, 1, KXColorSpaceGray, 0, KXDataSourceMemory, &created), 0);
    const ImageHandle mask = AdoptImage(created);
    KXImageFill(created, 65535.0f);
    ASSERT_EQ(KXEffectsSelectLuminosityRange(source.get(), created, &rect, 0.2f, 0.4f, 0.6f, 0.8f), kKXNoErr);
    cv::Mat plane(bounds.height, bounds.width, CV_16UC1), expected;
    ASSERT_EQ(KXImageRead2(created, &bounds, 0, 0, plane.data, -1, 0), 0);
    cv::merge(std::vector<cv::Mat>{plane, plane, plane}, expected);
    ExpectSameMat(expected, cv::imread(output, cv::IMREAD_UNCHANGED));

    const std::string gray = TempPath("select_mask.png");
    cv::Mat live = cv::Mat::zeros(4, 6, CV_8UC1);
    live.at<uint8_t>(1, 2) = 9;
    live.at<uint8_t>(2, 4) = 1;
    ASSERT_TRUE(cv::imwrite(gray, live));
    const std::pair<std::string, std::string> prints[] = {
        {"find-mask-bounds", "bounds: 2 1 3 2\n"},
        {"color-for-index --index 13", "color: 0.9804 0.5882 0\n"},
        {"flesh-color-table --table 5", "y: 0.0431373 0.917647\ncb: 0.211765 0.498039\ncr: 0.501961 0.886275\n"},
    };
    for (const auto& [arguments, text] : prints) {
        SCOPED_TRACE(arguments);
        const Outcome outcome = RunKxfx(arguments + " " + gray + " " + output);
        ASSERT_EQ(outcome.exitCode, 0) << outcome.err;
        EXPECT_EQ(outcome.out, text);
    }
    for (const std::string& failing : {"flesh-color-table --table 6 " + gray, "select-color " + gray}) {
        const Outcome outcome = RunKxfx(failing + " " + output);
        EXPECT_NE(outcome.exitCode, 0) << failing;
        EXPECT_NE(outcome.err.find("status 10"), std::string::npos) << outcome.err;
    }
}


// Each white-balance, hue and tone row gives what the library gives called directly with the row's settings.
TEST(KxfxTool, ColourAndToneRowsMatchTheLibrary)
{
    using Call = std::function<int32_t(KXImage* source, KXImage* destination, const KXRect* rect)>;
    const auto withFound = [](int32_t found, float temperature, float tint) -> Call {
        return [=](KXImage* s, KXImage* d, const KXRect* r) {
            return found != kKXNoErr ? found : KXEffectsTemperatureAndTint(s, d, r, temperature, tint);
        };
    };
    float presetTemperature = 0, presetTint = 0, grayTemperature = 0, grayTint = 0;
    const float picked[3] = {0.6f, 0.5f, 0.4f}, toner[3] = {0.2f, 0.4f, 0.9f};
    const int32_t presetStatus = KXEffectsWhiteBalanceTemperatureAndTint(nullptr, 5, &presetTemperature, &presetTint);
    const int32_t grayStatus = KXEffectsTemperatureAndTintForGray(picked, &grayTemperature, &grayTint);
    float tunedHues[9] = {}, tunedSaturations[9] = {};
    tunedHues[2] = 0.5f;
    tunedSaturations[2] = 0.4f;
    const float zeros[9] = {};
    const std::pair<std::string, Call> cases[] = {
        {"temperature --temperature 0.4 --tint -0.2 --vibrance 0.3",
         [](auto s, auto d, auto r) { return KXEffectsTemperatureTintAndVibrance(s, d, r, 0.4f, -0.2f, 0.3f); }},
        {"temperature --temperature 0.4 --saturation 0.2 --vibrance 0.1",
         [](auto s, auto d, auto r) {
             return KXEffectsTemperatureTintSaturationAndVibrance(s, d, r, 0.4f, 0.0f, 0.2f, 0.1f);
         }},
        {"vibrance --vibrance -0.5", [](auto s, auto d, auto r) { return KXEffectsVibrance(s, d, r, -0.5f); }},
        {"toner --toner 0.2,0.4,0.9 --amount 0.7",
         [&](auto s, auto d, auto r) { return KXEffectsAddToner(s, d, r, toner, 0.7f); }},
        {"white-balance-preset --preset 5", withFound(presetStatus, presetTemperature, presetTint)},
        {"neutralise --gray 0.6,0.5,0.4", withFound(grayStatus, grayTemperature, grayTint)},
        {"hue-saturation --hue 0.25 --saturation 0.3 --brightness -0.2",
         [](auto s, auto d, auto r) { return KXEffectsHueSaturationBrightness(s, d, r, 0.25f, 0.3f, -0.2f); }},
        {"hue-saturation-lightness --hue -0.1 --lightness 0.4",
         [](auto s, auto d, auto r) { return KXEffectsHueSaturationLightness(s, d, r, -0.1f, 0.0f, 0.4f); }},
        {"tune-colors --index 2 --hue 0.5 --saturation 0.4",
         [&](auto s, auto d, auto r) { return KXEffectsTuneColors(s, d, r, 0, 0, tunedHues, tunedSaturations, zeros); }},
        {"colorize --hue 0.6 --saturation 0.4 --lightness -0.2",
         [](auto s, auto d, auto r) { return KXEffectsColorize(s, d, r, 0.6f, 0.4f, -0.2f); }},
        {"channel-mixer --red-green 0.5 --green-blue -0.3",
         [](auto s, auto d, auto r) { return KXEffectsChannelMixer(s, d, r, 1, 0.5f, 0, 0, 1, -0.3f); }},
        {"shadows-highlights --radius 3 --shadows 0.6 --highlights 0.3",
         [](auto s, auto d, auto r) { return KXEffectsShadowsAndHilites(s, d, r, 3.0f, 0.6f, 0.3f); }},
        {"adjust-shadows --strength 0.5 --threshold 0.4",
         [](auto s, auto d, auto r) { return KXEffectsAdjustShadows(s, d, r, 0.5f, 0.4f); }},
        {"adjust-tone --black 0.1,0,0.05 --white 0.9,1,1 --brightness 0.2",
         [](auto s, auto d, auto r) {
             const float black[3] = {0.1f, 0.0f, 0.05f}, white[3] = {0.9f, 1.0f, 1.0f};
             return KXEffectsAdjustTone(s, d, r, black, white, 0.2f, 0.0f, nullptr, nullptr);
         }},
        {"clarity --amount 0.8 --radius 4",
         [](auto s, auto d, auto r) { return KXEffectsClarity(s, d, r, 0.8f, 4.0f); }},
        {"purity --shadows 0.3 --highlights 0.1",
         [](auto s, auto d, auto r) { return KXEffectsPurity(s, d, r, 0.3f, 0.1f); }},
        {"brightness-contrast --brightness 0.3 --contrast -0.4",
         [](auto s, auto d, auto r) { return KXEffectsBrightnessContrast(s, d, r, 0.3f, -0.4f); }},
        {"brightness-midtone-contrast --brightness -0.2 --midtone-contrast 0.5 --as-curve true",
         [](auto s, auto d, auto r) {
             std::vector<float> curves(4 * 256);
             KXEffectsBrightnessMidtoneContrastMakeCurves(4, curves.data(), -0.2f, 0.5f);
             return KXEffectsApplyCurves(s, d, r, curves.data());
         }},
        {"midtone-contrast-alt --strength 1.5",
         [](auto s, auto d, auto r) { return KXEffectsMidtoneContrastAltWithMask(s, d, r, 1.5f, nullptr); }},
        {"exposure --brightness 0.5", [](auto s, auto d, auto r) { return KXEffectsExposure(s, d, r, 2.0f); }},
        {"brightness-haze-saturation --brightness 0.2 --haze 0.1 --saturation -0.3",
         [](auto s, auto d, auto r) { return KXEffectsBrightnessHazeSaturation(s, d, r, 0.2f, 0.1f, -0.3f); }},
        {"black-and-white --hue 0.3 --contrast 0.4 --toner 0.2,0.4,0.9 --toner-amount 0.6",
         [&](auto s, auto d, auto r) { return KXEffectsBlackAndWhite(s, d, r, 0.3f, 0.4f, nullptr, 0, toner, 0.6f); }},
        {"black-and-white-color-response --filter 0.7,0.4,0.5 --red 0.3 --cyan -0.4",
         [](auto s, auto d, auto r) {
             const float filter[3] = {0.7f, 0.4f, 0.5f}, responses[6] = {0.3f, 0, 0, -0.4f, 0, 0};
             return KXEffectsBlackAndWhiteColorResponse(s, d, r, filter, responses);
         }},
        {"black-and-white-auto-mixture --filter 0.5,0.5,0.5",
         [](auto s, auto d, auto r) {
             float responses[6];
             const int32_t status = KXEffectsBlackAndWhiteColorResponseGetAutoMixture(s, responses);
             return status != kKXNoErr ? status : KXEffectsBlackAndWhiteColorResponse(s, d, r, nullptr, responses);
         }},
        {"color-filter --red 0.5 --green 0.3 --blue 0.3",
         [](auto s, auto d, auto r) { return KXEffectsColorFilter(s, d, r, 0.5f, 0.3f, 0.3f); }},
        {"black-and-white-with-color-filter --hue 0.6",
         [](auto s, auto d, auto r) { return KXEffectsBlackAndWhiteWithColorFilter(s, d, r, 0.6f); }},
        {"black-white --mode 1", [](auto s, auto d, auto r) { return KXEffectsBlackWhite(s, d, r, 1); }},
        {"add-noise --type 1 --amount 0.2", [](auto s, auto d, auto r) { return KXEffectsAddNoise(s, d, r, 1, 0.2f); }},
        {"add-noise --type 2 --amount 0.1", [](auto s, auto d, auto r) { return KXEffectsAddNoise(s, d, r, 2, 0.1f); }},
    };
    const std::string input = TempPath("colour_in.png"), output = TempPath("colour_out.png");
    const std::string expectedPath = TempPath("colour_expected.png");
    ASSERT_TRUE(cv::imwrite(input, RandomMat(CV_16UC3, 71, 0.0, 65536.0)));
    for (const auto& [arguments, call] : cases) {
        SCOPED_TRACE(arguments);
        const Outcome outcome = RunKxfx(arguments.substr(0, arguments.find(' ')) + " " + input + " " + output +
                                        arguments.substr(arguments.find(' ')));
        ASSERT_EQ(outcome.exitCode, 0) << outcome.err;
        const ImageHandle source = ReadImageFile(input), expected = ReadImageFile(input);
        const KXRect bounds = KXImageGetBounds(source.get());
        ASSERT_EQ(call(source.get(), expected.get(), &bounds), kKXNoErr);
        WriteImageFile(expected.get(), expectedPath);
        ExpectSameMat(cv::imread(expectedPath, cv::IMREAD_UNCHANGED), cv::imread(output, cv::IMREAD_UNCHANGED));
    }
}

// The analysis rows print what the library measures; the equalizer and curve rows write what it makes.
TEST(KxfxTool, AnalysisRowsPrintAndApplyWhatTheLibraryFinds)
{
    const std::string input = TempPath("analysis_in.png"), output = TempPath("analysis_out.png");
    const std::string expectedPath = TempPath("analysis_expected.png");
    cv::Mat pixels(20, 24, CV_16UC3);
    cv::RNG(83).fill(pixels, cv::RNG::UNIFORM, 9000.0, 50000.0);
    ASSERT_TRUE(cv::imwrite(input, pixels));
    const ImageHandle source = ReadImageFile(input);
    const KXRect bounds = KXImageGetBounds(source.get());
    float means[4], deviations[4], black[3], white[3], brightness, contrast, shadows, highlights;
    ASSERT_EQ(KXEffectsAnalyzeImage(source.get(), &bounds, means, deviations), kKXNoErr);
    ASSERT_EQ(KXEffectsAutoTone(source.get(), black, white, &brightness, &contrast, &shadows, &highlights), kKXNoErr);
    char analysis[512], tone[512];
    std::snprintf(analysis, sizeof analysis, "means: %g %g %g %g\ndeviations: %g %g %g %g\n", means[0], means[1],
                  means[2], means[3], deviations[0], deviations[1], deviations[2], deviations[3]);
    std::snprintf(tone, sizeof tone,
                  "black: %g %g %g\nwhite: %g %g %g\nbrightness: %g\ncontrast: %g\nshadows: %g\nhighlights: %g\n",
                  black[0], black[1], black[2], white[0], white[1], white[2], brightness, contrast, shadows,
                  highlights);
    const std::pair<std::string, std::string> prints[] = {{"analyze-image", analysis}, {"auto-tone", tone}};
    for (const auto& [arguments, text] : prints) {
        const Outcome outcome = RunKxfx(arguments + " " + input + " " + output);
        ASSERT_EQ(outcome.exitCode, 0) << outcome.err;
        EXPECT_EQ(outcome.out, text);
    }
    using Call = std::function<int32_t(KXImage* source, KXImage* destination, const KXRect* rect)>;
    const auto withCurves = [](std::function<int32_t(KXImage*, float*)> make) -> Call {
        return [make](KXImage* s, KXImage* d, const KXRect* r) {
            std::vector<float> curves(3 * 256);
            const int32_t status = make(s, curves.data());
            return status != kKXNoErr ? status : KXEffectsApplyCurves(s, d, r, curves.data());
        };
    };
    const float low[3] = {0.1f, 0.2f, 0.1f}, high[3] = {0.9f, 0.8f, 1.0f};
    const std::pair<std::string, Call> cases[] = {
        {"auto-color", withCurves(KXEffectsAutoColorMakeCurves)},
        {"equalize-curves", withCurves(KXEffectsEqualizeMakeCurves)},
        {"equalize", [](auto s, auto d, auto) { return KXEffectsEqualize(s, d); }},
        {"equalize-luminosity", [](auto s, auto d, auto) { return KXEffectsEqualizeLuminosity(s, d); }},
        {"black-and-white-points-apply --black 0.1,0.2,0.1 --white 0.9,0.8,1",
         [&](auto s, auto d, auto r) { return KXEffectsBlackAndWhitePointsApply(s, d, r, low, high); }},
    };
    for (const auto& [arguments, call] : cases) {
        SCOPED_TRACE(arguments);
        const size_t space = std::min(arguments.find(' '), arguments.size());
        const Outcome outcome =
            RunKxfx(arguments.substr(0, space) + " " + input + " " + output + arguments.substr(space));
        ASSERT_EQ(outcome.exitCode, 0) << outcome.err;
        const ImageHandle expected = ReadImageFile(input);
        ASSERT_EQ(call(source.get(), expected.get(), &bounds), kKXNoErr);
        WriteImageFile(expected.get(), expectedPath);
        ExpectSameMat(cv::imread(expectedPath, cv::IMREAD_UNCHANGED), cv::imread(output, cv::IMREAD_UNCHANGED));
    }
}

} // namespace
