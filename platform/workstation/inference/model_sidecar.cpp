#include "platform/workstation/inference/model_sidecar.h"

#include <glib.h>

#include <cmath>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <numeric>
#include <set>
#include <stdexcept>

#include "platform/support/owners.h"
#include "platform/workstation/system/durable_file.h"

namespace workstation {
namespace {

using nlohmann::json;

constexpr size_t kMaxTensorElements = size_t{1} << 26;
constexpr size_t kMaxOutputs = 16;
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
    layout.layer = constant ? "" : layer;
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
                             "right file back");
  }
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
    throw std::runtime_error(file + ": is not a JSON object that describes a model's tensors");
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
  return sidecar;
}

}  // namespace workstation
