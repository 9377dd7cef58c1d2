#include "ServiceTier/WebAddress.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using WebAddress::Scheme;

TEST(WebAddress, SchemeIsHttpOrHttpsInAnyCaseAndNothingElse) {
    EXPECT_EQ(WebAddress::scheme("http://a/"), Scheme::Http);
    EXPECT_EQ(WebAddress::scheme("HtTp://a/"), Scheme::Http);
    EXPECT_EQ(WebAddress::scheme("https://a/"), Scheme::Https);
    EXPECT_EQ(WebAddress::scheme("HTTPS://a/"), Scheme::Https);
    for (const char *text : { "", "http", "http:", "http:/", "http:/a", " http://a", "a/b", "www.example.com",
             "file:///etc/passwd", "ftp://a/", "gopher://a/", "httpx://a/", "javascript:alert(1)" })
        EXPECT_EQ(WebAddress::scheme(text), std::nullopt) << text;
}

TEST(WebAddress, RedirectsStayWithinHttpAndHttps) {
    struct Row {
        const char *url;
        const char *location;
        std::optional<std::string> target;
    };
    const std::vector<Row> rows {
        { "http://a/x", "http://b/y", "http://b/y" },
        { "http://a/x", "https://b/y", "https://b/y" },
        { "https://a/x", "https://b/y", "https://b/y" },
        { "https://a/x", "http://b/y", std::nullopt },
        { "https://a/x", "HTTP://b/y", std::nullopt },
        { "https://a/x", "/y", "https://a/y" },
        { "https://a/x", "//b/y", "https://b/y" },
        { "http://a/x/y?q=1", "z", "http://a/x/z" },
        { "http://a/x", "http://b/c/../d/./e?f=%41%2f", "http://b/c/../d/./e?f=%41%2f" },
        { "http://a/x", "/with blank", "http://a/with%20blank" },
        { "http://a/x", "file:///etc/passwd", std::nullopt },
        { "http://a/x", "ftp://b/y", std::nullopt },
        { "http://a/x", "gopher://b/y", std::nullopt },
        { "http://a/x", "http://", std::nullopt },
        { "http://a/x", "http://b:notaport/", std::nullopt },
    };
    for (const auto &row : rows)
        EXPECT_EQ(WebAddress::redirectTarget(row.url, row.location), row.target)
            << row.url << " to " << row.location;
}

TEST(WebAddress, RequestTargetIsPathAndQuery) {
    struct Row {
        const char *url;
        const char *target;
    };
    const std::vector<Row> rows {
        { "http://a", "/" },
        { "http://a/", "/" },
        { "http://a?b", "/?b" },
        { "http://a#b", "/" },
        { "http://a:80/../b/?c=/d://e#f?g", "/../b/?c=/d://e" },
        { "https://u:p@a//b", "//b" },
        { "http://a/\xc3\xa9", "/\xc3\xa9" },
    };
    for (const auto &row : rows)
        EXPECT_EQ(WebAddress::requestTarget(row.url), row.target) << row.url;
}
