#include "Help.h"

#include "EffectRunner.h"
#include "Settings.h"

#include <string_view>

namespace {

constexpr const char* kUsage = R"(usage: kxfx EFFECT INPUT... OUTPUT [--rect x,y,width,height] [--SETTING VALUE ...]
                   [--verbose] [--progress]
       kxfx list           every effect with its settings and their neutral values
       kxfx help EFFECT    the files and settings of one effect
       kxfx color R,G,B    one colour through each colour model conversion, and its six hue components
       kxfx gallery INPUT FOLDER [--size WIDTH] [--second FILE] [--mask FILE] [--grain FILE] [--trimap FILE]
                           every effect on INPUT at its representative settings: images and FOLDER/index.html
       kxfx --help         this text

Runs EFFECT on INPUT over the rectangle (default: the whole image) and writes OUTPUT, which keeps INPUT
outside the rectangle. Settings not given take their neutral values.

Files: PNG, TIFF or JPEG with 8-bit, 16-bit or 32-bit float samples, gray or RGB, with or without alpha.
The format of OUTPUT follows its extension (.png, .tif, .tiff, .jpg, .jpeg) and keeps the depth of INPUT
where it can: TIFF holds all three depths, PNG 8 and 16 bits (float becomes 16-bit), JPEG 8 bits only
(16-bit and float become 8-bit). Converted samples are rounded, float clamped to 0..1. Further input
images, and image settings, are brought to the depth of INPUT.

Setting values: float 0.5; integer 12; bool true or false; blend mode up to four characters (scrn, hue),
a capital first letter naming the reversed form of the mode (Over, FSub); colour r,g,b; point x,y; image
file; curve x,y;x,y;... or a file of numbers, 256 a channel, or one channel of any other count resampled to
256. Also --SETTING=VALUE.

kxfx color prints each conversion of the three numbers on a line: hsv, hsl and ycbcr read them as RGB, the
"rgb from" lines as HSV, HSL or YCbCr (the result limited to 0..1 for YCbCr). Then the hue components of
the RGB colour over its gray: red, yellow, green, cyan, blue and magenta.

kxfx gallery works at WIDTH (the height kept in proportion) when given. Effects that take a second image,
a mask, a grain or a trimap get FILE, by default INPUT's neighbours STEM-second.png, STEM-mask.png,
grain.png and STEM-trimap.png (samples/ holds them for coffee.png), brought to the size of INPUT; a grain
tile keeps its size. The page
shows a tile per effect, grouped by family: its settings, the time of the call, the input and the result,
or the numbers it gives. It exits with 1 when an effect fails, after writing the page.

  --verbose   adds the library's last logged event to a failure
  --progress  draws a progress bar on standard error even when it is not a terminal

On failure kxfx prints one line on standard error, exits with 1 and writes no output file.
)";

void PrintSettings(std::FILE* stream, const EffectEntry& entry)
{
    for (const ArgSpec& arg : entry.Args()) {
        if (arg.kind == ArgKind::Out || arg.kind == ArgKind::OutRect)
            std::fprintf(stream, "    prints %s: %s\n", arg.name, arg.help);
        else if (IsSetting(arg))
            std::fprintf(stream, "    --%s (%s, neutral %s): %s\n", arg.name, ArgKindForm(arg.kind),
                         *arg.neutral ? arg.neutral : "none", arg.help);
    }
}

void PrintUsageLine(std::FILE* stream, const EffectEntry& entry)
{
    std::fprintf(stream, "usage: kxfx %s", entry.cliName);
    for (const std::string& name : FileNames(entry))
        std::fprintf(stream, " %s", name.c_str());
    std::fprintf(stream, "%s [--SETTING VALUE ...]\n", entry.Has(ArgKind::Rect) ? " [--rect x,y,width,height]" : "");
}

} // namespace

void PrintUsage(std::FILE* stream)
{
    std::fputs(kUsage, stream);
}

void PrintEffectHelp(std::FILE* stream, const EffectEntry& entry)
{
    PrintUsageLine(stream, entry);
    std::fprintf(stream, "  %s (%s)\n", entry.summary, entry.cName);
    if (entry.alias)
        std::fprintf(stream, "  also kxfx %s\n", entry.alias);
    for (const ArgSpec& arg : entry.Args())
        if (IsPositionalInput(arg) && *arg.help)
            std::fprintf(stream, "    %s: %s\n", arg.name, arg.help);
    PrintSettings(stream, entry);
}

void PrintEffectList(std::FILE* stream)
{
    std::string_view family;
    for (const EffectEntry& entry : kEffectRegistry) {
        if (family != entry.family)
            std::fprintf(stream, "%s---- %s ----\n", family.empty() ? "" : "\n", (family = entry.family).data());
        std::fprintf(stream, "%-20s %s\n", entry.cliName, entry.summary);
        PrintSettings(stream, entry);
    }
}
