// A web server on a thread of its own, with a page, and people who may see it.
#pragma once

#include <gtest/gtest.h>
#include <libsoup/soup.h>

#include <chrono>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/support/owners.h"
#include "platform/workstation/people/people.h"
#include "platform/workstation/web/access/access.h"
#include "platform/workstation/web/http_server.h"
#include "tests/platform/http_client.h"
#include "tests/platform/state_folder.h"

inline constexpr const char* kFromPage = "X-Requested-With: test\r\n";
inline constexpr const char* kPage = "/local/velmor_care/index.html";
inline constexpr const char* kFormFromPage =
    "X-Requested-With: test\r\nContent-Type: application/x-www-form-urlencoded\r\n";
inline constexpr const char* kProgram = "/local/velmor_care/control.cgi";

/// A server with a page, a program that says what it was asked, and a secret beside the page.
class HttpServing : public testing::Test {
 protected:
  HttpServing() {
    for (const char* folder : {"html", "html/lib", "outside"}) std::filesystem::create_directory(m_folder / folder);
    m_folder.write("html/index.html", "<title>page</title>");
    m_folder.write("html/lib/app.js", "export {};");
    for (const char* file : {"html/.hidden", "secret.txt", "outside/secret.txt"}) m_folder.write(file, "secret");
    std::filesystem::create_symlink(m_folder / "secret.txt", m_folder / "html/link.txt");
    std::filesystem::create_directory_symlink(m_folder / "outside", m_folder / "html/linked");
    std::filesystem::create_directory_symlink(m_folder / "html", m_folder / "page");
    m_settings.page = m_folder / "page";
  }

  /// What is still written belongs into the folder.
  ~HttpServing() override {
    if (m_server) m_server->stop();
    if (m_settings.access) m_settings.access->sessions().settle(std::chrono::seconds(10));
  }

  /// From the next start on people sign in: Ida, who installs, and a token for each role.
  void addPeople() {
    workstation::People people(m_folder.path());
    people.makeInstaller("Ida", "the password");
    for (const auto role : {workstation::Role::kCarer, workstation::Role::kNurse, workstation::Role::kInstaller}) {
      const std::string name = "a " + std::string(nameOf(role));
      m_as[role] = "Authorization: Bearer " + people.addToken(name, role) + "\r\n";
    }
    m_settings.access = std::make_shared<workstation::Access>(m_folder.path());
  }

  void listen() {
    m_server = std::make_unique<workstation::HttpServer>(m_settings);
    m_server->setProgram([](SoupServerMessage* message, const workstation::ProgramRequest& request) {
      std::string said = request.method + " " + request.path + " ?" + request.query.value_or("(none)");
      for (const auto& [key, value] : request.parameters.value_or(workstation::HttpQuery()))
        said.append(" ").append(key).append("=").append(value);
      workstation::answerLine(message, SOUP_STATUS_OK, said);
    });
    m_server->addEndpoint("/axis-cgi/param.cgi", [](SoupServerMessage* message, const workstation::HttpQuery& query) {
      workstation::answerLine(message, SOUP_STATUS_OK, "action " + query.at("action"));
    });
    m_server->addEndpoint("/held", [this](SoupServerMessage* message, const workstation::HttpQuery&) {
      soup_server_message_pause(message);
      m_held.push_back(message);
    });
    m_port = m_server->listen(workstation::parseListenAddress("127.0.0.1:0"));
  }
  HttpReply ask(const std::string& method, const std::string& path, const std::string& headers = "",
                const std::string& body = "") const {
    return request(m_port, method, path, headers, body);
  }

  StateFolder m_folder;
  workstation::HttpServerSettings m_settings;
  std::vector<SoupServerMessage*> m_held;         ///< no answer yet
  std::map<workstation::Role, std::string> m_as;  ///< headers with a token
  std::unique_ptr<workstation::HttpServer> m_server;
  std::uint16_t m_port = 0;
};
