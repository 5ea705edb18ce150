// Journals that tell of a broken promise, and others that tell of none: so that the soak does not
// pass only because its audit is blind.

#include "faults/soak/audit.h"

#include "support/temporarydirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

namespace KELP::Test::Soak {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

struct Case {
  const char* name;
  /** Entries "WHO KIND REPORT TEXT", one a line. */
  const char* journal;
  /** A part of the only complaint; empty for none. */
  const char* complaint;
};

void PrintTo(const Case& c, std::ostream* out) {
  *out << c.name;
}

class SoakAudit : public testing::TestWithParam<Case> {
 protected:
  void take(const std::string& journal) {
    std::istringstream lines(journal);
    for (std::string line; std::getline(lines, line);) {
      std::istringstream words(line);
      Entry entry{};
      char kind = 0;
      words >> entry.who >> kind >> entry.id;
      entry.kind = static_cast<Kind>(kind);
      words.get();
      std::getline(words, entry.text);
      audit_.take(entry);
    }
  }

  TemporaryDirectory root_;
  Audit audit_{root_.path()};
};

/** A report r in the state 0.0, which w1 has created and the observer has announced. */
const std::string kCreated = "w1 C r 0.0\no V r 1\nw1 c r\n";

TEST_P(SoakAudit, Complains) {
  take(kCreated + GetParam().journal);
  const std::string expected = GetParam().complaint;
  if (expected.empty()) {
    EXPECT_THAT(audit_.violations(), IsEmpty());
  } else {
    EXPECT_THAT(audit_.violations(), ElementsAre(HasSubstr("r: " + expected)));
  }
}

constexpr Case kCases[] = {
    {"Nothing", "", ""},
    {"ChangeKept",
     "w1 S r\nw1 O r\nw1 L r 0.0 full\nw1 I r x 0.0 1.0\nw1 A r x\nw1 U r\nw1 E r\n"
     "w2 S r\nw2 O r\nw2 l r 1.0 full\n",
     ""},
    {"ChangeLost",
     "w1 S r\nw1 O r\nw1 L r 0.0 full\nw1 I r x 0.0 1.0\nw1 A r x\nw1 U r\nw1 E r\n"
     "w2 S r\nw2 O r\nw2 l r 0.0 full\n",
     "is in a state that nobody left"},
    {"FirstChangeLost", "w2 S r\nw2 O r\nw2 l r 7.0 full\n", "is in a state that nobody left"},
    {"KilledBefore", "w1 S r\nw1 L r 0.0 full\nw1 I r x 0.0 1.0\nw1 K -\nw2 S r\nw2 l r 0.0 full\n",
     ""},
    {"KilledAfter", "w1 S r\nw1 L r 0.0 full\nw1 I r x 0.0 1.0\nw1 K -\nw2 S r\nw2 l r 1.0 full\n",
     ""},
    {"KilledInAFile",
     "w1 S r\nw1 L r 0.0 full\nw1 I r x 0.0 0.2 0.1\nw1 K -\nw2 S r\nw2 l r 0.1 full\n", ""},
    {"KilledAndHalfOfItThere",
     "w1 S r\nw1 L r 0.0 full\nw1 I r x 0.0 1.0\nw1 K -\nw2 S r\nw2 l r 2.0 full\n",
     "is in a state that nobody left"},
    {"KilledAndThenAnother",
     "w1 S r\nw1 L r 0.0 full\nw1 I r x 0.0 1.0\nw1 K -\nw2 S r\nw2 l r 1.0 full\nw2 U r\nw2 E r\n"
     "w3 S r\nw3 l r 0.0 full\n",
     "is in a state that nobody left"},
    {"EndNotYetTold",
     "w1 S r\nw1 L r 0.0 full\nw1 I r x 0.0 1.0\nw2 S r\nw2 L r 1.0 full\nw1 K -\n", ""},
    {"TwoWriters", "w1 S r\nw1 L r 0.0 full\nw2 S r\nw2 L r 0.0 full\nw1 U r\n",
     "w1 had a lock that somebody else got"},
    {"WriterBesideReader", "w1 S r\nw1 l r 0.0 full\nw2 S r\nw2 L r 0.0 full\nw1 U r\n",
     "w1 had a lock that somebody else got"},
    {"TwoReaders", "w1 S r\nw1 l r 0.0 full\nw2 S r\nw2 l r 0.0 full\nw1 U r\n", ""},
    {"ChangedWithoutLock", "w1 S r\nw1 L r 0.0 full\nw1 I r x 5.0 6.0\n",
     "was changed by somebody who had no lock"},
    {"LockedByNobody", "w1 S r\nw1 O r\nw1 Q r\n", "is locked by nobody"},
    {"LockedByManyInTurn", "w1 S r\nw1 O r\nw2 S r\nw2 l r 0.0 full\nw2 U r\nw1 Q r\n", ""},
    {"OtherAnswer", "w1 S r\nw1 L r 0.0 full\nw1 I r x 0.0 1.0\nw1 N r an answer\n", "an answer"},
    {"NotOpened", "w1 S r\nw1 F r Report id mismatch\n", "does not open"},
    {"NotOpenedWhileDeleted", "w1 S r\nw2 D r\nw1 F r Report id mismatch\n", ""},
    {"NotOpenedForAnotherReason", "w2 D r\nw1 S r\nw1 F r no reason\n", "does not open"},
    {"OpenedAfterDeletion", "w2 D r\nw2 d r\nw1 S r\nw1 O r\n",
     "opens after its deletion was acknowledged"},
    {"OpenedWhileDeleted", "w2 D r\nw1 S r\nw1 O r\nw2 d r\n", ""},
    {"NotDeleted", "w1 D r\nw1 n r Encountered errors while removing report files\n",
     "is not deleted"},
    {"NotOpenedToBeDeleted", "w1 D r\nw1 n r Report id mismatch\n", "does not open to be deleted"},
    {"ChangedBesideADeletionThatIsRefused",
     "w1 S r\nw2 D r\nw1 L r 0.0 full\nw1 I r x 0.0 1.0\nw1 A r x\n"
     "w2 n r Unable to acquire write lock on report\nw1 I r x 1.0 2.0\nw1 A r x\nw1 U r\nw1 E r\n"
     "w3 S r\nw3 l r 2.0 full\n",
     ""},
    {"LostBesideADeletionThatIsRefused",
     "w1 S r\nw2 D r\nw1 L r 0.0 full\nw1 I r x 0.0 1.0\nw1 A r x\nw1 U r\nw1 E r\n"
     "w2 n r Unable to acquire write lock on report\nw3 S r\nw3 l r 0.0 full\n",
     "is in a state that nobody left"},
    {"StateNotKnownBesideADeletionThatIsRefused",
     "w1 S r\nw2 D r\nw1 L r 8.0 full\nw2 n r Unable to acquire write lock on report\n"
     "w1 I r x 8.0 9.0\nw1 A r x\n",
     ""},
    {"LostByATornDeletion", "w1 D r\nw1 K -\nw2 S r\nw2 l r 3.0 full\n",
     "lost a change though its deletion was cut short"},
    {"FilesLostByATornDeletion", "w1 D r\nw1 K -\nw2 S r\nw2 l r 0.5 full\n", ""},
    {"NotListed", "l G -\nl g -\n", "is not listed"},
    {"NotListedWhileDeleted", "l G -\nw1 D r\nl g -\n", ""},
    {"Listed", "l G -\nl g - r\n", ""},
    {"ListedAfterDeletion", "w1 D r\nw1 d r\nl G -\nl g - r\n", "is listed after its deletion"},
    {"AnnouncedTwice", "o V r 1\n", "a report is announced twice"},
    {"AnnouncedAgainWhileDeletedAndUsed",
     "w2 S r\nw2 O r\nw1 D r\no V r 3\nw2 E r\no V r 1\nw1 d r\n", ""},
    {"AnnouncedAgainWhileDeletedAndUsedByNobody", "w1 D r\no V r 3\no V r 1\nw1 d r\n",
     "a report is announced twice"},
    {"AnnouncedAgainAfterATornDeletionWhileUsed",
     "w2 S r\nw2 O r\nw1 D r\no V r 3\nw1 K -\nw2 E r\no V r 1\n", ""},
    {"AnnouncedAgainAfterAFailedDeletionWhileUsed",
     "w2 S r\nw2 O r\nw1 D r\nw2 E r\nw1 n r Failed to force remove report directory\n"
     "o V r 3\no V r 1\n",
     ""},
    {"AnnouncedAgainLate",
     "w2 S r\nw2 O r\nw1 D r\no V r 3\nw1 K -\nw2 E r\nw3 D r\nw3 d r\no V r 1\no V r 3\n", ""},
    {"AnnouncedAgainAfterARefusedDeletionWhileUsed",
     "w2 S r\nw2 O r\nw1 D r\no V r 2\nw1 n r Unable to acquire write lock on report\nw2 E r\n"
     "w3 D r\no V r 3\no V r 1\nw3 d r\n",
     "a report is announced twice"},
    {"AnnouncedAgainAfterATornDeletion", "w1 D r\no V r 3\nw1 K -\no V r 1\n",
     "a report is announced twice"},
    {"RemovalToldOfALivingReport", "o V r 3\n", "the removal of a report that nobody deleted"},
    {"UpdateToldAfterRemoval", "w1 D r\nw1 d r\no V r 3\no V r 2\n",
     "an update of a report that is not known"},
    {"RemovalNeverTold", "w1 D r\nw1 d r\nw1 C s 0.0\no V s 1\nw1 C t 0.0\no V t 1\n",
     "a removal is never told"},
    {"RemovalToldLate", "w1 D r\nw1 d r\nw1 C s 0.0\no V s 1\no V r 3\nw1 C t 0.0\no V t 1\n", ""},
    {"UpdateNeverTold",
     "w1 S r\nw1 L r 0.0 full\nw1 I r x 0.0 1.0\nw1 A r x\nw1 U r\nw1 E r\n"
     "w1 C s 0.0\no V s 1\nw1 C t 0.0\no V t 1\n",
     "an addition or an update is never told"},
    {"UpdateTold",
     "w1 S r\nw1 L r 0.0 full\nw1 I r x 0.0 1.0\no V r 2\nw1 A r x\nw1 U r\nw1 E r\n"
     "w1 C s 0.0\no V s 1\nw1 C t 0.0\no V t 1\n",
     ""},
};

INSTANTIATE_TEST_SUITE_P(Journals, SoakAudit, testing::ValuesIn(kCases),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_F(SoakAudit, TakesTheBeginningOfACreationOnlyWhenItWasCutShort) {
  take("w1 C r 0.0\nw1 K -\nw2 S r\nw2 l r 9.0 beginning\nw2 U r\nw2 E r\n");
  EXPECT_THAT(audit_.violations(), IsEmpty());
  take("w1 C s 0.0\nw1 c s\nw2 S s\nw2 l s 9.0 beginning\n");
  EXPECT_THAT(audit_.violations(), ElementsAre(HasSubstr("s: is in a state that nobody left")));
}

TEST_F(SoakAudit, FindsTheDirectoryOfAReportThatWasDeleted) {
  std::filesystem::create_directory(root_ / "r");
  take(kCreated + "w1 D r\n");
  audit_.lookForRemains();
  EXPECT_THAT(audit_.violations(), IsEmpty());
  take("w1 d r\n");
  audit_.lookForRemains();
  EXPECT_THAT(audit_.violations(), ElementsAre(HasSubstr("r: is there after its deletion")));
}

TEST_F(SoakAudit, KnowsWhatTheObserverHasYetToTell) {
  take("w1 C r 0.0\nw1 c r\n");
  EXPECT_THAT(audit_.untold(), ElementsAre("r"));
  take("o V r 1\n");
  EXPECT_THAT(audit_.untold(), IsEmpty());
  take("w1 D r\nw1 d r\n");
  EXPECT_THAT(audit_.untold(), ElementsAre("r"));
  take("o V r 3\n");
  EXPECT_THAT(audit_.untold(), IsEmpty());
}

}  // namespace
}  // namespace KELP::Test::Soak
