#pragma once

#include <string>
#include <string_view>

// Nobody reads standard output any more, as after `| head`. The command ends without a word.
struct OutputClosed {};

// The results of a command on what was standard output when the program started.
//
// The library logs to descriptor 1, so redirectLog() points that elsewhere and results go through a copy of the
// original. Belongs to one thread.
class StandardOutput {
public:
    StandardOutput();
    ~StandardOutput(); // gives the copy back; what was not flushed is lost
    StandardOutput(const StandardOutput&) = delete;
    StandardOutput& operator=(const StandardOutput&) = delete;

    // Points descriptor 1 at standard error, or at nothing.
    void redirectLog(bool toStandardError);

    // Adds to the results. Throws CommandFailure when they cannot be written, OutputClosed when nobody reads them.
    void print(std::string_view text);
    void flush();

private:
    int descriptor = -1; // the original standard output; -1 when the program was started without one
    std::string buffer;
};
