// The rules that location sets are checked by. Docs/lint.md has a section for each.
#pragma once

#include <string_view>

// How bad it is: what cannot do what it looks like; what hardly anybody wants; what one should know.
enum class Severity { kError, kWarning, kNote };

struct LintRule {
  std::string_view number;
  Severity severity;
  std::string_view sentence;
};

namespace LintRules {

// What never holds, or holds for something else than it looks like.
inline constexpr LintRule kEmptyLabel = {
    "L101", Severity::kError, "A dot in front of a DNS suffix, or two in a row, keep every longer name from matching."};
inline constexpr LintRule kDotAtEnd = {
    "L102", Severity::kError,
    "With a dot at its end a DNS suffix matches no adapter that has one, and every adapter that has none."};
inline constexpr LintRule kNoSuffixText = {
    "L103", Severity::kError, "No DNS suffix has such a character, or so long a label, so that nothing matches."};
inline constexpr LintRule kBrokenExpression = {
    "L104", Severity::kError,
    "A label that holds \"*\" and is no valid expression, or too large a one, matches nothing."};
inline constexpr LintRule kSecondStar = {
    "L105", Severity::kWarning,
    "Only the first \"*\" of a label stands for any text; a further one repeats the character before it."};
inline constexpr LintRule kNoAddress = {"L106", Severity::kError, "No adapter shows this, since it is no address."};
inline constexpr LintRule kOtherSpelling = {
    "L107", Severity::kError, "Addresses are compared as texts, and adapters show this one in another spelling."};
inline constexpr LintRule kMappedAddress = {"L108", Severity::kError,
                                            "Adapters show an IPv4 address with its dots, never mapped into IPv6."};
inline constexpr LintRule kBlank = {"L109", Severity::kError, "An empty or blank text never holds here."};
inline constexpr LintRule kMalformedRegistryText = {
    "L110", Severity::kError, "A registry text of another form than HIVE\\Key\\ or HIVE\\Key\\Value=Data never holds."};
inline constexpr LintRule kEmptyValueAsked = {
    "L111", Severity::kError,
    "Without a backslash at its end a registry text asks for an empty value, not for the key or for any value."};
inline constexpr LintRule kEqualsSignAtEnd = {
    "L112", Severity::kError, "An \"=\" at the end of a registry text is dropped, and what is left decides."};
inline constexpr LintRule kTextAsItStands = {
    "L113", Severity::kWarning,
    "Blanks, quotation marks and leading zeros of a registry text are compared as they stand, and numbers in decimal."};
inline constexpr LintRule kBackslashInFront = {"L114", Severity::kError,
                                               "Windows opens no registry key whose path begins with a backslash."};
inline constexpr LintRule kLongData = {
    "L115", Severity::kError,
    "A registry value of more than 259 characters is not read, so that such a text never holds."};
inline constexpr LintRule kNoBareHost = {
    "L116", Severity::kError, "A web host is a bare name or address; the scheme, port 443 and the path are fixed."};
inline constexpr LintRule kTwice = {
    "L117", Severity::kError,
    "A location that holds a criterion twice is left out of the current locations that the host is told of."};
inline constexpr LintRule kOtherCase = {"L118", Severity::kNote,
                                        "Letter case does not count in DNS suffixes, so that this one adds nothing."};

// What holds in more places than it looks like.
inline constexpr LintRule kNoCriteria = {
    "L201", Severity::kWarning,
    "Nothing is asked for: a location without criteria is current everywhere while it is enabled."};
inline constexpr LintRule kAnySuffix = {"L202", Severity::kWarning,
                                        "The DNS suffix holds on every adapter, also on one that has none."};
inline constexpr LintRule kOpenEnd = {
    "L203", Severity::kWarning,
    "The end of the DNS suffix is open: it holds under any top-level domain, and on adapters without a suffix."};
inline constexpr LintRule kPublicSuffix = {"L204", Severity::kWarning,
                                           "The DNS suffix holds for names that anybody can have."};
inline constexpr LintRule kEmptyMatchesNone = {"L205", Severity::kError,
                                               "An empty text holds on every adapter that has nothing of the kind."};
inline constexpr LintRule kHiveItself = {"L206", Severity::kWarning,
                                         "The registry text asks for the hive itself, which is always there."};

// What proves little.
inline constexpr LintRule kOneAnnouncement = {"L301", Severity::kWarning,
                                              "The location depends on a single kind that any network can announce."};
inline constexpr LintRule kAnnouncements = {
    "L302", Severity::kNote, "All that the location asks for can be announced by any network that knows it."};
inline constexpr LintRule kServiceAccount = {
    "L303", Severity::kWarning,
    "HKEY_CURRENT_USER belongs to the account that the service runs as, not to who sits at the machine."};
inline constexpr LintRule kProbeWithoutFilter = {
    "L304", Severity::kWarning, "No cheaper kind stands in front of the probe, so that it runs at every calculation."};
inline constexpr LintRule kRegistryAlone = {
    "L305", Severity::kNote, "Registry criteria alone say nothing of the network: any adapter that is up will do."};

// What it costs.
inline constexpr LintRule kCost = {"L401", Severity::kNote,
                                   "Its probes hold up every calculation while nobody answers them."};

// What two locations have in common.
inline constexpr LintRule kSameCriteria = {"L501", Severity::kWarning,
                                           "Two locations have the same criteria, and are current together."};
inline constexpr LintRule kSameName = {"L502", Severity::kWarning,
                                       "Two locations have the same name, and only their IDs tell them apart."};
inline constexpr LintRule kSimilarName = {"L503", Severity::kNote,
                                          "The names of two locations differ only in letter case or blanks."};
inline constexpr LintRule kId = {
    "L504", Severity::kError,
    "A location needs an ID of its own: what is found and changed by ID is the first that has it."};

inline constexpr const LintRule* kAll[] = {
    &kEmptyLabel,
    &kDotAtEnd,
    &kNoSuffixText,
    &kBrokenExpression,
    &kSecondStar,
    &kNoAddress,
    &kOtherSpelling,
    &kMappedAddress,
    &kBlank,
    &kMalformedRegistryText,
    &kEmptyValueAsked,
    &kEqualsSignAtEnd,
    &kTextAsItStands,
    &kBackslashInFront,
    &kLongData,
    &kNoBareHost,
    &kTwice,
    &kOtherCase,
    &kNoCriteria,
    &kAnySuffix,
    &kOpenEnd,
    &kPublicSuffix,
    &kEmptyMatchesNone,
    &kHiveItself,
    &kOneAnnouncement,
    &kAnnouncements,
    &kServiceAccount,
    &kProbeWithoutFilter,
    &kRegistryAlone,
    &kCost,
    &kSameCriteria,
    &kSameName,
    &kSimilarName,
    &kId,
};

}  // namespace LintRules
