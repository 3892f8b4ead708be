// The type-name catalogue and the name-to-identifier lookup.
#include <cassert>
#include <cstdint>

#include "values/type_id.h"

namespace propmap {

// constexpr so that the lookup index below can be checked against it at
// compile time; the header's extern declaration keeps the linkage external.
constexpr const char* const TypeNames[kTypeNameCount] = {
    nullptr,         "tVOID",        "tBYTE",      "tWORD",      "tDWORD",      "tQWORD",
    "tBOOL",         "tCHAR",        "tWCHAR",     "tSTRING",    "tWSTRING",    "tERROR",
    "tPTR",          "tINT",         "tUINT",      "tSBYTE",     nullptr,       "tSHORT",
    "tLONG",         "tLONGLONG",    "tIID",       "tPID",       "tORIG_ID",    "tOS_ID",
    "tVID",          "tPROPID",      "tVERSION",   "tCODEPAGE",  "tLCID",       "tDATA",
    "tDATETIME",     "tFUNC_PTR",    "tDOUBLE",    nullptr,      nullptr,       nullptr,
    nullptr,         nullptr,        nullptr,      nullptr,      nullptr,       nullptr,
    nullptr,         nullptr,        nullptr,      nullptr,      nullptr,       nullptr,
    "tBINARY",       "tIFACEPTR",    "tOBJECT",    "tEXPORT",    "tIMPORT",     "tTRACE_LEVEL",
    "tTYPE_ID",      "tVECTOR",      "tSTRING_OBJ", "tSERIALIZABLE", "tBUFFER", "tSTR_DSC",
    "tSIZE_T",       "tIMPL_ID",     "tMSG_ID",    "tMSGCLS_ID",
};

namespace {

// Identifiers by the second letter of their name, 'B' to 'W', in lookup
// order; a row that is not full ends with 0. The order decides nothing today
// (names are unique) but is kept so that the lookup walks rows as listed.
constexpr int kIndexRows = 'W' - 'B' + 1;
constexpr int kIndexWidth = 7;
constexpr uint8_t kNameIndex[kIndexRows][kIndexWidth] = {
    /* B */ {2, 6, 48, 58, 0},
    /* C */ {7, 27, 0},
    /* D */ {4, 29, 30, 32, 0},
    /* E */ {11, 51, 0},
    /* F */ {31, 0},
    /* G */ {0},
    /* H */ {0},
    /* I */ {13, 20, 49, 52, 61, 0},
    /* J */ {0},
    /* K */ {0},
    /* L */ {18, 19, 28, 0},
    /* M */ {62, 63, 0},
    /* N */ {0},
    /* O */ {22, 23, 50, 0},
    /* P */ {12, 21, 25, 0},
    /* Q */ {5, 0},
    /* R */ {0},
    /* S */ {9, 15, 17, 56, 57, 59, 60},
    /* T */ {53, 54, 0},
    /* U */ {14, 0},
    /* V */ {1, 24, 26, 55, 0},
    /* W */ {3, 8, 10, 0},
};

// The index must list every named identifier exactly once, under the second
// letter of its name; a drifting row fails the build.
constexpr bool IndexMatchesNames() {
  int listed = 0;
  for (int row = 0; row < kIndexRows; ++row) {
    for (int k = 0; k < kIndexWidth && kNameIndex[row][k] != 0; ++k) {
      const char* name = TypeNames[kNameIndex[row][k]];
      if (name == nullptr || name[0] != 't' || name[1] != 'B' + row) return false;
      ++listed;
    }
  }
  int named = 0;
  for (size_t id = 0; id < kTypeNameCount; ++id) named += TypeNames[id] != nullptr;
  return listed == named && named == 47;
}
static_assert(IndexMatchesNames(), "name index out of step with TypeNames");

}  // namespace

tag_TYPE_ID TypeIdFromName(const char* text, size_t length) {
  // The shortest names ("tINT", "tIID", "tPID", "tVID") have 4 bytes.
  if (length < 4 || text[0] != 't') return 0;
  if (text[1] < 'B' || text[1] > 'W') return 0;
  for (uint8_t id : kNameIndex[text[1] - 'B']) {
    if (id == 0) return 0;
    const char* name = TypeNames[id];
    size_t pos = 2;
    // The name's own NUL stops the walk, so a counted input never makes us
    // read past a shorter name.
    while (pos < length && name[pos] != '\0' && name[pos] == text[pos]) ++pos;
    if (pos == length && name[length] == '\0') return id;
  }
  return 0;
}

const char* TypeNameOf(tag_TYPE_ID id) {
  assert(id < kTypeNameCount);
  return TypeNames[id];
}

}  // namespace propmap
