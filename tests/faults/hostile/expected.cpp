#include "faults/hostile/expected.h"

#include <cerrno>
#include <set>

namespace KELP::Test {
namespace {

namespace fs = std::filesystem;
using Kind = Form::Kind;
using Lines = std::vector<std::string>;

constexpr const char* kNotWithin = "0 Path is not within report directory";

bool has(const std::set<std::string>& names, const std::string& name) {
  return names.contains(name);
}

Expected failure(int code, const std::string& message, std::optional<Lines> lines = std::nullopt) {
  return {std::to_string(code) + " " + message, std::move(lines)};
}

/** A failure whose line is its message. */
Expected plainFailure(int code, const std::string& message) {
  return failure(code, message, Lines{message});
}

/** Why a required file of the report is none, by its word in the messages. */
Expected noRequiredFile(const Case& subject, int code, const std::string& word, const char* file) {
  return failure(code, word + " file does not exist for diagnostic report",
                 Lines{word + " file " + (subject.scene.subject() / file).string() +
                       " does not exist for diagnostic report"});
}

/** The code that the system has for looking at the thing as at a file. */
int codeOf(Kind kind) {
  return kind == Kind::Nothing ? ENOENT : kind == Kind::Circle ? ELOOP : 0;
}

const char* const kNoStore = "Failed to initialize metadata kv store for report";

Expected mismatch(const std::string& stored) {
  return failure(
      0, "Report id mismatch",
      Lines{std::string("Report id mismatch: expected ") + kSubjectId + ", got " + stored});
}

/** Why a report does not open whose directory the thing is. */
Expected whyNoDirectoryOpens(const Case& subject) {
  const std::string name = subject.form.name;
  if (name == "link to a directory outside") {
    return plainFailure(0, kNoStore);
  }
  if (name == "link to another report") {
    return mismatch(kOtherId);
  }
  if (subject.form.kind == Kind::Circle) {
    return {kNotWithin, std::nullopt};
  }
  const bool isMissing = subject.form.kind == Kind::Nothing || subject.form.kind == Kind::Directory;
  return noRequiredFile(subject, isMissing ? ENOENT : ENOTDIR, "Lock", "lock");
}

/** Why the report does not open; nothing when it does. */
std::optional<Expected> whyNotOpened(const Case& subject) {
  const Form& form = subject.form;
  if (subject.place.empty()) {
    return whyNoDirectoryOpens(subject);
  }
  if (subject.place == "lock" && form.kind != Kind::File) {
    return noRequiredFile(subject, codeOf(form.kind), "Lock", "lock");
  }
  if (subject.place == "metadata.db") {
    if (form.kind != Kind::File) {
      return noRequiredFile(subject, codeOf(form.kind), "Metadata", "metadata.db");
    }
    return form.name == std::string("empty file") ? mismatch("null") : plainFailure(0, kNoStore);
  }
  return std::nullopt;
}

/** What a repository finds with a report that does not open. */
std::optional<Expected> ofRepository(const Case& subject, const std::string& operation,
                                     const Expected& refusal) {
  const bool isDirectory = !subject.place.empty() || subject.form.kind == Kind::Directory;
  const bool hasStatus = subject.form.kind != Kind::Nothing && subject.form.kind != Kind::Circle;
  const std::optional<Lines> nothing = hasStatus ? std::optional(Lines{}) : std::nullopt;
  if (operation == "list") {
    return Expected{"other ", isDirectory ? refusal.lines : nothing};
  }
  if (operation == "count") {
    return Expected{isDirectory ? "2" : "1", std::nullopt};
  }
  if (operation == "create" && (isDirectory || hasStatus)) {
    return Expected{"no", Lines{"Cannot create diagnostic report because another report already "
                                "exists with the same uuid"}};
  }
  if (operation == "create") {
    return Expected{"no", std::nullopt};
  }
  return std::nullopt;
}

/** On a report that does not open. */
Expected withoutOpening(const Case& subject, const std::string& operation,
                        const Expected& refusal) {
  if (const std::optional<Expected> found = ofRepository(subject, operation, refusal)) {
    return *found;
  }
  if (operation == "observe") {
    return {"yes yes", std::nullopt};
  }
  if (operation == "delete") {
    return refusal;
  }
  if (operation != "force delete") {
    return {"not opened", refusal.lines};
  }
  if (subject.form.name == std::string("full directory") && !subject.place.empty()) {
    const std::string word = subject.place == "lock" ? "lock" : "metadata";
    return failure(ENOTEMPTY,
                   "Failed to remove " + word + " file from report while force deleting");
  }
  return {"yes", refusal.lines};
}

/** With the thing in the place of the scratch directory. */
std::optional<Expected> withScratch(const Form& form, const std::string& operation) {
  if (operation == "purge" ||
      !has({"temporary", "move", "filter", "filter to temporary"}, operation)) {
    return std::nullopt;
  }
  if (form.kind == Kind::Nothing) {
    return failure(EEXIST, "Failed to create temp directory for report");
  }
  if (form.kind == Kind::Circle) {
    return Expected{"thrown " + std::to_string(ELOOP), Lines{}};
  }
  if (form.kind != Kind::Directory && has({"move", "filter"}, operation)) {
    return failure(ENOTDIR, "Failed to copy file to report location",
                   Lines{"Failed to copy file to report location: Not a directory",
                         "Failed to copy temporary file to report file variations"});
  }
  return std::nullopt;
}

/** With the thing in the place of a directory of stored files. */
std::optional<Expected> withDirectory(const Case& subject, const std::string& operation) {
  const Form& form = subject.form;
  const bool isLevel = subject.place == "contentfiles/log/2";
  const bool leadsOut = form.isLink && form.kind != Kind::Nothing;
  if ((operation == "copy" || operation == "move") && isLevel) {
    return std::nullopt;
  }
  if (operation == "remove property") {
    return leadsOut && subject.place == "contentfiles" ? std::optional(Expected{kNotWithin, {}})
                                                       : std::nullopt;
  }
  if (has({"copy", "move", "overwrite", "path", "best path", "filter", "filter to temporary",
           "remove variation"},
          operation) &&
      leadsOut) {
    return Expected{kNotWithin, std::nullopt};
  }
  if (has({"filter", "filter to temporary"}, operation)) {
    const fs::path file = subject.scene.subject() / "contentfiles/log/2/a.txt";
    return failure(0, "Temporary file to filter does not exist",
                   Lines{"Temporary file (" + file.string() + ") to filter does not exist"});
  }
  if (has({"copy", "move", "overwrite"}, operation) && form.kind != Kind::Directory) {
    if (isLevel && form.kind != Kind::Nothing) {
      return failure(ENOTDIR, "Failed to copy file to report location",
                     Lines{"Failed to copy file to report location: Not a directory"});
    }
    return failure(form.kind == Kind::Nothing ? EEXIST : ENOTDIR,
                   "Failed to create directory for report file variation");
  }
  return std::nullopt;
}

/** With the thing in the place of the stored file. */
std::optional<Expected> withStoredFile(const Case& subject, const std::string& operation) {
  const Form& form = subject.form;
  const bool isRead = has({"filter", "filter to temporary"}, operation);
  if (isRead && form.kind == Kind::Nothing) {
    return failure(0, "Temporary file to filter does not exist");
  }
  if (isRead && form.kind == Kind::Circle) {
    return Expected{"thrown " + std::to_string(ELOOP), Lines{}};
  }
  if (has({"filter", "overwrite"}, operation) && !form.isLink && form.kind != Kind::File) {
    return failure(EINVAL, "Failed to copy file to report location");
  }
  return std::nullopt;
}

}  // namespace

std::optional<Expected> expectedOf(const Case& subject, const std::string& operation,
                                   const Attempt& unharmed) {
  if (const std::optional<Expected> refusal = whyNotOpened(subject)) {
    return withoutOpening(subject, operation, *refusal);
  }
  std::optional<Expected> expected;
  if (subject.place == "tmp") {
    expected = withScratch(subject.form, operation);
  } else if (subject.place == "contentfiles/log/2/a.txt") {
    expected = withStoredFile(subject, operation);
  } else if (subject.place != "lock") {
    expected = withDirectory(subject, operation);
  }
  // Everything else is as ever: what stands there is accepted, followed or not looked at.
  return expected ? expected : Expected{unharmed.result, std::nullopt};
}

}  // namespace KELP::Test
