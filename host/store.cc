#include "store.h"

#include <cstdlib>
#include <stdexcept>

namespace prhost {
namespace {

std::string Hex(uint64_t v) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "0x%llX", static_cast<unsigned long long>(v));
  return buf;
}

template <typename Fn>
Fn Pointer(uint64_t address) {
  return reinterpret_cast<Fn>(static_cast<uintptr_t>(address));
}

}  // namespace

Store::Store(std::shared_ptr<Module> module, std::string label)
    : module_(std::move(module)), label_(std::move(label)), registration_(&module_->registration()) {
  size_ = registration_->object_size;
  heap_ = module_->host().NewHeap(label_);
  memory_ = std::calloc(1, size_);
  if (memory_ == nullptr) throw std::bad_alloc();
}

Store::~Store() {
  if (constructed_ && init_called_ && !pre_closed_) (void)PreClose();
  if (constructed_) (void)Destroy();
  std::free(memory_);
}

std::unique_ptr<Store> Store::Open(std::shared_ptr<Module> module, const StoreConfig& config, std::string label) {
  auto store = std::make_unique<Store>(std::move(module), std::move(label));
  auto check = [&](tERROR code, const char* step) {
    if (Failed(code)) {
      throw std::runtime_error("prhost: " + store->label() + ": " + step + " failed with " + Hex(uint32_t(code)));
    }
  };
  check(store->Construct(), "ObjectNew(1)");
  store->InstallHostServices();
  if (config.name) check(store->SetName(*config.name), "setName");
  if (config.root_point) check(store->SetRootPoint(*config.root_point), "setRootPoint");
  const struct {
    uint32_t id;
    uint64_t value;
  } fields[] = {
      {prop::kReadOnly, config.read_only},
      {prop::kFlushOnClose, config.flush_on_close},
      {prop::kLocking, config.locking},
      {prop::kLoaderFlags, config.loader_flags},
      {prop::kBackupMode, config.backup_mode},
      {prop::kSourceObject, reinterpret_cast<uintptr_t>(config.source)},
  };
  for (const auto& f : fields) {
    if (f.value != 0) store->SetField(f.id, f.value);
  }
  if (config.init) (void)store->InitDone();
  return store;
}

tERROR Store::Construct() {
  if (stage_ != Stage::kAllocated) throw std::logic_error("prhost: Construct out of order");
  auto object_new = reinterpret_cast<ObjectNewFn>(registration_->internal[kInternalObjectNew]);
  tERROR code = object_new(memory_, 1);
  placeholder_table_ = obj_table();
  if (Succeeded(code)) {
    constructed_ = true;
    stage_ = Stage::kConstructed;
  }
  return code;
}

void Store::InstallHostServices() {
  void* const* table = module_->host().obj_table();
  StoreHeap* heap = heap_.get();
  std::memcpy(static_cast<char*>(memory_) + kStoreObjWord, &table, sizeof table);
  std::memcpy(static_cast<char*>(memory_) + kStoreHostWord, &heap, sizeof heap);
  host_services_ = true;
}

tERROR Store::InitDone() {
  auto init_done = reinterpret_cast<InitDoneFn>(registration_->internal[kInternalInitDone]);
  init_called_ = true;
  init_result_ = init_done(memory_);
  stage_ = Stage::kInitialized;
  return *init_result_;
}

tERROR Store::PreClose() {
  auto pre_close = reinterpret_cast<PreCloseFn>(registration_->internal[kInternalPreClose]);
  pre_closed_ = true;
  tERROR code = pre_close(memory_);
  stage_ = Stage::kPreClosed;
  return code;
}

tERROR Store::Destroy() {
  if (!constructed_) throw std::logic_error("prhost: Destroy without a constructed object");
  auto object_new = reinterpret_cast<ObjectNewFn>(registration_->internal[kInternalObjectNew]);
  tERROR code = object_new(memory_, 0);
  constructed_ = false;
  stage_ = Stage::kDestroyed;
  if (obj_table() != module_->host().obj_table()) {
    Violation("ObjectNew(0) left iObj word " + Hex(reinterpret_cast<uintptr_t>(obj_table())) +
              " instead of the host's table");
  }
  uintptr_t expected_host_word = host_services_ ? reinterpret_cast<uintptr_t>(heap_.get()) : 0;
  if (host_word() != expected_host_word) Violation("the host's word at offset 16 was overwritten");
  return code;
}

const PropertyRecord& Store::Record(uint32_t id) const {
  const PropertyRecord* record = registration_->FindProperty(id);
  if (record == nullptr) throw std::invalid_argument("prhost: no property record with id " + Hex(id));
  return *record;
}

char* Store::FieldAddress(const PropertyRecord& record) const {
  return static_cast<char*>(memory_) + kStoreConfigBlock + record.value_or_position;
}

tERROR Store::SetProperty(uint32_t id, const void* data, uint32_t size, uint32_t* out_size) {
  const PropertyRecord& r = Record(id);
  if (IsFieldFlags(r.flags)) {
    if (data == nullptr || size != r.size) return kErrBadParameter;
    std::memcpy(FieldAddress(r), data, r.size);
    if (out_size != nullptr) *out_size = static_cast<uint32_t>(r.size);
    return kOk;
  }
  if (r.flags == kPropFlagsAccessor) {
    auto setter = Pointer<AccessorFn>(r.setter);
    return setter(memory_, out_size, id, static_cast<char*>(const_cast<void*>(data)), size);
  }
  return kErrNotImplemented;  // constants cannot be set
}

tERROR Store::GetProperty(uint32_t id, void* buffer, uint32_t buffer_size, uint32_t* out_size) {
  const PropertyRecord& r = Record(id);
  if (r.flags == kPropFlagsAccessor) {
    auto getter = Pointer<AccessorFn>(r.getter);
    return getter(memory_, out_size, id, static_cast<char*>(buffer), buffer_size);
  }
  const void* source = nullptr;
  if (IsFieldFlags(r.flags)) source = FieldAddress(r);
  else if (r.flags == kPropFlagsConstValue) source = &r.value_or_position;  // little-endian: low bytes first
  else source = Pointer<const void*>(r.value_or_position);
  uint32_t size = static_cast<uint32_t>(r.size);
  if (out_size != nullptr) *out_size = size;
  if (buffer == nullptr) return buffer_size == 0 ? kOk : kErrBadParameter;
  if (buffer_size < size) return kErrBufferTooSmall;
  std::memcpy(buffer, source, size);
  return kOk;
}

uint64_t Store::Field(uint32_t id) const {
  const PropertyRecord& r = Record(id);
  if (!IsFieldFlags(r.flags)) throw std::invalid_argument("prhost: property " + Hex(id) + " is not a field");
  uint64_t value = 0;
  std::memcpy(&value, FieldAddress(r), r.size);
  return value;
}

void Store::SetField(uint32_t id, uint64_t value) {
  const PropertyRecord& r = Record(id);
  if (!IsFieldFlags(r.flags)) throw std::invalid_argument("prhost: property " + Hex(id) + " is not a field");
  std::memcpy(FieldAddress(r), &value, r.size);
}

Result<std::string> Store::GetText(uint32_t id) {
  Result<std::string> out;
  uint32_t size = 0;
  // Text getters answer a size query either with success or with
  // ErrBufferTooSmall; both write the needed size.
  out.code = GetProperty(id, nullptr, 0, &size);
  if (out.code == kErrBufferTooSmall && size != 0) out.code = kOk;
  if (Failed(out.code) || size == 0) return out;
  std::string buffer(size, '\0');
  out.code = GetProperty(id, buffer.data(), size, &size);
  if (Succeeded(out.code)) out.value = buffer.substr(0, buffer.find('\0'));
  return out;
}

tERROR Store::SetName(const std::string& name) {
  uint32_t size = 0;
  return SetProperty(prop::kName, name.c_str(), static_cast<uint32_t>(name.size() + 1), &size);
}

Result<std::string> Store::GetName() { return GetText(prop::kName); }

tERROR Store::SetRootPoint(const std::string& path) {
  uint32_t size = 0;
  return SetProperty(prop::kRootPoint, path.c_str(), static_cast<uint32_t>(path.size() + 1), &size);
}

Result<std::string> Store::GetRootPoint() { return GetText(prop::kRootPoint); }

tERROR Store::SetRootKeyProperty(hKey key) {
  uint32_t size = 0;
  return SetProperty(prop::kRootKey, &key, sizeof key, &size);
}

Result<hKey> Store::GetRootKeyProperty() {
  Result<hKey> out;
  uint32_t size = 0;
  out.code = GetProperty(prop::kRootKey, &out.value, sizeof out.value, &size);
  return out;
}

std::vector<TraceLine> Store::TraceLines() const { return module_->trace().LinesFor(memory_); }

std::vector<std::string> Store::TraceTexts() const { return module_->trace().TextsFor(memory_); }

void Store::Violation(const std::string& what) { module_->host().ReportViolation(label_ + ": " + what); }

}  // namespace prhost
