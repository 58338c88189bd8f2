#include "ArrayImages.h"

#include "Status.h"

#include <pybind11/stl.h>

#include <limits>

namespace py = pybind11;

namespace {

int32_t DepthOf(const py::array& array)
{
    if (py::isinstance<py::array_t<uint8_t>>(array))
        return 8;
    if (py::isinstance<py::array_t<uint16_t>>(array))
        return 16;
    if (py::isinstance<py::array_t<float>>(array))
        return 32;
    return 0;
}

py::dtype DtypeOf(int32_t depth)
{
    return depth == 8 ? py::dtype::of<uint8_t>() : depth == 16 ? py::dtype::of<uint16_t>() : py::dtype::of<float>();
}

int32_t PlanesOf(const py::array& array)
{
    return array.ndim() == 2 ? 1 : int32_t(array.shape(2));
}

std::string ShapeText(const py::array& array)
{
    return py::str(py::tuple(py::cast(std::vector<py::ssize_t>(array.shape(), array.shape() + array.ndim()))));
}

// The shape of the array that holds the image: one plane drops the third axis.
std::vector<py::ssize_t> ShapeOf(KXImage* image)
{
    std::vector<py::ssize_t> shape = {KXImageGetHeight(image), KXImageGetWidth(image)};
    if (KXImageGetNumPlanes(image) > 1)
        shape.push_back(KXImageGetNumPlanes(image));
    return shape;
}

void CheckOutFor(KXImage* image, const py::array& out)
{
    const std::vector<py::ssize_t> shape = ShapeOf(image);
    if (DepthOf(out) != KXImageGetDepth(image))
        throw py::type_error("out: the result is " + std::string(py::str(DtypeOf(KXImageGetDepth(image)))) + ", not " +
                             std::string(py::str(out.dtype())));
    if (std::vector<py::ssize_t>(out.shape(), out.shape() + out.ndim()) != shape)
        throw py::value_error("out: the result has shape " + std::string(py::str(py::tuple(py::cast(shape)))) +
                              ", not " + ShapeText(out));
    if (!(out.flags() & py::array::c_style) || !out.writeable())
        throw py::value_error("out: give a writeable C-contiguous array");
}

} // namespace

py::array ImageArray(const py::handle& value, const std::string& name)
{
    const py::array array = py::array::ensure(value, py::array::c_style);
    if (!array)
        throw py::type_error(name + ": give a numpy array");
    if (DepthOf(array) == 0)
        throw py::type_error(name + ": samples must be uint8, uint16 or float32, not " +
                             std::string(py::str(array.dtype())));
    const bool shaped = array.ndim() == 2 || (array.ndim() == 3 && (array.shape(2) == 3 || array.shape(2) == 4));
    if (!shaped)
        throw py::value_error(name + ": give an H x W, H x W x 3 or H x W x 4 array, not one of shape " +
                              ShapeText(array));
    constexpr py::ssize_t kLargest = std::numeric_limits<int32_t>::max() / 16;
    if (array.shape(0) == 0 || array.shape(1) == 0 || array.shape(0) > kLargest || array.shape(1) > kLargest)
        throw py::value_error(name + ": an image of shape " + ShapeText(array) + " is empty or too large");
    return array;
}

ImageHandle ImageFromArray(const py::array& array)
{
    const int32_t planes = PlanesOf(array);
    const KXRect bounds = KXRectMake(0, 0, int32_t(array.shape(1)), int32_t(array.shape(0)));
    KXImage* image = nullptr;
    CheckCoreStatus(KXImageCreateWithParams2(&bounds, DepthOf(array), planes,
                                             planes >= 3 ? KXColorSpaceRGB : KXColorSpaceGray, planes == 4 ? 1 : 0,
                                             KXDataSourceMemory, &image),
                    "cannot make an image");
    ImageHandle handle = AdoptImage(image);
    CheckCoreStatus(KXImageWrite2(image, &bounds, 0, -1, array.data(), -1, 0), "cannot fill an image");
    return handle;
}

py::array ArrayFromImage(KXImage* image)
{
    py::array array(DtypeOf(KXImageGetDepth(image)), ShapeOf(image));
    CopyImageInto(image, array);
    return array;
}

void CopyImageInto(KXImage* image, py::array& out)
{
    CheckOutFor(image, out);
    const KXRect bounds = KXImageGetBounds(image);
    CheckCoreStatus(KXImageRead2(image, &bounds, 0, -1, out.mutable_data(), -1, 0), "cannot read the result");
}
