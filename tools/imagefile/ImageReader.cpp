// libpng and libjpeg report a fatal error through a callback that must not return, so each reader keeps
// its state in a struct owned by a caller frame and jumps back to a setjmp in a function that holds no
// objects of its own; the struct's destructor frees the library's state on every path. libtiff reports
// through handlers and return values. Warnings are dropped, except libjpeg's, which it gives for corrupt
// data that it would otherwise paper over with gray.
#include "ImageReader.h"

#include <cstdio> // before jpeglib.h, which uses FILE

#include <jpeglib.h>
#include <png.h>
#include <tiffio.h>

#include <algorithm>
#include <bit>
#include <csetjmp>
#include <cstdarg>
#include <cstring>
#include <memory>
#include <string>

namespace {

// A progressive JPEG may hold any number of scans, each a pass over the whole image; real files have tens.
constexpr int kMaxJpegScans = 1000;

std::string Damaged(const char* library, const std::string& message)
{
    return std::string("the file is damaged (") + library + ": " + message + ")";
}

bool StartsWith(std::span<const uint8_t> bytes, std::initializer_list<uint8_t> magic)
{
    return bytes.size() >= magic.size() && std::equal(magic.begin(), magic.end(), bytes.begin());
}

void CheckSize(uint64_t width, uint64_t height, uint64_t maxPixels)
{
    if (width == 0 || height == 0)
        throw ImageReadError("the image is empty");
    if (width > maxPixels || height > maxPixels / width)
        throw ImageReadError("the image is too large (" + std::to_string(width) + " x " + std::to_string(height) +
                             " pixels)");
}

[[noreturn]] void ThrowUnsupportedSamples()
{
    throw ImageReadError("samples are not 8-bit, 16-bit or 32-bit float");
}

void SetShape(DecodedImage& image, uint32_t width, uint32_t height, int32_t channels, int32_t depth)
{
    if (channels > 4)
        throw ImageReadError("more than four channels");
    image.width = int32_t(width);
    image.height = int32_t(height);
    image.channels = channels;
    image.depth = depth;
    image.samples.resize(size_t(width) * height * size_t(channels) * size_t(depth / 8));
}

size_t RowBytes(const DecodedImage& image)
{
    return size_t(image.width) * size_t(image.channels) * size_t(image.depth / 8);
}

// ---- PNG ----

struct PngState {
    std::span<const uint8_t> bytes;
    size_t at = 0;
    std::string message;
    png_structp png = nullptr;
    png_infop info = nullptr;
    ~PngState() { png_destroy_read_struct(&png, info ? &info : nullptr, nullptr); }
};

void PngError(png_structp png, png_const_charp message)
{
    static_cast<PngState*>(png_get_error_ptr(png))->message = message;
    png_longjmp(png, 1);
}

void PngWarning(png_structp, png_const_charp) {}

void PngReadBytes(png_structp png, png_bytep data, size_t length)
{
    PngState& state = *static_cast<PngState*>(png_get_io_ptr(png));
    if (state.bytes.size() - state.at < length)
        png_error(png, "the file ends early");
    std::memcpy(data, state.bytes.data() + state.at, length);
    state.at += length;
}

// Palettes, low bit depths and transparency keys become plain gray, gray and alpha, RGB or RGBA.
void ExpandPng(png_structp png, png_infop info)
{
    const int colorType = png_get_color_type(png, info);
    if (colorType == PNG_COLOR_TYPE_PALETTE)
        png_set_palette_to_rgb(png);
    if (colorType == PNG_COLOR_TYPE_GRAY && png_get_bit_depth(png, info) < 8)
        png_set_expand_gray_1_2_4_to_8(png);
    if (png_get_valid(png, info, PNG_INFO_tRNS))
        png_set_tRNS_to_alpha(png);
    if (png_get_bit_depth(png, info) == 16 && std::endian::native == std::endian::little)
        png_set_swap(png);
    png_set_interlace_handling(png);
    png_read_update_info(png, info);
}

// False when libpng gave up; state.message says why.
bool ReadPngInto(PngState& state, DecodedImage& image, std::vector<png_bytep>& rows, uint64_t maxPixels)
{
    if (setjmp(png_jmpbuf(state.png)))
        return false;
    png_set_read_fn(state.png, &state, PngReadBytes);
    png_read_info(state.png, state.info);
    CheckSize(png_get_image_width(state.png, state.info), png_get_image_height(state.png, state.info), maxPixels);
    ExpandPng(state.png, state.info);
    SetShape(image, png_get_image_width(state.png, state.info), png_get_image_height(state.png, state.info),
             png_get_channels(state.png, state.info), png_get_bit_depth(state.png, state.info));
    if (png_get_rowbytes(state.png, state.info) != RowBytes(image))
        png_error(state.png, "unexpected row size");
    rows.resize(size_t(image.height));
    for (size_t row = 0; row < rows.size(); ++row)
        rows[row] = image.samples.data() + row * RowBytes(image);
    png_read_image(state.png, rows.data());
    png_read_end(state.png, nullptr);
    return true;
}

DecodedImage DecodePng(std::span<const uint8_t> bytes, uint64_t maxPixels)
{
    PngState state;
    state.bytes = bytes;
    state.png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &state, PngError, PngWarning);
    if (state.png)
        state.info = png_create_info_struct(state.png);
    if (!state.info)
        throw std::bad_alloc();
    DecodedImage image;
    std::vector<png_bytep> rows;
    if (!ReadPngInto(state, image, rows, maxPixels))
        throw ImageReadError(Damaged("libpng", state.message));
    return image;
}

// ---- JPEG ----

struct JpegState {
    jpeg_decompress_struct info{};
    jpeg_error_mgr errors{};
    jpeg_progress_mgr progress{};
    std::jmp_buf jump{};
    std::string message;
    bool created = false;
    ~JpegState()
    {
        if (created)
            jpeg_destroy_decompress(&info);
    }
};

[[noreturn]] void FailJpeg(j_common_ptr info, const char* message)
{
    JpegState& state = *static_cast<JpegState*>(info->client_data);
    state.message = message;
    std::longjmp(state.jump, 1);
}

[[noreturn]] void JpegError(j_common_ptr info)
{
    char message[JMSG_LENGTH_MAX];
    info->err->format_message(info, message);
    FailJpeg(info, message);
}

// Level -1 is a warning about corrupt data; higher levels are traces.
void JpegMessage(j_common_ptr info, int level)
{
    if (level < 0)
        JpegError(info);
}

void JpegOutput(j_common_ptr) {}

void JpegProgress(j_common_ptr info)
{
    if (info->is_decompressor && reinterpret_cast<j_decompress_ptr>(info)->input_scan_number > kMaxJpegScans)
        FailJpeg(info, "too many scans");
}

// False when libjpeg gave up; state.message says why.
bool ReadJpegInto(JpegState& state, DecodedImage& image, std::span<const uint8_t> bytes, uint64_t maxPixels)
{
    if (setjmp(state.jump))
        return false;
    jpeg_create_decompress(&state.info);
    state.created = true;
    state.info.progress = &state.progress;
    jpeg_mem_src(&state.info, bytes.data(), static_cast<unsigned long>(bytes.size()));
    jpeg_read_header(&state.info, TRUE);
    CheckSize(state.info.image_width, state.info.image_height, maxPixels);
    const J_COLOR_SPACE space = state.info.jpeg_color_space;
    if (space != JCS_GRAYSCALE && space != JCS_YCbCr && space != JCS_RGB)
        throw ImageReadError("the colours are neither gray nor RGB");
    state.info.out_color_space = space == JCS_GRAYSCALE ? JCS_GRAYSCALE : JCS_RGB;
    jpeg_start_decompress(&state.info);
    SetShape(image, state.info.output_width, state.info.output_height, state.info.output_components, 8);
    while (state.info.output_scanline < state.info.output_height) {
        JSAMPROW row = image.samples.data() + size_t(state.info.output_scanline) * RowBytes(image);
        jpeg_read_scanlines(&state.info, &row, 1);
    }
    jpeg_finish_decompress(&state.info);
    return true;
}

DecodedImage DecodeJpeg(std::span<const uint8_t> bytes, uint64_t maxPixels)
{
    JpegState state;
    state.info.err = jpeg_std_error(&state.errors);
    state.errors.error_exit = JpegError;
    state.errors.emit_message = JpegMessage;
    state.errors.output_message = JpegOutput;
    state.progress.progress_monitor = JpegProgress;
    state.info.client_data = &state;
    DecodedImage image;
    if (!ReadJpegInto(state, image, bytes, maxPixels))
        throw ImageReadError(Damaged("libjpeg", state.message));
    return image;
}

// ---- TIFF ----

struct TiffStream {
    std::span<const uint8_t> bytes;
    uint64_t at = 0;
    std::string message;
};

TiffStream& StreamOf(thandle_t handle)
{
    return *static_cast<TiffStream*>(handle);
}

tmsize_t TiffRead(thandle_t handle, void* data, tmsize_t size)
{
    TiffStream& stream = StreamOf(handle);
    const uint64_t left = stream.at < stream.bytes.size() ? stream.bytes.size() - stream.at : 0;
    const uint64_t count = std::min<uint64_t>(left, uint64_t(std::max<tmsize_t>(size, 0)));
    if (count > 0)
        std::memcpy(data, stream.bytes.data() + stream.at, count);
    stream.at += count;
    return tmsize_t(count);
}

tmsize_t TiffWrite(thandle_t, void*, tmsize_t)
{
    return 0;
}

toff_t TiffSeek(thandle_t handle, toff_t offset, int whence)
{
    TiffStream& stream = StreamOf(handle);
    const uint64_t base = whence == SEEK_CUR ? stream.at : whence == SEEK_END ? stream.bytes.size() : 0;
    if (offset > UINT64_MAX - base)
        return toff_t(-1);
    stream.at = base + offset;
    return stream.at;
}

int TiffClose(thandle_t)
{
    return 0;
}

toff_t TiffSize(thandle_t handle)
{
    return StreamOf(handle).bytes.size();
}

int TiffMap(thandle_t, void**, toff_t*)
{
    return 0;
}

void TiffUnmap(thandle_t, void*, toff_t) {}

// The first error is the one that explains the failure; later ones follow from it.
int TiffError(TIFF*, void* user, const char* module, const char* format, va_list arguments)
{
    TiffStream& stream = *static_cast<TiffStream*>(user);
    if (stream.message.empty()) {
        char text[512];
        std::vsnprintf(text, sizeof text, format, arguments);
        stream.message = module && *module ? std::string(module) + ": " + text : std::string(text);
    }
    return 1;
}

int TiffWarning(TIFF*, void*, const char*, const char*, va_list)
{
    return 1;
}

struct TiffCloser {
    void operator()(TIFF* tiff) const { TIFFClose(tiff); }
};
struct TiffOptionsFreer {
    void operator()(TIFFOpenOptions* options) const { TIFFOpenOptionsFree(options); }
};

struct TiffLayout {
    uint32_t width = 0, height = 0;
    uint16_t bits = 1, channels = 1, format = SAMPLEFORMAT_UINT, planar = PLANARCONFIG_CONTIG;
    uint16_t photometric = PHOTOMETRIC_MINISBLACK;
};

// Samples that go across as they are stored: gray or RGB (with alpha), unsigned 8 or 16 bits or float.
bool IsPlainTiff(const TiffLayout& layout)
{
    const bool gray = layout.photometric == PHOTOMETRIC_MINISBLACK;
    const bool rgb = layout.photometric == PHOTOMETRIC_RGB && layout.channels >= 3;
    const bool integer = (layout.bits == 8 || layout.bits == 16) && layout.format == SAMPLEFORMAT_UINT;
    const bool real = layout.bits == 32 && layout.format == SAMPLEFORMAT_IEEEFP;
    return (gray || rgb) && (integer || real);
}

class TiffReader {
public:
    TiffReader(TIFF* tiff, TiffStream& stream) : m_tiff(tiff), m_stream(stream) {}

    [[noreturn]] void Fail() const
    {
        throw ImageReadError(Damaged("libtiff", m_stream.message.empty() ? "unreadable" : m_stream.message));
    }

    void ReadScanlines(DecodedImage& image, const TiffLayout& layout) const
    {
        const size_t sampleBytes = size_t(layout.bits / 8);
        if (layout.planar == PLANARCONFIG_CONTIG) {
            if (uint64_t(TIFFScanlineSize64(m_tiff)) != RowBytes(image))
                Fail();
            for (uint32_t row = 0; row < layout.height; ++row)
                if (TIFFReadScanline(m_tiff, image.samples.data() + row * RowBytes(image), row, 0) < 0)
                    Fail();
            return;
        }
        std::vector<uint8_t> plane(size_t(layout.width) * sampleBytes);
        if (uint64_t(TIFFScanlineSize64(m_tiff)) != plane.size())
            Fail();
        for (uint16_t channel = 0; channel < layout.channels; ++channel)
            for (uint32_t row = 0; row < layout.height; ++row) {
                if (TIFFReadScanline(m_tiff, plane.data(), row, channel) < 0)
                    Fail();
                uint8_t* out = image.samples.data() + row * RowBytes(image) + channel * sampleBytes;
                for (uint32_t x = 0; x < layout.width; ++x)
                    std::memcpy(out + x * layout.channels * sampleBytes, &plane[x * sampleBytes], sampleBytes);
            }
    }

    void ReadTiles(DecodedImage& image, const TiffLayout& layout) const
    {
        uint32_t tileWidth = 0, tileHeight = 0;
        TIFFGetField(m_tiff, TIFFTAG_TILEWIDTH, &tileWidth);
        TIFFGetField(m_tiff, TIFFTAG_TILELENGTH, &tileHeight);
        const size_t pixelBytes = size_t(layout.channels) * size_t(layout.bits / 8);
        if (layout.planar != PLANARCONFIG_CONTIG || tileWidth == 0 || tileHeight == 0 ||
            uint64_t(TIFFTileSize64(m_tiff)) != uint64_t(tileWidth) * tileHeight * pixelBytes)
            Fail();
        std::vector<uint8_t> tile(size_t(TIFFTileSize64(m_tiff)));
        for (uint32_t top = 0; top < layout.height; top += tileHeight)
            for (uint32_t left = 0; left < layout.width; left += tileWidth) {
                if (TIFFReadTile(m_tiff, tile.data(), left, top, 0, 0) < 0)
                    Fail();
                const uint32_t rows = std::min(tileHeight, layout.height - top);
                const size_t bytes = std::min(tileWidth, layout.width - left) * pixelBytes;
                for (uint32_t y = 0; y < rows; ++y)
                    std::memcpy(image.samples.data() + (top + y) * RowBytes(image) + left * pixelBytes,
                                &tile[y * tileWidth * pixelBytes], bytes);
            }
    }

    // Every other layout that libtiff can render (palettes, bit masks, CMYK, YCbCr) comes as 8-bit RGBA.
    void ReadRendered(DecodedImage& image, const TiffLayout& layout) const
    {
        char reason[1024] = "";
        if (!TIFFRGBAImageOK(m_tiff, reason)) {
            if (layout.bits != 8 && layout.bits != 16 && layout.bits != 32)
                ThrowUnsupportedSamples();
            throw ImageReadError(reason);
        }
        SetShape(image, layout.width, layout.height, 4, 8);
        if (!TIFFReadRGBAImageOriented(m_tiff, layout.width, layout.height,
                                       reinterpret_cast<uint32_t*>(image.samples.data()), ORIENTATION_TOPLEFT, 0))
            Fail();
        // libtiff packs a pixel as A << 24 | B << 16 | G << 8 | R, which is R, G, B, A in memory on a
        // little-endian machine only.
        if constexpr (std::endian::native == std::endian::big)
            for (size_t at = 0; at < image.samples.size(); at += 4)
                std::reverse(image.samples.begin() + at, image.samples.begin() + at + 4);
    }

    DecodedImage Read(uint64_t maxPixels) const
    {
        TiffLayout layout;
        if (!TIFFGetField(m_tiff, TIFFTAG_IMAGEWIDTH, &layout.width) ||
            !TIFFGetField(m_tiff, TIFFTAG_IMAGELENGTH, &layout.height))
            Fail();
        TIFFGetFieldDefaulted(m_tiff, TIFFTAG_BITSPERSAMPLE, &layout.bits);
        TIFFGetFieldDefaulted(m_tiff, TIFFTAG_SAMPLESPERPIXEL, &layout.channels);
        TIFFGetFieldDefaulted(m_tiff, TIFFTAG_SAMPLEFORMAT, &layout.format);
        TIFFGetFieldDefaulted(m_tiff, TIFFTAG_PLANARCONFIG, &layout.planar);
        TIFFGetField(m_tiff, TIFFTAG_PHOTOMETRIC, &layout.photometric);
        CheckSize(layout.width, layout.height, maxPixels);
        DecodedImage image;
        if (!IsPlainTiff(layout)) {
            ReadRendered(image, layout);
            return image;
        }
        SetShape(image, layout.width, layout.height, layout.channels, layout.bits);
        if (TIFFIsTiled(m_tiff))
            ReadTiles(image, layout);
        else
            ReadScanlines(image, layout);
        return image;
    }

private:
    TIFF* m_tiff;
    TiffStream& m_stream;
};

DecodedImage DecodeTiff(std::span<const uint8_t> bytes, uint64_t maxPixels)
{
    TiffStream stream{bytes, 0, {}};
    const std::unique_ptr<TIFFOpenOptions, TiffOptionsFreer> options(TIFFOpenOptionsAlloc());
    TIFFOpenOptionsSetErrorHandlerExtR(options.get(), TiffError, &stream);
    TIFFOpenOptionsSetWarningHandlerExtR(options.get(), TiffWarning, &stream);
    // No single buffer beyond what the largest image allowed needs: a damaged size asks for no more.
    TIFFOpenOptionsSetMaxSingleMemAlloc(options.get(), tmsize_t(std::min<uint64_t>(maxPixels, 1ull << 40) * 16));
    const std::unique_ptr<TIFF, TiffCloser> tiff(TIFFClientOpenExt(
        "image", "rm", &stream, TiffRead, TiffWrite, TiffSeek, TiffClose, TiffSize, TiffMap, TiffUnmap, options.get()));
    const TiffReader reader(tiff.get(), stream);
    if (!tiff)
        reader.Fail();
    return reader.Read(maxPixels);
}

} // namespace

DecodedImage DecodeImage(std::span<const uint8_t> bytes, uint64_t maxPixels)
{
    if (StartsWith(bytes, {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'}))
        return DecodePng(bytes, maxPixels);
    if (StartsWith(bytes, {0xff, 0xd8, 0xff}))
        return DecodeJpeg(bytes, maxPixels);
    if (StartsWith(bytes, {'I', 'I', 42, 0}) || StartsWith(bytes, {'M', 'M', 0, 42}) ||
        StartsWith(bytes, {'I', 'I', 43, 0}) || StartsWith(bytes, {'M', 'M', 0, 43}))
        return DecodeTiff(bytes, maxPixels);
    throw ImageReadError("not a PNG, TIFF or JPEG file");
}
