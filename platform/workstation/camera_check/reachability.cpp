#include "platform/workstation/camera_check/reachability.h"

#include <gio/gio.h>

#include "platform/support/owners.h"
#include "platform/workstation/decoding/source/camera_source.h"
#include "platform/workstation/decoding/video_source.h"

namespace workstation {
namespace {

/// What a certificate is compared with.
struct Belief {
  std::string expected;  ///< fingerprint; empty: the system decides
  std::string shown;     ///< fingerprint of the one that the camera has
};

std::string fingerprintOf(GTlsCertificate* certificate) {
  GByteArray* der = nullptr;
  g_object_get(certificate, "certificate", &der, nullptr);
  if (der == nullptr) return "";
  const GLibPtr<gchar> hash(g_compute_checksum_for_data(G_CHECKSUM_SHA256, der->data, der->len));
  g_byte_array_unref(der);
  return hash.get();
}

gboolean isBelieved(GTlsConnection* /*tls*/, GTlsCertificate* certificate, GTlsCertificateFlags /*wrong*/,
                    gpointer data) {
  auto& belief = *static_cast<Belief*>(data);
  belief.shown = fingerprintOf(certificate);
  return !belief.expected.empty() && belief.shown == belief.expected ? TRUE : FALSE;
}

void watchHandshake(GSocketClient* /*client*/, GSocketClientEvent event, GSocketConnectable* /*host*/,
                    GIOStream* connection, gpointer belief) {
  if (event != G_SOCKET_CLIENT_TLS_HANDSHAKING) return;
  g_signal_connect(connection, "accept-certificate", G_CALLBACK(isBelieved), belief);
}

TrialEnd endFor(const GError* error) {
  if (error->domain == G_RESOLVER_ERROR) return TrialEnd::kUnknownHost;
  if (error->domain == G_TLS_ERROR) {
    return error->code == G_TLS_ERROR_BAD_CERTIFICATE ? TrialEnd::kCertificate : TrialEnd::kNoTls;
  }
  if (error->domain != G_IO_ERROR) return TrialEnd::kBroken;
  switch (error->code) {
    case G_IO_ERROR_CONNECTION_REFUSED:
      return TrialEnd::kRefused;
    case G_IO_ERROR_HOST_UNREACHABLE:
    case G_IO_ERROR_NETWORK_UNREACHABLE:
      return TrialEnd::kNoRoute;
    case G_IO_ERROR_TIMED_OUT:
      return TrialEnd::kNoAnswer;
    case G_IO_ERROR_INVALID_ARGUMENT:
      return TrialEnd::kBadAddress;
    case G_IO_ERROR_HOST_NOT_FOUND:
      return TrialEnd::kUnknownHost;
    default:
      return TrialEnd::kBroken;
  }
}

/// As GStreamer has it: 554 for rtsps as well.
guint16 usualPort(const std::string& uri) {
  constexpr guint16 kRtsp = 554, kHttp = 80, kHttps = 443;
  if (g_ascii_strncasecmp(uri.c_str(), "rtsp", 4) == 0) return kRtsp;
  return takesCertificate(uri) ? kHttps : kHttp;
}

}  // namespace

Reach reach(const std::string& uri, const std::string& certificate, std::chrono::seconds patience) {
  if (!takesLogin(uri)) return {};
  const GLibPtr<GSocketClient> client(g_socket_client_new());
  g_socket_client_set_timeout(client.get(), static_cast<guint>(patience.count()));
  g_socket_client_set_enable_proxy(client.get(), FALSE);
  g_socket_client_set_tls(client.get(), takesCertificate(uri) ? TRUE : FALSE);
  Belief belief{certificate, ""};
  g_signal_connect(client.get(), "event", G_CALLBACK(watchHandshake), &belief);
  CaughtError error;
  const GLibPtr<GSocketConnection> connection(
      g_socket_client_connect_to_uri(client.get(), withoutUser(uri).c_str(), usualPort(uri), nullptr, error.out()));
  if (connection) return {};
  const bool is_doubted = !belief.shown.empty() && belief.shown != belief.expected;
  return {is_doubted ? TrialEnd::kCertificate : endFor(error.get()), error.text(), belief.shown};
}

}  // namespace workstation
