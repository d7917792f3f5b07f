#include "schema_store.h"

#include <execinfo.h>
#include <google/protobuf/descriptor.pb.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "schema_text.h"

namespace {

schema_store* g_pStore = nullptr;

// Enough for libprotobuf to finish a large import once memory has run out. A
// block this size is mapped on its own and never touched, so it holds address
// space, not resident memory, and freeing it returns that space at once.
constexpr size_t reserve_bytes = size_t{4} << 20;
// Atomic because the handler is process-wide while an import runs: another
// thread of the host that runs out of memory then may take the reserve.
std::atomic<void*> g_pReserve{nullptr};
std::new_handler g_previousHandler = nullptr;

// The new handler while an import runs: the reserve first, then whatever
// handler the host had, then the exception.
void releaseReserve() {
  if (void* pReserve = g_pReserve.exchange(nullptr)) {
    std::free(pReserve);
  } else if (g_previousHandler != nullptr) {
    g_previousHandler();
  } else {
    throw std::bad_alloc();
  }
}

// Destroys the store at unload, unless an interrupted import damaged it: the
// pool's destructor would then abort the host on its open checkpoints. The
// damaged store stays reachable through g_pStore until the process ends. The
// reserve goes in either case.
struct store_keeper {
  ~store_keeper() {
    std::free(g_pReserve.exchange(nullptr));
    if (g_pStore != nullptr && !schema_store::damaged()) delete g_pStore;
  }
} g_keeper;

// The reserve and its handler for the length of one import.
class reserve_scope {
 public:
  reserve_scope() {
    if (g_pReserve.load() == nullptr) g_pReserve.store(std::malloc(reserve_bytes));
    if (g_pReserve.load() == nullptr) throw std::bad_alloc();
    g_previousHandler = std::set_new_handler(&releaseReserve);
  }
  ~reserve_scope() { std::set_new_handler(g_previousHandler); }
  reserve_scope(const reserve_scope&) = delete;
  reserve_scope& operator=(const reserve_scope&) = delete;
};

}  // namespace

schema_store::schema_store() : _importer(&_tree, &_errors) {}

void schema_store::prepare() noexcept {
  schema_text::stackLimit();
  void* pFrame = nullptr;
  backtrace(&pFrame, 1);
  try {
    google::protobuf::FileDescriptorProto::descriptor();
  } catch (...) {
  }
}

schema_store& schema_store::get() {
  if (g_pStore == nullptr) g_pStore = new schema_store();
  return *g_pStore;
}

bool schema_store::damaged() { return g_pStore != nullptr && g_pStore->_damaged; }

void schema_store::mapPath(const std::string& virtual_, const std::string& disk_) {
  const auto added = _mapped.emplace(virtual_, disk_);
  if (!added.second) return;
  try {
    _tree.MapPath(virtual_, disk_);
  } catch (...) {
    _mapped.erase(added.first);
    throw;
  }
}

const google::protobuf::FileDescriptor* schema_store::import(const std::string& fileName_) {
  _tree.beginImport();
  reserve_scope reserve;
  try {
    return _importer.Import(fileName_);
  } catch (const std::bad_alloc&) {
    _damaged = true;
    throw;
  }
}
