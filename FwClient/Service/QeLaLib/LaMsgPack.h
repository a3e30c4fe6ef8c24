// MessagePack, as far as the stored location set uses it: arrays in a fixed order, texts, booleans and unsigned
// 32-bit numbers. There are no field names and no version number: a record grows only at its end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <msgpack.hpp>
#include <string>
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

// Reading. Everything throws msgpack::type_error when the object is of another type.
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

template <typename Object>
bool DeserializeObject(Object& object, const std::vector<std::uint8_t>& bytes) noexcept {
  if (bytes.empty()) return false;
  try {
    const msgpack::object_handle handle = UnpackBytes(bytes);
    object.Unpack(handle.get());
    return true;
  } catch (...) {
    PrintError("UCD DeserializeFromBytes failed for %s", Object::kClassName);
    return false;
  }
}
