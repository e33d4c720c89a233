# Android NDK build for armeabi-v7a with NEON. Not exercised on the build hosts; usage:
#   cmake -S . -B build-android -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/android.cmake \
#         -DANDROID_NDK=/path/to/ndk -DHWY_DIR=/path/to/android-highway/lib/cmake/hwy
# Highway must be built for the same ABI first (its CMake package is found through HWY_DIR).
if(NOT ANDROID_NDK)
  set(ANDROID_NDK $ENV{ANDROID_NDK})
endif()
if(NOT ANDROID_NDK)
  message(FATAL_ERROR "Set ANDROID_NDK to the NDK's root directory")
endif()
set(ANDROID_ABI armeabi-v7a CACHE STRING "")
set(ANDROID_ARM_NEON ON CACHE BOOL "")
set(ANDROID_PLATFORM android-24 CACHE STRING "")
include(${ANDROID_NDK}/build/cmake/android.toolchain.cmake)
