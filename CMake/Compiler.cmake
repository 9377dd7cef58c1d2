# What every target of ours is compiled with: warnings, hardening, sanitizers. Warnings are errors in the presets of
# developers (CMakePresets.json), not in a release: a newer compiler or Qt has new ones.

option(NOTICE_COVERAGE "Instrument for gcov" OFF)
option(NOTICE_FUZZ "Build the libFuzzer targets (clang)" OFF)
set(NOTICE_SANITIZE "" CACHE STRING "Sanitizers, as given to -fsanitize=")

option(NOTICE_WARNINGS_ARE_ERRORS "Stop at a warning of the compiler" OFF)
set(NOTICE_WARNING_ERRORS $<$<BOOL:${NOTICE_WARNINGS_ARE_ERRORS}>:-Werror>)

option(CMAKE_UNITY_BUILD "Compile several sources of a target at once, which takes a third of the time" ON)
set(CMAKE_UNITY_BUILD_BATCH_SIZE 4) # so that a change of one file compiles little
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
include(CheckPIESupported)
check_pie_supported()

add_library(NoticeOptions INTERFACE)
target_include_directories(NoticeOptions INTERFACE ${PROJECT_SOURCE_DIR})
target_compile_definitions(NoticeOptions INTERFACE
    QT_NO_KEYWORDS QT_NO_CAST_FROM_BYTEARRAY QT_NO_CAST_TO_ASCII QT_DISABLE_DEPRECATED_BEFORE=0x060400
    $<$<VERSION_GREATER_EQUAL:${Qt6_VERSION},6.5>:QT_WARN_DEPRECATED_UP_TO=0x060400>)
target_compile_options(NoticeOptions INTERFACE
    -Wall -Wextra -Wpedantic ${NOTICE_WARNING_ERRORS} -Wshadow -Wnon-virtual-dtor -Wold-style-cast -Woverloaded-virtual
    -Wcast-align -Wformat=2 -Wconversion -Wimplicit-fallthrough)

# Functions and lines, for the symbols' packages; paths as in the source tree, so that the same source gives the same
# package wherever it is built. Tests/ takes them away again.
add_compile_options($<$<CONFIG:Release>:-g1> $<$<CONFIG:Release>:-ffile-prefix-map=${PROJECT_SOURCE_DIR}=.>)

if(NOTICE_SANITIZE)
    target_compile_options(NoticeOptions INTERFACE
        -fsanitize=${NOTICE_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer -g)
    target_link_options(NoticeOptions INTERFACE -fsanitize=${NOTICE_SANITIZE})
    if(NOTICE_SANITIZE MATCHES address)
        target_sources(NoticeOptions INTERFACE ${PROJECT_SOURCE_DIR}/CMake/LeakSuppressions.cpp)
    endif()
    if(NOTICE_SANITIZE MATCHES thread)
        target_sources(NoticeOptions INTERFACE ${PROJECT_SOURCE_DIR}/CMake/RaceSuppressions.cpp)
    endif()
else()
    target_compile_options(NoticeOptions INTERFACE -fstack-protector-strong)
    target_compile_options(NoticeOptions INTERFACE
        $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE> $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=2>)
    if(NOT APPLE)
        target_link_options(NoticeOptions INTERFACE
            -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack -Wl,-O1 -Wl,--as-needed -Wl,--gc-sections)
        target_compile_options(NoticeOptions INTERFACE -ffunction-sections -fdata-sections)
    endif()
endif()

if(NOTICE_COVERAGE)
    target_compile_options(NoticeOptions INTERFACE --coverage)
    target_link_options(NoticeOptions INTERFACE --coverage)
endif()
