// The gallery's page: a section per family in the registry's order, a tile per effect.
#include "Gallery.h"

#include "ToolCommon.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <sstream>

namespace {

constexpr const char* kStyle = R"(
body { font: 14px/1.4 system-ui, sans-serif; margin: 24px; background: #f3f1ee; color: #222; }
h1 { margin: 0 0 4px; }
nav a { margin-right: 14px; }
h2 { margin: 32px 0 12px; border-bottom: 1px solid #ccc; }
.tiles { display: grid; grid-template-columns: repeat(auto-fill, minmax(var(--tile), 1fr)); gap: 16px; }
.tile { background: #fff; border-radius: 6px; padding: 12px; box-shadow: 0 1px 3px rgba(0, 0, 0, 0.15); }
.tile h3 { margin: 0; font: bold 15px monospace; }
.summary { margin: 2px 0 8px; color: #555; }
.entry { color: #999; font-size: 12px; }
.figures { display: flex; flex-wrap: wrap; gap: 8px; }
figure { margin: 0; }
figcaption { font-size: 12px; color: #666; text-align: center; }
img { display: block; background: #ddd; }
.numbers { font-size: 12px; background: #f6f6f6; padding: 6px; margin: 8px 0 0; overflow-x: auto; }
.settings { font: 12px monospace; margin: 8px 0 0; padding: 0; list-style: none; }
.time { color: #888; font-size: 12px; margin: 6px 0 0; }
.failure { color: #b00; font-weight: bold; }
)";

// Marks each tile with whether every image in it loaded, as the browser sees it, and the page with the
// count and its height, for a test to read back from the page.
constexpr const char* kScript = R"(
window.addEventListener('load', () => {
  let loaded = 0;
  for (const tile of document.querySelectorAll('.tile')) {
    const images = Array.from(tile.querySelectorAll('img'));
    const ok = images.length > 0 && images.every(image => image.complete && image.naturalWidth > 0);
    tile.dataset.loaded = ok ? 'yes' : 'no';
    loaded += ok ? 1 : 0;
  }
  document.body.dataset.loadedTiles = loaded;
  document.body.dataset.pageHeight = document.documentElement.scrollHeight;
});
)";

std::string Escaped(std::string_view text)
{
    std::string escaped;
    for (char c : text) {
        switch (c) {
        case '&':
            escaped += "&amp;";
            break;
        case '<':
            escaped += "&lt;";
            break;
        case '>':
            escaped += "&gt;";
            break;
        case '"':
            escaped += "&quot;";
            break;
        default:
            escaped += c;
        }
    }
    return escaped;
}

// "black-and-white" is shown as "Black and white".
std::string FamilyTitle(std::string_view family)
{
    std::string title(family);
    for (char& c : title)
        c = c == '-' ? ' ' : c;
    if (!title.empty() && title[0] >= 'a' && title[0] <= 'z')
        title[0] = char(title[0] - 'a' + 'A');
    return title;
}

std::vector<std::string_view> FamiliesInOrder(const GalleryFacts& facts)
{
    std::vector<std::string_view> families;
    for (const GalleryTile& tile : facts.tiles)
        if (std::find(families.begin(), families.end(), tile.entry->family) == families.end())
            families.push_back(tile.entry->family);
    return families;
}

void WriteFigure(std::ostream& page, const GalleryFacts& facts, const GalleryTile& tile, const GalleryFigure& figure)
{
    page << "<figure><a href=\"full/" << Escaped(figure.stem) << ".png\"><img src=\"thumbs/" << Escaped(figure.stem)
         << ".png\" width=\"" << facts.thumbnailWidth << "\" height=\"" << facts.thumbnailHeight << "\" alt=\""
         << Escaped(tile.entry->cliName) << ": " << Escaped(figure.label) << "\"></a><figcaption>"
         << Escaped(figure.label) << "</figcaption></figure>";
}

void WriteSettings(std::ostream& page, const GalleryTile& tile)
{
    if (tile.settings.empty())
        return;
    page << "<ul class=\"settings\">";
    for (const GallerySetting& setting : tile.settings) {
        page << "<li>" << Escaped(setting.name) << " = ";
        if (setting.stem.empty())
            page << Escaped(setting.value);
        else
            page << "<a href=\"full/" << Escaped(setting.stem) << ".png\">" << Escaped(setting.value) << "</a>";
        page << "</li>";
    }
    page << "</ul>";
}

void WriteTile(std::ostream& page, const GalleryFacts& facts, const GalleryTile& tile)
{
    const EffectEntry& entry = *tile.entry;
    page << "<article class=\"tile\" id=\"" << Escaped(entry.cliName) << "\"><h3>" << Escaped(entry.cliName)
         << "</h3><p class=\"summary\">" << Escaped(entry.summary) << " <span class=\"entry\">" << entry.cName
         << "</span></p><div class=\"figures\">";
    for (const GalleryFigure& figure : tile.figures)
        WriteFigure(page, facts, tile, figure);
    page << "</div>";
    if (!tile.failure.empty())
        page << "<p class=\"failure\">" << Escaped(tile.failure) << "</p>";
    if (!tile.numbers.empty())
        page << "<pre class=\"numbers\">" << Escaped(tile.numbers) << "</pre>";
    WriteSettings(page, tile);
    char time[32];
    std::snprintf(time, sizeof time, "%.2f ms", tile.milliseconds);
    page << "<p class=\"time\">" << time << "</p></article>\n";
}

void WriteFamily(std::ostream& page, const GalleryFacts& facts, std::string_view family)
{
    page << "<section id=\"family-" << Escaped(family) << "\"><h2>" << Escaped(FamilyTitle(family))
         << "</h2><div class=\"tiles\">\n";
    for (const GalleryTile& tile : facts.tiles)
        if (tile.entry->family == family)
            WriteTile(page, facts, tile);
    page << "</div></section>\n";
}

void WriteHeading(std::ostream& page, const GalleryFacts& facts, const std::vector<std::string_view>& families)
{
    page << "<h1>KXEffects gallery</h1>\n<p>" << facts.tiles.size() << " effects on " << Escaped(facts.input) << " at "
         << facts.width << " x " << facts.height << ", " << facts.depth
         << "-bit, each at the representative settings of its registry entry, timed over the call alone. "
            "An image opens at full size when clicked.</p>\n<nav>";
    for (std::string_view family : families)
        page << "<a href=\"#family-" << Escaped(family) << "\">" << Escaped(FamilyTitle(family)) << "</a>";
    page << "</nav>\n";
}

} // namespace

void WriteGalleryPage(const std::string& path, const GalleryFacts& facts)
{
    const std::vector<std::string_view> families = FamiliesInOrder(facts);
    std::ostringstream page;
    // A tile holds two thumbnails side by side with its padding.
    page << "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n<title>KXEffects gallery</title>\n"
         << "<style>:root { --tile: " << 2 * facts.thumbnailWidth + 32 << "px; }" << kStyle << "</style>\n</head>\n"
         << "<body data-effects=\"" << facts.tiles.size() << "\">\n";
    WriteHeading(page, facts, families);
    for (std::string_view family : families)
        WriteFamily(page, facts, family);
    page << "<script>" << kScript << "</script>\n</body>\n</html>\n";
    std::ofstream file(path, std::ios::binary);
    file << page.str();
    file.close();
    if (!file)
        throw ToolError("cannot write '" + path + "'");
}
