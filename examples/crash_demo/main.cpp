// The life of one report, from a crash to its deletion, in processes that share nothing but the
// directory of the reports: a worker crashes, its watcher makes a report of that, a collector adds
// the worker's log, a filter cleans it, the user consents to some of it, a policy drops the rest,
// an uploader copies what is left to an outbox, and a viewer shows the report and deletes it.
//
//   crash_demo [DIR]                 plays all of it in DIR (reports/, logs/ and outbox/) or,
//   without
//                                    one, in a new directory that is removed at the end
//   crash_demo --role NAME DIR ID    is one of its processes
//
// The exit status is 0 when every step succeeded.

#include "console.h"
#include "program.h"
#include "roles.h"
#include "steps.h"

#include <stdlib.h>
#include <sys/wait.h>

#include <exception>
#include <filesystem>
#include <functional>
#include <iostream>
#include <optional>
#include <string_view>

namespace CrashDemo {
namespace {

struct Role {
  const char* name;
  int colour;
  void (*run)(const Console&, const Assignment&);
};

/** In the order in which they are played. */
constexpr Role kRoles[] = {
    {"watcher", 33, runWatcher}, {"collector", 34, runCollector}, {"filter", 35, runFilter},
    {"consent", 32, runConsent}, {"policy", 93, runPolicy},       {"uploader", 94, runUploader},
    {"viewer", 36, runViewer},
};

/** A new directory, removed at the end. */
class TemporaryDirectory {
 public:
  TemporaryDirectory() {
    std::string name = (std::filesystem::temp_directory_path() / "crash_demo-XXXXXX").string();
    require(::mkdtemp(name.data()) != nullptr, "making " + name);
    path_ = name;
  }
  ~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

void playAll(const Console& console, const std::filesystem::path& directory) {
  // All roles are told which report is theirs, so that there may be others as well.
  KELP::Diagnostic::ReportUuid id;
  id.randomize();
  console.say("works in " + directory.string());
  for (const Role& role : kRoles) {
    Program process({ownPath().string(), "--role", role.name, directory.string(), id.toString()});
    const int status = process.wait();
    require(WIFEXITED(status) && WEXITSTATUS(status) == 0, std::string("the ") + role.name);
  }
  console.say("all steps succeeded");
}

/** Runs @p work. @return the exit status of the process. */
int finish(const Console& console, const std::function<void()>& work) {
  try {
    work();
    return 0;
  } catch (const std::exception& failure) {
    console.complain(failure.what());
    return 1;
  }
}

int direct(std::optional<std::filesystem::path> directory) {
  const Console console("demo", 37);
  return finish(console, [&] {
    if (directory) {
      playAll(console, *directory);
    } else {
      const TemporaryDirectory temporary;
      playAll(console, temporary.path());
    }
  });
}

int play(std::string_view name, const std::filesystem::path& directory, const char* idText) {
  for (const Role& role : kRoles) {
    if (name == role.name) {
      const Console console(role.name, role.colour);
      return finish(console, [&] {
        KELP::Diagnostic::ReportUuid id;
        require(id.parse(idText), "reading the identifier");
        role.run(console, Assignment(std::filesystem::absolute(directory), id));
      });
    }
  }
  return 2;
}

}  // namespace
}  // namespace CrashDemo

int main(int argc, char** argv) {
  if (argc == 5 && std::string_view(argv[1]) == "--role") {
    return CrashDemo::play(argv[2], argv[3], argv[4]);
  }
  if (argc > 2 || (argc == 2 && argv[1][0] == '-')) {
    std::cerr << "usage: crash_demo [DIR]\n";
    return 2;
  }
  return CrashDemo::direct(argc == 2 ? std::optional<std::filesystem::path>(argv[1])
                                     : std::nullopt);
}
