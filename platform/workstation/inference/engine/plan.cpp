#include "platform/workstation/inference/engine/plan.h"

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <set>
#include <string_view>
#include <tuple>
#include <utility>

#include "platform/workstation/inference/engine/unsupported.h"

namespace workstation {
namespace {

constexpr int kMostSide = 1 << 15;  // of a map, and channels: what is more is no picture's
constexpr std::int64_t kMostElements = std::int64_t{1} << 27;

class Planner {
 public:
  Planner(const NetworkTask& task, Plan& plan) : m_task(task), m_plan(plan), m_graph(plan.graph) {}

  void plan() {
    if (m_graph.inputs.size() != 1) throw Unsupported("it has not one input");
    countUses();
    setShape(m_graph.inputs[0], {1, m_task.height, m_task.packed_width});
    for (size_t at = 0; at < m_graph.nodes.size(); ++at) {
      if (!m_fused.contains(at)) visit(at);
      const auto waiting = m_waiting.find(at);
      if (waiting != m_waiting.end()) emit(std::move(waiting->second));
    }
    for (const std::string& output : m_task.outputs) {
      if (!m_made.contains(output)) refuse(output, "is no output of a layer known here");
    }
  }

 private:
  [[noreturn]] static void refuse(const std::string& layer, const std::string& what) {
    throw Unsupported("layer \"" + layer + "\" " + what);
  }

  void countUses() {
    for (size_t at = 0; at < m_graph.nodes.size(); ++at) {
      for (const std::string& input : m_graph.nodes[at].inputs) {
        ++m_uses[input];
        m_user[input] = at;
      }
    }
    for (const std::string& output : m_task.outputs) m_uses[output] += 2;  // whoever asks takes it as it is
  }

  void visit(size_t at) {
    const OnnxNode& node = m_graph.nodes[at];
    if (node.outputs.size() != 1) refuse(nameOf(node), "has several outputs");
    if (node.kind == "Conv") return convolution(at);
    if (node.kind == "Pad") return pad(node);
    if (node.kind == "Relu" || node.kind == "Clip") return limit(node);
    if (node.kind == "Add") return sum(node);
    if (node.kind == "Resize") return resize(node);
    refuse(nameOf(node), "is of kind " + node.kind);
  }

  static const std::string& nameOf(const OnnxNode& node) { return node.outputs[0]; }

  static void allow(const OnnxNode& node, std::initializer_list<std::string_view> attributes, size_t least_inputs,
                    size_t most_inputs) {
    for (const auto& [name, value] : node.attributes) {
      if (std::find(attributes.begin(), attributes.end(), name) == attributes.end()) {
        refuse(nameOf(node), "has the attribute \"" + name + "\"");
      }
    }
    if (node.inputs.size() < least_inputs || node.inputs.size() > most_inputs) {
      refuse(nameOf(node), "has " + std::to_string(node.inputs.size()) + " inputs");
    }
  }

  const OnnxConstant* constant(const OnnxNode& node, size_t input) const {
    if (input >= node.inputs.size() || node.inputs[input].empty()) return nullptr;
    const auto found = m_graph.constants.find(node.inputs[input]);
    if (found == m_graph.constants.end()) refuse(nameOf(node), "needs \"" + node.inputs[input] + "\" as a constant");
    return &found->second;
  }

  /// The shape of a tensor that a step has made or that is the picture.
  const Shape& shapeOf(const OnnxNode& node, size_t input) const {
    const auto found = m_plan.shapes.find(node.inputs[input]);
    if (found == m_plan.shapes.end()) refuse(nameOf(node), "has an input that is no map: " + node.inputs[input]);
    return found->second;
  }

  void setShape(const std::string& tensor, const Shape& shape) {
    for (const int size : {shape.channels, shape.height, shape.width}) {
      if (size < 1 || size > kMostSide) refuse(tensor, "has a size not known here");
    }
    if (std::int64_t{shape.channels} * shape.height * shape.width > kMostElements) refuse(tensor, "is too large");
    const bool is_new = !m_graph.constants.contains(tensor) && m_plan.shapes.emplace(tensor, shape).second;
    if (!is_new) refuse(tensor, "is there twice");
  }

  bool isPicture(const std::string& tensor) const { return tensor == m_graph.inputs[0]; }

  /// What a step reads, which must not lie in a frame of zeros that nobody has written.
  std::string read(const OnnxNode& node, size_t input) {
    const std::string& tensor = node.inputs[input];
    shapeOf(node, input);
    if (m_framed.contains(tensor)) refuse(nameOf(node), "reads a frame of zeros, and is no convolution");
    if (isPicture(tensor)) makePicture();
    if (!m_made.contains(tensor)) refuse(nameOf(node), "comes before what it reads");
    return tensor;
  }

  void makePicture() {
    if (m_made.contains(m_graph.inputs[0])) return;
    Step step;
    step.kind = StepKind::kPicture;
    step.target = m_graph.inputs[0];
    emit(std::move(step));
  }

  void emit(Step step) {
    m_made.insert(step.target);
    m_plan.steps.push_back(std::move(step));
  }

  static int small(const OnnxNode& node, std::int64_t number, std::int64_t least) {
    if (number < least || number > kMostSide) refuse(nameOf(node), "has a number not known here");
    return static_cast<int>(number);
  }

  /// `count` integers of an attribute, each at least `least`; `otherwise` where it is left out.
  static std::vector<int> integers(const OnnxNode& node, const std::string& name, size_t count, int least,
                                   int otherwise) {
    const auto found = node.attributes.find(name);
    if (found == node.attributes.end()) return std::vector<int>(count, otherwise);
    std::vector<int> numbers;
    for (const std::int64_t number : found->second.integers) numbers.push_back(small(node, number, least));
    if (numbers.size() != count) refuse(nameOf(node), "has not " + std::to_string(count) + " " + name);
    return numbers;
  }

  ConvolutionStep readConvolution(const OnnxNode& node) const {
    allow(node, {"auto_pad", "dilations", "group", "kernel_shape", "pads", "strides"}, 2, 3);
    const auto automatic = node.attributes.find("auto_pad");
    if (automatic != node.attributes.end() && automatic->second.text != "NOTSET") refuse(nameOf(node), "pads itself");
    ConvolutionStep made;
    made.weights = constant(node, 1);
    made.bias = constant(node, 2);
    const auto group = node.attributes.find("group");
    if (group != node.attributes.end()) made.group = small(node, group->second.integer, 1);
    const auto strides = integers(node, "strides", 2, 1, 1);
    const auto dilations = integers(node, "dilations", 2, 1, 1);
    const auto pads = integers(node, "pads", 4, 0, 0);
    std::tie(made.stride_y, made.stride_x) = std::pair(strides[0], strides[1]);
    std::tie(made.dilation_y, made.dilation_x) = std::pair(dilations[0], dilations[1]);
    made.padding = {pads[0], pads[1], pads[2], pads[3]};
    return made;
  }

  /// Whether the weights are those of such a convolution of so many channels.
  static void checkWeights(const OnnxNode& node, const ConvolutionStep& made, int channels) {
    if (made.weights == nullptr) refuse(nameOf(node), "has no weights");
    const auto& shape = made.weights->shape;
    if (shape.size() != 4 || made.weights->floats.empty() || shape[1] * made.group != channels ||
        shape[0] % made.group != 0) {
      refuse(nameOf(node), "has weights that do not fit its input");
    }
    if (made.bias != nullptr && (made.bias->floats.empty() || made.bias->shape != std::vector{shape[0]})) {
      refuse(nameOf(node), "has a bias that does not fit its weights");
    }
    const auto kernel = node.attributes.find("kernel_shape");
    if (kernel != node.attributes.end() && kernel->second.integers != std::vector{shape[2], shape[3]}) {
      refuse(nameOf(node), "has weights of another kernel");
    }
  }

  void convolution(size_t at) {
    const OnnxNode& node = m_graph.nodes[at];
    Step step;
    step.convolution = readConvolution(node);
    ConvolutionStep& made = step.convolution;
    const Shape& source = shapeOf(node, 0);  // with the frame
    checkWeights(node, made, source.channels);
    const auto length = [](int size, std::int64_t kernel, int dilation, int stride, int pads) {
      const std::int64_t reach = (kernel - 1) * dilation + 1;
      return static_cast<int>(size + pads < reach ? 0 : (size + pads - reach) / stride + 1);
    };
    const auto& kernel = made.weights->shape;
    setShape(nameOf(node),
             {static_cast<int>(kernel[0]),
              length(source.height, kernel[2], made.dilation_y, made.stride_y, made.padding.top + made.padding.bottom),
              length(source.width, kernel[3], made.dilation_x, made.stride_x, made.padding.left + made.padding.right)});
    step.target = nameOf(node);
    if (isPicture(node.inputs[0]) && isShrink(made)) return shrink(at, std::move(step));
    step.source = takeFrame(node, made.padding);
    fuse(at, std::move(step));
  }

  /// What lies within the frame, if the input is one; the frame is added to `padding`.
  std::string takeFrame(const OnnxNode& node, Padding& padding) {
    const auto framed = m_framed.find(node.inputs[0]);
    if (framed == m_framed.end()) return read(node, 0);
    const Padding& frame = framed->second.second;
    padding = {padding.top + frame.top, padding.left + frame.left, padding.bottom + frame.bottom,
               padding.right + frame.right};
    if (isPicture(framed->second.first)) makePicture();
    return framed->second.first;
  }

  /// The patches tile the picture, and all rows of a patch weigh the same.
  static bool isShrink(const ConvolutionStep& made) {
    const auto& shape = made.weights->shape;
    const Padding& pads = made.padding;
    const bool tiles = shape[2] == made.stride_y && shape[3] == made.stride_x && shape[2] < 256 &&
                       made.dilation_y == 1 && made.dilation_x == 1 && made.group == 1 &&
                       (pads.top | pads.left | pads.bottom | pads.right) == 0;
    const auto row = static_cast<size_t>(shape[3]);
    const auto patch = static_cast<size_t>(shape[2] * shape[3]);
    const auto& weights = made.weights->floats;
    for (size_t i = 0; tiles && i < weights.size(); ++i) {
      if (weights[i] != weights[i / patch * patch + i % row]) return false;
    }
    return tiles;
  }

  /// A frame around what the shrinking alone makes is written with it.
  void shrink(size_t at, Step step) {
    step.kind = StepKind::kShrink;
    const OnnxNode* pad = nullptr;
    while ((pad = onlyUser(step.target, "Pad")) != nullptr) {
      const Padding frame = readPad(*pad);
      if (frame.top != 0 || frame.left != 0) break;
      step.convolution.padding.bottom += frame.bottom;
      step.convolution.padding.right += frame.right;
      at = m_user.at(step.target);
      frameShape(*pad, frame);
      step.target = nameOf(*pad);
      m_fused.insert(at);
    }
    m_waiting[at] = std::move(step);
  }

  /// The node that alone reads a tensor, if it is of that kind and nobody has taken it.
  const OnnxNode* onlyUser(const std::string& tensor, std::string_view kind) const {
    const auto uses = m_uses.find(tensor);
    if (uses == m_uses.end() || uses->second != 1) return nullptr;
    const size_t user = m_user.at(tensor);
    const OnnxNode& node = m_graph.nodes[user];
    return node.kind == kind && node.outputs.size() == 1 && !m_fused.contains(user) ? &node : nullptr;
  }

  /// The convolution takes the nodes with it that alone read what it makes, and waits for the last of them.
  void fuse(size_t at, Step step) {
    bool has_sum = false;
    const Shape shape = m_plan.shapes.at(step.target);
    while (true) {
      const OnnxNode* user = onlyUser(step.target, "Relu");
      if (user == nullptr) user = onlyUser(step.target, "Clip");
      if (user != nullptr) {
        step.convolution.after.push_back({readLimits(*user), ""});
      } else if (user = has_sum ? nullptr : onlyUser(step.target, "Add"); user != nullptr) {
        allow(*user, {}, 2, 2);
        step.convolution.after.push_back({std::nullopt, user->inputs[user->inputs[0] == step.target ? 1 : 0]});
        has_sum = true;
      } else {
        break;
      }
      at = m_user.at(step.target);
      m_fused.insert(at);
      step.target = nameOf(*user);
      setShape(step.target, shape);
    }
    m_waiting[at] = std::move(step);
  }

  Padding readPad(const OnnxNode& node) const {
    allow(node, {"mode"}, 2, 3);
    const auto mode = node.attributes.find("mode");
    if (mode != node.attributes.end() && mode->second.text != "constant")
      refuse(nameOf(node), "does not pad with zeros");
    const OnnxConstant* value = constant(node, 2);
    if (value != nullptr && value->floats != std::vector{0.0F}) refuse(nameOf(node), "does not pad with zeros");
    const OnnxConstant* sizes = constant(node, 1);
    if (sizes == nullptr || sizes->integers.size() != 8) refuse(nameOf(node), "does not pad a picture");
    const auto size = [&](size_t i) { return small(node, sizes->integers[i], 0); };
    if ((size(0) | size(1) | size(4) | size(5)) != 0) refuse(nameOf(node), "pads channels");
    return {size(2), size(3), size(6), size(7)};
  }

  void frameShape(const OnnxNode& node, const Padding& frame) {
    const Shape inner = shapeOf(node, 0);
    setShape(nameOf(node),
             {inner.channels, inner.height + frame.top + frame.bottom, inner.width + frame.left + frame.right});
  }

  /// Nothing is done: the convolutions that read it pad.
  void pad(const OnnxNode& node) {
    Padding frame = readPad(node);
    frameShape(node, frame);
    const std::string inner = takeFrame(node, frame);
    m_framed[nameOf(node)] = {inner, frame};
  }

  Limits readLimits(const OnnxNode& node) const {
    Limits limits;
    if (node.kind == "Relu") return allow(node, {}, 1, 1), limits;
    allow(node, {"max", "min"}, 1, 3);
    limits.low = -limits.high;
    const auto read = [&](const std::string& name, size_t input, float& limit) {
      const auto attribute = node.attributes.find(name);
      if (attribute != node.attributes.end()) limit = attribute->second.number;
      const OnnxConstant* given = constant(node, input);
      if (given == nullptr) return;
      if (given->floats.size() != 1) refuse(nameOf(node), "has limits not known here");
      limit = given->floats[0];
    };
    read("min", 1, limits.low);
    read("max", 2, limits.high);
    const bool is_known =
        std::isfinite(limits.low) && limits.low < limits.high && (std::isfinite(limits.high) || limits.low == 0);
    if (!is_known) refuse(nameOf(node), "has limits not known here");
    return limits;
  }

  void limit(const OnnxNode& node) {
    Step step;
    step.kind = StepKind::kLimit;
    step.limits = readLimits(node);
    step.source = read(node, 0);
    step.target = nameOf(node);
    setShape(step.target, shapeOf(node, 0));
    emit(std::move(step));
  }

  void sum(const OnnxNode& node) {
    allow(node, {}, 2, 2);
    Step step;
    step.kind = StepKind::kSum;
    step.source = read(node, 0);
    step.addend = read(node, 1);
    step.target = nameOf(node);
    if (shapeOf(node, 0) != shapeOf(node, 1)) refuse(step.target, "adds two sizes");
    setShape(step.target, shapeOf(node, 0));
    emit(std::move(step));
  }

  void resize(const OnnxNode& node) {
    allow(node, {"coordinate_transformation_mode", "mode", "nearest_mode", "cubic_coeff_a"}, 3, 3);
    const auto text = [&](const char* name) {
      const auto found = node.attributes.find(name);
      return found == node.attributes.end() ? "" : found->second.text;
    };
    if (text("mode") != "linear" || text("coordinate_transformation_mode") != "half_pixel") {
      refuse(nameOf(node), "resizes in a way not known here");
    }
    const OnnxConstant* scales = constant(node, 2);
    if (scales == nullptr || scales->floats.size() != 4 || scales->floats[0] != 1 || scales->floats[1] != 1) {
      refuse(nameOf(node), "resizes other than by constant scales");
    }
    const Shape source = shapeOf(node, 0);
    const auto scaled = [&](int size, float scale) {
      const double exact = static_cast<double>(size) * static_cast<double>(scale);
      if (!(exact >= 1 && exact <= kMostSide) || exact != std::floor(exact)) {
        refuse(nameOf(node), "does not resize to whole pixels");
      }
      return static_cast<int>(exact);
    };
    Step step;
    step.kind = StepKind::kResize;
    step.source = read(node, 0);
    step.target = nameOf(node);
    setShape(step.target,
             {source.channels, scaled(source.height, scales->floats[2]), scaled(source.width, scales->floats[3])});
    emit(std::move(step));
  }

  const NetworkTask& m_task;
  Plan& m_plan;
  OnnxGraph& m_graph;
  std::map<std::string, int> m_uses;
  std::map<std::string, size_t> m_user;                             ///< tensor -> the last node that reads it
  std::set<std::string> m_made;                                     ///< targets of the steps
  std::set<size_t> m_fused;                                         ///< nodes that a step before them does
  std::map<size_t, Step> m_waiting;                                 ///< node -> the step that ends with it
  std::map<std::string, std::pair<std::string, Padding>> m_framed;  ///< Pad's tensor -> what it frames, and how
};

/// What a convolution adds must be there, of its size, when it runs.
void checkAddends(const Plan& plan) {
  std::set<std::string> made;
  for (const Step& step : plan.steps) {
    for (const AfterStep& after : step.convolution.after) {
      if (after.limits) continue;
      if (!made.contains(after.addend) || plan.shapes.at(after.addend) != plan.shapes.at(step.target)) {
        throw Unsupported("layer \"" + step.target + "\" adds what does not fit it");
      }
    }
    made.insert(step.target);
  }
}

}  // namespace

Plan planOf(const NetworkTask& task) {
  Plan plan;
  plan.graph = readOnnx(task.onnx);
  Planner(task, plan).plan();
  checkAddends(plan);
  return plan;
}

}  // namespace workstation
