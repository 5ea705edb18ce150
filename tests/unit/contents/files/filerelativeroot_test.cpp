// Files of reports whose root was given as a relative path: they are recorded in full.

#include "unit/contents/files/filesfixture.h"

#include <diagnostic/diagnosticdata.h>
#include <diagnostic/diagnosticreport.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
namespace fs = std::filesystem;

/** The report of the fixture, opened from above its root. */
class RelativeRootTest : public FilesTest {
 public:
  RelativeRootTest(const RelativeRootTest&) = delete;
  RelativeRootTest& operator=(const RelativeRootTest&) = delete;

 protected:
  RelativeRootTest() {
    unlock();
    fs::current_path(directory_.path());
    relative_ = DiagnosticData(root_.filename()).openReport(id_);
    EXPECT_THAT(relative_->acquireWriteLock(false), Succeeds());
  }
  ~RelativeRootTest() override { fs::current_path(before_); }

  ReportPtr relative_;

 private:
  fs::path before_ = fs::current_path();
};

TEST_F(RelativeRootTest, AFileIsRecordedFoundAndFiltered) {
  const auto source = makeSource("some lines");
  ASSERT_THAT(relative_->copyFileToFileProperty(kProperty, kLevel, source, kFileName, false),
              Succeeds());
  EXPECT_EQ(relative_->getReportFileVariation(kProperty, kLevel)->relative_path,
            storedFile().string());
  EXPECT_EQ(relative_->getReportFileVariationPath(kProperty, kLevel).value(), storedFile());

  const auto filter = [](std::ifstream& in, std::ofstream& out) {
    std::string word;
    in >> word;
    out << word;
    return true;
  };
  ASSERT_THAT(relative_->filterFileVariation(kProperty, kLevel, filter), Succeeds());
  EXPECT_EQ(readFile(storedFile()), "some");
}

TEST_F(RelativeRootTest, ThePolicyRemovesTheFile) {
  constexpr int kTooHigh = 25;
  const auto source = makeSource("secret");
  ASSERT_THAT(relative_->copyFileToFileProperty(kProperty, kTooHigh, source, kFileName, false),
              Succeeds());
  ASSERT_TRUE(fs::exists(storedFile(kTooHigh)));
  ASSERT_THAT(relative_->applyPolicyFilters(), Succeeds());
  EXPECT_FALSE(fs::exists(storedFile(kTooHigh)));
}

}  // namespace
}  // namespace KELP::Diagnostic
