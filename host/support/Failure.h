#pragma once

#include <stdexcept>
#include <string>

// Why a command could not do its work, in full: "FILE: what is wrong" where a file is concerned. Ends the command with
// exit status 1.
class CommandFailure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
    CommandFailure(const std::string& path, const std::string& problem)
        : std::runtime_error((path == "-" ? "standard input" : path) + ": " + problem) {}
};

// What is wrong with the command line, where the parser cannot see it. Ends the command with exit status 2.
class UsageFailure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};
