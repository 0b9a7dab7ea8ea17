#include "net/HostNames.h"

#include <gtest/gtest.h>

#include <cstring>
#include <map>

namespace morvax {
namespace {

class FakeNames : public ComputerNameSource {
  public:
    bool name(ComputerNameKind kind, Str& out) override {
        auto it = names.find(kind);
        if (it == names.end()) {
            return false;
        }
        out = it->second;
        return true;
    }
    std::map<ComputerNameKind, Str> names;
};

std::vector<std::string> strings(const std::vector<Str>& v) {
    std::vector<std::string> out;
    for (const Str& s : v) {
        out.push_back(s.toStdString());
    }
    return out;
}

TEST(HostNamesTest, LocalNamesAreLowerSortedAndUnique) {
    FakeNames none;
    std::vector<Str> names{Str("stale")};
    HostNames::getLocalNames(names, none);
    EXPECT_EQ(strings(names), (std::vector<std::string>{"127.0.0.1", "::1", "localhost"}));

    FakeNames some;
    some.names[COMPUTER_NAME_NETBIOS] = "WEB01";
    some.names[COMPUTER_NAME_DNS_HOSTNAME] = "Web01";
    some.names[COMPUTER_NAME_DNS_FULLY_QUALIFIED] = "Web01.Corp.Example";
    some.names[COMPUTER_NAME_DNS_DOMAIN] = "corp.example";
    HostNames::getLocalNames(names, some);
    EXPECT_EQ(strings(names),
              (std::vector<std::string>{"127.0.0.1", "::1", "corp.example", "localhost", "web01",
                                        "web01.corp.example"}));
}

TEST(HostNamesTest, PlatformNamesIncludeTheFixedOnes) {
    std::vector<Str> names;
    HostNames::getLocalNames(names);
    ASSERT_GE(names.size(), 3u);
    EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
    for (const Str& n : names) {
        EXPECT_EQ(n, n.toLowerCopy());
    }
    EXPECT_NE(std::find(names.begin(), names.end(), Str("localhost")), names.end());
}

TEST(HostNamesTest, IPv6AddressSyntax) {
    for (const char* good :
         {"::1", "::", "1::", "::ffff:1.2.3.4", "1:2:3:4:5:6:7:8", "fe80::1%eth0",
          "1:2:3:4:5:6:1.2.3.4", "1::2:3.4.5.6", "0001:2:3:4:5:6:7:8", "fe80::1%3",
          "fe80::1%eth0.5", "1:2:3:4:5:6:7::"}) {
        EXPECT_TRUE(HostNames::isIPv6Address(good)) << good;
    }
    for (const char* bad : {":1", "1::2::3", "1:2:3:4:5:6:7", "12345::", "", "1:2:3:4:5:6:7:8:9",
                            "1.2.3.4", "::1.2.3", "::256.1.1.1", "fe80::1%", "fe80::1%.x",
                            "fe80::1%a.b", "g::1", "1:2:3:4:5:6:7:8::", "1:2:3:4:5:1.2.3.4"}) {
        EXPECT_FALSE(HostNames::isIPv6Address(bad)) << bad;
    }
}

TEST(HostNamesTest, IPv6LoopbackForms) {
    auto loopback = [](const char* text) {
        return HostNames::isIPv6Loopback(text, std::strlen(text));
    };
    EXPECT_TRUE(loopback("::1"));
    EXPECT_TRUE(loopback("0:0:0:0:0:0:0:1"));
    EXPECT_TRUE(loopback("::1%lo"));
    EXPECT_FALSE(loopback("::2"));
    EXPECT_FALSE(loopback("1"));
    EXPECT_FALSE(loopback(":1"));
    // The literal form is looked for at its fixed place only.
    EXPECT_TRUE(loopback("0-0-0-0-0-0-0-001.ipv6-literal.net"));
    EXPECT_FALSE(loopback("--1.ipv6-literal.net"));
    EXPECT_FALSE(loopback("0-0-0-0-0-0-0-002.ipv6-literal.net"));
}

}  // namespace
}  // namespace morvax
