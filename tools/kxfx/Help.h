// The texts of kxfx --help, kxfx help EFFECT and kxfx list.
#pragma once

#include "KXEffectsRegistryTypes.h"

#include <cstdio>

void PrintUsage(std::FILE* stream);
void PrintEffectHelp(std::FILE* stream, const EffectEntry& entry);
void PrintEffectList(std::FILE* stream);
