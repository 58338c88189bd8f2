#include "EffectFunction.h"

#include "ArrayImages.h"
#include "PythonSettings.h"
#include "Status.h"

#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <cctype>

namespace py = pybind11;

namespace {

py::handle gErrorType;

constexpr const char* kImageForm = "array of uint8, uint16 or float32 samples, H x W, H x W x 3 or H x W x 4";

// "low-pass" is low_pass, "LOWER" lower.
std::string SnakeCase(std::string_view name)
{
    std::string snake(name);
    std::transform(snake.begin(), snake.end(), snake.begin(),
                   [](unsigned char c) { return c == '-' ? '_' : char(std::tolower(c)); });
    return snake;
}

// The source is "image", a list of masks "masks".
std::string PythonName(const ArgSpec& arg)
{
    if ((arg.kind == ArgKind::Source || arg.kind == ArgKind::InPlace) && std::string_view(arg.name) == "INPUT")
        return "image";
    return SnakeCase(arg.name) + (arg.kind == ArgKind::Masks ? "s" : "");
}

bool MakesImage(const EffectEntry& entry)
{
    return entry.Has(ArgKind::Destination) || entry.Has(ArgKind::MaskDestination) || entry.Has(ArgKind::InPlace) ||
           entry.Has(ArgKind::OutImage);
}

[[noreturn]] void RaiseStatus(const std::string& function, int32_t status)
{
    const py::object error = py::reinterpret_borrow<py::object>(gErrorType)(
        function + "() failed with status " + std::to_string(status) + " (" + StatusWords(status) + ")");
    error.attr("status") = status;
    PyErr_SetObject(gErrorType.ptr(), error.ptr());
    throw py::error_already_set();
}

// An input array as an image of the first input's sample type; masks have one plane.
ImageHandle InputImage(const py::handle& value, const std::string& name, bool mask, KXImage* first)
{
    const py::array array = ImageArray(value, name);
    if (mask && array.ndim() != 2)
        throw py::value_error(name + ": give a mask as an H x W array");
    ImageHandle image = ImageFromArray(array);
    if (first && KXImageGetDepth(image.get()) != KXImageGetDepth(first))
        throw py::type_error(name + ": give samples of the type of the first image");
    return image;
}

KXRect RectOf(const py::object& rect, KXImage* first)
{
    if (!rect || rect.is_none())
        return KXImageGetBounds(first);
    try {
        const auto [x, y, width, height] = rect.cast<std::tuple<int32_t, int32_t, int32_t, int32_t>>();
        if (width >= 0 && height >= 0)
            return KXRectMake(x, y, width, height);
    } catch (const py::cast_error&) {
        // Said below.
    }
    throw py::value_error("rect: give (x, y, width, height), four ints with width and height not below 0");
}

py::object OutArray(const py::object& out)
{
    if (!out || out.is_none())
        return py::object();
    if (!py::isinstance<py::array>(out))
        throw py::type_error("out: give a numpy array");
    return out;
}

// Each output by its name: one number as a float, several as a tuple (one for a gray image where RGB has
// three), a curve table as an array of a row per colour plane, a rectangle as (x, y, width, height).
py::dict Numbers(EffectCall& call)
{
    py::dict numbers;
    const EffectEntry& entry = call.Entry();
    for (size_t index = 0; index < entry.argCount; ++index) {
        const ArgSpec& arg = entry.args[index];
        const py::str name(PythonName(arg));
        if (arg.kind == ArgKind::OutRect) {
            const KXRect& rect = call.Values().FoundRect();
            numbers[name] = py::make_tuple(rect.x, rect.y, rect.width, rect.height);
            continue;
        }
        if (arg.kind != ArgKind::Out)
            continue;
        const std::vector<float>& values = call.Values().OutputValues(index);
        const int32_t planes = call.ColourPlanes();
        if (arg.count == 0)
            numbers[name] = py::array_t<float>({py::ssize_t(planes), py::ssize_t(256)}, values.data());
        else if (arg.count == 1)
            numbers[name] = values[0];
        else
            numbers[name] = py::tuple(py::cast(
                std::vector<float>(values.begin(), values.begin() + (planes == 1 && arg.count == 3 ? 1 : arg.count))));
    }
    return numbers;
}

py::object Results(EffectCall& call, py::object out)
{
    std::vector<py::object> results;
    if (call.Result() && out) {
        py::array array = out;
        CopyImageInto(call.Result(), array);
        results.push_back(array);
    } else if (call.Result()) {
        results.push_back(ArrayFromImage(call.Result()));
    }
    if (call.ExtraResult())
        results.push_back(ArrayFromImage(call.ExtraResult()));
    if (py::dict numbers = Numbers(call); !numbers.empty())
        results.push_back(numbers);
    return results.size() == 1 ? results.front() : py::tuple(py::cast(results));
}

} // namespace

void EffectFunction::SetErrorType(py::handle type)
{
    gErrorType = type;
}

// Required inputs first, positional or by name; then, by name only, optional inputs and settings.
EffectFunction::EffectFunction(const EffectEntry& entry)
    : m_entry(entry), m_name(SnakeCase(entry.cliName)), m_takesRect(entry.Has(ArgKind::Rect)),
      m_makesImage(MakesImage(entry))
{
    for (const ArgSpec& arg : entry.Args())
        if (IsImageInput(arg) && !arg.IsOptional())
            m_parameters.push_back({size_t(&arg - entry.args.data()), PythonName(arg), Role::Input});
    m_positional = m_parameters.size();
    for (const ArgSpec& arg : entry.Args()) {
        const size_t index = size_t(&arg - entry.args.data());
        if (IsImageInput(arg) && arg.IsOptional())
            m_parameters.push_back({index, PythonName(arg), Role::OptionalInput});
        else if (IsValueSetting(arg))
            m_parameters.push_back({index, PythonName(arg), Role::Setting});
    }
}

py::object* EffectFunction::Slot(Bound& bound, const std::string& name) const
{
    if (name == "rect" && m_takesRect)
        return &bound.rect;
    if (name == "out" && m_makesImage)
        return &bound.out;
    for (size_t i = 0; i < m_parameters.size(); ++i)
        if (m_parameters[i].name == name)
            return &bound.values[i];
    return nullptr;
}

EffectFunction::Bound EffectFunction::Bind(const py::args& args, const py::kwargs& kwargs) const
{
    Bound bound{std::vector<py::object>(m_parameters.size()), {}, {}};
    if (args.size() > m_positional)
        throw py::type_error(m_name + "() takes " + std::to_string(m_positional) + " positional argument" +
                             (m_positional == 1 ? "" : "s") + " but " + std::to_string(args.size()) + " were given");
    for (size_t i = 0; i < args.size(); ++i)
        bound.values[i] = args[i];
    for (const auto& [key, value] : kwargs) {
        const std::string name = py::str(key);
        py::object* slot = Slot(bound, name);
        if (!slot)
            throw py::type_error(m_name + "() got an unexpected keyword argument '" + name + "'");
        if (*slot)
            throw py::type_error(m_name + "() got multiple values for argument '" + name + "'");
        *slot = py::reinterpret_borrow<py::object>(value);
    }
    for (size_t i = 0; i < m_positional; ++i)
        if (!bound.values[i] || bound.values[i].is_none())
            throw py::type_error(m_name + "() missing required argument '" + m_parameters[i].name + "'");
    return bound;
}

void EffectFunction::SetInput(EffectCall& call, const Parameter& parameter, const py::object& value) const
{
    const ArgSpec& arg = m_entry.args[parameter.index];
    if (!value || value.is_none())
        return call.SetInput(parameter.index, nullptr);
    if (arg.kind != ArgKind::Masks)
        return call.SetInput(parameter.index,
                             InputImage(value, parameter.name, arg.kind == ArgKind::Mask, call.FirstInput()));
    if (py::isinstance<py::array>(value))
        throw py::type_error(parameter.name + ": give a list of masks");
    std::vector<ImageHandle> masks;
    for (const py::handle item : value)
        masks.push_back(InputImage(item, parameter.name, true, masks.empty() ? nullptr : masks.front().get()));
    if (masks.empty())
        throw py::value_error(parameter.name + ": give one mask or more");
    call.SetMasks(parameter.index, std::move(masks));
}

// After the inputs, whose colour planes the curves need; settings not given take their neutral values.
void EffectFunction::SetSettings(EffectCall& call, const Bound& bound, std::deque<std::vector<float>>& arrays) const
{
    for (size_t i = 0; i < m_parameters.size(); ++i) {
        const Parameter& parameter = m_parameters[i];
        if (parameter.role != Role::Setting)
            continue;
        if (bound.values[i])
            SetSetting(call, parameter.index, bound.values[i], parameter.name, arrays);
        else
            call.Values().Parse(parameter.index, m_entry.args[parameter.index].neutral, call.ColourPlanes());
    }
}

py::object EffectFunction::Call(const py::args& args, const py::kwargs& kwargs) const
{
    const Bound bound = Bind(args, kwargs);
    EffectCall call(m_entry);
    for (size_t i = 0; i < m_parameters.size(); ++i)
        if (m_parameters[i].role != Role::Setting)
            SetInput(call, m_parameters[i], bound.values[i]);
    std::deque<std::vector<float>> arrays;
    SetSettings(call, bound, arrays);
    const KXRect rect = RectOf(bound.rect, call.FirstInput());
    const py::object out = OutArray(bound.out);
    int32_t status = kKXNoErr;
    {
        // Making the destinations copies the input: that too runs beside other threads.
        const py::gil_scoped_release release;
        call.Prepare(rect);
        status = call.Invoke();
    }
    if (status != kKXNoErr)
        RaiseStatus(m_name, status);
    return Results(call, out);
}

std::string EffectFunction::Signature() const
{
    std::vector<std::string> parts;
    for (size_t i = 0; i < m_parameters.size(); ++i) {
        const Parameter& parameter = m_parameters[i];
        if (i == m_positional)
            parts.push_back("*");
        if (parameter.role == Role::Input)
            parts.push_back(parameter.name);
        else if (parameter.role == Role::OptionalInput)
            parts.push_back(parameter.name + "=None");
        else
            parts.push_back(parameter.name + "=" + PythonDefault(m_entry.args[parameter.index]));
    }
    if (m_positional == m_parameters.size() && (m_takesRect || m_makesImage))
        parts.push_back("*");
    if (m_takesRect)
        parts.push_back("rect=None");
    if (m_makesImage)
        parts.push_back("out=None");
    std::string signature = m_name + "(";
    for (size_t i = 0; i < parts.size(); ++i)
        signature += (i == 0 ? "" : ", ") + parts[i];
    return signature + ")";
}

std::string EffectFunction::ReturnsDoc() const
{
    std::vector<std::string> returned;
    const auto args = m_entry.Args();
    const auto mask =
        std::find_if(args.begin(), args.end(), [](const ArgSpec& arg) { return arg.kind == ArgKind::MaskDestination; });
    if (mask != args.end() && *mask->help)
        returned.push_back(std::string("a new H x W array of image's sample type, ") + mask->help);
    else if (mask != args.end())
        returned.push_back("a new H x W array of image's sample type: white, multiplied by the selection in rect");
    else if (m_entry.Has(ArgKind::OutImage))
        returned.push_back("a new array");
    else if (m_makesImage)
        returned.push_back("a new array like image: the result in rect, image elsewhere");
    for (const ArgSpec& arg : m_entry.Args())
        if (arg.kind == ArgKind::ExtraDestination)
            returned.push_back("a second array like image, " + SnakeCase(arg.name) + ": " + arg.help);
    if (m_entry.Has(ArgKind::Out) || m_entry.Has(ArgKind::OutRect))
        returned.push_back("a dict of the numbers it finds, by name");
    std::string text = "Returns ";
    for (size_t i = 0; i < returned.size(); ++i)
        text += (i == 0 ? "" : ", then ") + returned[i];
    return text + (returned.size() > 1 ? ", in a tuple.\n" : ".\n");
}

std::string EffectFunction::ParameterDoc(const Parameter& parameter) const
{
    const ArgSpec& arg = m_entry.args[parameter.index];
    std::string form;
    if (parameter.role == Role::Setting)
        form = PythonForm(arg);
    else if (arg.kind == ArgKind::Masks)
        form = "list of H x W arrays of one sample type";
    else if (&parameter == &m_parameters.front())
        form = kImageForm;
    else
        form = std::string(arg.kind == ArgKind::Mask ? "H x W array" : "array") + " of image's sample type";
    return parameter.name + ": " + form + (*arg.help ? "; " + std::string(arg.help) : "") + "\n";
}

std::string EffectFunction::Doc() const
{
    std::string summary = m_entry.summary;
    summary[0] = char(std::toupper(static_cast<unsigned char>(summary[0])));
    std::string doc = Signature() + "\n--\n\n" + summary + " (" + m_entry.cName + ").\n\n";
    for (const Parameter& parameter : m_parameters)
        doc += ParameterDoc(parameter);
    if (m_takesRect)
        doc += "rect: (x, y, width, height) to work on, which may reach beyond the image; None is all of it\n";
    if (m_makesImage)
        doc += "out: an array of the result's shape and sample type, written and returned in place of a new one\n";
    return doc + "\n" + ReturnsDoc() + "Raises kxeffects.Error, with .status, when the library fails.\n";
}
