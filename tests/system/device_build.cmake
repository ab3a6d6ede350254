# Builds the service as for a device: against an installed platform that only pkg-config knows, from
# the same sources. The platform of this build tree is installed into a folder of the test for that.
#
#   cmake -DSOURCE_FOLDER=... -DBUILD_FOLDER=... -DWORK_FOLDER=... -DLIBRARY_FOLDER=lib
#         -DSETTINGS=<semicolon list of -D... for the inner build> -P <this file>
cmake_minimum_required(VERSION 3.25)
foreach(name SOURCE_FOLDER BUILD_FOLDER WORK_FOLDER LIBRARY_FOLDER)
    if(NOT ${name})
        message(FATAL_ERROR "${name} is not given")
    endif()
endforeach()

set(platform ${WORK_FOLDER}/platform)
set(build ${WORK_FOLDER}/build)
file(REMOVE_RECURSE ${WORK_FOLDER})
file(MAKE_DIRECTORY ${WORK_FOLDER})

function(run)
    execute_process(COMMAND ${ARGV} RESULT_VARIABLE result OUTPUT_VARIABLE output
                    ERROR_VARIABLE output)
    if(NOT result EQUAL 0)
        list(JOIN ARGV " " command)
        message(FATAL_ERROR "${command}\nended with ${result}:\n${output}")
    endif()
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD_FOLDER} --prefix ${platform})

set(ENV{PKG_CONFIG_PATH} ${platform}/${LIBRARY_FOLDER}/pkgconfig)
run(${CMAKE_COMMAND} -S ${SOURCE_FOLDER} -B ${build} -G Ninja -DTOVREL_PLATFORM=device
    -DBUILD_TESTING=OFF -DTOVREL_BENCHMARKS=OFF ${SETTINGS})
run(${CMAKE_COMMAND} --build ${build})

# Nothing of this repository's platform may have been used.
file(READ ${build}/compile_commands.json commands)
string(FIND "${commands}" "${SOURCE_FOLDER}/platform" position)
if(NOT position EQUAL -1)
    message(FATAL_ERROR "the device build compiles with files of ${SOURCE_FOLDER}/platform")
endif()
string(FIND "${commands}" "${platform}/" position)
if(position EQUAL -1)
    message(FATAL_ERROR "the device build does not compile with the installed headers")
endif()

# The program starts on the installed libraries: it gets as far as the bus, which is not there, and
# tells through the platform's logger.
set(ENV{NORQ_LOG_STDERR} 1)
set(ENV{DBUS_SYSTEM_BUS_ADDRESS} unix:path=${WORK_FOLDER}/no-bus)
set(ENV{LD_LIBRARY_PATH} ${platform}/${LIBRARY_FOLDER})
execute_process(COMMAND ${build}/src/core/tovrel RESULT_VARIABLE result ERROR_VARIABLE errors
                TIMEOUT 60)
if(NOT result STREQUAL "1")
    message(FATAL_ERROR "without a bus tovrel ended with '${result}' instead of 1:\n${errors}")
endif()
if(NOT errors MATCHES "Failed adding to open bus!")
    message(FATAL_ERROR "tovrel did not tell that the bus is missing:\n${errors}")
endif()
message(STATUS "built and started against ${platform}")
file(REMOVE_RECURSE ${WORK_FOLDER})
