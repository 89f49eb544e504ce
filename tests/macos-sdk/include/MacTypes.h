// MacTypes.h, as far as the macOS provider uses it. Declarations transcribed from
// Apple's public documentation for the provider's compile check on Linux.
#pragma once

typedef unsigned char UInt8;
typedef unsigned short UInt16;
typedef unsigned int UInt32;
typedef signed int SInt32;

// Apple's C Boolean: 0 or 1 in an unsigned byte.
typedef unsigned char Boolean;

// UTF-16 code units and their counts.
typedef UInt16 UniChar;
typedef unsigned long UniCharCount;
