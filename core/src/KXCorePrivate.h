// Helpers shared by the core's own source files; not part of the public interface.
#pragma once

#include "KXCore.h"

#include <atomic>
#include <cstdint>

namespace kxcore {

// True when inner, non-empty or not, lies wholly inside outer.
inline bool RectContains(const KXRect& outer, const KXRect& inner)
{
    return inner.x >= outer.x && inner.y >= outer.y &&
           int64_t(inner.x) + inner.width <= int64_t(outer.x) + outer.width &&
           int64_t(inner.y) + inner.height <= int64_t(outer.y) + outer.height;
}

// Reference counts of the core's objects, each with an atomic references member; the last release deletes.
template <class Object> void RetainReference(Object* object)
{
    if (object)
        object->references.fetch_add(1, std::memory_order_relaxed);
}

template <class Object> void ReleaseReference(Object* object)
{
    if (object && object->references.fetch_sub(1, std::memory_order_acq_rel) == 1)
        delete object;
}

} // namespace kxcore
