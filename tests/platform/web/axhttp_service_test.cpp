#include <axhttp.h>
#include <syslog.h>

#include <list>
#include <thread>

#include "tests/platform/web/http_serving.h"

namespace {

/// The program's side: a callback on the main loop, which turns while the client waits.
class AxHttp : public testing::Test {
 protected:
  AxHttp() {
    ::setenv("VELMOR_LISTEN", "127.0.0.1:0", 1);
    ::setenv("VELMOR_OUTPUT", "text", 1);
    ::setenv("VELMOR_ROOT", m_folder.path().c_str(), 1);
  }
  ~AxHttp() override {
    for (const char* name : {"VELMOR_LISTEN", "VELMOR_OUTPUT", "VELMOR_ROOT", "VELMOR_TLS"}) ::unsetenv(name);
    stop();
  }

  void start() {
    testing::internal::CaptureStdout();
    m_handler = ax_http_handler_new(&AxHttp::called, this);
    const std::string shown = testing::internal::GetCapturedStdout();
    ASSERT_NE(m_handler, nullptr);
    ASSERT_EQ(shown.rfind("Page: http://", 0), 0U) << shown;
    m_port = static_cast<std::uint16_t>(std::stoi(shown.substr(shown.rfind(':') + 1)));
  }
  void stop() { ax_http_handler_free(std::exchange(m_handler, nullptr)); }

  static void called(const gchar* path, const gchar* method, const gchar* query, GHashTable* params,
                     GOutputStream* output, gpointer self) {
    auto* test = static_cast<AxHttp*>(self);
    EXPECT_EQ(std::this_thread::get_id(), test->m_thread);
    ++test->m_calls;
    const auto* wanted = params == nullptr ? nullptr : static_cast<const char*>(g_hash_table_lookup(params, "reply"));
    const std::string text = wanted != nullptr ? wanted
                                               : std::string("Content-Type: text/plain\r\n\r\n") + method + " " + path +
                                                     " " + (query == nullptr ? "(none)" : query) + " " +
                                                     std::to_string(params == nullptr ? 0 : g_hash_table_size(params));
    EXPECT_TRUE(g_output_stream_write_all(output, text.data(), text.size(), nullptr, nullptr, nullptr));
  }
  std::string get(const std::string& query) const { return requestText(m_port, "GET", kProgram + query, kFromPage); }
  HttpReply ask(const std::string& query) const { return HttpClient(m_port, get(query)).receive(); }

  StateFolder m_folder;
  AXHttpHandler* m_handler = nullptr;
  std::uint16_t m_port = 0;
  int m_calls = 0;
  std::thread::id m_thread = std::this_thread::get_id();
};

TEST_F(AxHttp, CallsTheProgramOnItsMainLoopAndPassesItsReplyOn) {
  start();
  EXPECT_EQ(request(m_port, "GET", "/platform/why").body.rfind(R"({"time":null,)", 0), 0U) << "no cycle yet";
  EXPECT_NE(request(m_port, "GET", "/platform/alarms").body.find(R"("alarms":[],"pause":null)"), std::string::npos);
  EXPECT_EQ(ask("").body, "GET /local/velmor_care/control.cgi (none) 0");
  EXPECT_EQ(ask("?a=1&b=%26").body, "GET /local/velmor_care/control.cgi a=1&b=%26 2");
  HttpReply xml = ask("?reply=Content-Type:%20text/xml%0d%0aStatus:%20406%09Not%20Acceptable%0d%0a%0d%0a%3Capp/%3E");
  EXPECT_EQ(xml.status, 406);
  EXPECT_EQ(xml.headers["content-type"] + xml.headers["x-content-type-options"], "text/xmlnosniff");
  EXPECT_EQ(xml.body, "<app/>");
  HttpReply nothing = ask("?reply=");
  EXPECT_EQ(std::to_string(nothing.status) + nothing.headers["content-length"], "2000");
  EXPECT_EQ(ask("?reply=garbage").status, 502);
  EXPECT_EQ(m_calls, 5);
}

TEST_F(AxHttp, TellsAWholeWardOfEachAlarm) {
  start();
  std::list<HttpClient> pages;
  for (size_t page = 0; page < workstation::kMostPages; ++page) {
    for (const char* feed : {"/platform/events", "/platform/alarms/feed"}) {
      pages.emplace_back(m_port, requestText(m_port, "GET", feed));
    }
  }
  for (HttpClient& page : pages) EXPECT_EQ(page.receive(false).status, 200);
  EXPECT_EQ(request(m_port, "GET", "/platform/alarms").status, 200) << "and each may ask and answer";
}

TEST_F(AxHttp, OutlivesClientsThatVanishAndEndsWithRequestsWaiting) {
  start();
  for (int i = 0; i < 10; ++i) HttpClient(m_port, get(""));
  EXPECT_EQ(ask("").status, 200);
  const int before = m_calls;
  std::list<HttpClient> waiting;
  while (waiting.size() < 10) waiting.emplace_back(m_port, get(""));
  stop();
  for (HttpClient& client : waiting) EXPECT_TRUE(client.seesEnd());
  while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
  }
  EXPECT_EQ(m_calls, before) << "nothing is called any more";
}

TEST_F(AxHttp, ServesAllThatWaitInOneTurnAndNoReadsInVain) {
  start();
  const auto asks = [this](const std::string& action) { return HttpClient(m_port, get("?action=" + action)); };
  // The main loop stands still, as during a long cycle.
  asks("set_all_parameters").leave();
  for (int i = 0; i < 200; ++i) ASSERT_TRUE(asks("get_status_code").leave()) << "a client that has gone is noticed";
  std::list<HttpClient> operators;
  while (operators.size() < 6) operators.emplace_back(m_port, get("?action=get_all_parameters"));
  ASSERT_TRUE(asks("get_status_code").leave()) << "whoever came before has been received";
  g_main_context_iteration(nullptr, TRUE);
  EXPECT_EQ(m_calls, 7) << "the save, whose client has gone, and those of the operators, in one turn";
  for (HttpClient& client : operators) EXPECT_EQ(client.receive().status, 200);
}

TEST_F(AxHttp, ListensOnlyWhenItIsTold) {
  ::unsetenv("VELMOR_LISTEN");
  testing::internal::CaptureStdout();
  m_handler = ax_http_handler_new(&AxHttp::called, this);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_NE(m_handler, nullptr);
  stop();
  ::setenv("VELMOR_LISTEN", "0.0.0.0:0", 1);
  start();
  EXPECT_EQ(ask("?action=get_status_code").status, 401) << "without people nobody comes in from elsewhere";
}

/// A patient is watched whatever is wrong with those who may look on.
TEST_F(AxHttp, NobodyIsLetInByADamagedListAndNoPageIsShownWithADamagedCertificate) {
  openlog("http_service_test", 0, LOG_USER);
  m_folder.write("people.json", "{");
  start();
  EXPECT_EQ(ask("?action=get_status_code").status, 401) << "on this machine as well";
  EXPECT_EQ(request(m_port, "POST", "/platform/session", kFormFromPage, "action=sign_in").status, 503);
  stop();
  EXPECT_NE(m_folder.read("system.log").find("people.json: is damaged"), std::string::npos);
  ::setenv("VELMOR_TLS", m_folder.path().c_str(), 1);
  m_folder.write("server.pem", "no certificate");
  EXPECT_EQ(ax_http_handler_new(&AxHttp::called, this), nullptr);
  EXPECT_NE(m_folder.read("system.log").find("there is no page: "), std::string::npos);
}

}  // namespace
