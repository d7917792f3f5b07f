#include "contenders.h"

#include <cstring>

namespace tarn_bench {
namespace {

using google::protobuf::Message;

int moduleParse(ModuleSide& m_, const std::string& body_, MeasuredSet& set_) {
  set_.clear();  // as a server clears a set it reuses
  return m_.module.parse(m_.context, body_.data(), body_.size(), set_.handle());
}

// Returns the status; the text is m_.out[0, *pLength_).
int moduleTrace(ModuleSide& m_, const std::string& body_, size_t* pLength_ = nullptr) {
  tarn_trace_output_buffer out = {m_.out.data(), m_.out.size(), 0};
  const int rc = m_.module.trace(m_.context, body_.data(), body_.size(), out);
  if (pLength_ != nullptr) *pLength_ = out.length;
  return rc;
}

int mergeSets(ModuleSide& m_, MeasuredSet& stored_, MeasuredSet& update_) {
  tarn_message_segment output = {};
  output.data = m_.out.data();
  return m_.module.merge(update_.handle(), stored_.handle(), output);
}

// Both parses and the merge, as a server does a delta publish. Returns the
// merged length, or -1.
int moduleMerge(ModuleSide& m_, const Shape& s_) {
  if (moduleParse(m_, s_.body, m_.store) != 0 || moduleParse(m_, s_.update, m_.update) != 0)
    return -1;
  return mergeSets(m_, m_.store, m_.update);
}

// Puts back what the merge's clear took from the update set: its key table
// and counts (the entries themselves stay where they were).
void restoreUpdate(ModuleSide& m_) {
  auto& impl = m_.update.impl();
  std::memcpy(impl._pKeys, m_.updateKeys.data(), m_.updateKeys.size() * sizeof impl._pKeys[0]);
  impl._keyCount = m_.updateKeyCount;
  impl._storeCount = m_.updateStoreCount;
}

int mergeWalk(ModuleSide& m_) {
  restoreUpdate(m_);
  return mergeSets(m_, m_.stored, m_.update);
}

int moduleSerialize(ModuleSide& m_, tarn_host::ValueList& values_) {
  tarn_message_segment message = {};
  message.data = m_.out.data();
  const int size = m_.module.serializeRoom(*values_.list(), message);
  if (size <= 0 || static_cast<size_t>(size) > m_.out.size()) return -1;
  if (m_.module.serialize(*values_.list(), message) != 0) return -1;
  return static_cast<int>(message.byte_count);
}

bool readable(ShapeBench& b_, const char* pData_, int length_) {
  std::unique_ptr<Message> m(b_.dynStored->New());
  return length_ > 0 && m->ParseFromArray(pData_, length_);
}

// What a host can observe of two parses of the same bytes: everything but
// the addresses of schema texts, which live in each module's own pool.
bool sameEntries(const tarn_host::ValueSet& a_, const tarn_host::ValueSet& b_) {
  if (a_.size() != b_.size()) return false;
  for (uint32_t i = 0; i < a_.size(); ++i) {
    const tarn_message_value_set_entry& x = a_[i];
    const tarn_message_value_set_entry& y = b_[i];
    if (x.hash != y.hash || x.value_mask != y.value_mask || x.value_flags != y.value_flags ||
        x.type_hint != y.type_hint || x.l != y.l || x.raw_bytes != y.raw_bytes ||
        x.raw_bytes_length != y.raw_bytes_length || x.string_rep_length != y.string_rep_length ||
        x.parent != y.parent || x.first_child != y.first_child ||
        x.next_sibling != y.next_sibling ||
        std::string(x.tag_bytes, x.tag_length) != std::string(y.tag_bytes, y.tag_length))
      return false;
  }
  return true;
}

bool prepareSide(ShapeBench& b_, ModuleSide& m_, std::string& error_) {
  const Shape& s = *b_.pShape;
  const std::string who = m_.name + " on " + s.name + ": ";
  m_.out.resize(64 * s.body.size() + 2 * s.update.size() + 4096);
  if (moduleParse(m_, s.body, m_.store) != 0 || moduleParse(m_, s.body, m_.nothing) != 0) {
    error_ = who + "parse failed";
    return false;
  }
  size_t length = 0;
  if (moduleTrace(m_, s.body, &length) != 0) {
    error_ = who + "trace failed";
    return false;
  }
  const int merged = moduleMerge(m_, s);
  if (!readable(b_, m_.out.data(), merged)) {
    error_ = who + "merged message does not parse";
    return false;
  }
  const std::string full(m_.out.data(), static_cast<size_t>(merged));
  // The merge walk alone must give the same bytes from restored sets, twice.
  if (moduleParse(m_, s.body, m_.stored) != 0 || moduleParse(m_, s.update, m_.update) != 0) {
    error_ = who + "parse failed";
    return false;
  }
  const auto& impl = m_.update.impl();
  m_.updateKeys.assign(impl._pKeys, impl._pKeys + impl._bucketCount);
  m_.updateKeyCount = impl._keyCount;
  m_.updateStoreCount = impl._storeCount;
  for (int i = 0; i < 2; ++i) {
    const int n = mergeWalk(m_);
    if (n != merged || std::memcmp(m_.out.data(), full.data(), full.size()) != 0) {
      error_ = who + "the merge of restored value sets differs from a fresh one";
      return false;
    }
  }
  const int serialized = moduleSerialize(m_, b_.values);
  if (!readable(b_, m_.out.data(), serialized)) {
    error_ = who + "serialized message does not parse";
    return false;
  }
  return true;
}

}  // namespace

bool prepare(ShapeBench& b_, std::string& error_) {
  Shape& s = *b_.pShape;
  ModuleSide& m = *b_.current;
  b_.walker = std::make_unique<WireWalker>(b_.pType);
  b_.tracer = std::make_unique<TraceWalker>(b_.pType);
  b_.printer.SetSingleLineMode(true);
  b_.out.resize(64 * s.body.size() + 2 * s.update.size() + 4096);
  b_.fields = b_.walker->fields(s.body.data(), s.body.size());
  if (!b_.dynStored->ParseFromString(s.body) || !s.generated->ParseFromString(s.body)) {
    error_ = s.name + ": libprotobuf does not parse the body";
    return false;
  }
  if (m.module.parse(m.context, s.body.data(), s.body.size(), b_.listSource.handle()) != 0 ||
      !b_.values.build(b_.listSource.stored())) {
    error_ = s.name + ": no value list for serialization";
    return false;
  }
  if (!prepareSide(b_, m, error_)) return false;
  // A full parse stores every entry it submits, so the storing set holds the
  // records the host calls alone are taken from; the set that keeps nothing
  // must have handed out as many indexes.
  b_.entries = m.store.submitted();
  b_.calls = std::make_unique<CallLoop>(m.store.stored().entries());
  if (m.nothing.submitted() != b_.entries) {
    error_ = s.name + ": the host that keeps nothing and the storing host saw different parses";
    return false;
  }

  size_t length = 0;
  moduleTrace(m, s.body, &length);
  const std::string text(m.out.data(), length);
  const long peer = b_.tracer->trace(s.body.data(), s.body.size(), b_.out.data(), b_.out.size());
  if (peer < 0 || text != std::string(b_.out.data(), static_cast<size_t>(peer))) {
    error_ = s.name + ": the protozero trace walk does not write the module's text";
    return false;
  }

  if (b_.baseline != nullptr) {
    ModuleSide& base = *b_.baseline;
    if (!prepareSide(b_, base, error_)) return false;
    moduleParse(m, s.body, m.store);
    moduleParse(base, s.body, base.store);
    size_t baseLength = 0;
    moduleTrace(base, s.body, &baseLength);
    const std::string baseText(base.out.data(), baseLength);
    const int merged = moduleMerge(m, s);
    const int baseMerged = moduleMerge(base, s);
    const char* differs = !sameEntries(m.store.stored(), base.store.stored()) ? "entries"
                          : text != baseText                                  ? "trace text"
                          : merged < 0 || merged != baseMerged ||
                                  std::memcmp(m.out.data(), base.out.data(), merged) != 0
                              ? "merged bytes"
                              : nullptr;
    if (differs != nullptr) {
      error_ = s.name + ": the baseline module's " + differs + " differ from this one's";
      return false;
    }
  }
  b_.note = s.typeName + ", body " + std::to_string(s.body.size()) + " bytes, update " +
            std::to_string(s.update.size()) + " bytes, " + std::to_string(b_.entries) +
            " entries, " + std::to_string(b_.fields) + " fields";
  return true;
}

namespace {

void addModule(Runner& r_, ShapeBench& b_, ModuleSide& m_) {
  ModuleSide* m = &m_;
  ShapeBench* b = &b_;
  const Shape* s = b_.pShape;
  const bool mine = m_.name == "module";
  const std::string prefix = mine ? "" : "baseline-";
  const std::string who = m_.name;
  const double entries = static_cast<double>(b_.entries);
  const double fields = static_cast<double>(b_.fields);
  auto add = [&](const char* op_, const char* id_, const std::string& label_, double units_,
                 const char* unit_, std::function<void(uint64_t)> run_) {
    r_.add(Contender{s->name, op_, prefix + id_, label_, units_, unit_, true, std::move(run_)});
  };
  add("parse", "null", who + ", null host", entries, "entry", [m, s](uint64_t n_) {
    cheapHashing(true);
    for (uint64_t i = 0; i < n_; ++i) keep(moduleParse(*m, s->body, m->nothing));
    cheapHashing(false);
  });
  add("parse", "discard", who + ", discarding host", entries, "entry",
      repeat([m, s] { keep(moduleParse(*m, s->body, m->nothing)); }));
  add("parse", "store", who + ", stand-in host", entries, "entry",
      repeat([m, s] { keep(moduleParse(*m, s->body, m->store)); }));
  add("trace", "module", who, fields, "field", repeat([m, s] { keep(moduleTrace(*m, s->body)); }));
  add("merge", "module", who + " (2 parses + merge)", 1, "op",
      repeat([m, s] { keep(moduleMerge(*m, *s)); }));
  add("merge", "walk", who + ", merge walk alone", 1, "op", repeat([m] { keep(mergeWalk(*m)); }));
  add("serialize", "module", who + " (size + serialize)", 1, "op",
      repeat([m, b] { keep(moduleSerialize(*m, b->values)); }));
}

}  // namespace

void addContenders(Runner& r_, ShapeBench& b_) {
  ShapeBench* b = &b_;
  const Shape* s = b_.pShape;
  const double entries = static_cast<double>(b_.entries);
  const double fields = static_cast<double>(b_.fields);
  auto peer = [&](const char* op_, const char* id_, const char* label_, double units_,
                  const char* unit_, std::function<void(uint64_t)> run_) {
    r_.add(Contender{s->name, op_, id_, label_, units_, unit_, false, std::move(run_)});
  };
  addModule(r_, b_, *b_.current);
  if (b_.baseline != nullptr) addModule(r_, b_, *b_.baseline);

  ModuleSide* m = b_.current.get();
  peer("parse", "calls", "host calls alone, null host", entries, "entry", [m, b](uint64_t n_) {
    cheapHashing(true);
    for (uint64_t i = 0; i < n_; ++i) {
      m->nothing.clear();
      keep(b->calls->run(m->nothing));
    }
    cheapHashing(false);
  });
  peer("parse", "protozero", "protozero walk", fields, "field",
       repeat([b, s] { keep(b->walker->walk(s->body.data(), s->body.size())); }));
  peer("parse", "dynamic", "DynamicMessage", fields, "field",
       repeat([b, s] { keep(b->dynStored->ParseFromString(s->body)); }));
  peer("parse", "generated", "protoc-generated C++", fields, "field",
       repeat([s] { keep(s->generated->ParseFromString(s->body)); }));

  peer("trace", "protozero", "protozero + to_chars", fields, "field", repeat([b, s] {
         keep(b->tracer->trace(s->body.data(), s->body.size(), b->out.data(), b->out.size()));
       }));
  peer("trace", "text", "DynamicMessage + TextFormat", fields, "field", repeat([b, s] {
         b->dynStored->ParseFromString(s->body);
         b->printer.PrintToString(*b->dynStored, &b->text);
         keep(b->text.data());
       }));

  peer("merge", "dynamic", "DynamicMessage", 1, "op", repeat([b, s] {
         b->dynStored->ParseFromString(s->body);
         b->dynUpdate->ParseFromString(s->update);
         b->dynStored->MergeFrom(*b->dynUpdate);
         b->dynStored->SerializeToString(&b->text);
         keep(b->text.data());
       }));
  peer("merge", "memcpy", "memcpy of both bodies", 1, "op", repeat([b, s] {
         std::memcpy(b->out.data(), s->body.data(), s->body.size());
         std::memcpy(b->out.data() + s->body.size(), s->update.data(), s->update.size());
         keep(b->out.data());
       }));

  peer("serialize", "memcpy", "memcpy", 1, "op", repeat([b, s] {
         std::memcpy(b->out.data(), s->body.data(), s->body.size());
         keep(b->out.data());
       }));
  // The copies the serializer cannot avoid, one per value, without the nesting.
  peer("serialize", "pieces", "memcpy, value by value", 1, "op", repeat([b] {
         char* p = b->out.data();
         const tarn_message_value_list& list = *b->values.list();
         for (size_t i = 0; i < list.count; ++i) {
           const tarn_message_xpath_value& v = list.values[i].xpath_value;
           if (v.type_hint == tarn_message_xpath_value_type_document) continue;
           std::memcpy(p, v.raw_bytes, v.raw_bytes_length);
           p += v.raw_bytes_length;
         }
         keep(p);
       }));
}

std::vector<Comparison> comparisons(const ShapeBench& b_) {
  const std::string& s = b_.pShape->name;
  const bool packed = s == "packed";
  const double parseLimit = s == "strings" ? 10 : packed ? 0.35 : 6;
  auto k = [&s](const std::string& opId_) { return s + "." + opId_; };
  std::vector<Comparison> c = {
      {s,
       "parse: module, null host / (protozero + host calls)",
       k("parse.null"),
       {k("parse.protozero"), k("parse.calls")},
       1.3,
       true},
      {s, "parse: module, null host / host calls alone", k("parse.null"), {k("parse.calls")}},
      {s,
       "parse: DynamicMessage / module, discarding host",
       k("parse.dynamic"),
       {k("parse.discard")},
       parseLimit,
       false},
      {s, "parse: DynamicMessage / module, stand-in host", k("parse.dynamic"), {k("parse.store")}},
      {s, "parse: generated / module, discarding host", k("parse.generated"), {k("parse.discard")}},
      {s,
       "trace: module / protozero + to_chars",
       k("trace.module"),
       {k("trace.protozero")},
       1.2,
       true},
      {s, "trace: TextFormat / module", k("trace.text"), {k("trace.module")}},
      {s,
       "merge: DynamicMessage / module",
       k("merge.dynamic"),
       {k("merge.module")},
       packed ? 1.3 : 10,
       false},
      {s, "merge: merge walk alone / memcpy of both", k("merge.walk"), {k("merge.memcpy")}},
      {s, "serialize: memcpy / module", k("serialize.memcpy"), {k("serialize.module")}, 0.5, false},
      // The list holds one value per field, so one copy per value is the floor.
      {s,
       "serialize: module / memcpy, value by value",
       k("serialize.module"),
       {k("serialize.pieces")}},
  };
  if (b_.baseline != nullptr) {
    for (const char* id : {"parse.null", "parse.discard", "parse.store", "trace.module",
                           "merge.module", "merge.walk", "serialize.module"}) {
      const std::string opId = id;
      const std::string baseId =
          opId.substr(0, opId.find('.') + 1) + "baseline-" + opId.substr(opId.find('.') + 1);
      c.push_back({s, "module / baseline: " + opId, k(opId), {k(baseId)}});
    }
  }
  return c;
}

}  // namespace tarn_bench
