#include "FwClient/Service/QeLaLib/LaMsgPack.h"

#include <limits>
#include <stdexcept>
#include <string_view>

#include "FwClient/Common/Utilities/StlStringUtfConv.h"

namespace {

std::uint32_t Length32(std::size_t length) {
  if (length > std::numeric_limits<std::uint32_t>::max()) throw std::length_error("too long for MessagePack");
  return static_cast<std::uint32_t>(length);
}

const msgpack::object_array& ArrayOf(const msgpack::object& object) {
  if (object.type != msgpack::type::ARRAY) throw msgpack::type_error();
  return object.via.array;
}

}  // namespace

void LaPacker::Array(std::size_t count) { m_packer.pack_array(Length32(count)); }

void LaPacker::Text(const std::wstring& text) {
  const std::string utf8 = StlStringUtfConv::ToUtf8(text);
  const std::uint32_t length = Length32(utf8.size());
  // The raw form of the older format version: it has no str8, which the stored set never holds.
  m_packer.pack_v4raw(length);
  m_packer.pack_v4raw_body(utf8.data(), length);
}

void LaPacker::Bool(bool value) { m_packer.pack(value); }

void LaPacker::UInt32(std::uint32_t value) { m_packer.pack(value); }

std::vector<std::uint8_t> LaPacker::Bytes() const {
  const auto* begin = reinterpret_cast<const std::uint8_t*>(m_buffer.data());
  return {begin, begin + m_buffer.size()};
}

bool UnpackBool(const msgpack::object& object) { return object.as<bool>(); }

std::uint32_t UnpackUInt32(const msgpack::object& object) { return object.as<std::uint32_t>(); }

void UnpackText(const msgpack::object& object, std::wstring& text) {
  // Conversion by the library would take bin as well.
  if (object.type != msgpack::type::STR) throw msgpack::type_error();
  try {
    text = StlStringUtfConv::ToWide(std::string_view(object.via.str.ptr, object.via.str.size));
  } catch (const StlStringUtfConv::Exception& failure) {
    if (failure.WhoseFault() == StlStringUtfConv::Exception::Cause::System) throw std::bad_alloc();
    throw;
  }
}

void UnpackTexts(const msgpack::object& object, std::vector<std::wstring>& texts) {
  const msgpack::object_array& array = ArrayOf(object);
  texts.resize(array.size);
  for (std::uint32_t i = 0; i < array.size; ++i) UnpackText(array.ptr[i], texts[i]);
}

LaRecord::LaRecord(const msgpack::object& object) : m_next(ArrayOf(object).ptr), m_end(m_next + ArrayOf(object).size) {}

msgpack::object_handle UnpackBytes(const std::vector<std::uint8_t>& bytes) {
  const auto* data = reinterpret_cast<const char*>(bytes.data());
  // First without a result: the unpacker allocates for what an array header claims (24 bytes an element), so a few
  // hostile bytes could ask for gigabytes. This pass allocates for nesting only and fails where the bytes end.
  std::size_t offset = 0;
  msgpack::null_visitor nothing;
  if (!msgpack::parse(data, bytes.size(), offset, nothing)) throw msgpack::parse_error("not a whole object");

  offset = 0;
  return msgpack::unpack(data, bytes.size(), offset);
}
