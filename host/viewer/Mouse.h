#pragma once

#include "viewer/ViewerState.h"

struct GLFWwindow;

// Turns what the mouse and the keys of flight do into movements of the camera and picks. Once a frame, after the user
// interface has begun its own, since it leaves alone what the panel takes. Picks look into the last picture drawn, so
// the OpenGL context must be current.
class Mouse {
public:
    void update(ViewerState& state, GLFWwindow* window);

    // Whether something is held down that goes on moving the camera without further events.
    [[nodiscard]] bool isMoving() const { return moving; }

private:
    void drag(ViewerState& state) const;
    void click(ViewerState& state);
    void drawStroke(ViewerState& state) const;
    void flyOn(ViewerState& state, GLFWwindow* window);

    bool moving = false;
    double lastFlight = 0.0; // time of the last step of a flight, on GLFW's clock; 0 when at rest
};
