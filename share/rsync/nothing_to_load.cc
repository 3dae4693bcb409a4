// libcrypto can load modules and ask for names of machines, which nobody here has it do. In
// a static program the C library would load libraries of this machine for either, which are
// of any age: what asks for that fails at once instead, and the linker has no reason to warn.
#include <dlfcn.h>
#include <netdb.h>

extern "C" {

// The linker's --wrap: the C library keeps its own for itself.
void* loadNothing(const char* file, int mode) asm("__wrap_dlopen");
void* loadNothing(const char* /*file*/, int /*mode*/) { return nullptr; }

int getaddrinfo(const char* /*name*/, const char* /*service*/, const addrinfo* /*hints*/,
                addrinfo** /*found*/) {
  return EAI_FAIL;
}

void freeaddrinfo(addrinfo* /*found*/) noexcept {}

int getnameinfo(const sockaddr* /*address*/, socklen_t /*size*/, char* /*host*/,
                socklen_t /*hostSize*/, char* /*service*/, socklen_t /*serviceSize*/,
                int /*flags*/) {
  return EAI_FAIL;
}

hostent* gethostbyname(const char* /*name*/) { return nullptr; }

}  // extern "C"
