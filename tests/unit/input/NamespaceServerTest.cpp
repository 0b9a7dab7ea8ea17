#include "input/NamespaceServer.h"

#include <gtest/gtest.h>

#include "unit/input/OutputTestSupport.h"

namespace morvax {
namespace {

using outputtest::LogLines;

TEST(NamespaceServerTest, ServerPartOfANamespace) {
    LogLines log;
    EXPECT_EQ(serverFromNamespace("\\\\host2\\root\\cimv2"), "host2");
    EXPECT_EQ(serverFromNamespace("\\\\Host2.Example.COM\\root"), "Host2.Example.COM");
    EXPECT_EQ(serverFromNamespace("\\\\10.1.2.3\\root\\cimv2"), "10.1.2.3");
    // The local machine in its several spellings.
    EXPECT_EQ(serverFromNamespace("\\\\.\\root\\cimv2"), "");
    EXPECT_EQ(serverFromNamespace("\\\\LOCALHOST\\root\\cimv2"), "");
    EXPECT_EQ(serverFromNamespace("\\\\127.0.0.1\\root\\cimv2"), "");
    EXPECT_EQ(serverFromNamespace("\\\\::1\\root\\cimv2"), "");
    EXPECT_EQ(serverFromNamespace("\\\\\\root\\cimv2"), "");
    // Relative paths and anything without the two backslashes.
    EXPECT_EQ(serverFromNamespace("root\\cimv2"), "");
    EXPECT_EQ(serverFromNamespace("\\root\\cimv2"), "");
    EXPECT_EQ(serverFromNamespace(""), "");
    EXPECT_TRUE(log.of("WMI").empty());
}

TEST(NamespaceServerTest, NamespaceWithoutPathIsLoggedAndTakenAsServer) {
    LogLines log;
    EXPECT_EQ(serverFromNamespace("\\\\host2"), "host2");
    EXPECT_EQ(serverFromNamespace("\\\\"), "");
    EXPECT_EQ(serverFromNamespace("\\\\localhost"), "");
    EXPECT_EQ(log.of("WMI"), (std::vector<std::string>{
                                 "WMI ERROR Invalid namespace (\"\\\\host2\") given.",
                                 "WMI ERROR Invalid namespace (\"\\\\\") given.",
                                 "WMI ERROR Invalid namespace (\"\\\\localhost\") given.",
                             }));
}

TEST(NamespaceServerTest, LocalHostNames) {
    EXPECT_TRUE(isLocalHostName("localhost"));
    EXPECT_TRUE(isLocalHostName("LocalHost"));
    EXPECT_TRUE(isLocalHostName("127.0.0.1"));
    EXPECT_TRUE(isLocalHostName("::1"));
    EXPECT_TRUE(isLocalHostName("0:0:0:0:0:0:0:1"));
    EXPECT_FALSE(isLocalHostName("127.0.0.2"));
    EXPECT_FALSE(isLocalHostName("localhost.example.com"));
    EXPECT_FALSE(isLocalHostName("::2"));
    EXPECT_FALSE(isLocalHostName("."));
    EXPECT_FALSE(isLocalHostName(""));
}

}  // namespace
}  // namespace morvax
