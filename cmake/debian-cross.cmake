# What the toolchain files of Debian's cross compilers have in common. They set `triplet`, the name
# of the target in the names of tools and folders, `processor`, and `emulator`, the program of
# qemu-user that runs what is built.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ${processor})
set(CMAKE_LIBRARY_ARCHITECTURE ${triplet})
set(CMAKE_C_COMPILER ${triplet}-gcc)
set(CMAKE_CXX_COMPILER ${triplet}-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR ${emulator})
# Finds the libraries of the target, and so does CMake by the architecture's name; tools are the
# machine's own.
set(PKG_CONFIG_EXECUTABLE /usr/bin/${triplet}-pkg-config)
# A read from where the processor might not allow it is a defect even where the compiler at hand
# would make it work. What GCC 7 changed in the calls of C++ functions concerns nobody: everything is
# built by one compiler.
foreach(language C CXX)
    set(CMAKE_${language}_FLAGS_INIT "-Wcast-align=strict -Wno-psabi")
endforeach()
