#include "damage.h"

#include <sys/stat.h>

#include <stdexcept>
#include <utility>

namespace KELP::Test {
namespace {

namespace fs = std::filesystem;
using Make = std::function<void(const fs::path&)>;

/** A change of the report's directory. */
std::function<void(const Repository&, const std::string&)> in(const Make& make) {
  return
      [make](const Repository& repository, const std::string& id) { make(repository.root() / id); };
}

Make remove(const char* name) {
  return [name](const fs::path& report) { fs::remove_all(report / name); };
}

Make write(const char* name, std::string content) {
  return [name, content = std::move(content)](const fs::path& report) {
    fs::create_directories((report / name).parent_path());
    writeFile(report / name, content);
  };
}

/** A link in the place of @p name to what stood there. */
Make replaceByLink(const char* name) {
  return [name](const fs::path& report) {
    fs::rename(report / name, report / "stash");
    fs::create_symlink(report / "stash", report / name);
  };
}

Make replaceByPipe(const char* name) {
  return [name](const fs::path& report) {
    fs::remove_all(report / name);
    if (::mkfifo((report / name).c_str(), 0644) != 0) {
      throw std::runtime_error("no pipe");
    }
  };
}

Make replaceByDirectory(const char* name) {
  return [name](const fs::path& report) {
    fs::remove_all(report / name);
    fs::create_directory(report / name);
    writeFile(report / name / "inside", "");
  };
}

Make replaceByFile(const char* name) {
  return [name](const fs::path& report) {
    fs::remove_all(report / name);
    writeFile(report / name, "a file");
  };
}

/** Changes one byte in the middle of the store. */
void changeByte(const fs::path& report) {
  std::string bytes = readFile(report / "metadata.db");
  bytes[bytes.size() / 2] ^= 0x20;
  writeFile(report / "metadata.db", bytes);
}

std::function<void(const Repository&, const std::string&)> setKey(const char* key,
                                                                  const char* value) {
  return [key, value](const Repository& repository, const std::string& id) {
    repository.writeKey(id, key, value);
  };
}

void makeEmpty(const Repository& repository, const std::string& id) {
  fs::remove_all(repository.root() / id);
  fs::create_directory(repository.root() / id);
}

/** What a process leaves that dies early in the creation of a report. */
void creatorDied(const Repository& repository, const std::string& id) {
  makeEmpty(repository, id);
  writeFile(repository.root() / id / "lock", "");
  writeFile(repository.root() / id / "metadata.db", "");
  for (const char* const key : {"app_id", "build_id", "user_id"}) {
    repository.writeKey(id, key, "1");
  }
}

/** The same, but late. */
void creatorDiedLate(const Repository& repository, const std::string& id) {
  makeEmpty(repository, id);
  writeFile(repository.root() / id / "lock", "");
  writeFile(repository.root() / id / "metadata.db", "");
  repository.writeKey(id, "report_id", id);
  for (const char* const key :
       {"app_id", "build_id", "user_id", "device_id", "session_id", "report_version", "created",
        "modified", "current_consent_level", "max_consent_level", "report_creation_complete",
        "user_interaction_complete", "data_collection_complete", "data_policy_applied"}) {
    repository.writeKey(id, key, "1");
  }
}

std::vector<Damage> makeDamages() {
  const std::string file = "contentfiles/log/0/log";
  return {
      {"EmptyReport", "half-made", "", "the directory is empty", true, makeEmpty},
      {"NoLock", "half-made", "", "\"lock\" is missing", false, in(remove("lock"))},
      {"NoStore", "half-made", "", "\"metadata.db\" is missing", false, in(remove("metadata.db"))},
      {"CreatorDied", "half-made", "",
       "the metadata lack report_id, device_id, session_id, report_version, created, modified, "
       "current_consent_level, max_consent_level, report_creation_complete, "
       "user_interaction_complete, data_collection_complete, data_policy_applied, upload_complete",
       false, creatorDied},
      {"CreatorDiedLate", "half-made", "", "the metadata lack upload_complete", false,
       creatorDiedLate},
      {"ChangedByte", "damaged-store", "metadata.db", "\"metadata.db\" cannot be read", false,
       in(changeByte)},
      {"NoStoreAtAll", "damaged-store", "metadata.db", "\"metadata.db\" cannot be read", false,
       in(write("metadata.db", "something else than a store of keys"))},
      {"LinkedStore", "wrong-file", "metadata.db", "\"metadata.db\" is a symbolic link", false,
       in(replaceByLink("metadata.db"))},
      {"PipeAsStore", "wrong-file", "metadata.db", "\"metadata.db\" is a pipe", false,
       in(replaceByPipe("metadata.db"))},
      {"DirectoryAsStore", "wrong-file", "metadata.db", "\"metadata.db\" is a directory", false,
       in(replaceByDirectory("metadata.db"))},
      {"LinkedLock", "wrong-file", "lock", "\"lock\" is a symbolic link", false,
       in(replaceByLink("lock"))},
      {"PipeAsLock", "wrong-file", "lock", "\"lock\" is a pipe", false, in(replaceByPipe("lock"))},
      {"DirectoryAsLock", "wrong-file", "lock", "\"lock\" is a directory", false,
       in(replaceByDirectory("lock"))},
      {"FileAsScratch", "wrong-file", "tmp", "\"tmp\" is a file", false, in(replaceByFile("tmp"))},
      {"LinkedScratch", "wrong-file", "tmp", "\"tmp\" is a symbolic link", false,
       in(replaceByLink("tmp"))},
      {"LinkedContents", "wrong-file", "contentfiles", "\"contentfiles\" is a symbolic link", false,
       in(replaceByLink("contentfiles"))},
      {"Mismatch", "mismatched-identifier", "metadata.db",
       "the metadata are those of ffffffff-0000-4000-8000-000000000000", false,
       setKey("report_id", "ffffffff-0000-4000-8000-000000000000")},
      {"UnreadableContents", "unreadable-contents", "metadata.db",
       "the list of contents cannot be read", false, setKey("report_contents", "{")},
      {"MissingFile", "missing-file", file,
       "\"log\" at level 0: \"contentfiles/log/0/log\" is missing", false,
       in(remove("contentfiles/log/0/log"))},
      {"LinkedFile", "missing-file", file,
       "\"log\" at level 0: \"contentfiles/log/0/log\" is a symbolic link", false,
       in(replaceByLink("contentfiles/log/0/log"))},
      {"PipeAsFile", "missing-file", file,
       "\"log\" at level 0: \"contentfiles/log/0/log\" is a pipe", false,
       in(replaceByPipe("contentfiles/log/0/log"))},
      {"DirectoryAsFile", "missing-file", file,
       "\"log\" at level 0: \"contentfiles/log/0/log\" is a directory", false,
       in(replaceByDirectory("contentfiles/log/0/log"))},
      {"RecordOutside", "missing-file", "../\x1b[31mlock",
       "\"log\" at level 7: \"../\\x1b[31mlock\" is not in the report", false,
       [](const Repository& repository, const std::string& id) {
         addRecord(repository, id, 7, "../\x1b[31mlock");
       }},
      {"RecordOfNothing", "missing-file", "", "\"log\" at level 7: \"\" is not in the report",
       false,
       [](const Repository& repository, const std::string& id) {
         addRecord(repository, id, 7, "");
       }},
      {"OrphanFile", "orphan-file", "contentfiles/log/9/stray",
       "\"contentfiles/log/9/stray\" is named by no record", false,
       in(write("contentfiles/log/9/stray", "data"))},
      {"OrphanAtTop", "orphan-file", "contentfiles/stray",
       "\"contentfiles/stray\" is named by no record", false,
       in(write("contentfiles/stray", "data"))},
      {"OrphanOfStrangeName", "orphan-file", "contentfiles/a\x1b[2J\nb\x9b/f",
       "\"contentfiles/a\\x1b[2J\\nb\\x9b/f\" is named by no record", false,
       in(write("contentfiles/a\x1b[2J\nb\x9b/f", "data"))},
      {"OrphanLink", "orphan-file", "contentfiles/log/link",
       "\"contentfiles/log/link\" is named by no record", false, in([](const fs::path& report) {
         fs::create_directory_symlink("/", report / "contentfiles/log/link");
       })},
      {"EmptyDirectories", "orphan-file", "contentfiles/gone",
       "\"contentfiles/gone\" is an empty directory of no property", true,
       in([](const fs::path& report) {
         fs::create_directories(report / "contentfiles/gone/1/deep");
         fs::create_directories(report / "contentfiles/gone/2");
       })},
      {"LeftScratchFile", "leftover-temporary", "tmp/s\ncratch", "\"tmp/s\\ncratch\" is left over",
       true, in(write("tmp/s\ncratch", "bytes"))},
      {"LeftScratchDirectory", "leftover-temporary", "tmp/directory",
       "\"tmp/directory\" is left over", true, in(write("tmp/directory/of/files", "bytes"))},
      {"LeftCompaction", "leftover-temporary", "metadata.db.compact",
       "\"metadata.db.compact\" is left over", true, in(write("metadata.db.compact", "bytes"))},
  };
}

}  // namespace

const std::vector<Damage>& damages() {
  static const std::vector<Damage> all = makeDamages();
  return all;
}

void addRecord(const Repository& repository, const std::string& id, int level,
               const std::string& path) {
  Diagnostic::DiagnosticReportContentVariations record;
  record.relative_path = path;
  record.sensitivity_level = level;
  if (!hold(repository, id)->addReportContentVariation("log", record, false)) {
    throw std::runtime_error("no record was added");
  }
}

}  // namespace KELP::Test
