#include "platform/workstation/inference/engine/onednn_engine.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <map>
#include <new>
#include <set>
#include <unordered_map>
#include <utility>

#include "platform/workstation/inference/engine/onednn.h"
#include "platform/workstation/inference/engine/plan.h"
#include "platform/workstation/inference/engine/shrink.h"
#include "platform/workstation/inference/engine/threads.h"
#include "platform/workstation/inference/engine/unsupported.h"
#include "platform/workstation/system/signal_mask.h"

namespace workstation {
namespace {

using onednn::algorithm;
using onednn::memory;
using Tag = memory::format_tag;
using Arguments = std::unordered_map<int, memory>;
using Operation = std::function<void(const std::uint8_t* picture)>;

constexpr std::align_val_t kAlignment{64};  // of a cache line and of the widest register

struct AlignedDelete {
  void operator()(std::byte* bytes) const { ::operator delete[](bytes, kAlignment); }
};
using Buffer = std::unique_ptr<std::byte[], AlignedDelete>;

memory::desc floats(const memory::dims& sizes, Tag layout) { return {sizes, memory::data_type::f32, layout}; }

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

  /// All of them, now that their sizes are known.
  std::vector<Buffer> make() const {
    std::vector<Buffer> buffers;
    for (const size_t size : m_sizes) {
      buffers.emplace_back(static_cast<std::byte*>(::operator new[](size, kAlignment)));
    }
    return buffers;
  }

 private:
  std::ptrdiff_t distance(size_t buffer, size_t bytes) const {
    return static_cast<std::ptrdiff_t>(m_sizes[buffer]) - static_cast<std::ptrdiff_t>(bytes);
  }

  std::vector<size_t> m_sizes;
  std::set<size_t> m_free;
};

/// A tensor between two steps.
struct Tensor {
  memory::desc layout;
  memory values;
  size_t buffer = 0;
  size_t last_use = 0;  ///< the step that reads it last
};

class OneDnnEngine : public Engine {
 public:
  explicit OneDnnEngine(const NetworkTask& task) : m_task(task) {
    const ScopedSigtermBlock no_sigterm_for_pool_threads;
    const ScopedOpenMpThreads threads;
    const Plan plan = planOf(task);
    m_plan = &plan;
    findLastUses();
    for (m_at = 0; m_at < plan.steps.size(); ++m_at) {
      add(plan.steps[m_at]);
      freeWhatIsDone();
    }
    for (const std::string& output : task.outputs) addOutput(output);
    m_buffers = m_shared.make();
    for (auto& [values, buffer] : m_bound) values.set_data_handle(m_buffers[buffer].get());
    m_plan = nullptr;
    m_tensors.clear();
    m_bound.clear();
  }

  std::vector<Maps> run(const std::uint8_t* picture) override {
    const ScopedSigtermBlock no_sigterm_for_pool_threads;
    const ScopedOpenMpThreads threads;
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

  /// Memory in a shared buffer; it has its address when all steps are known.
  memory bind(const memory::desc& layout, size_t buffer) {
    memory values(layout, m_processor, nullptr);
    m_bound.emplace_back(values, buffer);
    return values;
  }

  Tensor& make(const std::string& name, const memory::desc& layout) {
    const size_t buffer = m_shared.take(layout.get_size());
    return m_tensors.insert_or_assign(name, Tensor{layout, bind(layout, buffer), buffer, m_last_use.at(name)})
        .first->second;
  }

  void execute(const dnnl::primitive& primitive, Arguments arguments) {
    m_operations.emplace_back([this, primitive, given = std::move(arguments)](const std::uint8_t* /*picture*/) {
      primitive.execute(m_stream, given);
    });
  }

  void reorder(memory from, memory to) {  // NOLINT(performance-unnecessary-value-param): handles
    execute(dnnl::reorder(from, to), {{DNNL_ARG_FROM, from}, {DNNL_ARG_TO, to}});
  }

  /// The tensor in that layout: itself, or a copy that lives as long as it.
  memory inLayout(const std::string& name, const memory::desc& layout) {
    const Tensor& tensor = m_tensors.at(name);
    if (tensor.layout == layout) return tensor.values;
    const std::string copy = name + " for step " + std::to_string(m_at);
    m_last_use[copy] = m_at;
    const memory from = tensor.values;
    memory to = make(copy, layout).values;
    reorder(from, to);
    return to;
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
    if (std::isinf(limits.high)) return {algorithm::eltwise_relu, {0.0F, 0.0F}};
    return {algorithm::eltwise_clip, {limits.low, limits.high}};
  }

  static onednn::primitive_attr attributesOf(const ConvolutionStep& step) {
    dnnl::post_ops operations;
    for (const AfterStep& after : step.after) {
      if (after.limits) {
        const auto [kind, limits] = activation(*after.limits);
        onednn::appendActivation(operations, kind, limits.first, limits.second);
      } else {
        operations.append_sum(1.0F);
      }
    }
    onednn::primitive_attr attributes;
    attributes.set_post_ops(operations);
    return attributes;
  }

  /// Weights' own layout is that of ONNX; oneDNN sets groups apart.
  static memory::desc weightsLayout(const ConvolutionStep& step, bool is_free) {
    const auto& shape = step.weights->shape;
    if (step.group == 1) return floats({shape[0], shape[1], shape[2], shape[3]}, is_free ? Tag::any : Tag::oihw);
    return floats({step.group, shape[0] / step.group, shape[1], shape[2], shape[3]}, is_free ? Tag::any : Tag::goihw);
  }

  dnnl::convolution_forward::primitive_desc describe(const Step& step) const {
    const ConvolutionStep& given = step.convolution;
    const Padding& pads = given.padding;
    const memory::desc bias = given.bias == nullptr ? memory::desc() : floats({given.weights->shape[0]}, Tag::x);
    try {
      return onednn::describeConvolution(m_processor, attributesOf(given), floats(sizesOfTensor(step.source), Tag::any),
                                         weightsLayout(given, true), bias, floats(sizesOfTensor(step.target), Tag::any),
                                         {{given.stride_y, given.stride_x},
                                          {given.dilation_y - 1, given.dilation_x - 1},
                                          {pads.top, pads.left},
                                          {pads.bottom, pads.right}});
    } catch (const dnnl::error&) {
      throw Unsupported("layer \"" + step.target + "\" is a convolution that oneDNN does not know");
    }
  }

  void addConvolution(const Step& step) {
    const auto description = describe(step);
    const memory source = inLayout(step.source, description.src_desc());
    Arguments arguments{{DNNL_ARG_SRC, source},
                        {DNNL_ARG_WEIGHTS, weights(step.convolution, description.weights_desc())}};
    if (step.convolution.bias != nullptr) {
      arguments[DNNL_ARG_BIAS] = constant(*step.convolution.bias, description.bias_desc());
    }
    arguments[DNNL_ARG_DST] = target(step, description.dst_desc());
    execute(dnnl::convolution_forward(description), std::move(arguments));
  }

  /// Where a convolution writes: new memory, or, where it adds, what it adds to.
  memory target(const Step& step, const memory::desc& layout) {
    for (const AfterStep& after : step.convolution.after) {
      if (after.limits) continue;
      Tensor& addend = m_tensors.at(after.addend);
      const bool is_mine = addend.last_use == m_at && addend.layout == layout && step.source != after.addend;
      if (!is_mine) {
        const memory from = addend.values;
        memory to = make(step.target, layout).values;
        reorder(from, to);
        return to;
      }
      Tensor taken = addend;
      taken.last_use = m_last_use.at(step.target);
      m_tensors.erase(after.addend);
      return m_tensors.insert_or_assign(step.target, taken).first->second.values;
    }
    return make(step.target, layout).values;
  }

  memory weights(const ConvolutionStep& step, const memory::desc& layout) {
    memory given(weightsLayout(step, false), m_processor, const_cast<float*>(step.weights->floats.data()));
    memory kept(layout, m_processor);
    dnnl::reorder(given, kept).execute(m_stream, given, kept);
    m_stream.wait();
    return kept;
  }

  memory constant(const OnnxConstant& values, const memory::desc& layout) const {
    memory kept(layout, m_processor);
    std::memcpy(kept.get_data_handle(), values.floats.data(), values.floats.size() * sizeof(float));
    return kept;
  }

  void addLimit(const Step& step) {
    const Tensor source = m_tensors.at(step.source);
    const auto [kind, limits] = activation(step.limits);
    const auto description =
        onednn::describeActivation(m_processor, kind, source.layout, source.layout, limits.first, limits.second);
    const memory target = make(step.target, source.layout).values;
    execute(dnnl::eltwise_forward(description), {{DNNL_ARG_SRC, source.values}, {DNNL_ARG_DST, target}});
  }

  void addSum(const Step& step) {
    const Tensor source = m_tensors.at(step.source);
    const memory addend = inLayout(step.addend, source.layout);
    const auto description = onednn::describeSum(m_processor, source.layout, source.layout, source.layout);
    const memory target = make(step.target, source.layout).values;
    execute(dnnl::binary(description),
            {{DNNL_ARG_SRC_0, source.values}, {DNNL_ARG_SRC_1, addend}, {DNNL_ARG_DST, target}});
  }

  void addResize(const Step& step) {
    const Tensor source = m_tensors.at(step.source);
    const auto description =
        onednn::describeResizing(m_processor, source.layout, floats(sizesOfTensor(step.target), Tag::any));
    const memory target = make(step.target, description.dst_desc()).values;
    execute(dnnl::resampling_forward(description), {{DNNL_ARG_SRC, source.values}, {DNNL_ARG_DST, target}});
  }

  /// A copy, channel first, that nobody else writes.
  void addOutput(const std::string& name) {
    const Shape& shape = m_plan->shapes.at(name);
    const memory values(floats(sizesOf(shape), Tag::nchw), m_processor);
    reorder(m_tensors.at(name).values, values);
    const auto count =
        static_cast<size_t>(shape.channels) * static_cast<size_t>(shape.height) * static_cast<size_t>(shape.width);
    m_results.push_back(
        {{static_cast<const float*>(values.get_data_handle()), count}, {1, shape.channels, shape.height, shape.width}});
  }

  NetworkTask m_task;
  onednn::engine m_processor{onednn::engine::kind::cpu, 0};
  dnnl::stream m_stream{m_processor};
  std::vector<Operation> m_operations;
  std::vector<Buffer> m_buffers;
  std::vector<Maps> m_results;

  // While it is built.
  const Plan* m_plan = nullptr;
  size_t m_at = 0;  ///< step
  SharedBuffers m_shared;
  std::map<std::string, size_t> m_last_use;
  std::map<std::string, Tensor> m_tensors;
  std::vector<std::pair<memory, size_t>> m_bound;
};

}  // namespace

bool isFastProcessor() {
  const auto instructions = static_cast<unsigned>(dnnl::get_effective_cpu_isa());
  const auto wanted = static_cast<unsigned>(dnnl::cpu_isa::avx2);
  return (instructions & wanted) == wanted;
}

std::unique_ptr<Engine> makeOneDnnEngine(const NetworkTask& task) { return std::make_unique<OneDnnEngine>(task); }

}  // namespace workstation
