# How targets of this project are made: one function for each kind, so that
# language mode, warnings and include root are the same everywhere.

# Every include names its room: #include "hardware/board.h".
function(mftool_common_options target standard)
    target_include_directories(${target} PUBLIC ${PROJECT_SOURCE_DIR})
    set_target_properties(${target} PROPERTIES
        CXX_STANDARD ${standard}
        CXX_STANDARD_REQUIRED ON
        CXX_EXTENSIONS OFF
        AUTOMOC ON
        AUTOUIC ON
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
    # Only what Qt 4.8 has too: string-signature connections, no keyword loops.
    target_compile_definitions(mftool_${name} PRIVATE QT_NO_FOREACH)
endfunction()

# mftool_add_bench_library(NAME SOURCES...): a room of the bench, library bench_NAME.
function(mftool_add_bench_library name)
    add_library(bench_${name} STATIC ${ARGN})
    mftool_common_options(bench_${name} 17)
    target_precompile_headers(bench_${name} PRIVATE <QtCore>)
    target_link_libraries(bench_${name} PUBLIC mftool_qt_core)
endfunction()

# mftool_add_test(NAME SOURCES a.cpp ... LIBRARIES lib ... [TIMEOUT s] [LABELS l ...]
#                 [ENVIRONMENT "A=B" ...]):
# one Qt Test program, registered with CTest under its name. Widgets are drawn
# off screen unless a test's ENVIRONMENT says otherwise.
function(mftool_add_test name)
    cmake_parse_arguments(TEST "" "TIMEOUT" "SOURCES;LIBRARIES;LABELS;ENVIRONMENT" ${ARGN})
    add_executable(${name} ${TEST_SOURCES})
    mftool_common_options(${name} 17)
    target_link_libraries(${name} PRIVATE ${TEST_LIBRARIES} mftool_qt_widgets Qt${MFTOOL_QT}::Test)
    set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
    # Qt Test's headers take longer to read than most tests: they are read once for
    # all. Qt 6 gives every folder definitions of its own, which rules that out.
    if(MFTOOL_QT EQUAL 5)
        target_precompile_headers(${name} REUSE_FROM test_headers)
    endif()
    add_test(NAME ${name} COMMAND ${name})
    if(NOT TEST_TIMEOUT)
        set(TEST_TIMEOUT 120)
    endif()
    set(environment
        QT_QPA_PLATFORM=offscreen
        MFTOOL_BUILD_DIR=${CMAKE_BINARY_DIR})
    if(MFTOOL_SANITIZE)
        # Qt has no frame pointers: only the slow unwinder gets through it to our own frames.
        list(APPEND environment
            ASAN_OPTIONS=fast_unwind_on_malloc=0
            LSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tests/leaks.supp:print_suppressions=0)
    endif()
    set_tests_properties(${name} PROPERTIES
        TIMEOUT ${TEST_TIMEOUT}
        LABELS "${TEST_LABELS}"
        SKIP_REGULAR_EXPRESSION "^SKIPPED: "
        ENVIRONMENT "${environment};${TEST_ENVIRONMENT}")
endfunction()
