#version 310 es
precision highp float;
layout (location = 0) in vec2 aPosition;
out vec2 vTexCoords;
void main(void) {
    gl_Position = vec4(aPosition, 0.0, 1.0);
    vTexCoords = vec2((aPosition.x+1.0)*0.5, (aPosition.y+1.0)*0.5);
}
