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

// A Unicode code point.
typedef UInt32 UTF32Char;

// Not used by the agent, but every file that includes a system framework sees
// them in the global namespace, and they share their names with the agent's own
// geometry types: a name that would be ambiguous on a Mac must be ambiguous here.
typedef long Size;
struct Point {
    short v;
    short h;
};
typedef struct Point Point;
struct Rect {
    short top;
    short left;
    short bottom;
    short right;
};
typedef struct Rect Rect;
