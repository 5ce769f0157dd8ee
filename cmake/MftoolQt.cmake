# The one place in the build that knows which Qt it is. It defines
#   mftool_qt_core, mftool_qt_widgets   what the tool's rooms link against
#   MFTOOL_CXX_STANDARD                 the C++ the tool's rooms are written in
#   mftool_qt_test, MFTOOL_TEST_CXX_STANDARD   the same for the tests; with BUILD_TESTING
# The tool stays in the API that Qt 4.8, 5.15 and 6 share; C++11 with the older
# two and C++17 with Qt 6 let two compiler modes check that.
add_library(mftool_qt_core INTERFACE)
add_library(mftool_qt_widgets INTERFACE)

if(MFTOOL_QT EQUAL 4)
    set(modules QtCore QtGui)
    if(BUILD_TESTING)
        list(APPEND modules QtTest)
    endif()
    find_package(Qt4 4.8 REQUIRED ${modules})
    target_link_libraries(mftool_qt_core INTERFACE Qt4::QtCore)
    target_link_libraries(mftool_qt_widgets INTERFACE Qt4::QtCore Qt4::QtGui)
    set(MFTOOL_CXX_STANDARD 11)
elseif(MFTOOL_QT EQUAL 5)
    find_package(Qt5 5.15 REQUIRED COMPONENTS Core Gui Widgets)
    target_link_libraries(mftool_qt_core INTERFACE Qt5::Core)
    target_link_libraries(mftool_qt_widgets INTERFACE Qt5::Core Qt5::Gui Qt5::Widgets)
    set(MFTOOL_CXX_STANDARD 11)
elseif(MFTOOL_QT EQUAL 6)
    # QRegExp, which the progress patterns are written for, lives in Core5Compat.
    find_package(Qt6 6.4 REQUIRED COMPONENTS Core Gui Widgets Core5Compat)
    target_link_libraries(mftool_qt_core INTERFACE Qt6::Core Qt6::Core5Compat)
    target_link_libraries(mftool_qt_widgets INTERFACE Qt6::Core Qt6::Gui Qt6::Widgets
                                                      Qt6::Core5Compat)
    set(MFTOOL_CXX_STANDARD 17)
else()
    message(FATAL_ERROR "MFTOOL_QT is ${MFTOOL_QT}; it must be 4, 5 or 6")
endif()

add_library(mftool_qt_test INTERFACE)
if(BUILD_TESTING AND MFTOOL_QT EQUAL 4)
    # Its headers are older than C++17; what its QtTest lacks is in one header.
    set(MFTOOL_TEST_CXX_STANDARD 14)
    target_link_libraries(mftool_qt_test INTERFACE Qt4::QtTest)
    target_include_directories(mftool_qt_test INTERFACE ${PROJECT_SOURCE_DIR}/tests/support/qt4)
    target_compile_options(mftool_qt_test INTERFACE
        "SHELL:-include ${PROJECT_SOURCE_DIR}/tests/support/qttest4.h")
elseif(BUILD_TESTING)
    set(MFTOOL_TEST_CXX_STANDARD 17)
    find_package(Qt${MFTOOL_QT} REQUIRED COMPONENTS Test)
    target_link_libraries(mftool_qt_test INTERFACE Qt${MFTOOL_QT}::Test)
endif()
