// Files are read through the codec libraries directly (ImageReader) and written through OpenCV, which holds
// colour as BGR(A) and names depths by its own constants; the images hold RGB(A) and depth 8, 16 or 32.
#include "ImageFile.h"

#include "ImageReader.h"
#include "Status.h"

#include <opencv2/core.hpp>
#include <opencv2/core/utils/logger.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <vector>

namespace {

struct OutputFormat {
    const char* extension;
    int32_t deepest;
    bool tiff;
};

constexpr OutputFormat kOutputFormats[] = {
    {".png", 16, false}, {".tif", 32, true}, {".tiff", 32, true}, {".jpg", 8, false}, {".jpeg", 8, false}};

// OpenCV writes three-channel float TIFF in the lossy LogLuv encoding unless told otherwise; LZW keeps
// every sample.
constexpr int kTiffCompressionLzw = 5;

std::string Quoted(const std::string& path)
{
    return "'" + path + "'";
}

const OutputFormat& OutputFormatOf(const std::string& path)
{
    const size_t dot = path.find_last_of("./");
    std::string extension = dot == std::string::npos || path[dot] == '/' ? "" : path.substr(dot);
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return char(std::tolower(c)); });
    for (const OutputFormat& format : kOutputFormats)
        if (extension == format.extension)
            return format;
    throw ToolError("cannot write " + Quoted(path) + ": the name must end in .png, .tif, .tiff, .jpg or .jpeg");
}

int MatDepthOf(int32_t depth)
{
    return depth == 8 ? CV_8U : depth == 16 ? CV_16U : CV_32F;
}

double WhiteOf(int32_t depth)
{
    return depth == 8 ? 255.0 : depth == 16 ? 65535.0 : 1.0;
}

// convertTo rounds and saturates, which clamps float to 0..1 on the way to an integer depth.
cv::Mat ConvertDepth(const cv::Mat& mat, int32_t from, int32_t to)
{
    if (from == to)
        return mat;
    cv::Mat converted;
    mat.convertTo(converted, MatDepthOf(to), WhiteOf(to) / WhiteOf(from));
    return converted;
}

cv::Mat SwapRedBlue(const cv::Mat& mat)
{
    if (mat.channels() < 3)
        return mat;
    cv::Mat swapped(mat.size(), mat.type());
    const int pairs[] = {0, 2, 1, 1, 2, 0, 3, 3};
    cv::mixChannels(&mat, 1, &swapped, 1, pairs, size_t(mat.channels()));
    return swapped;
}

// OpenCV's writers take two channels for something else; gray with alpha goes out as RGBA.
cv::Mat ExpandGrayAlpha(const cv::Mat& mat)
{
    if (mat.channels() != 2)
        return mat;
    cv::Mat expanded(mat.size(), CV_MAKETYPE(mat.depth(), 4));
    const int pairs[] = {0, 0, 0, 1, 0, 2, 1, 3};
    cv::mixChannels(&mat, 1, &expanded, 1, pairs, 4);
    return expanded;
}

ImageHandle ImageFromMat(const cv::Mat& mat, int32_t depth)
{
    const int32_t planes = mat.channels();
    const int32_t transparency = planes == 2 || planes == 4 ? 1 : 0;
    const int32_t colorSpace = planes <= 2 ? KXColorSpaceGray : KXColorSpaceRGB;
    const KXRect bounds = KXRectMake(0, 0, mat.cols, mat.rows);
    KXImage* image = nullptr;
    CheckCoreStatus(KXImageCreateWithParams2(&bounds, depth, planes, colorSpace, transparency, KXDataSourceMemory,
                                             &image),
                    "cannot make an image of " + std::to_string(mat.cols) + "x" + std::to_string(mat.rows));
    ImageHandle handle = AdoptImage(image);
    CheckCoreStatus(KXImageWrite2(image, &bounds, 0, -1, mat.data, int32_t(mat.step[0]), 0), "cannot fill an image");
    return handle;
}

cv::Mat MatFromImage(KXImage* image)
{
    const KXRect bounds = KXImageGetBounds(image);
    const int type = CV_MAKETYPE(MatDepthOf(KXImageGetDepth(image)), KXImageGetNumPlanes(image));
    cv::Mat mat(bounds.height, bounds.width, type);
    CheckCoreStatus(KXImageRead2(image, &bounds, 0, -1, mat.data, int32_t(mat.step[0]), 0), "cannot read the result");
    return mat;
}

// As many pixels as the largest photographs have, with room: a damaged size field asks for no more.
constexpr uint64_t kMaxReadPixels = uint64_t(1) << 28;

std::vector<uint8_t> ReadWholeFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw ToolError("cannot read " + Quoted(path) + ": " + std::strerror(errno));
    std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    if (file.bad())
        throw ToolError("cannot read " + Quoted(path) + ": " + std::strerror(errno));
    return bytes;
}

// Writes beside the target and renames, so that a failed write leaves no partial file behind.
void WriteWholeFile(const std::string& path, const std::vector<uchar>& bytes)
{
    const std::string partial = path + ".partial";
    std::FILE* file = std::fopen(partial.c_str(), "wb");
    if (!file)
        throw ToolError("cannot write " + Quoted(path) + ": " + std::strerror(errno));
    const bool written = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    const bool closed = std::fclose(file) == 0;
    if (!written || !closed || std::rename(partial.c_str(), path.c_str()) != 0) {
        const int error = errno;
        std::remove(partial.c_str());
        throw ToolError("cannot write " + Quoted(path) + ": " + std::strerror(error));
    }
}

} // namespace

void QuietImageCodecs()
{
    cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_SILENT);
}

ImageHandle ReadImageFile(const std::string& path, int32_t depth)
{
    const std::vector<uint8_t> bytes = ReadWholeFile(path);
    DecodedImage decoded;
    try {
        decoded = DecodeImage(bytes, kMaxReadPixels);
    } catch (const ImageReadError& error) {
        throw ToolError("cannot read " + Quoted(path) + ": " + error.what());
    }
    const cv::Mat mat(decoded.height, decoded.width, CV_MAKETYPE(MatDepthOf(decoded.depth), decoded.channels),
                      decoded.samples.data());
    const int32_t target = depth != 0 ? depth : decoded.depth;
    return ImageFromMat(ConvertDepth(mat, decoded.depth, target), target);
}

ImageHandle ResizeImage(KXImage* image, int32_t width, int32_t height)
{
    cv::Mat resized;
    cv::resize(MatFromImage(image), resized, cv::Size(width, height), 0.0, 0.0, cv::INTER_AREA);
    return ImageFromMat(resized, KXImageGetDepth(image));
}

void CheckOutputName(const std::string& path)
{
    OutputFormatOf(path);
}

void WriteImageFile(KXImage* image, const std::string& path)
{
    const OutputFormat& format = OutputFormatOf(path);
    const int32_t depth = KXImageGetDepth(image);
    const int32_t target = std::min(depth, format.deepest);
    const cv::Mat mat = ExpandGrayAlpha(SwapRedBlue(ConvertDepth(MatFromImage(image), depth, target)));
    std::vector<uchar> bytes;
    bool encoded = false;
    try {
        const std::vector<int> parameters = {cv::IMWRITE_TIFF_COMPRESSION, kTiffCompressionLzw};
        encoded = cv::imencode(format.extension, mat, bytes, format.tiff ? parameters : std::vector<int>());
    } catch (const cv::Exception&) {
        // Reported below with the name of the file.
    }
    if (!encoded)
        throw ToolError("cannot encode " + Quoted(path) + " as " + (format.extension + 1));
    WriteWholeFile(path, bytes);
}
