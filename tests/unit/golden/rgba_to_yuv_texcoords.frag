#version 310 es
#extension GL_OES_EGL_image_external_essl3 : require
#extension GL_EXT_YUV_target : require
precision highp float;
layout(binding = 0) uniform __samplerExternal2DY2YEXT uTexture0;
in vec2 vTex0Coords;
layout(yuv) out vec4 fragColor;
void main(void) {
    vec4 src0 = vec4(rgb_2_yuv(texture(uTexture0, vTex0Coords).rgb, itu_601), 1.0);
    fragColor = src0;
}
