#pragma once

#include <memory>

#include <glib.h>

// Owners of what GLib hands back, each freed the way GLib says.

namespace velmora::native::freedesktop {

struct GFree {
    void operator()(gpointer memory) const { g_free(memory); }
};
using GCharPtr = std::unique_ptr<gchar, GFree>;

struct StrvFree {
    void operator()(gchar** list) const { g_strfreev(list); }
};
using StrvPtr = std::unique_ptr<gchar*, StrvFree>;

struct KeyFileFree {
    void operator()(GKeyFile* file) const { g_key_file_free(file); }
};
using KeyFilePtr = std::unique_ptr<GKeyFile, KeyFileFree>;

}  // namespace velmora::native::freedesktop
