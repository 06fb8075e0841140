// Which certificate of a camera is believed.
#pragma once

#include <gio/gio.h>

#include <memory>
#include <mutex>
#include <string>

#include "platform/support/owners.h"

namespace workstation {

/// Believes one certificate alone, whatever its names and dates say, when its fingerprint is given; without one, what
/// this machine's authorities vouch for. Most cameras vouch for themselves.
class CertificateCheck {
 public:
  /// `fingerprint`: see fingerprintFrom(); or empty.
  explicit CertificateCheck(const std::string& fingerprint);

  /// To be given to a TLS connection as its database; may outlive the check.
  [[nodiscard]] GTlsDatabase* database() const { return m_database.get(); }

  /// Why a certificate was refused, and what can be done; empty when none was.
  [[nodiscard]] std::string refusal() const;

 private:
  GLibPtr<GTlsDatabase> m_database;
};

}  // namespace workstation
