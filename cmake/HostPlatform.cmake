# The Android platform as the host build sees it: Debian's Android libraries, our own stand-ins
# in host/ for the rest, and the headers of both at the include paths Android uses.

set(ZEL_ANDROID_LIBDIR /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android)
set(ZEL_ANDROID_INCDIR /usr/include/android)
if(NOT EXISTS ${ZEL_ANDROID_INCDIR}/utils/RefBase.h)
    message(FATAL_ERROR "Debian's Android headers are missing: run scripts/setup.sh")
endif()

foreach(lib utils cutils log base)
    add_library(android::${lib} SHARED IMPORTED GLOBAL)
    set_target_properties(android::${lib} PROPERTIES
        IMPORTED_LOCATION ${ZEL_ANDROID_LIBDIR}/lib${lib}.so
        IMPORTED_NO_SONAME OFF)
endforeach()

# The Debian libraries live outside the loader's search path.
set(CMAKE_BUILD_RPATH ${CMAKE_LIBRARY_OUTPUT_DIRECTORY} ${ZEL_ANDROID_LIBDIR})
set(CMAKE_INSTALL_RPATH $ORIGIN/../lib ${ZEL_ANDROID_LIBDIR})

# Include paths of the Android platform: our host headers first (they shadow the Debian ones that
# do not work off-device, such as cutils/properties.h), then Debian's.
add_library(zel_platform_headers INTERFACE)
target_include_directories(zel_platform_headers SYSTEM INTERFACE
    ${CMAKE_SOURCE_DIR}/host/include
    ${ZEL_ANDROID_INCDIR})
# Debian ships Android 10 headers, which use std integer types without including <cstdint>.
target_compile_options(zel_platform_headers INTERFACE
    "$<$<COMPILE_LANGUAGE:CXX>:SHELL:-include cstdint>")
# The library calls EGL and GL extension entry points directly, as Android's platform libraries do.
target_compile_definitions(zel_platform_headers INTERFACE EGL_EGLEXT_PROTOTYPES GL_GLEXT_PROTOTYPES)
