#pragma once

#include <functional>
#include <string>
#include <vector>

// What a run of the program left behind.
struct RunResult {
    int status = -1; // exit status, or minus the number of the signal that ended it
    std::string out; // standard output
    std::string err; // standard error
};

// What a run may differ in.
struct RunSetting {
    std::string input = "/dev/null"; // file that is standard input
    // File whose appearance in its folder is waited for; then `action` is called with the process. Neither is used when
    // the program ends first.
    std::string awaited;
    std::function<void(int process)> action;
    bool closedOutput = false;            // standard output is a pipe that nobody reads
    int inputDescriptor = -1;             // standard input instead of `input`, where not negative
    std::vector<std::string> environment; // NAME=value, beside what the test itself has
};

// Runs the real program and waits for its end. A program that hangs is killed after some minutes, and its status is
// that of the signal.
RunResult runNimbrel(const std::vector<std::string>& arguments, const RunSetting& setting = {});

// The count in the row of a summary that has `name`; 0 when there is none.
size_t countIn(const std::string& summary, const std::string& name);

// A program while it goes on running, ended at the latest with the object.
class RunningProgram {
public:
    // Throws when it cannot be started.
    RunningProgram(const char* program, const std::vector<std::string>& arguments);
    ~RunningProgram();
    RunningProgram(const RunningProgram&) = delete;
    RunningProgram& operator=(const RunningProgram&) = delete;

    // The next line of its standard output, without the end; empty when there is none.
    std::string readLine();

    // Sends a signal and returns the status as in RunResult. For one call.
    int end(int signal);

private:
    int process = -1;
    int output = -1; // the reading end of its standard output
};

class RunningNimbrel : public RunningProgram {
public:
    explicit RunningNimbrel(const std::vector<std::string>& arguments) : RunningProgram(NIMBREL_PROGRAM, arguments) {}
};
