// The byte form that locations, criteria sets and collections share.
//
// Standard library types cross this border, so the host and the library must be built with the same compiler
// family, C++ runtime and C runtime (MinGW-w64 GCC or Clang with libstdc++ and UCRT, x86-64). That holds for every
// header in this folder.
#pragma once

#include <cstdint>
#include <vector>

// Writes an object as MessagePack bytes and reads it back. Both operations catch everything: a failure is reported
// to the host's error printer (_IQeLaApiSmart::SetErrorPrinter) as one line that names the object's class, and the
// operation answers false. Neither takes a lock; an object must not be used by two threads at once.
struct ILaSerializer {
  // Replaces `bytes` with the object's byte form. Returns false, and leaves `bytes` as it was, when a text is not
  // valid UTF-16 or memory runs out.
  virtual bool SerializeToBytes(std::vector<std::uint8_t>& bytes) const = 0;

  // Reads the object from `bytes`. Returns false without a report when `bytes` is empty. Bytes that are no whole
  // MessagePack object leave the object untouched; a value of the wrong type ends the reading there, and what was
  // read before it stays. When memory runs out the object is left exactly as it was. Records with fewer fields than
  // expected keep the missing fields' values; further fields and bytes after the object are ignored.
  virtual bool DeserializeFromBytes(const std::vector<std::uint8_t>& bytes) = 0;

 protected:
  // Not virtual, here and in every interface: a virtual destructor would take slots of the operation table, whose
  // order is the contract. Objects are deleted through the shared pointer or reference count they came with.
  ~ILaSerializer() = default;
};
