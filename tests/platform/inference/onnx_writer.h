// Small networks in ONNX for tests, as bytes of their files.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

/// One message of protocol buffers.
class OnnxMessage {
 public:
  OnnxMessage& number(unsigned field, std::int64_t value) { return key(field, 0).varint(static_cast<uint64_t>(value)); }
  OnnxMessage& text(unsigned field, const std::string& value) {
    key(field, 2).varint(value.size());
    m_bytes += value;
    return *this;
  }
  OnnxMessage& message(unsigned field, const OnnxMessage& value) { return text(field, value.m_bytes); }
  OnnxMessage& real(unsigned field, float value) {
    key(field, 5);
    m_bytes.append(reinterpret_cast<const char*>(&value), sizeof(value));
    return *this;
  }
  const std::string& bytes() const { return m_bytes; }

 private:
  OnnxMessage& key(unsigned field, unsigned wire) { return varint(field << 3 | wire); }
  OnnxMessage& varint(std::uint64_t value) {
    for (; value >= 0x80; value >>= 7) m_bytes += static_cast<char>(value | 0x80);
    m_bytes += static_cast<char>(value);
    return *this;
  }
  std::string m_bytes;
};

inline OnnxMessage integers(const std::string& name, const std::vector<std::int64_t>& values) {
  OnnxMessage made;
  made.text(1, name);
  for (const std::int64_t value : values) made.number(8, value);
  return made.number(20, 7);
}
inline OnnxMessage integer(const std::string& name, std::int64_t value) {
  return OnnxMessage().text(1, name).number(3, value).number(20, 2);
}
inline OnnxMessage real(const std::string& name, float value) {
  return OnnxMessage().text(1, name).real(2, value).number(20, 1);
}
inline OnnxMessage word(const std::string& name, const std::string& value) {
  return OnnxMessage().text(1, name).text(4, value).number(20, 3);
}

/// A network that reads "picture", [1, 1, height, packed width], and grows node by node.
class OnnxWriter {
 public:
  OnnxWriter(int height, int packed_width) : m_height(height), m_packed_width(packed_width) {}

  /// A node whose name is that of its output.
  OnnxWriter& node(const std::string& kind, const std::vector<std::string>& inputs, const std::string& output,
                   const std::vector<OnnxMessage>& attributes = {}) {
    OnnxMessage made;
    for (const std::string& input : inputs) made.text(1, input);
    made.text(2, output).text(3, output).text(4, kind);
    for (const OnnxMessage& attribute : attributes) made.message(5, attribute);
    m_graph.message(1, made);
    return *this;
  }

  template <typename Value>
  OnnxWriter& constant(const std::string& name, const std::vector<std::int64_t>& shape,
                       const std::vector<Value>& values) {
    OnnxMessage made;
    for (const std::int64_t size : shape) made.number(1, size);
    made.number(2, sizeof(Value) == sizeof(float) ? 1 : 7).text(8, name);
    made.text(9, {reinterpret_cast<const char*>(values.data()), values.size() * sizeof(Value)});
    m_graph.message(5, made);
    return *this;
  }

  /// A convolution with weights, and a bias unless it is told to leave it out, that look random and are always the
  /// same.
  OnnxWriter& convolution(const std::string& input, const std::string& output, const std::vector<std::int64_t>& weights,
                          std::vector<OnnxMessage> attributes, bool has_bias = true) {
    constant(output + ".w", weights, random(weights[0] * weights[1] * weights[2] * weights[3]));
    std::vector<std::string> inputs{input, output + ".w"};
    if (has_bias) {
      constant(output + ".b", {weights[0]}, random(weights[0]));
      inputs.push_back(output + ".b");
    }
    attributes.push_back(integers("kernel_shape", {weights[2], weights[3]}));
    return node("Conv", inputs, output, attributes);
  }

  /// The file; `outputs` are named in it, too, without their shapes.
  std::string file(const std::vector<std::string>& outputs) const {
    OnnxMessage graph = m_graph;
    OnnxMessage shape;
    for (const std::int64_t size : {1, 1, m_height, m_packed_width}) shape.message(1, OnnxMessage().number(1, size));
    const OnnxMessage tensor = OnnxMessage().message(1, OnnxMessage().number(1, 1).message(2, shape));
    graph.text(2, "test").message(11, OnnxMessage().text(1, "picture").message(2, tensor));
    const OnnxMessage any = OnnxMessage().message(1, OnnxMessage().number(1, 1).message(2, OnnxMessage()));
    for (const std::string& output : outputs) graph.message(12, OnnxMessage().text(1, output).message(2, any));
    return OnnxMessage().number(1, 6).message(8, OnnxMessage().text(1, "").number(2, 11)).message(7, graph).bytes();
  }

  int height() const { return m_height; }
  int packedWidth() const { return m_packed_width; }

 private:
  std::vector<float> random(std::int64_t count) {
    std::vector<float> values(static_cast<size_t>(count));
    for (float& value : values) {
      m_random = m_random * 1664525U + 1013904223U;
      value = static_cast<float>(m_random >> 8) / static_cast<float>(1U << 24) - 0.5F;
    }
    return values;
  }

  int m_height, m_packed_width;
  OnnxMessage m_graph;
  std::uint32_t m_random = 1;
};
