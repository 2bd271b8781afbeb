#version 410
 precision highp float;
 precision highp int;

// A quad over the whole viewport.

in vec2 position;
in vec2 texcoord;

out vec2 _texcoord;

void main() {
    _texcoord = texcoord;
    gl_Position = vec4(position, 0.0, 1.0);
}
