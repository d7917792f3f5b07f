#include "check_bodies.h"

#include <map>

#include "diagnose.h"
#include "schema.h"
#include "text_util.h"

namespace tarnpb {

namespace gp = google::protobuf;

namespace {

const size_t shown_bytes = 48;

// One body parsed by one version.
struct Parse {
  tarn_host::ValueSet set;
  int status = 0;
};

// An entry as the comparison sees it: where it sits, what it holds.
struct Seen {
  std::string name;  // the dotted path of names
  uint32_t hash = 0;
  std::string value;
  size_t order = 0;  // storage order, for showing the differences in body order
};

std::string valueText(const tarn_message_value_set_entry& e_) {
  std::string out;
  if (e_.value_mask == 18) {
    out = "int ";
    appendDecimal(out, static_cast<int64_t>(e_.l));
  } else if (e_.value_mask == 9) {
    out = "double ";
    appendDouble(out, e_.d);
  } else if (e_.string_rep != nullptr) {
    out = "string ";
    appendQuoted(out, e_.string_rep, e_.string_rep_length, shown_bytes);
  } else {
    out = "message";
  }
  if (e_.value_flags & 4) out += " (required)";
  return out;
}

// Every entry by a key both versions give the same field occurrence: a field
// read from the body by the offset of its bytes (and its place among the
// elements of a packed block), a default by its parent's key and its number.
std::map<std::string, Seen> entriesByPlace(const tarn_host::ValueSet& set_,
                                           const std::string& body_, const gp::Descriptor* root_) {
  std::map<std::string, Seen> out;
  std::vector<std::string> keys(set_.size()), names(set_.size());
  std::map<const char*, int> elements;
  for (uint32_t i = 0; i < set_.size(); ++i) {
    const tarn_message_value_set_entry& e = set_[i];
    const std::string name(e.tag_bytes, e.tag_length);
    const bool nested = e.parent < i;
    names[i] = nested ? names[e.parent] + "." + name : name;
    std::string key;
    if (e.raw_bytes != nullptr) {
      key = "at byte " + std::to_string(e.raw_bytes - body_.data());
      const int element = elements[e.raw_bytes]++;
      if (element > 0) key += " element " + std::to_string(element + 1);
    } else {
      const gp::FieldDescriptor* pField = Schema::fieldAt(root_, splitPath(names[i]));
      key = (nested ? keys[e.parent] + ", " : std::string()) + "default of field " +
            (pField != nullptr ? std::to_string(pField->number()) : name);
    }
    keys[i] = key;
    out[key] = {names[i], e.hash, valueText(e), i};
  }
  return out;
}

std::string parseText(const Parse& p_, const gp::Descriptor* root_, const std::string& body_) {
  const std::string entries =
      std::to_string(p_.set.size()) + (p_.set.size() == 1 ? " entry" : " entries");
  if (p_.status == TARN_SUCCESS) return "parsed, " + entries;
  return "refused (status " + std::to_string(p_.status) + ") after " + entries + "; " +
         diagnose(root_, body_).text();
}

std::string shownHash(const Seen& s_) {
  std::string out = s_.name + " ";
  appendHash(out, s_.hash);
  return out;
}

void compareEntries(const std::map<std::string, Seen>& old_,
                    const std::map<std::string, Seen>& new_, std::vector<BodyDifference>& out_) {
  std::map<size_t, BodyDifference> inOrder;  // by the old storage order, the new ones after
  for (const auto& o : old_) {
    auto n = new_.find(o.first);
    const std::string where = o.first + " (" + o.second.name + ")";
    if (n == new_.end()) {
      inOrder[o.second.order * 3] = {"entry", where, o.second.value, "none"};
      continue;
    }
    if (o.second.hash != n->second.hash)
      inOrder[o.second.order * 3 + 1] = {"hash", o.first, shownHash(o.second),
                                         shownHash(n->second)};
    if (o.second.value != n->second.value)
      inOrder[o.second.order * 3 + 2] = {"value", where, o.second.value, n->second.value};
  }
  for (auto& d : inOrder) out_.push_back(std::move(d.second));
  for (const auto& n : new_) {
    if (old_.count(n.first) == 0)
      out_.push_back({"entry", n.first + " (" + n.second.name + ")", "none", n.second.value});
  }
}

std::string shownBytes(const std::string& bytes_) {
  return std::to_string(bytes_.size()) +
         " bytes: " + hexBytes(bytes_.data(), bytes_.size(), shown_bytes);
}

class BodyRun {
 public:
  BodyRun(const CheckVersion& old_, const CheckVersion& new_) : _old(old_), _new(new_) {}

  BodyReport run(const SampleBody& body_, const SampleBody& stored_) {
    BodyReport report;
    report.name = body_.name;
    report.length = body_.bytes.size();
    auto& out = report.differences;
    Parse o, n;
    o.status = _old.pModule->parse(body_.bytes, o.set);
    n.status = _new.pModule->parse(body_.bytes, n.set);
    const std::string oldParse = parseText(o, _old.pRoot, body_.bytes);
    const std::string newParse = parseText(n, _new.pRoot, body_.bytes);
    if (o.status != TARN_SUCCESS || n.status != TARN_SUCCESS) {
      if (oldParse != newParse) out.push_back({"parse", "", oldParse, newParse});
    } else {
      compareEntries(entriesByPlace(o.set, body_.bytes, _old.pRoot),
                     entriesByPlace(n.set, body_.bytes, _new.pRoot), out);
    }
    const std::string oldTrace = _old.pModule->trace(body_.bytes);
    const std::string newTrace = _new.pModule->trace(body_.bytes);
    if (oldTrace != newTrace)
      out.push_back({"trace", "", escapeBinary(oldTrace), escapeBinary(newTrace)});
    compareMerges(body_, stored_, out);
    return report;
  }

 private:
  // Both bodies parsed by one version; false when it refuses either.
  static bool parseBoth(const CheckVersion& stored_, const CheckVersion& update_,
                        const std::string& storedBody_, const std::string& updateBody_, Parse& s_,
                        Parse& u_) {
    s_.status = stored_.pModule->parse(storedBody_, s_.set);
    u_.status = update_.pModule->parse(updateBody_, u_.set);
    return s_.status == TARN_SUCCESS && u_.status == TARN_SUCCESS;
  }

  void compareMerges(const SampleBody& body_, const SampleBody& stored_,
                     std::vector<BodyDifference>& out_) {
    const std::string where = "into " + stored_.name;
    Parse os, ou, ns, nu, xs, xu;
    if (!parseBoth(_old, _old, stored_.bytes, body_.bytes, os, ou)) return;
    const std::string oldMerge = _old.pModule->merge(ou.set, os.set);
    if (parseBoth(_new, _new, stored_.bytes, body_.bytes, ns, nu)) {
      const std::string newMerge = _new.pModule->merge(nu.set, ns.set);
      if (newMerge != oldMerge)
        out_.push_back({"merge", where, shownBytes(oldMerge), shownBytes(newMerge)});
    }
    // Right after a server switches: the stored message's value set is the
    // old version's, the update's the new one's.
    if (!parseBoth(_old, _new, stored_.bytes, body_.bytes, xs, xu)) return;
    const std::string across = _new.pModule->merge(xu.set, xs.set);
    if (across != oldMerge)
      out_.push_back({"merge across the switch", where, shownBytes(oldMerge), shownBytes(across)});
  }

  CheckVersion _old, _new;
};

}  // namespace

std::vector<BodyReport> compareBodies(const std::vector<SampleBody>& bodies_,
                                      const CheckVersion& old_, const CheckVersion& new_) {
  std::vector<BodyReport> reports;
  BodyRun run(old_, new_);
  for (size_t i = 0; i < bodies_.size(); ++i)
    reports.push_back(run.run(bodies_[i], bodies_[i == 0 ? 0 : i - 1]));
  return reports;
}

}  // namespace tarnpb
