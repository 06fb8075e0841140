#include "platform/workstation/inference/model_sidecar.h"

#include <glib.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <numeric>
#include <sstream>
#include <stdexcept>

#include "platform/support/owners.h"
#include "platform/workstation/inference/eyes.h"
#include "platform/workstation/system/durable_file.h"

namespace workstation {
namespace {

using nlohmann::json;

constexpr const char* kAdapterName = "movenet_multipose";
constexpr size_t kMaxTensorElements = size_t{1} << 26;
constexpr size_t kMaxOutputs = 16;
constexpr size_t kMaxScales = 4;
constexpr size_t kMaxTensors = 10000;
constexpr double kMostRange = 1e6;  // no trained network's tensor
constexpr size_t kMaxSidecarBytes = size_t{1} << 20;

/// One tensor's entry; every mistake names the file and the key.
class TensorReader {
 public:
  TensorReader(const json& entry, std::string where) : m_entry(entry), m_where(std::move(where)) {
    if (!entry.is_object()) {
      throw std::runtime_error(m_where + ": must be an object");
    }
  }

  TensorLayout readInput() const {
    TensorLayout layout = readCommon();
    if (layout.type != LAROD_TENSOR_DATA_TYPE_UINT8 || layout.shape.size() != 4 || layout.shape[0] != 1 ||
        layout.shape[3] != 3) {
      throw std::runtime_error(m_where + ": must be of type \"uint8\" and shape [1, height, width, 3]");
    }
    return layout;
  }

  TensorLayout readOutput() const {
    TensorLayout layout = readCommon();
    const std::string layer = text("layer");
    const bool constant = layer == "constant";
    layout.adapted = layer == "adapter";
    layout.layer = constant || layout.adapted ? "" : layer;
    if (layout.type == LAROD_TENSOR_DATA_TYPE_UINT8) {
      readQuantization(layout);
      if (!constant && (layout.shape.size() != 4 || layout.shape[0] != 1)) {
        fail("shape", "must be [1, height, width, channels] for a byte tensor");
      }
    } else if (constant) {
      fail("layer", "\"constant\" is for byte tensors only");
    }
    return layout;
  }

 private:
  [[noreturn]] void fail(const char* key, const std::string& rule) const {
    throw std::runtime_error(m_where + "." + key + ": " + rule);
  }

  std::string text(const char* key) const {
    const auto found = m_entry.find(key);
    if (found == m_entry.end() || !found->is_string() || found->get_ref<const std::string&>().empty()) {
      fail(key, "must be a text that is not empty");
    }
    return *found;
  }

  TensorLayout readCommon() const {
    TensorLayout layout;
    layout.name = text("name");
    const std::string type = text("type");
    if (type != "uint8" && type != "float32") {
      fail("type", "must be \"uint8\" or \"float32\"");
    }
    layout.type = type == "uint8" ? LAROD_TENSOR_DATA_TYPE_UINT8 : LAROD_TENSOR_DATA_TYPE_FLOAT32;
    const json shape = m_entry.value("shape", json());
    if (!shape.is_array() || shape.empty() || shape.size() > LAROD_TENSOR_MAX_LEN) {
      fail("shape", "must be a list of 1 to " + std::to_string(LAROD_TENSOR_MAX_LEN) + " sizes");
    }
    for (const json& size : shape) {
      if (!size.is_number_unsigned() || size == 0 || size > kMaxTensorElements / layout.elements()) {
        fail("shape",
             "must hold whole numbers from 1, together at most " + std::to_string(kMaxTensorElements) + " elements");
      }
      layout.shape.push_back(size);
    }
    return layout;
  }

  void readQuantization(TensorLayout& layout) const {
    const json scale = m_entry.value("scale", json());
    if (scale.is_number()) {
      layout.scale = scale;
    }
    if (!scale.is_number() || !std::isnormal(layout.scale) || layout.scale < 0) {
      fail("scale", "must be a positive number");
    }
    const json zero_point = m_entry.value("zero_point", json());
    if (!zero_point.is_number_unsigned() || zero_point > UINT8_MAX) {
      fail("zero_point", "must be a whole number from 0 to 255");
    }
    layout.zero_point = zero_point;
  }

  const json& m_entry;
  std::string m_where;
};

/// The entry "adapter"; every mistake names the file and the key.
class AdapterReader {
 public:
  AdapterReader(const json& entry, std::string where) : m_entry(entry), m_where(std::move(where)) {}

  AdapterSettings read() const {
    if (!m_entry.is_object() || m_entry.value("name", json()) != kAdapterName) {
      throw std::runtime_error(m_where + ": must be an object whose \"name\" is \"" + kAdapterName +
                               "\", the only adapter there is");
    }
    AdapterSettings settings;
    const json scales = m_entry.value("scales", json());
    if (!scales.is_array() || scales.empty() || scales.size() > kMaxScales) {
      throw std::runtime_error(m_where + ".scales: must be a list of 1 to " + std::to_string(kMaxScales) + " scales");
    }
    for (const json& scale : scales) {
      settings.scales.push_back({readHeads(scale), number(scale, "cell", 1, 256)});
    }
    if (m_entry.contains("eyes")) settings.looks = readEyes(m_entry["eyes"], settings.scales.size());
    const json rules = m_entry.value("rules", json());
    settings.rules = {.center_threshold = number(rules, "center_threshold", 0.01F, 1),
                      .reach = number(rules, "reach", 0.01F, 10),
                      .twin_distance = number(rules, "twin_distance", 0, 1),
                      .most_people = static_cast<size_t>(number(rules, "most_people", 1, 20))};
    settings.same_distance = number(rules, "same_distance", 0, 1);
    const json confidence = m_entry.value("confidence", json());
    settings.confidence_gain = number(confidence, "gain", 0.01F, 100);
    settings.confidence_bias = number(confidence, "bias", -100, 100);
    return settings;
  }

 private:
  std::map<std::string, std::vector<size_t>> readEyes(const json& eyes, size_t scales) const {
    const auto isLook = [&](const json& look) { return look.is_number_unsigned() && look < scales; };
    const auto areLooks = [&](const json& looks) {
      return looks.is_array() && !looks.empty() && looks.size() <= scales &&
             std::all_of(looks.begin(), looks.end(), isLook);
    };
    std::map<std::string, std::vector<size_t>> read;
    for (const auto& [name, looks] : eyes.items()) {
      if (!eyes.is_object() || !eyesFrom(name) || !areLooks(looks)) {
        throw std::runtime_error(m_where + ".eyes: must say of \"fast\" and \"sharp\" eyes which of the scales " +
                                 "they look at, by their places from 0 to " + std::to_string(scales - 1));
      }
      read[name] = looks.get<std::vector<size_t>>();
    }
    return read;
  }

  std::vector<std::string> readHeads(const json& scale) const {
    const json heads = scale.is_object() ? scale.value("heads", json()) : json();
    const auto isName = [](const json& head) {
      return head.is_string() && !head.get_ref<const std::string&>().empty();
    };
    if (!heads.is_array() || heads.size() != kPoseHeads || !std::all_of(heads.begin(), heads.end(), isName)) {
      throw std::runtime_error(m_where + ".scales: \"heads\" must name four outputs of the network");
    }
    return heads.get<std::vector<std::string>>();
  }

  float number(const json& object, const char* key, float least, float most) const {
    const json value = object.is_object() ? object.value(key, json()) : json();
    if (!value.is_number() || !(value >= least && value <= most)) {
      std::ostringstream range;
      range << least << " to " << most;
      throw std::runtime_error(m_where + ": \"" + key + "\" must be a number from " + range.str());
    }
    return value;
  }

  const json& m_entry;
  std::string m_where;
};

/// The network must be the one that its sidecar describes.
void checkIdentity(const json& sidecar, const std::string& model, std::string_view network) {
  const json wanted = sidecar.value("sha256", json());
  if (!wanted.is_string() || wanted.get_ref<const std::string&>().empty()) {
    throw std::runtime_error(model + ".json: sha256: is missing; if the model is good, put there what sha256sum says");
  }
  const GLibPtr<gchar> found(
      g_compute_checksum_for_data(G_CHECKSUM_SHA256, reinterpret_cast<const guchar*>(network.data()), network.size()));
  if (wanted.get_ref<const std::string&>() != found.get()) {
    throw std::runtime_error(model + ": is damaged, or another network than its sidecar (sha256) describes; put the " +
                             "right file back, or, if this is the right one, what sha256sum says into its sidecar");
  }
}

/// Pose tensors come first and together, a detector's are all of its outputs.
bool isAdaptable(const ModelSidecar& sidecar) {
  const auto& outputs = sidecar.outputs;
  const auto isPose = [&](size_t at, size_t channels) {
    const TensorLayout& layout = outputs[at];
    return layout.adapted && layout.type == LAROD_TENSOR_DATA_TYPE_UINT8 && layout.shape[3] == channels &&
           layout.shape[1] == sidecar.input.shape[1] / kPoseCell + 1 &&
           layout.shape[2] == sidecar.input.shape[2] / kPoseCell + 1;
  };
  const auto isFloat = [](const TensorLayout& layout) {
    return layout.adapted && layout.type == LAROD_TENSOR_DATA_TYPE_FLOAT32;
  };
  const auto adapted = std::count_if(outputs.begin(), outputs.end(), [](const auto& o) { return o.adapted; });
  if (adapted == kPoseTensors) {
    return isPose(0, kPoseTensorChannels[0]) && isPose(1, kPoseTensorChannels[1]) && isPose(2, kPoseTensorChannels[2]);
  }
  return adapted == kCandidateTensors && outputs.size() == kCandidateTensors &&
         std::all_of(outputs.begin(), outputs.end(), isFloat) && outputs[1].elements() == 4 * outputs[0].elements() &&
         outputs[3].elements() == outputs[0].elements();
}

void readAdapter(const json& document, const std::string& file, ModelSidecar& sidecar) {
  const auto isAdapted = [](const TensorLayout& output) { return output.adapted; };
  const bool adapted = std::any_of(sidecar.outputs.begin(), sidecar.outputs.end(), isAdapted);
  if (!adapted && !document.contains("adapter")) return;
  sidecar.adapter = AdapterReader(document.value("adapter", json()), file + ": adapter").read();
  if (!isAdaptable(sidecar)) {
    throw std::runtime_error(
        file +
        ": outputs: an adapter fills three byte tensors of 17, 34 and 64 channels, with a cell for each 16 pixels, " +
        "or four float tensors of one number of candidates");
  }
}

/// Whether they are those of the network is seen when it is loaded.
TensorRanges readRanges(const json& ranges, const std::string& where) {
  if (!ranges.is_object() || ranges.size() > kMaxTensors) {
    throw std::runtime_error(where + ": must be an object with at most " + std::to_string(kMaxTensors) + " tensors");
  }
  TensorRanges read;
  for (const auto& [tensor, range] : ranges.items()) {
    if (range.is_null()) {
      read[tensor] = std::nullopt;
      continue;
    }
    const auto isGood = [](const json& end, double least, double most) {
      return end.is_number() && end >= least && end <= most;
    };
    if (!range.is_array() || range.size() != 2 || !isGood(range[0], -kMostRange, 0) ||
        !isGood(range[1], 0, kMostRange) || range[0] == range[1]) {
      std::string line = where;
      line.append("[\"").append(tensor).append("\"]: must be null, or two numbers around zero that differ");
      throw std::runtime_error(line);
    }
    read[tensor] = Range{range[0], range[1]};
  }
  return read;
}

}  // namespace

size_t TensorLayout::elements() const {
  return std::accumulate(shape.begin(), shape.end(), size_t{1}, std::multiplies<>());
}

size_t TensorLayout::bytes() const {
  return elements() * (type == LAROD_TENSOR_DATA_TYPE_FLOAT32 ? sizeof(float) : sizeof(std::uint8_t));
}

ModelSidecar readModelSidecar(const std::string& model, std::string_view network) {
  const std::string file = model + ".json";
  const auto text = readFile(file, kMaxSidecarBytes);
  if (!text) {
    throw std::runtime_error(file + ": is missing; it describes the model's tensors");
  }
  const json document = json::parse(*text, nullptr, false);
  if (!document.is_object()) {
    throw std::runtime_error(file + ": is not a JSON object that describes a model's tensors; mend it");
  }
  checkIdentity(document, model, network);
  ModelSidecar sidecar;
  sidecar.input = TensorReader(document.value("input", json()), file + ": input").readInput();
  const json outputs = document.value("outputs", json());
  if (!outputs.is_array() || outputs.empty() || outputs.size() > kMaxOutputs) {
    throw std::runtime_error(file + ": outputs: must be a list of 1 to " + std::to_string(kMaxOutputs) + " tensors");
  }
  for (const json& entry : outputs) {
    const std::string where = file + ": outputs[" + std::to_string(sidecar.outputs.size()) + "]";
    sidecar.outputs.push_back(TensorReader(entry, where).readOutput());
  }
  readAdapter(document, file, sidecar);
  if (document.contains("ranges")) sidecar.ranges = readRanges(document["ranges"], file + ": ranges");
  return sidecar;
}

}  // namespace workstation
