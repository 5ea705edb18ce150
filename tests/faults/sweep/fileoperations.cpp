// What makes files in a report: a copy is there, whole or in part, before the list names it.

#include "faults/sweep/scenes.h"
#include "support/temporarydirectory.h"

#include <algorithm>
#include <cctype>
#include <fstream>

namespace KELP::Test {
namespace {

namespace fs = std::filesystem;

const Stated kTmpFailure{"Failed to create temp directory for report", true};
const Stated kNoStoredFile{"Unable to get path for report file variation that does not exist"};

/** Of a copy to @p file. */
Expectation copy(const std::string& file) {
  return {.errors = {kTouchFailure,
                     kPathFailure,
                     {"Cannot update file variations on report with no contents"},
                     {"Failed to create directory for report file variation", true},
                     {"Failed to copy file to report location", true},
                     {"Failed to write updated contents for variation removal"}},
          .throws = true,
          .begun = {inReport(file)}};
}

/** Of a move from the scratch directory, whose file is kept unless it succeeds. */
Expectation move(const std::string& file) {
  Expectation expectation = copy(file);
  expectation.left = {inReport("tmp/{file}")};
  expectation.throwsAtEnd = true;
  return expectation;
}

/** Of a filter, which copies too. */
Expectation filtering(bool copies) {
  Expectation expectation = copies ? move("contentfiles/log/20/a.txt") : Expectation{};
  for (const Stated& error :
       {kTmpFailure, kPathFailure, kNoStoredFile, Stated{"Temporary file to filter does not exist"},
        Stated{"Filter aborted without error condition"}}) {
    expectation.errors.push_back(error);
  }
  expectation.throws = true;
  expectation.begun.push_back(inReport("tmp"));
  return expectation;
}

/** A filter as filters should be: it tells when not all was read or written. */
bool toUpper(std::ifstream& input, std::ofstream& output) {
  std::string text(100, '\0');
  input.read(text.data(), static_cast<std::streamsize>(text.size()));
  text.resize(static_cast<std::size_t>(input.gcount()));
  std::ranges::transform(text, text.begin(),
                         [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  output << text;
  output.flush();
  return input.eof() && !input.bad() && output.good();
}

void prepareLink(Scene& scene) {
  prepareReport(scene);
  const fs::path file = scene.root / inReport("contentfiles/log/20/a.txt");
  fs::remove(file);
  fs::create_symlink(scene.outside / "decoy", file);
}

/** Some scratch files that nobody owns. */
void prepareScratch(Scene& scene) {
  prepareReport(scene);
  fs::create_directories(scene.root / inReport("tmp/nested"));
  writeFile(scene.root / inReport("tmp/one"), "1");
  writeFile(scene.root / inReport("tmp/nested/two"), "2");
}

void openWithFile(Scene& scene) {
  openLocked(scene);
  auto file = scene.report->createReportTemporaryFile();
  require(file);
  scene.file = *file;
  writeFile(scene.file->getPath().value(), "from the scratch directory\n");
}

Outcome toldName(const Diagnostic::DiagnosticReport::TemporaryFileResult& result) {
  return result ? done(inWords((*result)->isValid())) : failed(result.error());
}

}  // namespace

std::vector<Operation> fileOperationsOfReports() {
  const std::string stored = "contentfiles/log/20/a.txt";
  const std::string fresh = "contentfiles/log/5/new.txt";
  return {
      {"CopyFile", prepareReport, openLocked,
       [](Scene& s) {
         return told(
             s.report->copyFileToFileProperty("log", 5, s.outside / "source", "new.txt", false));
       },
       copy(fresh)},
      {"CopyFileOver", prepareReport, openLocked,
       [](Scene& s) {
         return told(s.report->copyFileToFileProperty("log", 20, s.outside / "source", "", true));
       },
       copy(stored)},
      {"CopyFileOverLink", prepareLink, openLocked,
       [](Scene& s) {
         return told(s.report->copyFileToFileProperty("log", 20, s.outside / "source", "", true));
       },
       copy(stored)},
      {"MoveTemporaryFile", prepareReport, openWithFile,
       [](Scene& s) {
         return told(
             s.report->moveReportTemporaryFileToFileProperty("log", 5, s.file, "new.txt", false));
       },
       move(fresh)},
      {"CreateTemporaryFile",
       prepareReport,
       openUnlocked,
       [](Scene& s) { return toldName(s.report->createReportTemporaryFile()); },
       {.errors = {kPathFailure, kTmpFailure}, .throws = true, .begun = {inReport("tmp")}}},
      {"CreateAnotherTemporaryFile",
       prepareScratch,
       openUnlocked,
       [](Scene& s) { return toldName(s.report->createReportTemporaryFile()); },
       {.errors = {kPathFailure}, .throws = true}},
      {"CleanUpTemporaryFile",
       prepareReport,
       openWithFile,
       [](Scene& s) {
         s.file->cleanup();
         return done();
       },
       {.errors = {}, .throws = true, .left = {inReport("tmp/{file}")}}},
      {"DropTemporaryFile",
       prepareReport,
       openWithFile,
       [](Scene& s) {
         s.file.reset();
         return done();
       },
       {.errors = {}, .left = {inReport("tmp/{file}")}}},
      {"PurgeTemporaryFiles",
       prepareScratch,
       openUnlocked,
       [](Scene& s) { return told(s.report->purgeReportTemporaryFiles()); },
       {.errors = {kPathFailure, {"err, Failed to remove temp directory for report"}},
        .gone = {inReport("tmp")}}},
      {"FilterToTemporaryFile", prepareReport, openUnlocked,
       [](Scene& s) {
         auto result = s.report->filterFileVariationToTemporaryFile("log", 20, toUpper);
         if (result) s.file = *result;
         return toldName(result);
       },
       filtering(false)},
      {"FilterFile", prepareReport, openLocked,
       [](Scene& s) { return told(s.report->filterFileVariation("log", 20, toUpper)); },
       filtering(true)},
  };
}

}  // namespace KELP::Test
