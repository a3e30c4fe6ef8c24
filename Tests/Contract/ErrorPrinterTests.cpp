// The host's error printer.
#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

#include "Tests/Contract/ServiceTest.h"

namespace {

std::vector<std::string> g_formats;
std::vector<std::string> g_lines;

void Print(const char* format, ...) {
  char line[256] = {};
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(line, sizeof line, format, arguments);
  va_end(arguments);
  g_formats.emplace_back(format);
  g_lines.emplace_back(line);
}

void Throw(const char*, ...) { throw std::runtime_error("the host's own"); }

class ErrorPrinter : public ServiceTest {
 protected:
  ErrorPrinter() {
    g_formats.clear();
    g_lines.clear();
  }

  static constexpr wchar_t kLoneSurrogate[] = L"\xd800";
  std::shared_ptr<_IQeLaApiSmart> m_service = m_library.SmartApi();
};

using Lines = std::vector<std::string>;

TEST_F(ErrorPrinter, IsToldOfASetThatCannotBeSavedUnderTheNameOfTheService) {
  m_service->SetErrorPrinter(&Print);
  m_service->AddLocation(NewLocation(*m_service, kLoneSurrogate));
  EXPECT_FALSE(m_service->Save());
  EXPECT_EQ(g_formats, Lines{"UCD SerializeToBytes failed for %s"});
  EXPECT_EQ(g_lines, Lines{"UCD SerializeToBytes failed for class CQeLaLib"});
}

TEST_F(ErrorPrinter, IsToldOfStoredBytesThatAreBadUnderTheNameOfTheService) {
  m_service->SetErrorPrinter(&Print);
  m_registry.Put({0x91, 0x91, 0x91, 0xa0});
  EXPECT_FALSE(m_service->Load());
  EXPECT_EQ(g_formats, Lines{"UCD DeserializeFromBytes failed for %s"});
  EXPECT_EQ(g_lines, Lines{"UCD DeserializeFromBytes failed for class CQeLaLib"});
}

TEST_F(ErrorPrinter, IsToldTheClassWhoseOperationWasCalled) {
  m_service->SetErrorPrinter(&Print);
  const std::shared_ptr<_IQeLocation> location = NewLocation(*m_service, kLoneSurrogate, L"\xdfff");
  m_service->AddLocation(location);
  Bytes bytes{1, 2, 3};
  EXPECT_FALSE(location->SerializeToBytes(bytes));
  EXPECT_FALSE(location->GetCriterias()->SerializeToBytes(bytes));
  EXPECT_FALSE(m_service->GetLocations()->SerializeToBytes(bytes));
  EXPECT_EQ(bytes, (Bytes{1, 2, 3})) << "left as it was";
  const Bytes bad{0xc1};
  EXPECT_FALSE(location->DeserializeFromBytes(bad));
  EXPECT_FALSE(location->GetCriterias()->DeserializeFromBytes(bad));
  EXPECT_FALSE(m_service->GetLocations()->DeserializeFromBytes(bad));
  EXPECT_EQ(g_lines, (Lines{"UCD SerializeToBytes failed for class CQeLocation",
                            "UCD SerializeToBytes failed for class CQeLocationCriterias",
                            "UCD SerializeToBytes failed for class CQeLocations",
                            "UCD DeserializeFromBytes failed for class CQeLocation",
                            "UCD DeserializeFromBytes failed for class CQeLocationCriterias",
                            "UCD DeserializeFromBytes failed for class CQeLocations"}));
}

TEST_F(ErrorPrinter, IsNotToldOfMissingBytes) {
  m_service->SetErrorPrinter(&Print);
  EXPECT_FALSE(m_service->Load());
  m_registry.Put({});
  EXPECT_FALSE(m_service->Load());
  m_registry.Put({0x91, 0x91, 0x90}, REG_SZ);
  EXPECT_FALSE(m_service->Load());
  EXPECT_FALSE(m_service->CreateLocation()->DeserializeFromBytes({}));
  // Bytes that are gone when they are read: nothing of the first answer's size may be taken for them.
  m_registry.Put({0x91, 0x91, 0x90});
  int queries = 0;
  m_registry.OnCall([&](const ScriptedRegistry::Call& call) {
    if (call.function == "RegQueryValueExW" && ++queries == 2) m_registry.Put({});
  });
  EXPECT_FALSE(m_service->Load());
  m_registry.OnCall({});
  EXPECT_EQ(g_lines, Lines{});
}

TEST_F(ErrorPrinter, IsSharedByBothInstances) {
  m_library.Api()->SetErrorPrinter(&Print);
  m_registry.Put({0xc1});
  EXPECT_FALSE(m_service->Load());
  EXPECT_EQ(g_lines.size(), 1u);
}

TEST_F(ErrorPrinter, NullMeansNone) {
  m_registry.Put({0xc1});
  EXPECT_FALSE(m_service->Load()) << "none was set yet";
  m_service->SetErrorPrinter(&Print);
  m_service->SetErrorPrinter(nullptr);
  EXPECT_FALSE(m_service->Load());
  EXPECT_EQ(g_lines, Lines{});
}

TEST_F(ErrorPrinter, ThatThrowsDoesNotCrossTheInterface) {
  m_service->SetErrorPrinter(&Throw);
  m_registry.Put({0xc1});
  EXPECT_FALSE(m_service->Load());
  EXPECT_FALSE(m_service->CreateLocation()->DeserializeFromBytes({0xc1}));
}

}  // namespace
