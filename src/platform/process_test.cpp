// The environment calls, the same on both systems.

#include <gtest/gtest.h>

#include <algorithm>

#include "platform/errors.h"
#include "platform/process.h"

namespace {

TEST(Process, Environment) {
    using namespace platform;
    std::u16string value;
    ASSERT_TRUE(SetEnvVar(u"NGI_TEST_VARIABLE", u"\u00e9t\u00e9"));
    ASSERT_TRUE(GetEnvVar(u"NGI_TEST_VARIABLE", value));
    EXPECT_EQ(value, u"\u00e9t\u00e9");
    const auto all = GetEnvironmentStrings();
    EXPECT_NE(std::find(all.begin(), all.end(), u"NGI_TEST_VARIABLE=\u00e9t\u00e9"), all.end());
    const std::u16string big(5000, u'v');  // more than a first buffer holds
    ASSERT_TRUE(SetEnvVar(u"NGI_TEST_VARIABLE", big));
    ASSERT_TRUE(GetEnvVar(u"NGI_TEST_VARIABLE", value));
    EXPECT_EQ(value, big);
    ASSERT_TRUE(SetEnvVar(u"NGI_TEST_VARIABLE", u""));
    EXPECT_TRUE(GetEnvVar(u"NGI_TEST_VARIABLE", value));
    EXPECT_EQ(value, u"");
    ASSERT_TRUE(UnsetEnvVar(u"NGI_TEST_VARIABLE"));
    EXPECT_FALSE(GetEnvVar(u"NGI_TEST_VARIABLE", value));
    EXPECT_EQ(GetLastError(), kErrEnvVarNotFound);
    for (const char16_t* name : {u"", u"A=B"}) {
        EXPECT_FALSE(SetEnvVar(name, u"x"));
        EXPECT_EQ(GetLastError(), kErrInvalidParameter);
    }
}

}  // namespace
