// The image reader on any bytes: a decoded image or an ImageReadError, nothing else, and a decoded image
// whose samples fill its shape exactly.
#include "ImageReader.h"

#include <cstddef>
#include <cstdint>

namespace {

// Enough for the seeds and their mutations; a larger size field is refused before anything is allocated.
constexpr uint64_t kMaxPixels = uint64_t(1) << 20;

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    try {
        const DecodedImage image = DecodeImage({data, size}, kMaxPixels);
        const bool depthKnown = image.depth == 8 || image.depth == 16 || image.depth == 32;
        const uint64_t expected =
            uint64_t(image.width) * uint64_t(image.height) * uint64_t(image.channels) * uint64_t(image.depth / 8);
        if (!depthKnown || image.channels < 1 || image.channels > 4 || image.width < 1 || image.height < 1 ||
            image.samples.size() != expected)
            __builtin_trap();
    } catch (const ImageReadError&) {
        // A refusal is the answer to most inputs.
    }
    return 0;
}
