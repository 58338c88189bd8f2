// The private state of a CBaseTaskQueue: pending tasks in Compare order and the worker threads.
#pragma once

#include "KXCore.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

struct CBaseTaskQueueState {
    std::string name;
    std::mutex mutex;
    std::condition_variable work; // a task is pending, or the queue is stopping
    std::condition_variable idle; // nothing pending and nothing running
    std::deque<CBaseTask*> pending;
    int32_t running = 0;
    bool stopping = false;
    std::vector<std::thread> workers;

    bool IsIdle() const { return pending.empty() && running == 0; }
};
