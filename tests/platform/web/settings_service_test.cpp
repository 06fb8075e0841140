// The page's way to the settings as a file, and to who has changed them.
#include "platform/workstation/web/settings_service.h"

#include <nlohmann/json.hpp>

#include "platform/workstation/parameters/changes.h"
#include "platform/workstation/parameters/stored_parameters.h"
#include "tests/platform/web/http_serving.h"

using namespace workstation;
using nlohmann::json;

namespace {

constexpr const char* kForm = "X-Requested-With: test\r\nContent-Type: application/x-www-form-urlencoded\r\n";
const std::string kSettings = "/platform/settings";

class SettingsServing : public HttpServing {
 protected:
  void serve() {
    m_folder.write("camera.json", R"({"source": "film"})");
    m_server = std::make_unique<HttpServer>(m_settings);
    addSettings(*m_server, m_folder / "manifest.json", [this](SoupServerMessage* message, const ParameterGroup& given) {
      m_taken.push_back(given);
      answerLine(message, SOUP_STATUS_OK, "taken");
    });
    m_port = m_server->listen(parseListenAddress("127.0.0.1:0"));
  }
  HttpReply post(const std::string& form, const char* headers = kForm) const {
    return ask("POST", kSettings, headers, form);
  }

  std::vector<ParameterGroup> m_taken;
};

TEST_F(SettingsServing, AreGivenAsAFileAndTakenOnlyAsGoodOnes) {
  m_folder.write("manifest.json", R"({"parameters": [
      {"name": "Sensitivity", "default": "0.38", "type": "float", "min": 0, "max": 1}]})");
  serve();
  tellParameters({{"Sensitivity", "0.5"}});
  HttpReply file = ask("GET", kSettings);
  EXPECT_EQ(json::parse(file.body), json::parse(R"({"parameters": {"Sensitivity": "0.5"}})"));
  EXPECT_EQ(file.headers["content-disposition"], "attachment; filename=\"velmor_care.settings.json\"");
  const auto document = [](const std::string& value) {
    return "document=%7B%22parameters%22%3A%7B%22Sensitivity%22%3A%22" + value + "%22%7D%7D";
  };
  EXPECT_EQ(post(document("0.7")).body, "taken\n");
  EXPECT_EQ(m_taken, (std::vector<ParameterGroup>{{{"Sensitivity", "0.7"}}}));
  const HttpReply refused = post(document("7"));
  EXPECT_EQ(refused.status, 400);
  EXPECT_EQ(refused.body,
            "Nothing was changed: the document: parameters: \"Sensitivity\" must be a number from 0 to 1\n");
  EXPECT_EQ(post(document("0.7"), "Content-Type: application/x-www-form-urlencoded\r\n").status, 403);
  EXPECT_EQ(ask("POST", kSettings + "?" + document("0.7"), kFromPage).status, 400) << "an address is remembered";
  for (const char* form : {"", "document", "other=1"}) EXPECT_EQ(post(form).status, 400) << form;
  EXPECT_EQ(m_taken.size(), 1U);
}

TEST_F(SettingsServing, AreNotTakenWithoutThePackagesRules) {
  serve();
  const HttpReply refused = post("document={}");
  EXPECT_EQ(refused.status, 500);
  EXPECT_NE(refused.body.find("manifest.json"), std::string::npos) << refused.body;
  EXPECT_EQ(m_taken.size(), 0U);
}

TEST_F(SettingsServing, TellsWhoHasChangedWhatNewestFirst) {
  serve();
  openChanges(m_folder.path());
  for (const char* key : {"a", "b", "c"}) noteChange("Anna", key, "1", "2");
  const auto keys = [this](const std::string& query) {
    std::string found;
    const json document = json::parse(ask("GET", "/platform/changes" + query).body);
    for (const json& one : document["changes"]) found += one["key"];
    return found;
  };
  EXPECT_EQ(keys(""), "cba");
  EXPECT_EQ(keys("?limit=2"), "cb");
  for (const char* limit : {"", "0", "-1", "1001", "2x"}) {
    EXPECT_EQ(ask("GET", std::string("/platform/changes?limit=") + limit).status, 400) << limit;
  }
}

TEST_F(SettingsServing, ShowWholeAddressesOfReceiversToInstallersOnly) {
  addPeople();
  serve();
  openChanges(m_folder.path());
  const char* calls =
      R"([{"url":"https://hook.example/T1/key","name":"a"},{"url":"http://b?key"},{"url":"http://c/"}])";
  noteChange("Ida", "calls", R"([{"url":"https://hook.example"}])", calls);
  const auto to = [this](Role role, const char* end) {
    return json::parse(ask("GET", "/platform/changes", m_as[role]).body)["changes"][0][end].get<std::string>();
  };
  EXPECT_EQ(to(Role::kInstaller, "to"), calls);
  EXPECT_EQ(to(Role::kNurse, "from"), R"([{"url":"https://hook.example"}])");
  EXPECT_EQ(to(Role::kNurse, "to"),
            R"([{"url":"https://hook.example/...","name":"a"},{"url":"http://b/..."},{"url":"http://c/"}])");
}

}  // namespace
