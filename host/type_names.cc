#include "type_names.h"

namespace prhost {
namespace {

constexpr const char* kNames[kTypeIdLimit] = {
    nullptr,      "tVOID",      "tBYTE",     "tWORD",      "tDWORD",     "tQWORD",        "tBOOL",
    "tCHAR",      "tWCHAR",     "tSTRING",   "tWSTRING",   "tERROR",     "tPTR",          "tINT",
    "tUINT",      "tSBYTE",     nullptr,     "tSHORT",     "tLONG",      "tLONGLONG",     "tIID",
    "tPID",       "tORIG_ID",   "tOS_ID",    "tVID",       "tPROPID",    "tVERSION",      "tCODEPAGE",
    "tLCID",      "tDATA",      "tDATETIME", "tFUNC_PTR",  "tDOUBLE",    nullptr,         nullptr,
    nullptr,      nullptr,      nullptr,     nullptr,      nullptr,      nullptr,         nullptr,
    nullptr,      nullptr,      nullptr,     nullptr,      nullptr,      nullptr,         "tBINARY",
    "tIFACEPTR",  "tOBJECT",    "tEXPORT",   "tIMPORT",    "tTRACE_LEVEL", "tTYPE_ID",    "tVECTOR",
    "tSTRING_OBJ", "tSERIALIZABLE", "tBUFFER", "tSTR_DSC", "tSIZE_T",    "tIMPL_ID",      "tMSG_ID",
    "tMSGCLS_ID",
};
static_assert(sizeof kNames / sizeof kNames[0] == kTypeIdLimit);

}  // namespace

const char* TypeName(TypeId type) { return type < kTypeIdLimit ? kNames[type] : nullptr; }

std::optional<TypeId> TypeFromName(std::string_view name) {
  // 64 short names: a scan is cheaper than building an index.
  for (TypeId id = 0; id < kTypeIdLimit; ++id) {
    if (kNames[id] != nullptr && name == kNames[id]) return id;
  }
  return std::nullopt;
}

bool IsStorableType(TypeId type) { return (type >= 1 && type <= 32 && type != 16) || type == 48 || type == 54; }

}  // namespace prhost
