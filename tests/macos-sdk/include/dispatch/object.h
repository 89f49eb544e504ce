// <dispatch/object.h>, as far as the macOS provider uses it.
#pragma once

#include <os/object.h>

OS_OBJECT_DECL_CLASS(dispatch_object);

#define DISPATCH_DECL(name) OS_OBJECT_DECL_SUBCLASS(name, dispatch_object)
#define DISPATCH_RETURNS_RETAINED OS_OBJECT_RETURNS_RETAINED
