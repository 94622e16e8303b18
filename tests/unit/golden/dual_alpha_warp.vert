#version 310 es
precision highp float;
layout (location = 0) in vec2 aPosition;
layout (location = 1) in vec2 aTex0Coords;
out vec2 vTex0Coords;
layout (location = 2) in vec2 aTex1Coords;
out vec2 vTex1Coords;
layout (location = 3) in vec2 aTexCoords;
out vec2 vTexCoords;
uniform mat4 uProjection;
void main(void) {
    gl_Position = uProjection * vec4(aPosition, 0.0, 1.0);
    vTex0Coords = aTex0Coords;
    vTex1Coords = aTex1Coords;
    vTexCoords = aTexCoords;
}
