// How the tool reports trouble: a result code and one sentence naming the
// file and the key. Commands throw ToolError; main() prints it as
// "propmap: ErrNotFound(0x8000D002): <sentence>" and exits with kExitTrouble.
//
// Thread-safety: plain values.
#pragma once

#include <cstdio>
#include <stdexcept>
#include <string>

#include "abi.h"

namespace propmap_tool {

// Exit codes, also listed in --help and the man page.
inline constexpr int kExitOk = 0;
inline constexpr int kExitDifferent = 1;  // diff found differences; a question answered no; check warned
inline constexpr int kExitTrouble = 2;    // any failure; nothing was saved

class ToolError : public std::runtime_error {
 public:
  ToolError(prhost::tERROR code, const std::string& sentence) : std::runtime_error(sentence), code_(code) {}
  prhost::tERROR code() const { return code_; }

 private:
  prhost::tERROR code_;
};

// A question that was answered no: main() prints the sentence and exits with
// kExitDifferent; nothing was saved.
class Declined : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A command line that names no command: main() prints the sentence alone
// (there is no result code to show) and exits with kExitTrouble.
class CommandLineError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Throws ToolError(code, sentence) when the code is a failure.
inline void Check(prhost::tERROR code, const std::string& sentence) {
  if (prhost::Failed(code)) throw ToolError(code, sentence);
}

// -q makes it -1 (no notices or warnings), -v 1 (also what was saved).
inline int verbosity = 0;

// "propmap: <sentence>" on stderr when the verbosity reaches `level` (0:
// notices and warnings, 1: details).
inline void Say(int level, const std::string& sentence) {
  if (verbosity >= level) std::fprintf(stderr, "propmap: %s\n", sentence.c_str());
}

}  // namespace propmap_tool
