#include "core/model/DriverError.h"

#include <gtest/gtest.h>

namespace velmora {
namespace {

TEST(DriverErrorTest, EachCaseHasItsFixedText) {
    EXPECT_EQ(DriverError::unsupportedProtocol("v0").description(), "unsupported protocol: v0");
    EXPECT_EQ(DriverError::consentDenied("com.a").description(), "consent denied for app: com.a");
    EXPECT_EQ(DriverError::appNotRunning("com.a").description(), "app not running: com.a");
    EXPECT_EQ(DriverError::elementNotFound("<any>").description(), "element not found: <any>");
    EXPECT_EQ(DriverError::screenshotFailed("nil image").description(),
              "screenshot failed: nil image");
    EXPECT_EQ(DriverError::osFailure("focus").description(), "os failure: focus");
    EXPECT_EQ(DriverError::missingLease().description(), "missing GUI-seat lease (RequiresLease)");
}

TEST(DriverErrorTest, NotFrontmostNamesBothOrNone) {
    EXPECT_EQ(DriverError::notFrontmost("com.a", "com.b").description(),
              "target not frontmost: expected com.a, got com.b");
    EXPECT_EQ(DriverError::notFrontmost("com.a", std::nullopt).description(),
              "target not frontmost: expected com.a, got none");
}

TEST(DriverErrorTest, EmptyPayloadEndsInTheSeparator) {
    EXPECT_EQ(DriverError::appNotRunning("").description(), "app not running: ");
    EXPECT_EQ(DriverError::osFailure("").description(), "os failure: ");
}

TEST(DriverErrorTest, WhatIsTheDescription) {
    auto error = DriverError::osFailure("x");
    EXPECT_STREQ(error.what(), "os failure: x");
}

TEST(DriverErrorTest, EqualityComparesCaseAndPayloads) {
    EXPECT_EQ(DriverError::osFailure("a"), DriverError::osFailure("a"));
    EXPECT_NE(DriverError::osFailure("a"), DriverError::osFailure("b"));
    EXPECT_NE(DriverError::osFailure("a"), DriverError::screenshotFailed("a"));
    EXPECT_NE(DriverError::notFrontmost("a", "b"), DriverError::notFrontmost("a", std::nullopt));
    EXPECT_EQ(DriverError::notFrontmost("a", std::nullopt),
              DriverError::notFrontmost("a", std::nullopt));
}

}  // namespace
}  // namespace velmora
