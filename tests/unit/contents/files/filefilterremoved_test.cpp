// A filter that itself removes the variation that it is to rewrite.

#include "unit/contents/files/filesfixture.h"

#include <diagnostic/diagnosticreport.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::ElementsAre;
using testing::IsEmpty;

class FileFilterRemoved : public FilesTest {
 protected:
  FileFilterRemoved() { addFile(kLevel, "content"); }
};

TEST_F(FileFilterRemoved, VariationIsRecordedAnewUnderTheNameOfItsProperty) {
  EXPECT_THAT(report().filterFileVariation(
                  kProperty, kLevel,
                  [&](std::ifstream&, std::ofstream& output) {
                    EXPECT_THAT(report().removeFileVariation(kProperty, kLevel), Succeeds());
                    output << "instead";
                    return true;
                  }),
              Succeeds());
  EXPECT_THAT(log_.take(), IsEmpty());
  EXPECT_THAT(property().variations,
              ElementsAre(fileVariation(storedFile(kLevel, kProperty), kLevel)));
  EXPECT_THAT(namesIn(variationDirectory()), ElementsAre(kProperty));
  EXPECT_EQ(readFile(storedFile(kLevel, kProperty)), "instead");
  EXPECT_THAT(namesIn(tmpDirectory()), IsEmpty());
}

}  // namespace
}  // namespace KELP::Diagnostic
