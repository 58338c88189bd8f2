// Inverts and copies images of every depth, lockable and not, with bounds away from (0, 0), and checks
// every sample read back. Prints each failure and exits non-zero.
#include "KXEffects.h"

#include <cstdio>
#include <type_traits>
#include <vector>

namespace {

constexpr KXRect kBounds = {100, 50, 9, 5};
constexpr int32_t kPlanes = 4; // RGB with alpha

struct Image {
    KXImage* image = nullptr;
    ~Image()
    {
        if (image)
            KXImageRelease(image);
    }
};

template <class Sample> constexpr Sample White()
{
    if constexpr (std::is_same_v<Sample, float>)
        return 1.0f;
    else
        return Sample(~Sample(0));
}

// Covers the range of the depth; float goes beyond 0..1, which invert does not clamp.
template <class Sample> Sample Pattern(size_t i)
{
    if constexpr (std::is_same_v<Sample, float>)
        return float(i % 97) / 64.0f - 0.25f;
    else
        return Sample(uint32_t(i) * 2654435761u >> 9);
}

template <class Sample>
int CheckSamples(const char* what, const char* label, KXImage* image, const std::vector<Sample>& expected)
{
    std::vector<Sample> actual(expected.size());
    if (KXImageRead2(image, &kBounds, 0, -1, actual.data(), -1, 0) != 0) {
        std::printf("%s %s: the result cannot be read\n", what, label);
        return 1;
    }
    for (size_t i = 0; i < expected.size(); ++i) {
        if (actual[i] != expected[i]) {
            std::printf("%s %s: sample %zu is %g, expected %g\n", what, label, i, double(actual[i]),
                        double(expected[i]));
            return 1;
        }
    }
    return 0;
}

template <class Sample> int CheckDepth(int32_t dataSource, const char* kind)
{
    constexpr int32_t depth = int32_t(sizeof(Sample)) * 8;
    char label[64];
    std::snprintf(label, sizeof label, "depth %d %s", int(depth), kind);
    Image source, inverted, copied;
    for (Image* image : {&source, &inverted, &copied}) {
        if (KXImageCreateWithParams2(&kBounds, depth, kPlanes, KXColorSpaceRGB, 1, dataSource, &image->image) != 0) {
            std::printf("%s: the image cannot be made\n", label);
            return 1;
        }
    }
    std::vector<Sample> input(size_t(kBounds.width) * kBounds.height * kPlanes);
    std::vector<Sample> expected(input.size());
    for (size_t i = 0; i < input.size(); ++i) {
        input[i] = Pattern<Sample>(i);
        expected[i] = i % kPlanes == kPlanes - 1 ? input[i] : Sample(White<Sample>() - input[i]);
    }
    KXImageWrite2(source.image, &kBounds, 0, -1, input.data(), -1, 0);
    if (KXEffectsInvert(source.image, inverted.image, &kBounds) != kKXNoErr ||
        KXEffectsCopyImage(source.image, copied.image, &kBounds) != kKXNoErr) {
        std::printf("%s: an effect failed\n", label);
        return 1;
    }
    return CheckSamples("invert", label, inverted.image, expected) + CheckSamples("copy", label, copied.image, input);
}

int CheckAll()
{
    int failures = 0;
    if (KXEffectsTest() != 0) {
        std::printf("KXEffectsTest did not return 0\n");
        ++failures;
    }
    for (const auto& [dataSource, kind] :
         {std::pair{KXDataSourceMemory, "lockable"}, {KXDataSourceUnbuffered, "unbuffered"}})
        failures += CheckDepth<uint8_t>(dataSource, kind) + CheckDepth<uint16_t>(dataSource, kind) +
                    CheckDepth<float>(dataSource, kind);
    return failures;
}

} // namespace

int main()
{
    try {
        const int failures = CheckAll();
        if (failures == 0)
            std::printf("KXEffects package: all checks passed\n");
        return failures == 0 ? 0 : 1;
    } catch (int32_t status) {
        std::printf("KXEffects package: status %d thrown\n", int(status));
        return 1;
    }
}
