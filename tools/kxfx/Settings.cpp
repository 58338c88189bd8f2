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

SettingValue ParseValue(const SettingSpec& setting, std::string_view text, const ImageReader& readImage)
{
    switch (setting.kind) {
    case SettingKind::Float:
        return ParseFloat(text);
    case SettingKind::Integer:
        return ParseInteger(text);
    case SettingKind::Bool:
        return ParseBool(text);
    case SettingKind::BlendMode:
        return ParseBlendMode(text);
    case SettingKind::Colour:
        return ParseColour(text);
    case SettingKind::Point:
        return ParsePoint(text);
    case SettingKind::Curve:
        return text.empty() ? std::vector<float>() : ParseCurve(text);
    case SettingKind::Numbers: {
        std::vector<float> numbers;
        for (std::string_view field : Split(text, ','))
            numbers.push_back(ParseFloat(field));
        return numbers;
    }
    case SettingKind::Image:
        return text.empty() ? ImageHandle() : readImage(std::string(text));
    }
    throw ToolError("unknown setting kind");
}

} // namespace

const char* SettingKindName(SettingKind kind)
{
    // In the order of SettingKind.
    static constexpr const char* kNames[] = {"float",        "integer",   "bool",       "blend mode",
                                             "colour r,g,b", "point x,y", "image file", "curve x,y;x,y;... or file",
                                             "numbers n,n,..."};
    return kNames[size_t(kind)];
}

SettingValue ParseSetting(const SettingSpec& setting, std::string_view text, const ImageReader& readImage)
{
    try {
        return ParseValue(setting, text, readImage);
    } catch (const ToolError& error) {
        throw ToolError(std::string("--") + setting.name + ": " + error.what());
    }
}

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
