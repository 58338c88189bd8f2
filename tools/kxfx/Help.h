// The texts of kxfx --help, kxfx help EFFECT and kxfx list.
#pragma once

#include "EffectTable.h"

#include <cstdio>

void PrintUsage(std::FILE* stream);
void PrintEffectHelp(std::FILE* stream, const EffectRow& row);
void PrintEffectList(std::FILE* stream);
