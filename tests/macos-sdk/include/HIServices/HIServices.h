// The HIServices umbrella header (inside ApplicationServices), as far as the
// macOS provider uses it: the accessibility interface.
#pragma once

#include <HIServices/AXError.h>
#include <HIServices/AXUIElement.h>
#include <HIServices/AXValue.h>
#include <HIServices/AXValueConstants.h>
