#include "FwClient/Service/QeLaLib/LaMsgPack.h"

#include <algorithm>
#include <limits>
#include <stdexcept>

#include "FwClient/Common/Utilities/StlStringUtfConv.h"

namespace {

constexpr std::size_t kFirstBytes = 8192;

std::uint32_t Length32(std::size_t length) {
  if (length > std::numeric_limits<std::uint32_t>::max()) throw std::length_error("too long for MessagePack");
  return static_cast<std::uint32_t>(length);
}

std::wstring Converted(std::string_view utf8) {
  try {
    return StlStringUtfConv::ToWide(utf8);
  } catch (const StlStringUtfConv::Exception& failure) {
    if (failure.WhoseFault() == StlStringUtfConv::Exception::Cause::kSystem) throw std::bad_alloc();
    throw;
  }
}

}  // namespace

LaPacker::LaPacker() : m_packer(m_stream) { m_stream.bytes.reserve(kFirstBytes); }

void LaPacker::Stream::write(const char* data, std::size_t size) {
  const auto* const begin = reinterpret_cast<const std::uint8_t*>(data);
  bytes.insert(bytes.end(), begin, begin + size);
}

void LaPacker::Array(std::size_t count) { m_packer.pack_array(Length32(count)); }

void LaPacker::Text(const std::wstring& text) {
  // The raw form of the older format version: it has no str8, which the stored set never holds.
  if (const auto ascii = StlStringUtfConv::AsciiText(std::wstring_view(text))) {
    m_packer.pack_v4raw(Length32(ascii->size()));
    m_stream.bytes.insert(m_stream.bytes.end(), ascii->begin(), ascii->end());
    return;
  }
  const std::string utf8 = StlStringUtfConv::ToUtf8(text);
  const std::uint32_t length = Length32(utf8.size());
  m_packer.pack_v4raw(length);
  m_packer.pack_v4raw_body(utf8.data(), length);
}

void LaPacker::Bool(bool value) { m_packer.pack(value); }

void LaPacker::UInt32(std::uint32_t value) { m_packer.pack(value); }

std::string_view LaReader::Take(std::size_t size) {
  if (size > BytesLeft()) throw msgpack::type_error();
  const auto* const begin = reinterpret_cast<const char*>(m_bytes.data()) + m_next;
  m_next += size;
  return {begin, size};
}

std::uint64_t LaReader::BigEndian(std::size_t size) {
  std::uint64_t number = 0;
  for (const char byte : Take(size)) number = number << 8 | static_cast<std::uint8_t>(byte);
  return number;
}

std::size_t LaReader::Array() {
  const auto type = BigEndian(1);
  std::size_t count = 0;
  if ((type & 0xf0) == 0x90)
    count = type & 0x0f;
  else if (type == 0xdc || type == 0xdd)
    count = BigEndian(type == 0xdc ? 2 : 4);
  else
    throw msgpack::type_error();
  if (count > BytesLeft()) throw msgpack::type_error();  // before anything is allocated for what is claimed
  return count;
}

void LaReader::Bool(bool& value) {
  const auto type = BigEndian(1);
  if (type != 0xc2 && type != 0xc3) throw msgpack::type_error();
  if (m_purpose != Purpose::kPrepare) value = type == 0xc3;
}

void LaReader::UInt32(std::uint32_t& value) {
  const auto type = BigEndian(1);
  std::uint64_t number = type;  // up to 0x7f it is the number itself
  if (type >= 0xcc && type <= 0xcf) {
    number = BigEndian(std::size_t{1} << (type - 0xcc));
  } else if (type >= 0xd0 && type <= 0xd3) {
    const std::size_t size = std::size_t{1} << (type - 0xd0);
    number = BigEndian(size);
    if ((number >> (8 * size - 1)) != 0) throw msgpack::type_error();  // the sign
  } else if (type > 0x7f) {
    throw msgpack::type_error();
  }
  if (number > std::numeric_limits<std::uint32_t>::max()) throw msgpack::type_error();
  if (m_purpose != Purpose::kPrepare) value = static_cast<std::uint32_t>(number);
}

void LaReader::Text(std::wstring& text) {
  const auto type = BigEndian(1);
  std::size_t size = 0;
  if ((type & 0xe0) == 0xa0)
    size = type & 0x1f;
  else if (type >= 0xd9 && type <= 0xdb)
    size = BigEndian(std::size_t{1} << (type - 0xd9));
  else
    throw msgpack::type_error();
  const std::string_view utf8 = Take(size);
  if (const auto ascii = StlStringUtfConv::AsciiText(utf8); ascii && ascii->size() <= text.capacity()) {
    if (m_purpose == Purpose::kPrepare) return;
    text.resize(ascii->size());
    std::copy(ascii->begin(), ascii->end(), text.begin());
  } else if (m_purpose == Purpose::kPrepare) {
    m_prepared->push_back(Converted(utf8));
  } else if (m_prepared != nullptr) {
    text.swap((*m_prepared)[m_preparedTaken++]);
  } else {
    text = Converted(utf8);
  }
}

void LaReader::Texts(std::vector<std::wstring>& texts) {
  const std::size_t count = Array();
  Resize(texts, count);
  for (std::size_t i = 0; i < count; ++i) Text(texts[i]);
}

void LaReader::Numbers(std::vector<std::uint32_t>& numbers) {
  const std::size_t count = Array();
  Resize(numbers, count);
  for (std::size_t i = 0; i < count; ++i) UInt32(numbers[i]);
}

void LaReader::Skip() {
  msgpack::null_visitor nothing;
  if (!msgpack::parse(reinterpret_cast<const char*>(m_bytes.data()), m_bytes.size(), m_next, nothing))
    throw msgpack::type_error();
}

void CheckBytes(std::span<const std::uint8_t> bytes) {
  std::size_t offset = 0;
  msgpack::null_visitor nothing;
  if (!msgpack::parse(reinterpret_cast<const char*>(bytes.data()), bytes.size(), offset, nothing))
    throw msgpack::parse_error("not a whole object");
}
