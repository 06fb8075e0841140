// A receiver of calls: a web server on a thread of its own that can fail in many ways.
#pragma once

#include <libsoup/soup.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/support/owners.h"

class Receiving {
 public:
  enum class Mood { kTakes, kFails, kHangs, kSlow, kRedirects, kDrops };

  /// What came in one request.
  struct Call {
    std::string body;
    std::string timestamp;
    std::string signature;
    bool is_taken;  ///< the sender was told so, if it has waited
  };

  /// On a free port; with a certificate that nobody vouches for, where one is given.
  explicit Receiving(GTlsCertificate* certificate = nullptr);
  ~Receiving();
  Receiving(const Receiving&) = delete;
  Receiving& operator=(const Receiving&) = delete;

  /// Nobody is there any more.
  void leave();
  /// At the same address again.
  void comeBack();

  [[nodiscard]] std::string url() const;
  [[nodiscard]] std::vector<Call> calls() const;
  /// The numbers that were taken, in order, each once.
  [[nodiscard]] std::vector<std::uint64_t> numbers() const;
  /// "called 1", "answered", ... of all that were taken.
  [[nodiscard]] std::vector<std::string> words() const;

  std::atomic<Mood> mood{Mood::kTakes};

 private:
  void serve();
  void answer(SoupServerMessage* message);

  GTlsCertificate* m_certificate;
  guint m_port = 0;
  GLibPtr<GMainContext> m_context;
  GLibPtr<GMainLoop> m_loop;
  SoupServer* m_server = nullptr;
  std::thread m_thread;
  mutable std::mutex m_mutex;
  std::vector<Call> m_calls;
};
