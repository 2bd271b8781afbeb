// The smallest complete host: opens a window and a point file, and shows the file from a camera that circles it.
//
//   minimal_host FILE
//
// A host does four things: it arms the engine and opens files, it tells the engine where the camera stands, it asks
// for frames with its own OpenGL context current, and it shuts the engine down. All OpenGL objects for the points are
// the engine's.

#include <nimbrel/NimbrelEngine.h>

#include <epoxy/gl.h>

#include <GLFW/glfw3.h>

#include <glm/ext/matrix_clip_space.hpp>
#include <glm/ext/matrix_transform.hpp>
#include <glm/gtc/type_ptr.hpp>

#include <clocale>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>

// Any number from 1 to 7; a host with several views of the clouds gives each its own.
static constexpr int WINDOW = 1;
static constexpr double FIELD_OF_VIEW = 45.0; // degrees, vertical

struct Cloud {
    int id = -1;
    double radius = 1.0;
};

// Paths are wide strings; mbstowcs turns the command line's into one.
static Cloud openCloud(const char* path) {
    std::wstring widePath(std::string(path).size() + 1, L'\0');
    Cloud cloud;
    if (std::mbstowcs(widePath.data(), path, widePath.size()) == static_cast<size_t>(-1)) return cloud;
    cloud.id = loadPointCloudFile(widePath.c_str());
    if (cloud.id < 0) return cloud;

    double box[6] = {};
    getBoundingBox(cloud.id, box);
    const glm::dvec3 minimum(box[0], box[1], box[2]);
    const glm::dvec3 maximum(box[3], box[4], box[5]);
    cloud.radius = std::fmax(glm::length(maximum - minimum) / 2.0, 1e-3);

    // The middle becomes the origin of the world, so that large coordinates never meet 32-bit numbers.
    const glm::dmat4 place = glm::translate(glm::dmat4(1.0), (minimum + maximum) * -0.5);
    setPointCloudPosition(cloud.id, glm::value_ptr(place));
    setPointCloudProperties(cloud.id, 60, 1, 0, 0, 0, 3.0F, 5.0F, 0.0F, 0.0F, 0.0F, 0.0F, 0.0F, 100.0F, 20.0F, 2.0F,
                            0.0F);
    return cloud;
}

static void drawFrame(GLFWwindow* window, const Cloud& cloud) {
    int width = 0;
    int height = 0;
    glfwGetFramebufferSize(window, &width, &height);
    if (width == 0 || height == 0) return; // minimised
    const double angle = glfwGetTime() * 0.2;
    const double distance = cloud.radius * 2.0;
    const glm::dvec3 eye = glm::dvec3(std::cos(angle) * 0.8, std::sin(angle) * 0.8, 0.6) * distance;
    const glm::dmat4 view = glm::lookAt(eye, glm::dvec3(0.0), glm::dvec3(0.0, 0.0, 1.0));
    const glm::dmat4 projection =
        glm::perspective(glm::radians(FIELD_OF_VIEW), static_cast<double>(width) / height,
                         std::fmax(distance - cloud.radius, distance * 1e-3), distance + cloud.radius);

    // Starts the loading of what this camera sees and returns; later frames show what has arrived.
    setCamera(WINDOW, glm::value_ptr(view), glm::value_ptr(projection), glm::value_ptr(eye), FIELD_OF_VIEW, height,
              false);

    // The engine draws over what the host has drawn, and the two hide each other by their depth.
    glViewport(0, 0, width, height);
    glClearColor(0.09F, 0.10F, 0.11F, 1.0F);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    const int viewport[4] = {0, 0, width, height};
    const float light[3] = {0.0F, 0.0F, -1.0F};
    setRenderCamera(WINDOW, glm::value_ptr(view), glm::value_ptr(projection), viewport, viewport, 0, light);
    render();
    glfwSwapBuffers(window);
}

static GLFWwindow* openWindow() {
    if (glfwInit() != GLFW_TRUE) return nullptr;
    glfwWindowHint(GLFW_CONTEXT_VERSION_MAJOR, 4);
    glfwWindowHint(GLFW_CONTEXT_VERSION_MINOR, 1);
    glfwWindowHint(GLFW_OPENGL_PROFILE, GLFW_OPENGL_CORE_PROFILE);
    GLFWwindow* const window = glfwCreateWindow(1280, 720, "minimal_host", nullptr, nullptr);
    if (window == nullptr) return nullptr;
    glfwMakeContextCurrent(window);
    glfwSwapInterval(1);
    return window;
}

static int show(const char* path) {
    GLFWwindow* const window = openWindow();
    if (window == nullptr) {
        std::fprintf(stderr, "minimal_host: cannot open a window with OpenGL 4.1\n");
        return EXIT_FAILURE;
    }
    const Cloud cloud = openCloud(path);
    if (cloud.id < 0) {
        std::fprintf(stderr, "minimal_host: %s: %s\n", path, nimbrelLastError());
        return EXIT_FAILURE;
    }
    while (glfwWindowShouldClose(window) == GLFW_FALSE) {
        glfwPollEvents();
        drawFrame(window, cloud);
    }
    closePointCloud(cloud.id);
    return EXIT_SUCCESS;
}

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "Usage: minimal_host FILE\n");
        return 2;
    }
    std::setlocale(LC_ALL, ""); // for mbstowcs
    if (initEngine("minimal_host") != 1) return EXIT_FAILURE;
    const int status = show(argv[1]);
    shutdownEngine();
    glfwTerminate();
    return status;
}
