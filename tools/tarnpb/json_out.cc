#include "json_out.h"

#include <fmt/format.h>

#include <cmath>

#include "text_util.h"

namespace tarnpb {

namespace {

const char hex_digits[] = "0123456789abcdef";

// The length of the well-formed UTF-8 text at the start of the bytes: all of
// them for text the writer can take as it is.
size_t utf8Prefix(const char* pText_, size_t length_) {
  const auto* p = reinterpret_cast<const unsigned char*>(pText_);
  size_t i = 0;
  while (i < length_) {
    if (p[i] < 0x80) {
      ++i;
    } else if (const size_t n = utf8SequenceLength(p + i, length_ - i)) {
      i += n;
    } else {
      break;
    }
  }
  return i;
}

template <typename T>
void writeNumber(JsonOut& out_, JsonWriter& writer_, T value_) {
  if (std::isnan(value_)) {
    out_.string("nan", 3);
  } else if (std::isinf(value_)) {
    out_.string(value_ < 0 ? "-inf" : "inf");
  } else if (value_ == 0 && std::signbit(value_)) {
    // Readers take -0 for the integer 0: the point keeps the sign.
    writer_.beginValue(rapidjson::kNumberType).write("-0.0", 4);
    writer_.endValue();
  } else {
    // {fmt}'s plain form is the shortest that reads back as the same T.
    char text[48];
    char* const pEnd = fmt::format_to(text, "{}", value_);
    writer_.beginValue(rapidjson::kNumberType).write(text, static_cast<size_t>(pEnd - text));
    writer_.endValue();
  }
}

}  // namespace

void JsonStream::write(const char* pText_, size_t length_) {
  const size_t room = static_cast<size_t>(_buffer + sizeof _buffer - _p);
  if (length_ <= room) {
    std::memcpy(_p, pText_, length_);
    _p += length_;
    return;
  }
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

void JsonOut::number(double value_) { writeNumber(*this, _writer, value_); }
void JsonOut::number(float value_) { writeNumber(*this, _writer, value_); }

bool JsonOut::string(const char* pText_, size_t length_) {
  size_t good = utf8Prefix(pText_, length_);
  if (good == length_) {
    _writer.String(pText_, static_cast<rapidjson::SizeType>(length_));
    return true;
  }
  _scratch.assign(pText_, good);
  while (good < length_) {
    _scratch += "\xEF\xBF\xBD";  // U+FFFD REPLACEMENT CHARACTER for the stray byte
    ++good;
    const size_t more = utf8Prefix(pText_ + good, length_ - good);
    _scratch.append(pText_ + good, more);
    good += more;
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
  key(key_);
  if (!string(pData_, length_)) {
    key(hexKey_);
    hex(pData_, length_);
  }
}

void JsonOut::hex(const char* pData_, size_t length_) {
  JsonStream& stream = _writer.beginValue(rapidjson::kStringType);
  stream.Put('"');
  char text[2 * 64];
  for (size_t done = 0; done < length_;) {
    const size_t count = length_ - done < 64 ? length_ - done : 64;
    for (size_t i = 0; i < count; ++i) {
      const auto c = static_cast<unsigned char>(pData_[done + i]);
      text[2 * i] = hex_digits[c >> 4];
      text[2 * i + 1] = hex_digits[c & 15];
    }
    stream.write(text, 2 * count);
    done += count;
  }
  stream.Put('"');
  _writer.endValue();
}

}  // namespace tarnpb
