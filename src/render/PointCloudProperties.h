#pragma once

#include <array>
#include <cstdint>

// How a cloud is drawn. Plain values, as a host set them; the shaders give them their meaning.
struct PointCloudProperties {
    float pointSize = 2.0F;
    float pointRatio = 5.0F;
    int32_t colourMode = 0;
    int32_t lodFactor = 30;
    uint8_t smoothing = 0;
    uint8_t hideSelectedPoints = 0; // not set by setPointCloudProperties
    std::array<uint8_t, 2> unused{};
    float red = 0.0F, green = 0.0F, blue = 0.0F;
    float brightness = 0.0F, contrast = 0.0F;
    float opacity = 100.0F; // per cent
    float resolution = 0.0F;
    uint8_t useLasColours = 0;
    uint8_t ignoreClipBox = 0;
    uint16_t propertyS0 = 0; // not set by setPointCloudProperties
    float range = 20.0F;
    float strength = 2.0F;
};
