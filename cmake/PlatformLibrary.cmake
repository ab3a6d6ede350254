# norq_add_library(<name> DESCRIPTION <text> [REQUIRES <pkg-config modules>]
#                  SOURCES <files> | OBJECTS <object library>
#                  [LINKS <targets>] [PUBLIC_LINKS <targets>] [LIBRARIES <platform libraries>])
#
# Adds the shared platform library libnorq-<name>.so as target norq_<name>. It exports what its
# exports.map lists and nothing else, and is installed with a pkg-config file norq-<name>.pc.
#
# norq::<name> is what the programs link: the shared library or, with TOVREL_STATIC_PLATFORM, an
# archive of the same objects.
function(norq_add_library name)
    cmake_parse_arguments(ARG "" "DESCRIPTION;OBJECTS" "REQUIRES;SOURCES;LINKS;PUBLIC_LINKS;LIBRARIES" ${ARGN})
    set(links PUBLIC norq::headers ${ARG_PUBLIC_LINKS} PRIVATE ${ARG_LINKS} tovrel::options)

    if(NOT ARG_OBJECTS)
        set(ARG_OBJECTS norq_${name}_objects)
        add_library(${ARG_OBJECTS} OBJECT ${ARG_SOURCES})
        target_link_libraries(${ARG_OBJECTS} ${links})
        target_include_directories(${ARG_OBJECTS} PRIVATE ${PROJECT_SOURCE_DIR}/platform)
    endif()

    set(exports ${PROJECT_SOURCE_DIR}/platform/${name}/exports.map)
    add_library(norq_${name} SHARED $<TARGET_OBJECTS:${ARG_OBJECTS}>)
    list(TRANSFORM ARG_LIBRARIES PREPEND norq_ OUTPUT_VARIABLE shared_libraries)
    target_link_libraries(norq_${name} ${links} ${shared_libraries})
    target_link_options(norq_${name} PRIVATE -Wl,--version-script=${exports})
    set_target_properties(norq_${name} PROPERTIES
        OUTPUT_NAME norq-${name}
        VERSION ${PROJECT_VERSION}
        SOVERSION 0
        LINKER_LANGUAGE CXX
        LINK_DEPENDS ${exports})
    norq_install_library(${name} "${ARG_DESCRIPTION}" "${ARG_REQUIRES}")

    if(NOT TOVREL_STATIC_PLATFORM)
        add_library(norq::${name} ALIAS norq_${name})
        return()
    endif()
    add_library(norq_${name}_archive STATIC $<TARGET_OBJECTS:${ARG_OBJECTS}>)
    list(TRANSFORM ARG_LIBRARIES PREPEND norq:: OUTPUT_VARIABLE archives)
    target_link_libraries(norq_${name}_archive ${links} ${archives})
    set_target_properties(norq_${name}_archive PROPERTIES LINKER_LANGUAGE CXX)
    add_library(norq::${name} ALIAS norq_${name}_archive)
endfunction()

# norq_install_library(<name> <description> <list of pkg-config modules>): its part of "install",
# the component "libraries".
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
