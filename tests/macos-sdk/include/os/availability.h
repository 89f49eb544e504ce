// <os/availability.h>: availability annotations. On this Linux check they carry
// no meaning, so they expand to nothing; they stay in the declarations as
// documentation of when Apple introduced each API.
#pragma once

#define API_AVAILABLE(...)
#define API_DEPRECATED(...)
#define API_UNAVAILABLE(...)
