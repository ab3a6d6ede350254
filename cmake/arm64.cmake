# 64-bit ARM, with Debian's crossbuild-essential-arm64: -DCMAKE_TOOLCHAIN_FILE=cmake/arm64.cmake
set(triplet aarch64-linux-gnu)
set(processor aarch64)
set(emulator qemu-aarch64-static)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
