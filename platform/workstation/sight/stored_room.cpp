#include "platform/workstation/sight/stored_room.h"

#include <charconv>
#include <cstdio>
#include <sstream>
#include <stdexcept>
#include <string_view>

#include "platform/workstation/system/durable_file.h"

namespace workstation {
namespace {

constexpr const char* kKind = "velmor_care room 1";
constexpr std::size_t kLimitBytes = std::size_t{128} << 10;

/// FNV-1a: tells a room from what a failing disk makes of it.
std::uint64_t checksum(std::string_view text) {
  std::uint64_t sum = 14695981039346656037ULL;
  for (const char c : text) sum = (sum ^ static_cast<unsigned char>(c)) * 1099511628211ULL;
  return sum;
}

char hexDigit(unsigned int value) { return "0123456789abcdef"[value & 15U]; }

unsigned int fromHex(char digit) {
  if (digit >= '0' && digit <= '9') return static_cast<unsigned int>(digit - '0');
  if (digit >= 'a' && digit <= 'f') return static_cast<unsigned int>(digit - 'a' + 10);
  throw std::runtime_error("is damaged");
}

std::string bodyOf(const StoredRoom& stored) {
  char numbers[64];
  std::snprintf(numbers, sizeof numbers, "%.4f %d", stored.room.sharpness, stored.room.textured);
  std::string text = std::string(kKind) + "\n" + stored.floor + "\n" + stored.taken + "\n" + numbers + "\n";
  for (const std::uint8_t level : stored.room.shade) {
    text += hexDigit(level / 16U);
    text += hexDigit(level);
  }
  for (std::size_t cell = 0; cell < kCells; ++cell) {
    if (cell % kCellColumns == 0) text += '\n';
    for (const std::uint8_t strength : stored.room.edges.cells[cell]) text += hexDigit(strength / kStrengthStep);
  }
  return text + "\n";
}

std::string lineOf(std::istringstream& lines) {
  std::string line;
  if (!std::getline(lines, line)) throw std::runtime_error("is damaged");
  return line;
}

std::string lineOf(std::istringstream& lines, std::size_t size) {
  std::string line = lineOf(lines);
  if (line.size() != size) throw std::runtime_error("is damaged");
  return line;
}

StoredRoom parse(const std::string& text) {
  const std::size_t end = text.rfind('\n', text.size() - 2);
  if (text.size() < 2 || end == std::string::npos ||
      text.substr(end + 1) != std::to_string(checksum(std::string_view(text).substr(0, end + 1))) + "\n") {
    throw std::runtime_error("is damaged");
  }
  std::istringstream lines(text);
  if (lineOf(lines) != kKind) throw std::runtime_error("is of another version");
  StoredRoom stored;
  stored.floor = lineOf(lines);
  stored.taken = lineOf(lines);
  std::istringstream(lineOf(lines)) >> stored.room.sharpness >> stored.room.textured;
  const std::string shade = lineOf(lines, 2 * kBlocks);
  for (std::size_t i = 0; i < kBlocks; ++i) {
    stored.room.shade.at(i) = static_cast<std::uint8_t>(fromHex(shade[2 * i]) * 16 + fromHex(shade[2 * i + 1]));
  }
  stored.room.edges = {kCellColumns, kCellRows, std::vector<CellEdges>(kCells)};
  for (std::size_t y = 0; y < kCellRows; ++y) {
    const std::string row = lineOf(lines, kCellColumns * kDirections);
    for (std::size_t i = 0; i < row.size(); ++i) {
      stored.room.edges.cells[y * kCellColumns + i / kDirections][i % kDirections] =
          static_cast<std::uint8_t>(fromHex(row[i]) * kStrengthStep);
    }
  }
  return stored;
}

}  // namespace

std::filesystem::path roomFile(const std::filesystem::path& directory) { return directory / "room.edges"; }

std::optional<StoredRoom> loadRoom(const std::filesystem::path& directory) {
  const auto path = roomFile(directory);
  const auto text = readFile(path, kLimitBytes);
  if (!text) return std::nullopt;
  try {
    return parse(*text);
  } catch (const std::runtime_error& error) {
    throw std::runtime_error(path.string() + ": " + error.what());
  }
}

void saveRoom(const StoredRoom& room, const std::filesystem::path& directory) {
  const std::string body = bodyOf(room);
  replaceFile(roomFile(directory), body + std::to_string(checksum(body)) + "\n");
}

}  // namespace workstation
