// Image files in through libpng, libtiff and libjpeg, out through OpenCV's codecs.
#pragma once

#include "ToolCommon.h"

#include <string>

// Turns off OpenCV's own log, whose warnings would add lines to kxfx's one-line failures.
void QuietImageCodecs();

// Reads a PNG, TIFF or JPEG file of 8-bit, 16-bit or 32-bit float samples (gray, gray with alpha, RGB or
// RGBA) into a new in-memory image with bounds at (0, 0). A depth of 8, 16 or 32 converts the samples to
// it, white staying white; 0 keeps the depth of the file. A damaged file fails with one line that says
// what the codec library found.
ImageHandle ReadImageFile(const std::string& path, int32_t depth = 0);

// A copy of the image at width x height, resampled by pixel area, with bounds at (0, 0).
ImageHandle ResizeImage(KXImage* image, int32_t width, int32_t height);

// Fails unless the name ends in an extension that kxfx writes: .png, .tif, .tiff, .jpg or .jpeg.
void CheckOutputName(const std::string& path);

// Writes the image in the format of the extension. TIFF keeps every depth, PNG holds 8 and 16 bits (float
// becomes 16-bit), JPEG 8 bits; converted samples are rounded, float clamped to 0..1. Gray with alpha is
// written as RGBA. The file appears only when complete.
void WriteImageFile(KXImage* image, const std::string& path);
