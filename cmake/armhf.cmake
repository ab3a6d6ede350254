# 32-bit ARM with hard floating point, with Debian's crossbuild-essential-armhf:
# -DCMAKE_TOOLCHAIN_FILE=cmake/armhf.cmake
set(triplet arm-linux-gnueabihf)
set(processor armv7l)
set(emulator qemu-arm-static)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
