// Setting values of registry entries: parsers of each kind and the values of one call.
#pragma once

#include "KXEffectsRegistryTypes.h"
#include "ToolCommon.h"

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

struct Colour {
    float red, green, blue;
};

float ParseFloat(std::string_view text);
int32_t ParseInteger(std::string_view text);
bool ParseBool(std::string_view text);
// Up to four characters such as "scrn"; "hue" is padded to "hue "; "Over" is reversed "over".
uint32_t ParseBlendMode(std::string_view text);
Colour ParseColour(std::string_view text);
KXPoint ParsePoint(std::string_view text);
// x,y;x,y;... points in 0..1, or a file of numbers: 256 a channel, or one channel of another count.
std::vector<float> ParseCurve(std::string_view text);
KXRect ParseRect(std::string_view text);

// How a setting of this kind is written, for help texts.
const char* ArgKindForm(ArgKind kind);

// The values of one call of a registry entry, one per argument, and the arrays that its pointer arguments
// point into. Images are set by the caller; settings are parsed from text.
class CallValues {
public:
    explicit CallValues(const EffectEntry& entry);

    // Parses text as the setting at index: "" leaves an optional colour or curve null, "identity" is the
    // identity curve; a curve gets a channel for each of colourPlanes. Throws ToolError naming the setting.
    void Parse(size_t index, std::string_view text, int32_t colourPlanes);
    void Set(size_t index, ArgValue value) { m_values[index] = value; }
    // Room for the values that the Out argument at index receives, zeroed; a curve output takes four
    // channels. The values are read back by OutputValues after the call.
    void AddOutput(size_t index);
    const std::vector<float>& OutputValues(size_t index) const { return *m_outputs[index]; }
    // The rectangle that an OutRect argument receives.
    KXRect* OutputRect() { return &m_rect; }
    const KXRect& FoundRect() const { return m_rect; }

    std::span<const ArgValue> Values() const { return m_values; }
    int32_t Invoke() const { return m_entry.invoke(m_values); }

private:
    const float* Keep(std::vector<float> values);

    const EffectEntry& m_entry;
    std::vector<ArgValue> m_values;
    std::deque<std::vector<float>> m_arrays; // a deque keeps the addresses handed out
    std::vector<std::vector<float>*> m_outputs;
    KXRect m_rect{};
};
