// What changes the list of contents: the time, then the list, then the files that it does not name
// any more.

#include "faults/sweep/scenes.h"

namespace KELP::Test {
namespace {

constexpr const char* kPropertyFailure =
    "Failed to write updated content property value to report metadata";
constexpr const char* kListFailure = "Failed to write updated contents for variation removal";
/** Contents that cannot be read count as none. */
constexpr const char* kNothingToRemove =
    "Cannot remove content properties from report with no contents";
constexpr const char* kNoVariations =
    "Cannot remove content property variations from report with no contents";

/** Of adding a variation. */
Expectation addition() {
  return change({kListFailure, "Cannot update file variations on report with no contents"});
}

/** Of a removal, with the files that may stay. */
Expectation removal(std::vector<std::string> messages, std::vector<std::string> left = {}) {
  Expectation expectation = change(std::move(messages));
  if (!left.empty()) expectation.errors.push_back(kPathFailure);
  expectation.left = std::move(left);
  return expectation;
}

/** What is dropped without a path to its file keeps its file. A consent level that cannot be read
 *  counts as 0, and everything above is dropped. */
Expectation policy() {
  Expectation expectation = change({kListFailure, kNoVariations});
  expectation.left = {inReport("contentfiles")};
  expectation.otherValue = {
      inReport("metadata.db:report_contents"),
      R"([{"media_type":"text/plain","property_type":"FILE","stable_id":"log","tags":["t"],)"
      R"("variations":null},{"media_type":"text/plain","property_type":"FILE","stable_id":"map",)"
      R"("tags":null,"variations":null},{"media_type":"","property_type":"STRING",)"
      R"("stable_id":"text","tags":null,"variations":null},{"media_type":"",)"
      R"("property_type":"INTEGER","stable_id":"number","tags":null,"variations":null}])"};
  return expectation;
}

}  // namespace

std::vector<Operation> contentOperations() {
  return {
      {"CreateFirstProperty", prepareBareReport, openLocked,
       [](Scene& s) { return told(s.report->createReportStringProperty("new", {"tag"})); },
       change({kPropertyFailure})},
      {"CreateProperty", prepareReport, openLocked,
       [](Scene& s) { return told(s.report->createReportFileProperty("new", "a/b", {"tag"})); },
       change({kPropertyFailure})},
      {"AddTag", prepareReport, openLocked,
       [](Scene& s) { return told(s.report->addTagToContentProperty("text", "new")); },
       change({kListFailure, "Cannot update content tags on report with no contents"})},
      {"AddStringVariation", prepareReport, openLocked,
       [](Scene& s) { return told(s.report->addReportStringVariation("text", 9, "new", false)); },
       addition()},
      {"AddIntegerVariation", prepareReport, openLocked,
       [](Scene& s) { return told(s.report->addReportIntegerVariation("number", 9, 8, false)); },
       addition()},
      {"ReplaceStringVariation", prepareApplied, openLocked,
       [](Scene& s) { return told(s.report->addReportStringVariation("text", 5, "new", true)); },
       addition()},
      {"RemoveStringProperty", prepareReport, openLocked,
       [](Scene& s) { return told(s.report->removeReportStringProperty("text")); },
       removal({kPropertyFailure, kNothingToRemove,
                "Report string property to be removed does not exist in the report"})},
      {"RemoveFileProperty", prepareReport, openLocked,
       [](Scene& s) { return told(s.report->removeReportFileProperty("log")); },
       removal({kPropertyFailure, kNothingToRemove,
                "Report file property to be removed does not exist in the report"},
               {inReport("contentfiles/log")})},
      {"RemoveStringVariation", prepareReport, openLocked,
       [](Scene& s) { return told(s.report->removeStringVariation("text", 5)); },
       removal({kListFailure, kNoVariations,
                "Report string variation to be removed does not exist in the report"})},
      {"RemoveFileVariation", prepareReport, openLocked,
       [](Scene& s) { return told(s.report->removeFileVariation("log", 20)); },
       removal({kListFailure, kNoVariations,
                "Report file variation to be removed does not exist in the report"},
               {inReport("contentfiles/log/20/a.txt")})},
      {"ApplyPolicy", prepareCollected, openLocked,
       [](Scene& s) { return told(s.report->applyPolicyFilters()); }, policy()},
  };
}

}  // namespace KELP::Test
