// CFLocale.h, as far as the agent uses it.
#pragma once

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

typedef const struct CF_BRIDGED_TYPE(NSLocale) __CFLocale* CFLocaleRef;

CF_EXTERN_C_END
