#include "support/OutputPath.h"
#include "support/Failure.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

static bool getStatus(const std::string& path, struct stat& status) {
    if (path == "-") return fstat(STDIN_FILENO, &status) == 0;
    return stat(path.c_str(), &status) == 0;
}

static void checkExisting(const std::string& path, const std::vector<std::string>& inputs, bool force,
                          const std::string& withoutForce) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) return;
    for (const std::string& input : inputs) {
        struct stat other {};
        if (getStatus(input, other) && other.st_dev == status.st_dev && other.st_ino == status.st_ino) {
            throw CommandFailure(path, "is an input and cannot be the output as well");
        }
    }
    if (!S_ISREG(status.st_mode)) throw CommandFailure(path, "exists and is not a regular file");
    if (!force) throw CommandFailure(path, withoutForce);
}

void checkOutput(const std::string& output, const std::vector<std::string>& inputs, bool force) {
    if (output.empty()) throw UsageFailure("the name of the output is empty");
    const std::string parent = std::filesystem::path(output).parent_path().string();
    const std::string folder = parent.empty() ? std::string(".") : parent;
    struct stat status {};
    if (stat(folder.c_str(), &status) != 0) {
        throw CommandFailure(output, "folder " + folder + ": " + std::strerror(errno));
    }
    if (access(folder.c_str(), W_OK | X_OK) != 0) {
        throw CommandFailure(output, "folder " + folder + " cannot be written to: " + std::strerror(errno));
    }
    checkExisting(output, inputs, force, "already exists; --force replaces it");
    checkExisting(output + ".part", inputs, force,
                  "is left over from a command that was killed, or belongs to one at work; --force replaces it");
}
