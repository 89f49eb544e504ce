#include <gtest/gtest.h>

#include "core/driver/UIDriver.h"

namespace velmora {
namespace {

ElementSelector selector(std::optional<std::string> role, std::optional<std::string> title,
                         std::optional<std::string> identifier,
                         std::optional<std::string> valueContains, std::optional<int64_t> index) {
    ElementSelector result;
    result.role = std::move(role);
    result.title = std::move(title);
    result.identifier = std::move(identifier);
    result.valueContains = std::move(valueContains);
    result.index = index;
    return result;
}

constexpr std::nullopt_t none = std::nullopt;

TEST(DescribeTest, EmptySelectorIsAny) {
    EXPECT_EQ(describe(ElementSelector{}), "<any>");
}

TEST(DescribeTest, IndexZeroAlone) {
    EXPECT_EQ(describe(selector(none, none, none, none, 0)), "index=0");
    EXPECT_EQ(describe(selector(none, none, none, none, 2)), "index=2");
}

TEST(DescribeTest, RoleIdentifierAndIndexKeepTheirOrder) {
    EXPECT_EQ(describe(selector("R", none, "I", none, 7)), "role=R,id=I,index=7");
}

TEST(DescribeTest, EveryFieldInFixedOrder) {
    EXPECT_EQ(describe(selector("AXButton", "Save", "save-btn", "ok", 1)),
              "role=AXButton,title~=Save,id=save-btn,value~=ok,index=1");
}

TEST(DescribeTest, RoleAndTitle) {
    EXPECT_EQ(describe(selector("AXButton", "Save", none, none, none)),
              "role=AXButton,title~=Save");
}

TEST(DescribeTest, ValueOnly) {
    EXPECT_EQ(describe(selector(none, none, none, "done", none)), "value~=done");
}

TEST(DescribeTest, ValuesAreInsertedRaw) {
    EXPECT_EQ(describe(selector("a,b", "x=y", "", none, none)), "role=a,b,title~=x=y,id=");
}

TEST(DescribeTest, EmptyStringsAreStillPresent) {
    EXPECT_EQ(describe(selector("", "", "", "", none)), "role=,title~=,id=,value~=");
}

TEST(DescribeTest, NegativeAndLargeIndexInDecimal) {
    EXPECT_EQ(describe(selector(none, none, none, none, -1)), "index=-1");
    EXPECT_EQ(describe(selector(none, none, none, none, INT64_MAX)), "index=9223372036854775807");
}

}  // namespace
}  // namespace velmora
