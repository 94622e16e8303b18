#version 310 es
precision highp float;
layout (location = 0) in vec2 aPosition;
layout (location = 1) in vec2 aTex0Coords;
out vec2 vTex0Coords;
uniform mat4 uProjection;
void main(void) {
    gl_Position = uProjection * vec4(aPosition, 0.0, 1.0);
    vTex0Coords = aTex0Coords;
}
