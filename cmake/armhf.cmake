# Cross build for 32-bit ARM (ARMv7-A with NEON, hard float) on a Debian host with the
# arm-linux-gnueabihf cross compiler and the armhf multiarch packages; tests run under qemu-arm.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)

set(TAVIX_ARM_FLAGS "-march=armv7-a -mfpu=neon-vfpv4 -mfloat-abi=hard -mfp16-format=ieee")
set(CMAKE_C_FLAGS_INIT "${TAVIX_ARM_FLAGS}")
set(CMAKE_CXX_FLAGS_INIT "${TAVIX_ARM_FLAGS}")

# Multiarch: armhf libraries and their CMake packages live under /usr/lib/arm-linux-gnueabihf.
set(CMAKE_FIND_ROOT_PATH /usr/arm-linux-gnueabihf /usr)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

find_program(TAVIX_QEMU_ARM qemu-arm)
if(TAVIX_QEMU_ARM)
  # The armhf multiarch runtime (libc6:armhf, libstdc++6:armhf) serves the binaries; pointing
  # qemu at the cross toolchain's sysroot instead breaks fork() in the child.
  set(CMAKE_CROSSCOMPILING_EMULATOR ${TAVIX_QEMU_ARM})
endif()
