# The compiler flags that make clang on Linux see a macOS target as Apple's
# toolchain would, apart from the SDK: clang's own Darwin target (its predefined
# macros, BOOL, availability), LLVM's libc++ as the C++ library (Apple's C++
# library, with its availability markup for the deployment target), the
# declarations in SDK_DIR for Apple's frameworks, and glibc's headers for the
# architecture standing in for Apple's C library, which has no copy here.
#
#   velmora_darwin_target_flags(<clang++> <target triple> <SDK_DIR> <output variable>)
function(velmora_darwin_target_flags clangxx target sdk_dir out)
    # libc++ as installed with this clang (Debian: libc++-14-dev for clang 14).
    if(NOT IS_ABSOLUTE ${clangxx})
        find_program(clangxx_path NAMES ${clangxx} REQUIRED)
        set(clangxx ${clangxx_path})
    endif()
    get_filename_component(real ${clangxx} REALPATH)
    get_filename_component(bin ${real} DIRECTORY)
    get_filename_component(libcxx ${bin}/../include/c++/v1 ABSOLUTE)
    if(NOT EXISTS ${libcxx}/__config)
        message(FATAL_ERROR "no libc++ headers for ${clangxx} in ${libcxx} "
                            "(Debian: the libc++-dev package of that clang)")
    endif()
    execute_process(COMMAND ${clangxx} -print-resource-dir OUTPUT_VARIABLE resource
                    OUTPUT_STRIP_TRAILING_WHITESPACE)

    string(REGEX MATCH "^[^-]+" arch ${target})
    if(arch STREQUAL "arm64" OR arch STREQUAL "arm64e")
        set(gnu aarch64-linux-gnu)
        set(package libc6-dev-arm64-cross)
    elseif(arch STREQUAL "x86_64")
        set(gnu x86_64-linux-gnu)
        set(package libc6-dev-amd64-cross)
    else()
        message(FATAL_ERROR "no C library headers known for ${arch}")
    endif()
    # The host's own glibc when it has this architecture, else the cross one.
    set(after)
    if(EXISTS /usr/include/${gnu}/bits/wordsize.h)
        set(libc /usr/include/${gnu} /usr/include)
    elseif(EXISTS /usr/${gnu}/include/bits/wordsize.h)
        set(libc /usr/${gnu}/include)
        # Header-only libraries (nlohmann-json) live with the host's headers.
        set(after -idirafter /usr/include)
    else()
        message(FATAL_ERROR "no glibc headers for ${arch} (Debian: ${package})")
    endif()

    set(flags -target ${target} -stdlib=libc++ -nostdinc -isystem ${libcxx} -isystem ${resource}/include
        -isystem ${sdk_dir})
    foreach(directory IN LISTS libc)
        list(APPEND flags -isystem ${directory})
    endforeach()
    # glibc declares the POSIX functions libc++ needs only when asked, where
    # Apple's C library declares them always; and its <sys/cdefs.h> defines
    # __nonnull(params) itself, where the Darwin target predefines __nonnull and
    # __nullable as spellings of _Nonnull and _Nullable (the declarations here
    # use those).
    list(APPEND flags ${after} -D_GNU_SOURCE -U__nonnull -U__nullable)
    set(${out} ${flags} PARENT_SCOPE)
endfunction()
