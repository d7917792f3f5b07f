#include "check_compare.h"

#include <deque>
#include <map>
#include <set>

#include "check_rules.h"
#include "text_util.h"

namespace tarnpb {

namespace gp = google::protobuf;
typedef gp::FieldDescriptor FD;

Order combine(Order a_, Order b_) {
  if (a_ == Order::any) return b_;
  if (b_ == Order::any || a_ == b_) return a_;
  return Order::coordinated;
}

const char* orderText(Order order_) {
  switch (order_) {
    case Order::any:
      return "safe in any order";
    case Order::serversFirst:
      return "servers before publishers";
    case Order::publishersFirst:
      return "publishers before servers";
    case Order::coordinated:
      return "not safe without a coordinated switch";
  }
  return "";
}

std::vector<std::string> partyNames(unsigned parties_) {
  static const char* const names[] = {"publishers", "subscribers", "find sets", "stored messages",
                                      "traces"};
  std::vector<std::string> out;
  for (unsigned i = 0; i < 5; ++i)
    if (parties_ & (1u << i)) out.push_back(names[i]);
  return out;
}

namespace {

const unsigned all_parties =
    party_publishers | party_subscribers | party_find_sets | party_stored | party_traces;

std::string joinPath(const std::string& path_, const std::string& name_) {
  return path_.empty() ? name_ : path_ + "." + name_;
}

// The entry the module stores for a field absent from a message, as a report
// shows it; "" when it stores none.
std::string defaultEntry(const FD* field_) {
  if (!field_->has_default_value()) return "";
  std::string out;
  switch (field_->cpp_type()) {
    case FD::CPPTYPE_INT32:
      appendDecimal(out, int64_t{field_->default_value_int32()});
      break;
    case FD::CPPTYPE_INT64:
      appendDecimal(out, int64_t{field_->default_value_int64()});
      break;
    case FD::CPPTYPE_UINT32:
      appendDecimal(out, uint64_t{field_->default_value_uint32()});
      break;
    case FD::CPPTYPE_UINT64:
      appendDecimal(out, static_cast<int64_t>(field_->default_value_uint64()));
      break;
    case FD::CPPTYPE_DOUBLE:
    case FD::CPPTYPE_FLOAT:
      // A double entry keeps a point, so that 5 and 5.0 tell a long from a double.
      appendDouble(out, field_->cpp_type() == FD::CPPTYPE_DOUBLE
                            ? field_->default_value_double()
                            : static_cast<double>(field_->default_value_float()));
      if (out.find_first_of(".eEna") == std::string::npos) out += ".0";
      break;
    case FD::CPPTYPE_BOOL:
      out = field_->default_value_bool() ? "1" : "0";
      break;
    case FD::CPPTYPE_ENUM:
      appendDecimal(out, int64_t{field_->default_value_enum()->number()});
      break;
    default: {
      const std::string& text = field_->default_value_string();
      appendQuoted(out, text.data(), text.size());
    }
  }
  return out;
}

std::string oneofName(const FD* field_) {
  const gp::OneofDescriptor* pOneof = field_->real_containing_oneof();
  return pOneof == nullptr ? "" : pOneof->name();
}

// Which values two numeric readings of the same bytes disagree on, when not
// nearly all of them.
std::string valuesAffected(Reading a_, Reading b_) {
  const auto is = [&](Reading x_, Reading y_) {
    return (a_ == x_ && b_ == y_) || (a_ == y_ && b_ == x_);
  };
  if (is(Reading::raw64, Reading::sext32)) return " (numbers outside the signed 32-bit range)";
  if (is(Reading::u32, Reading::s32)) return " (numbers with the top bit set)";
  return "";
}

// How one side's bodies fare on servers of the other version.
std::string bodiesOn(const char* servers_, bool same_, Reading now_, Reading meant_,
                     const char* sameText_) {
  if (same_) return std::string("read by ") + servers_ + " " + sameText_;
  if (now_ == Reading::refused) return std::string("refused by ") + servers_;
  return std::string("read by ") + servers_ + " as " + readingText(now_) + " instead of " +
         readingText(meant_) + valuesAffected(now_, meant_);
}

std::string bodiesText(const FieldVerdict& v_) {
  std::string text = "Bodies of publishers on the old schema are " +
                     bodiesOn("switched servers", v_.oldBodiesOnNewServers, v_.oldBodiesNow,
                              v_.oldBodiesAsBefore, "as before") +
                     "; bodies of publishers on the new schema are " +
                     bodiesOn("servers not yet switched", v_.newBodiesOnOldServers, v_.newBodiesNow,
                              v_.newBodiesAsMeant, "as switched ones read them") +
                     ".";
  if (v_.traceChanges) text += " The trace renders the field differently.";
  return text;
}

Order verdictOrder(const FieldVerdict& v_) {
  if (v_.oldBodiesOnNewServers && v_.newBodiesOnOldServers) return Order::any;
  if (v_.oldBodiesOnNewServers) return Order::serversFirst;
  if (v_.newBodiesOnOldServers) return Order::publishersFirst;
  return Order::coordinated;
}

unsigned verdictParties(const FieldVerdict& v_) {
  unsigned parties = 0;
  if (!v_.oldBodiesOnNewServers || !v_.newBodiesOnOldServers)
    parties |= party_publishers | party_subscribers;
  if (!v_.oldBodiesOnNewServers) parties |= party_stored;
  const bool nestedBefore = v_.oldBodiesAsBefore == Reading::nested;
  if (nestedBefore != (v_.oldBodiesNow == Reading::nested) ||
      nestedBefore != (v_.newBodiesAsMeant == Reading::nested))
    parties |= party_find_sets;
  if (v_.traceChanges) parties |= party_traces;
  return parties;
}

class Walk {
 public:
  std::vector<Change> run(const gp::Descriptor* old_, const gp::Descriptor* new_) {
    if (old_->full_name() != new_->full_name()) {
      add("root type renamed", "", old_->full_name(), new_->full_name(),
          "Each server's Type option must name " + new_->full_name() +
              " from its switch on (the module refuses a context whose type it cannot "
              "find); path hashes and the trace use field names only, so nothing else "
              "changes.",
          0, Order::any);
    }
    enqueue(old_, new_, "");
    while (!_queue.empty()) {
      const Pending p = _queue.front();
      _queue.pop_front();
      const size_t first = _changes.size();
      compareTypes(p.pOld, p.pNew, p.path);
      for (size_t i = first; i < _changes.size(); ++i) _changeTypes[i] = {p.pOld, p.pNew};
    }
    // A type reached by several fields changes at every place it is reached:
    // each has path hashes of its own.
    for (auto& entry : _changeTypes) {
      Change& change = _changes[entry.first];
      const std::vector<std::string>& places = _places[entry.second];
      const std::string below = change.path.substr(places[0].empty() ? 0 : places[0].size() + 1);
      for (size_t i = 1; i < places.size(); ++i)
        change.alsoAt.push_back(joinPath(places[i], below));
    }
    return std::move(_changes);
  }

 private:
  struct Pending {
    const gp::Descriptor* pOld;
    const gp::Descriptor* pNew;
    std::string path;
  };

  void add(const char* kind_, const std::string& path_, const std::string& before_,
           const std::string& after_, const std::string& effect_, unsigned parties_, Order order_) {
    Change change;
    change.kind = kind_;
    change.path = path_;
    change.before = before_;
    change.after = after_;
    change.effect = effect_;
    change.parties = parties_;
    change.order = order_;
    _changes.push_back(std::move(change));
  }

  void enqueue(const gp::Descriptor* old_, const gp::Descriptor* new_, const std::string& path_) {
    std::vector<std::string>& places = _places[std::make_pair(old_, new_)];
    places.push_back(path_);
    if (places.size() == 1) _queue.push_back({old_, new_, path_});
  }

  void compareTypes(const gp::Descriptor* old_, const gp::Descriptor* new_,
                    const std::string& path_) {
    std::map<int, std::pair<const FD*, const FD*>> byNumber;
    for (int i = 0; i < old_->field_count(); ++i)
      byNumber[old_->field(i)->number()].first = old_->field(i);
    for (int i = 0; i < new_->field_count(); ++i)
      byNumber[new_->field(i)->number()].second = new_->field(i);
    for (const auto& entry : byNumber) {
      const FD* pOld = entry.second.first;
      const FD* pNew = entry.second.second;
      if (pOld == nullptr) {
        added(pNew, path_);
      } else if (pNew == nullptr) {
        removed(pOld, path_);
      } else {
        compareFields(pOld, pNew, path_);
      }
    }
  }

  void added(const FD* new_, const std::string& path_) {
    std::string effect = "Servers still on the old schema refuse every body that carries field " +
                         std::to_string(new_->number()) +
                         ": the number is not declared there. Switched servers accept bodies "
                         "with or without it.";
    unsigned parties = party_publishers;
    const std::string entry = defaultEntry(new_);
    if (!entry.empty()) {
      effect += " Switched servers store its default " + entry +
                " as an entry in every message that lacks it.";
      parties |= party_subscribers;
    }
    if (new_->is_required())
      effect += " Its entries carry the required flag; the module does not insist on it.";
    if (new_->type() == FD::TYPE_GROUP)
      effect +=
          " It is a group: the module refuses every body that carries it, under either "
          "schema, so publishers must never send it.";
    add("field added", joinPath(path_, new_->name()), "", describeField(new_), effect, parties,
        Order::serversFirst);
  }

  void removed(const FD* old_, const std::string& path_) {
    std::string effect =
        "Switched servers refuse every body that still carries field " +
        std::to_string(old_->number()) +
        ", and every stored message that holds it when a delta is merged into it (republish "
        "those whole without it first). Its entries are gone";
    if (!defaultEntry(old_).empty()) effect += ", its default entry too,";
    effect += " and a find set that names it matches nothing.";
    add("field removed", joinPath(path_, old_->name()), describeField(old_), "", effect,
        party_publishers | party_subscribers | party_find_sets | party_stored,
        Order::publishersFirst);
  }

  void compareFields(const FD* old_, const FD* new_, const std::string& path_) {
    const std::string path = joinPath(path_, new_->name());
    const std::string before = describeField(old_), after = describeField(new_);
    const bool renamed = old_->name() != new_->name();
    if (renamed && reused(old_, new_)) {
      add("number reused", path, before, after,
          "Field " + std::to_string(new_->number()) + " now means another field: bodies " +
              "written for " + old_->name() + " are read as " + new_->name() + " (" +
              readingText(moduleReading(new_, writerWire(old_))) +
              ") and the other way round, and the path hash changes with the name.",
          all_parties, Order::coordinated);
      return;
    }
    if (renamed) {
      const bool hasBelow = new_->message_type() != nullptr;
      add("field renamed", path, before, after,
          "The wire is unchanged and both schemas read the same values, but path hashes are "
          "built from names: the hash of " +
              path + (hasBelow ? " and of every field below it" : "") +
              " changes, so find sets and anything keyed by the old path stop matching as "
              "a server switches, the trace shows the new name, and a stored message parsed "
              "under one schema no longer meets an update parsed under the other in the delta "
              "merge (the update's field is written beside the stored one instead of "
              "replacing it).",
          party_subscribers | party_find_sets | party_stored | party_traces, Order::coordinated);
    }
    compareShape(old_, new_, path, before, after);
    compareTypeNames(old_, new_, path);
    compareDefaults(old_, new_, path, before, after);
    if (oneofName(old_) != oneofName(new_)) {
      add("oneof changed", path, before + oneofNote(old_), after + oneofNote(new_),
          "The module ignores oneofs: every member is read, stored, traced and merged as a "
          "field of its own.",
          0, Order::any);
    }
    if (old_->message_type() != nullptr && new_->message_type() != nullptr)
      enqueue(old_->message_type(), new_->message_type(), path);
    if (old_->enum_type() != nullptr && new_->enum_type() != nullptr)
      compareEnums(old_->enum_type(), new_->enum_type(), path);
  }

  // A new name on a number is a rename unless something says the number now
  // serves another field: another type, the old name still in use elsewhere
  // or reserved, or the new name taken from another field.
  static bool reused(const FD* old_, const FD* new_) {
    const gp::Descriptor* pOldType = old_->containing_type();
    const gp::Descriptor* pNewType = new_->containing_type();
    return old_->type() != new_->type() || pNewType->FindFieldByName(old_->name()) != nullptr ||
           pNewType->IsReservedName(old_->name()) ||
           pOldType->FindFieldByName(new_->name()) != nullptr;
  }

  static std::string oneofNote(const FD* field_) {
    const std::string name = oneofName(field_);
    return name.empty() ? "" : " (in oneof " + name + ")";
  }

  // Type, repetition, packing and the required flag: one change for all of
  // them, since the verdict comes from how the field travels as a whole.
  void compareShape(const FD* old_, const FD* new_, const std::string& path_,
                    const std::string& before_, const std::string& after_) {
    const bool typeChanged = old_->type() != new_->type();
    const bool repetition = old_->is_repeated() != new_->is_repeated();
    const bool required = old_->is_required() != new_->is_required();
    const bool packed = old_->is_packed() != new_->is_packed();
    if (!typeChanged && !repetition && !required && !packed) return;
    const FieldVerdict v = judgeField(old_, new_);
    std::string effect = bodiesText(v);
    unsigned parties = verdictParties(v);
    if (repetition && !typeChanged) {
      effect += " The module stores every occurrence as an entry of its own whatever the label; ";
      effect += old_->type() == FD::TYPE_MESSAGE
                    ? "protobuf's own readers merge repeated occurrences of a singular message "
                      "into one."
                    : "protobuf's own readers keep only the last occurrence of a singular field.";
    }
    if (required) {
      effect += new_->is_required()
                    ? " Entries of the field now carry the required flag; the module does not "
                      "insist on it, so no body is refused for lacking it."
                    : " Entries of the field no longer carry the required flag.";
      parties |= party_subscribers;
    }
    const char* kind = typeChanged                ? "type changed"
                       : (repetition || required) ? "label changed"
                                                  : "packed changed";
    add(kind, path_, before_, after_, effect, parties, verdictOrder(v));
  }

  void compareTypeNames(const FD* old_, const FD* new_, const std::string& path_) {
    const char* kind = nullptr;
    std::string before, after;
    // A map's entry type is named after its field: the field's rename says it all.
    if (old_->is_map() && new_->is_map()) return;
    if (old_->message_type() != nullptr && new_->message_type() != nullptr &&
        old_->message_type()->name() != new_->message_type()->name()) {
      kind = "message type renamed";
      before = old_->message_type()->full_name();
      after = new_->message_type()->full_name();
    } else if (old_->enum_type() != nullptr && new_->enum_type() != nullptr &&
               old_->enum_type()->name() != new_->enum_type()->name()) {
      kind = "enum type renamed";
      before = old_->enum_type()->full_name();
      after = new_->enum_type()->full_name();
    }
    if (kind == nullptr) return;
    add(kind, path_, before, after,
        "Nothing changes under this module: path hashes and the trace use field names, "
        "never type names.",
        0, Order::any);
  }

  void compareDefaults(const FD* old_, const FD* new_, const std::string& path_,
                       const std::string& before_, const std::string& after_) {
    const std::string was = defaultEntry(old_), now = defaultEntry(new_);
    if (was == now) return;
    const char* kind = was.empty()   ? "default added"
                       : now.empty() ? "default removed"
                                     : "default changed";
    add(kind, path_, before_ + (was.empty() ? "" : " [default = " + was + "]"),
        after_ + (now.empty() ? "" : " [default = " + now + "]"),
        "For every message that lacks the field, switched servers store " +
            (now.empty() ? std::string("no entry") : "the entry " + now) +
            " where servers not yet switched store " +
            (was.empty() ? std::string("none") : "the entry " + was) +
            ": subscribers see the value change with the server that parsed the message, "
            "whatever the publishers do.",
        party_subscribers, Order::coordinated);
  }

  void compareEnums(const gp::EnumDescriptor* old_, const gp::EnumDescriptor* new_,
                    const std::string& path_) {
    if (!_seenEnums.insert(std::make_pair(old_, new_)).second) return;
    std::map<int, std::pair<std::string, std::string>> byNumber;
    for (int i = 0; i < old_->value_count(); ++i)
      byNumber[old_->value(i)->number()].first = old_->value(i)->name();
    for (int i = 0; i < new_->value_count(); ++i)
      byNumber[new_->value(i)->number()].second = new_->value(i)->name();
    for (const auto& entry : byNumber) {
      const std::string& was = entry.second.first;
      const std::string& now = entry.second.second;
      const std::string number = std::to_string(entry.first);
      if (was == now) continue;
      const gp::EnumValueDescriptor* pMoved = was.empty() ? nullptr : new_->FindValueByName(was);
      if (pMoved != nullptr && pMoved->number() != entry.first) {
        add("enum value renumbered", path_, was + " = " + number,
            was + " = " + std::to_string(pMoved->number()),
            "The module stores whatever number arrives, but publishers and subscribers on "
            "different versions mean different values by the same number.",
            party_publishers | party_subscribers, Order::coordinated);
      } else if (was.empty()) {
        if (old_->FindValueByName(now) != nullptr) continue;  // the other end of a move
        add("enum value added", path_, "", now + " = " + number,
            "The module stores enum numbers as they arrive, declared or not, and the trace "
            "shows numbers: nothing changes on the servers. Subscribers that name values "
            "need the new one before publishers send it.",
            party_subscribers, Order::any);
      } else if (now.empty()) {
        add("enum value removed", path_, was + " = " + number, "",
            "The module stores the number as before when a publisher still sends it.", 0,
            Order::any);
      } else if (old_->FindValueByName(now) == nullptr) {
        add("enum value renamed", path_, was + " = " + number, now + " = " + number,
            "The module and its trace show enum numbers only: nothing changes.", 0, Order::any);
      }
    }
  }

  std::deque<Pending> _queue;
  typedef std::pair<const gp::Descriptor*, const gp::Descriptor*> TypePair;
  // Every path at which a pair of types is reached, the one it is compared at first.
  std::map<TypePair, std::vector<std::string>> _places;
  std::map<size_t, TypePair> _changeTypes;  // by change index
  std::set<std::pair<const gp::EnumDescriptor*, const gp::EnumDescriptor*>> _seenEnums;
  std::vector<Change> _changes;
};

}  // namespace

std::vector<Change> compareSchemas(const gp::Descriptor* old_, const gp::Descriptor* new_) {
  return Walk().run(old_, new_);
}

}  // namespace tarnpb
