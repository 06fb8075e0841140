// What the sanitizers are told; they look these functions up by name.

/// Leaks are told apart by their whole call stacks.
extern "C" const char* __asan_default_options() { return "fast_unwind_on_malloc=0"; }

/// Memory that libraries allocate while they are loaded: GLib drops its first table of quarks when it grows, also while
/// GStreamer lists its elements. Its HTTP source forgets a few words of each camera that it has been connected to.
/// fontconfig keeps offsets where the check looks for pointers. libsoup forgets the path of a request whose
/// Content-Length is no number.
extern "C" const char* __lsan_default_suppressions() {
  return "leak:ld-linux-x86-64.so.2\nleak:call_init\nleak:libfontconfig.so.1\n"
         "leak:gst_update_registry\nleak:libgstsoup.so\nleak:soup_headers_parse_request\n";
}

extern "C" const char* __lsan_default_options() { return "print_suppressions=0"; }
