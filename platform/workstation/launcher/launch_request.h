// What somebody asked for on the command line of velmor_run.
#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/workstation/parameters/parameter_rules.h"

namespace workstation {

/// A command line that cannot be obeyed: one line that says why.
struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

struct LaunchRequest {
  bool help = false;
  bool replay = false;                       ///< as fast as the machine can, on the recording's clock
  bool json = false;                         ///< replay only: one JSON object a line on standard output
  bool tls = false;                          ///< the page is https also on this machine only
  std::optional<std::string> source;         ///< a video, a URI, a camera's description (*.json) or, for
                                             ///< a replay, a trace; none: the demo
  std::optional<std::string> login;          ///< live only: a file with the camera's user and password
  bool loop = false;                         ///< live only: a file begins again at its end
  std::optional<std::string> settings;       ///< JSON file of what the installer has set
  std::optional<std::string> truth;          ///< replay only: the true people instead of the networks'
  std::optional<std::string> state;          ///< state directory instead of the usual one
  std::optional<std::string> listen;         ///< ADDRESS:PORT of the page instead of the usual one
  std::optional<std::string> user;           ///< becomes an installer with a password, newly or again
  std::optional<std::string> password_file;  ///< which is its first line
  std::optional<std::string> model;          ///< a network that is tried instead of a run, as a replay of the demo
  std::optional<std::string> trace;      ///< a replay's file, or a live run's directory, for what is decided and why
  std::vector<ParameterGroup> sets;      ///< replay only: over all other settings; several are compared
  std::optional<std::string> explained;  ///< a trace that is explained, instead of a run
  std::optional<std::string> at;         ///< of it: a time
  std::optional<std::string> event;      ///< of it: an event's number
  std::optional<std::string> threads;    ///< of a network's run, a whole number
  std::optional<std::string> precision;  ///< that networks run in: fp32, bf16 or int8
  std::optional<std::string> eyes;       ///< how sharply networks look: fast or sharp
  std::optional<std::string> reset;      ///< "floor" or "camera": what is put back, instead of a run
};

/// The command line without the program's name. Throws UsageError.
LaunchRequest parseCommandLine(const std::vector<std::string>& arguments);

/// Takes the groups out of the words, "--set KEY=VALUE ...", however many each has; what remains is for others. Throws
/// UsageError.
std::vector<std::string> takeSets(const std::vector<std::string>& words, std::vector<ParameterGroup>& sets);

/// Throws UsageError unless networks can be asked to run in it.
void checkPrecision(const std::string& word);

/// Throws UsageError unless networks have such eyes.
void checkEyes(const std::string& word);

/// What --help prints.
const char* usage();

}  // namespace workstation
