# How every target of the project is compiled. Link tovrel::options, privately, into each of them.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_C_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

include(CheckPIESupported)
check_pie_supported()

add_library(tovrel_options INTERFACE)
add_library(tovrel::options ALIAS tovrel_options)

target_compile_options(tovrel_options INTERFACE
    -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wformat=2 -Wundef -Werror
    $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Woverloaded-virtual -Wold-style-cast>
    -fno-omit-frame-pointer)

target_compile_definitions(tovrel_options INTERFACE
    _GNU_SOURCE
    GLIB_VERSION_MIN_REQUIRED=GLIB_VERSION_2_66
    GLIB_VERSION_MAX_ALLOWED=GLIB_VERSION_2_66)

if(CMAKE_SIZEOF_VOID_P EQUAL 4)
    # Times past 2038, and files that their file system has given a large number: docs/arm.md.
    target_compile_definitions(tovrel_options INTERFACE _TIME_BITS=64 _FILE_OFFSET_BITS=64)
endif()

set(hardened $<CONFIG:Release,RelWithDebInfo,MinSizeRel>)
target_compile_options(tovrel_options INTERFACE
    $<${hardened}:-fstack-protector-strong -fstack-clash-protection>
    # Both in this place and order: definitions stand before options, and would be undone by them.
    $<${hardened}:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2>)
target_compile_definitions(tovrel_options INTERFACE $<${hardened}:_GLIBCXX_ASSERTIONS>)
target_link_options(tovrel_options INTERFACE
    $<${hardened}:-Wl,-z,relro,-z,now,-z,noexecstack> -Wl,--as-needed)

if(TOVREL_SANITIZE)
    target_compile_options(tovrel_options INTERFACE
        -fsanitize=${TOVREL_SANITIZE} -fno-sanitize-recover=all)
    target_link_options(tovrel_options INTERFACE -fsanitize=${TOVREL_SANITIZE})
else()
    target_link_options(tovrel_options INTERFACE -Wl,-z,defs)
endif()

if(TOVREL_COVERAGE)
    target_compile_options(tovrel_options INTERFACE --coverage)
    target_link_options(tovrel_options INTERFACE --coverage)
endif()
