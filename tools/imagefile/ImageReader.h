// Decodes PNG, TIFF and JPEG files held in memory through libpng, libtiff and libjpeg. The libraries print
// nothing: whatever they report about a damaged file becomes the one message of the error thrown.
#pragma once

#include <cstdint>
#include <span>
#include <stdexcept>
#include <vector>

// The reason a file cannot be read, as the end of a sentence: "the file is damaged (libpng: ...)".
class ImageReadError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Interleaved samples, rows from the top, red first, in the machine's byte order: 8 and 16-bit unsigned,
// 32-bit float.
struct DecodedImage {
    int32_t width = 0;
    int32_t height = 0;
    int32_t channels = 0; // 1 gray, 2 gray and alpha, 3 RGB, 4 RGBA
    int32_t depth = 0;    // 8, 16 or 32
    std::vector<uint8_t> samples;
};

// The format is told by the first bytes, not by a name. Images of more than maxPixels are refused before
// their samples are allocated. Throws ImageReadError.
DecodedImage DecodeImage(std::span<const uint8_t> bytes, uint64_t maxPixels);
