// What holds for every registered effect, at every depth, on lockable and unbuffered images: the status at
// neutral settings, nothing written outside the rectangle, the neutral copy, tiles grown by the margin equal
// to the whole image, in place equal to out of place.
#include "RegistryCalls.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fstream>
#include <memory>
#include <regex>
#include <set>
#include <sstream>

namespace {

constexpr KXRect kBounds = {0, 0, 13, 9};
constexpr KXRect kInside = {3, 2, 8, 5};

const Shape kShapes[] = {{8, 4, true},  {8, 4, false},  {16, 4, true}, {16, 4, false},
                         {32, 4, true}, {32, 4, false}, {8, 1, true},  {32, 1, false}};

struct Fixture {
    Image source, second, mask;
    explicit Fixture(const Shape& shape)
        : source(MakeImage(kBounds, shape)), second(MakeImage(kBounds, shape)),
          mask(MakeImage(kBounds, {shape.depth, 1, true}))
    {
        FillRandom(source.get(), 1);
        FillRandom(second.get(), 2);
        FillRandom(mask.get(), 3);
    }
    Inputs Get() const { return {source.get(), second.get(), mask.get()}; }
};

// Everything outside where the entry may write over rect (at the neutral offset) of the two images is the same.
void ExpectSameOutside(const EffectEntry& entry, KXImage* before, KXImage* after, const KXRect& rect)
{
    const std::vector<uint8_t> a = ReadBytes(before, kBounds), b = ReadBytes(after, kBounds);
    const size_t pixel = a.size() / size_t(kBounds.width * kBounds.height);
    const std::vector<Region> regions = WritableRegions(entry, rect, KXPointMake(0, 0));
    for (int32_t y = 0; y < kBounds.height; ++y)
        for (int32_t x = 0; x < kBounds.width; ++x) {
            if (std::any_of(regions.begin(), regions.end(),
                            [&](const Region& region) { return region.Contains(x, y); }))
                continue;
            const size_t at = (size_t(y) * size_t(kBounds.width) + size_t(x)) * pixel;
            ASSERT_TRUE(std::equal(a.begin() + at, a.begin() + at + pixel, b.begin() + at)) << x << "," << y;
        }
}

// Integer samples exactly; float samples within 2e-6, since the vector dot products of the float blurs sum
// in an order that follows the alignment of the row in memory, which differs between a tile and the whole.
void ExpectSameSamples(KXImage* actual, KXImage* expected, const KXRect& rect)
{
    const std::vector<uint8_t> a = ReadBytes(actual, rect), b = ReadBytes(expected, rect);
    if (KXImageGetDepth(actual) != 32) {
        EXPECT_EQ(a, b);
        return;
    }
    float worst = 0.0f;
    for (size_t at = 0; at < a.size(); at += 4) {
        float x, y;
        std::memcpy(&x, &a[at], 4);
        std::memcpy(&y, &b[at], 4);
        worst = std::max(worst, std::fabs(x - y));
    }
    EXPECT_LE(worst, 2e-6f);
}

} // namespace

TEST(Registry, NeutralSettingsGiveTheStatusAndTouchOnlyTheRectangle)
{
    for (const Shape& shape : kShapes) {
        const Fixture fixture(shape);
        for (const EffectEntry& entry : kEffectRegistry) {
            if (!WritesInRect(entry))
                continue;
            SCOPED_TRACE(std::string(entry.cName) + " depth " + std::to_string(shape.depth) + " planes " +
                         std::to_string(shape.planes) + (shape.lockable ? " lockable" : " unbuffered"));
            const auto call = PrepareCall(entry, fixture.Get(), kBounds, kInside, false, shape.lockable);
            const Image before = CopyInto(call->destination, kBounds, true);
            const int32_t status = RunCall(*call);
            const bool depthKnown = (entry.depths & (1 << (shape.depth / 16))) != 0;
            // Neutral settings may copy before the depth is asked.
            if (shape.planes == 4 && depthKnown) {
                EXPECT_EQ(status, kKXNoErr);
            }
            ExpectSameOutside(entry, before.get(), call->destination, kInside);
            if (status == kKXNoErr && entry.neutralCopies && !entry.Has(ArgKind::InPlace)) {
                EXPECT_EQ(ReadBytes(call->destination, kInside), ReadBytes(fixture.source.get(), kInside));
            }
        }
    }
}

// Effects whose result at a pixel is not a function of its neighbourhood within the margin.
bool TilesDiffer(const EffectEntry& entry)
{
    const std::string_view name = entry.cName;
    // Noise draws from one generator that every call reseeds: a tile starts the sequence anew. An offset
    // moves the result by more than the margin, which is given for the radius alone.
    // A grain is read one byte a column from its own origin, so a grain cut to the tile is another grain.
    return name == "KXEffectsAddNoise" || name == "KXEffectsApplyFilmGrain" || name == "KXEffectsApplyFilmGrainTile" ||
           entry.Has(ArgKind::Point);
}

TEST(Registry, TilesGrownByTheMarginEqualTheWholeImage)
{
    for (const Shape& shape : kShapes) {
        if (shape.planes != 4)
            continue;
        const Fixture fixture(shape);
        for (const EffectEntry& entry : kEffectRegistry) {
            if (!WritesInRect(entry) || TilesDiffer(entry) || entry.Has(ArgKind::InPlace) ||
                (entry.depths & (1 << (shape.depth / 16))) == 0)
                continue;
            float value = 0.0f;
            for (const ArgSpec& arg : entry.Args())
                if (arg.flags & kArgMarginValue)
                    value = ParseFloat(arg.sample);
            const int32_t margin = KXEffectsGetOutset(entry.proc(), value);
            if (margin < 0)
                continue;
            SCOPED_TRACE(std::string(entry.cName) + " depth " + std::to_string(shape.depth) + " margin " +
                         std::to_string(margin) + (shape.lockable ? " lockable" : " unbuffered"));
            const auto whole = PrepareCall(entry, fixture.Get(), kBounds, kBounds, true, shape.lockable);
            ASSERT_EQ(RunCall(*whole), kKXNoErr);
            const KXRect tileRect = KXRectMake(5, 3, 4, 3);
            const KXRect grown = KXRectOutset(&tileRect, margin);
            const KXRect tileBounds = KXRectIntersect(&grown, &kBounds);
            const auto tile = PrepareCall(entry, fixture.Get(), tileBounds, tileRect, true, shape.lockable);
            ASSERT_EQ(RunCall(*tile), kKXNoErr);
            ExpectSameSamples(tile->destination, whole->destination, tileRect);
        }
    }
}

TEST(Registry, InPlaceEqualsOutOfPlace)
{
    for (const Shape& shape : {Shape{8, 4, true}, Shape{16, 4, false}, Shape{32, 4, true}}) {
        const Fixture fixture(shape);
        for (const EffectEntry& entry : kEffectRegistry) {
            if (!WritesInRect(entry) || !entry.Has(ArgKind::Source) || !entry.Has(ArgKind::Destination) ||
                TilesDiffer(entry) || (entry.depths & (1 << (shape.depth / 16))) == 0)
                continue;
            SCOPED_TRACE(std::string(entry.cName) + " depth " + std::to_string(shape.depth));
            const auto apart = PrepareCall(entry, fixture.Get(), kBounds, kInside, true, shape.lockable);
            ASSERT_EQ(RunCall(*apart), kKXNoErr);
            const auto together = PrepareCall(entry, fixture.Get(), kBounds, kInside, true, shape.lockable, true);
            // Some effects refuse one image as both; a refusal must leave it as it was.
            const std::vector<uint8_t> before = ReadBytes(together->destination, kBounds);
            const int32_t status = RunCall(*together);
            if (status != kKXNoErr) {
                EXPECT_EQ(ReadBytes(together->destination, kBounds), before);
                continue;
            }
            EXPECT_EQ(ReadBytes(together->destination, kInside), ReadBytes(apart->destination, kInside));
        }
    }
}

// Every exported entry point that takes an image has its entry, and the names are unique.
TEST(Registry, EveryImageEntryPointIsRegistered)
{
    std::ifstream header(KXEFFECTS_HEADER);
    std::stringstream text;
    text << header.rdbuf();
    const std::string source = text.str();
    const std::regex declaration(R"(KX_EXPORT\s+int32_t\s+(KXEffects\w+)\s*\(([^;]*)\);)");
    std::set<std::string> registered, cliNames;
    for (const EffectEntry& entry : kEffectRegistry) {
        EXPECT_TRUE(registered.insert(entry.cName).second) << entry.cName;
        EXPECT_TRUE(cliNames.insert(entry.cliName).second) << entry.cliName;
        EXPECT_EQ(FindEffect(entry.cliName), &entry);
        if (entry.alias) {
            EXPECT_TRUE(cliNames.insert(entry.alias).second) << entry.alias;
            EXPECT_EQ(FindEffect(entry.alias), &entry);
        }
    }
    size_t found = 0;
    for (auto it = std::sregex_iterator(source.begin(), source.end(), declaration); it != std::sregex_iterator();
         ++it) {
        const std::string name = (*it)[1], parameters = (*it)[2];
        if (parameters.find("KXImage*") == std::string::npos || name == "KXEffectsCreateImageLike")
            continue;
        ++found;
        EXPECT_TRUE(registered.count(name)) << name << " has no registry entry";
    }
    EXPECT_EQ(found, registered.size());
}
