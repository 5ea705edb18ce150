#include "contents.h"
#include "openreport.h"
#include "roles.h"
#include "steps.h"

#include <algorithm>
#include <fstream>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace CrashDemo {
namespace {

/** Leaves out the lines that contain one of some words, and counts them. */
class LineFilter {
 public:
  explicit LineFilter(std::vector<std::string> unwanted) : unwanted_(std::move(unwanted)) {}

  /** As DiagnosticReport::FileFilter says. Whether the streams were sound is for the filter to
   *  tell: a part of a file must not pass for the whole. */
  bool operator()(std::ifstream& input, std::ofstream& output) {
    for (std::string line; std::getline(input, line);) {
      if (contains(line)) {
        ++removed_;
      } else {
        output << line << '\n';
      }
    }
    return input.eof() && output.flush().good();
  }

  /** How many lines were left out, in words. */
  [[nodiscard]] std::string removed() const {
    return std::to_string(removed_) + (removed_ == 1 ? " line" : " lines");
  }

 private:
  [[nodiscard]] bool contains(const std::string& line) const {
    return std::any_of(unwanted_.begin(), unwanted_.end(), [&](const std::string& word) {
      return line.find(word) != std::string::npos;
    });
  }

  std::vector<std::string> unwanted_;
  int removed_ = 0;
};

/** What no report should hold, whatever its level, is taken out of the stored file. */
void removeSecrets(const Console& console, OpenReport& report) {
  LineFilter secrets({"token="});
  require(report->filterFileVariation(Contents::kLog, Contents::kPersonal, std::ref(secrets)),
          "taking secrets out of the log");
  console.say("took secrets out of the stored log: " + secrets.removed());
}

/** What only some may see stays where it is, and a version without it is added at a lower level. It
 *  gets that level as the last step, so that nothing unfiltered ever has it. */
void addLogWithoutHomes(const Console& console, OpenReport& report) {
  LineFilter homes({"/home/", "/root/"});
  const auto filtered = require(report->filterFileVariationToTemporaryFile(
                                    Contents::kLog, Contents::kPersonal, std::ref(homes)),
                                "filtering the log");
  require(report->moveReportTemporaryFileToFileProperty(Contents::kLog, Contents::kCleaned,
                                                        filtered, "log.txt", /*overwrite=*/false),
          "adding the filtered log");
  console.say("added a log without home directories at level " +
              std::to_string(Contents::kCleaned) + ", leaving out " + homes.removed());
}

}  // namespace

void runFilter(const Console& console, Assignment& assignment) {
  OpenReport report(console, assignment);
  removeSecrets(console, report);
  addLogWithoutHomes(console, report);
  report.release();
}

}  // namespace CrashDemo
