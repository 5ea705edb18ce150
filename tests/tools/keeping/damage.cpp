#include "damage.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <stdexcept>
#include <system_error>
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

/** @p make in the place of what stood at @p name. */
Make replace(const char* name, const Make& make) {
  return [name, make](const fs::path& report) {
    fs::remove_all(report / name);
    make(report / name);
  };
}

void makePipe(const fs::path& path) {
  if (::mkfifo(path.c_str(), 0644) != 0) {
    throw std::runtime_error("no pipe");
  }
}

/** The device that is always empty. */
bool makeDevice(const fs::path& path) {
  return ::mknod(path.c_str(), S_IFCHR | 0644, makedev(1, 3)) == 0;
}

bool mayMakeDevices() {
  const TemporaryDirectory directory;
  return makeDevice(directory / "device");
}

void makeDirectory(const fs::path& path) {
  fs::create_directory(path);
}

void makeFullDirectory(const fs::path& path) {
  fs::create_directory(path);
  writeFile(path / "inside", "");
}

void makeFile(const fs::path& path) {
  writeFile(path, "a file");
}

/** What may stand in the place of anything, and never has to be waited for. */
struct Stranger {
  const char* name;
  const char* text;
  Make make;
};

std::vector<Stranger> strangers() {
  std::vector<Stranger> all{
      {"Pipe", "a pipe", makePipe},
      {"Socket", "a socket", makeSocket},
      {"DanglingLink", "a symbolic link",
       [](const fs::path& path) { fs::create_symlink("nothing", path); }},
      {"LinkToItself", "a symbolic link",
       [](const fs::path& path) { fs::create_symlink(path.filename(), path); }},
  };
  if (mayMakeDevices()) {
    all.push_back({"Device", "a device", [](const fs::path& path) { makeDevice(path); }});
  }
  return all;
}

/** Each stranger in each place. */
void addStrangers(std::vector<Damage>& damages) {
  for (const Stranger& stranger : strangers()) {
    for (const char* const name : {"lock", "metadata.db", "tmp"}) {
      damages.push_back({stranger.name + std::string("As") + name, "wrong-file", name,
                         "\"" + std::string(name) + "\" is " + stranger.text, false,
                         in(replace(name, stranger.make))});
    }
    damages.push_back({stranger.name + std::string("AsContents"), "wrong-file", "contentfiles",
                       "\"contentfiles\" is " + std::string(stranger.text), false,
                       [stranger](const Repository& repository, const std::string& id) {
                         static_cast<void>(hold(repository, id)->removeReportFileProperty("log"));
                         replace("contentfiles", stranger.make)(repository.root() / id);
                       }});
    const char* const file = "contentfiles/log/0/log";
    damages.push_back({stranger.name + std::string("AsFile"), "missing-file", file,
                       "\"log\" at level 0: \"" + std::string(file) + "\" is " + stranger.text,
                       false, in(replace(file, stranger.make))});
  }
}

/** A scratch file that nobody wrote to lately. */
Make writeOld(const char* name) {
  return [name](const fs::path& report) {
    fs::create_directories((report / name).parent_path());
    writeOldFile(report / name);
    makeOld((report / name).parent_path());
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

/** What a process leaves that dies at once in the creation of a report. */
void creatorDiedAtOnce(const Repository& repository, const std::string& id) {
  makeEmpty(repository, id);
  writeFile(repository.root() / id / "lock", "");
  writeFile(repository.root() / id / "metadata.db", "");
}

/** What one leaves that dies early in the creation of a report. */
void creatorDied(const Repository& repository, const std::string& id) {
  creatorDiedAtOnce(repository, id);
  for (const char* const key : {"app_id", "build_id", "user_id"}) {
    repository.writeKey(id, key, "1");
  }
}

/** The same, but late. */
void creatorDiedLate(const Repository& repository, const std::string& id) {
  creatorDiedAtOnce(repository, id);
  repository.writeKey(id, "report_id", id);
  for (const char* const key :
       {"app_id", "build_id", "user_id", "device_id", "session_id", "report_version", "created",
        "modified", "current_consent_level", "max_consent_level", "report_creation_complete",
        "user_interaction_complete", "data_collection_complete", "data_policy_applied"}) {
    repository.writeKey(id, key, "1");
  }
}

/** A creator that died, and a file system that lost a byte of what it wrote last. */
void creatorDiedInAWrite(const Repository& repository, const std::string& id) {
  fs::remove_all(repository.root() / id);
  static_cast<void>(repository.create(id));
  const fs::path store = repository.root() / id / "metadata.db";
  fs::resize_file(store, fs::file_size(store) - 1);
}

std::vector<Damage> makeDamages() {
  const std::string file = "contentfiles/log/0/log";
  const std::string compaction = "metadata.db.compact";
  const std::string leftCompaction = "\"metadata.db.compact\" is left over";
  std::vector<Damage> damages{
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
      {"CutStore", "half-made", "", "the metadata lack upload_complete", false,
       creatorDiedInAWrite},
      {"EmptyStore", "half-made", "",
       "the metadata lack report_id, app_id, build_id, user_id, device_id, session_id, "
       "report_version, created, modified, current_consent_level, max_consent_level, "
       "report_creation_complete, user_interaction_complete, data_collection_complete, "
       "data_policy_applied, upload_complete",
       false, creatorDiedAtOnce},
      {"ChangedByte", "damaged-store", "metadata.db", "\"metadata.db\" cannot be read", false,
       in(changeByte)},
      {"NoStoreAtAll", "damaged-store", "metadata.db", "\"metadata.db\" cannot be read", false,
       in(write("metadata.db", "something else than a store of keys"))},
      {"LinkedStore", "wrong-file", "metadata.db", "\"metadata.db\" is a symbolic link", false,
       in(replaceByLink("metadata.db"))},
      {"DirectoryAsStore", "wrong-file", "metadata.db", "\"metadata.db\" is a directory", false,
       in(replace("metadata.db", makeFullDirectory))},
      {"LinkedLock", "wrong-file", "lock", "\"lock\" is a symbolic link", false,
       in(replaceByLink("lock"))},
      {"DirectoryAsLock", "wrong-file", "lock", "\"lock\" is a directory", false,
       in(replace("lock", makeFullDirectory))},
      {"EmptyDirectoryAsLock", "wrong-file", "lock", "\"lock\" is a directory", false,
       in(replace("lock", makeDirectory))},
      {"EmptyDirectoryAsStore", "wrong-file", "metadata.db", "\"metadata.db\" is a directory",
       false, in(replace("metadata.db", makeDirectory))},
      {"FileAsScratch", "wrong-file", "tmp", "\"tmp\" is a file", false,
       in(replace("tmp", makeFile))},
      {"LinkedScratch", "wrong-file", "tmp", "\"tmp\" is a symbolic link", false,
       in(replaceByLink("tmp"))},
      {"LinkedContents", "wrong-file", "contentfiles", "\"contentfiles\" is a symbolic link", false,
       in(replaceByLink("contentfiles"))},
      {"Mismatch", "mismatched-identifier", "metadata.db",
       "the metadata are those of ffffffff-0000-4000-8000-000000000000", false,
       setKey("report_id", "ffffffff-0000-4000-8000-000000000000")},
      {"UnreadableContents", "unreadable-contents", "metadata.db",
       "the list of contents cannot be read", false, setKey("report_contents", "{")},
      {"NoValues", "unreadable-metadata", "metadata.db",
       "what is stored is no value: report_id, created, upload_complete", false,
       [](const Repository& repository, const std::string& id) {
         repository.writeKey(id, "report_id", "garbage");
         repository.writeKey(id, "created", "xx");
         repository.writeKey(id, "upload_complete", "xx");
       }},
      {"MissingFile", "missing-file", file,
       "\"log\" at level 0: \"contentfiles/log/0/log\" is missing", false,
       in(remove("contentfiles/log/0/log"))},
      {"LinkedFile", "missing-file", file,
       "\"log\" at level 0: \"contentfiles/log/0/log\" is a symbolic link", false,
       in(replaceByLink("contentfiles/log/0/log"))},
      {"DirectoryAsFile", "missing-file", file,
       "\"log\" at level 0: \"contentfiles/log/0/log\" is a directory", false,
       in(replace("contentfiles/log/0/log", makeFullDirectory))},
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
       true, in(writeOld("tmp/s\ncratch"))},
      {"LeftScratchDirectory", "leftover-temporary", "tmp/directory",
       "\"tmp/directory\" is left over", true, in([](const fs::path& report) {
         fs::create_directories(report / "tmp/directory/of");
         writeFile(report / "tmp/directory/of/files", "bytes");
         makeOld(report / "tmp/directory");
       })},
      {"LeftLink", "leftover-temporary", "tmp/link", "\"tmp/link\" is left over", true,
       in([](const fs::path& report) {
         fs::create_symlink("../metadata.db", report / "tmp/link");
         makeOld(report / "tmp/link");
       })},
      {"LeftCompaction", "leftover-temporary", compaction, leftCompaction, true,
       in(writeOld("metadata.db.compact"))},
      {"LinkedCompaction", "leftover-temporary", compaction, leftCompaction, true,
       in([](const fs::path& report) {
         fs::create_symlink("metadata.db", report / "metadata.db.compact");
         makeOld(report / "metadata.db.compact");
       })},
      {"DirectoryAsCompaction", "leftover-temporary", compaction, leftCompaction, true,
       in([](const fs::path& report) {
         makeFullDirectory(report / "metadata.db.compact");
         makeOld(report / "metadata.db.compact");
       })},
      {"NewScratchFile", "leftover-temporary", "tmp/new", "\"tmp/new\" is left over", false,
       in(write("tmp/new", "bytes"))},
      {"NewFileInScratchDirectory", "leftover-temporary", "tmp/directory",
       "\"tmp/directory\" is left over", false, in([](const fs::path& report) {
         fs::create_directories(report / "tmp/directory/of");
         writeFile(report / "tmp/directory/of/files", "");
         makeOld(report / "tmp/directory");
         writeFile(report / "tmp/directory/of/files", "bytes");
       })},
      {"NamedScratchFile", "leftover-temporary", "tmp/kept", "\"tmp/kept\" is left over", false,
       [](const Repository& repository, const std::string& id) {
         writeOldFile(repository.root() / id / "tmp/kept");
         addRecord(repository, id, 7, "tmp/kept");
       }},
  };
  addStrangers(damages);
  return damages;
}

}  // namespace

const std::vector<Damage>& damages() {
  static const std::vector<Damage> all = makeDamages();
  return all;
}

void makeOld(const fs::path& path) {
  constexpr time_t kAge = 2L * 24 * 60 * 60;
  const timespec then{std::time(nullptr) - kAge, 0};
  const timespec times[] = {then, then};
  std::vector<fs::path> all{path};
  if (fs::is_directory(fs::symlink_status(path))) {
    for (const auto& entry : fs::recursive_directory_iterator(path)) {
      all.push_back(entry.path());
    }
  }
  for (const fs::path& each : all) {
    if (::utimensat(AT_FDCWD, each.c_str(), times, AT_SYMLINK_NOFOLLOW) != 0) {
      throw std::system_error(errno, std::generic_category(), each);
    }
  }
}

void writeOldFile(const fs::path& path) {
  writeFile(path, "bytes");
  makeOld(path);
}

void makeSocket(const fs::path& path) {
  // A path of a socket must be short, wherever the tests run.
  const TemporaryDirectory elsewhere;
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const fs::path name = elsewhere / "socket";
  name.native().copy(address.sun_path, sizeof(address.sun_path) - 1);
  const int descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const bool isBound =
      descriptor >= 0 &&
      ::bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
  ::close(descriptor);
  if (!isBound) {
    throw std::system_error(errno, std::generic_category(), "no socket");
  }
  fs::rename(name, path);
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
