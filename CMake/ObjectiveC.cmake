# Objective-C++, for what macOS alone has. On another system the files that need no more than Foundation are
# built against GNUstep's and tested, where that and clang are there: NOTICE_HAS_FOUNDATION says so.
#
# Foundation raises exceptions of its own, which do not go together with those of C++ in every runtime: these
# files are compiled without.

set(NOTICE_HAS_FOUNDATION FALSE)
add_library(NoticeObjectiveC INTERFACE)

if(APPLE)
    enable_language(OBJCXX)
    find_library(NOTICE_FOUNDATION Foundation REQUIRED)
    set(NOTICE_HAS_FOUNDATION TRUE)
    target_link_libraries(NoticeObjectiveC INTERFACE NoticeOptions ${NOTICE_FOUNDATION})
    target_compile_options(NoticeObjectiveC INTERFACE
        $<$<COMPILE_LANGUAGE:OBJCXX>:-fno-exceptions> $<$<COMPILE_LANGUAGE:OBJCXX>:-fno-objc-arc>)
elseif(BUILD_TESTING)
    find_program(NOTICE_CLANG clang++)
    find_program(NOTICE_GDNC gdnc)
    find_path(NOTICE_GNUSTEP_HEADERS Foundation/Foundation.h PATH_SUFFIXES GNUstep)
    find_library(NOTICE_GNUSTEP gnustep-base)
    set(runtime)
    if(NOTICE_CLANG)
        # The runtime stands among the GNU compiler's files; its headers must not come with that compiler's.
        execute_process(COMMAND ${NOTICE_CLANG} -print-file-name=libobjc.so
            OUTPUT_VARIABLE runtime OUTPUT_STRIP_TRAILING_WHITESPACE)
        get_filename_component(runtimeHeaders "${runtime}" DIRECTORY)
        string(APPEND runtimeHeaders /include)
    endif()
    if(NOTICE_GDNC AND NOTICE_GNUSTEP_HEADERS AND NOTICE_GNUSTEP AND EXISTS "${runtime}"
        AND EXISTS ${runtimeHeaders}/objc/objc.h)
        set(CMAKE_OBJCXX_COMPILER ${NOTICE_CLANG} CACHE FILEPATH "The compiler of Objective-C++")
        enable_language(OBJCXX)
        set(NOTICE_HAS_FOUNDATION TRUE)
        target_include_directories(NoticeObjectiveC INTERFACE ${PROJECT_SOURCE_DIR})
        target_include_directories(NoticeObjectiveC SYSTEM INTERFACE ${NOTICE_GNUSTEP_HEADERS})
        # Not what is given for C++: its sanitizers and its counters may be those of another compiler.
        target_compile_definitions(NoticeObjectiveC INTERFACE
            GNUSTEP GNUSTEP_BASE_LIBRARY=1 GNU_RUNTIME=1
            QT_NO_KEYWORDS QT_NO_CAST_FROM_BYTEARRAY QT_NO_CAST_TO_ASCII QT_DISABLE_DEPRECATED_BEFORE=0x060400)
        foreach(option -Wall -Wextra ${NOTICE_WARNING_ERRORS} -Wshadow -Wconversion -Wimplicit-fallthrough -fobjc-runtime=gcc
                -fconstant-string-class=NSConstantString -fno-exceptions "SHELL:-idirafter ${runtimeHeaders}")
            target_compile_options(NoticeObjectiveC INTERFACE "$<$<COMPILE_LANGUAGE:OBJCXX>:${option}>")
        endforeach()
        target_link_libraries(NoticeObjectiveC INTERFACE ${NOTICE_GNUSTEP} ${runtime})
    endif()
endif()
set(CMAKE_OBJCXX_STANDARD 20)
set(CMAKE_OBJCXX_STANDARD_REQUIRED ON)
set(CMAKE_OBJCXX_EXTENSIONS OFF)
