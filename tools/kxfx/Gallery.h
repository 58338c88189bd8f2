// kxfx gallery: every registered effect on one photograph at its representative settings, as images and
// one page that shows them side by side with the input.
#pragma once

#include "CommandLine.h"
#include "KXEffectsRegistryTypes.h"

#include <string>
#include <vector>

// An image of a tile: full/STEM.png, and thumbs/STEM.png that the page shows.
struct GalleryFigure {
    std::string label;
    std::string stem;
};

// A setting as the effect was given it; an input image names its file and links its copy, full/STEM.png.
struct GallerySetting {
    std::string name, value, stem;
};

struct GalleryTile {
    const EffectEntry* entry = nullptr;
    std::vector<GallerySetting> settings;
    std::vector<GalleryFigure> figures; // the input, then what the effect made
    std::string numbers;                // the values an analysis gave, as lines
    double milliseconds = 0.0;
    std::string failure; // why the effect failed, if it did
};

struct GalleryFacts {
    std::string input; // the photograph's file name
    int32_t width = 0, height = 0, depth = 0;
    int32_t thumbnailWidth = 0, thumbnailHeight = 0;
    std::vector<GalleryTile> tiles;
};

// words: "gallery INPUT FOLDER [--size WIDTH] [--second FILE] [--mask FILE] [--grain FILE] [--trimap FILE]
// [--progress]".
// Writes the images and FOLDER/index.html, then one line naming the page; returns the exit status, 1 when
// an effect failed (its tile says how).
int RunGallery(const CommandLine& line);

// The page, written to path; images are named relative to it.
void WriteGalleryPage(const std::string& path, const GalleryFacts& facts);
