#include "snapshot.h"

#include "tool_error.h"

namespace propmap_tool {

KeySnapshot ReadSubtree(const prhost::Registry& registry, prhost::hKey key, const std::string& where,
                        uint32_t depth) {
  KeySnapshot out;
  uint32_t count = 0;
  Check(registry.GetValueCount(&count, key), where + ": cannot count values");
  out.values.reserve(count);
  for (uint32_t i = 0; i < count; ++i) out.values.push_back(ReadValue(registry, key, i, where));
  if (depth == 0) return out;
  Check(registry.GetKeyCount(&count, key), where + ": cannot count sub-keys");
  out.keys.reserve(count);
  const prhost::Client client(registry);
  for (uint32_t i = 0; i < count; ++i) {
    prhost::hKey child = prhost::kInvalidKey;
    Check(registry.OpenKeyByIndex(&child, key, i), where + ": cannot open sub-key " + std::to_string(i));
    KeySnapshot sub = ReadSubtree(registry, child, where, depth - 1);
    prhost::Result<std::string> name = client.KeyName(child);
    Check(name.code, where + ": cannot read the name of sub-key " + std::to_string(i));
    sub.name = std::move(name.value);
    out.keys.push_back(std::move(sub));
  }
  return out;
}

KeySnapshot ReadProfile(const Session& session, const std::string& path, const std::string& key_path) {
  std::unique_ptr<Profile> profile = session.Open(path, IfMissing::kFail, true, false);
  return ReadSubtree(profile->registry(), profile->Key(key_path), path);
}

prhost::tERROR WriteSubtree(const prhost::Registry& registry, prhost::hKey key, const KeySnapshot& snapshot) {
  for (const TypedValue& v : snapshot.values) {
    prhost::tERROR err = PutValue(registry, key, v.name, v.type, v.data);
    if (prhost::Failed(err)) return err;
  }
  for (const KeySnapshot& sub : snapshot.keys) {
    prhost::hKey child = prhost::kInvalidKey;
    prhost::tERROR err = registry.OpenKey(&child, key, sub.name.c_str(), 1);
    if (prhost::Failed(err)) return err;
    err = WriteSubtree(registry, child, sub);
    if (prhost::Failed(err)) return err;
  }
  return prhost::kOk;
}

}  // namespace propmap_tool
