// A shared library, loaded as long as this object lives.
#ifndef CONSOLE_HOST_BASE_SHARED_LIBRARY_H
#define CONSOLE_HOST_BASE_SHARED_LIBRARY_H

#include <memory>
#include <string>

namespace ndk_integrate {

// The file that Library below loads; a name without "/" where that is for the loader to find.
std::string find_library(const std::string& name, const std::string& file);

class Library {
 public:
  // Loads the library `file`, a file name; with "" the one called `name` that lies beside the
  // program, else in ../lib from it, else where the loader finds it. `what` is what messages call
  // it. Throws PluginError when it cannot be loaded.
  Library(std::string what, const std::string& name, const std::string& file);

  // The function `name`, which is exported as `exported_as`. Throws PluginError when there is none.
  void* function(const char* name, const char* exported_as) const;

 private:
  struct Closer {
    void operator()(void* library) const;
  };

  std::string what_;
  std::string file_;
  std::unique_ptr<void, Closer> library_;
};

}  // namespace ndk_integrate

#endif
