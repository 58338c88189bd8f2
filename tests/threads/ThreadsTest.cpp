// Effects called side by side from several threads on images of their own: each call gives what it gives
// alone. Built on its own so that the ThreadSanitizer build makes only this.
#include "RegistryCalls.h"

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr KXRect kBounds = {0, 0, 13, 9};
constexpr KXRect kRect = {2, 1, 9, 7};
constexpr int32_t kThreads = 4;

const Shape kShapes[] = {{8, 4, true}, {16, 4, false}, {32, 4, true}};

// Noise draws from one stream of the whole process, so calls that overlap share it by design.
bool SharesProcessState(const EffectEntry& entry)
{
    return std::string_view(entry.cName) == "KXEffectsAddNoise";
}

struct EffectRun {
    const EffectEntry* entry;
    const Shape* shape;
};

// The destination after one call of entry at its representative settings, on images made afresh.
std::vector<uint8_t> ResultOf(const EffectRun& run)
{
    const Image source = MakeImage(kBounds, *run.shape), second = MakeImage(kBounds, *run.shape),
                mask = MakeImage(kBounds, {run.shape->depth, 1, run.shape->lockable});
    FillRandom(source.get(), 1);
    FillRandom(second.get(), 2);
    FillRandom(mask.get(), 3);
    const auto call =
        PrepareCall(*run.entry, {source.get(), second.get(), mask.get()}, kBounds, kRect, true, run.shape->lockable);
    const int32_t status = RunCall(*call);
    std::vector<uint8_t> result = ReadBytes(call->destination, kBounds);
    const auto* statusBytes = reinterpret_cast<const uint8_t*>(&status);
    result.insert(result.end(), statusBytes, statusBytes + sizeof status);
    return result;
}

} // namespace

TEST(Threads, EffectsSideBySideGiveWhatTheyGiveAlone)
{
    std::vector<EffectRun> runs;
    for (const EffectEntry& entry : kEffectRegistry)
        for (const Shape& shape : kShapes)
            if (WritesInRect(entry) && !SharesProcessState(entry) && (entry.depths & (1 << (shape.depth / 16))) != 0)
                runs.push_back({&entry, &shape});
    std::vector<std::vector<uint8_t>> alone;
    for (const EffectRun& run : runs)
        alone.push_back(ResultOf(run));

    std::mutex lock;
    std::vector<std::string> differing;
    std::vector<std::thread> threads;
    for (int32_t t = 0; t < kThreads; ++t)
        threads.emplace_back([&, t] {
            // Each thread starts elsewhere in the list, so that different effects overlap.
            for (size_t k = 0; k < runs.size(); ++k) {
                const size_t at = (k + size_t(t) * runs.size() / kThreads) % runs.size();
                if (ResultOf(runs[at]) != alone[at]) {
                    const std::lock_guard<std::mutex> guard(lock);
                    differing.push_back(std::string(runs[at].entry->cName) + " depth " +
                                        std::to_string(runs[at].shape->depth));
                }
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    std::string listed;
    for (const std::string& name : differing)
        listed += name + "\n";
    EXPECT_TRUE(differing.empty()) << listed;
}
