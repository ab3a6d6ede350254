# norq_add_library(<name> DESCRIPTION <text> [REQUIRES <pkg-config modules>] SOURCES <files>)
#
# Adds the platform library <name> as target norq_<name> and norq::<name>: the shared library
# libnorq-<name>.so, which exports what its exports.map lists and nothing else, installed with a
# pkg-config file norq-<name>.pc; or, with TOVREL_STATIC_PLATFORM, an archive that stays here.
function(norq_add_library name)
    cmake_parse_arguments(ARG "" "DESCRIPTION" "REQUIRES;SOURCES" ${ARGN})
    if(TOVREL_STATIC_PLATFORM)
        set(kind STATIC)
    else()
        set(kind SHARED)
    endif()
    add_library(norq_${name} ${kind} ${ARG_SOURCES})
    add_library(norq::${name} ALIAS norq_${name})
    target_link_libraries(norq_${name} PUBLIC norq::headers PRIVATE tovrel::options)
    if(TOVREL_STATIC_PLATFORM)
        return()
    endif()

    set(exports ${PROJECT_SOURCE_DIR}/platform/${name}/exports.map)
    set_target_properties(norq_${name} PROPERTIES
        OUTPUT_NAME norq-${name}
        VERSION ${PROJECT_VERSION}
        SOVERSION 0
        LINK_DEPENDS ${exports})
    target_link_options(norq_${name} PRIVATE -Wl,--version-script=${exports})
    norq_install_library(${name} "${ARG_DESCRIPTION}" "${ARG_REQUIRES}")
endfunction()

# norq_install_library(<name> <description> <list of pkg-config modules>): its part of "install".
function(norq_install_library name pc_description requires)
    list(JOIN requires " " requires)
    set(pc_name norq-${name})
    file(RELATIVE_PATH pc_to_prefix
         ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
    configure_file(${PROJECT_SOURCE_DIR}/cmake/platform.pc.in
                   ${CMAKE_CURRENT_BINARY_DIR}/norq-${name}.pc @ONLY)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/norq-${name}.pc
            DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT libraries)
    install(TARGETS norq_${name} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT libraries
                                         NAMELINK_COMPONENT libraries)
endfunction()
