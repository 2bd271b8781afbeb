#pragma once

#include <string>
#include <vector>

// A directory of its own for one test, removed with everything in it.
class TempDir {
public:
    TempDir();
    ~TempDir() { remove(); }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    // Before the end of the test, for a process that ends without leaving it.
    void remove() const;

    [[nodiscard]] std::string path(const std::string& name) const { return directory + "/" + name; }
    // For names in ASCII.
    [[nodiscard]] std::wstring widePath(const std::string& name) const;

    // Writes a file and returns its path.
    std::string write(const std::string& name, const std::vector<unsigned char>& bytes) const;
    std::wstring writeWide(const std::string& name, const std::vector<unsigned char>& bytes) const;
    [[nodiscard]] std::vector<unsigned char> read(const std::string& name) const;

private:
    std::string directory;
};
