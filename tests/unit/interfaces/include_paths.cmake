# No source of the service may reach around its layer's include folders by a path with "..".
#
#   cmake -DSOURCE_FOLDER=... -P <this file>
file(GLOB_RECURSE sources "${SOURCE_FOLDER}/*.h" "${SOURCE_FOLDER}/*.c" "${SOURCE_FOLDER}/*.cpp")
list(LENGTH sources count)
if(count EQUAL 0)
    message(FATAL_ERROR "no sources in '${SOURCE_FOLDER}'")
endif()
foreach(source IN LISTS sources)
    file(STRINGS "${source}" lines REGEX "^[ \t]*#[ \t]*include[^\n]*\\.\\./")
    if(lines)
        message(SEND_ERROR "${source}: ${lines}")
    endif()
endforeach()
