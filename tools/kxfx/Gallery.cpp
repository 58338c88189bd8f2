#include "Gallery.h"

#include "EffectCall.h"
#include "ImageFile.h"
#include "KXEffectsRegistry.h"
#include "Progress.h"
#include "Settings.h"
#include "Status.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>

namespace {

namespace fs = std::filesystem;

constexpr int32_t kThumbnailWidth = 200;

struct GalleryOptions {
    std::string input, folder, second, mask, grain, trimap;
    int32_t width = 0; // 0 keeps the photograph's size
    bool progress = false;
};

int32_t ParseWidth(const std::string& text)
{
    try {
        if (const int32_t width = ParseInteger(text); width > 0)
            return width;
    } catch (const ToolError&) {
        // Said below, with the option's name.
    }
    throw ToolError("--size: '" + text + "' is not a width above 0");
}

// Companions default to the files beside INPUT that samples/ keeps: STEM-second.png, STEM-mask.png,
// STEM-trimap.png and grain.png.
GalleryOptions ParseGalleryOptions(const CommandLine& line)
{
    if (line.files.size() != 2)
        throw ToolError("gallery takes INPUT FOLDER; see kxfx --help");
    if (line.rect)
        throw ToolError("gallery has no --rect: every effect works on the whole image");
    const fs::path input = line.files[0];
    const fs::path beside = input.parent_path();
    GalleryOptions options{line.files[0],
                           line.files[1],
                           beside / (input.stem().string() + "-second.png"),
                           beside / (input.stem().string() + "-mask.png"),
                           beside / "grain.png",
                           beside / (input.stem().string() + "-trimap.png")};
    options.progress = line.progress;
    for (const auto& [name, value] : line.settings) {
        if (name == "second")
            options.second = value;
        else if (name == "mask")
            options.mask = value;
        else if (name == "grain")
            options.grain = value;
        else if (name == "trimap")
            options.trimap = value;
        else if (name == "size")
            options.width = ParseWidth(value);
        else
            throw ToolError("gallery has no setting --" + name + "; see kxfx --help");
    }
    return options;
}

struct Companion {
    ImageHandle image;
    std::string stem; // its name in the gallery's folders
    std::string file; // the file it was read from, as the tiles name it
};

// Everything the effects draw their inputs from, at the size the gallery works at; the grain tile keeps its
// own size, since it repeats.
struct GalleryInputs {
    Companion photo, second, mask, grain, grainTile, trimap;
};

Companion ReadCompanion(const std::string& path, const std::string& stem, int32_t depth, KXImage* sizeOf)
{
    ImageHandle image = ReadImageFile(path, depth);
    if (sizeOf)
        image = ResizeImage(image.get(), KXImageGetWidth(sizeOf), KXImageGetHeight(sizeOf));
    return {image, stem, fs::path(path).filename().string()};
}

GalleryInputs ReadInputs(const GalleryOptions& options)
{
    GalleryInputs inputs;
    inputs.photo = ReadCompanion(options.input, "input", 0, nullptr);
    KXImage* photo = inputs.photo.image.get();
    if (options.width > 0) {
        const int32_t height =
            std::max(int32_t(std::lround(double(KXImageGetHeight(photo)) * options.width / KXImageGetWidth(photo))), 1);
        inputs.photo.image = ResizeImage(photo, options.width, height);
        photo = inputs.photo.image.get();
    }
    const int32_t depth = KXImageGetDepth(photo);
    inputs.second = ReadCompanion(options.second, "second", depth, photo);
    inputs.mask = ReadCompanion(options.mask, "mask", depth, photo);
    inputs.grain = ReadCompanion(options.grain, "grain", depth, photo);
    inputs.grainTile = ReadCompanion(options.grain, "grain-tile", depth, nullptr);
    inputs.trimap = ReadCompanion(options.trimap, "trimap", depth, photo);
    for (const Companion* plane : {&inputs.mask, &inputs.trimap})
        if (KXImageGetNumPlanes(plane->image.get()) != 1)
            throw ToolError(plane->file + ": give a gray image of one plane as a mask");
    return inputs;
}

// Trimaps, grains and masks by their names, masks also by their kind, the second photograph otherwise.
const Companion& CompanionFor(const ArgSpec& arg, const GalleryInputs& inputs)
{
    const std::string_view name = arg.name;
    if (name == "TRIMAP")
        return inputs.trimap;
    if (arg.kind == ArgKind::Mask || arg.kind == ArgKind::Masks || name == "MASK")
        return inputs.mask;
    if (arg.kind == ArgKind::Source || arg.kind == ArgKind::InPlace)
        return inputs.photo;
    if (name == "GRAIN")
        return inputs.grain;
    if (name == "TILE" || name == "grain-tile")
        return inputs.grainTile;
    return inputs.second;
}

// As kxfx prints the outputs of an analysis.
std::string Number(float value)
{
    char text[32];
    std::snprintf(text, sizeof text, "%g", double(value));
    return text;
}

std::string NumberLine(const std::string& name, const float* values, size_t count)
{
    std::string line = name + ":";
    for (size_t i = 0; i < count; ++i)
        line.append(" ").append(Number(values[i]));
    return line.append("\n");
}

// A curve output as every 32nd level of each colour plane's channel, and the last.
std::string CurveLines(const ArgSpec& arg, const std::vector<float>& values, int32_t colourPlanes)
{
    static constexpr const char* kChannels[] = {"red", "green", "blue"};
    std::string lines = std::string(arg.name) + " at levels 0 32 64 96 128 160 192 224 255\n";
    for (int32_t channel = 0; channel < colourPlanes; ++channel) {
        std::vector<float> levels;
        for (size_t level = 0; level < 256; level += 32)
            levels.push_back(values[size_t(channel) * 256 + level]);
        levels.push_back(values[size_t(channel) * 256 + 255]);
        lines += NumberLine(colourPlanes == 1 ? "gray" : kChannels[channel], levels.data(), levels.size());
    }
    return lines;
}

// The values of the outputs, as kxfx prints them: a three-value output of a gray image holds one.
std::string NumbersText(EffectCall& call)
{
    std::string text;
    const EffectEntry& entry = call.Entry();
    for (size_t index = 0; index < entry.argCount; ++index) {
        const ArgSpec& arg = entry.args[index];
        if (arg.kind == ArgKind::OutRect) {
            const KXRect& rect = call.Values().FoundRect();
            const float values[] = {float(rect.x), float(rect.y), float(rect.width), float(rect.height)};
            text += NumberLine(arg.name, values, 4);
        } else if (arg.kind == ArgKind::Out && arg.count == 0) {
            text += CurveLines(arg, call.Values().OutputValues(index), call.ColourPlanes());
        } else if (arg.kind == ArgKind::Out) {
            const size_t count = call.ColourPlanes() == 1 && arg.count == 3 ? 1 : arg.count;
            text += NumberLine(arg.name, call.Values().OutputValues(index).data(), count);
        }
    }
    return text;
}

class GalleryWriter {
public:
    GalleryWriter(const std::string& folder, KXImage* photo) : m_folder(folder)
    {
        fs::create_directories(m_folder / "full");
        fs::create_directories(m_folder / "thumbs");
        m_facts.width = KXImageGetWidth(photo);
        m_facts.height = KXImageGetHeight(photo);
        m_facts.depth = KXImageGetDepth(photo);
        m_facts.thumbnailWidth = std::min(kThumbnailWidth, m_facts.width);
        m_facts.thumbnailHeight =
            std::max(int32_t(std::lround(double(m_facts.height) * m_facts.thumbnailWidth / m_facts.width)), 1);
    }

    GalleryFacts& Facts() { return m_facts; }

    // The image at full size, and as a thumbnail for the page to show.
    void Write(KXImage* image, const std::string& stem, bool thumbnail = true) const
    {
        WriteImageFile(image, (m_folder / "full" / (stem + ".png")).string());
        if (!thumbnail)
            return;
        const ImageHandle small = ResizeImage(image, m_facts.thumbnailWidth, m_facts.thumbnailHeight);
        WriteImageFile(small.get(), (m_folder / "thumbs" / (stem + ".png")).string());
    }

    std::string Page() const { return (m_folder / "index.html").string(); }

private:
    fs::path m_folder;
    GalleryFacts m_facts;
};

// The images of the inputs and the settings from their samples; the tile lists both.
void SetArguments(EffectCall& call, GalleryTile& tile, const GalleryInputs& inputs)
{
    const EffectEntry& entry = call.Entry();
    for (size_t index = 0; index < entry.argCount; ++index) {
        const ArgSpec& arg = entry.args[index];
        if (!IsImageInput(arg))
            continue;
        const Companion& companion = CompanionFor(arg, inputs);
        if (arg.kind == ArgKind::Masks)
            call.SetMasks(index, {companion.image, companion.image});
        else
            call.SetInput(index, companion.image);
        if (tile.figures.empty())
            tile.figures.push_back({"before", companion.stem});
        else
            tile.settings.push_back({arg.name, companion.file, companion.stem});
    }
    for (size_t index = 0; index < entry.argCount; ++index) {
        const ArgSpec& arg = entry.args[index];
        if (!IsValueSetting(arg))
            continue;
        call.Values().Parse(index, arg.sample, call.ColourPlanes());
        tile.settings.push_back({arg.name, *arg.sample ? arg.sample : "none", ""});
    }
}

// Runs the effect on its inputs and writes what it made.
void FillTile(GalleryTile& tile, const GalleryInputs& inputs, const GalleryWriter& writer)
{
    const EffectEntry& entry = *tile.entry;
    EffectCall call(entry);
    SetArguments(call, tile, inputs);
    call.Prepare(KXImageGetBounds(call.FirstInput()));
    const auto start = std::chrono::steady_clock::now();
    const int32_t status = call.Invoke();
    tile.milliseconds = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    if (status != kKXNoErr) {
        tile.failure = "failed with status " + std::to_string(status) + " (" + StatusWords(status) + ")";
        return;
    }
    tile.numbers = NumbersText(call);
    if (call.Result()) {
        writer.Write(call.Result(), entry.cliName);
        tile.figures.push_back({"after", entry.cliName});
    }
    for (const ArgSpec& arg : entry.Args())
        if (arg.kind == ArgKind::ExtraDestination) {
            const std::string stem = std::string(entry.cliName) + "-" + arg.name;
            writer.Write(call.ExtraResult(), stem);
            tile.figures.push_back({arg.name, stem});
        }
}

// A failure stays in its tile, so that one effect cannot hide the others.
GalleryTile RunTile(const EffectEntry& entry, const GalleryInputs& inputs, const GalleryWriter& writer)
{
    GalleryTile tile;
    tile.entry = &entry;
    try {
        FillTile(tile, inputs, writer);
    } catch (const ToolError& error) {
        tile.failure = error.what();
    }
    return tile;
}

} // namespace

int RunGallery(const CommandLine& line)
{
    const GalleryOptions options = ParseGalleryOptions(line);
    const GalleryInputs inputs = ReadInputs(options);
    GalleryWriter writer(options.folder, inputs.photo.image.get());
    // The photograph, the mask and the trimap are what tiles show as before; the others are linked from the
    // settings.
    for (const Companion* companion :
         {&inputs.photo, &inputs.second, &inputs.mask, &inputs.grain, &inputs.grainTile, &inputs.trimap})
        writer.Write(companion->image.get(), companion->stem,
                     companion == &inputs.photo || companion == &inputs.mask || companion == &inputs.trimap);
    GalleryFacts& facts = writer.Facts();
    facts.input = inputs.photo.file;

    const ProgressBar bar(stderr, options.progress || isatty(fileno(stderr)));
    const int32_t count = int32_t(std::size(kEffectRegistry));
    KXProgressDoProgressBeginStage(bar.Progress(), 0, "gallery", count);
    int failed = 0;
    for (const EffectEntry& entry : kEffectRegistry) {
        facts.tiles.push_back(RunTile(entry, inputs, writer));
        failed += !facts.tiles.back().failure.empty();
        KXProgressDoProgressUpdateStage(bar.Progress(), int32_t(facts.tiles.size()));
    }
    KXProgressDoProgressEndStage(bar.Progress());
    WriteGalleryPage(writer.Page(), facts);
    const std::string failures = failed ? ", " + std::to_string(failed) + " failed" : "";
    std::printf("gallery of %d effects%s: %s\n", count, failures.c_str(), writer.Page().c_str());
    return failed ? 1 : 0;
}
