#include "schema_store.h"

#include <new>

namespace {

schema_store* g_pStore = nullptr;

// Destroys the store at unload, unless an interrupted import damaged it: the
// pool's destructor would then abort the host on its open checkpoints. The
// damaged store stays reachable through g_pStore until the process ends.
struct store_keeper {
  ~store_keeper() {
    if (g_pStore != nullptr && !schema_store::damaged()) delete g_pStore;
  }
} g_keeper;

}  // namespace

schema_store::schema_store() : _importer(&_tree, &_errors) {}

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
  try {
    return _importer.Import(fileName_);
  } catch (const std::bad_alloc&) {
    _damaged = true;
    throw;
  }
}
