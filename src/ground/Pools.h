#pragma once

class ThreadPool;

// The pools that several subsystems share. Each is made on first use, lives for the rest of the process, and is joined
// at exit or by shutdownEngine. They stand apart from the engine's other globals because the node and build folders,
// which lie below the engine, hand them jobs.

// Threads of a pool that spreads work over the machine: the hardware concurrency, at least 1.
int maxCores();

ThreadPool& diskPool();       // 1 thread: reads and decodes nodes
ThreadPool& processingPool(); // maxCores() threads: walks over nodes
ThreadPool& buildPool();      // maxCores() threads: adding and compiling points of a build
