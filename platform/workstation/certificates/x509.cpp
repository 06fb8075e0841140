#include "platform/workstation/certificates/x509.h"

#include <arpa/inet.h>
#include <gnutls/crypto.h>

#include <array>
#include <stdexcept>

namespace workstation {
namespace {

constexpr size_t kLongestCommonName = 64;

void check(int result, const char* what) {
  if (result < 0) throw std::runtime_error(std::string(what) + ": " + gnutls_strerror(result));
}

/// Owns what GnuTLS has written.
struct Text {
  Text() = default;
  ~Text() { gnutls_free(datum.data); }
  Text(const Text&) = delete;
  Text& operator=(const Text&) = delete;
  [[nodiscard]] std::string text() const { return {reinterpret_cast<const char*>(datum.data), datum.size}; }
  gnutls_datum_t datum{nullptr, 0};
};

gnutls_datum_t datumOf(const std::string& text) {
  return {reinterpret_cast<unsigned char*>(const_cast<char*>(text.data())), static_cast<unsigned int>(text.size())};
}

/// The bytes of an IPv4 or IPv6 address; empty for a name.
std::string addressBytes(const std::string& text) {
  std::array<char, sizeof(in6_addr)> bytes{};
  if (::inet_pton(AF_INET, text.c_str(), bytes.data()) == 1) return {bytes.data(), sizeof(in_addr)};
  if (::inet_pton(AF_INET6, text.c_str(), bytes.data()) == 1) return {bytes.data(), bytes.size()};
  return "";
}

std::string addressText(const std::string& bytes) {
  std::array<char, INET6_ADDRSTRLEN> text{};
  const int family = bytes.size() == sizeof(in_addr) ? AF_INET : AF_INET6;
  const bool is_address = bytes.size() == sizeof(in_addr) || bytes.size() == sizeof(in6_addr);
  return is_address && ::inet_ntop(family, bytes.data(), text.data(), text.size()) != nullptr ? text.data() : "";
}

}  // namespace

Certificate::Certificate() {
  gnutls_x509_crt_t certificate = nullptr;
  check(gnutls_x509_crt_init(&certificate), "no certificate can be made");
  m_certificate.reset(certificate);
  gnutls_x509_privkey_t key = nullptr;
  check(gnutls_x509_privkey_init(&key), "no key can be made");
  m_key.reset(key);
}

void Certificate::generate(const std::string& common_name, CertificateTime from, CertificateTime until) {
  const auto bits = static_cast<unsigned int>(GNUTLS_CURVE_TO_BITS(GNUTLS_ECC_CURVE_SECP256R1));
  check(gnutls_x509_privkey_generate(m_key.get(), GNUTLS_PK_ECDSA, bits, 0), "no key can be made");
  std::array<unsigned char, 16> serial{};
  check(gnutls_rnd(GNUTLS_RND_NONCE, serial.data(), serial.size()), "no serial number can be made");
  serial[0] = static_cast<unsigned char>((serial[0] & 0x7fU) | 0x40U);  // positive, and of this length
  gnutls_x509_crt_t crt = m_certificate.get();
  const std::string name = common_name.substr(0, kLongestCommonName);
  check(gnutls_x509_crt_set_version(crt, 3), "the version cannot be set");
  check(gnutls_x509_crt_set_serial(crt, serial.data(), serial.size()), "the serial number cannot be set");
  check(gnutls_x509_crt_set_dn_by_oid(crt, GNUTLS_OID_X520_COMMON_NAME, 0, name.data(),
                                      static_cast<unsigned int>(name.size())),
        "the name cannot be set");
  check(gnutls_x509_crt_set_activation_time(crt, std::chrono::system_clock::to_time_t(from)), "no time can be set");
  check(gnutls_x509_crt_set_expiration_time(crt, std::chrono::system_clock::to_time_t(until)), "no time can be set");
  check(gnutls_x509_crt_set_key(crt, m_key.get()), "the key cannot be set");
  const std::string id = keyId();
  check(gnutls_x509_crt_set_subject_key_id(crt, id.data(), id.size()), "the key's id cannot be set");
}

std::string Certificate::keyId() const {
  std::array<unsigned char, 64> id{};
  size_t size = id.size();
  check(gnutls_x509_privkey_get_key_id(m_key.get(), 0, id.data(), &size), "the key cannot be read");
  constexpr size_t kLength = 20;
  return {reinterpret_cast<const char*>(id.data()), std::min(size, kLength)};
}

void Certificate::sign(const Certificate& by) {
  const std::string id = by.keyId();
  check(gnutls_x509_crt_set_authority_key_id(m_certificate.get(), id.data(), id.size()),
        "the authority cannot be named");
  check(gnutls_x509_crt_sign2(m_certificate.get(), by.m_certificate.get(), by.m_key.get(), GNUTLS_DIG_SHA256, 0),
        "the certificate cannot be signed");
}

Certificate Certificate::makeAuthority(const std::string& name, CertificateTime from, CertificateTime until) {
  Certificate made;
  made.generate(name, from, until);
  gnutls_x509_crt_t crt = made.m_certificate.get();
  check(gnutls_x509_crt_set_basic_constraints(crt, 1, 0), "the authority cannot be made one");
  check(gnutls_x509_crt_set_key_usage(crt, GNUTLS_KEY_KEY_CERT_SIGN | GNUTLS_KEY_CRL_SIGN), "no use can be set");
  made.sign(made);
  return made;
}

void Certificate::addName(const std::string& name) {
  const std::string address = addressBytes(name);
  const std::string& value = address.empty() ? name : address;
  const auto kind = address.empty() ? GNUTLS_SAN_DNSNAME : GNUTLS_SAN_IPADDRESS;
  check(gnutls_x509_crt_set_subject_alt_name(m_certificate.get(), kind, value.data(),
                                             static_cast<unsigned int>(value.size()), GNUTLS_FSAN_APPEND),
        ("the name " + name + " cannot be set").c_str());
}

Certificate Certificate::makeServer(const Certificate& authority, const std::vector<std::string>& names,
                                    CertificateTime from, CertificateTime until) {
  Certificate made;
  made.generate(names.at(0), from, until);
  gnutls_x509_crt_t crt = made.m_certificate.get();
  check(gnutls_x509_crt_set_basic_constraints(crt, 0, -1), "no use can be set");
  check(gnutls_x509_crt_set_key_usage(crt, GNUTLS_KEY_DIGITAL_SIGNATURE), "no use can be set");
  check(gnutls_x509_crt_set_key_purpose_oid(crt, GNUTLS_KP_TLS_WWW_SERVER, 0), "no use can be set");
  for (const std::string& name : names) made.addName(name);
  made.sign(authority);
  return made;
}

Certificate Certificate::parse(const std::string& pem) {
  Certificate read;
  const gnutls_datum_t text = datumOf(pem);
  check(gnutls_x509_crt_import(read.m_certificate.get(), &text, GNUTLS_X509_FMT_PEM), "no certificate");
  check(gnutls_x509_privkey_import_pkcs8(read.m_key.get(), &text, GNUTLS_X509_FMT_PEM, nullptr, GNUTLS_PKCS_PLAIN),
        "no key");
  std::array<unsigned char, 64> id{};
  size_t size = id.size();
  check(gnutls_x509_crt_get_key_id(read.m_certificate.get(), 0, id.data(), &size), "no key in the certificate");
  const std::string key = read.keyId();
  if (size < key.size() || !std::equal(key.begin(), key.end(), reinterpret_cast<const char*>(id.data()))) {
    throw std::runtime_error("the key is not the certificate's");
  }
  return read;
}

std::string Certificate::pem() const {
  Text text;
  check(gnutls_x509_crt_export2(m_certificate.get(), GNUTLS_X509_FMT_PEM, &text.datum), "cannot be written");
  return text.text();
}

std::string Certificate::pemWithKey() const {
  Text text;
  check(gnutls_x509_privkey_export2_pkcs8(m_key.get(), GNUTLS_X509_FMT_PEM, nullptr, GNUTLS_PKCS_PLAIN, &text.datum),
        "the key cannot be written");
  return pem() + text.text();
}

std::string Certificate::fingerprint() const {
  std::array<unsigned char, 32> hash{};
  size_t size = hash.size();
  check(gnutls_x509_crt_get_fingerprint(m_certificate.get(), GNUTLS_DIG_SHA256, hash.data(), &size), "no fingerprint");
  constexpr const char* kDigits = "0123456789ABCDEF";
  std::string text;
  for (const unsigned char byte : hash) {
    if (!text.empty()) text += ':';
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

CertificateTime Certificate::begins() const {
  return std::chrono::system_clock::from_time_t(gnutls_x509_crt_get_activation_time(m_certificate.get()));
}

CertificateTime Certificate::expires() const {
  return std::chrono::system_clock::from_time_t(gnutls_x509_crt_get_expiration_time(m_certificate.get()));
}

std::vector<std::string> Certificate::names() const {
  std::vector<std::string> names;
  for (unsigned int index = 0;; ++index) {
    std::array<char, 256> value{};
    size_t size = value.size();
    const int kind = gnutls_x509_crt_get_subject_alt_name(m_certificate.get(), index, value.data(), &size, nullptr);
    if (kind < 0) return names;
    const std::string bytes(value.data(), std::min(size, value.size()));
    if (kind == GNUTLS_SAN_DNSNAME) names.emplace_back(bytes.c_str());
    if (kind == GNUTLS_SAN_IPADDRESS) names.emplace_back(addressText(bytes));
  }
}

bool Certificate::isAuthority() const {
  return gnutls_x509_crt_get_basic_constraints(m_certificate.get(), nullptr, nullptr, nullptr) > 0;
}

bool Certificate::isSignedBy(const Certificate& authority) const {
  gnutls_x509_crt_t issuer = authority.m_certificate.get();
  unsigned int status = 0;
  return gnutls_x509_crt_verify(m_certificate.get(), &issuer, 1, GNUTLS_VERIFY_DISABLE_TIME_CHECKS, &status) == 0 &&
         status == 0;
}

}  // namespace workstation
