// A network camera in a process of its own, so that it can freeze and be killed:
// rtsp_camera PORT PIPELINE [login=USER:PASSWORD] [certificate=FILE] [udp] [clock]
#include <gst/rtsp-server/rtsp-server.h>
#include <sys/prctl.h>

#include <csignal>
#include <string>

#include "platform/scripted/stage/rtsp_camera.h"

namespace {

/// Everything is for the ward: whoever has signed in, by Digest alone, or anybody where there is no login.
void guard(GstRTSPAuth* auth, GstRTSPMediaFactory* factory, const std::string& login) {
  const std::size_t colon = login.find(':');
  GstRTSPToken* ward = gst_rtsp_token_new(GST_RTSP_TOKEN_MEDIA_FACTORY_ROLE, G_TYPE_STRING, "ward", nullptr);
  if (login.empty()) {
    gst_rtsp_auth_set_default_token(auth, ward);
  } else {
    gst_rtsp_auth_set_supported_methods(auth, GST_RTSP_AUTH_DIGEST);
    gst_rtsp_auth_add_digest(auth, login.substr(0, colon).c_str(), login.substr(colon + 1).c_str(), ward);
  }
  gst_rtsp_token_unref(ward);
  gst_rtsp_media_factory_add_role(factory, "ward", GST_RTSP_PERM_MEDIA_FACTORY_ACCESS, G_TYPE_BOOLEAN, TRUE,
                                  GST_RTSP_PERM_MEDIA_FACTORY_CONSTRUCT, G_TYPE_BOOLEAN, TRUE, nullptr);
}

/// The file holds the certificate and its key.
bool encrypt(GstRTSPAuth* auth, const std::string& file) {
  GTlsCertificate* certificate = g_tls_certificate_new_from_file(file.c_str(), nullptr);
  if (certificate == nullptr) return false;
  gst_rtsp_auth_set_tls_certificate(auth, certificate);
  g_object_unref(certificate);
  return true;
}

/// The element "time" makes black the time: each second has its grey. See RtspCamera::greyAt().
void showTime(GstRTSPMediaFactory* /*factory*/, GstRTSPMedia* media, gpointer /*unused*/) {
  GstElement* pictures = gst_rtsp_media_get_element(media);
  GstElement* time = gst_bin_get_by_name(GST_BIN(pictures), "time");
  gst_object_unref(pictures);
  constexpr auto set = +[](gpointer element) -> gboolean {
    const int grey = scripted::RtspCamera::greyAt(g_get_real_time() / G_USEC_PER_SEC);
    g_object_set(element, "brightness", grey / 255.0 * 219 / 255, nullptr);
    return G_SOURCE_CONTINUE;
  };
  set(time);
  g_timeout_add_full(G_PRIORITY_HIGH, 20, set, time, g_object_unref);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  gst_init(nullptr, nullptr);
  GstRTSPServer* server = gst_rtsp_server_new();
  gst_rtsp_server_set_address(server, "127.0.0.1");
  gst_rtsp_server_set_service(server, argv[1]);
  GstRTSPMediaFactory* factory = gst_rtsp_media_factory_new();
  gst_rtsp_media_factory_set_launch(factory, argv[2]);
  gst_rtsp_media_factory_set_shared(factory, TRUE);
  GstRTSPAuth* auth = gst_rtsp_auth_new();
  std::string login;
  for (int n = 3; n < argc; ++n) {
    const std::string option = argv[n];
    if (option == "udp") gst_rtsp_media_factory_set_protocols(factory, GST_RTSP_LOWER_TRANS_UDP);
    if (option == "clock") g_signal_connect(factory, "media-configure", G_CALLBACK(showTime), nullptr);
    if (option.starts_with("login=")) login = option.substr(6);
    if (option.starts_with("certificate=") && !encrypt(auth, option.substr(12))) return 2;
  }
  guard(auth, factory, login);
  gst_rtsp_server_set_auth(server, auth);
  g_object_unref(auth);
  GstRTSPMountPoints* mounts = gst_rtsp_server_get_mount_points(server);
  gst_rtsp_mount_points_add_factory(mounts, "/room", factory);
  g_object_unref(mounts);
  if (gst_rtsp_server_attach(server, nullptr) == 0) return 1;
  g_main_loop_run(g_main_loop_new(nullptr, FALSE));
  return 0;
}
