// oneDNN's two interfaces as one: version 2 (Debian 12) describes an operation before it looks for an implementation,
// version 3 (Debian 13) does both at once. Nothing else includes its headers.
#pragma once

#include <oneapi/dnnl/dnnl.hpp>
#include <utility>

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

}  // namespace workstation::onednn
