#pragma once

#include "tools/support/repository.h"

#include <gtest/gtest.h>

#include <string>

namespace KELP::Test {

/** The completions offer what is in this repository: two reports, the first with two properties. */
class CompletionTest : public testing::Test {
 protected:
  static constexpr const char* kOne = "10000000-0000-4000-8000-000000000001";
  static constexpr const char* kTwo = "20000000-0000-4000-8000-000000000002";

  CompletionTest() {
    const auto one = repository_.create(kOne);
    static_cast<void>(one->createReportStringProperty("plain", {}));
    static_cast<void>(one->createReportStringProperty("with space", {}));
    static_cast<void>(repository_.create(kTwo));
  }

  /** Gives the first report one more property. */
  void addProperty(const std::string& name) const {
    Diagnostic::ReportUuid id;
    id.parse(kOne);
    const auto report = repository_.data().openReport(id);
    EXPECT_TRUE(report->acquireWriteLock(false));
    EXPECT_TRUE(report->createReportStringProperty(name, {}));
  }

  Repository repository_;
  TemporaryDirectory directory_;
};

}  // namespace KELP::Test
