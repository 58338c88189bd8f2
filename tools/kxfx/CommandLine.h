// The words of a kxfx command line, sorted before any file is touched.
#pragma once

#include "KXCore.h"

#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

struct CommandLine {
    std::string effect;
    std::vector<std::string> files; // the inputs, then the output
    std::optional<KXRect> rect;
    std::vector<std::pair<std::string, std::string>> settings; // name without "--", text
    bool verbose = false;
    bool progress = false;
};

// words: everything after the program name, the effect first. Every "--name" takes the next word as its
// value ("--name=value" also works), except the flags --verbose and --progress.
CommandLine ParseCommandLine(std::span<const std::string> words);
