// The process-wide schema objects every context shares: the source tree with
// its search paths, the import error collector and the importer with its one
// descriptor pool. Descriptors handed to contexts point into the pool, so the
// store lives until the module is unloaded.
//
// The store is built on the first context creation, not when the module is
// loaded, so that running out of memory while building it is a refused
// creation (a later one tries again) rather than a failed load.
//
// Running out of memory inside an import can leave the pool half-built:
// libprotobuf then has files registered whose types are not linked, and
// checkpoints it never closes. Such a pool answers lookups with wrong types,
// and destroying it fails an assertion that aborts the process. So an import
// that ends in std::bad_alloc marks the store damaged: no context is created
// from it again (contexts created before keep working, their files were
// complete), and at unload a damaged store is deliberately left undestroyed.
//
// Such an unwind is also the one thing libprotobuf cannot always survive: its
// parser allocates in destructors, where std::bad_alloc ends the process. So an
// import runs with memory in reserve: a block of address space taken before
// the import starts and given back by a new handler the moment an allocation
// fails, so that the allocation is retried and the import finishes through its
// own success or error path. Only when the reserve is spent too does the
// exception come.
#ifndef TARN_PROTOBUF_SCHEMA_STORE_H
#define TARN_PROTOBUF_SCHEMA_STORE_H

#include <google/protobuf/compiler/importer.h>

#include <set>
#include <string>
#include <utility>

#include "module_error_collector.h"
#include "schema_source_tree.h"

class schema_store {
 public:
  // The store of this process, built on first use. Throws std::bad_alloc when
  // it cannot be built; nothing is kept then.
  static schema_store& get();
  // Whether a store exists and was damaged; false before the first creation.
  static bool damaged();

  // Runs, once and at start-up, the one-time initialisations that an import
  // reaches inside libprotobuf and the C library: the descriptors of
  // descriptor.proto (read to interpret options), the unwinder the C library
  // loads on first use, and the bounds of the starting thread's stack. Both run under pthread_once,
  // and an exception unwound through pthread_once needs that unwinder: loading it in the middle of
  // an out-of-memory unwind fails and aborts the process. Never throws; an initialisation that
  // finds no memory now is retried where it is reached.
  static void prepare() noexcept;

  // Maps one search path, once per distinct virtual/disk pair: the tree tries
  // its mappings in the order they were added, so a second copy of a pair
  // would change no lookup but grow the tree and add failed probes to every
  // later import. A pair is recorded only together with its mapping.
  void mapPath(const std::string& virtual_, const std::string& disk_);

  // Imports one file on the calling thread, with the reserve in place. Throws
  // std::bad_alloc, the pool untouched, when the reserve cannot be taken; marks
  // the store damaged when running out of memory interrupts the import, and
  // rethrows.
  const google::protobuf::FileDescriptor* import(const std::string& fileName_);

  const google::protobuf::DescriptorPool& pool() const { return *_importer.pool(); }
  const ModuleErrorCollector& errors() const { return _errors; }

 private:
  schema_store();

  // Declared in construction order: the importer reads the other two.
  schema_source_tree _tree;
  ModuleErrorCollector _errors;
  google::protobuf::compiler::Importer _importer;
  std::set<std::pair<std::string, std::string>> _mapped;
  bool _damaged = false;
};

#endif
