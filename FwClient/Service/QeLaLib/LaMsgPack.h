// MessagePack, as far as the stored location set uses it: arrays in a fixed order, texts, booleans and unsigned
// 32-bit numbers. There are no field names and no version number: a record grows only at its end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <msgpack.hpp>
#include <new>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "FwClient/Service/QeLaLib/ErrorPrinter.h"

// Writes objects into bytes of its own.
class LaPacker {
 public:
  LaPacker();
  LaPacker(const LaPacker&) = delete;
  LaPacker& operator=(const LaPacker&) = delete;

  void Array(std::size_t count);
  // As UTF-8, up to the first NUL. Throws StlStringUtfConv::Exception when that is not valid UTF-16.
  void Text(const std::wstring& text);
  void Bool(bool value);
  void UInt32(std::uint32_t value);

  // What was written; the packer is empty afterwards.
  std::vector<std::uint8_t> TakeBytes() noexcept { return std::move(m_stream.bytes); }

 private:
  // What the library's packer writes to.
  struct Stream {
    void write(const char* data, std::size_t size);
    std::vector<std::uint8_t> bytes;
  };

  Stream m_stream;
  msgpack::packer<Stream> m_packer;
};

// Walks the bytes of one object, value by value, and puts each into its place. Whatever is of another type than asked
// for, or ends too early, throws msgpack::type_error. A text that the system cannot convert, for a reason other than
// the text, counts as want of memory: std::bad_alloc.
class LaReader {
 public:
  enum class Purpose {
    kFill,     // an object that is there: records may lack fields, which then stay as they are
    kMake,     // a new object: records must be whole, since nothing stands in for a missing field
    kPrepare,  // changes nothing; makes the texts that kFill needs to go through without memory, with the same object
  };
  using PreparedTexts = std::vector<std::wstring>;

  // kPrepare adds to `prepared`; a kFill that gets them uses them up. Lists that must grow cannot be prepared: they
  // count as another type.
  LaReader(std::span<const std::uint8_t> bytes, Purpose purpose, PreparedTexts* prepared = nullptr)
      : m_bytes(bytes), m_purpose(purpose), m_prepared(prepared) {}

  // The number of elements, which are read next. There is at least a byte for each.
  std::size_t Array();
  void Bool(bool& value);             // booleans only, not 0 or 1
  void UInt32(std::uint32_t& value);  // any non-negative integer that fits
  void Text(std::wstring& text);      // str only, not bin
  void Texts(std::vector<std::wstring>& texts);
  void Numbers(std::vector<std::uint32_t>& numbers);
  // Passes over an object of any type.
  void Skip();

  // Gives a list as many elements as will be read into it.
  template <typename List>
  void Resize(List& list, std::size_t size) {
    if (m_purpose != Purpose::kPrepare)
      list.resize(size);
    else if (size > list.size())
      throw msgpack::type_error();
  }

  Purpose For() const noexcept { return m_purpose; }
  std::size_t BytesLeft() const noexcept { return m_bytes.size() - m_next; }

 private:
  std::uint64_t BigEndian(std::size_t size);
  std::string_view Take(std::size_t size);

  std::span<const std::uint8_t> m_bytes;
  std::size_t m_next = 0;
  Purpose m_purpose;
  PreparedTexts* m_prepared;
  std::size_t m_preparedTaken = 0;
};

// The fields of a record, one after the other. Further ones are ignored.
class LaRecord {
 public:
  explicit LaRecord(LaReader& reader) : m_reader(reader), m_left(reader.Array()) {}

  template <typename Read>
  void Next(Read read) {
    if (m_left != 0) {
      --m_left;
      read();
    } else if (m_reader.For() == LaReader::Purpose::kMake) {
      throw msgpack::type_error();
    }
  }

  // Behind the last field.
  void End() {
    // Passing over an object may ask for memory.
    if (m_left != 0 && m_reader.For() == LaReader::Purpose::kPrepare) throw msgpack::type_error();
    for (; m_left != 0; --m_left) m_reader.Skip();
  }

 private:
  LaReader& m_reader;
  std::size_t m_left;
};

// Throws when the bytes do not begin with a whole MessagePack object. Allocates nothing for what they merely claim to
// hold.
void CheckBytes(std::span<const std::uint8_t> bytes);

// The two operations of ILaSerializer for a class with Pack, Unpack and kClassName. Nothing leaves them; a failure is
// told to the host's error printer under the name of the class whose operation was called.
template <typename Object>
bool SerializeObject(const Object& object, std::vector<std::uint8_t>& bytes) noexcept {
  try {
    LaPacker packer;
    object.Pack(packer);
    bytes = packer.TakeBytes();
    return true;
  } catch (...) {
    PrintError("UCD SerializeToBytes failed for %s", Object::kClassName);
    return false;
  }
}

// Whether the object reads the bytes to their end for this purpose. Want of memory leaves as std::bad_alloc; other
// failures are told by ReadObject, which looks closer.
template <typename Object, typename Unpack>
bool Reads(Object& object, std::span<const std::uint8_t> bytes, Unpack unpack, LaReader::Purpose purpose,
           LaReader::PreparedTexts* prepared = nullptr) {
  try {
    LaReader reader(bytes, purpose, prepared);
    unpack(object, reader);
    return true;
  } catch (const std::bad_alloc&) {
    throw;
  } catch (...) {
    return false;
  }
}

// Reads an object by `unpack(object, reader)`, field by field over what `before` holds, and gives it to `keep`. What is
// thrown leaves. Bytes that are no object are not kept; where one of its fields is bad, what was read before the bad
// place is. Want of memory (std::bad_alloc) keeps nothing: it says nothing about the bytes, and a half-read set would
// sooner or later be stored in the place of the whole one.
template <typename Object, typename Unpack, typename Keep>
void ReadObject(const Object& before, std::span<const std::uint8_t> bytes, Unpack unpack, Keep keep) {
  // Most often all is as we wrote it. Such bytes say everything about an object, so that nothing of the old one is
  // needed.
  Object fresh = Object::ToBeRead();
  if (Reads(fresh, bytes, unpack, LaReader::Purpose::kMake)) return keep(std::move(fresh));

  CheckBytes(bytes);
  Object converted = before;
  try {
    LaReader reader(bytes, LaReader::Purpose::kFill);
    unpack(converted, reader);
  } catch (const std::bad_alloc&) {
    throw;
  } catch (...) {
    keep(std::move(converted));
    throw;
  }
  keep(std::move(converted));
}

inline void PrintReadFailure(const char* className) noexcept {
  PrintError("UCD DeserializeFromBytes failed for %s", className);
}

// Reads an object over itself, in the memory that it has as far as that will do.
template <typename Object>
void ReadOver(Object& object, std::span<const std::uint8_t> bytes) {
  static_assert(std::is_nothrow_move_assignable_v<Object>);
  const auto unpack = [](Object& target, LaReader& reader) { target.Unpack(reader); };
  LaReader::PreparedTexts texts;
  if (Reads(object, bytes, unpack, LaReader::Purpose::kPrepare, &texts))
    Reads(object, bytes, unpack, LaReader::Purpose::kFill, &texts);
  else
    ReadObject(object, bytes, unpack, [&](Object&& read) noexcept { object = std::move(read); });
}

template <typename Object>
bool DeserializeObject(Object& object, const std::vector<std::uint8_t>& bytes) noexcept {
  if (bytes.empty()) return false;
  try {
    ReadOver(object, bytes);
    return true;
  } catch (...) {
    PrintReadFailure(Object::kClassName);
    return false;
  }
}
