// Absurd arguments: sizes that wrap, negative counts, null tables, NaN and endless bounds, margins of every
// float; rectangles at the ends of the integers, settings that are not finite and radii beyond any image,
// over every registered effect.
#include "KXEffectsRegistry.h"
#include "Settings.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();
constexpr KXRect kBounds = {0, 0, 16, 16};

struct ImageDeleter {
    void operator()(KXImage* image) const { KXImageRelease(image); }
};
using Image = std::unique_ptr<KXImage, ImageDeleter>;

// A 16 x 16 image of the depth whose samples differ from pixel to pixel.
Image MakeImage(int32_t depth, int32_t planes, bool lockable, uint32_t seed)
{
    KXImage* image = nullptr;
    EXPECT_EQ(KXImageCreateWithParams2(&kBounds, depth, planes, planes >= 3 ? KXColorSpaceRGB : KXColorSpaceGray,
                                       planes == 4 ? 1 : 0, lockable ? KXDataSourceMemory : KXDataSourceUnbuffered,
                                       &image),
              0);
    std::vector<uint8_t> bytes(size_t(kBounds.width * kBounds.height * planes * depth / 8));
    for (size_t at = 0; at < bytes.size(); ++at)
        bytes[at] = uint8_t((at * 2654435761u + seed) >> 7);
    if (depth == 32)
        for (size_t at = 0; at < bytes.size(); at += 4) {
            const float value = float(bytes[at]) / 255.0f;
            std::memcpy(&bytes[at], &value, 4);
        }
    EXPECT_EQ(KXImageWrite2(image, &kBounds, 0, -1, bytes.data(), -1, 0), 0);
    return Image(image);
}

std::vector<uint8_t> ReadBytes(KXImage* image)
{
    const size_t pixel = size_t(KXImageGetNumPlanes(image) * KXImageGetDepth(image) / 8);
    std::vector<uint8_t> bytes(size_t(kBounds.width * kBounds.height) * pixel);
    EXPECT_EQ(KXImageRead2(image, &kBounds, 0, -1, bytes.data(), -1, 0), 0);
    return bytes;
}

// The value of a setting in place of its sample text, or none to keep the sample.
using Override = std::function<std::optional<ArgValue>(size_t index, const ArgSpec& arg)>;

// One call of an entry on fresh 16 x 16 images of a depth, RGBA or gray, with the sample settings but for
// the overrides; the destination starts as an image of its own that the effect may change only in rect.
class HostileCall {
public:
    HostileCall(const EffectEntry& entry, int32_t depth, int32_t planes, const KXRect& rect, const Override& override)
        : m_values(entry), m_rect(rect), m_moves(entry.Has(ArgKind::Point))
    {
        const bool lockable = depth != 16;
        KXImage* source = Keep(MakeImage(depth, planes, lockable, 1));
        for (size_t index = 0; index < entry.argCount; ++index) {
            const ArgSpec& arg = entry.args[index];
            if (const std::optional<ArgValue> value = override(index, arg)) {
                m_values.Set(index, *value);
                continue;
            }
            switch (arg.kind) {
            case ArgKind::Source:
                m_values.Set(index, source);
                break;
            case ArgKind::InPlace:
                m_values.Set(index, m_destination = source);
                break;
            case ArgKind::Destination:
            case ArgKind::ExtraDestination:
            case ArgKind::MaskDestination: {
                KXImage* image = Keep(MakeImage(depth, arg.kind == ArgKind::MaskDestination ? 1 : planes, lockable, 7));
                if (arg.kind != ArgKind::ExtraDestination)
                    m_destination = image;
                m_values.Set(index, image);
                break;
            }
            case ArgKind::Image:
                m_values.Set(index, Keep(MakeImage(depth, planes, lockable, 3)));
                break;
            case ArgKind::Mask:
                m_values.Set(index, Keep(MakeImage(depth, 1, lockable, 5)));
                break;
            case ArgKind::Masks:
                m_masks = CFArrayCreateMutable(kCFAllocatorDefault, 0, KXUtilsGetArrayCallbacks());
                CFArrayAppendValue(m_masks, Keep(MakeImage(depth, 1, lockable, 5)));
                m_values.Set(index, CFArrayRef(m_masks));
                break;
            case ArgKind::Rect:
                m_values.Set(index, static_cast<const KXRect*>(&m_rect));
                break;
            case ArgKind::Out:
                m_values.AddOutput(index);
                break;
            case ArgKind::OutImage:
                m_values.Set(index, &m_made);
                break;
            case ArgKind::OutRect:
                m_values.Set(index, &m_found);
                break;
            default:
                m_values.Parse(index, arg.sample, planes == 4 ? 3 : 1);
            }
        }
        if (m_destination)
            m_before = ReadBytes(m_destination);
    }
    ~HostileCall()
    {
        if (m_masks)
            CFRelease(m_masks);
        if (m_made)
            KXImageRelease(m_made);
    }

    // The status, a thrown one included.
    int32_t Run() const
    {
        try {
            return m_values.Invoke();
        } catch (int32_t status) {
            return status;
        }
    }
    // The destination outside the part of the rectangle in the image is as it was. An offset moves what is
    // written; where to stands in the effects' own tests.
    void ExpectUnchangedOutside(const KXRect& written) const
    {
        if (!m_destination || m_moves)
            return;
        const std::vector<uint8_t> after = ReadBytes(m_destination);
        const size_t pixel = after.size() / size_t(kBounds.width * kBounds.height);
        for (int32_t y = 0; y < kBounds.height; ++y)
            for (int32_t x = 0; x < kBounds.width; ++x) {
                if (KXPointInRect(KXPointMake(x, y), &written))
                    continue;
                const size_t at = size_t(y * kBounds.width + x) * pixel;
                ASSERT_TRUE(std::equal(after.begin() + at, after.begin() + at + pixel, m_before.begin() + at))
                    << x << "," << y;
            }
    }

private:
    KXImage* Keep(Image image) { return m_images.emplace_back(std::move(image)).get(); }

    CallValues m_values;
    KXRect m_rect;
    bool m_moves;
    std::vector<Image> m_images;
    KXImage* m_destination = nullptr;
    std::vector<uint8_t> m_before;
    KXImage* m_made = nullptr;
    KXRect m_found{};
    CFMutableArrayRef m_masks = nullptr;
};

bool HasImages(const EffectEntry& entry)
{
    return entry.Has(ArgKind::Source) || entry.Has(ArgKind::InPlace);
}

std::string Describe(const EffectEntry& entry, int32_t depth, const std::string& what)
{
    return std::string(entry.cName) + " depth " + std::to_string(depth) + " " + what;
}

const Override kSampleSettings = [](size_t, const ArgSpec&) { return std::optional<ArgValue>(); };

bool Named(const EffectEntry& entry, std::initializer_list<std::string_view> names)
{
    return std::find(names.begin(), names.end(), std::string_view(entry.cName)) != names.end();
}

// Effects whose every float setting must be a number.
bool RefusesNonFinite(const EffectEntry& entry)
{
    return Named(entry, {"KXEffectsHueSaturationBrightness", "KXEffectsHueSaturationLightness", "KXEffectsColorize",
                         "KXEffectsTemperatureAndTint", "KXEffectsTemperatureTintAndVibrance",
                         "KXEffectsTemperatureTintAndSaturation", "KXEffectsTemperatureTintSaturationAndVibrance",
                         "KXEffectsEmboss", "KXEffectsApplyEffectWithMask"});
}

// A radius, window end or emboss height whose reach passes 32767 pixels is refused.
bool RefusesBeyondReach(const EffectEntry& entry, const ArgSpec& arg)
{
    const std::string_view name = arg.name;
    const bool reach = ((arg.flags & kArgMarginValue) != 0 && name != "angle") || name == "left" || name == "right" ||
                       name == "top" || name == "bottom" || name == "height";
    return reach &&
           (std::string_view(entry.cName).starts_with("KXEffectsBoxBlur") ||
            std::string_view(entry.cName).starts_with("KXEffectsGaussianBlur") ||
            Named(entry, {"KXEffectsSurfaceBlur", "KXEffectsSurfaceBlurWithOffset", "KXEffectsSurfaceBlurLuminosity",
                          "KXEffectsMedian", "KXEffectsDustAndScratch", "KXEffectsTriangularBlur", "KXEffectsEmboss"}));
}

} // namespace

// The helpers without images: sizes that wrap, negative counts, null tables, NaN and endless bounds.
TEST(HostileInput, HelpersRefuseAbsurdArguments)
{
    EXPECT_EQ(KXEffectsAlignedAlloc(SIZE_MAX), nullptr);
    EXPECT_EQ(KXEffectsAlignedAlloc(size_t(1) << 62), nullptr);
    const float a[4] = {1, 2, 3, 4};
    const float* rows[4] = {a, a, a, a};
    float out[4] = {9, 9, 9, 9};
    KXEffectsDotProduct4(a, rows, out, -5);
    EXPECT_EQ(out[0], 0.0f);
    EXPECT_EQ(KXEffectsTuneColorsGetHueTables(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr), nullptr);

    const float warm[3] = {0.8f, 0.6f, 0.4f};
    float temperature = 0.0f, tint = 0.0f;
    EXPECT_EQ(KXEffectsTemperatureAndTintForGrayWithRanges(warm, &temperature, &tint, kNaN, 1, -1, 1), kKXErrBadParam);
    // Endless bounds search the widest range, 201 x 201, as the default bounds do.
    float expectedTemperature = 0.0f, expectedTint = 0.0f;
    ASSERT_EQ(KXEffectsTemperatureAndTintForGray(warm, &expectedTemperature, &expectedTint), kKXNoErr);
    for (float wide : {kInf, 1e30f}) {
        ASSERT_EQ(KXEffectsTemperatureAndTintForGrayWithRanges(warm, &temperature, &tint, -wide, wide, -wide, wide),
                  kKXNoErr);
        EXPECT_EQ(temperature, expectedTemperature);
        EXPECT_EQ(tint, expectedTint);
    }

    // Every margin answers for every float; the sanitized build reports an overflow on the way.
    for (const EffectEntry& entry : kEffectRegistry)
        for (float value : {kNaN, kInf, -kInf, 1e30f, -1e30f, 3e9f})
            KXEffectsGetOutset(entry.proc(), value);
}

// Rectangles whose ends pass the integers, that reach from one end to the other, or that have negative
// sizes: every effect gives a status (out of memory where a row of them cannot be had) and writes nothing
// beyond the part of the rectangle inside the image.
TEST(HostileInput, ExtremeRectanglesGiveAStatusAndWriteNothingOutside)
{
    constexpr int32_t kMax = INT32_MAX, kMin = INT32_MIN;
    const KXRect rects[] = {{kMax - 4, kMax - 4, 100, 100},
                            {kMin, kMin, 8, 8},
                            {-8, 2, kMax, 9},
                            {kMin, 2, kMax, 9},
                            {kMin, 2, kMax, -9},
                            {4, 4, -5, -5},
                            {kMin, kMin, kMax, 4},
                            {3, kMax - 1, 9, 40},
                            {-20, -20, 56, 56}};
    for (int32_t depth : {8, 16, 32})
        for (const EffectEntry& entry : kEffectRegistry) {
            if (!entry.Has(ArgKind::Rect) || !HasImages(entry))
                continue;
            for (const KXRect& rect : rects) {
                SCOPED_TRACE(Describe(entry, depth,
                                      "rect " + std::to_string(rect.x) + "," + std::to_string(rect.y) + " " +
                                          std::to_string(rect.width) + "x" + std::to_string(rect.height)));
                const HostileCall call(entry, depth, 4, rect, kSampleSettings);
                call.Run();
                call.ExpectUnchangedOutside(KXRectIntersect(&rect, &kBounds));
            }
        }
}

// A float setting that is NaN or endless is refused before any pixel moves, unless the effect has an answer
// for it; every effect gives a status and keeps to its rectangle.
TEST(HostileInput, NonFiniteSettingsAreRefused)
{
    const KXRect rect = {2, 3, 9, 7};
    for (int32_t depth : {8, 32})
        for (const EffectEntry& entry : kEffectRegistry) {
            if (!HasImages(entry))
                continue;
            for (size_t index = 0; index < entry.argCount; ++index) {
                if (entry.args[index].kind != ArgKind::Float)
                    continue;
                for (float value : {kNaN, kInf, -kInf}) {
                    SCOPED_TRACE(
                        Describe(entry, depth, std::string(entry.args[index].name) + " " + std::to_string(value)));
                    const HostileCall call(entry, depth, 4, rect, [&](size_t at, const ArgSpec&) {
                        return at == index ? std::optional<ArgValue>(value) : std::nullopt;
                    });
                    const int32_t status = call.Run();
                    if (RefusesNonFinite(entry)) {
                        EXPECT_EQ(status, kKXErrBadParam);
                    }
                    call.ExpectUnchangedOutside(rect);
                }
            }
        }
}

// Radii, windows and offsets at the ends of the integers and floats far beyond any image, on a small image:
// every effect gives a status, the blurs refuse a reach they cannot run before any work or buffer (a hang
// or an absurd allocation shows as the suite's time-out or the sanitizer's report).
TEST(HostileInput, HugeRadiiAreRefusedBeforeAnyWork)
{
    const KXRect rect = {2, 3, 9, 7};
    for (int32_t depth : {8, 16, 32})
        for (const EffectEntry& entry : kEffectRegistry) {
            if (!HasImages(entry))
                continue;
            for (size_t index = 0; index < entry.argCount; ++index) {
                const ArgSpec& arg = entry.args[index];
                std::vector<ArgValue> values;
                if (arg.kind == ArgKind::Integer)
                    values = {1000000, INT32_MAX, INT32_MIN, -1000000};
                else if (arg.kind == ArgKind::Float)
                    values = {1e6f, -1e6f, 1e30f, -1e30f, 3e9f};
                else if (arg.kind == ArgKind::Point)
                    values = {KXPointMake(INT32_MIN, INT32_MIN), KXPointMake(INT32_MAX, INT32_MAX)};
                for (const ArgValue& value : values) {
                    SCOPED_TRACE(Describe(
                        entry, depth, std::string(arg.name) + " at extreme " + std::to_string(&value - values.data())));
                    const HostileCall call(entry, depth, 4, rect, [&](size_t at, const ArgSpec&) {
                        return at == index ? std::optional<ArgValue>(value) : std::nullopt;
                    });
                    const int32_t status = call.Run();
                    // The first of each kind is a reach beyond any image that still converts to an integer.
                    const bool depthKnown = (entry.depths & (1 << (depth / 16))) != 0;
                    if (&value == &values[0] && depthKnown && RefusesBeyondReach(entry, arg)) {
                        EXPECT_EQ(status, kKXErrBadParam);
                    }
                }
            }
        }
}
