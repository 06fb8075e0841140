#include "simulator/drawing/renderer.h"

#include <EGL/egl.h>
#include <EGL/eglext.h>
#define GL_GLEXT_PROTOTYPES
#include <GL/gl.h>
#include <GL/glext.h>

#include <algorithm>
#include <cmath>
#include <glm/gtc/matrix_transform.hpp>
#include <glm/gtc/type_ptr.hpp>
#include <stdexcept>
#include <string>

#include "simulator/drawing/changes.h"

namespace simulator {
namespace {

constexpr float kNear = 0.1F;
constexpr float kFar = 12.0F;
constexpr int kShadowSize = 1024;
constexpr int kSamples = 4;

constexpr const char* kVertexShader = R"(#version 330 core
layout(location = 0) in vec3 position;
layout(location = 1) in vec3 normal;
layout(location = 2) in vec3 color;
layout(location = 3) in float surface;
uniform mat4 view;
uniform mat4 shadowView;
out vec3 place;
out vec3 facing;
out vec3 tint;
out vec3 inShadow;
flat out int kind;
void main() {
  gl_Position = view * vec4(position, 1);
  place = position;
  facing = normal;
  tint = color;
  kind = int(surface + 0.5);
  inShadow = (shadowView * vec4(position, 1)).xyz * 0.5 + 0.5;
})";

/// Begins one of the two fragment shaders: night knows small lamps and infrared. Day does without, so that nothing that
/// is added for the night changes a rounding in pictures by day.
constexpr const char* kDay = "#version 330 core\n";
constexpr const char* kNight = "#version 330 core\n#define NIGHT\n";

constexpr const char* kFragmentShader = R"(
in vec3 place;
in vec3 facing;
in vec3 tint;
in vec3 inShadow;
flat in int kind;
uniform vec3 eye;
uniform vec3 towards;
uniform vec3 lamp;
uniform vec3 sky;
uniform vec3 ground;
#ifdef NIGHT
uniform vec3 torch;
uniform vec3 torchPlace;
uniform float panes;
uniform float infrared;
#endif
uniform sampler2DShadow shadow;
out vec4 result;
// Of numbers up to some hundreds; without a sine, which a software renderer takes long for.
float hash(vec3 p) {
  p = fract(p * vec3(0.1031, 0.1099, 0.0973));
  p += dot(p, p.zyx + 31.32);
  return fract((p.x + p.y) * p.z);
}
float noise(vec3 p) {
  vec3 i = floor(p), f = fract(p);
  f = f * f * (3.0 - 2.0 * f);
  return mix(mix(mix(hash(i), hash(i + vec3(1, 0, 0)), f.x), mix(hash(i + vec3(0, 1, 0)), hash(i + vec3(1, 1, 0)), f.x), f.y),
             mix(mix(hash(i + vec3(0, 0, 1)), hash(i + vec3(1, 0, 1)), f.x),
                 mix(hash(i + vec3(0, 1, 1)), hash(i + vec3(1, 1, 1)), f.x), f.y), f.z);
}
// Mesa's software renderer computes both sides of every condition: what costs, noise and hash, is asked for once.
vec3 pattern() {
  float plank = floor(place.x / 0.16);
  vec3 grain = kind == 1 ? vec3(place.x * 40.0, place.y * 3.0, place.z * 3.0) : place * (kind == 4 ? 28.0 : 9.0);
  float rough = noise(grain);
  vec3 tile = kind == 1 ? vec3(plank, floor(place.y / 1.1 + hash(vec3(plank))), floor(place.z / 0.5)) : floor(place / 0.4);
  float shade = hash(tile);
  vec3 cell = fract(place / 0.4);
  float joint = step(0.03, cell.x) * step(0.03, cell.y);
  float stripe = fract(dot(place, vec3(9.0, 9.0, 7.0))) < 0.5 ? 0.78 : 1.08;
  float much = kind == 1 ? 0.82 + 0.14 * shade + 0.1 * rough
             : kind == 2 ? (0.8 + 0.2 * joint) * (0.95 + 0.1 * shade)
             : kind == 3 ? stripe
             : kind == 4 ? 0.93 + 0.14 * rough
                         : 0.97 + 0.06 * rough;
  return tint * much;
}
void main() {
  vec3 n = normalize(facing);
  if (dot(n, eye - place) < 0.0) n = -n;
  vec3 albedo = pattern();
#ifdef NIGHT
  if (infrared > 0.5) albedo = vec3(0.18 + 0.7 * dot(albedo, vec3(0.3, 0.5, 0.2)));
  if (kind == 5) albedo *= panes;
#endif
  if (kind == 5) { result = vec4(pow(albedo, vec3(0.4545)), 1); return; }
  float lit = 0.0;
  float slope = dot(n, towards);
  if (slope > 0.0) {
    for (int i = 0; i < 4; ++i) {
      vec2 offset = vec2(float(i & 1) - 0.5, float(i >> 1) - 0.5) * 0.003;
      lit += 0.25 * texture(shadow, vec3(inShadow.xy + offset, inShadow.z - 0.002 - 0.002 / max(slope, 0.1)));
    }
    lit *= slope;
  }
  vec3 light = mix(ground, sky, 0.5 + 0.5 * n.z) + lamp * lit;
#ifdef NIGHT
  vec3 way = torchPlace - place;
  light += torch * max(dot(n, normalize(way)), 0.0) / (0.5 + dot(way, way));
#endif
  result = vec4(pow(min(albedo * light, vec3(1)), vec3(0.4545)), 1);
})";

constexpr const char* kEmptyShader = "#version 330 core\nvoid main() {}";

GLuint compile(GLenum kind, const std::string& text) {
  const GLuint shader = glCreateShader(kind);
  const char* source = text.c_str();
  glShaderSource(shader, 1, &source, nullptr);
  glCompileShader(shader);
  GLint good = 0;
  glGetShaderiv(shader, GL_COMPILE_STATUS, &good);
  if (good == 0) {
    std::string why(2048, '\0');
    glGetShaderInfoLog(shader, static_cast<GLsizei>(why.size()), nullptr, why.data());
    throw std::runtime_error("the renderer's shader does not compile: " + why);
  }
  return shader;
}

GLuint link(const std::string& vertex, const std::string& fragment) {
  const GLuint program = glCreateProgram();
  const GLuint a = compile(GL_VERTEX_SHADER, vertex);
  const GLuint b = compile(GL_FRAGMENT_SHADER, fragment);
  glAttachShader(program, a);
  glAttachShader(program, b);
  glLinkProgram(program);
  glDeleteShader(a);
  glDeleteShader(b);
  GLint good = 0;
  glGetProgramiv(program, GL_LINK_STATUS, &good);
  if (good == 0) throw std::runtime_error("the renderer's shaders do not fit together");
  return program;
}

/// Clip coordinates of the picture; rows run downwards so that the first row read back is the top one.
glm::mat4 pictureProjection(const Camera& camera) {
  const float sx = 2 / static_cast<float>(camera.width);
  const float sy = 2 / static_cast<float>(camera.height);
  glm::mat4 projection(0);
  projection[0][0] = camera.fx * sx;
  projection[2][0] = camera.cx * sx - 1;
  projection[1][1] = camera.fy * sy;
  projection[2][1] = camera.cy * sy - 1;
  projection[2][2] = (kFar + kNear) / (kFar - kNear);
  projection[3][2] = -2 * kFar * kNear / (kFar - kNear);
  projection[2][3] = 1;
  const glm::mat4 axes(camera.axes());
  return projection * axes * glm::translate(glm::mat4(1), -camera.position);
}

/// Around all that throws shadows; the larger rooms need more than the others.
glm::mat4 shadowProjection(const Light& light, const Room& room) {
  const bool large = room.width > 5.2F;
  const glm::vec3 middle = large ? glm::vec3(room.width / 2, room.depth / 2, 0.6F) : glm::vec3(2.3F, 2.2F, 0.6F);
  const float reach = large ? room.width / 2 + 1 : 3.4F;
  const glm::mat4 view = glm::lookAt(middle + light.towards * 6.0F, middle, glm::vec3(0, 1, 0));
  return glm::ortho(-reach, reach, -reach, reach, 1.0F, 11.0F) * view;
}

}  // namespace

struct Renderer::Implementation {
  EGLDisplay display = EGL_NO_DISPLAY;
  EGLContext context = EGL_NO_CONTEXT;
  GLuint dayProgram = 0, nightProgram = 0, shadowProgram = 0;
  GLuint array = 0, buffer = 0;
  GLuint shadowTexture = 0, shadowTarget = 0;
  GLuint drawTarget = 0, drawColor = 0, drawDepth = 0;
  GLuint readTarget = 0, readColor = 0, readDepth = 0;
  int width = 0, height = 0;
  Picture picture;
  std::vector<float> depth;
  std::vector<std::uint8_t> pixels;
  Changes changes;

  Implementation() = default;
  Implementation(const Implementation&) = delete;
  Implementation& operator=(const Implementation&) = delete;
  ~Implementation() {
    if (display == EGL_NO_DISPLAY) return;
    eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    if (context != EGL_NO_CONTEXT) eglDestroyContext(display, context);
    eglTerminate(display);
  }

  void openContext() {
    display = eglGetPlatformDisplay(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
    if (display == EGL_NO_DISPLAY || eglInitialize(display, nullptr, nullptr) == EGL_FALSE) {
      throw std::runtime_error("no EGL without a display: install libegl-mesa0 and libgl1-mesa-dri");
    }
    eglBindAPI(EGL_OPENGL_API);
    constexpr std::array<EGLint, 7> kAttributes = {
        EGL_CONTEXT_MAJOR_VERSION,           3,       EGL_CONTEXT_MINOR_VERSION, 3, EGL_CONTEXT_OPENGL_PROFILE_MASK,
        EGL_CONTEXT_OPENGL_CORE_PROFILE_BIT, EGL_NONE};
    context = eglCreateContext(display, EGL_NO_CONFIG_KHR, EGL_NO_CONTEXT, kAttributes.data());
    if (context == EGL_NO_CONTEXT || eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, context) == EGL_FALSE) {
      throw std::runtime_error("no OpenGL 3.3 context: install libgl1-mesa-dri");
    }
  }

  void createObjects() {
    dayProgram = link(kVertexShader, std::string(kDay) + kFragmentShader);
    nightProgram = link(kVertexShader, std::string(kNight) + kFragmentShader);
    shadowProgram = link(kVertexShader, kEmptyShader);
    glGenVertexArrays(1, &array);
    glBindVertexArray(array);
    glGenBuffers(1, &buffer);
    glBindBuffer(GL_ARRAY_BUFFER, buffer);
    const auto attribute = [](GLuint index, GLint size, std::size_t offset) {
      glEnableVertexAttribArray(index);
      // OpenGL takes an offset into the buffer as a pointer. NOLINTNEXTLINE(performance-no-int-to-ptr)
      glVertexAttribPointer(index, size, GL_FLOAT, GL_FALSE, sizeof(Vertex), reinterpret_cast<const void*>(offset));
    };
    attribute(0, 3, offsetof(Vertex, position));
    attribute(1, 3, offsetof(Vertex, normal));
    attribute(2, 3, offsetof(Vertex, color));
    attribute(3, 1, offsetof(Vertex, surface));
    glGenTextures(1, &shadowTexture);
    glBindTexture(GL_TEXTURE_2D, shadowTexture);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_DEPTH_COMPONENT24, kShadowSize, kShadowSize, 0, GL_DEPTH_COMPONENT, GL_FLOAT,
                 nullptr);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_COMPARE_MODE, GL_COMPARE_REF_TO_TEXTURE);
    glGenFramebuffers(1, &shadowTarget);
    glBindFramebuffer(GL_FRAMEBUFFER, shadowTarget);
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_DEPTH_ATTACHMENT, GL_TEXTURE_2D, shadowTexture, 0);
    glDrawBuffer(GL_NONE);
    glGenFramebuffers(1, &drawTarget);
    glGenFramebuffers(1, &readTarget);
    glGenRenderbuffers(1, &drawColor);
    glGenRenderbuffers(1, &drawDepth);
    glGenRenderbuffers(1, &readColor);
    glGenRenderbuffers(1, &readDepth);
    glEnable(GL_DEPTH_TEST);
  }

  static void attach(GLuint target, GLuint color, GLuint depthBuffer, int samples, int columns, int rows) {
    glBindFramebuffer(GL_FRAMEBUFFER, target);
    glBindRenderbuffer(GL_RENDERBUFFER, color);
    glRenderbufferStorageMultisample(GL_RENDERBUFFER, samples, GL_RGBA8, columns, rows);
    glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_RENDERBUFFER, color);
    glBindRenderbuffer(GL_RENDERBUFFER, depthBuffer);
    glRenderbufferStorageMultisample(GL_RENDERBUFFER, samples, GL_DEPTH_COMPONENT24, columns, rows);
    glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_DEPTH_ATTACHMENT, GL_RENDERBUFFER, depthBuffer);
    if (glCheckFramebufferStatus(GL_FRAMEBUFFER) != GL_FRAMEBUFFER_COMPLETE) refuse(columns, rows);
  }

  [[noreturn]] static void refuse(int columns, int rows) {
    throw std::runtime_error("the renderer cannot draw pictures of " + std::to_string(columns) + "x" +
                             std::to_string(rows) + ": too small or too large for this OpenGL");
  }

  void resize(int newWidth, int newHeight) {
    if (newWidth == width && newHeight == height) return;
    GLint limit = 0;
    glGetIntegerv(GL_MAX_RENDERBUFFER_SIZE, &limit);
    if (newWidth < 1 || newHeight < 1 || newWidth > limit || newHeight > limit) refuse(newWidth, newHeight);
    width = height = 0;  // until all of it has gone well
    attach(drawTarget, drawColor, drawDepth, kSamples, newWidth, newHeight);
    attach(readTarget, readColor, readDepth, 0, newWidth, newHeight);
    width = newWidth;
    height = newHeight;
    const auto count = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    pixels.resize(count * 4);
    depth.resize(count);
    picture = {width, height, std::vector<std::uint8_t>(count * 3)};
  }

  /// The one of this light, with all that it is told.
  void useProgram(const Camera& camera, const Light& light, const glm::mat4& shadowView) const {
    const bool night = light.panes < 1;
    const GLuint program = night ? nightProgram : dayProgram;
    glUseProgram(program);
    const auto vector = [&](const char* name, const glm::vec3& value) {
      glUniform3fv(glGetUniformLocation(program, name), 1, glm::value_ptr(value));
    };
    const glm::mat4 view = pictureProjection(camera);
    glUniformMatrix4fv(glGetUniformLocation(program, "view"), 1, GL_FALSE, glm::value_ptr(view));
    glUniformMatrix4fv(glGetUniformLocation(program, "shadowView"), 1, GL_FALSE, glm::value_ptr(shadowView));
    vector("eye", camera.position);
    vector("towards", light.towards);
    vector("lamp", light.lamp);
    vector("sky", light.sky);
    vector("ground", light.ground);
    if (night) {
      vector("torch", light.torch);
      vector("torchPlace", light.torchPlace);
      glUniform1f(glGetUniformLocation(program, "panes"), light.panes);
      glUniform1f(glGetUniformLocation(program, "infrared"), light.infrared ? 1.0F : 0.0F);
    }
  }

  void readBack() {
    glBindFramebuffer(GL_READ_FRAMEBUFFER, drawTarget);
    glBindFramebuffer(GL_DRAW_FRAMEBUFFER, readTarget);
    glBlitFramebuffer(0, 0, width, height, 0, 0, width, height, GL_COLOR_BUFFER_BIT, GL_NEAREST);
    glBlitFramebuffer(0, 0, width, height, 0, 0, width, height, GL_DEPTH_BUFFER_BIT, GL_NEAREST);
    glBindFramebuffer(GL_READ_FRAMEBUFFER, readTarget);
    glReadPixels(0, 0, width, height, GL_RGBA, GL_UNSIGNED_BYTE, pixels.data());
    glReadPixels(0, 0, width, height, GL_DEPTH_COMPONENT, GL_FLOAT, depth.data());
    for (std::size_t i = 0; i < depth.size(); ++i) {
      std::copy_n(&pixels[i * 4], 3, &picture.rgb[i * 3]);
    }
  }
};

Renderer::Renderer() : m_implementation(std::make_unique<Implementation>()) {
  m_implementation->openContext();
  m_implementation->createObjects();
}

Renderer::~Renderer() = default;

void Renderer::draw(const Camera& camera, const Light& light, const Room& room, const Mesh& moving) {
  Implementation& gl = *m_implementation;
  const Mesh& fixed = room.mesh;
  gl.resize(camera.width, camera.height);
  const Part part = gl.changes.since(camera, light, room, moving);
  if (part.empty()) return;
  const auto bytes = [](const Mesh& mesh) { return static_cast<GLsizeiptr>(mesh.size() * sizeof(Vertex)); };
  glBufferData(GL_ARRAY_BUFFER, bytes(fixed) + bytes(moving), nullptr, GL_STREAM_DRAW);
  glBufferSubData(GL_ARRAY_BUFFER, 0, bytes(fixed), fixed.data());
  glBufferSubData(GL_ARRAY_BUFFER, bytes(fixed), bytes(moving), moving.data());
  const auto count = static_cast<GLsizei>(fixed.size() + moving.size());
  const glm::mat4 shadowView = shadowProjection(light, room);

  glBindFramebuffer(GL_FRAMEBUFFER, gl.shadowTarget);
  glViewport(0, 0, kShadowSize, kShadowSize);
  glClear(GL_DEPTH_BUFFER_BIT);
  glUseProgram(gl.shadowProgram);
  glUniformMatrix4fv(glGetUniformLocation(gl.shadowProgram, "view"), 1, GL_FALSE, glm::value_ptr(shadowView));
  const auto flat = static_cast<GLsizei>(room.flatVertices);
  glDrawArrays(GL_TRIANGLES, flat, count - flat);

  glBindFramebuffer(GL_FRAMEBUFFER, gl.drawTarget);
  glViewport(0, 0, gl.width, gl.height);
  glEnable(GL_SCISSOR_TEST);
  glScissor(part.x, part.y, part.width, part.height);
  glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
  gl.useProgram(camera, light, shadowView);
  // Walls and floor last: what stands before them is not computed twice.
  glDrawArrays(GL_TRIANGLES, flat, count - flat);
  glDrawArrays(GL_TRIANGLES, 0, flat);
  glDisable(GL_SCISSOR_TEST);
  gl.readBack();
}

const Picture& Renderer::picture() const { return m_implementation->picture; }

float Renderer::depthAt(float x, float y) const {
  const Implementation& gl = *m_implementation;
  if (!(x >= 0 && y >= 0 && x < static_cast<float>(gl.width) && y < static_cast<float>(gl.height))) return kFar;
  const auto index = static_cast<std::size_t>(y) * static_cast<std::size_t>(gl.width) + static_cast<std::size_t>(x);
  const float ndc = 2 * gl.depth[index] - 1;
  return 2 * kFar * kNear / (kFar + kNear - ndc * (kFar - kNear));
}

}  // namespace simulator
