// Progress objects: staged progress forwarded to the host's callbacks.
#include "KXCore.h"

#include <new>

struct KXProgress {
    KXProgressCallbacks callbacks;
    void* user;
};

int32_t KXProgressCreate(const KXProgressCallbacks* callbacks, void* user, KXProgress** out)
{
    if (!out)
        return kKXCoreErrBadArgument;
    KXProgress* progress = new (std::nothrow) KXProgress{callbacks ? *callbacks : KXProgressCallbacks{}, user};
    if (!progress)
        return kKXCoreErrOutOfMemory;
    *out = progress;
    return 0;
}

void KXProgressRelease(KXProgress* progress)
{
    delete progress;
}

void KXProgressDoProgressBeginStage(KXProgress* progress, int32_t first, const char* label, int32_t last)
{
    if (progress && progress->callbacks.begin)
        progress->callbacks.begin(progress->user, first, label ? label : "", last);
}

void KXProgressDoProgressUpdateStage(KXProgress* progress, int32_t value)
{
    if (progress && progress->callbacks.update)
        progress->callbacks.update(progress->user, value);
}

void KXProgressDoProgressEndStage(KXProgress* progress)
{
    if (progress && progress->callbacks.end)
        progress->callbacks.end(progress->user);
}
