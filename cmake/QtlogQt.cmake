# Finds the Qt chosen by QTLOG_QT_MAJOR and describes it for the rest of the
# build and for the installed package:
#   QTLOG_QT_CORE          imported target of QtCore
#   QTLOG_QT_TEST          imported target of QtTest
#   QTLOG_QT_FIND_PACKAGE  the find_dependency() call of the installed package
#   QTLOG_QT_PC_REQUIRES   the pkg-config module of QtCore
#   QTLOG_CONSUMER_CXX_STD the C++ standard a consumer needs at least: the
#                          public headers are C++98, Qt 5's need C++11 and
#                          Qt 6's C++17

if(QTLOG_QT_MAJOR EQUAL 4)
    set(_qtlog_qt_components QtCore)
    if(QTLOG_BUILD_TESTS)
        list(APPEND _qtlog_qt_components QtTest)
    endif()
    find_package(Qt4 4.8 REQUIRED COMPONENTS ${_qtlog_qt_components})
    set(QTLOG_QT_CORE Qt4::QtCore)
    set(QTLOG_QT_TEST Qt4::QtTest)
    set(QTLOG_QT_FIND_PACKAGE "find_dependency(Qt4 4.8 COMPONENTS QtCore)")
    set(QTLOG_QT_PC_REQUIRES "QtCore")
    set(QTLOG_CONSUMER_CXX_STD 98)
elseif(QTLOG_QT_MAJOR EQUAL 5 OR QTLOG_QT_MAJOR EQUAL 6)
    set(_qtlog_qt Qt${QTLOG_QT_MAJOR})
    set(_qtlog_qt_components Core)
    if(QTLOG_BUILD_TESTS)
        list(APPEND _qtlog_qt_components Test)
    endif()
    if(QTLOG_QT_MAJOR EQUAL 5)
        set(_qtlog_qt_min 5.15)
        set(QTLOG_CONSUMER_CXX_STD 11)
    else()
        set(_qtlog_qt_min 6.0)
        set(QTLOG_CONSUMER_CXX_STD 17)
    endif()
    find_package(${_qtlog_qt} ${_qtlog_qt_min} REQUIRED COMPONENTS ${_qtlog_qt_components})
    set(QTLOG_QT_CORE ${_qtlog_qt}::Core)
    # A cross build runs the moc of the host (see the toolchain files).
    if(CMAKE_CROSSCOMPILING AND QTLOG_HOST_MOC AND TARGET ${_qtlog_qt}::moc)
        set_target_properties(${_qtlog_qt}::moc PROPERTIES IMPORTED_LOCATION "${QTLOG_HOST_MOC}")
    endif()
    set(QTLOG_QT_TEST ${_qtlog_qt}::Test)
    set(QTLOG_QT_FIND_PACKAGE "find_dependency(${_qtlog_qt} ${_qtlog_qt_min} COMPONENTS Core)")
    set(QTLOG_QT_PC_REQUIRES "${_qtlog_qt}Core")
else()
    message(FATAL_ERROR "QTLOG_QT_MAJOR must be 4, 5 or 6, not '${QTLOG_QT_MAJOR}'")
endif()
