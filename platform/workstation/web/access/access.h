// Who may come in, by what a request brings along: a session's cookie or a token.
#pragma once

#include <libsoup/soup.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "platform/workstation/people/people.h"
#include "platform/workstation/people/sessions.h"
#include "platform/workstation/web/access/visitor.h"

namespace workstation {

/// On the server's thread once it listens.
class Access {
 public:
  /// Whom the state directory knows. A damaged list is a line in the system log, and lets nobody in.
  explicit Access(const std::filesystem::path& state);

  struct Place {
    bool is_this_machine_only = false;
    bool is_secure = false;  ///< TLS
    std::uint16_t port = 0;
  };
  /// Where the server listens: on this machine only, nobody has to sign in as long as there are no people.
  void open(const Place& place) { m_place = place; }

  [[nodiscard]] bool asksNobody() const { return m_place.is_this_machine_only && !m_people->areThere(); }
  [[nodiscard]] bool isSecure() const { return m_place.is_secure; }

  /// None for a stranger. A token that is wrong is not made good by a cookie.
  std::optional<Visitor> identify(SoupServerMessage* message);
  /// Who brings this token.
  [[nodiscard]] std::optional<Visitor> holderOf(const std::string& token) const;
  /// The secret of the session that came along; empty for a stranger and for a token that is not the browser's session.
  std::string sessionOf(SoupServerMessage* message);
  /// Gives the browser a session's secret to keep; an empty one takes it away.
  void setCookie(SoupServerMessage* message, const std::string& secret) const;

  /// Work on other threads shares it.
  [[nodiscard]] const std::shared_ptr<People>& people() const { return m_people; }
  Sessions& sessions() { return m_sessions; }

 private:
  /// Browsers keep one cookie for all ports of a machine, and each camera that it watches has sessions of its own.
  [[nodiscard]] std::string cookieName() const { return "velmor_session_" + std::to_string(m_place.port); }
  /// A person's; a screen on a wall has its token in the place of a session.
  std::optional<Visitor> ownerOf(const std::string& session);

  std::shared_ptr<People> m_people;
  Sessions m_sessions;
  Place m_place;
};

/// 401, with an invitation to send a token for programs that wait for one; a browser would ask its user.
void refuseStranger(SoupServerMessage* message);

/// 403.
void refuseRole(SoupServerMessage* message, Role least);

}  // namespace workstation
