#include "platform/workstation/lens_service.h"

#include <fcntl.h>
#include <gio/gio.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cerrno>
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

#include "platform/workstation/signal_mask.h"

namespace workstation {
namespace {

constexpr int kDaemonStart_ms = 20'000;

constexpr std::string_view kBusConfigurationBegin = R"(<!DOCTYPE busconfig PUBLIC
 "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN" "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>velmor_care</type>
  <listen>unix:abstract=velmor_care-)";
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

template <auto release>
struct Releaser {
  void operator()(auto* object) const { release(object); }
};
template <typename T>
using GObjectPtr = std::unique_ptr<T, Releaser<g_object_unref>>;

class FileDescriptor {
 public:
  explicit FileDescriptor(int fd) : m_fd(fd) {}
  ~FileDescriptor() {
    if (m_fd >= 0) close(m_fd);
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  [[nodiscard]] int get() const { return m_fd; }

 private:
  int m_fd;
};

[[noreturn]] void fail(const std::string& what, int error_number) {
  throw std::runtime_error(what + ": " + std::strerror(error_number));
}

/// Throws the error's message, if there is one.
void check(GError* error) {
  if (error == nullptr) return;
  const std::string message = error->message;
  g_error_free(error);
  throw std::runtime_error(message);
}

/// An anonymous file for a bus on an abstract socket: nothing is left behind on disk when the daemon is killed.
int configurationFile() {
  const std::unique_ptr<char, Releaser<g_free>> name(g_uuid_string_random());
  const std::string text = std::string(kBusConfigurationBegin).append(name.get()).append(kBusConfigurationEnd);
  const int fd = memfd_create("velmor_care-dbus", MFD_CLOEXEC);
  if (fd < 0) fail("no memory for the bus configuration", errno);
  if (write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
    const int reason = errno;
    close(fd);
    fail("cannot write the bus configuration", reason);
  }
  return fd;
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

/// Waits for the one line that the daemon writes when it listens.
std::string readAddress(int fd) {
  std::string address;
  std::array<char, 256> chunk{};
  while (address.find('\n') == std::string::npos) {
    pollfd ready{fd, POLLIN, 0};
    if (poll(&ready, 1, kDaemonStart_ms) == 0) throw std::runtime_error("dbus-daemon does not answer");
    const ssize_t count = read(fd, chunk.data(), chunk.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) throw std::runtime_error("dbus-daemon has ended");
    address.append(chunk.data(), static_cast<std::size_t>(count));
  }
  return address.substr(0, address.find('\n'));
}

/// Starts the daemon as a child of the calling thread, with whose end it is killed; returns the bus's address.
std::string startDaemon() {
  const std::unique_ptr<char, Releaser<g_free>> program(g_find_program_in_path("dbus-daemon"));
  if (!program) throw std::runtime_error("dbus-daemon is missing; install the package dbus-daemon");
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) fail("no pipe", errno);
  const FileDescriptor read_end(ends[0]);
  auto write_end = std::make_unique<FileDescriptor>(ends[1]);
  const FileDescriptor configuration(configurationFile());
  const pid_t parent = getpid();
  const pid_t child = fork();
  if (child < 0) fail("no process for dbus-daemon", errno);
  if (child == 0) becomeDaemon(program.get(), configuration.get(), write_end->get(), parent);
  write_end.reset();
  return readAddress(read_end.get());
}

GVariant* getProperty(GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*, GError**,
                      gpointer focal_um) {
  return g_variant_new_uint32(GPOINTER_TO_UINT(focal_um));
}

/// Connects, exports the property in the calling thread's main context, then takes the name.
GObjectPtr<GDBusConnection> exportLens(const std::string& address, std::uint32_t focal_um) {
  GError* error = nullptr;
  constexpr auto kFlags = static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                                            G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
  GObjectPtr<GDBusConnection> bus(
      g_dbus_connection_new_for_address_sync(address.c_str(), kFlags, nullptr, nullptr, &error));
  check(error);
  const std::unique_ptr<GDBusNodeInfo, Releaser<g_dbus_node_info_unref>> node(
      g_dbus_node_info_new_for_xml(kIntrospection, &error));
  check(error);
  const GDBusInterfaceVTable table{nullptr, getProperty, nullptr, {}};
  g_dbus_connection_register_object(bus.get(), "/com/axis/Optics0", node->interfaces[0], &table,
                                    GUINT_TO_POINTER(focal_um), nullptr, &error);
  check(error);
  constexpr guint kDoNotQueue = 4;
  GVariant* reply =
      g_dbus_connection_call_sync(bus.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                  "RequestName", g_variant_new("(su)", "com.axis.Optics2", kDoNotQueue),
                                  G_VARIANT_TYPE("(u)"), G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &error);
  check(error);
  g_variant_unref(reply);
  return bus;
}

/// The service's thread lives as long as the process, and the daemon is its child: the kernel kills the daemon when
/// the thread ends, whichever way the process ends.
void serve(std::uint32_t focal_um, std::promise<std::string> started) {
  GMainContext* context = g_main_context_new();
  g_main_context_push_thread_default(context);
  try {
    std::string address = startDaemon();
    const auto bus = exportLens(address, focal_um);
    started.set_value(std::move(address));
    while (g_dbus_connection_is_closed(bus.get()) == FALSE) g_main_context_iteration(context, TRUE);
  } catch (const std::exception&) {
    started.set_exception(std::current_exception());
  }
  g_main_context_pop_thread_default(context);
  g_main_context_unref(context);
}

bool start(std::uint32_t focal_um) {
  try {
    std::promise<std::string> started;
    auto address = started.get_future();
    {
      const ScopedSigtermBlock block;
      std::thread(serve, focal_um, std::move(started)).detach();
    }
    setenv("DBUS_SYSTEM_BUS_ADDRESS", address.get().c_str(), 1);
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
