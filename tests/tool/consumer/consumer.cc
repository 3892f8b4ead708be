// Loads the installed module through the installed reference host.
#include <cstdio>

#include <propmap/host/module_loader.h>

int main() {
  auto module = prhost::Module::Load();
  std::printf("registered %u methods\n", module->registration().method_count);
  return 0;
}
