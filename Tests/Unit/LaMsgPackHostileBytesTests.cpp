// Bytes that nobody meant as locations: random changes of good ones, and the files of Tests/Data.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "FwClient/Service/QeLaLib/QeLocation.h"
#include "FwClient/Service/QeLaLib/QeLocationCriterias.h"
#include "FwClient/Service/QeLaLib/QeLocations.h"
#include "ScriptedWindows/ImportTable/HeapWatch.h"
#include "Tests/Support/Blob.h"
#include "Tests/Support/TestFile.h"
#include "Tests/Unit/PrintedErrors.h"

namespace {

using Blob::Bytes;

// Whatever was read, the object can be written, and reads back as the same.
template <typename Object>
bool StaysSound(const Object& object) {
  Bytes first, second;
  Object copy;
  return object.SerializeToBytes(first) && copy.DeserializeFromBytes(first) && copy.SerializeToBytes(second) &&
         first == second;
}

// Good bytes of the kinds that the classes read, with every type and several widths in them.
Bytes GoodCollection() {
  using namespace Blob;
  const Bytes suffixes = Array({Str("*.corp.example"), {0xd9, 0x03, 'a', 'b', 'c'}, Str("\xf0\x9f\x98\x80")});
  const Bytes criterias = Array({suffixes, Array({Str("10.0.0.1")}), Array({}), Array({Str("fe80::1")}), Array({}),
                                 Array({}), Array({Str("HKLM\\Software\\X=1")}), Array({Str("host.example")}), kTrue});
  const Bytes indexes = {0x94, 0x05, 0xcc, 0xc8, 0xcd, 0x01, 0x2c, 0xce, 0xff, 0xff, 0xff, 0xff};
  const Bytes full = Array({criterias, Str("id"), {0xda, 0x00, 0x02, 'o', 'k'}, Str(""), kFalse, indexes});
  return Array({Array({full, Location("second"), Array({kNoCriteria}), Array({})})});
}

// Each kind of change that is made to the bytes.
void Mutate(Bytes& bytes, std::mt19937& random) {
  static constexpr std::uint8_t kTelling[] = {0x00, 0x7f, 0x80, 0x81, 0x8f, 0x90, 0x91, 0x9f, 0xa0, 0xa1, 0xbf,
                                              0xc0, 0xc1, 0xc2, 0xc3, 0xc4, 0xc7, 0xca, 0xcb, 0xcc, 0xcf, 0xd0,
                                              0xd3, 0xd4, 0xd9, 0xda, 0xdb, 0xdc, 0xdd, 0xde, 0xdf, 0xe0, 0xff};
  const auto below = [&](std::size_t limit) { return static_cast<std::ptrdiff_t>(random() % limit); };
  const auto at = bytes.begin() + below(bytes.size());
  switch (below(6)) {
    case 0:
      *at = static_cast<std::uint8_t>(random());
      break;
    case 1:
      *at = kTelling[below(std::size(kTelling))];
      break;
    case 2:
      *at ^= static_cast<std::uint8_t>(1u << below(8));
      break;
    case 3:
      bytes.insert(at, kTelling[below(std::size(kTelling))]);
      break;
    case 4:
      if (bytes.size() > 1) bytes.erase(at);
      break;
    default: {  // a piece of it, once more
      const Bytes piece(at, at + below(static_cast<std::size_t>(bytes.end() - at)));
      const auto to = below(bytes.size());
      bytes.insert(bytes.begin() + to, piece.begin(), piece.end());
    }
  }
}

template <typename Object>
class RandomBytes : public testing::Test {
 public:
  // The place in the good collection where the bytes of an Object start.
  static std::ptrdiff_t Start();
};
template <>
std::ptrdiff_t RandomBytes<CQeLocations>::Start() {
  return 0;
}
template <>
std::ptrdiff_t RandomBytes<CQeLocation>::Start() {
  return 2;
}
template <>
std::ptrdiff_t RandomBytes<CQeLocationCriterias>::Start() {
  return 3;
}
using Classes = testing::Types<CQeLocations, CQeLocation, CQeLocationCriterias>;
TYPED_TEST_SUITE(RandomBytes, Classes);

TYPED_TEST(RandomBytes, NeverLeaveAnObjectThatCannotBeWritten) {
  const Bytes collection = GoodCollection();
  const Bytes good(collection.begin() + TestFixture::Start(), collection.end());
  {
    TypeParam object;
    ASSERT_TRUE(object.DeserializeFromBytes(good));
  }
  std::mt19937 random(20'240'229);
  int accepted = 0, refused = 0;
  for (int round = 0; round < 10'000; ++round) {
    Bytes bytes = good;
    for (auto changes = 1 + random() % 4; changes > 0; --changes) Mutate(bytes, random);
    const PrintedErrors errors;
    TypeParam object;
    const bool read = object.DeserializeFromBytes(bytes);
    ++(read ? accepted : refused);
    ASSERT_EQ(errors.Count(), read ? 0u : 1u) << testing::PrintToString(bytes);
    ASSERT_TRUE(StaysSound(object)) << testing::PrintToString(bytes);
  }
  // Both outcomes are well tried.
  EXPECT_GT(accepted, 100);
  EXPECT_GT(refused, 100);
}

// ---- the files ----

std::vector<std::filesystem::path> DataFiles() {
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(TestFile("Tests/Data")))
    if (entry.path().extension() == ".bin") files.push_back(entry.path());
  return files;
}

Bytes Contents(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

template <typename Object>
void Replay(const std::filesystem::path& file) {
  const std::string name = file.filename().string();
  SCOPED_TRACE(std::string(Object::kClassName) + " reads " + name);
  const Bytes bytes = Contents(file);
  ASSERT_FALSE(bytes.empty());
  Object object;
  bool read = false;
  std::size_t asked = 0;
  {
    const HeapWatch heap(ThisProgram());
    read = object.DeserializeFromBytes(bytes);
    asked = heap.BytesAskedFor();
  }
  if (name.starts_with("refused-")) {
    EXPECT_FALSE(read);
  }
  // The parser's first chunk, and for each byte at most a location, the largest thing that one byte can stand for.
  EXPECT_LT(asked, 16'384u + 1024u * bytes.size());
  EXPECT_TRUE(StaysSound(object));
}

TEST(HostileFiles, AreAnsweredByEveryClass) {
  const std::vector<std::filesystem::path> files = DataFiles();
  EXPECT_FALSE(files.empty());
  for (const auto& file : files) {
    Replay<CQeLocations>(file);
    Replay<CQeLocation>(file);
    Replay<CQeLocationCriterias>(file);
  }
}

}  // namespace
