// From a recorded fall to the last of twenty pages and to a webhook, and a start with ten thousand alarms.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/support/file_descriptor.h"
#include "platform/workstation/alarms/alarm_desk.h"
#include "platform/workstation/events/event_recorder.h"
#include "platform/workstation/outside/post_office.h"
#include "platform/workstation/web/alarms/alarm_service.h"

namespace {

using namespace workstation;
using Clock = std::chrono::steady_clock;

constexpr std::size_t kViewers = 20;
constexpr std::uint64_t kAlarms = 10'000;
constexpr const char* kFall = "Fall Detected";

/// An empty state directory, removed again.
class State {
 public:
  State() {
    std::string name = (std::filesystem::temp_directory_path() / "velmor-benchmark-XXXXXX").string();
    m_path = ::mkdtemp(name.data());
    ::setenv("VELMOR_STATE", m_path.c_str(), 1);
  }
  ~State() { std::filesystem::remove_all(m_path); }
  State(const State&) = delete;
  State& operator=(const State&) = delete;

  std::filesystem::path operator/(const char* name) const { return m_path / name; }

 private:
  std::filesystem::path m_path;
};

sockaddr_in loopback(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

/// A page that follows the feed of alarms.
class Page {
 public:
  explicit Page(std::uint16_t port) : m_socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const sockaddr_in server = loopback(port);
    const std::string request =
        "GET /platform/alarms/feed HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) + "\r\n\r\n";
    if (::connect(m_socket.get(), reinterpret_cast<const sockaddr*>(&server), sizeof server) != 0 ||
        ::send(m_socket.get(), request.data(), request.size(), 0) < 0) {
      std::abort();
    }
    awaitMessage("event: alarms");
  }
  /// When a message with this in it has come.
  Clock::time_point awaitMessage(const std::string& text) {
    char block[65536];
    while (m_read.find(text) == std::string::npos) {
      const ssize_t got = ::recv(m_socket.get(), block, sizeof block, 0);
      if (got <= 0) std::abort();
      m_read.append(block, static_cast<std::size_t>(got));
    }
    m_read.clear();
    return Clock::now();
  }

 private:
  FileDescriptor m_socket;
  std::string m_read;
};

/// An address that takes calls.
class Ward {
 public:
  Ward() : m_listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in own = loopback(0);
    socklen_t size = sizeof own;
    if (::bind(m_listener.get(), reinterpret_cast<const sockaddr*>(&own), size) != 0 ||
        ::listen(m_listener.get(), 16) != 0 ||
        ::getsockname(m_listener.get(), reinterpret_cast<sockaddr*>(&own), &size) != 0) {
      std::abort();
    }
    m_port = ntohs(own.sin_port);
    m_thread = std::thread([this] { serve(); });
  }
  ~Ward() {
    m_leaving = true;
    m_thread.join();
  }
  Ward(const Ward&) = delete;
  Ward& operator=(const Ward&) = delete;

  std::string url() const { return "http://127.0.0.1:" + std::to_string(m_port) + "/"; }
  /// When the call for this alarm has come.
  Clock::time_point await(const std::string& alarm) {
    for (;;) {
      {
        const std::scoped_lock lock(m_mutex);
        if (m_last.find("\"" + alarm + "\"") != std::string::npos) return m_time;
      }
      std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
  }

 private:
  void serve() {
    while (!m_leaving) {
      pollfd waiting{m_listener.get(), POLLIN, 0};
      if (::poll(&waiting, 1, 20) == 1)
        answer(FileDescriptor(::accept4(m_listener.get(), nullptr, nullptr, SOCK_CLOEXEC)));
    }
  }
  void answer(const FileDescriptor& caller) {
    std::string request;
    char block[4096];
    while (!request.ends_with("}}")) {
      const ssize_t got = ::recv(caller.get(), block, sizeof block, 0);
      if (got <= 0) return;
      request.append(block, static_cast<std::size_t>(got));
    }
    {
      const std::scoped_lock lock(m_mutex);
      m_time = Clock::now();
      m_last = request;
    }
    const std::string reply = "HTTP/1.1 204 No Content\r\nConnection: close\r\n\r\n";
    ::send(caller.get(), reply.data(), reply.size(), MSG_NOSIGNAL);
  }

  FileDescriptor m_listener;
  std::uint16_t m_port = 0;
  std::atomic<bool> m_leaving{false};
  std::mutex m_mutex;
  std::string m_last;
  Clock::time_point m_time;
  std::thread m_thread;
};

/// A program with its pages and a ward.
struct Running {
  Running() {
    CallSettings calls;
    calls.levels[0].push_back({"webhook", "ward", ward.url(), "0123456789abcdef"});
    storeCallSettings(state / "", calls);
    recorder = EventRecorder::begin([](const EventRecord&) {});
    desk = AlarmDesk::open();
    post.emplace(desk, std::make_shared<Cursors>());
    server = std::make_unique<HttpServer>(HttpServerSettings{});
    service.emplace(*server, *desk, *post);
    const std::uint16_t port = server->listen(parseListenAddress("127.0.0.1:0"));
    for (std::size_t i = 0; i < kViewers; ++i) pages.push_back(std::make_unique<Page>(port));
  }
  ~Running() {
    pages.clear();
    server->stop();
    service.reset();
    post.reset();
    desk->close();
    recorder->finish();
  }
  Running(const Running&) = delete;
  Running& operator=(const Running&) = delete;

  /// The id of its alarm.
  std::string fall() {
    recorder->record({ticker_clock::now(), "changed", kFall, "t", true});
    const EventsNow now = eventsNow();
    return alarmId(now.run, now.last);
  }

  State state;
  Ward ward;
  std::shared_ptr<EventRecorder> recorder;
  std::shared_ptr<AlarmDesk> desk;
  std::optional<PostOffice> post;
  std::unique_ptr<HttpServer> server;
  std::optional<AlarmService> service;
  std::vector<std::unique_ptr<Page>> pages;
};

double seconds(Clock::duration span) { return std::chrono::duration<double>(span).count(); }

/// Median and worst stand in the counters.
void tell(benchmark::State& state, std::vector<double> times) {
  std::sort(times.begin(), times.end());
  state.counters["median_ms"] = 1000 * times[times.size() / 2];
  state.counters["worst_ms"] = 1000 * times.back();
}

void fallToTwentyPages(benchmark::State& state) {
  Running running;
  std::vector<double> times;
  for ([[maybe_unused]] auto _ : state) {
    const Clock::time_point began = Clock::now();
    const std::string alarm = running.fall();
    Clock::time_point last = began;
    for (const auto& page : running.pages) last = std::max(last, page->awaitMessage(alarm));
    times.push_back(seconds(last - began));
    state.SetIterationTime(times.back());
    running.ward.await(alarm);
  }
  tell(state, times);
}
BENCHMARK(fallToTwentyPages)->UseManualTime()->Iterations(200)->Unit(benchmark::kMillisecond);

void fallToWebhook(benchmark::State& state) {
  Running running;
  std::vector<double> times;
  for ([[maybe_unused]] auto _ : state) {
    const Clock::time_point began = Clock::now();
    const std::string alarm = running.fall();
    times.push_back(seconds(running.ward.await(alarm) - began));
    state.SetIterationTime(times.back());
    for (const auto& page : running.pages) page->awaitMessage(alarm);
  }
  tell(state, times);
}
BENCHMARK(fallToWebhook)->UseManualTime()->Iterations(200)->Unit(benchmark::kMillisecond);

std::string journalOf(std::uint64_t alarms) {
  using Kind = AlarmEntry::Kind;
  std::string text;
  std::uint64_t number = 0;
  for (std::uint64_t seq = 1; seq <= alarms; ++seq) {
    for (const Kind kind : {Kind::kRaised, Kind::kCalled, Kind::kAnswered, Kind::kEnded, Kind::kClosed}) {
      AlarmEntry entry{.kind = kind, .number = ++number, .run = "9f2c41d07b3e5a18", .time = ticker_clock::now()};
      entry.alarm = alarmId(entry.run, seq);
      entry.event = kFall;
      entry.level = 1;
      entry.what = AnswerKind::kResolved;
      text += lineOf(entry);
    }
  }
  return text;
}

void startWithTenThousandAlarms(benchmark::State& state) {
  const State folder;
  const std::string journal = journalOf(kAlarms);
  for ([[maybe_unused]] auto _ : state) {
    std::ofstream(folder / "alarms.jsonl") << journal;
    const Clock::time_point began = Clock::now();
    const auto desk = AlarmDesk::open();
    state.SetIterationTime(seconds(Clock::now() - began));
    if (!desk->isPastKnown()) std::abort();
    desk->close();
  }
}
BENCHMARK(startWithTenThousandAlarms)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
