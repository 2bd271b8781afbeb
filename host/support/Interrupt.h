#pragma once

// Signals that ask the program to end: SIGINT (Ctrl-C), SIGTERM and SIGHUP.
//
// The handler only notes the signal, so that the command ends where it looks, and its objects remove the files that
// are not finished. A second signal ends the process at once.

// Thrown by checkInterrupt.
struct Interrupted {
    int signal;
};

// Begins to watch; also makes writing to a closed pipe, or beyond the largest size that the shell allows a file, an
// error of the write rather than the end of the process. A signal that is ignored at this point, as under nohup, stays
// ignored. Call it once, before there are other threads.
void watchInterrupts();

// Whether a signal came. Any thread.
bool isInterrupted();

// Throws Interrupted if a signal came. Any thread.
void checkInterrupt();

// The status that shells give to a process that the signal ended; 0 without one. Any thread.
int exitStatusOfInterrupt();
