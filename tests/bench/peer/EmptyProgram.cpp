// The floor of a station's start: nothing but the loading of the same libraries.

#include <dlfcn.h>

#include <cstdio>

int main() {
  if (!::dlopen(KV_PLUGIN, RTLD_NOW | RTLD_LOCAL)) std::fprintf(stderr, "%s\n", ::dlerror());
  std::puts("ready");
}
