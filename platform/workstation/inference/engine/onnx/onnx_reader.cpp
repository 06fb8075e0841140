#include "platform/workstation/inference/engine/onnx/onnx_reader.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

#include "platform/workstation/inference/engine/onnx/message.h"

namespace workstation {
namespace {

using onnx::Bytes;
using onnx::Message;
using onnx::refuse;

template <typename Number>
std::vector<Number> numbersOf(Bytes raw) {
  if (raw.size() % sizeof(Number) != 0) refuse("its file is not whole");
  std::vector<Number> numbers(raw.size() / sizeof(Number));
  if (!raw.empty()) std::memcpy(numbers.data(), raw.data(), raw.size());
  return numbers;
}

void checkConstant(const std::string& name, const OnnxConstant& constant, size_t values) {
  size_t wanted = 1;
  for (const std::int64_t size : constant.shape) {
    if (size < 0 || size > (1 << 26)) refuse("the sizes of \"" + name + "\" are not known here");
    wanted = std::min(wanted * static_cast<size_t>(size), size_t{1} << 32);
  }
  if (values != wanted) refuse("\"" + name + "\" has not as many values as its sizes say");
  if (!std::all_of(constant.floats.begin(), constant.floats.end(), [](float value) { return std::isfinite(value); })) {
    refuse("the values of \"" + name + "\" are not all finite");
  }
}

constexpr std::int64_t kFloat = 1;  // TensorProto.DataType
constexpr std::int64_t kInt64 = 7;

std::pair<std::string, OnnxConstant> readConstant(Bytes bytes) {
  OnnxConstant constant;
  std::string name;
  std::int64_t type = 0;
  Bytes raw;
  for (Message tensor(bytes); tensor.next();) {
    switch (tensor.field()) {
      case 1:
        tensor.appendTo(constant.shape);
        break;
      case 2:
        type = tensor.integer();
        break;
      case 4:
        tensor.appendTo(constant.floats);
        break;
      case 7:
        tensor.appendTo(constant.integers);
        break;
      case 8:
        name = tensor.text();
        break;
      case 9:
        raw = tensor.bytes();
        break;
      case 12:
        break;  // a text for people
      case 14:
        if (tensor.integer() != 0) refuse("\"" + name + "\" lies in a file of its own");
        break;
      default:
        refuse("a constant is kept in a form not known here");
    }
  }
  if (type != kFloat && type != kInt64) refuse("\"" + name + "\" is of a type not known here");
  if (type == kFloat && !raw.empty()) constant.floats = numbersOf<float>(raw);
  if (type == kInt64 && !raw.empty()) constant.integers = numbersOf<std::int64_t>(raw);
  checkConstant(name, constant, type == kFloat ? constant.floats.size() : constant.integers.size());
  return {name, std::move(constant)};
}

std::pair<std::string, OnnxAttribute> readAttribute(Bytes bytes) {
  OnnxAttribute attribute;
  std::string name;
  for (Message message(bytes); message.next();) {
    switch (message.field()) {
      case 1:
        name = message.text();
        break;
      case 2:
        attribute.number = message.number();
        break;
      case 3:
        attribute.integer = message.integer();
        break;
      case 4:
        attribute.text = message.text();
        break;
      case 8:
        message.appendTo(attribute.integers);
        break;
      case 13:
      case 20:
        break;  // a text for people; the type, which the reader knows
      default:
        refuse("attribute \"" + name + "\" is of a kind not known here");
    }
  }
  return {name, std::move(attribute)};
}

OnnxNode readNode(Bytes bytes) {
  OnnxNode node;
  for (Message message(bytes); message.next();) {
    switch (message.field()) {
      case 1:
        node.inputs.push_back(message.text());
        break;
      case 2:
        node.outputs.push_back(message.text());
        break;
      case 4:
        node.kind = message.text();
        break;
      case 5:
        node.attributes.insert(readAttribute(message.bytes()));
        break;
      case 7:
        if (!message.bytes().empty()) refuse("it has operators of \"" + message.text() + "\"");
        break;
      default:
        break;  // names and texts for people
    }
  }
  if (node.outputs.empty()) refuse("a " + node.kind + " has no output");
  return node;
}

std::string nameOf(Bytes value_info) {
  for (Message message(value_info); message.next();) {
    if (message.field() == 1) return message.text();
  }
  return "";
}

OnnxGraph readGraph(Bytes bytes) {
  OnnxGraph graph;
  for (Message message(bytes); message.next();) {
    switch (message.field()) {
      case 1:
        graph.nodes.push_back(readNode(message.bytes()));
        break;
      case 5:
        graph.constants.insert(readConstant(message.bytes()));
        break;
      case 11:
        graph.inputs.push_back(nameOf(message.bytes()));
        break;
      case 15:
        refuse("it has sparse constants");
      default:
        break;  // outputs are asked for by name
    }
  }
  std::erase_if(graph.inputs, [&](const std::string& name) { return graph.constants.contains(name); });
  return graph;
}

}  // namespace

OnnxGraph readOnnx(std::span<const std::uint8_t> file) {
  for (Message model(file); model.next();) {
    if (model.field() == 7) return readGraph(model.bytes());
  }
  refuse("its file holds no graph");
}

}  // namespace workstation
