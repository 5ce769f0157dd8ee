# How targets of this project are made: one function for each kind, so that
# language mode, warnings and include root are the same everywhere.

# Every include names its room: #include "hardware/board.h".
function(mftool_common_options target standard)
    target_include_directories(${target} PUBLIC ${PROJECT_SOURCE_DIR})
    set_target_properties(${target} PROPERTIES
        CXX_STANDARD ${standard}
        CXX_STANDARD_REQUIRED ON
        CXX_EXTENSIONS OFF
        AUTORCC ON)
    if(CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
        target_compile_options(${target} PRIVATE
            -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion
            -Wold-style-cast -Wcast-align -Wformat=2 -Wnon-virtual-dtor
            -Woverloaded-virtual -Wundef)
        if(MFTOOL_WERROR)
            target_compile_options(${target} PRIVATE -Werror)
        endif()
    endif()
    if(MFTOOL_FUZZ)
        # Coverage for the fuzzer in every object; its main() only in the targets.
        target_compile_options(${target} PRIVATE -fsanitize=fuzzer-no-link)
        target_link_options(${target} PUBLIC -fsanitize=fuzzer-no-link)
    endif()
    if(MFTOOL_SANITIZE)
        target_compile_options(${target} PRIVATE
            -fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
        target_link_options(${target} PUBLIC -fsanitize=address,undefined)
    endif()
endfunction()

# mftool_add_room(NAME SOURCES...): a room of the tool, static library mftool_NAME.
function(mftool_add_room name)
    add_library(mftool_${name} STATIC ${ARGN})
    mftool_common_options(mftool_${name} ${MFTOOL_CXX_STANDARD})
    set_target_properties(mftool_${name} PROPERTIES AUTOMOC ON AUTOUIC ON)
    # Only what Qt 4.8 has too: no keyword loops; and no text taken from bytes in
    # passing, which would be Latin-1 there and UTF-8 in later versions.
    target_compile_definitions(mftool_${name} PRIVATE
        QT_NO_FOREACH QT_NO_CAST_FROM_ASCII QT_NO_CAST_TO_ASCII)
endfunction()

# mftool_add_bench_library(NAME SOURCES...): a room of the bench, library bench_NAME.
function(mftool_add_bench_library name)
    add_library(bench_${name} STATIC ${ARGN})
    mftool_common_options(bench_${name} 17)
    set_target_properties(bench_${name} PROPERTIES AUTOMOC ON)
    # What every room of the bench includes, precompiled once, in the first of them.
    if(name STREQUAL "common")
        target_precompile_headers(bench_common PRIVATE <QtCore>)
    else()
        target_precompile_headers(bench_${name} REUSE_FROM bench_common)
    endif()
    target_link_libraries(bench_${name} PUBLIC mftool_qt_core)
endfunction()

# mftool_add_tests(ROOM TESTS a b ... [WHOLE c d ...] LIBRARIES lib ... [SOURCES x.cpp ...]):
# all tests of a room in one program, tests_ROOM. TESTS are its units, each with a test
# class in tst_UNIT.cpp; CTest runs each by itself as ROOM/tst_UNIT. Widgets are drawn
# off screen. WHOLE are those that start the real tool; they get the label "whole", and
# no leak checker, which would let the tool itself end with an error. The longest get a
# COST, so that they are begun first:
#     set_tests_properties(ROOM/tst_UNIT PROPERTIES TIMEOUT 900 COST 50)
function(mftool_add_tests room)
    cmake_parse_arguments(TEST "" "" "TESTS;WHOLE;SOURCES;LIBRARIES" ${ARGN})
    set(program tests_${room})
    set(tests ${TEST_TESTS} ${TEST_WHOLE})
    list(TRANSFORM tests REPLACE "(.+)" "tst_\\1.cpp" OUTPUT_VARIABLE sources)
    add_executable(${program} ${sources} ${TEST_SOURCES})
    mftool_common_options(${program} ${MFTOOL_TEST_CXX_STANDARD})
    set_target_properties(${program} PROPERTIES
        AUTOMOC ON
        RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
    target_link_libraries(${program} PRIVATE ${TEST_LIBRARIES} test_program)
    # Qt Test's headers take longer to read than most tests: they are read once for all.
    if(NOT MFTOOL_QT EQUAL 4)
        target_precompile_headers(${program} REUSE_FROM test_program)
    endif()
    set(environment
        QT_QPA_PLATFORM=offscreen
        MFTOOL_BUILD_DIR=${CMAKE_BINARY_DIR})
    set(checked)
    set(unchecked)
    if(MFTOOL_SANITIZE)
        # Qt has no frame pointers: only the slow unwinder gets through it to our own frames.
        set(checked
            ASAN_OPTIONS=fast_unwind_on_malloc=0
            LSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tests/leaks.supp:print_suppressions=0)
        # That unwinder makes the whole tool ten times slower. Its leaks are Valgrind's to find.
        set(unchecked ASAN_OPTIONS=detect_leaks=0)
    endif()
    foreach(test IN LISTS tests)
        set(name ${room}/tst_${test})
        add_test(NAME ${name} COMMAND ${program} tst_${test})
        # The limit is for one that hangs, not for one that is slow.
        set_tests_properties(${name} PROPERTIES
            TIMEOUT 300
            COST 1
            SKIP_REGULAR_EXPRESSION "(^|\n)SKIPPED: "
            ENVIRONMENT "${environment};${checked}")
        if(test IN_LIST TEST_WHOLE)
            set_tests_properties(${name} PROPERTIES
                LABELS whole
                ENVIRONMENT "${environment};${unchecked}")
        endif()
    endforeach()
endfunction()
