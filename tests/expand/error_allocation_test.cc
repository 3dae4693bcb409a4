// An error must be made and read also when memory has run out, so nothing of that
// may ask for any.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>

#include "expand/error.h"

namespace {

// How many pieces of memory were asked for.
long asked = 0;

}  // namespace

// The sanitizers have an allocator of their own in the C library's place; there only
// what C++ asks for is counted.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
extern "C" {
void* __libc_malloc(std::size_t size);
void* malloc(std::size_t size) {
  ++asked;
  return __libc_malloc(size);
}
}
#else
[[gnu::noinline]] void* operator new(std::size_t size) {
  ++asked;
  if (void* memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
#endif

TEST(ErrorWithoutMemory, IsMadeCopiedAndReadWithoutAskingForAny) {
  char message[5000];
  std::memset(message, 'x', sizeof message);
  message[sizeof message - 1] = '\0';
  const long before = asked;
  // A compiler that optimises would leave both out otherwise.
  int* volatile made = new int;
  delete made;
  ASSERT_EQ(asked, before + 1) << "allocations are not counted";

  const Expand::Error error(Expand::Error::CALLER_GENERIC, "%s %d %u %c", message, -1, 2u, 'c');
  const Expand::Error copy(error);
  const char* const texts[] = {error.what(), copy.what(), error.what()};
  const long after = asked;
  EXPECT_EQ(after, before + 1);
  EXPECT_EQ(std::strlen(texts[0]), 4095u);
  EXPECT_STREQ(texts[1], texts[2]);
}
