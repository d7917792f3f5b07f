#include "module_fixture.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <stdexcept>

#include "host/module_driver.h"
#include "wire.h"

namespace tarn_test {

const tarn_host::ModuleDriver& driver() {
  // Never destroyed: the module stays loaded until the process ends.
  static const tarn_host::ModuleDriver* pDriver = [] {
    auto* p = new tarn_host::ModuleDriver();
    std::string error;
    if (!p->open(TARN_MODULE_PATH, &tarn_host::Logger::log, error)) {
      std::fprintf(stderr, "%s\n", error.c_str());
      std::abort();
    }
    return p;
  }();
  return *pDriver;
}

std::string dataDir() { return std::string(TARN_SOURCE_DIR) + "/tests/data"; }

std::string corpusDir() {
  std::string dir = std::string(TARN_SOURCE_DIR) + "/../shared/corpus/protobuf-v21.12";
  struct stat info;
  return ::stat(dir.c_str(), &info) == 0 ? dir : std::string();
}

tarn_message_type_context makeContext(const std::string& dir, const std::string& file,
                                      const std::string& type) {
  return driver().createContext({dir}, file, type);
}

tarn_message_type_context context(const std::string& file, const std::string& type,
                                  const std::string& dir) {
  // Never destroyed, so the contexts stay reachable for the leak checker.
  static auto* pContexts = new std::map<std::string, tarn_message_type_context>();
  auto& slot = (*pContexts)[dir + "|" + file + "|" + type];
  if (slot == nullptr) slot = makeContext(dir, file, type);
  EXPECT_NE(nullptr, slot) << file << " " << type;
  return slot;
}

int parse(tarn_message_type_context context, const std::string& body, tarn_host::ValueSet& set,
          tarn_message_xpath_find_set findSet) {
  return driver().parse(context, body.data(), body.size(), set.handle(), findSet);
}

uint32_t pathHash(std::initializer_list<std::string> names, uint32_t base) {
  uint32_t hash = base;
  bool first = true;
  for (const std::string& name : names) {
    if (!first) hash = tarn_message_xpath_hash_add_separator(hash);
    hash = tarn_message_xpath_hash_string(name.data(), name.size(), hash);
    first = false;
  }
  return hash;
}

Parsed::Parsed(tarn_message_type_context context_, const std::string& body_)
    : _bytes(new char[body_.size()]), _length(body_.size()) {
  if (!body_.empty()) std::memcpy(_bytes.get(), body_.data(), body_.size());
  _status = driver().parse(context_, _bytes.get(), _length, _set.handle());
}

bool Parsed::inside(const char* p_, size_t n_) const {
  return p_ >= data() && n_ <= _length && static_cast<size_t>(p_ - data()) <= _length - n_;
}

bool sameEntry(const entry_t& a, const entry_t& b, bool withParent) {
  return a.hash == b.hash && a.value_mask == b.value_mask && a.value_flags == b.value_flags &&
         a.type_hint == b.type_hint && a.l == b.l && a.raw_bytes == b.raw_bytes &&
         a.tag_bytes == b.tag_bytes && a.string_rep == b.string_rep &&
         a.raw_bytes_length == b.raw_bytes_length && a.tag_length == b.tag_length &&
         a.string_rep_length == b.string_rep_length && a.array == b.array && a.last == b.last &&
         a.array_count == b.array_count && (!withParent || a.parent == b.parent) &&
         a.first_child == b.first_child && a.next_sibling == b.next_sibling;
}

std::string value(const Parsed& p, const entry_t& e) {
  char text[48];
  if (e.value_mask == 18 && e.type_hint == 2) return "=" + std::to_string(e.l);
  if (e.value_mask == 9 && e.type_hint == 1) return std::snprintf(text, 48, "=d%.17g", e.d), text;
  if (e.value_mask != 0 || e.type_hint != 0) return "?" + std::to_string(e.value_mask);
  if (e.string_rep == nullptr) return "{}";
  const std::string bytes = wire::hex(tarn_test::text(e.string_rep, e.string_rep_length));
  return (p.inside(e.string_rep, e.string_rep_length) ? "s" : "S") + bytes;
}

namespace {

std::string describe(const Parsed& p, uint32_t i) {
  const entry_t& e = p[i];
  const std::string name = text(e.tag_bytes, e.tag_length);
  const uint32_t seed = e.parent == INV || e.parent >= p.size()
                            ? tarn_host::default_base_hash
                            : tarn_message_xpath_hash_add_separator(p[e.parent].hash);
  const bool outside = e.raw_bytes
                           ? !p.inside(e.raw_bytes, e.raw_bytes_length) ||
                                 (e.string_rep && !p.inside(e.string_rep, e.string_rep_length))
                           : e.raw_bytes_length != 0;
  return name + " " + value(p, e) +
         (e.value_flags ? " flags " + std::to_string(e.value_flags) : "") +
         (e.hash != tarn_message_xpath_hash_string(name.data(), name.size(), seed) ? " !hash"
                                                                                   : "") +
         (outside ? " !outside" : "");
}

std::string link(uint32_t i) { return i == INV ? std::string("-") : std::to_string(i); }

}  // namespace

std::string dump(const Parsed& p) {
  std::string out;
  for (uint32_t i = 0; i < p.size(); ++i) {
    const auto& e = p[i];
    out += describe(p, i) + " raw " +
           (e.raw_bytes
                ? std::to_string(p.offset(e.raw_bytes)) + "+" + std::to_string(e.raw_bytes_length)
                : "-") +
           " up " + link(e.parent) + " down " + link(e.first_child) + " next " +
           link(e.next_sibling) + "\n";
  }
  return out;
}

std::string tree(const Parsed& p) {
  std::string out;
  std::vector<bool> reached(p.size());
  std::function<void(uint32_t, uint32_t, size_t)> level = [&](uint32_t i, uint32_t up,
                                                              size_t depth) {
    for (; i != INV; i = p[i].next_sibling) {
      if (i >= p.size() || reached[i]) return void(out += "!link " + link(i) + "\n");
      reached[i] = true;
      out += std::string(2 * depth, ' ') + describe(p, i) + (p[i].raw_bytes ? "" : " default") +
             (p[i].parent != up ? " !parent" : "") + "\n";
      level(p[i].first_child, i, depth + 1);
    }
  };
  if (p.size() != 0) level(0, INV, 0);
  for (uint32_t i = 0; i < p.size(); ++i)
    if (!reached[i]) out += "!unreached " + link(i) + "\n";
  return out;
}

Traced trace(tarn_message_type_context ctx, const std::string& body, size_t capacity,
             const std::string& prefix) {
  const char sentinel = '\xA5';
  std::unique_ptr<char[]> data(new char[body.size()]);
  if (!body.empty()) std::memcpy(data.get(), body.data(), body.size());
  std::unique_ptr<char[]> out(new char[capacity]);
  std::memset(out.get(), sentinel, capacity);
  if (!prefix.empty()) std::memcpy(out.get(), prefix.data(), prefix.size());
  tarn_trace_output_buffer buffer = {out.get(), capacity, prefix.size()};
  Traced result{driver().trace(ctx, data.get(), body.size(), buffer), ""};
  EXPECT_TRUE(result.status == 0 || result.status == 255) << result.status;
  EXPECT_EQ(out.get(), buffer.output);
  EXPECT_EQ(capacity, buffer.capacity);
  EXPECT_LE(buffer.length, capacity);
  buffer.length = std::min(buffer.length, capacity);
  result.text.assign(out.get(), buffer.length);
  EXPECT_EQ(prefix, result.text.substr(0, prefix.size()));
  const size_t touched =
      std::string(out.get(), capacity).find_first_not_of(sentinel, buffer.length);
  EXPECT_EQ(std::string::npos, touched) << "written beyond length " << buffer.length;
  return result;
}

std::string runMerge(tarn_host::ValueSet& update_, tarn_host::ValueSet& stored_,
                     const std::string& prefix_, int* pReturned_) {
  const std::string canary(16, '\xCD');
  const uint64_t room = tarn_host::mergeRoom(update_.handle(), stored_.handle());
  std::string segment = prefix_ + std::string(room, '\xAB') + canary;
  tarn_message_segment output = {};
  output.data = &segment[0];
  output.byte_count = static_cast<uint32_t>(prefix_.size());
  const int returned = driver().merge(update_.handle(), stored_.handle(), output);
  if (pReturned_ != nullptr) *pReturned_ = returned;
  const size_t end = prefix_.size() + room;
  if (segment.compare(end, canary.size(), canary) != 0 ||
      segment.compare(0, prefix_.size(), prefix_) != 0 ||
      returned < static_cast<int>(prefix_.size()) || static_cast<size_t>(returned) > end ||
      output.byte_count != static_cast<uint32_t>(returned))
    return "!";
  return segment.substr(prefix_.size(), returned - prefix_.size());
}

TempDir::TempDir() {
  std::string pattern = (std::filesystem::temp_directory_path() / "tarn-test-XXXXXX").string();
  if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  _path = pattern;
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(_path, ignored);
}

std::string TempDir::write(const std::string& relative, const std::string& text) const {
  std::filesystem::path file = std::filesystem::path(_path) / relative;
  std::filesystem::create_directories(file.parent_path());
  std::ofstream(file) << text;
  return file.string();
}

std::string uniqueName(const std::string& stem) {
  static std::atomic<int> counter{0};
  return stem + "_" + std::to_string(::getpid()) + "_" + std::to_string(counter++);
}

}  // namespace tarn_test
