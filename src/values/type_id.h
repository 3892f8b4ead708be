// Type identifiers (tag_TYPE_ID) and their names.
//
// The numbering is the host framework's; names are the element names of the
// profile document. Only the 33 identifiers with a value class can be stored.
//
// Thread-safety: constant tables and pure functions.
#pragma once

#include <cstddef>
#include <cstdint>

using tag_TYPE_ID = uint32_t;

namespace propmap {

enum TypeId : tag_TYPE_ID {
  tVOID = 1, tBYTE = 2, tWORD = 3, tDWORD = 4, tQWORD = 5, tBOOL = 6, tCHAR = 7,
  tWCHAR = 8, tSTRING = 9, tWSTRING = 10, tERROR_TYPE = 11, tPTR = 12, tINT = 13,
  tUINT = 14, tSBYTE = 15, tSHORT = 17, tLONG = 18, tLONGLONG = 19, tIID = 20,
  tPID = 21, tORIG_ID = 22, tOS_ID = 23, tVID = 24, tPROPID = 25, tVERSION = 26,
  tCODEPAGE = 27, tLCID = 28, tDATA = 29, tDATETIME = 30, tFUNC_PTR = 31,
  tDOUBLE = 32, tBINARY = 48, tIFACEPTR = 49, tOBJECT = 50, tEXPORT = 51,
  tIMPORT = 52, tTRACE_LEVEL = 53, tTYPE_ID = 54, tVECTOR = 55, tSTRING_OBJ = 56,
  tSERIALIZABLE = 57, tBUFFER = 58, tSTR_DSC = 59, tSIZE_T = 60, tIMPL_ID = 61,
  tMSG_ID = 62, tMSGCLS_ID = 63,
};

inline constexpr size_t kTypeNameCount = 64;

// Names indexed by identifier 0..63; null where the identifier has no name.
extern const char* const TypeNames[kTypeNameCount];

// Identifier for a counted, not necessarily terminated name; 0 for no name.
[[nodiscard]] tag_TYPE_ID TypeIdFromName(const char* text, size_t length);

// Name of an identifier of an existing value (no range check), or null.
[[nodiscard]] const char* TypeNameOf(tag_TYPE_ID id);

// True for the 33 identifiers that have a value class.
[[nodiscard]] bool HasValueClass(tag_TYPE_ID id);

// True for the classes whose text is a number ("1", "-5", "2.500000") or hex
// pairs ("0A1B"): no byte of it is ever escaped and it holds no zero byte
// before its end.
[[nodiscard]] bool HasPlainText(tag_TYPE_ID id);

}  // namespace propmap
