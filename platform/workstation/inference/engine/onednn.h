// oneDNN's two interfaces as one: version 2 (Debian 12) describes an operation before it looks for an implementation,
// version 3 (Debian 13) does both at once. Nothing else includes its headers.
#pragma once

#include <algorithm>
#include <cstdint>
#include <oneapi/dnnl/dnnl.hpp>
#include <unordered_map>
#include <utility>
#include <vector>

namespace workstation::onednn {

using dnnl::algorithm;
using dnnl::engine;
using dnnl::memory;
using dnnl::primitive_attr;
using dnnl::prop_kind;

/// A primitive's description; throws dnnl::error when there is no implementation.
template <typename Primitive, typename... Arguments>
typename Primitive::primitive_desc describe(const engine& processor, const primitive_attr& attributes,
                                            Arguments&&... arguments) {
#if DNNL_VERSION_MAJOR < 3
  return {typename Primitive::desc(std::forward<Arguments>(arguments)...), attributes, processor};
#else
  return {processor, std::forward<Arguments>(arguments)..., attributes};
#endif
}

/// A convolution's geometry: rows, then columns. Dilations are steps between weights less one.
struct Geometry {
  memory::dims strides, dilations, pads_begin, pads_end;
};

/// A description without format lets oneDNN choose it; an empty bias is none.
inline dnnl::convolution_forward::primitive_desc describeConvolution(
    const engine& processor, const primitive_attr& attributes, const memory::desc& source, const memory::desc& weights,
    const memory::desc& bias, const memory::desc& target, const Geometry& geometry) {
  return describe<dnnl::convolution_forward>(
      processor, attributes, prop_kind::forward_inference, algorithm::convolution_direct, source, weights, bias, target,
      geometry.strides, geometry.dilations, geometry.pads_begin, geometry.pads_end);
}

inline dnnl::resampling_forward::primitive_desc describeResizing(const engine& processor, const memory::desc& source,
                                                                 const memory::desc& target) {
  return describe<dnnl::resampling_forward>(processor, {}, prop_kind::forward_inference, algorithm::resampling_linear,
                                            source, target);
}

inline dnnl::binary::primitive_desc describeSum(const engine& processor, const memory::desc& one,
                                                const memory::desc& other, const memory::desc& target) {
  return describe<dnnl::binary>(processor, {}, algorithm::binary_add, one, other, target);
}

inline dnnl::eltwise_forward::primitive_desc describeActivation(const engine& processor, algorithm kind,
                                                                const memory::desc& source, const memory::desc& target,
                                                                float alpha, float beta) {
#if DNNL_VERSION_MAJOR < 3
  (void)target;  // is like the source
  return describe<dnnl::eltwise_forward>(processor, {}, prop_kind::forward_inference, kind, source, alpha, beta);
#else
  return describe<dnnl::eltwise_forward>(processor, {}, prop_kind::forward_inference, kind, source, target, alpha,
                                         beta);
#endif
}

inline void appendActivation(dnnl::post_ops& operations, algorithm kind, float alpha, float beta) {
#if DNNL_VERSION_MAJOR < 3
  operations.append_eltwise(1.0F, kind, alpha, beta);
#else
  operations.append_eltwise(kind, alpha, beta);
#endif
}

inline memory::data_type typeOf(const memory::desc& layout) {
#if DNNL_VERSION_MAJOR < 3
  return layout.data_type();
#else
  return layout.get_data_type();
#endif
}

/// What an operation does besides, and what version 3 must be given of it at each run.
struct Scaling {
  primitive_attr attributes;
  std::unordered_map<int, memory> arguments;
};

/// Numbers in memory of their own.
template <typename Number>
memory listOf(const engine& processor, memory::data_type type, const std::vector<Number>& numbers) {
  memory made({{static_cast<memory::dim>(numbers.size())}, type, memory::format_tag::x}, processor);
  std::copy(numbers.begin(), numbers.end(), static_cast<Number*>(made.get_data_handle()));
  return made;
}

/// A convolution of bytes: sum * factors[output] + offsets[output]. `offsets` becomes the bias to give it, which
/// version 2 multiplies as well.
inline Scaling scaleSums(const engine& processor, const std::vector<float>& factors, bool has_groups,
                         std::vector<float>& offsets) {
  Scaling made;
#if DNNL_VERSION_MAJOR < 3
  (void)processor, (void)has_groups;
  made.attributes.set_output_scales(1 << 1, factors);
  for (size_t output = 0; output < offsets.size(); ++output) offsets[output] /= factors[output];
#else
  (void)offsets;
  made.attributes.set_scales_mask(DNNL_ARG_WEIGHTS, has_groups ? (1 << 0) | (1 << 1) : 1 << 0);
  made.arguments[DNNL_ARG_ATTR_SCALES | DNNL_ARG_WEIGHTS] = listOf(processor, memory::data_type::f32, factors);
#endif
  return made;
}

/// A copy between floats and bytes that stand for (byte - zero) * scale.
inline Scaling scaleBytes(const engine& processor, bool to_bytes, float scale, std::int32_t zero) {
  Scaling made;
  const int side = to_bytes ? DNNL_ARG_TO : DNNL_ARG_FROM;
#if DNNL_VERSION_MAJOR < 3
  (void)processor;
  made.attributes.set_output_scales(0, {to_bytes ? 1 / scale : scale});
  if (zero != 0) made.attributes.set_zero_points(side, 0, {zero});
#else
  made.attributes.set_scales_mask(side, 0);
  made.arguments[DNNL_ARG_ATTR_SCALES | side] = listOf<float>(processor, memory::data_type::f32, {scale});
  if (zero != 0) {
    made.attributes.set_zero_points_mask(side, 0);
    made.arguments[DNNL_ARG_ATTR_ZERO_POINTS | side] = listOf<std::int32_t>(processor, memory::data_type::s32, {zero});
  }
#endif
  return made;
}

}  // namespace workstation::onednn
