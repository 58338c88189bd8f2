#include "EffectRunner.h"

#include "ImageFile.h"
#include "Progress.h"
#include "Settings.h"
#include "Status.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <optional>

bool IsSetting(const ArgSpec& arg)
{
    switch (arg.kind) {
    case ArgKind::Destination:
    case ArgKind::MaskDestination:
        return arg.IsNamedOutput();
    case ArgKind::Source:
    case ArgKind::InPlace:
    case ArgKind::Masks:
    case ArgKind::Rect:
    case ArgKind::Out:
    case ArgKind::OutImage:
    case ArgKind::OutRect:
    case ArgKind::Progress:
        return false;
    case ArgKind::Image:
    case ArgKind::Mask:
        return arg.IsOptional();
    default:
        return true;
    }
}

bool IsPositionalInput(const ArgSpec& arg)
{
    return arg.kind == ArgKind::Source || arg.kind == ArgKind::InPlace || arg.kind == ArgKind::Masks ||
           ((arg.kind == ArgKind::Image || arg.kind == ArgKind::Mask) && !arg.IsOptional());
}

namespace {

// Whether OUTPUT is among the files: a destination not named by a setting, or an image the entry makes.
bool MakesImage(const EffectEntry& entry)
{
    const auto args = entry.Args();
    return entry.Has(ArgKind::OutImage) || std::any_of(args.begin(), args.end(), [](const ArgSpec& arg) {
               return (arg.kind == ArgKind::Destination || arg.kind == ArgKind::MaskDestination ||
                       arg.kind == ArgKind::InPlace) &&
                      !arg.IsNamedOutput();
           });
}

// A destination written to the file of its setting; a required one without it is an error.
void AddNamedOutput(const ArgSpec& arg, KXImage* image, const std::string* given,
                    std::vector<std::pair<KXImage*, std::string>>& outputs)
{
    if (!given) {
        if (arg.IsOptional())
            return;
        throw ToolError(std::string("give --") + arg.name + " FILE: " + arg.help);
    }
    CheckOutputName(*given);
    outputs.emplace_back(image, *given);
}

const std::string* GivenSetting(const CommandLine& line, const char* name)
{
    const std::string* given = nullptr;
    for (const auto& [settingName, text] : line.settings)
        if (settingName == name)
            given = &text;
    return given;
}

void CheckSettingNames(const EffectEntry& entry, const CommandLine& line)
{
    for (const auto& [name, text] : line.settings) {
        const auto args = entry.Args();
        if (std::none_of(args.begin(), args.end(),
                         [&](const ArgSpec& arg) { return IsSetting(arg) && name == arg.name; }))
            throw ToolError(std::string(entry.cliName) + " has no setting --" + name + "; see kxfx help " +
                            entry.cliName);
    }
}

void CheckFileCount(const EffectEntry& entry, const CommandLine& line)
{
    const std::vector<std::string> names = FileNames(entry);
    const bool variadic = entry.Has(ArgKind::Masks);
    const size_t count = line.files.size();
    if (count == names.size() || (variadic && count > names.size()))
        return;
    std::string list;
    for (const std::string& name : names)
        list += name + " ";
    throw ToolError(std::string(entry.cliName) + " takes " + list + "but " + std::to_string(count) +
                    (count == 1 ? " file name was given" : " file names were given"));
}

KXImage* RequireOnePlane(KXImage* image, const std::string& name)
{
    if (image && KXImageGetNumPlanes(image) != 1)
        throw ToolError(name + ": give a gray image of one plane as a mask");
    return image;
}

struct ArrayReleaser {
    void operator()(CFMutableArrayRef array) const { CFRelease(array); }
};

// The images of one call: inputs read from files, destinations made like the first input.
class CallImages {
public:
    ImageHandle Read(const std::string& path, int32_t depth) { return Keep(ReadImageFile(path, depth)); }
    ImageHandle Keep(ImageHandle image) { return m_images.emplace_back(std::move(image)); }
    ImageHandle CopyOf(KXImage* image)
    {
        KXImage* copy = nullptr;
        CheckCoreStatus(KXImageCreateCopy(image, &copy), "cannot copy the input");
        return Keep(AdoptImage(copy));
    }
    // One white plane of the depth and bounds of image: selections narrow it.
    ImageHandle WhiteMaskLike(KXImage* image)
    {
        const KXRect bounds = KXImageGetBounds(image);
        KXImage* mask = nullptr;
        CheckCoreStatus(KXImageCreateWithParams2(&bounds, KXImageGetDepth(image), 1, KXColorSpaceGray, 0,
                                                 KXDataSourceMemory, &mask),
                        "cannot make a mask image");
        const ImageHandle handle = Keep(AdoptImage(mask));
        KXImageFill(mask, WhiteSample(KXImageGetDepth(image)));
        return handle;
    }
    CFArrayRef Array(const std::vector<KXImage*>& images)
    {
        m_array.reset(CFArrayCreateMutable(kCFAllocatorDefault, 0, KXUtilsGetArrayCallbacks()));
        for (KXImage* image : images)
            CFArrayAppendValue(m_array.get(), image);
        return m_array.get();
    }

private:
    std::vector<ImageHandle> m_images;
    std::unique_ptr<__CFArray, ArrayReleaser> m_array;
};

// One "name: values" line.
void PrintNumbers(const char* name, const float* values, size_t count)
{
    std::printf("%s:", name);
    for (size_t i = 0; i < count; ++i)
        std::printf(" %g", values[i]);
    std::printf("\n");
}

// A curve output is printed as 256 values a line, a line per colour plane: a file that --curves reads.
void PrintOutputs(const EffectEntry& entry, const CallValues& values, const std::vector<size_t>& outputs,
                  int32_t colourPlanes)
{
    for (size_t index : outputs) {
        const ArgSpec& arg = entry.args[index];
        if (arg.kind == ArgKind::OutRect) {
            const KXRect& rect = values.FoundRect();
            std::printf("%s: %d %d %d %d\n", arg.name, rect.x, rect.y, rect.width, rect.height);
            continue;
        }
        const std::vector<float>& numbers = values.OutputValues(index);
        if (arg.count != 0) {
            PrintNumbers(arg.name, numbers.data(), colourPlanes == 1 && arg.count == 3 ? 1 : arg.count);
            continue;
        }
        for (int32_t channel = 0; channel < colourPlanes; ++channel)
            for (size_t i = 0; i < 256; ++i)
                std::printf(i == 255 ? "%g\n" : "%g ", numbers[size_t(channel) * 256 + i]);
    }
}

} // namespace

const EffectEntry* FindEffect(std::string_view cliName)
{
    for (const EffectEntry& entry : kEffectRegistry)
        if (cliName == entry.cliName || (entry.alias && cliName == entry.alias))
            return &entry;
    return nullptr;
}

std::vector<std::string> FileNames(const EffectEntry& entry)
{
    std::vector<std::string> names;
    for (const ArgSpec& arg : entry.Args())
        if (IsPositionalInput(arg))
            names.push_back(arg.kind == ArgKind::Masks ? std::string(arg.name) + "..." : arg.name);
    if (MakesImage(entry))
        names.push_back("OUTPUT");
    return names;
}

void RunEffect(const EffectEntry& entry, const CommandLine& line)
{
    CheckFileCount(entry, line);
    CheckSettingNames(entry, line);
    const bool makesImage = MakesImage(entry);
    if (makesImage)
        CheckOutputName(line.files.back());
    const size_t inputCount = line.files.size() - (makesImage ? 1 : 0);

    CallImages images;
    KXImage* first = images.Read(line.files.front(), 0).get();
    const int32_t depth = KXImageGetDepth(first);
    const int32_t colourPlanes = KXImageGetNumPlanes(first) - KXImageGetTransparency(first);
    const KXRect rect = line.rect.value_or(KXImageGetBounds(first));
    CallValues values(entry);
    KXImage* result = nullptr;
    std::vector<std::pair<KXImage*, std::string>> extraOutputs;
    std::vector<size_t> outputs;
    size_t nextFile = 1;
    KXImage* madeImage = nullptr;
    std::optional<ProgressBar> bar;
    if (entry.Has(ArgKind::Progress))
        bar.emplace(stderr, line.progress || isatty(fileno(stderr)));
    for (size_t index = 0; index < entry.argCount; ++index) {
        const ArgSpec& arg = entry.args[index];
        const std::string* given = GivenSetting(line, arg.name);
        switch (arg.kind) {
        case ArgKind::Source:
            values.Set(index, first);
            break;
        case ArgKind::InPlace:
            values.Set(index, result = images.CopyOf(first).get());
            break;
        case ArgKind::Destination:
        case ArgKind::MaskDestination: {
            KXImage* image =
                (arg.kind == ArgKind::Destination ? images.CopyOf(first) : images.WhiteMaskLike(first)).get();
            if (arg.IsNamedOutput())
                AddNamedOutput(arg, image, given, extraOutputs);
            else
                result = image;
            values.Set(index, image);
            break;
        }
        case ArgKind::ExtraDestination: {
            KXImage* extra = images.CopyOf(first).get();
            if (given) {
                CheckOutputName(*given);
                extraOutputs.emplace_back(extra, *given);
            }
            values.Set(index, extra);
            break;
        }
        case ArgKind::Progress:
            values.Set(index, bar->Progress());
            break;
        case ArgKind::Masks: {
            std::vector<KXImage*> masks = {RequireOnePlane(first, "MASK1")};
            for (; nextFile < inputCount; ++nextFile)
                masks.push_back(RequireOnePlane(images.Read(line.files[nextFile], depth).get(),
                                                "MASK" + std::to_string(nextFile + 1)));
            values.Set(index, images.Array(masks));
            break;
        }
        case ArgKind::Image:
        case ArgKind::Mask: {
            KXImage* image = nullptr;
            if (!arg.IsOptional())
                image = images.Read(line.files[nextFile++], depth).get();
            else if (given && !given->empty())
                image = images.Read(*given, depth).get();
            values.Set(index, arg.kind == ArgKind::Mask ? RequireOnePlane(image, arg.name) : image);
            break;
        }
        case ArgKind::Rect:
            values.Set(index, &rect);
            break;
        case ArgKind::Out:
            values.AddOutput(index);
            outputs.push_back(index);
            break;
        case ArgKind::OutRect:
            values.Set(index, values.OutputRect());
            outputs.push_back(index);
            break;
        case ArgKind::OutImage:
            values.Set(index, &madeImage);
            break;
        default:
            values.Parse(index, given ? std::string_view(*given) : std::string_view(arg.neutral), colourPlanes);
        }
    }
    CallLibrary(entry.cliName, line.verbose, [&] { return values.Invoke(); });
    if (madeImage)
        result = images.Keep(AdoptImage(madeImage)).get();
    PrintOutputs(entry, values, outputs, colourPlanes);
    for (const auto& [image, path] : extraOutputs)
        WriteImageFile(image, path);
    if (makesImage)
        WriteImageFile(result, line.files.back());
}
