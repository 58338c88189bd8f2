#include "PythonSettings.h"

#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include <algorithm>

namespace py = pybind11;

namespace {

// A decimal as a Python float literal: "0" becomes "0.0".
std::string FloatLiteral(std::string_view text)
{
    return std::string(text) + (text.find_first_of(".e") == std::string_view::npos ? ".0" : "");
}

// "1,0,0" as "(1.0, 0.0, 0.0)"; integers stay integers for a point.
std::string TupleLiteral(std::string_view text, bool floats)
{
    std::string tuple = "(";
    for (size_t start = 0;;) {
        const size_t end = std::min(text.find(',', start), text.size());
        const std::string_view field = text.substr(start, end - start);
        tuple += floats ? FloatLiteral(field) : std::string(field);
        if (end == text.size())
            return tuple + ")";
        tuple += ", ";
        start = end + 1;
    }
}

std::vector<float> Numbers(const py::handle& value, size_t count, const std::string& name)
{
    const auto numbers = value.cast<std::vector<float>>();
    if (numbers.size() != count)
        throw py::value_error(name + ": give " + std::to_string(count) + " numbers, not " +
                              std::to_string(numbers.size()));
    return numbers;
}

int32_t Integer(const py::handle& value, const ArgSpec& arg, const std::string& name)
{
    const auto number = value.cast<int64_t>();
    if (float(number) < arg.low || float(number) > arg.high)
        throw py::value_error(name + ": " + std::to_string(number) + " is outside " + std::to_string(int32_t(arg.low)) +
                              ".." + std::to_string(int32_t(arg.high)));
    return int32_t(number);
}

// A table of 256 values a channel, a channel for every colour plane; one channel serves them all.
std::vector<float> CurveTable(const py::handle& value, int32_t colourPlanes, const std::string& name)
{
    const auto array = py::array_t<float, py::array::c_style | py::array::forcecast>::ensure(value);
    if (!array)
        throw py::type_error(name + ": give a curve as text or as numbers");
    std::vector<float> table(array.data(), array.data() + array.size());
    const size_t channels = size_t(std::max(colourPlanes, 1));
    if (table.size() == 256)
        for (size_t channel = 1; channel < channels; ++channel)
            table.insert(table.end(), array.data(), array.data() + 256);
    if (table.size() % 256 != 0 || table.size() < channels * 256)
        throw py::value_error(name + ": give 256 values, or 256 for each of the " + std::to_string(channels) +
                              " colour planes, not " + std::to_string(array.size()));
    return table;
}

// Text settings go through the parsers of kxfx; their failures name the setting as kxfx does.
void ParseText(EffectCall& call, size_t index, const py::handle& value, const std::string& name)
{
    try {
        call.Values().Parse(index, value.cast<std::string>(), call.ColourPlanes());
    } catch (const ToolError& error) {
        const std::string message = error.what();
        const size_t colon = message.find(": ");
        throw py::value_error(name + ": " + (colon == std::string::npos ? message : message.substr(colon + 2)));
    }
}

void SetValue(EffectCall& call, size_t index, const py::handle& value, const std::string& name,
              std::deque<std::vector<float>>& arrays)
{
    const ArgSpec& arg = call.Entry().args[index];
    CallValues& values = call.Values();
    switch (arg.kind) {
    case ArgKind::Float:
        return values.Set(index, value.cast<float>());
    case ArgKind::Integer:
        return values.Set(index, Integer(value, arg, name));
    case ArgKind::Bool:
        return values.Set(index, value.cast<bool>());
    case ArgKind::Mode:
        return ParseText(call, index, value, name);
    case ArgKind::Colour:
    case ArgKind::Floats:
        return values.Set(index,
                          static_cast<const float*>(arrays.emplace_back(Numbers(value, arg.count, name)).data()));
    case ArgKind::Curves:
        if (py::isinstance<py::str>(value))
            return ParseText(call, index, value, name);
        return values.Set(index, static_cast<const float*>(
                                     arrays.emplace_back(CurveTable(value, call.ColourPlanes(), name)).data()));
    case ArgKind::Point: {
        const auto [x, y] = value.cast<std::pair<int32_t, int32_t>>();
        return values.Set(index, KXPointMake(x, y));
    }
    case ArgKind::FloatPoint: {
        const auto [x, y] = value.cast<std::pair<float, float>>();
        return values.Set(index, KXEffectsFloatPoint{x, y});
    }
    default:
        throw py::type_error(name + " is not a setting");
    }
}

} // namespace

std::string PythonForm(const ArgSpec& arg)
{
    const std::string orNone = arg.IsOptional() ? " or None" : "";
    switch (arg.kind) {
    case ArgKind::Float:
        return "float";
    case ArgKind::Integer:
        return "int " + std::to_string(int32_t(arg.low)) + ".." + std::to_string(int32_t(arg.high));
    case ArgKind::Bool:
        return "bool";
    case ArgKind::Mode:
        return "blend mode, str of up to four characters";
    case ArgKind::Colour:
        return "(r, g, b)" + orNone;
    case ArgKind::Floats:
        return std::to_string(arg.count) + " floats";
    case ArgKind::Curves:
        return "'x,y;x,y;...' points, 'identity', or 256 floats a channel" + orNone;
    case ArgKind::Point:
        return "(x, y) ints";
    case ArgKind::FloatPoint:
        return "(x, y)";
    default:
        return "array" + orNone;
    }
}

std::string PythonDefault(const ArgSpec& arg)
{
    const std::string_view neutral = arg.neutral;
    if (neutral.empty())
        return "None";
    switch (arg.kind) {
    case ArgKind::Float:
        return FloatLiteral(neutral);
    case ArgKind::Bool:
        return ParseBool(neutral) ? "True" : "False";
    case ArgKind::Mode:
    case ArgKind::Curves:
        return "'" + std::string(neutral) + "'";
    case ArgKind::Colour:
    case ArgKind::Floats:
    case ArgKind::FloatPoint:
        return TupleLiteral(neutral, true);
    case ArgKind::Point:
        return TupleLiteral(neutral, false);
    default:
        return std::string(neutral);
    }
}

void SetSetting(EffectCall& call, size_t index, const py::handle& value, const std::string& name,
                std::deque<std::vector<float>>& arrays)
{
    const ArgSpec& arg = call.Entry().args[index];
    if (value.is_none() && arg.IsOptional()) {
        call.Values().Parse(index, "", call.ColourPlanes());
        return;
    }
    try {
        SetValue(call, index, value, name, arrays);
    } catch (const py::cast_error&) {
        throw py::type_error(name + ": give " + PythonForm(arg) + ", not " +
                             std::string(py::str(py::type::handle_of(value).attr("__name__"))));
    }
}
