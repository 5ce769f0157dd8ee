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

# mftool_moc(TARGET): the meta-object code of a target of the bench or the tests.
# A .cpp file includes its own as NAME.moc, a header's is compiled beside it. CMake's
# AUTOMOC would do the same at a start-up cost for each of a hundred programs; moc is
# given no include folders because none of these classes needs another file to be read.
function(mftool_moc target)
    get_target_property(sources ${target} SOURCES)
    foreach(source IN LISTS sources)
        get_filename_component(source ${source} ABSOLUTE)
        if(NOT source MATCHES "\\.(cpp|h)$")
            continue()
        endif()
        file(STRINGS ${source} objects REGEX "^ *Q_OBJECT *$")
        if(NOT objects)
            continue()
        endif()
        get_filename_component(name ${source} NAME_WE)
        set(folder ${CMAKE_CURRENT_BINARY_DIR}/${target}.moc)
        if(source MATCHES "\\.h$")
            set(made ${folder}/moc_${name}.cpp)
        else()
            set(made ${folder}/${name}.moc)
        endif()
        add_custom_command(OUTPUT ${made}
            COMMAND ${CMAKE_COMMAND} -E make_directory ${folder}
            COMMAND Qt${MFTOOL_QT}::moc ${source} -o ${made}
            DEPENDS ${source}
            COMMENT "Generating ${name} meta-object code" VERBATIM)
        target_sources(${target} PRIVATE ${made})
        target_include_directories(${target} PRIVATE ${folder})
    endforeach()
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
    mftool_moc(bench_${name})
    # What every room of the bench includes, precompiled once, in the first of them.
    if(name STREQUAL "common")
        target_precompile_headers(bench_common PRIVATE <QtCore>)
    else()
        target_precompile_headers(bench_${name} REUSE_FROM bench_common)
    endif()
    target_link_libraries(bench_${name} PUBLIC mftool_qt_core)
endfunction()

# mftool_add_test(NAME SOURCES a.cpp ... LIBRARIES lib ... [TIMEOUT s] [COST s]
#                 [LABELS l ...] [ENVIRONMENT "A=B" ...]):
# one Qt Test program, registered with CTest under its name. Widgets are drawn
# off screen unless a test's ENVIRONMENT says otherwise. Label "whole" is for those
# that start the real tool; COST is for the longest, which are begun first.
function(mftool_add_test name)
    cmake_parse_arguments(TEST "" "TIMEOUT;COST" "SOURCES;LIBRARIES;LABELS;ENVIRONMENT" ${ARGN})
    add_executable(${name} ${TEST_SOURCES})
    mftool_common_options(${name} ${MFTOOL_TEST_CXX_STANDARD})
    mftool_moc(${name})
    target_link_libraries(${name} PRIVATE ${TEST_LIBRARIES} mftool_qt_widgets mftool_qt_test)
    set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
    # Qt Test's headers take longer to read than most tests: they are read once for all.
    if(NOT MFTOOL_QT EQUAL 4)
        target_precompile_headers(${name} REUSE_FROM test_headers)
    endif()
    add_test(NAME ${name} COMMAND ${name})
    if(NOT TEST_TIMEOUT)
        set(TEST_TIMEOUT 300) # for one that hangs, not for one that is slow
    endif()
    if(NOT TEST_COST)
        set(TEST_COST 1)
    endif()
    set(environment
        QT_QPA_PLATFORM=offscreen
        MFTOOL_BUILD_DIR=${CMAKE_BINARY_DIR})
    if(MFTOOL_SANITIZE AND NOT "whole" IN_LIST TEST_LABELS)
        # Qt has no frame pointers: only the slow unwinder gets through it to our own frames.
        list(APPEND environment
            ASAN_OPTIONS=fast_unwind_on_malloc=0
            LSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tests/leaks.supp:print_suppressions=0)
    elseif(MFTOOL_SANITIZE)
        # That unwinder makes the whole tool ten times slower. Its leaks are Valgrind's to find.
        list(APPEND environment ASAN_OPTIONS=detect_leaks=0)
    endif()
    set_tests_properties(${name} PROPERTIES
        TIMEOUT ${TEST_TIMEOUT}
        COST ${TEST_COST}
        LABELS "${TEST_LABELS}"
        SKIP_REGULAR_EXPRESSION "(^|\n)SKIPPED: "
        ENVIRONMENT "${environment};${TEST_ENVIRONMENT}")
endfunction()
