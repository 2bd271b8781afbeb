#version 410
 precision highp float;
 precision highp int;

// Brings the clouds onto the host's picture at their own depth, lit if asked for.

in vec2 _texcoord;

layout(location = 0) out vec4 outColor;

uniform sampler2D rgb;
uniform sampler2D depth;
uniform float width;
uniform float height;
uniform float zNear;
uniform float zFar;
uniform int lightState;
uniform vec3 lightDir;

float linearDepth(vec2 where) {
    return 2.0 * zNear / (zFar + zNear - texture(depth, where).r * (zFar - zNear));
}

// The surface's normal from the depth of the four diagonal neighbours.
vec3 normalAt(vec2 where) {
    float dx = 1.0 / width;
    float dy = 1.0 / height;
    float dd = linearDepth(where);
    float dx1 = linearDepth(where + vec2(dx, dy));
    float dx2 = linearDepth(where + vec2(-dx, dy));
    float dy1 = linearDepth(where + vec2(dx, -dy));
    float dy2 = linearDepth(where + vec2(-dx, -dy));
    int equal = int(dx1 == dd) + int(dx2 == dd) + int(dy1 == dd) + int(dy2 == dd);
    // Flattens faces of coincident depth.
    if (equal >= 2) dx1 = dx2 = dy1 = dy2 = dd;
    // Both differences run from left to right, the second along the row below: the shading that hosts know.
    return vec3((dx1 - dx2) / (2.0 * dx), (dy1 - dy2) / (2.0 * dy), dd);
}

// The cosine of the angle between two directions; 0 where one of them is none.
float cosineBetween(vec3 a, vec3 b) {
    float lengths = length(a) * length(b);
    return lengths > 0.0 ? dot(a / length(a), b / length(b)) : 0.0;
}

void main() {
    float d = texture(depth, _texcoord).r;
    if (d == 1.0 || d == 0.0) discard;
    gl_FragDepth = d;
    vec4 texel = texture(rgb, _texcoord);
    outColor = vec4(texel.rgb / texel.a, texel.a); // undoes the weighted sum of the blending pass
    if (lightState != 0) {
        float term = cosineBetween(normalAt(_texcoord), lightDir);
        if (lightState == 2 && outColor.rgb == vec3(0.0)) {
            outColor.rgb = vec3(term);
        } else {
            vec3 lit = outColor.rgb * (term + 0.3);
            outColor.rgb = (outColor.rgb + lit + lit) / 3.0;
        }
    }
}
