#include "shapes.h"

#include <cstdint>

#include "shapes.pb.h"

namespace tarn_bench {
namespace {

// splitmix64: a fixed seed gives the same bodies on every run and machine.
class Random {
 public:
  explicit Random(uint64_t seed_) : _state(seed_) {}

  uint64_t next() {
    uint64_t z = (_state += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
  }
  // Uniform in [0, bound_).
  uint64_t below(uint64_t bound_) { return next() % bound_; }
  // Magnitudes spread over every varint length, as real counters and ids are.
  uint64_t spread() { return next() >> below(64); }
  double real(double low_, double high_) {
    return low_ + (high_ - low_) * static_cast<double>(next() >> 11) / 9007199254740992.0;
  }
  std::string text(size_t length_) {
    static const char letters[] = "abcdefghijklmnopqrstuvwxyz ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    std::string out(length_, ' ');
    for (char& c : out) c = letters[below(sizeof letters - 1)];
    return out;
  }
  std::string bytes(size_t length_) {
    std::string out(length_, '\0');
    for (char& c : out) c = static_cast<char>(next());
    return out;
  }

 private:
  uint64_t _state;
};

Side side(Random& rng_) { return static_cast<Side>(rng_.below(3)); }

void fillReading(Reading& r_, Random& rng_) {
  r_.set_i32(static_cast<int32_t>(rng_.spread()));
  r_.set_i64(static_cast<int64_t>(rng_.spread()));
  r_.set_u32(static_cast<uint32_t>(rng_.spread()));
  r_.set_u64(rng_.spread());
  r_.set_s32(static_cast<int32_t>(rng_.spread()) - (1 << 20));
  r_.set_s64(static_cast<int64_t>(rng_.spread()) / 2 - (int64_t{1} << 40));
  r_.set_f32(static_cast<uint32_t>(rng_.next()));
  r_.set_f64(rng_.next());
  r_.set_sf32(static_cast<int32_t>(rng_.next()));
  r_.set_sf64(static_cast<int64_t>(rng_.next()));
  r_.set_fl(static_cast<float>(rng_.real(-1e3, 1e3)));
  r_.set_db(rng_.real(-1e6, 1e6));
  r_.set_flag(rng_.below(2) == 1);
  r_.set_side(side(rng_));
}

void scalars(Shape& s_) {
  Random rng(1);
  ScalarHeavy m;
  m.set_id(rng.next());
  m.set_version(3);
  m.set_created(1700000000123456789);
  m.set_source(42);
  m.set_offset(-17);
  m.set_drift(-123456789);
  m.set_crc(0xDEADBEEF);
  m.set_key(rng.next());
  m.set_gain(0.75f);
  m.set_side(BUY);
  for (int i = 0; i < 80; ++i) fillReading(*m.add_readings(), rng);
  for (int i = 0; i < 64; ++i) m.add_marks(static_cast<int64_t>(rng.spread()));
  m.SerializeToString(&s_.body);

  ScalarHeavy u;
  u.set_version(4);
  u.set_offset(-18);
  u.set_scale(0.5);
  for (int i = 0; i < 4; ++i) fillReading(*u.add_readings(), rng);
  u.SerializeToString(&s_.update);
}

void strings(Shape& s_) {
  Random rng(2);
  StringHeavy m;
  m.set_title(rng.text(80));
  m.set_author(rng.text(24));
  m.set_body(rng.text(4096));
  for (int i = 0; i < 48; ++i) m.add_tags(rng.text(4 + rng.below(16)));
  for (int i = 0; i < 10; ++i) m.add_blobs(rng.bytes(300 + rng.below(400)));
  for (int i = 0; i < 60; ++i) {
    Attribute* a = m.add_attributes();
    a->set_key(rng.text(6 + rng.below(10)));
    a->set_value(rng.text(10 + rng.below(60)));
  }
  m.SerializeToString(&s_.body);

  StringHeavy u;
  u.set_title(rng.text(90));
  for (int i = 0; i < 5; ++i) u.add_tags(rng.text(8));
  u.set_locale("de");
  u.SerializeToString(&s_.update);
}

// A spine of `depth_` nodes; every third node also carries two small leaves.
void fillSpine(Node& n_, int depth_, int level_, Random& rng_) {
  n_.set_id(static_cast<uint32_t>(level_ * 100));
  n_.set_name(rng_.text(8 + rng_.below(8)));
  n_.set_weight(rng_.real(0, 1));
  n_.set_delta(static_cast<int64_t>(rng_.spread()) / 2 - (int64_t{1} << 30));
  if (level_ % 3 == 0) {
    for (int i = 0; i < 2; ++i) {
      Node* leaf = n_.add_children();
      leaf->set_id(static_cast<uint32_t>(level_ * 100 + i + 1));
      leaf->set_name(rng_.text(6));
      leaf->set_weight(rng_.real(0, 1));
    }
  }
  if (level_ + 1 < depth_) fillSpine(*n_.add_children(), depth_, level_ + 1, rng_);
}

void deep(Shape& s_) {
  Random rng(3);
  DeepTree m;
  m.set_label("spine");
  fillSpine(*m.mutable_root(), 20, 0, rng);
  m.set_depth(20);
  m.SerializeToString(&s_.body);

  // Touches one field at each of the first ten levels of the spine, so the
  // merge recurses ten levels down.
  DeepTree u;
  Node* n = u.mutable_root();
  for (int level = 0; level < 10; ++level) {
    n->set_weight(rng.real(0, 1));
    n = n->add_children();
  }
  n->set_name("changed");
  u.SerializeToString(&s_.update);
}

void packed(Shape& s_) {
  Random rng(4);
  PackedArrays m;
  const int count = 512;
  for (int i = 0; i < count; ++i) {
    m.add_i32(static_cast<int32_t>(rng.spread() >> 32));
    m.add_s64(static_cast<int64_t>(rng.spread()) / 2 - (int64_t{1} << 24));
    m.add_u64(rng.spread());
    m.add_db(rng.real(-100, 100));
    m.add_fl(static_cast<float>(rng.real(0, 10)));
    m.add_f32(static_cast<uint32_t>(rng.next()));
    m.add_flags(rng.below(2) == 1);
    m.add_sides(side(rng));
  }
  m.SerializeToString(&s_.body);

  PackedArrays u;
  for (int i = 0; i < 64; ++i) {
    u.add_db(rng.real(-100, 100));
    u.add_sides(side(rng));
  }
  u.SerializeToString(&s_.update);
}

void fillLevel(Level& l_, double price_, Random& rng_) {
  l_.set_price(price_);
  l_.set_quantity(static_cast<int64_t>(100 * (1 + rng_.below(500))));
  l_.set_orders(static_cast<uint32_t>(1 + rng_.below(40)));
}

void market(Shape& s_) {
  Random rng(5);
  MarketSnapshot m;
  m.set_symbol("XAUUSD.SPOT");
  m.set_venue("XLON");
  m.set_sequence(918273645);
  m.set_timestamp_ns(1700000000123456789ull);
  m.set_last_price(1987.25);
  m.set_last_quantity(300);
  for (int i = 0; i < 20; ++i) fillLevel(*m.add_bids(), 1987.20 - 0.05 * i, rng);
  for (int i = 0; i < 20; ++i) fillLevel(*m.add_asks(), 1987.30 + 0.05 * i, rng);
  for (int i = 0; i < 40; ++i) {
    Trade* t = m.add_trades();
    t->set_timestamp_ns(1700000000000000000ull + rng.below(1000000000));
    t->set_price(rng.real(1980, 1990));
    t->set_quantity(static_cast<int64_t>(100 * (1 + rng.below(50))));
    t->set_aggressor(rng.below(2) ? BUY : SELL);
    t->set_trade_id("T" + std::to_string(1000000 + i));
  }
  SessionStats* st = m.mutable_stats();
  st->set_open(1975.5);
  st->set_high(1991.0);
  st->set_low(1970.25);
  st->set_close(1987.25);
  st->set_volume(1234567);
  st->set_vwap(1983.4);
  m.SerializeToString(&s_.body);

  // A tick: new sequence, last trade, the top five bids and the session stats.
  MarketSnapshot u;
  u.set_sequence(918273646);
  u.set_timestamp_ns(1700000000223456789ull);
  u.set_last_price(1987.30);
  u.set_last_quantity(200);
  for (int i = 0; i < 5; ++i) fillLevel(*u.add_bids(), 1987.25 - 0.05 * i, rng);
  u.mutable_stats()->set_close(1987.30);
  u.mutable_stats()->set_volume(1234767);
  u.SerializeToString(&s_.update);
}

template <typename M>
Shape make(const char* name_, void (*fill_)(Shape&)) {
  Shape s;
  s.name = name_;
  s.typeName = M::descriptor()->full_name();
  s.generated.reset(new M());
  fill_(s);
  return s;
}

}  // namespace

std::vector<Shape> makeShapes() {
  std::vector<Shape> out;
  out.push_back(make<ScalarHeavy>("scalars", scalars));
  out.push_back(make<StringHeavy>("strings", strings));
  out.push_back(make<DeepTree>("deep", deep));
  out.push_back(make<PackedArrays>("packed", packed));
  out.push_back(make<MarketSnapshot>("market", market));
  return out;
}

}  // namespace tarn_bench
