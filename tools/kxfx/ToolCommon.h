// What every part of kxfx shares: the one-line error and the owned image.
#pragma once

#include "KXCore.h"

#include <memory>
#include <stdexcept>

// A failure to report as one line on standard error; main adds the "kxfx: " prefix.
class ToolError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct ImageReleaser {
    void operator()(KXImage* image) const { KXImageRelease(image); }
};

// Shared so that a parsed setting can hold an image and still be copied with the other values.
using ImageHandle = std::shared_ptr<KXImage>;

// White in the sample scale of a depth, which KXImageFill takes.
inline float WhiteSample(int32_t depth)
{
    return depth == 8 ? 255.0f : depth == 16 ? 65535.0f : 1.0f;
}

inline ImageHandle AdoptImage(KXImage* image)
{
    return ImageHandle(image, ImageReleaser());
}
