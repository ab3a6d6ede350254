# norq_add_library(<name> DESCRIPTION <text> [REQUIRES <pkg-config modules>] SOURCES <files>)
#
# Adds the shared platform library libnorq-<name>.so as target norq_<name> and norq::<name>, exports
# what its exports.map lists and nothing else, and installs it with a pkg-config file
# norq-<name>.pc.
function(norq_add_library name)
    cmake_parse_arguments(ARG "" "DESCRIPTION" "REQUIRES;SOURCES" ${ARGN})
    add_library(norq_${name} SHARED ${ARG_SOURCES})
    add_library(norq::${name} ALIAS norq_${name})
    set_target_properties(norq_${name} PROPERTIES
        OUTPUT_NAME norq-${name}
        VERSION ${PROJECT_VERSION}
        SOVERSION 0)
    target_link_libraries(norq_${name} PUBLIC norq::headers PRIVATE tovrel::options)
    target_link_options(norq_${name} PRIVATE
        -Wl,--version-script=${PROJECT_SOURCE_DIR}/platform/${name}/exports.map)
    set_target_properties(norq_${name} PROPERTIES
        LINK_DEPENDS ${PROJECT_SOURCE_DIR}/platform/${name}/exports.map)

    list(JOIN ARG_REQUIRES " " requires)
    set(pc_name norq-${name})
    set(pc_description "${ARG_DESCRIPTION}")
    configure_file(${PROJECT_SOURCE_DIR}/cmake/platform.pc.in
                   ${CMAKE_CURRENT_BINARY_DIR}/norq-${name}.pc @ONLY)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/norq-${name}.pc
            DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
    install(TARGETS norq_${name} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
endfunction()
