#version 310 es
#extension GL_OES_EGL_image_external_essl3 : require
precision highp float;
layout(binding = 0) uniform samplerExternalOES uTexture0;
in vec2 vTexCoords;
out vec4 fragColor;
void main(void) {
    vec4 src0 = texture(uTexture0, vTexCoords);
    fragColor = src0;
}
