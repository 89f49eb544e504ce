// CFString.h, as far as the macOS provider uses it.
#pragma once

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFLocale.h>

CF_EXTERN_C_BEGIN
CF_ASSUME_NONNULL_BEGIN

typedef UInt32 CFStringEncoding;

typedef CF_ENUM(CFStringEncoding, CFStringBuiltInEncodings) {
    kCFStringEncodingMacRoman = 0,
    kCFStringEncodingWindowsLatin1 = 0x0500,
    kCFStringEncodingISOLatin1 = 0x0201,
    kCFStringEncodingNextStepLatin = 0x0B01,
    kCFStringEncodingASCII = 0x0600,
    kCFStringEncodingUnicode = 0x0100,
    kCFStringEncodingUTF8 = 0x08000100,
    kCFStringEncodingNonLossyASCII = 0x0BFF,
    kCFStringEncodingUTF16 = 0x0100,
    kCFStringEncodingUTF16BE = 0x10000100,
    kCFStringEncodingUTF16LE = 0x14000100,
    kCFStringEncodingUTF32 = 0x0c000100,
    kCFStringEncodingUTF32BE = 0x18000100,
    kCFStringEncodingUTF32LE = 0x1c000100,
};

CF_EXPORT CFTypeID CFStringGetTypeID(void);

// NULL when the bytes are not valid in the encoding.
CF_EXPORT CFStringRef _Nullable CFStringCreateWithBytes(CFAllocatorRef _Nullable alloc,
                                                        const UInt8* bytes, CFIndex numBytes,
                                                        CFStringEncoding encoding,
                                                        Boolean isExternalRepresentation);

// The length in UTF-16 code units.
CF_EXPORT CFIndex CFStringGetLength(CFStringRef theString);

// Converts a range of the string; with a NULL buffer it only measures. Returns the
// number of UTF-16 units converted.
CF_EXPORT CFIndex CFStringGetBytes(CFStringRef theString, CFRange range, CFStringEncoding encoding,
                                   UInt8 lossByte, Boolean isExternalRepresentation,
                                   UInt8* _Nullable buffer, CFIndex maxBufLen,
                                   CFIndex* _Nullable usedBufLen);

typedef CF_OPTIONS(CFOptionFlags, CFStringCompareFlags) {
    kCFCompareCaseInsensitive = 1,
    kCFCompareBackwards = 4,
    kCFCompareAnchored = 8,
    kCFCompareNonliteral = 16,
    kCFCompareLocalized = 32,
    kCFCompareNumerically = 64,
    kCFCompareDiacriticInsensitive = 128,
    kCFCompareWidthInsensitive = 256,
    kCFCompareForcedOrdering = 512,
};

// A mutable copy; maxLength 0 means no limit.
CF_EXPORT CFMutableStringRef CFStringCreateMutableCopy(CFAllocatorRef _Nullable alloc,
                                                       CFIndex maxLength, CFStringRef theString);

// Copies the UTF-16 code units of a range into the buffer.
CF_EXPORT void CFStringGetCharacters(CFStringRef theString, CFRange range, UniChar* buffer);

// How the strings order under the options; with kCFCompareNonliteral,
// canonically equivalent strings compare kCFCompareEqualTo.
CF_EXPORT CFComparisonResult CFStringCompare(CFStringRef theString1, CFStringRef theString2,
                                             CFStringCompareFlags compareOptions);

// The range of the first match, or {kCFNotFound, 0}. An empty stringToFind is
// never found.
CF_EXPORT CFRange CFStringFind(CFStringRef theString, CFStringRef stringToFind,
                               CFStringCompareFlags compareOptions);

// The range of the composed character sequence that holds the code unit at
// theIndex.
CF_EXPORT CFRange CFStringGetRangeOfComposedCharactersAtIndex(CFStringRef theString,
                                                              CFIndex theIndex);

// Lower-cases in place; a NULL locale gives the canonical, locale-independent
// mapping.
CF_EXPORT void CFStringLowercase(CFMutableStringRef theString, CFLocaleRef _Nullable locale);

CF_ASSUME_NONNULL_END
CF_EXTERN_C_END
