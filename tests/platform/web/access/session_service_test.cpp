#include "platform/workstation/web/access/session_service.h"

#include <syslog.h>

#include <atomic>
#include <nlohmann/json.hpp>

#include "platform/workstation/certificates/certificates.h"
#include "platform/workstation/people/secrets.h"
#include "platform/workstation/web/access/authority.h"
#include "platform/workstation/web/access/people_service.h"
#include "tests/platform/conditions.h"
#include "tests/platform/web/http_serving.h"

namespace {

using namespace workstation;
using namespace std::chrono_literals;
using nlohmann::json;

constexpr const char* kSession = "/platform/session";
constexpr const char* kPeople = "/platform/people";

class SignIn : public HttpServing {
 protected:
  void serve() {
    if (!m_settings.access) m_settings.access = std::make_shared<Access>(m_folder.path());
    m_server = std::make_unique<HttpServer>(m_settings);
    addSession(*m_server, m_settings.access, Lockout([this] { return Lockout::Clock::time_point(m_now.load()); }),
               m_grace);
    addAuthority(*m_server, m_folder / "tls");
    workstation::addPeople(*m_server, m_settings.access,
                           [this](const auto& by, const auto& what, const auto& from, const auto& to) {
                             m_noted += by + ": " + what + ": " + from + " -> " + to + "\n";
                           });
    m_server->addEndpoint("/platform/events", [](SoupServerMessage* message, const HttpQuery&) {
      soup_server_message_set_status(message, SOUP_STATUS_OK, nullptr);
      soup_message_headers_set_encoding(soup_server_message_get_response_headers(message), SOUP_ENCODING_CHUNKED);
      soup_message_body_append(soup_server_message_get_response_body(message), SOUP_MEMORY_STATIC, "open\n", 5);
    });
    m_port = m_server->listen(parseListenAddress("127.0.0.1:0"));
  }

  HttpReply post(const char* path, const std::string& form, const std::string& headers = "",
                 const char* from = "127.0.0.1") const {
    return HttpClient(m_port, requestText(m_port, "POST", path, kFormFromPage + headers, form), from).receive();
  }
  HttpReply signIn(const std::string& name, const std::string& password, const char* from = "127.0.0.1") const {
    return post(kSession, "action=sign_in&name=" + name + "&password=" + password, "", from);
  }
  static std::string cookieOf(const HttpReply& reply) {
    const auto found = reply.headers.find("set-cookie");
    return found == reply.headers.end() ? "" : "Cookie: " + found->second.substr(0, found->second.find(';')) + "\r\n";
  }
  json who(const std::string& headers) const { return json::parse(ask("GET", kSession, headers).body); }
  std::string installer() { return m_as[Role::kInstaller]; }

  std::string m_noted;
  std::chrono::milliseconds m_grace = 10min;
  std::atomic<Lockout::Clock::duration> m_now{Lockout::Clock::duration(1h)};
};

TEST_F(SignIn, IsNotNeededOnThisMachineUntilThereArePeople) {
  serve();
  EXPECT_EQ(
      who(""),
      json::parse(R"({"people":false,"name":"","role":"installer","token":false,"secure":false,"must_change":false})"));
  EXPECT_EQ(signIn("Ida", "the password").status, 409);
  EXPECT_EQ(post(kPeople, "action=add&name=Anna&role=carer").status, 409) << "nobody could add others";
  const HttpReply added = post(kPeople, "action=add&name=Ida&role=installer");
  ASSERT_EQ(added.status, 200);
  EXPECT_EQ(who(""),
            json::parse(R"({"people":true,"name":null,"role":null,"token":false,"secure":false,"must_change":false})"));
  EXPECT_EQ(ask("GET", kPeople).status, 401);
  const HttpReply in = signIn("ida", json::parse(added.body)["password"]);
  EXPECT_EQ(json::parse(in.body),
            json::parse(
                R"({"people":true,"name":"Ida","role":"installer","token":false,"secure":false,"must_change":true})"));
  EXPECT_EQ(ask("GET", kPeople, cookieOf(in)).status, 200);
}

TEST_F(SignIn, KeepsASessionInACookieThatNoScriptAndNoOtherPageGets) {
  addPeople();
  serve();
  HttpReply in = signIn("Ida", "the+password");
  const std::string cookie = cookieOf(in);
  EXPECT_EQ(in.headers["set-cookie"].substr(cookie.size() - 10),
            "; Path=/; HttpOnly; SameSite=Strict; Max-Age=2592000");
  EXPECT_EQ(who(cookie)["name"], "Ida");
  EXPECT_EQ(who("Cookie: a=b; " + cookie.substr(8))["name"], "Ida") << "beside others";
  EXPECT_EQ(who(cookie + m_as[Role::kCarer])["role"], "carer") << "a token goes before";
  EXPECT_EQ(ask("GET", kPeople, cookie + "Authorization: Bearer x\r\n").status, 401) << "and a wrong one is none";
  for (const char* bad : {"Cookie: velmor_session=x\r\n", "Cookie: ;;=;,\r\n", "Cookie: \r\n"}) {
    EXPECT_EQ(who(bad)["name"], nullptr) << bad;
  }
  const std::string form = "action=sign_in&name=Ida&password=the+password";
  const std::string type = "Content-Type: application/x-www-form-urlencoded\r\n";
  EXPECT_EQ(ask("POST", kSession, type, form).status, 403) << "a foreign page signs nobody in";
  EXPECT_EQ(ask("POST", kSession, type + "Origin: http://evil.example\r\n", form).status, 403);
  EXPECT_EQ(ask("POST", std::string(kSession) + "?" + form, kFormFromPage).status, 400) << "no secret in an address";
  for (const char* bad : {"action=x", "action=sign_in&action=out", "x=1"}) EXPECT_EQ(post(kSession, bad).status, 400);
  EXPECT_EQ(signIn("Ida", "a+password").status, 401);
  HttpReply out = post(kSession, "action=sign_out", cookie);
  EXPECT_NE(out.headers["set-cookie"].find("Max-Age=0"), std::string::npos);
  EXPECT_EQ(who(cookie)["name"], nullptr);
}

TEST_F(SignIn, OneWhoGuessesKeepsNobodyElseOut) {
  openlog("http_service_test", 0, LOG_USER);
  addPeople();
  m_settings.access->people()->add("Anna", Role::kCarer);
  m_settings.access->people()->setPassword("Anna", m_settings.access->people()->all()->person("Anna")->hash,
                                           "annas password");
  serve();
  int guesses = 0;
  while (guesses < 20 && signIn("Ida", "guess" + std::to_string(guesses)).status == 401) ++guesses;
  EXPECT_EQ(guesses, 5);
  HttpReply late = signIn("Ida", "the+password");
  EXPECT_EQ(std::to_string(late.status) + " " + late.headers["retry-after"], "429 1");
  EXPECT_EQ(signIn("Ida", "the+password", "127.0.0.2").status, 200) << "she, from elsewhere";
  EXPECT_EQ(signIn("Anna", "annas+password").status, 200) << "others, from there";
  m_now = m_now.load() + 1s;
  EXPECT_EQ(signIn("Ida", "the+password").status, 200) << "she, later";
  for (int unknown = 0; unknown < 5; ++unknown) EXPECT_EQ(signIn("secret" + std::to_string(unknown), "x").status, 401);
  EXPECT_EQ(signIn("secret9", "x").status, 429) << "all whom nobody knows count as one";
  const std::string log = m_folder.read("system.log");
  EXPECT_NE(log.find("a wrong password for Ida came from 127.0.0.1 (4 times lately)"), std::string::npos) << log;
  EXPECT_EQ(log.find("secret"), std::string::npos) << "a password in the wrong field";
}

TEST_F(SignIn, ANewPasswordEndsAllOtherSessions) {
  addPeople();
  serve();
  const std::string here = cookieOf(signIn("Ida", "the+password")), there = cookieOf(signIn("Ida", "the+password"));
  const auto change = [&](const std::string& old, const std::string& fresh, const std::string& headers) {
    return post(kSession, "action=password&old=" + old + "&new=" + fresh, headers);
  };
  EXPECT_EQ(change("the+password", "a+new+one", "").status, 401);
  EXPECT_EQ(change("the+password", "a+new+one", installer()).status, 401) << "a token has no password";
  EXPECT_EQ(change("wrong", "a+new+one", here).status, 403);
  EXPECT_EQ(change("the+password", "short", here).status, 400);
  const HttpReply changed = change("the+password", "a+new+one", here);
  EXPECT_EQ(json::parse(changed.body)["name"], "Ida");
  EXPECT_EQ(who(cookieOf(changed))["name"], "Ida");
  EXPECT_EQ(who(there)["name"], nullptr);
  EXPECT_EQ(who(here)["name"], "Ida") << "what the page has asked meanwhile";
  EXPECT_EQ(signIn("Ida", "the+password").status, 401);
  EXPECT_EQ(signIn("Ida", "a+new+one").status, 200);
}

TEST_F(SignIn, AStolenSessionDoesNotOutlastAChangeOfThePassword) {
  m_grace = 10ms;
  addPeople();
  serve();
  const std::string stolen = cookieOf(signIn("Ida", "the+password"));
  HttpClient feed(m_port, requestText(m_port, "GET", "/platform/events", stolen));
  feed.receiveUntil("open\n");
  const HttpReply changed = post(kSession, "action=password&old=the+password&new=a+new+one", stolen);
  EXPECT_TRUE(comes([&] { return who(stolen)["name"] == nullptr; }));
  EXPECT_TRUE(feed.seesEnd());
  EXPECT_EQ(who(cookieOf(changed))["name"], "Ida");
}

TEST_F(SignIn, PeopleAndTokensAreTheInstallersAndTheirChangesAreNoted) {
  addPeople();
  serve();
  const auto change = [&](const std::string& form) { return post(kPeople, form, installer()); };
  const HttpReply added = change("action=add&name=Anna&role=carer");
  const std::string password = json::parse(added.body)["password"];
  const std::string cookie = cookieOf(signIn("Anna", password));
  EXPECT_EQ(post(kPeople, "action=role&name=Anna&role=installer", cookie).status, 403);
  EXPECT_EQ(change("action=role&name=anna&role=nurse").status, 200);
  EXPECT_EQ(who(cookie)["role"], "nurse") << "at once";
  const std::string again = json::parse(change("action=reset&name=Anna").body)["password"];
  EXPECT_EQ(who(cookie)["name"], nullptr);
  EXPECT_EQ(signIn("Anna", password).status, 401);
  EXPECT_EQ(signIn("Anna", again).status, 200);
  EXPECT_EQ(change("action=remove&name=Anna").status, 200);
  EXPECT_EQ(signIn("Anna", again).status, 401);
  const json told = json::parse(change("action=add_token&name=wall&role=carer").body);
  const std::string wall = "Authorization: Bearer " + told["token"].get<std::string>() + "\r\n";
  const std::string id = told["tokens"].back()["id"];
  EXPECT_EQ(who(wall)["role"], "carer");
  EXPECT_EQ(ask("GET", kPeople, installer()).body.find(told["token"].get<std::string>()), std::string::npos);
  EXPECT_EQ(ask("GET", kPeople, installer()).body.find("$y$"), std::string::npos);
  const std::pair<const char*, int> refusals[] = {{"action=add&name=Ida&role=carer", 409},
                                                  {"action=add&name=B&role=carers", 400},
                                                  {"action=add&role=carer", 400},
                                                  {"action=role&name=Ida&role=nurse", 409},
                                                  {"action=remove&name=Ida", 409},
                                                  {"action=remove&name=No", 404},
                                                  {"action=revoke&id=0", 404},
                                                  {"action=x", 400},
                                                  {"x=1", 400}};
  for (const auto& [form, status] : refusals) EXPECT_EQ(change(form).status, status) << form;
  EXPECT_EQ(change("action=revoke&id=" + id).status, 200);
  EXPECT_EQ(who(wall)["name"], nullptr);
  m_server->stop();
  EXPECT_EQ(m_noted,
            "a installer: people.Anna:  -> carer\na installer: people.Anna: carer -> nurse\n"
            "a installer: people.Anna.password:  -> reset\na installer: people.Anna: nurse -> \n"
            "a installer: token.wall:  -> carer\na installer: token.wall: carer -> \n");
}

TEST_F(SignIn, AScreenSignsInWithItsTokenUntilThatIsRevoked) {
  addPeople();
  serve();
  const json told = json::parse(post(kPeople, "action=add_token&name=wall&role=carer", installer()).body);
  const std::string token = told["token"];
  const std::string screen = cookieOf(signIn("whoever", token));
  EXPECT_EQ(who(screen)["role"], "carer");
  EXPECT_EQ(who(screen)["name"], "wall");
  EXPECT_EQ(who(screen)["token"], true);
  EXPECT_EQ(post(kPeople, "action=add_token&name=ida&role=carer", installer()).status, 409)
      << "hers is a person's name";
  EXPECT_EQ(post(kPeople, "action=add&name=wall&role=carer", installer()).status, 409);
  EXPECT_EQ(ask("GET", kPeople, screen).status, 403);
  EXPECT_EQ(post(kSession, "action=password&old=" + token + "&new=another+password", screen).status, 403);
  EXPECT_EQ(signIn("Ida", token.substr(1)).status, 401);
  HttpClient feed(m_port, requestText(m_port, "GET", "/platform/events", screen));
  EXPECT_NE(feed.receiveUntil("open\n").find("open"), std::string::npos);
  const std::string id = told["tokens"].back()["id"];
  EXPECT_EQ(post(kPeople, "action=revoke&id=" + id, installer()).status, 200);
  EXPECT_TRUE(feed.seesEnd());
  EXPECT_EQ(who(screen)["name"], nullptr);
}

/// What is open goes on only for whoever would get it now.
TEST_F(SignIn, EndsTheFeedsOfWhoeverIsOutAndOfNobodyElse) {
  addPeople();
  serve();
  const std::string cookie = cookieOf(signIn("Ida", "the+password"));
  const auto feed = [&](const std::string& headers) { return requestText(m_port, "GET", "/platform/events", headers); };
  HttpClient hers(m_port, feed(cookie)), wall(m_port, feed(m_as[Role::kCarer])), other(m_port, feed(installer()));
  for (HttpClient* client : {&hers, &wall, &other})
    EXPECT_NE(client->receiveUntil("open\n").find("open"), std::string::npos);
  const std::string id = json::parse(ask("GET", kPeople, installer()).body)["tokens"][0]["id"];
  EXPECT_EQ(post(kPeople, "action=revoke&id=" + id, installer()).status, 200);
  EXPECT_TRUE(wall.seesEnd());
  EXPECT_EQ(post(kSession, "action=sign_out", cookie).status, 200);
  EXPECT_TRUE(hers.seesEnd());
  EXPECT_TRUE(other.isOpen(50ms));
}

/// What a browser gets over TLS that believes this authority, or nothing but the system's.
std::string overTls(std::uint16_t port, const std::string& path, const std::string& authority) {
  const GLibPtr<SoupSession> session(soup_session_new());
  if (!authority.empty()) {
    const GLibPtr<GTlsDatabase> believed(g_tls_file_database_new(authority.c_str(), nullptr));
    soup_session_set_tls_database(session.get(), believed.get());
  }
  const GLibPtr<SoupMessage> message(
      soup_message_new("POST", ("https://localhost:" + std::to_string(port) + path).c_str()));
  const std::string form = "action=sign_in&name=Ida&password=the+password";
  const GLibPtr<GBytes> body(g_bytes_new(form.data(), form.size()));
  soup_message_set_request_body_from_bytes(message.get(), "application/x-www-form-urlencoded", body.get());
  soup_message_headers_append(soup_message_get_request_headers(message.get()), "Origin",
                              ("https://localhost:" + std::to_string(port)).c_str());
  CaughtError error;
  const GLibPtr<GBytes> got(soup_session_send_and_read(session.get(), message.get(), nullptr, error.out()));
  if (!got) return "failed";
  const char* cookie = soup_message_headers_get_one(soup_message_get_response_headers(message.get()), "Set-Cookie");
  gsize size = 0;
  const auto* data = static_cast<const char*>(g_bytes_get_data(got.get(), &size));
  return std::to_string(soup_message_get_status(message.get())) + std::string(data, size) +
         (cookie == nullptr ? "" : std::string(cookie).substr(std::string(cookie).find(';')));
}

TEST_F(SignIn, OverTlsIsSecureForWhoeverBelievesTheAuthority) {
  prepareCertificates(m_folder / "tls", {"localhost", "127.0.0.1", "ward3.lan"});
  takeCertificate(m_folder / "tls", m_settings);
  addPeople();
  serve();
  HttpClient plain(m_port, requestText(m_port, "GET", kPage));
  EXPECT_TRUE(plain.seesEnd()) << "plain http says nothing";
  std::list<HttpClient> silent;
  while (silent.size() < 5) silent.emplace_back(m_port);
  EXPECT_EQ(overTls(m_port, kSession, m_folder / "tls/authority.crt"),
            "200{\"people\":true,\"name\":\"Ida\",\"role\":\"installer\",\"token\":false,\"secure\":true,"
            "\"must_change\":false}"
            "; Path=/; HttpOnly; SameSite=Strict; Max-Age=2592000; Secure");
  EXPECT_EQ(overTls(m_port, kSession, ""), "failed") << "nobody else vouches for it";
  m_server->stop();
  for (HttpClient& client : silent) EXPECT_TRUE(client.seesEnd());
}

/// For how many days the certificate is good that a new connection gets, and for how many names.
std::pair<std::int64_t, unsigned int> served(std::uint16_t port) {
  const GLibPtr<SoupSession> session(soup_session_new());
  const GLibPtr<SoupMessage> message(soup_message_new("GET", ("https://localhost:" + std::to_string(port)).c_str()));
  constexpr auto accept =
      +[](SoupMessage*, GTlsCertificate*, GTlsCertificateFlags, gpointer) -> gboolean { return TRUE; };
  g_signal_connect(message.get(), "accept-certificate", G_CALLBACK(accept), nullptr);
  const GLibPtr<GBytes> got(soup_session_send_and_read(session.get(), message.get(), nullptr, nullptr));
  GTlsCertificate* const certificate = soup_message_get_tls_peer_certificate(message.get());
  if (certificate == nullptr) return {0, 0};
  const std::unique_ptr<GDateTime, decltype(&g_date_time_unref)> end(g_tls_certificate_get_not_valid_after(certificate),
                                                                     &g_date_time_unref);
  const std::unique_ptr<GPtrArray, decltype(&g_ptr_array_unref)> names(g_tls_certificate_get_dns_names(certificate),
                                                                       &g_ptr_array_unref);
  return {(g_date_time_to_unix(end.get()) - std::time(nullptr)) / 86400, names ? names->len : 0};
}

TEST_F(SignIn, ACertificateThatEndsWhileTheProgramRunsIsRenewedOrStaffIsTold) {
  const std::vector<std::string> names = {"localhost"};
  prepareCertificates(m_folder / "tls", names, std::chrono::system_clock::now() - std::chrono::days(810));
  takeCertificate(m_folder / "tls", m_settings);
  const std::string authority = m_folder.read("tls/authority.pem");
  m_folder.write("tls/authority.pem", "damaged");
  addPeople();
  serve();
  EXPECT_EQ(served(m_port), std::pair(std::int64_t{9}, 1U));
  const CertificateKeeper keeper(*m_server, {.folder = m_folder / "tls", .period = 10ms});
  EXPECT_TRUE(comes([] { return textOf(Trouble::kCertificateEnds).find("cannot be renewed") != std::string::npos; }));
  m_folder.write("tls/authority.pem", authority);
  EXPECT_TRUE(comes([this] { return served(m_port).first > 800; }));
  EXPECT_TRUE(comes([] { return textOf(Trouble::kCertificateEnds).empty(); }));
  prepareCertificates(m_folder / "tls", {"localhost", "ward3.lan"});
  EXPECT_TRUE(comes([this] { return served(m_port).second == 2; })) << "one that was made beside it";
  m_server->stop();
}

}  // namespace
