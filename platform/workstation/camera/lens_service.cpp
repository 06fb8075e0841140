#include "platform/workstation/camera/lens_service.h"

#include <fcntl.h>
#include <gio/gio.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "platform/support/owners.h"
#include "platform/workstation/system/durable_file.h"
#include "platform/workstation/system/health.h"
#include "platform/workstation/system/signal_mask.h"

namespace workstation {
namespace {

constexpr int kDaemonStart_ms = 20'000;

/// Between the end of a bus and the next one: doubled each time, as long as buses end soon.
constexpr std::chrono::milliseconds kShortestPause{200}, kLongestPause{10'000};
constexpr std::chrono::minutes kLongLife{1};

constexpr std::string_view kBusConfigurationBegin = R"(<!DOCTYPE busconfig PUBLIC
 "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN" "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>velmor_care</type>
  <listen>)";
constexpr std::string_view kBusConfigurationEnd = R"(</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow send_destination="*"/>
    <allow receive_sender="*"/>
    <allow own="*"/>
  </policy>
</busconfig>
)";

constexpr const char* kIntrospection =
    "<node><interface name='com.axis.Iris1'>"
    "<property name='FocalLength' type='u' access='read'/>"
    "</interface></node>";

[[noreturn]] void fail(const std::string& what, int error_number) {
  throw std::runtime_error(what + ": " + std::strerror(error_number));
}

/// Throws the error's message, if there is one.
void check(const CaughtError& error) {
  if (error) throw std::runtime_error(error.text());
}

/// An abstract socket: nothing is left behind on disk when the daemon is killed. The same for every bus of this
/// process, since the environment that names it must not be changed once there are threads.
std::string newAddress() {
  const GLibPtr<gchar> name(g_uuid_string_random());
  return std::string("unix:abstract=velmor_care-") + name.get();
}

/// An anonymous file.
FileDescriptor configurationFile(const std::string& address) {
  const std::string text = std::string(kBusConfigurationBegin).append(address).append(kBusConfigurationEnd);
  FileDescriptor file(memfd_create("velmor_care-dbus", MFD_CLOEXEC));
  if (!file) fail("no memory for the bus configuration", errno);
  if (!writeAll(file.get(), text.data(), text.size())) fail("cannot write the bus configuration", errno);
  return file;
}

/// Runs in the forked child: nothing here may allocate or lock.
[[noreturn]] void becomeDaemon(const char* program, int configuration, int address, pid_t parent) {
  constexpr int kConfiguration = 3;
  constexpr int kAddress = 4;
  sigset_t none;
  sigemptyset(&none);
  // Moved out of the way first: either may hold the number that the other is to get.
  const int from_configuration = fcntl(configuration, F_DUPFD, kAddress + 1);
  const int from_address = fcntl(address, F_DUPFD, kAddress + 1);
  if (dup2(from_configuration, kConfiguration) < 0 || dup2(from_address, kAddress) < 0) _exit(126);
  close(from_configuration);
  close(from_address);
  // Run by root it complains that it may not raise its limits, which it doesn't need to.
  const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (nowhere >= 0) dup2(nowhere, STDERR_FILENO);
  // A Ctrl-C at the terminal ends the program in its own order; it then takes the daemon along.
  setpgid(0, 0);
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) _exit(126);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  execl(program, program, "--nofork", "--nopidfile", "--nosyslog", "--config-file=/dev/fd/3", "--print-address=4",
        static_cast<char*>(nullptr));
  _exit(127);
}

/// Waits for the one line that the daemon writes when it listens: its address, with an id that is new each time.
void waitForAddress(int fd) {
  std::array<char, 256> chunk{};
  for (bool complete = false; !complete;) {
    pollfd ready{fd, POLLIN, 0};
    if (poll(&ready, 1, kDaemonStart_ms) == 0) throw std::runtime_error("dbus-daemon does not answer");
    const ssize_t count = read(fd, chunk.data(), chunk.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) throw std::runtime_error("dbus-daemon has ended");
    complete = std::memchr(chunk.data(), '\n', static_cast<std::size_t>(count)) != nullptr;
  }
}

/// A child of the thread that makes it, with whose end it is killed.
class Daemon {
 public:
  /// Returns when it listens.
  explicit Daemon(const std::string& address) {
    const GLibPtr<gchar> program(g_find_program_in_path("dbus-daemon"));
    if (!program) throw std::runtime_error("dbus-daemon is missing; install the package dbus-daemon");
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) fail("no pipe", errno);
    const FileDescriptor read_end(ends[0]);
    FileDescriptor write_end(ends[1]);
    const FileDescriptor configuration = configurationFile(address);
    const pid_t parent = getpid();
    m_process = fork();
    if (m_process < 0) fail("no process for dbus-daemon", errno);
    if (m_process == 0) becomeDaemon(program.get(), configuration.get(), write_end.get(), parent);
    write_end = FileDescriptor();
    try {
      waitForAddress(read_end.get());
    } catch (...) {
      end();
      throw;
    }
  }
  ~Daemon() { end(); }
  Daemon(const Daemon&) = delete;
  Daemon& operator=(const Daemon&) = delete;

 private:
  void end() const {
    kill(m_process, SIGKILL);
    while (waitpid(m_process, nullptr, 0) < 0 && errno == EINTR) {
    }
  }

  pid_t m_process = -1;
};

GVariant* getProperty(GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*, GError**,
                      gpointer focal_um) {
  return g_variant_new_uint32(GPOINTER_TO_UINT(focal_um));
}

/// Connects, exports the property in the calling thread's main context, then takes the name.
GLibPtr<GDBusConnection> exportLens(const std::string& address, std::uint32_t focal_um) {
  CaughtError error;
  constexpr auto kFlags = static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                                            G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
  GLibPtr<GDBusConnection> bus(
      g_dbus_connection_new_for_address_sync(address.c_str(), kFlags, nullptr, nullptr, error.out()));
  check(error);
  const GLibPtr<GDBusNodeInfo> node(g_dbus_node_info_new_for_xml(kIntrospection, error.out()));
  check(error);
  const GDBusInterfaceVTable table{nullptr, getProperty, nullptr, {}};
  g_dbus_connection_register_object(bus.get(), "/com/axis/Optics0", node->interfaces[0], &table,
                                    GUINT_TO_POINTER(focal_um), nullptr, error.out());
  check(error);
  constexpr guint kDoNotQueue = 4;
  const GLibPtr<GVariant> reply(
      g_dbus_connection_call_sync(bus.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                  "RequestName", g_variant_new("(su)", "com.axis.Optics2", kDoNotQueue),
                                  G_VARIANT_TYPE("(u)"), G_DBUS_CALL_FLAGS_NONE, -1, nullptr, error.out()));
  check(error);
  return bus;
}

/// One bus, from its start to its end; calls `started` in between. Throws when it cannot be started.
template <typename Started>
void serveOneBus(const std::string& address, std::uint32_t focal_um, GMainContext* context, const Started& started) {
  const Daemon daemon(address);
  const auto bus = exportLens(address, focal_um);
  started();
  while (g_dbus_connection_is_closed(bus.get()) == FALSE) g_main_context_iteration(context, TRUE);
}

/// After the first bus: a bus that is gone is followed by another for ever, at the same address.
void serveNextBuses(const std::string& address, std::uint32_t focal_um, GMainContext* context) {
  using Clock = std::chrono::steady_clock;
  std::string problem = "dbus-daemon has ended";
  for (auto pause = kShortestPause;; pause = std::min(2 * pause, kLongestPause)) {
    reportTrouble(Trouble::kLensAway, "The floor calibration cannot be renewed: the camera's lens does not answer.");
    syslog(LOG_ERR, "the camera's lens cannot be asked for its focal length: %s; its bus is started again",
           problem.c_str());
    std::this_thread::sleep_for(pause);
    auto since = Clock::time_point::max();
    try {
      serveOneBus(address, focal_um, context, [&since] {
        since = Clock::now();
        endTrouble(Trouble::kLensAway);
        syslog(LOG_INFO, "the camera's lens can be asked again");
      });
      problem = "dbus-daemon has ended";
    } catch (const std::exception& error) {
      problem = error.what();
    }
    if (Clock::now() - kLongLife > since) pause = kShortestPause / 2;
  }
}

/// The service's thread lives as long as the process, and the daemon is its child: the kernel kills the daemon when
/// the thread ends, whichever way the process ends.
void serve(const std::string& address, std::uint32_t focal_um, std::promise<void> started) {
  const GLibPtr<GMainContext> owned(g_main_context_new());
  GMainContext* const context = owned.get();
  g_main_context_push_thread_default(context);
  try {
    serveOneBus(address, focal_um, context, [&started] { started.set_value(); });
    serveNextBuses(address, focal_um, context);
  } catch (const std::exception&) {
    started.set_exception(std::current_exception());
  }
  g_main_context_pop_thread_default(context);
}

bool start(std::uint32_t focal_um) {
  try {
    const std::string address = newAddress();
    std::promise<void> started;
    auto ready = started.get_future();
    {
      const ScopedSigtermBlock block;
      std::thread(serve, address, focal_um, std::move(started)).detach();
    }
    ready.get();
    setenv("DBUS_SYSTEM_BUS_ADDRESS", address.c_str(), 1);
    return true;
  } catch (const std::exception& error) {
    syslog(LOG_ERR, "the camera's lens cannot be asked for its focal length: %s", error.what());
    return false;
  }
}

}  // namespace

bool startLensService(std::uint32_t focal_um) {
  static const bool started = start(focal_um);
  return started;
}

}  // namespace workstation
