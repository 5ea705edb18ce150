#include "faults/sweep/sweep.h"

#include "faults/sweep/scenes.h"
#include "support/childprocess.h"
#include "support/sanitizers.h"
#include "support/strace.h"
#include "support/waituntil.h"

#include <signal.h>

#include <cstdlib>
#include <string_view>

namespace KELP::Test {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kSourceSize = 100'000;
constexpr const char* kDecoy = "decoy";
constexpr auto kWithLinks = fs::copy_options::recursive | fs::copy_options::copy_symlinks;

int countOf(std::string_view word, const std::string& text) {
  int count = 0;
  for (auto at = text.find(word); at != std::string::npos; at = text.find(word, at + 1))
    ++count;
  return count;
}

void tell(bool works, const std::string& what, Complaints& complaints) {
  if (!works) complaints.push_back("carrying on: " + what);
}

/** Changes and deletes a report that opens; deletes one that does not. */
void carryOnWithReport(const fs::path& root, const char* text, bool usable,
                       Complaints& complaints) {
  const Diagnostic::DiagnosticData repository(root);
  const Diagnostic::ReportUuid id = sweptId(text);
  if (usable) {
    auto report = repository.openReport(id);
    tell(report && report->acquireWriteLock(false) && report->setDescription("carried on"),
         "the report cannot be changed", complaints);
    report.reset();
    const auto other = repository.openReport(id);
    tell(other && other->getDescription() == "carried on", "the change is not seen", complaints);
  }
  tell(repository.deleteReport(id, !usable).has_value(), "the report cannot be deleted",
       complaints);
  tell(!fs::exists(root / text), "the report is still there", complaints);
}

void carryOnWithStore(const fs::path& file, Complaints& complaints) {
  using Option = OS::KVStoreOpenOption;
  const OS::KeyValueStore::Options options{Option::CreateIfMissing, Option::Shared};
  OS::KeyValueStore store(file.string(), "", options);
  tell(store.set("b", "carried on"), "the store cannot be changed", complaints);
  OS::KeyValueStore other(file.string(), "", options);
  tell(other.get("b") == "carried on", "the change is not seen", complaints);
  tell(other.remove("b") && !store.get("b"), "the key cannot be removed", complaints);
}

}  // namespace

bool sweepsAll() {
  const char* asked = std::getenv("KELP_SWEEP");
  return asked != nullptr && std::string_view(asked) == "all";
}

void Sweep::SetUp() {
  if (const std::string why = whyNoStrace(); !why.empty()) GTEST_SKIP() << why;
  if (kHasAddressSanitizer) GTEST_SKIP() << "the sanitizer makes system calls of its own";
  scene_.root = directory_ / "root";
  scene_.outside = directory_ / "outside";
  makeOutside();
  GetParam().prepare(scene_);
  scene_.store.reset();
  if (fs::exists(scene_.root)) fs::copy(scene_.root, template_, kWithLinks);
  ledger_.emplace(ledgerFile_, true);
  ASSERT_NO_FATAL_FAILURE(learn());
}

std::vector<std::string> Sweep::command(std::vector<std::string> more) const {
  std::vector<std::string> all{SWEEP_ACTOR, GetParam().name, scene_.root, scene_.outside,
                               ledgerFile_};
  all.insert(all.end(), more.begin(), more.end());
  return all;
}

void Sweep::makeOutside() const {
  fs::create_directories(scene_.outside);
  writeFile(scene_.outside / "source", std::string(kSourceSize, 's'));
  writeFile(scene_.outside / "decoy", kDecoy);
}

bool Sweep::outsideIsUntouched() const {
  return readFile(scene_.outside / "source") == std::string(kSourceSize, 's') &&
         readFile(scene_.outside / "decoy") == kDecoy;
}

void Sweep::restore() {
  if (!outsideIsUntouched()) makeOutside();
  fs::remove_all(scene_.root);
  if (fs::exists(template_)) fs::copy(template_, scene_.root, kWithLinks);
}

/** Finds out what the operation starts from, what it comes to, and which calls it makes. */
void Sweep::learn() {
  ChildProcess arranging(command({"arrange"}));
  ASSERT_EQ(arranging.wait(), 0);
  State before = stateOf(scene_.root);
  restore();
  ledger_->clear();
  calls_ = TracedRun(command()).calls(trace_);
  const Report report = ledger_->read();
  ASSERT_EQ(report.outcome.kind, Outcome::Kind::Done) << report.outcome.text;
  ASSERT_EQ(report.descriptorsAfter, report.descriptorsBefore);
  State after = stateOf(scene_.root);
  judge_.emplace(GetParam(), std::move(before), std::move(after), report.outcome.text);
}

Sweep::Ending Sweep::run(std::vector<std::string> options) {
  restore();
  ledger_->clear();
  options.insert(options.end(), {"-o", trace_});
  ChildProcess program(TracedRun(command()).traced(options));
  Ending ending;
  const auto limit = std::chrono::steady_clock::now() + kLongestWait;
  while (program.receive(kLongestWait)) {
  }
  if (std::chrono::steady_clock::now() >= limit) {
    ending.hung = true;
    ::kill(ledger_->read().process, SIGKILL);
  }
  ending.status = program.wait();
  ending.injected = countOf("(INJECTED)", readFile(trace_));
  ending.report = ledger_->read();
  return ending;
}

Complaints Sweep::carryOn(const State& found) const {
  Complaints complaints;
  for (const char* id : {kSweptId, kOtherSweptId}) {
    if (found.entries.contains(id)) {
      carryOnWithReport(scene_.root, id, found.usable.contains(id), complaints);
    }
  }
  if (found.entries.contains("store.db")) carryOnWithStore(storeFile(scene_), complaints);
  return complaints;
}

}  // namespace KELP::Test
