// What a parameter of the package may be.
#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <string>

#include "platform/workstation/parameters/stored_parameters.h"

namespace workstation {

/// What somebody sets, by parameter name.
using ParameterGroup = std::map<std::string, std::string>;

/// The package's manifest, as far as it says what values are good.
class ParameterRules {
 public:
  /// Throws std::runtime_error with one line when the manifest cannot be used.
  explicit ParameterRules(const std::filesystem::path& manifest);
  ~ParameterRules();
  ParameterRules(const ParameterRules&) = delete;
  ParameterRules& operator=(const ParameterRules&) = delete;

  [[nodiscard]] const Parameters& defaults() const { return m_defaults; }
  /// What is wrong with a value by its kind and by the manifest's limits, as the end of a sentence; empty if it is
  /// good.
  [[nodiscard]] std::string mistakeIn(const std::string& name, const std::string& value) const;
  /// Throws std::runtime_error with one line for the first value that is wrong. `place` says where they stand.
  void check(const ParameterGroup& group, const std::string& place) const;

 private:
  struct Entries;

  Parameters m_defaults;
  std::unique_ptr<const Entries> m_entries;
};

/// Whether two texts are one value: "2.0" is what the program writes as "2.000000".
bool isSameValue(const std::string& a, const std::string& b);

/// Throws std::runtime_error with a line for each parameter that the package does not have or that has the wrong kind
/// of value. `place` says where they stand.
void checkParameters(const ParameterGroup& parameters, const Parameters& defaults, const std::string& place);

/// The same for what somebody sets on the command line, which must also lie within the manifest's limits.
void checkSet(const ParameterGroup& group, const std::filesystem::path& manifest);

/// For the parameters that a trace was made with: all of the package's, within the manifest's limits. Throws
/// std::runtime_error with one line for the first that is missing or wrong.
void checkRecorded(const ParameterGroup& parameters, const std::filesystem::path& manifest, const std::string& place);

}  // namespace workstation
