// The properties tree: operations on keys, values and whole trees.
//
// Every operation here works on records described in key_node.h and
// allocates through the key's host heap. Failures leave the tree exactly as it
// was (except where noted) and release whatever they allocated. Operations that
// return a node return null on every failure; the others return a tERROR.
//
// Thread-safety: no locking here; the store's lock covers every call
// (GetKeyByIndex is safe under the shared lock thanks to EnumCursor).
#pragma once

#include <cstddef>
#include <cstdint>

#include "tree/key_node.h"

namespace propmap {

// Holder of one tree. host null means "not initialised".
struct PropertiesTree {
  iObj* host;
  KeyNode* root;
  KeyNode* current;
};

// ---- Tree level ----------------------------------------------------------

void ResetTree(PropertiesTree* tree);
// ErrNotImplemented if already initialised; ErrNoMemory if the root cannot be made.
[[nodiscard]] tERROR InitTree(PropertiesTree* tree, iObj* host);
// Destroys every key and the root itself; fields are left as they are.
void DestroyTree(PropertiesTree* tree);
inline KeyNode* GetCurrentKey(const PropertiesTree* tree) { return tree->current; }
// Null without a root; the handle itself when not null; else the current key.
[[nodiscard]] KeyNode* ResolveKey(const PropertiesTree* tree, KeyNode* handle);
// Null makes the root current; a key not found below the root: ErrNotFound.
[[nodiscard]] tERROR SetCurrentKey(PropertiesTree* tree, KeyNode* key);
// "" makes the root current; null path: ErrBadParameter; missing: ErrNotFound.
[[nodiscard]] tERROR SetCurrentKeyByPath(PropertiesTree* tree, const char* path);
void ClearCurrentKey(PropertiesTree* tree);
// The sibling after `key`, with the parent searched below the current key.
[[nodiscard]] KeyNode* GetNextKey(const PropertiesTree* tree, KeyNode* key);

// Path of `key` below `base`, names joined by `separator`; the base's own
// name comes first unless empty. *position is the path length (without NUL)
// after a size query (null buffer) or a write. Writing needs *position <= size
// and a buffer of *position + 1 bytes (the NUL follows the last name).
// Fails with ErrNotImplemented (no root), ErrBadParameter (null key),
// ErrNotApplicable (key not below base; *position unchanged),
// ErrBufferTooSmall (*position holds the length needed) and ErrNoMemory (a
// path too long for a 32-bit size, or the search's own bookkeeping could not
// grow).
[[nodiscard]] tERROR GetKeyPath(const PropertiesTree* tree, KeyNode* base, KeyNode* key, char* buffer,
                                uint32_t size, uint32_t* position, char separator);

// Null for a null target; `from` itself for from == target; else the parent
// of target found by a depth-first, pre-order search of from's subtree; null
// when target is not there (or the search ran out of memory).
[[nodiscard]] KeyNode* FindParent(KeyNode* from, KeyNode* target);

// ---- Key level -----------------------------------------------------------

// Constructs a key in storage from `host`; a name that cannot be copied
// leaves the key with an empty name (construction never fails).
void ConstructKey(KeyNode* storage, iObj* host, const char* name, size_t length);
// ClearKey, then release the name and index storage. Never fails.
void DestroyKey(KeyNode* key);
// Removes every value and sub-key, keeping the key. Iterative and
// allocation-free, so it cannot fail.
void ClearKey(KeyNode* key);

inline size_t GetKeyCount(const KeyNode* key) { return key->key_count; }
inline size_t GetValueCount(const KeyNode* key) { return key->value_count; }
[[nodiscard]] KeyNode* GetKeyByIndex(KeyNode* key, uint32_t index);
[[nodiscard]] ValueEntry* GetValueEntryByIndex(KeyNode* key, uint32_t index);
[[nodiscard]] iValue* GetValueByIndex(KeyNode* key, uint32_t index);
[[nodiscard]] const char* GetValueNameByIndex(KeyNode* key, uint32_t index);

// Replaces `*name`/`*length` with a host-heap copy of `source`. ErrBadParameter
// for a null source, ErrNoMemory without allocator; the old name stays then.
[[nodiscard]] tERROR CopyName(iObj* host, char** name, size_t* length, const char* source, size_t source_length);

// Appends a value without a duplicate check. On failure the key is unchanged.
[[nodiscard]] tERROR AddValue(KeyNode* key, const char* name, tag_TYPE_ID type, const void* data, uint32_t size);
[[nodiscard]] tERROR AddValueFromText(KeyNode* key, const char* name, tag_TYPE_ID type, const char* text);
// The same with a counted name, which need not end in a zero byte.
[[nodiscard]] tERROR AddValueFromText(KeyNode* key, const char* name, size_t name_length, tag_TYPE_ID type,
                                      const char* text);
// ErrBadParameter for a null name; ErrAlreadyExists when FindValue finds it.
[[nodiscard]] tERROR AddUniqueValue(KeyNode* key, const char* name, tag_TYPE_ID type, const void* data,
                                    uint32_t size);
// Only index == value count is accepted; the value is named "noname<index>".
[[nodiscard]] tERROR AddValueAt(KeyNode* key, uint32_t index, tag_TYPE_ID type, const void* data, uint32_t size);

[[nodiscard]] tERROR RemoveValue(KeyNode* key, const char* name);
[[nodiscard]] tERROR RemoveValueByIndex(KeyNode* key, uint32_t index);
// The path must not be empty (it would name the key itself).
[[nodiscard]] tERROR RemoveKeyByPath(KeyNode* key, const char* path);
[[nodiscard]] tERROR RemoveKeyByIndex(KeyNode* key, uint32_t index);
// Unlinks and destroys one sub-key. The index element is matched by name.
void RemoveKey(KeyNode* parent, KeyNode* child, bool skip_index);

// ---- Names and paths -----------------------------------------------------

// Components split at the first '/' anywhere, else at the first backslash.
// A separator at the start of what remains ends the walk at the current key.
[[nodiscard]] KeyNode* FindKey(KeyNode* start, const char* path, KeyNode** parent = nullptr);
// Counted path; components end at the first '/' or backslash, whichever first.
[[nodiscard]] KeyNode* FindKeyView(KeyNode* start, const char* path, size_t length, KeyNode** parent = nullptr);
// Walks the path creating what is missing. *created (when given) is set to 1
// only for a key made directly below `start`.
[[nodiscard]] KeyNode* OpenOrCreateKey(KeyNode* start, const char* path, bool always_create,
                                       uint32_t* created = nullptr);
// How many keys deep OpenOrCreateKey(start, path, ...) lands below start.
[[nodiscard]] size_t PathDepth(const char* path);
// The value of that name, following the "![CDATA[" redirect.
[[nodiscard]] iValue* FindValue(KeyNode* key, const char* name);
// The entry of that name in the index (no redirect).
[[nodiscard]] ValueEntry* FindValueEntry(KeyNode* key, const char* name, size_t length);

}  // namespace propmap
