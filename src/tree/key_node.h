// Records of the properties tree: keys, value entries and their indexes.
//
// Ownership: a key owns its sub-keys and value entries; an entry owns its value
// object and name. Every record and name buffer comes from the host heap of
// the key (obj_services.h); only the index containers use the free store.
// Handles given to clients are KeyNode addresses, so nodes never move: index
// insertion never invalidates the nodes it points at, and keys are unlinked,
// never relocated.
//
// Order: sub-keys and values are kept in insertion order in circular intrusive
// lists; the hash indexes only find names and their order is never visible.
//
// Thread-safety: none inside the tree; callers hold the store lock (shared
// for reads, exclusive for changes). The one exception is EnumCursor, which
// readers update under the shared lock and which therefore guards itself.
#pragma once

#include <atomic>
#include <boost/unordered/unordered_flat_map.hpp>
#include <boost/unordered/unordered_flat_set.hpp>
#include <cstddef>
#include <cstdint>

#include "module/obj_services.h"
#include "tree/names.h"
#include "values/value.h"

namespace propmap {

struct KeyNode;
struct ValueEntry;

// Links of a circular intrusive list. A list head is a bare ListLink whose
// next/prev are the first/last member; an empty list points at itself.
// A member's links are both null while it is not linked.
struct ListLink {
  ListLink* next = nullptr;
  ListLink* prev = nullptr;
};

inline void InitListHead(ListLink* head) { head->next = head->prev = head; }
inline bool ListEmpty(const ListLink* head) { return head->next == head; }
inline bool IsLinked(const ListLink* link) { return link->next != nullptr && link->next != link; }

inline void ListAppend(ListLink* head, ListLink* link) {
  link->prev = head->prev;
  link->next = head;
  head->prev->next = link;
  head->prev = link;
}

inline void ListUnlink(ListLink* link) {
  link->prev->next = link->next;
  link->next->prev = link->prev;
  link->next = link->prev = nullptr;
}

struct NameKeyHash {
  size_t operator()(const NameKey& k) const { return k.hash; }
};
struct NameKeyEqual {
  bool operator()(const NameKey& a, const NameKey& b) const {
    return NamesEqual(a.name, a.length, b.name, b.length);
  }
};

// Hash and equality of the value index: entries hash by their stored hash and
// can be probed by a NameKey without building an entry.
struct ValueEntryHash {
  using is_transparent = void;
  size_t operator()(const ValueEntry* e) const;
  size_t operator()(const NameKey& k) const { return k.hash; }
};
struct ValueEntryEqual {
  using is_transparent = void;
  bool operator()(const ValueEntry* a, const ValueEntry* b) const;
  bool operator()(const NameKey& a, const ValueEntry* b) const;
  bool operator()(const ValueEntry* a, const NameKey& b) const { return (*this)(b, a); }
};

// Open addressing: a probe reads one group of slot fingerprints and then the
// matching element, where node-based buckets chase a pointer per element. An
// empty index allocates nothing, so leaf keys carry only its header.
using KeyIndex = boost::unordered_flat_map<NameKey, KeyNode*, NameKeyHash, NameKeyEqual>;
using ValueIndex = boost::unordered_flat_set<ValueEntry*, ValueEntryHash, ValueEntryEqual>;

// The sub-key last reached by index, so that enumerating 0, 1, 2, ... costs one
// step per call. Readers share it under the shared store lock: whoever holds
// `busy` may read or write the other fields; a reader that finds it busy simply
// walks from the first sub-key and leaves the cursor alone. Writers of the
// sub-key list (exclusive lock) clear `valid` directly.
struct EnumCursor {
  KeyNode* node = nullptr;
  uint32_t index = 0;
  uint8_t valid = 0;
  std::atomic<uint8_t> busy{0};

  bool TryAcquire() { return busy.exchange(1, std::memory_order_acquire) == 0; }
  void Release() { busy.store(0, std::memory_order_release); }
};

struct ValueEntry : ListLink {
  char* name = nullptr;
  size_t name_length = 0;
  size_t hash = 0;
  iValue* value = nullptr;
};

struct KeyNode : ListLink {
  iObj* host = nullptr;
  char* name = nullptr;  // NUL-terminated, in the case it was given
  size_t name_length = 0;
  size_t key_count = 0;
  ListLink keys;  // sub-keys, in insertion order
  KeyIndex key_index;
  size_t value_count = 0;
  ListLink values;  // value entries, in insertion order
  ValueIndex value_index;
  EnumCursor cursor;

  static KeyNode* From(ListLink* link) { return static_cast<KeyNode*>(link); }
  KeyNode* FirstChild() { return ListEmpty(&keys) ? nullptr : From(keys.next); }
  // The sibling after `child` in this key's list, or null at the end.
  KeyNode* NextChild(KeyNode* child) { return child->next == &keys ? nullptr : From(child->next); }
};

inline ValueEntry* EntryFrom(ListLink* link) { return static_cast<ValueEntry*>(link); }

inline size_t ValueEntryHash::operator()(const ValueEntry* e) const { return e->hash; }
inline bool ValueEntryEqual::operator()(const ValueEntry* a, const ValueEntry* b) const {
  return NamesEqual(a->name, a->name_length, b->name, b->name_length);
}
inline bool ValueEntryEqual::operator()(const NameKey& a, const ValueEntry* b) const {
  return NamesEqual(a.name, a.length, b->name, b->name_length);
}

}  // namespace propmap
