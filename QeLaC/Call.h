// What every exported function shares: nothing is thrown across the border, and results are copied to the caller.
#pragma once

#include <qela.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <new>
#include <string>
#include <vector>

// Runs the body of an exported function.
template <typename Body>
qela_status Guarded(Body body) noexcept {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    return QELA_STATUS_OUT_OF_MEMORY;
  } catch (...) {
    return QELA_STATUS_INTERNAL_ERROR;
  }
}

// Whether any is null.
template <typename... Pointers>
bool AnyNull(const Pointers*... pointers) noexcept {
  return (... || (pointers == nullptr));
}

// Copies `count` elements to the caller, whose room `length` tells, and tells how many there are.
template <typename Element>
qela_status CopyOut(const Element* elements, std::size_t count, void* buffer, std::uint32_t* length) noexcept {
  if (length == nullptr) return QELA_STATUS_INVALID_ARGUMENT;
  if (count > std::numeric_limits<std::uint32_t>::max()) return QELA_STATUS_OUT_OF_MEMORY;
  const std::uint32_t room = *length;
  *length = static_cast<std::uint32_t>(count);
  if (count == 0) return QELA_STATUS_OK;
  if (buffer == nullptr || room < count) return QELA_STATUS_BUFFER_TOO_SMALL;
  std::memcpy(buffer, elements, count * sizeof(Element));
  return QELA_STATUS_OK;
}

template <typename Element>
qela_status CopyOut(const std::vector<Element>& list, void* buffer, std::uint32_t* length) noexcept {
  return CopyOut(list.data(), list.size(), buffer, length);
}

// With the NUL.
inline qela_status CopyOut(const std::wstring& text, wchar_t* buffer, std::uint32_t* length) noexcept {
  return CopyOut(text.c_str(), text.size() + 1, buffer, length);
}

// The byte form of anything that has one.
template <typename Object>
qela_status ToBytes(const Object& object, void* buffer, std::uint32_t* length) {
  if (length == nullptr) return QELA_STATUS_INVALID_ARGUMENT;
  std::vector<std::uint8_t> bytes;
  if (!object.SerializeToBytes(bytes)) return QELA_STATUS_BAD_DATA;
  return CopyOut(bytes, buffer, length);
}

template <typename Object>
qela_status FromBytes(Object& object, const void* bytes, std::uint32_t length) {
  if (bytes == nullptr) return QELA_STATUS_INVALID_ARGUMENT;
  const auto* first = static_cast<const std::uint8_t*>(bytes);
  return object.DeserializeFromBytes({first, first + length}) ? QELA_STATUS_OK : QELA_STATUS_BAD_DATA;
}
