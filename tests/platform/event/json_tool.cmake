# Tests of the JSON rendering and of the command-line tool.
add_library(event_json_events STATIC json_events.cpp)
target_link_libraries(event_json_events PUBLIC norq::event PRIVATE tovrel::options)

# A thread sanitizer brings an allocator along that no program may replace; rendering has no threads.
set(event_json_tests json_test.cpp)
if(NOT TOVREL_SANITIZE STREQUAL "thread")
    list(APPEND event_json_tests json_memory_test.cpp)
endif()
tovrel_add_test(event_json_test LABEL platform
    SOURCES ${event_json_tests}
    LINKS event_json_events test_support PkgConfig::JANSSON)
target_compile_definitions(event_json_test PRIVATE
    EVENT_JSON_DOCUMENT="${PROJECT_SOURCE_DIR}/docs/event-json.md")

add_executable(event_json_samples json_samples.cpp)
target_link_libraries(event_json_samples PRIVATE event_json_events tovrel::options)
add_test(NAME event_json_meets_its_schema
    COMMAND /usr/bin/python3 ${CMAKE_CURRENT_SOURCE_DIR}/json_schema_check.py
            ${PROJECT_SOURCE_DIR}/docs/event-json.schema.json $<TARGET_FILE:event_json_samples>)
set_tests_properties(event_json_meets_its_schema PROPERTIES LABELS platform TIMEOUT 120)

tovrel_add_test(event_tool_parts_test LABEL platform
    SOURCES tool_parts_test.cpp
    LINKS norq_event_tool norq::event)

tovrel_add_test(event_tool_test LABEL platform
    SOURCES tool_test.cpp
    LINKS test_support PkgConfig::JANSSON)
target_compile_definitions(event_tool_test PRIVATE
    NORQ_EVENT_TOOL="$<TARGET_FILE:norq-event>"
    NORQ_EVENTD="$<TARGET_FILE:norq-eventd>")
add_dependencies(event_tool_test norq-event norq-eventd)
