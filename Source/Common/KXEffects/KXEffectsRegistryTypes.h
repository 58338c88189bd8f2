// The shape of a registry entry: what an exported effect takes, in its argument order, and how to call it
// from a list of values. The entries themselves stand in KXEffectsRegistry.h.
#pragma once

#include "KXEffects.h"

#include <array>
#include <cstdint>
#include <span>
#include <string_view>
#include <type_traits>
#include <variant>

// What each argument of an entry point is, in its order. The kinds that carry images say what the caller
// hands in: the source, a further input, a one-plane mask, or a destination of a given shape.
enum class ArgKind : uint8_t {
    Source,           // KXImage*: the input whose depth picks the kernel
    Destination,      // KXImage*: the result, of the source's shape
    MaskDestination,  // KXImage*: the result, one plane of the source's depth and size
    ExtraDestination, // KXImage*: a second result of the source's shape
    InPlace,          // KXImage*: source and destination in one
    Image,            // KXImage*: a further input of the source's depth
    Mask,             // KXImage*: a one-plane input of the source's depth
    Masks,            // CFArrayRef of one-plane images
    Rect,             // const KXRect*
    Float,            // float
    Integer,          // int32_t
    Bool,             // bool
    Mode,             // uint32_t blend-mode code
    Colour,           // const float*, three values r,g,b
    Floats,           // const float*, count values
    Curves,           // const float*, 256 values a channel, a channel per colour plane
    Point,            // KXPoint
    FloatPoint,       // KXEffectsFloatPoint
    Out,              // float*, count values written; count 0 is a curve table of four channels
    OutImage,         // KXImage**: an image the entry point makes
    OutRect,          // KXRect*: a rectangle the entry point finds
    Progress          // KXProgress*: the host's progress object, or null
};

// How far around a rectangle an effect reads, as a rule of its first float setting v (an integer radius
// is passed as a float). Every entry point absent from the registry, or ruled Whole, answers -1.
enum class Margin : uint8_t {
    Whole,               // -1
    Pointwise,           // 0
    OnePixel,            // 1
    Rounded,             // t(v + 0.5)
    Gaussian,            // the reach of KXEffectsGaussianBlur at v
    FastGaussian,        // the fast blur's q + 2r at every v
    TrueGaussian,        // the true blur's h at every v
    ProgressiveGaussian, // the gaussian reach at 4 v
    Emboss               // 1 - t(-0.5 v)
};

// Whether a thrown status leaves the entry point (most do) or comes back as its result.
enum class Catching : uint8_t { Throws, Catches };

// Flags of an argument.
enum : uint8_t {
    kArgOptional = 1,    // may be null (images, colours, curves)
    kArgMarginValue = 2, // the setting that KXEffectsGetOutset takes as its value
    kArgNamedOutput = 4, // a destination written to the file of a setting of its name, not to OUTPUT
};

// Depths an effect accepts; the others answer kKXErrUnsupported or kKXErrBadImageFormat.
enum : uint8_t { kDepth8 = 1, kDepth16 = 2, kDepth32 = 4, kAllDepths = 7 };

// One argument: its name (as a command-line setting or an input's name), kind, value when not given
// (the neutral one: the effect leaves the image as it is), a representative value that shows the effect,
// the meaningful range of numbers, the count of values for Floats and Out, flags and one line of help.
struct ArgSpec {
    const char* name = "";
    ArgKind kind = ArgKind::Float;
    const char* neutral = "";
    const char* sample = "";
    float low = 0.0f;
    float high = 0.0f;
    uint8_t count = 0;
    uint8_t flags = 0;
    const char* help = "";

    constexpr bool IsOptional() const { return (flags & kArgOptional) != 0; }
    constexpr bool IsNamedOutput() const { return (flags & kArgNamedOutput) != 0; }
};

// The values an entry point is called with, one per argument in order.
using ArgValue = std::variant<KXImage*, KXImage**, const KXRect*, KXRect*, float, int32_t, bool, uint32_t, const float*,
                              float*, KXPoint, KXEffectsFloatPoint, CFArrayRef, KXProgress*>;

// The C type that carries each kind, so that an entry's arguments are checked against its function.
template <class T> constexpr bool CarriesKind(ArgKind kind)
{
    switch (kind) {
    case ArgKind::Source:
    case ArgKind::Destination:
    case ArgKind::MaskDestination:
    case ArgKind::ExtraDestination:
    case ArgKind::InPlace:
    case ArgKind::Image:
    case ArgKind::Mask:
        return std::is_same_v<T, KXImage*>;
    case ArgKind::Masks:
        return std::is_same_v<T, CFArrayRef>;
    case ArgKind::Rect:
        return std::is_same_v<T, const KXRect*>;
    case ArgKind::Float:
        return std::is_same_v<T, float>;
    case ArgKind::Integer:
        return std::is_same_v<T, int32_t>;
    case ArgKind::Bool:
        return std::is_same_v<T, bool>;
    case ArgKind::Mode:
        return std::is_same_v<T, uint32_t>;
    case ArgKind::Colour:
    case ArgKind::Floats:
    case ArgKind::Curves:
        return std::is_same_v<T, const float*>;
    case ArgKind::Point:
        return std::is_same_v<T, KXPoint>;
    case ArgKind::FloatPoint:
        return std::is_same_v<T, KXEffectsFloatPoint>;
    case ArgKind::Out:
        return std::is_same_v<T, float*>;
    case ArgKind::OutImage:
        return std::is_same_v<T, KXImage**>;
    case ArgKind::OutRect:
        return std::is_same_v<T, KXRect*>;
    case ArgKind::Progress:
        return std::is_same_v<T, KXProgress*>;
    }
    return false;
}

inline constexpr size_t kMaxArgs = 14;

struct EffectEntry {
    const char* cName;   // "KXEffectsBoxBlur"
    const char* cliName; // "box-blur"
    const char* family;  // "blurs": the group it is listed, fuzzed and shown in
    const char* summary;
    Margin margin;
    Catching catching;
    uint8_t depths;
    bool neutralCopies; // at neutral settings the rectangle of the destination equals the source's
    const char* alias;  // a shorter command-line name, or null
    uint8_t argCount;
    std::array<ArgSpec, kMaxArgs> args;
    KXEffectProc (*proc)();                              // the exported function, as KXEffectsGetOutset keys it
    int32_t (*invoke)(std::span<const ArgValue> values); // calls it with one value per argument

    constexpr std::span<const ArgSpec> Args() const { return {args.data(), argCount}; }
    constexpr bool Has(ArgKind kind) const
    {
        for (const ArgSpec& arg : Args())
            if (arg.kind == kind)
                return true;
        return false;
    }
};

namespace registry_detail {

template <class Function> struct Signature;
template <class... Params> struct Signature<int32_t (*)(Params...)> {
    static constexpr size_t kCount = sizeof...(Params);
    template <size_t N> static constexpr bool Matches(const ArgSpec (&args)[N])
    {
        if (N != kCount)
            return false;
        size_t at = 0;
        return (CarriesKind<Params>(args[at++].kind) && ...);
    }
    template <auto Function> static int32_t Invoke(std::span<const ArgValue> values)
    {
        return [&]<size_t... I>(std::index_sequence<I...>)
        {
            return Function(std::get<Params>(values[I])...);
        }
        (std::index_sequence_for<Params...>{});
    }
};

template <auto Function> KXEffectProc ProcOf()
{
    return reinterpret_cast<KXEffectProc>(Function);
}

} // namespace registry_detail

// What every entry states besides its function and arguments.
struct EntryFacts {
    const char* cName;
    const char* cliName;
    const char* family;
    const char* summary;
    Margin margin = Margin::Whole;
    Catching catching = Catching::Throws;
    uint8_t depths = kAllDepths;
    bool neutralCopies = true;
    const char* alias = nullptr;
};

// An entry for Function, its arguments checked at compile time against the function's parameters. Proc is
// the exported address that the margins are keyed by, where Function adapts a variadic entry point.
template <auto Function, auto Proc = Function, size_t N>
consteval EffectEntry Effect(const EntryFacts& facts, const ArgSpec (&args)[N])
{
    using Sig = registry_detail::Signature<decltype(Function)>;
    static_assert(N <= kMaxArgs);
    if (!Sig::Matches(args))
        throw "the arguments of a registry entry do not match its function";
    EffectEntry entry{facts.cName,
                      facts.cliName,
                      facts.family,
                      facts.summary,
                      facts.margin,
                      facts.catching,
                      facts.depths,
                      facts.neutralCopies,
                      facts.alias,
                      uint8_t(N),
                      {},
                      &registry_detail::ProcOf<Proc>,
                      &Sig::template Invoke<Function>};
    for (size_t i = 0; i < N; ++i)
        entry.args[i] = args[i];
    return entry;
}

// ---- Argument makers, so that an entry reads as its parameter list ----

inline constexpr ArgSpec kSourceArg{.name = "INPUT", .kind = ArgKind::Source};
inline constexpr ArgSpec kMaskSourceArg{.name = "MASK", .kind = ArgKind::Source, .help = "a one-plane image"};
inline constexpr ArgSpec kDestinationArg{.name = "OUTPUT", .kind = ArgKind::Destination};
inline constexpr ArgSpec kMaskDestinationArg{.name = "MASK_OUTPUT", .kind = ArgKind::MaskDestination};
inline constexpr ArgSpec kInPlaceArg{.name = "INPUT", .kind = ArgKind::InPlace};
inline constexpr ArgSpec kRectArg{.name = "rect", .kind = ArgKind::Rect};

constexpr ArgSpec FloatArg(const char* name, const char* neutral, const char* sample, float low, float high,
                           const char* help, uint8_t flags = 0)
{
    return {name, ArgKind::Float, neutral, sample, low, high, 0, flags, help};
}
// The float a margin is computed from: the radius as a rule.
constexpr ArgSpec RadiusArg(const char* name, const char* neutral, const char* sample, float low, float high,
                            const char* help)
{
    return FloatArg(name, neutral, sample, low, high, help, kArgMarginValue);
}
constexpr ArgSpec IntegerArg(const char* name, const char* neutral, const char* sample, float low, float high,
                             const char* help, uint8_t flags = 0)
{
    return {name, ArgKind::Integer, neutral, sample, low, high, 0, flags, help};
}
constexpr ArgSpec IntegerRadiusArg(const char* name, const char* neutral, const char* sample, float low, float high,
                                   const char* help)
{
    return IntegerArg(name, neutral, sample, low, high, help, kArgMarginValue);
}
constexpr ArgSpec BoolArg(const char* name, const char* neutral, const char* sample, const char* help)
{
    return {name, ArgKind::Bool, neutral, sample, 0.0f, 1.0f, 0, 0, help};
}
constexpr ArgSpec ModeArg(const char* name, const char* neutral, const char* sample, const char* help)
{
    return {name, ArgKind::Mode, neutral, sample, 0.0f, 0.0f, 0, 0, help};
}
constexpr ArgSpec ColourArg(const char* name, const char* neutral, const char* sample, const char* help,
                            uint8_t flags = 0)
{
    return {name, ArgKind::Colour, neutral, sample, 0.0f, 1.0f, 3, flags, help};
}
constexpr ArgSpec FloatsArg(const char* name, uint8_t count, const char* neutral, const char* sample, float low,
                            float high, const char* help)
{
    return {name, ArgKind::Floats, neutral, sample, low, high, count, 0, help};
}
// A curve table; neutral "identity" is the table that maps every level to itself, "" is none (null).
constexpr ArgSpec CurvesArg(const char* name, const char* neutral, const char* sample, const char* help,
                            uint8_t flags = 0)
{
    return {name, ArgKind::Curves, neutral, sample, 0.0f, 1.0f, 0, flags, help};
}
constexpr ArgSpec PointArg(const char* name, const char* neutral, const char* sample, const char* help)
{
    return {name, ArgKind::Point, neutral, sample, 0.0f, 0.0f, 0, 0, help};
}
constexpr ArgSpec FloatPointArg(const char* name, const char* neutral, const char* sample, const char* help)
{
    return {name, ArgKind::FloatPoint, neutral, sample, 0.0f, 0.0f, 0, 0, help};
}
constexpr ArgSpec ImageArg(const char* name, const char* help, uint8_t flags = 0)
{
    return {name, ArgKind::Image, "", "", 0.0f, 0.0f, 0, flags, help};
}
constexpr ArgSpec MaskArg(const char* name, const char* help, uint8_t flags = 0)
{
    return {name, ArgKind::Mask, "", "", 0.0f, 0.0f, 0, flags, help};
}
constexpr ArgSpec MasksArg(const char* name, const char* help)
{
    return {name, ArgKind::Masks, "", "", 0.0f, 0.0f, 0, 0, help};
}
constexpr ArgSpec DestinationArg(const char* name, ArgKind kind, const char* help)
{
    return {name, kind, "", "", 0.0f, 0.0f, 0, 0, help};
}
constexpr ArgSpec OutArg(const char* name, uint8_t count, const char* help)
{
    return {name, ArgKind::Out, "", "", 0.0f, 0.0f, count, 0, help};
}
constexpr ArgSpec OutImageArg(const char* name, const char* help)
{
    return {name, ArgKind::OutImage, "", "", 0.0f, 0.0f, 0, 0, help};
}
// A destination given on the command line as --name FILE; optional ones may be left out.
constexpr ArgSpec NamedOutputArg(const char* name, ArgKind kind, const char* help, uint8_t flags = 0)
{
    return {name, kind, "", "", 0.0f, 0.0f, 0, uint8_t(flags | kArgNamedOutput), help};
}
inline constexpr ArgSpec kProgressArg{.name = "progress", .kind = ArgKind::Progress};
constexpr ArgSpec OutRectArg(const char* name, const char* help)
{
    return {name, ArgKind::OutRect, "", "", 0.0f, 0.0f, 0, 0, help};
}
