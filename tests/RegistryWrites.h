// Where the entries of the registry write: the registry's tests and the fuzz targets check that a call
// changes nothing else. Free of the test framework, so that the fuzz targets take it alone.
#pragma once

#include "KXEffectsRegistryTypes.h"

#include <cstdint>
#include <vector>

// The arguments that receive a result.
inline bool IsDestination(ArgKind kind)
{
    return kind == ArgKind::Destination || kind == ArgKind::MaskDestination || kind == ArgKind::ExtraDestination ||
           kind == ArgKind::InPlace;
}

// An entry that writes its result over a rectangle of its destinations; the others write the whole image
// or make one.
inline bool WritesInRect(const EffectEntry& entry)
{
    return entry.Has(ArgKind::Rect) &&
           (entry.Has(ArgKind::Destination) || entry.Has(ArgKind::MaskDestination) || entry.Has(ArgKind::InPlace));
}

// A rectangle in 64 bits, ends exclusive, so that no rectangle or offset overflows.
struct Region {
    int64_t left, top, right, bottom;

    bool Contains(int64_t x, int64_t y) const { return x >= left && x < right && y >= top && y < bottom; }
};

// Where a call of an entry that writes in its rectangle may write: the rectangle itself or, for an entry
// with an offset, the rectangle moved by minus the offset (where the result of a source pixel lands) and by
// plus the offset (where the plain copy of the neutral settings lands).
inline std::vector<Region> WritableRegions(const EffectEntry& entry, const KXRect& rect, KXPoint offset)
{
    const Region region{rect.x, rect.y, int64_t(rect.x) + rect.width, int64_t(rect.y) + rect.height};
    if (!entry.Has(ArgKind::Point))
        return {region};
    const auto moved = [&](int64_t sign) {
        return Region{region.left + sign * offset.x, region.top + sign * offset.y, region.right + sign * offset.x,
                      region.bottom + sign * offset.y};
    };
    return {moved(-1), moved(1)};
}
