// <Availability.h>, as far as the declarations here use it: the older
// macOS-only annotations, with Apple's meaning (see <os/availability.h>).
#pragma once

#define __OSX_AVAILABLE(_vers) __attribute__((availability(macosx, introduced = _vers)))
#define __OSX_DEPRECATED(_start, _dep, _msg) \
    __attribute__((availability(macosx, introduced = _start, deprecated = _dep, message = _msg)))
#define __OSX_UNAVAILABLE __attribute__((availability(macosx, unavailable)))
