// The AppKit umbrella header, as far as the macOS provider uses it.
#pragma once

#include <CoreGraphics/CoreGraphics.h>
#import <Foundation/Foundation.h>

#import <AppKit/NSBitmapImageRep.h>
#import <AppKit/NSImageRep.h>
#import <AppKit/NSRunningApplication.h>
#import <AppKit/NSWorkspace.h>
