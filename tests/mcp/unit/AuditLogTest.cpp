// The audit log's chain: what it writes, how it goes on after a restart, and
// that verify-log finds an edited, removed or reordered line by number.

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "core/native/Sha256.h"
#include "mcp/AuditLog.h"
#include "tests/mcp/unit/McpTestSupport.h"

namespace velmora::mcp::testing {
namespace {

Clock fixedClock() {
    return Clock::fixed(std::chrono::system_clock::time_point(std::chrono::seconds(1'790'000'000)),
                        "r");
}

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    return lines;
}

std::string joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const auto& line : lines) {
        text += line + "\n";
    }
    return text;
}

std::string readAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

std::string sha(const std::string& text) {
    return native::sha256Hex(reinterpret_cast<const uint8_t*>(text.data()), text.size());
}

class AuditChain : public ::testing::Test {
  protected:
    void SetUp() override {
        AuditLog log(path, fixedClock());
        for (int i = 0; i < 5; ++i) {
            log.append({{"event", "request"}, {"n", i}});
        }
        lines = linesOf(readAll(path));
        ASSERT_EQ(lines.size(), 5u);
    }

    TempDir dir;
    std::string path = dir.file("state/velmora/audit.jsonl");  // folders are made
    std::vector<std::string> lines;
};

TEST_F(AuditChain, EachLineCarriesItsNumberTimeAndThePreviousLinesHash) {
    for (size_t i = 0; i < lines.size(); ++i) {
        Json record = Json::parse(lines[i]);
        EXPECT_EQ(record["seq"], i + 1);
        EXPECT_EQ(record["n"], i);
        EXPECT_EQ(record["event"], "request");
        EXPECT_EQ(record["ts"], "2026-09-21T14:13:20Z");
        EXPECT_EQ(record["prev"], i == 0 ? std::string(64, '0') : sha(lines[i - 1]));
    }
    LogCheck check = checkLog(joined(lines));
    EXPECT_TRUE(check.intact);
    EXPECT_EQ(check.lines, 5u);
    EXPECT_EQ(check.lastLineSha, sha(lines[4]));
}

TEST_F(AuditChain, ALaterServerContinuesTheChain) {
    AuditLog later(path, fixedClock());
    later.append({{"event", "outcome"}});
    auto now = linesOf(readAll(path));
    ASSERT_EQ(now.size(), 6u);
    EXPECT_EQ(Json::parse(now[5])["seq"], 6);
    EXPECT_EQ(Json::parse(now[5])["prev"], sha(lines[4]));
    std::string report;
    EXPECT_EQ(verifyLogCommand(path, report), 0);
    EXPECT_EQ(report,
              "verify-log: " + path + ": intact, 6 lines; SHA-256 of the last line " + sha(now[5]));
}

TEST_F(AuditChain, AnEditedLineBreaksTheNextOne) {
    auto edited = lines;
    Json record = Json::parse(edited[1]);
    record["n"] = 99;
    edited[1] = record.dump();
    LogCheck check = checkLog(joined(edited));
    EXPECT_FALSE(check.intact);
    EXPECT_EQ(check.brokenLine, 3u);
    EXPECT_NE(check.reason.find("not the SHA-256 of line 2"), std::string::npos) << check.reason;

    // Even a change of one blank.
    auto spaced = lines;
    spaced[3] += " ";
    EXPECT_EQ(checkLog(joined(spaced)).brokenLine, 5u);
}

TEST_F(AuditChain, ARemovedLineIsFoundWhereItWas) {
    auto removed = lines;
    removed.erase(removed.begin() + 2);
    LogCheck check = checkLog(joined(removed));
    EXPECT_FALSE(check.intact);
    EXPECT_EQ(check.brokenLine, 3u);

    auto first = lines;
    first.erase(first.begin());
    LogCheck headless = checkLog(joined(first));
    EXPECT_EQ(headless.brokenLine, 1u);
    EXPECT_NE(headless.reason.find("removed from the start"), std::string::npos);
}

TEST_F(AuditChain, ReorderedLinesAreFound) {
    auto swapped = lines;
    std::swap(swapped[1], swapped[2]);
    EXPECT_EQ(checkLog(joined(swapped)).brokenLine, 2u);
    auto moved = lines;
    std::rotate(moved.begin() + 1, moved.begin() + 4, moved.end());
    EXPECT_EQ(checkLog(joined(moved)).brokenLine, 2u);
}

TEST_F(AuditChain, ARenumberedLineIsFound) {
    // A forger who rewrites a line's number without its hash is found too.
    Json record = Json::parse(lines[0]);
    record["seq"] = 2;
    LogCheck check = checkLog(record.dump() + "\n");
    EXPECT_EQ(check.brokenLine, 1u);
    EXPECT_NE(check.reason.find("\"seq\" is not 1"), std::string::npos);
}

TEST_F(AuditChain, AnUnfinishedOrForeignLineIsFound) {
    std::string text = joined(lines);
    EXPECT_EQ(checkLog(text.substr(0, text.size() - 10)).brokenLine, 5u);
    EXPECT_NE(checkLog(text.substr(0, text.size() - 1)).reason.find("no newline"),
              std::string::npos);
    EXPECT_EQ(checkLog(text + "garbage\n").brokenLine, 6u);
    EXPECT_EQ(checkLog(text + "[1]\n").brokenLine, 6u);
    EXPECT_EQ(checkLog(text + "\n").brokenLine, 6u);
    EXPECT_TRUE(checkLog("").intact);
}

TEST_F(AuditChain, VerifyLogNamesTheFirstBrokenLineAndExitsOne) {
    auto swapped = lines;
    std::swap(swapped[3], swapped[4]);
    std::ofstream(path, std::ios::binary | std::ios::trunc) << joined(swapped);
    std::string report;
    EXPECT_EQ(verifyLogCommand(path, report), 1);
    EXPECT_EQ(report.rfind("verify-log: " + path + ": line 4 is broken: ", 0), 0u) << report;
    EXPECT_EQ(verifyLogCommand(dir.file("missing.jsonl"), report), 66);
    EXPECT_NE(report.find("No such file"), std::string::npos);
}

TEST_F(AuditChain, ALogEndingInAPartialLineRefusesFurtherAppends) {
    std::ofstream(path, std::ios::binary | std::ios::app) << "{\"seq\": 6, \"prev";
    AuditLog log(path, fixedClock());
    EXPECT_THROW(
        {
            try {
                log.append({{"event", "request"}});
            } catch (const AuditError& error) {
                EXPECT_NE(std::string(error.what()).find("unfinished"), std::string::npos);
                throw;
            }
        },
        AuditError);
}

TEST(AuditLogFailure, AnUnwritablePathIsAnErrorThatNamesIt) {
    TempDir dir;
    std::ofstream(dir.file("plain")) << "x";
    for (const std::string& path :
         {dir.file("plain") + "/audit.jsonl", dir.path().string(), std::string("/dev/full")}) {
        AuditLog log(path, fixedClock());
        try {
            log.append({{"event", "request"}});
            ADD_FAILURE() << path << " was written";
        } catch (const AuditError& error) {
            EXPECT_EQ(std::string(error.what()).rfind("audit log " + path + ": ", 0), 0u)
                << error.what();
        }
    }
}

}  // namespace
}  // namespace velmora::mcp::testing
