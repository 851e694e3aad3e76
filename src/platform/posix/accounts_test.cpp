#include "platform/accounts.h"

#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include "base/utf.h"
#include "platform/errors.h"
#include "testing/temp_registry.h"

namespace {

// The binary form of a SID text "S-1-a-s1-s2...".
std::vector<uint8_t> Sid(uint64_t authority, std::vector<uint32_t> subs) {
    std::vector<uint8_t> b = {1, static_cast<uint8_t>(subs.size())};
    for (int shift = 40; shift >= 0; shift -= 8) b.push_back(static_cast<uint8_t>(authority >> shift));
    for (uint32_t s : subs)
        for (int i = 0; i < 4; ++i) b.push_back(static_cast<uint8_t>(s >> (8 * i)));
    return b;
}

struct TLookup {
    bool Ok;
    std::string Name, Domain;
};

TLookup Lookup(const std::vector<uint8_t>& sid) {
    std::u16string name, domain;
    uint32_t use = 0;
    platform::SetLastError(0);
    const bool ok = platform::LookupAccountSid(sid.data(), sid.size(), name, domain, use);
    return {ok, util::Utf16ToUtf8(name), util::Utf16ToUtf8(domain)};
}

TEST(Accounts, TextFormOfSids) {
    const std::pair<std::vector<uint8_t>, std::u16string> cases[] = {
        {Sid(5, {21, 1111, 2222, 3333, 1001}), u"S-1-5-21-1111-2222-3333-1001"},
        {Sid(0x123456789ABCull, {7}), u"S-1-0x123456789ABC-7"},  // an authority beyond 32 bits in hex
    };
    for (const auto& [sid, expected] : cases) {
        std::u16string text;
        ASSERT_TRUE(platform::ConvertSidToStringSid(sid.data(), sid.size(), text));
        EXPECT_EQ(text, expected);
    }
}

TEST(Accounts, InvalidSidsAreRefusedWithinTheirBytes) {
    auto sid = Sid(5, {32, 544});
    EXPECT_EQ(platform::GetLengthSid(sid.data(), sid.size()), 16u);
    // Shorter than its count says, a wrong revision, too many sub-authorities.
    EXPECT_EQ(platform::GetLengthSid(sid.data(), sid.size() - 1), 0u);
    EXPECT_EQ(platform::GetLastError(), platform::kErrInvalidSid);
    sid[0] = 2;
    EXPECT_FALSE(platform::IsValidSid(sid.data(), sid.size()));
    std::vector<uint8_t> many(200, 0);
    many[0] = 1;
    many[1] = 16;
    EXPECT_FALSE(platform::IsValidSid(many.data(), many.size()));
    std::u16string name, domain;
    uint32_t use;
    EXPECT_FALSE(platform::LookupAccountSid(sid.data(), sid.size(), name, domain, use));
    EXPECT_EQ(platform::GetLastError(), platform::kErrInvalidSid);
}

TEST(Accounts, LookupAnswersAsWindowsDoes) {
    ngitest::CTempRegistry registry(
        "[HKEY_LOCAL_MACHINE\\SOFTWARE\\NorvA\\Accounts]\n"
        "\"S-1-5-21-1-2-3-1001\"=\"GUEST-PC\\\\alice\"\n"
        "\"S-1-5-21-1-2-3-1002\"=\"bob\"\n");
    struct Case {
        std::vector<uint8_t> Sid;
        TLookup Expected;
    } cases[] = {
        {Sid(5, {18}), {true, "SYSTEM", "NT AUTHORITY"}},
        {Sid(5, {32, 544}), {true, "Administrators", "BUILTIN"}},
        {Sid(1, {0}), {true, "Everyone", ""}},
        {Sid(5, {21, 1, 2, 3, 1001}), {true, "alice", "GUEST-PC"}},
        {Sid(5, {21, 1, 2, 3, 1002}), {true, "bob", ""}},
        {Sid(5, {21, 1, 2, 3, 1003}), {false, "", ""}},
        {Sid(22, {2, 0}), {true, "root", "Unix Group"}},
    };
    for (const Case& c : cases) {
        const TLookup got = Lookup(c.Sid);
        EXPECT_EQ(got.Ok, c.Expected.Ok);
        if (got.Ok) {
            EXPECT_EQ(got.Name, c.Expected.Name);
            EXPECT_EQ(got.Domain, c.Expected.Domain);
        } else {
            EXPECT_EQ(platform::GetLastError(), platform::kErrNoneMapped);
        }
    }
    // The account running the test, by its Unix user SID.
    const passwd* self = getpwuid(getuid());
    ASSERT_NE(self, nullptr);
    const TLookup me = Lookup(Sid(22, {1, static_cast<uint32_t>(getuid())}));
    EXPECT_TRUE(me.Ok);
    EXPECT_EQ(me.Name, self->pw_name);
    EXPECT_EQ(me.Domain, "Unix User");
    // A uid no one has.
    EXPECT_FALSE(Lookup(Sid(22, {1, 0x7FFFFFF0u})).Ok);
}

}  // namespace
