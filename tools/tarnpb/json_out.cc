#include "json_out.h"

#include <fmt/format.h>

#include <cmath>
#include <cstring>

#include "text_util.h"

namespace tarnpb {

namespace {

// What a look at text finds: where its well-formed UTF-8 ends (at its end,
// or at a stray byte), and whether any character before that needs an escape.
struct TextScan {
  size_t good = 0;
  bool plain = true;  // no quote, backslash or control byte
};

// What each byte asks of a string: nothing, an escape, or a look at the
// UTF-8 sequence it starts.
enum : unsigned char { byte_plain, byte_escaped, byte_sequence };

struct ByteTable {
  unsigned char kind[256];
  constexpr ByteTable() : kind() {
    for (int c = 0; c < 256; ++c)
      kind[c] = c < 0x20 || c == '"' || c == '\\' ? byte_escaped
                : c >= 0x80                       ? byte_sequence
                                                  : byte_plain;
  }
};
constexpr ByteTable byte_table;

// Whether no byte of the word is a control byte, a quote, a backslash or
// above 0x7F. (x - n) & ~x has a byte's high bit set for some byte when some
// byte of x is below n; a byte equal to c is one of x ^ c below 1.
bool plainWord(uint64_t word_) {
  const uint64_t ones = 0x0101010101010101, highs = 0x8080808080808080;
  const auto below = [&](uint64_t x_, uint64_t n_) { return (x_ - ones * n_) & ~x_; };
  return ((below(word_, 0x20) | below(word_ ^ (ones * '"'), 1) | below(word_ ^ (ones * '\\'), 1) |
           word_) &
          highs) == 0;
}

TextScan scanText(const char* pText_, size_t length_) {
  const auto* p = reinterpret_cast<const unsigned char*>(pText_);
  TextScan scan;
  size_t i = 0;
  while (i < length_) {
    // Eight bytes at a time while they are plain ASCII.
    for (uint64_t word; length_ - i >= 8; i += 8) {
      std::memcpy(&word, p + i, 8);
      if (!plainWord(word)) break;
    }
    if (i == length_) break;
    const unsigned char kind = byte_table.kind[p[i]];
    if (kind == byte_plain) {
      ++i;
    } else if (kind == byte_escaped) {
      scan.plain = false;
      ++i;
    } else if (const size_t n = utf8SequenceLength(p + i, length_ - i)) {
      i += n;
    } else {
      break;
    }
  }
  scan.good = i;
  return scan;
}

}  // namespace

void JsonStream::_writeLong(const char* pText_, size_t length_) {
  Flush();
  if (length_ >= sizeof _buffer) {
    std::fwrite(pText_, 1, length_, _pOut);
  } else {
    std::memcpy(_p, pText_, length_);
    _p += length_;
  }
}

void JsonStream::Flush() {
  std::fwrite(_buffer, 1, static_cast<size_t>(_p - _buffer), _pOut);
  _p = _buffer;
}

JsonOut::~JsonOut() { _stream.Put('\n'); }

// RapidJSON 1.1's stack adds the size of its first push to a null pointer,
// which is undefined in C++ though harmless on every compiler we build with;
// the sanitizers stop there. The writer pushes only when an object or array
// begins, so these two are the only places that run it, and this file is
// built without that one check (tools/CMakeLists.txt).
void JsonOut::beginObject() { _writer.StartObject(); }
void JsonOut::beginArray() { _writer.StartArray(); }

template <typename T>
void JsonOut::_floating(T value_) {
  if (std::isnan(value_)) {
    string("nan");
  } else if (std::isinf(value_)) {
    string(value_ < 0 ? "-inf" : "inf");
  } else if (value_ == 0 && std::signbit(value_)) {
    // Readers take -0 for the integer 0: the point keeps the sign.
    _ready("-0.0", 4, rapidjson::kNumberType);
  } else {
    // {fmt}'s plain form is the shortest that reads back as the same T.
    char text[48];
    const char* const pEnd = fmt::format_to(text, "{}", value_);
    _ready(text, static_cast<size_t>(pEnd - text), rapidjson::kNumberType);
  }
}

void JsonOut::number(double value_) { _floating(value_); }
void JsonOut::number(float value_) { _floating(value_); }

bool JsonOut::string(const char* pText_, size_t length_) {
  const TextScan scan = scanText(pText_, length_);
  if (scan.good == length_) {
    if (scan.plain) {
      // Nothing to escape: in one piece.
      _writer.beginValue(rapidjson::kStringType).writeQuoted(pText_, length_);
      _writer.endValue();
    } else {
      _writer.String(pText_, static_cast<rapidjson::SizeType>(length_));
    }
    return true;
  }
  _scratch.assign(pText_, scan.good);
  for (size_t at = scan.good; at < length_;) {
    _scratch += "\xEF\xBF\xBD";  // U+FFFD REPLACEMENT CHARACTER for the stray byte
    ++at;
    const size_t more = scanText(pText_ + at, length_ - at).good;
    _scratch.append(pText_ + at, more);
    at += more;
  }
  _writer.String(_scratch.data(), static_cast<rapidjson::SizeType>(_scratch.size()));
  return false;
}

void JsonOut::strings(const std::vector<std::string>& values_) {
  beginArray();
  for (const auto& v : values_) string(v);
  endArray();
}

void JsonOut::bytes(const char* key_, const char* hexKey_, const char* pData_, size_t length_) {
  _key(key_, std::strlen(key_));
  if (!string(pData_, length_)) _key(hexKey_, std::strlen(hexKey_)).hex(pData_, length_);
}

void JsonOut::hex(const char* pData_, size_t length_) {
  JsonStream& stream = _writer.beginValue(rapidjson::kStringType);
  stream.Put('"');
  char text[2 * 64];
  for (size_t done = 0; done < length_;) {
    const size_t count = length_ - done < 64 ? length_ - done : 64;
    stream.write(text, static_cast<size_t>(writeHexCompact(text, pData_ + done, count) - text));
    done += count;
  }
  stream.Put('"');
  _writer.endValue();
}

}  // namespace tarnpb
