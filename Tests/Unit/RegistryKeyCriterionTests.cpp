#include "FwClient/Service/QeLaLib/RegistryKeyCriterion.h"

#include <windows.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "FwClient/Common/Utilities/FwLog.h"
#include "ScriptedWindows/Windows/ScriptedRegistry.h"
#include "Tests/Support/LogRecorder.h"

namespace {

using Lines = std::vector<std::wstring>;

const wchar_t kOnlyExistence[] = L"Checking only for existence of the registry key and not the registry value/data.";

std::wstring NoKey(const std::wstring& key) {
  return L"The registry key " + key + L" specified for the location does not exist.";
}
std::wstring NoKey64(const std::wstring& key) {
  return L"The registry key " + key + L" specified for the location does not exist in KEY_WOW64_64KEY.";
}
std::wstring NoText(const std::wstring& name) {
  return L"Unable to find the string value in the registry for " + name + L".";
}
std::wstring NoNumber(const std::wstring& name) {
  return L"Unable to find the DWORD value in the registry for " + name + L".";
}
std::wstring Match(const std::wstring& name, const std::wstring& data) {
  return L"The registry value " + name + L" matches the specified location awareness group value of " + data + L".";
}
std::wstring NoMatch(const std::wstring& name, const std::wstring& data) {
  return L"The registry value " + name + L" does NOT match the specified location awareness group value of " + data +
         L".";
}

void ExpectParsed(const std::wstring& text, HKEY hive, const std::wstring& subkey, const std::wstring& valueName,
                  const std::wstring& data) {
  const std::optional<RegistryKeyCriterion> criterion = ParseRegistryKeyCriterion(text);
  ASSERT_TRUE(criterion.has_value()) << testing::PrintToString(text);
  EXPECT_EQ(criterion->hive, hive) << testing::PrintToString(text);
  EXPECT_EQ(criterion->subkey, subkey) << testing::PrintToString(text);
  EXPECT_EQ(criterion->valueName, valueName) << testing::PrintToString(text);
  EXPECT_EQ(criterion->data, data) << testing::PrintToString(text);
}

TEST(RegistryKeyCriterionText, IsHiveSubkeyValueNameAndData) {
  ExpectParsed(L"HKEY_LOCAL_MACHINE\\SOFTWARE\\Vendor\\", HKEY_LOCAL_MACHINE, L"SOFTWARE\\Vendor", L"", L"");
  ExpectParsed(L"HKEY_CLASSES_ROOT\\A\\B\\Site=Office", HKEY_CLASSES_ROOT, L"A\\B", L"Site", L"Office");
  ExpectParsed(L"HKEY_CURRENT_USER\\A\\Level", HKEY_CURRENT_USER, L"A", L"Level", L"");
  ExpectParsed(L"HKEY_USERS\\A\\=Office", HKEY_USERS, L"A", L"", L"Office");
  // A backslash in the data is data.
  ExpectParsed(L"HKEY_USERS\\A\\Path=C:\\Temp\\x", HKEY_USERS, L"A", L"Path", L"C:\\Temp\\x");
}

TEST(RegistryKeyCriterionText, WithOneBackslashNamesTheHiveItself) {
  ExpectParsed(L"HKEY_LOCAL_MACHINE\\Foo", HKEY_LOCAL_MACHINE, L"", L"Foo", L"");
  ExpectParsed(L"HKEY_LOCAL_MACHINE\\", HKEY_LOCAL_MACHINE, L"", L"", L"");
  ExpectParsed(L"HKEY_LOCAL_MACHINE\\=x", HKEY_LOCAL_MACHINE, L"", L"", L"x");
}

TEST(RegistryKeyCriterionText, WithTwoBackslashesInARowHasAnEmptySubkey) {
  ExpectParsed(L"HKEY_LOCAL_MACHINE\\\\Foo", HKEY_LOCAL_MACHINE, L"", L"Foo", L"");
}

TEST(RegistryKeyCriterionText, MayEndInEqualsSigns) {
  ExpectParsed(L"HKEY_USERS\\A\\V=", HKEY_USERS, L"A", L"V", L"");
  ExpectParsed(L"HKEY_USERS\\A\\V==", HKEY_USERS, L"A", L"V", L"");
  ExpectParsed(L"HKEY_USERS\\A\\V=D=", HKEY_USERS, L"A", L"V", L"D");
}

TEST(RegistryKeyCriterionText, OfAnyOtherFormIsMalformed) {
  const std::wstring texts[] = {L"", L"=", L"==", L"===", L"=X",
                                // Text after the second equals sign.
                                L"HKEY_USERS\\A\\V=A=B", L"HKEY_USERS\\A\\V==B", L"HKEY_USERS\\A\\V=A==",
                                // No backslash.
                                L"HKEY_USERS", L"HKEY_USERS=\\A\\V", L"Office",
                                // Hives are full names of one case.
                                L"hkey_local_machine\\SOFTWARE\\Vendor\\", L"HKLM\\SOFTWARE\\Vendor\\",
                                L"HKEY_LOCAL_MACHINE2\\A\\", L"HKEY_LOCAL_MACHIN\\A\\", L" HKEY_LOCAL_MACHINE\\A\\",
                                L"HKEY_CURRENT_CONFIG\\A\\", L"\\HKEY_USERS\\A\\", L"\\A\\", L"\\"};
  const LogRecorder log;
  for (const std::wstring& text : texts) {
    EXPECT_FALSE(ParseRegistryKeyCriterion(text).has_value()) << testing::PrintToString(text);
    EXPECT_EQ(IsRegistryKeyCriterionMet(text), 0u) << testing::PrintToString(text);
  }
  EXPECT_EQ(log.Texts(), Lines{}) << "a malformed text is refused silently";
}

class RegistryKeyCriterionTest : public testing::Test {
 protected:
  RegistryKeyCriterionTest() { m_registry.MakeKey(kPath); }

  // Evaluates `HKEY_LOCAL_MACHINE\<kPath>\<rest>`; every key that this opens must be closed again.
  void Expect(const std::wstring& rest, std::uint32_t met, const Lines& lines) { ExpectText(kKey + rest, met, lines); }

  void ExpectText(const std::wstring& text, std::uint32_t met, const Lines& lines) {
    SCOPED_TRACE(testing::PrintToString(text));
    const LogRecorder log;
    EXPECT_EQ(IsRegistryKeyCriterionMet(text), met);
    EXPECT_EQ(m_registry.OpenKeys(), 0u);
    EXPECT_EQ(log.Texts(), lines);
    for (const LoggedEvent& event : log.Events())
      ExpectFirewallEvent(event, kLogInfo, "FwClient/Service/QeLaLib/RegistryKeyCriterion.cpp");
  }

  void Set(const wchar_t* name, DWORD type, const void* data, std::size_t bytes) {
    m_registry.Set(kPath, name, type, data, bytes);
  }
  void SetText(const wchar_t* name, const std::wstring& text) { m_registry.SetText(kPath, name, text); }
  void SetNumber(const wchar_t* name, DWORD number) { Set(name, REG_DWORD, &number, sizeof number); }

  std::vector<ScriptedRegistry::Call> Opens() const { return m_registry.Calls("RegOpenKeyExW"); }
  std::vector<ScriptedRegistry::Call> Queries() const { return m_registry.Calls("RegQueryValueExW"); }

  const std::wstring kPath = L"SOFTWARE\\Vendor\\Product";
  const std::wstring kKey = L"HKEY_LOCAL_MACHINE\\" + kPath + L"\\";
  ScriptedRegistry m_registry{ThisProgram()};
};

TEST_F(RegistryKeyCriterionTest, WithoutValueAndDataAsksOnlyForTheKey) {
  Expect(L"", 1, {kOnlyExistence});
  Expect(L"=", 1, {kOnlyExistence});
  EXPECT_TRUE(Queries().empty());
}

TEST_F(RegistryKeyCriterionTest, AMissingKeyIsLookedForInBothViews) {
  const std::wstring path = L"SOFTWARE\\NoSuchKey";
  ExpectText(L"HKEY_LOCAL_MACHINE\\" + path + L"\\", 0, {NoKey(path), NoKey64(path)});
  EXPECT_EQ(Opens(), (std::vector{ScriptedRegistry::Open(HKEY_LOCAL_MACHINE, path, 0x20019),
                                  ScriptedRegistry::Open(HKEY_LOCAL_MACHINE, path, 0x20119)}));
}

TEST_F(RegistryKeyCriterionTest, AKeyOfThe64BitViewAloneIsFoundOnTheSecondTry) {
  SetText(L"Site", L"Office");
  m_registry.Fail("RegOpenKeyExW", ERROR_FILE_NOT_FOUND);
  Expect(L"", 1, {NoKey(kPath), kOnlyExistence});
  m_registry.Fail("RegOpenKeyExW", ERROR_ACCESS_DENIED);
  Expect(L"Site=Office", 1, {NoKey(kPath), Match(L"Site", L"Office")});
}

TEST_F(RegistryKeyCriterionTest, AKeyOfThe32BitViewAloneIsNotFound) {
  m_registry.RemoveKey(kPath);
  m_registry.MakeKey(kPath, KEY_WOW64_32KEY);
  Expect(L"", 0, {NoKey(kPath), NoKey64(kPath)});
}

TEST_F(RegistryKeyCriterionTest, AKeyThatMayNotBeReadInEitherViewDoesNotExist) {
  m_registry.FailAlways("RegOpenKeyExW", ERROR_ACCESS_DENIED);
  Expect(L"", 0, {NoKey(kPath), NoKey64(kPath)});
}

TEST_F(RegistryKeyCriterionTest, EveryHiveIsOpenedUnderItsOwnHandle) {
  ExpectText(L"HKEY_CLASSES_ROOT\\A\\", 0, {NoKey(L"A"), NoKey64(L"A")});
  ExpectText(L"HKEY_CURRENT_USER\\B\\C\\", 0, {NoKey(L"B\\C"), NoKey64(L"B\\C")});
  ExpectText(L"HKEY_USERS\\D\\V=1", 0, {NoKey(L"D"), NoKey64(L"D")});
  EXPECT_EQ(Opens()[0], ScriptedRegistry::Open(HKEY_CLASSES_ROOT, L"A", 0x20019));
  EXPECT_EQ(Opens()[3], ScriptedRegistry::Open(HKEY_CURRENT_USER, L"B\\C", 0x20119));
  EXPECT_EQ(Opens()[4], ScriptedRegistry::Open(HKEY_USERS, L"D", 0x20019));
}

TEST_F(RegistryKeyCriterionTest, TheHiveItselfExists) {
  ExpectText(L"HKEY_LOCAL_MACHINE\\", 1, {kOnlyExistence});
  ExpectText(L"HKEY_LOCAL_MACHINE\\NoSuchValue", 0, {NoText(L"NoSuchValue"), NoNumber(L"NoSuchValue")});
  EXPECT_EQ(Opens()[0], ScriptedRegistry::Open(HKEY_LOCAL_MACHINE, L"", 0x20019));
}

TEST_F(RegistryKeyCriterionTest, ATextValueMustBeExactlyTheData) {
  SetText(L"Site", L"Office");
  Set(L"Expand", REG_EXPAND_SZ, L"%windir%\\x", 22);
  Expect(L"Site=Office", 1, {Match(L"Site", L"Office")});
  Expect(L"site=Office", 1, {Match(L"site", L"Office")});
  Expect(L"Site=office", 0, {NoMatch(L"Site", L"Office")});
  Expect(L"Site=Offic", 0, {NoMatch(L"Site", L"Office")});
  Expect(L"Site=Offices", 0, {NoMatch(L"Site", L"Office")});
  Expect(L"Site= Office", 0, {NoMatch(L"Site", L"Office")});
  Expect(L"Site=Office=", 1, {Match(L"Site", L"Office")});
  Expect(L"Expand=%windir%\\x", 1, {Match(L"Expand", L"%windir%\\x")});
  EXPECT_EQ(Queries()[0], ScriptedRegistry::Query(L"Site", true, 520));
}

TEST_F(RegistryKeyCriterionTest, MoreThanOneEqualsSignWithTextBehindItIsNeverMet) {
  SetText(L"Site", L"A=B");
  Expect(L"Site=A=B", 0, {});
  EXPECT_TRUE(Opens().empty());
}

TEST_F(RegistryKeyCriterionTest, AnEmptyValueNameWithDataAsksForTheDefaultValue) {
  Expect(L"=Office", 0, {NoText(L""), NoNumber(L"")});
  SetText(L"", L"Office");
  Expect(L"=Office", 1, {Match(L"", L"Office")});
}

TEST_F(RegistryKeyCriterionTest, AValueNameWithoutDataAsksForAnEmptyValue) {
  SetText(L"Empty", L"");
  Set(L"NoBytes", REG_SZ, nullptr, 0);
  SetText(L"Full", L"x");
  SetNumber(L"Zero", 0);
  Expect(L"Empty", 1, {Match(L"Empty", L"")});
  Expect(L"Empty=", 1, {Match(L"Empty", L"")});
  Expect(L"NoBytes", 1, {Match(L"NoBytes", L"")});
  Expect(L"Full", 0, {NoMatch(L"Full", L"x")});
  Expect(L"Zero", 0, {NoText(L"Zero"), NoMatch(L"Zero", L"0")});
  Expect(L"Missing", 0, {NoText(L"Missing"), NoNumber(L"Missing")});
}

TEST_F(RegistryKeyCriterionTest, ANumberIsComparedAsUnsignedDecimalDigits) {
  SetNumber(L"Level", 3);
  SetNumber(L"Max", 0xFFFFFFFF);
  Expect(L"Level=3", 1, {NoText(L"Level"), Match(L"Level", L"3")});
  Expect(L"Level=03", 0, {NoText(L"Level"), NoMatch(L"Level", L"3")});
  Expect(L"Level=0x3", 0, {NoText(L"Level"), NoMatch(L"Level", L"3")});
  Expect(L"Max=4294967295", 1, {NoText(L"Max"), Match(L"Max", L"4294967295")});
  Expect(L"Max=-1", 0, {NoText(L"Max"), NoMatch(L"Max", L"4294967295")});
  EXPECT_EQ(Queries()[1], ScriptedRegistry::Query(L"Level", true, 4));
}

TEST_F(RegistryKeyCriterionTest, AnyFourBytesThatAreNoTextAreANumber) {
  Set(L"Binary", REG_BINARY, "\x02\x01\0\0", 4);
  Set(L"Multi", REG_MULTI_SZ, L"7", 4);
  Set(L"Unterminated", REG_SZ, L"ABx", 4);  // with a NUL behind it, the system would store that too
  Set(L"BigEndian", REG_DWORD_BIG_ENDIAN, "\0\0\0\x01", 4);
  Expect(L"Binary=258", 1, {NoText(L"Binary"), Match(L"Binary", L"258")});
  Expect(L"Multi=55", 1, {NoText(L"Multi"), Match(L"Multi", L"55")});
  Expect(L"Unterminated=4325441", 1, {NoText(L"Unterminated"), Match(L"Unterminated", L"4325441")});
  Expect(L"BigEndian=16777216", 1, {NoText(L"BigEndian"), Match(L"BigEndian", L"16777216")});
}

TEST_F(RegistryKeyCriterionTest, ValuesOfOtherTypesAndSizesAreNeitherTextNorNumber) {
  const std::uint64_t number = 3;
  Set(L"Quad", REG_QWORD, &number, sizeof number);
  Set(L"Multi", REG_MULTI_SZ, L"a\0b\0", 10);
  Set(L"Binary", REG_BINARY, "abc", 3);
  Set(L"EmptyBinary", REG_BINARY, nullptr, 0);
  Set(L"Odd", REG_SZ, L"abc\0", 9);
  Set(L"Unterminated", REG_SZ, L"abcx", 6);
  Set(L"HalfACharacter", REG_SZ, "", 1);
  for (const wchar_t* name : {L"Quad", L"Multi", L"Binary", L"EmptyBinary", L"Odd", L"Unterminated", L"HalfACharacter"})
    for (const wchar_t* data : {L"", L"=3", L"=a", L"=abc", L"=0"})
      Expect(std::wstring(name) + data, 0, {NoText(name), NoNumber(name)});
}

TEST_F(RegistryKeyCriterionTest, ATextEndsAtItsFirstNul) {
  Set(L"Site", REG_SZ, L"Off\0ice", 16);
  Expect(L"Site=Off", 1, {Match(L"Site", L"Off")});
}

TEST_F(RegistryKeyCriterionTest, ATextOf520BytesFitsAndALongerOneDoesNot) {
  const std::wstring longest(259, L'x');
  SetText(L"Fits", longest);
  SetText(L"TooLong", longest + L"x");
  Set(L"FullUnterminated", REG_SZ, std::wstring(260, L'x').c_str(), 520);
  Expect(L"Fits=" + longest, 1, {Match(L"Fits", longest)});
  Expect(L"TooLong=" + longest + L"x", 0, {NoText(L"TooLong"), NoNumber(L"TooLong")});
  Expect(L"FullUnterminated=" + std::wstring(260, L'x'), 0,
         {NoText(L"FullUnterminated"), NoNumber(L"FullUnterminated")});
}

TEST_F(RegistryKeyCriterionTest, ATextThatCannotBeReadIsStillTriedAsANumber) {
  SetText(L"Site", L"A");  // four bytes: 0x00000041
  m_registry.Fail("RegQueryValueExW", ERROR_ACCESS_DENIED);
  Expect(L"Site=65", 1, {NoText(L"Site"), Match(L"Site", L"65")});
}

TEST_F(RegistryKeyCriterionTest, ANumberThatCannotBeReadIsNotMet) {
  SetNumber(L"Level", 0);
  m_registry.Fail("RegQueryValueExW", ERROR_ACCESS_DENIED, 2);
  Expect(L"Level=0", 0, {NoText(L"Level"), NoNumber(L"Level")});
}

}  // namespace
