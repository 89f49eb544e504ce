# Compiles, syntax only, every source of the macOS provider and every portable
# source that has an Apple branch, as Apple's compiler would see them for each
# architecture of the universal binary, against the declarations in SDK_DIR.
# Run by CTest with:
#   -DCLANGXX=<clang++> -DSOURCE_DIR=<repository> -DSDK_DIR=<this folder>/include
#   -DINCLUDE_DIRS=<include directories of the core, separated by |>
#   [-DTARGETS=<clang target triples, separated by |>]
# The file lists are taken when the test runs, so a new file is never missed.
#
# Before the sources, it checks that the check itself still bites: BOOL has each
# architecture's type, and a call to a deprecated API or to one newer than the
# deployment target outside an availability check does not compile.
cmake_minimum_required(VERSION 3.20)

foreach(variable CLANGXX SOURCE_DIR SDK_DIR)
    if(NOT ${variable})
        message(FATAL_ERROR "CompileCheck.cmake needs -D${variable}=...")
    endif()
endforeach()
if(TARGETS)
    string(REPLACE "|" ";" targets "${TARGETS}")
else()
    set(targets arm64-apple-macos14.0 x86_64-apple-macos14.0)
endif()

include(${CMAKE_CURRENT_LIST_DIR}/DarwinTarget.cmake)

# As the SDK does: an API newer than the deployment target needs an @available
# check, and a deprecated one is not called (or is called with a comment saying why
# and the warning silenced there).
set(availability_flags -Werror=unguarded-availability -Werror=unguarded-availability-new
    -Werror=deprecated-declarations)
set(common_flags -std=c++20 -fsyntax-only -Wall -Wextra ${availability_flags} -I${SOURCE_DIR})
if(INCLUDE_DIRS)
    string(REPLACE "|" ";" include_dirs "${INCLUDE_DIRS}")
    list(REMOVE_DUPLICATES include_dirs)
    foreach(directory IN LISTS include_dirs)
        # The system's own directories come with the C library, below.
        if(NOT directory STREQUAL SOURCE_DIR AND NOT directory MATCHES "^/usr(/local)?/include/?$")
            list(APPEND common_flags -I${directory})
        endif()
    endforeach()
endif()

# Objective-C++ with automatic reference counting and blocks, as the provider's
# build compiles .mm files.
set(objcxx_flags -x objective-c++ -fobjc-arc -fblocks)

# The Apple-only sources (the macOS provider, and any other folder named macos or
# apple, such as a backend of the core for Apple) must also be free of warnings;
# the portable sources are checked for errors only, since their warnings are the
# business of their own build. Folders for other systems are left out.
file(GLOB_RECURSE candidates ${SOURCE_DIR}/core/*.cpp ${SOURCE_DIR}/core/*.mm
     ${SOURCE_DIR}/agent/*.cpp)
set(provider_sources ${candidates})
list(FILTER provider_sources INCLUDE REGEX "/core/(.*/)?(macos|apple)/")
file(GLOB portable_sources ${SOURCE_DIR}/core/native/*.cpp)
foreach(candidate IN LISTS candidates)
    if(candidate MATCHES "/core/(.*/)?(macos|apple|linux|icu)/" OR candidate IN_LIST portable_sources)
        continue()
    endif()
    file(STRINGS ${candidate} apple_lines REGEX "__APPLE__|TARGET_OS_")
    if(apple_lines OR candidate MATCHES "\\.mm$")
        list(APPEND portable_sources ${candidate})
    endif()
endforeach()
list(SORT provider_sources)
list(SORT portable_sources)

if(NOT provider_sources)
    message(FATAL_ERROR "no macOS provider sources under ${SOURCE_DIR}/core/native/macos")
endif()

set(probes ${CMAKE_CURRENT_LIST_DIR}/probes)
set(failures)
set(checked 0)
foreach(target IN LISTS targets)
    velmora_darwin_target_flags(${CLANGXX} ${target} ${SDK_DIR} target_flags)
    message(STATUS "== ${target}")

    # The check's own teeth: each probe must compile, or must fail with its error.
    execute_process(COMMAND ${CLANGXX} ${target_flags} ${common_flags} ${objcxx_flags} -Werror
                            ${probes}/MustCompile.mm
                    RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(NOT result EQUAL 0)
        message("${output}")
        list(APPEND failures "${target}: probes/MustCompile.mm does not compile")
    endif()
    foreach(probe Deprecated Unguarded)
        execute_process(COMMAND ${CLANGXX} ${target_flags} ${common_flags} ${objcxx_flags}
                                ${probes}/${probe}.mm
                        RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
        string(TOLOWER "${probe}" expected)
        if(result EQUAL 0 OR NOT output MATCHES "error: .*(${expected}|only available on macOS)")
            message("${output}")
            list(APPEND failures "${target}: the ${expected} call in probes/${probe}.mm compiled")
        endif()
    endforeach()

    foreach(source IN LISTS provider_sources portable_sources)
        set(flags ${target_flags} ${common_flags})
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
            list(APPEND failures "${target}: ${name}")
        endif()
    endforeach()
endforeach()

list(LENGTH failures failed)
if(failures)
    list(JOIN failures "; " failed_names)
    message(FATAL_ERROR "${failed} failures against the macOS declarations: ${failed_names}")
endif()
list(JOIN targets ", " target_names)
message(STATUS "${checked} compiles against the macOS declarations pass (${target_names})")
