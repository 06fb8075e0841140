#include "platform/workstation/web/access/session_service.h"

#include <syslog.h>

#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>

#include "platform/workstation/people/secrets.h"
#include "platform/workstation/web/access/forms.h"
#include "platform/workstation/web/access/side_work.h"

namespace workstation {
namespace {

using nlohmann::ordered_json;

constexpr const char* kPath = "/platform/session";
/// Passwords that wait to be tried, of one address and in all.
constexpr unsigned int kMostOfOne = 4;
constexpr size_t kMostWaiting = 32;
constexpr unsigned int kTooManyRequests = 429;
constexpr const char* kBusy = "Too many are signing in just now; try again in a moment.";

/// Who tries whose password from where.
struct Attempt {
  std::string address;
  std::string name;  ///< as it is kept; empty for all whom nobody knows
  std::string hash;
  std::string password;
};

/// On the server's thread.
class Service {
 public:
  Service(HttpServer& server, std::shared_ptr<Access> access, Lockout guesses, std::chrono::milliseconds grace)
      : m_server(server),
        m_grace(grace),
        m_access(std::move(access)),
        m_lockout(std::move(guesses)),
        m_judging(server.context(), kMostWaiting),
        m_changing(server.context(), kMostWaiting) {}

  void tell(SoupServerMessage* message);
  void obey(SoupServerMessage* message, const ProgramRequest& request);

 private:
  void signIn(SoupServerMessage* message, const HttpQuery& form);
  void signOut(SoupServerMessage* message);
  void changePassword(SoupServerMessage* message, const HttpQuery& form);

  [[nodiscard]] Attempt attemptOf(SoupServerMessage* message, const std::string& name,
                                  const std::string& password) const;
  void checkPatience(SoupServerMessage* message, const Attempt& attempt);
  void start(SideWork& work, SoupServerMessage* message, const Attempt& attempt,
             const std::function<SideWork::Outcome()>& trial);
  void noteWrong(const Attempt& attempt);
  void welcome(SoupServerMessage* message, const Attempt& attempt);
  void letIn(SoupServerMessage* message, const std::string& session, const Visitor& visitor);
  void endChange(SoupServerMessage* message, const Attempt& attempt, const std::string& session,
                 const Refusal& refusal);
  void endLater(const std::string& session);
  [[nodiscard]] ordered_json document(const std::optional<Visitor>& visitor) const;

  HttpServer& m_server;
  const std::chrono::milliseconds m_grace;
  const std::shared_ptr<Access> m_access;
  Lockout m_lockout;
  std::map<std::string, unsigned int> m_trying;  ///< by address
  SideWork m_judging;
  SideWork m_changing;  ///< may wait for a disk, which keeps nobody from signing in
};

ordered_json Service::document(const std::optional<Visitor>& visitor) const {
  const auto all = m_access->people()->all();
  const Person* const person = visitor && !visitor->is_token ? all->person(visitor->name) : nullptr;
  return {{"people", !m_access->asksNobody()},
          {"name", visitor ? ordered_json(visitor->name) : ordered_json()},
          {"role", visitor ? ordered_json(nameOf(visitor->role)) : ordered_json()},
          {"token", visitor && visitor->is_token},
          {"secure", m_access->isSecure()},
          {"must_change", person != nullptr && person->must_change}};
}

void Service::tell(SoupServerMessage* message) {
  // Who goes on using a browser need not sign in again.
  const std::string session = m_access->sessionOf(message);
  if (!session.empty()) m_access->setCookie(message, session);
  answerDocument(message, document(knownVisitorOf(message)));
}

void Service::obey(SoupServerMessage* message, const ProgramRequest& request) {
  try {
    const HttpQuery& form = formOf(request);
    const std::string action = fieldOf(form, "action");
    if (action == "sign_in") return signIn(message, form);
    if (action == "sign_out") return signOut(message);
    if (action == "password") return changePassword(message, form);
    throw Refusal{SOUP_STATUS_BAD_REQUEST, "The action is sign_in, sign_out or password."};
  } catch (const Refusal& refusal) {
    answerLine(message, refusal.status, refusal.line);
  }
}

Attempt Service::attemptOf(SoupServerMessage* message, const std::string& name, const std::string& password) const {
  const auto all = m_access->people()->all();
  const Person* const person = all->person(name);
  const char* host = soup_server_message_get_remote_host(message);
  return {host == nullptr ? "" : host, person == nullptr ? "" : person->name, person == nullptr ? "" : person->hash,
          password};
}

void Service::checkPatience(SoupServerMessage* message, const Attempt& attempt) {
  const auto wait = m_lockout.wait(attempt.address, attempt.name).count();
  if (wait > 0) {
    soup_message_headers_replace(soup_server_message_get_response_headers(message), "Retry-After",
                                 std::to_string(wait).c_str());
    throw Refusal{kTooManyRequests,
                  "Too many wrong passwords came from here; try again in " + std::to_string(wait) + " s."};
  }
  const auto trying = m_trying.find(attempt.address);
  if (trying != m_trying.end() && trying->second >= kMostOfOne) throw Refusal{SOUP_STATUS_SERVICE_UNAVAILABLE, kBusy};
}

/// Tries a password aside; throws Refusal when too many wait already.
void Service::start(SideWork& work, SoupServerMessage* message, const Attempt& attempt,
                    const std::function<SideWork::Outcome()>& trial) {
  const bool is_started = work.start(message, [this, address = attempt.address, trial]() -> SideWork::Outcome {
    return [this, address, outcome = trial()](SoupServerMessage* asking) {
      if (--m_trying[address] == 0) m_trying.erase(address);
      outcome(asking);
    };
  });
  if (!is_started) throw Refusal{SOUP_STATUS_SERVICE_UNAVAILABLE, kBusy};
  ++m_trying[attempt.address];
}

void Service::noteWrong(const Attempt& attempt) {
  const unsigned int wrong = m_lockout.noteWrong(attempt.address, attempt.name);
  if ((wrong & (wrong - 1)) != 0) return;
  // A name that nobody has may be a password in the wrong field.
  syslog(LOG_WARNING, "a wrong password for %s came from %s (%u times lately)",
         attempt.name.empty() ? "somebody unknown" : attempt.name.c_str(), attempt.address.c_str(), wrong);
}

void Service::signIn(SoupServerMessage* message, const HttpQuery& form) {
  if (m_access->asksNobody()) throw Refusal{SOUP_STATUS_CONFLICT, "Nobody has to sign in here."};
  if (!m_access->people()->trouble().empty()) {
    throw Refusal{SOUP_STATUS_SERVICE_UNAVAILABLE,
                  "The list of people is damaged, so nobody can sign in; the system log says what to do."};
  }
  const std::string password = fieldOf(form, "password");
  // A token cannot be guessed, and is its own session: who revokes it ends that.
  if (const auto holder = m_access->holderOf(password)) return letIn(message, password, *holder);
  const Attempt attempt = attemptOf(message, fieldOf(form, "name"), password);
  checkPatience(message, attempt);
  start(m_judging, message, attempt, [this, attempt]() -> SideWork::Outcome {
    // As slow for somebody whom nobody knows.
    const bool is_right = isPassword(attempt.password, attempt.hash.empty() ? nobodysHash() : attempt.hash);
    return [this, attempt, is_right](SoupServerMessage* asking) {
      if (is_right && !attempt.name.empty()) return welcome(asking, attempt);
      noteWrong(attempt);
      if (asking != nullptr) answerLine(asking, SOUP_STATUS_UNAUTHORIZED, "The name or the password is wrong.");
    };
  });
}

void Service::welcome(SoupServerMessage* message, const Attempt& attempt) {
  m_lockout.noteRight(attempt.address, attempt.name);
  if (message == nullptr) return;
  const auto all = m_access->people()->all();
  const Person* const person = all->person(attempt.name);
  if (person == nullptr || person->hash != attempt.hash) {  // changed while the password was tried
    return answerLine(message, SOUP_STATUS_UNAUTHORIZED, "The name or the password is wrong.");
  }
  letIn(message, m_access->sessions().begin(*person), {person->name, person->role});
}

void Service::letIn(SoupServerMessage* message, const std::string& session, const Visitor& visitor) {
  const std::string before = m_access->sessionOf(message);
  if (!before.empty()) m_access->sessions().end(before);
  m_access->setCookie(message, session);
  answerDocument(message, document(visitor));
  m_server.recheck();
}

void Service::signOut(SoupServerMessage* message) {
  const std::string session = m_access->sessionOf(message);
  if (!session.empty()) m_access->sessions().end(session);
  m_access->setCookie(message, "");
  m_server.recheck();
  answerDocument(message, document(m_access->asksNobody() ? knownVisitorOf(message) : std::nullopt));
}

void Service::changePassword(SoupServerMessage* message, const HttpQuery& form) {
  const std::string session = m_access->sessionOf(message);
  if (session.empty()) return refuseStranger(message);
  if (visitorOf(message).is_token) {
    throw Refusal{SOUP_STATUS_FORBIDDEN, "A token has no password; an installer makes another token."};
  }
  const Attempt attempt = attemptOf(message, visitorOf(message).name, fieldOf(form, "old"));
  const std::string fresh = fieldOf(form, "new");
  const std::string mistake = mistakeInPassword(fresh);
  if (!mistake.empty()) throw Refusal{SOUP_STATUS_BAD_REQUEST, mistake};
  checkPatience(message, attempt);
  const auto people = m_access->people();
  start(m_changing, message, attempt, [this, people, attempt, fresh, session]() -> SideWork::Outcome {
    Refusal refusal{SOUP_STATUS_OK, ""};
    try {
      if (isPassword(attempt.password, attempt.hash)) {
        people->setPassword(attempt.name, attempt.hash, fresh);
      } else {
        refusal = {SOUP_STATUS_FORBIDDEN, "The old password is wrong."};
      }
    } catch (const PeopleRefusal& refused) {
      refusal = refusalOf(refused);
    } catch (const std::exception& error) {
      refusal = {SOUP_STATUS_INTERNAL_SERVER_ERROR, error.what()};
    }
    return
        [this, attempt, session, refusal](SoupServerMessage* asking) { endChange(asking, attempt, session, refusal); };
  });
  m_access->sessions().spare(session, true);
}

void Service::endChange(SoupServerMessage* message, const Attempt& attempt, const std::string& session,
                        const Refusal& refusal) {
  if (refusal.status != SOUP_STATUS_OK) {
    m_access->sessions().spare(session, false);
    if (refusal.status == SOUP_STATUS_FORBIDDEN) noteWrong(attempt);
    if (message != nullptr) answerLine(message, refusal.status, refusal.line);
    return;
  }
  // Whoever knew the old one is out, and this session goes on as another.
  const auto all = m_access->people()->all();
  const Person* const person = all->person(attempt.name);
  if (message != nullptr && person != nullptr) {
    m_access->setCookie(message, m_access->sessions().begin(*person));
    answerDocument(message, document(Visitor{person->name, person->role}));
    endLater(session);
  } else {
    m_access->sessions().end(session);
  }
  m_server.recheck();
}

/// What the page asks before it has got its new cookie is under way with the old one, and no stranger's.
void Service::endLater(const std::string& session) {
  struct Ending {
    Service* service;
    std::string session;
  };
  constexpr auto end = +[](gpointer data) -> gboolean {
    const auto* const ending = static_cast<Ending*>(data);
    ending->service->m_access->sessions().end(ending->session);
    ending->service->m_server.recheck();
    return G_SOURCE_REMOVE;
  };
  GSource* const timer = g_timeout_source_new(static_cast<guint>(m_grace.count()));
  auto owned = std::make_unique<Ending>(Ending{this, session});
  g_source_set_callback(timer, end, owned.release(),
                        [](gpointer data) { std::unique_ptr<Ending>(static_cast<Ending*>(data)); });
  g_source_attach(timer, m_server.context());
  g_source_unref(timer);
}

}  // namespace

void addSession(HttpServer& server, const std::shared_ptr<Access>& access, Lockout guesses,
                std::chrono::milliseconds grace) {
  const auto service = std::make_shared<Service>(server, access, std::move(guesses), grace);
  server.addEndpoint(kPath, [service](SoupServerMessage* message, const HttpQuery&) { service->tell(message); });
  server.addForm(
      kPath, [service](SoupServerMessage* message, const ProgramRequest& request) { service->obey(message, request); });
}

}  // namespace workstation
