// Owners of what C libraries hand out: each thing is released once, whatever happens.
#pragma once

#include <gio/gio.h>

#include <memory>
#include <string>
#include <utility>

/// How each kind of thing of GLib is given back; what has no line of its own is a GObject.
struct GLibRelease {
  void operator()(gchar* text) const { g_free(text); }
  void operator()(gchar** texts) const { g_strfreev(texts); }
  void operator()(GBytes* bytes) const { g_bytes_unref(bytes); }
  void operator()(GDateTime* time) const { g_date_time_unref(time); }
  void operator()(GDBusNodeInfo* info) const { g_dbus_node_info_unref(info); }
  void operator()(GError* error) const { g_error_free(error); }
  void operator()(GHashTable* table) const { g_hash_table_unref(table); }
  /// With the objects in it.
  void operator()(GList* objects) const { g_list_free_full(objects, g_object_unref); }
  void operator()(GKeyFile* file) const { g_key_file_unref(file); }
  void operator()(GMainContext* context) const { g_main_context_unref(context); }
  void operator()(GMainLoop* loop) const { g_main_loop_unref(loop); }
  void operator()(GOptionContext* context) const { g_option_context_free(context); }
  void operator()(GVariant* variant) const { g_variant_unref(variant); }
  /// A source leaves its context too.
  void operator()(GSource* source) const {
    g_source_destroy(source);
    g_source_unref(source);
  }
  template <typename Object>
  void operator()(Object* object) const {
    g_object_unref(object);
  }
};

/// Owns one thing of GLib, or one reference to it.
template <typename T>
using GLibPtr = std::unique_ptr<T, GLibRelease>;

/// Owns plain memory of GLib.
template <typename T>
using GLibMemory = std::unique_ptr<T, decltype([](T* memory) { g_free(memory); })>;

/// A further reference to a GObject.
template <typename T>
GLibPtr<T> share(T* object) {
  return GLibPtr<T>(static_cast<T*>(g_object_ref(object)));
}

/// Where a call of GLib may leave its error.
class CaughtError {
 public:
  CaughtError() = default;
  ~CaughtError() { g_clear_error(&m_error); }
  CaughtError(const CaughtError&) = delete;
  CaughtError& operator=(const CaughtError&) = delete;

  /// For one call at a time; forgets the error before.
  GError** out() {
    g_clear_error(&m_error);
    return &m_error;
  }
  explicit operator bool() const { return m_error != nullptr; }
  [[nodiscard]] const GError* get() const { return m_error; }
  /// GLib's words; `otherwise` where there is no error.
  [[nodiscard]] std::string text(const char* otherwise = "unknown reason") const {
    return m_error == nullptr ? otherwise : m_error->message;
  }

 private:
  GError* m_error = nullptr;
};
