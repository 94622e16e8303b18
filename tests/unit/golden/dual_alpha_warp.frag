#version 310 es
#extension GL_OES_EGL_image_external_essl3 : require
precision highp float;
layout(binding = 0) uniform samplerExternalOES uTexture0;
layout (binding = 1) uniform samplerExternalOES uTexture1;
layout (binding = 3) uniform samplerExternalOES uWarpTexture;
layout (binding = 4) uniform sampler2D uAlphaTexture;
in vec2 vTex0Coords;
in vec2 vTex1Coords;
in vec2 vTexCoords;
out vec4 fragColor;
void main(void) {
    vec4 src0 = texture(uTexture0, vTex0Coords);
    vec4 src1 = texture(uTexture1, vTex1Coords);
    vec4 alpha = texture(uAlphaTexture, vTexCoords);
    vec4 negalpha = alpha*vec4(-1,-1,-1,1)+vec4(1,1,1,0);
    fragColor = alpha*src0+negalpha*src1;
}
