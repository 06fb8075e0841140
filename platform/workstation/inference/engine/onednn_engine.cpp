#include "platform/workstation/inference/engine/onednn_engine.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <map>
#include <mutex>
#include <new>
#include <set>
#include <unordered_map>
#include <utility>

#include "platform/workstation/inference/engine/onednn.h"
#include "platform/workstation/inference/engine/plan.h"
#include "platform/workstation/inference/engine/precision/bytes.h"
#include "platform/workstation/inference/engine/shrink.h"
#include "platform/workstation/inference/engine/threads.h"
#include "platform/workstation/inference/engine/unsupported.h"
#include "platform/workstation/system/signal_mask.h"

namespace workstation {
namespace {

using onednn::algorithm;
using onednn::memory;
using Tag = memory::format_tag;
using Type = memory::data_type;
using Arguments = std::unordered_map<int, memory>;
using Operation = std::function<void(const std::uint8_t* picture)>;

constexpr std::align_val_t kAlignment{64};  // of a cache line and of the widest register

struct AlignedDelete {
  void operator()(std::byte* bytes) const { ::operator delete[](bytes, kAlignment); }
};
using Buffer = std::unique_ptr<std::byte[], AlignedDelete>;

Buffer bufferOf(size_t bytes) { return Buffer(static_cast<std::byte*>(::operator new[](bytes, kAlignment))); }

/// The memory that runs use; all engines share it, one run after another.
class Workspace {
 public:
  /// Ours, as long as there is an engine.
  static std::shared_ptr<Workspace> get() {
    static std::mutex mutex;
    static std::weak_ptr<Workspace> one;
    const std::scoped_lock lock(mutex);
    auto known = one.lock();
    if (!known) one = known = std::make_shared<Workspace>();
    return known;
  }

  /// Held during a run, and to grow.
  std::mutex mutex;

  /// For a run that needs so many bytes. Whatever was in it is lost, and it may lie elsewhere afterwards; where there
  /// is no memory it stays as it was, since other networks run in it.
  std::byte* begin(size_t bytes) {
    if (bytes > m_bytes) {
      m_memory = bufferOf(bytes);
      m_bytes = bytes;
    }
    return m_memory.get();
  }

  void giveBack() {
    m_memory.reset();
    m_bytes = 0;
  }

 private:
  Buffer m_memory;
  size_t m_bytes = 0;
};

/// A layer's weights in a layout of oneDNN's; they stay as they are.
struct Weights {
  memory::desc layout;
  Buffer bytes;
};

/// These, or equal ones that some network has already: ours are one network that looks at the picture at several sizes.
std::shared_ptr<const Weights> shared(Weights made) {
  static std::mutex mutex;
  static std::vector<std::weak_ptr<const Weights>> all;
  const std::scoped_lock lock(mutex);
  std::erase_if(all, [](const std::weak_ptr<const Weights>& one) { return one.expired(); });
  for (const std::weak_ptr<const Weights>& one : all) {
    auto known = one.lock();
    const bool is_equal = known && known->layout == made.layout &&
                          std::memcmp(known->bytes.get(), made.bytes.get(), made.layout.get_size()) == 0;
    if (is_equal) return known;
  }
  auto kept = std::make_shared<const Weights>(std::move(made));
  all.push_back(kept);
  return kept;
}

memory::desc floats(const memory::dims& sizes, Tag layout) { return {sizes, Type::f32, layout}; }

memory::dims sizesOf(const Shape& shape) { return {1, shape.channels, shape.height, shape.width}; }

/// Memory that tensors share which are not needed at the same time.
class SharedBuffers {
 public:
  size_t take(size_t bytes) {
    size_t best = m_sizes.size();
    for (const size_t buffer : m_free) {
      const bool is_better =
          best == m_sizes.size() || std::abs(distance(buffer, bytes)) < std::abs(distance(best, bytes));
      if (is_better) best = buffer;
    }
    if (best == m_sizes.size()) {
      m_sizes.push_back(0);
    }
    m_free.erase(best);
    m_sizes[best] = std::max(m_sizes[best], bytes);
    return best;
  }
  void give(size_t buffer) { m_free.insert(buffer); }

  /// Where each of them begins, one after another, and after them where they end; once all sizes are known.
  std::vector<size_t> places() const {
    constexpr auto kStep = static_cast<size_t>(kAlignment);
    std::vector<size_t> places{0};
    for (const size_t size : m_sizes) places.push_back(places.back() + (size + kStep - 1) / kStep * kStep);
    return places;
  }

 private:
  std::ptrdiff_t distance(size_t buffer, size_t bytes) const {
    return static_cast<std::ptrdiff_t>(m_sizes[buffer]) - static_cast<std::ptrdiff_t>(bytes);
  }

  std::vector<size_t> m_sizes;
  std::set<size_t> m_free;
};

/// What a tensor's numbers are, and, if bytes, what they stand for.
struct Format {
  Type type = Type::f32;
  Bytes bytes;
  bool operator==(const Format&) const = default;
};

/// A tensor between two steps.
struct Tensor {
  memory::desc layout;
  memory values;
  Format format;
  size_t buffer = 0;
  size_t last_use = 0;  ///< the step that reads it last
};

class OneDnnEngine : public Engine {
 public:
  explicit OneDnnEngine(const NetworkTask& task) : m_task(task) {
    const ScopedSigtermBlock no_sigterm_for_pool_threads;
    const ScopedOpenMpThreads threads;
    const Plan plan = planOf(task);
    if (task.precision == Precision::kBytes) checkRanges(task.ranges, plan);
    m_plan = &plan;
    findLastUses();
    for (m_at = 0; m_at < plan.steps.size(); ++m_at) {
      add(plan.steps[m_at]);
      freeWhatIsDone();
    }
    for (const std::string& output : task.outputs) addOutput(output);
    const std::vector<size_t> places = m_shared.places();
    for (auto& [values, place] : m_bound) place = places[place];
    m_workspace_bytes = places.back();
    m_plan = nullptr;
    m_tensors.clear();
  }

  std::vector<Maps> run(const std::uint8_t* picture) override {
    const ScopedSigtermBlock no_sigterm_for_pool_threads;
    const ScopedOpenMpThreads threads;
    const std::scoped_lock lock(m_workspace->mutex);
    bindAll();
    for (const Operation& operation : m_operations) operation(picture);
    m_stream.wait();
    return m_results;
  }

 private:
  void findLastUses() {
    const auto use = [this](const std::string& tensor, size_t at) {
      if (!tensor.empty()) m_last_use[tensor] = at;
    };
    for (size_t at = 0; at < m_plan->steps.size(); ++at) {
      const Step& step = m_plan->steps[at];
      use(step.target, at);  // also what nobody reads has a life
      use(step.source, at);
      use(step.addend, at);
      for (const AfterStep& after : step.convolution.after) use(after.addend, at);
    }
    for (const std::string& output : m_task.outputs) use(output, m_plan->steps.size());
  }

  void freeWhatIsDone() {
    for (auto& [name, tensor] : m_tensors) {
      if (tensor.last_use == m_at) m_shared.give(tensor.buffer);
    }
    std::erase_if(m_tensors, [this](const auto& entry) { return entry.second.last_use == m_at; });
  }

  /// To where the workspace lies now.
  void bindAll() {
    std::byte* const begin = m_workspace->begin(m_workspace_bytes);
    if (m_bound_at == begin) return;
    m_bound_at = begin;
    for (auto& [values, place] : m_bound) values.set_data_handle(m_bound_at + place);
  }

  /// Memory in a shared buffer; it has its address at a run.
  memory bind(const memory::desc& layout, size_t buffer) {
    memory values(layout, m_processor, nullptr);
    m_bound.emplace_back(values, buffer);
    return values;
  }

  Tensor& make(const std::string& name, const memory::desc& layout, const Format& format = {}) {
    const size_t buffer = m_shared.take(layout.get_size());
    return m_tensors.insert_or_assign(name, Tensor{layout, bind(layout, buffer), format, buffer, m_last_use.at(name)})
        .first->second;
  }

  /// How a tensor is to be stored.
  Format formatOf(const std::string& name) const {
    const bool is_output = std::find(m_task.outputs.begin(), m_task.outputs.end(), name) != m_task.outputs.end();
    if (is_output || m_task.precision == Precision::kFloats) return {};
    if (m_task.precision == Precision::kShortFloats) return {Type::bf16, {}};
    const auto& range = m_task.ranges.at(name);
    return range ? Format{Type::u8, bytesFor(*range)} : Format{};
  }

  void execute(const dnnl::primitive& primitive, Arguments arguments) {
    m_operations.emplace_back([this, primitive, given = std::move(arguments)](const std::uint8_t* /*picture*/) {
      primitive.execute(m_stream, given);
    });
  }

  void reorder(memory from, memory to) {  // NOLINT(performance-unnecessary-value-param): handles
    execute(dnnl::reorder(from, to), {{DNNL_ARG_FROM, from}, {DNNL_ARG_TO, to}});
  }

  /// A copy in another layout, and in other numbers where the formats differ.
  void convert(const memory& from, const Format& given, const memory& to, const Format& wanted) {
    const bool to_bytes = wanted.type == Type::u8;
    if (given == wanted || (given.type != Type::u8 && !to_bytes)) return reorder(from, to);
    const Bytes& bytes = to_bytes ? wanted.bytes : given.bytes;
    auto scaling = onednn::scaleBytes(m_processor, to_bytes, bytes.scale, bytes.zero);
    scaling.arguments.insert({{DNNL_ARG_FROM, from}, {DNNL_ARG_TO, to}});
    const dnnl::reorder::primitive_desc description(m_processor, from.get_desc(), m_processor, to.get_desc(),
                                                    scaling.attributes);
    execute(dnnl::reorder(description), std::move(scaling.arguments));
  }

  /// The tensor in that layout and format: itself, or a copy that lives as long as the step.
  memory inLayout(const std::string& name, const memory::desc& layout, const Format& format) {
    const Tensor tensor = m_tensors.at(name);
    if (tensor.layout == layout && tensor.format == format) return tensor.values;
    const std::string copy = name + " for step " + std::to_string(m_at);
    m_last_use[copy] = m_at;
    memory to = make(copy, layout, format).values;
    convert(tensor.values, tensor.format, to, format);
    return to;
  }

  /// The tensor as floats, the short ones where those are computed with, in a layout that all operations know.
  memory asFloats(const std::string& name) {
    const Tensor& tensor = m_tensors.at(name);
    if (tensor.format.type != Type::u8) return tensor.values;
    return inLayout(name, floats(sizesOfTensor(name), Tag::nhwc), {});
  }

  /// Turns what a step has made into the format that its readers want.
  void store(const std::string& name) {
    const Format wanted = formatOf(name);
    const Tensor made = m_tensors.at(name);
    if (made.format == wanted) return;
    m_tensors.erase(name);
    convert(made.values, made.format, make(name, {sizesOfTensor(name), wanted.type, Tag::nhwc}, wanted).values, wanted);
    m_shared.give(made.buffer);
  }

  void add(const Step& step) {
    switch (step.kind) {
      case StepKind::kPicture:
        return addPicture(step);
      case StepKind::kShrink:
        return addShrink(step);
      case StepKind::kConvolution:
        return addConvolution(step);
      case StepKind::kLimit:
        return addLimit(step);
      case StepKind::kSum:
        return addSum(step);
      case StepKind::kResize:
        return addResize(step);
    }
  }

  memory::dims sizesOfTensor(const std::string& name) const { return sizesOf(m_plan->shapes.at(name)); }

  void addPicture(const Step& step) {
    const memory target = make(step.target, floats(sizesOfTensor(step.target), Tag::nchw)).values;
    const size_t count = static_cast<size_t>(m_task.height) * static_cast<size_t>(m_task.packed_width);
    m_operations.emplace_back([target, count](const std::uint8_t* picture) {
      std::copy_n(picture, count, static_cast<float*>(target.get_data_handle()));
    });
  }

  void addShrink(const Step& step) {
    const memory target = make(step.target, floats(sizesOfTensor(step.target), Tag::nchw)).values;
    const auto shrink =
        std::make_shared<Shrink>(step.convolution, m_plan->shapes.at(step.target), m_task.height, m_task.packed_width);
    m_operations.emplace_back([target, shrink](const std::uint8_t* picture) {
      shrink->run(picture, static_cast<float*>(target.get_data_handle()));
    });
  }

  /// ReLU has an algorithm of its own, the fastest.
  static std::pair<algorithm, std::pair<float, float>> activation(const Limits& limits) {
    if (limits.low == 0 && std::isinf(limits.high)) return {algorithm::eltwise_relu, {0.0F, 0.0F}};
    return {algorithm::eltwise_clip, {limits.low, std::min(limits.high, std::numeric_limits<float>::max())}};
  }

  /// The operations after a convolution, on numbers that are those of the target's bytes.
  static dnnl::post_ops operationsOf(const ConvolutionStep& step, const ByteArithmetic& arithmetic, float scale) {
    dnnl::post_ops operations;
    float zero = arithmetic.zero_before;
    for (const AfterStep& after : step.after) {
      if (after.limits) {
        const Limits moved{after.limits->low / scale + zero, after.limits->high / scale + zero};
        const auto [kind, limits] = activation(moved);
        onednn::appendActivation(operations, kind, limits.first, limits.second);
      } else {
        operations.append_sum(arithmetic.addend_factor);
        zero = arithmetic.zero;
      }
    }
    return operations;
  }

  /// oneDNN sets groups apart; ONNX's own layout of the weights, or a free one.
  static memory::desc weightsLayout(const ConvolutionStep& step, Type type, bool is_free) {
    const auto& shape = step.weights->shape;
    if (step.group == 1) {
      return {{shape[0], shape[1], shape[2], shape[3]}, type, is_free ? Tag::any : Tag::oihw};
    }
    return {{step.group, shape[0] / step.group, shape[1], shape[2], shape[3]}, type, is_free ? Tag::any : Tag::goihw};
  }

  /// The numbers that a convolution multiplies and writes.
  struct Types {
    Type source, weights, target;
  };

  dnnl::convolution_forward::primitive_desc describe(const Step& step, const Types& types, bool has_bias,
                                                     const onednn::primitive_attr& attributes) const {
    const ConvolutionStep& given = step.convolution;
    const Padding& pads = given.padding;
    const memory::desc bias = has_bias ? floats({given.weights->shape[0]}, Tag::x) : memory::desc();
    try {
      return onednn::describeConvolution(m_processor, attributes, {sizesOfTensor(step.source), types.source, Tag::any},
                                         weightsLayout(given, types.weights, true), bias,
                                         {sizesOfTensor(step.target), types.target, Tag::any},
                                         {{given.stride_y, given.stride_x},
                                          {given.dilation_y - 1, given.dilation_x - 1},
                                          {pads.top, pads.left},
                                          {pads.bottom, pads.right}});
    } catch (const dnnl::error&) {
      throw Unsupported("layer \"" + step.target + "\" is a convolution that oneDNN does not know");
    }
  }

  void addConvolution(const Step& step) {
    const Format& source = m_tensors.at(step.source).format;
    if (source.type == Type::u8 && canRead(step.convolution, source.bytes)) {
      convolveBytes(step);
    } else {
      convolveFloats(step);
      store(step.target);
    }
  }

  void convolveFloats(const Step& step) {
    const ConvolutionStep& given = step.convolution;
    const Type type = m_task.precision == Precision::kShortFloats ? Type::bf16 : Type::f32;
    Format made = formatOf(step.target);
    if (made.type == Type::u8) made = {};
    onednn::primitive_attr attributes;
    attributes.set_post_ops(operationsOf(given, {}, 1));
    const auto description = describe(step, {type, type, made.type}, given.bias != nullptr, attributes);
    const memory source = inLayout(step.source, description.src_desc(), {type, {}});
    const memory plain(weightsLayout(given, Type::f32, false), m_processor,
                       const_cast<float*>(given.weights->floats.data()));
    Arguments arguments{{DNNL_ARG_SRC, source}, {DNNL_ARG_WEIGHTS, constant(plain, description.weights_desc())}};
    if (given.bias != nullptr) {
      arguments[DNNL_ARG_BIAS] = onednn::listOf(m_processor, Type::f32, given.bias->floats);
    }
    arguments[DNNL_ARG_DST] = target(step, description.dst_desc(), made, made);
    execute(dnnl::convolution_forward(description), std::move(arguments));
  }

  /// What it adds is of the target's type: its own bytes as they are, or others turned into the target's.
  void convolveBytes(const Step& step) {
    const ConvolutionStep& given = step.convolution;
    const Format made = formatOf(step.target);
    const std::string added = addendOf(given);
    Format addend = made;
    if (!added.empty() && m_tensors.at(added).format.type == made.type) addend = m_tensors.at(added).format;
    ByteWeights weights = byteWeights(*given.weights);
    ByteArithmetic arithmetic =
        arithmeticOf(given, weights, m_tensors.at(step.source).format.bytes, addend.bytes, made.bytes);
    auto scaling = onednn::scaleSums(m_processor, arithmetic.factors, given.group != 1, arithmetic.offsets);
    scaling.attributes.set_post_ops(operationsOf(given, arithmetic, made.bytes.scale));
    const auto description = describe(step, {Type::u8, Type::s8, made.type}, true, scaling.attributes);
    const memory plain(weightsLayout(given, Type::s8, false), m_processor, weights.values.data());
    Arguments arguments = std::move(scaling.arguments);
    arguments[DNNL_ARG_SRC] = inLayout(step.source, description.src_desc(), m_tensors.at(step.source).format);
    arguments[DNNL_ARG_WEIGHTS] = constant(plain, description.weights_desc());
    arguments[DNNL_ARG_BIAS] = onednn::listOf(m_processor, Type::f32, arithmetic.offsets);
    arguments[DNNL_ARG_DST] = target(step, description.dst_desc(), made, addend);
    execute(dnnl::convolution_forward(description), std::move(arguments));
  }

  /// Where a convolution writes: new memory, or, where it adds, what it adds to, which is in the format `addend`.
  memory target(const Step& step, const memory::desc& layout, const Format& made, const Format& addend) {
    const std::string added = addendOf(step.convolution);
    if (added.empty()) return make(step.target, layout, made).values;
    Tensor given = m_tensors.at(added);
    const bool is_mine = given.last_use == m_at && given.layout == layout && step.source != added;
    if (!is_mine) {
      memory to = make(step.target, layout, made).values;
      convert(given.values, given.format, to, addend);
      return to;
    }
    given.last_use = m_last_use.at(step.target);
    given.format = made;
    m_tensors.erase(added);
    return m_tensors.insert_or_assign(step.target, given).first->second.values;
  }

  /// A copy that stays, in that layout.
  memory constant(memory plain, const memory::desc& layout) {
    Weights made{layout, bufferOf(layout.get_size())};
    memory copy(layout, m_processor, made.bytes.get());
    dnnl::reorder(plain, copy).execute(m_stream, plain, copy);
    m_stream.wait();
    m_weights.push_back(shared(std::move(made)));
    copy.set_data_handle(m_weights.back()->bytes.get());
    return copy;
  }

  /// In the type of the floats that the memory holds.
  static Format formatIn(const memory& values) { return {onednn::typeOf(values.get_desc()), {}}; }

  void addLimit(const Step& step) {
    const memory source = asFloats(step.source);
    const memory::desc layout = source.get_desc();
    const auto [kind, limits] = activation(step.limits);
    const auto description = onednn::describeActivation(m_processor, kind, layout, layout, limits.first, limits.second);
    const memory target = make(step.target, layout, formatIn(source)).values;
    execute(dnnl::eltwise_forward(description), {{DNNL_ARG_SRC, source}, {DNNL_ARG_DST, target}});
    store(step.target);
  }

  void addSum(const Step& step) {
    const memory source = asFloats(step.source);
    const memory::desc layout = source.get_desc();
    const memory addend = inLayout(step.addend, layout, formatIn(source));
    const auto description = onednn::describeSum(m_processor, layout, layout, layout);
    const memory target = make(step.target, layout, formatIn(source)).values;
    execute(dnnl::binary(description), {{DNNL_ARG_SRC_0, source}, {DNNL_ARG_SRC_1, addend}, {DNNL_ARG_DST, target}});
    store(step.target);
  }

  /// Between two bytes lie bytes that stand for what lies between.
  void addResize(const Step& step) {
    const Tensor source = m_tensors.at(step.source);
    const auto description = onednn::describeResizing(m_processor, source.layout,
                                                      {sizesOfTensor(step.target), source.format.type, Tag::any});
    const memory target = make(step.target, description.dst_desc(), source.format).values;
    execute(dnnl::resampling_forward(description), {{DNNL_ARG_SRC, source.values}, {DNNL_ARG_DST, target}});
  }

  /// A copy, channel first, that nobody else writes.
  void addOutput(const std::string& name) {
    const Shape& shape = m_plan->shapes.at(name);
    const memory values(floats(sizesOf(shape), Tag::nchw), m_processor);
    convert(m_tensors.at(name).values, m_tensors.at(name).format, values, {});
    const auto count =
        static_cast<size_t>(shape.channels) * static_cast<size_t>(shape.height) * static_cast<size_t>(shape.width);
    m_results.push_back(
        {{static_cast<const float*>(values.get_data_handle()), count}, {1, shape.channels, shape.height, shape.width}});
  }

  NetworkTask m_task;
  onednn::engine m_processor{onednn::engine::kind::cpu, 0};
  dnnl::stream m_stream{m_processor};
  std::vector<Operation> m_operations;
  std::shared_ptr<Workspace> m_workspace = Workspace::get();
  size_t m_workspace_bytes = 0;                    ///< that a run needs
  std::vector<std::pair<memory, size_t>> m_bound;  ///< what lies in the workspace, and where; first its buffer's number
  std::byte* m_bound_at = nullptr;
  std::vector<std::shared_ptr<const Weights>> m_weights;
  std::vector<Maps> m_results;

  // While it is built.
  const Plan* m_plan = nullptr;
  size_t m_at = 0;  ///< step
  SharedBuffers m_shared;
  std::map<std::string, size_t> m_last_use;
  std::map<std::string, Tensor> m_tensors;
};

}  // namespace

bool isFastProcessor() { return multiplies(Precision::kFloats); }

bool multiplies(Precision precision) {
  const auto instructions = static_cast<unsigned>(dnnl::get_effective_cpu_isa());
  const auto wanted = static_cast<unsigned>(precision == Precision::kShortFloats ? dnnl::cpu_isa::avx512_core_bf16
                                                                                 : dnnl::cpu_isa::avx2);
  return (instructions & wanted) == wanted;
}

void giveBackOneDnnWorkspace() {
  const auto workspace = Workspace::get();
  const std::scoped_lock lock(workspace->mutex);
  workspace->giveBack();
}

std::unique_ptr<Engine> makeOneDnnEngine(const NetworkTask& task) { return std::make_unique<OneDnnEngine>(task); }

}  // namespace workstation
