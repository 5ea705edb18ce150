#include "faults/hostile/scene.h"

#include "unit/os/storefile.h"

#include <sys/stat.h>

#include <set>

namespace KELP::Test {
namespace {

namespace fs = std::filesystem;

std::string describe(const fs::path& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) {
    return "nothing";
  }
  std::string text =
      "mode " + std::to_string(status.st_mode) + ", owner " + std::to_string(status.st_uid) + ":" +
      std::to_string(status.st_gid) + ", links " + std::to_string(status.st_nlink) + ", modified " +
      std::to_string(status.st_mtim.tv_sec) + "." + std::to_string(status.st_mtim.tv_nsec);
  if (S_ISREG(status.st_mode)) {
    text += ", content " + readFile(path);
  } else if (S_ISLNK(status.st_mode)) {
    text += ", to " + fs::read_symlink(path).string();
  }
  return text;
}

/** A tree in which whatever is looked for is found. */
void makeDecoys(const fs::path& directory) {
  fs::create_directories(directory / "tmp");
  fs::create_directories(directory / "contentfiles/log/2");
  fs::create_directories(directory / "log/2");
  fs::create_directories(directory / "2");
  for (const char* name : {"lock", "metadata.db", "tmp/file", "contentfiles/log/2/a.txt",
                           "log/2/a.txt", "2/a.txt", "a.txt", "log/file"}) {
    writeFile(directory / name, "decoy");
  }
}

}  // namespace

Entries entriesBelow(const fs::path& top) {
  Entries entries{{top, describe(top)}};
  if (fs::is_directory(fs::symlink_status(top))) {
    for (const auto& entry : fs::recursive_directory_iterator(top)) {
      entries[entry.path()] = describe(entry.path());
    }
  }
  return entries;
}

std::string difference(const Entries& before, const Entries& after) {
  std::string text;
  for (const auto& [path, description] : before) {
    const auto found = after.find(path);
    if (found == after.end() || found->second != description) {
      text += path + ": " + description + " became " +
              (found == after.end() ? "nothing" : found->second) + "\n";
    }
  }
  for (const auto& [path, description] : after) {
    text += before.contains(path) ? "" : path + " is new: " + description + "\n";
  }
  return text;
}

Scene::Scene() {
  fs::permissions(directory_.path(), static_cast<fs::perms>(0755));
  makeDecoys(outside() / "directory");
  writeFile(outside() / "file", "decoy");
  ::mkfifo((outside() / "fifo").c_str(), 0666);
  writeFile(source(), "source");
  makeReport(kOtherId);
  reset();
}

void Scene::reset() const {
  for (const auto& entry : fs::directory_iterator(root())) {
    if (entry.path().filename() != kOtherId) {
      fs::remove_all(entry.path());
    }
  }
  makeReport(kSubjectId);
}

Entries Scene::untouchable() const {
  Entries all = entriesBelow(outside());
  all.merge(entriesBelow(other()));
  all.merge(entriesBelow(source()));
  return all;
}

std::string Scene::metadata(const std::string& id, const std::map<std::string, std::string>& more) {
  std::string bytes = storeMagic();
  const std::map<std::string, std::string> fields{
      {"report_id", id},          {"app_id", "1"},
      {"build_id", "2"},          {"user_id", "3"},
      {"device_id", "device"},    {"session_id", "session"},
      {"report_version", "1"},    {"created", "1700000000"},
      {"modified", "1700000000"}, {"current_consent_level", "20"},
      {"max_consent_level", "30"}};
  for (const auto& map : {fields, more}) {
    for (const auto& [key, value] : map) {
      bytes += storeRecord({key, value});
    }
  }
  return bytes;
}

std::string Scene::contents(const fs::path& directory) {
  return R"([{"stable_id":"log","property_type":"FILE","media_type":"","tags":null,"variations":)"
         R"([{"relative_path":")" +
         (directory / "contentfiles/log/2/a.txt").string() +
         R"(","sensitivity_level":2}]},{"stable_id":"text","property_type":"STRING",)"
         R"("media_type":"","tags":null,"variations":[{"string":"value","sensitivity_level":2}]}])";
}

void Scene::makeReport(const std::string& id) const {
  const fs::path directory = root() / id;
  fs::create_directories(directory / "contentfiles/log/2");
  fs::create_directories(directory / "tmp");
  writeFile(directory / "lock", "");
  writeFile(directory / "metadata.db", metadata(id, {{"report_contents", contents(directory)}}));
  writeFile(directory / "contentfiles/log/2/a.txt", "stored");
  writeFile(directory / "tmp/file", "scratch");
}

Actor::Actor(const Scene& scene, bool isNobody)
    : process_([&] {
        std::vector<std::string> command{KELP_HOSTILE_ACTOR, scene.root(), kSubjectId,
                                         scene.source()};
        if (isNobody) {
          command.emplace_back("nobody");
        }
        return command;
      }()) {}

Attempt Actor::attempt(const std::string& operation) {
  Attempt attempt;
  process_.send(operation);
  while (const auto line = process_.receive()) {
    if (*line == "end") {
      attempt.isOver = true;
      break;
    }
    if (line->starts_with("tried ")) {
      attempt.result = line->substr(6);
    } else {
      attempt.lines.push_back(line->substr(7));
    }
  }
  return attempt;
}

}  // namespace KELP::Test
