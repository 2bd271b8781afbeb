#pragma once

#include "build/CloudBuild.h"

#include <string>

// Points of inputs that can be read once only, kept in the engine's temporary file until all of them are counted.
//
// The file goes away with the object. There is one at a time, and it needs an EngineSession that outlives it.
class Staging {
public:
    // Throws CommandFailure if the file cannot be made.
    explicit Staging(const std::string& path);
    ~Staging();
    Staging(const Staging&) = delete;
    Staging& operator=(const Staging&) = delete;

    void add(const PointBatch& batch);

    [[nodiscard]] uint64_t count() const;

    // The box of the points, grown by what their rounding to 32-bit floats may move them. Only with a point in it.
    [[nodiscard]] BoundsBox bounds() const;

    // Gives all points to the build.
    void transfer(const CloudBuild& build, Console& console);

private:
    const std::string path;
    int batches = 0;
};
