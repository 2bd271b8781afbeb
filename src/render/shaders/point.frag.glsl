#version 410
 precision highp float;
 precision highp int;

// Rounds and blends points. In the blending pass the depth that the pass before laid down is a soft limit.

in vec4 ocolor;
in float hidden;

layout(location = 0) out vec4 fragColor;

uniform float width;
uniform float height;
uniform sampler2D depth;
uniform int filtee;
uniform float near;
uniform float far;
uniform float scale;
uniform float range;
uniform float strength;
uniform int smoothing;
uniform float opacity;

// The distance from the eye at a depth.
float distanceAt(float d) {
    float linear = 2.0 * near / (far + near - d * (far - near));
    return near + (far - near) * linear;
}

float frontDistance() {
    return distanceAt(texture(depth, gl_FragCoord.xy / vec2(width, height)).r);
}

void main() {
    if (hidden > 0.0) discard;
    gl_FragDepth = gl_FragCoord.z;
    float l = length(gl_PointCoord - vec2(0.5, 0.5));
    fragColor = vec4(ocolor.rgb, 1.0);
    if (opacity != 100.0) {
        float behind = distanceAt(gl_FragCoord.z) - frontDistance();
        float diff = clamp(behind / range, 0.1, 1.0) / scale;
        float local = smoothing == 0 ? 0.5 : l * 2.0;
        fragColor.a = clamp(1.0 - local - diff, 0.01, 1.0);
        fragColor /= strength;
    }
    if (smoothing != 0) {
        if (l > 0.5) discard;
        if (filtee == 1 && opacity == 100.0) {
            float own = distanceAt(gl_FragCoord.z) / scale;
            float limit = frontDistance() / scale + 0.1;
            if (own > limit) discard;
            fragColor *= (limit - own) * 10.0 + 1.0 - l / 0.5;
        }
    }
}
