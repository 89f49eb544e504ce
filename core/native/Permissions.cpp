#include "core/native/Permissions.h"

namespace velmora::native::Permissions {

bool accessibilityTrusted(Platform& platform) {
    return platform.isProcessTrusted();
}

bool screenRecordingGranted(Platform& platform) {
    return platform.preflightScreenCaptureAccess();
}

bool requestScreenRecording(Platform& platform) {
    return platform.requestScreenCaptureAccess();
}

}  // namespace velmora::native::Permissions
