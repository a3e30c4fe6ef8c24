#include "FwClient/Service/QeLaLib/AdapterQueries.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "FwClient/Service/QeLaLib/QeLaLib.h"
#include "Tests/Support/LogRecorder.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Texts = std::vector<std::wstring>;

AdapterProps Adapter(std::uint32_t ifIndex, AdapterMediaType mediaType, const std::wstring& description) {
  AdapterProps adapter;
  adapter.ifIndex = ifIndex;
  adapter.mediaType = mediaType;
  adapter.description = description;
  return adapter;
}

AdapterProps AdapterWithMacs(const Texts& macAddresses) {
  AdapterProps adapter;
  adapter.macAddresses = macAddresses;
  return adapter;
}

AdapterProps AdapterWithAddresses(const Texts& ipAddresses) {
  AdapterProps adapter;
  adapter.ipAddresses = ipAddresses;
  return adapter;
}

// ---- Media types ----

TEST(AdapterMediaTypes, AgreeWithAMaskThatSharesABit) {
  const LogRecorder log;
  struct {
    AdapterMediaType type;
    std::vector<std::uint8_t> agrees;
  } const cases[] = {
      {Wired, {1, 3, 5, 7, 9, 255}},
      {Wireless, {2, 3, 6, 7, 10, 255}},
      {Virtual, {4, 5, 6, 7, 12, 255}},
      // Other has all three bits.
      {Other, {1, 2, 3, 4, 5, 6, 7, 9, 10, 12, 255}},
  };
  for (const auto& [type, agrees] : cases) {
    const std::vector<AdapterProps> adapters = {Adapter(5, type, L"A")};
    for (const std::uint8_t mask :
         std::initializer_list<std::uint8_t>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 12, 16, 128, 255})
      EXPECT_EQ(IsAnyAdapterOfMediaType(adapters, mask, {5}), testing::Matches(testing::Contains(mask))(agrees))
          << type << " with mask " << int{mask};
  }
}

TEST(AdapterMediaTypes, CountOnlyForListedAdapters) {
  const LogRecorder log;
  const std::vector<AdapterProps> adapters = {Adapter(5, Wired, L"A"), Adapter(6, Wireless, L"B")};
  EXPECT_TRUE(IsAnyAdapterOfMediaType(adapters, Wired, {5}));
  EXPECT_FALSE(IsAnyAdapterOfMediaType(adapters, Wired, {6}));
  EXPECT_FALSE(IsAnyAdapterOfMediaType(adapters, Wired, {7, 8}));
  EXPECT_TRUE(IsAnyAdapterOfMediaType(adapters, Wireless, {9, 6, 6}));
  EXPECT_TRUE(IsAnyAdapterOfMediaType({Adapter(0, Wired, L"no IPv4")}, Wired, {0}));
  EXPECT_TRUE(IsAnyAdapterOfMediaType({Adapter(0xFFFFFFFF, Wired, L"last")}, Wired, {0xFFFFFFFF}));
}

TEST(AdapterMediaTypes, AListedAdapterOfAnotherTypeDoesNotEndTheSearch) {
  const LogRecorder log;
  EXPECT_TRUE(IsAnyAdapterOfMediaType({Adapter(5, Wired, L"A"), Adapter(6, Wireless, L"B")}, Wireless, {5, 6}));
  // Nor does an index that two adapters have.
  EXPECT_TRUE(IsAnyAdapterOfMediaType({Adapter(5, Wired, L"A"), Adapter(5, Wireless, L"B")}, Wireless, {5}));
}

TEST(AdapterMediaTypes, LogEachAdapterUpToTheOneThatDecidesListedOrNot) {
  const LogRecorder log;
  const std::vector<AdapterProps> adapters = {Adapter(1, Other, L"Not listed"), Adapter(2, Wired, L"Listed, wired"),
                                              Adapter(3, Wireless, L"Wi-Fi"), Adapter(4, Virtual, L"Never reached")};
  EXPECT_TRUE(IsAnyAdapterOfMediaType(adapters, Wireless, {2, 3, 4}));
  EXPECT_THAT(log.Texts(8), ElementsAre(L"The Adapter Not listed has Media Type as 7.",
                                        L"The Adapter Listed, wired has Media Type as 1.",
                                        L"The Adapter Wi-Fi has Media Type as 2."));
  EXPECT_EQ(log.Texts().size(), 3u);
}

TEST(AdapterMediaTypes, LogEveryAdapterForAnEmptyList) {
  const LogRecorder log;
  EXPECT_FALSE(IsAnyAdapterOfMediaType({Adapter(1, Wired, L"A"), Adapter(2, Virtual, L"")}, 255, {}));
  EXPECT_THAT(log.Texts(8), ElementsAre(L"The Adapter A has Media Type as 1.", L"The Adapter  has Media Type as 4."));
}

TEST(AdapterMediaTypes, LogADescriptionThatLooksLikeAFormatAsItIs) {
  const LogRecorder log;
  IsAnyAdapterOfMediaType({Adapter(1, Wired, L"100% %s %n")}, Wired, {1});
  EXPECT_THAT(log.Texts(8), ElementsAre(L"The Adapter 100% %s %n has Media Type as 1."));
}

TEST(AdapterMediaTypes, WithoutAdaptersAreFalseAndNotLogged) {
  const LogRecorder log;
  EXPECT_FALSE(IsAnyAdapterOfMediaType({}, 255, {0, 1}));
  EXPECT_THAT(log.Texts(), IsEmpty());
}

// ---- Physical addresses ----

TEST(MacAddresses, ComeInTheOrderOfTheAdapters) {
  EXPECT_THAT(CollectMacAddresses({AdapterWithMacs({L"02-00-00-00-00-02"}), AdapterWithMacs({}),
                                   AdapterWithMacs({L"02-00-00-00-00-01"}), AdapterWithMacs({L"02-00-00-00-00-02"})}),
              ElementsAre(L"02-00-00-00-00-02", L"02-00-00-00-00-01", L"02-00-00-00-00-02"));
}

TEST(MacAddresses, AreAllThoseOfAnAdapter) {
  EXPECT_THAT(CollectMacAddresses({AdapterWithMacs({L"A", L"B"})}), ElementsAre(L"A", L"B"));
}

TEST(MacAddresses, WithoutAdaptersAreNone) {
  const LogRecorder log;
  EXPECT_THAT(CollectMacAddresses({}), IsEmpty());
  EXPECT_THAT(log.Texts(), IsEmpty());
}

// ---- The service's operations ----

// The service with a snapshot of the test's own. It decides itself what matches, so that what reaches it is seen.
class OverridingService : public CQeLaLib {
 public:
  explicit OverridingService(std::vector<AdapterProps> adapters) : CQeLaLib(nullptr, false, NotLoaded{}) {
    m_adapters = std::make_shared<std::vector<AdapterProps>>(std::move(adapters));
  }

  bool MatchAddressSpecification(const Texts& addresses, const std::uint32_t* kind, const std::wstring& first,
                                 const std::wstring& second) override {
    asked.push_back(addresses);
    kinds.push_back(kind);
    EXPECT_EQ(first, L"first");
    EXPECT_EQ(second, L"second");
    return addresses == matching;
  }

  Texts matching = {L"nothing has this"};
  std::vector<Texts> asked;
  std::vector<const std::uint32_t*> kinds;
};

TEST(MatchAdapterAddresses, AsksAboutEachAdapterInOrderWithTheSpecificationUnchanged) {
  OverridingService service(
      {AdapterWithAddresses({L"10.0.0.1", L"fe80::1"}), AdapterWithAddresses({}), AdapterWithAddresses({L"10.0.0.2"})});
  const std::uint32_t kind = 4711;
  EXPECT_FALSE(service.MatchAdapterAddresses(&kind, L"first", L"second"));
  EXPECT_THAT(service.asked, ElementsAre(Texts{L"10.0.0.1", L"fe80::1"}, Texts{}, Texts{L"10.0.0.2"}));
  EXPECT_THAT(service.kinds, ElementsAre(&kind, &kind, &kind));
}

TEST(MatchAdapterAddresses, StopsAtTheFirstAdapterThatSatisfiesIt) {
  OverridingService service({AdapterWithAddresses({L"A"}), AdapterWithAddresses({L"B"}), AdapterWithAddresses({L"C"})});
  service.matching = {L"B"};
  const std::uint32_t kind = 0;
  EXPECT_TRUE(service.MatchAdapterAddresses(&kind, L"first", L"second"));
  EXPECT_THAT(service.asked, ElementsAre(Texts{L"A"}, Texts{L"B"}));
}

TEST(MatchAdapterAddresses, PassesANullKindOn) {
  OverridingService service({AdapterWithAddresses({L"A"})});
  EXPECT_FALSE(service.MatchAdapterAddresses(nullptr, L"first", L"second"));
  EXPECT_THAT(service.kinds, ElementsAre(nullptr));
}

TEST(MatchAdapterAddresses, WithoutAdaptersIsFalseAndAsksNothing) {
  const LogRecorder log;
  OverridingService service({});
  service.matching = {};
  const std::uint32_t kind = 0;
  EXPECT_FALSE(service.MatchAdapterAddresses(&kind, L"first", L"second"));
  EXPECT_THAT(service.asked, IsEmpty());
  EXPECT_THAT(log.Texts(), IsEmpty());
}

}  // namespace
