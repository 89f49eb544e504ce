# Compiles, syntax only, every source of the macOS provider and every portable
# source that has an Apple branch, as Apple's compiler would see them, against
# the declarations in SDK_DIR. Run by CTest with:
#   -DCLANGXX=<clang++> -DSOURCE_DIR=<repository> -DSDK_DIR=<this folder>/include
#   -DINCLUDE_DIRS=<include directories of the core, separated by |>
# The file lists are taken when the test runs, so a new file is never missed.
cmake_minimum_required(VERSION 3.20)

foreach(variable CLANGXX SOURCE_DIR SDK_DIR)
    if(NOT ${variable})
        message(FATAL_ERROR "CompileCheck.cmake needs -D${variable}=...")
    endif()
endforeach()

# What Apple's clang predefines (or TargetConditionals.h defines) for a macOS
# build on Apple silicon, where BOOL is bool.
set(apple_defines
    -D__APPLE__=1
    -D__MACH__=1
    -D__ENVIRONMENT_MAC_OS_X_VERSION_MIN_REQUIRED__=140000
    -DTARGET_OS_MAC=1
    -DTARGET_OS_OSX=1)

set(common_flags -std=c++20 -fsyntax-only -Wall -Wextra ${apple_defines}
    -I${SOURCE_DIR} -isystem ${SDK_DIR})
if(INCLUDE_DIRS)
    string(REPLACE "|" ";" include_dirs "${INCLUDE_DIRS}")
    list(REMOVE_DUPLICATES include_dirs)
    foreach(directory IN LISTS include_dirs)
        # The system's own directories stay where the compiler puts them.
        if(NOT directory STREQUAL SOURCE_DIR AND NOT directory MATCHES "^/usr(/local)?/include/?$")
            list(APPEND common_flags -I${directory})
        endif()
    endforeach()
endif()

# Objective-C++ with automatic reference counting and blocks, as the provider's
# build compiles .mm files; the macOS runtime gives ARC and Apple's semantics.
set(objcxx_flags -x objective-c++ -fobjc-runtime=macosx-14.0 -fobjc-arc -fblocks
    -U__OBJC_BOOL_IS_BOOL -D__OBJC_BOOL_IS_BOOL=1)

# The provider must also be free of warnings; the portable sources are checked for
# errors only, since their warnings are the business of their own build.
file(GLOB provider_sources
    ${SOURCE_DIR}/core/native/macos/*.cpp
    ${SOURCE_DIR}/core/native/macos/*.mm
    ${SOURCE_DIR}/core/*/apple/*.cpp
    ${SOURCE_DIR}/core/*/apple/*.mm)
file(GLOB portable_sources ${SOURCE_DIR}/core/native/*.cpp)
file(GLOB_RECURSE candidates ${SOURCE_DIR}/core/*.cpp ${SOURCE_DIR}/agent/*.cpp)
foreach(candidate IN LISTS candidates)
    if(candidate MATCHES "/core/native/(macos|linux)/" OR candidate IN_LIST portable_sources)
        continue()
    endif()
    file(STRINGS ${candidate} apple_lines REGEX "__APPLE__|TARGET_OS_")
    if(apple_lines)
        list(APPEND portable_sources ${candidate})
    endif()
endforeach()
list(SORT provider_sources)
list(SORT portable_sources)

if(NOT provider_sources)
    message(FATAL_ERROR "no macOS provider sources under ${SOURCE_DIR}/core/native/macos")
endif()

set(failures)
set(checked 0)
foreach(source IN LISTS provider_sources portable_sources)
    set(flags ${common_flags})
    if(source MATCHES "\\.mm$")
        list(APPEND flags ${objcxx_flags})
    endif()
    if(source IN_LIST provider_sources)
        list(APPEND flags -Werror)
    endif()
    file(RELATIVE_PATH name ${SOURCE_DIR} ${source})
    execute_process(COMMAND ${CLANGXX} ${flags} ${source}
                    RESULT_VARIABLE result
                    OUTPUT_VARIABLE output
                    ERROR_VARIABLE output)
    math(EXPR checked "${checked} + 1")
    if(result EQUAL 0)
        message(STATUS "ok      ${name}")
        if(output)
            message("${output}")
        endif()
    else()
        message(STATUS "FAILED  ${name}")
        message("${output}")
        list(APPEND failures ${name})
    endif()
endforeach()

list(LENGTH failures failed)
math(EXPR passed "${checked} - ${failed}")
if(failures)
    list(JOIN failures ", " failed_names)
    message(FATAL_ERROR "${failed} of ${checked} sources do not compile against the macOS "
                        "declarations: ${failed_names}")
endif()
message(STATUS "${passed} sources compile against the macOS declarations")
