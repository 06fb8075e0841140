#include "platform/workstation/web/why_service.h"

#include <stdexcept>

#include "tests/platform/web/http_serving.h"

namespace {

TEST_F(HttpServing, SaysWhyToWhoeverMaySeeThePage) {
  std::string document = R"({"time": null, "people": [{"id": 3, "text": "Person 3 \u003cb\u003e"}]})";
  const auto serve = [&] {
    m_server = std::make_unique<workstation::HttpServer>(m_settings);
    workstation::addWhy(*m_server, [&] { return document.empty() ? throw std::runtime_error("torn") : document; });
    m_port = m_server->listen(workstation::parseListenAddress("127.0.0.1:0"));
  };
  const auto why = [this](const char* method, const char* headers = "") {
    return ask(method, "/platform/why", headers);
  };
  serve();
  HttpReply reply = why("GET");
  EXPECT_EQ(std::to_string(reply.status) + reply.body, "200" + document);
  EXPECT_EQ(reply.headers["content-type"] + " " + reply.headers["cache-control"], "application/json no-store");
  EXPECT_EQ(reply.headers["cross-origin-resource-policy"], "same-origin");
  EXPECT_EQ(reply.headers.count("access-control-allow-origin"), 0U);
  HttpReply head = HttpClient(m_port, requestText(m_port, "HEAD", "/platform/why")).receive(false);
  EXPECT_EQ(std::to_string(head.status) + head.headers["cache-control"], "200no-store");
  EXPECT_EQ(why("POST").status, 405);
  EXPECT_EQ(why("GET", "Host: evil.example\r\n").status, 403);
  document.clear();
  reply = why("GET");
  EXPECT_EQ(std::to_string(reply.status) + reply.body, "500There is no explanation: torn\n");
  document = "{}";
  EXPECT_EQ(why("GET").body, "{}") << "as it is at each request";
  addPeople();
  serve();
  EXPECT_EQ(why("GET").status, 401);
  EXPECT_EQ(why("GET", m_as[workstation::Role::kCarer].c_str()).status, 200);
}

}  // namespace
