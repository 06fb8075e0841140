// Messages of protocol buffers, of which ONNX files consist.
#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <vector>

#include "platform/workstation/inference/engine/unsupported.h"

static_assert(std::endian::native == std::endian::little, "ONNX holds its numbers little-endian");

namespace workstation::onnx {

using Bytes = std::span<const std::uint8_t>;

[[noreturn]] inline void refuse(const std::string& why) { throw Unsupported(why); }

/// The fields of one protocol buffers message, one after the other.
class Message {
 public:
  explicit Message(Bytes bytes) : m_rest(bytes) {}

  /// Steps to the next field; false at the end.
  bool next() {
    if (m_rest.empty()) return false;
    m_whole = m_rest;
    const std::uint64_t key = varint();
    m_field = key >> 3;
    m_wire = static_cast<int>(key & 7);
    switch (m_wire) {
      case 0:
        m_number = varint();
        break;
      case 1:
        m_bytes = take(8);
        break;
      case 2:
        m_bytes = take(varint());
        break;
      case 5:
        m_bytes = take(4);
        break;
      default:
        refuse("its file is not whole");
    }
    m_whole = m_whole.first(m_whole.size() - m_rest.size());
    return true;
  }

  std::uint64_t field() const { return m_field; }
  Bytes whole() const { return m_whole; }  ///< the field as it stands in the message, with its key
  Bytes bytes() const { return expect(2), m_bytes; }
  std::string text() const { return {bytes().begin(), bytes().end()}; }
  std::int64_t integer() const { return expect(0), static_cast<std::int64_t>(m_number); }
  float number() const {
    expect(5);
    float value = 0;
    std::memcpy(&value, m_bytes.data(), sizeof(value));
    return value;
  }

  /// Repeated numbers come one by one, or all in one field.
  void appendTo(std::vector<std::int64_t>& numbers) const {
    if (m_wire == 0) return numbers.push_back(integer());
    for (Message packed(bytes()); !packed.m_rest.empty();) {
      numbers.push_back(static_cast<std::int64_t>(packed.varint()));
    }
  }
  void appendTo(std::vector<float>& numbers) const {
    if (m_wire == 5) return numbers.push_back(number());
    if (bytes().size() % sizeof(float) != 0) refuse("its file is not whole");
    const size_t before = numbers.size();
    numbers.resize(before + m_bytes.size() / sizeof(float));
    std::copy(m_bytes.begin(), m_bytes.end(), reinterpret_cast<std::uint8_t*>(numbers.data() + before));
  }

 private:
  void expect(int wire) const {
    if (m_wire != wire) refuse("its file is not whole");
  }
  std::uint64_t varint() {
    std::uint64_t value = 0;
    for (unsigned shift = 0; shift < 64; shift += 7) {
      const std::uint8_t byte = take(1)[0];
      value |= std::uint64_t{byte & 0x7FU} << shift;
      if (byte < 0x80) return value;
    }
    refuse("its file is not whole");
  }
  Bytes take(std::uint64_t count) {
    if (count > m_rest.size()) refuse("its file is not whole");
    const Bytes taken = m_rest.first(count);
    m_rest = m_rest.subspan(count);
    return taken;
  }

  Bytes m_rest;
  Bytes m_whole;
  std::uint64_t m_field = 0;
  int m_wire = 0;
  std::uint64_t m_number = 0;
  Bytes m_bytes;
};

}  // namespace workstation::onnx
