#include "platform/workstation/web/http_server.h"

#include <algorithm>
#include <tuple>

#include "tests/platform/conditions.h"
#include "tests/platform/web/http_serving.h"

namespace {

using namespace workstation;
using namespace std::chrono_literals;

std::string unzipped(const std::string& packed) {
  const GLibPtr<GZlibDecompressor> opener(g_zlib_decompressor_new(G_ZLIB_COMPRESSOR_FORMAT_GZIP));
  std::string content(1 << 20, '\0');
  size_t read = 0;
  size_t written = 0;
  g_converter_convert(G_CONVERTER(opener.get()), packed.data(), packed.size(), content.data(), content.size(),
                      G_CONVERTER_INPUT_AT_END, &read, &written, nullptr);
  content.resize(written);
  return content;
}

TEST_F(HttpServing, SendsTextsInFewerBytesToWhoeverTakesThem) {
  listen();
  std::string script;
  for (int line = 0; line < 1000; ++line) script += "export const a" + std::to_string(line) + " = 1;\n";
  m_folder.write("html/lib/long.js", script);
  m_folder.write("html/lib/long.png", script);
  const auto get = [this](const std::string& name, const std::string& taken) {
    return ask("GET", "/local/velmor_care/lib/" + name, taken.empty() ? "" : "Accept-Encoding: " + taken + "\r\n");
  };
  HttpReply packed = get("long.js", "br, gzip");
  EXPECT_EQ(packed.headers["content-encoding"] + packed.headers["vary"], "gzipAccept-Encoding");
  EXPECT_LT(packed.body.size(), script.size() / 3);
  EXPECT_EQ(unzipped(packed.body), script);
  for (const char* taken : {"", "br", "gzip;q=0"}) EXPECT_EQ(get("long.js", taken).body, script) << taken;
  EXPECT_EQ(get("long.png", "gzip").body, script) << "a picture is small already";
}

TEST_F(HttpServing, ServesThePageWithItsTypesAndGuards) {
  listen();
  EXPECT_EQ(ask("GET", "/").headers["location"], kPage);
  EXPECT_EQ(ask("GET", "/local/velmor_care/").status, 302);
  HttpReply page = ask("GET", kPage);
  EXPECT_EQ(std::to_string(page.status) + page.body, "200<title>page</title>");
  const std::pair<const char*, const char*> headers[] = {
      {"content-type", "text/html; charset=utf-8"},
      {"cache-control", "no-cache"},
      {"x-content-type-options", "nosniff"},
      {"referrer-policy", "no-referrer"},
      {"cross-origin-resource-policy", "same-origin"},
      {"content-security-policy",
       "default-src 'self'; img-src 'self' blob: data:; frame-ancestors 'none'; base-uri 'none'; form-action 'none'"}};
  for (const auto& [name, value] : headers) EXPECT_EQ(page.headers[name], value);
  const HttpReply script = ask("GET", "/local/velmor_care/lib/app.js?v=1");
  EXPECT_EQ(script.headers.at("content-type"), "text/javascript; charset=utf-8");
  const std::string known = "If-None-Match: " + script.headers.at("etag") + "\r\n";
  EXPECT_EQ(ask("GET", "/local/velmor_care/lib/app.js", known).status, 304);
  m_folder.write("html/lib/app.js", "export { };");
  EXPECT_EQ(ask("GET", "/local/velmor_care/lib/app.js", known).status, 200);
  HttpReply refused = ask("GET", "/nowhere");
  EXPECT_EQ(refused.status, 404);
  EXPECT_EQ(refused.headers["cache-control"] + refused.headers["x-content-type-options"], "no-storenosniff");
  EXPECT_EQ(ask("GET", "/axis-cgi/param.cgi?action=a&action=l%69st").body, "action list\n");
}

TEST_F(HttpServing, LetsInOnlyWhatTheGuardsAllow) {
  listen();
  const std::string port = std::to_string(m_port);
  const std::string program = std::string(kProgram) + "?action=x";
  const std::tuple<const char*, std::string, std::string, int> cases[] = {
      {"GET", kPage, "Host: LOCALHOST:" + port + "\r\n", 200},
      {"GET", kPage, "Host: " + std::string(g_get_host_name()) + ":" + port + "\r\n", 200},
      {"GET", kPage, "Host: evil.example:" + port + "\r\n", 403},
      {"GET", kPage, "Host: 127.0.0.1\r\n", 403},
      {"GET", kPage, "Host: 127.0.0.2:" + port + "\r\n", 403},
      {"GET", kPage, "Host: localhost:" + port + "\r\nHost: evil.example:" + port + "\r\n", 403},
      {"GET", "http://localhost:" + port + kPage, "Host: evil.example:" + port + "\r\n", 403},
      {"GET", kPage, "Host:\r\n", 403},
      {"HEAD", kPage, "", 200},
      {"PUT", kPage, "", 405},
      {"OPTIONS", "*", "", 405},
      {"POST", kPage, "", 405},
      {"HEAD", program, kFromPage, 405},
      {"POST", program, "", 403},
      {"POST", program, kFromPage, 200},
      {"GET", program, "Sec-Fetch-Site: same-origin\r\n", 200},
      {"GET", program, "Sec-Fetch-Site: cross-site\r\n", 403},
      {"GET", program, "Origin: http://127.0.0.1:" + port + "\r\n", 200},
      {"GET", program, "Origin: http://evil.example\r\n", 403},
      {"GET", "/local/other/control.cgi?action=x", kFromPage, 404}};
  for (const auto& [method, path, headers, status] : cases) {
    EXPECT_EQ(ask(method, path, headers).status, status) << method << " " << path << " " << headers;
  }
}

TEST_F(HttpServing, NeverLeavesTheFolderOfThePage) {
  listen();
  for (const std::string path :
       {"../secret.txt", "%2e%2e%2fsecret.txt", "lib/%2e%2e/%2e%2e/secret.txt", "..%252fsecret.txt", "..%5csecret.txt",
        "link.txt", "linked/secret.txt", ".hidden", "%00", "index.html%00.txt", "index.html/", "lib", "lib/",
        "%2f%2fsecret.txt", "%ff%fe", "%zz", "lib//app.js", "nul\tx", "../../../secret.txt"}) {
    const HttpReply reply = ask("GET", "/local/velmor_care/" + path);
    EXPECT_TRUE(reply.status == 400 || reply.status == 403 || reply.status == 404) << path << " " << reply.status;
    EXPECT_EQ(reply.body.find("secret\n"), std::string::npos) << path;
  }
  EXPECT_EQ(ask("GET", m_folder.path().string() + "/secret.txt").status, 404);
}

TEST_F(HttpServing, HandsQueriesAndFormsToTheProgram) {
  listen();
  const std::string form =
      std::string(kFromPage) + "Content-Type: application/x-www-form-urlencoded; charset=UTF-8\r\n";
  const auto said = [&](const std::string& method, const std::string& query, const std::string& headers,
                        const std::string& body) {
    const HttpReply reply = ask(method, kProgram + query, headers, body);
    return reply.status == 200 ? reply.body.substr((method + " " + kProgram + " ").size())
                               : std::to_string(reply.status) + "\n";
  };
  EXPECT_EQ(said("GET", "", kFromPage, ""), "?(none)\n");
  EXPECT_EQ(said("GET", "?", kFromPage, ""), "?\n");
  EXPECT_EQ(said("GET", "?a=1&b=x+y%26%C3%A9&a=2&&flag&=v&c==%25s%25n", kFromPage, ""),
            "?a=1&b=x+y%26%C3%A9&a=2&&flag&=v&c==%25s%25n =v a=2 b=x y&é c==%s%n\n");
  EXPECT_EQ(said("POST", "?q=1", form, "a=1&b=2"), "?q=1 a=1 b=2\n");
  EXPECT_EQ(said("POST", "", form + "Transfer-Encoding: chunked\r\n", "3\r\na=1\r\n4\r\n&b=2\r\n0\r\n\r\n"),
            "?(none) a=1 b=2\n");
  EXPECT_EQ(said("POST", "", form, "a=" + std::string(60000, 'x')).size(), 60011U);
  for (const char* query : {"?a=%", "?a=%zz", "?a=%00", "?%ff=1"}) {
    EXPECT_EQ(said("GET", query, kFromPage, ""), "400\n") << query;
  }
  EXPECT_EQ(said("POST", "", form, std::string("a=\0b", 4)), "400\n");
  EXPECT_EQ(said("POST", "", std::string(kFromPage) + "Content-Type: text/plain\r\n", "a=1"), "415\n");
  EXPECT_EQ(said("POST", "", kFromPage, "a=1"), "415\n");
}

TEST_F(HttpServing, BoundsWhatASingleRequestMayTake) {
  m_settings.body_bytes = 1000;
  listen();
  const std::string form = std::string(kFromPage) + "Content-Type: application/x-www-form-urlencoded\r\n";
  const std::string too_long = "a=" + std::string(999, 'x');
  EXPECT_EQ(ask("POST", kProgram, form, too_long.substr(1)).status, 200);
  EXPECT_EQ(ask("POST", kProgram, form, too_long).status, 413);
  EXPECT_EQ(ask("POST", kProgram, form + "Expect: 100-continue\r\n", too_long).status, 413);
  std::string chunks;
  for (int i = 0; i < 20; ++i) chunks.append("40\r\n").append(64, 'x').append("\r\n");
  EXPECT_EQ(ask("POST", kProgram, form + "Transfer-Encoding: chunked\r\n", chunks + "0\r\n\r\n").status, 413);
  const std::string megabytes(5 << 20, 'x');
  EXPECT_TRUE(ask("POST", kProgram, form, megabytes).status % 413 == 0) << "told, or cut off";
  for (const int status : {ask("GET", kProgram + ("?a=" + megabytes), kFromPage).status,
                           ask("GET", kProgram, "X-Long: " + megabytes + "\r\n").status}) {
    EXPECT_TRUE(status == 0 || (status >= 400 && status < 500)) << status;
  }
  EXPECT_EQ(ask("GET", kProgram, kFromPage).status, 200) << "the server goes on";
}

/// What a stranger sends, GLib's warnings included, is nothing to tell whoever runs the program.
TEST_F(HttpServing, RefusesLengthsThatAreNoneWithoutAWord) {
  listen();
  testing::internal::CaptureStderr();
  for (const std::string method : {"GET", "POST"}) {
    for (const std::string length : {"-5", "9223372036854775808", "18446744073709551611", "1, 2", "+1", "", "0x1",
                                     "1\r\nContent-Length: 1", "-1\r\nTransfer-Encoding: chunked"}) {
      EXPECT_EQ(ask(method, "/nowhere", "Content-Length: " + length + "\r\n").status, 400) << method << " " << length;
    }
  }
  m_server->stop();
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(HttpServing, WaitsForNobodyLongerThanItsPatience) {
  m_settings.first_patience = m_settings.patience = 100ms;
  listen();
  EXPECT_TRUE(HttpClient(m_port, requestText(m_port, "GET", "/held")).seesEnd());
  const std::string form = std::string(kFromPage) + "Content-Type: application/x-www-form-urlencoded\r\n";
  const auto head = [&](const std::string& more) { return requestText(m_port, "POST", kProgram, form + more); };
  for (const std::string& half : {std::string(), std::string("G"), head("Content-Length: 10\r\n") + "a=1",
                                  head("Transfer-Encoding: chunked\r\n") + "5\r\nab",
                                  head("Transfer-Encoding: chunked\r\n") + "ffffffffffffffff\r\nab",
                                  head("Content-Length: 3\r\nExpect: 100-continue\r\n")}) {
    EXPECT_TRUE(HttpClient(m_port, half).seesEnd()) << half;
  }
}

TEST_F(HttpServing, ADripOfHeadersBuysNoTime) {
  m_settings.first_patience = 200ms;
  listen();
  HttpClient client(m_port, "GET / HTTP/1.1\r\n");
  int drips = 0;
  for (; drips < 1000 && client.isOpen(20ms); ++drips) client.send("X-Drip: 1\r\n");
  EXPECT_LT(drips, 1000);
}

TEST_F(HttpServing, ACrowdIsToldSoBeyondTheBoundOfAllAndOfOneAddress) {
  for (const auto bound : {&HttpServerSettings::connections, &HttpServerSettings::connections_of_one}) {
    m_settings.connections = m_settings.connections_of_one = 100;
    m_settings.*bound = 2;
    m_held.clear();
    listen();
    std::list<HttpClient> crowd;
    while (crowd.size() < 2) {
      crowd.emplace_back(m_port, requestText(m_port, "GET", "/held"));
      ASSERT_TRUE(comes([&] { return m_held.size() == crowd.size(); }));
    }
    EXPECT_EQ(ask("GET", kPage).status, 503);
    const bool is_of_one = bound == &HttpServerSettings::connections_of_one;
    EXPECT_EQ(HttpClient(m_port, requestText(m_port, "GET", kPage), "127.0.0.2").receive().status,
              is_of_one ? 200 : 503);
    m_server->invoke([this] {
      answerLine(m_held[0], SOUP_STATUS_OK, "at last");
      soup_server_message_unpause(m_held[0]);
    });
    EXPECT_EQ(crowd.front().receive().status, 200);
    EXPECT_TRUE(comes([this] { return ask("GET", kPage).status == 200; })) << "there is room again";
  }
}

TEST_F(HttpServing, EndsWithItsConnectionsOpen) {
  listen();
  HttpClient half(m_port, "GET / HTTP/1.1\r\n");
  HttpClient idle(m_port);
  m_server->stop();
  EXPECT_TRUE(half.seesEnd() && idle.seesEnd());
  m_server->invoke([] { FAIL() << "after the end"; });
}

TEST_F(HttpServing, SlowStrangersKeepNobodyOut) {
  m_settings.first_patience = 10min;  // nobody is waited out
  for (const auto& [people, strangers, of_one] :
       {std::tuple{false, size_t{1000}, size_t{8}}, {false, 3, 1000}, {true, 1000, 8}, {true, 3, 1000}}) {
    if (people && m_as.empty()) addPeople();
    m_settings.strangers = strangers;
    m_settings.strangers_of_one = of_one;
    listen();
    const std::string program = std::string(kProgram) + "?action=x";
    const std::string headers = kFromPage + (people ? m_as[Role::kInstaller] : "");
    std::list<HttpClient> slow, elsewhere;
    while (elsewhere.size() < 7) elsewhere.emplace_back(m_port, "GET / HTTP/1.1\r\n", "127.0.0.2");
    slow.emplace_back(m_port, "GET / HTTP/1.1\r\n");
    EXPECT_EQ(ask("GET", program, headers).status, 200);
    EXPECT_TRUE(slow.front().isOpen(0ms)) << "one address's strangers are nobody else's";
    while (slow.size() < 60) slow.emplace_back(m_port, "GET / HTTP/1.1\r\n");
    EXPECT_EQ(ask("GET", program, headers).status, 200) << people << strangers;
    EXPECT_TRUE(slow.front().seesEnd());
    EXPECT_TRUE(slow.back().isOpen(0ms)) << "as long as nobody needs the place";
    EXPECT_EQ(elsewhere.front().isOpen(0ms), strangers > 60) << people << strangers;
  }
}

/// Who has not signed in gets the page's files, and takes none of the places of those who have.
TEST_F(HttpServing, StrangersWhoReadThePageKeepNobodyOut) {
  addPeople();
  m_settings.connections = 1;
  listen();
  m_folder.write("html/large.js", std::string(4 << 20, ' '));
  HttpClient reader(m_port, requestText(m_port, "GET", "/local/velmor_care/large.js"));
  EXPECT_NE(reader.receiveUntil("\r\n\r\n").find(" 200 "), std::string::npos);
  EXPECT_EQ(ask("GET", "/axis-cgi/param.cgi?action=list", m_as[Role::kCarer]).status, 200);
}

TEST_F(HttpServing, ListensWhereItIsToldOrSaysWhyNot) {
  listen();
  const auto refusal = [this](const std::string& where) {
    try {
      HttpServer(m_settings).listen(parseListenAddress(where));
    } catch (const std::exception& error) {
      return std::string(error.what());
    }
    return std::string("(none)");
  };
  const std::string taken = "127.0.0.1:" + std::to_string(m_port);
  EXPECT_EQ(refusal(taken).rfind(taken + ": cannot be listened on: ", 0), 0U);
  EXPECT_EQ(refusal(taken + "-" + std::to_string(m_port + 20)), "(none)") << "the next that is free";
  EXPECT_NE(refusal("0.0.0.0:0").find("nobody says who may come in"), std::string::npos);
  m_settings.certificate = "-----BEGIN CERTIFICATE-----";
  EXPECT_EQ(refusal("127.0.0.1:0").rfind("the certificate cannot be used: ", 0), 0U);
}

}  // namespace
