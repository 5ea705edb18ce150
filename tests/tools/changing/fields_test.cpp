#include "tools/changing/changingtest.h"

namespace KELP::Test {
namespace {

using testing::ElementsAre;

using FieldsTest = ChangingTest;

TEST_F(FieldsTest, SetsEveryField) {
  perform({"set", id_.substr(0, 8), "--description", "d", "--pid", "-1", "--process", "p",
           "--library", "b", "--library", "a", "--consent", "-5", "--max-consent", "100"});
  EXPECT_EQ(report()->getDescription(), "d");
  EXPECT_EQ(report()->getPID(), -1);
  EXPECT_EQ(report()->getProcessName(), "p");
  EXPECT_THAT(report()->getLoadedLibraries().value(), ElementsAre("b", "a"));
  EXPECT_EQ(report()->getCurrentConsentLevel(), -5);
  EXPECT_EQ(report()->getMaxConsentLevel(), 100);
}

TEST_F(FieldsTest, SetsOnlyWhatIsGiven) {
  perform({"set", id_, "--pid", "7"});
  EXPECT_EQ(report()->getPID(), 7);
  EXPECT_FALSE(report()->getDescription());
  EXPECT_FALSE(report()->getProcessName());
  EXPECT_FALSE(report()->getLoadedLibraries());
  EXPECT_EQ(report()->getCurrentConsentLevel(), 20);
  EXPECT_EQ(report()->getMaxConsentLevel(), 30);
}

TEST_F(FieldsTest, TakesTextsAsTheyAre) {
  std::vector<std::string> arguments{"set", id_};
  for (const std::string& text : difficultTexts()) {
    SCOPED_TRACE(text);
    perform({"set", id_, "--description", text, "--process", text});
    EXPECT_EQ(report()->getDescription(), text);
    EXPECT_EQ(report()->getProcessName(), text);
    arguments.insert(arguments.end(), {"--library", text});
  }
  perform(arguments);
  EXPECT_EQ(report()->getLoadedLibraries(), difficultTexts());
}

TEST_F(FieldsTest, NeedsSomethingToSet) {
  refuse({"set", id_}, 2, "there is nothing to set; see --help");
  refuse({"set", id_, "--wait", "1s"}, 2, "there is nothing to set; see --help");
}

/** What a stage forbids, together with what it does not: nothing is set. */
struct Forbidden {
  std::string option;
  std::string message;
};

TEST_F(FieldsTest, SetsAllOrNothingOnceCreationIsComplete) {
  ASSERT_TRUE(locked()->markCreationComplete());
  const std::vector<Forbidden> cases{
      {"--pid", "PID can only be set during report creation"},
      {"--process", "Process name can only be set during report creation"},
      {"--library", "Loaded Libraries list can only be set during report creation"},
      {"--max-consent", "Current report status does not support max consent level changes"},
  };
  for (const Forbidden& forbidden : cases) {
    refuse({"set", id_, "--description", "d", "--consent", "1", forbidden.option, "5"}, 1,
           forbidden.message);
  }
  perform({"set", id_, "--consent", "1"});
  EXPECT_EQ(report()->getCurrentConsentLevel(), 1);
}

TEST_F(FieldsTest, SetsOnlyTheDescriptionOnceTheUserHasDecided) {
  completeCollection();
  refuse({"set", id_, "--description", "d", "--consent", "1"}, 1,
         "Current report status does not support consent level changes");
  perform({"set", id_, "--description", ""});
  EXPECT_EQ(report()->getDescription(), "");
}

TEST_F(FieldsTest, MarksTheStagesInTheirOrder) {
  perform({"mark", id_, "creation"});
  EXPECT_TRUE(report()->isCreationComplete());
  EXPECT_FALSE(report()->isUserInteractionComplete());
  perform({"mark", id_, "user-interaction"});
  EXPECT_TRUE(report()->isUserInteractionComplete());
  EXPECT_FALSE(report()->isDataCollectionComplete());
  perform({"mark", id_, "data-collection"});
  EXPECT_TRUE(report()->isDataCollectionComplete());
  EXPECT_FALSE(report()->isDataPolicyApplied());
  perform({"mark", id_, "data-policy"});
  EXPECT_TRUE(report()->isDataPolicyApplied());
  EXPECT_FALSE(report()->isUploadComplete());
  perform({"mark", id_, "upload"});
  EXPECT_TRUE(report()->isUploadComplete());

  const std::vector<Forbidden> twice{
      {"creation", "Report creation is already complete"},
      {"user-interaction", "User interaction is already complete"},
      {"data-collection",
       "Current report status does not support marking data collection as completed"},
      {"data-policy",
       "Current report status does not support marking policy application as completed"},
      {"upload", "Current report status does not support marking upload as completed"},
  };
  for (const Forbidden& forbidden : twice) {
    refuse({"mark", id_, forbidden.option}, 1, forbidden.message);
  }
}

TEST_F(FieldsTest, KnowsNoOtherStage) {
  refuse({"mark", id_, "\033[2Jdone"}, 2,
         "\"\\x1b[2Jdone\" is not one of creation, user-interaction, data-collection, data-policy, "
         "upload");
}

}  // namespace
}  // namespace KELP::Test
