// What the room looked like when the floor was calibrated, kept over restarts: edges and light, nobody's face
// (docs/decisions/a-room-without-people.md).
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "platform/workstation/sight/sight.h"

namespace workstation {

struct StoredRoom {
  std::string floor;  ///< the calibration that it belongs to: its parameters in one line
  std::string taken;  ///< when, as "2026-03-01T12:00:31.500Z"
  RoomReference room;
};

/// The file in a state directory.
std::filesystem::path roomFile(const std::filesystem::path& directory);

/// Nothing where there is no file. Throws std::runtime_error with one line when it cannot be read or is damaged.
std::optional<StoredRoom> loadRoom(const std::filesystem::path& directory);
/// On disk on return, or the one before. Throws std::runtime_error with one line.
void saveRoom(const StoredRoom& room, const std::filesystem::path& directory);

}  // namespace workstation
