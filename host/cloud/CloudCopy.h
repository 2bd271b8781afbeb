#pragma once

#include "support/Console.h"

#include <string>

// A copy of a point file under way to be changed: "OUTPUT.part", which finish() renames and the destructor removes.
class CloudCopy {
public:
    // Copies, with progress. Throws CommandFailure, which names the file at fault, and Interrupted.
    CloudCopy(const std::string& from, const std::string& outputIn, Console& console);
    ~CloudCopy();
    CloudCopy(const CloudCopy&) = delete;
    CloudCopy& operator=(const CloudCopy&) = delete;

    [[nodiscard]] const std::string& path() const { return partPath; }

    // Gives the copy its name. The point file must be closed.
    void finish();

private:
    void copy(const std::string& from, Console& console) const;

    const std::string output;
    const std::string partPath;
    bool finished = false;
};
