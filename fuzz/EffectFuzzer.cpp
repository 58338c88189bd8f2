// Calls the entry points of one family of the registry, KX_FUZZ_FAMILY, with what the input picks: the
// effect, the depth, planes and kind of the images and their bounds, the rectangle, the settings (mostly in
// their range, sometimes absurd) and the pixels. A call must end in a status, or in a thrown status where the
// entry point does not catch, and leave every input image, and every destination outside where the entry
// may write, as it was. Anything else stops the fuzzer.
#include "KXEffectsBlendModes.h"
#include "KXEffectsRegistry.h"
#include "RegistryWrites.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <limits>
#include <memory>
#include <span>
#include <vector>

// Absurd values that open defects still trip on: rectangles and offsets near the ends of int32_t, absurd
// radii and angles, and companion images of another depth or plane count, being fixed now. Build with them
// set to 1 to fuzz those too.
#ifndef KX_FUZZ_EXTREME_RECTS
#define KX_FUZZ_EXTREME_RECTS 0
#endif
#ifndef KX_FUZZ_EXTREME_RADII
#define KX_FUZZ_EXTREME_RADII 0
#endif
#ifndef KX_FUZZ_MISMATCHED_IMAGES
#define KX_FUZZ_MISMATCHED_IMAGES 0
#endif
// NaN, infinite and huge float settings and samples: the hexcone of the colour maths still converts such a
// hue to an integer undefinedly.
#ifndef KX_FUZZ_ABSURD_FLOATS
#define KX_FUZZ_ABSURD_FLOATS 0
#endif

namespace {

constexpr int32_t kMaxSide = 24;
// Settings are drawn mostly within this of 0; radii and windows at most kCostlyReach, since a true gaussian
// at radius 600 takes seconds even on these images.
constexpr float kUsualSpan = 12.0f;
constexpr float kCostlyReach = 48.0f;

struct ImageReleaser {
    void operator()(KXImage* image) const { KXImageRelease(image); }
};
using Image = std::unique_ptr<KXImage, ImageReleaser>;

struct ArrayReleaser {
    void operator()(CFMutableArrayRef array) const { CFRelease(array); }
};

struct Layout {
    int32_t planes, transparency, colorSpace;
};
constexpr Layout kLayouts[] = {
    {1, 0, KXColorSpaceGray}, {2, 1, KXColorSpaceGray}, {3, 0, KXColorSpaceRGB}, {4, 1, KXColorSpaceRGB}};
constexpr int32_t kDepths[] = {8, 16, 32};

template <class... Modes> constexpr std::array<uint32_t, sizeof...(Modes)> CodesOf(BlendModeList<Modes...>)
{
    return {Modes::kCode...};
}
constexpr auto kBlendCodes = CodesOf(AllBlendModes{});

std::vector<const EffectEntry*> FamilyEntries()
{
    std::vector<const EffectEntry*> entries;
    for (const EffectEntry& entry : kEffectRegistry)
        if (std::string_view(entry.family) == KX_FUZZ_FAMILY)
            entries.push_back(&entry);
    return entries;
}

size_t ImageBytes(KXImage* image)
{
    const KXRect bounds = KXImageGetBounds(image);
    return size_t(bounds.width) * size_t(bounds.height) * size_t(KXImageGetNumPlanes(image)) *
           size_t(KXImageGetDepth(image) / 8);
}

std::vector<uint8_t> Snapshot(KXImage* image)
{
    std::vector<uint8_t> bytes(ImageBytes(image));
    const KXRect bounds = KXImageGetBounds(image);
    if (KXImageRead2(image, &bounds, 0, -1, bytes.data(), -1, 0) != 0)
        __builtin_trap();
    return bytes;
}

// Draws everything of one call from the input.
class CallMaker {
public:
    explicit CallMaker(FuzzedDataProvider& input) : m_input(input) {}

    KXRect Bounds()
    {
        return KXRectMake(m_input.ConsumeIntegralInRange(-8, 8), m_input.ConsumeIntegralInRange(-8, 8),
                          m_input.ConsumeIntegralInRange(1, kMaxSide), m_input.ConsumeIntegralInRange(1, kMaxSide));
    }

    // Mostly a part of the bounds; else anywhere near them, empty or negative, partly or wholly outside.
    KXRect Rect(const KXRect& bounds)
    {
        switch (m_input.ConsumeIntegralInRange(0, KX_FUZZ_EXTREME_RECTS ? 3 : 2)) {
        case 0: {
            const int32_t x = m_input.ConsumeIntegralInRange(0, bounds.width - 1);
            const int32_t y = m_input.ConsumeIntegralInRange(0, bounds.height - 1);
            return KXRectMake(bounds.x + x, bounds.y + y, m_input.ConsumeIntegralInRange(1, bounds.width - x),
                              m_input.ConsumeIntegralInRange(1, bounds.height - y));
        }
        case 1:
            return bounds;
        case 2:
            return KXRectMake(m_input.ConsumeIntegralInRange(-40, 40), m_input.ConsumeIntegralInRange(-40, 40),
                              m_input.ConsumeIntegralInRange(-4, 60), m_input.ConsumeIntegralInRange(-4, 60));
        default:
            return KXRectMake(ExtremeInteger(), ExtremeInteger(), ExtremeInteger(), ExtremeInteger());
        }
    }

    Image MakeImage(const KXRect& bounds, int32_t depth, const Layout& layout, bool lockable)
    {
        KXImage* image = nullptr;
        if (KXImageCreateWithParams2(&bounds, depth, layout.planes, layout.colorSpace, layout.transparency,
                                     lockable ? KXDataSourceMemory : KXDataSourceUnbuffered, &image) != 0)
            __builtin_trap();
        Fill(image);
        return Image(image);
    }

    // Samples from the input: in range, or for float any bits at all (NaN and infinities included).
    void Fill(KXImage* image)
    {
        std::vector<uint8_t> bytes(ImageBytes(image));
        const bool rawFloats = KX_FUZZ_ABSURD_FLOATS && m_input.ConsumeIntegralInRange(0, 7) == 0;
        const int32_t depth = KXImageGetDepth(image);
        for (size_t at = 0; at < bytes.size(); at += size_t(depth / 8)) {
            const uint8_t level = m_input.ConsumeIntegral<uint8_t>();
            if (depth == 8) {
                bytes[at] = level;
            } else if (depth == 16) {
                const uint16_t sample = uint16_t(level * 257);
                std::memcpy(&bytes[at], &sample, 2);
            } else {
                const uint32_t bits = rawFloats ? m_input.ConsumeIntegral<uint32_t>() : 0;
                const float sample = rawFloats ? std::bit_cast<float>(bits) : float(level) / 255.0f;
                std::memcpy(&bytes[at], &sample, 4);
            }
        }
        const KXRect bounds = KXImageGetBounds(image);
        if (KXImageWrite2(image, &bounds, 0, -1, bytes.data(), -1, 0) != 0)
            __builtin_trap();
    }

    // The usual values are the part of the range nearest 0, kUsualSpan wide on each side.
    static std::pair<float, float> UsualRange(float low, float high, float span)
    {
        const float usualLow = std::max(low, -span), usualHigh = std::min(high, span);
        return usualLow <= usualHigh ? std::pair(usualLow, usualHigh) : std::pair(low, std::min(high, low + span));
    }

    // Radii and windows: the cost of a call grows with them, so in-range values stop at kCostlyReach.
    static bool IsCostly(const ArgSpec& arg)
    {
        return (arg.flags & kArgMarginValue) != 0 || std::string_view(arg.name) == "radius" ||
               (arg.kind == ArgKind::Integer && arg.high - arg.low > 100.0f);
    }

    // The range a setting is drawn from, wide or usual.
    static std::pair<float, float> Range(const ArgSpec& arg, bool wide)
    {
        if (!wide)
            return UsualRange(arg.low, arg.high, kUsualSpan);
        return IsCostly(arg) ? UsualRange(arg.low, arg.high, kCostlyReach) : std::pair(arg.low, arg.high);
    }

    float Float(const ArgSpec& arg)
    {
        const uint8_t pick = m_input.ConsumeIntegral<uint8_t>();
        const float unit = m_input.ConsumeFloatingPointInRange(0.0f, 1.0f);
        const auto [low, high] = Range(arg, pick >= 208);
        const float special[] = {low, high, 0.0f, -0.0f, 1e-7f, -1e-7f, 1.0f, 0.5f};
        if (pick < 224)
            return low + unit * (high - low);
        if (pick < 240 || !(IsCostly(arg) ? KX_FUZZ_EXTREME_RADII : KX_FUZZ_ABSURD_FLOATS))
            return special[pick % std::size(special)];
        const float absurd[] = {std::numeric_limits<float>::quiet_NaN(),
                                std::numeric_limits<float>::infinity(),
                                -std::numeric_limits<float>::infinity(),
                                std::numeric_limits<float>::max(),
                                -std::numeric_limits<float>::max(),
                                1e30f,
                                -1e30f,
                                3e9f,
                                -1.0f,
                                arg.high * 4.0f,
                                arg.low - 1.0f,
                                std::numeric_limits<float>::denorm_min()};
        return absurd[pick % std::size(absurd)];
    }

    int32_t Integer(const ArgSpec& arg)
    {
        const uint8_t pick = m_input.ConsumeIntegral<uint8_t>();
        const auto [low, high] = Range(arg, pick >= 208);
        if (pick < 240)
            return m_input.ConsumeIntegralInRange(int32_t(low), int32_t(high));
        if (IsCostly(arg) && !KX_FUZZ_EXTREME_RADII)
            return pick % 2 ? int32_t(low) : int32_t(high);
        // An integer near the ends of int32_t is a reach of that many pixels to most entries (emboss's
        // height among them), with the absurd radii.
        if (pick < 248 || !KX_FUZZ_EXTREME_RADII)
            return pick % 2 ? int32_t(arg.low) - 1 : int32_t(arg.high) + 1;
        return ExtremeInteger();
    }

    int32_t ExtremeInteger()
    {
        const int32_t extremes[] = {std::numeric_limits<int32_t>::min(),
                                    std::numeric_limits<int32_t>::max(),
                                    std::numeric_limits<int32_t>::min() + 1,
                                    std::numeric_limits<int32_t>::max() - 1,
                                    -(1 << 30),
                                    1 << 30};
        return extremes[m_input.ConsumeIntegralInRange<size_t>(0, std::size(extremes) - 1)];
    }

    uint32_t Mode()
    {
        if (m_input.ConsumeIntegralInRange(0, 15) == 0)
            return m_input.ConsumeIntegral<uint32_t>();
        const uint32_t code = kBlendCodes[m_input.ConsumeIntegralInRange<size_t>(0, kBlendCodes.size() - 1)];
        return m_input.ConsumeBool() ? KXEffectsGetReverseBlendMode(code) : code;
    }

    KXPoint Offset()
    {
        if (KX_FUZZ_EXTREME_RECTS && m_input.ConsumeIntegralInRange(0, 15) == 0)
            return KXPointMake(ExtremeInteger(), ExtremeInteger());
        return KXPointMake(m_input.ConsumeIntegralInRange(-30, 30), m_input.ConsumeIntegralInRange(-30, 30));
    }

    KXEffectsFloatPoint Centre()
    {
        const ArgSpec place = FloatArg("", "", "", -40, 40, "");
        return {Float(place), Float(place)};
    }

    // count values of the setting's range; a curve table has four channels, enough for any image.
    std::vector<float> Floats(const ArgSpec& arg, size_t count)
    {
        std::vector<float> values(count);
        for (float& value : values)
            value = Float(arg);
        return values;
    }

    bool Bool() { return m_input.ConsumeBool(); }
    bool OneIn(int32_t n) { return m_input.ConsumeIntegralInRange(1, n) == 1; }
    template <class T> const T& PickOf(std::span<const T> items)
    {
        return items[m_input.ConsumeIntegralInRange<size_t>(0, items.size() - 1)];
    }

private:
    FuzzedDataProvider& m_input;
};

// One call: the images, the values, and what the images held before.
class Call {
public:
    Call(const EffectEntry& entry, CallMaker& maker) : m_entry(entry), m_maker(maker), m_values(entry.argCount) {}

    ~Call()
    {
        if (m_made)
            KXImageRelease(m_made);
    }

    void Prepare()
    {
        m_depth = m_maker.PickOf<int32_t>(kDepths);
        m_lockable = m_maker.Bool();
        m_bounds = m_maker.Bounds();
        const bool masksOnly = m_entry.Has(ArgKind::Masks) && !m_entry.Has(ArgKind::Source);
        m_layout = masksOnly ? kLayouts[0] : m_maker.PickOf<Layout>(kLayouts);
        m_rect = m_maker.Rect(m_bounds);
        for (size_t index = 0; index < m_entry.argCount; ++index)
            Set(index, m_entry.args[index]);
    }

    // What the call is, for reading a finding: KX_FUZZ_VERBOSE=1 prints it before the call.
    void Describe() const
    {
        std::fprintf(stderr, "%s depth %d planes %d %s bounds %d,%d,%d,%d rect %d,%d,%d,%d\n", m_entry.cName, m_depth,
                     m_layout.planes, m_lockable ? "lockable" : "unbuffered", m_bounds.x, m_bounds.y, m_bounds.width,
                     m_bounds.height, m_rect.x, m_rect.y, m_rect.width, m_rect.height);
        for (size_t index = 0; index < m_entry.argCount; ++index) {
            const ArgValue& value = m_values[index];
            std::fprintf(stderr, "  %s", m_entry.args[index].name);
            if (const float* number = std::get_if<float>(&value))
                std::fprintf(stderr, " %g", double(*number));
            else if (const int32_t* integer = std::get_if<int32_t>(&value))
                std::fprintf(stderr, " %d", *integer);
            else if (const uint32_t* mode = std::get_if<uint32_t>(&value))
                std::fprintf(stderr, " 0x%08x", *mode);
            else if (const KXPoint* point = std::get_if<KXPoint>(&value))
                std::fprintf(stderr, " %d,%d", point->x, point->y);
            else if (const KXEffectsFloatPoint* centre = std::get_if<KXEffectsFloatPoint>(&value))
                std::fprintf(stderr, " %g,%g", double(centre->x), double(centre->y));
            else if (const float* const* numbers = std::get_if<const float*>(&value); numbers && *numbers)
                std::fprintf(stderr, " %g,%g,%g...", double((*numbers)[0]), double((*numbers)[1]),
                             double((*numbers)[2]));
            std::fprintf(stderr, "\n");
        }
    }

    void Run()
    {
        for (Held& held : m_held)
            held.before = Snapshot(held.image);
        try {
            m_entry.invoke(m_values);
        } catch (int32_t) {
            if (m_entry.catching == Catching::Catches)
                __builtin_trap();
        } catch (...) {
            __builtin_trap();
        }
        for (const Held& held : m_held)
            Check(held);
    }

private:
    struct Held {
        KXImage* image;
        bool destination;
        std::vector<uint8_t> before;
    };

    Image& Keep(Image image, bool destination)
    {
        m_held.push_back({image.get(), destination, {}});
        return m_images.emplace_back(std::move(image));
    }

    // A companion image: mostly of the source's depth and bounds, sometimes of other bounds.
    KXImage* Companion(const Layout& layout, bool destination)
    {
        int32_t depth = m_depth;
        const Layout* shape = &layout;
        if (KX_FUZZ_MISMATCHED_IMAGES && m_maker.OneIn(16)) {
            depth = m_maker.PickOf<int32_t>(kDepths);
            shape = &m_maker.PickOf<Layout>(kLayouts);
        }
        const KXRect bounds = m_maker.OneIn(4) ? m_maker.Bounds() : m_bounds;
        return Keep(m_maker.MakeImage(bounds, depth, *shape, m_lockable), destination).get();
    }

    const float* KeepFloats(std::vector<float> values) { return m_arrays.emplace_back(std::move(values)).data(); }

    void Set(size_t index, const ArgSpec& arg)
    {
        switch (arg.kind) {
        case ArgKind::Source:
            m_source = Keep(m_maker.MakeImage(m_bounds, m_depth, m_layout, m_lockable), false).get();
            m_values[index] = m_source;
            return;
        case ArgKind::InPlace:
            m_values[index] = Keep(m_maker.MakeImage(m_bounds, m_depth, m_layout, m_lockable), true).get();
            return;
        case ArgKind::Destination:
            if (m_source && m_maker.OneIn(4)) {
                MarkDestination(m_source);
                m_values[index] = m_source;
                return;
            }
            m_values[index] = Companion(m_layout, true);
            return;
        case ArgKind::ExtraDestination:
            m_values[index] = Companion(m_layout, true);
            return;
        case ArgKind::MaskDestination:
            m_values[index] = Companion(kLayouts[0], true);
            return;
        case ArgKind::Image:
            m_values[index] = arg.IsOptional() && m_maker.OneIn(2) ? nullptr : Companion(m_layout, false);
            return;
        case ArgKind::Mask:
            m_values[index] = arg.IsOptional() && m_maker.OneIn(4) ? nullptr : Companion(kLayouts[0], false);
            return;
        case ArgKind::Masks:
            m_masks.reset(CFArrayCreateMutable(kCFAllocatorDefault, 0, KXUtilsGetArrayCallbacks()));
            for (int32_t count = m_maker.OneIn(2) ? 1 : 3; count > 0; --count)
                CFArrayAppendValue(m_masks.get(), Companion(kLayouts[0], false));
            m_values[index] = CFArrayRef(m_masks.get());
            return;
        case ArgKind::Rect:
            m_values[index] = static_cast<const KXRect*>(&m_rect);
            return;
        default:
            SetValue(index, arg);
        }
    }

    void SetValue(size_t index, const ArgSpec& arg)
    {
        switch (arg.kind) {
        case ArgKind::Float:
            m_values[index] = m_maker.Float(arg);
            return;
        case ArgKind::Integer:
            m_values[index] = m_maker.Integer(arg);
            return;
        case ArgKind::Bool:
            m_values[index] = m_maker.Bool();
            return;
        case ArgKind::Mode:
            m_values[index] = m_maker.Mode();
            return;
        case ArgKind::Colour:
        case ArgKind::Curves:
        case ArgKind::Floats: {
            if (arg.IsOptional() && m_maker.OneIn(4)) {
                m_values[index] = static_cast<const float*>(nullptr);
                return;
            }
            const size_t count = arg.kind == ArgKind::Curves ? 4 * 256 : arg.count;
            m_values[index] = KeepFloats(m_maker.Floats(arg, count));
            return;
        }
        case ArgKind::Point:
            m_values[index] = m_offset = m_maker.Offset();
            return;
        case ArgKind::FloatPoint:
            m_values[index] = m_maker.Centre();
            return;
        case ArgKind::Out:
            m_values[index] = m_outputs.emplace_back(arg.count == 0 ? 4 * 256 : arg.count).data();
            return;
        case ArgKind::OutImage:
            m_values[index] = &m_made;
            return;
        case ArgKind::OutRect:
            m_values[index] = &m_found;
            return;
        case ArgKind::Progress:
            m_values[index] = static_cast<KXProgress*>(nullptr);
            return;
        default:
            __builtin_trap();
        }
    }

    void MarkDestination(KXImage* image)
    {
        for (Held& held : m_held)
            if (held.image == image)
                held.destination = true;
    }

    // An input stays whole; a destination changes only where the entry writes.
    void Check(const Held& held) const
    {
        const std::vector<uint8_t> after = Snapshot(held.image);
        if (!held.destination) {
            if (after != held.before)
                __builtin_trap();
            return;
        }
        if (!WritesInRect(m_entry))
            return;
        const std::vector<Region> regions = WritableRegions(m_entry, m_rect, m_offset);
        const KXRect bounds = KXImageGetBounds(held.image);
        const size_t pixelBytes = held.before.size() / (size_t(bounds.width) * size_t(bounds.height));
        for (int32_t y = 0; y < bounds.height; ++y)
            for (int32_t x = 0; x < bounds.width; ++x) {
                const int64_t atX = int64_t(bounds.x) + x, atY = int64_t(bounds.y) + y;
                if (std::any_of(regions.begin(), regions.end(),
                                [&](const Region& region) { return region.Contains(atX, atY); }))
                    continue;
                const size_t at = (size_t(y) * size_t(bounds.width) + size_t(x)) * pixelBytes;
                if (std::memcmp(&after[at], &held.before[at], pixelBytes) != 0)
                    __builtin_trap();
            }
    }

    const EffectEntry& m_entry;
    CallMaker& m_maker;
    std::vector<ArgValue> m_values;
    std::vector<Image> m_images;
    std::vector<Held> m_held;
    std::deque<std::vector<float>> m_arrays;
    std::deque<std::vector<float>> m_outputs;
    std::unique_ptr<__CFArray, ArrayReleaser> m_masks;
    KXImage* m_source = nullptr;
    KXImage* m_made = nullptr;
    KXRect m_found{};
    KXRect m_bounds{};
    KXRect m_rect{};
    KXPoint m_offset{};
    int32_t m_depth = 8;
    Layout m_layout = kLayouts[0];
    bool m_lockable = true;
};

void IgnoreEvent(int32_t, const char*, int32_t, void*) {}
void IgnoreText(const char*, void*) {}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    KXLogSetEventHandler(IgnoreEvent, nullptr);
    KXLogSetTextHandler(IgnoreText, nullptr);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const std::vector<const EffectEntry*> entries = FamilyEntries();
    if (entries.empty())
        __builtin_trap();
    FuzzedDataProvider input(data, size);
    CallMaker maker(input);
    const EffectEntry& entry = *maker.PickOf<const EffectEntry*>(entries);
    Call call(entry, maker);
    call.Prepare();
    static const bool verbose = std::getenv("KX_FUZZ_VERBOSE") != nullptr;
    if (verbose)
        call.Describe();
    call.Run();
    return 0;
}
