#include "platform/workstation/inference/engine/onnx/asked_part.h"

#include <cstddef>
#include <map>
#include <numeric>
#include <utility>

#include "platform/workstation/inference/engine/onnx/message.h"

namespace workstation {
namespace {

using onnx::Bytes;
using onnx::Message;

constexpr std::uint64_t kGraph = 7;                                           // field of a model
constexpr std::uint64_t kNode = 1, kConstant = 5, kInput = 11, kOutput = 12;  // of a graph
constexpr std::uint64_t kNodeInput = 1, kNodeOutput = 2, kAttribute = 5;      // of a node
constexpr std::uint64_t kAttributeGraph = 6, kAttributeGraphs = 11;           // of an attribute
constexpr std::uint64_t kConstantName = 8, kValueName = 1;

/// What a node reads and makes.
struct Ties {
  std::vector<std::string> inputs;
  std::vector<std::string> outputs;
};

void refuseGraphs(Bytes attribute) {
  for (Message message(attribute); message.next();) {
    const bool is_graph = message.field() == kAttributeGraph || message.field() == kAttributeGraphs;
    if (is_graph) onnx::refuse("a graph within a node may read what no input names");
  }
}

Ties tiesOf(Bytes node) {
  Ties ties;
  for (Message message(node); message.next();) {
    if (message.field() == kNodeInput) ties.inputs.push_back(message.text());
    if (message.field() == kNodeOutput) ties.outputs.push_back(message.text());
    if (message.field() == kAttribute) refuseGraphs(message.bytes());
  }
  return ties;
}

std::string nameIn(Bytes bytes, std::uint64_t field) {
  for (Message message(bytes); message.next();) {
    if (message.field() == field) return message.text();
  }
  return "";
}

class Cut {
 public:
  Cut(Bytes graph, const std::vector<std::string>& outputs) : m_graph(graph) {
    for (Message message(graph); message.next();) {
      if (message.field() == kNode) m_nodes.push_back(tiesOf(message.bytes()));
      if (message.field() == kConstant) m_constants.insert(nameIn(message.bytes(), kConstantName));
    }
    for (std::size_t at = 0; at < m_nodes.size(); ++at) {
      for (const std::string& output : m_nodes[at].outputs) m_maker[output] = at;
    }
    for (const std::string& output : outputs) {
      if (!m_maker.contains(output)) onnx::refuse("there is no output \"" + output + "\"");
      need(output);
    }
    m_is_kept.resize(m_nodes.size());
    for (const auto& [tensor, maker] : m_maker) {
      if (m_needed.contains(tensor)) m_is_kept[maker] = true;
    }
  }

  std::set<std::string> leftOut() const {
    std::set<std::string> tensors;
    for (const auto& [tensor, maker] : m_maker) {
      if (!m_is_kept[maker]) tensors.insert(tensor);
    }
    return tensors;
  }

  /// What is kept of the graph, field by field.
  std::vector<Bytes> kept() const {
    std::vector<Bytes> fields;
    std::size_t node = 0;
    for (Message message(m_graph); message.next();) {
      const bool is_wanted = message.field() == kNode ? m_is_kept[node++] : isWanted(message);
      if (is_wanted) fields.push_back(message.whole());
    }
    return fields;
  }

 private:
  /// The tensor, and all that it is made of.
  void need(const std::string& output) {
    std::vector<std::string> waiting{output};
    while (!waiting.empty()) {
      const std::string tensor = std::move(waiting.back());
      waiting.pop_back();
      if (!m_needed.insert(tensor).second) continue;
      const auto maker = m_maker.find(tensor);
      if (maker == m_maker.end()) continue;
      const auto& inputs = m_nodes[maker->second].inputs;
      waiting.insert(waiting.end(), inputs.begin(), inputs.end());
    }
  }

  bool isWanted(const Message& field) const {
    switch (field.field()) {
      case kConstant:
        return m_needed.contains(nameIn(field.bytes(), kConstantName));
      case kInput: {  // older files name their constants here, too
        const std::string name = nameIn(field.bytes(), kValueName);
        return m_needed.contains(name) || !m_constants.contains(name);
      }
      case kOutput:
        return m_needed.contains(nameIn(field.bytes(), kValueName));
      default:
        return true;
    }
  }

  Bytes m_graph;
  std::vector<Ties> m_nodes;
  std::set<std::string> m_constants;
  std::map<std::string, std::size_t> m_maker;  ///< tensor -> the node that makes it
  std::set<std::string> m_needed;
  std::vector<bool> m_is_kept;
};

void append(std::string& to, Bytes bytes) { to.append(bytes.begin(), bytes.end()); }

/// A field of that number that holds the pieces, one behind the other.
void append(std::string& to, std::uint64_t field, const std::vector<Bytes>& pieces) {
  const auto number = [&to](std::uint64_t value) {
    for (; value >= 0x80; value >>= 7) to += static_cast<char>(value | 0x80);
    to += static_cast<char>(value);
  };
  number(field << 3 | 2);
  number(std::accumulate(pieces.begin(), pieces.end(), std::uint64_t{0},
                         [](std::uint64_t size, Bytes piece) { return size + piece.size(); }));
  for (const Bytes piece : pieces) append(to, piece);
}

AskedPart cut(Bytes file, const std::vector<std::string>& outputs) {
  AskedPart part;
  part.onnx.reserve(file.size());  // most of it is kept, and it is large
  for (Message model(file); model.next();) {
    if (model.field() != kGraph) {
      append(part.onnx, model.whole());
      continue;
    }
    const Cut graph(model.bytes(), outputs);
    part.left_out = graph.leftOut();
    append(part.onnx, kGraph, graph.kept());
  }
  return part.left_out.empty() ? AskedPart() : part;
}

Bytes bytesOf(const std::string& text) { return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()}; }

}  // namespace

AskedPart askedPart(std::span<const std::uint8_t> file, const std::vector<std::string>& outputs) {
  try {
    return cut(file, outputs);
  } catch (const Unsupported&) {
    return {};
  }
}

AskedTask::AskedTask(const NetworkTask& whole, std::string file)
    : m_part(askedPart(file.empty() ? whole.onnx : bytesOf(file), whole.outputs)), m_task(whole) {
  if (m_part.onnx.empty()) {
    if (file.empty()) return;
    m_part.onnx.swap(file);
  }
  std::string().swap(file);  // parameters live until their caller goes on
  m_task.onnx = bytesOf(m_part.onnx);
  std::erase_if(m_task.ranges, [this](const auto& range) { return m_part.left_out.contains(range.first); });
}

}  // namespace workstation
