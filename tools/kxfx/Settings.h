// The kinds of effect settings, their parsers and the parsed values an effect row reads.
#pragma once

#include "ToolCommon.h"

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

enum class SettingKind {
    Float,     // 0.5
    Integer,   // 12
    Bool,      // true, false, yes, no, on, off, 1, 0
    BlendMode, // four characters such as "scrn"; "hue" is padded to "hue "; "Over" is reversed "over"
    Colour,    // r,g,b
    Point,     // x,y
    Image,     // another image file, read like the input and brought to its depth
    Curve,     // x,y;x,y;... or a file of numbers, read as 256 a channel; "" means none
    Numbers    // n,n,...
};

struct Colour {
    float red, green, blue;
};

// One setting of an effect row: its name on the command line (after "--"), its kind, the value it has
// when not given (written as on the command line; "" for an image means none) and one line of help.
struct SettingSpec {
    const char* name;
    SettingKind kind;
    const char* neutral;
    const char* help;
};

// Float, integer, bool, blend mode code, colour, point, curve numbers, image (null for none).
using SettingValue = std::variant<float, int32_t, bool, uint32_t, Colour, KXPoint, std::vector<float>, ImageHandle>;

// Reads an image setting's file at the depth of the input.
using ImageReader = std::function<ImageHandle(const std::string& path)>;

const char* SettingKindName(SettingKind kind);

// Throws ToolError naming the setting when text is not a value of its kind.
SettingValue ParseSetting(const SettingSpec& setting, std::string_view text, const ImageReader& readImage);

float ParseFloat(std::string_view text);
int32_t ParseInteger(std::string_view text);
bool ParseBool(std::string_view text);
uint32_t ParseBlendMode(std::string_view text);
Colour ParseColour(std::string_view text);
KXPoint ParsePoint(std::string_view text);
std::vector<float> ParseCurve(std::string_view text);
KXRect ParseRect(std::string_view text);

// Every setting of a row by name, given or neutral. Effect functions read them with Get<float>("radius"),
// Get<ImageHandle>("mask") and so on.
class SettingValues
{
  public:
    void Set(const std::string& name, SettingValue value) { m_values[name] = std::move(value); }
    template <class T> const T& Get(const std::string& name) const { return std::get<T>(m_values.at(name)); }

  private:
    std::map<std::string, SettingValue> m_values;
};
