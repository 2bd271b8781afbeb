#pragma once

#include <cstddef>
#include <functional>
#include <type_traits>

class ThreadPool;

// Work that the calling thread shares with the threads of a pool.
//
// The caller works itself and waits for no job that has not begun, so that a pool that is busy, closed to jobs, or has
// the caller as its own worker slows the work down but never holds it up. A call returns when all of its work has
// ended, and throws the first exception of it.

// Runs work() on the calling thread, and beside it on up to `helpers` threads of `pool`. Each call takes what it does
// from a list that the calls share. A helper whose turn comes after the caller's own call has ended is left out.
void runWithHelpers(ThreadPool& pool, int helpers, const std::function<void()>& work);

// Calls work(0) to work(count - 1), each once, on up to maxCores() threads, which take the next number as they come
// free. A call that returns false, or throws, ends it early: those that have not begun are left out.
void forEachInParallel(ThreadPool& pool, size_t count, const std::function<bool(size_t)>& work);

template <typename Work>
requires std::is_void_v<std::invoke_result_t<Work&, size_t>>
void forEachInParallel(ThreadPool& pool, size_t count, Work work) {
    forEachInParallel(pool, count, std::function<bool(size_t)>([&work](size_t i) { return work(i), true; }));
}
