// kxfx: runs one effect of the KXEffects library on an image file.
#include "CommandLine.h"
#include "EffectRunner.h"
#include "Gallery.h"
#include "Help.h"
#include "ImageFile.h"
#include "Settings.h"
#include "Status.h"

#include <algorithm>
#include <cstdio>
#include <new>

namespace {

const EffectEntry& RequireEffect(const std::string& name)
{
    const EffectEntry* entry = FindEffect(name);
    if (!entry)
        throw ToolError("unknown effect '" + name + "'; see kxfx list");
    return *entry;
}

// The three numbers through each one-colour conversion, in the library's order of conversions.
void PrintColourModels(const float* colour)
{
    static constexpr const char* kConversions[] = {"hsv",          "rgb from hsv", "hsl",
                                                   "rgb from hsl", "ycbcr",        "rgb from ycbcr"};
    for (int32_t conversion = 0; conversion < 6; ++conversion) {
        float converted[3];
        CallLibrary("color", false, [&] { return KXEffectsConvertColorMode(colour, converted, conversion); });
        std::printf("%s: %g %g %g\n", kConversions[conversion], converted[0], converted[1], converted[2]);
    }
}

// kxfx color R,G,B: the colour in every colour model, then its six hue components.
int PrintColour(std::span<const std::string> words)
{
    if (words.size() != 2)
        throw ToolError("color takes one colour R,G,B; see kxfx --help");
    Colour parsed{};
    try {
        parsed = ParseColour(words[1]);
    } catch (const ToolError& error) {
        throw ToolError(std::string("color: ") + error.what());
    }
    const float colour[] = {parsed.red, parsed.green, parsed.blue};
    PrintColourModels(colour);
    float components[6];
    CallLibrary("color", false, [&] { return KXEffectsGetColorComponents(colour, components); });
    static constexpr const char* kHues[] = {"red", "yellow", "green", "cyan", "blue", "magenta"};
    for (size_t hue = 0; hue < 6; ++hue)
        std::printf("%s: %g\n", kHues[hue], components[hue]);
    return 0;
}

int Run(std::span<const std::string> words)
{
    if (words.empty())
        throw ToolError("no effect given; see kxfx --help");
    const std::string& first = words.front();
    if (first == "--help" || first == "-h" || (first == "help" && words.size() == 1)) {
        PrintUsage(stdout);
        return 0;
    }
    if (first == "help") {
        PrintEffectHelp(stdout, RequireEffect(words[1]));
        return 0;
    }
    if (first == "list") {
        PrintEffectList(stdout);
        return 0;
    }
    if (first == "color")
        return PrintColour(words);
    if (first == "gallery")
        return RunGallery(ParseCommandLine(words));
    RunEffect(RequireEffect(first), ParseCommandLine(words));
    return 0;
}

// Messages from OpenCV can span lines; the failure stays one line.
std::string OneLine(std::string text)
{
    std::replace(text.begin(), text.end(), '\n', ' ');
    while (!text.empty() && text.back() == ' ')
        text.pop_back();
    return text;
}

} // namespace

int main(int argc, char** argv)
{
    RecordLibraryEvents();
    QuietImageCodecs();
    const std::vector<std::string> words(argv + 1, argv + argc);
    try {
        return Run(words);
    } catch (const std::bad_alloc&) {
        std::fputs("kxfx: out of memory\n", stderr);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "kxfx: %s\n", OneLine(error.what()).c_str());
    }
    return 1;
}
