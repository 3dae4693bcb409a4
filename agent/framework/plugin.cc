#include "agent/framework/plugin.h"

#include <dlfcn.h>

#include <atomic>
#include <filesystem>
#include <stdexcept>

#include "agent/wire/operator_registry.h"
#include "host/process.h"
#include "host/product.h"

namespace agent {

namespace {

constexpr const char* kLibraryName = "libqxlinmigrate.so";
constexpr const char* kOperatorFactories[] = {"factoryQXLinMigrateP2VSerializeOperator",
                                              "factoryQXLinMigrateP2VDeserializeOperator"};

// The loaded plug-in, for those who call it by name.
std::atomic<void*> current{nullptr};

void* symbol(void* handle, const std::string& path, const char* name) {
  void* address = dlsym(handle, name);
  if (!address) throw std::runtime_error(path + " lacks " + name);
  return address;
}

int callEntry(void* handle, const std::string& path, const char* name) {
  return reinterpret_cast<int (*)()>(symbol(handle, path, name))();
}

}  // namespace

Plugin::Plugin(const std::string& path) {
  handle_ = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!handle_) throw std::runtime_error(std::string("cannot load the plug-in: ") + dlerror());
  try {
    symbol(handle_, path, "finiLibrary");
    std::vector<boost::intrusive_ptr<QXL::QXLOpFactory>> factories;
    for (const char* name : kOperatorFactories) {
      factories.push_back(
          *static_cast<boost::intrusive_ptr<QXL::QXLOpFactory>*>(symbol(handle_, path, name)));
    }
    if (const int result = callEntry(handle_, path, "initLibrary")) {
      throw std::runtime_error(path + ": initLibrary returned " + std::to_string(result));
    }
    for (const auto& factory : factories) {
      OperatorRegistry::instance().add(factory);
      operators_.push_back(factory->getName());
    }
    current = handle_;
  } catch (...) {
    dlclose(handle_);
    throw;
  }
}

Plugin::~Plugin() {
  current = nullptr;
  for (const std::string& name : operators_) OperatorRegistry::instance().remove(name);
  callEntry(handle_, kLibraryName, "finiLibrary");
  dlclose(handle_);
}

void* Plugin::currentSymbol(const char* name) {
  void* const handle = current;
  return handle ? dlsym(handle, name) : nullptr;
}

std::string Plugin::defaultPath() {
  std::error_code error;
  const std::filesystem::path here = std::filesystem::path(host::ownProgram()).parent_path();
  for (const std::filesystem::path& folder :
       {here, here / "../lib", std::filesystem::path(host::pluginFolder())}) {
    if (std::filesystem::exists(folder / kLibraryName, error)) {
      return (folder / kLibraryName).lexically_normal();
    }
  }
  return kLibraryName;
}

}  // namespace agent
