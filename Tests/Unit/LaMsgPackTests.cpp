#include "FwClient/Service/QeLaLib/LaMsgPack.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <new>
#include <string>
#include <vector>

#include "FwClient/Common/Utilities/StlStringUtfConv.h"
#include "FwClient/Service/QeLaLib/QeLocations.h"
#include "ScriptedWindows/ImportTable/HeapWatch.h"
#include "ScriptedWindows/ImportTable/ImportPatch.h"
#include "Tests/Support/Blob.h"
#include "Tests/Unit/PrintedErrors.h"

namespace {

using Blob::Bytes;

template <typename Write>
Bytes Packed(Write write) {
  LaPacker packer;
  write(packer);
  return packer.TakeBytes();
}

Bytes PackedText(const std::wstring& text) {
  return Packed([&](LaPacker& packer) { packer.Text(text); });
}

// ---- writing ----

TEST(LaPacker, WritesArrayHeadersOfTheShortestForm) {
  const struct {
    std::size_t count;
    Bytes expected;
  } cases[] = {
      {0, {0x90}},
      {1, {0x91}},
      {15, {0x9f}},
      {16, {0xdc, 0x00, 0x10}},
      {65535, {0xdc, 0xff, 0xff}},
      {65536, {0xdd, 0x00, 0x01, 0x00, 0x00}},
      {0xffffffff, {0xdd, 0xff, 0xff, 0xff, 0xff}},
  };
  for (const auto& [count, expected] : cases)
    EXPECT_EQ(Packed([&](LaPacker& packer) { packer.Array(count); }), expected) << count;
}

TEST(LaPacker, RefusesArraysLongerThanTheFormCanTell) {
  LaPacker packer;
  EXPECT_THROW(packer.Array(std::size_t{1} << 32), std::length_error);
}

// 32 to 255 bytes are where str8 (0xd9) would be shorter; the stored form does not have it.
TEST(LaPacker, WritesTextHeadersWithoutStr8) {
  const struct {
    std::size_t length;
    Bytes header;
  } cases[] = {
      {0, {0xa0}},
      {1, {0xa1}},
      {31, {0xbf}},
      {32, {0xda, 0x00, 0x20}},
      {255, {0xda, 0x00, 0xff}},
      {256, {0xda, 0x01, 0x00}},
      {65535, {0xda, 0xff, 0xff}},
      {65536, {0xdb, 0x00, 0x01, 0x00, 0x00}},
      {100'000, {0xdb, 0x00, 0x01, 0x86, 0xa0}},
  };
  for (const auto& [length, header] : cases)
    EXPECT_TRUE(PackedText(std::wstring(length, L'x')) == Blob::Join({header, Bytes(length, 'x')})) << length;
}

TEST(LaPacker, TextLengthCountsBytesNotCharacters) {
  EXPECT_EQ(PackedText(L"Z\xfcrich"), (Bytes{0xa7, 'Z', 0xc3, 0xbc, 'r', 'i', 'c', 'h'}));
  EXPECT_EQ(PackedText(std::wstring(15, L'\xfc') + L"x"), Blob::Join({{0xbf}, Blob::Repeat({0xc3, 0xbc}, 15), {'x'}}));
  EXPECT_EQ(PackedText(std::wstring(16, L'\xfc')), Blob::Join({{0xda, 0x00, 0x20}, Blob::Repeat({0xc3, 0xbc}, 16)}));
  EXPECT_EQ(PackedText(L"\xd83d\xde00"), (Bytes{0xa4, 0xf0, 0x9f, 0x98, 0x80}));
}

TEST(LaPacker, CutsTextAtTheFirstNul) {
  EXPECT_EQ(PackedText(std::wstring(L"ab\0cd", 5)), (Bytes{0xa2, 'a', 'b'}));
  EXPECT_EQ(PackedText(std::wstring(L"\0cd", 3)), (Bytes{0xa0}));
}

TEST(LaPacker, WritesBooleans) {
  EXPECT_EQ(Packed([](LaPacker& packer) { packer.Bool(true); }), (Bytes{0xc3}));
  EXPECT_EQ(Packed([](LaPacker& packer) { packer.Bool(false); }), (Bytes{0xc2}));
}

TEST(LaPacker, WritesNumbersInTheShortestForm) {
  const struct {
    std::uint32_t value;
    Bytes expected;
  } cases[] = {
      {0, {0x00}},
      {127, {0x7f}},
      {128, {0xcc, 0x80}},
      {255, {0xcc, 0xff}},
      {256, {0xcd, 0x01, 0x00}},
      {300, {0xcd, 0x01, 0x2c}},
      {65535, {0xcd, 0xff, 0xff}},
      {65536, {0xce, 0x00, 0x01, 0x00, 0x00}},
      {70000, {0xce, 0x00, 0x01, 0x11, 0x70}},
      {0xffffffff, {0xce, 0xff, 0xff, 0xff, 0xff}},
  };
  for (const auto& [value, expected] : cases)
    EXPECT_EQ(Packed([&](LaPacker& packer) { packer.UInt32(value); }), expected) << value;
}

TEST(LaPacker, GrowsBeyondItsFirstBuffer) {
  for (const std::size_t count : {8191u, 8192u, 8193u, 100'000u}) {
    const Bytes bytes = Packed([&](LaPacker& packer) {
      for (std::size_t i = 0; i < count; ++i) packer.Bool(true);
    });
    EXPECT_TRUE(bytes == Bytes(count, 0xc3)) << count;
  }
}

TEST(LaPacker, StartsWith8192BytesAndDoubles) {
  const HeapWatch heap(ThisProgram());
  LaPacker packer;
  for (std::size_t i = 0; i < 8192; ++i) packer.Bool(true);
  EXPECT_EQ(heap.BytesAskedFor(), 8192u);
  packer.Bool(true);
  EXPECT_EQ(heap.BytesAskedFor(), 8192u + 16384u);
}

// ---- reading single values ----

// What `read` makes of the bytes, and that it takes all of them.
template <typename Read>
auto ReadFrom(const Bytes& bytes, Read read) {
  LaReader reader(bytes, LaReader::Purpose::kFill);
  auto value = read(reader);
  EXPECT_EQ(reader.BytesLeft(), 0u);
  return value;
}

std::uint32_t NextNumber(LaReader& reader) {
  std::uint32_t number = 0;
  reader.UInt32(number);
  return number;
}

bool BoolFrom(const Bytes& bytes) {
  return ReadFrom(bytes, [](LaReader& reader) {
    bool value = false;
    reader.Bool(value);
    return value;
  });
}

std::uint32_t UInt32From(const Bytes& bytes) {
  return ReadFrom(bytes, [](LaReader& reader) { return NextNumber(reader); });
}

std::wstring TextFrom(const Bytes& bytes) {
  return ReadFrom(bytes, [](LaReader& reader) {
    std::wstring text = L"old";
    reader.Text(text);
    return text;
  });
}

std::vector<std::wstring> TextsFrom(const Bytes& bytes, std::vector<std::wstring> texts) {
  return ReadFrom(bytes, [&](LaReader& reader) {
    reader.Texts(texts);
    return texts;
  });
}

TEST(LaMsgPackReading, BooleansOnlyAreBooleans) {
  EXPECT_TRUE(BoolFrom({0xc3}));
  EXPECT_FALSE(BoolFrom({0xc2}));
  for (const Bytes& bytes : {Bytes{0x00}, Bytes{0x01}, Bytes{0xc0}, Bytes{0xa0}, Bytes{0x90}, Bytes{0xcc, 0x01}})
    EXPECT_THROW(BoolFrom(bytes), msgpack::type_error) << testing::PrintToString(bytes);
}

TEST(LaMsgPackReading, NumbersMayHaveAnyWidth) {
  const struct {
    Bytes bytes;
    std::uint32_t expected;
  } cases[] = {
      {{0x00}, 0},
      {{0x7f}, 127},
      {{0xcc, 0x05}, 5},
      {{0xcd, 0x00, 0x05}, 5},
      {{0xce, 0x00, 0x00, 0x00, 0x05}, 5},
      {{0xcf, 0x00, 0x00, 0x00, 0x00, 0xff, 0xff, 0xff, 0xff}, 0xffffffff},
      {{0xd0, 0x7f}, 127},  // signed forms count when the number is not negative
      {{0xd0, 0x00}, 0},
      {{0xd1, 0x01, 0x2c}, 300},
      {{0xd2, 0x00, 0x01, 0x11, 0x70}, 70000},
      {{0xd3, 0x00, 0x00, 0x00, 0x00, 0xff, 0xff, 0xff, 0xff}, 0xffffffff},
  };
  for (const auto& [bytes, expected] : cases) EXPECT_EQ(UInt32From(bytes), expected) << testing::PrintToString(bytes);
}

TEST(LaMsgPackReading, NegativeFractionalAndTooLargeNumbersAreTypeErrors) {
  for (const Bytes& bytes : {Bytes{0xff},                                                  // -1
                             Bytes{0xe0},                                                  // -32
                             Bytes{0xd0, 0x80},                                            // -128
                             Bytes{0xd1, 0xff, 0xff},                                      // -1
                             Bytes{0xd2, 0x80, 0x00, 0x00, 0x00},                          // -2^31
                             Bytes{0xd3, 0x80, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00},  // -2^63
                             Bytes{0xcf, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00},  // 2^32
                             Bytes{0xd3, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00},  // 2^32, signed form
                             Bytes{0xcf, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff},  // 2^64 - 1
                             Bytes{0xca, 0x3f, 0x80, 0x00, 0x00},                          // 1.0f
                             Bytes{0xcb, 0x3f, 0xf0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00},  // 1.0
                             Bytes{0xc2}, Bytes{0xc0}, Bytes{0xa1, '1'}, Bytes{0x91, 0x01}})
    EXPECT_THROW(UInt32From(bytes), msgpack::type_error) << testing::PrintToString(bytes);
}

TEST(LaMsgPackReading, TextsMayHaveAnyStrForm) {
  for (const Bytes& header :
       {Bytes{0xa2}, Bytes{0xd9, 0x02}, Bytes{0xda, 0x00, 0x02}, Bytes{0xdb, 0x00, 0x00, 0x00, 0x02}})
    EXPECT_EQ(TextFrom(Blob::Join({header, {0xc3, 0xbc}})), L"\xfc");
  EXPECT_EQ(TextFrom({0xa0}), L"");
  EXPECT_EQ(TextFrom({0xd9, 0x00}), L"");
}

TEST(LaMsgPackReading, TextIsCutAtTheFirstNul) {
  EXPECT_EQ(TextFrom({0xa4, 'a', 'b', 0x00, 0xff}), L"ab");
  EXPECT_EQ(TextFrom({0xa2, 0x00, 'a'}), L"");
}

TEST(LaMsgPackReading, WhatIsNoStrIsNoText) {
  for (const Bytes& bytes :
       {Bytes{0xc4, 0x01, 'a'}, Bytes{0xc5, 0x00, 0x01, 'a'},  // bin
        Bytes{0xc6, 0x00, 0x00, 0x00, 0x01, 'a'}, Bytes{0xd4, 0x01, 'a'}, Bytes{0xc0}, Bytes{0x61}, Bytes{0xc3},
        Bytes{0xdc, 0, 0, 0, 0, 0, 0, 0, 1, 'a'}, Bytes{0x91, 0xa1, 'a'}, Bytes{0x81, 0xa1, 'a', 0xa1, 'a'}})
    EXPECT_THROW(TextFrom(bytes), msgpack::type_error) << testing::PrintToString(bytes);
}

TEST(LaMsgPackReading, EveryValueEndsWhereTheBytesEnd) {
  for (const Bytes& bytes : {Bytes{}, Bytes{0xa2, 'a'}, Bytes{0xd9}, Bytes{0xda, 0x00}, Bytes{0xdb, 0x00, 0x00, 0x00}})
    EXPECT_THROW(TextFrom(bytes), msgpack::type_error) << testing::PrintToString(bytes);
  for (const Bytes& bytes : {Bytes{}, Bytes{0xcc}, Bytes{0xcd, 0x00}, Bytes{0xd3, 0x00, 0x00}})
    EXPECT_THROW(UInt32From(bytes), msgpack::type_error) << testing::PrintToString(bytes);
  for (const Bytes& bytes : {Bytes{}, Bytes{0xdc}, Bytes{0xdc, 0x00}, Bytes{0xdd, 0x00, 0x00, 0x00}})
    EXPECT_THROW(TextsFrom(bytes, {}), msgpack::type_error) << testing::PrintToString(bytes);
  EXPECT_THROW(BoolFrom({}), msgpack::type_error);
}

// U+00FC, so that the system converts it: ASCII is not shown to it.
TEST(LaMsgPackReading, TextThatIsNoUtf8IsRefusedAndTheOldOneStays) {
  const Bytes bytes{0xa2, 0xc3, '('};
  LaReader reader(bytes, LaReader::Purpose::kFill);
  std::wstring text = L"old";
  EXPECT_THROW(reader.Text(text), StlStringUtfConv::Exception);
  EXPECT_EQ(text, L"old");
}

TEST(LaMsgPackReading, TextThatTheSystemCannotConvertIsWantOfMemoryAndTheOldOneStays) {
  const Bytes bytes{0xa2, 0xc3, 0xbc};
  const ImportPatch wide(
      ::GetModuleHandleW(nullptr), "MultiByteToWideChar", +[](UINT, DWORD, LPCSTR, int, LPWSTR, int) {
        ::SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
      });
  LaReader reader(bytes, LaReader::Purpose::kFill);
  std::wstring text = L"old";
  EXPECT_THROW(reader.Text(text), std::bad_alloc);
  EXPECT_EQ(text, L"old");
}

TEST(LaMsgPackReading, ListOfTextsReplacesTheOldOne) {
  const std::vector<std::wstring> old{L"x", L"y", L"z"};
  EXPECT_EQ(TextsFrom({0x92, 0xa1, 'a', 0xa1, 'b'}, old), (std::vector<std::wstring>{L"a", L"b"}));
  EXPECT_TRUE(TextsFrom({0x90}, old).empty());
}

TEST(LaMsgPackReading, ListOfTextsMustBeAnArray) {
  for (const Bytes& bytes : {Bytes{0xc0}, Bytes{0x80}, Bytes{0xa1, 'a'}, Bytes{0x00}}) {
    std::vector<std::wstring> texts{L"x"};
    LaReader reader(bytes, LaReader::Purpose::kFill);
    EXPECT_THROW(reader.Texts(texts), msgpack::type_error);
    EXPECT_EQ(texts, std::vector<std::wstring>{L"x"});
  }
}

TEST(LaMsgPackReading, WhatIsPassedOverMayBeOfAnyTypeAndDepth) {
  for (const Bytes& bytes :
       {Bytes{0x00}, Bytes{0xff}, Bytes{0xc0}, Bytes{0xc4, 0x01, 'a'}, Bytes{0xd4, 0x01, 'a'}, Bytes{0xca, 0, 0, 0, 0},
        Bytes{0x81, 0xa1, 'a', 0x92, 0xc2, 0xc3}, Blob::Join({Bytes(100'000, 0x91), {0x90}})}) {
    const Bytes followed = Blob::Join({bytes, {0x07}});
    LaReader reader(followed, LaReader::Purpose::kFill);
    reader.Skip();
    EXPECT_EQ(NextNumber(reader), 7u);
  }
  for (const Bytes& bytes : {Bytes{}, Bytes{0xc1}, Bytes{0x92, 0xc0}, Bytes{0xa1}}) {
    LaReader reader(bytes, LaReader::Purpose::kFill);
    EXPECT_ANY_THROW(reader.Skip()) << testing::PrintToString(bytes);
  }
}

// What the target has room for is written where it is; a longer text, or one that the system converts, is made before
// anything is changed.
TEST(LaMsgPackReading, WhatWasPreparedIsFilledInWithoutMemory) {
  const std::string longText(100, 'x');
  const Bytes bytes = Blob::Join(
      {{0x94, 0xa3, 'a', 'b', 'c', 0xd9, 100}, Bytes(longText.begin(), longText.end()), {0xa2, 0xc3, 0xbc, 0xa0}});
  std::vector<std::wstring> texts{L"first", L"second", L"third", L"fourth", L"fifth"};
  const std::vector<std::wstring> before = texts;
  LaReader::PreparedTexts prepared;
  LaReader(bytes, LaReader::Purpose::kPrepare, &prepared).Texts(texts);
  EXPECT_EQ(texts, before);
  EXPECT_EQ(prepared.size(), 2u);
  const HeapWatch heap(ThisProgram());
  LaReader(bytes, LaReader::Purpose::kFill, &prepared).Texts(texts);
  EXPECT_EQ(heap.Allocations(), 0u);
  EXPECT_EQ(texts, (std::vector<std::wstring>{L"abc", std::wstring(100, L'x'), L"\xfc", L""}));
}

TEST(LaMsgPackReading, ListThatMustGrowCannotBePrepared) {
  const Bytes bytes{0x92, 0x01, 0x02};
  std::vector<std::uint32_t> numbers{7};
  LaReader::PreparedTexts prepared;
  LaReader reader(bytes, LaReader::Purpose::kPrepare, &prepared);
  EXPECT_THROW(reader.Numbers(numbers), msgpack::type_error);
  EXPECT_EQ(numbers, std::vector<std::uint32_t>{7});
}

TEST(LaRecord, WithFurtherFieldsCannotBePrepared) {
  const Bytes bytes{0x92, 0x07, 0x08};
  LaReader::PreparedTexts prepared;
  LaReader reader(bytes, LaReader::Purpose::kPrepare, &prepared);
  LaRecord record(reader);
  record.Next([&] { NextNumber(reader); });
  EXPECT_THROW(record.End(), msgpack::type_error);
}

TEST(LaMsgPackReading, PreparingFindsWhatFillingWould) {
  LaReader::PreparedTexts prepared;
  const auto fails = [&](const Bytes& bytes, auto read) {
    LaReader reader(bytes, LaReader::Purpose::kPrepare, &prepared);
    EXPECT_ANY_THROW(read(reader)) << testing::PrintToString(bytes);
  };
  bool truth = true;
  fails({0x01}, [&](LaReader& reader) { reader.Bool(truth); });
  EXPECT_TRUE(truth);
  std::uint32_t number = 7;
  fails({0xff}, [&](LaReader& reader) { reader.UInt32(number); });
  EXPECT_EQ(number, 7u);
  std::wstring text = L"old";
  fails({0xa2, 0xc3, '('}, [&](LaReader& reader) { reader.Text(text); });
  fails({0xc4, 0x01, 'a'}, [&](LaReader& reader) { reader.Text(text); });
  EXPECT_EQ(text, L"old");
}

TEST(LaRecord, HandsOutItsFieldsInOrderAndThenNone) {
  const Bytes bytes{0x92, 0x07, 0x08, 0x09};
  LaReader reader(bytes, LaReader::Purpose::kFill);
  LaRecord record(reader);
  std::vector<std::uint32_t> fields;
  for (int i = 0; i < 4; ++i) record.Next([&] { fields.push_back(NextNumber(reader)); });
  EXPECT_EQ(fields, (std::vector<std::uint32_t>{7, 8}));
}

TEST(LaRecord, EndsBehindItsFurtherFields) {
  const Bytes bytes{0x93, 0x07, 0x91, 0xc0, 0xa1, 'x', 0x09};
  LaReader reader(bytes, LaReader::Purpose::kFill);
  LaRecord record(reader);
  record.Next([&] { EXPECT_EQ(NextNumber(reader), 7u); });
  record.End();
  EXPECT_EQ(NextNumber(reader), 9u);
}

TEST(LaRecord, LacksNoFieldWhereItMustBeWhole) {
  const Bytes bytes{0x91, 0x07};
  LaReader reader(bytes, LaReader::Purpose::kMake);
  LaRecord record(reader);
  record.Next([&] { EXPECT_EQ(NextNumber(reader), 7u); });
  EXPECT_THROW(record.Next([] { FAIL(); }), msgpack::type_error);
}

TEST(LaRecord, MustBeAnArray) {
  for (const Bytes& bytes :
       {Bytes{0xc0}, Bytes{0x80}, Bytes{0x81, 0x00, 0x00}, Bytes{0xa0}, Bytes{0x00}, Bytes{0xc3}}) {
    LaReader reader(bytes, LaReader::Purpose::kFill);
    EXPECT_THROW(LaRecord{reader}, msgpack::type_error);
  }
}

// ---- reading bytes ----

TEST(CheckBytes, AcceptsAnythingBehindTheObject) {
  EXPECT_NO_THROW(CheckBytes(Bytes{0x90, 0x00}));
  EXPECT_NO_THROW(CheckBytes(Bytes{0x90, 0xc1}));
  EXPECT_NO_THROW(CheckBytes(Bytes{0x90, 0xdd, 0xff}));
}

TEST(CheckBytes, RefusesWhatIsNoWholeObject) {
  for (const Bytes& bytes : {Bytes{}, Bytes{0xc1}, Bytes{0x91}, Bytes{0x91, 0xc1}, Bytes{0xa1}, Bytes{0xcc},
                             Bytes{0xda, 0x00}, Bytes{0xdd, 0x00, 0x00, 0x00}, Bytes{0x81, 0x00}})
    EXPECT_THROW(CheckBytes(bytes), msgpack::unpack_error) << testing::PrintToString(bytes);
}

TEST(CheckBytes, ReadsAHundredThousandLevels) {
  constexpr std::size_t kLevels = 100'000;
  EXPECT_NO_THROW(CheckBytes(Blob::Join({Bytes(kLevels, 0x91), {0x90}})));
  EXPECT_THROW(CheckBytes(Bytes(kLevels, 0x91)), msgpack::unpack_error);
  // Maps within maps, as keys and as values.
  EXPECT_NO_THROW(CheckBytes(Blob::Join({Blob::Repeat({0x81, 0x00}, kLevels), {0xc0}})));
  EXPECT_NO_THROW(CheckBytes(Blob::Join({Bytes(kLevels, 0x81), {0xc0}, Bytes(kLevels, 0x00)})));
}

// What the bytes claim must not be allocated before they are seen to be there.
class HostileBytes : public testing::TestWithParam<Bytes> {};

TEST_P(HostileBytes, AreRefusedWithoutAllocatingWhatTheyClaim) {
  WarmUpExceptions(ThisProgram());
  CQeLocations target;
  bool refused = false;
  std::size_t asked = 0;
  {
    const HeapWatch heap(ThisProgram());
    refused = !target.DeserializeFromBytes(GetParam());
    asked = heap.BytesAskedFor();
    EXPECT_EQ(heap.BlocksLeft(), 0);
  }
  EXPECT_TRUE(refused);
  // A fixed sum for the parser, and for each open array or map a few words on its stack, which doubles when it grows.
  EXPECT_LT(asked, 4096u + 128u * GetParam().size());
}

INSTANTIATE_TEST_SUITE_P(
    Claims, HostileBytes,
    testing::Values(Bytes{0xdd, 0xff, 0xff, 0xff, 0xff},              // array of four billion
                    Bytes{0xdd, 0xff, 0xff, 0xff, 0xff, 0x00},        // and its first element
                    Bytes{0xdd, 0x7f, 0xff, 0xff, 0xff},              //
                    Bytes{0xdf, 0xff, 0xff, 0xff, 0xff},              // map
                    Bytes{0xdb, 0xff, 0xff, 0xff, 0xff, 'a'},         // str
                    Bytes{0xc6, 0xff, 0xff, 0xff, 0xff, 0x00},        // bin
                    Bytes{0xc9, 0xff, 0xff, 0xff, 0xff, 0x01, 0x00},  // ext
                    Bytes{0x91, 0x91, 0xdd, 0xff, 0xff, 0xff, 0xff},  // in the place of the locations
                    Bytes{0xdc, 0xff, 0xff, 0xdc, 0xff, 0xff},        // smaller claims that multiply
                    Blob::Repeat({0xdd, 0xff, 0xff, 0xff, 0xff}, 20'000),
                    Blob::Repeat({0xdf, 0xff, 0xff, 0xff, 0xff}, 20'000),
                    Blob::Repeat({0x92, 0xdd, 0x00, 0xff, 0xff, 0xff}, 20'000), Bytes(100'000, 0x9f)));

// ---- the two operations ----

// A record of one number that fails where the test wants it; with a further field, so that it is not read in its place.
struct Probe {
  static constexpr char kClassName[] = "class Probe";
  static Probe ToBeRead() { return {}; }

  std::uint32_t number = 7;
  bool fails = false;

  void Pack(LaPacker& packer) const {
    packer.Array(1);
    packer.UInt32(number);
    if (fails) throw 1;  // not even an exception of the standard library may leave
  }
  void Unpack(LaReader& reader) {
    LaRecord record(reader);
    record.Next([&] { reader.UInt32(number); });
    record.End();
    if (number == kFails) throw 1;
    if (number == kWantsMemory) throw std::bad_alloc();
  }

  static constexpr std::uint32_t kFails = 9;
  static constexpr std::uint32_t kWantsMemory = 10;
};

TEST(SerializeObject, ReplacesTheCallersBytes) {
  const PrintedErrors errors;
  Bytes bytes(100, 0xaa);
  EXPECT_TRUE(SerializeObject(Probe{}, bytes));
  EXPECT_EQ(bytes, (Bytes{0x91, 0x07}));
  EXPECT_EQ(errors.Count(), 0u);
}

TEST(SerializeObject, AFailureLeavesTheCallersBytesAndPrintsOneLine) {
  const PrintedErrors errors;
  Bytes bytes{1, 2, 3};
  EXPECT_FALSE(SerializeObject(Probe{.fails = true}, bytes));
  EXPECT_EQ(bytes, (Bytes{1, 2, 3}));
  EXPECT_EQ(errors.Lines(), std::vector<std::string>{"UCD SerializeToBytes failed for class Probe"});
}

TEST(SerializeObject, AFailureNeedsNoPrinter) {
  Bytes bytes;
  EXPECT_FALSE(SerializeObject(Probe{.fails = true}, bytes));
}

TEST(DeserializeObject, ReadsTheObject) {
  const PrintedErrors errors;
  Probe probe;
  EXPECT_TRUE(DeserializeObject(probe, {0x91, 0x08}));
  EXPECT_EQ(probe.number, 8u);
  EXPECT_EQ(errors.Count(), 0u);
}

TEST(DeserializeObject, LeavesFieldsThatTheBytesLack) {
  Probe probe;
  EXPECT_TRUE(DeserializeObject(probe, {0x91, 0x08}));
  EXPECT_TRUE(DeserializeObject(probe, {0x90}));
  EXPECT_EQ(probe.number, 8u);
}

// With the memory that it has: the same objects take the same bytes again without asking for any of their size.
TEST(DeserializeObject, ReadsTheSameCollectionAgainInItsPlace) {
  CQeLocations locations;
  const LOCATION_CRITERIA_TYPE kind = LCT_DNS_SUFFIX;
  for (int i = 0; i < 100; ++i) {
    CQeLocation location;
    location.AddCriteria(&kind, L"a-suffix-that-needs-memory.example");
    location.SetAdapterIndexes({1, 2});
    locations.Add(&location);
  }
  Bytes bytes;
  ASSERT_TRUE(locations.SerializeToBytes(bytes));
  CQeLocations target;
  ASSERT_TRUE(target.DeserializeFromBytes(bytes));
  const auto allocationsOf = [&] {
    const HeapWatch heap(ThisProgram());
    EXPECT_TRUE(target.DeserializeFromBytes(bytes));
    return heap.Allocations();
  };
  EXPECT_LT(allocationsOf(), 5u);
  Bytes again;
  ASSERT_TRUE(target.SerializeToBytes(again));
  EXPECT_EQ(again, bytes);
}

TEST(DeserializeObject, NoBytesAreAFailureWithoutALine) {
  const PrintedErrors errors;
  Probe probe;
  EXPECT_FALSE(DeserializeObject(probe, {}));
  EXPECT_EQ(probe.number, 7u);
  EXPECT_EQ(errors.Count(), 0u);
}

TEST(DeserializeObject, AFailurePrintsOneLine) {
  const PrintedErrors errors;
  Probe probe;
  EXPECT_FALSE(DeserializeObject(probe, {0x92, Probe::kFails, 0xc0}));
  EXPECT_EQ(probe.number, Probe::kFails);  // read before the failure
  EXPECT_FALSE(DeserializeObject(probe, {0x91}));
  const std::string line = "UCD DeserializeFromBytes failed for class Probe";
  EXPECT_EQ(errors.Lines(), (std::vector<std::string>{line, line}));
}

TEST(DeserializeObject, WantOfMemoryLeavesTheObjectAndPrintsOneLine) {
  const PrintedErrors errors;
  Probe probe;
  EXPECT_FALSE(DeserializeObject(probe, {0x92, Probe::kWantsMemory, 0xc0}));
  EXPECT_EQ(probe.number, 7u);
  EXPECT_EQ(errors.Lines(), std::vector<std::string>{"UCD DeserializeFromBytes failed for class Probe"});
}

TEST(DeserializeObject, AFailureNeedsNoPrinter) {
  Probe probe;
  EXPECT_FALSE(DeserializeObject(probe, {0xc1}));
}

}  // namespace
