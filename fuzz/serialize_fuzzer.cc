// Serialization of a value list that keeps the host's list rules: depths come
// from the input, a document value is always followed by a deeper member, and
// the depth never falls below the list's first level. The module's output is
// compared byte for byte with a plain model of nesting with four-byte length
// slots, and must fit the room that compute_serialize_size reports plus four
// bytes per document (its raw length counts the whole nested field, of which
// only the tag is written), unless the estimate already counts them. Some
// inputs build lists that break the rules; those must be written the same way,
// closing only what is open, or refused whole when a document has no tag.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "fuzz_support.h"
#include "tests/wire.h"

namespace {

const char sentinel = static_cast<char>(0x5A);

struct Item {
  uint32_t depth;
  bool document;
  std::string raw;  // for a document: its tag varint, then bytes that are never written
  size_t tagLength;
};

std::string model(const std::vector<Item>& items_) {
  std::string out;
  std::vector<size_t> slots;
  auto close = [&] {
    const size_t slot = slots.back();
    slots.pop_back();
    out.replace(slot, 4, wire::paddedVarint(out.size() - slot - 4, 4));
  };
  uint32_t current = 0;
  for (const Item& item : items_) {
    // A list that falls further than it opened closes only what is open.
    for (uint32_t fall = current > item.depth ? current - item.depth : 0; fall && !slots.empty();
         --fall)
      close();
    current = item.depth;
    if (item.document) {
      if (item.tagLength == 0) return std::string();  // no complete tag: nothing is framed
      out.append(item.raw, 0, item.tagLength);
      slots.push_back(out.size());
      out.append(4, '\0');
    } else {
      out += item.raw;
    }
  }
  while (!slots.empty()) close();
  return out;
}

Item document(FuzzedDataProvider& input_, uint32_t depth_) {
  Item item{depth_, true, {}, 0};
  const int continuation = input_.ConsumeIntegralInRange<int>(0, 4);
  for (int i = 0; i < continuation; ++i)
    item.raw.push_back(static_cast<char>(input_.ConsumeIntegral<uint8_t>() | 0x80));
  item.raw.push_back(static_cast<char>(input_.ConsumeIntegral<uint8_t>() & 0x7F));
  item.tagLength = item.raw.size();
  item.raw += input_.ConsumeRandomLengthString(8);
  return item;
}

// A value of a list that need not keep the rules: any depth, and a document
// whose bytes may hold no complete tag at all.
Item anyValue(FuzzedDataProvider& input_) {
  const uint8_t op = input_.ConsumeIntegral<uint8_t>();
  Item item;
  item.depth = op >> 5 == 7 ? 0xFFFFFFFFu : (op >> 1) % 8;
  item.document = (op & 1) != 0;
  item.raw = input_.ConsumeRandomLengthString(item.document ? 6 : 24);
  // The tag ends at the first byte without the continuation bit; 0: no tag.
  size_t n = 0;
  while (n < item.raw.size() && (static_cast<unsigned char>(item.raw[n]) & 0x80)) ++n;
  item.tagLength = n < item.raw.size() ? n + 1 : 0;
  return item;
}

Item member(FuzzedDataProvider& input_, uint32_t depth_) {
  std::string raw = input_.ConsumeRandomLengthString(48);
  return Item{depth_, false, raw, 0};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  const uint8_t flags = input.ConsumeIntegral<uint8_t>();
  const uint32_t bodyType = (flags & 0x80) ? (flags & 7) : 5;
  const uint32_t base = 1 + flags % 3;
  const size_t offset = input.ConsumeIntegralInRange<size_t>(0, 8);
  const uint32_t used = input.ConsumeIntegralInRange<uint32_t>(0, 8);
  const uint32_t dataCount = input.ConsumeIntegralInRange<uint32_t>(0, 8);

  // Lists the host builds keep the nesting rules; with bit 6 set the list is
  // arbitrary, and must still be written inside the room or refused whole.
  const bool ruleFree = (flags & 0x40) != 0;
  std::vector<Item> items;
  uint32_t open = 0;
  size_t documents = 0;
  while (ruleFree && input.remaining_bytes() > 0 && items.size() < 256) {
    items.push_back(anyValue(input));
    documents += items.back().document;
  }
  while (input.remaining_bytes() > 0 && items.size() < 256) {
    const uint8_t op = input.ConsumeIntegral<uint8_t>();
    const bool afterDocument = !items.empty() && items.back().document;
    if (!afterDocument && open > 0) open -= (op >> 4) % (open + 1);
    if (op & 1) {
      items.push_back(document(input, base + open));
      ++open;
      ++documents;
    } else {
      items.push_back(member(input, base + open));
    }
  }
  if (!items.empty() && items.back().document) items.push_back(Item{base + open, false, "", 0});

  // Each value's bytes in a heap block of their exact size, so a read past
  // raw_bytes_length is caught.
  std::vector<std::unique_ptr<char[]>> blocks;
  std::vector<tarn_message_value> values(items.size());
  size_t rawTotal = 0;
  for (size_t i = 0; i < items.size(); ++i) {
    blocks.emplace_back(new char[items[i].raw.size()]);
    std::memcpy(blocks.back().get(), items[i].raw.data(), items[i].raw.size());
    std::memset(&values[i], 0, sizeof values[i]);
    values[i].depth = items[i].depth;
    values[i].xpath_value.type_hint = items[i].document ? tarn_message_xpath_value_type_document
                                                        : tarn_message_xpath_value_type_int;
    values[i].xpath_value.raw_bytes = blocks.back().get();
    values[i].xpath_value.raw_bytes_length = items[i].raw.size();
    rawTotal += items[i].raw.size();
  }
  tarn_message_value_list list = {values.size(), values.data()};

  tarn_output_message_data request;
  std::memset(&request, 0, sizeof request);
  request.body_type = bodyType;
  request.value_list = &list;
  request.message.byte_offset = offset;
  request.message.byte_count = used;
  request.data.byte_count = dataCount;

  const int estimate = tarn_fuzz::api().compute_serialize_size(&request);
  if (bodyType != 5) {
    tarn_fuzz::check(estimate == 0, "size for another body type");
    tarn_fuzz::check(tarn_fuzz::api().serialize_message(&request) == TARN_FAILURE,
                     "serialized another body type");
    tarn_fuzz::check(request.message.byte_count == used, "byte count moved for another body type");
    return 0;
  }
  // The estimate is the segments' counts and every raw length; it may already
  // hold the four-byte length slot of each document, else the host adds them.
  const size_t counted = used + dataCount + rawTotal;
  const bool slotsCounted = static_cast<size_t>(estimate) == counted + 4 * documents;
  tarn_fuzz::check(estimate >= 0 && (static_cast<size_t>(estimate) == counted || slotsCounted),
                   "size estimate",
                   std::to_string(estimate) + " for " + std::to_string(counted) + " and " +
                       std::to_string(documents) + " documents");

  const size_t room = offset + estimate + (slotsCounted ? 0 : 4 * documents);
  std::vector<char> segment(room, sentinel);
  request.message.data = segment.data();
  tarn_fuzz::check(tarn_fuzz::api().serialize_message(&request) == TARN_SUCCESS,
                   "serialize failed");

  const std::string expected = model(items);
  const size_t written = request.message.byte_count - used;
  tarn_fuzz::check(request.message.byte_count >= used && written == expected.size(),
                   "serialized length",
                   std::to_string(written) + " vs " + std::to_string(expected.size()));
  tarn_fuzz::check(offset + used + written <= room, "serialized past the estimated room");
  tarn_fuzz::check(
      written == 0 || std::memcmp(segment.data() + offset + used, expected.data(), written) == 0,
      "serialized bytes differ from the nesting model");
  for (size_t i = 0; i < offset + used; ++i)
    tarn_fuzz::check(segment[i] == sentinel, "serialize wrote before its start");
  // A refused list may leave bytes behind its count; they are not part of the message.
  const bool refused = ruleFree && expected.empty();
  for (size_t i = offset + used + written; i < room && !refused; ++i)
    tarn_fuzz::check(segment[i] == sentinel, "serialize wrote past its count");
  return 0;
}
