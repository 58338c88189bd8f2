// numpy arrays as images of the core and back. Samples are uint8, uint16 or float32 (depths 8, 16, 32);
// H x W is gray, H x W x 3 RGB and H x W x 4 RGB with alpha.
#pragma once

#include "ToolCommon.h"

#include <pybind11/numpy.h>

#include <string>

// A C-contiguous copy of value as an array, checked for a sample type and shape that an image can take;
// name says which argument in a failure (TypeError, ValueError).
pybind11::array ImageArray(const pybind11::handle& value, const std::string& name);

// A new in-memory image holding the samples of an array that ImageArray gave.
ImageHandle ImageFromArray(const pybind11::array& array);

// A new array of the image's samples.
pybind11::array ArrayFromImage(KXImage* image);

// Copies the image's samples into out, which must be a writeable C-contiguous array of the image's shape and
// sample type (ValueError, TypeError otherwise).
void CopyImageInto(KXImage* image, pybind11::array& out);
