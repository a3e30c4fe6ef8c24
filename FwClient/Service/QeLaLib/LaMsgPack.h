// MessagePack, as far as the stored location set uses it: arrays in a fixed order, texts, booleans and unsigned
// 32-bit numbers. There are no field names and no version number: a record grows only at its end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <msgpack.hpp>
#include <new>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "FwClient/Service/QeLaLib/ErrorPrinter.h"

// Writes objects into a growing buffer.
class LaPacker {
 public:
  LaPacker() : m_buffer(kInitialBytes), m_packer(m_buffer) {}

  void Array(std::size_t count);
  // As UTF-8, up to the first NUL. Throws StlStringUtfConv::Exception when that is not valid UTF-16.
  void Text(const std::wstring& text);
  void Bool(bool value);
  void UInt32(std::uint32_t value);

  std::vector<std::uint8_t> Bytes() const;

 private:
  static constexpr std::size_t kInitialBytes = 8192;

  msgpack::sbuffer m_buffer;
  msgpack::packer<msgpack::sbuffer> m_packer;
};

// Reading. Everything throws msgpack::type_error when the object is of another type. A text that the system cannot
// convert, for a reason other than the text, counts as want of memory: std::bad_alloc.
bool UnpackBool(const msgpack::object& object);                      // booleans only, not 0 or 1
std::uint32_t UnpackUInt32(const msgpack::object& object);           // any non-negative integer that fits
void UnpackText(const msgpack::object& object, std::wstring& text);  // str only, not bin
void UnpackTexts(const msgpack::object& object, std::vector<std::wstring>& texts);

// The fields of a record, one after the other. Missing ones are passed over, so that their targets keep what they
// hold; further ones are ignored.
class LaRecord {
 public:
  explicit LaRecord(const msgpack::object& object);

  template <typename Read>
  void Next(Read read) {
    if (m_next != m_end) read(*m_next++);
  }

  // For an array whose elements are all alike.
  std::size_t Size() const { return static_cast<std::size_t>(m_end - m_next); }

 private:
  const msgpack::object* m_next;
  const msgpack::object* m_end;
};

// The object tree of the bytes. Throws when they are no whole MessagePack object, before anything is allocated for what
// they merely claim to hold; bytes after the object are ignored.
msgpack::object_handle UnpackBytes(const std::vector<std::uint8_t>& bytes);

// The two operations of ILaSerializer for a class with Pack, Unpack and kClassName. Nothing leaves them; a failure is
// told to the host's error printer under the name of the class whose operation was called.
template <typename Object>
bool SerializeObject(const Object& object, std::vector<std::uint8_t>& bytes) noexcept {
  try {
    LaPacker packer;
    object.Pack(packer);
    bytes = packer.Bytes();
    return true;
  } catch (...) {
    PrintError("UCD SerializeToBytes failed for %s", Object::kClassName);
    return false;
  }
}

// Unpacks the bytes and calls `convert(target, tree)`, which converts the tree into the target field by field. Returns
// what the target was before. What is thrown leaves. Bad bytes leave converted what was converted before the bad place.
// Want of memory (std::bad_alloc) leaves the target exactly as it was: it says nothing about the bytes, and a half-read
// set would sooner or later be stored in the place of the whole one.
template <typename Object, typename Convert>
Object ConvertBytes(Object& target, const std::vector<std::uint8_t>& bytes, Convert convert) {
  static_assert(std::is_nothrow_move_assignable_v<Object> && std::is_nothrow_move_constructible_v<Object>);
  const msgpack::object_handle tree = UnpackBytes(bytes);
  Object converted = target;
  try {
    convert(converted, tree.get());
  } catch (const std::bad_alloc&) {
    throw;
  } catch (...) {
    target = std::move(converted);
    throw;
  }
  return std::exchange(target, std::move(converted));
}

inline void PrintReadFailure(const char* className) noexcept {
  PrintError("UCD DeserializeFromBytes failed for %s", className);
}

template <typename Object>
bool DeserializeObject(Object& object, const std::vector<std::uint8_t>& bytes) noexcept {
  if (bytes.empty()) return false;
  try {
    ConvertBytes(object, bytes, [](Object& target, const msgpack::object& tree) { target.Unpack(tree); });
    return true;
  } catch (...) {
    PrintReadFailure(Object::kClassName);
    return false;
  }
}
