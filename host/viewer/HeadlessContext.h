#pragma once

#include <memory>

// An OpenGL 4.1 core context without a window or a screen, current on the thread that makes it, for as long as the
// object lives. Mesa's surfaceless platform where there is one, else the system's default display.
class HeadlessContext {
public:
    // Throws CommandFailure, which says what this machine lacks.
    HeadlessContext();
    ~HeadlessContext();
    HeadlessContext(const HeadlessContext&) = delete;
    HeadlessContext& operator=(const HeadlessContext&) = delete;

private:
    struct Handles;
    std::unique_ptr<Handles> handles;
};
