#pragma once

#include "core/native/Platform.h"

// The operating-system permissions the agent depends on, as the self-check
// reports them. No state; every probe asks the platform afresh.

namespace velmora::native::Permissions {

// Whether the process may use the accessibility interface (AXIsProcessTrusted).
bool accessibilityTrusted(Platform& platform);

// Whether screen recording is granted, checked without prompting.
bool screenRecordingGranted(Platform& platform);

// Asks for screen recording, which may show the system's prompt; whether granted.
bool requestScreenRecording(Platform& platform);

}  // namespace velmora::native::Permissions
