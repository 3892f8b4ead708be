// The profile document: reading a document into a properties tree and
// writing a tree as a document.
//
// Ownership: the reader borrows the text for the length of the call (it is
// not copied and need not end in a zero byte); everything it creates belongs
// to the tree. The writer only appends to the caller's string.
//
// Thread-safety: none of its own. The reader must run alone on its tree; the
// writer only reads the tree, so the caller's shared lock is enough.
#pragma once

#include <cstddef>
#include <string>

#include "module/result_codes.h"
#include "tree/tree.h"

namespace propmap {

// Keys nested deeper than this cannot be read back, so none is written.
inline constexpr size_t kMaxProfileDepth = 2048;

// Reads `text` into the tree's root key. 0 on success; on failure the keys
// and values read before the failure stay in the tree (no rollback).
// Fails with ErrNotImplemented without a root key, ErrBadDocument for
// malformed text, ErrBadParameter for a document that has no element or
// whose elements are not a profile's, ErrIo for keys deeper than
// kMaxProfileDepth (a name of several parts counts each part),
// ErrNoMemory, or whatever a value's set-from-text returns.
[[nodiscard]] tERROR ReadProfileDocument(PropertiesTree* tree, const char* text, size_t length);

// Appends the whole tree as a profile document to `output`. On failure the
// output holds a partial document, which the caller discards. Fails with
// ErrIo for a tree with keys deeper than kMaxProfileDepth, which the reader
// would refuse, or with the code of a value whose text cannot be formed.
[[nodiscard]] tERROR WriteProfileDocument(const PropertiesTree* tree, std::string* output);

}  // namespace propmap
