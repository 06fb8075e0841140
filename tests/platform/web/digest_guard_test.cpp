// The guard alone, before a server on the test's own main loop, on a clock that the test turns.
#include "platform/workstation/web/digest_guard.h"

#include <gtest/gtest.h>
#include <syslog.h>

#include "tests/platform/http_client.h"
#include "tests/platform/state_folder.h"

namespace {

using namespace std::chrono_literals;
using workstation::DigestGuard;

std::string md5(const std::string& text) {
  return GLibPtr<gchar>(g_compute_checksum_for_string(G_CHECKSUM_MD5, text.c_str(), -1)).get();
}

class Guard : public testing::Test {
 protected:
  Guard() {
    openlog("velmor_test", 0, LOG_USER);
    constexpr auto answered = +[](SoupServer*, SoupServerMessage* message, const char*, GHashTable*, gpointer) {
      soup_server_message_set_status(message, SOUP_STATUS_OK, nullptr);
    };
    constexpr auto guarded = +[](SoupServerMessage* message, gpointer guard) {
      auto* self = static_cast<Guard*>(guard);
      soup_message_headers_replace(soup_server_message_get_response_headers(message), "Connection", "close");
      if (soup_server_message_get_status(message) == 0) return;
      self->m_wait = self->m_guard.challenge(message, self->m_address);
    };
    constexpr auto started = +[](SoupServer*, SoupServerMessage* message, gpointer guard) {
      g_signal_connect(message, "got-headers", G_CALLBACK(guarded), guard);
    };
    soup_server_add_handler(m_server.get(), nullptr, answered, nullptr, nullptr);
    g_signal_connect(m_server.get(), "request-started", G_CALLBACK(started), this);
    EXPECT_TRUE(soup_server_listen_local(m_server.get(), 0, SOUP_SERVER_LISTEN_IPV4_ONLY, nullptr));
    GSList* uris = soup_server_get_uris(m_server.get());
    m_port = static_cast<std::uint16_t>(g_uri_get_port(static_cast<GUri*>(uris->data)));
    g_slist_free_full(uris, reinterpret_cast<GDestroyNotify>(g_uri_unref));
  }
  ~Guard() override {
    soup_server_disconnect(m_server.get());
    while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
    }
    closelog();
  }

  /// "in", "stale" where the challenge is not good (any more), "wrong" for the password; a refusal's challenge is next.
  std::string ask(const std::string& proof) {
    m_wait = -1ms;
    HttpReply reply = request(m_port, "GET", "/", proof);
    const std::string said = reply.headers["www-authenticate"];
    if (reply.status == 200) return "in";
    const std::size_t nonce = said.find("nonce=\"") + 7;
    m_nonce = said.substr(nonce, said.find('"', nonce) - nonce);
    return said.find("stale=true") != std::string::npos ? "stale" : "wrong";
  }
  /// The same, for a challenge, the count that goes with it and a password.
  std::string answer(const std::string& nonce, unsigned long count, const std::string& password = "the password") {
    const std::string nc = GLibPtr<gchar>(g_strdup_printf("%08lx", count)).get();
    const std::string secret = md5("ward:velmor_care:" + password);
    const std::string response = md5(secret + ":" + nonce + ":" + nc + ":c:auth:" + md5("GET:/"));
    return ask(R"(Authorization: Digest username="ward", realm="velmor_care", nonce=")" + nonce +
               R"(", uri="/", qop=auth, cnonce="c", nc=)" + nc + ", response=\"" + response + "\"\r\n");
  }
  std::string freshNonce() {
    EXPECT_EQ(ask(""), "wrong");
    EXPECT_EQ(m_wait, 0ms) << "nothing was tried";
    return m_nonce;
  }
  /// How long the answer to one more wrong password from there waits. It answers the last refusal's challenge.
  std::chrono::milliseconds waitAfterAGuess(const std::string& address) {
    m_address = address;
    if (answer(m_nonce, 1, "a guess") == "stale") answer(m_nonce, 1, "a guess");
    return m_wait;
  }

  StateFolder m_folder;
  GLibPtr<SoupServer> m_server{soup_server_new(nullptr, nullptr)};
  DigestGuard::Clock::time_point m_now = DigestGuard::Clock::now();
  DigestGuard m_guard{m_server.get(), "ward", "the password", [this] { return m_now; }};
  std::uint16_t m_port = 0;
  std::string m_address = "10.0.0.1", m_nonce;
  std::chrono::milliseconds m_wait{};
};

TEST_F(Guard, TakesEachCountOfAChallengeOnceWhateverTheirOrder) {
  const std::string nonce = freshNonce();
  const std::pair<unsigned long, const char*> counts[] = {
      {3, "in"},    {1, "in"},     {2, "in"},   {1, "stale"},   {2, "stale"},    {3, "stale"},   // they may overtake
      {66, "in"},   {3, "stale"},  {4, "in"},   {4, "stale"},   {66, "stale"},   {2, "stale"},   // 3 is at the edge
      {130, "in"},  {66, "stale"}, {67, "in"},  {67, "stale"},  {130, "stale"},  {65, "stale"},  // 66 is past it
      {1000, "in"}, {937, "in"},   {999, "in"}, {937, "stale"}, {1000, "stale"}, {936, "stale"}};
  for (const auto& [count, outcome] : counts) EXPECT_EQ(answer(nonce, count), outcome) << count;
  EXPECT_EQ(m_wait, 0ms) << "who knows the password is never kept waiting";
  EXPECT_EQ(answer("0123456789abcdef0123456789abcdef", 1), "stale") << "a challenge of nobody's";
}

TEST_F(Guard, ForgetsAChallengeAfterTenMinutesAndTheOldestOfTooMany) {
  const std::string recorded = freshNonce();
  m_now += 10min;
  EXPECT_EQ(answer(recorded, 1), "in");
  m_now += 1ms;
  EXPECT_EQ(answer(recorded, 2), "stale");
  m_now += 11min;
  const std::string oldest = freshNonce();
  std::string newest;
  const auto flood = [&](int challenges) {
    for (int i = 0; i < challenges; ++i, newest = freshNonce()) m_now += 1ms;
  };
  flood(511);
  EXPECT_EQ(answer(oldest, 1), "in");
  flood(1);
  EXPECT_EQ(answer(oldest, 2), "stale");
  EXPECT_EQ(answer(newest, 1), "in");
}

TEST_F(Guard, AnswersGuessesFromAnAddressLaterAndLaterUntilNoneHasComeForTenMinutes) {
  for (const auto wait : {500ms, 1000ms, 2000ms, 4000ms, 8000ms, 8000ms}) EXPECT_EQ(waitAfterAGuess("a"), wait);
  EXPECT_EQ(waitAfterAGuess("b"), 500ms);
  EXPECT_EQ(answer(freshNonce(), 1), "in");
  const auto lines = [this](const std::string& of) {
    const std::string log = m_folder.read("system.log");
    return log.find(of) != std::string::npos && log.find(of) == log.rfind(of);
  };
  EXPECT_TRUE(lines("page came from a (")) << "once a minute";
  m_now += 61s;
  waitAfterAGuess("a");
  EXPECT_TRUE(lines("page came from a (6 times since the last such line)")) << m_folder.read("system.log");
  m_now += 10min - 61s;
  EXPECT_EQ(waitAfterAGuess("b"), 1000ms);
  m_now += 10min;
  EXPECT_EQ(waitAfterAGuess("b"), 2000ms);
  m_now += 10min + 1ms;
  EXPECT_EQ(waitAfterAGuess("b"), 500ms);
}

TEST_F(Guard, ForgetsTheAddressThatTriedLongestAgoOfTooMany) {
  for (int i = 0; i < 256; ++i, m_now += 1ms) EXPECT_EQ(waitAfterAGuess(std::to_string(i)), 500ms);
  EXPECT_EQ(waitAfterAGuess("0"), 1000ms);
  m_now += 1ms;
  EXPECT_EQ(waitAfterAGuess("one more"), 500ms);
  EXPECT_EQ(waitAfterAGuess("0"), 2000ms);
  EXPECT_EQ(waitAfterAGuess("1"), 500ms);
}

}  // namespace
