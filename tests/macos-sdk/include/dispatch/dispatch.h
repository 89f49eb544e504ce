// The libdispatch umbrella header, as far as the macOS provider uses it.
#pragma once

#include <dispatch/object.h>
#include <dispatch/semaphore.h>
#include <dispatch/time.h>
