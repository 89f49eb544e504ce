#include <gtest/gtest.h>

#include "core/model/Json.h"

namespace velmora {
namespace {

TEST(ManifestTest, DefaultManifestAnnouncesTheBundleAndTheFixedFields) {
    auto manifest = DriverInstanceManifest::makeDefault("org.example.agent");
    EXPECT_EQ(manifest.bundleIdentifier, "org.example.agent");
    EXPECT_EQ(manifest.kind, "native_gui");
    EXPECT_EQ(manifest.surface, "desktop_app");
    EXPECT_EQ(manifest.capabilities, (std::vector<std::string>{"read", "write", "destructive"}));
    EXPECT_TRUE(manifest.requiresLease);
    EXPECT_EQ(manifest.endpoint, "loopback://" + shortHostName() + "/exec");
    EXPECT_EQ(manifest.protocolVersion, "velmora.driver_broker.v1");
#ifdef __APPLE__
    EXPECT_EQ(manifest.platform, "darwin");
#else
    EXPECT_EQ(manifest.platform, "linux");
#endif
    Json json = manifest;
    EXPECT_EQ(json["bundleIdentifier"], "org.example.agent");
    EXPECT_EQ(json["capabilities"], Json::parse(R"(["read","write","destructive"])"));
    EXPECT_EQ(json.size(), 8u);
}

TEST(ManifestTest, ShortHostNameIsOneLabel) {
    std::string host = shortHostName();
    EXPECT_FALSE(host.empty());
    EXPECT_EQ(host.find('.'), std::string::npos);
}

TEST(ManifestTest, ManifestRoundTripsAndRequiresEveryKey) {
    auto manifest = DriverInstanceManifest::makeDefault("b");
    Json json = manifest;
    EXPECT_EQ(decodeManifest(json), manifest);
    json.erase("platform");
    EXPECT_THROW(decodeManifest(json), DecodeError);
    Json wrongType = manifest;
    wrongType["requiresLease"] = "yes";
    EXPECT_THROW(decodeManifest(wrongType), DecodeError);
}

TEST(ManifestTest, SelfCheckRoundTripsAndRequiresEveryKey) {
    SelfCheck check{kDriverBrokerProtocol, true, false, true};
    Json json = check;
    EXPECT_EQ(json, Json::parse(R"({"protocolVersion":"velmora.driver_broker.v1",
        "accessibilityTrusted":true,"screenRecordingGranted":false,"healthy":true})"));
    EXPECT_EQ(decodeSelfCheck(json), check);
    json.erase("healthy");
    EXPECT_THROW(decodeSelfCheck(json), DecodeError);
}

}  // namespace
}  // namespace velmora
