#include "registry/operations.h"

namespace propmap {
namespace {

constexpr iRegistryTable kTable = {
    .OpenKey = &OpenKey,
    .OpenKeyByIndex = &OpenKeyByIndex,
    .OpenNextKey = &OpenNextKey,
    .CloseKey = &CloseKey,
    .GetKeyName = &GetKeyName,
    .GetKeyNameByIndex = &GetKeyNameByIndex,
    .GetValue = &GetValue,
    .GetValueByIndex = &GetValueByIndex,
    .GetValueNameByIndex = &GetValueNameByIndex,
    .SetValue = &SetValue,
    .SetValueByIndex = &SetValueByIndex,
    .GetKeyCount = &GetKeyCount,
    .GetValueCount = &GetValueCount,
    .DeleteKey = &DeleteKey,
    .DeleteKeyByInd = &DeleteKeyByInd,
    .DeleteValue = &DeleteValue,
    .DeleteValueByInd = &DeleteValueByInd,
    .Clean = &Clean,
    .CopyKey = &CopyKey,
    .CopyKeyByName = &CopyKeyByName,
    .SetRootKey = &SetRootKey,
    .SetRootStr = &SetRootStr,
    .Flush = &Flush,
};

}  // namespace

const iRegistryTable* RegistryTable() { return &kTable; }

}  // namespace propmap
