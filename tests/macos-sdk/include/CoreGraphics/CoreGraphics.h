// The CoreGraphics umbrella header, as far as the macOS provider uses it.
#pragma once

#include <CoreGraphics/CGBase.h>
#include <CoreGraphics/CGError.h>
#include <CoreGraphics/CGEvent.h>
#include <CoreGraphics/CGEventSource.h>
#include <CoreGraphics/CGEventTypes.h>
#include <CoreGraphics/CGGeometry.h>
#include <CoreGraphics/CGImage.h>
#include <CoreGraphics/CGRemoteOperation.h>
#include <CoreGraphics/CGWindow.h>
