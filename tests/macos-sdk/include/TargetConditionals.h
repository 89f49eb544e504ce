// <TargetConditionals.h> for a macOS build: which system and processor the code
// is compiled for. The compiler itself predefines __APPLE__, __MACH__, the
// deployment target and the architecture.
#pragma once

#define TARGET_OS_MAC 1
#define TARGET_OS_OSX 1
#define TARGET_OS_IPHONE 0
#define TARGET_OS_IOS 0
#define TARGET_OS_MACCATALYST 0
#define TARGET_OS_TV 0
#define TARGET_OS_WATCH 0
#define TARGET_OS_SIMULATOR 0
#define TARGET_OS_EMBEDDED 0

#if defined(__arm64__)
#define TARGET_CPU_ARM64 1
#define TARGET_CPU_X86_64 0
#elif defined(__x86_64__)
#define TARGET_CPU_ARM64 0
#define TARGET_CPU_X86_64 1
#else
#error "a macOS build is for arm64 or x86_64"
#endif

#define TARGET_RT_64_BIT 1
#define TARGET_RT_LITTLE_ENDIAN 1
#define TARGET_RT_BIG_ENDIAN 0
#define TARGET_RT_MAC_MACHO 1
