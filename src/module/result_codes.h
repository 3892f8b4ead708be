// Result codes: the one catalogue of every tERROR value the module produces.
//
// A code is a failure exactly when it is negative; 0 is plain success and a
// positive code is a success that carries information. Every other file names
// codes through these constants, never through literals.
//
// Thread-safety: constants and pure functions only.
#pragma once

#include <cstdint>

using tERROR = int32_t;

namespace propmap {

constexpr tERROR Code(uint32_t bits) { return static_cast<tERROR>(bits); }

// Success codes.
inline constexpr tERROR ResultOk = 0;                   // success
inline constexpr tERROR ResultDone = 1;                 // file layer: done, reported upward as 3
inline constexpr tERROR ResultMoved = 3;                // final move of a save
inline constexpr tERROR ValueUnchanged = 0x47;          // a set found the content equal to the stored one
inline constexpr tERROR KeyCreated = 0xD001;            // OpenKey created the key directly below its start key

// Failure codes.
inline constexpr tERROR ErrUnexpected = Code(0x80000040);      // no host / trace service; constructor threw
inline constexpr tERROR ErrNoMemory = Code(0x80000041);        // heap missing or exhausted, index insert failed
inline constexpr tERROR ErrBufferTooSmall = Code(0x80000044);  // caller's buffer too small; size still reported
inline constexpr tERROR ErrAccessDenied = Code(0x80000045);    // EPERM, EACCES
inline constexpr tERROR ErrBadParameter = Code(0x80000046);    // null/invalid argument, unparsable text
inline constexpr tERROR ErrShortTransfer = Code(0x8000004A);   // fewer bytes moved than the profile holds
inline constexpr tERROR ErrNotApplicable = Code(0x8000004B);   // no such operation for the type; key not below base
inline constexpr tERROR ErrNoEntry = Code(0x8000004C);         // file layer: missing file
inline constexpr tERROR ErrBusy = Code(0x8000004F);            // EBUSY, ETXTBSY
inline constexpr tERROR ErrIo = Code(0x80000059);              // EIO; key elements nested too deep
inline constexpr tERROR ErrNameTooLong = Code(0x8000005C);     // ENAMETOOLONG
inline constexpr tERROR ErrNoSpace = Code(0x80000062);         // ENOSPC
inline constexpr tERROR ErrLinkLoop = Code(0x8000006A);        // ELOOP
inline constexpr tERROR ErrNotReady = Code(0x8000006B);        // file layer; surfaces as ErrNotImplemented
inline constexpr tERROR ErrFileTooBig = Code(0x80000078);      // EFBIG
inline constexpr tERROR ErrBadDocument = Code(0x800000C0);     // malformed profile text
inline constexpr tERROR ErrReadOnly = Code(0x800000C1);        // modifying operation on a read-only store
inline constexpr tERROR ErrNotImplemented = Code(0x800000C2);  // service absent, object not initialised
inline constexpr tERROR ErrFileNotFound = Code(0x800000C5);    // profile file missing
inline constexpr tERROR ErrAlreadyExists = Code(0x800000D1);   // name or index already present; file exists
inline constexpr tERROR ErrUnknownException = Code(0x80000151);  // exception without result information
inline constexpr tERROR ErrNotFound = Code(0x8000D002);        // key or value not found
inline constexpr tERROR ErrInvalidHandle = Code(0x8000D004);   // handle does not resolve; no next sibling

// File-layer codes produced by the errno mapping.
inline constexpr tERROR ErrFsErrnoTooLarge = Code(0x80010100);  // errno above 65535
inline constexpr tERROR ErrFsBadDescriptor = Code(0x80010101);  // EBADF
inline constexpr tERROR ErrFsNoEntry = Code(0x80010102);        // ENOENT
inline constexpr tERROR ErrFsNotDirectory = Code(0x80010103);   // ENOTDIR; rename of a missing source
inline constexpr tERROR ErrFsExists = Code(0x80010105);         // EEXIST; rename onto an existing target
inline constexpr tERROR ErrFsNoExec = Code(0x80010117);         // ENOEXEC
inline constexpr uint32_t kSystemErrorBase = 0x80060000;        // OR'ed with any other errno

[[nodiscard]] constexpr bool Failed(tERROR code) { return code < 0; }
[[nodiscard]] constexpr bool Succeeded(tERROR code) { return code >= 0; }

// Maps a system error number to a result code (0 for 0). EINTR is not special
// here: callers retry it before they ever map it.
[[nodiscard]] tERROR ResultFromErrno(uint32_t error_number);

}  // namespace propmap
