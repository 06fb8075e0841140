#include <axevent.h>
#include <axhttp.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "platform/clock/clock.h"
#include "platform/workstation/event_feed.h"
#include "platform/workstation/http_server.h"
#include "tests/platform/http_client.h"
#include "tests/platform/state_folder.h"

namespace {

using namespace workstation;
using namespace std::chrono_literals;

constexpr const char* kFromPage = "X-Requested-With: test\r\n";

/// A server with a page, a program that says what it was asked, and a secret beside the page.
class HttpServing : public testing::Test {
 protected:
  HttpServing() {
    for (const char* folder : {"html", "html/lib", "outside"}) std::filesystem::create_directory(m_folder / folder);
    m_folder.write("html/index.html", "<title>page</title>");
    m_folder.write("html/lib/app.js", "export {};");
    m_folder.write("html/.hidden", "secret");
    m_folder.write("secret.txt", "secret");
    m_folder.write("outside/secret.txt", "secret");
    std::filesystem::create_symlink(m_folder / "secret.txt", m_folder / "html/link.txt");
    std::filesystem::create_directory_symlink(m_folder / "outside", m_folder / "html/linked");
    std::filesystem::create_directory_symlink(m_folder / "html", m_folder / "page");
    m_settings.page = m_folder / "page";
  }

  void listen() {
    m_server = std::make_unique<HttpServer>(m_settings);
    m_server->setProgram([](SoupServerMessage* message, const ProgramRequest& request) {
      std::string said = request.method + " " + request.path + " ?" + request.query.value_or("(none)");
      for (const auto& [key, value] : request.parameters.value_or(HttpQuery())) said += " " + key + "=" + value;
      answerLine(message, SOUP_STATUS_OK, said);
    });
    m_server->addEndpoint("/axis-cgi/param.cgi", [](SoupServerMessage* message, const HttpQuery& query) {
      answerLine(message, SOUP_STATUS_OK, "action " + query.at("action"));
    });
    m_port = m_server->listen(parseListenAddress("127.0.0.1:0"));
  }
  HttpReply ask(const std::string& method, const std::string& path, const std::string& headers = "",
                const std::string& body = "") const {
    return request(m_port, method, path, headers, body);
  }

  StateFolder m_folder;
  HttpServerSettings m_settings;
  std::unique_ptr<HttpServer> m_server;
  std::uint16_t m_port = 0;
};

TEST_F(HttpServing, ServesThePageWithItsTypesAndGuards) {
  listen();
  EXPECT_EQ(ask("GET", "/").headers["location"], "/local/velmor_care/index.html");
  EXPECT_EQ(ask("GET", "/local/velmor_care/").status, 302);
  HttpReply page = ask("GET", "/local/velmor_care/index.html");
  EXPECT_EQ(page.status, 200);
  EXPECT_EQ(page.body, "<title>page</title>");
  EXPECT_EQ(page.headers["content-type"], "text/html; charset=utf-8");
  EXPECT_EQ(page.headers["cache-control"], "no-cache");
  EXPECT_EQ(page.headers["x-content-type-options"], "nosniff");
  EXPECT_EQ(page.headers["referrer-policy"], "no-referrer");
  EXPECT_EQ(page.headers["cross-origin-resource-policy"], "same-origin");
  EXPECT_EQ(page.headers["content-security-policy"],
            "default-src 'self'; img-src 'self' blob: data:; frame-ancestors 'none'; base-uri 'none'; "
            "form-action 'none'");
  const HttpReply script = ask("GET", "/local/velmor_care/lib/app.js?v=1");
  EXPECT_EQ(script.headers.at("content-type"), "text/javascript; charset=utf-8");
  const std::string etag = script.headers.at("etag");
  EXPECT_EQ(ask("GET", "/local/velmor_care/lib/app.js", "If-None-Match: " + etag + "\r\n").status, 304);
  m_folder.write("html/lib/app.js", "export { };");
  EXPECT_EQ(ask("GET", "/local/velmor_care/lib/app.js", "If-None-Match: " + etag + "\r\n").status, 200);
  HttpReply refused = ask("GET", "/nowhere");
  EXPECT_EQ(refused.status, 404);
  EXPECT_EQ(refused.headers["cache-control"], "no-store");
  EXPECT_EQ(refused.headers["x-content-type-options"], "nosniff");
  EXPECT_EQ(ask("GET", "/axis-cgi/param.cgi?action=a&action=l%69st").body, "action list\n");
}

struct Case {
  std::string method, path, headers;
  int status;
};

TEST_F(HttpServing, LetsInOnlyWhatTheGuardsAllow) {
  listen();
  const std::string port = std::to_string(m_port);
  const std::string page = "/local/velmor_care/index.html";
  const std::string program = "/local/velmor_care/control.cgi?action=x";
  const std::vector<Case> cases = {
      {"GET", page, "Host: LOCALHOST:" + port + "\r\n", 200},
      {"GET", page, "Host: " + std::string(g_get_host_name()) + ":" + port + "\r\n", 200},
      {"GET", page, "Host: evil.example:" + port + "\r\n", 403},
      {"GET", page, "Host: 127.0.0.1.evil.example:" + port + "\r\n", 403},
      {"GET", page, "Host: 127.0.0.1\r\n", 403},
      {"GET", page, "Host: 127.0.0.1:1\r\n", 403},
      {"GET", page, "Host: 127.0.0.2:" + port + "\r\n", 403},
      {"GET", page, "Host: [::1]:" + port + "\r\n", 403},
      {"GET", page, "Host: localhost:" + port + "\r\nHost: evil.example:" + port + "\r\n", 403},
      {"GET", "http://localhost:" + port + page, "Host: evil.example:" + port + "\r\n", 403},
      {"GET", page, "Host:\r\n", 403},
      {"HEAD", page, "", 200},
      {"PUT", page, "", 405},
      {"DELETE", program, kFromPage, 405},
      {"OPTIONS", program, kFromPage, 405},
      {"OPTIONS", "*", "", 405},
      {"TRACE", page, "", 405},
      {"POST", page, "", 405},
      {"POST", "/axis-cgi/param.cgi", "", 405},
      {"HEAD", program, kFromPage, 405},
      {"GET", program, "", 403},
      {"POST", program, "", 403},
      {"GET", program, kFromPage, 200},
      {"POST", program, kFromPage, 200},
      {"GET", program, "Sec-Fetch-Site: same-origin\r\n", 200},
      {"GET", program, "Sec-Fetch-Site: cross-site\r\n", 403},
      {"GET", program, "Sec-Fetch-Site: none\r\n", 403},
      {"GET", program, "Origin: http://127.0.0.1:" + port + "\r\n", 200},
      {"GET", program, "Origin: http://evil.example\r\n", 403},
      {"GET", program, "Origin: null\r\n", 403},
      {"GET", program, "Referer: http://127.0.0.1:" + port + "/\r\n", 403},
      {"GET", "/local/other/control.cgi?action=x", kFromPage, 404},
  };
  for (const Case& guarded : cases) {
    EXPECT_EQ(ask(guarded.method, guarded.path, guarded.headers).status, guarded.status)
        << guarded.method << " " << guarded.path << " " << guarded.headers;
  }
}

TEST_F(HttpServing, NeverLeavesTheFolderOfThePage) {
  listen();
  for (const std::string path : {"../secret.txt",
                                 "..%2fsecret.txt",
                                 "%2e%2e/secret.txt",
                                 "%2e%2e%2fsecret.txt",
                                 "lib/../../secret.txt",
                                 "lib/%2e%2e/%2e%2e/secret.txt",
                                 "..%252fsecret.txt",
                                 "..%5csecret.txt",
                                 ".%2e/secret.txt",
                                 "link.txt",
                                 "linked/secret.txt",
                                 ".hidden",
                                 "./index.html/../../secret.txt",
                                 "%00",
                                 "index.html%00.txt",
                                 "index.html/",
                                 "lib",
                                 "lib/",
                                 "/secret.txt",
                                 "//index.html",
                                 "%2f%2fsecret.txt",
                                 "%ff%fe",
                                 "%zz",
                                 "lib//app.js",
                                 "..;/secret.txt",
                                 "\\..\\secret.txt",
                                 "nul\tx"}) {
    const HttpReply reply = ask("GET", "/local/velmor_care/" + path);
    EXPECT_TRUE(reply.status == 400 || reply.status == 403 || reply.status == 404) << path << " " << reply.status;
    EXPECT_EQ(reply.body.find("secret\n"), std::string::npos) << path;
  }
  for (const std::string& path : {m_folder.path().string() + "/secret.txt", std::string("/../secret.txt"),
                                  std::string("/local/../secret.txt"), std::string("/local/velmor_care")}) {
    EXPECT_GE(ask("GET", path).status, 400) << path;
  }
}

TEST_F(HttpServing, HandsQueriesAndFormsToTheProgram) {
  listen();
  const std::string program = "/local/velmor_care/control.cgi";
  const std::string form =
      std::string(kFromPage) + "Content-Type: application/x-www-form-urlencoded; charset=UTF-8\r\n";
  const std::string chunked = form + "Transfer-Encoding: chunked\r\n";
  const auto said = [&](const std::string& method, const std::string& query, const std::string& headers,
                        const std::string& body) {
    const HttpReply reply = ask(method, program + query, headers, body);
    return reply.status == 200 ? reply.body.substr((method + " " + program + " ").size())
                               : std::to_string(reply.status) + "\n";
  };
  EXPECT_EQ(said("GET", "", kFromPage, ""), "?(none)\n");
  EXPECT_EQ(said("GET", "?", kFromPage, ""), "?\n");
  EXPECT_EQ(said("GET", "?a=1&b=x+y%26%C3%A9&a=2&&flag&=v&c==%25s%25n", kFromPage, ""),
            "?a=1&b=x+y%26%C3%A9&a=2&&flag&=v&c==%25s%25n =v a=2 b=x y&é c==%s%n flag=\n");
  EXPECT_EQ(said("POST", "?q=1", form, "a=1&b=2"), "?q=1 a=1 b=2\n");
  EXPECT_EQ(said("POST", "", chunked, "3\r\na=1\r\n4\r\n&b=2\r\n0\r\n\r\n"), "?(none) a=1 b=2\n");
  EXPECT_EQ(said("POST", "", form, "a=" + std::string(60000, 'x')).size(), 60011U);
  for (const char* query : {"?a=%", "?a=%4", "?a=%zz", "?a=%00", "?%ff=1", "?a=%c3"}) {
    EXPECT_EQ(said("GET", query, kFromPage, ""), "400\n") << query;
  }
  EXPECT_EQ(said("POST", "", form, std::string("a=\0b", 4)), "400\n");
  EXPECT_EQ(said("POST", "", form, "a=%0"), "400\n");
  EXPECT_EQ(said("POST", "", std::string(kFromPage) + "Content-Type: text/plain\r\n", "a=1"), "415\n");
  EXPECT_EQ(said("POST", "", kFromPage, "a=1"), "415\n");
}

TEST_F(HttpServing, BoundsWhatASingleRequestMayTake) {
  m_settings.body_bytes = 1000;
  listen();
  const std::string program = "/local/velmor_care/control.cgi";
  const std::string form = std::string(kFromPage) + "Content-Type: application/x-www-form-urlencoded\r\n";
  EXPECT_EQ(ask("POST", program, form, "a=" + std::string(998, 'x')).status, 200);
  EXPECT_EQ(ask("POST", program, form, "a=" + std::string(999, 'x')).status, 413);
  EXPECT_EQ(ask("POST", program, form + "Expect: 100-continue\r\n", "a=" + std::string(999, 'x')).status, 413);
  std::string chunks;
  for (int i = 0; i < 20; ++i) chunks += "40\r\n" + std::string(64, 'x') + "\r\n";
  EXPECT_EQ(ask("POST", program, form + "Transfer-Encoding: chunked\r\n", chunks + "0\r\n\r\n").status, 413);
  const std::string megabytes(5 << 20, 'x');
  EXPECT_TRUE(ask("POST", program, form, megabytes).status % 413 == 0) << "told, or cut off";
  for (const int status : {ask("GET", program + "?a=" + megabytes, kFromPage).status,
                           ask("GET", program, "X-Long: " + megabytes + "\r\n").status}) {
    EXPECT_TRUE(status == 0 || (status >= 400 && status < 500)) << status;
  }
  for (const char* length : {"-1", "99999999999999999999", "abc", "1, 2"}) {
    const int status = ask("POST", program, form + "Content-Length: " + length + "\r\n").status;
    EXPECT_TRUE(status == 0 || (status >= 400 && status < 500)) << length << " " << status;
  }
  EXPECT_EQ(ask("GET", program, kFromPage).status, 200) << "the server goes on";
}

TEST_F(HttpServing, WaitsForNobodyLongerThanItsPatience) {
  m_settings.patience = 100ms;
  listen();
  const std::string head = "POST /local/velmor_care/control.cgi HTTP/1.1\r\nHost: localhost:" + std::to_string(m_port) +
                           "\r\n" + kFromPage + "Content-Type: application/x-www-form-urlencoded\r\n";
  for (const std::string& half :
       {std::string(), std::string("G"), head, head + "Content-Length: 10\r\n\r\na=1",
        head + "Transfer-Encoding: chunked\r\n\r\n5\r\nab", head + "Transfer-Encoding: chunked\r\n\r\nno number\r\n",
        head + "Transfer-Encoding: chunked\r\n\r\nffffffffffffffff\r\nab",
        head + "Content-Length: 3\r\nExpect: 100-continue\r\n\r\n"}) {
    HttpClient client(m_port);
    client.send(half);
    EXPECT_TRUE(client.seesEnd()) << half;
  }
}

TEST_F(HttpServing, ADripOfHeadersBuysNoTime) {
  m_settings.patience = 200ms;
  listen();
  HttpClient client(m_port);
  client.send("GET / HTTP/1.1\r\n");
  int drips = 0;
  for (; drips < 1000 && client.isOpen(20ms); ++drips) client.send("X-Drip: 1\r\n");
  EXPECT_LT(drips, 1000);
}

TEST_F(HttpServing, TurnsAwayMoreConnectionsThanItsBound) {
  m_settings.connections = 2;
  listen();
  std::vector<std::unique_ptr<HttpClient>> crowd;
  for (int i = 0; i < 20; ++i) {
    crowd.push_back(std::make_unique<HttpClient>(m_port));
    crowd.back()->send("GET /local/velmor_care/index.html HTTP/1.1\r\n");
  }
  EXPECT_TRUE(crowd.back()->seesEnd()) << "and thus all have been looked at";
  std::vector<int> statuses;
  for (const auto& one : crowd) {
    one->send("Host: localhost:" + std::to_string(m_port) + "\r\n\r\n");
    statuses.push_back(one->receive().status);
    EXPECT_TRUE(one->seesEnd());
  }
  std::vector<int> expected(20, 0);
  std::fill_n(expected.begin(), 2, 200);
  std::fill_n(expected.begin() + 2, 2, 503);
  EXPECT_EQ(statuses, expected) << "served, told, cut off";
  int status = 0;
  for (int attempt = 0; attempt < 1000 && status != 200; ++attempt) {
    status = ask("GET", "/local/velmor_care/index.html").status;
  }
  EXPECT_EQ(status, 200) << "there is room again";
}

TEST_F(HttpServing, EndsWithItsConnectionsOpen) {
  listen();
  HttpClient half(m_port);
  half.send("GET / HTTP/1.1\r\n");
  HttpClient idle(m_port);
  m_server->stop();
  EXPECT_TRUE(half.seesEnd());
  EXPECT_TRUE(idle.seesEnd());
  m_server->invoke([] { FAIL() << "after the end"; });
}

}  // namespace
