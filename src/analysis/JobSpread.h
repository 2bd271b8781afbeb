#pragma once

#include <cstddef>
#include <functional>

class ThreadPool;

// Calls work(0) to work(count - 1), each once, on the calling thread and on free workers of `pool`, and returns when
// all calls have ended. A call that returns false, or throws, ends it early: calls that have not begun are left out.
// The first exception is thrown on the calling thread.
//
// A pool that takes no jobs, or has other work, slows this down but does not hold it up: the calling thread goes on
// alone, and a job that comes too late finds nothing to do.
void spreadOverPool(ThreadPool& pool, size_t count, const std::function<bool(size_t)>& work);
