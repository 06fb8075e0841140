// The parameters' file: named texts, one generation back kept, every change whole or not at all.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>

namespace workstation {

using Parameters = std::map<std::string, std::string, std::less<>>;

/// True for names the file can hold: letters, digits, dot, dash and underscore, 1 to 64 of them.
bool isParameterName(const std::string& name);

/// The package's manifest: VELMOR_MANIFEST, else in the package of the application.
std::filesystem::path manifestPath(const std::string& app_name);

/// The default of every parameter that the package's manifest declares. Throws std::runtime_error with one line.
Parameters manifestDefaults(const std::filesystem::path& manifest);

/// What is on disk: the values, and what the camera's description said of them at the start that wrote them.
struct StoredState {
  Parameters values;
  Parameters described;

  bool operator==(const StoredState&) const = default;
};

/// What a start goes on with. A default fills in what is not stored; what the description says counts when it said
/// something else at the last start, so that what was saved since then is kept.
StoredState startFrom(StoredState stored, const Parameters& defaults,
                      const std::map<std::string, std::string>& described);

/// Is told of the parameters that are in force from now on, by the thread that stores them. One for the process, set
/// before main.
using ParametersHook = void (*)(const Parameters&);
void setParametersHook(ParametersHook hook);
/// For whoever stores them: tells the hook, and the camera's sight of the floor.
void tellParameters(const Parameters& values);

/// The parameters that were told last; none before. From any thread.
Parameters currentParameters();

/// What the program has been told to watch for: for viewers who may not see the settings.
struct WatchedFor {
  bool falls = false;
  bool exits = false;  ///< of a bed
  int beds = 0;        ///< areas in use
};
/// By the parameters that were told last; none before. From any thread.
std::optional<WatchedFor> watchedFor();

/// What a state directory holds for one group (application).
class StoredParameters {
 public:
  /// Nothing is read or created yet.
  StoredParameters(const std::filesystem::path& directory, std::string group);

  /// The stored state; none when nothing was ever stored. When the newest generation is damaged the one before is
  /// taken and `damage()` says so; throws std::runtime_error with one line when that is damaged too.
  std::optional<StoredState> load();
  /// One line on the damaged generation that the last load() passed over, else empty.
  const std::string& damage() const { return m_damage; }
  /// On disk on return; the values before stay as the generation before, and a file that load() found damaged is put
  /// aside as parameters.conf.damaged. Throws std::runtime_error with one line.
  void save(const StoredState& state);

 private:
  std::optional<StoredState> readGeneration(const std::filesystem::path& path) const;

  std::filesystem::path m_file;
  std::filesystem::path m_previous;
  std::string m_group;
  std::string m_damage;
};

}  // namespace workstation
