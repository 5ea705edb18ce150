// In which order the data policy removes the files of what it drops.

#include "unit/contents/files/filesfixture.h"
#include "unit/diagnostic/removals.h"

#include <diagnostic/diagnosticreport.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::ElementsAre;

class PolicyOrder : public FilesTest {};

TEST_F(PolicyOrder, OfRemovalsIsThatOfPropertiesAndTheirVariations) {
  ASSERT_THAT(report().createReportFileProperty("another", "text/plain", {}), Succeeds());
  addFile(40, "dropped", "d", "another");
  addFile(31, "dropped", "b");
  addFile(20, "kept", "kept");
  addFile(50, "dropped", "a");
  addFile(21, "dropped", "c", "another");
  RemovalSpy spy;
  EXPECT_THAT(report().applyPolicyFilters(), Succeeds());
  EXPECT_THAT(spy.names(), ElementsAre("b", "a", "d", "c"));
}

}  // namespace
}  // namespace KELP::Diagnostic
