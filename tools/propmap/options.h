// The options every command shares.
//
// Thread-safety: plain values.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace propmap_tool {

struct CommonOptions {
  std::string profile;                  // --profile, PROPMAP_PROFILE, ./profiles.xml
  std::optional<std::string> root;      // --root: the root point of every store opened
  bool read_only = false;               // --read-only
  uint8_t backup_mode = 0;              // --backup-mode 0|1|2
  bool json = false;                    // --json output of reading commands
  std::optional<uint32_t> trace_level;  // --trace[=LEVEL]: echo module lines up to LEVEL
  std::string module;                   // --module; empty: the installed module, else the built one
  bool colour = false;                  // --color always, or auto on a terminal without NO_COLOR or TERM=dumb
};

}  // namespace propmap_tool
