// A network camera in a process of its own, so that it can freeze and be killed: rtsp_camera PORT PIPELINE
#include <gst/rtsp-server/rtsp-server.h>
#include <sys/prctl.h>

#include <csignal>

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  gst_init(nullptr, nullptr);
  GstRTSPServer* server = gst_rtsp_server_new();
  gst_rtsp_server_set_address(server, "127.0.0.1");
  gst_rtsp_server_set_service(server, argv[1]);
  GstRTSPMediaFactory* factory = gst_rtsp_media_factory_new();
  gst_rtsp_media_factory_set_launch(factory, argv[2]);
  gst_rtsp_media_factory_set_shared(factory, TRUE);
  GstRTSPMountPoints* mounts = gst_rtsp_server_get_mount_points(server);
  gst_rtsp_mount_points_add_factory(mounts, "/room", factory);
  g_object_unref(mounts);
  if (gst_rtsp_server_attach(server, nullptr) == 0) return 1;
  g_main_loop_run(g_main_loop_new(nullptr, FALSE));
  return 0;
}
