// kxfx: runs one effect of the KXEffects library on an image file.
#include "CommandLine.h"
#include "EffectTable.h"
#include "Help.h"
#include "ImageFile.h"
#include "Progress.h"
#include "Status.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <new>

namespace {

const EffectRow& RequireEffect(const std::string& name)
{
    const EffectRow* row = FindEffect(name);
    if (!row)
        throw ToolError("unknown effect '" + name + "'; see kxfx list");
    return *row;
}

void CheckFileCount(const EffectRow& row, const CommandLine& line)
{
    if (line.files.size() == row.inputs.size() + 1)
        return;
    std::string names;
    for (const char* input : row.inputs)
        names += std::string(input) + " ";
    const size_t count = line.files.size();
    throw ToolError(std::string(row.name) + " takes " + names + "OUTPUT, but " + std::to_string(count) +
                    (count == 1 ? " file name was given" : " file names were given"));
}

void CheckSettingNames(const EffectRow& row, const CommandLine& line)
{
    for (const auto& [name, text] : line.settings) {
        const bool known = std::any_of(row.settings.begin(), row.settings.end(),
                                       [&](const SettingSpec& setting) { return name == setting.name; });
        if (!known)
            throw ToolError(std::string(row.name) + " has no setting --" + name + "; see kxfx help " + row.name);
    }
}

// Every setting of the row, the last one given winning over the neutral value.
SettingValues CollectSettings(const EffectRow& row, const CommandLine& line, int32_t depth)
{
    const ImageReader readImage = [depth](const std::string& path) { return ReadImageFile(path, depth); };
    SettingValues values;
    for (const SettingSpec& setting : row.settings) {
        std::string_view text = setting.neutral;
        for (const auto& [name, given] : line.settings)
            if (name == setting.name)
                text = given;
        values.Set(setting.name, ParseSetting(setting, text, readImage));
    }
    return values;
}

std::vector<ImageHandle> ReadInputs(const CommandLine& line)
{
    std::vector<ImageHandle> inputs = {ReadImageFile(line.files.front())};
    const int32_t depth = KXImageGetDepth(inputs.front().get());
    for (size_t i = 1; i + 1 < line.files.size(); ++i)
        inputs.push_back(ReadImageFile(line.files[i], depth));
    return inputs;
}

// The three numbers through each one-colour conversion, in the library's order of conversions.
void PrintColourModels(const float* colour)
{
    static constexpr const char* kConversions[] = {"hsv", "rgb from hsv", "hsl", "rgb from hsl", "ycbcr",
                                                   "rgb from ycbcr"};
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

// Everything is checked and read before the effect runs; the output is written only after it succeeds.
int RunEffect(const EffectRow& row, const CommandLine& line)
{
    CheckFileCount(row, line);
    CheckSettingNames(row, line);
    CheckOutputName(line.files.back());
    const std::vector<ImageHandle> inputs = ReadInputs(line);
    KXImage* source = inputs.front().get();
    const SettingValues settings = CollectSettings(row, line, KXImageGetDepth(source));
    KXImage* copy = nullptr;
    CheckCoreStatus(KXImageCreateCopy(source, &copy), "cannot copy the input");
    const ImageHandle destination = AdoptImage(copy);
    std::vector<KXImage*> images;
    for (const ImageHandle& input : inputs)
        images.push_back(input.get());
    const ProgressBar bar(stderr, line.progress || isatty(STDERR_FILENO));
    const EffectCall call{images, copy, line.rect.value_or(KXImageGetBounds(source)), settings, bar.Progress()};
    CallLibrary(row.name, line.verbose, [&] { return row.run(call); });
    WriteImageFile(copy, line.files.back());
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
    return RunEffect(RequireEffect(first), ParseCommandLine(words));
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
