#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "persistence/file_system.h"
#include "persistence/system_calls.h"

namespace propmap {
namespace {

constexpr size_t kPiece = kShortPathMax + 1;  // bytes examined per step of the walk

}  // namespace

PathHandle::~PathHandle() { Release(); }

void PathHandle::Release() {
  if (dir_ >= 0) (void)SystemCalls().close(dir_);
  dir_ = AT_FDCWD;
  std::free(owned_);
  owned_ = nullptr;
  name_ = "";
}

tERROR PathHandle::Resolve(const char* path) {
  Release();
  const size_t length = std::strlen(path);
  if (length <= kShortPathMax) {
    name_ = path;
    return ResultOk;
  }
  const char* rest = path;
  size_t remaining = length;
  char piece[kPiece];
  // Past the start a '/' only separates: a run of them (a doubled separator
  // at a cut) must never become an absolute name below the walked directory.
  auto skip_separators = [&] {
    while (remaining > 0 && *rest == '/') {
      ++rest;
      --remaining;
    }
  };
  while (remaining >= kPiece) {
    const void* slash = memrchr(rest, '/', kPiece);
    if (slash == nullptr) return ErrFsNoEntry;
    const size_t size = static_cast<size_t>(static_cast<const char*>(slash) - rest);
    // Only the path's own first byte can be a leading '/': the root itself.
    if (size == 0) {
      piece[0] = '/';
      piece[1] = '\0';
    } else {
      std::memcpy(piece, rest, size);
      piece[size] = '\0';
    }
    int fd;
    do {
      fd = SystemCalls().openat(dir_, piece, O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) return ResultFromErrno(static_cast<uint32_t>(errno));
    if (dir_ >= 0) (void)SystemCalls().close(dir_);
    dir_ = fd;
    rest += size + 1;
    remaining -= size + 1;
    skip_separators();
  }
  owned_ = static_cast<char*>(std::malloc(remaining + 1));
  if (owned_ == nullptr) return ErrNoMemory;
  std::memcpy(owned_, rest, remaining + 1);
  name_ = owned_;
  return ResultOk;
}

}  // namespace propmap
