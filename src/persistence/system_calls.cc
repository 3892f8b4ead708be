#include "persistence/system_calls.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

namespace propmap {
namespace {

// open and openat are variadic in the C library; these give them the
// table's fixed shape.
int Open(const char* path, int flags, mode_t mode) { return ::open(path, flags, mode); }
int Openat(int dir, const char* path, int flags, mode_t mode) { return ::openat(dir, path, flags, mode); }

constexpr SystemCallTable kReal = {
    .open = &Open,
    .openat = &Openat,
    .close = &::close,
    .read = &::read,
    .write = &::write,
    .fsync = &::fsync,
    .fstat = &::fstat,
    .fstatat = &::fstatat,
    .unlinkat = &::unlinkat,
    .renameat = &::renameat,
    .mkdir = &::mkdir,
    .fchmodat = &::fchmodat,
    .fchmod = &::fchmod,
    .ftruncate = &::ftruncate,
    .flock = &::flock,
    .linkat = &::linkat,
    .readlinkat = &::readlinkat,
};

const SystemCallTable* g_table = &kReal;

}  // namespace

const SystemCallTable& SystemCalls() { return *g_table; }
const SystemCallTable& RealSystemCalls() { return kReal; }

const SystemCallTable* SetSystemCalls(const SystemCallTable* table) {
  const SystemCallTable* previous = g_table;
  g_table = table != nullptr ? table : &kReal;
  return previous;
}

}  // namespace propmap
