// One call of a registry entry on images in memory, for callers that hold their inputs as images (the
// gallery, the Python module): they give the inputs and settings, the call makes the destinations, runs the
// entry and hands back what it made.
#pragma once

#include "KXEffectsRegistryTypes.h"
#include "Settings.h"
#include "ToolCommon.h"

#include <memory>
#include <vector>

// The arguments that take an input image: the source, an image worked in place, further images and masks.
bool IsImageInput(const ArgSpec& arg);
// The arguments set from a value: numbers, modes, colours, lists of numbers, curves and points.
bool IsValueSetting(const ArgSpec& arg);

class EffectCall {
public:
    explicit EffectCall(const EffectEntry& entry);
    ~EffectCall();
    EffectCall(const EffectCall&) = delete;
    EffectCall& operator=(const EffectCall&) = delete;

    const EffectEntry& Entry() const { return m_entry; }
    // Settings are parsed or set here, by the caller, before Invoke.
    CallValues& Values() { return m_values; }

    // The image of an input argument (null leaves an optional one out), or the list of a Masks argument.
    // The first input given is the one that the destinations are made like.
    void SetInput(size_t index, ImageHandle image);
    void SetMasks(size_t index, std::vector<ImageHandle> masks);
    KXImage* FirstInput() const { return m_first.get(); }
    // Colour planes of the first input, which the curve settings need.
    int32_t ColourPlanes() const;

    // Makes the destinations, the room for the outputs and points the rectangle at rect. A destination
    // starts as a copy of the first input (a white plane for a mask), and so keeps it outside rect; an image
    // worked in place is copied first.
    void Prepare(const KXRect& rect);
    // The status, returned or thrown.
    int32_t Invoke();

    // The image the entry wrote or made; null for one that gives numbers only.
    KXImage* Result() const { return m_result.get(); }
    // The second result of an entry with an extra destination, or null.
    KXImage* ExtraResult() const { return m_extra.get(); }

private:
    ImageHandle CopyOfFirst() const;
    ImageHandle WhiteMask() const;

    const EffectEntry& m_entry;
    CallValues m_values;
    std::vector<ImageHandle> m_inputs;
    ImageHandle m_first;
    ImageHandle m_result;
    ImageHandle m_extra;
    KXImage* m_made = nullptr;
    KXRect m_rect{};
    CFMutableArrayRef m_masks = nullptr;
};
