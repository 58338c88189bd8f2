// The effects that kxfx runs: one row each, in EffectTable.cpp.
#pragma once

#include "KXEffects.h"
#include "Settings.h"

#include <span>
#include <string_view>
#include <vector>

// What an effect function receives: the row's input images in order (the first is the source, the others
// already at its depth), a destination that starts as a copy of the source, the rectangle, every setting
// (given or neutral) and a progress object for effects that report progress.
struct EffectCall {
    std::vector<KXImage*> inputs;
    KXImage* destination;
    KXRect rect;
    const SettingValues& settings;
    KXProgress* progress;

    KXImage* Source() const { return inputs.front(); }
};

// Calls the library and returns its status; a thrown status is caught by the caller.
using EffectFunction = int32_t (*)(const EffectCall& call);

struct EffectRow {
    const char* name;                // lower-case, as typed: "invert", "gaussian-blur"
    const char* summary;             // one line for the list and the help
    std::vector<const char*> inputs; // names of the input files before OUTPUT: {"INPUT"}, {"UPPER", "LOWER"}
    std::vector<SettingSpec> settings;
    EffectFunction run;
};

std::span<const EffectRow> EffectTable();

// Null when no row has the name.
const EffectRow* FindEffect(std::string_view name);
