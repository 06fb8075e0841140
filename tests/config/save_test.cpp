// A save on its whole way: the page's request, the web server, the program, the store and its file.
#include <axhttp.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <syslog.h>

#include <functional>

#include "app/process_state.h"
#include "config/parameter_controller.h"
#include "config/request_handler.h"
#include "platform/scripted/lens.h"
#include "tests/config/page_settings.h"
#include "tests/platform/http_client.h"
#include "tests/platform/state_folder.h"

namespace {

class Saves : public testing::Test {
 protected:
  Saves() {
    state.write("video.mp4", "");
    state.write("camera.json", R"({"source": "video.mp4"})");
    setenv("VELMOR_MANIFEST", VELMOR_SOURCE_DIR "/package/manifest.json", 1);
    setenv("VELMOR_LISTEN", "127.0.0.1:0", 1);
    setenv("VELMOR_OUTPUT", "text", 1);
    openlog("save_test", 0, LOG_USER);
    g_StreamWidth = 1280;
    g_StreamHeight = 720;
    g_ParameterController.init_controller("velmor_care");
    testing::internal::CaptureStdout();
    m_handler = ax_http_handler_new(request_handler, nullptr);
    const std::string page = testing::internal::GetCapturedStdout();
    m_port = static_cast<std::uint16_t>(std::stoi(page.substr(page.rfind(':') + 1)));
  }
  ~Saves() override { ax_http_handler_free(m_handler); }

  HttpReply save(const Query& settings) const {
    std::string form = "action=set_all_parameters";
    for (const auto& [key, value] : settings) form.append("&").append(key).append("=").append(value);
    return request(m_port, "POST", "/local/velmor_care/control.cgi",
                   "X-Requested-With: test\r\nContent-Type: application/x-www-form-urlencoded\r\n", form);
  }

  StateFolder state;
  scripted::Lens lens{"UINT32 3700;\n"};

 private:
  AXHttpHandler* m_handler = nullptr;
  std::uint16_t m_port = 0;
};

/// Runs `action` on a disk that has room for files of this size only.
void withRoomFor(rlim_t bytes, const std::function<void()>& action) {
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  const rlimit full{bytes, before.rlim_max};
  setrlimit(RLIMIT_FSIZE, &full);
  action();
  setrlimit(RLIMIT_FSIZE, &before);
}

TEST_F(Saves, AreOneChangeOfTheFileOrToldAsNotStored) {
  ASSERT_EQ(save(pageSettings()).status, 200);
  const std::string old = state.read("parameters.conf");
  Query changed = pageSettings();
  changed["SN"] = "0.25";    // the first that is stored
  changed["AOI2_X1"] = "7";  // in the middle
  changed["XM"] = "2.5";     // the last
  const auto expectRefusal = [&] {
    const HttpReply reply = save(changed);
    EXPECT_EQ(reply.status, 500);
    EXPECT_NE(reply.body.find("could not be stored"), std::string::npos) << reply.body;
    EXPECT_EQ(state.read("parameters.conf"), old) << "nothing of the new";
  };
  std::filesystem::create_directory(state / "parameters.conf.new");  // where the new file is written
  expectRefusal();
  std::filesystem::remove(state / "parameters.conf.new");
  withRoomFor(old.size() - 20, expectRefusal);
  EXPECT_EQ(g_DetectionParams.f_WRectM, 2.5F) << "in use";
  EXPECT_EQ(save(changed).status, 200);
  EXPECT_EQ(state.read("parameters.conf.1"), old) << "one change";
  parameter_controller next;
  next.init_controller("velmor_care");
  EXPECT_EQ(next.load_calibration().f_Sensitivity, 0.25F);
  const _DetectionParams stored = next.load_detection_params();
  EXPECT_EQ(stored.i_Detection2[0], 7 * 1280 / 100);
  EXPECT_EQ(stored.f_WRectM, 2.5F);
}

}  // namespace
