#include "platform/workstation/web/access/people_service.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

#include "platform/workstation/web/access/forms.h"
#include "platform/workstation/web/access/side_work.h"

namespace workstation {
namespace {

using nlohmann::ordered_json;

constexpr const char* kPath = "/platform/people";
constexpr size_t kMostWaiting = 32;

ordered_json documentOf(const Register& all) {
  ordered_json document = {{"people", ordered_json::array()}, {"tokens", ordered_json::array()}};
  for (const Person& person : all.people) {
    document["people"].push_back({{"name", person.name}, {"role", nameOf(person.role)}});
  }
  for (const Token& token : all.tokens) {
    document["tokens"].push_back(
        {{"id", token.id}, {"name", token.name}, {"role", nameOf(token.role)}, {"made", token.made}});
  }
  return document;
}

/// What somebody asked for, made out before any work begins.
struct Change {
  std::string action, by, name, id;
  Role role = Role::kCarer;
};

/// What has become of it.
struct Changed {
  std::string what, from, to;  ///< for whoever is told of changes
  ordered_json shown_once = ordered_json::object();
};

std::string roleOf(const Register& all, const std::string& name) {
  const Person* const person = all.person(name);
  return person == nullptr ? "" : std::string(nameOf(person->role));
}

/// As it is kept, for who has said it in other letters.
std::string keptName(const Register& all, const std::string& name) {
  const Person* const person = all.person(name);
  return person == nullptr ? name : person->name;
}

Changed changePerson(People& people, const Change& change) {
  const auto before = people.all();
  const std::string name = keptName(*before, change.name);
  Changed changed{"people." + nameFrom(name).value_or(""), roleOf(*before, name), "", ordered_json::object()};
  if (change.action == "add") {
    changed.shown_once["password"] = people.add(name, change.role);
  } else if (change.action == "role") {
    people.setRole(name, change.role);
  } else if (change.action == "reset") {
    changed.shown_once["password"] = people.reset(name);
    changed.what += ".password";
  } else {
    people.remove(name);
  }
  changed.to = change.action == "reset" ? "reset" : roleOf(*people.all(), name);
  if (change.action == "reset") changed.from.clear();
  return changed;
}

Changed changeToken(People& people, const Change& change) {
  Changed changed;
  if (change.action == "add_token") {
    changed.shown_once["token"] = people.addToken(change.name, change.role);
    changed.what = "token." + nameFrom(change.name).value_or("");
    changed.to = nameOf(change.role);
    return changed;
  }
  const auto before = people.all();
  const auto token = std::find_if(before->tokens.begin(), before->tokens.end(),
                                  [&change](const Token& one) { return one.id == change.id; });
  people.revoke(change.id);
  if (token != before->tokens.end()) {
    changed.what = "token." + token->name;
    changed.from = nameOf(token->role);
  }
  return changed;
}

bool isForToken(const std::string& action) { return action == "add_token" || action == "revoke"; }

/// On the server's thread.
class Service {
 public:
  Service(HttpServer& server, std::shared_ptr<Access> access, ChangeNoted noted)
      : m_server(server),
        m_access(std::move(access)),
        m_noted(std::move(noted)),
        m_work(server.context(), kMostWaiting) {}

  void tell(SoupServerMessage* message) { answerDocument(message, documentOf(*m_access->people()->all())); }
  void obey(SoupServerMessage* message, const ProgramRequest& request);

 private:
  static Change changeFrom(SoupServerMessage* message, const HttpQuery& form);
  void end(SoupServerMessage* message, const Changed& changed);

  HttpServer& m_server;
  const std::shared_ptr<Access> m_access;
  const ChangeNoted m_noted;
  SideWork m_work;
};

Change Service::changeFrom(SoupServerMessage* message, const HttpQuery& form) {
  Change change{fieldOf(form, "action"), visitorOf(message).name, fieldOf(form, "name"), fieldOf(form, "id"), {}};
  constexpr const char* kActions[] = {"add", "role", "reset", "remove", "add_token", "revoke"};
  if (std::find(std::begin(kActions), std::end(kActions), change.action) == std::end(kActions)) {
    throw Refusal{SOUP_STATUS_BAD_REQUEST, "The action is add, role, reset, remove, add_token or revoke."};
  }
  if (change.action == "add" || change.action == "role" || change.action == "add_token") {
    change.role = roleFieldOf(form);
  }
  return change;
}

void Service::obey(SoupServerMessage* message, const ProgramRequest& request) {
  try {
    const Change change = changeFrom(message, formOf(request));
    const auto work = [this, change, people = m_access->people(), noted = m_noted]() -> SideWork::Outcome {
      try {
        const Changed changed =
            isForToken(change.action) ? changeToken(*people, change) : changePerson(*people, change);
        if (noted) noted(change.by, changed.what, changed.from, changed.to);
        return [this, changed](SoupServerMessage* asking) { end(asking, changed); };
      } catch (const PeopleRefusal& refused) {
        return [refusal = refusalOf(refused)](SoupServerMessage* asking) {
          if (asking != nullptr) answerLine(asking, refusal.status, refusal.line);
        };
      }
    };
    if (!m_work.start(message, work)) {
      throw Refusal{SOUP_STATUS_SERVICE_UNAVAILABLE, "The disk does not answer; try again later."};
    }
  } catch (const Refusal& refusal) {
    answerLine(message, refusal.status, refusal.line);
  }
}

void Service::end(SoupServerMessage* message, const Changed& changed) {
  m_server.recheck();
  if (message == nullptr) return;
  ordered_json document = documentOf(*m_access->people()->all());
  document.update(changed.shown_once);
  answerDocument(message, document);
}

}  // namespace

void addPeople(HttpServer& server, const std::shared_ptr<Access>& access, ChangeNoted noted) {
  const auto service = std::make_shared<Service>(server, access, std::move(noted));
  server.addEndpoint(kPath, [service](SoupServerMessage* message, const HttpQuery&) { service->tell(message); });
  server.addForm(
      kPath, [service](SoupServerMessage* message, const ProgramRequest& request) { service->obey(message, request); });
}

}  // namespace workstation
