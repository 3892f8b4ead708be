// generate_profile MEGABYTES FILE: a profile of about that size from the
// benchmarks' generator, for measuring the tool on big profiles.
#include <cstdio>
#include <cstdlib>

#include "profile_generator.h"

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: generate_profile MEGABYTES FILE\n");
    return 2;
  }
  const std::string text = propmap::bench::ProfileGenerator(1).Generate(std::strtoull(argv[1], nullptr, 10) << 20);
  std::FILE* out = std::fopen(argv[2], "wb");
  if (out == nullptr || std::fwrite(text.data(), 1, text.size(), out) != text.size() || std::fclose(out) != 0) {
    std::perror(argv[2]);
    return 1;
  }
  return 0;
}
