#include "core/native/Permissions.h"

#include <gtest/gtest.h>

#include "tests/support/ScriptedPlatform.h"

namespace velmora::native {
namespace {

TEST(PermissionsTest, AccessibilityTrustIsThePlatformsAnswer) {
    ScriptedPlatform platform;
    platform.setTrusted(true);
    EXPECT_TRUE(Permissions::accessibilityTrusted(platform));
    platform.setTrusted(false);
    EXPECT_FALSE(Permissions::accessibilityTrusted(platform));
}

TEST(PermissionsTest, ScreenRecordingIsCheckedWithoutPrompting) {
    ScriptedPlatform platform;
    platform.setScreenCaptureAccess(/*preflight=*/true, /*request=*/false);
    EXPECT_TRUE(Permissions::screenRecordingGranted(platform));
    platform.setScreenCaptureAccess(/*preflight=*/false, /*request=*/true);
    EXPECT_FALSE(Permissions::screenRecordingGranted(platform));
    EXPECT_EQ(platform.preflightCalls(), 2);
    EXPECT_EQ(platform.requestCalls(), 0);
}

TEST(PermissionsTest, RequestingScreenRecordingAsksTheSystem) {
    ScriptedPlatform platform;
    platform.setScreenCaptureAccess(/*preflight=*/false, /*request=*/true);
    EXPECT_TRUE(Permissions::requestScreenRecording(platform));
    platform.setScreenCaptureAccess(/*preflight=*/true, /*request=*/false);
    EXPECT_FALSE(Permissions::requestScreenRecording(platform));
    EXPECT_EQ(platform.requestCalls(), 2);
    EXPECT_EQ(platform.preflightCalls(), 0);
}

TEST(PermissionsTest, ProbesTouchNothingElse) {
    ScriptedPlatform platform;
    Permissions::accessibilityTrusted(platform);
    Permissions::screenRecordingGranted(platform);
    EXPECT_TRUE(platform.timeline().empty());
    EXPECT_TRUE(platform.readLog().empty());
    EXPECT_TRUE(platform.sleeps().empty());
}

}  // namespace
}  // namespace velmora::native
