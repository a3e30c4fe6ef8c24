#include "Bench/FloorPacking.h"

#include <windows.h>

#include <cstddef>
#include <string>

namespace {

using Packer = msgpack::packer<msgpack::sbuffer>;

std::uint32_t Count(std::size_t count) { return static_cast<std::uint32_t>(count); }

std::string ToUtf8(const std::wstring& text) {
  const int length = static_cast<int>(text.size());
  if (length == 0) return {};
  const int bytes =
      ::WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, text.data(), length, nullptr, 0, nullptr, nullptr);
  std::string utf8(static_cast<std::size_t>(bytes), '\0');
  ::WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, text.data(), length, utf8.data(), bytes, nullptr, nullptr);
  return utf8;
}

void Pack(Packer& packer, const std::wstring& text) {
  const std::string utf8 = ToUtf8(text);
  packer.pack_v4raw(Count(utf8.size()));
  packer.pack_v4raw_body(utf8.data(), Count(utf8.size()));
}

void Pack(Packer& packer, const PlainLocation& location) {
  packer.pack_array(6);
  packer.pack_array(kTextKinds + 1);
  for (const std::vector<std::wstring>& texts : location.texts) {
    packer.pack_array(Count(texts.size()));
    for (const std::wstring& text : texts) Pack(packer, text);
  }
  packer.pack(location.zeltReachable);
  Pack(packer, location.id);
  Pack(packer, location.name);
  Pack(packer, location.note);
  packer.pack(location.enabled);
  packer.pack_array(Count(location.adapterIndexes.size()));
  for (const std::uint32_t index : location.adapterIndexes) packer.pack(index);
}

const msgpack::object_array& ArrayOf(const msgpack::object& object) {
  if (object.type != msgpack::type::ARRAY) throw msgpack::type_error();
  return object.via.array;
}

void Unpack(const msgpack::object& object, std::wstring& text) {
  if (object.type != msgpack::type::STR) throw msgpack::type_error();
  const int bytes = static_cast<int>(object.via.str.size);
  if (bytes == 0) return text.clear();
  const int length = ::MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, object.via.str.ptr, bytes, nullptr, 0);
  if (length == 0) throw msgpack::type_error();
  text.resize(static_cast<std::size_t>(length));
  ::MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, object.via.str.ptr, bytes, text.data(), length);
}

void Unpack(const msgpack::object& object, PlainLocation& location) {
  const msgpack::object_array& fields = ArrayOf(object);
  const msgpack::object_array& kinds = ArrayOf(fields.ptr[0]);
  for (std::size_t kind = 0; kind < kTextKinds; ++kind) {
    const msgpack::object_array& texts = ArrayOf(kinds.ptr[kind]);
    location.texts[kind].resize(texts.size);
    for (std::uint32_t i = 0; i < texts.size; ++i) Unpack(texts.ptr[i], location.texts[kind][i]);
  }
  location.zeltReachable = kinds.ptr[kTextKinds].as<bool>();
  Unpack(fields.ptr[1], location.id);
  Unpack(fields.ptr[2], location.name);
  Unpack(fields.ptr[3], location.note);
  location.enabled = fields.ptr[4].as<bool>();
  const msgpack::object_array& indexes = ArrayOf(fields.ptr[5]);
  location.adapterIndexes.resize(indexes.size);
  for (std::uint32_t i = 0; i < indexes.size; ++i) location.adapterIndexes[i] = indexes.ptr[i].as<std::uint32_t>();
}

}  // namespace

void PackCollection(msgpack::sbuffer& buffer, const PlainSet& set) {
  Packer packer(buffer);
  packer.pack_array(1);
  packer.pack_array(Count(set.size()));
  for (const PlainLocation& location : set) Pack(packer, location);
}

std::vector<std::uint8_t> PackStoredSet(const PlainSet& set) {
  msgpack::sbuffer buffer;
  Packer(buffer).pack_array(1);
  PackCollection(buffer, set);
  const auto* const first = reinterpret_cast<const std::uint8_t*>(buffer.data());
  return {first, first + buffer.size()};
}

bool UnpackCollection(const std::vector<std::uint8_t>& bytes, PlainSet& set) {
  try {
    const auto* const data = reinterpret_cast<const char*>(bytes.data());
    std::size_t offset = 0;
    msgpack::null_visitor nothing;
    if (!msgpack::parse(data, bytes.size(), offset, nothing)) return false;
    offset = 0;
    const msgpack::object_handle tree = msgpack::unpack(data, bytes.size(), offset);
    const msgpack::object_array& locations = ArrayOf(ArrayOf(tree.get()).ptr[0]);
    set.resize(locations.size);
    for (std::uint32_t i = 0; i < locations.size; ++i) Unpack(locations.ptr[i], set[i]);
    return true;
  } catch (const std::exception&) {
    return false;
  }
}
