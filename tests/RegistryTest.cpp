// What holds for every registered effect, at every depth, on lockable and unbuffered images: the status at
// neutral settings, nothing written outside the rectangle, the neutral copy, tiles grown by the margin equal
// to the whole image, in place equal to out of place.
#include "EffectRunner.h"
#include "KXEffectsRegistry.h"
#include "Settings.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <memory>
#include <regex>
#include <set>
#include <sstream>

namespace {

struct ImageDeleter {
    void operator()(KXImage* image) const { KXImageRelease(image); }
};
using Image = std::unique_ptr<KXImage, ImageDeleter>;

struct Shape {
    int32_t depth;
    int32_t planes; // 4 RGBA, 1 gray
    bool lockable;
};

Image MakeImage(const KXRect& bounds, const Shape& shape)
{
    KXImage* image = nullptr;
    const int32_t transparency = shape.planes == 4 ? 1 : 0;
    EXPECT_EQ(KXImageCreateWithParams2(&bounds, shape.depth, shape.planes,
                                       shape.planes >= 3 ? KXColorSpaceRGB : KXColorSpaceGray, transparency,
                                       shape.lockable ? KXDataSourceMemory : KXDataSourceUnbuffered, &image),
              0);
    return Image(image);
}

size_t SampleBytes(int32_t depth)
{
    return size_t(depth / 8);
}

std::vector<uint8_t> ReadBytes(KXImage* image, const KXRect& rect)
{
    std::vector<uint8_t> bytes(size_t(rect.width) * size_t(rect.height) * size_t(KXImageGetNumPlanes(image)) *
                               SampleBytes(KXImageGetDepth(image)));
    EXPECT_EQ(KXImageRead2(image, &rect, 0, -1, bytes.data(), -1, 0), 0);
    return bytes;
}

void WriteBytes(KXImage* image, const KXRect& rect, const std::vector<uint8_t>& bytes)
{
    EXPECT_EQ(KXImageWrite2(image, &rect, 0, -1, bytes.data(), -1, 0), 0);
}

// Samples from a hash of the absolute position, within 0..white (float 0..1), so that an image cut to other
// bounds holds the same pixels where the two overlap.
void FillRandom(KXImage* image, uint32_t seed)
{
    const KXRect bounds = KXImageGetBounds(image);
    std::vector<uint8_t> bytes = ReadBytes(image, bounds);
    const int32_t depth = KXImageGetDepth(image);
    const size_t planes = size_t(KXImageGetNumPlanes(image));
    size_t at = 0;
    for (int32_t y = bounds.y; y < bounds.y + bounds.height; ++y)
        for (int32_t x = bounds.x; x < bounds.x + bounds.width; ++x)
            for (size_t plane = 0; plane < planes; ++plane, at += SampleBytes(depth)) {
                uint32_t hash = (uint32_t(x) * 73856093u) ^ (uint32_t(y) * 19349663u) ^ (uint32_t(plane) * 83492791u) ^
                                seed;
                hash = (hash ^ (hash >> 15)) * 2246822519u;
                hash ^= hash >> 13;
                if (depth == 8)
                    bytes[at] = uint8_t(hash);
                else if (depth == 16) {
                    const uint16_t value = uint16_t(hash);
                    std::memcpy(&bytes[at], &value, 2);
                } else {
                    const float value = float(hash % 10001) / 10000.0f;
                    std::memcpy(&bytes[at], &value, 4);
                }
            }
    WriteBytes(image, bounds, bytes);
}

Image CopyInto(KXImage* image, const KXRect& bounds, bool lockable)
{
    const Shape shape{KXImageGetDepth(image), KXImageGetNumPlanes(image), lockable};
    Image copy = MakeImage(bounds, shape);
    WriteBytes(copy.get(), bounds, ReadBytes(image, bounds));
    return copy;
}

// The images and values of one call of an entry. Inputs come from the images given (cut to their bounds),
// destinations start as a canary that the effect must not touch outside the rectangle.
struct Call {
    std::unique_ptr<CallValues> values;
    std::vector<Image> owned;
    KXImage* destination = nullptr;
    KXImage* made = nullptr;
    KXRect rect{};
    KXRect found{};
    CFMutableArrayRef masks = nullptr;

    ~Call()
    {
        if (masks)
            CFRelease(masks);
        if (made)
            KXImageRelease(made);
    }
};

struct Inputs {
    KXImage* source;
    KXImage* second;
    KXImage* mask;
};

// Settings at their neutral (or representative) text; images from inputs, cut to bounds.
std::unique_ptr<Call> PrepareCall(const EffectEntry& entry, const Inputs& inputs, const KXRect& bounds,
                                  const KXRect& rect, bool sample, bool lockable, bool inPlace = false)
{
    auto call = std::make_unique<Call>();
    call->values = std::make_unique<CallValues>(entry);
    call->rect = rect;
    KXImage* source = call->owned.emplace_back(CopyInto(inputs.source, bounds, lockable)).get();
    const int32_t colourPlanes = KXImageGetNumPlanes(source) - KXImageGetTransparency(source);
    const auto canary = [&](KXImage* like, int32_t planes) {
        const Shape shape{KXImageGetDepth(like), planes, lockable};
        KXImage* image = call->owned.emplace_back(MakeImage(bounds, shape)).get();
        FillRandom(image, 99);
        return image;
    };
    for (size_t index = 0; index < entry.argCount; ++index) {
        const ArgSpec& arg = entry.args[index];
        switch (arg.kind) {
        case ArgKind::Source:
            call->values->Set(index, source);
            break;
        case ArgKind::Destination:
        case ArgKind::InPlace:
            call->destination = inPlace || arg.kind == ArgKind::InPlace ? source
                                                                        : canary(source, KXImageGetNumPlanes(source));
            call->values->Set(index, call->destination);
            break;
        case ArgKind::MaskDestination:
            call->values->Set(index, call->destination = canary(source, 1));
            break;
        case ArgKind::ExtraDestination:
            call->values->Set(index, canary(source, KXImageGetNumPlanes(source)));
            break;
        case ArgKind::Image:
            call->values->Set(index, arg.IsOptional()
                                         ? nullptr
                                         : call->owned.emplace_back(CopyInto(inputs.second, bounds, lockable)).get());
            break;
        case ArgKind::Mask:
            call->values->Set(index, arg.IsOptional() && !sample
                                         ? nullptr
                                         : call->owned.emplace_back(CopyInto(inputs.mask, bounds, lockable)).get());
            break;
        case ArgKind::Masks:
            call->masks = CFArrayCreateMutable(kCFAllocatorDefault, 0, KXUtilsGetArrayCallbacks());
            CFArrayAppendValue(call->masks, call->owned.emplace_back(CopyInto(inputs.mask, bounds, lockable)).get());
            call->values->Set(index, CFArrayRef(call->masks));
            break;
        case ArgKind::Rect:
            call->values->Set(index, static_cast<const KXRect*>(&call->rect));
            break;
        case ArgKind::Out:
            call->values->AddOutput(index);
            break;
        case ArgKind::OutImage:
            call->values->Set(index, &call->made);
            break;
        case ArgKind::OutRect:
            call->values->Set(index, &call->found);
            break;
        case ArgKind::Progress:
            break;
        default:
            call->values->Parse(index, sample ? arg.sample : arg.neutral, colourPlanes);
        }
    }
    return call;
}

// Status of a call; a thrown status is the result too.
int32_t RunCall(const Call& call)
{
    try {
        return call.values->Invoke();
    } catch (int32_t status) {
        return status;
    }
}

bool WritesInRect(const EffectEntry& entry)
{
    return entry.Has(ArgKind::Rect) &&
           (entry.Has(ArgKind::Destination) || entry.Has(ArgKind::MaskDestination) || entry.Has(ArgKind::InPlace));
}

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

// Everything outside rect of the two images is the same.
void ExpectSameOutside(KXImage* before, KXImage* after, const KXRect& rect)
{
    const std::vector<uint8_t> a = ReadBytes(before, kBounds), b = ReadBytes(after, kBounds);
    const size_t pixel = a.size() / size_t(kBounds.width * kBounds.height);
    for (int32_t y = 0; y < kBounds.height; ++y)
        for (int32_t x = 0; x < kBounds.width; ++x) {
            const KXPoint point = KXPointMake(x, y);
            if (KXPointInRect(point, &rect))
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
            ExpectSameOutside(before.get(), call->destination, kInside);
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
