// NSZone.h, as far as the macOS provider uses it.
#pragma once

typedef struct _NSZone NSZone;
