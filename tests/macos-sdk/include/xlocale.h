// <xlocale.h>: Apple's C library functions that take an explicit locale, as far
// as libc++ uses them on Apple platforms (its <__bsd_locale_defaults.h> maps its
// locale calls onto these), and the ctype class bits of Apple's <runetype.h>
// that libc++'s ctype<char> masks are made of. Apple's C library is not here:
// glibc's headers stand in for the rest of it, and already declare newlocale,
// uselocale, freelocale, locale_t and the strto*_l family.
#pragma once

#include <ctype.h>
#include <locale.h>
#include <stdarg.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <wchar.h>

// Apple's are functions; glibc's <ctype.h> also defines these as macros that
// reach into its own locale structure.
#undef isalnum_l
#undef isalpha_l
#undef iscntrl_l
#undef isdigit_l
#undef islower_l
#undef isgraph_l
#undef isprint_l
#undef ispunct_l
#undef isspace_l
#undef isupper_l
#undef isxdigit_l
#undef isblank_l

#define _CTYPE_A 0x00000100L
#define _CTYPE_C 0x00000200L
#define _CTYPE_D 0x00000400L
#define _CTYPE_G 0x00000800L
#define _CTYPE_L 0x00001000L
#define _CTYPE_P 0x00002000L
#define _CTYPE_S 0x00004000L
#define _CTYPE_U 0x00008000L
#define _CTYPE_X 0x00010000L
#define _CTYPE_B 0x00020000L
#define _CTYPE_R 0x00040000L

#if defined(__cplusplus)
extern "C" {
#endif

int ___mb_cur_max_l(locale_t);
#define MB_CUR_MAX_L(x) (___mb_cur_max_l(x))

struct lconv* localeconv_l(locale_t);

wint_t btowc_l(int, locale_t);
int wctob_l(wint_t, locale_t);
size_t mbrlen_l(const char*, size_t, mbstate_t*, locale_t);
size_t mbrtowc_l(wchar_t*, const char*, size_t, mbstate_t*, locale_t);
int mbtowc_l(wchar_t*, const char*, size_t, locale_t);
size_t mbsrtowcs_l(wchar_t*, const char**, size_t, mbstate_t*, locale_t);
size_t mbsnrtowcs_l(wchar_t*, const char**, size_t, size_t, mbstate_t*, locale_t);
size_t wcrtomb_l(char*, wchar_t, mbstate_t*, locale_t);
size_t wcsnrtombs_l(char*, const wchar_t**, size_t, size_t, mbstate_t*, locale_t);

int snprintf_l(char*, size_t, locale_t, const char*, ...) __attribute__((format(printf, 4, 5)));
int asprintf_l(char**, locale_t, const char*, ...) __attribute__((format(printf, 3, 4)));
int sscanf_l(const char*, locale_t, const char*, ...) __attribute__((format(scanf, 3, 4)));

#if defined(__cplusplus)
}
#endif
