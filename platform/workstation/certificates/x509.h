// Certificates with their private keys: made, signed, read. What GnuTLS says is wrong is a std::runtime_error with one
// line.
#pragma once

#include <gnutls/x509.h>

#include <chrono>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace workstation {

using CertificateTime = std::chrono::system_clock::time_point;

/// One certificate and its key.
class Certificate {
 public:
  /// An authority of its own.
  static Certificate makeAuthority(const std::string& name, CertificateTime from, CertificateTime until);
  /// A server's, for its names and addresses.
  static Certificate makeServer(const Certificate& authority, const std::vector<std::string>& names,
                                CertificateTime from, CertificateTime until);
  /// Both in PEM, which belong together.
  static Certificate parse(const std::string& pem);

  [[nodiscard]] std::string pem() const;  ///< without the key
  [[nodiscard]] std::string pemWithKey() const;
  [[nodiscard]] std::string fingerprint() const;  ///< SHA-256, "AB:CD:..."
  [[nodiscard]] CertificateTime begins() const;
  [[nodiscard]] CertificateTime expires() const;
  [[nodiscard]] std::vector<std::string> names() const;
  [[nodiscard]] bool isAuthority() const;
  [[nodiscard]] bool isSignedBy(const Certificate& authority) const;

 private:
  struct Free {
    void operator()(gnutls_x509_crt_t certificate) const { gnutls_x509_crt_deinit(certificate); }
    void operator()(gnutls_x509_privkey_t key) const { gnutls_x509_privkey_deinit(key); }
  };

  Certificate();
  void generate(const std::string& common_name, CertificateTime from, CertificateTime until);
  void addName(const std::string& name);
  void sign(const Certificate& by);
  [[nodiscard]] std::string keyId() const;

  std::unique_ptr<std::remove_pointer_t<gnutls_x509_crt_t>, Free> m_certificate;
  std::unique_ptr<std::remove_pointer_t<gnutls_x509_privkey_t>, Free> m_key;
};

}  // namespace workstation
