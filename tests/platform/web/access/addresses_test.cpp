// Every address of the server, with everybody who may come or may not.
#include "platform/workstation/web/access/addresses.h"

#include <algorithm>
#include <fstream>
#include <set>

#include "tests/platform/web/http_serving.h"

namespace {

using namespace workstation;

constexpr std::optional<Role> kStranger = std::nullopt;
constexpr std::optional<Role> kVisitors[] = {kStranger, Role::kCarer, Role::kNurse, Role::kInstaller};

/// A server with every address of the list, which notes what has been reached.
class Addresses : public HttpServing {
 protected:
  void serve() {
    addPeople();
    m_server = std::make_unique<HttpServer>(m_settings);
    for (const AddressRule& rule : addressRules()) {
      const std::string path(rule.path);
      if (path == "/" || path.ends_with('*') || path == kProgram) continue;
      m_server->addEndpoint(path, [this, path](SoupServerMessage* message, const HttpQuery&) { reach(message, path); });
      m_server->addForm(
          path, [this, path](SoupServerMessage* message, const ProgramRequest&) { reach(message, "POST " + path); });
    }
    m_server->setProgram([this](SoupServerMessage* message, const ProgramRequest& request) {
      const auto query = request.parameters.value_or(HttpQuery());
      const auto action = query.find("action");
      reach(message, "action " + (action == query.end() ? "" : action->second));
    });
    m_port = m_server->listen(parseListenAddress("127.0.0.1:0"));
  }
  void reach(SoupServerMessage* message, const std::string& what) {
    m_reached.insert(what);
    answerLine(message, SOUP_STATUS_OK, visitorOf(message).name);
  }
  std::string headersOf(std::optional<Role> visitor) { return visitor ? m_as[*visitor] : ""; }

  /// With a value of the rule's parameter, or with one that fits no rule.
  HttpReply askFor(const AddressRule& rule, const std::string& method, std::optional<Role> visitor) {
    const std::string form = rule.parameter.empty() ? "action=x&anonymised=0" : std::string(rule.parameter);
    const std::string path = rule.path.ends_with('*') ? kPage : std::string(rule.path);
    if (method == "POST") return ask("POST", path, kFormFromPage + headersOf(visitor), form);
    return ask(method, path + "?" + form, kFromPage + headersOf(visitor));
  }

  std::set<std::string> m_reached;
};

TEST_F(Addresses, EachIsForItsLeastRoleAndAbove) {
  serve();
  for (const AddressRule& rule : addressRules()) {
    for (const std::string method : {"GET", "HEAD", "POST"}) {
      const auto lists = [&method](const AddressRule& one) {
        return one.methods.find(method == "HEAD" ? "GET" : method) != std::string_view::npos;
      };
      const bool is_listed = lists(rule);
      const auto all = addressRules();
      const bool is_anothers = std::any_of(
          all.begin(), all.end(), [&](const AddressRule& other) { return other.path == rule.path && lists(other); });
      if (!is_listed && is_anothers) continue;
      for (const auto visitor : kVisitors) {
        const bool is_anybodys = is_listed && !rule.least;
        const Role least = is_listed ? rule.least.value_or(Role::kCarer) : Role::kInstaller;
        const bool may = is_anybodys || (visitor && *visitor >= least);
        const int status = askFor(rule, method, visitor).status;
        const int refusal = visitor ? 403 : 401;
        EXPECT_EQ(status == refusal, !may) << method << " " << rule.path << "?" << rule.parameter << " " << status
                                           << (visitor ? nameOf(*visitor) : "stranger");
        EXPECT_TRUE(!may || status == 200 || status == 302 || status == 405) << method << " " << rule.path << status;
      }
    }
  }
}

TEST_F(Addresses, StandInTheDocumentsWithTheirRoles) {
  std::string expected;
  for (const AddressRule& rule : addressRules()) {
    expected += "| " + std::string(rule.methods) + " | `" + std::string(rule.path) + "` | " +
                (rule.parameter.empty() ? "" : "`" + std::string(rule.parameter) + "` ") + "| " +
                (rule.least ? std::string(nameOf(*rule.least)) : "anybody") + " |\n";
  }
  std::ifstream document(SOURCE_DIRECTORY "/docs/http.md");
  std::string table;
  for (std::string line; std::getline(document, line);) {
    if (line.starts_with("| GET") || line.starts_with("| POST")) table += line + "\n";
  }
  EXPECT_EQ(table, expected);
}

/// Whatever a carer writes, the program and the endpoints see nothing that is not a carer's.
TEST_F(Addresses, NoWayOfWritingARequestGetsACarerMore) {
  serve();
  const std::string program = kProgram, form = "application/x-www-form-urlencoded";
  std::vector<std::tuple<const char*, std::string, std::string>> tries;
  for (const char* path : {"//axis-cgi/jpg/image.cgi",
                           "/axis-cgi//jpg/image.cgi",
                           "/./axis-cgi/jpg/image.cgi",
                           "/axis-cgi/jpg/./image.cgi",
                           "/local/../axis-cgi/jpg/image.cgi",
                           "/local/%2e%2e/axis-cgi/jpg/image.cgi",
                           "/axis-cgi/jpg/image%2ecgi",
                           "/%61xis-cgi/jpg/image.cgi",
                           "/axis-cgi%2fjpg%2fimage.cgi",
                           "/axis-cgi/jpg/image.cgi/",
                           "/axis-cgi/jpg/image.cgi;x",
                           "/AXIS-CGI/jpg/image.cgi",
                           "/axis-cgi/jpg/image.cgi%00",
                           "/axis-cgi/jpg/image.cgi?anonymised=1",
                           "/axis-cgi/mjpg/video.cgi?anonymised=1&resolution=640x360",
                           "/local/velmor_care/../../axis-cgi/jpg/image.cgi",
                           "/platform/sight",
                           "/platform/sight?anonymised=0",
                           "/platform/sight?anonymised=1&anonymised=1",
                           "/platform/sight?anonymised",
                           "/platform/sight?Anonymised=1",
                           "/platform/sight?anonymised=1&anonymised=0",
                           "/platform/people",
                           "/platform/people/",
                           "/platform/camera/picture",
                           "/platform/settings?x",
                           "/platform/changes",
                           "/platform/unknown",
                           "/local/velmor_care/x/control.cgi",
                           "/local/velmor_care//control.cgi?action=get_status_code",
                           "/local/velmor_care/Control.cgi"}) {
    for (const char* method : {"GET", "HEAD", "POST"}) tries.emplace_back(method, path, "");
  }
  for (const char* query : {"",
                            "?",
                            "?action",
                            "?action=",
                            "?action=set_all_parameters",
                            "?action=toggle_dev_mode",
                            "?action=find_pattern",
                            "?action=log_intrinsic_matrix",
                            "?action=get_all_parameters",
                            "?%61ction=get_all_parameters",
                            "?action=get_all%5fparameters",
                            "?action=get_status_code&action=set_all_parameters",
                            "?action=set_all_parameters&action=get_status_code",
                            "?action=get_status_code&%61ction=get_status_code",
                            "?Action=get_status_code",
                            "?action=GET_STATUS_CODE",
                            "?action=get_status_code%20",
                            "?action=get_status_codes",
                            "?action=get_status_code;action=set_all_parameters",
                            "?action=get_status_code%00",
                            "?action=%zz",
                            "?x=1;action=get_status_code",
                            "?action+=get_status_code"}) {
    for (const char* method : {"GET", "POST"}) tries.emplace_back(method, program + query, "");
  }
  tries.emplace_back("POST", program + "?action=get_status_code", "action=set_all_parameters");
  tries.emplace_back("GET", program + "?action=get_status_code", "action=set_all_parameters");
  tries.emplace_back("POST", program, "action=get_all_parameters");
  tries.emplace_back("POST", "/platform/calls", "action=x");
  for (const auto& [method, path, body] : tries) {
    const HttpReply reply = ask(method, path, kFormFromPage + m_as[Role::kCarer], body);
    EXPECT_TRUE(reply.status == 403 || reply.status == 400 || reply.status == 404)
        << method << " " << path << " " << body << " " << reply.status;
    EXPECT_EQ(m_reached, std::set<std::string>()) << method << " " << path << " " << body;
  }
  EXPECT_EQ(
      ask("POST", program + "?action=set_all_parameters", kFormFromPage + m_as[Role::kCarer], "action=get_status_code")
          .status,
      200)
      << "the body is what is obeyed";
  EXPECT_EQ(m_reached, std::set<std::string>{"action get_status_code"});
}

TEST_F(Addresses, AStrangerIsAskedForATokenUnlessItIsABrowser) {
  serve();
  const std::string path = "/axis-cgi/jpg/image.cgi", nurse = m_as[Role::kNurse];
  const std::string token = nurse.substr(nurse.rfind(' ') + 1, 64);
  const GLibPtr<gchar> basic(
      g_base64_encode(reinterpret_cast<const guchar*>(("any:" + token).data()), token.size() + 4));
  const GLibPtr<gchar> wrong(
      g_base64_encode(reinterpret_cast<const guchar*>((token + ":any").data()), token.size() + 4));
  EXPECT_EQ(ask("GET", path).headers["www-authenticate"].rfind("Basic ", 0), 0U);
  EXPECT_EQ(ask("GET", path, "User-Agent: Mozilla/5.0 (X11)\r\n").headers.count("www-authenticate"), 0U);
  EXPECT_EQ(ask("GET", path, "Authorization: Basic " + std::string(basic.get()) + "\r\n").body, "a nurse\n");
  EXPECT_EQ(ask("GET", path, "authorization: bearer " + token + "\r\n").status, 200);
  for (const std::string& bad : {"Basic " + std::string(wrong.get()), std::string("Basic"), std::string("Basic *"),
                                 "Bearer " + token.substr(1), std::string("Bearer "), "Digest " + token, token}) {
    EXPECT_EQ(ask("GET", path, "Authorization: " + bad + "\r\n").status, 401) << bad;
  }
  EXPECT_EQ(ask("GET", path, nurse + "Host: evil.example\r\n").status, 403) << "the other guards stand";
  EXPECT_EQ(m_reached, std::set<std::string>{path});
}

}  // namespace
