#include "platform/workstation/decoding/source/certificate_check.h"

#include <memory>

namespace {

struct Known {
  std::mutex mutex;
  std::string fingerprint;  ///< of the one that is believed; empty: this machine's authorities decide
  std::string refused;      ///< fingerprint of the certificate that was refused last
};

}  // namespace

// What GLib knows of, in its own style.
struct CameraTlsDatabase {
  GTlsDatabase parent;
  Known* known;
};
struct CameraTlsDatabaseClass {
  GTlsDatabaseClass parent;
};

G_DEFINE_TYPE(CameraTlsDatabase, camera_tls_database, G_TYPE_TLS_DATABASE)

static std::string fingerprintOf(GTlsCertificate* certificate) {
  GByteArray* bytes = nullptr;
  g_object_get(certificate, "certificate", &bytes, nullptr);
  if (bytes == nullptr) return "";
  const GLibPtr<gchar> digits(g_compute_checksum_for_data(G_CHECKSUM_SHA256, bytes->data, bytes->len));
  g_byte_array_unref(bytes);
  return digits.get();
}

static GTlsCertificateFlags verify(GTlsDatabase* self, GTlsCertificate* chain, const gchar* purpose,
                                   GSocketConnectable* identity, GTlsInteraction* interaction,
                                   GTlsDatabaseVerifyFlags flags, GCancellable* cancellable, GError** error) {
  Known& known = *reinterpret_cast<CameraTlsDatabase*>(self)->known;
  const std::string fingerprint = fingerprintOf(chain);
  const std::scoped_lock lock(known.mutex);
  auto result = G_TLS_CERTIFICATE_NO_FLAGS;
  if (known.fingerprint.empty()) {
    const GLibPtr<GTlsDatabase> authorities(g_tls_backend_get_default_database(g_tls_backend_get_default()));
    result = g_tls_database_verify_chain(authorities.get(), chain, purpose, identity, interaction, flags, cancellable,
                                         error);
  } else if (fingerprint != known.fingerprint) {
    result = G_TLS_CERTIFICATE_UNKNOWN_CA;
  }
  if (result != G_TLS_CERTIFICATE_NO_FLAGS) known.refused = fingerprint;
  return result;
}

static void camera_tls_database_init(CameraTlsDatabase* self) { self->known = std::make_unique<Known>().release(); }
static void camera_tls_database_finalize(GObject* object) {
  const std::unique_ptr<Known> known(reinterpret_cast<CameraTlsDatabase*>(object)->known);
  G_OBJECT_CLASS(camera_tls_database_parent_class)->finalize(object);
}
static void camera_tls_database_class_init(CameraTlsDatabaseClass* klass) {
  G_OBJECT_CLASS(klass)->finalize = camera_tls_database_finalize;
  G_TLS_DATABASE_CLASS(klass)->verify_chain = verify;
}

namespace workstation {

CertificateCheck::CertificateCheck(const std::string& fingerprint)
    : m_database(static_cast<GTlsDatabase*>(g_object_new(camera_tls_database_get_type(), nullptr))) {
  reinterpret_cast<CameraTlsDatabase*>(m_database.get())->known->fingerprint = fingerprint;
}

std::string CertificateCheck::refusal() const {
  Known& known = *reinterpret_cast<CameraTlsDatabase*>(m_database.get())->known;
  const std::scoped_lock lock(known.mutex);
  if (known.refused.empty()) return "";
  if (!known.fingerprint.empty()) {
    return "its certificate is another than the one that was agreed on; its fingerprint is " + known.refused;
  }
  return "nobody whom this machine knows vouches for its certificate; if the camera itself shows the fingerprint " +
         known.refused + ", give that as \"certificate\" in its description";
}

}  // namespace workstation
