// Runs a registry entry on image files: the files and settings of its arguments, the call, the outputs.
#pragma once

#include "CommandLine.h"
#include "KXEffectsRegistry.h"

#include <string_view>
#include <vector>

// Arguments given as --NAME VALUE: numbers, modes, colours, curves, optional images, extra outputs.
bool IsSetting(const ArgSpec& arg);
// Arguments given as file names before OUTPUT: the source and the images an entry requires.
bool IsPositionalInput(const ArgSpec& arg);

// Null when no entry has the name.
const EffectEntry* FindEffect(std::string_view cliName);

// The names of the files an entry takes on the command line, in order: its inputs, then OUTPUT when it
// makes an image.
std::vector<std::string> FileNames(const EffectEntry& entry);

// Everything is checked and read before the effect runs; the output is written only after it succeeds.
void RunEffect(const EffectEntry& entry, const CommandLine& line);
