// Parsers of the setting kinds. Each takes the whole text or fails: "1.5x" is not a number.
#include "Settings.h"

#include "KXEffects.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <fstream>
#include <iterator>

namespace {

std::string Quoted(std::string_view text)
{
    return "'" + std::string(text) + "'";
}

std::vector<std::string_view> Split(std::string_view text, char separator)
{
    std::vector<std::string_view> parts;
    size_t start = 0;
    for (size_t end = text.find(separator); end != std::string_view::npos; end = text.find(separator, start)) {
        parts.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    parts.push_back(text.substr(start));
    return parts;
}

// Splits text at commas into exactly count parts, or fails naming the expected form.
std::vector<std::string_view> SplitFields(std::string_view text, size_t count, const char* form)
{
    std::vector<std::string_view> parts = Split(text, ',');
    if (parts.size() != count)
        throw ToolError(Quoted(text) + " is not of the form " + form);
    return parts;
}

template <class Number> bool ParseWhole(std::string_view text, Number& value)
{
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    return error == std::errc() && stop == end;
}

// Numbers separated by white space or commas.
std::vector<float> ReadNumberFile(const std::string& path)
{
    std::ifstream file(path);
    if (!file)
        throw ToolError("cannot read curve file " + Quoted(path));
    std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    std::replace(text.begin(), text.end(), ',', ' ');
    std::vector<float> numbers;
    for (std::string_view rest = text; !rest.empty();) {
        const size_t start = rest.find_first_not_of(" \t\r\n");
        if (start == std::string_view::npos)
            break;
        rest.remove_prefix(start);
        const size_t length = std::min(rest.find_first_of(" \t\r\n"), rest.size());
        numbers.push_back(ParseFloat(rest.substr(0, length)));
        rest.remove_prefix(length);
    }
    if (numbers.empty())
        throw ToolError("no numbers in curve file " + Quoted(path));
    return numbers;
}

// 256 values a channel as they stand; any other count is one channel, resampled to 256 entries.
std::vector<float> ReadCurveFile(const std::string& path)
{
    const std::vector<float> numbers = ReadNumberFile(path);
    if (numbers.size() % 256 == 0)
        return numbers;
    // Resampling interpolates between neighbouring entries, so it needs two.
    if (numbers.size() < 2)
        throw ToolError("curve file " + Quoted(path) + " holds one value; give at least two");
    std::vector<float> curve(256);
    KXEffectsResizeCurve(int32_t(numbers.size()), numbers.data(), 256, curve.data());
    return curve;
}

// x,y;x,y;... as the flat list x0, y0, x1, y1, ...
std::vector<float> ParsePointList(std::string_view text)
{
    std::vector<float> numbers;
    for (std::string_view point : Split(text, ';')) {
        for (std::string_view field : SplitFields(point, 2, "x,y"))
            numbers.push_back(ParseFloat(field));
    }
    return numbers;
}

} // namespace

float ParseFloat(std::string_view text)
{
    float value = 0.0f;
    if (!ParseWhole(text, value) || !std::isfinite(value))
        throw ToolError(Quoted(text) + " is not a number");
    return value;
}

int32_t ParseInteger(std::string_view text)
{
    int32_t value = 0;
    if (!ParseWhole(text, value))
        throw ToolError(Quoted(text) + " is not a 32-bit integer");
    return value;
}

bool ParseBool(std::string_view text)
{
    for (std::string_view yes : {"true", "yes", "on", "1"})
        if (text == yes)
            return true;
    for (std::string_view no : {"false", "no", "off", "0"})
        if (text == no)
            return false;
    throw ToolError(Quoted(text) + " is not true or false");
}

// The first character lands in the top byte; shorter codes are padded with spaces ("hue" is "hue "). A
// capital first letter names the reversed form of the lower-case code, by the library's own rule.
uint32_t ParseBlendMode(std::string_view text)
{
    const bool printable = std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~'; });
    if (text.empty() || text.size() > 4 || !printable)
        throw ToolError(Quoted(text) + " is not a blend mode of up to four characters");
    uint32_t code = 0;
    for (size_t i = 0; i < 4; ++i)
        code = (code << 8) | uint8_t(i < text.size() ? text[i] : ' ');
    if (text.front() >= 'A' && text.front() <= 'Z')
        return KXEffectsGetReverseBlendMode(KXEffectsGetNormalBlendMode(code));
    return code;
}

Colour ParseColour(std::string_view text)
{
    const std::vector<std::string_view> fields = SplitFields(text, 3, "r,g,b");
    return {ParseFloat(fields[0]), ParseFloat(fields[1]), ParseFloat(fields[2])};
}

KXPoint ParsePoint(std::string_view text)
{
    const std::vector<std::string_view> fields = SplitFields(text, 2, "x,y");
    return KXPointMake(ParseInteger(fields[0]), ParseInteger(fields[1]));
}

// A text of digits and separators is a point list; anything else names a file.
std::vector<float> ParseCurve(std::string_view text)
{
    if (text.empty())
        throw ToolError("an empty curve");
    if (text.find_first_not_of("0123456789.-,;") == std::string_view::npos)
        return ParsePointList(text);
    return ReadCurveFile(std::string(text));
}

KXRect ParseRect(std::string_view text)
{
    const std::vector<std::string_view> fields = SplitFields(text, 4, "x,y,width,height");
    const KXRect rect =
        KXRectMake(ParseInteger(fields[0]), ParseInteger(fields[1]), ParseInteger(fields[2]), ParseInteger(fields[3]));
    if (rect.width < 0 || rect.height < 0)
        throw ToolError(Quoted(text) + " has a negative width or height");
    return rect;
}

namespace {

// x,y points in 0..1 as one channel of 256 entries: straight lines between the points, flat beyond the
// first and the last.
std::vector<float> CurveThroughPoints(const std::vector<float>& numbers)
{
    if (numbers.empty() || numbers.size() % 2 != 0)
        throw ToolError("give x,y points or a file of curve values");
    std::vector<std::pair<float, float>> points;
    for (size_t i = 0; i < numbers.size(); i += 2)
        points.emplace_back(numbers[i], numbers[i + 1]);
    std::sort(points.begin(), points.end());
    std::vector<float> curve(256);
    KXEffectsInitCurves(1, curve.data());
    for (float& entry : curve) {
        const auto after = std::find_if(points.begin(), points.end(), [&](const auto& p) { return p.first >= entry; });
        if (after == points.begin() || after == points.end()) {
            entry = after == points.end() ? points.back().second : after->second;
            continue;
        }
        const auto& [x0, y0] = *(after - 1);
        entry = y0 + (after->second - y0) * (entry - x0) / (after->first - x0);
    }
    return curve;
}

// A curve as a table with a channel for every colour plane: 256 values a channel as given (one channel
// serves every plane), or a point list.
std::vector<float> CurveTable(std::string_view text, int32_t colourPlanes)
{
    const size_t channels = size_t(std::max(colourPlanes, 1));
    if (text == "identity") {
        std::vector<float> table(channels * 256);
        KXEffectsInitCurves(int32_t(channels), table.data());
        return table;
    }
    const std::vector<float> numbers = ParseCurve(text);
    std::vector<float> table = numbers.size() % 256 == 0 ? numbers : CurveThroughPoints(numbers);
    if (table.size() == 256) {
        table.resize(channels * 256);
        for (size_t at = 256; at < table.size(); at += 256)
            std::copy_n(table.begin(), 256, table.begin() + at);
    }
    if (table.size() < channels * 256)
        throw ToolError(std::to_string(table.size() / 256) + " channels for " + std::to_string(channels) +
                        " colour planes");
    return table;
}

std::vector<float> ParseNumbers(std::string_view text, size_t count)
{
    std::vector<float> numbers;
    for (std::string_view field : SplitFields(text, count, "n,n,..."))
        numbers.push_back(ParseFloat(field));
    return numbers;
}

} // namespace

const char* ArgKindForm(ArgKind kind)
{
    switch (kind) {
    case ArgKind::Float:
        return "float";
    case ArgKind::Integer:
        return "integer";
    case ArgKind::Bool:
        return "bool";
    case ArgKind::Mode:
        return "blend mode";
    case ArgKind::Colour:
        return "colour r,g,b";
    case ArgKind::Floats:
        return "numbers n,n,...";
    case ArgKind::Curves:
        return "curve x,y;x,y;... or file";
    case ArgKind::Point:
    case ArgKind::FloatPoint:
        return "point x,y";
    case ArgKind::Image:
    case ArgKind::Mask:
        return "image file";
    case ArgKind::ExtraDestination:
    case ArgKind::Destination:
    case ArgKind::MaskDestination:
        return "output file";
    default:
        return "file";
    }
}

// A progress argument starts null: only kxfx's own runs draw a bar.
CallValues::CallValues(const EffectEntry& entry) : m_entry(entry), m_values(entry.argCount), m_outputs(entry.argCount)
{
    for (size_t index = 0; index < entry.argCount; ++index)
        if (entry.args[index].kind == ArgKind::Progress)
            m_values[index] = static_cast<KXProgress*>(nullptr);
}

const float* CallValues::Keep(std::vector<float> values)
{
    return m_arrays.emplace_back(std::move(values)).data();
}

void CallValues::Parse(size_t index, std::string_view text, int32_t colourPlanes)
{
    const ArgSpec& arg = m_entry.args[index];
    try {
        switch (arg.kind) {
        case ArgKind::Float:
            m_values[index] = ParseFloat(text);
            return;
        case ArgKind::Integer: {
            const int32_t value = ParseInteger(text);
            if (float(value) < arg.low || float(value) > arg.high)
                throw ToolError(std::string(text) + " is outside " + std::to_string(int32_t(arg.low)) + ".." +
                                std::to_string(int32_t(arg.high)));
            m_values[index] = value;
            return;
        }
        case ArgKind::Bool:
            m_values[index] = ParseBool(text);
            return;
        case ArgKind::Mode:
            m_values[index] = ParseBlendMode(text);
            return;
        case ArgKind::Colour: {
            if (text.empty() && arg.IsOptional())
                return Set(index, static_cast<const float*>(nullptr));
            const Colour colour = ParseColour(text);
            m_values[index] = Keep({colour.red, colour.green, colour.blue});
            return;
        }
        case ArgKind::Floats:
            m_values[index] = Keep(ParseNumbers(text, arg.count));
            return;
        case ArgKind::Curves:
            if (text.empty() && arg.IsOptional())
                return Set(index, static_cast<const float*>(nullptr));
            m_values[index] = Keep(CurveTable(text, colourPlanes));
            return;
        case ArgKind::Point:
            m_values[index] = ParsePoint(text);
            return;
        case ArgKind::FloatPoint: {
            const std::vector<float> xy = ParseNumbers(text, 2);
            m_values[index] = KXEffectsFloatPoint{xy[0], xy[1]};
            return;
        }
        default:
            throw ToolError("is not a setting");
        }
    } catch (const ToolError& error) {
        throw ToolError(std::string("--") + arg.name + ": " + error.what());
    }
}

void CallValues::AddOutput(size_t index)
{
    const ArgSpec& arg = m_entry.args[index];
    std::vector<float>& values = m_arrays.emplace_back(arg.count == 0 ? 4 * 256 : arg.count, 0.0f);
    m_values[index] = values.data();
    m_outputs[index] = &values;
}
