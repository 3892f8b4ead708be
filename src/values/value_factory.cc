// The value factory: one class per identifier that the store can hold, each
// object placed in memory from the owner's heap.
#include <array>
#include <cassert>
#include <new>
#include <type_traits>

#include "values/value_classes.h"

namespace propmap {
namespace {

struct ValueClass {
  uint32_t size = 0;                                  // 0: no class
  iValue* (*construct)(void* memory, iObj* owner) = nullptr;
  bool plain_text = false;
};

template <typename T, tag_TYPE_ID N>
constexpr ValueClass ClassOf() {
  // Numbers, booleans, the date's 64-bit number and blocks' hex pairs; a
  // char is any byte.
  constexpr bool kPlain = (std::is_arithmetic_v<T> && !std::is_same_v<T, char> && !std::is_same_v<T, wchar_t>) ||
                          std::is_same_v<T, unsigned char[8]> || std::is_same_v<T, void*>;
  return {sizeof(Value<T, N>), [](void* memory, iObj* owner) -> iValue* { return new (memory) Value<T, N>(owner); },
          kPlain};
}

// Identifiers above the last class (tTYPE_ID) never have one.
constexpr tag_TYPE_ID kClassTableSize = tTYPE_ID + 1;

constexpr std::array<ValueClass, kClassTableSize> BuildClasses() {
  std::array<ValueClass, kClassTableSize> c{};
  c[tVOID] = ClassOf<void, tVOID>();
  c[tBYTE] = ClassOf<unsigned char, tBYTE>();
  c[tWORD] = ClassOf<unsigned short, tWORD>();
  c[tDWORD] = ClassOf<unsigned int, tDWORD>();
  c[tQWORD] = ClassOf<unsigned long, tQWORD>();
  c[tBOOL] = ClassOf<bool, tBOOL>();
  c[tCHAR] = ClassOf<char, tCHAR>();
  c[tWCHAR] = ClassOf<wchar_t, tWCHAR>();
  c[tSTRING] = ClassOf<char*, tSTRING>();
  c[tWSTRING] = ClassOf<wchar_t*, tWSTRING>();
  c[tERROR_TYPE] = ClassOf<int, tERROR_TYPE>();
  c[tPTR] = ClassOf<void*, tPTR>();
  c[tINT] = ClassOf<int, tINT>();
  c[tUINT] = ClassOf<unsigned int, tUINT>();
  c[tSBYTE] = ClassOf<signed char, tSBYTE>();
  c[tSHORT] = ClassOf<short, tSHORT>();
  c[tLONG] = ClassOf<long, tLONG>();
  c[tLONGLONG] = ClassOf<long, tLONGLONG>();
  c[tIID] = ClassOf<unsigned int, tIID>();
  c[tPID] = ClassOf<unsigned int, tPID>();
  c[tORIG_ID] = ClassOf<unsigned int, tORIG_ID>();
  c[tOS_ID] = ClassOf<unsigned int, tOS_ID>();
  c[tVID] = ClassOf<unsigned int, tVID>();
  c[tPROPID] = ClassOf<unsigned int, tPROPID>();
  c[tVERSION] = ClassOf<unsigned int, tVERSION>();
  c[tCODEPAGE] = ClassOf<unsigned int, tCODEPAGE>();
  c[tLCID] = ClassOf<unsigned int, tLCID>();
  c[tDATA] = ClassOf<unsigned long, tDATA>();
  c[tDATETIME] = ClassOf<unsigned char[8], tDATETIME>();
  c[tFUNC_PTR] = ClassOf<void (*)(), tFUNC_PTR>();
  c[tDOUBLE] = ClassOf<double, tDOUBLE>();
  c[tBINARY] = ClassOf<void*, tBINARY>();
  c[tTYPE_ID] = ClassOf<unsigned int, tTYPE_ID>();
  return c;
}

constexpr std::array<ValueClass, kClassTableSize> kClasses = BuildClasses();

constexpr int CountClasses() {
  int count = 0;
  for (const ValueClass& c : kClasses) count += c.construct != nullptr;
  return count;
}
static_assert(CountClasses() == 33, "the store holds exactly 33 types");

}  // namespace

bool HasValueClass(tag_TYPE_ID id) { return id < kClassTableSize && kClasses[id].construct != nullptr; }

bool HasPlainText(tag_TYPE_ID id) { return id < kClassTableSize && kClasses[id].plain_text; }

iValue* CreateValue(iObj* host, tag_TYPE_ID id) {
  if (!HasValueClass(id)) return nullptr;
  const ValueClass& c = kClasses[id];
  void* memory = nullptr;
  // The placeholder heap, a refusal and a null block all end here.
  if (Failed(HeapAlloc(host, &memory, c.size))) return nullptr;
  return c.construct(memory, host);
}

void DestroyValue(iObj* host, iValue* value) {
  if (value == nullptr) return;
  void* memory = dynamic_cast<void*>(value);
  value->~iValue();
  HeapFree(host, memory);
}

}  // namespace propmap
