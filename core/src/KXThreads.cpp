// Mutexes, conditions and the processor count.
#include "KXCore.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <new>
#include <thread>

struct KXMutex {
    std::mutex mutex;
};

struct KXCondition {
    // Waits on the caller's KXMutex, which is a plain std::mutex rather than a unique_lock.
    std::condition_variable_any condition;
};

KXMutex* KXMutexCreate(void)
{
    return new (std::nothrow) KXMutex;
}

void KXMutexLock(KXMutex* mutex)
{
    if (mutex)
        mutex->mutex.lock();
}

void KXMutexUnlock(KXMutex* mutex)
{
    if (mutex)
        mutex->mutex.unlock();
}

void KXMutexRelease(KXMutex* mutex)
{
    delete mutex;
}

KXCondition* KXConditionCreate(void)
{
    return new (std::nothrow) KXCondition;
}

void KXConditionSignal(KXCondition* condition)
{
    if (condition)
        condition->condition.notify_one();
}

void KXConditionBroadcast(KXCondition* condition)
{
    if (condition)
        condition->condition.notify_all();
}

void KXConditionWait(KXCondition* condition, KXMutex* mutex)
{
    if (condition && mutex)
        condition->condition.wait(mutex->mutex);
}

void KXConditionRelease(KXCondition* condition)
{
    delete condition;
}

int32_t KXProcessGetNumProcessors(void)
{
    return int32_t(std::max(std::thread::hardware_concurrency(), 1u));
}
