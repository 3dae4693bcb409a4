#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <new>

#include "frame/init.h"
#include "framework/functionality.h"

namespace {

// How many allocations still succeed; negative: all.
long left = -1;

// How many allocations have not been given back.
long held = 0;

}  // namespace

// Not inlined: seen side by side, malloc and delete look like a mistake to the
// compiler.
[[gnu::noinline]] void* operator new(std::size_t size) {
  if (left == 0) throw std::bad_alloc();
  if (left > 0) --left;
  if (void* memory = std::malloc(size)) {
    ++held;
    return memory;
  }
  throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
  if (memory) --held;
  std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
  operator delete(memory);
}

TEST(InitLibraryOutOfMemory, LeavesWhatWasRegisteredInOrder) {
  const auto& kit = QXL::QXLFunctionality<QXL::QXLHaulControlFactory>::m_kit;
  // What is registered when the allocations run out one later each time.
  std::vector<std::string> seen;
  bool done = false;
  for (long allowed = 0; !done; ++allowed) {
    bool threw = false;
    const long before = held;
    left = allowed;
    try {
      initLibrary();
      done = true;
    } catch (const std::bad_alloc&) {
      threw = true;
    }
    left = -1;
    EXPECT_NE(threw, done);
    const bool known[] = {kit.controls_.count("") != 0, kit.localDeserializers_.count("") != 0,
                          kit.localSerializers_.count("") != 0,
                          kit.agentDeserializers_.count("") != 0,
                          kit.agentSerializers_.count("") != 0};
    finiLibrary();
    EXPECT_EQ(held, before) << "the factory that was being registered is left, after " << allowed;
    std::string registered;
    if (known[0]) registered += "controller ";
    if (known[1]) registered += "local-deserializer ";
    if (known[2]) registered += "local-serializer ";
    if (known[3]) registered += "agent-deserializer ";
    if (known[4]) registered += "agent-serializer ";
    if (seen.empty() || seen.back() != registered) seen.push_back(registered);
  }
  EXPECT_THAT(seen, testing::ElementsAre(
                        "", "controller ", "controller local-deserializer ",
                        "controller local-deserializer local-serializer ",
                        "controller local-deserializer local-serializer agent-deserializer ",
                        "controller local-deserializer local-serializer agent-deserializer "
                        "agent-serializer "));
}

TEST(InitLibraryTwice, ReleasesTheFactoriesOfTheSecondCall) {
  const long before = held;
  EXPECT_EQ(initLibrary(), 0);
  const long registered = held;
  EXPECT_GT(registered, before);
  EXPECT_EQ(initLibrary(), 0);
  EXPECT_EQ(held, registered);
  EXPECT_EQ(finiLibrary(), 0);
  EXPECT_EQ(held, before);
}
