# Compiles a file that includes HEADER with the include folders of a layer, and compares the outcome
# with EXPECT: "found" or "missing".
#
#   cmake -DCOMPILER=... -DFOLDERS=a|b -DHEADER=... -DEXPECT=... -DWORK_FOLDER=... -P <this file>
foreach(name COMPILER FOLDERS HEADER EXPECT WORK_FOLDER)
    if(NOT ${name})
        message(FATAL_ERROR "${name} is not given")
    endif()
endforeach()

string(REPLACE "|" ";" folders "${FOLDERS}")
list(TRANSFORM folders PREPEND "-I")

file(MAKE_DIRECTORY "${WORK_FOLDER}")
string(MAKE_C_IDENTIFIER "${HEADER}-${EXPECT}" name)
set(source "${WORK_FOLDER}/${name}.cpp")
file(WRITE "${source}" "#include \"${HEADER}\"\n")
execute_process(COMMAND ${COMPILER} -std=c++20 -fsyntax-only ${folders} "${source}"
                RESULT_VARIABLE result ERROR_VARIABLE errors)

if(EXPECT STREQUAL "found" AND NOT result EQUAL 0)
    message(FATAL_ERROR "${HEADER} should be within reach:\n${errors}")
endif()
if(EXPECT STREQUAL "missing")
    if(result EQUAL 0)
        message(FATAL_ERROR "${HEADER} is within reach of a layer below it")
    endif()
    if(NOT errors MATCHES "${HEADER}[^\n]*(No such file|file not found)")
        message(FATAL_ERROR "failed, but not because ${HEADER} is out of reach:\n${errors}")
    endif()
endif()
