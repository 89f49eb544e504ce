# Compiles the agent's macOS objects (the core, the agent and the macOS
# provider, as object code this time) for one macOS target against the
# declarations in SDK_DIR, and sorts every undefined symbol of them by who must
# provide it on a Mac: Apple's frameworks and C library, the Objective-C and
# blocks runtimes, or the C++ library. Anything else is listed as "outside
# macOS", and makes the run fail. Run by hand:
#   cmake -DCLANGXX=clang++-14 -DNM=llvm-nm-14 -DSOURCE_DIR=$PWD \
#         -DSDK_DIR=$PWD/tests/macos-sdk/include [-DTARGET=arm64-apple-macos14.0] \
#         [-DWORK_DIR=build/macos-objects] -P tests/macos-sdk/UndefinedSymbols.cmake
cmake_minimum_required(VERSION 3.20)

foreach(variable CLANGXX NM SOURCE_DIR SDK_DIR)
    if(NOT ${variable})
        message(FATAL_ERROR "UndefinedSymbols.cmake needs -D${variable}=...")
    endif()
endforeach()
if(NOT TARGET)
    set(TARGET arm64-apple-macos14.0)
endif()
if(NOT WORK_DIR)
    set(WORK_DIR ${SOURCE_DIR}/build/macos-objects/${TARGET})
endif()
file(MAKE_DIRECTORY ${WORK_DIR})

include(${CMAKE_CURRENT_LIST_DIR}/DarwinTarget.cmake)
velmora_darwin_target_flags(${CLANGXX} ${TARGET} ${SDK_DIR} target_flags)

# What the macOS build compiles: the core without the Linux provider, the
# agent, and the macOS provider.
file(GLOB_RECURSE sources ${SOURCE_DIR}/core/*.cpp ${SOURCE_DIR}/core/*.mm
     ${SOURCE_DIR}/agent/*.cpp)
list(FILTER sources EXCLUDE REGEX "/(linux|icu|freedesktop)/")
list(SORT sources)

set(objects)
foreach(source IN LISTS sources)
    file(RELATIVE_PATH name ${SOURCE_DIR} ${source})
    string(REPLACE "/" "_" object ${name})
    set(object ${WORK_DIR}/${object}.o)
    set(flags ${target_flags} -std=c++20 -O1 -c -I${SOURCE_DIR}
        -D__ASSERT_MACROS_DEFINE_VERSIONS_WITHOUT_UNDERSCORES=0)
    if(source MATCHES "\\.mm$")
        list(APPEND flags -x objective-c++ -fobjc-arc -fblocks)
    endif()
    # An object newer than its source is kept (nothing else it includes is tracked:
    # remove WORK_DIR after changing a header).
    if(NOT EXISTS ${object} OR ${source} IS_NEWER_THAN ${object})
        execute_process(COMMAND ${CLANGXX} ${flags} ${source} -o ${object}
                        RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
        if(NOT result EQUAL 0)
            message(FATAL_ERROR "${name} does not compile for ${TARGET}:\n${output}")
        endif()
    endif()
    list(APPEND objects ${object})
endforeach()
list(LENGTH objects object_count)

execute_process(COMMAND ${NM} -u -j ${objects} OUTPUT_VARIABLE listing RESULT_VARIABLE result)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "${NM} failed")
endif()
string(REPLACE "\n" ";" symbols "${listing}")
list(FILTER symbols EXCLUDE REGEX "^$|:$")
list(REMOVE_DUPLICATES symbols)
# What one object uses and another defines is resolved inside the agent.
execute_process(COMMAND ${NM} --defined-only -j ${objects} OUTPUT_VARIABLE defined_listing)
string(REPLACE "\n" ";" defined "${defined_listing}")
list(REMOVE_ITEM symbols ${defined})
list(SORT symbols)

# Who provides a symbol on a Mac (Mach-O names carry a leading underscore).
set(groups objc blocks cxx apple libc outside)
set(objc_title "Objective-C runtime (/usr/lib/libobjc.A.dylib)")
set(blocks_title "blocks runtime (libSystem)")
set(cxx_title "C++ library (/usr/lib/libc++.1.dylib, libc++abi)")
set(apple_title "Apple frameworks (/System/Library/Frameworks) and libdispatch")
set(libc_title "C library (libSystem)")
set(outside_title "outside macOS")
foreach(group IN LISTS groups)
    set(${group}_symbols)
endforeach()
foreach(symbol IN LISTS symbols)
    if(symbol MATCHES "^(_objc_|_OBJC_(CLASS|METACLASS)_\\$_NSObject$|__objc_empty_cache$|_OBJC_EHTYPE_)")
        list(APPEND objc_symbols ${symbol})
    elseif(symbol MATCHES "^(__NSConcrete(Stack|Global)Block|__Block_)")
        list(APPEND blocks_symbols ${symbol})
    elseif(symbol MATCHES "^(__ZNSt3__1|__ZNKSt3__1|__ZTVNSt3__1|__ZTINSt3__1|__ZTSNSt3__1|__Znwm|__Znam|__ZdlPv|__ZdaPv|__ZnwmSt11align_val_t|__ZdlPvSt11align_val_t|___cxa_|___dynamic_cast$|___gxx_personality_v0|__Unwind_Resume|__ZTVN10__cxxabiv1|__ZTISt|__ZTVSt|__ZNSt[0-9]|__ZNKSt[0-9]|__ZSt[0-9]|__ZTIN10__cxxabiv1|__ZTIi$|__ZTIv$)")
        list(APPEND cxx_symbols ${symbol})
    elseif(symbol MATCHES "^(_OBJC_CLASS_\\$_(NS|SC)|_CF|_kCF|_AX|_kAX|_CG|_kCG|_CC_SHA256_|_dispatch_|__dispatch_|_NS|___CFConstantStringClassReference$|___NS(Array|Dictionary)0__$)")
        list(APPEND apple_symbols ${symbol})
    elseif(symbol MATCHES "^_(abort|memcpy|memmove|memset|memcmp|memchr|strlen|strcmp|fprintf|snprintf|fflush|fputs|fwrite|fread|fopen|fclose|fputc|putc|stderr|stdout|stdin|___stderrp|___stdoutp|___stdinp|strtod|strtoll|strtol|strtoull|localeconv|puts|getenv|nanosleep|gethostname|errno|__errno_location|___error|time|gmtime_r|localtime_r|strftime|mkstemp|close|read|write|open|fstat|stat|unlink|free|malloc|calloc|realloc|posix_memalign|bzero|arc4random|arc4random_buf|uuid_generate|uuid_unparse|uuid_unparse_upper|isatty|signal|exit|_exit|atexit|pthread_|sched_yield|clock_gettime|gettimeofday|uname|sysconf)")
        list(APPEND libc_symbols ${symbol})
    elseif(symbol MATCHES "^(___stack_chk_(fail|guard)|___assert_fail|___assert_rtn)$")
        # (___assert_fail is glibc's name, from the borrowed C headers; Apple's
        # assert calls ___assert_rtn.)
        list(APPEND libc_symbols ${symbol})
    elseif(symbol STREQUAL "___dso_handle")
        # Provided by the linker for each image.
        list(APPEND libc_symbols ${symbol})
    else()
        list(APPEND outside_symbols ${symbol})
    endif()
endforeach()

list(LENGTH symbols symbol_count)
message("${symbol_count} undefined symbols in ${object_count} objects compiled for ${TARGET}:")
foreach(group IN LISTS groups)
    list(LENGTH ${group}_symbols count)
    if(count EQUAL 0)
        continue()
    endif()
    message("\n${${group}_title}: ${count}")
    foreach(symbol IN LISTS ${group}_symbols)
        message("  ${symbol}")
    endforeach()
endforeach()
if(outside_symbols)
    message(FATAL_ERROR "symbols from outside macOS")
endif()
