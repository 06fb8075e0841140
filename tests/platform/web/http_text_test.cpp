#include "platform/workstation/web/http_text.h"

#include <glib.h>
#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using namespace workstation;

TEST(HttpText, ReadsAddresses) {
  const std::pair<const char*, ListenAddress> good[] = {{"127.0.0.1:8080", {"127.0.0.1", 8080, 8080}},
                                                        {"localhost:0", {"127.0.0.1", 0, 0}},
                                                        {"[::1]:65535", {"::1", 65535, 65535}},
                                                        {"0.0.0.0:8080-8099", {"0.0.0.0", 8080, 8099}}};
  for (const auto& [text, address] : good) {
    EXPECT_EQ(parseListenAddress(text), address) << text;
    EXPECT_EQ(parseListenAddress(toString(address)), address) << text;
  }
  for (const char* text : {"", "127.0.0.1", "127.0.0.1:", "127.0.0.1:65536", "127.0.0.1:-1", "::1:80", "[::1:80",
                           "example.org:80", "127.0.0.1:80 ", "127.0.0.1:99-80"}) {
    EXPECT_THROW(parseListenAddress(text), std::runtime_error) << text;
  }
  EXPECT_EQ(pageAddress("127.0.0.1", 80), "http://127.0.0.1/");
  EXPECT_EQ(pageAddress("::1", 8080), "http://[::1]:8080/");
  EXPECT_EQ(pageAddress("0.0.0.0", 80), std::string("http://") + g_get_host_name() + "/");
  EXPECT_EQ(pageAddress("127.0.0.1", 443, true) + pageAddress("127.0.0.1", 80, true),
            "https://127.0.0.1/https://127.0.0.1:80/");
  EXPECT_TRUE(isLoopback("127.1.2.3") && isLoopback("::1"));
  EXPECT_FALSE(isLoopback("0.0.0.0") || isLoopback("::") || isLoopback("192.168.1.2"));
  EXPECT_TRUE(isOwnHost("[::1]:8080", "::1", 8080) && isOwnHost("192.168.1.2", "192.168.1.2", 80));
  EXPECT_FALSE(isOwnHost("localhost:80", "192.168.1.2", 80)) << "the name of another machine";
  const std::vector<std::string> names = {"ward3.lan"};
  EXPECT_TRUE(isOwnHost("Ward3.LAN", "192.168.1.2", 443, true, names));
  EXPECT_FALSE(isOwnHost("ward3.lan", "192.168.1.2", 443, false, names)) << "port 80";
  EXPECT_FALSE(isOwnHost("ward4.lan", "192.168.1.2", 443, true, names));
}

TEST(HttpText, TakesCgiRepliesApart) {
  const auto read = [](const std::string& reply) {
    const auto parsed = parseCgiReply(reply);
    if (!parsed) return std::string("(none)");
    std::string text = std::to_string(parsed->status) + "|" + parsed->reason + "|";
    for (const auto& [name, value] : parsed->headers) text.append(name).append("=").append(value).append(",");
    return text + "|" + parsed->body;
  };
  const std::pair<const char*, const char*> cases[] = {
      {"", "200|||"},
      {"\r\n", "200|||"},
      {"Content-Type: text/plain\r\nStatus: 406\tNot Acceptable\r\n\r\n200",
       "406|Not Acceptable|Content-Type=text/plain,|200"},
      {"status:404\nX-A:  b \n\nline\n\nline", "404||X-A=b,|line\n\nline"},
      {"Connection: keep-alive\r\nContent-Length: 7\r\nTransfer-Encoding: chunked\r\n\r\nx", "200|||x"},
      {"A: x\ry\r\n\r\n", "200||A=x y,|"}};
  for (const auto& [reply, expected] : cases) EXPECT_EQ(read(reply), expected) << reply;
  for (const char* reply : {"Content-Type: text/plain\r\n", "no header\r\n\r\n", ": x\r\n\r\n", "Status: 20\r\n\r\n",
                            "Status: 2000\r\n\r\n", "Status: 100\r\n\r\n", "Status: OK\r\n\r\n"}) {
    EXPECT_EQ(read(reply), "(none)") << reply;
  }
}

}  // namespace
