// Configuration from file and flags, the screenshot's scaling, base64.

#include <gtest/gtest.h>

#include <png.h>

#include <cstring>
#include <fstream>

#include "mcp/Base64.h"
#include "mcp/Config.h"
#include "mcp/PngScale.h"
#include "tests/mcp/unit/McpTestSupport.h"

namespace velmora::mcp::testing {
namespace {

ConfigDefaults defaults() {
    return {"/opt/velmora-agent", "lease-default", "/var/log/audit.jsonl"};
}

TEST(McpConfig, DefaultsRefuseEveryApplicationAndAllowScreenshots) {
    Config config = parseArguments({}, defaults());
    EXPECT_EQ(config.agentPath, "/opt/velmora-agent");
    EXPECT_EQ(config.seatLease, "lease-default");
    EXPECT_EQ(config.auditLogPath, "/var/log/audit.jsonl");
    EXPECT_TRUE(config.approvedApps.empty());
    EXPECT_TRUE(config.deniedApps.empty());
    EXPECT_TRUE(config.allowScreenshots);
    EXPECT_FALSE(config.trainingCorpus);
    EXPECT_FALSE(config.screenshotDir);
    EXPECT_EQ(config.callTimeoutSeconds, 60);
    EXPECT_EQ(config.maxElements, 50);
}

TEST(McpConfig, TheFileSetsEveryKeyAndFlagsWinOverIt) {
    TempDir dir;
    std::ofstream(dir.file("c.json")) << R"({
        "agent": "/usr/bin/velmora-agent", "seatLease": "lease-file",
        "approvedApps": ["galculator"], "deniedApps": ["xterm"],
        "consent": {"allowScreenshots": false, "trainingCorpus": true},
        "screenshotDir": "/tmp/shots", "auditLog": "/tmp/a.jsonl",
        "callTimeoutSeconds": 7.5, "maxElements": 20})";
    Config fromFile = parseArguments({"--config", dir.file("c.json")}, defaults());
    EXPECT_EQ(fromFile.agentPath, "/usr/bin/velmora-agent");
    EXPECT_EQ(fromFile.seatLease, "lease-file");
    EXPECT_EQ(fromFile.approvedApps, std::vector<std::string>{"galculator"});
    EXPECT_EQ(fromFile.deniedApps, std::vector<std::string>{"xterm"});
    EXPECT_FALSE(fromFile.allowScreenshots);
    EXPECT_TRUE(fromFile.trainingCorpus);
    EXPECT_EQ(fromFile.screenshotDir, "/tmp/shots");
    EXPECT_EQ(fromFile.auditLogPath, "/tmp/a.jsonl");
    EXPECT_EQ(fromFile.callTimeoutSeconds, 7.5);
    EXPECT_EQ(fromFile.maxElements, 20);

    // Flags win wherever --config stands; list flags add to the file's lists.
    Config flags =
        parseArguments({"--timeout", "3", "--approve", " mousepad ,, gedit", "--config",
                        dir.file("c.json"), "--deny", "calc", "--allow-screenshots", "--seat-lease",
                        "lease-flag", "--max-elements", "5", "--audit-log", "/tmp/b.jsonl",
                        "--agent", "./agent", "--screenshot-dir", "/tmp/other"},
                       defaults());
    EXPECT_EQ(flags.callTimeoutSeconds, 3);
    EXPECT_EQ(flags.approvedApps, (std::vector<std::string>{"galculator", "mousepad", "gedit"}));
    EXPECT_EQ(flags.deniedApps, (std::vector<std::string>{"xterm", "calc"}));
    EXPECT_TRUE(flags.allowScreenshots);
    EXPECT_EQ(flags.seatLease, "lease-flag");
    EXPECT_EQ(flags.maxElements, 5);
    EXPECT_EQ(flags.auditLogPath, "/tmp/b.jsonl");
    EXPECT_EQ(flags.agentPath, "./agent");
    EXPECT_EQ(flags.screenshotDir, "/tmp/other");
    EXPECT_FALSE(parseArguments({"--no-screenshots"}, defaults()).allowScreenshots);
}

TEST(McpConfig, MistakesAreErrorsThatNameThePlace) {
    TempDir dir;
    struct Bad {
        std::string file;
        std::string words;
    };
    const Bad files[] = {
        {R"({"approvedApp": ["x"]})", "unknown key \"approvedApp\""},
        {R"({"approvedApps": "galculator"})", "approvedApps: expected a list of strings"},
        {R"({"approvedApps": [1]})", "approvedApps[0]: expected a string"},
        {R"({"consent": {"allowScreenshot": false}})", "unknown key \"allowScreenshot\""},
        {R"({"consent": {"allowScreenshots": "no"}})",
         "consent.allowScreenshots: expected true or false"},
        {R"({"callTimeoutSeconds": 0})", "callTimeoutSeconds: expected seconds above 0"},
        {R"({"callTimeoutSeconds": "5"})", "callTimeoutSeconds: expected seconds"},
        {R"({"maxElements": 1.5})", "maxElements: expected a whole number"},
        {R"({"maxElements": -1})", "maxElements: expected a whole number from 0"},
        {R"([])", "expected a JSON object"},
        {R"({"agent": )", "invalid JSON"},
    };
    for (const auto& bad : files) {
        std::ofstream(dir.file("bad.json"), std::ios::trunc) << bad.file;
        try {
            parseArguments({"--config", dir.file("bad.json")}, defaults());
            ADD_FAILURE() << bad.file << " was accepted";
        } catch (const ConfigError& error) {
            EXPECT_NE(std::string(error.what()).find(bad.words), std::string::npos) << error.what();
            EXPECT_NE(std::string(error.what()).find("bad.json"), std::string::npos)
                << error.what();
        }
    }
    const std::vector<std::vector<std::string>> flags = {
        {"--config"},
        {"--config", dir.file("missing.json")},
        {"--timeout", "soon"},
        {"--timeout", "-1"},
        {"--max-elements", "x"},
        {"--approve"},
        {"--frobnicate"},
        {"--agent", ""},
        {"--audit-log", ""},
    };
    for (const auto& arguments : flags) {
        EXPECT_THROW(parseArguments(arguments, defaults()), ConfigError) << arguments[0];
    }
}

TEST(McpConfig, TheUsageNamesEveryFlagAndTheVerifyCommand) {
    std::string usage = usageText();
    for (const char* flag :
         {"--config", "--agent", "--seat-lease", "--approve", "--deny", "--allow-screenshots",
          "--no-screenshots", "--screenshot-dir", "--audit-log", "--timeout", "--max-elements",
          "--help", "--version", "verify-log FILE"}) {
        EXPECT_NE(usage.find(flag), std::string::npos) << flag;
    }
}

TEST(ScreenshotScaling, FitsTheBoxKeepingTheAspectAndNeverEnlarges) {
    FitSize half = fitWithin(1280, 800, 640, 640);
    EXPECT_EQ(half.width, 640);
    EXPECT_EQ(half.height, 400);
    EXPECT_DOUBLE_EQ(half.scale, 0.5);
    FitSize tall = fitWithin(1280, 800, 2000, 400);
    EXPECT_EQ(tall.width, 640);
    EXPECT_EQ(tall.height, 400);
    FitSize same = fitWithin(300, 200, 1024, 1024);
    EXPECT_EQ(same.width, 300);
    EXPECT_EQ(same.height, 200);
    EXPECT_DOUBLE_EQ(same.scale, 1);
    FitSize odd = fitWithin(1000, 3, 100, 100);
    EXPECT_EQ(odd.width, 100);
    EXPECT_EQ(odd.height, 1);  // never zero
}

TEST(ScreenshotScaling, EachPixelIsTheAverageOfItsBox) {
    // 4x2 pixels: a white and a black 2x2 block become one white and one black pixel;
    // a checkered block becomes grey.
    std::vector<uint8_t> rgb = {
        255, 255, 255, 255, 255, 255, 0,   0,   0,   255, 255, 255,
        255, 255, 255, 255, 255, 255, 255, 255, 255, 0,   0,   0,
    };
    std::vector<uint8_t> small = shrinkRgb(rgb, 4, 2, 2, 1);
    EXPECT_EQ(small, (std::vector<uint8_t>{255, 255, 255, 128, 128, 128}));
}

TEST(ScreenshotScaling, AFileIsReadScaledAndEncodedAgain) {
    TempDir dir;
    std::vector<uint8_t> rgb(64 * 32 * 3);
    for (size_t i = 0; i < rgb.size(); i += 3) {
        rgb[i + 2] = 200;  // blue
    }
    auto png = encodeRgbPng(rgb, 64, 32);
    std::ofstream(dir.file("s.png"), std::ios::binary)
        .write(reinterpret_cast<const char*>(png.data()), png.size());
    ScaledPng scaled = scalePngToFit(dir.file("s.png"), 16, 16);
    EXPECT_EQ(scaled.sourceWidth, 64);
    EXPECT_EQ(scaled.sourceHeight, 32);
    EXPECT_EQ(scaled.width, 16);
    EXPECT_EQ(scaled.height, 8);
    EXPECT_DOUBLE_EQ(scaled.scale, 0.25);

    png_image image;
    std::memset(&image, 0, sizeof image);
    image.version = PNG_IMAGE_VERSION;
    ASSERT_TRUE(png_image_begin_read_from_memory(&image, scaled.png.data(), scaled.png.size()));
    image.format = PNG_FORMAT_RGB;
    std::vector<uint8_t> back(PNG_IMAGE_SIZE(image));
    ASSERT_TRUE(png_image_finish_read(&image, nullptr, back.data(), 0, nullptr));
    EXPECT_EQ(image.width, 16u);
    EXPECT_EQ(image.height, 8u);
    EXPECT_EQ(back[0], 0);
    EXPECT_EQ(back[2], 200);

    std::ofstream(dir.file("bad.png")) << "not a png";
    try {
        scalePngToFit(dir.file("bad.png"), 16, 16);
        ADD_FAILURE() << "a text file was read as PNG";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(std::string(error.what()).rfind(dir.file("bad.png") + ": ", 0), 0u);
    }
}

TEST(Base64, EncodesTheStandardsVectors) {
    auto bytes = [](const std::string& text) {
        return std::vector<uint8_t>(text.begin(), text.end());
    };
    EXPECT_EQ(base64(bytes("")), "");
    EXPECT_EQ(base64(bytes("f")), "Zg==");
    EXPECT_EQ(base64(bytes("fo")), "Zm8=");
    EXPECT_EQ(base64(bytes("foo")), "Zm9v");
    EXPECT_EQ(base64(bytes("foob")), "Zm9vYg==");
    EXPECT_EQ(base64(bytes("fooba")), "Zm9vYmE=");
    EXPECT_EQ(base64(bytes("foobar")), "Zm9vYmFy");
    EXPECT_EQ(base64({0xff, 0xfe, 0x00}), "//4A");
}

}  // namespace
}  // namespace velmora::mcp::testing
