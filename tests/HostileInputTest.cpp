// Absurd arguments: to the entry points without images (sizes that wrap, negative counts, null tables, NaN
// and endless bounds, margins of every float), and to every registered effect.
#include "RegistryCalls.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

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
    const float nan = std::numeric_limits<float>::quiet_NaN(), inf = std::numeric_limits<float>::infinity();
    EXPECT_EQ(KXEffectsTemperatureAndTintForGrayWithRanges(warm, &temperature, &tint, nan, 1, -1, 1), kKXErrBadParam);
    // Endless bounds search the widest range, 201 x 201, as the default bounds do.
    float expectedTemperature = 0.0f, expectedTint = 0.0f;
    ASSERT_EQ(KXEffectsTemperatureAndTintForGray(warm, &expectedTemperature, &expectedTint), kKXNoErr);
    for (float wide : {inf, 1e30f}) {
        ASSERT_EQ(KXEffectsTemperatureAndTintForGrayWithRanges(warm, &temperature, &tint, -wide, wide, -wide, wide),
                  kKXNoErr);
        EXPECT_EQ(temperature, expectedTemperature);
        EXPECT_EQ(tint, expectedTint);
    }

    // Every margin answers for every float; the sanitized build reports an overflow on the way.
    for (const EffectEntry& entry : kEffectRegistry)
        for (float value : {nan, inf, -inf, 1e30f, -1e30f, 3e9f})
            KXEffectsGetOutset(entry.proc(), value);
}

namespace {

constexpr KXRect kBounds = {0, 0, 13, 9};
constexpr KXRect kInside = {3, 2, 8, 5};
constexpr int32_t kMost = std::numeric_limits<int32_t>::max(), kLeast = std::numeric_limits<int32_t>::min();
// A hang is a case that has not answered in this time; the slowest honest case takes well under a second.
constexpr int kCaseSeconds = 10;

// One hostile call: the rectangle, the destination's shape, and one setting replaced by a value.
struct HostileCase {
    std::string name;
    KXRect bounds = kBounds;
    KXRect rect = kInside;
    const Shape* destination = nullptr;
    const Shape* further = nullptr; // the shape of a further input image
    size_t setting = SIZE_MAX;
    ArgValue value = 0.0f;
    std::optional<int32_t> expected = std::nullopt; // the status the case must give, where it must give one
};

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

// Everything outside rect of before and after is the same; the first difference, or "".
std::string FirstWriteOutside(KXImage* before, KXImage* after, const KXRect& bounds, const KXRect& rect)
{
    const std::vector<uint8_t> a = ReadBytes(before, bounds), b = ReadBytes(after, bounds);
    const size_t pixel = a.size() / size_t(bounds.width * bounds.height);
    for (int32_t y = 0; y < bounds.height; ++y)
        for (int32_t x = 0; x < bounds.width; ++x) {
            const KXPoint point = KXPointMake(bounds.x + x, bounds.y + y);
            const size_t at = (size_t(y) * size_t(bounds.width) + size_t(x)) * pixel;
            if (!KXPointInRect(point, &rect) && !std::equal(a.begin() + at, a.begin() + at + pixel, b.begin() + at))
                return "wrote outside the rectangle at " + std::to_string(point.x) + "," + std::to_string(point.y);
        }
    return "";
}

bool IsStatus(int32_t status)
{
    // A core status, such as that of an image that cannot be made, is passed on as it came.
    static constexpr int32_t kKnown[] = {kKXCoreErrBadArgument, kKXNoErr,         kKXErrOutOfMemory,
                                         kKXErrUnexpected,      kKXErrNoResource, kKXErrBadInput,
                                         kKXErrBadImageFormat,  kKXErrBadParam,   kKXErrUnsupported};
    return std::find(std::begin(kKnown), std::end(kKnown), status) != std::end(kKnown);
}

// The child's side: the call, then what it found, as one line.
std::string RunInChild(const EffectEntry& entry, const Shape& shape, const HostileCase& hostile)
{
    const Shape maskShape{shape.depth, 1, shape.lockable};
    const Image source = MakeImage(hostile.bounds, shape),
                second = MakeImage(hostile.bounds, hostile.further ? *hostile.further : shape),
                mask = MakeImage(hostile.bounds, maskShape);
    FillRandom(source.get(), 1);
    FillRandom(second.get(), 2);
    FillRandom(mask.get(), 3);
    const auto call = PrepareCall(entry, {source.get(), second.get(), mask.get()}, hostile.bounds, hostile.rect, true,
                                  shape.lockable, false, hostile.destination);
    if (hostile.setting != SIZE_MAX)
        call->values->Set(hostile.setting, hostile.value);
    Image before;
    if (call->destination)
        before = CopyInto(call->destination, hostile.bounds, true);
    int32_t status = kKXNoErr;
    bool thrown = false;
    try {
        status = call->values->Invoke();
    } catch (int32_t code) {
        status = code;
        thrown = true;
    }
    if (thrown && entry.catching == Catching::Catches)
        return "let " + std::to_string(status) + " escape";
    if (!IsStatus(status))
        return "answered " + std::to_string(status);
    // An analysis of a colour model it does not know refuses a mismatched image in its own words.
    const bool refusedAsFormat = hostile.expected == kKXErrUnsupported && status == kKXErrBadImageFormat;
    if (hostile.expected && status != *hostile.expected && !refusedAsFormat)
        return "answered " + std::to_string(status) + " where " + std::to_string(*hostile.expected) + " is due";
    // An offset moves what is written; where to stands in the effects' own tests.
    if (before && WritesInRect(entry) && !entry.Has(ArgKind::Point)) {
        const std::string outside = FirstWriteOutside(before.get(), call->destination, hostile.bounds, hostile.rect);
        if (!outside.empty())
            return outside;
    }
    return "";
}

// The line of a sanitizer's report that names the fault, from the child's error output.
std::string ReportLine(FILE* errors)
{
    std::rewind(errors);
    char line[512];
    while (std::fgets(line, sizeof line, errors))
        if (std::strstr(line, "runtime error") || std::strstr(line, "SUMMARY"))
            return std::string(line, strcspn(line, "\n"));
    return "";
}

// Runs the case in a child process so that a crash, a sanitizer's abort or a hang is a finding rather than the
// end of the test; the finding as a line, or "". The child's error output is kept for the report.
std::string RunIsolated(const EffectEntry& entry, const Shape& shape, const HostileCase& hostile)
{
    int channel[2];
    FILE* errors = std::tmpfile();
    if (!errors || pipe(channel) != 0)
        return "no pipe";
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        close(channel[0]);
        dup2(fileno(errors), STDERR_FILENO);
        alarm(kCaseSeconds);
        const std::string finding = RunInChild(entry, shape, hostile);
        const ssize_t written = write(channel[1], finding.data(), finding.size());
        _exit(written == ssize_t(finding.size()) ? 0 : 3);
    }
    close(channel[1]);
    std::string finding;
    char buffer[256];
    for (ssize_t got; (got = read(channel[0], buffer, sizeof buffer)) > 0;)
        finding.append(buffer, size_t(got));
    close(channel[0]);
    int wait = 0;
    waitpid(child, &wait, 0);
    const std::string report = ReportLine(errors);
    std::fclose(errors);
    if (WIFSIGNALED(wait))
        return WTERMSIG(wait) == SIGALRM ? "no answer in " + std::to_string(kCaseSeconds) + " s"
                                         : std::string("died of ") + strsignal(WTERMSIG(wait));
    if (WEXITSTATUS(wait) != 0)
        return "exited " + std::to_string(WEXITSTATUS(wait)) + ": " + report;
    return finding;
}

std::vector<HostileCase> HostileCases(const EffectEntry& entry, const Shape& shape)
{
    std::vector<HostileCase> cases;
    const auto rect = [&](const char* name, KXRect value) { cases.push_back({.name = name, .rect = value}); };
    rect("empty", {3, 2, 0, 5});
    rect("negative width", {3, 2, -8, 5});
    rect("negative height", {3, 2, 8, -5});
    rect("far outside", {1000, -1000, 8, 5});
    rect("2^31 rows above", {3, kLeast, 8, kMost});
    rect("rows to the end of int", {3, 2, 8, kMost});
    rect("columns to the end of int", {3, 2, kMost, 5});
    rect("origin near the end of int", {kMost - 2, kMost - 2, 8, 5});
    rect("origin at the start of int", {kLeast, kLeast, 8, 5});
    cases.push_back({.name = "1x1 image", .bounds = {0, 0, 1, 1}, .rect = {0, 0, 1, 1}});
    // Another depth, and the same depth with another count of colour planes.
    static const Shape otherDepth[] = {{16, 4, true}, {8, 4, true}};
    // A destination with no source to match, such as the product of masks, may have any layout.
    if (entry.Has(ArgKind::Destination) && entry.Has(ArgKind::Source)) {
        static const Shape otherPlanes[] = {{8, 1, true}, {16, 1, true}, {32, 1, true}, {8, 3, true}};
        cases.push_back({.name = "destination of another depth",
                         .destination = &otherDepth[shape.depth == 16],
                         .expected = kKXErrUnsupported});
        cases.push_back({.name = "destination of other planes",
                         .destination = &otherPlanes[shape.planes == 1 ? 3 : shape.depth / 16],
                         .expected = kKXErrUnsupported});
    }
    const auto furtherInput = [](const ArgSpec& arg) { return arg.kind == ArgKind::Image && !arg.IsOptional(); };
    // A grain is read a byte a column whatever its depth.
    const bool readsAnyDepth = Named(entry, {"KXEffectsApplyFilmGrain", "KXEffectsApplyFilmGrainTile"});
    if (std::any_of(entry.Args().begin(), entry.Args().end(), furtherInput) && !readsAnyDepth) {
        cases.push_back({.name = "further image of another depth",
                         .further = &otherDepth[shape.depth == 16],
                         .expected = kKXErrUnsupported});
    }
    for (size_t index = 0; index < entry.argCount; ++index) {
        const ArgSpec& arg = entry.args[index];
        const auto setting = [&](const std::string& name, ArgValue value, std::optional<int32_t> expected = {}) {
            cases.push_back(
                {.name = std::string(arg.name) + " " + name, .setting = index, .value = value, .expected = expected});
        };
        // Gray images may be refused first, for want of colour.
        const bool depthKnown = (entry.depths & (1 << (shape.depth / 16))) != 0 && shape.planes == 4;
        const std::optional<int32_t> nonFinite = RefusesNonFinite(entry) && depthKnown ? std::optional(kKXErrBadParam)
                                                                                       : std::nullopt;
        const std::optional<int32_t> beyondReach =
            RefusesBeyondReach(entry, arg) && depthKnown ? std::optional(kKXErrBadParam) : std::nullopt;
        if (arg.kind == ArgKind::Float) {
            const float inf = std::numeric_limits<float>::infinity();
            setting("NaN", std::numeric_limits<float>::quiet_NaN(), nonFinite);
            setting("inf", inf, nonFinite);
            setting("-inf", -inf, nonFinite);
            setting("1e30", 1e30f);
            setting("-1e30", -1e30f);
            setting("3e9", 3e9f);
            setting("1e6", 1e6f, beyondReach);
            setting("-1", -1.0f);
        } else if (arg.kind == ArgKind::Integer) {
            setting("INT32_MAX", kMost);
            setting("INT32_MIN", kLeast);
            setting("-1", -1);
            setting("1e6", 1000000, beyondReach);
        } else if (arg.kind == ArgKind::Point) {
            setting("at the start of int", KXPointMake(kLeast, kLeast));
            setting("at the end of int", KXPointMake(kMost, kMost));
        }
    }
    return cases;
}

} // namespace

// The families of the registry in the order listed: each is a test of its own, so that they run side by side.
std::vector<std::string> Families()
{
    std::vector<std::string> families;
    for (const EffectEntry& entry : kEffectRegistry)
        if (std::find(families.begin(), families.end(), entry.family) == families.end())
            families.push_back(entry.family);
    return families;
}

class HostileInputOfFamily : public testing::TestWithParam<std::string> {};

// Every registered effect under hostile rectangles, settings and destinations, at every depth: a status, or
// for the entry points that do not catch, the thrown status; never a crash, a sanitizer's report, a hang or
// a write outside the rectangle. A destination of another depth or plane count is refused with 1020.
TEST_P(HostileInputOfFamily, EveryEffectAnswersWithAStatus)
{
    static const Shape shapes[] = {{8, 4, true}, {16, 4, false}, {32, 4, true}, {8, 1, false}};
    std::vector<std::string> findings;
    size_t cases = 0;
    for (const EffectEntry& entry : kEffectRegistry) {
        if (entry.family != GetParam())
            continue;
        for (const Shape& shape : shapes) {
            if ((entry.depths & (1 << (shape.depth / 16))) == 0)
                continue;
            for (const HostileCase& hostile : HostileCases(entry, shape)) {
                ++cases;
                const std::string finding = RunIsolated(entry, shape, hostile);
                if (!finding.empty())
                    findings.push_back(std::string(entry.cName) + " depth " + std::to_string(shape.depth) + " planes " +
                                       std::to_string(shape.planes) + ", " + hostile.name + ": " + finding);
            }
        }
    }
    std::string listed;
    for (const std::string& finding : findings)
        listed += finding + "\n";
    EXPECT_TRUE(findings.empty()) << findings.size() << " of " << cases << " cases:\n" << listed;
}

INSTANTIATE_TEST_SUITE_P(Registry, HostileInputOfFamily, testing::ValuesIn(Families()),
                         [](const testing::TestParamInfo<std::string>& info) {
                             std::string name = info.param;
                             std::replace(name.begin(), name.end(), '-', '_');
                             return name;
                         });
