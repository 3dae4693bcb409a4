// The plug-in as a process meets it: loaded by path, found by names, unloaded.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <memory>
#include <set>
#include <sstream>

#include "framework/functionality.h"
#include "framework/op_factory.h"

using testing::IsEmpty;
using testing::IsSubsetOf;

namespace {

std::string outputOf(const std::string& command) {
  const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
  std::string text;
  std::array<char, 4096> buffer;
  while (const std::size_t count = fread(buffer.data(), 1, buffer.size(), pipe.get())) {
    text.append(buffer.data(), count);
  }
  return text;
}

std::vector<std::string> linesOf(const std::string& command) {
  std::istringstream stream(outputOf(command));
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

bool isLoaded() {
  void* handle = dlopen(QX_PLUGIN, RTLD_NOW | RTLD_NOLOAD);
  if (handle) dlclose(handle);
  return handle != nullptr;
}

// The loaded plug-in.
class Plugin {
 public:
  Plugin() : handle_(dlopen(QX_PLUGIN, RTLD_NOW | RTLD_LOCAL)) {
    EXPECT_TRUE(handle_) << dlerror();
  }
  ~Plugin() { EXPECT_EQ(dlclose(handle_), 0); }

  int entry(const char* name) { return reinterpret_cast<int (*)()>(dlsym(handle_, name))(); }
  boost::intrusive_ptr<QXL::QXLOpFactory>& factory(const char* name) {
    return *static_cast<boost::intrusive_ptr<QXL::QXLOpFactory>*>(dlsym(handle_, name));
  }

 private:
  void* handle_;
};

}  // namespace

TEST(PluginFile, NeedsNothingButTheCAndCxxRuntimes) {
  const auto needed =
      linesOf("readelf -d " QX_PLUGIN " | sed -n 's/.*NEEDED.*\\[\\(.*\\)\\]/\\1/p'");
  EXPECT_FALSE(needed.empty());
  // Sanitizers and coverage come with libraries of their own.
  std::vector<std::string> product;
  for (const std::string& library : needed) {
    if (library.find("san.so") == std::string::npos) product.push_back(library);
  }
  EXPECT_THAT(product, IsSubsetOf({"libstdc++.so.6", "libgcc_s.so.1", "libm.so.6", "libc.so.6"}));
}

TEST(PluginFile, ExportsItsEntriesAndNamespacesAndNothingElse) {
  const auto symbols = linesOf("nm -D --defined-only " QX_PLUGIN " | sed 's/.* //'");
  const std::set<std::string> names(symbols.begin(), symbols.end());
  for (const char* entry : {"initLibrary", "finiLibrary", "factoryQXLinMigrateP2VSerializeOperator",
                            "factoryQXLinMigrateP2VDeserializeOperator"}) {
    EXPECT_EQ(names.count(entry), 1u) << entry;
  }
  std::vector<std::string> strangers;
  for (const std::string& line : linesOf("nm -DC --defined-only " QX_PLUGIN)) {
    if (line.find("DRAHN2VPSMigrate") != std::string::npos ||
        line.find("P2V::") != std::string::npos) {
      strangers.push_back(line);
    }
    bool known = false;
    for (const char* name :
         {"QuotaMgmt::", "Expand::", "QXHWCalc::", "QXL::", "QXA::", "initLibrary", "finiLibrary",
          "factoryQXLinMigrateP2V", "qxHWCalculate", "qxLinMigrateVersion"}) {
      if (line.find(name) != std::string::npos) known = true;
    }
    if (!known) strangers.push_back(line);
  }
  EXPECT_THAT(strangers, IsEmpty());
}

TEST(PluginFile, HasNoSymbolsThatPinIt) {
  EXPECT_THAT(linesOf("nm -D " QX_PLUGIN " | grep ' u '"), IsEmpty());
}

TEST(LoadedPlugin, RegistersWithTheProcesssKitAndUnloads) {
  const auto& kit = QXL::QXLFunctionality<QXL::QXLHaulControlFactory>::m_kit;
  for (int round = 0; round < 2; ++round) {
    {
      Plugin plugin;
      EXPECT_TRUE(isLoaded());
      EXPECT_TRUE(kit.controls_.empty());
      EXPECT_EQ(plugin.entry("initLibrary"), 0);
      EXPECT_EQ(kit.controls_.size(), 1u);
      EXPECT_TRUE(kit.getMigrateP2VControl(nullptr, ""));
      EXPECT_TRUE(kit.getMigrateP2VSerializerLocal(nullptr, ""));
      EXPECT_TRUE(kit.getMigrateP2VDeserializerLocal(nullptr, ""));
      EXPECT_EQ(plugin.entry("finiLibrary"), 0);
      EXPECT_TRUE(kit.controls_.empty());
    }
    EXPECT_FALSE(isLoaded());
  }
}

TEST(LoadedPlugin, HasItsOperatorFactoriesFromTheStart) {
  Plugin plugin;
  auto& serialize = plugin.factory("factoryQXLinMigrateP2VSerializeOperator");
  auto& deserialize = plugin.factory("factoryQXLinMigrateP2VDeserializeOperator");
  EXPECT_EQ(serialize->getName(), "qxlinmigrate_p2v_serializer");
  EXPECT_EQ(deserialize->getName(), "qxlinmigrate_p2v_deserializer");
  EXPECT_EQ(serialize->newOperator()->getID(), "qxlinmigrate_p2v_serializer");
}
