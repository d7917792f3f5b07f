// The delta-publish merge on value sets built by hand: byte-exact outputs for
// the merge rules, the output segment's accounting, and the update set cleared.
#include <gtest/gtest.h>

#include "host/merge_bound.h"
#include "module_fixture.h"
#include "value_set_builder.h"
#include "wire.h"

namespace {

using tarn_test::Shape;
using wire::Body;
using wire::fromHex;
using wire::hex;

struct MergeCase {
  const char* name;
  std::string update;
  std::string stored;
  Shape shape;
  std::string expected;
};

std::string big(size_t n) { return std::string(n, 'q'); }

std::vector<MergeCase> mergeCases() {
  const Shape flat;
  const Shape nested3{{3}, {}, {}};
  const Shape nested35{{3, 5}, {}, {}};
  return {
      {"UpdateFieldReplacesAndStoredFieldFollows", Body().str(1, "a"),
       Body().str(1, "b").varint(2, 7), flat, Body().str(1, "a").varint(2, 7)},
      {"UpdateFieldsComeFirst", Body().varint(2, 7), Body().str(1, "b"), flat,
       Body().varint(2, 7).str(1, "b")},
      {"NestedMessagesMergeUnderTheStoredTag", fromHex("1A 02 08 05"),
       fromHex("1A 04 08 04 10 06 22 01 78"), nested3, fromHex("1A 04 08 05 10 06 22 01 78")},
      {"EmptyMergedBodyIsTagAndZero", fromHex("1A 00"), fromHex("1A 00"),
       Shape{{3}, {}, {{3, {1}}}}, fromHex("1A 00")},
      // Inputs of 5 + 206 bytes guess a two-byte prefix; the body is 3 bytes.
      {"ShorterPrefixMovesTheBodyBack", Body().msg(3, Body().str(1, "x")),
       Body().msg(3, Body().str(1, big(200))), nested3, fromHex("1A 03 0A 01 78")},
      // Each update occurrence of 5 takes in the stored 100-byte field 2: the
      // body (214 bytes) outgrows the one-byte guess made from 10 + 106 input bytes.
      {"LongerPrefixMovesTheBodyForward",
       Body().msg(3, Body().msg(5, Body().varint(1, 1)).msg(5, Body().varint(1, 2))),
       Body().msg(3, Body().msg(5, Body().str(2, big(100)))), nested35,
       Body().msg(3, Body()
                         .msg(5, Body().varint(1, 1).str(2, big(100)))
                         .msg(5, Body().varint(1, 2).str(2, big(100))))},
      {"UpdateEntryWithoutBytesKeepsTheStoredField", Body().varint(1, 1), Body().varint(2, 9),
       Shape{{}, {}, {{0, {2}}}}, Body().varint(1, 1).varint(2, 9)},
      {"FieldsNewToTheStoredMessage", Body().varint(4, 1).str(5, "n"),
       Body().varint(1, 2).varint(2, 3), flat,
       Body().varint(4, 1).str(5, "n").varint(1, 2).varint(2, 3)},
      {"RepeatedFieldIsReplacedWhole", Body().varint(2, 1).varint(2, 2),
       Body().varint(2, 7).varint(1, 0).varint(2, 8).varint(2, 9), flat,
       Body().varint(2, 1).varint(2, 2).varint(1, 0)},
      {"PackedFieldIsWrittenOnce", Body().str(4, fromHex("01 02 03")),
       Body().str(4, fromHex("09")).varint(1, 5), Shape{{}, {4}, {}},
       Body().str(4, fromHex("01 02 03")).varint(1, 5)},
      {"StoredPackedFieldIsCopiedOnce", Body().varint(1, 5), Body().str(4, fromHex("07 08 09 0A")),
       Shape{{}, {4}, {}}, Body().varint(1, 5).str(4, fromHex("07 08 09 0A"))},
      {"TwoPackedBlocksOfOneFieldStayTwo", Body().str(4, fromHex("01")).str(4, fromHex("02 03")),
       Body(), Shape{{}, {4}, {}}, Body().str(4, fromHex("01")).str(4, fromHex("02 03"))},
      {"RepeatedNestedMergesAgainstTheFirstStoredOccurrence",
       Body().msg(5, Body().varint(1, 1)).msg(5, Body().varint(1, 2)),
       Body().msg(5, Body().varint(1, 7).varint(2, 8)).msg(5, Body().varint(2, 9)),
       Shape{{5}, {}, {}},
       Body().msg(5, Body().varint(1, 1).varint(2, 8)).msg(5, Body().varint(1, 2).varint(2, 8))},
      {"NestedWithoutChildrenIsReplacedWhole", Body().msg(3, Body().varint(1, 5)),
       Body().msg(3, Body()).varint(2, 1), nested3,
       Body().msg(3, Body().varint(1, 5)).varint(2, 1)},
      {"EmptyUpdateMessageIsTheStoredMessage", "", Body().varint(1, 1).msg(3, Body().varint(1, 2)),
       nested3, Body().varint(1, 1).msg(3, Body().varint(1, 2))},
      {"EmptyStoredMessageIsTheUpdateMessage", Body().varint(1, 1).msg(3, Body().varint(1, 2)), "",
       nested3, Body().varint(1, 1).msg(3, Body().varint(1, 2))},
      {"BothEmpty", "", "", flat, ""},
      {"ThreeLevelsDeep", Body().msg(3, Body().msg(5, Body().varint(1, 9))),
       Body().msg(3, Body().varint(2, 4).msg(5, Body().varint(1, 1).varint(2, 2))), nested35,
       Body().msg(3, Body().msg(5, Body().varint(1, 9).varint(2, 2)).varint(2, 4))},
  };
}

void PrintTo(const MergeCase& c, std::ostream* os) { *os << c.name; }

class MergeExamples : public ::testing::TestWithParam<MergeCase> {};

TEST_P(MergeExamples, WritesExactBytesInsideTheHostsRoom) {
  const MergeCase& c = GetParam();
  tarn_host::ValueSet update, stored;
  tarn_test::SetBuilder updateBuilder(update);
  updateBuilder.fill(c.update, c.shape);
  tarn_test::SetBuilder storedBuilder(stored);
  storedBuilder.fill(c.stored, c.shape);
  const uint32_t storedSize = stored.size();
  const tarn_test::MergeRun run = tarn_test::runMerge(update, stored);
  ASSERT_TRUE(run.ok);
  EXPECT_EQ(hex(c.expected), hex(run.output));
  EXPECT_EQ(0u, update.size());
  EXPECT_EQ(storedSize, stored.size());
}

INSTANTIATE_TEST_SUITE_P(Cases, MergeExamples, ::testing::ValuesIn(mergeCases()),
                         [](const ::testing::TestParamInfo<MergeCase>& info) {
                           return std::string(info.param.name);
                         });

TEST(MergeSegment, AppendsBehindTheContentAndReturnsTheWholeCount) {
  // 25 bytes of merged output behind 10 bytes already in the segment.
  tarn_host::ValueSet update, stored;
  tarn_test::SetBuilder updateBuilder(update);
  updateBuilder.fill(Body().str(1, std::string(10, 'u')), Shape());
  tarn_test::SetBuilder storedBuilder(stored);
  storedBuilder.fill(Body().str(2, std::string(11, 's')), Shape());
  const std::string prefix = "0123456789";
  const tarn_test::MergeRun run = tarn_test::runMerge(update, stored, prefix);
  ASSERT_TRUE(run.ok);
  EXPECT_EQ(35, run.returned);
  EXPECT_EQ(hex(Body().str(1, std::string(10, 'u')).str(2, std::string(11, 's'))), hex(run.output));
}

TEST(MergeSegment, StandInHostSizesTrimsAndClears) {
  tarn_host::ValueSet update, stored;
  tarn_test::SetBuilder updateBuilder(update);
  updateBuilder.fill(fromHex("1A 02 08 05"), Shape{{3}, {}, {}});
  tarn_test::SetBuilder storedBuilder(stored);
  storedBuilder.fill(fromHex("1A 04 08 04 10 06 22 01 78"), Shape{{3}, {}, {}});
  EXPECT_EQ(9u, tarn_host::mergeOutputBound(update, stored));
  std::string segment = "ab";
  EXPECT_EQ(11u, tarn_host::deltaMerge(tarn_test::api(), update, stored, segment));
  EXPECT_EQ("61 62 1A 04 08 05 10 06 22 01 78", hex(segment));
  EXPECT_EQ(0u, update.size());
}

TEST(MergeSegment, RoomCoversTheWidePrefixBeforeTheBodyMovesBack) {
  // The guess reserves two prefix bytes, so the body is first written one byte
  // further on than where it ends up: the room counts that byte.
  tarn_host::ValueSet update, stored;
  const Shape shape{{3}, {}, {}};
  tarn_test::SetBuilder updateBuilder(update);
  updateBuilder.fill(Body().msg(3, Body().str(1, "x")), shape);
  tarn_test::SetBuilder storedBuilder(stored);
  storedBuilder.fill(Body().msg(3, Body().str(1, big(200))), shape);
  const tarn_test::MergeRun run = tarn_test::runMerge(update, stored);
  ASSERT_TRUE(run.ok);
  EXPECT_EQ(5u, run.output.size());
  EXPECT_EQ(6u, run.room);
}

TEST(MergeSegment, NullHandlesAreEmptyMessages) {
  tarn_host::ValueSet stored;
  tarn_test::SetBuilder storedBuilder(stored);
  storedBuilder.fill(Body().varint(1, 3), Shape());
  std::string segment(8, '\0');
  tarn_delta_message_data delta = {};
  delta.output.data = &segment[0];
  delta.source_value_set = stored.handle();
  EXPECT_EQ(2, tarn_test::api().delta_publish_merge(&delta));
  EXPECT_EQ("08 03", hex(segment.substr(0, 2)));
  delta.output.byte_count = 0;
  delta.source_value_set = nullptr;
  EXPECT_EQ(0, tarn_test::api().delta_publish_merge(&delta));
}

}  // namespace
