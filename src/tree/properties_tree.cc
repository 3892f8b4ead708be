// Whole-tree operations: the root, the current key, parent search and paths.
#include <cstring>
#include <new>
#include <vector>

#include "tree/tree.h"

namespace propmap {
namespace {

// Depth-first, pre-order search of from's subtree for target. On success
// `chain` runs from `from` down to `target` (both included). Iterative, so
// deep chains of keys cannot exhaust the call stack.
bool FindChainUnguarded(KeyNode* from, KeyNode* target, std::vector<KeyNode*>* chain) {
  chain->clear();
  chain->push_back(from);
  if (from == target) return true;
  KeyNode* child = from->FirstChild();
  for (;;) {
    if (child == nullptr) {
      if (chain->size() == 1) return false;
      KeyNode* done = chain->back();
      chain->pop_back();
      child = chain->back()->NextChild(done);
      continue;
    }
    chain->push_back(child);
    if (child == target) return true;
    child = child->FirstChild();
  }
}

// As above; a chain that cannot grow (free store exhausted) ends the search
// with ErrNoMemory instead of an exception reaching the interface.
tERROR FindChain(KeyNode* from, KeyNode* target, std::vector<KeyNode*>* chain) {
  try {
    return FindChainUnguarded(from, target, chain) ? ResultOk : ErrNotFound;
  } catch (const std::bad_alloc&) {
    return ErrNoMemory;
  }
}

}  // namespace

void ResetTree(PropertiesTree* tree) {
  tree->host = nullptr;
  tree->root = nullptr;
  tree->current = nullptr;
}

tERROR InitTree(PropertiesTree* tree, iObj* host) {
  if (tree->host != nullptr) return ErrNotImplemented;
  KeyNode* root = nullptr;
  if (Failed(HeapAllocFor(host, &root))) return ErrNoMemory;
  ConstructKey(root, host, "", 0);
  tree->host = host;
  tree->root = root;
  tree->current = root;
  return ResultOk;
}

void DestroyTree(PropertiesTree* tree) {
  if (tree->host == nullptr || tree->root == nullptr) return;
  DestroyKey(tree->root);
  HeapFree(tree->host, tree->root);
}

KeyNode* ResolveKey(const PropertiesTree* tree, KeyNode* handle) {
  if (tree->root == nullptr) return nullptr;
  return handle != nullptr ? handle : tree->current;
}

tERROR SetCurrentKey(PropertiesTree* tree, KeyNode* key) {
  if (tree->root == nullptr) return ErrNotImplemented;
  if (key == nullptr) {
    tree->current = tree->root;
    return ResultOk;
  }
  if (FindParent(tree->root, key) == nullptr) return ErrNotFound;
  tree->current = key;
  return ResultOk;
}

tERROR SetCurrentKeyByPath(PropertiesTree* tree, const char* path) {
  if (tree->root == nullptr) return ErrNotImplemented;
  if (path == nullptr) return ErrBadParameter;
  KeyNode* key = FindKey(tree->root, path);
  if (key == nullptr) return ErrNotFound;
  tree->current = key;
  return ResultOk;
}

void ClearCurrentKey(PropertiesTree* tree) { ClearKey(tree->current); }

KeyNode* FindParent(KeyNode* from, KeyNode* target) {
  if (target == nullptr) return nullptr;
  std::vector<KeyNode*> chain;
  if (FindChain(from, target, &chain) != ResultOk) return nullptr;
  return chain.size() == 1 ? from : chain[chain.size() - 2];
}

KeyNode* GetNextKey(const PropertiesTree* tree, KeyNode* key) {
  if (tree->root == nullptr || key == nullptr) return nullptr;
  KeyNode* parent = FindParent(tree->current, key);
  if (parent == nullptr) return nullptr;
  for (KeyNode* child = parent->FirstChild(); child != nullptr; child = parent->NextChild(child)) {
    if (child == key) return parent->NextChild(child);
  }
  return nullptr;  // key is the search start itself
}

tERROR GetKeyPath(const PropertiesTree* tree, KeyNode* base, KeyNode* key, char* buffer, uint32_t size,
                  uint32_t* position, char separator) {
  if (tree->root == nullptr) return ErrNotImplemented;
  if (key == nullptr) return ErrBadParameter;
  std::vector<KeyNode*> chain;
  const tERROR found = FindChain(base, key, &chain);
  if (found != ResultOk) return found == ErrNotFound ? ErrNotApplicable : found;

  // Each name starts where the previous ended, after a separator unless it
  // starts at 0 (so an unnamed base adds nothing, not even a separator).
  // Positions are counted in 64 bits: a path whose length and NUL a 32-bit
  // size cannot carry is refused before anything is written.
  std::vector<uint64_t> starts;
  try {
    starts.reserve(chain.size());
  } catch (const std::bad_alloc&) {
    return ErrNoMemory;
  }
  uint64_t end = *position;
  for (KeyNode* node : chain) {
    const uint64_t start = end;
    starts.push_back(start);
    end = start + node->name_length + (start != 0 ? 1 : 0);
  }
  if (end >= UINT32_MAX) return ErrNoMemory;
  *position = static_cast<uint32_t>(end);
  if (buffer == nullptr) return ResultOk;
  if (end > size) return ErrBufferTooSmall;
  for (size_t i = 0; i < chain.size(); ++i) {
    uint64_t at = starts[i];
    if (at != 0) buffer[at++] = separator;
    if (chain[i]->name_length != 0) std::memcpy(buffer + at, chain[i]->name, chain[i]->name_length);
  }
  buffer[end] = '\0';
  return ResultOk;
}

}  // namespace propmap
