#version 410
 precision highp float;
 precision highp int;

// Places a point, or one corner of a voxel's cube, and works out its colour.

layout(location = 0) in vec3 pos;
layout(location = 1) in vec4 color;
layout(location = 2) in vec2 inAttribute; // class, selected
layout(location = 3) in vec3 voffset;
layout(location = 4) in vec3 vscale;

out vec4 ocolor;
out float hidden;

uniform mat4 mvMatrix;
uniform mat4 viewMatrix;
uniform mat4 projectionMatrix;
uniform float pointRatio;
uniform float pointSize;
uniform int smoothing;
uniform float resolution;
uniform int rgb;
uniform int hideSelectedPoints;
uniform float red;
uniform float green;
uniform float blue;
uniform float brightness;
uniform float contrast;
uniform int useLasColours;
uniform vec4 lasColours[256]; // red, green, blue, hidden
uniform int lightState;
uniform float vectorValue;
uniform int doClip;
uniform vec4 clipPlanes[6];
uniform vec4 clipColour;
uniform int shader;
uniform int repeat;
uniform int hue;
uniform vec4 pointOnPlane;
uniform vec4 planeNormal;
uniform vec3 colour1;
uniform vec3 colour2;
uniform vec3 colour3;
uniform float shadDist;
uniform float offset;
uniform float blend;

const vec3 SELECTED = vec3(0.3, 1.0, 0.3);

vec4 hsv_to_rgb(float h, float s, float v, float a) {
    float c = v * s;
    float sector = mod(h * 6.0, 6.0);
    float x = c * (1.0 - abs(mod(sector, 2.0) - 1.0));
    float m = v - c;
    if (sector >= 0.0 && sector < 1.0) return vec4(c + m, x + m, m, a);
    if (sector >= 1.0 && sector < 2.0) return vec4(x + m, c + m, m, a);
    if (sector >= 2.0 && sector < 3.0) return vec4(m, c + m, x + m, a);
    if (sector >= 3.0 && sector < 4.0) return vec4(m, x + m, c + m, a);
    if (sector >= 4.0 && sector < 5.0) return vec4(x + m, m, c + m, a);
    if (sector >= 5.0 && sector < 6.0) return vec4(c + m, m, x + m, a);
    return vec4(0.0, 0.0, 0.0, a);
}

// The three colours mixed along a percentage from 0 to 1.
vec3 threeColours(float percentage) {
    float p1 = 1.0 - min(percentage * 2.0, 1.0);
    float p2 = min(1.0, (percentage > 0.5 ? 1.0 - percentage : percentage) * 2.0);
    float p3 = max(0.0, (percentage - 0.5) * 2.0);
    return colour1 * p1 + colour3 * p3 + colour2 * p2;
}

// Colours by the distance from a plane.
vec3 distanceColour(vec4 modelCoordinate, vec3 own) {
    vec4 normal = viewMatrix * planeNormal;
    vec4 point = viewMatrix * pointOnPlane;
    float dist = -((dot(normal, point) - dot(normal, modelCoordinate)) / length(normal)) - offset;
    if (repeat == 0) dist = clamp(dist, 0.0, shadDist);
    float share = repeat == 2 ? mod(abs(dist), shadDist) / shadDist : abs(dist) / shadDist;
    float percentage = max(0.0, min(1.0, share));
    vec3 result = hue == 1 ? hsv_to_rgb(percentage * 0.85, 1.0, 1.0, 1.0).rgb : threeColours(percentage);
    if (repeat == 1 && (dist < 0.0 || dist > shadDist)) result = own;
    return mix(result, own, blend);
}

// Tints what lies inside the clip box and hides what lies outside.
void applyClip(vec4 workingPoint, vec4 modelCoordinate) {
    float nearest = dot(workingPoint, clipPlanes[0]);
    for (int i = 1; i < 6; ++i) nearest = min(nearest, dot(workingPoint, clipPlanes[i]));
    if (nearest > 0.0) {
        ocolor.rgb = mix(ocolor.rgb, clipColour.rgb, clipColour.a);
    } else if (doClip == 1 || doClip == 3) {
        hidden = 1.0;
    }
    // A rim on the inner side of the faces, whose width on the screen stays the same.
    if (doClip == 3 && nearest < length(modelCoordinate.xyz) / 500.0) ocolor = clipColour;
}

vec4 baseColour(int classIndex) {
    vec4 result = color;
    if (useLasColours == 1) result.rgb = lasColours[classIndex].rgb;
    if (rgb == 0) {
        result = vec4(color.a);
    } else if (rgb == 2) {
        result.rgb = hsv_to_rgb(result.a, 1.0, 1.0, 1.0).rgb;
    }
    result.rgb += vec3(red, green, blue) / 100.0;
    result.rgb = (result.rgb - 0.5) * ((contrast + 100.0) / 100.0) + 0.5;
    result.rgb += brightness / 100.0 / 3.0;
    return result;
}

void main() {
    int classIndex = int(inAttribute.x);
    gl_PointSize = pointSize;
    hidden = lasColours[classIndex].a != 0.0 ? 1.0 : 0.0;
    ocolor = vec4(0.0);

    vec4 point = vec4(pos, 1.0);
    if (vscale.x != 0.0) point = vec4(pos * vscale + voffset, 1.0);
    if (resolution > 0.0) point.xyz = vec3(ivec3(point.xyz / resolution)) * resolution;
    vec4 modelCoordinate = mvMatrix * point;
    gl_Position = projectionMatrix * modelCoordinate;

    bool selected = inAttribute.y == 1.0;
    if (selected && hideSelectedPoints == 1) {
        hidden = 1.0;
        return;
    }
    if (smoothing > 0) {
        float size = pointSize * pointRatio * 10.0 / -modelCoordinate.z;
        gl_PointSize = min(max(size, pointSize * 1.5), 200.0);
    }
    ocolor = baseColour(classIndex);
    if (shader == 1) ocolor.rgb = distanceColour(modelCoordinate, ocolor.rgb);
    if (doClip > 0) applyClip(point, modelCoordinate);
    if (vectorValue > -0.5) {
        if (color.a >= vectorValue) {
            ocolor = vec4(1.0);
        } else {
            hidden = 1.0;
        }
    } else {
        if (lightState == 2) ocolor.rgb = vec3(0.0);
        if (selected) ocolor.rgb = SELECTED; // a selection shows in the shading as well
    }
}
