// Reference-counted base classes and the task queue with its worker threads.
#include "KXCore.h"
#include "KXTaskQueueState.h"

#include <algorithm>
#include <string>
#include <system_error>

namespace {

// One task on a worker. A throw from the task must not end the worker (and the process with it):
// it is logged and the task is finished with as if it had run.
void RunTask(CBaseTaskQueue& queue, const std::string& name, CBaseTask* task)
{
    queue.PreprocessTask(task);
    try {
        task->Run();
        task->Finish();
    } catch (...) {
        KXLogUTF8(("task queue " + name + ": a task ended with an exception").c_str());
    }
    queue.PostprocessTask(task);
    task->Release();
}

} // namespace

CBaseCore::CBaseCore() : m_references(1) {}

CBaseCore::~CBaseCore() = default;

int32_t CBaseCore::AddRef()
{
    return m_references.fetch_add(1, std::memory_order_relaxed) + 1;
}

int32_t CBaseCore::Release()
{
    const int32_t references = m_references.fetch_sub(1, std::memory_order_acq_rel) - 1;
    if (references == 0)
        delete this;
    return references;
}

CBaseTask::CBaseTask() : m_stop(false) {}

CBaseTask::~CBaseTask() = default;

void CBaseTask::SetStop(bool stop)
{
    m_stop.store(stop, std::memory_order_relaxed);
}

void CBaseTask::Finish() {}

int32_t CBaseTask::Compare(CBaseTask*)
{
    return 0;
}

CBaseTaskQueue::CBaseTaskQueue() : m_state(new CBaseTaskQueueState) {}

// The workers take every pending task before they see the stop.
CBaseTaskQueue::~CBaseTaskQueue()
{
    {
        const std::lock_guard lock(m_state->mutex);
        m_state->stopping = true;
    }
    m_state->work.notify_all();
    for (std::thread& worker : m_state->workers)
        worker.join();
    delete m_state;
}

int32_t CBaseTaskQueue::Initialize(const char* name, int32_t minThreads, int32_t maxThreads)
{
    if (!m_state->workers.empty() || minThreads < 0 || maxThreads < minThreads)
        return kKXCoreErrBadArgument;
    m_state->name = name ? name : "";
    try {
        for (int32_t index = 0; index < std::max(minThreads, 1); ++index)
            m_state->workers.emplace_back(&CBaseTaskQueue::WorkerLoop, this);
    } catch (const std::system_error&) {
        // The workers already started serve the queue; without any there is no queue.
        return m_state->workers.empty() ? kKXCoreErrOutOfMemory : 0;
    }
    return 0;
}

int32_t CBaseTaskQueue::Push(CBaseTask* task)
{
    if (!task || m_state->workers.empty())
        return kKXCoreErrBadArgument;
    task->AddRef();
    return ScheduleTask(task);
}

void CBaseTaskQueue::WaitUntilIdle()
{
    std::unique_lock lock(m_state->mutex);
    m_state->idle.wait(lock, [this] { return m_state->IsIdle(); });
}

void CBaseTaskQueue::PreprocessTask(CBaseTask*) {}

void CBaseTaskQueue::PostprocessTask(CBaseTask*) {}

// A stable ordered insertion: after every task that does not compare after the new one.
int32_t CBaseTaskQueue::ScheduleTask(CBaseTask* task)
{
    {
        const std::lock_guard lock(m_state->mutex);
        std::deque<CBaseTask*>& pending = m_state->pending;
        const auto position =
            std::upper_bound(pending.begin(), pending.end(), task,
                             [](CBaseTask* value, CBaseTask* other) { return value->Compare(other) < 0; });
        pending.insert(position, task);
    }
    m_state->work.notify_one();
    return 0;
}

void CBaseTaskQueue::WorkerLoop()
{
    std::unique_lock lock(m_state->mutex);
    for (;;) {
        m_state->work.wait(lock, [this] { return m_state->stopping || !m_state->pending.empty(); });
        if (m_state->pending.empty())
            return;
        CBaseTask* task = m_state->pending.front();
        m_state->pending.pop_front();
        ++m_state->running;
        lock.unlock();
        RunTask(*this, m_state->name, task);
        lock.lock();
        --m_state->running;
        if (m_state->IsIdle())
            m_state->idle.notify_all();
    }
}
