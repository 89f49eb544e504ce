#pragma once

#include <mutex>
#include <string>

// A shared library opened when an action first needs it rather than when the
// agent starts. The agent runs once per request, and every library it is linked
// with costs each request its mapping, relocation and constructors, and again
// its teardown at exit: for the libraries that only some actions use (GIO for
// launching, libatspi for the one-call reader, libpng and RandR for screenshots,
// XTest for input) that was a tenth of a small query's time.
//
// The functions a caller uses are looked up together, in a table of typed
// pointers that `VELMORA_LIBRARY_FUNCTION` fills: a library missing one of them
// is as unusable as a missing library, and says so.

namespace velmora::native::freedesktop {

class SharedLibrary {
  public:
    // Nothing is opened until the first use. An opened library stays open for
    // the rest of the process: GLib's type system, for one, cannot be unloaded.
    explicit SharedLibrary(const char* soname) : soname_(soname) {}
    SharedLibrary(const SharedLibrary&) = delete;
    SharedLibrary& operator=(const SharedLibrary&) = delete;

    // The address of a function of the library, opened by the first call; or
    // nullptr (and `error()` set) when the library cannot be opened or has no
    // function of that name.
    void* function(const char* name);
    // Why the library or a function of it is missing: the loader's words.
    const std::string& error() const { return error_; }

  private:
    // Opens the library once; false, with `error()` set, when it cannot be.
    bool open();

    const char* soname_;
    std::once_flag opened_;
    void* handle_ = nullptr;
    std::string error_;
};

}  // namespace velmora::native::freedesktop

// Fills `table.name` with `library`'s function `name`, typed as the library's
// header declares it; evaluates to whether it was found.
#define VELMORA_LIBRARY_FUNCTION(library, table, name) \
    ((table).name = reinterpret_cast<decltype(&::name)>((library).function(#name))) != nullptr
