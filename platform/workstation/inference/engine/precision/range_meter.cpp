#include "platform/workstation/inference/engine/precision/range_meter.h"

#include <algorithm>
#include <limits>
#include <set>
#include <utility>
#include <vector>

#include "platform/workstation/inference/engine/onednn_engine.h"
#include "platform/workstation/inference/engine/plan.h"
#include "platform/workstation/inference/engine/precision/bytes.h"

namespace workstation {
namespace {

constexpr float kMargin = 1.25F;

RangeMeter* the_meter = nullptr;

/// Asks for every tensor, and gives those that were asked for.
class MeasuringEngine : public Engine {
 public:
  MeasuringEngine(std::unique_ptr<Engine> engine, std::vector<std::string> tensors, size_t asked, RangeMeter& meter)
      : m_engine(std::move(engine)), m_tensors(std::move(tensors)), m_asked(asked), m_meter(meter) {}

  std::vector<Maps> run(const std::uint8_t* picture) override {
    std::vector<Maps> made = m_engine->run(picture);
    for (size_t i = 0; i < m_tensors.size(); ++i) m_meter.note(m_tensors[i], made[i].values);
    made.resize(m_asked);
    return made;
  }

 private:
  std::unique_ptr<Engine> m_engine;
  std::vector<std::string> m_tensors;  ///< those that are asked for come first
  size_t m_asked;
  RangeMeter& m_meter;
};

}  // namespace

RangeMeter::RangeMeter() { the_meter = this; }

RangeMeter::~RangeMeter() { the_meter = nullptr; }

RangeMeter* RangeMeter::current() { return the_meter; }

std::unique_ptr<Engine> RangeMeter::engineFor(const NetworkTask& task) {
  const Plan& plan = m_networks.emplace_back(Measured{planOf(task), task.outputs}).plan;
  NetworkTask whole = task;
  whole.precision = Precision::kFloats;
  for (const Step& step : plan.steps) {
    const bool is_asked = std::find(task.outputs.begin(), task.outputs.end(), step.target) != task.outputs.end();
    if (!is_asked) whole.outputs.push_back(step.target);
    const auto& after = step.convolution.after;
    if (!after.empty() && after.back().limits) m_limits[step.target] = after.back().limits->high;
    if (step.kind == StepKind::kLimit) m_limits[step.target] = step.limits.high;
  }
  auto engine = makeOneDnnEngine(whole);
  return std::make_unique<MeasuringEngine>(std::move(engine), whole.outputs, task.outputs.size(), *this);
}

TensorRanges RangeMeter::ranges() const {
  std::set<std::string> floats;
  for (const auto& [plan, outputs] : m_networks) {
    const bool has_run = std::all_of(plan.steps.begin(), plan.steps.end(),
                                     [this](const Step& step) { return m_ranges.contains(step.target); });
    if (has_run) floats.merge(floatTensors(plan, outputs, m_ranges));
  }
  TensorRanges ranges;
  for (const auto& [tensor, range] : m_ranges) {
    const bool is_dead = range.high <= range.low;
    const auto limit = m_limits.find(tensor);
    const float most = limit == m_limits.end() ? std::numeric_limits<float>::infinity() : limit->second;
    ranges[tensor] = is_dead || floats.contains(tensor)
                         ? std::nullopt
                         : std::optional(Range{range.low * kMargin, std::min(range.high * kMargin, most)});
  }
  return ranges;
}

void RangeMeter::note(const std::string& tensor, std::span<const float> values) {
  const auto [low, high] = std::minmax_element(values.begin(), values.end());
  Range& range = m_ranges[tensor];
  range = {std::min(range.low, *low), std::max(range.high, *high)};
}

}  // namespace workstation
